// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Geometry in words.

#include "xapel2_standin/ImageGeometry.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

std::string modeInWords(eBinningMode eMode) {
    return eMode == eBinningSum ? "sum" : eMode == eBinningAverage ? "mean" : "mode not known";
}

}  // namespace

std::string inWords(const ImageGeometry& rGeometry, uint64_t nWidth, uint64_t nHeight, bool bCfa) {
    if (!rGeometry.isKnown()) {
        return "place on the sensor not known";
    }
    const GeometryAxis& rX = rGeometry.x;
    const GeometryAxis& rY = rGeometry.y;
    const bool bWhole = rGeometry.isWhole(nWidth, nHeight, bCfa);
    std::string strText = (bWhole ? "whole sensor " : "window ") + std::to_string(nWidth) + " x " +
                          std::to_string(nHeight) +
                          (bWhole ? "" : " at " + std::to_string(rX.nOffset) + ", " + std::to_string(rY.nOffset));
    if (rX.nBinning != 1 || rY.nBinning != 1) {
        const eBinningMode eMode = rX.nBinning != 1 ? rX.eMode : rY.eMode;
        const bool bBoth = rX.nBinning != 1 && rY.nBinning != 1 && rX.eMode != rY.eMode;
        strText += ", binned " + std::to_string(rX.nBinning) + " x " + std::to_string(rY.nBinning) + " (" +
                   modeInWords(eMode) + (bBoth ? " x " + modeInWords(rY.eMode) : "") + ")";
    }
    if (rX.bReverse || rY.bReverse) {
        strText += std::string(", mirrored ") + (rX.bReverse ? "left to right" : "") +
                   (rX.bReverse && rY.bReverse ? " and " : "") + (rY.bReverse ? "top to bottom" : "");
    }
    return strText;
}

}  // namespace StandIn
}  // namespace XAPEL2
