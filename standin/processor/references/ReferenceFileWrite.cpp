// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing reference files.

#include "standin/files/SafeFile.h"
#include "standin/files/TiffOutput.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {

void writeReferenceFile(const std::string& strFile, const ReferenceImage& rReference) {
    CSafeFile file(strFile);
    const std::string strDescription = makeDescription(rReference);
    TiffImage image;
    image.nWidth = rReference.sLayout.nWidth;
    image.nHeight = rReference.sLayout.nHeight;
    image.nChannels = static_cast<uint16_t>(rReference.sLayout.pFormat->nChannels);
    image.nBits = 32;
    image.pDescription = strDescription.c_str();
    writeTiff(file.get(), image, rReference.vSamples.data());
    file.finish();
}

}  // namespace StandIn
}  // namespace XAPEL2
