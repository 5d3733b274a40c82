// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether a dark and a light reference belong together.

#include <algorithm>
#include <cmath>

#include "toolkit/judgement/CameraComparison.h"
#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/judgement/DarkPattern.h"
#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/JudgementText.h"
#include "toolkit/judgement/OutputLevel.h"
#include "toolkit/judgement/Sums.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double SIGNAL_LEAST = 1.0;       // percent of full scale: quantisation is coarser than any shading below
constexpr double SELF_TEST_MOST = 1.0;     // DN, what the tables of the image processor keep up to 12 bits
constexpr std::size_t SAMPLES_LEAST = 16;  // of a colour: the uncertainty of a standard deviation is a sixth of it then

const char* const RECORD_AGAIN = "Record both references again with the same settings of the camera.";

double meanOf(const std::vector<double>& rValues) {
    double dSum = 0.0;
    for (const double dValue : rValues) {
        dSum += dValue;
    }
    return dSum / static_cast<double>(rValues.size());
}

/// Above 12 bits the tables of the image processor may be off by half the gain more.
double selfTestLimit(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                     const NonUniformity& rFigures) {
    const StandIn::PixelFormat& rFormat = *rLight.layout.pFormat;
    if (rFormat.nBits <= 12) {
        return SELF_TEST_MOST;
    }
    double dGain = 1.0;
    for (std::size_t i = 0; i < rLight.vecSamples.size(); ++i) {
        const ClassNonUniformity& rClass = rFigures.vecClasses[colourClass(rFormat, rLight.layout.nWidth, i)];
        const double dSignal = static_cast<double>(rLight.vecSamples[i]) - static_cast<double>(rDark.vecSamples[i]);
        dGain = dSignal > 0.0 ? std::max(dGain, (rClass.dLightMean - rClass.dDarkMean) / dSignal) : dGain;
    }
    return SELF_TEST_MOST + std::min(dGain, StandIn::GAIN_LIMIT) / 2.0;
}

// False: a pair that cannot be compared has no further findings.
bool judgeKinds(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight, Findings& rFindings) {
    if (rDark.eKind != StandIn::eReferenceDark || rLight.eKind != StandIn::eReferenceLight) {
        rFindings.push_back({eRefusal, "other-kind",
                             rDark.eKind == rLight.eKind ? "Both files hold the same kind of reference."
                                                         : "The dark and the light reference are exchanged.",
                             "Name the dark reference first, then the light one.", true});
    } else if (!rDark.layout.hasSamplesLike(rLight.layout)) {
        const bool bSize = rDark.layout.nWidth != rLight.layout.nWidth || rDark.layout.nHeight != rLight.layout.nHeight;
        rFindings.push_back(
            {eRefusal, bSize ? "other-size" : "other-format",
             "The dark reference is " + layoutText(rDark.layout) + ", the light one " + layoutText(rLight.layout) + ".",
             RECORD_AGAIN, true});
    } else if (const std::string strObstacle = StandIn::placeObstacle(rDark, rLight.layout, rLight.geometry);
               !strObstacle.empty()) {
        rFindings.push_back({eRefusal, "other-place",
                             "The dark reference does not serve the light one, as " + strObstacle +
                                 ": the light one is " + placeWords(rLight.layout, rLight.geometry) +
                                 ", the dark one " + placeWords(rDark.layout, rDark.geometry) + ".",
                             RECORD_AGAIN, true});
    }
    return rFindings.empty();
}

void judgeSignal(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight, Findings& rFindings) {
    const double dSignal = rLight.dMean - rDark.dMean;
    const double dPercent = 100.0 * dSignal / rLight.layout.pFormat->fullScale();
    if (dPercent < SIGNAL_LEAST && 100.0 * rLight.dMean / rLight.layout.pFormat->fullScale() >= SIGNAL_LEAST) {
        rFindings.push_back({eRefusal, "no-light",
                             "The light reference is only " + fixed(dSignal, 1) + " DN above the dark one, " +
                                 fixed(dPercent, 2) + " % of full scale (limit 1 %).",
                             "Show the camera an evenly lit target and record the light reference again."});
    }
    std::size_t nNoSignal = 0;
    for (std::size_t i = 0; i < rLight.vecSamples.size(); ++i) {
        nNoSignal += rLight.vecSamples[i] <= rDark.vecSamples[i] ? 1U : 0U;
    }
    if (nNoSignal != 0) {
        rFindings.push_back(
            {eNote, "no-signal", counted(nNoSignal, "sample") + " without signal: gain 1 is used there.", ""});
    }
}

/// Pixel to pixel differences of the light reference, percent of the signal, in the class that has the least. Those of
/// the dark are in them: a hot pixel raises no alarm. NaN where they cannot be told.
double pixelDifferences(const MeanImage& rLight, const NonUniformity& rFigures) {
    double dLeast = std::numeric_limits<double>::quiet_NaN();
    for (unsigned i = 0; i < rFigures.vecClasses.size(); ++i) {
        const ClassNonUniformity& rClass = rFigures.vecClasses[i];
        const double dVariance =
            spatialVariances(colourPlane(rLight.layout, rLight.vecSamples, i), rLight.nFrames, rLight.dTemporalVariance)
                .dPixel;
        const double dPercent = 100.0 * std::sqrt(std::max(0.0, dVariance)) / (rClass.dLightMean - rClass.dDarkMean);
        dLeast = std::fmin(dLeast, std::isnan(dVariance) ? dVariance : dPercent);
    }
    return dLeast;
}

void predictResidual(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                     PairFigures& rFigures) {
    const CCorrectedNoise noise(rDark, rLight, rFigures.noise);
    for (unsigned i = 0; i < rLight.layout.classes() && noise.isKnown(); ++i) {
        rFigures.vecResidualPercent.push_back(noise.residualPercent(i));
        rFigures.dResidualPercent = std::fmax(rFigures.dResidualPercent, rFigures.vecResidualPercent.back());
    }
}

bool isGain(double dGain) {
    return std::isfinite(dGain) && dGain > 0.0;
}

/// @param[in] rFigures  what the pair alone tells, which stands in for a gain that no level tells.
std::vector<double> withOwnGains(std::vector<double> vecGains, const PairFigures& rFigures) {
    for (std::size_t i = 0; i < vecGains.size(); ++i) {
        if (!isGain(vecGains[i])) {
            vecGains[i] = i < rFigures.noise.size() ? rFigures.noise[i].dGain : rFigures.dGain;
        }
    }
    return vecGains;
}

/// Light without the noise of light: the sensor is full, and its noise is that of the dark. True where the gain that
/// the two would give makes full scale more electrons than any pixel holds, by far more than chance.
bool isWithoutShotNoise(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    constexpr double ELECTRONS_MOST = 2e6;  // at full scale; also of cameras that average a hundred frames themselves
    constexpr double DEVIATIONS = 4.0;
    const double dSignal = rLight.dMean - rDark.dMean, dFullScale = rLight.layout.pFormat->fullScale();
    const auto fnUncertainty = [](const StandIn::ReferenceImage& r, double dVariance) {
        return dVariance *
               std::sqrt(2.0 / (static_cast<double>(r.layout.samples()) * static_cast<double>(r.nImages - 1)));
    };
    if (rDark.nImages < 2 || rLight.nImages < 2 || !isNoiseKnown(rDark) || !isNoiseKnown(rLight) ||
        rLight.dTemporalNoise <= 0.0 || 100.0 * dSignal < SIGNAL_LEAST * dFullScale) {
        return false;
    }
    const double dDark = rDark.dTemporalNoise * rDark.dTemporalNoise;
    const double dLight = rLight.dTemporalNoise * rLight.dTemporalNoise;
    const double dMost =
        dLight - dDark + DEVIATIONS * std::hypot(fnUncertainty(rDark, dDark), fnUncertainty(rLight, dLight));
    return dMost < dSignal * dFullScale / ELECTRONS_MOST;
}

void judgeNoiseOfPair(const PairFigures& rFigures, const MeanImage& rLight, Findings& rFindings) {
    constexpr double FRAMES_MOST = 1000.0;
    if (std::isnan(rFigures.dGain)) {
        rFindings.push_back(
            {eNote, "gain-unknown",
             "The conversion gain and what follows from it are unknown: that takes two frames or more in "
             "each reference, and more noise in the light one.",
             ""});
        return;
    }
    const double dPixels = pixelDifferences(rLight, rFigures.unevenness);
    if (rFigures.dResidualPercent > dPixels) {
        // So many that the noise is half of the differences.
        const double dFrames =
            std::ceil(std::pow(2.0 * rFigures.dResidualPercent / dPixels, 2.0) * static_cast<double>(rLight.nFrames));
        rFindings.push_back(
            {eWarning, "noisy-reference",
             "The noise of the light reference, " + fixed(rFigures.dResidualPercent, 2) +
                 " %, exceeds the pixel to pixel differences that it is to correct, " + fixed(dPixels, 2) + " %.",
             (dFrames < FRAMES_MOST ? "Record " + fixed(dFrames, 0) + " frames or more" : std::string("Add light")) +
                 ", or smooth the light reference with a filter."});
    }
}

}  // namespace

bool isPair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    Findings vecFindings;
    return judgeKinds(rDark, rLight, vecFindings);
}

PairJudgement judgePair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight, double dSelfTestDn,
                        const std::vector<double>& rGains) {
    PairJudgement result;
    if (!judgeKinds(rDark, rLight, result.vecFindings)) {
        return result;
    }
    PairFigures& rFigures = result.figures;
    const MeanImage dark = meanOf(rDark), light = meanOf(rLight);
    rFigures.dGain = photonTransferGain(dark, light);
    rFigures.noise = sensorNoise(rDark, rLight);
    const bool bFull = isWithoutShotNoise(rDark, rLight);
    if (bFull) {
        rFigures.dGain = UNKNOWN;
        rFigures.noise.clear();
    }
    if (std::any_of(rGains.begin(), rGains.end(), isGain)) {
        const std::vector<double> vecGains = withOwnGains(rGains, rFigures);
        rFigures.dGain = meanOf(vecGains);
        rFigures.noise = sensorNoise(rDark, vecGains);
    }
    rFigures.dElectrons = (meanOfSamples(rLight.vecSamples) - meanOfSamples(rDark.vecSamples)) / rFigures.dGain;
    predictResidual(rDark, rLight, rFigures);
    rFigures.dSelfTestDn = dSelfTestDn;
    rFigures.unevenness = nonUniformity(dark, light, rFigures.dGain);

    judgeSignal(rDark, rLight, result.vecFindings);
    if (bFull) {
        result.vecFindings.push_back({eWarning, "no-shot-noise",
                                      "The noise of the light reference, " + fixed(rLight.dTemporalNoise, 2) +
                                          " DN, is no more than that of the dark one, " +
                                          fixed(rDark.dTemporalNoise, 2) +
                                          " DN: so it is where the sensor is full, below full scale of its images too.",
                                      "Shorten the exposure or dim the light, and record the light reference again."});
    }
    append(result.vecFindings, judgeOutputLevel(rDark, rLight));
    const std::size_t nSamples = rLight.layout.samples() / rLight.layout.classes();
    if (nSamples < SAMPLES_LEAST) {
        result.vecFindings.push_back({eWarning, "few-samples",
                                      "There " + std::string(nSamples == 1 ? "is " : "are ") +
                                          counted(nSamples, "sample") +
                                          " of a colour in the image: too few to tell how "
                                          "even it is.",
                                      "Take a larger region to judge by."});
    }
    compareSettings(cameraSettingsFromJson(rDark.strCamera), cameraSettingsFromJson(rLight.strCamera),
                    {"The dark reference was taken with", "the light one with", "the light one with"}, RECORD_AGAIN,
                    false, result.vecFindings);
    judgeNoiseOfPair(rFigures, light, result.vecFindings);
    const Findings vecDark = judgeDarkPattern(rDark);
    result.vecFindings.insert(result.vecFindings.end(), vecDark.begin(), vecDark.end());
    const double dFlat = selfTestLimit(rDark, rLight, rFigures.unevenness);
    if (dSelfTestDn > dFlat) {
        result.vecFindings.push_back({eWarning, "self-test",
                                      "Applied to its own mean, the pair is flat only to " + fixed(dSelfTestDn, 2) +
                                          " DN (limit " + fixed(dFlat, 2) + ").",
                                      "Record both references again; if that does not help, report it."});
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
