// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Runs the program of README.md on the simulated camera and looks at the frames that it fetched.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

namespace StandIn = XAPEL2::StandIn;

// The program, as README.md shows it; it calls the loop below.
void correctStream(XAPEL2::Device* pDevice);
void fetchFrames(XAPEL2::Device* pDevice, int nFrames);

namespace {

// Mean of the 32 x 32 pixels from (iX, iY) on, in the last frame fetched.
double patchMean(const std::vector<uint16_t>& rFrame, unsigned nWidth, unsigned iX, unsigned iY) {
    double dSum = 0.0;
    for (unsigned i = 0; i < 32 * 32; ++i) {
        dSum += rFrame[(iY + i / 32) * nWidth + iX + i % 32];
    }
    return dSum / (32.0 * 32.0);
}

std::vector<uint16_t> g_vecLastFrame;

}  // namespace

void fetchFrames(XAPEL2::Device* pDevice, int nFrames) {
    XAPEL2::DataStream* pStream = StandIn::firstDataStream(pDevice);
    g_vecLastFrame.resize(StandIn::payloadSize(pStream) / sizeof(uint16_t));
    StandIn::BufferHandle hBuffer = nullptr;
    StandIn::announceBuffer(pStream, g_vecLastFrame.data(), StandIn::payloadSize(pStream), &hBuffer);
    StandIn::startAcquisition(pStream);
    for (int i = 0; i < nFrames; ++i) {
        StandIn::queueBuffer(pStream, hBuffer);
        if (StandIn::getFilledBuffer(pStream, &hBuffer, 10000) != GC_ERR_SUCCESS) {
            g_vecLastFrame.assign(g_vecLastFrame.size(), 0);
        }
    }
    StandIn::stopAcquisition(pStream);
    StandIn::flushBuffers(pStream);
    StandIn::revokeBuffer(pStream, hBuffer);
}

// What no command of the application asks the shipped host for.
static bool filtersWork(XAPEL2::Device* pDevice) {
    using XAPEL2::Ext::Sc::Shading;
    Shading shading(pDevice);
    shading.SetFilter(Shading::eBoxFilter, false, 3);
    return shading.GetFilter(Shading::eBoxFilter, false) == 3 && shading.GetFilter(Shading::eBoxFilter, true) == 0 &&
           shading.GetFilterMin(Shading::eBoxFilter, false) == 0 &&
           shading.GetFilterMax(Shading::eBoxFilter, false) == 31;
}

int main() {
    XAPEL2::Device* pDevice = StandIn::openDevice("sim:1?width=256&height=192&format=Mono12");
    StandIn::remoteNodes(pDevice)->GetNode("StandInScene")->SetValue("Light");
    correctStream(pDevice);
    const double dCentre = patchMean(g_vecLastFrame, 256, 112, 80);
    const double dCorner = patchMean(g_vecLastFrame, 256, 0, 0);
    const bool bFilters = filtersWork(pDevice);
    StandIn::closeDevice(pDevice);
    std::printf("centre %.1f DN, corner %.1f DN\n", dCentre, dCorner);
    return bFilters && dCentre > 0.0 && std::abs(dCorner / dCentre - 1.0) < 0.01 ? 0 : 1;
}
