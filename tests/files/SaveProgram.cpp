// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records a reference and saves it, between two system calls by which a tracer finds the save.
//
// Arguments: the file, side of the image in pixels, value of its first pixel, name for a copy of the file after a
// failed save, and most bytes of a file during the save. Ends with 0 when the save was good; with 1 when it was
// refused as documented, and saving once more without the limit was good; otherwise with 2.

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

namespace {

bool save(XAPEL2::Ext::Sc::Shading& rShading, const char* pFile, rlim_t nBytesMax) {
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {nBytesMax, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    bool bSaved = true;
    static_cast<void>(access("/save-begins", F_OK));
    try {
        rShading.ReferenceEnd(pFile);
    } catch (const XAPEL2::Exceptions::Xapel_ErrorException&) {
        bSaved = false;
    }
    static_cast<void>(access("/save-ends", F_OK));
    setrlimit(RLIMIT_FSIZE, &before);
    return bSaved;
}

}  // namespace

int main(int, char** ppArguments) try {
    const char* pFile = ppArguments[1];
    const auto nSide = static_cast<std::size_t>(std::stoul(ppArguments[2]));
    std::vector<uint8_t> vecImage(nSide * nSide);
    for (std::size_t i = 0; i < vecImage.size(); ++i) {
        vecImage[i] = static_cast<uint8_t>(std::stoul(ppArguments[3]) + i % 200);
    }

    XAPEL2::Device* pDevice = XAPEL2::StandIn::openDevice("sim?width=8&height=8&format=Mono8");
    XAPEL2::Ext::Sc::Shading oShading(pDevice);
    oShading.ReferenceStart(true);
    for (int i = 0; i < 3; ++i) {
        oShading.ReferenceAdd("Mono8", nSide, nSide, vecImage.data(), vecImage.size());
    }

    if (save(oShading, pFile, std::stoul(ppArguments[5]))) {
        return 0;
    }
    std::filesystem::copy_file(pFile, ppArguments[4]);
    // The fault is over, and nothing of the recording is lost.
    return save(oShading, pFile, RLIM_INFINITY) ? 1 : 2;
} catch (const std::exception& rError) {
    std::cerr << rError.what() << '\n';
    return 2;
}
