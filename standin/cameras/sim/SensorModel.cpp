// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Formulas of the simulated sensor.

#include "standin/cameras/sim/SensorModel.h"

#include <cmath>

namespace XAPEL2 {
namespace StandIn {

namespace {

double scaleFrom12Bits(const PixelFormat& rFormat) {
    return std::ldexp(1.0, static_cast<int>(rFormat.nBits) - 12);
}

double binnedPixels(const CameraSettings& rSettings) {
    return static_cast<double>(rSettings.nBinningX * rSettings.nBinningY);
}

double addedPixels(const CameraSettings& rSettings) {
    return static_cast<double>((rSettings.iSumX != 0 ? rSettings.nBinningX : 1) *
                               (rSettings.iSumY != 0 ? rSettings.nBinningY : 1));
}

}  // namespace

double SensorModel::systemGain(const CameraSettings& rSettings) const {
    return dGain12 * scaleFrom12Bits(*rSettings.pFormat) * static_cast<double>(rSettings.iGainPercent) / 100.0 /
           binnedPixels(rSettings) * addedPixels(rSettings);
}

double SensorModel::offset(const PixelFormat& rFormat) const {
    return dOffset12 * scaleFrom12Bits(rFormat);
}

double SensorModel::offset(const CameraSettings& rSettings) const {
    return offset(*rSettings.pFormat) * addedPixels(rSettings);
}

double SensorModel::temporalNoise(const CameraSettings& rSettings, double dElectrons) const {
    const double dGain = systemGain(rSettings);
    return std::sqrt(dElectrons + binnedPixels(rSettings) * dReadNoise * dReadNoise + 1.0 / (12.0 * dGain * dGain));
}

}  // namespace StandIn
}  // namespace XAPEL2
