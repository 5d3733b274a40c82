// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References made up for the tests of judgement, and frames of the simulated sensor.

#pragma once

#include <functional>

#include "standin/cameras/sim/SimulatedSensor.h"
#include "toolkit/frames/Frame.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A reference whose sample i has the value fnSample(i); mean and saturation as a recorder would tell them.
inline StandIn::ReferenceImage makeReference(StandIn::eReferenceKind eKind, const StandIn::ImageLayout& rLayout,
                                             const std::function<double(std::size_t)>& fnSample) {
    StandIn::ReferenceImage Result;
    Result.eKind = eKind;
    Result.sLayout = rLayout;
    Result.nImages = 16;
    Result.dTemporalNoise = eKind == StandIn::eReferenceLight ? 20.0 : 2.0;
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        Result.vSamples.push_back(static_cast<float>(fnSample(i)));
        Result.dMean += static_cast<double>(Result.vSamples.back()) / static_cast<double>(rLayout.samples());
    }
    return Result;
}

/// A window within a simulated sensor of four times its sides: shading and dust are as smooth there as in a real image.
struct SimulatedFrames {
    explicit SimulatedFrames(const StandIn::ImageLayout& rLayout)
        : Layout(rLayout),
          Sensor(7, 4 * rLayout.nWidth, 4 * rLayout.nHeight, *rLayout.pFormat),
          Settings(Sensor.defaultSettings()) {
        Settings.nWidth = Settings.nOffsetX = rLayout.nWidth;
        Settings.nHeight = Settings.nOffsetY = rLayout.nHeight;
    }

    /// Frame iFrame as the camera delivers it.
    std::vector<unsigned char> image(StandIn::eScene eWhat, uint64_t iFrame) {
        std::vector<unsigned char> vecImage(Layout.bytes());
        Sensor.fill(Settings, eWhat, iFrame, vecImage.data());
        return vecImage;
    }
    Frame unpacked(const std::vector<unsigned char>& rImage) const {
        Frame Result;
        Result.pFormat = Layout.pFormat;
        Result.nWidth = Layout.nWidth;
        Result.nHeight = Layout.nHeight;
        Result.aSamples.resize(Layout.samples());
        StandIn::unpackSamples(*Layout.pFormat, rImage.data(), 0, Result.aSamples.size(), Result.aSamples.data());
        return Result;
    }

    StandIn::ImageLayout Layout;
    StandIn::CSimulatedSensor Sensor;
    StandIn::CameraSettings Settings;
};

}  // namespace Toolkit
}  // namespace XAPEL2
