// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Tells images apart by their samples.

#include "toolkit/frames/ContentHash.h"

namespace XAPEL2 {
namespace Toolkit {

std::string frameHash(const StandIn::ImageLayout& rLayout, const uint16_t* pSamples) {
    CContentHash hash;
    const uint64_t auSize[] = {rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->nChannels};
    hash.add(auSize, sizeof auSize);
    hash.add(pSamples, rLayout.samples() * sizeof *pSamples);
    return hash.text();
}

std::string referenceHash(const StandIn::ReferenceImage& rReference) {
    CContentHash hash;
    const uint64_t auHead[] = {rReference.layout.nWidth, rReference.layout.nHeight, rReference.layout.pFormat->uPfnc,
                               rReference.eKind, rReference.output.eTarget};
    const double adOutput[] = {rReference.output.dTarget, rReference.output.dPedestal};
    hash.add(auHead, sizeof auHead);
    hash.add(adOutput, sizeof adOutput);
    hash.add(rReference.vecSamples.data(), rReference.vecSamples.size() * sizeof(float));
    hash.add(rReference.vecDefects.data(), rReference.vecDefects.size());
    return hash.text();
}

}  // namespace Toolkit
}  // namespace XAPEL2
