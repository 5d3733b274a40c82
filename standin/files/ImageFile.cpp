// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the readers of image files share.

#include "standin/files/ImageFile.h"

#include <stdexcept>

namespace XAPEL2 {
namespace StandIn {

void failImageFile(const std::string& strPath, const std::string& strText) {
    throw std::runtime_error(strPath + ": " + strText);
}

std::string layoutDifference(const ImageFileLayout& rExpected, const ImageFileLayout& rOther) {
    if (rOther.nWidth != rExpected.nWidth) {
        return "width " + std::to_string(rOther.nWidth) + " instead of " + std::to_string(rExpected.nWidth);
    }
    if (rOther.nHeight != rExpected.nHeight) {
        return "height " + std::to_string(rOther.nHeight) + " instead of " + std::to_string(rExpected.nHeight);
    }
    if (rOther.pFormat != rExpected.pFormat) {
        return std::string("format ") + rOther.pFormat->pName + " instead of " + rExpected.pFormat->pName;
    }
    return "";
}

}  // namespace StandIn
}  // namespace XAPEL2
