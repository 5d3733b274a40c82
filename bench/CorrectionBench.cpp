// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// correction-bench: one buffer through the shading nodes, beside kernels that only move the same bytes.
//
// "hot" groups correct one buffer again and again, "ring" groups go round as many buffers as a stream would have. A
// stream never delivers the same buffer twice in a row, so the rings are what a user sees; a hot group whose frame and
// tables fit into a cache shows what the kernel itself takes.

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
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

/// The same correction with defects or with a pedestal.
struct OutputWay {
    std::string strName;
    CorrectionTable table;  // its memory is lent to it
    std::size_t nBytes;
    KernelVariant variant;
    std::function<void(uint8_t* pImage)> fnAfter{};  // behind the correction; may be empty
};

/// Marks at places drawn by chance.
std::vector<uint8_t> drawDefects(const ImageLayout& rLayout, std::size_t nDefects) {
    std::vector<uint8_t> vecMap(static_cast<std::size_t>(rLayout.nWidth * rLayout.nHeight), 0);
    std::mt19937 random(7);
    for (std::size_t i = 0; i < nDefects; ++i) {
        vecMap[random() % vecMap.size()] = eDefectHot;
    }
    return vecMap;
}

OutputWay outputWay(const CScene& rScene, const std::string& strName, std::size_t nDefects, double dPedestal) {
    const ImageLayout& rLayout = rScene.layout();
    const std::vector<uint8_t> vecMap = drawDefects(rLayout, nDefects);
    const CorrectionOutput output{{eTargetMean, 0, dPedestal}, &vecMap};
    CorrectionTable table = makeTable(CFormula(rLayout, &rScene.dark(), &rScene.light(), output));
    const std::size_t nBytes = (rLayout.samples() + BLOCK - 1) / BLOCK * table.layout.blockBytes();
    const KernelTarget& rTarget = kernelTargets().front();
    const KernelVariant variant = CKernelChoice::ofProcess().choose(rTarget, table, rLayout.samples()).variant;
    table.pBlocks.reset();
    return {strName, std::move(table), nBytes, variant};
}

/// Throws unless marked samples take the value of all others, which stay as they are.
void checkReplaced(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, const OpenCvWay& rWay) {
    const std::size_t nBytes = rLayout.pFormat->nWireBits / 8;
    std::vector<uint8_t> vecImage(rMap.size() * nBytes);
    for (std::size_t i = 0; i < rMap.size(); ++i) {
        vecImage[i * nBytes] = rMap[i] != 0 ? 7 : 50;
    }
    rWay.fnCorrect(vecImage.data());
    for (std::size_t i = 0; i < rMap.size(); ++i) {
        if (vecImage[i * nBytes] != 50) {
            throw std::runtime_error("wrong result of OpenCV's " + rWay.strName);
        }
    }
}

/// Ways differ by less than the machine does from one second to the next. So they take turns image by image, with
/// tables in the same memory, as two of the same content differ by the pages that they happen to get. What tables hold
/// makes no difference to the time.
void measureInTurns(const Options& rOptions, const std::string& strName, CRing& rRing, const CScene& rScene,
                    std::vector<OutputWay>& rWays) {
    constexpr unsigned IMAGES = 100;  // of each way in what is a round elsewhere
    std::size_t nBytes = 0;
    for (const OutputWay& rWay : rWays) {
        nBytes = std::max(nBytes, rWay.nBytes);
    }
    OutputWay* pOwner = &rWays.front();
    pOwner->table.pBlocks = allocateLarge(nBytes);
    std::memset(pOwner->table.pBlocks.get(), 0x5a, nBytes);
    Options options = rOptions;
    options.nRounds *= rOptions.bQuick ? 1 : IMAGES;
    CRounds rounds(options);
    for (OutputWay& rWay : rWays) {
        OutputWay* const pWay = &rWay;
        Candidate candidate{pWay->strName, [pWay, &rRing, &rScene](uint64_t) {
                                uint8_t* const pImage = rRing.next();
                                CChunks chunks(pWay->table, pImage, rScene.layout().samples(),
                                               pWay->variant.way.blocksAhead(pWay->table.layout));
                                pWay->variant.fnKernel(chunks);
                                if (pWay->fnAfter) {
                                    pWay->fnAfter(pImage);
                                }
                            }};
        candidate.fnPrepare = [pWay, &pOwner] {
            std::swap(pWay->table.pBlocks, pOwner->table.pBlocks);
            pOwner = pWay;
        };
        candidate.bOnce = true;
        rounds.add(std::move(candidate));
    }
    rRing.refill();
    rounds.run();
    for (std::size_t i = 1; i < rWays.size(); ++i) {
        note(rOptions, "    %s, %s by none %.3f", strName.c_str(), rWays[i].strName.c_str(), rounds.ratio(i, 0));
    }
}

/// "None" is measured twice: that shows how far the figures can be trusted.
void measureOutputs(const Options& rOptions, const std::string& strName, CRing& rRing, const CScene& rScene,
                    bool bOpenCv) {
    std::vector<OutputWay> vecDefects;
    for (const std::size_t nDefects : {0, 0, 250, 500, 1000}) {
        vecDefects.push_back(outputWay(rScene, std::to_string(nDefects) + " defects", nDefects, 0));
    }
    measureInTurns(rOptions, strName, rRing, rScene, vecDefects);
    std::vector<OutputWay> vecPedestals;
    for (const int iPedestal : {0, 0, 16}) {
        const std::string strWay = "a pedestal of " + std::to_string(iPedestal) + " DN";
        vecPedestals.push_back(outputWay(rScene, strWay, 0, iPedestal));
    }
    measureInTurns(rOptions, strName, rRing, rScene, vecPedestals);
    if (!bOpenCv) {
        return;
    }
    std::vector<OutputWay> vecOpenCv;
    vecOpenCv.push_back(outputWay(rScene, "no defects", 0, 0));
    for (const std::size_t nDefects : {250, 1000}) {
        const std::vector<uint8_t> vecMap = drawDefects(rScene.layout(), nDefects);
        for (const OpenCvWay& rWay : openCvDefectWays(rScene, vecMap)) {
            checkReplaced(rScene.layout(), vecMap, rWay);
            vecOpenCv.push_back(outputWay(rScene, std::to_string(nDefects) + " by OpenCV, " + rWay.strName, 0, 0));
            vecOpenCv.back().fnAfter = rWay.fnCorrect;
        }
    }
    if (vecOpenCv.size() > 1) {  // as far as OpenCV is installed
        measureInTurns(rOptions, strName, rRing, rScene, vecOpenCv);
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
        measureOutputs(rOptions, strName, ring, rScene, rFormat.bOpenCv);
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
