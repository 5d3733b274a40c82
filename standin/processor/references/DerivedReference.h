// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a reference is for an image that shows the sensor otherwise: a part of it, binned, mirrored.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Why a reference says nothing about an image.
enum ePlaceObstacle {
    eNoObstacle,
    eOtherSensor,       ///< the image is of a sensor of another size
    eOtherBinning,      ///< it is binned by a number that is no multiple of the reference's
    eUnknownMode,       ///< nobody knows what binning makes of the pixels
    eOutside,           ///< it lies partly outside the reference, or outside the sensor
    eOtherFilterArray,  ///< the sensor's colours do not lie as its format says
    eHalfPlaced         ///< it does not lie where the one reference does that tells where it lies
};
constexpr const char* PLACE_OBSTACLES[] = {"",
                                           "it is of a sensor of another size than the reference",
                                           "its binning cannot be derived from that of the reference",
                                           "how its binned pixels are made is not known",
                                           "it lies partly outside the reference",
                                           "its pixel format contradicts the colours of the reference there",
                                           "it lies elsewhere than the one reference that tells where it lies"};

/// The way from the pixels of an image to those of a reference, both of known geometry and of like samples but for the
/// colour phase. A line reference is the same in every row. @threads any, as plain data.
class CDerivation {
public:
    /// @throws std::bad_alloc
    CDerivation(const ImageLayout& rReference, const ImageGeometry& rFrom, const ImageLayout& rImage,
                const ImageGeometry& rTo);

    /// The others are for an image without obstacle only.
    ePlaceObstacle obstacle() const { return m_eObstacle; }

    /// True where the image takes the reference as it is.
    bool isSame() const { return m_bSame; }
    /// True where the image is a part of the reference, neither binned nor mirrored against it: its first sample is
    /// sample origin() of the reference.
    bool isCrop() const { return m_bCrop; }
    std::size_t origin() const { return (m_vecRows[0] * m_nWidth + m_vecColumns[0]) * m_nChannels; }
    /// What a value of the image is to the mean of those of the reference that make it: 1, but for binned pixels that
    /// are added up.
    double scale() const { return m_dScale; }
    /// Class of the reference that class iClass of the image is.
    unsigned classOf(unsigned iClass) const;

    /// Mean of the pixels that make each of the image, times the scale. @throws std::bad_alloc
    /// @param[out] rDerived  its memory is used again: to have new memory costs more than to derive.
    void samples(const std::vector<float>& rSamples, std::vector<float>& rDerived) const;
    /// A pixel of the image is marked as all together that make it. @throws std::bad_alloc
    std::vector<uint8_t> defects(const std::vector<uint8_t>& rMap) const;
    /// Rows of both results: those of the image, 1 for a line reference.
    uint64_t rows() const { return m_nRows; }

private:
    void examine(const ImageLayout& rReference, const ImageGeometry& rFrom, const ImageLayout& rImage,
                 const ImageGeometry& rTo);
    template <class T, class TSUM, class FADD, class FPUT>
    void derive(const std::vector<T>& rFrom, unsigned nChannels, FADD fnAdd, FPUT fnPut) const;

    ePlaceObstacle m_eObstacle = eNoObstacle;
    bool m_bSame = false;
    bool m_bCrop = false;
    bool m_bCfa = false;
    unsigned m_nChannels = 1;
    double m_dScale = 1.0;
    uint64_t m_nRows = 0;
    std::size_t m_nWidth = 0;                  // of the reference
    std::size_t m_nPartsX = 1, m_nPartsY = 1;  // pixels of the reference that make one of the image
    // Columns and rows of the reference, so many for each of the image.
    std::vector<uint32_t> m_vecColumns, m_vecRows;
};

}  // namespace StandIn
}  // namespace XAPEL2
