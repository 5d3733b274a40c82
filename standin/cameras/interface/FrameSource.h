// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The interface between the host and whatever produces its frames.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "xapel2_standin/ImageGeometry.h"
#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

/// What the camera looks at.
enum eScene { eSceneDark = 0, eSceneLight = 1, eSceneObjects = 2 };

/// Largest values of settings; the smallest are 1, 1 and 0.
constexpr uint64_t EXPOSURE_US_MAX = 60000000;
constexpr uint64_t GAIN_PERCENT_MAX = 10000;
constexpr uint64_t FRAME_RATE_HZ_MAX = 100000;

/// Settings of a camera that shape its frames. The host keeps them within the limits that the source gives.
struct CameraSettings {
    const PixelFormat* pFormat = nullptr;   ///< never null in use
    uint64_t nWidth = 0, nHeight = 0;       ///< pixels of the image, binned ones where the camera bins
    uint64_t nOffsetX = 0, nOffsetY = 0;    ///< the same pixels; offset + size within the binned sensor
    uint64_t iExposureUs = 10000;           ///< exposure time in us
    uint64_t iGainPercent = 100;            ///< gain, 100 = 1
    uint64_t iFrameRateHz = 0;              ///< 0: as fast as buffers come; no source looks at it
    uint64_t nBinningX = 1, nBinningY = 1;  ///< sensor pixels that make one (GeometryAxis): 1, 2 or 4
    uint64_t iSumX = 0, iSumY = 0;          ///< 1: binned pixels are added up, offset and all; 0: averaged
    uint64_t iReverseX = 0, iReverseY = 0;  ///< 1: mirrored; offsets then count within the mirrored image
};

/// Where the image lies on a sensor of this size.
inline ImageGeometry geometryOf(const CameraSettings& r, uint64_t nSensorWidth, uint64_t nSensorHeight) {
    const auto fnMode = [](uint64_t iSum) { return iSum != 0 ? eBinningSum : eBinningAverage; };
    return {{nSensorWidth, r.nOffsetX, r.nBinningX, fnMode(r.iSumX), r.iReverseX != 0},
            {nSensorHeight, r.nOffsetY, r.nBinningY, fnMode(r.iSumY), r.iReverseY != 0}};
}

/// True for the binnings that there are.
constexpr bool isBinning(uint64_t n) {
    return n == 1 || n == 2 || n == 4;
}

/// Produces frames. One object serves one device; calls come from one thread at a time unless noted.
class IFrameSource {
public:
    virtual ~IFrameSource() = default;

    /// One line that says what this source is, for people and figures ("simulated camera, seed 1").
    virtual std::string description() const = 0;

    /// What tells one camera from others of its kind; empty where nobody knows.
    virtual std::string serialNumber() const { return ""; }

    /// Settings that the camera starts with.
    virtual CameraSettings defaultSettings() const = 0;
    /// Formats that it can deliver.
    virtual std::vector<const PixelFormat*> formats() const = 0;
    /// Sensor size in pixels; width, height, offsets, binning and mirror can be changed only when canResize().
    virtual uint64_t sensorWidth() const = 0;
    virtual uint64_t sensorHeight() const = 0;
    virtual bool canResize() const = 0;

    /// Frames of the scene. Frame i of a finite scene with n frames is frame i modulo n. 0 for endless, and for a scene
    /// that a source lacks: fill throws there.
    virtual uint64_t frameCount(eScene eWhat) const = 0;

    /// Name of frame i of the scene without folder and suffix ("light_0175", "even_0002"). Any thread.
    virtual std::string frameName(eScene eWhat, uint64_t iFrame) const = 0;

    /// Writes frame iFrame of the scene: imageBytes() of the settings, every byte of it. The same arguments give the
    /// same bytes. @throws std::runtime_error  the frame cannot be produced (names the file).
    virtual void fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) = 0;
};

}  // namespace StandIn
}  // namespace XAPEL2
