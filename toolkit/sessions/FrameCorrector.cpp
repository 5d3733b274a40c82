// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images in the application's memory, corrected by a pair of references without a camera.

#include "toolkit/sessions/FrameCorrector.h"

#include "xapel2/GenTLCodes.h"
#include "xapel2/ShadingNodes.h"

#include "toolkit/text/Errors.h"
#include "xapel2_standin/Answers.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {
constexpr char NODE_DESCRIPTION[] = "StandInCorrection";
const std::string STEP_CORRECT = "correcting an image";
}  // namespace

// Format and size stay in the processor's registers from here on: an image needs but its address.
CFrameCorrector::CFrameCorrector(const PairOptions& rPair, const StandIn::ImageLayout& rLayout)
    : m_layout(rLayout),
      m_rBuffer(node(SHADING_NODE_BUFFER)),
      m_rCommand(node(SHADING_NODE_COMMAND)),
      m_rStatus(node(SHADING_NODE_STATUS)) {
    node(SHADING_NODE_PIXEL_FORMAT).SetString(m_layout.pFormat->pName);
    node(SHADING_NODE_WIDTH).SetInt(static_cast<long long>(m_layout.nWidth));
    node(SHADING_NODE_HEIGHT).SetInt(static_cast<long long>(m_layout.nHeight));
    node(SHADING_NODE_BUFFER_SIZE).SetInt(static_cast<long long>(m_layout.bytes()));
    run(eCommandEnable, "enabling the correction");
    for (const bool bLight : {false, true}) {
        const std::string& rFile = bLight ? rPair.strLight : rPair.strDark;
        if (!rFile.empty()) {
            node(SHADING_NODE_FILE_NAME).SetString(rFile.c_str());
            run(bLight ? eCommandLoadLight : eCommandLoadDark, rFile);
        }
    }
    setFilter(SHADING_PARAM_BOX_LIGHT, rPair.nBoxLight);
    setFilter(SHADING_PARAM_BOX_DARK, rPair.nBoxDark);
    setFilter(SHADING_PARAM_MEDIAN_LIGHT, rPair.nMedianLight);
    setFilter(SHADING_PARAM_MEDIAN_DARK, rPair.nMedianDark);
    run(eCommandApply, "applying the references");
}

Node& CFrameCorrector::node(const char* pName) {
    return *m_processor.GetNodeList()->GetNode(pName);
}

void CFrameCorrector::setFilter(const char* pName, unsigned nRadius) {
    if (nRadius > SHADING_PARAM_MAX) {
        throw CGenTlError(GC_ERR_INVALID_PARAMETER, std::string(pName) + " is a radius of 0 to " +
                                                        std::to_string(SHADING_PARAM_MAX) + " pixels, not " +
                                                        std::to_string(nRadius));
    }
    node(SHADING_NODE_PARAM_SELECTOR).SetValue(pName);
    node(SHADING_NODE_PARAM_VALUE).SetInt(nRadius);
}

int64_t CFrameCorrector::run(int64_t iCommand, const std::string& strStep) {
    StandIn::clearLastError();
    m_rCommand.SetInt(iCommand);
    const int64_t iStatus = m_rStatus.GetInt();
    if (iStatus < 0) {
        const std::string strWhy = StandIn::lastError().strText;
        throw CGenTlError(static_cast<int32_t>(iStatus),
                          strStep + ": " + (strWhy.empty() ? "the image processor failed" : strWhy));
    }
    return iStatus;
}

void CFrameCorrector::correct(void* pImage) {
    m_rBuffer.SetInt(static_cast<long long>(reinterpret_cast<uintptr_t>(pImage)));
    if (run(eCommandProcess, STEP_CORRECT) != 0) {
        throw CGenTlError(GC_ERR_NOT_AVAILABLE, STEP_CORRECT + ": nothing is applied for it");
    }
}

std::string CFrameCorrector::description() {
    const bool bTold = m_processor.GetNodeList()->GetNodePresent(NODE_DESCRIPTION);
    return bTold ? node(NODE_DESCRIPTION).GetString().get() : "";
}

}  // namespace Toolkit
}  // namespace XAPEL2
