// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing reference files.

#include <algorithm>

#include "standin/files/SafeFile.h"
#include "standin/files/TiffOutput.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

/// A map is one that readReferenceFile takes.
void checkDefects(const ReferenceImage& rReference) {
    const ImageLayout& rLayout = rReference.sLayout;
    const std::vector<uint8_t>& rMap = rReference.vecDefects;
    if (rMap.empty()) {
        return;
    }
    const bool bGood = rReference.eKind == eReferenceLight && rMap.size() == rLayout.nWidth * rLayout.nHeight &&
                       std::all_of(rMap.begin(), rMap.end(), [](uint8_t u) { return (u & ~eDefectBits) == 0; });
    const auto nGood = static_cast<uint64_t>(std::count(rMap.begin(), rMap.end(), 0));
    if (!bGood || rMap.size() - nGood > ReferenceImage::defectsMax(rLayout)) {
        throw CFileError("the defect map is none that a light reference of this size can carry");
    }
}

TiffImage imageOf(const ImageLayout& rLayout, unsigned nChannels, uint16_t nBits) {
    TiffImage image;
    image.nWidth = rLayout.nWidth;
    image.nHeight = rLayout.nHeight;
    image.nChannels = static_cast<uint16_t>(nChannels);
    image.nBits = nBits;
    return image;
}

}  // namespace

void writeReferenceFile(const std::string& strFile, const ReferenceImage& rReference) {
    checkDefects(rReference);
    const std::string strDescription = makeDescription(rReference);
    const ImageLayout& rLayout = rReference.sLayout;
    std::vector<TiffPage> vecPages = {{imageOf(rLayout, rLayout.pFormat->nChannels, 32), rReference.vSamples.data()}};
    vecPages.front().image.pDescription = strDescription.c_str();
    if (!rReference.vecDefects.empty()) {
        vecPages.push_back({imageOf(rLayout, 1, 8), rReference.vecDefects.data()});
        vecPages.back().image.pPageName = "defects";
    }
    CSafeFile file(strFile);
    writeTiff(file.get(), vecPages);
    file.finish();
}

}  // namespace StandIn
}  // namespace XAPEL2
