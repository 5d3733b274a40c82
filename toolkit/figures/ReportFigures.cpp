// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The figures of a report.

#include "toolkit/figures/ReportFigures.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

#include "toolkit/figures/Curves.h"
#include "toolkit/figures/Prediction.h"
#include "toolkit/frames/Percentile.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

using nlohmann::ordered_json;

namespace {

constexpr std::size_t PROFILE_POINTS = 500, HISTOGRAM_BINS = 160, MARKS_MAX = 200;
constexpr double SATURATED_MAX = 0.001;  // share of samples that a measurement bears
constexpr uint64_t FRAMES_MIN = 2;       // that tell fixed pattern and noise apart

// Curves are for the eye: four decimals keep the file small.
ordered_json curveJson(const std::vector<double>& vecValues) {
    ordered_json Json = ordered_json::array();
    for (const double dValue : vecValues) {
        Json.push_back(std::round(dValue * 1e4) / 1e4 + 0.0);  // no negative zero
    }
    return Json;
}

uint64_t frames(const SceneFrames& rScene) {
    return rScene.Before ? rScene.Before->nFrames : 0;
}

bool isMeasured(const SceneFrames& rScene) {
    return frames(rScene) >= FRAMES_MIN;
}

// Stands for a dark image that there is none of.
MeanImage blackLike(const MeanImage& rImage) {
    MeanImage Black{rImage.sLayout, rImage.nFrames, std::vector<float>(rImage.vSamples.size()), 0.0};
    Black.vecClassVariance.assign(rImage.vecClassVariance.size(), 0.0);
    return Black;
}

std::string filterText(const PairOptions& rFiles) {
    std::string strText;
    const auto fnAdd = [&](unsigned nRadius, const char* pName) {
        if (nRadius > 0) {
            strText += (strText.empty() ? "" : ", ") + std::string(pName) + ' ' + std::to_string(nRadius);
        }
    };
    fnAdd(rFiles.nMedianDark, "median on the dark reference, radius");
    fnAdd(rFiles.nBoxDark, "box on the dark reference, radius");
    fnAdd(rFiles.nMedianLight, "median on the light reference, radius");
    fnAdd(rFiles.nBoxLight, "box on the light reference, radius");
    return strText;
}

class CFigureSource {
public:
    explicit CFigureSource(const ReportInput& rInput) : m_rInput(rInput), m_rPair(rInput.Pair) {}

    void addNonUniformity(ordered_json& rJson) const {
        const bool bEven = isMeasured(m_rInput.Light) && !m_rInput.bSelfTest;
        const bool bDark = bEven && isMeasured(m_rInput.Dark);
        const MeanImage Even = bEven || !m_rPair.Light ? *m_rInput.Light.Before : meanOf(*m_rPair.Light);
        const MeanImage Dark = bDark ? *m_rInput.Dark.Before : m_rPair.Dark ? meanOf(*m_rPair.Dark) : blackLike(Even);
        double dGain = photonTransferGain(Dark, Even);
        if (!std::isfinite(dGain) && m_rPair.Pair) {
            dGain = m_rPair.Pair->Figures.dGain;
        }
        rJson["before"] = classesJson(Dark, Even, dGain, bDark || m_rPair.Dark);
        rJson["after"] = nullptr;
        if (bEven) {
            const MeanImage& rAfter = *m_rInput.Light.After;
            rJson["after"] = classesJson(bDark ? darkAfter() : blackLike(rAfter), rAfter, dGain, bDark);
        }
        rJson["nonUniformityText"] = nonUniformityText(bEven, bDark);
        addSummary(rJson);
        if (bEven && rJson["summary"]["prnuAfter"].is_null()) {
            rJson["nonUniformityText"] = rJson["nonUniformityText"].get<std::string>() +
                                         " A PRNU that is not told is hidden by noise, or by the unevenness in the dark.";
        }
    }

    void addCurves(ordered_json& rJson) const {
        const MeanImage &rBefore = *m_rInput.Light.Before, &rAfter = *m_rInput.Light.After;
        const std::vector<float> vBefore = relativeSignal(rBefore, darkLevels(m_rInput.Dark.Before, true));
        const std::vector<float> vAfter = relativeSignal(rAfter, darkLevels(m_rInput.Dark.After, false));
        for (const bool bRows : {false, true}) {
            const Curve Before = profileOf(rBefore.sLayout, vBefore, bRows, PROFILE_POINTS);
            const Curve After = profileOf(rBefore.sLayout, vAfter, bRows, PROFILE_POINTS);
            rJson["profiles"][bRows ? "rows" : "columns"] = {{"first", Before.dFirst},
                                                             {"step", Before.dStep},
                                                             {"before", curveJson(Before.vValues)},
                                                             {"after", curveJson(After.vValues)}};
        }
        const Histograms Bins = histogramsOf(vBefore, vAfter, HISTOGRAM_BINS);
        rJson["histogram"] = {{"first", Bins.dFirst},
                              {"step", Bins.dStep},
                              {"samples", vBefore.size()},
                              {"before", curveJson(Bins.vBefore)},
                              {"after", curveJson(Bins.vAfter)}};
        rJson["measuredOn"] =
            m_rInput.bSelfTest
                ? "The light reference itself, before and after correction by the pair: a self-test, no measurement."
                : "Mean of " + counted(frames(m_rInput.Light), "frame") +
                      " of the even target outside the reference. 100 % is the mean of a colour, its dark level taken "
                      "off.";
    }

    void addDefects(ordered_json& rJson) const {
        std::vector<Defect> vecDefects;
        for (const auto* pJudgement : {&m_rPair.DarkJudgement, &m_rPair.LightJudgement}) {
            if (*pJudgement) {
                const std::vector<Defect>& rFound = (*pJudgement)->Figures.vecDefects;
                vecDefects.insert(vecDefects.end(), rFound.begin(), rFound.end());
            }
        }
        ordered_json Json;
        for (const eDefectKind eKind : {eHot, eDead, eBright}) {
            Json[name(eKind)] = countDefects(vecDefects, eKind);
        }
        Json["text"] = vecDefects.empty() ? "No pixel stands out from its neighbours."
                       : vecDefects.size() > MARKS_MAX
                           ? "Marked are the " + std::to_string(MARKS_MAX) + " pixels that stand out most of " +
                                 std::to_string(vecDefects.size()) + "."
                           : "All pixels that stand out are marked.";
        std::stable_sort(vecDefects.begin(), vecDefects.end(), [](const Defect& rLeft, const Defect& rRight) {
            return std::abs(rLeft.dValue - rLeft.dNeighbours) > std::abs(rRight.dValue - rRight.dNeighbours);
        });
        vecDefects.resize(std::min(vecDefects.size(), MARKS_MAX));
        const StandIn::ImageLayout& rLayout = m_rInput.Light.Before->sLayout;
        Json["marks"] = toJson(vecDefects, *rLayout.pFormat);
        rJson["defects"] = Json;
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

    /// After addNonUniformity(): judges what that has measured.
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

    Findings measuredFindings(const ordered_json& rSummary) const {
        Findings vecFound;
        const double dSaturated = m_rInput.bSelfTest ? 0.0 : m_rInput.Light.Before->dSaturatedShare;
        if (dSaturated > SATURATED_MAX) {
            vecFound.push_back({eWarning, "measured-saturated",
                                fixed(100.0 * dSaturated, 1) +
                                    " % of the samples of the measured frames are at full scale: what is cut off there "
                                    "looks even, and the figures after correction are too good.",
                                "Shorten the exposure or dim the light, and make the report again."});
        }
        const auto fnNumber = [&](const char* pKey) {
            return rSummary[pKey].is_number() ? rSummary[pKey].get<double>() : std::numeric_limits<double>::quiet_NaN();
        };
        // A filter trades the single pixels for less noise, and what is cut off cannot be made even: neither is predicted.
        const bool bPredicted = m_rPair.Pair && filterText(m_rInput.Files).empty() && dSaturated <= SATURATED_MAX;
        const Findings vecMissed = compareWithPrediction(
            m_rInput.Light, {fnNumber("prnuBefore"), fnNumber("prnuAfter")},
            bPredicted ? m_rPair.Pair->Figures.dResidualPercent : std::numeric_limits<double>::quiet_NaN());
        vecFound.insert(vecFound.end(), vecMissed.begin(), vecMissed.end());
        return vecFound;
    }

    static ordered_json classesJson(const MeanImage& rDark, const MeanImage& rEven, double dGain, bool bDark) {
        ordered_json Json = toJson(nonUniformity(rDark, rEven, dGain));
        if (!bDark) {
            for (ordered_json& rClass : Json["classes"]) {
                rClass["darkMean"] = nullptr;
                for (auto& rItem : rClass["dsnu"].items()) {
                    rItem.value() = nullptr;
                }
            }
        }
        return Json;
    }

    // Corrected images end at 0 DN, and what is cut off there looks even. The mean of the corrected frames follows from
    // that of the raw ones, where no filter has changed the references and the formula is the plain one.
    bool isDarkComputed() const {
        return filterText(m_rInput.Files).empty() && (!m_rPair.Light || m_rPair.Light->sOutput.isDefault());
    }

    MeanImage darkAfter() const {
        if (!isDarkComputed()) {
            return *m_rInput.Dark.After;
        }
        MeanImage image = *m_rInput.Dark.Before;
        const StandIn::ReferenceImage* pDark = m_rPair.Dark ? &*m_rPair.Dark : nullptr;
        const std::vector<float> vecGains = gainsOf(pDark, m_rPair.Light ? &*m_rPair.Light : nullptr);
        double dSquares = 0.0;
        for (std::size_t i = 0; i < image.vSamples.size(); ++i) {
            image.vSamples[i] = (image.vSamples[i] - (pDark != nullptr ? pDark->vSamples[i] : 0.0F)) * vecGains[i];
            dSquares += static_cast<double>(vecGains[i]) * vecGains[i];
        }
        // The noise of the dark is about the same in every pixel.
        dSquares /= static_cast<double>(image.vSamples.size());
        image.dTemporalVariance *= dSquares;
        for (double& rVariance : image.vecClassVariance) {
            rVariance *= dSquares;
        }
        return image;
    }

    std::string nonUniformityText(bool bEven, bool bDark) const {
        const std::string strEven = std::to_string(frames(m_rInput.Light)) + " even";
        const std::string strDark = std::to_string(frames(m_rInput.Dark)) + " dark";
        if (!bEven) {
            return m_rPair.Light
                       ? "Before correction: of the references. After correction nothing is given: that takes "
                         "two or more frames of the even target that are not in the reference."
                       : "Before correction: of the frames measured. After correction nothing is given.";
        }
        if (!bDark) {
            return "Mean of " + strEven +
                   " frames that are not in the reference, their temporal noise taken out. The dark signal after "
                   "correction is not given: that takes two or more dark frames that are not in the reference.";
        }
        return "Mean of " + strDark + " and " + strEven +
               " frames that are not in the references, their temporal noise taken out." +
               (isDarkComputed() ? " The dark signal after correction is that of the formula, below 0 DN too, where "
                                   "corrected images end."
                                 : " Corrected dark frames end at 0 DN: without a pedestal their DSNU reads half of "
                                   "what it is.");
    }

    // The colour that is worst after correction, or before where nothing was measured after.
    void addSummary(ordered_json& rJson) const {
        const ordered_json& rLast = rJson["after"].is_null() ? rJson["before"] : rJson["after"];
        std::size_t iWorst = 0;
        const auto fnPrnu = [&](std::size_t i) {
            const ordered_json& rTotal = rLast["classes"][i]["prnuPercent"]["total"];
            return rTotal.is_null() ? -1.0 : rTotal.get<double>();
        };
        for (std::size_t i = 1; i < rLast["classes"].size(); ++i) {
            iWorst = fnPrnu(i) > fnPrnu(iWorst) ? i : iWorst;
        }
        ordered_json Summary;
        Summary["class"] = rLast["classes"][iWorst]["class"];
        for (const char* pWhen : {"before", "after"}) {
            const std::string strWhen = pWhen[0] == 'b' ? "Before" : "After";
            const bool bThere = !rJson[pWhen].is_null();
            const ordered_json Class = bThere ? rJson[pWhen]["classes"][iWorst] : ordered_json();
            Summary["prnu" + strWhen] = bThere ? Class["prnuPercent"]["total"] : ordered_json();
            Summary["dsnu" + strWhen] = bThere ? Class["dsnu"]["total"] : ordered_json();
        }
        rJson["summary"] = Summary;
    }

    std::vector<double> darkLevels(const std::optional<MeanImage>& rMeasured, bool bBefore) const {
        if (rMeasured && !m_rInput.bSelfTest) {
            return classMeans(rMeasured->sLayout, rMeasured->vSamples);
        }
        return bBefore && m_rPair.Dark ? classMeans(m_rPair.Dark->sLayout, m_rPair.Dark->vSamples)
                                       : std::vector<double>();
    }

    const ReportInput& m_rInput;
    const JudgedPair& m_rPair;
};

std::string timeText() {
    const std::time_t tNow = std::time(nullptr);
    std::tm sParts{};
    char acText[40] = "";
    if (localtime_r(&tNow, &sParts) != nullptr) {
        std::strftime(acText, sizeof acText, "%Y-%m-%d %H:%M %Z", &sParts);
    }
    return acText;
}

ordered_json textOrNull(const std::string& strText) {
    return strText.empty() ? ordered_json() : ordered_json(strText);
}

ordered_json gainJson(const ReportInput& rInput) {
    const JudgedPair& rPair = rInput.Pair;
    const std::vector<float> vGains =
        gainsOf(rPair.Dark ? &*rPair.Dark : nullptr, rPair.Light ? &*rPair.Light : nullptr);
    const auto fnShare = [&](double dShare) { return static_cast<double>(percentile(vGains, dShare)); };
    return {{"min", fnShare(0.0)},
            {"p1", fnShare(0.01)},
            {"p99", fnShare(0.99)},
            {"max", fnShare(1.0)},
            {"text", !rPair.Light                       ? "There is no light reference, so the gain is 1."
                     : filterText(rInput.Files).empty() ? ""
                                                        : "Shown is the gain without the filters."}};
}

}  // namespace

ordered_json reportFigures(const ReportInput& rInput) {
    const StandIn::ImageLayout& rLayout = rInput.Light.Before->sLayout;
    ordered_json Json;
    Json["selfTest"] = rInput.bSelfTest;
    Json["device"] = rInput.strDevice;
    Json["pixelFormat"] = rLayout.pFormat->pName;
    Json["width"] = rLayout.nWidth;
    Json["height"] = rLayout.nHeight;
    Json["made"] = timeText();
    Json["files"] = {{"dark", textOrNull(rInput.Files.strDark)}, {"light", textOrNull(rInput.Files.strLight)}};
    Json["filters"] = textOrNull(filterText(rInput.Files));
    Json["camera"] = toJson(rInput.Camera);
    Json["frames"] = {{"dark", frames(rInput.Dark)}, {"light", rInput.bSelfTest ? 0 : frames(rInput.Light)}};
    const CFigureSource Source(rInput);
    Source.addNonUniformity(Json);
    Source.addJudgement(Json);
    Source.addTime(Json);
    Json["gain"] = gainJson(rInput);
    Source.addDefects(Json);
    Source.addCurves(Json);
    return Json;
}

}  // namespace Toolkit
}  // namespace XAPEL2
