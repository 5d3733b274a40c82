// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Drives an image processor by its shading nodes, as the library does.

#pragma once

#include <stdexcept>
#include <string>

#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelNodes.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XapelBench {

/// An image processor and its nodes. Failures of the node accesses are host exceptions.
class CShadingNodes {
public:
    /// Five node writes and the command: what a filled buffer costs. The status is not read, as in the stream.
    void process(const std::string& strFormat, uint64_t nWidth, uint64_t nHeight, std::size_t nBytes, void* pImage) {
        writeFormat(strFormat, nWidth, nHeight);
        m_pBufferSize->SetInt(static_cast<long long>(nBytes));
        m_pBuffer->SetInt(static_cast<long long>(reinterpret_cast<uintptr_t>(pImage)));
        m_pCommand->SetInt(XAPEL2::eCommandProcess);
    }
    void process(const XAPEL2::StandIn::ImageLayout& rLayout, void* pImage) {
        process(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight, rLayout.bytes(), pImage);
    }

    /// Status of the last command.
    long long status() const { return m_pStatus->GetInt(); }
    /// @throws std::runtime_error  the last command failed or left its image untouched.
    void require(long long iStatus = 0) const {
        if (status() != iStatus) {
            throw std::runtime_error("the image processor reports " + std::to_string(status()) + ", not " +
                                     std::to_string(iStatus));
        }
    }

    /// The image processor's own words on its tables and kernels; "unknown" where it has none.
    std::string correction() {
        XAPEL2::NodeMap* const pNodes = m_processor.GetNodeList();
        return pNodes->GetNodePresent("StandInCorrection") ? pNodes->GetNode("StandInCorrection")->GetString().get()
                                                           : "unknown";
    }

    /// A command with a reference file. @throws std::runtime_error  it failed.
    void file(XAPEL2::eShadingCommand eWhat, const std::string& strFile) {
        m_pFilename->SetString(strFile.c_str());
        command(eWhat);
    }
    void apply(const XAPEL2::StandIn::ImageLayout& rLayout) {
        writeFormat(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight);
        command(XAPEL2::eCommandApply);
    }
    void command(XAPEL2::eShadingCommand eWhat) {
        m_pCommand->SetInt(eWhat);
        require();
    }

private:
    XAPEL2::Node* node(const char* pName) { return m_processor.GetNodeList()->GetNode(pName); }
    void writeFormat(const std::string& strFormat, uint64_t nWidth, uint64_t nHeight) {
        m_pFormat->SetString(strFormat.c_str());
        m_pWidth->SetInt(static_cast<long long>(nWidth));
        m_pHeight->SetInt(static_cast<long long>(nHeight));
    }

    XAPEL2::ImageProcessor m_processor;
    XAPEL2::Node* const m_pFormat = node(XAPEL2::SHADING_NODE_PIXEL_FORMAT);
    XAPEL2::Node* const m_pWidth = node(XAPEL2::SHADING_NODE_WIDTH);
    XAPEL2::Node* const m_pHeight = node(XAPEL2::SHADING_NODE_HEIGHT);
    XAPEL2::Node* const m_pBufferSize = node(XAPEL2::SHADING_NODE_BUFFER_SIZE);
    XAPEL2::Node* const m_pBuffer = node(XAPEL2::SHADING_NODE_BUFFER);
    XAPEL2::Node* const m_pFilename = node(XAPEL2::SHADING_NODE_FILE_NAME);
    XAPEL2::Node* const m_pCommand = node(XAPEL2::SHADING_NODE_COMMAND);
    XAPEL2::Node* const m_pStatus = node(XAPEL2::SHADING_NODE_STATUS);
};

}  // namespace XapelBench
