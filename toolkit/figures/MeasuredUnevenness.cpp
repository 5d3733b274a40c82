// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How uneven dark and light are before and after correction.

#include "toolkit/figures/MeasuredUnevenness.h"

#include <cmath>

#include "toolkit/figures/Curves.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

using nlohmann::ordered_json;

namespace {

// Stands for a dark image that there is none of.
MeanImage blackLike(const MeanImage& rImage) {
    MeanImage black{rImage.layout, rImage.nFrames, std::vector<float>(rImage.vecSamples.size()), 0.0};
    black.vecClassVariance.assign(rImage.vecClassVariance.size(), 0.0);
    return black;
}

ordered_json classesJson(const MeanImage& rDark, const MeanImage& rEven, double dGain, bool bDark) {
    ordered_json json = toJson(nonUniformity(rDark, rEven, dGain));
    if (!bDark) {
        for (ordered_json& rClass : json["classes"]) {
            rClass["darkMean"] = nullptr;
            for (const char* pFigure : {"dsnu", "dsnuUncertainty", "dsnuLimit"}) {
                for (auto& rItem : rClass[pFigure].items()) {
                    rItem.value() = nullptr;
                }
            }
        }
    }
    return json;
}

}  // namespace

void CMeasuredUnevenness::addTo(ordered_json& rJson) const {
    const bool bEven = m_rInput.light.isMeasured() && !m_rInput.bSelfTest;
    const bool bDark = bEven && m_rInput.dark.isMeasured();
    const MeanImage even = bEven || !m_rPair.light ? *m_rInput.light.before : meanOf(*m_rPair.light);
    const bool bReference = m_rPair.dark && (!bEven || isOfFrames(m_rPair.dark));
    const MeanImage dark = bDark ? *m_rInput.dark.before : bReference ? meanOf(*m_rPair.dark) : blackLike(even);
    // That of the pair is judged, and free of light that moved; frames tell it where the pair does not.
    double dGain = m_rPair.pair ? m_rPair.pair->figures.dGain : UNKNOWN;
    if (!std::isfinite(dGain)) {
        dGain = photonTransferGain(dark, even);
    }
    rJson["before"] = classesJson(dark, even, dGain, bDark || bReference);
    rJson["after"] = nullptr;
    double dDarkVariance = UNKNOWN;  // of a corrected dark frame, DN^2
    if (bEven) {
        const MeanImage after = withoutOutput(*m_rInput.light.after);
        const MeanImage darkened = bDark ? darkAfter() : blackLike(after);
        rJson["after"] = classesJson(darkened, after, dGain, bDark);
        dDarkVariance = bDark ? darkened.dTemporalVariance : UNKNOWN;
    }
    rJson["nonUniformityText"] = text(bEven, bDark);
    addSummary(rJson);
    rJson["summary"]["dsnuPredicted"] = nullptr;
    if (bDark && m_rPair.dark && isDarkComputed() && std::isfinite(dDarkVariance)) {
        // The noise of the mean that is taken off stays in every corrected frame.
        rJson["summary"]["dsnuPredicted"] = std::sqrt(dDarkVariance / static_cast<double>(m_rPair.dark->averaged())) /
                                            (std::isfinite(dGain) ? dGain : 1.0);
    }
    if (bEven && rJson["summary"]["prnuAfter"].is_null()) {
        rJson["nonUniformityText"] = rJson["nonUniformityText"].get<std::string>() +
                                     " A PRNU that is not told is hidden by noise, or by the unevenness in the dark.";
    }
}

// Pixel for pixel: a reference of the whole sensor or of a line serves other images, too.
bool CMeasuredUnevenness::isOfFrames(const std::optional<StandIn::ReferenceImage>& rReference) const {
    const StandIn::ImageGeometry place = geometryOf(m_rInput.camera);
    return rReference->layout.hasSamplesLike(m_rInput.light.before->layout) &&
           (!place.isKnown() || !rReference->geometry.isKnown() || rReference->geometry == place);
}

// A target scales signal and conversion gain alike, and a pedestal only moves: figures are those of neither.
MeanImage CMeasuredUnevenness::withoutOutput(MeanImage image) const {
    const bool bPlain = !m_rPair.light || m_rPair.light->output.isDefault() ||
                        m_rPair.light->layout.pFormat != image.layout.pFormat ||
                        (m_rPair.dark && !m_rPair.dark->layout.hasSamplesLike(m_rPair.light->layout));
    if (bPlain) {
        return image;
    }
    StandIn::ReferenceImage plain = *m_rPair.light;
    plain.output = {};
    StandIn::ReferenceImage black;
    if (!m_rPair.dark) {
        black = plain;
        black.vecSamples.assign(black.vecSamples.size(), 0.0F);
    }
    const StandIn::ReferenceImage& rDark = m_rPair.dark ? *m_rPair.dark : black;
    std::vector<double> vecScales = StandIn::pairTargets(rDark, *m_rPair.light);
    const std::vector<double> vecOwn = StandIn::pairTargets(rDark, plain);
    double dSquares = 0.0;
    for (std::size_t i = 0; i < vecScales.size(); ++i) {
        vecScales[i] /= vecOwn[i];
        dSquares += vecScales[i] * vecScales[i] / static_cast<double>(vecScales.size());
        if (i < image.vecClassVariance.size()) {
            image.vecClassVariance[i] /= vecScales[i] * vecScales[i];
        }
    }
    for (std::size_t i = 0; i < image.vecSamples.size(); ++i) {
        const double dSignal = static_cast<double>(image.vecSamples[i]) - m_rPair.light->output.dPedestal;
        image.vecSamples[i] = static_cast<float>(dSignal / vecScales[image.layout.classOf(i)]);
    }
    image.dTemporalVariance /= dSquares;
    return image;
}

// Corrected images end at 0 DN, and what is cut off there looks even. The mean of the corrected frames follows from
// that of the raw ones, where no filter has changed the references and they are those of the very pixels.
bool CMeasuredUnevenness::isDarkComputed() const {
    return m_rInput.files.filters().empty() && (!m_rPair.dark || isOfFrames(m_rPair.dark)) &&
           (!m_rPair.light || isOfFrames(m_rPair.light));
}

MeanImage CMeasuredUnevenness::darkAfter() const {
    if (!isDarkComputed()) {
        return withoutOutput(*m_rInput.dark.after);
    }
    MeanImage image = *m_rInput.dark.before;
    const StandIn::ReferenceImage* pDark = m_rPair.dark ? &*m_rPair.dark : nullptr;
    const std::vector<float> vecGains = gainsOf(pDark, m_rPair.light ? &*m_rPair.light : nullptr);
    double dSquares = 0.0;
    for (std::size_t i = 0; i < image.vecSamples.size(); ++i) {
        image.vecSamples[i] = (image.vecSamples[i] - (pDark != nullptr ? pDark->vecSamples[i] : 0.0F)) * vecGains[i];
        dSquares += static_cast<double>(vecGains[i]) * vecGains[i];
    }
    // The noise of the dark is about the same in every pixel.
    dSquares /= static_cast<double>(image.vecSamples.size());
    image.dTemporalVariance *= dSquares;
    for (double& rVariance : image.vecClassVariance) {
        rVariance *= dSquares;
    }
    return image;
}

std::string CMeasuredUnevenness::text(bool bEven, bool bDark) const {
    const std::string strEven = std::to_string(m_rInput.light.frames()) + " even";
    const std::string strDark = std::to_string(m_rInput.dark.frames()) + " dark";
    if (!bEven) {
        return m_rPair.light ? "Before correction: of the references. After correction nothing is given: that takes "
                               "two or more frames of the even target that are not in the reference."
                             : "Before correction: of the frames measured. After correction nothing is given.";
    }
    if (!bDark) {
        return "Mean of " + strEven +
               " frames that are not in the reference, their temporal noise taken out. The dark signal before "
               "correction is that of the dark reference, after correction none is given: that takes two or more dark "
               "frames that are not in the reference.";
    }
    return "Mean of " + strDark + " and " + strEven +
           " frames that are not in the references, their temporal noise taken out." +
           (isDarkComputed() ? " The dark signal after correction is that of the formula, below 0 DN too, where "
                               "corrected images end."
                             : " Corrected dark frames end at 0 DN: without a pedestal their DSNU reads half of "
                               "what it is.");
}

// The colour that is worst after correction, or before where nothing was measured after.
void CMeasuredUnevenness::addSummary(ordered_json& rJson) {
    const ordered_json& rLast = rJson["after"].is_null() ? rJson["before"] : rJson["after"];
    std::size_t iWorst = 0;
    const auto fnPrnu = [&](std::size_t i) {
        const ordered_json& rTotal = rLast["classes"][i]["prnuPercent"]["total"];
        return rTotal.is_null() ? -1.0 : rTotal.get<double>();
    };
    for (std::size_t i = 1; i < rLast["classes"].size(); ++i) {
        iWorst = fnPrnu(i) > fnPrnu(iWorst) ? i : iWorst;
    }
    ordered_json summary;
    summary["class"] = rLast["classes"][iWorst]["class"];
    summary["dsnuUnit"] = rLast["dsnuUnit"];
    for (const char* pWhen : {"before", "after"}) {
        const std::string strWhen = pWhen[0] == 'b' ? "Before" : "After";
        const bool bThere = !rJson[pWhen].is_null();
        const ordered_json class_ = bThere ? rJson[pWhen]["classes"][iWorst] : ordered_json();
        summary["prnu" + strWhen] = bThere ? class_["prnuPercent"]["total"] : ordered_json();
        summary["dsnu" + strWhen] = bThere ? class_["dsnu"]["total"] : ordered_json();
        summary["prnu" + strWhen + "Uncertainty"] = bThere ? class_["prnuPercentUncertainty"]["total"] : ordered_json();
        summary["dsnu" + strWhen + "Uncertainty"] = bThere ? class_["dsnuUncertainty"]["total"] : ordered_json();
        summary["prnu" + strWhen + "Limit"] = bThere ? class_["prnuPercentLimit"]["total"] : ordered_json();
        summary["dsnu" + strWhen + "Limit"] = bThere ? class_["dsnuLimit"]["total"] : ordered_json();
    }
    rJson["summary"] = summary;
}

}  // namespace Toolkit
}  // namespace XAPEL2
