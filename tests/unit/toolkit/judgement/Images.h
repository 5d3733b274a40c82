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
    StandIn::ReferenceImage result;
    result.eKind = eKind;
    result.layout = rLayout;
    result.nImages = 16;
    result.dTemporalNoise = eKind == StandIn::eReferenceLight ? 20.0 : 2.0;
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        result.vecSamples.push_back(static_cast<float>(fnSample(i)));
        result.dMean += static_cast<double>(result.vecSamples.back()) / static_cast<double>(rLayout.samples());
    }
    return result;
}

/// A window within a simulated sensor of four times its sides: shading and dust are as smooth there as in a real image.
struct SimulatedFrames {
    explicit SimulatedFrames(const StandIn::ImageLayout& rLayout, unsigned nSeed = 7)
        : layout(rLayout),
          sensor(nSeed, 4 * rLayout.nWidth, 4 * rLayout.nHeight, *rLayout.pFormat),
          settings(sensor.defaultSettings()) {
        settings.nWidth = settings.nOffsetX = rLayout.nWidth;
        settings.nHeight = settings.nOffsetY = rLayout.nHeight;
    }

    /// Frame iFrame as the camera delivers it.
    std::vector<unsigned char> image(StandIn::eScene eWhat, uint64_t iFrame) {
        std::vector<unsigned char> vecImage(layout.bytes());
        sensor.fill(settings, eWhat, iFrame, vecImage.data());
        return vecImage;
    }
    Frame unpacked(const std::vector<unsigned char>& rImage) const {
        Frame result;
        result.pFormat = layout.pFormat;
        result.nWidth = layout.nWidth;
        result.nHeight = layout.nHeight;
        result.vecSamples.resize(layout.samples());
        StandIn::unpackSamples(*layout.pFormat, rImage.data(), 0, result.vecSamples.size(), result.vecSamples.data());
        return result;
    }

    StandIn::ImageLayout layout;
    StandIn::CSimulatedSensor sensor;
    StandIn::CameraSettings settings;
};

}  // namespace Toolkit
}  // namespace XAPEL2
