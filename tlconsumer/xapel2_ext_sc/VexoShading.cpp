// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The shading object: node binding, reference commands, parameters.

#include "VexoShading.h"

#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExceptions.h"

#include "XapelSourceFile.h"
#include "XapelTraceText.h"

using XAPEL2::Exceptions::IException;
using XAPEL2::Exceptions::Xapel_ErrorException;
using XAPEL2::Exceptions::Xapel_InvalidParameterException;
using XAPEL2::Exceptions::Xapel_NotAvailableException;
using XAPEL2::Exceptions::Xapel_ResourceInUseException;

namespace {

void writeNothing() {}

/// @throws Failure  the whole 64-bit status is not 0.
template <typename Failure>
void requireZero(long long iStatus, unsigned uLine, const char* pFunction, const char* pDescription) {
    if (iStatus != 0) {
        throw Failure(VEXO_SOURCE_FILE, uLine, pFunction, pDescription);
    }
}

void requireNodes(bool bAvailable, unsigned uLine, const char* pFunction, const char* pDescription) {
    if (!bAvailable) {
        throw Xapel_NotAvailableException(VEXO_SOURCE_FILE, uLine, pFunction, pDescription);
    }
}

}  // namespace

CVexoShadingObj::CVexoShadingObj(XAPEL2::Device* device)
    : CXapelBypass(device),
      m_bCallbackRegistered(false),
      m_pPixelFormatNode(nullptr),
      m_pWidthNode(nullptr),
      m_pHeightNode(nullptr),
      m_pBufferSizeNode(nullptr),
      m_pBufferNode(nullptr),
      m_pBrwFilenameNode(nullptr),
      m_pCommandNode(nullptr),
      m_pStatusNode(nullptr),
      m_pParamSelectorNode(nullptr),
      m_pParamValueNode(nullptr),
      m_bNodesAvailable(false) {
    xapelTrace(eTraceOrdinary, "CExtScShading created;");
    m_pImageProcessor.reset(new XAPEL2::ImageProcessor());
    bindNodes();
}

CVexoShadingObj::~CVexoShadingObj() {
    try {
        deInitCallBack();
    } catch (...) {
        // What is left to do is done below, whatever failed.
    }
    // No buffer may reach this object once its processor is gone.
    leaveLists();
    m_pImageProcessor.reset();
}

void CVexoShadingObj::bindNodes() {
    struct Row {
        const char* pName;
        XAPEL2::Node* CVexoShadingObj::*pField;
        bool bRequired;
    };
    static const Row ROWS[] = {
        {XAPEL2::SHADING_NODE_PIXEL_FORMAT, &CVexoShadingObj::m_pPixelFormatNode, true},
        {XAPEL2::SHADING_NODE_WIDTH, &CVexoShadingObj::m_pWidthNode, true},
        {XAPEL2::SHADING_NODE_HEIGHT, &CVexoShadingObj::m_pHeightNode, true},
        {XAPEL2::SHADING_NODE_BUFFER_SIZE, &CVexoShadingObj::m_pBufferSizeNode, true},
        {XAPEL2::SHADING_NODE_BUFFER, &CVexoShadingObj::m_pBufferNode, true},
        {XAPEL2::SHADING_NODE_FILE_NAME, &CVexoShadingObj::m_pBrwFilenameNode, true},
        {XAPEL2::SHADING_NODE_COMMAND, &CVexoShadingObj::m_pCommandNode, true},
        {XAPEL2::SHADING_NODE_STATUS, &CVexoShadingObj::m_pStatusNode, true},
        {XAPEL2::SHADING_NODE_PARAM_SELECTOR, &CVexoShadingObj::m_pParamSelectorNode, false},
        {XAPEL2::SHADING_NODE_PARAM_VALUE, &CVexoShadingObj::m_pParamValueNode, false},
    };
    XAPEL2::NodeMap* pNodeMap = m_pImageProcessor->GetNodeList();
    if (pNodeMap == nullptr) {
        return;
    }
    bool bAvailable = true;
    for (const Row& rRow : ROWS) {
        if (pNodeMap->GetNodePresent(rRow.pName)) {
            this->*rRow.pField = pNodeMap->GetNode(rRow.pName);
        }
        if (rRow.bRequired && this->*rRow.pField == nullptr) {
            bAvailable = false;
        }
    }
    m_bNodesAvailable = bAvailable;
}

template <typename WriteInputs>
long long CVexoShadingObj::runCommand(XAPEL2::eShadingCommand eWhat, WriteInputs fnWriteInputs) {
    const std::lock_guard<std::mutex> lock(m_mtxShading);
    fnWriteInputs();
    m_pCommandNode->SetInt(eWhat);
    return m_pStatusNode->GetInt();
}

void CVexoShadingObj::ReferenceLoad(bool bLight, XAPEL2::String file) {
    static const char DESCRIPTION[] = "shading load reference failed.";
    deInitCallBack();
    requireNodes(m_bNodesAvailable, __LINE__, "ReferenceLoad", DESCRIPTION);
    const long long iStatus = runCommand(bLight ? XAPEL2::eCommandLoadLight : XAPEL2::eCommandLoadDark,
                                         [&] { m_pBrwFilenameNode->SetString(file); });
    requireZero<Xapel_ErrorException>(iStatus, __LINE__, "ReferenceLoad", DESCRIPTION);
}

void CVexoShadingObj::ReferenceStart(bool bLight) {
    static const char DESCRIPTION[] = "shading acquire reference failed.";
    deInitCallBack();
    requireNodes(m_bNodesAvailable, __LINE__, "ReferenceStart", DESCRIPTION);
    const long long iStatus = runCommand(bLight ? XAPEL2::eCommandStartLight : XAPEL2::eCommandStartDark, writeNothing);
    requireZero<Xapel_ResourceInUseException>(iStatus, __LINE__, "ReferenceStart", DESCRIPTION);
}

void CVexoShadingObj::ReferenceEnd(XAPEL2::String file) {
    static const char DESCRIPTION[] = "shading acquire reference failed.";
    requireNodes(m_bNodesAvailable, __LINE__, "ReferenceEnd", DESCRIPTION);
    const long long iStatus = runCommand(XAPEL2::eCommandEnd, [&] { m_pBrwFilenameNode->SetString(file); });
    requireZero<Xapel_ErrorException>(iStatus, __LINE__, "ReferenceEnd", DESCRIPTION);
}

void CVexoShadingObj::ReferenceApply() {
    static const char DESCRIPTION[] = "shading apply reference failed.";
    requireNodes(m_bNodesAvailable, __LINE__, "ReferenceApply", DESCRIPTION);
    XAPEL2::Device* pDevice = getXapelDevice();
    const XAPEL2::String pixelFormat = pDevice->GetRemoteNode("PixelFormat")->GetString();
    const long long iWidth = pDevice->GetRemoteNode("Width")->GetInt();
    const long long iHeight = pDevice->GetRemoteNode("Height")->GetInt();
    const long long iStatus = runCommand(XAPEL2::eCommandApply, [&] {
        writeFormat(pixelFormat, static_cast<unsigned long long>(iWidth), static_cast<unsigned long long>(iHeight));
    });
    requireZero<Xapel_ErrorException>(iStatus, __LINE__, "ReferenceApply", DESCRIPTION);
}

void CVexoShadingObj::ReferenceClear() {
    static const char DESCRIPTION[] = "shading clear reference failed.";
    deInitCallBack();
    requireNodes(m_bNodesAvailable, __LINE__, "ReferenceClear", DESCRIPTION);
    const long long iStatus = runCommand(XAPEL2::eCommandClear, writeNothing);
    requireZero<Xapel_ErrorException>(iStatus, __LINE__, "ReferenceClear", DESCRIPTION);
}

long long CVexoShadingObj::ProcessImage(XAPEL2::String pixelFormat, unsigned long long width, unsigned long long height,
                                        void* buffer, unsigned long long bufferSize) {
    static const char DESCRIPTION[] = "shading process image failed.";
    requireNodes(m_bNodesAvailable, __LINE__, "ProcessImage", DESCRIPTION);
    const long long iStatus = runCommand(XAPEL2::eCommandProcess, [&] {
        writeImage(pixelFormat, width, height, bufferSize, reinterpret_cast<uintptr_t>(buffer));
    });
    const auto iLow = static_cast<int32_t>(static_cast<uint32_t>(static_cast<unsigned long long>(iStatus)));
    if (iLow < 0) {
        throw Xapel_InvalidParameterException(VEXO_SOURCE_FILE, __LINE__, "ProcessImage", DESCRIPTION);
    }
    return iLow;
}

void CVexoShadingObj::writeFormat(const XAPEL2::String& rPixelFormat, unsigned long long nWidth,
                                  unsigned long long nHeight) {
    m_pPixelFormatNode->SetString(rPixelFormat);
    m_pWidthNode->SetInt(static_cast<long long>(nWidth));
    m_pHeightNode->SetInt(static_cast<long long>(nHeight));
}

void CVexoShadingObj::writeImage(const XAPEL2::String& rPixelFormat, unsigned long long nWidth,
                                 unsigned long long nHeight, unsigned long long nBytes, unsigned long long uAddress) {
    writeFormat(rPixelFormat, nWidth, nHeight);
    m_pBufferSizeNode->SetInt(static_cast<long long>(nBytes));
    m_pBufferNode->SetInt(static_cast<long long>(uAddress));
}

void CVexoShadingObj::requireParameter(const char* name, const char* pFunction, const char* pDescription) const {
    if (!m_bNodesAvailable || m_pParamSelectorNode == nullptr || m_pParamValueNode == nullptr) {
        throw Xapel_NotAvailableException(VEXO_SOURCE_FILE, __LINE__, pFunction, pDescription);
    }
    if (name == nullptr || *name == '\0') {
        throw Xapel_InvalidParameterException(VEXO_SOURCE_FILE, __LINE__, pFunction, pDescription);
    }
}

void CVexoShadingObj::SetParam(const char* name, unsigned int value) {
    xapelTrace(eTraceOrdinary, "CVexoShadingObj; SetParam called;");
    requireParameter(name, "SetParam", "SetParam failed.");
    try {
        const std::lock_guard<std::mutex> lock(m_mtxParam);
        m_pParamSelectorNode->SetValue(name);
        m_pParamValueNode->SetInt(static_cast<long long>(value));
    } catch (const IException& rException) {
        xapelTraceException("CVexoShadingObj; SetParam;", rException);
        throw Xapel_ErrorException(VEXO_SOURCE_FILE, __LINE__, "SetParam", "SetParam failed.");
    }
}

int CVexoShadingObj::GetParam(const char* name, eParamMode mode) {
    xapelTrace(eTraceOrdinary, "CVexoShadingObj; GetParam called;");
    requireParameter(name, "GetParam", "GetParam failed.");
    try {
        const std::lock_guard<std::mutex> lock(m_mtxParam);
        m_pParamSelectorNode->SetValue(name);
        // The low 32 bits of a wider value, as the exported getters promise.
        switch (mode) {
            case eParamValue:
                return static_cast<int>(m_pParamValueNode->GetInt());
            case eParamMin:
                return static_cast<int>(m_pParamValueNode->GetIntMin());
            case eParamMax:
                return static_cast<int>(m_pParamValueNode->GetIntMax());
        }
    } catch (const IException& rException) {
        xapelTraceException("CVexoShadingObj; >GetParam;", rException);
        throw Xapel_ErrorException(VEXO_SOURCE_FILE, __LINE__, "GetParam", "GetParam failed.");
    }
    throw Xapel_InvalidParameterException(VEXO_SOURCE_FILE, __LINE__, "GetParam", "GetParam failed.");
}
