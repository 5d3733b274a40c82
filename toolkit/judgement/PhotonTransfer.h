// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The conversion gain from even light at several exposures: the photon transfer method of EMVA 1288.

#pragma once

#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

/// An even light, and the dark of the same exposure.
struct LightLevel {
    std::string strName;
    MeanImage light, dark;
    std::string strDark{};                                            ///< names the dark one
    double dExposure = std::numeric_limits<double>::quiet_NaN();      ///< of the light, us; NaN: not known
    double dDarkExposure = std::numeric_limits<double>::quiet_NaN();  ///< the same of the dark one
    Findings vecFindings{};                                           ///< on the light by itself
};

/// A level as a class of samples sees it.
struct TransferPoint {
    double dSignal = 0.0;       ///< mean above the dark one, DN
    double dVariance = 0.0;     ///< temporal variance above the dark one, DN^2
    bool bUsed = false;         ///< in the line
    double dUncertainty = 0.0;  ///< of dVariance, one standard deviation: what the number of samples and frames leaves
    double dRounding = 0.0;     ///< what rounding may add to dVariance or take off it, where there is little noise
};

/// The line of a colour class.
struct TransferLine {
    double dGain = 0.0;         ///< K, DN per electron; NaN: no level can be used
    double dUncertainty = 0.0;  ///< of K, one standard deviation: what the number of samples and frames leaves
    double dSaturation = 0.0;   ///< DN above the dark
    std::vector<TransferPoint> vecPoints;
};

/// A level that holds the frames of another one, and is not in the line.
struct RepeatedLevel {
    std::string strName;   ///< of the level
    std::string strFirst;  ///< of the one before it
};

/// The lines of all classes, in the order of colourClassNames(), their points in the order of the levels.
struct PhotonTransfer {
    std::vector<TransferLine> vecClasses;
    std::vector<std::string> vecLevels;
    std::vector<std::string> vecDarks;          ///< the dark ones of the levels
    std::vector<std::string> vecOtherExposure;  ///< levels whose dark one is known to be of another exposure
    std::vector<RepeatedLevel> vecRepeated;     ///< levels that are there twice
    Findings vecOwn;                            ///< on single levels by themselves
    std::vector<TransferPoint> vecPair;         ///< each class of a pair to compare with; empty: none
    /// Mean of the classes.
    double gain() const;
};

/// K is the slope of the line through 0 that fits the variance over the signal best (least squares), up to 70 % of
/// saturation (EMVA 1288 R4, section 6): the signal of the largest variance where a brighter level has less, else full
/// scale. Variances are taken before rounding, which differs from their difference only where the noise in the dark is
/// below 0.4 DN. A level whose light is, sample by sample, that of another one is in the line once.
/// @throws std::invalid_argument  a level is of one frame, or of another layout than the first; names it.
PhotonTransfer photonTransfer(const std::vector<LightLevel>& rLevels);

/// Each class of a pair, as levels are seen; empty where its noise, or that of a colour, is not known, or where more
/// than 0.1 % of the light is saturated.
std::vector<TransferPoint> pairPoints(const MeanImage& rDark, const MeanImage& rLight);

/// Reads levels, each of them a light reference or a folder of image files, two frames or more. Dark references among
/// them go with the light ones of their exposure time, rDark with all others. Each tells how steady it is by itself.
/// @param[in] strDark  names rDark.
/// @throws CUsageError         a folder has no image file, or there are dark references alone.
/// @throws std::runtime_error  names what cannot be used.
std::vector<LightLevel> readLevels(const std::vector<std::string>& rNames, const StandIn::ReferenceImage& rDark,
                                   const std::string& strDark);

/// What is to be said of the levels, all of it warnings: "same-level", "few-levels", "other-exposure",
/// "levels-scatter", "other-conversion-gain", and of single levels those of judgeLevelSteadiness().
Findings judgeLevels(const PhotonTransfer& rTransfer);

/// Lines for people, each ended.
std::string describe(const PhotonTransfer& rTransfer, const StandIn::PixelFormat& rFormat);

/// {"conversionGain", "classes": [{"class", "conversionGain", "conversionGainUncertainty", "saturation",
/// "points": [{"level", "dark", "signal", "variance", "varianceUncertainty", "used"}]}], "findings"}
nlohmann::ordered_json toJson(const PhotonTransfer& rTransfer, const StandIn::PixelFormat& rFormat);

}  // namespace Toolkit
}  // namespace XAPEL2
