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

/// References of a sensor whose pixels spread by 1 percent behind a lens that falls off by 30 percent to the corners,
/// with an uneven dark signal and 3 hot pixels in 1000, as means of 16 images; and an image that it took of a scene.
/// Flat references would not do: they fit into tables that no camera gets.
class CScene {
public:
    /// @param[in] rLayout  a possible layout.
    explicit CScene(const XAPEL2::StandIn::ImageLayout& rLayout);

    const XAPEL2::StandIn::ImageLayout& layout() const { return m_layout; }
    const std::vector<float>& dark() const { return m_vecDark; }
    const std::vector<float>& light() const { return m_vecLight; }
    /// The image as it comes out of the camera.
    const std::vector<uint8_t>& image() const { return m_vecImage; }

    /// Files the references, has the image processor load them and applies them. @throws what that throws.
    void apply(CShadingNodes& rNodes) const;

    /// Compares a corrected image with clamp(round((in - D) * G)) in double precision, G being the mean of L - D over
    /// the colour class by L - D.
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
