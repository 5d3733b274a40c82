// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filters for references.

#include "ReferenceFilter.h"

#include <algorithm>
#include <cstdint>

#include "PlaneFilter.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

/// Where the samples of one colour lie in an image.
struct Site {
    std::size_t iFirst, nStepX, nStepY, nWidth, nHeight;
};

std::vector<Site> sitesOf(const ImageLayout& rLayout) {
    const auto nWidth = static_cast<std::size_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    std::vector<Site> vSites;
    if (rLayout.pFormat->isCfa()) {
        for (std::size_t i = 0; i < 4; ++i)
            vSites.push_back(
                {(i / 2) * nWidth + i % 2, 2, 2 * nWidth, (nWidth + 1 - i % 2) / 2, (nHeight + 1 - i / 2) / 2});
        return vSites;
    }
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t i = 0; i < nChannels; ++i) vSites.push_back({i, nChannels, nChannels * nWidth, nWidth, nHeight});
    return vSites;
}

/// The filters for one colour, with samples of type T.
template <class T>
class CSiteFilter {
public:
    explicit CSiteFilter(const FilterRadii& rRadii) : m_sRadii(rRadii) {}

    void run(const Site& rSite, std::vector<float>& rSamples) {
        const PlaneSize sSize = {rSite.nWidth, rSite.nHeight};
        m_vPlane.resize(sSize.nWidth * sSize.nHeight);
        forEach(rSite, [&](std::size_t i, std::size_t iSample) { m_vPlane[i] = static_cast<T>(rSamples[iSample]); });
        if (m_sRadii.nMedian != 0) {
            m_vMedian.resize(m_vPlane.size());
            medianFilter(sSize, m_vPlane.data(), m_sRadii.nMedian, m_vMedian.data());
            m_vPlane.swap(m_vMedian);
        }
        if (m_sRadii.nBox != 0) {
            m_vMean.resize(m_vPlane.size());
            boxFilter(sSize, m_vPlane.data(), m_sRadii.nBox, m_vMean.data());
            forEach(rSite, [&](std::size_t i, std::size_t iSample) { rSamples[iSample] = m_vMean[i]; });
        } else {
            forEach(rSite, [&](std::size_t i, std::size_t iSample) { rSamples[iSample] = m_vPlane[i]; });
        }
    }

private:
    /// Calls fn(index in the plane, index in the image) for every sample.
    template <class F>
    static void forEach(const Site& rSite, F fn) {
        std::size_t i = 0;
        for (std::size_t iY = 0; iY < rSite.nHeight; ++iY) {
            std::size_t iSample = rSite.iFirst + iY * rSite.nStepY;
            for (std::size_t iX = 0; iX < rSite.nWidth; ++iX, iSample += rSite.nStepX) fn(i++, iSample);
        }
    }

    FilterRadii m_sRadii;
    std::vector<T> m_vPlane;
    std::vector<T> m_vMedian;
    std::vector<float> m_vMean;
};

template <class T>
void filterSites(const ImageLayout& rLayout, const FilterRadii& rRadii, std::vector<float>& rSamples) {
    CSiteFilter<T> oFilter(rRadii);
    for (const Site& rSite : sitesOf(rLayout)) {
        if (rSite.nWidth != 0 && rSite.nHeight != 0)
            oFilter.run(rSite, rSamples);
    }
}

}  // namespace

void filterReference(const ImageLayout& rLayout, const FilterRadii& rRadii, std::vector<float>& rSamples) {
    if (rRadii.nMedian == 0 && rRadii.nBox == 0)
        return;
    // References of a single image hold whole numbers; these take half the time, with the same result.
    const bool bWhole = std::all_of(rSamples.begin(), rSamples.end(), [](float fSample) {
        return static_cast<float>(static_cast<uint16_t>(fSample)) == fSample;
    });
    if (bWhole)
        filterSites<uint16_t>(rLayout, rRadii, rSamples);
    else
        filterSites<float>(rLayout, rRadii, rSamples);
}

}  // namespace StandIn
}  // namespace XAPEL2
