// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Parameters and formulas of the simulated sensor.

#pragma once

#include <cstdint>

#include "standin/cameras/interface/FrameSource.h"

namespace XAPEL2 {
namespace StandIn {

/// Linear camera model after EMVA 1288 release 4: the electrons of a pixel during the exposure time t are
///     e = min(Poisson(light * t + dark current * t), full well),
/// and with the system gain K its value is
///     DN = round(K * (e + DSNU + read noise) + offset), kept within 0 and the full scale of the format.
/// A binned pixel adds up such pixels and divides the sum of their values by their number before it is rounded (SFNC:
/// binning mode Average; Sum does not divide): its electrons are their sum, its system gain is K divided by their
/// number, and it has the read noise of each of them. Electrons do not depend on the format: 8-bit images show the same
/// electrons as 12-bit ones with a smaller K.
struct SensorModel {
    double dLightRate = 800000.0;  ///< photo-electrons per s at the centre of the even field at sensitivity 1
    double dFullWell = 15000.0;    ///< electrons
    double dReadNoise = 6.0;       ///< electrons, standard deviation
    double dDarkCurrent = 20.0;    ///< electrons per s
    double dDsnu = 5.0;            ///< electrons, standard deviation over the pixels
    double dPrnu = 0.01;           ///< standard deviation over the pixels, 1 = 100 %
    double dCornerLight = 0.7;     ///< light at the corners of the sensor, 1 at the centre
    double aSensitivity[3] = {0.85, 1.0, 0.75};  ///< of red, green, blue; mono sensors have 1
    double dHotShare = 3e-5;                     ///< share of hot pixels
    double dHotCurrentMin = 50000.0;             ///< dark current of hot pixels, electrons per s, evenly spread ...
    double dHotCurrentMax = 400000.0;            ///< ... up to this
    double dDeadShare = 2e-5;                    ///< share of dead pixels
    double dDeadResponse = 0.1;                  ///< of their light that these turn into electrons all the same
    unsigned nDust = 8;                          ///< dust shadows on the whole sensor
    double dDustDepthMin = 0.06;                 ///< share of the light that a shadow takes at its centre ...
    double dDustDepthMax = 0.20;                 ///< ... up to this
    uint64_t nClusters = 0;                      ///< clusters of 3 x 3 dead pixels on the whole sensor
    uint64_t nBadColumns = 0;                    ///< columns on the whole sensor that answer to light badly
    double dBadColumnResponse = 0.5;             ///< of their light that these turn into electrons all the same
    uint64_t nSpikes = 0;                        ///< pixels of each frame that a particle hits, anew in each frame
    double dSpike = 5000.0;                      ///< electrons that it leaves
    double dUnsteady = 0.0;                      ///< standard deviation of the lamp from frame to frame, 1 = 100 %
    double dGain12 = 0.3;                        ///< system gain of 12-bit formats at 100 percent, DN per electron
    double dOffset12 = 64.0;                     ///< offset of 12-bit formats, DN; no gain acts on it

    /// System gain K in DN per electron: doubles with each bit of the format, proportional to the gain setting, divided
    /// by the number of pixels that are averaged.
    /// @threads any thread.
    double systemGain(const CameraSettings& rSettings) const;

    /// Offset in DN: doubles with each bit of the format. @threads any thread.
    double offset(const PixelFormat& rFormat) const;
    /// The same of pixels that are added up, which each have theirs. @threads any thread.
    double offset(const CameraSettings& rSettings) const;

    /// Standard deviation in electrons from frame to frame of a pixel that collects fElectrons on average and stays
    /// clear of the clipping limits: sqrt(e + read noise^2 + quantisation 1 / (12 K^2)), EMVA 1288 "photon transfer"; a
    /// binned pixel has the read noise^2 of each pixel in it.
    ///
    /// With it a test predicts what is left of an even scene after correction. For a pixel with L photo-electrons and
    /// e = L + dark electrons, corrected by the mean of N light frames (the mean of many dark frames taken off), the
    /// relative standard deviation against the ideal value is sqrt((1 + 1/N)) * temporalNoise(e) / L.
    /// @threads any thread.
    double temporalNoise(const CameraSettings& rSettings, double dElectrons) const;
};

}  // namespace StandIn
}  // namespace XAPEL2
