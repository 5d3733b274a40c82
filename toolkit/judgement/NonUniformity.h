// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Non-uniformity of dark signal and response, and the conversion gain: EMVA 1288 release 4.

#pragma once

#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "toolkit/judgement/FrameStack.h"

namespace XAPEL2 {
namespace Toolkit {

/// What differs from place to place: in all, and the shares of whole rows, whole columns and single pixels.
struct Split {
    double dTotal = 0.0, dRow = 0.0, dColumn = 0.0, dPixel = 0.0;
};

/// Spatial variances of the mean of nFrames frames of one colour class, DN^2, without the part that temporal noise
/// leaves in the mean (EMVA 1288 R4, section 8). With M rows, N columns, L frames, temporal variance t, the variance of
/// all with divisor (number - 1), those of row and column means with divisor number:
///     s^2     = var(mean image)   - t / L
///     s^2_cav = var(column means) - t / (L M)
///     s^2_rav = var(row means)    - t / (L N)
///     s^2_pixel  = MN / (MN - M - N) (s^2 - s^2_cav - s^2_rav)
///     s^2_column = s^2_cav - s^2_pixel / M
///     s^2_row    = s^2_rav - s^2_pixel / N
/// Each may come out a little below 0 where noise is all there is. An image of fewer than 3 rows or columns cannot be
/// split: all but dTotal are NaN then. An unknown t (NaN) is taken for 0, so that the variances are upper bounds.
Split spatialVariances(const CColourPlane& rPlane, uint64_t nFrames, double dTemporalVariance);

/// Standard deviations of these variances, from the temporal variance t of a frame: of a variance v over n values with
/// noise t each, sqrt((4 v t + 2 t^2) / n), and what the uncertainty of t itself adds. NaN where t is not known.
Split spatialUncertainties(const Split& rVariances, const CColourPlane& rPlane, uint64_t nFrames,
                           double dTemporalVariance);

/// Conversion gain K in DN per electron from the photon transfer of a dark and a light image (EMVA 1288 R4, section 6):
/// K = (temporal variance light - temporal variance dark) / (mean light - mean dark). NaN where it cannot be told:
/// noise unknown, or light not brighter or not noisier than dark.
double photonTransferGain(const MeanImage& rDark, const MeanImage& rLight);

/// Figures of one colour class.
struct ClassNonUniformity {
    std::string strName;               ///< see colourClassNames()
    double dDarkMean = 0.0;            ///< DN
    double dLightMean = 0.0;           ///< DN
    Split dsnu;                        ///< DSNU1288 = sqrt(s^2_dark) / K, electrons; DN where K is not known
    Split dsnuUncertainty;             ///< standard deviation that the noise of the frames leaves; NaN: not known
    Split dsnuLimit;                   ///< of what is not resolved (NaN in Dsnu): it is below; NaN otherwise
    Split prnuUncertainty, prnuLimit;  ///< the same of Prnu
    Split prnu;                        ///< PRNU1288 = 100 % sqrt(s^2_light - s^2_dark) / (mean light - mean dark)
};

struct NonUniformity {
    double dGain = std::numeric_limits<double>::quiet_NaN();  ///< K that DSNU is divided by; NaN: DSNU is in DN
    std::vector<ClassNonUniformity> vecClasses;
    const char* dsnuUnit() const { return dGain > 0.0 ? "e-" : "DN"; }
};

/// DSNU1288 and PRNU1288 of each colour class. A negative variance is not resolved: the figure is NaN, and there is a
/// limit that it is below (two standard deviations of the variance). Where that is the PRNU, look at the DSNU, which
/// may be what hides it. Where the temporal variance of a class is not known by itself (a reference file), that of the
/// whole image is shared out in proportion to the light above the dark, as the photon transfer says.
/// @param[in] dGain  K in DN per electron; NaN: DSNU in DN. Corrected frames have no K of their own: give that of
///                   the raw ones, photonTransferGain().
/// @throws std::invalid_argument  the two have different layouts.
NonUniformity nonUniformity(const MeanImage& rDark, const MeanImage& rLight, double dGain);

/// {"conversionGain": K or null, "dsnuUnit", "classes": [{"class", "darkMean", "lightMean", "dsnu": {"total", "row",
/// "column", "pixel"}, "prnuPercent": {...}, and of both "...Uncertainty" and "...Limit"}]}; what is not known or not
/// resolved is null.
nlohmann::ordered_json toJson(const NonUniformity& rFigures);

}  // namespace Toolkit
}  // namespace XAPEL2
