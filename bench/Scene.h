// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References and images such as a camera gives, and the formula that a corrected image must agree with.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ShadingNodes.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XapelBench {

/// A camera in numbers; levels as shares of full scale, spreads as standard deviations.
struct CameraKind {
    double dDark;         ///< mean of the dark signal
    double dDarkSpread;   ///< of the dark reference from pixel to pixel, noise that its images have left included
    double dHotShare;     ///< share of hot pixels
    double dHotMin;       ///< dark signal that they have beside the others', evenly spread ...
    double dHotMax;       ///< ... up to this
    double dLight;        ///< signal of the light reference at the brightest place
    double dPixelSpread;  ///< of the light reference from pixel to pixel, share of the signal
    double dFallOff;      ///< share of the light that the corners lack
    double dFringes;      ///< amplitude of uneven light, share of the signal
};

/// Many hot pixels: 3 in 1000.
constexpr CameraKind WORN_CAMERA = {64.0 / 4095, 1.5 / 4095, 0.003, 0.0, 0.2, 0.6, 0.01, 0.3, 0.0};
/// What the stand-in's simulated sensor gives: offset 64 DN and gain 0.3 DN per electron at 12 bits, DSNU 5 electrons,
/// 6 electrons of read noise over 16 images, 3 hot pixels in 100,000.
constexpr CameraKind SIMULATED_CAMERA = {64.0 / 4095, 1.57 / 4095, 3e-5, 0.04, 0.3, 0.6, 0.01, 0.3, 0.0};
/// Recorded frames of a scientific camera (ring_16bit: means of its 8 dark and its 16 light frames). Dark 492.3 DN,
/// over the pixels 4.0 DN, of which 0.9 DN are pattern; single events reach 520 DN. Signal 4,759 DN on average; against
/// the mean of its four neighbours a pixel is off by 3.3 percent, and between interference fringes gains go from 0.63
/// to 1.76 (first and last percent).
constexpr CameraKind RECORDED_CAMERA = {492.3 / 65535,  4.0 / 65535, 0.0005, 20.0 / 65535, 28.0 / 65535,
                                        4759.0 / 65535, 0.033,       0.0,    0.37};

/// References of a camera as means of 16 images, and an image that it took of a scene. Flat references would not do:
/// they fit into tables that no camera gets.
class CScene {
public:
    /// @param[in] rLayout  a possible layout.
    explicit CScene(const XAPEL2::StandIn::ImageLayout& rLayout, const CameraKind& rCamera = WORN_CAMERA);

    const XAPEL2::StandIn::ImageLayout& layout() const { return m_layout; }
    const std::vector<float>& dark() const { return m_vecDark; }
    const std::vector<float>& light() const { return m_vecLight; }
    /// The image as it comes out of the camera.
    const std::vector<uint8_t>& image() const { return m_vecImage; }

    /// Files the references, has the image processor load them and applies them. @throws what that throws.
    void apply(CShadingNodes& rNodes) const;

    /// Compares a corrected image with clamp((in - D) * G) in double precision, not rounded, G being the mean of L - D
    /// over the colour class by L - D.
    /// @param[in] dSlack  what a sample may be off besides the bound that the image processor promises, DN.
    /// @throws std::runtime_error  a sample is off by more than 1 DN up to 12 bits or 1 + G/2 DN above them, or all by
    ///                             a quarter DN in the mean, or a saturated one has changed.
    void check(const uint8_t* pCorrected, double dSlack = 0.0) const;

private:
    unsigned colourClass(std::size_t iSample) const;

    XAPEL2::StandIn::ImageLayout m_layout;
    std::vector<float> m_vecDark;
    std::vector<float> m_vecLight;
    std::vector<uint8_t> m_vecImage;
    double m_aTargets[4] = {};
};

/// The samples of an image, 16 bit each.
std::vector<uint16_t> unpack(const XAPEL2::StandIn::ImageLayout& rLayout, const uint8_t* pImage);

}  // namespace XapelBench
