// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The layout of an image, and a recorded reference.

#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "xapel2_standin/ImageGeometry.h"
#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

/// Format and size of an image.
struct ImageLayout {
    const PixelFormat* pFormat = nullptr;  ///< one of pixelFormats(), or null
    uint64_t nWidth = 0;                   ///< pixels
    uint64_t nHeight = 0;                  ///< pixels

    /// Most samples of an image that the processor works on: 1 GiB of reference.
    static constexpr uint64_t SAMPLES_MAX = 1ULL << 28;

    /// True when the format is known and the size is one that an image can have.
    bool isPossible() const {
        return pFormat && nWidth != 0 && nHeight != 0 && nWidth <= IMAGE_SIDE_MAX && nHeight <= IMAGE_SIDE_MAX &&
               nWidth * nHeight * pFormat->nChannels <= SAMPLES_MAX;
    }
    /// True when format and size agree.
    bool operator==(const ImageLayout& r) const {
        return pFormat == r.pFormat && nWidth == r.nWidth && nHeight == r.nHeight;
    }
    /// True when format or size differ.
    bool operator!=(const ImageLayout& r) const { return !(*this == r); }
    /// True where the image lies on the sensor that the geometry tells of.
    bool liesOn(const ImageGeometry& r) const {
        return r.x.holds(nWidth, pFormat->isCfa()) && r.y.holds(nHeight, pFormat->isCfa());
    }

    /// Step through the samples that meets about nWanted of them, or somewhat more, in all colours alike: it is a
    /// multiple neither of 2, as the sites of a filter array, nor of 3, as the channels.
    std::size_t stepFor(std::size_t nWanted) const {
        const std::size_t nOdd = samples() / nWanted / 2 * 2 + 1;
        return nOdd % 3 == 0 ? nOdd + 2 : nOdd;
    }
    /// Samples of a row, all channels.
    std::size_t samplesPerRow() const { return static_cast<std::size_t>(nWidth) * pFormat->nChannels; }
    /// Samples of the image, all channels.
    std::size_t samples() const { return samplesPerRow() * static_cast<std::size_t>(nHeight); }
    /// Bytes of the image without padding.
    std::size_t bytes() const { return imageBytes(*pFormat, nWidth, nHeight); }

    /// Colour classes: 1, the 4 sites of a filter array row by row, or 3 channels.
    unsigned classes() const { return pFormat->isCfa() ? 4U : pFormat->nChannels; }
    /// Class of a sample of the image.
    unsigned classOf(std::size_t iSample) const {
        return static_cast<unsigned>(pFormat->isCfa() ? iSample / nWidth % 2 * 2 + iSample % nWidth % 2
                                                      : iSample % pFormat->nChannels);
    }
    /// Samples of a class; 0 of one that the image does not have.
    uint64_t samplesOf(unsigned iClass) const {
        if (!pFormat->isCfa()) {
            return iClass < pFormat->nChannels ? nWidth * nHeight : 0;
        }
        return iClass < 4 ? ((nHeight + 1 - iClass / 2) / 2) * ((nWidth + 1 - iClass % 2) / 2) : 0;
    }

    /// True when the samples of both mean the same, place by place: size, bits, channels in their order and colour
    /// phase agree. How samples are packed in the image does not matter.
    bool hasSamplesLike(const ImageLayout& r) const {
        return nWidth == r.nWidth && nHeight == r.nHeight && pFormat->nBits == r.pFormat->nBits &&
               pFormat->nChannels == r.pFormat->nChannels &&
               (pFormat->nChannels == 1 || pFormat->uPfnc == r.pFormat->uPfnc) &&
               std::string(pFormat->pCfa) == r.pFormat->pCfa;
    }
};

/// What a reference was recorded of: a covered lens, or an even, lit field.
enum eReferenceKind { eReferenceDark = 0, eReferenceLight = 1 };

/// Means of single images of a recording, DN. NaN: not known.
struct FrameMeans {
    double dFirst = std::numeric_limits<double>::quiet_NaN();  ///< of the first image
    double dLast = std::numeric_limits<double>::quiet_NaN();   ///< of the last image
    double dLeast = std::numeric_limits<double>::quiet_NaN();  ///< of the dimmest image
    double dMost = std::numeric_limits<double>::quiet_NaN();   ///< of the brightest image
};

/// What of a frame left the other frames of its recording.
enum eOutlier {
    eOutlierBrightness = 0,  ///< its mean
    eOutlierShape = 1,       ///< how its light is spread
    eOutlierSamples = 2,     ///< some samples, of pixels that lie together
};

/// Something that left the other frames of a recording.
struct FrameOutlier {
    eOutlier eWhat = eOutlierSamples;  ///< of this frame
    uint64_t iFrame = 0;               ///< number in the recording, from 1 on
    uint64_t nX = 0;                   ///< where it begins, pixels; of a shape roughly, of a brightness 0 like the next
    uint64_t nY = 0;                   ///< the same
    uint64_t nWidth = 0;               ///< how far it reaches, pixels
    uint64_t nHeight = 0;              ///< the same
    uint64_t nSamples = 0;             ///< of eOutlierSamples: how many
    double dDeviation = 0.0;           ///< from the other frames, mean, DN
    bool bLeftOut = false;             ///< it is not in the mean
};

/// What left the others in a recording. Nothing in one that is steady.
struct RecordingOutliers {
    static constexpr std::size_t PLACES_MAX = 16;  ///< that are told one by one

    uint64_t nFrames = 0;                   ///< frames that left the others as a whole
    uint64_t nFramesLeftOut = 0;            ///< of these, not in the mean
    uint64_t nSamples = 0;                  ///< single samples that left their pixel's others
    uint64_t nSamplesLeftOut = 0;           ///< of these, not in the mean
    std::vector<FrameOutlier> vecPlaces{};  ///< the gravest of them, frames first, PLACES_MAX at most

    /// True of a steady recording.
    bool isEmpty() const { return nFrames == 0 && nSamples == 0; }
};

/// Temporal variance of a sample without what all samples do together. A light that changes by some part changes each
/// sample by this part of its signal, so that the variance of the frame means v adds shape * v to the variance of the
/// samples, shape = mean(m^2) / mean(m)^2 of the mean image m. EMVA 1288 takes
/// v off for a flat image, where the shape is 1.
/// @param[in] dPixels  variance of a sample over the frames (divisor n - 1), mean over the samples.
/// @param[in] dFrames  variance of the frame means (divisor n - 1).
/// @param[in] dShape    as above.
/// @param[in] dSamples  number of samples.
inline double steadyVariance(double dPixels, double dFrames, double dShape, double dSamples) {
    // Of so few samples nobody can tell what they do together.
    const double dVariance = dSamples < 2.0 * dShape ? dPixels : dPixels - dShape * dFrames;
    return dVariance > 0.0 ? dVariance : 0.0;
}

/// What the brightness of a corrected image is scaled to.
enum eOutputTarget {
    eTargetMean = 0,   ///< each colour class keeps its mean
    eTargetMax = 1,    ///< the brightest part of each colour class keeps its brightness, the rest comes up to it
    eTargetValue = 2,  ///< every colour class gets the same mean, so that several cameras agree
};

/// How corrected images come out.
struct ReferenceOutput {
    eOutputTarget eTarget = eTargetMean;  ///< of the scale
    double dTarget = 0.0;                 ///< DN, above 0 to full scale; of eTargetValue alone
    double dPedestal = 0.0;               ///< DN, added after the correction: 0 to half of full scale

    /// True where nothing is said.
    bool isDefault() const { return eTarget == eTargetMean && dPedestal == 0.0; }
};

/// What is wrong with a pixel, as bits of a defect map.
enum eDefectBit : uint8_t {
    eDefectHot = 1,     ///< brighter than its neighbours in the dark
    eDefectDead = 2,    ///< no or hardly any answer to light
    eDefectUneven = 4,  ///< brighter or dimmer than its neighbours under light
    eDefectByHand = 8,  ///< marked by the user
    eDefectBits = 15,   ///< all of them
};

/// The mean of the images of one recording, with what is known about them.
struct ReferenceImage {
    eReferenceKind eKind = eReferenceDark;  ///< dark or light
    ImageLayout layout;                     ///< of the images that were averaged
    uint64_t nImages = 0;                   ///< images that were averaged, 1 or more
    double dSaturatedShare = 0.0;           ///< share of samples at full scale over all images, 0 to 1
    double dMean = 0.0;                     ///< mean of all samples, DN
    /// Temporal standard deviation of a pixel, DN: root of the per-pixel temporal variance (divisor n - 1) averaged
    /// over the pixels (EMVA 1288, temporal variance of an image stack), without the changes that all pixels share (see
    /// steadyVariance()). 0 for a single image.
    double dTemporalNoise = 0.0;
    std::string strCamera;          ///< JSON object with the camera's settings, empty when none were filed
    std::vector<float> vecSamples;  ///< DN, 0 to full scale, row by row, channels of a pixel side by side
    /// dTemporalNoise of each colour class, see ImageLayout::classOf(); empty: not known.
    std::vector<double> vecClassNoise{};
    /// The same noise told by the differences of neighbours of one colour, whose light changes together, at some places
    /// of the first frames, DN: good to a few percent, and free of light that moves over the image. 0: not known.
    double dNeighbourNoise = 0.0;
    FrameMeans means{};     ///< how the light went
    uint32_t uLargest = 0;  ///< the largest sample of all images; 0: not known, or black

    ImageGeometry geometry{};  ///< where on the sensor the images lay; not known of older files
    /// What left the others while it was recorded. What is told as left out is neither in the samples nor in the
    /// figures, nImages included.
    RecordingOutliers outliers{};
    uint64_t nRows = 1;  ///< of a line: rows of each image that are in its mean
    /// Samples of each mean, whose noise is so many times smaller in variance.
    uint64_t averaged() const { return nImages * nRows; }

    ReferenceOutput output{};  ///< of a light reference
    /// Of a light reference: a byte for each pixel, row by row, 0 or bits of eDefectBit; empty: no defects.
    std::vector<uint8_t> vecDefects{};

    /// True for one of a line-scan camera, which applies to images of any height.
    bool isLine() const {
        return layout.nHeight == 1 && !layout.pFormat->isCfa() && (!geometry.isKnown() || geometry.y.nSensor == 1);
    }

    /// Most pixels that a map may mark: 1 of 32, and always 64.
    static uint64_t defectsMax(const ImageLayout& rLayout) {
        return rLayout.nWidth * rLayout.nHeight / 32 < 64 ? 64 : rLayout.nWidth * rLayout.nHeight / 32;
    }
};

/// Gains of the image processor are below this.
constexpr double GAIN_LIMIT = 16.0;

/// T_c of a pair: what each colour class comes to without the pedestal, as the output of the light reference says, DN.
/// Filters are left out of account.
/// @param[in] rDark,rLight  of one layout.  @throws std::bad_alloc  @threads any.
XAPEL2_HOST_API std::vector<double> pairTargets(const ReferenceImage& rDark, const ReferenceImage& rLight);

/// Why a reference says nothing about an image of the same kind of samples, in a few words that follow the image's name
/// ("it lies partly outside the reference"); empty where it does, or where of one of the two is not known where it
/// lies.
/// @throws std::bad_alloc  @threads any.
XAPEL2_HOST_API std::string placeObstacle(const ReferenceImage& rReference, const ImageLayout& rImage,
                                          const ImageGeometry& rPlace);

}  // namespace StandIn
}  // namespace XAPEL2
