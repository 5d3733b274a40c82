// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filters for references.

#include "standin/processor/filters/ReferenceFilter.h"

#include "standin/processor/filters/PlaneFilter.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

/// The samples of each colour.
std::vector<Plane> planesOf(const ImageLayout& rLayout, float* pSamples) {
    const auto nWidth = static_cast<std::size_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    std::vector<Plane> vecPlanes;
    if (rLayout.pFormat->isCfa()) {
        for (std::size_t i = 0; i < 4; ++i) {
            vecPlanes.push_back({pSamples + (i / 2) * nWidth + i % 2, (nWidth + 1 - i % 2) / 2,
                                 (nHeight + 1 - i / 2) / 2, 2, 2 * nWidth});
        }
        return vecPlanes;
    }
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t i = 0; i < nChannels; ++i) {
        vecPlanes.push_back({pSamples + i, nWidth, nHeight, nChannels, nChannels * nWidth});
    }
    return vecPlanes;
}

}  // namespace

void filterReference(const ImageLayout& rLayout, const FilterRadii& rRadii, std::vector<float>& rSamples) {
    for (const Plane& rPlane : planesOf(rLayout, rSamples.data())) {
        if (rPlane.nWidth == 0 || rPlane.nHeight == 0) {
            continue;
        }
        if (rRadii.nMedian != 0) {
            medianFilter(rPlane, rRadii.nMedian);
        }
        if (rRadii.nBox != 0) {
            boxFilter(rPlane, rRadii.nBox);
        }
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
