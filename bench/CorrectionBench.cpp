// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// correction-bench: one buffer through the shading nodes, beside kernels that only move the same bytes.
//
// "hot" groups correct one buffer again and again, "ring" groups go round as many buffers as a stream would have. A
// stream never delivers the same buffer twice in a row, so the rings are what a user sees; a hot group whose frame and
// tables fit into a cache shows what the kernel itself takes.

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <utility>

#include "Limit.h"
#include "MovingWindow.h"
#include "OpenCvCorrection.h"
#include "Rounds.h"
#include "Scene.h"
#include "ShadingNodes.h"
#include "standin/processor/correction/Correction.h"
#include "standin/processor/correction/KernelChoice.h"

namespace {

using namespace XapelBench;
using namespace XAPEL2::StandIn;

struct Group {
    const char* pName;
    uint64_t nWidth;
    uint64_t nHeight;
    std::size_t nBuffers;
    bool bQuick;      // part of a quick run
    bool bLargeRing;  // of images larger than caches
};

// Groups of one size stand together: they share references and tables.
constexpr Group GROUPS[] = {{"qvga-hot", 320, 240, 1, true, false},   {"vga-hot", 640, 480, 1, false, false},
                            {"vga-ring", 640, 480, 16, true, false},  {"5mp-hot", 2448, 2048, 1, false, false},
                            {"5mp-ring", 2448, 2048, 8, false, true}, {"26mp-ring", 5120, 5120, 4, false, true}};

struct Format {
    const char* pName;
    const char* pPfnc;
    eTraffic eKind;
    bool bOpenCv;
    CameraKind camera = WORN_CAMERA;
    bool bLarge = false;  // in rings of large images alone, and in quick runs
};
constexpr Format FORMATS[] = {{"mono8", "Mono8", eSamples8, true},
                              {"mono12", "Mono12", eSamples16, false},
                              {"mono16", "Mono16", eSamples16, true},
                              {"mono12p", "Mono12p", ePacked12, false},
                              {"mono12packed", "Mono12Packed", ePacked12, false},
                              {"bayerrg8", "BayerRG8", eSamples8, false},
                              {"rgb8", "RGB8", eSamples8, false},
                              {"mono8-sensor", "Mono8", eSamples8, false, SIMULATED_CAMERA, true},
                              {"mono10-sensor", "Mono10", eSamples16, false, SIMULATED_CAMERA, true},
                              {"mono12-sensor", "Mono12", eSamples16, false, SIMULATED_CAMERA, true},
                              {"mono12p-sensor", "Mono12p", ePacked12, false, SIMULATED_CAMERA, true},
                              {"mono16-recorded", "Mono16", eSamples16, false, RECORDED_CAMERA, true}};

/// Buffers of a stream, in one block on huge pages, each at a cache line of its own place within a page.
class CRing {
public:
    CRing(const CScene& rScene, std::size_t nBuffers)
        : m_rImage(rScene.image()), m_memory(nBuffers * (m_rImage.size() + GAP)) {
        const std::size_t nStep = (m_rImage.size() + GAP) / 64 * 64;
        for (std::size_t i = 0; i < nBuffers; ++i) {
            m_vecBuffers.push_back(m_memory.data() + i * nStep);
        }
        refill();
    }
    void refill() {
        for (uint8_t* pBuffer : m_vecBuffers) {
            std::memcpy(pBuffer, m_rImage.data(), m_rImage.size());
        }
    }
    uint8_t* next() { return m_vecBuffers[m_iNext++ % m_vecBuffers.size()]; }
    const std::vector<uint8_t*>& buffers() const { return m_vecBuffers; }

private:
    static constexpr std::size_t GAP = 21 * 64;
    const std::vector<uint8_t>& m_rImage;
    CHugeMemory m_memory;
    std::vector<uint8_t*> m_vecBuffers;
    std::size_t m_iNext = 0;
};

/// Refilled before each slice, so that every slice meets the same image; within one, images that are corrected again
/// and again drift towards black and white.
std::size_t addOurs(CRounds& rRounds, CRing& rRing, const CScene& rScene, CShadingNodes& rNodes) {
    uint8_t* const pFirst = rRing.buffers().front();
    rNodes.process(rScene.layout(), pFirst);
    rNodes.require();
    rScene.check(pFirst);
    // The definition, which vectors must give byte for byte.
    std::vector<uint8_t> vecScalar = rScene.image();
    makeCorrection(rScene.layout(), &rScene.dark(), &rScene.light(), "scalar")->correct(vecScalar.data());
    if (std::memcmp(pFirst, vecScalar.data(), vecScalar.size()) != 0) {
        throw std::runtime_error("wrong result: not the bytes of the scalar definition");
    }
    return rRounds.add({"ours",
                        [&](uint64_t nTimes) {
                            for (uint64_t i = 0; i < nTimes; ++i) {
                                rNodes.process(rScene.layout(), rRing.next());
                            }
                            rNodes.require();
                        },
                        [&] { rRing.refill(); }, rRing.buffers().size()});
}

std::vector<std::size_t> addOpenCv(CRounds& rRounds, CRing& rRing, const CScene& rScene) {
    std::vector<std::size_t> vecCandidates;
    for (const OpenCvWay& rWay : openCvWays(rScene)) {
        rRing.refill();
        rWay.fnCorrect(rRing.buffers().front());
        rScene.check(rRing.buffers().front(), 1.0);  // whole darks, and halves to the even side
        vecCandidates.push_back(rRounds.add({"OpenCV, " + rWay.strName,
                                             [rWay, &rRing](uint64_t nTimes) {
                                                 for (uint64_t i = 0; i < nTimes; ++i) {
                                                     rWay.fnCorrect(rRing.next());
                                                 }
                                             },
                                             [&] { rRing.refill(); }, rRing.buffers().size()}));
    }
    return vecCandidates;
}

/// The same correction with defects at places drawn by chance, or with a pedestal.
struct OutputWay {
    std::string strName;
    CorrectionTable table;  // its memory is lent to it
    LargeMemory pContent;
    std::size_t nBytes;
    KernelVariant variant;
};

std::vector<OutputWay> outputWays(const CScene& rScene) {
    const ImageLayout& rLayout = rScene.layout();
    const KernelTarget& rTarget = kernelTargets().front();
    std::vector<OutputWay> vecWays;
    const auto add = [&](const std::string& strName, const CorrectionOutput& rOutput) {
        CorrectionTable table = makeTable(CFormula(rLayout, &rScene.dark(), &rScene.light(), rOutput));
        const std::size_t nBytes = (rLayout.samples() + BLOCK - 1) / BLOCK * table.layout.blockBytes();
        const KernelVariant variant = CKernelChoice::ofProcess().choose(rTarget, table, rLayout.samples()).variant;
        LargeMemory pContent = std::move(table.pBlocks);
        vecWays.push_back({strName, std::move(table), std::move(pContent), nBytes, variant});
    };
    for (const std::size_t nDefects : {std::size_t{0}, std::size_t{250}, std::size_t{1000}}) {
        std::vector<uint8_t> vecMap(static_cast<std::size_t>(rLayout.nWidth * rLayout.nHeight), 0);
        std::mt19937 random(7);
        for (std::size_t i = 0; i < nDefects; ++i) {
            vecMap[random() % vecMap.size()] = eDefectHot;
        }
        add(std::to_string(nDefects) + " defects", {{}, &vecMap});
    }
    add("a pedestal of 16 DN", {{eTargetMean, 0, 16}, nullptr});
    return vecWays;
}

/// In rounds of their own, as they differ by little, and with tables in the same memory: two tables of the same content
/// differ by more than what is measured, by the pages that they happen to get.
void measureOutputs(const Options& rOptions, CRing& rRing, const CScene& rScene) {
    std::vector<OutputWay> vecWays = outputWays(rScene);
    std::size_t nBytes = 0;
    for (const OutputWay& rWay : vecWays) {
        nBytes = std::max(nBytes, rWay.nBytes);
    }
    LargeMemory pShared = allocateLarge(nBytes);
    OutputWay* pOwner = nullptr;
    CRounds rounds(rOptions);
    for (OutputWay& rWay : vecWays) {
        OutputWay* const pWay = &rWay;
        rounds.add({rWay.strName,
                    [pWay, &rRing, &rScene](uint64_t nTimes) {
                        for (uint64_t i = 0; i < nTimes; ++i) {
                            CChunks chunks(pWay->table, rRing.next(), rScene.layout().samples(),
                                           pWay->variant.way.blocksAhead(pWay->table.layout));
                            pWay->variant.fnKernel(chunks);
                        }
                    },
                    [pWay, &pOwner, &pShared, &rRing] {
                        if (pOwner) {
                            pShared = std::move(pOwner->table.pBlocks);
                        }
                        std::memcpy(pShared.get(), pWay->pContent.get(), pWay->nBytes);
                        pWay->table.pBlocks = std::move(pShared);
                        pOwner = pWay;
                        rRing.refill();
                    },
                    rRing.buffers().size()});
    }
    rounds.run();
    for (std::size_t i = 1; i < vecWays.size(); ++i) {
        note(rOptions, "    %s by none %.3f", vecWays[i].strName.c_str(), rounds.ratio(i, 0));
    }
}

void measure(const Options& rOptions, const Group& rGroup, const Format& rFormat, const CScene& rScene,
             CShadingNodes& rNodes) {
    CRing ring(rScene, rGroup.nBuffers);
    const CLimit limit(rFormat.eKind, rScene.layout().bytes());
    CRounds rounds(rOptions);
    const std::size_t iOurs = addOurs(rounds, ring, rScene, rNodes);
    const std::vector<std::size_t> vecLimits = limit.addTo(rounds, ring.buffers());
    std::vector<std::size_t> vecOpenCv;
    if (rFormat.bOpenCv && (rOptions.bQuick || rGroup.pName == std::string("5mp-ring"))) {
        vecOpenCv = addOpenCv(rounds, ring, rScene);
    }
    rounds.run();

    const std::string strName = std::string(rGroup.pName) + "/" + rFormat.pName;
    const std::size_t iLimit = rounds.fastest(vecLimits);
    rounds.print(iOurs, strName + "/ours");
    rounds.print(iLimit, strName + "/limit");
    if (!vecOpenCv.empty()) {
        rounds.print(rounds.fastest(vecOpenCv), strName + "/opencv");
    }
    note(rOptions, "tables of %s: %s", strName.c_str(), rNodes.correction().c_str());
    note(rOptions, "    ours by limit %.2f", rounds.ratio(iOurs, iLimit));
    for (const std::size_t i : vecLimits) {
        note(rOptions, "    limit, %-28s %6.1f GB/s%s", rounds.name(i).c_str(), limit.traffic() / rounds.ns(i),
             i == iLimit ? " *" : "");
    }
    for (const std::size_t i : vecOpenCv) {
        note(rOptions, "    %s by ours %.2f", rounds.name(i).c_str(), rounds.ratio(i, iOurs));
    }
    if (rGroup.pName == std::string(rOptions.bQuick ? "vga-ring" : "5mp-ring")) {
        measureOutputs(rOptions, ring, rScene);
    }
}

void bench(const Options& rOptions) {
    if (isListed(rOptions.strGroups, "move")) {
        benchMove(rOptions);
    }
    for (const Format& rFormat : FORMATS) {
        if (!isListed(rOptions.strFormats, rFormat.pName)) {
            continue;
        }
        std::unique_ptr<CScene> pScene;
        std::unique_ptr<CShadingNodes> pNodes;
        for (const Group& rGroup : GROUPS) {
            if (!isListed(rOptions.strGroups, rGroup.pName) || (rOptions.bQuick && !rGroup.bQuick) ||
                (rFormat.bLarge && !rOptions.bQuick && !rGroup.bLargeRing)) {
                continue;
            }
            const ImageLayout layout{findPixelFormat(rFormat.pPfnc), rGroup.nWidth, rGroup.nHeight};
            if (!pScene || pScene->layout() != layout) {
                pNodes = std::make_unique<CShadingNodes>();
                pScene = std::make_unique<CScene>(layout, rFormat.camera);
                pScene->apply(*pNodes);
            }
            measure(rOptions, rGroup, rFormat, *pScene, *pNodes);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return guarded(argc, argv, bench);
}
