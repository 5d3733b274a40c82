// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether corrected images fit into their samples.

#include "toolkit/judgement/OutputLevel.h"

#include <algorithm>
#include <vector>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double OUTPUT_LEAST = 1.0, OUTPUT_MOST = 80.0;  // percent of full scale, as of references

}  // namespace

Findings judgeOutputLevel(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    if (rLight.output.isDefault()) {
        return {};
    }
    const double dFull = rLight.layout.pFormat->fullScale();
    const std::vector<double> vecTargets = StandIn::pairTargets(rDark, rLight);
    const double dLeast = *std::min_element(vecTargets.begin(), vecTargets.end());
    const double dMost = *std::max_element(vecTargets.begin(), vecTargets.end()) + rLight.output.dPedestal;
    const std::string strComes =
        "With its target and pedestal an even image as bright as the light reference comes to ";
    const char* const pAdvice = "Set others with xapel2-shading output.";
    if (dMost >= dFull) {
        return {{eRefusal, "output-clipped",
                 strComes + fixed(dMost, 1) + " DN, where full scale is " + fixed(dFull, 0) + " DN: it is cut off.",
                 pAdvice}};
    }
    Findings vecFindings;
    if (100.0 * dMost > OUTPUT_MOST * dFull) {
        vecFindings.push_back({eWarning, "output-bright",
                               strComes + fixed(dMost, 1) + " DN, " + fixed(100.0 * dMost / dFull, 1) +
                                   " % of full scale: little room is left for what is brighter.",
                               pAdvice});
    }
    if (100.0 * dLeast < OUTPUT_LEAST * dFull) {
        vecFindings.push_back({eWarning, "output-dim",
                               strComes + fixed(dLeast, 2) + " DN above the pedestal, " +
                                   fixed(100.0 * dLeast / dFull, 2) +
                                   " % of full scale: whole DN are too coarse for it.",
                               pAdvice});
    }
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
