// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Judgements as JSON.

#include <nlohmann/json.hpp>

#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

// A NaN is written as null.

nlohmann::ordered_json toJson(const Findings& rFindings) {
    nlohmann::ordered_json Result = nlohmann::ordered_json::array();
    for (const Finding& rFinding : rFindings) {
        const char* pLevel = rFinding.eLevel == eRefusal ? "refusal" : rFinding.eLevel == eWarning ? "warning" : "note";
        Result.push_back({{"severity", pLevel},
                          {"id", rFinding.strId},
                          {"text", rFinding.strText},
                          {"advice", rFinding.strAdvice},
                          {"final", rFinding.bFinal}});
    }
    return Result;
}

nlohmann::ordered_json toJson(const ReferenceJudgement& rJudgement) {
    const ReferenceFigures& rFigures = rJudgement.Figures;
    const bool bDark = rFigures.eKind == StandIn::eReferenceDark;
    nlohmann::ordered_json Result = {{"kind", bDark ? "dark" : "light"},
                                     {"pixelFormat", rFigures.sLayout.pFormat->pName},
                                     {"width", rFigures.sLayout.nWidth},
                                     {"height", rFigures.sLayout.nHeight},
                                     {"frames", rFigures.nFrames},
                                     {"mean", rFigures.dMean},
                                     {"meanPercent", rFigures.dMeanPercent},
                                     {"saturatedShare", rFigures.dSaturatedShare},
                                     {"temporalNoise", rFigures.dTemporalNoise}};
    Result["frameMeans"] = {{"first", rFigures.sMeans.dFirst},
                            {"last", rFigures.sMeans.dLast},
                            {"least", rFigures.sMeans.dLeast},
                            {"most", rFigures.sMeans.dMost}};
    const std::vector<std::string> vecNames = colourClassNames(*rFigures.sLayout.pFormat);
    for (std::size_t i = 0; i < vecNames.size(); ++i) {
        Result["classes"].push_back({{"class", vecNames[i]}, {"mean", rFigures.vecClassMeans[i]}});
    }
    if (bDark) {
        Result["hotPixels"] = countDefects(rFigures.vecDefects, eHot);
    } else {
        Result["deadPixels"] = countDefects(rFigures.vecDefects, eDead);
        Result["brightPixels"] = countDefects(rFigures.vecDefects, eBright);
    }
    Result["camera"] = toJson(rFigures.Settings);
    Result["verdict"] = verdict(rJudgement.vecFindings);
    Result["findings"] = toJson(rJudgement.vecFindings);
    return Result;
}

nlohmann::ordered_json toJson(const PairJudgement& rJudgement) {
    const PairFigures& rFigures = rJudgement.Figures;
    return {{"conversionGain", rFigures.dGain},
            {"electrons", rFigures.dElectrons},
            {"predictedResidualPercent", rFigures.dResidualPercent},
            {"selfTestDn", rFigures.dSelfTestDn},
            {"nonUniformity", toJson(rFigures.Unevenness)},
            {"verdict", verdict(rJudgement.vecFindings)},
            {"findings", toJson(rJudgement.vecFindings)}};
}

}  // namespace Toolkit
}  // namespace XAPEL2
