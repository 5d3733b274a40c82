// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a corrected frame says of itself.

#include "toolkit/frames/CorrectionMark.h"

#include "standin/files/ImageFile.h"
#include "toolkit/frames/ContentHash.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {
constexpr const char* MARK = "Shading corrected";
}

std::string correctionMark(const StandIn::ReferenceImage* pDark, const StandIn::ReferenceImage* pLight) {
    std::string strMark = MARK;
    if (pDark != nullptr) {
        strMark += ", dark " + referenceHash(*pDark);
    }
    if (pLight != nullptr) {
        strMark += ", light " + referenceHash(*pLight);
    }
    return strMark;
}

std::string markOf(const std::string& strFile) {
    const std::string strText = StandIn::imageDescription(strFile);
    const std::size_t iBegin = strText.find(MARK);
    return iBegin == std::string::npos ? "" : strText.substr(iBegin, strText.find_first_of("\r\n", iBegin) - iBegin);
}

}  // namespace Toolkit
}  // namespace XAPEL2
