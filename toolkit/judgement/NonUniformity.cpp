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
    return dSquares / (static_cast<double>(rValues.size()) - 1.0);
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

Split apply(const Split& a, const Split& b, double (*fnCombine)(double, double, double), double dBy) {
    return {fnCombine(a.dTotal, b.dTotal, dBy), fnCombine(a.dRow, b.dRow, dBy), fnCombine(a.dColumn, b.dColumn, dBy),
            fnCombine(a.dPixel, b.dPixel, dBy)};
}

// NaN stays NaN: std::max would turn it into 0.
double rootOfDifference(double dMinuend, double dSubtrahend, double dBy) {
    const double dDifference = dMinuend - dSubtrahend;
    return dDifference < 0.0 ? 0.0 : std::sqrt(dDifference) / dBy;
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
        const Split DarkVariance = spatialVariances(Dark, rDark.nFrames, classVariance(rDark, iClass, 0.0, 0.0));
        const Split LightVariance = spatialVariances(
            Light, rLight.nFrames,
            classVariance(rLight, iClass, std::isnan(dTransfer) ? 0.0 : dTransfer, dClassSignal - dSignal));
        Class.Dsnu = apply(DarkVariance, Split(), rootOfDifference, dGain > 0.0 ? dGain : 1.0);
        Class.Prnu =
            apply(LightVariance, DarkVariance, rootOfDifference, dClassSignal > 0.0 ? dClassSignal / 100.0 : UNKNOWN);
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
                                     {"prnuPercent", toJson(rClass.Prnu)}});
    }
    return Result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
