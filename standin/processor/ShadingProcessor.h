// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The image processor behind the shading nodes: records, keeps and files references, corrects images in place.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "standin/processor/ImagePlaces.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2_standin/Answers.h"

namespace XAPEL2 {
namespace StandIn {

/// Values of the input nodes at the moment of a command.
struct ShadingInputs {
    std::string strPixelFormat;
    int64_t iWidth = 0;
    int64_t iHeight = 0;
    int64_t iBufferSize = 0;  ///< bytes at iBuffer
    int64_t iBuffer = 0;      ///< address of the image
    std::string strFilename;
    bool bKeepOutliers = false;  ///< what left the other images of a recording stays in its mean
    std::string strNote;         ///< filed with a reference that is written, as its camera settings
};

/// What a command says beside its status.
struct ShadingAnswer {
    eCorrection eOutcome = eNotHanded;  ///< what became of the image
    const char* pReason = "";           ///< why it was not corrected, or why the command failed; never freed
    std::string strDetail;              ///< the same for the case at hand, where there is more to say
    const char* reason() const { return strDetail.empty() ? pReason : strDetail.c_str(); }
};

/// One image processor. A command that comes while another one runs is refused with GC_ERR_RESOURCE_IN_USE; the
/// parameters have a lock of their own and never wait for a command.
class CShadingProcessor {
public:
    /// Receives the processor's traces (level, text without a line end). Called on the thread of the command.
    using TraceFunc = std::function<void(int32_t iLevel, const std::string& strText)>;

    /// @param[in] pPlaces  outlives the processor; null: of no image is known where it lies.
    explicit CShadingProcessor(TraceFunc fnTrace, const IImagePlaces* pPlaces = nullptr);
    ~CShadingProcessor();
    CShadingProcessor(const CShadingProcessor&) = delete;
    CShadingProcessor& operator=(const CShadingProcessor&) = delete;

    /// Runs a command. Returns its status: 0 or positive as the command says, else a GenTL error code. Nothing
    /// leaves as an exception; want of memory is GC_ERR_ERROR and changes nothing.
    /// @param[out] rAnswer  fresh; says why.
    int64_t execute(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) noexcept;
    int64_t execute(int64_t iCommand, const ShadingInputs& rInputs) noexcept {
        ShadingAnswer answer;
        return execute(iCommand, rInputs, answer);
    }

    static const std::array<const char*, 4> PARAMETERS;

    /// False, and nothing changed, when the name is unknown or the value out of range.
    bool setParameter(const std::string& strName, int64_t iValue);
    /// 0 when the name is unknown.
    int64_t parameter(const std::string& strName) const;

    /// Table layout and vector target of the correction that was used last, and the place on the sensor that it is for,
    /// in words; "none" where none is applied. Never waits for a command.
    std::string correction() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace StandIn
}  // namespace XAPEL2
