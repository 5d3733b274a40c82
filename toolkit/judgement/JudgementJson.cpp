// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Judgements as JSON.

#include <nlohmann/json.hpp>

#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/Outliers.h"

namespace XAPEL2 {
namespace Toolkit {

// A NaN is written as null.

nlohmann::ordered_json toJson(const Findings& rFindings) {
    nlohmann::ordered_json result = nlohmann::ordered_json::array();
    for (const Finding& rFinding : rFindings) {
        const char* pLevel = rFinding.eLevel == eRefusal ? "refusal" : rFinding.eLevel == eWarning ? "warning" : "note";
        result.push_back({{"severity", pLevel},
                          {"id", rFinding.strId},
                          {"text", rFinding.strText},
                          {"advice", rFinding.strAdvice},
                          {"final", rFinding.bFinal}});
    }
    return result;
}

nlohmann::ordered_json toJson(const ReferenceJudgement& rJudgement) {
    const ReferenceFigures& rFigures = rJudgement.figures;
    const bool bDark = rFigures.eKind == StandIn::eReferenceDark;
    nlohmann::ordered_json result = {{"kind", bDark ? "dark" : "light"},
                                     {"pixelFormat", rFigures.layout.pFormat->pName},
                                     {"width", rFigures.layout.nWidth},
                                     {"height", rFigures.layout.nHeight},
                                     {"frames", rFigures.nFrames},
                                     {"mean", rFigures.dMean},
                                     {"meanPercent", rFigures.dMeanPercent},
                                     {"saturatedShare", rFigures.dSaturatedShare},
                                     {"temporalNoise", rFigures.dTemporalNoise}};
    result["frameMeans"] = {{"first", rFigures.means.dFirst},
                            {"last", rFigures.means.dLast},
                            {"least", rFigures.means.dLeast},
                            {"most", rFigures.means.dMost}};
    const std::vector<std::string> vecNames = colourClassNames(*rFigures.layout.pFormat);
    for (std::size_t i = 0; i < vecNames.size(); ++i) {
        result["classes"].push_back({{"class", vecNames[i]}, {"mean", rFigures.vecClassMeans[i]}});
    }
    if (bDark) {
        result["hotPixels"] = countDefects(rFigures.vecDefects, eHot);
    } else {
        result["deadPixels"] = countDefects(rFigures.vecDefects, eDead);
        result["brightPixels"] = countDefects(rFigures.vecDefects, eBright);
    }
    result["outliers"] = outliersJson(rFigures.outliers);
    result["camera"] = toJson(rFigures.settings);
    result["verdict"] = verdict(rJudgement.vecFindings);
    result["findings"] = toJson(rJudgement.vecFindings);
    return result;
}

nlohmann::ordered_json toJson(const PairJudgement& rJudgement) {
    const PairFigures& rFigures = rJudgement.figures;
    return {{"conversionGain", rFigures.dGain},
            {"electrons", rFigures.dElectrons},
            {"predictedResidualPercent", rFigures.dResidualPercent},
            {"predictedResidualPercentOfClasses", rFigures.vecResidualPercent},
            {"selfTestDn", rFigures.dSelfTestDn},
            {"nonUniformity", toJson(rFigures.unevenness)},
            {"verdict", verdict(rJudgement.vecFindings)},
            {"findings", toJson(rJudgement.vecFindings)}};
}

}  // namespace Toolkit
}  // namespace XAPEL2
