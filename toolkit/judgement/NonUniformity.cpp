// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Non-uniformity of dark signal and response, and the conversion gain: EMVA 1288 release 4.

#include "toolkit/judgement/NonUniformity.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();

double meanOfValues(const std::vector<double>& rValues) {
    double dSum = 0.0;
    for (const double dValue : rValues) {
        dSum += dValue;
    }
    return dSum / static_cast<double>(rValues.size());
}

double varianceOfValues(const std::vector<double>& rValues) {
    const double dMean = meanOfValues(rValues);
    double dSquares = 0.0;
    for (const double dValue : rValues) {
        dSquares += (dValue - dMean) * (dValue - dMean);
    }
    return dSquares / static_cast<double>(rValues.size());
}

/// Means of the rows and the columns, of all, and the sum of squares about the latter.
struct Means {
    std::vector<double> vecRows, vecColumns;
    double dAll = 0.0, dSquares = 0.0;
};

Means meansOf(const ColourPlane& rPlane) {
    Means Result;
    Result.vecRows.assign(rPlane.nRows, 0.0);
    Result.vecColumns.assign(rPlane.nColumns, 0.0);
    for (std::size_t iRow = 0; iRow < rPlane.nRows; ++iRow) {
        const float* pRow = rPlane.vSamples.data() + iRow * rPlane.nColumns;
        for (std::size_t i = 0; i < rPlane.nColumns; ++i) {
            Result.vecRows[iRow] += static_cast<double>(pRow[i]);
            Result.vecColumns[i] += static_cast<double>(pRow[i]);
        }
        Result.vecRows[iRow] /= static_cast<double>(rPlane.nColumns);
    }
    for (double& rColumn : Result.vecColumns) {
        rColumn /= static_cast<double>(rPlane.nRows);
    }
    Result.dAll = meanOfValues(Result.vecRows);
    for (const float fSample : rPlane.vSamples) {
        const double dOff = static_cast<double>(fSample) - Result.dAll;
        Result.dSquares += dOff * dOff;
    }
    return Result;
}

double planeMean(const ColourPlane& rPlane) {
    double dSum = 0.0;
    for (const float fSample : rPlane.vSamples) {
        dSum += static_cast<double>(fSample);
    }
    return rPlane.vSamples.empty() ? UNKNOWN : dSum / static_cast<double>(rPlane.vSamples.size());
}

/// A figure as it is told.
struct Resolved {
    Split Figure, Uncertainty, Limit;
};

Split apply(const Split& a, const Split& b, double (*fnCombine)(double, double, double), double dBy) {
    return {fnCombine(a.dTotal, b.dTotal, dBy), fnCombine(a.dRow, b.dRow, dBy), fnCombine(a.dColumn, b.dColumn, dBy),
            fnCombine(a.dPixel, b.dPixel, dBy)};
}

/// Temporal variance of one class; see nonUniformity() for what is done where only that of the whole image is known.
double classVariance(const MeanImage& rImage, std::size_t iClass, double dTransfer, double dLightAboveMean) {
    return rImage.vecClassVariance.empty() ? std::max(0.0, rImage.dTemporalVariance + dTransfer * dLightAboveMean)
                                           : rImage.vecClassVariance[iClass];
}

double imageMean(const MeanImage& rImage) {
    double dSum = 0.0;
    for (const float fSample : rImage.vSamples) {
        dSum += static_cast<double>(fSample);
    }
    return dSum / static_cast<double>(rImage.vSamples.size());
}

/// Standard deviation of the variance dVariance that was measured over nValues values of a noise variance dNoise.
double uncertainty(double dVariance, double dNoise, double dValues, double dFreedom) {
    const double dOwn = 4.0 * std::max(0.0, dVariance) * dNoise + 2.0 * dNoise * dNoise;
    return std::sqrt(dOwn / dValues + 2.0 * dNoise * dNoise / dFreedom);
}

/// Figure, uncertainty and limit from the variances of light and dark.
void resolve(double dVariance, double dUncertainty, double dBy, double& rFigure, double& rUncertainty, double& rLimit) {
    if (dVariance < 0.0) {
        rFigure = rUncertainty = UNKNOWN;
        rLimit = std::sqrt(2.0 * dUncertainty) / dBy;
        return;
    }
    rFigure = std::sqrt(dVariance) / dBy;
    rLimit = UNKNOWN;
    // Of a figure near 0 the error of its square tells more.
    rUncertainty = dUncertainty <= 0.0
                       ? dUncertainty
                       : dUncertainty / (std::sqrt(dVariance) + std::sqrt(dVariance + dUncertainty)) / dBy;
}

Resolved resolve(const Split& rVariance, const Split& rUncertainty, double dBy) {
    Resolved Is;
    resolve(rVariance.dTotal, rUncertainty.dTotal, dBy, Is.Figure.dTotal, Is.Uncertainty.dTotal, Is.Limit.dTotal);
    resolve(rVariance.dRow, rUncertainty.dRow, dBy, Is.Figure.dRow, Is.Uncertainty.dRow, Is.Limit.dRow);
    resolve(rVariance.dColumn, rUncertainty.dColumn, dBy, Is.Figure.dColumn, Is.Uncertainty.dColumn, Is.Limit.dColumn);
    resolve(rVariance.dPixel, rUncertainty.dPixel, dBy, Is.Figure.dPixel, Is.Uncertainty.dPixel, Is.Limit.dPixel);
    return Is;
}

double difference(double dLeft, double dRight, double) {
    return dLeft - dRight;
}

double rootOfSum(double dLeft, double dRight, double) {
    return std::hypot(dLeft, dRight);
}

nlohmann::ordered_json toJson(const Split& rSplit) {
    return {{"total", rSplit.dTotal}, {"row", rSplit.dRow}, {"column", rSplit.dColumn}, {"pixel", rSplit.dPixel}};
}

}  // namespace

Split spatialVariances(const ColourPlane& rPlane, uint64_t nFrames, double dTemporalVariance) {
    if (rPlane.vSamples.size() < 2) {
        return {UNKNOWN, UNKNOWN, UNKNOWN, UNKNOWN};
    }
    const auto dRows = static_cast<double>(rPlane.nRows), dColumns = static_cast<double>(rPlane.nColumns);
    const double dNoise = std::isnan(dTemporalVariance) ? 0.0 : dTemporalVariance / static_cast<double>(nFrames);
    const Means Is = meansOf(rPlane);
    const double dTotal = Is.dSquares / (dRows * dColumns - 1.0) - dNoise;
    if (rPlane.nRows < 3 || rPlane.nColumns < 3) {
        return {dTotal, UNKNOWN, UNKNOWN, UNKNOWN};
    }
    const double dColumnMeans = varianceOfValues(Is.vecColumns) - dNoise / dRows;
    const double dRowMeans = varianceOfValues(Is.vecRows) - dNoise / dColumns;
    const double dPixel =
        dRows * dColumns / (dRows * dColumns - dRows - dColumns) * (dTotal - dColumnMeans - dRowMeans);
    return {dTotal, dRowMeans - dPixel / dColumns, dColumnMeans - dPixel / dRows, dPixel};
}

Split spatialUncertainties(const Split& rVariances, const ColourPlane& rPlane, uint64_t nFrames,
                           double dTemporalVariance) {
    const auto dRows = static_cast<double>(rPlane.nRows), dColumns = static_cast<double>(rPlane.nColumns);
    const double dNoise = dTemporalVariance / static_cast<double>(nFrames), dValues = dRows * dColumns;
    const double dFreedom = dValues * (static_cast<double>(nFrames) - 1.0);
    const double dPixel = uncertainty(rVariances.dPixel, dNoise, dValues, dFreedom);
    // A mean of a row has the pixels' own part in it, which is a noise to the rows.
    const double dHere = dNoise + std::max(0.0, rVariances.dPixel);
    return {uncertainty(rVariances.dTotal, dNoise, dValues, dFreedom),
            uncertainty(rVariances.dRow, dHere / dColumns, dRows, dFreedom),
            uncertainty(rVariances.dColumn, dHere / dRows, dColumns, dFreedom), dPixel};
}

double photonTransferGain(const MeanImage& rDark, const MeanImage& rLight) {
    const double dNoise = rLight.dTemporalVariance - rDark.dTemporalVariance;
    const double dSignal = imageMean(rLight) - imageMean(rDark);
    return dNoise > 0.0 && dSignal > 0.0 ? dNoise / dSignal : UNKNOWN;
}

NonUniformity nonUniformity(const MeanImage& rDark, const MeanImage& rLight, double dGain) {
    if (!rDark.sLayout.hasSamplesLike(rLight.sLayout)) {
        throw std::invalid_argument("dark and light image have different formats or sizes");
    }
    NonUniformity Result;
    Result.dGain = dGain;
    const std::vector<std::string> vecNames = colourClassNames(*rDark.sLayout.pFormat);
    const double dTransfer = photonTransferGain(rDark, rLight);
    const double dSignal = imageMean(rLight) - imageMean(rDark);
    for (unsigned iClass = 0; iClass < vecNames.size(); ++iClass) {
        const ColourPlane Dark = colourPlane(rDark.sLayout, rDark.vSamples, iClass);
        const ColourPlane Light = colourPlane(rLight.sLayout, rLight.vSamples, iClass);
        ClassNonUniformity Class;
        Class.strName = vecNames[iClass];
        Class.dDarkMean = planeMean(Dark);
        Class.dLightMean = planeMean(Light);
        const double dClassSignal = Class.dLightMean - Class.dDarkMean;
        const double dDarkNoise = classVariance(rDark, iClass, 0.0, 0.0);
        const double dLightNoise =
            classVariance(rLight, iClass, std::isnan(dTransfer) ? 0.0 : dTransfer, dClassSignal - dSignal);
        const Split DarkVariance = spatialVariances(Dark, rDark.nFrames, dDarkNoise);
        const Split LightVariance = spatialVariances(Light, rLight.nFrames, dLightNoise);
        const Split DarkError = spatialUncertainties(DarkVariance, Dark, rDark.nFrames, dDarkNoise);
        const Split LightError = spatialUncertainties(LightVariance, Light, rLight.nFrames, dLightNoise);
        const Resolved Dsnu = resolve(DarkVariance, DarkError, dGain > 0.0 ? dGain : 1.0);
        const Resolved Prnu =
            resolve(apply(LightVariance, DarkVariance, difference, 0.0), apply(LightError, DarkError, rootOfSum, 0.0),
                    dClassSignal > 0.0 ? dClassSignal / 100.0 : UNKNOWN);
        Class.Dsnu = Dsnu.Figure;
        Class.DsnuUncertainty = Dsnu.Uncertainty;
        Class.DsnuLimit = Dsnu.Limit;
        Class.Prnu = Prnu.Figure;
        Class.PrnuUncertainty = Prnu.Uncertainty;
        Class.PrnuLimit = Prnu.Limit;
        Result.vecClasses.push_back(Class);
    }
    return Result;
}

nlohmann::ordered_json toJson(const NonUniformity& rFigures) {
    nlohmann::ordered_json Result = {{"conversionGain", rFigures.dGain}, {"dsnuUnit", rFigures.dsnuUnit()}};
    Result["classes"] = nlohmann::ordered_json::array();
    for (const ClassNonUniformity& rClass : rFigures.vecClasses) {
        Result["classes"].push_back({{"class", rClass.strName},
                                     {"darkMean", rClass.dDarkMean},
                                     {"lightMean", rClass.dLightMean},
                                     {"dsnu", toJson(rClass.Dsnu)},
                                     {"dsnuUncertainty", toJson(rClass.DsnuUncertainty)},
                                     {"dsnuLimit", toJson(rClass.DsnuLimit)},
                                     {"prnuPercent", toJson(rClass.Prnu)},
                                     {"prnuPercentUncertainty", toJson(rClass.PrnuUncertainty)},
                                     {"prnuPercentLimit", toJson(rClass.PrnuLimit)}});
    }
    return Result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
