// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How judgement puts numbers, layouts and settings into words.

#include "toolkit/judgement/JudgementText.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "toolkit/judgement/Judgement.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

std::string line(const char* pName, const std::string& strValue) {
    std::array<char, 32> acName{};
    std::snprintf(acName.data(), acName.size(), "  %-18s ", pName);
    return acName.data() + strValue + "\n";
}

std::string settingsText(const CameraSettings& rSettings) {
    std::string strText;
    for (const std::string& rName : cameraSettingNames()) {
        if (rSettings.has(rName)) {
            strText += (strText.empty() ? "" : ", ") + settingText(rName, rSettings.mapValues.at(rName));
        }
    }
    return strText.empty() ? "unknown" : strText;
}

std::string cameraText(const CameraSettings& rSettings) {
    std::string strText = rSettings.strModel;
    if (!rSettings.strSerial.empty()) {
        strText += (strText.empty() ? "serial number " : ", serial number ") + rSettings.strSerial;
    }
    return strText;
}

std::string resolvedText(double dValue, double dLimit, int nDigits) {
    if (!std::isnan(dValue)) {
        return fixed(dValue, nDigits);
    }
    return std::isnan(dLimit)      ? "unknown"
           : std::isfinite(dLimit) ? "not resolved, below " + fixed(dLimit, nDigits)
                                   : "not resolved";
}

std::string uncertaintyText(double dValue, int nDigits) {
    return std::isnan(dValue) ? "" : " +- " + fixed(dValue, nDigits);
}

std::string splitText(const Split& rSplit, const Split& rUncertainty, const Split& rLimit, int nDigits,
                      const char* pUnit) {
    const bool bNumber = !std::isnan(rSplit.dTotal) || std::isfinite(rLimit.dTotal);
    return resolvedText(rSplit.dTotal, rLimit.dTotal, nDigits) +
           (std::isnan(rSplit.dTotal) ? "" : uncertaintyText(rUncertainty.dTotal, nDigits)) +
           (bNumber ? std::string(" ") + pUnit : "") + " (row " + resolvedText(rSplit.dRow, rLimit.dRow, nDigits) +
           ", column " + resolvedText(rSplit.dColumn, rLimit.dColumn, nDigits) + ", pixel " +
           resolvedText(rSplit.dPixel, rLimit.dPixel, nDigits) + ")";
}

}  // namespace

std::string settingText(const std::string& strName, double dValue) {
    const std::string strValue = fixed(dValue, dValue == std::floor(dValue) ? 0 : 2);
    if (strName == "ExposureTime") {
        return "exposure time " + strValue + " us";
    }
    if (strName == "Gain") {
        return "gain " + strValue;
    }
    const std::string strAxis(1, strName == "BinningHorizontal" ? 'X'
                                 : strName == "BinningVertical" ? 'Y'
                                                                : strName.back());
    if (strName.compare(0, 7, "Reverse") == 0) {
        return "mirror " + strAxis + (dValue != 0.0 ? " on" : " off");
    }
    return (strName.compare(0, 6, "Offset") == 0 ? "offset " : "binning ") + strAxis + " " + strValue;
}

std::string settingId(const std::string& strName) {
    switch (strName[0]) {
        case 'E':
            return "other-exposure";
        case 'G':
            return "other-gain";
        case 'O':
            return "other-offset";
        case 'B':
            return "other-binning";
        default:
            return "other-mirror";
    }
}

std::string describe(const Findings& rFindings) {
    std::string strText;
    for (const Finding& rFinding : rFindings) {
        strText += rFinding.eLevel == eRefusal ? "Refused: " : rFinding.eLevel == eWarning ? "Warning: " : "Note: ";
        strText += rFinding.strText + (rFinding.strAdvice.empty() ? "" : " ") + rFinding.strAdvice + "\n";
    }
    return strText;
}

std::string describe(const ReferenceJudgement& rJudgement) {
    const ReferenceFigures& rFigures = rJudgement.figures;
    std::string strText =
        line("image", layoutText(rFigures.layout)) +
        (rFigures.geometry.isKnown()
             ? line("place", StandIn::inWords(rFigures.geometry, rFigures.layout.nWidth, rFigures.layout.nHeight,
                                              rFigures.layout.pFormat->isCfa()))
             : std::string()) +
        line("frames averaged", std::to_string(rFigures.nFrames)) +
        line("mean", fixed(rFigures.dMean, 1) + " DN, " + fixed(rFigures.dMeanPercent, 1) + " % of full scale");
    const std::vector<std::string> vecNames = colourClassNames(*rFigures.layout.pFormat);
    for (std::size_t i = 0; i < vecNames.size() && vecNames.size() > 1; ++i) {
        strText += line(("  " + vecNames[i]).c_str(), fixed(rFigures.vecClassMeans[i], 1) + " DN");
    }
    strText += line("saturated", fixed(100.0 * rFigures.dSaturatedShare, 3) + " %") +
               line("temporal noise", withUnit(rFigures.dTemporalNoise, 2, "DN"));
    if (rFigures.eKind == StandIn::eReferenceDark) {
        strText += line("hot pixels", std::to_string(countDefects(rFigures.vecDefects, eHot)));
    } else {
        strText += line("dead pixels", std::to_string(countDefects(rFigures.vecDefects, eDead))) +
                   line("bright pixels", std::to_string(countDefects(rFigures.vecDefects, eBright)));
    }
    const std::string strCamera = cameraText(rFigures.settings);
    if (!strCamera.empty()) {
        strText += line("taken by", strCamera);
    }
    if (!rFigures.settings.strDate.empty()) {
        strText += line("recorded", rFigures.settings.strDate);
    }
    return strText + line("camera", settingsText(rFigures.settings)) + describe(rJudgement.vecFindings);
}

std::string describe(const PairJudgement& rJudgement) {
    const PairFigures& rFigures = rJudgement.figures;
    if (rFigures.unevenness.vecClasses.empty()) {
        return describe(rJudgement.vecFindings);
    }
    std::string strText = line("conversion gain", withUnit(rFigures.dGain, 4, "DN/e-")) +
                          line("light signal", withUnit(rFigures.dElectrons, 0, "e-")) +
                          line("predicted residual", withUnit(rFigures.dResidualPercent, 3, "%"));
    for (const ClassNonUniformity& rClass : rFigures.unevenness.vecClasses) {
        const std::string strClass = rFigures.unevenness.vecClasses.size() > 1 ? " " + rClass.strName : "";
        strText +=
            line(("DSNU1288" + strClass).c_str(),
                 splitText(rClass.dsnu, rClass.dsnuUncertainty, rClass.dsnuLimit, 2, rFigures.unevenness.dsnuUnit())) +
            line(("PRNU1288" + strClass).c_str(),
                 splitText(rClass.prnu, rClass.prnuUncertainty, rClass.prnuLimit, 3, "%"));
    }
    if (!std::isnan(rFigures.dSelfTestDn)) {
        strText += line("self test", "flat to " + fixed(rFigures.dSelfTestDn, 2) + " DN");
    }
    return strText + describe(rJudgement.vecFindings);
}

}  // namespace Toolkit
}  // namespace XAPEL2
