// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images in the application's memory, corrected by a pair of references without a camera.

#pragma once

#include <cstdint>
#include <string>

#include "toolkit/sessions/Pair.h"
#include "xapel2/XapelNodes.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Corrects images of one format and size. Owns an image processor of the host.
/// @threads one object per thread, one at a time; different objects are independent.
class CFrameCorrector {
public:
    /// Loads the pair and applies it with its filters.
    /// @throws CGenTlError             names the file or the step, and says why.
    /// @throws Exceptions::IException  the host refuses another image processor.
    CFrameCorrector(const PairOptions& rPair, const StandIn::ImageLayout& rLayout);
    CFrameCorrector(const CFrameCorrector&) = delete;
    CFrameCorrector& operator=(const CFrameCorrector&) = delete;

    /// Corrects the image in place.
    /// @param[in,out] pImage  layout().bytes() long, without line padding; borrowed for the call.
    /// @throws CGenTlError  the processor left it as it was; says why.
    void correct(void* pImage);

    const StandIn::ImageLayout& layout() const { return m_layout; }
    /// Table layout and vector target of the correction, in words; empty where the host does not tell.
    std::string description();

private:
    int64_t run(int64_t iCommand, const std::string& strStep);
    void setFilter(const char* pName, unsigned nRadius);
    Node& node(const char* pName);

    StandIn::ImageLayout m_layout;
    ImageProcessor m_processor;
    Node& m_rBuffer;
    Node& m_rCommand;
    Node& m_rStatus;
};

}  // namespace Toolkit
}  // namespace XAPEL2
