// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes any sequence of values and commands to the nodes of an image processor, and compares each status, image and
// file with what the commands promise. A step is a byte and its operands. An image ends where its memory ends; no path
// comes from the input.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "../tests/support/TemporaryFolder.h"
#include "FuzzTarget.h"
#include "standin/processor/ShadingProcessor.h"
#include "xapel2/GenTLCodes.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2/XapelNodes.h"
#include "xapel2_standin/Answers.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2;
using namespace XAPEL2::StandIn;
using Fuzz::require;

namespace {

constexpr unsigned COMMANDS_MAX = 40, STEPS_MAX = 1000;  // for speed
constexpr std::size_t NAMES = 8, GOOD_NAMES = 5;         // a file can be saved under the first names

std::string path(std::size_t iName) {
    static const Test::CTemporaryFolder s_oFolder;
    const std::array<const char*, NAMES> apNames = {"a", "b", "c", "d", "e", ".", "none/file", ""};
    return s_oFolder / apNames[iName];
}

class CSequence {
public:
    CSequence(const uint8_t* pData, std::size_t nBytes) : m_pNext(pData), m_pEnd(pData + nBytes) {
        for (std::size_t i = 0; i < GOOD_NAMES; ++i) {
            unlink(path(i).c_str());
        }
    }

    void run() {
        for (unsigned i = 0; i < STEPS_MAX && m_pNext != m_pEnd && m_nCommands < COMMANDS_MAX; ++i) {
            try {
                step();
            } catch (const Exceptions::IException&) {
                // A node refuses a value; what the nodes then hold is read back before each command.
            }
        }
    }

private:
    uint8_t byte() { return m_pNext != m_pEnd ? *m_pNext++ : uint8_t{0}; }
    Node* node(const char* pName) { return m_oProcessor.GetNodeList()->GetNode(pName); }

    /// One of nValues numbers from iFirst on; where the byte is 0xF0 or more, an absurd one.
    int64_t number(int64_t iFirst, int64_t nValues) {
        static constexpr std::array<int64_t, 8> ABSURD = {-1,        32768,     32769,           INT64_MAX,
                                                          INT64_MIN, 1LL << 32, (1LL << 62) + 4, (1LL << 32) + 2};
        const uint8_t u = byte();
        return u < 0xF0 ? iFirst + u % nValues : ABSURD[u % ABSURD.size()];
    }

    void step() {
        const auto& rFormats = pixelFormats();
        const uint8_t uStep = byte() % 7, uFirst = byte();
        if (uStep == 0) {
            const std::size_t i = uFirst % (rFormats.size() + 2);
            const std::string strNone(i % 2 * 5000, 'M');
            node(SHADING_NODE_PIXEL_FORMAT)->SetString(i < rFormats.size() ? rFormats[i].pName : strNone.c_str());
        } else if (uStep <= 2) {
            const bool bWidth = uStep == 1;  // the largest image is longer than a block of the correction, 1024 samples
            node(bWidth ? SHADING_NODE_WIDTH : SHADING_NODE_HEIGHT)->SetInt(number(uFirst % 2, bWidth ? 48 : 24));
        } else if (uStep == 3) {
            makeImage(uFirst, byte());
        } else if (uStep == 4) {
            m_iName = uFirst % NAMES;
            node(SHADING_NODE_FILE_NAME)->SetString(path(m_iName).c_str());
        } else if (uStep == 5) {
            const int64_t iRadius = number(-1, 34);
            const std::size_t i = uFirst % (CShadingProcessor::PARAMETERS.size() + 1);
            node(SHADING_NODE_PARAM_SELECTOR)->SetValue(i ? CShadingProcessor::PARAMETERS[i - 1] : "none");
            const bool bRange = iRadius >= SHADING_PARAM_MIN && iRadius <= SHADING_PARAM_MAX;
            node(SHADING_NODE_PARAM_VALUE)->SetInt(iRadius);
            require(bRange && node(SHADING_NODE_PARAM_VALUE)->GetInt() == iRadius,
                    "a filter radius is taken or refused");
        } else {
            command(uFirst % 11 + (uFirst < 0xF0 ? 0 : 1LL << 32));
        }
    }

    /// uFlags: bits 0 and 1 size, bits 2 and 3 content, bit 6 no address, bit 7 negative size.
    void makeImage(uint8_t uFlags, uint8_t uSeed) {
        const ImageLayout layout = presentLayout();
        const std::size_t nExact = layout.isPossible() && layout.bytes() < 16384 ? layout.bytes() : 64;
        m_nImage = std::array<std::size_t, 4>{nExact, nExact - 1, nExact + 5, nExact / 2}[uFlags & 3];
        m_pImage.reset(new uint8_t[m_nImage]);
        const std::size_t nStep = std::array<std::size_t, 4>{0, 1, 3, 101}[uFlags >> 2 & 3];
        for (std::size_t i = 0; i < m_nImage; ++i) {
            m_pImage[i] = static_cast<uint8_t>(uSeed + i * nStep);
        }
        m_bImage = (uFlags & 0xC0) == 0;
        node(SHADING_NODE_BUFFER)->SetInt((uFlags & 0x40) ? 0 : reinterpret_cast<intptr_t>(m_pImage.get()));
        node(SHADING_NODE_BUFFER_SIZE)->SetInt(static_cast<int64_t>(m_nImage) * ((uFlags & 0x80) ? -1 : 1));
    }

    ImageLayout presentLayout() {
        return {findPixelFormat(node(SHADING_NODE_PIXEL_FORMAT)->GetString().get()),
                static_cast<uint64_t>(node(SHADING_NODE_WIDTH)->GetInt()),
                static_cast<uint64_t>(node(SHADING_NODE_HEIGHT)->GetInt())};
    }
    std::vector<uint16_t> samples(const ImageLayout& rLayout) const {
        std::vector<uint16_t> vecSamples(rLayout.samples());
        unpackSamples(*rLayout.pFormat, m_pImage.get(), 0, vecSamples.size(), vecSamples.data());
        return vecSamples;
    }

    void command(int64_t iCommand) {
        ++m_nCommands;
        const std::vector<uint8_t> vecBefore(m_pImage.get(), m_pImage.get() + m_nImage);
        const ImageLayout layout = presentLayout();
        node(SHADING_NODE_COMMAND)->SetInt(iCommand);
        const int64_t iStatus = node(SHADING_NODE_STATUS)->GetInt();
        require(iStatus == expectedStatus(iCommand, layout), "a command has the status that it promises");
        std::size_t iBit = 0;  // the place from which on the image is as it was
        if (iCommand == eCommandProcess && iStatus == GC_ERR_SUCCESS) {
            const std::vector<uint16_t> vecSamples = samples(layout);
            require(*std::max_element(vecSamples.begin(), vecSamples.end()) <= layout.pFormat->fullScale(),
                    "no corrected sample is above full scale");
            iBit = vecSamples.size() * layout.pFormat->nWireBits;
        }
        bool bSame = true;
        for (std::size_t i = iBit / 8; i < m_nImage; ++i) {
            bSame = bSame && (m_pImage[i] ^ vecBefore[i]) >> (i == iBit / 8 ? iBit % 8 : 0) == 0;
        }
        require(bSame, "an image that is not corrected, and what is no sample, stays as it was");
    }

    static ImageLayout lineOf(const ImageLayout& rLayout) { return {rLayout.pFormat, rLayout.nWidth, 1}; }
    // References of one row, which serve images of any height.
    bool areLines() const {
        return std::all_of(m_aoHeld.begin(), m_aoHeld.end(),
                           [](const auto& o) { return !o || (o->nHeight == 1 && !o->pFormat->isCfa()); });
    }

    int64_t expectedStatus(int64_t iCommand, const ImageLayout& rLayout) {
        const bool bFirst = iCommand % 2 != 0;  // of each pair of commands the one for the dark reference
        const bool bLines = areLines();
        const auto isOther = [&](const auto& o) { return o && !o->hasSamplesLike(bLines ? lineOf(rLayout) : rLayout); };
        switch (iCommand) {
            case eCommandEnable:
                return GC_ERR_SUCCESS;
            case eCommandProcess:
                return expectedOfProcess(rLayout);
            case eCommandApply:
                if (!rLayout.isPossible()) {
                    return GC_ERR_INVALID_PARAMETER;
                }
                if ((!m_aoHeld[0] && !m_aoHeld[1]) || std::any_of(m_aoHeld.begin(), m_aoHeld.end(), isOther)) {
                    return GC_ERR_NOT_AVAILABLE;
                }
                m_oApplied = rLayout;
                m_bLines = bLines;
                return GC_ERR_SUCCESS;
            case eCommandClear:
                m_aoHeld = {};
                m_oApplied.reset();
                m_oRecording.reset();
                return GC_ERR_SUCCESS;
            case eCommandLoadDark:
            case eCommandLoadLight:
                if (m_oRecording) {
                    return GC_ERR_RESOURCE_IN_USE;
                }
                if (!m_aoFiles[m_iName] || m_aoFiles[m_iName]->bDark != bFirst) {
                    return GC_ERR_IO;
                }
                m_aoHeld[bFirst] = m_aoFiles[m_iName]->layout;
                return GC_ERR_SUCCESS;
            case eCommandStartDark:
            case eCommandStartLight:
                if (m_oRecording) {
                    return GC_ERR_RESOURCE_IN_USE;
                }
                m_oRecording = Recording{bFirst, {}, 0, {}};
                return GC_ERR_SUCCESS;
            case eCommandEnd:
                return expectedOfEnd();
            default:
                return GC_ERR_INVALID_PARAMETER;
        }
    }

    int64_t expectedOfProcess(const ImageLayout& rLayout) {
        if (!rLayout.isPossible() || !m_bImage || m_nImage < rLayout.bytes() ||
            (m_oRecording && m_oRecording->nImages != 0 && m_oRecording->layout != rLayout)) {
            return GC_ERR_INVALID_PARAMETER;
        }
        if (!m_oRecording) {
            return m_oApplied == rLayout || (m_oApplied && m_bLines && lineOf(*m_oApplied) == lineOf(rLayout))
                       ? GC_ERR_SUCCESS
                       : 1;
        }
        const std::vector<uint16_t> vecSamples = samples(rLayout);
        m_oRecording->layout = rLayout;
        m_oRecording->vecSums.resize(vecSamples.size());
        for (std::size_t i = 0; i < vecSamples.size(); ++i) {
            m_oRecording->vecSums[i] += std::min<uint32_t>(vecSamples[i], rLayout.pFormat->fullScale());
        }
        return ++m_oRecording->nImages;
    }

    int64_t expectedOfEnd() {
        if (!m_oRecording || m_oRecording->nImages == 0) {
            return GC_ERR_NO_DATA;
        }
        if (m_iName >= GOOD_NAMES) {
            return GC_ERR_IO;
        }
        const ReferenceImage read = readReferenceFile(path(m_iName));
        const auto dImages = static_cast<double>(m_oRecording->nImages);
        const bool bSame = std::equal(read.vecSamples.begin(), read.vecSamples.end(), m_oRecording->vecSums.begin(),
                                      m_oRecording->vecSums.end(),
                                      [&](float f, double d) { return f == static_cast<float>(d / dImages); });
        require(bSame && (read.eKind == eReferenceDark) == m_oRecording->bDark && read.layout == m_oRecording->layout &&
                    read.nImages == static_cast<uint64_t>(dImages),
                "a reference is the mean of the images that were accepted");
        m_aoHeld[m_oRecording->bDark] = m_oRecording->layout;
        m_aoFiles[m_iName] = std::exchange(m_oRecording, {});
        return GC_ERR_SUCCESS;
    }

    struct Recording {
        bool bDark;
        ImageLayout layout;
        int64_t nImages;
        std::vector<double> vecSums;
    };

    const uint8_t* m_pNext;
    const uint8_t* const m_pEnd;
    unsigned m_nCommands = 0;
    ImageProcessor m_oProcessor;
    std::unique_ptr<uint8_t[]> m_pImage;  // exactly m_nImage bytes
    std::size_t m_nImage = 0;
    bool m_bImage = false;  // the nodes say where the image is, and its size
    std::size_t m_iName = NAMES - 1;
    // What the commands so far have come to.
    std::optional<Recording> m_oRecording;
    std::array<std::optional<Recording>, NAMES> m_aoFiles;
    std::array<std::optional<ImageLayout>, 2> m_aoHeld;  // light, dark
    std::optional<ImageLayout> m_oApplied;
    bool m_bLines = false;  // what is applied serves any height
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, std::size_t nBytes) {
    const Fuzz::CBudget oBudget;
    setTraceSink([](int32_t, const std::string&) {});  // else they are printed
    CSequence(pData, nBytes).run();
    return 0;
}
