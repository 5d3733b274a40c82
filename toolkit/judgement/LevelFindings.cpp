// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What is to be said of the levels of a photon transfer.

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "toolkit/judgement/PhotonTransfer.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr std::size_t LEVELS_LEAST = 5;   // in a line that shows by itself when the camera is not linear
constexpr double OWN_SIGNAL = 0.02;       // relative: closer ones tell the line no more than one does
constexpr double GAIN_OFF = 0.05;         // relative: what cameras bend stays below, moving light does not
constexpr double LEVEL_DEVIATIONS = 5.0;  // standard deviations: of some ten levels in four colours none by chance
constexpr double PAIR_DEVIATIONS = 4.0;   // standard deviations, of one comparison in four colours
constexpr std::size_t LEVELS_TOLD = 4;    // levels in a text; all are in the JSON

/// A conversion gain, DN per electron, and what it is uncertain by.
struct Gain {
    double dValue = UNKNOWN, dUncertainty = UNKNOWN;
    double dRounding = 0.0;  // the most that rounding does to it
};

Gain gainOf(const TransferPoint& rPoint) {
    return {rPoint.dVariance / rPoint.dSignal, rPoint.dUncertainty / rPoint.dSignal, rPoint.dRounding / rPoint.dSignal};
}

Gain gainOf(const TransferLine& rLine) {
    double dRounding = 0.0, dSquares = 0.0;
    for (const TransferPoint& rPoint : rLine.vecPoints) {
        dRounding += rPoint.bUsed ? rPoint.dSignal * rPoint.dRounding : 0.0;
        dSquares += rPoint.bUsed ? rPoint.dSignal * rPoint.dSignal : 0.0;
    }
    return {rLine.dGain, rLine.dUncertainty, dRounding / dSquares};
}

/// Whether the first differs from the second by more than chance and rounding do.
bool differ(const Gain& rFirst, const Gain& rSecond, double dDeviations) {
    const double dLimit =
        dDeviations * std::hypot(rFirst.dUncertainty, rSecond.dUncertainty) + rFirst.dRounding + rSecond.dRounding;
    const double dDifference = std::abs(rFirst.dValue - rSecond.dValue);
    return dDifference > dLimit && dDifference > GAIN_OFF * std::abs(rSecond.dValue);
}

/// The middle one of the levels in the line, which a few levels beside it do not move, unlike the line.
Gain middleGain(const TransferLine& rLine) {
    std::vector<Gain> vecGains;
    for (const TransferPoint& rPoint : rLine.vecPoints) {
        if (rPoint.bUsed) {
            vecGains.push_back(gainOf(rPoint));
        }
    }
    if (vecGains.empty()) {
        return {};
    }
    const auto itMiddle = vecGains.begin() + static_cast<std::ptrdiff_t>((vecGains.size() - 1) / 2);
    std::nth_element(vecGains.begin(), itMiddle, vecGains.end(),
                     [](const Gain& a, const Gain& b) { return a.dValue < b.dValue; });
    return *itMiddle;
}

/// A level off the line in one of its colours.
struct OffLevel {
    std::size_t iLevel;
    double dGain, dMiddle;
    /// How far, relative.
    double deviation() const { return std::abs(dGain / dMiddle - 1.0); }
};

/// Levels whose variance does not fit their signal, each in the colour where that is worst; the worst level first. Of
/// those beyond the line only more variance counts: saturation takes it away.
std::vector<OffLevel> offLevels(const PhotonTransfer& rTransfer) {
    std::vector<OffLevel> vecOff;
    for (std::size_t i = 0; i < rTransfer.vecLevels.size(); ++i) {
        OffLevel worst{i, 0.0, 0.0};
        for (const TransferLine& rLine : rTransfer.vecClasses) {
            const TransferPoint& rPoint = rLine.vecPoints[i];
            const Gain middle = middleGain(rLine), own = gainOf(rPoint);
            const bool bTold = rPoint.bUsed || (rPoint.dSignal > 0.0 && rPoint.dSignal <= rLine.dSaturation &&
                                                own.dValue > middle.dValue);
            const OffLevel here{i, own.dValue, middle.dValue};
            if (bTold && differ(own, middle, LEVEL_DEVIATIONS) &&
                (worst.dMiddle == 0.0 || here.deviation() > worst.deviation())) {
                worst = here;
            }
        }
        if (worst.dMiddle != 0.0) {
            vecOff.push_back(worst);
        }
    }
    std::stable_sort(vecOff.begin(), vecOff.end(),
                     [](const OffLevel& a, const OffLevel& b) { return a.deviation() > b.deviation(); });
    return vecOff;
}

/// "a, b and 3 more".
std::string listed(const std::vector<std::string>& rTexts) {
    std::string strText;
    for (std::size_t i = 0; i < std::min(LEVELS_TOLD, rTexts.size()); ++i) {
        strText += (i == 0 ? "" : ", ") + rTexts[i];
    }
    return strText +
           (rTexts.size() > LEVELS_TOLD ? " and " + std::to_string(rTexts.size() - LEVELS_TOLD) + " more" : "");
}

void judgeScatter(const PhotonTransfer& rTransfer, Findings& rFindings) {
    std::vector<std::string> vecTexts;
    for (const OffLevel& rOff : offLevels(rTransfer)) {
        vecTexts.push_back(rTransfer.vecLevels[rOff.iLevel] + " by itself gives " + withUnit(rOff.dGain, 4, "DN/e-") +
                           " where the middle one of the levels gives " + fixed(rOff.dMiddle, 4));
    }
    if (!vecTexts.empty()) {
        rFindings.push_back(
            {eWarning, "levels-scatter",
             "Of " + counted(rTransfer.vecLevels.size(), "level") + " " + std::to_string(vecTexts.size()) +
                 (vecTexts.size() == 1 ? " is" : " are") +
                 " off the line by more than 5 % and 5 standard deviations: " + listed(vecTexts) + ".",
             "Record them again in steady light, each with the dark of its exposure; where they deviate "
             "still, the camera is not linear."});
    }
}

void judgePairGain(const PhotonTransfer& rTransfer, Findings& rFindings) {
    for (std::size_t i = 0; i < std::min(rTransfer.vecPair.size(), rTransfer.vecClasses.size()); ++i) {
        const Gain line = gainOf(rTransfer.vecClasses[i]), pair = gainOf(rTransfer.vecPair[i]);
        if (rTransfer.vecPair[i].dSignal > 0.0 && pair.dValue > 0.0 && differ(pair, line, PAIR_DEVIATIONS)) {
            rFindings.push_back({eWarning, "other-conversion-gain",
                                 "The levels give " + withUnit(line.dValue, 4, "DN/e-") + " +- " +
                                     fixed(line.dUncertainty, 4) + ", the dark and the light reference by themselves " +
                                     fixed(pair.dValue, 4) + " +- " + fixed(pair.dUncertainty, 4) + ".",
                                 "Record levels and references with the same gain of the camera, in steady light."});
            return;
        }
    }
}

/// Levels in the line, those of about the same signal once; of the colour that has fewest.
std::size_t levelsInLine(const PhotonTransfer& rTransfer) {
    std::size_t nLeast = rTransfer.vecLevels.size();
    for (const TransferLine& rLine : rTransfer.vecClasses) {
        std::vector<double> vecSignals;
        for (const TransferPoint& rPoint : rLine.vecPoints) {
            if (rPoint.bUsed) {
                vecSignals.push_back(rPoint.dSignal);
            }
        }
        std::sort(vecSignals.begin(), vecSignals.end());
        std::size_t nLevels = 0;
        double dLast = 0.0;
        for (const double dSignal : vecSignals) {
            if (dSignal > (1.0 + OWN_SIGNAL) * dLast) {
                dLast = dSignal;
                ++nLevels;
            }
        }
        nLeast = std::min(nLeast, nLevels);
    }
    return nLeast;
}

void judgeNumber(const PhotonTransfer& rTransfer, Findings& rFindings) {
    const std::size_t nLeast = levelsInLine(rTransfer), nLevels = rTransfer.vecLevels.size();
    if (nLeast >= LEVELS_LEAST) {
        return;
    }
    const std::string strHow = nLeast == 0         ? (nLevels == 1 ? "The only level is not" : "No level is")
                               : nLeast == nLevels ? "Only " + counted(nLeast, "level") + (nLeast == 1 ? " is" : " are")
                                                   : "Of " + counted(nLevels, "level") + " only " +
                                                         std::to_string(nLeast) + (nLeast == 1 ? " is" : " are");
    rFindings.push_back({eWarning, "few-levels",
                         strHow + " above the dark and up to 70 % of saturation" +
                             (nLeast == 0 || nLeast == nLevels ? "." : ", with a signal of its own (2 % from others)."),
                         "Take five levels or more there."});
}

void judgeRepeated(const PhotonTransfer& rTransfer, Findings& rFindings) {
    std::vector<std::string> vecTexts;
    for (const RepeatedLevel& rLevel : rTransfer.vecRepeated) {
        vecTexts.push_back(rLevel.strName + " holds the frames of " + rLevel.strFirst);
    }
    if (!vecTexts.empty()) {
        rFindings.push_back({eWarning, "same-level",
                             "Of " + counted(rTransfer.vecLevels.size(), "level") + " " +
                                 std::to_string(vecTexts.size()) + (vecTexts.size() == 1 ? " is" : " are") +
                                 " there before and not in the line again: " + listed(vecTexts) + ".",
                             "Name each level once, and record one at each exposure."});
    }
}

}  // namespace

Findings judgeLevels(const PhotonTransfer& rTransfer) {
    Findings vecFindings;
    judgeRepeated(rTransfer, vecFindings);
    judgeNumber(rTransfer, vecFindings);
    if (!rTransfer.vecOtherExposure.empty()) {
        std::string strNames;
        for (const std::string& rName : rTransfer.vecOtherExposure) {
            strNames += (strNames.empty() ? "" : ", ") + rName;
        }
        vecFindings.push_back({eWarning, "other-exposure",
                               "No dark reference of the same exposure time is given for " + strNames + ".",
                               "Record one for each exposure time and name it with the levels."});
    }
    judgeScatter(rTransfer, vecFindings);
    judgePairGain(rTransfer, vecFindings);
    append(vecFindings, rTransfer.vecOwn);
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
