// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The conversion gain from even light at several exposures: the photon transfer method of EMVA 1288.

#include "toolkit/judgement/PhotonTransfer.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "toolkit/frames/FileList.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/judgement/SensorNoise.h"
#include "toolkit/judgement/Steadiness.h"
#include "toolkit/sessions/Session.h"
#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

namespace {

constexpr double USED_MOST = 0.7;         // of saturation
constexpr double SAME_EXPOSURE = 0.005;   // relative
constexpr double COARSE = 0.16;           // DN^2 in the dark: below, rounding hides part of the noise
constexpr double ROUNDING_MOST = 0.16;    // DN^2, of that part: see varianceBeforeRounding()
constexpr double SATURATED_MOST = 0.001;  // share of the samples of a pair

double meanOfClass(const MeanImage& rImage, unsigned iClass) {
    double dSum = 0.0;
    const CColourPlane plane = colourPlane(rImage.layout, rImage.vecSamples, iClass);
    for (const float fSample : plane) {
        dSum += static_cast<double>(fSample);
    }
    return dSum / std::max(1.0, static_cast<double>(plane.size()));
}

double varianceOfClass(const MeanImage& rImage, unsigned iClass) {
    return varianceBeforeRounding(rImage.vecClassVariance.empty() ? rImage.dTemporalVariance
                                                                  : rImage.vecClassVariance[iClass]);
}

double saturationOf(const std::vector<TransferPoint>& rPoints, double dFullScale) {
    const auto itNoisiest =
        std::max_element(rPoints.begin(), rPoints.end(),
                         [](const TransferPoint& a, const TransferPoint& b) { return a.dVariance < b.dVariance; });
    const bool bBeyond = std::any_of(rPoints.begin(), rPoints.end(),
                                     [&](const TransferPoint& rPoint) { return rPoint.dSignal > itNoisiest->dSignal; });
    return bBeyond ? itNoisiest->dSignal : dFullScale;
}

/// Variance of the temporal variance of a class.
double varianceSquared(const MeanImage& rImage, unsigned iClass) {
    return std::pow(varianceOfClass(rImage, iClass), 2.0) * 2.0 /
           (static_cast<double>(rImage.layout.samplesOf(iClass)) * (static_cast<double>(rImage.nFrames) - 1.0));
}

TransferPoint pointOf(const MeanImage& rDark, const MeanImage& rLight, unsigned iClass) {
    TransferPoint point;
    const double dDark = varianceOfClass(rDark, iClass);
    point.dSignal = meanOfClass(rLight, iClass) - meanOfClass(rDark, iClass);
    point.dVariance = varianceOfClass(rLight, iClass) - dDark;
    point.dUncertainty = std::sqrt(varianceSquared(rLight, iClass) + varianceSquared(rDark, iClass));
    point.dRounding = dDark < COARSE ? ROUNDING_MOST : 0.0;
    return point;
}

/// The level before this one whose light is the same to the last bit; null: none.
const LightLevel* sameBefore(const std::vector<LightLevel>& rLevels, std::size_t iLevel) {
    const auto itEnd = rLevels.begin() + static_cast<std::ptrdiff_t>(iLevel);
    const auto itSame = std::find_if(rLevels.begin(), itEnd, [&](const LightLevel& r) {
        return r.light.vecClassVariance == itEnd->light.vecClassVariance &&
               r.light.vecSamples == itEnd->light.vecSamples;
    });
    return itSame == itEnd ? nullptr : &*itSame;
}

/// @param[in] rRepeated  of each level: it was there before.
TransferLine lineOf(const std::vector<LightLevel>& rLevels, const std::vector<bool>& rRepeated, unsigned iClass) {
    TransferLine line;
    double dDark = std::numeric_limits<double>::infinity();
    for (const LightLevel& rLevel : rLevels) {
        dDark = std::min(dDark, meanOfClass(rLevel.dark, iClass));
        line.vecPoints.push_back(pointOf(rLevel.dark, rLevel.light, iClass));
    }
    line.dSaturation = saturationOf(line.vecPoints, rLevels.front().light.layout.pFormat->fullScale() - dDark);
    double dProducts = 0.0, dSquares = 0.0, dErrors = 0.0;
    for (std::size_t i = 0; i < rLevels.size(); ++i) {
        TransferPoint& rPoint = line.vecPoints[i];
        rPoint.bUsed = !rRepeated[i] && rPoint.dSignal > 0.0 && rPoint.dSignal <= USED_MOST * line.dSaturation;
        if (rPoint.bUsed) {
            dProducts += rPoint.dSignal * rPoint.dVariance;
            dSquares += rPoint.dSignal * rPoint.dSignal;
            dErrors += std::pow(rPoint.dSignal * rPoint.dUncertainty, 2.0);
        }
    }
    line.dGain = dSquares > 0.0 ? dProducts / dSquares : UNKNOWN;
    line.dUncertainty = dSquares > 0.0 ? std::sqrt(dErrors) / dSquares : UNKNOWN;
    return line;
}

/// The image files of a folder, added up.
CFrameStack stackOfFolder(const std::string& strFolder, const StandIn::PixelFormat& rFormat) {
    const std::vector<std::string> vecFiles = listFiles({strFolder}, {});
    CSession session("the files of " + strFolder, [&] { return StandIn::openFiles(vecFiles, rFormat.pName); });
    session.selectScene("Scene");
    // A file may hold several.
    const uint64_t nFrames = session.frameCount();
    if (nFrames < 2) {
        throw std::runtime_error(strFolder + ": a level takes two frames or more");
    }
    std::optional<CFrameStack> stack;
    for (uint64_t i = 0; i < nFrames; ++i) {
        const Frame frame = session.fetchFrame(i);
        if (!stack) {
            stack.emplace(StandIn::ImageLayout{frame.pFormat, frame.nWidth, frame.nHeight});
        }
        stack->add(frame);
    }
    return std::move(*stack);
}

double exposureOf(const StandIn::ReferenceImage& rReference) {
    const CameraSettings settings = cameraSettingsFromJson(rReference.strCamera);
    return settings.has("ExposureTime") ? settings.mapValues.at("ExposureTime") : UNKNOWN;
}

bool areSameExposure(double dFirst, double dSecond) {
    return std::abs(dFirst - dSecond) <= SAME_EXPOSURE * dSecond;
}

/// False where one of the two is not known.
bool isOfOtherExposure(const LightLevel& rLevel) {
    return std::isfinite(rLevel.dExposure) && std::isfinite(rLevel.dDarkExposure) &&
           !areSameExposure(rLevel.dDarkExposure, rLevel.dExposure);
}

}  // namespace

double PhotonTransfer::gain() const {
    double dSum = 0.0;
    for (const TransferLine& rLine : vecClasses) {
        dSum += rLine.dGain;
    }
    return dSum / static_cast<double>(vecClasses.size());
}

PhotonTransfer photonTransfer(const std::vector<LightLevel>& rLevels) {
    PhotonTransfer result;
    for (const LightLevel& rLevel : rLevels) {
        for (const MeanImage* pImage : {&rLevel.light, &rLevel.dark}) {
            if (!pImage->layout.hasSamplesLike(rLevels.front().light.layout)) {
                throw std::invalid_argument(rLevel.strName + " has another format or size than the levels before");
            }
            if (pImage->nFrames < 2) {
                throw std::invalid_argument(rLevel.strName + ": the noise of a single frame cannot be told; " +
                                            (pImage == &rLevel.light ? "a level" : "its dark reference") +
                                            " takes two or more");
            }
        }
        result.vecLevels.push_back(rLevel.strName);
        result.vecDarks.push_back(rLevel.strDark);
        if (isOfOtherExposure(rLevel)) {
            result.vecOtherExposure.push_back(rLevel.strName);
        }
        append(result.vecOwn, rLevel.vecFindings);
    }
    std::vector<bool> vecRepeated;
    for (std::size_t i = 0; i < rLevels.size(); ++i) {
        const LightLevel* const pSame = sameBefore(rLevels, i);
        vecRepeated.push_back(pSame != nullptr);
        if (pSame != nullptr) {
            result.vecRepeated.push_back({rLevels[i].strName, pSame->strName});
        }
    }
    for (unsigned i = 0; !rLevels.empty() && i < rLevels.front().light.layout.classes(); ++i) {
        result.vecClasses.push_back(lineOf(rLevels, vecRepeated, i));
    }
    return result;
}

std::vector<TransferPoint> pairPoints(const MeanImage& rDark, const MeanImage& rLight) {
    const unsigned nClasses = rLight.layout.classes();
    std::vector<TransferPoint> vecPoints;
    for (const MeanImage* pImage : {&rDark, &rLight}) {
        if (pImage->nFrames < 2 || (nClasses > 1 && pImage->vecClassVariance.empty())) {
            return {};
        }
    }
    for (unsigned i = 0; i < nClasses && rLight.dSaturatedShare <= SATURATED_MOST; ++i) {
        vecPoints.push_back(pointOf(rDark, rLight, i));
    }
    return vecPoints;
}

std::vector<LightLevel> readLevels(const std::vector<std::string>& rNames, const StandIn::ReferenceImage& rDark,
                                   const std::string& strDark) {
    struct Dark {
        std::string strName;
        double dExposure;
        MeanImage mean;
    };
    std::vector<Dark> vecDark;
    std::vector<LightLevel> vecLevels;
    for (const std::string& rName : rNames) {
        std::error_code ignored;
        if (fs::is_directory(rName, ignored)) {
            const CFrameStack stack = stackOfFolder(rName, *rDark.layout.pFormat);
            vecLevels.push_back({rName, stack.mean(), {}});
            vecLevels.back().vecFindings = judgeLevelSteadiness(rName, vecLevels.back().light, stack.outlyingFrames());
            continue;
        }
        const StandIn::ReferenceImage reference = readReference(rName);
        if (reference.eKind == StandIn::eReferenceDark) {
            vecDark.push_back({rName, exposureOf(reference), meanOf(reference)});
        } else {
            vecLevels.push_back({rName, meanOf(reference), {}});
            vecLevels.back().dExposure = exposureOf(reference);
            vecLevels.back().vecFindings = judgeLevelSteadiness(rName, vecLevels.back().light, reference.outliers);
        }
    }
    if (vecLevels.empty() && !rNames.empty()) {
        throw CUsageError("the levels are dark references alone; name light ones, or folders of frames, with them");
    }
    for (LightLevel& rLevel : vecLevels) {
        const auto itDark = std::find_if(vecDark.begin(), vecDark.end(),
                                         [&](const Dark& r) { return areSameExposure(r.dExposure, rLevel.dExposure); });
        const bool bOwn = itDark != vecDark.end();
        rLevel.dark = bOwn ? itDark->mean : meanOf(rDark);
        rLevel.strDark = bOwn ? itDark->strName : strDark;
        rLevel.dDarkExposure = bOwn ? itDark->dExposure : exposureOf(rDark);
    }
    return vecLevels;
}

std::string describe(const PhotonTransfer& rTransfer, const StandIn::PixelFormat& rFormat) {
    const std::vector<std::string> vecNames = colourClassNames(rFormat);
    std::string strText;
    for (std::size_t i = 0; i < rTransfer.vecClasses.size(); ++i) {
        const TransferLine& rLine = rTransfer.vecClasses[i];
        const auto nUsed =
            std::count_if(rLine.vecPoints.begin(), rLine.vecPoints.end(), [](auto& r) { return r.bUsed; });
        strText += "  conversion gain    " + (vecNames.size() > 1 ? vecNames[i] + " " : std::string()) +
                   withUnit(rLine.dGain, 5, "DN/e-") +
                   (std::isnan(rLine.dUncertainty) ? "" : " +- " + fixed(rLine.dUncertainty, 5)) + ", a line over " +
                   std::to_string(nUsed) + " of " + counted(rLine.vecPoints.size(), "level") + ", saturation " +
                   fixed(rLine.dSaturation, 0) + " DN\n";
    }
    for (std::size_t i = 0; i < rTransfer.vecLevels.size(); ++i) {
        strText += "  level              " + rTransfer.vecLevels[i] + ", dark " + rTransfer.vecDarks[i] + "\n";
    }
    return strText + describe(judgeLevels(rTransfer));
}

nlohmann::ordered_json toJson(const PhotonTransfer& rTransfer, const StandIn::PixelFormat& rFormat) {
    nlohmann::ordered_json result = {{"conversionGain", rTransfer.gain()},
                                     {"classes", nlohmann::ordered_json::array()},
                                     {"findings", toJson(judgeLevels(rTransfer))}};
    const std::vector<std::string> vecNames = colourClassNames(rFormat);
    for (std::size_t i = 0; i < rTransfer.vecClasses.size(); ++i) {
        const TransferLine& rLine = rTransfer.vecClasses[i];
        nlohmann::ordered_json points = nlohmann::ordered_json::array();
        for (std::size_t k = 0; k < rLine.vecPoints.size(); ++k) {
            const TransferPoint& rPoint = rLine.vecPoints[k];
            points.push_back({{"level", rTransfer.vecLevels[k]},
                              {"dark", rTransfer.vecDarks[k]},
                              {"signal", rPoint.dSignal},
                              {"variance", rPoint.dVariance},
                              {"varianceUncertainty", rPoint.dUncertainty},
                              {"used", rPoint.bUsed}});
        }
        result["classes"].push_back({{"class", vecNames[i]},
                                     {"conversionGain", rLine.dGain},
                                     {"conversionGainUncertainty", rLine.dUncertainty},
                                     {"saturation", rLine.dSaturation},
                                     {"points", points}});
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
