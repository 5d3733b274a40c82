// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The noise of a single frame as a function of its light: the linear camera model of EMVA 1288.

#include "toolkit/judgement/SensorNoise.h"

#include <cmath>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/Sums.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double ROUNDING = 1.0 / 12.0;

std::vector<double> meansOf(const StandIn::ReferenceImage& rReference) {
    if (rReference.layout.classes() == 1) {
        return {meanOfSamples(rReference.vecSamples)};
    }
    std::vector<double> vecMeans(rReference.layout.classes(), 0.0);
    for (std::size_t i = 0; i < rReference.vecSamples.size(); ++i) {
        vecMeans[rReference.layout.classOf(i)] += static_cast<double>(rReference.vecSamples[i]);
    }
    for (unsigned i = 0; i < vecMeans.size(); ++i) {
        vecMeans[i] /= std::fmax(1.0, static_cast<double>(rReference.layout.samplesOf(i)));
    }
    return vecMeans;
}

/// Temporal variance of a class before rounding.
double varianceOf(const StandIn::ReferenceImage& rReference, unsigned iClass) {
    const double dNoise =
        rReference.vecClassNoise.empty() ? rReference.dTemporalNoise : rReference.vecClassNoise[iClass];
    return varianceBeforeRounding(noiseShare(rReference) * dNoise * dNoise);
}

}  // namespace

double fixedRounding(double dVariance) {
    constexpr int TERMS = 32;
    double dSum = 0.0;
    for (int j = 1; j <= TERMS; ++j) {
        const double dTerm = std::exp(-4.0 * PI * PI * j * j * dVariance) / (2.0 * PI * PI * j * j);
        dSum += dTerm;
        if (dTerm < 1e-12) {
            return dSum;
        }
    }
    // What is left of the series where there is hardly any noise.
    return std::fmin(ROUNDING, dSum + std::exp(-4.0 * PI * PI * TERMS * TERMS * dVariance) / (2.0 * PI * PI * TERMS));
}

double varianceBeforeRounding(double dTemporalVariance) {
    double dLow = 0.0, dHigh = std::fmax(0.0, dTemporalVariance);
    for (int i = 0; i < 60; ++i) {
        const double dMiddle = (dLow + dHigh) / 2.0;
        (dMiddle + ROUNDING - fixedRounding(dMiddle) < dTemporalVariance ? dLow : dHigh) = dMiddle;
    }
    return (dLow + dHigh) / 2.0;
}

SensorNoise sensorNoise(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    if (rDark.nImages < 2 || rLight.nImages < 2) {
        return {};
    }
    const std::vector<double> vecDark = meansOf(rDark), vecLight = meansOf(rLight);
    // Files that do not tell the noise of each colour have one gain, from all of their samples.
    const bool bByClass = !rDark.vecClassNoise.empty() && !rLight.vecClassNoise.empty();
    const double dShared = (varianceBeforeRounding(noiseShare(rLight) * rLight.dTemporalNoise * rLight.dTemporalNoise) -
                            varianceBeforeRounding(rDark.dTemporalNoise * rDark.dTemporalNoise)) /
                           (rLight.dMean - rDark.dMean);
    SensorNoise noise;
    for (unsigned i = 0; i < vecDark.size(); ++i) {
        const double dDark = varianceOf(rDark, i), dSignal = vecLight[i] - vecDark[i];
        const double dGain = bByClass ? (varianceOf(rLight, i) - dDark) / dSignal : dShared;
        if (!(dGain > 0.0 && dSignal > 0.0)) {
            return {};
        }
        noise.push_back({dGain, dDark});
    }
    return noise;
}

SensorNoise sensorNoise(const StandIn::ReferenceImage& rDark, const std::vector<double>& rGains) {
    SensorNoise noise;
    for (unsigned i = 0; i < rGains.size() && rDark.nImages > 1; ++i) {
        if (!(rGains[i] > 0.0)) {
            return {};
        }
        noise.push_back({rGains[i], varianceOf(rDark, i)});
    }
    return noise;
}

}  // namespace Toolkit
}  // namespace XAPEL2
