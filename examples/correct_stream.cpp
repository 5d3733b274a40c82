// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records a pair of references from a camera, corrects its stream with them, and tells what became of each frame and
// why an operation failed. C++11.
//
//     g++ correct_stream.cpp $(pkg-config --cflags --libs xapel2_ext_sc) -o correct_stream
//     ./correct_stream 'sim?width=640&height=480'

#include <cstdint>
#include <cstdio>
#include <vector>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Answers.h"
#include "xapel2_standin/Host.h"

using namespace XAPEL2;
using StandIn::BufferHandle;

namespace {

constexpr int BUFFERS = 4;
constexpr unsigned long long TIMEOUT_MS = 5000;

// One number of a frame.
template <typename T>
T frameInfo(DataStream* pStream, BufferHandle hBuffer, int iInfoCmd) {
    T value = T();
    unsigned long long nSize = sizeof value;
    int iType = 0;
    StandIn::getBufferInfo(pStream, hBuffer, iInfoCmd, &iType, &value, &nSize);
    return value;
}

// Fetches frames; true when all of them came. A fetch that ends with GC_ERR_ABORT is one that waited while correction
// was switched: no frame is lost, it is repeated.
bool fetchFrames(DataStream* pStream, int nFrames, int& rCorrected) {
    rCorrected = 0;
    // No more than are fetched: what waited would be the first frames of the next call.
    StandIn::startAcquisition(pStream, static_cast<uint64_t>(nFrames));
    int iResult = GC_ERR_SUCCESS;
    for (int i = 0; i < nFrames && iResult == GC_ERR_SUCCESS; ++i) {
        BufferHandle hBuffer = nullptr;
        do {
            iResult = StandIn::getFilledBuffer(pStream, &hBuffer, TIMEOUT_MS);
        } while (iResult == GC_ERR_ABORT);
        if (iResult == GC_ERR_SUCCESS) {
            // The image stands at BUFFER_INFO_BASE, in the camera's pixel format, and is this program's until it queues
            // the buffer again.
            const uint64_t uWhat = frameInfo<uint64_t>(pStream, hBuffer, StandIn::BUFFER_INFO_STANDIN_CORRECTION);
            rCorrected += uWhat == StandIn::eCorrected ? 1 : 0;
            StandIn::queueBuffer(pStream, hBuffer);
        }
    }
    StandIn::stopAcquisition(pStream);
    if (iResult != GC_ERR_SUCCESS) {
        std::fprintf(stderr, "no frame: GenTL code %d, %s\n", iResult, StandIn::lastError().strText.c_str());
    }
    return iResult == GC_ERR_SUCCESS;
}

bool record(Ext::Sc::Shading& rShading, DataStream* pStream, bool bLight, const char* pFile) {
    int nCorrected = 0;
    rShading.ReferenceStart(bLight);
    rShading.SetEnable(true);  // an object sees the stream only while it is enabled
    const bool bAll = fetchFrames(pStream, 16, nCorrected);
    rShading.ReferenceEnd(pFile);
    return bAll;
}

// What a camera shows is up to the user: cover the lens, then point it at an even target. The simulated one is told.
void show(Device* pDevice, const char* pScene) {
    NodeMap* pNodes = StandIn::remoteNodes(pDevice);
    if (pNodes->GetNodePresent("StandInScene")) {
        pNodes->GetNode("StandInScene")->SetValue(pScene);
    } else {
        std::printf("Show the camera: %s, then press Enter\n", pScene);
        std::getchar();
    }
}

bool correctStream(Device* pDevice, DataStream* pStream) {
    Ext::Sc::Shading shading(pDevice);
    show(pDevice, "Dark");
    bool bDone = record(shading, pStream, false, "dark.tif");
    show(pDevice, "Light");
    bDone = bDone && record(shading, pStream, true, "light.tif");
    if (bDone) {
        shading.ReferenceApply();  // for the camera's present pixel format and size
        shading.SetEnable(true);
        show(pDevice, "Scene");
        int nCorrected = 0;
        bDone = fetchFrames(pStream, 32, nCorrected) && nCorrected == 32;
        std::printf("%d of 32 frames corrected\n", nCorrected);
    }
    return bDone;
}

}  // namespace

int main(int argc, char** argv) {
    Device* pDevice = nullptr;
    bool bDone = false;
    try {
        pDevice = StandIn::openDevice(argc > 1 ? argv[1] : "sim");
        DataStream* pStream = StandIn::firstDataStream(pDevice);
        StandIn::openDataStream(pDevice, pStream);
        for (int i = 0; i < BUFFERS; ++i) {
            BufferHandle hBuffer = nullptr;
            StandIn::allocAndAnnounceBuffer(pStream, StandIn::payloadSize(pStream), &hBuffer);
            StandIn::queueBuffer(pStream, hBuffer);
        }
        bDone = correctStream(pDevice, pStream);
    } catch (const Exceptions::IException& rError) {
        // What the library threw, and what the host says of it.
        std::fprintf(stderr, "%s\n%s\n", rError.GetErrorDescription().get(), StandIn::lastError().strText.c_str());
    }
    // The object goes before its device does: it has, at the end of correctStream.
    StandIn::closeDevice(pDevice);
    return bDone ? 0 : 1;
}
