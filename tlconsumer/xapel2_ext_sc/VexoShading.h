// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The shading object: drives the shading nodes of an image processor of its own, and corrects each filled buffer.

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelNodes.h"
#include "xapel2/XapelString.h"

#include "XapelBypass.h"

/// Owns an image processor and binds its shading nodes. While enabled, it is a participant for calling of its hub and
/// gets every filled buffer.
///
/// Node transaction: inputs, command and status are one set of registers, so each command holds m_mtxShading from its
/// first node write to its status read. The status is judged, and exceptions of the library's own are thrown, after the
/// lock has been released. A host exception of a node access leaves the operation unchanged unless its comment says
/// otherwise.
///
/// @threads any, but SetEnable, ReferenceLoad, ReferenceStart, ReferenceClear and the destructor only one at a time.
class CVexoShadingObj : public CXapelBypass {
public:
    enum eParamMode { eParamValue = 0, eParamMin = 1, eParamMax = 2 };

    /// @param[in] device  the opened device; borrowed, must outlive the object.
    /// @throws Xapel_InvalidParameterException  device is null.
    /// @throws what binding to the hub throws; host exceptions of the processor's creation and node look-up.
    explicit CVexoShadingObj(XAPEL2::Device* device);

    // The operations of the base keep their slots; the destructor comes after them.
    int extended_useFilledBuffer(void* pBuffer) override;
    virtual ~CVexoShadingObj();

    // Each throws Xapel_NotAvailableException when the processor lacks a required node. Load, start and clear switch
    // the live correction off first, even when they fail then.

    /// @throws Xapel_ErrorException  the status is not 0.
    void ReferenceLoad(bool bLight, XAPEL2::String file);
    /// @throws Xapel_ResourceInUseException  the status is not 0.
    void ReferenceStart(bool bLight);
    /// @throws Xapel_ErrorException  the status is not 0.
    void ReferenceEnd(XAPEL2::String file);
    /// For the camera's present format and size. @throws Xapel_ErrorException  the status is not 0.
    void ReferenceApply();
    /// @throws Xapel_ErrorException  the status is not 0.
    void ReferenceClear();
    /// @return the status' low 32 bits, not negative.
    /// @throws Xapel_InvalidParameterException  they are negative as a signed value.
    long long ProcessImage(XAPEL2::String pixelFormat, unsigned long long width, unsigned long long height,
                           void* buffer, unsigned long long bufferSize);

    /// Never waits for a command. @throws Xapel_NotAvailableException  also when a parameter node is missing.
    /// @throws Xapel_InvalidParameterException  name is null or empty.
    /// @throws Xapel_ErrorException  a node access failed; the host exception has been traced.
    void SetParam(const char* name, unsigned int value);
    /// As SetParam. @return the low 32 bits. @throws Xapel_InvalidParameterException  also for another mode.
    int GetParam(const char* name, eParamMode mode);

    /// True: writes the enable command, then joins the hub. False: leaves the hub. A hub that fails is traced only.
    /// @throws Xapel_NotAvailableException  a required node is missing.
    /// @throws Xapel_ErrorException  the command failed; the correction is then off.
    void SetEnable(bool enable);

private:
    /// Writes the inputs with fnWriteInputs, then the command. @return the status.
    template <typename WriteInputs>
    long long runCommand(XAPEL2::eShadingCommand eWhat, WriteInputs fnWriteInputs);
    void bindNodes();
    void requireParameter(const char* name, const char* pFunction, const char* pDescription) const;
    void writeFormat(const XAPEL2::String& rPixelFormat, unsigned long long nWidth, unsigned long long nHeight);
    void writeImage(const XAPEL2::String& rPixelFormat, unsigned long long nWidth, unsigned long long nHeight,
                    unsigned long long nBytes, unsigned long long uAddress);
    int32_t runEnableCommand();
    void initCallBack();
    void deInitCallBack();

    bool m_bCallbackRegistered;  // in the hub's list for calling; changed by initCallBack and deInitCallBack only
    std::unique_ptr<XAPEL2::ImageProcessor> m_pImageProcessor;

    /// Held for the whole of every command transaction.
    std::mutex m_mtxShading;

    // Nodes of the processor's map, borrowed. Set in the constructor only.
    XAPEL2::Node* m_pPixelFormatNode;
    XAPEL2::Node* m_pWidthNode;
    XAPEL2::Node* m_pHeightNode;
    XAPEL2::Node* m_pBufferSizeNode;
    XAPEL2::Node* m_pBufferNode;
    XAPEL2::Node* m_pBrwFilenameNode;
    XAPEL2::Node* m_pCommandNode;
    XAPEL2::Node* m_pStatusNode;
    XAPEL2::Node* m_pParamSelectorNode;  // may be missing
    XAPEL2::Node* m_pParamValueNode;     // may be missing
    bool m_bNodesAvailable;              // every required node is there

    /// Keeps a selection and its value access together; no command waits for it, and it waits for none.
    std::mutex m_mtxParam;
};
