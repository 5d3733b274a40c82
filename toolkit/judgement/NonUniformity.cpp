// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Non-uniformity of dark signal and response, and the conversion gain: EMVA 1288 release 4.

#include "toolkit/judgement/NonUniformity.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "toolkit/judgement/Sums.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

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

Means meansOf(const CColourPlane& rPlane) {
    Means result;
    result.vecRows.assign(rPlane.rows(), 0.0);
    result.vecColumns.assign(rPlane.columns(), 0.0);
    for (std::size_t iRow = 0; iRow < rPlane.rows(); ++iRow) {
        const float* const pRow = rPlane.row(iRow);
        double* const pColumns = result.vecColumns.data();
        for (std::size_t i = 0; i < rPlane.columns(); ++i) {
            pColumns[i] += static_cast<double>(pRow[i]);
        }
        result.vecRows[iRow] = sumOf(pRow, rPlane.columns()) / static_cast<double>(rPlane.columns());
    }
    for (double& rColumn : result.vecColumns) {
        rColumn /= static_cast<double>(rPlane.rows());
    }
    result.dAll = meanOfValues(result.vecRows);
    const double dAll = result.dAll;
    result.dSquares =
        sumOver(rPlane.begin(), rPlane.size(), [dAll](double dSample) { return (dSample - dAll) * (dSample - dAll); });
    return result;
}

/// A figure as it is told.
struct Resolved {
    Split figure, uncertainty, limit;
};

Split apply(const Split& a, const Split& b, double (*fnCombine)(double, double, double), double dBy) {
    return {fnCombine(a.dTotal, b.dTotal, dBy), fnCombine(a.dRow, b.dRow, dBy), fnCombine(a.dColumn, b.dColumn, dBy),
            fnCombine(a.dPixel, b.dPixel, dBy)};
}

/// Temporal variance of one class; see nonUniformity() for what is done where only that of the whole image is known.
double classVariance(const MeanImage& rImage, std::size_t iClass, double dTransfer, double dLightAboveMean) {
    if (!rImage.vecClassVariance.empty()) {
        return rImage.vecClassVariance[iClass];
    }
    return std::isnan(rImage.dTemporalVariance) ? UNKNOWN
                                                : std::max(0.0, rImage.dTemporalVariance + dTransfer * dLightAboveMean);
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
    Resolved is;
    resolve(rVariance.dTotal, rUncertainty.dTotal, dBy, is.figure.dTotal, is.uncertainty.dTotal, is.limit.dTotal);
    resolve(rVariance.dRow, rUncertainty.dRow, dBy, is.figure.dRow, is.uncertainty.dRow, is.limit.dRow);
    resolve(rVariance.dColumn, rUncertainty.dColumn, dBy, is.figure.dColumn, is.uncertainty.dColumn, is.limit.dColumn);
    resolve(rVariance.dPixel, rUncertainty.dPixel, dBy, is.figure.dPixel, is.uncertainty.dPixel, is.limit.dPixel);
    return is;
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

Split spatialVariances(const CColourPlane& rPlane, uint64_t nFrames, double dTemporalVariance) {
    if (rPlane.size() < 2) {
        return {UNKNOWN, UNKNOWN, UNKNOWN, UNKNOWN};
    }
    const auto dRows = static_cast<double>(rPlane.rows()), dColumns = static_cast<double>(rPlane.columns());
    const double dNoise = std::isnan(dTemporalVariance) ? 0.0 : dTemporalVariance / static_cast<double>(nFrames);
    const Means is = meansOf(rPlane);
    const double dTotal = is.dSquares / (dRows * dColumns - 1.0) - dNoise;
    if (rPlane.rows() < 3 || rPlane.columns() < 3) {
        return {dTotal, UNKNOWN, UNKNOWN, UNKNOWN};
    }
    const double dColumnMeans = varianceOfValues(is.vecColumns) - dNoise / dRows;
    const double dRowMeans = varianceOfValues(is.vecRows) - dNoise / dColumns;
    const double dPixel =
        dRows * dColumns / (dRows * dColumns - dRows - dColumns) * (dTotal - dColumnMeans - dRowMeans);
    return {dTotal, dRowMeans - dPixel / dColumns, dColumnMeans - dPixel / dRows, dPixel};
}

Split spatialUncertainties(const Split& rVariances, const CColourPlane& rPlane, uint64_t nFrames,
                           double dTemporalVariance) {
    const auto dRows = static_cast<double>(rPlane.rows()), dColumns = static_cast<double>(rPlane.columns());
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
    const double dSignal = meanOfSamples(rLight.vecSamples) - meanOfSamples(rDark.vecSamples);
    return dNoise > 0.0 && dSignal > 0.0 ? dNoise / dSignal : UNKNOWN;
}

NonUniformity nonUniformity(const MeanImage& rDark, const MeanImage& rLight, double dGain) {
    if (!rDark.layout.hasSamplesLike(rLight.layout)) {
        throw std::invalid_argument("dark and light image have different formats or sizes");
    }
    NonUniformity result;
    result.dGain = dGain;
    const std::vector<std::string> vecNames = colourClassNames(*rDark.layout.pFormat);
    const double dTransfer = photonTransferGain(rDark, rLight);
    const double dSignal = meanOfSamples(rLight.vecSamples) - meanOfSamples(rDark.vecSamples);
    for (unsigned iClass = 0; iClass < vecNames.size(); ++iClass) {
        const CColourPlane dark = colourPlane(rDark.layout, rDark.vecSamples, iClass);
        const CColourPlane light = colourPlane(rLight.layout, rLight.vecSamples, iClass);
        ClassNonUniformity class_;
        class_.strName = vecNames[iClass];
        class_.dDarkMean = meanOfSamples(dark);
        class_.dLightMean = meanOfSamples(light);
        const double dClassSignal = class_.dLightMean - class_.dDarkMean;
        const double dDarkNoise = classVariance(rDark, iClass, 0.0, 0.0);
        const double dLightNoise =
            classVariance(rLight, iClass, std::isnan(dTransfer) ? 0.0 : dTransfer, dClassSignal - dSignal);
        const Split darkVariance = spatialVariances(dark, rDark.nFrames, dDarkNoise);
        const Split lightVariance = spatialVariances(light, rLight.nFrames, dLightNoise);
        const Split darkError = spatialUncertainties(darkVariance, dark, rDark.nFrames, dDarkNoise);
        const Split lightError = spatialUncertainties(lightVariance, light, rLight.nFrames, dLightNoise);
        const Resolved dsnu = resolve(darkVariance, darkError, dGain > 0.0 ? dGain : 1.0);
        const Resolved prnu =
            resolve(apply(lightVariance, darkVariance, difference, 0.0), apply(lightError, darkError, rootOfSum, 0.0),
                    dClassSignal > 0.0 ? dClassSignal / 100.0 : UNKNOWN);
        class_.dsnu = dsnu.figure;
        class_.dsnuUncertainty = dsnu.uncertainty;
        class_.dsnuLimit = dsnu.limit;
        class_.prnu = prnu.figure;
        class_.prnuUncertainty = prnu.uncertainty;
        class_.prnuLimit = prnu.limit;
        result.vecClasses.push_back(class_);
    }
    return result;
}

nlohmann::ordered_json toJson(const NonUniformity& rFigures) {
    nlohmann::ordered_json result = {{"conversionGain", rFigures.dGain}, {"dsnuUnit", rFigures.dsnuUnit()}};
    result["classes"] = nlohmann::ordered_json::array();
    for (const ClassNonUniformity& rClass : rFigures.vecClasses) {
        result["classes"].push_back({{"class", rClass.strName},
                                     {"darkMean", rClass.dDarkMean},
                                     {"lightMean", rClass.dLightMean},
                                     {"dsnu", toJson(rClass.dsnu)},
                                     {"dsnuUncertainty", toJson(rClass.dsnuUncertainty)},
                                     {"dsnuLimit", toJson(rClass.dsnuLimit)},
                                     {"prnuPercent", toJson(rClass.prnu)},
                                     {"prnuPercentUncertainty", toJson(rClass.prnuUncertainty)},
                                     {"prnuPercentLimit", toJson(rClass.prnuLimit)}});
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
