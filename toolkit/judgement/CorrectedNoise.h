// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The noise of corrected samples, predicted from a pair of references.

#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "toolkit/frames/Frame.h"
#include "toolkit/judgement/SensorNoise.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// What the correction (in - D) T / (L - D) makes of the noise of its three images. With the camera's noise v(s) at the
/// signal s, references of N_D and N_L frames, G = T / (L - D), and the corrected value c = G s, a sample deviates from
/// its true value by
///     G^2 (v(s) + v(0) / N_D (1 - c / T)^2 + v(T / G) / N_L (c / T)^2) + 1 / 12,
/// the last term being the rounding of the result; where the noise of L - D is not small, the next order of the
/// quotient is in it. Filters on the references are not.
/// @threads const operations any.
class CCorrectedNoise {
public:
    /// @param[in] rDark,rLight  of one layout; borrowed for the life of the object.
    /// @param[in] rNoise        of the camera; empty: nothing is known, and every deviation is NaN.
    CCorrectedNoise(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                    const SensorNoise& rNoise);

    bool isKnown() const { return !m_noise.empty(); }
    const SensorNoise& noise() const { return m_noise; }

    /// Standard deviation of a sample that was corrected to dValue DN, the pedestal in it; NaN of a sample without
    /// signal or gain beyond 16, which no correction makes even, and of one of a marked pixel.
    double deviation(std::size_t iSample, double dValue) const;

    /// The deviation of every sample of a corrected frame; NaN also at full scale, where samples carry no measure.
    /// @throws std::invalid_argument  the frame has another layout; names it.
    std::vector<float> map(const Frame& rCorrected) const;

    /// The deviation of every sample where the frame has the mean brightness of its class.
    std::vector<float> mapOfMean() const;

    /// Root of the mean square deviation of the samples of a class at dValue DN, over 4096 of them or more.
    double deviationOf(unsigned iClass, double dValue) const;

    /// What the references leave uneven, percent: standard deviation over a corrected even image that is as bright as
    /// the light reference, its own noise averaged out. Rounding counts as far as the frames' noise does not spread
    /// it: an 8-bit image keeps up to 0.29 DN.
    double residualPercent(unsigned iClass) const;

    /// Mean of the corrected light reference without the pedestal, DN.
    double target(unsigned iClass) const { return m_vecTargets[iClass]; }

private:
    double signalOf(std::size_t iSample) const;
    // Variance of (in - D) / (L - D) times dReference, of a signal whose own frame has dOwn. DN^2.
    double variance(unsigned iClass, double dOwn, double dSignal, double dReference) const;

    const StandIn::ReferenceImage& m_rDark;
    const StandIn::ReferenceImage& m_rLight;
    SensorNoise m_noise;
    std::vector<double> m_vecTargets;
    std::vector<double> m_vecDark;  // variance of a sample of the dark reference
};

/// {"values": [DN], "classes": [{"class", "conversionGain", "darkNoise", "target", "deviations": [DN],
/// "frameDeviations": [DN]}]}: the deviation as a function of the corrected value, from the pedestal to full scale, and
/// that of a sample of the same signal before correction; null where nothing is known.
nlohmann::ordered_json toJson(const CCorrectedNoise& rNoise, const StandIn::ReferenceImage& rLight);

}  // namespace Toolkit
}  // namespace XAPEL2
