// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether references are good, alone, as a pair, and for a camera.

#include "toolkit/judgement/Judgement.h"

#include <algorithm>
#include <cmath>

#include "toolkit/judgement/Bits.h"
#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/judgement/DarkPattern.h"
#include "toolkit/judgement/JudgementText.h"
#include "toolkit/judgement/OutputLevel.h"
#include "toolkit/judgement/Steadiness.h"
#include "toolkit/judgement/Sums.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double SATURATED_REFUSED = 0.01;   // share of the samples
constexpr double SATURATED_WARNED = 0.001;   // more than single hot pixels
constexpr double LIGHT_LEAST = 40.0;         // percent of full scale
constexpr double LIGHT_MOST = 80.0;          // percent of full scale
constexpr double SIGNAL_USELESS = 1.0;       // percent of full scale: quantisation is coarser than any shading
constexpr double DARK_MOST = 10.0;           // percent of full scale
constexpr double NOISE_LEAST = 0.24;         // DN: EMVA 1288, least dark noise that quantisation does not distort
constexpr double BLACK_CLIPPED = 0.01;       // share of the samples
constexpr uint64_t FRAMES_LEAST = 8;         // from here on the reference adds 6 % or less to a frame's own noise
constexpr double SETTING_TOLERANCE = 0.005;  // relative: cameras round what is set
constexpr double SELF_TEST_MOST = 1.0;       // DN, what the tables of the image processor keep up to 12 bits
constexpr std::size_t SAMPLES_LEAST = 16;  // of a colour: the uncertainty of a standard deviation is a sixth of it then

const char* const RECORD_AGAIN = "Record both references again with the same settings of the camera.";

double meanOf(const std::vector<double>& rValues) {
    double dSum = 0.0;
    for (const double dValue : rValues) {
        dSum += dValue;
    }
    return dSum / static_cast<double>(rValues.size());
}
const char* const THE_LIGHT_ONE = "the light one with";

std::vector<double> classMeans(const StandIn::ReferenceImage& rReference) {
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    std::vector<double> vecMeans;
    for (unsigned iClass = 0; iClass < colourClasses(rFormat); ++iClass) {
        vecMeans.push_back(meanOfSamples(colourPlane(rReference.layout, rReference.vecSamples, iClass)));
    }
    return vecMeans;
}

void judgeSaturation(const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.dSaturatedShare <= SATURATED_WARNED) {
        return;
    }
    const bool bRefused = rFigures.dSaturatedShare > SATURATED_REFUSED;
    rFindings.push_back({bRefused ? eRefusal : eWarning, "saturated",
                         fixed(100.0 * rFigures.dSaturatedShare, 2) + " % of the samples are at full scale" +
                             (bRefused ? " (limit 1 %)." : "."),
                         rFigures.eKind == StandIn::eReferenceLight
                             ? "Shorten the exposure or dim the light and record again; correct at the same exposure."
                             : "Cover the lens, or shorten the exposure, and record again."});
}

void judgeNumber(const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.nFrames < FRAMES_LEAST) {
        const double dAdded = 100.0 * (std::sqrt(1.0 + 1.0 / static_cast<double>(rFigures.nFrames)) - 1.0);
        rFindings.push_back({eWarning, "few-frames",
                             counted(rFigures.nFrames, "frame") + " averaged: the noise of the reference adds " +
                                 fixed(dAdded, 0) + " % to that of each corrected frame.",
                             "Record 16 frames or more."});
    }
}

void judgeLight(const ReferenceFigures& rFigures, Findings& rFindings) {
    const std::string strMean =
        "The mean is " + fixed(rFigures.dMean, 1) + " DN, " + fixed(rFigures.dMeanPercent, 1) + " % of full scale";
    if (rFigures.dMeanPercent < SIGNAL_USELESS) {
        rFindings.push_back({eRefusal, "too-dark", strMean + ": too dark to tell the shading (limit 1 %).",
                             "Uncover the lens, add light or lengthen the exposure, and record again at 40 to 80 %."});
    } else if (rFigures.dMeanPercent < LIGHT_LEAST) {
        rFindings.push_back({eWarning, "dim", strMean + ": a dim reference is a noisy one.",
                             "Add light or lengthen the exposure to reach 40 to 80 %."});
    } else if (rFigures.dMeanPercent > LIGHT_MOST) {
        rFindings.push_back({eWarning, "bright", strMean + ": little room is left below saturation.",
                             "Dim the light or shorten the exposure to reach 40 to 80 %."});
    }
    const auto iLeast = std::min_element(rFigures.vecClassMeans.begin(), rFigures.vecClassMeans.end());
    const double dFullScale = rFigures.layout.pFormat->fullScale();
    if (rFigures.dMeanPercent >= LIGHT_LEAST && 100.0 * *iLeast / dFullScale < LIGHT_LEAST / 2.0) {
        const auto iClass = static_cast<std::size_t>(iLeast - rFigures.vecClassMeans.begin());
        rFindings.push_back({eWarning, "dim-colour",
                             "Colour " + colourClassNames(*rFigures.layout.pFormat)[iClass] + " has only " +
                                 fixed(100.0 * *iLeast / dFullScale, 1) + " % of full scale.",
                             "Use a light of a more even colour."});
    }
}

void judgeDark(const StandIn::ReferenceImage& rReference, const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.dMeanPercent > DARK_MOST) {
        rFindings.push_back({eWarning, "not-dark",
                             "The mean is " + fixed(rFigures.dMean, 1) + " DN, " + fixed(rFigures.dMeanPercent, 1) +
                                 " % of full scale: light may have fallen in.",
                             "Cover the lens and record again."});
    }
    if (rFigures.dTemporalNoise < NOISE_LEAST) {
        rFindings.push_back(
            {eNote, "coarse",
             "The noise in the dark is only " + fixed(rFigures.dTemporalNoise, 2) +
                 " DN: averaging does not bring out fractions of a DN, and the conversion gain is rough.",
             "A pixel format with more bits tells more."});
    }
    const auto nBlack = std::count(rReference.vecSamples.begin(), rReference.vecSamples.end(), 0.0F);
    const double dShare = static_cast<double>(nBlack) / static_cast<double>(rReference.vecSamples.size());
    if (dShare > BLACK_CLIPPED) {
        rFindings.push_back(
            {eWarning, "black-clipped",
             fixed(100.0 * dShare, 1) + " % of the samples are 0 in every frame: their dark value is cut off.",
             "Raise the black level of the camera until nothing is cut off, and record again."});
    }
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

std::string placeWords(const StandIn::ImageLayout& rLayout, const StandIn::ImageGeometry& rPlace) {
    return StandIn::inWords(rPlace, rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->isCfa()) + " of a sensor of " +
           std::to_string(rPlace.x.nSensor) + " x " + std::to_string(rPlace.y.nSensor) + ", " + rLayout.pFormat->pName;
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
    if (dPercent < SIGNAL_USELESS && 100.0 * rLight.dMean / rLight.layout.pFormat->fullScale() >= SIGNAL_USELESS) {
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

std::string cameraText(const CameraSettings& rSettings, bool bModel) {
    if (!bModel) {
        return "the camera with serial number " + rSettings.strSerial;
    }
    return rSettings.strModel + (rSettings.strSerial.empty() ? "" : " (serial number " + rSettings.strSerial + ")");
}

/// Pixels differ from one camera to the next, so a reference of another one corrects nothing of them. Where one of the
/// two does not tell, nothing is said. @param[in] strFirst,strSecond  as of compareSettings().
void compareCameras(const CameraSettings& rFirst, const CameraSettings& rSecond, const std::string& strFirst,
                    const std::string& strSecond, Findings& rFindings) {
    const auto fnDiffer = [](const std::string& a, const std::string& b) { return !a.empty() && !b.empty() && a != b; };
    const bool bModel = fnDiffer(rFirst.strModel, rSecond.strModel);
    if (!bModel && !fnDiffer(rFirst.strSerial, rSecond.strSerial)) {
        return;
    }
    const bool bPair = strSecond == THE_LIGHT_ONE;
    rFindings.push_back({eWarning, "other-camera",
                         strFirst + " " + cameraText(rFirst, bModel) + ", " +
                             (bPair ? strSecond + " " : std::string("this is ")) + cameraText(rSecond, bModel) + ".",
                         "Take references of this very camera: the pixels of another one differ."});
}

/// @param[in] strFirst,strSecond  say whose settings they are: "The dark reference was taken with", "the camera is set
/// to".
/// @param[in] bPlaced  where the image lies on the sensor has been compared.
void compareSettings(const CameraSettings& rFirst, const CameraSettings& rSecond, const std::string& strFirst,
                     const std::string& strSecond, const char* pAdvice, Findings& rFindings, bool bPlaced = false) {
    compareCameras(rFirst, rSecond, strFirst, strSecond, rFindings);
    std::string strUntold;
    for (const std::string& rName : cameraSettingNames()) {
        const bool bStrength = rName == "ExposureTime" || rName == "Gain";
        if (bPlaced && !bStrength) {
            continue;
        }
        if (!rFirst.has(rName) || !rSecond.has(rName)) {
            // What neither tells, the camera does not have.
            strUntold += rFirst.has(rName) == rSecond.has(rName) ? "" : (strUntold.empty() ? "" : ", ") + rName;
            continue;
        }
        const double dFirst = rFirst.mapValues.at(rName), dSecond = rSecond.mapValues.at(rName);
        const double dTolerance = bStrength ? SETTING_TOLERANCE * std::max(std::abs(dFirst), std::abs(dSecond)) : 0.0;
        if (std::abs(dFirst - dSecond) > dTolerance) {
            std::string strText = strFirst;
            strText.append(" ").append(settingText(rName, dFirst)).append(", ").append(strSecond);
            strText.append(" ").append(settingText(rName, dSecond)).append(".");
            rFindings.push_back({bStrength ? eWarning : eRefusal, settingId(rName), strText, pAdvice});
        }
    }
    if (rFirst.mapValues.empty() && rSecond.mapValues.empty()) {
        strUntold = "exposure, gain, offset, binning, mirror";
    }
    if (!strUntold.empty()) {
        rFindings.push_back({eNote, "settings-unknown", "Not compared, as they are not known: " + strUntold + ".", ""});
    }
}

}  // namespace

bool isPair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    Findings vecFindings;
    return judgeKinds(rDark, rLight, vecFindings);
}

void append(Findings& rTo, const Findings& rFrom) {
    rTo.insert(rTo.end(), rFrom.begin(), rFrom.end());
}

bool refused(const Findings& rFindings, bool bForce) {
    return std::any_of(rFindings.begin(), rFindings.end(),
                       [bForce](const Finding& r) { return r.eLevel == eRefusal && (!bForce || r.bFinal); });
}

const char* verdict(const Findings& rFindings) {
    const bool bWarned =
        std::any_of(rFindings.begin(), rFindings.end(), [](const Finding& r) { return r.eLevel == eWarning; });
    return refused(rFindings) ? "refused" : bWarned ? "warning" : "good";
}

ReferenceJudgement judgeReference(const StandIn::ReferenceImage& rReference, const StandIn::ReferenceImage* pDark) {
    ReferenceJudgement result;
    ReferenceFigures& rFigures = result.figures;
    rFigures.eKind = rReference.eKind;
    rFigures.layout = rReference.layout;
    rFigures.geometry = rReference.geometry;
    rFigures.nFrames = rReference.nImages;
    rFigures.vecClassMeans = classMeans(rReference);
    rFigures.dMean = meanOfSamples(rReference.vecSamples);
    rFigures.dMeanPercent = 100.0 * rFigures.dMean / rReference.layout.pFormat->fullScale();
    rFigures.dSaturatedShare = rReference.dSaturatedShare;
    if (isNoiseKnown(rReference)) {
        rFigures.dTemporalNoise = rReference.dTemporalNoise;
    }
    rFigures.means = rReference.means;
    const bool bWithDark = pDark && pDark->layout.hasSamplesLike(rReference.layout);
    rFigures.vecDefects = findDefects(rReference, bWithDark ? pDark : nullptr);
    rFigures.settings = cameraSettingsFromJson(rReference.strCamera);

    rFigures.outliers = rReference.outliers;

    judgeSaturation(rFigures, result.vecFindings);
    const Findings vecBits = judgeBits(rReference);
    result.vecFindings.insert(result.vecFindings.end(), vecBits.begin(), vecBits.end());
    if (rReference.eKind == StandIn::eReferenceLight) {
        judgeLight(rFigures, result.vecFindings);
    } else {
        judgeDark(rReference, rFigures, result.vecFindings);
    }
    judgeNumber(rFigures, result.vecFindings);
    append(result.vecFindings, judgeSteadiness(rFigures));
    append(result.vecFindings, judgeMovement(rReference));
    return result;
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
                    "The dark reference was taken with", THE_LIGHT_ONE, RECORD_AGAIN, result.vecFindings);
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

namespace {

/// True where of both is known where they lie, and one is derived from the other; it then says where that fails.
bool comparePlaces(const std::string& strWhat, const StandIn::ReferenceImage& rReference,
                   const StandIn::ImageLayout& rCamera, const StandIn::ImageGeometry& rPlace,
                   const std::string& strAdvice, Findings& rFindings) {
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    const bool bAlike = rFormat.nBits == rCamera.pFormat->nBits && rFormat.nChannels == rCamera.pFormat->nChannels &&
                        (rFormat.nChannels == 1 || rFormat.uPfnc == rCamera.pFormat->uPfnc) &&
                        rFormat.isCfa() == rCamera.pFormat->isCfa();
    if (!bAlike || !rReference.geometry.isKnown() || !rPlace.isKnown()) {
        return false;
    }
    const std::string strObstacle = StandIn::placeObstacle(rReference, rCamera, rPlace);
    if (!strObstacle.empty()) {
        rFindings.push_back({eRefusal, "other-place",
                             capital(strWhat) + " does not serve the camera's image, as " + strObstacle +
                                 ": the image is " + placeWords(rCamera, rPlace) + ", the reference " +
                                 placeWords(rReference.layout, rReference.geometry) + ".",
                             strAdvice, true});
    }
    return true;
}

}  // namespace

Findings compareWithCamera(const std::string& strWhat, const StandIn::ReferenceImage& rReference,
                           const CameraSettings& rCamera, bool bFiles) {
    Findings vecFindings;
    const StandIn::ImageLayout camera = {StandIn::findPixelFormat(rCamera.strPixelFormat), rCamera.nWidth,
                                         rCamera.nHeight};
    const std::string strAdvice = bFiles ? "Take the references that were recorded with the frames."
                                         : "Set the camera as it was, or record the references again as it is.";
    const bool bPlaced =
        camera.isPossible() && comparePlaces(strWhat, rReference, camera, geometryOf(rCamera), strAdvice, vecFindings);
    const bool bLine = rReference.isLine() && camera.nWidth == rReference.layout.nWidth;
    const StandIn::ImageLayout compared = {camera.pFormat, camera.nWidth, bLine ? 1 : camera.nHeight};
    if (bPlaced) {
        // All is said.
    } else if (!camera.isPossible()) {
        vecFindings.push_back({eRefusal, "other-format",
                               (bFiles ? "The files are " : "The camera delivers ") + rCamera.strPixelFormat +
                                   ", which cannot be corrected.",
                               "Choose one of the formats Mono, Bayer, RGB8 and BGR8.", true});
    } else if (!rReference.layout.hasSamplesLike(compared)) {
        const bool bSize = camera.nWidth != rReference.layout.nWidth || camera.nHeight != rReference.layout.nHeight;
        vecFindings.push_back({eRefusal, bSize ? "other-size" : "other-format",
                               capital(strWhat) + " is " + layoutText(rReference.layout) +
                                   (bFiles ? ", the files are " : ", the camera delivers ") + layoutText(camera) + ".",
                               strAdvice, true});
    }
    compareSettings(cameraSettingsFromJson(rReference.strCamera), rCamera, capital(strWhat) + " was taken with",
                    "the camera is set to", strAdvice.c_str(), vecFindings, bPlaced);
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
