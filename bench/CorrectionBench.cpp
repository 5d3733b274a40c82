// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// correction-bench: one buffer through the shading nodes, beside kernels that only move the same bytes.
//
// "hot" groups correct one buffer again and again, "ring" groups go round as many buffers as a stream would have. A
// stream never delivers the same buffer twice in a row, so the rings are what a user sees; a hot group whose frame and
// tables fit into a cache shows what the kernel itself takes.

#include <cstring>
#include <memory>
#include <random>

#include "Limit.h"
#include "MovingWindow.h"
#include "OpenCvCorrection.h"
#include "Rounds.h"
#include "Scene.h"
#include "ShadingNodes.h"
#include "standin/processor/correction/Correction.h"

namespace {

using namespace XapelBench;
using namespace XAPEL2::StandIn;

struct Group {
    const char* pName;
    uint64_t nWidth;
    uint64_t nHeight;
    std::size_t nBuffers;
    bool bQuick;  // part of a quick run
};

// Groups of one size stand together: they share references and tables.
constexpr Group GROUPS[] = {{"qvga-hot", 320, 240, 1, true},    {"vga-hot", 640, 480, 1, false},
                            {"vga-ring", 640, 480, 16, true},   {"5mp-hot", 2448, 2048, 1, false},
                            {"5mp-ring", 2448, 2048, 8, false}, {"26mp-ring", 5120, 5120, 4, false}};

struct Format {
    const char* pName;
    const char* pPfnc;
    eTraffic eKind;
    bool bOpenCv;
};
constexpr Format FORMATS[] = {{"mono8", "Mono8", eSamples8, true},
                              {"mono12", "Mono12", eSamples16, false},
                              {"mono16", "Mono16", eSamples16, true},
                              {"mono12p", "Mono12p", ePacked12, false},
                              {"mono12packed", "Mono12Packed", ePacked12, false},
                              {"bayerrg8", "BayerRG8", eSamples8, false},
                              {"rgb8", "RGB8", eSamples8, false}};

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

/// The same correction of its own, with so many defects at places drawn by chance.
struct DefectWay {
    std::size_t nDefects;
    std::unique_ptr<ICorrection> pCorrection;
    std::size_t iCandidate = 0;
};

std::vector<DefectWay> addDefects(CRounds& rRounds, CRing& rRing, const CScene& rScene) {
    std::vector<DefectWay> vecWays;
    for (const std::size_t nDefects : {std::size_t{0}, std::size_t{250}, std::size_t{1000}}) {
        std::vector<uint8_t> vecMap(static_cast<std::size_t>(rScene.layout().nWidth * rScene.layout().nHeight), 0);
        std::mt19937 random(7);
        for (std::size_t i = 0; i < nDefects; ++i) {
            vecMap[random() % vecMap.size()] = eDefectHot;
        }
        vecWays.push_back(
            {nDefects, makeCorrection(rScene.layout(), &rScene.dark(), &rScene.light(), nullptr, {{}, &vecMap})});
    }
    for (DefectWay& rWay : vecWays) {
        const ICorrection* const pCorrection = rWay.pCorrection.get();
        rWay.iCandidate = rRounds.add({std::to_string(rWay.nDefects) + " defects",
                                       [pCorrection, &rRing](uint64_t nTimes) {
                                           for (uint64_t i = 0; i < nTimes; ++i) {
                                               pCorrection->correct(rRing.next());
                                           }
                                       },
                                       [&] { rRing.refill(); }, rRing.buffers().size()});
    }
    return vecWays;
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
    std::vector<DefectWay> vecDefects;
    if (rGroup.pName == std::string(rOptions.bQuick ? "vga-ring" : "5mp-ring")) {
        vecDefects = addDefects(rounds, ring, rScene);
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
    for (std::size_t i = 1; i < vecDefects.size(); ++i) {
        note(rOptions, "    %zu defects by none %.3f", vecDefects[i].nDefects,
             rounds.ratio(vecDefects[i].iCandidate, vecDefects[0].iCandidate));
    }
    for (const std::size_t i : vecOpenCv) {
        note(rOptions, "    %s by ours %.2f", rounds.name(i).c_str(), rounds.ratio(i, iOurs));
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
            if (!isListed(rOptions.strGroups, rGroup.pName) || (rOptions.bQuick && !rGroup.bQuick)) {
                continue;
            }
            const ImageLayout layout{findPixelFormat(rFormat.pPfnc), rGroup.nWidth, rGroup.nHeight};
            if (!pScene || pScene->layout() != layout) {
                pNodes = std::make_unique<CShadingNodes>();
                pScene = std::make_unique<CScene>(layout);
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
