// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The image processor.

#include "standin/host/nodes/ProcessorNodes.h"

namespace XAPEL2 {

INode::INode() : m_pImpl(nullptr) {}

INode::~INode() = default;

NodeMap* INode::GetNodeList() {
    return m_pImpl == nullptr ? nullptr : static_cast<const StandIn::ProcessorImpl*>(m_pImpl)->shell.map();
}

ImageProcessor::ImageProcessor() {
    m_pImpl = new StandIn::ProcessorImpl(StandIn::makeProcessor());
}

ImageProcessor::~ImageProcessor() {
    delete static_cast<StandIn::ProcessorImpl*>(m_pImpl);
}

}  // namespace XAPEL2
