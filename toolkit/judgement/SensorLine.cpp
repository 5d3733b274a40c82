// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Which pixels of a sensor make which pixels of an image.

#include "toolkit/judgement/SensorLine.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace XAPEL2 {
namespace Toolkit {

using StandIn::GeometryAxis;

namespace {

constexpr double OFFSET_MAX = 1e6;

}  // namespace

StandIn::ImageGeometry sensorPlace(const StandIn::ReferenceImage& rReference) {
    const StandIn::ImageLayout& rLayout = rReference.layout;
    if (rReference.geometry.isKnown() && rLayout.liesOn(rReference.geometry)) {
        return rReference.geometry;
    }
    const nlohmann::json json = nlohmann::json::parse(rReference.strCamera, nullptr, false);
    const auto fnAxis = [&](const char* pName, uint64_t nSize) {
        GeometryAxis axis;
        if (json.is_object() && json.contains(pName) && json[pName].is_number()) {
            const double dValue = json[pName].get<double>();
            axis.nOffset = dValue >= 0.0 && dValue <= OFFSET_MAX ? static_cast<uint64_t>(dValue) : 0;
        }
        axis.nSensor = axis.nOffset + nSize;
        return axis;
    };
    return {fnAxis("OffsetX", rLayout.nWidth), fnAxis("OffsetY", rLayout.nHeight)};
}

std::vector<CSensorLine::Run> CSensorLine::runsOf(uint64_t i) const {
    const uint64_t n = m_axis.nBinning;
    const uint64_t iFirst = GeometryAxis::firstOf(m_axis.unmirrored(i, m_bCfa), n, m_bCfa);
    const uint64_t nStep = GeometryAxis::stepOf(n, m_bCfa);
    if (nStep == 1) {
        return {{iFirst, n}};
    }
    std::vector<Run> vecRuns;
    for (uint64_t k = 0; k < n; ++k) {
        vecRuns.push_back({iFirst + k * nStep, 1});
    }
    return vecRuns;
}

CSensorLine::Hits CSensorLine::hitsOf(const Run& rRun) const {
    const uint64_t n = m_axis.nBinning;
    // Where the image begins on the binned sensor, before that is mirrored.
    const uint64_t uFirst = m_axis.unmirrored(m_axis.bReverse ? m_nSize - 1 : 0, m_bCfa);
    // No pixel of the image is made of what lies beyond.
    const uint64_t iBegin = m_bCfa ? uFirst / 2 * 2 * n : uFirst * n;
    const uint64_t iEnd = m_bCfa ? (uFirst + m_nSize + 1) / 2 * 2 * n : (uFirst + m_nSize) * n;
    Hits hits;
    for (uint64_t i = std::max(rRun.iFirst, iBegin); i < std::min(rRun.iFirst + rRun.nLength, iEnd); ++i) {
        const uint64_t u = m_bCfa ? i / (2 * n) * 2 + i % 2 : i / n;
        if (u < uFirst || u - uFirst >= m_nSize) {
            continue;
        }
        hits.vecPixels.push_back(m_axis.bReverse ? m_nSize - 1 - (u - uFirst) : u - uFirst);
        ++hits.nInside;
    }
    std::sort(hits.vecPixels.begin(), hits.vecPixels.end());
    hits.vecPixels.erase(std::unique(hits.vecPixels.begin(), hits.vecPixels.end()), hits.vecPixels.end());
    return hits;
}

}  // namespace Toolkit
}  // namespace XAPEL2
