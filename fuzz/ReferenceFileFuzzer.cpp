// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads any bytes as a reference file; what is accepted keeps every promise of the reader and can be applied.

#include <algorithm>

#include "FuzzTarget.h"
#include "standin/files/TiffHandle.h"
#include "standin/processor/correction/Correction.h"
#include "standin/processor/filters/ReferenceFilter.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2::StandIn;
using XAPEL2::Fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, std::size_t nBytes) {
    static XAPEL2::Fuzz::CInputFile s_oFile;
    const XAPEL2::Fuzz::CBudget oBudget;
    ReferenceImage sReference;
    try {
        sReference = readReferenceFile(s_oFile.hold(pData, nBytes));
    } catch (const CFileError&) {
        return 0;
    }
    const ImageLayout& rLayout = sReference.sLayout;
    std::vector<float>& rSamples = sReference.vSamples;
    require(rLayout.isPossible() && rSamples.size() == rLayout.samples(), "a reference has all samples of its size");
    require(rSamples.size() * sizeof(float) < nBytes, "every sample comes from the file");
    require(sReference.vecDefects.empty() || (sReference.vecDefects.size() == rLayout.nWidth * rLayout.nHeight &&
                                              sReference.vecDefects.size() < nBytes),
            "a map has a byte for each pixel, which comes from the file");
    const auto fFull = static_cast<float>(rLayout.pFormat->fullScale());
    require(std::all_of(rSamples.begin(), rSamples.end(), [&](float f) { return f >= 0.0F && f <= fFull; }),
            "a sample is from 0 to full scale");
    require(!makeDescription(sReference).empty(), "what was read can be written");
    if (rSamples.size() > 4096)
        return 0;  // for speed: what follows depends on the values of the samples, not on their number

    const std::vector<float> vRaw = rSamples;
    filterReference(rLayout, {1, 2}, rSamples);
    require(std::all_of(rSamples.begin(), rSamples.end(), [&](float f) { return f >= 0.0F && f <= fFull; }),
            "a filter makes no value that was not between its samples");
    std::vector<uint8_t> vImage(rLayout.bytes(), 0x5A);
    makeCorrection(rLayout, nullptr, &vRaw)->correct(vImage.data());
    makeCorrection(rLayout, &rSamples, &vRaw)->correct(vImage.data());
    return 0;
}
