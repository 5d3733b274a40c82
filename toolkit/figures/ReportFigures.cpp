// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The figures of a report.

#include "toolkit/figures/ReportFigures.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "toolkit/figures/Curves.h"
#include "toolkit/figures/MeasuredUnevenness.h"
#include "toolkit/figures/Prediction.h"
#include "toolkit/figures/Spots.h"
#include "toolkit/frames/Percentile.h"
#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

using nlohmann::ordered_json;

namespace {

constexpr std::size_t PROFILE_POINTS = 500, HISTOGRAM_BINS = 160, MARKS_MAX = 200;
constexpr double VALUES_PER_BIN = 3.0;   // that a histogram is even with
constexpr double SATURATED_MAX = 0.001;  // share of samples that a measurement bears

// Curves are for the eye: four decimals keep the file small.
ordered_json curveJson(const std::vector<double>& vecValues) {
    ordered_json json = ordered_json::array();
    for (const double dValue : vecValues) {
        json.push_back(std::round(dValue * 1e4) / 1e4 + 0.0);  // no negative zero
    }
    return json;
}

ordered_json toJson(const std::vector<Spot>& rSpots) {
    ordered_json json = ordered_json::array();
    for (const Spot& rSpot : rSpots) {
        json.push_back({{"x", rSpot.iX},
                        {"y", rSpot.iY},
                        {"side", rSpot.nSide},
                        {"percent", rSpot.dPercent},
                        {"spreadPercent", rSpot.dSpreadPercent}});
    }
    return json;
}

// No array: no spots.
std::vector<Spot> spotsOf(const ordered_json& rJson) {
    std::vector<Spot> vecSpots;
    for (const ordered_json& rSpot : rJson.is_array() ? rJson : ordered_json::array()) {
        vecSpots.push_back({rSpot["x"], rSpot["y"], rSpot["side"], rSpot["percent"], rSpot["spreadPercent"]});
    }
    return vecSpots;
}

// A figure of the summary, before and after correction.
Correction correctionOf(const ordered_json& rSummary, const std::string& strFigure, double dPredicted) {
    const auto fnNumber = [&](const char* pWhich) {
        const ordered_json& rValue = rSummary[strFigure + pWhich];
        return rValue.is_number() ? rValue.get<double>() : UNKNOWN;
    };
    return {fnNumber("Before"), fnNumber("After"), fnNumber("AfterUncertainty"), dPredicted};
}

class CFigureSource {
public:
    explicit CFigureSource(const ReportInput& rInput) : m_rInput(rInput), m_rPair(rInput.pair) {}

    /// After the unevenness: sought where even frames were measured.
    void addSpots(ordered_json& rJson) const {
        rJson["summary"]["spots"] = rJson["after"].is_null() ? ordered_json() : toJson(spots());
    }

    void addCurves(ordered_json& rJson) const {
        const MeanImage &rBefore = *m_rInput.light.before, &rAfter = *m_rInput.light.after;
        const std::vector<float> vecBefore = relativeSignal(rBefore, darkLevels(m_rInput.dark.before, true));
        const std::vector<float> vecAfter = relativeSignal(rAfter, darkLevels(m_rInput.dark.after, false));
        for (const bool bRows : {false, true}) {
            const Curve before = profileOf(rBefore.layout, vecBefore, bRows, PROFILE_POINTS);
            const Curve after = profileOf(rBefore.layout, vecAfter, bRows, PROFILE_POINTS);
            rJson["profiles"][bRows ? "rows" : "columns"] = {{"first", before.dFirst},
                                                             {"step", before.dStep},
                                                             {"before", curveJson(before.vecValues)},
                                                             {"after", curveJson(after.vecValues)}};
        }
        const Histograms bins = histogramsOf(vecBefore, vecAfter, HISTOGRAM_BINS, VALUES_PER_BIN * valueStep());
        rJson["histogram"] = {{"first", bins.dFirst},
                              {"step", bins.dStep},
                              {"samples", vecBefore.size()},
                              {"before", curveJson(bins.vecBefore)},
                              {"after", curveJson(bins.vecAfter)}};
        rJson["measuredOn"] =
            m_rInput.bSelfTest
                ? "The light reference itself, before and after correction by the pair: a self-test, no measurement."
                : "Mean of " + counted(m_rInput.light.frames(), "frame") +
                      " of the even target outside the reference. 100 % is the mean of a colour, its dark level taken "
                      "off.";
    }

    void addDefects(ordered_json& rJson) const {
        std::vector<Defect> vecDefects;
        for (const auto* pJudgement : {&m_rPair.darkJudgement, &m_rPair.lightJudgement}) {
            if (*pJudgement) {
                const std::vector<Defect>& rFound = (*pJudgement)->figures.vecDefects;
                vecDefects.insert(vecDefects.end(), rFound.begin(), rFound.end());
            }
        }
        ordered_json json;
        for (const eDefectKind eKind : {eHot, eDead, eBright}) {
            json[name(eKind)] = countDefects(vecDefects, eKind);
        }
        json["text"] = vecDefects.empty() ? "No pixel stands out from its neighbours."
                       : vecDefects.size() > MARKS_MAX
                           ? "Marked are the " + std::to_string(MARKS_MAX) + " pixels that stand out most of " +
                                 std::to_string(vecDefects.size()) + "."
                           : "All pixels that stand out are marked.";
        std::stable_sort(vecDefects.begin(), vecDefects.end(), [](const Defect& rLeft, const Defect& rRight) {
            return std::abs(rLeft.dValue - rLeft.dNeighbours) > std::abs(rRight.dValue - rRight.dNeighbours);
        });
        vecDefects.resize(std::min(vecDefects.size(), MARKS_MAX));
        const StandIn::ImageLayout& rLayout = m_rInput.light.before->layout;
        json["marks"] = toJson(vecDefects, *rLayout.pFormat);
        rJson["defects"] = json;
    }

    void addTime(ordered_json& rJson) const {
        const std::vector<double>&rPlain = m_rInput.vecPlainMs, &rCorrected = m_rInput.vecCorrectedMs;
        if (rPlain.empty() || rCorrected.empty()) {
            rJson["time"] = nullptr;
            return;
        }
        rJson["time"] = {{"frames", rPlain.size()},
                         {"plainMedianMs", percentile(rPlain, 0.5)},
                         {"plainP99Ms", percentile(rPlain, 0.99)},
                         {"correctedMedianMs", percentile(rCorrected, 0.5)},
                         {"correctedP99Ms", percentile(rCorrected, 0.99)},
                         {"addedMedianMs", percentile(rCorrected, 0.5) - percentile(rPlain, 0.5)}};
    }

    Findings measuredFindings(const ordered_json& rSummary) const {
        Findings vecFound;
        const double dBefore = m_rInput.bSelfTest ? 0.0 : m_rInput.light.before->dSaturatedShare;
        const double dSaturated = m_rInput.bSelfTest ? 0.0 : std::max(dBefore, m_rInput.light.after->dSaturatedShare);
        if (dSaturated > SATURATED_MAX) {
            const bool bAfter = dBefore <= SATURATED_MAX;
            vecFound.push_back({eWarning, "measured-saturated",
                                fixed(100.0 * dSaturated, 1) + " % of the samples of the " +
                                    (bAfter ? "corrected" : "measured") +
                                    " frames are at full scale: what is cut off there looks even, and the figures "
                                    "after correction are too good.",
                                bAfter ? "Set a lower target or pedestal with xapel2-shading output, or dim the light, "
                                         "and make the report again."
                                       : "Shorten the exposure or dim the light, and make the report again."});
        }
        // A filter trades what is small for less noise, and what is cut off cannot be made even: neither is predicted.
        const bool bPredicted = m_rPair.light && m_rInput.files.filters().empty() && dSaturated <= SATURATED_MAX;
        append(vecFound,
               compareLight(correctionOf(rSummary, "prnu", bPredicted ? residualPercent(rSummary["class"]) : UNKNOWN)));
        if (bPredicted) {
            append(vecFound, judgeSpots(spotsOf(rSummary["spots"])));
        }
        // Dark frames that a dark reference was taken off may be cut at 0 DN, and then compare with nothing. Without
        // one they are whole, and nothing is predicted.
        const ordered_json& rPredicted = rSummary["dsnuPredicted"];
        if (rPredicted.is_number() || !m_rPair.dark) {
            append(vecFound, compareDark(correctionOf(rSummary, "dsnu",
                                                      rPredicted.is_number() ? rPredicted.get<double>() : UNKNOWN),
                                         rSummary["dsnuUnit"]));
        }
        return vecFound;
    }

    /// After the unevenness and the spots: judges what they have measured.
    void addJudgement(ordered_json& rJson) const {
        Findings vecFindings = findings();
        const Findings vecMeasured = measuredFindings(rJson["summary"]);
        vecFindings.insert(vecFindings.end(), vecMeasured.begin(), vecMeasured.end());
        rJson["verdict"] = verdict(vecFindings);
        std::string strCounts;
        for (const auto& [eLevel, pName] : {std::pair(eRefusal, "refusal"), {eWarning, "warning"}, {eNote, "note"}}) {
            const auto nCount = std::count_if(vecFindings.begin(), vecFindings.end(),
                                              [eLevel = eLevel](const Finding& r) { return r.eLevel == eLevel; });
            if (nCount > 0) {
                strCounts += (strCounts.empty() ? "" : ", ") + counted(static_cast<uint64_t>(nCount), pName);
            }
        }
        rJson["verdictText"] =
            (strCounts.empty() ? "Nothing to object to" : strCounts) + ". Judged: each reference, the two as a pair" +
            (m_rInput.strDevice.empty() ? "." : ", whether they fit the camera, and what they leave.");
        rJson["findings"] = toJson(vecFindings);
        rJson["references"] = toJson(m_rPair);
    }

private:
    std::vector<Spot> spots() const {
        const MeanImage& rAfter = *m_rInput.light.after;
        return findSpots(rAfter.layout, relativeSignal(rAfter, darkLevels(m_rInput.dark.after, false)));
    }

    // Of the colour of this name, what the noise of the references leaves.
    double residualPercent(const std::string& strClass) const {
        const std::vector<std::string> vecNames = colourClassNames(*m_rPair.light->layout.pFormat);
        const auto i =
            static_cast<std::size_t>(std::find(vecNames.begin(), vecNames.end(), strClass) - vecNames.begin());
        if (!m_rPair.pair) {
            return i < vecNames.size() ? ownNoisePercent(i) : UNKNOWN;
        }
        const std::vector<double>& rResiduals = m_rPair.pair->figures.vecResidualPercent;
        return i < rResiduals.size() ? rResiduals[i] : UNKNOWN;
    }

    // Of a light reference alone: its noise is what it adds to frames of its own light.
    double ownNoisePercent(std::size_t i) const {
        const StandIn::ReferenceImage& rLight = *m_rPair.light;
        if (rLight.nImages < 2) {
            return UNKNOWN;
        }
        const std::vector<double> vecDark = darkLevels(m_rInput.dark.before, true);
        const double dSignal =
            classMeans(rLight.layout, rLight.vecSamples)[i] - (i < vecDark.size() ? vecDark[i] : 0.0);
        const double dNoise = rLight.vecClassNoise.empty() ? rLight.dTemporalNoise : rLight.vecClassNoise[i];
        return dSignal > 0.0 ? 100.0 * dNoise / std::sqrt(static_cast<double>(rLight.averaged())) / dSignal : UNKNOWN;
    }

    // What holds for both references alike is said once.
    Findings findings() const {
        Findings vecOnce;
        for (const Finding& rFinding : m_rPair.findings()) {
            const auto fnSame = [&](const Finding& rOther) { return rOther.strText == rFinding.strText; };
            if (std::none_of(vecOnce.begin(), vecOnce.end(), fnSame)) {
                vecOnce.push_back(rFinding);
            }
        }
        return vecOnce;
    }

    // How far the values of the mean of whole numbers lie apart, percent of the mean signal of the dimmest colour.
    double valueStep() const {
        const MeanImage& rImage = *m_rInput.light.before;
        std::vector<double> vecSignals = classMeans(rImage.layout, rImage.vecSamples);
        const std::vector<double> vecDark = darkLevels(m_rInput.dark.before, true);
        for (std::size_t i = 0; i < vecDark.size() && i < vecSignals.size(); ++i) {
            vecSignals[i] -= vecDark[i];
        }
        const double dLeast = *std::min_element(vecSignals.begin(), vecSignals.end());
        const double dFrames = static_cast<double>(std::max<uint64_t>(1, rImage.nFrames));
        return dLeast > 0.0 ? 100.0 / (dLeast * dFrames) : 0.0;
    }

    std::vector<double> darkLevels(const std::optional<MeanImage>& rMeasured, bool bBefore) const {
        if (rMeasured && !m_rInput.bSelfTest) {
            return classMeans(rMeasured->layout, rMeasured->vecSamples);
        }
        return bBefore && m_rPair.dark ? classMeans(m_rPair.dark->layout, m_rPair.dark->vecSamples)
                                       : std::vector<double>();
    }

    const ReportInput& m_rInput;
    const JudgedPair& m_rPair;
};

std::string timeText() {
    const std::time_t tNow = std::time(nullptr);
    std::tm parts{};
    char acText[40] = "";
    if (localtime_r(&tNow, &parts) != nullptr) {
        std::strftime(acText, sizeof acText, "%Y-%m-%d %H:%M %Z", &parts);
    }
    return acText;
}

ordered_json textOrNull(const std::string& strText) {
    return strText.empty() ? ordered_json() : ordered_json(strText);
}

ordered_json gainJson(const ReportInput& rInput) {
    const JudgedPair& rPair = rInput.pair;
    const std::vector<float> vecGains =
        gainsOf(rPair.dark ? &*rPair.dark : nullptr, rPair.light ? &*rPair.light : nullptr);
    const auto fnShare = [&](double dShare) { return static_cast<double>(percentile(vecGains, dShare)); };
    const StandIn::ImageLayout& rLayout = (rPair.light ? rPair.light : rPair.dark)->layout;
    return {{"width", rLayout.nWidth},
            {"height", rLayout.nHeight},
            {"min", fnShare(0.0)},
            {"p1", fnShare(0.01)},
            {"p99", fnShare(0.99)},
            {"max", fnShare(1.0)},
            {"text", !rPair.light                     ? "There is no light reference, so the gain is 1."
                     : rInput.files.filters().empty() ? ""
                                                      : "Shown is the gain without the filters."}};
}

}  // namespace

ordered_json reportFigures(const ReportInput& rInput) {
    const StandIn::ImageLayout& rLayout = rInput.light.before->layout;
    ordered_json json;
    json["selfTest"] = rInput.bSelfTest;
    json["device"] = rInput.strDevice;
    json["pixelFormat"] = rLayout.pFormat->pName;
    json["width"] = rLayout.nWidth;
    json["height"] = rLayout.nHeight;
    json["made"] = timeText();
    json["files"] = {{"dark", textOrNull(rInput.files.strDark)}, {"light", textOrNull(rInput.files.strLight)}};
    json["filters"] = textOrNull(rInput.files.filters());
    json["camera"] = toJson(rInput.camera);
    json["frames"] = {{"dark", rInput.dark.frames()}, {"light", rInput.bSelfTest ? 0 : rInput.light.frames()}};
    CMeasuredUnevenness(rInput).addTo(json);
    const CFigureSource source(rInput);
    source.addSpots(json);
    source.addJudgement(json);
    source.addTime(json);
    json["gain"] = gainJson(rInput);
    json["noise"] = nullptr;
    if (rInput.pair.pair && !rInput.pair.pair->figures.noise.empty()) {
        json["noise"] = toJson(CCorrectedNoise(*rInput.pair.dark, *rInput.pair.light, rInput.pair.pair->figures.noise),
                               *rInput.pair.light);
    }
    source.addDefects(json);
    source.addCurves(json);
    return json;
}

Findings measuredFindings(const ReportInput& rInput, const ordered_json& rFigures) {
    return CFigureSource(rInput).measuredFindings(rFigures["summary"]);
}

}  // namespace Toolkit
}  // namespace XAPEL2
