// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads any text as the description of a reference; what is accepted comes back the same when written and read again.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "FuzzTarget.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2::StandIn;
using XAPEL2::Fuzz::require;

namespace {

/// Most brackets that are open at once.
int depthOf(const std::string& strJson) {
    using Json = nlohmann::json;
    int nDeepest = 0;
    const Json oJson = Json::parse(strJson, [&](int nDepth, Json::parse_event_t eEvent, Json&) {
        const bool bOpens = eEvent == Json::parse_event_t::object_start || eEvent == Json::parse_event_t::array_start;
        nDeepest = std::max(nDeepest, nDepth + bOpens);
        return true;
    });
    return nDeepest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, std::size_t nBytes) {
    const XAPEL2::Fuzz::CBudget oBudget;
    const std::string strText = std::string(reinterpret_cast<const char*>(pData), nBytes).c_str();
    ReferenceImage sFirst;
    try {
        sFirst = parseDescription(strText.c_str(), 6, 4);
    } catch (const CFileError&) {
        return 0;
    }
    require(strText.size() <= 65536, "the length is bounded");
    const double dFull = sFirst.layout.pFormat->fullScale();
    const auto isWithin = [](double d, double dLargest) { return d >= 0.0 && d <= dLargest; };
    require(sFirst.nImages != 0 && isWithin(sFirst.dSaturatedShare, 1.0) && isWithin(sFirst.dMean, dFull) &&
                isWithin(sFirst.dTemporalNoise, dFull),
            "every figure is in its range");
    require(isWithin(sFirst.output.dTarget, dFull) && isWithin(sFirst.output.dPedestal, dFull / 2),
            "the output is in its range");
    require(!sFirst.geometry.isKnown() || sFirst.layout.liesOn(sFirst.geometry), "the image lies on its sensor");
    if (strText.size() > 60000) {
        return 0;  // written anew it may be longer than a description can be
    }

    require(depthOf(strText) <= 8, "the depth is bounded");
    const std::string strAgain = makeDescription(sFirst);
    const ReferenceImage sSecond = parseDescription(strAgain.c_str(), 6, 4);
    require(sFirst.eKind == sSecond.eKind && sFirst.layout == sSecond.layout && sFirst.nImages == sSecond.nImages &&
                sFirst.dSaturatedShare == sSecond.dSaturatedShare && sFirst.dMean == sSecond.dMean &&
                sFirst.dTemporalNoise == sSecond.dTemporalNoise && sFirst.strCamera == sSecond.strCamera &&
                sFirst.geometry == sSecond.geometry && sFirst.output.eTarget == sSecond.output.eTarget &&
                sFirst.output.dTarget == sSecond.output.dTarget && sFirst.output.dPedestal == sSecond.output.dPedestal,
            "what was written is read again");
    return 0;
}
