// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Moves windows, binning and mirror of a camera while its images wait to be corrected. What becomes of an image, to the
// byte, is what a processor makes of it that has seen no other image and no other place.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "../tests/support/TemporaryFolder.h"
#include "FuzzTarget.h"
#include "standin/processor/ShadingProcessor.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2;
using namespace XAPEL2::StandIn;
using Fuzz::require;

namespace {

constexpr uint64_t SENSOR_WIDTH = 24, SENSOR_HEIGHT = 16;
constexpr std::array<const char*, 4> FORMATS = {"Mono8", "Mono12p", "BayerRG8", "RGB8"};
constexpr unsigned STEPS_MAX = 60, IMAGES_MAX = 16;  // for speed

ImageGeometry wholeSensor() {
    return {{SENSOR_WIDTH, 0, 1, eBinningAverage, false}, {SENSOR_HEIGHT, 0, 1, eBinningAverage, false}};
}

/// The pair of a format, one dark and one light file of all of the sensor.
std::string fileOf(std::size_t iFormat, eReferenceKind eKind) {
    static const Test::CTemporaryFolder s_folder;
    static const bool s_bWritten = [] {
        for (std::size_t i = 0; i < FORMATS.size(); ++i) {
            for (const eReferenceKind eOne : {eReferenceDark, eReferenceLight}) {
                ReferenceImage reference;
                reference.eKind = eOne;
                reference.layout = {findPixelFormat(FORMATS[i]), SENSOR_WIDTH, SENSOR_HEIGHT};
                reference.geometry = wholeSensor();
                reference.nImages = 1;
                const uint32_t uFull = reference.layout.pFormat->fullScale();
                for (uint32_t k = 0; k < reference.layout.samples(); ++k) {
                    const uint32_t uSpread = k * 2654435761U >> 20;
                    reference.vecSamples.push_back(
                        static_cast<float>(eOne == eReferenceDark ? uSpread % 12 : uFull / 4 + uSpread % (uFull / 2)));
                }
                writeReferenceFile(s_folder / (FORMATS[i] + std::to_string(eOne)), reference);
            }
        }
        return true;
    }();
    require(s_bWritten, "references can be written");
    return s_folder / (FORMATS[iFormat] + std::to_string(eKind));
}

/// A buffer and where the camera took the image in it.
struct Image {
    ImageLayout layout;
    ImageGeometry place;
    std::vector<uint8_t> vecBytes;
};

/// Knows where images lie, and that the camera is elsewhere by now.
class CPlaces : public IImagePlaces {
public:
    bool placeOf(const void* pImage, ImageGeometry& rGeometry) const override {
        for (const Image& rImage : aImages) {
            if (rImage.vecBytes.data() == pImage) {
                rGeometry = rImage.place;
                return rGeometry.isKnown();
            }
        }
        return false;
    }
    bool presentPlace(const ImageLayout&, ImageGeometry& rGeometry) const override {
        rGeometry = present;
        return rGeometry.isKnown();
    }

    std::array<Image, 3> aImages;
    ImageGeometry present;
};

class CSequence {
public:
    CSequence(const uint8_t* pData, std::size_t nBytes) : m_pNext(pData), m_pEnd(pData + nBytes) {}

    void run() {
        load(m_processor);
        for (unsigned i = 0; i < STEPS_MAX && m_pNext != m_pEnd && m_nImages < IMAGES_MAX; ++i) {
            step();
        }
    }

private:
    uint8_t byte() { return m_pNext != m_pEnd ? *m_pNext++ : uint8_t{0}; }

    /// One that the sensor has, as far as that is likely, or an absurd one.
    GeometryAxis axis(uint64_t nSensor) {
        const uint8_t uWhat = byte(), uOffset = byte();
        GeometryAxis result = {nSensor, uOffset % (nSensor / 2), uWhat % 4 ? 1U : 2U,
                               static_cast<eBinningMode>(uWhat / 4 % 4 ? eBinningAverage : uWhat / 16 % 3),
                               (uWhat & 0x40) != 0};
        if (uWhat >= 0xF0) {
            static constexpr std::array<uint64_t, 4> ABSURD = {0, 65, uint64_t{1} << 63, ~uint64_t{0}};
            (uWhat & 4 ? result.nSensor : uWhat & 8 ? result.nOffset : result.nBinning) = ABSURD[uWhat & 3];
        }
        return result;
    }

    void step() {
        const uint8_t uStep = byte() % 8;
        if (uStep == 0) {
            m_iFormat = byte() % FORMATS.size();
            m_auRadii = {byte() % 2U, byte() % 2U};
            load(m_processor);
        } else if (uStep <= 2) {
            m_places.present = {axis(SENSOR_WIDTH), axis(SENSOR_HEIGHT)};
        } else if (uStep <= 4) {
            fill(m_places.aImages[byte() % m_places.aImages.size()]);
        } else {
            correct(m_places.aImages[byte() % m_places.aImages.size()]);
        }
    }

    /// The camera takes an image where it is now.
    void fill(Image& rImage) {
        rImage.layout = {findPixelFormat(FORMATS[m_iFormat]), 1U + byte() % SENSOR_WIDTH, 1U + byte() % SENSOR_HEIGHT};
        rImage.place = m_places.present;
        rImage.vecBytes.resize(rImage.layout.bytes());
        const uint8_t uSeed = byte();
        for (std::size_t i = 0; i < rImage.vecBytes.size(); ++i) {
            rImage.vecBytes[i] = static_cast<uint8_t>(uSeed + i * 37U);
        }
    }

    void load(CShadingProcessor& rProcessor) const {
        ShadingInputs inputs;
        inputs.strPixelFormat = FORMATS[m_iFormat];
        inputs.iWidth = SENSOR_WIDTH;
        inputs.iHeight = SENSOR_HEIGHT;
        rProcessor.setParameter(SHADING_PARAM_BOX_DARK, m_auRadii[0]);
        rProcessor.setParameter(SHADING_PARAM_MEDIAN_LIGHT, m_auRadii[1]);
        rProcessor.execute(eCommandClear, inputs);
        inputs.strFilename = fileOf(m_iFormat, eReferenceDark);
        require(rProcessor.execute(eCommandLoadDark, inputs) == 0, "a dark reference is loaded");
        inputs.strFilename = fileOf(m_iFormat, eReferenceLight);
        require(rProcessor.execute(eCommandLoadLight, inputs) == 0, "a light reference is loaded");
        require(rProcessor.execute(eCommandApply, inputs) == 0, "references of the sensor are applied");
    }

    static int64_t process(CShadingProcessor& rProcessor, Image& rImage) {
        ShadingInputs inputs;
        inputs.strPixelFormat = rImage.layout.pFormat->pName;
        inputs.iWidth = static_cast<int64_t>(rImage.layout.nWidth);
        inputs.iHeight = static_cast<int64_t>(rImage.layout.nHeight);
        inputs.iBufferSize = static_cast<int64_t>(rImage.vecBytes.size());
        inputs.iBuffer = static_cast<int64_t>(reinterpret_cast<uintptr_t>(rImage.vecBytes.data()));
        return rProcessor.execute(eCommandProcess, inputs);
    }

    void correct(Image& rImage) {
        if (rImage.vecBytes.empty()) {
            return;
        }
        ++m_nImages;
        CPlaces places;
        places.aImages[0] = rImage;
        places.present = rImage.place;
        CShadingProcessor alone([](int32_t, const std::string&) {}, &places);
        load(alone);
        const std::vector<uint8_t> vecBefore = rImage.vecBytes;
        const int64_t iExpected = process(alone, places.aImages[0]);
        require(process(m_processor, rImage) == iExpected, "images before it change nothing of an image's status");
        require(rImage.vecBytes == places.aImages[0].vecBytes, "images before it change nothing of an image");
        require(iExpected == 0 || rImage.vecBytes == vecBefore, "an image that is not corrected stays as it was");
    }

    const uint8_t* m_pNext;
    const uint8_t* const m_pEnd;
    unsigned m_nImages = 0;
    std::size_t m_iFormat = 0;
    std::array<int64_t, 2> m_auRadii{};
    CPlaces m_places;
    CShadingProcessor m_processor{[](int32_t, const std::string&) {}, &m_places};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, std::size_t nBytes) {
    fileOf(0, eReferenceDark);  // not of this input's budget
    const Fuzz::CBudget budget;
    CSequence(pData, nBytes).run();
    return 0;
}
