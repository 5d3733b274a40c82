// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The shading object in the live stream: switching correction on and off, and the correction of one filled buffer.

#include <algorithm>

#include "xapel2/GenTLCodes.h"
#include "xapel2/XapelBuffer.h"
#include "xapel2/XapelExceptions.h"

#include "VexoShading.h"
#include "XapelSourceFile.h"
#include "XapelTraceText.h"

using XAPEL2::Exceptions::IException;

namespace {

template <typename Failure>
[[noreturn]] void throwEnable() {
    throw Failure(VEXO_SOURCE_FILE, __LINE__, "SetEnable", "enable shading failed.");
}

/// Throws the host exception that stands for a GenTL code other than 0.
[[noreturn]] void throwEnableFailure(int32_t iCode) {
    using namespace XAPEL2::Exceptions;
    switch (iCode) {
        case GC_ERR_NOT_INITIALIZED:
            throwEnable<Xapel_NotInitializedException>();
        case GC_ERR_NOT_IMPLEMENTED:
            throwEnable<Xapel_NotImplementedException>();
        case GC_ERR_RESOURCE_IN_USE:
            throwEnable<Xapel_ResourceInUseException>();
        case GC_ERR_ACCESS_DENIED:
            throwEnable<Xapel_AccessDeniedException>();
        case GC_ERR_INVALID_HANDLE:
            throwEnable<Xapel_InvalidHandleException>();
        case GC_ERR_NO_DATA:
            throwEnable<Xapel_NoDataException>();
        case GC_ERR_INVALID_PARAMETER:
            throwEnable<Xapel_InvalidParameterException>();
        case GC_ERR_ABORT:
            throwEnable<Xapel_AbortException>();
        case GC_ERR_INVALID_BUFFER:
            throwEnable<Xapel_InvalidBufferException>();
        case GC_ERR_NOT_AVAILABLE:
            throwEnable<Xapel_NotAvailableException>();
        default:
            throwEnable<Xapel_ErrorException>();
    }
}

/// One property of a buffer. The host may leave the slot alone: then the preset stands.
template <typename Slot>
Slot queryBuffer(BufferInfoFunc pfnInfo, void* pBuffer, int32_t iInfoCmd) {
    Slot value = 0;
    int32_t iType = INFO_DATATYPE_CUSTOM_ID;
    uint64_t nBytes = sizeof(value);
    pfnInfo(iInfoCmd, &iType, &value, &nBytes, pBuffer);
    return value;
}

int refuseBuffer() {
    xapelTrace(eTraceError, "CVexShadingObj; extended_useFilledBuffer; invalid Buffer;");
    return GC_ERR_ERROR;
}

}  // namespace

void CVexoShadingObj::initCallBack() {
    xapelTrace(eTraceOrdinary, "CExtScShadingObj; initCallBack called;");
    if (m_bCallbackRegistered) {
        return;
    }
    try {
        registerParticipantForCalling();
        m_bCallbackRegistered = true;
    } catch (const IException&) {
        // Traced below; correction stays off.
    }
    if (m_bCallbackRegistered) {
        xapelTrace(eTraceOrdinary, "CExtScShadingObj; initCallBack; image callback registered successfully");
    } else {
        xapelTrace(eTraceError, "CExtScShadingObj; initCallback; unexpected exception occurred;");
    }
}

void CVexoShadingObj::deInitCallBack() {
    xapelTrace(eTraceOrdinary, "CExtScShadingObj; deInitCallBack called;");
    if (!m_bCallbackRegistered) {
        return;
    }
    try {
        unregisterParticipantForCalling();
        m_bCallbackRegistered = false;
    } catch (const IException&) {
        // Traced below; the object is still on its hub.
    }
    if (!m_bCallbackRegistered) {
        xapelTrace(eTraceOrdinary, "CExtScShadingObj; deinitCallBack; image callback unregistered successfully");
    } else {
        xapelTrace(eTraceError, "CExtScShadingObj; deinitCallback; unexpected exception occurred;");
    }
}

int32_t CVexoShadingObj::runEnableCommand() {
    long long iStatus = 0;
    try {
        const std::lock_guard<std::mutex> lock(m_mtxShading);
        m_pCommandNode->SetInt(XAPEL2::eCommandEnable);
        iStatus = m_pStatusNode->GetInt();
    } catch (const IException& rException) {
        xapelTraceException("CVexoShadingObj; SetEnable;", rException);
        return GC_ERR_ERROR;
    }
    return iStatus < 0 ? GC_ERR_ERROR : GC_ERR_SUCCESS;
}

void CVexoShadingObj::SetEnable(bool enable) {
    xapelTrace(eTraceOrdinary, "CVexoShadingObj; SetEnable called;");
    int32_t iCode = GC_ERR_SUCCESS;
    if (!m_bNodesAvailable) {
        iCode = GC_ERR_NOT_AVAILABLE;
    } else if (enable) {
        iCode = runEnableCommand();
    }
    if (enable && iCode == GC_ERR_SUCCESS) {
        initCallBack();
        return;
    }
    deInitCallBack();
    if (iCode != GC_ERR_SUCCESS) {
        throwEnableFailure(iCode);
    }
}

int CVexoShadingObj::extended_useFilledBuffer(void* pBuffer) {
    if (!m_bNodesAvailable) {
        return GC_ERR_SUCCESS;
    }
    if (pBuffer == nullptr) {
        return refuseBuffer();
    }

    BufferInfoFunc pfnInfo = nullptr;
    getFuncPtr_BufferInfo(pBuffer, &pfnInfo);
    if (pfnInfo == nullptr) {
        return refuseBuffer();
    }
    const auto fnFlag = [=](int32_t iInfoCmd) { return queryBuffer<uint8_t>(pfnInfo, pBuffer, iInfoCmd) != 0; };
    const auto fnNumber = [=](int32_t iInfoCmd) { return queryBuffer<uint64_t>(pfnInfo, pBuffer, iInfoCmd); };
    const bool bIncomplete = fnFlag(BUFFER_INFO_IS_INCOMPLETE);
    const bool bImagePresent = fnFlag(BUFFER_INFO_IMAGEPRESENT);
    if (bIncomplete || !bImagePresent) {
        return refuseBuffer();
    }

    try {
        const uint64_t nFilled = fnNumber(BUFFER_INFO_SIZE_FILLED);
        const uint64_t nSize = fnNumber(BUFFER_INFO_SIZE);
        const uint64_t nWidth = fnNumber(BUFFER_INFO_WIDTH);
        const uint64_t nHeight = fnNumber(BUFFER_INFO_HEIGHT);
        const uint64_t uBase = fnNumber(BUFFER_INFO_BASE);
        const uint64_t nImageOffset = fnNumber(BUFFER_INFO_IMAGEOFFSET);
        BufferGetPixelFormatFunc pfnPixelFormat = nullptr;
        getFuncPtr_BufferGetPixelFormat(pBuffer, &pfnPixelFormat);
        if (pfnPixelFormat == nullptr) {
            return refuseBuffer();
        }
        std::string strPixelFormat;
        pfnPixelFormat(strPixelFormat, pBuffer);

        const std::lock_guard<std::mutex> lock(m_mtxShading);
        writeImage(strPixelFormat.c_str(), nWidth, nHeight, std::min(nSize, nFilled), uBase + nImageOffset);
        m_pCommandNode->SetInt(XAPEL2::eCommandProcess);
    } catch (const IException& rException) {
        xapelTraceException("CVexoShadingObj; extended_useFilledBuffer; ", rException);
        return GC_ERR_ERROR;
    }
    return GC_ERR_SUCCESS;
}
