// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The noise of corrected samples, predicted from a pair of references.

#include "toolkit/judgement/CorrectedNoise.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double ROUNDING = 1.0 / 12.0;
constexpr double SERIES_MAX = 0.05;  // relative variance of L - D up to which the next order is a good one
constexpr std::size_t RESIDUAL_SAMPLES = 1U << 15, CURVE_SAMPLES = 1U << 14, CURVE_POINTS = 33;

/// Temporal variance once it is rounded to whole DN.
double roundedVariance(double dVariance) {
    return dVariance + ROUNDING - fixedRounding(dVariance);
}

/// Part of the variance of rounding a corrected sample that stays where it is. Whole values in, of a noise dVariance
/// before their own rounding, come out in steps of the gain: with a gain of 1 all with the same fraction, which no
/// noise spreads. Of the j-th wave of the sawtooth stays what the noise leaves of its beat with the steps.
double fixedRoundingOf(double dGain, double dVariance) {
    constexpr int TERMS = 16;
    double dSum = 0.0, dLast = 0.0;
    for (int j = 1; j <= TERMS; ++j) {
        const double dBeat = j * dGain - std::round(j * dGain);
        const double dWave = PI * dBeat;
        const double dSinc = std::abs(dWave) < 1e-6 ? 1.0 : std::sin(dWave) / dWave;
        const double dLeft = dSinc * dSinc * std::exp(-4.0 * dWave * dWave * dVariance);
        dSum += dLeft / (2.0 * PI * PI * j * j);
        dLast += j > TERMS / 2 ? dLeft / (TERMS - TERMS / 2) : 0.0;
    }
    // The waves behind them are like those before.
    return dSum + dLast / (2.0 * PI * PI * (TERMS + 0.5));
}

}  // namespace

CCorrectedNoise::CCorrectedNoise(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                                 const SensorNoise& rNoise)
    : m_rDark(rDark), m_rLight(rLight), m_noise(rNoise) {
    if (!rDark.layout.hasSamplesLike(rLight.layout)) {
        throw std::invalid_argument("dark and light reference have different formats or sizes");
    }
    m_vecTargets = StandIn::pairTargets(rDark, rLight);
    for (const ClassNoise& rClass : m_noise) {
        m_vecDark.push_back(roundedVariance(rClass.dDarkVariance) / static_cast<double>(rDark.averaged()));
    }
}

double CCorrectedNoise::signalOf(std::size_t iSample) const {
    return static_cast<double>(m_rLight.vecSamples[iSample]) - static_cast<double>(m_rDark.vecSamples[iSample]);
}

// With u = in - D, and x the relative error of L - D, that of u / (1 + x): U and X are their variances, C is their
// covariance, which D makes.
double CCorrectedNoise::variance(unsigned iClass, double dOwn, double dSignal, double dReference) const {
    const double dDark = m_vecDark[iClass];
    const double dLight = roundedVariance(m_noise[iClass].dDarkVariance + m_noise[iClass].dGain * dReference) /
                          static_cast<double>(m_rLight.averaged());
    const double dU = dOwn + dDark, dX = (dLight + dDark) / (dReference * dReference), dC = dDark / dReference;
    if (dX > SERIES_MAX) {
        return dU + dSignal * dSignal * dX - 2.0 * dSignal * dC;
    }
    const double dMean = dSignal * (1.0 + dX + 3.0 * dX * dX) - dC * (1.0 + 3.0 * dX);
    const double dSquare = dSignal * dSignal + dU;
    return dSquare * (1.0 + 3.0 * dX + 15.0 * dX * dX) - 4.0 * dSignal * dC * (1.0 + 6.0 * dX) + 6.0 * dC * dC -
           dMean * dMean;
}

double CCorrectedNoise::deviation(std::size_t iSample, double dValue) const {
    const StandIn::ImageLayout& rLayout = m_rLight.layout;
    const unsigned iClass = rLayout.classOf(iSample);
    const double dReference = signalOf(iSample);
    const bool bMarked = !m_rLight.vecDefects.empty() && m_rLight.vecDefects[iSample / rLayout.pFormat->nChannels] != 0;
    if (m_noise.empty() || bMarked || dReference <= 0.0 || m_vecTargets[iClass] >= StandIn::GAIN_LIMIT * dReference) {
        return UNKNOWN;
    }
    const ClassNoise& rNoise = m_noise[iClass];
    const double dGain = m_vecTargets[iClass] / dReference;
    // Below the pedestal, too: samples that noise carries there make up for those that it carries above, which seem to
    // have signal.
    const double dSignal = (dValue - m_rLight.output.dPedestal) / dGain;
    const double dOwn = std::max(rNoise.dDarkVariance / 4.0, rNoise.dDarkVariance + rNoise.dGain * dSignal) + ROUNDING;
    return std::sqrt(dGain * dGain * variance(iClass, dOwn, dSignal, dReference) + ROUNDING);
}

std::vector<float> CCorrectedNoise::map(const Frame& rCorrected) const {
    const StandIn::ImageLayout layout{rCorrected.pFormat, rCorrected.nWidth, rCorrected.nHeight};
    if (!layout.hasSamplesLike(m_rLight.layout)) {
        throw std::invalid_argument("frame " + rCorrected.strName + " has another format or size than the references");
    }
    std::vector<float> vecMap(rCorrected.vecSamples.size());
    for (std::size_t i = 0; i < vecMap.size(); ++i) {
        const uint16_t uSample = rCorrected.vecSamples[i];
        vecMap[i] = static_cast<float>(
            uSample >= rCorrected.pFormat->fullScale() ? UNKNOWN : deviation(i, static_cast<double>(uSample)));
    }
    return vecMap;
}

std::vector<float> CCorrectedNoise::mapOfMean() const {
    std::vector<float> vecMap(m_rLight.vecSamples.size());
    for (std::size_t i = 0; i < vecMap.size(); ++i) {
        const double dMean = m_vecTargets[m_rLight.layout.classOf(i)] + m_rLight.output.dPedestal;
        vecMap[i] = static_cast<float>(deviation(i, dMean));
    }
    return vecMap;
}

double CCorrectedNoise::deviationOf(unsigned iClass, double dValue) const {
    const std::size_t nSamples = m_rLight.vecSamples.size();
    double dSum = 0.0, dCount = 0.0;
    for (std::size_t i = 0; i < nSamples; i += m_rLight.layout.stepFor(CURVE_SAMPLES)) {
        const double dHere = m_rLight.layout.classOf(i) == iClass ? deviation(i, dValue) : UNKNOWN;
        dSum += std::isnan(dHere) ? 0.0 : dHere * dHere;
        dCount += std::isnan(dHere) ? 0.0 : 1.0;
    }
    return dCount > 0.0 ? std::sqrt(dSum / dCount) : UNKNOWN;
}

double CCorrectedNoise::residualPercent(unsigned iClass) const {
    const double dTarget = m_vecTargets[iClass];
    if (m_noise.empty() || dTarget <= 0.0) {
        return UNKNOWN;
    }
    const ClassNoise& rNoise = m_noise[iClass];
    const std::size_t nSamples = m_rLight.vecSamples.size();
    double dSum = 0.0, dCount = 0.0;
    for (std::size_t i = 0; i < nSamples; i += m_rLight.layout.stepFor(RESIDUAL_SAMPLES)) {
        const double dReference = signalOf(i);
        if (m_rLight.layout.classOf(i) != iClass || dReference <= 0.0 || dTarget >= StandIn::GAIN_LIMIT * dReference) {
            continue;
        }
        const double dGain = dTarget / dReference;
        const double dBefore = rNoise.dDarkVariance + rNoise.dGain * dReference;
        dSum += dGain * dGain * variance(iClass, 0.0, dReference, dReference) + fixedRoundingOf(dGain, dBefore);
        dCount += 1.0;
    }
    return dCount > 0.0 ? 100.0 * std::sqrt(dSum / dCount) / dTarget : UNKNOWN;
}

nlohmann::ordered_json toJson(const CCorrectedNoise& rNoise, const StandIn::ReferenceImage& rLight) {
    if (!rNoise.isKnown()) {
        return nullptr;
    }
    const double dPedestal = rLight.output.dPedestal, dFull = rLight.layout.pFormat->fullScale();
    nlohmann::ordered_json result = {{"values", nlohmann::ordered_json::array()},
                                     {"classes", nlohmann::ordered_json::array()}};
    const std::vector<std::string> vecNames = colourClassNames(*rLight.layout.pFormat);
    for (unsigned i = 0; i < vecNames.size(); ++i) {
        const ClassNoise& rClass = rNoise.noise()[i];
        nlohmann::ordered_json deviations = nlohmann::ordered_json::array(), ofFrame = deviations;
        for (std::size_t k = 0; k < CURVE_POINTS; ++k) {
            const double dShare = static_cast<double>(k) / static_cast<double>(CURVE_POINTS - 1);
            const double dValue = dPedestal + dShare * (dFull - dPedestal);
            if (i == 0) {
                result["values"].push_back(dValue);
            }
            deviations.push_back(rNoise.deviationOf(i, dValue));
            ofFrame.push_back(std::sqrt(rClass.dDarkVariance + rClass.dGain * (dValue - dPedestal) + ROUNDING));
        }
        result["classes"].push_back({{"class", vecNames[i]},
                                     {"conversionGain", rClass.dGain},
                                     {"darkNoise", std::sqrt(rClass.dDarkVariance)},
                                     {"target", rNoise.target(i)},
                                     {"deviations", deviations},
                                     {"frameDeviations", ofFrame}});
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
