// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// reference-bench: what it takes to record, filter and apply references of 2448 x 2048 samples of 16 bits.
//
// Filters are measured as the image processor calls them, on a reference of one image (whole numbers) and, in the
// groups with "mean", on the mean of 16. Recording and applying go through the shading nodes.

#ifdef XAPEL2_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>

#include "Limit.h"
#include "Rounds.h"
#include "Scene.h"
#include "ShadingNodes.h"
#include "TemporaryFolder.h"
#include "standin/pixels/LargeMemory.h"
#include "standin/processor/filters/ReferenceFilter.h"
#include "standin/processor/references/FrameSums.h"
#include "standin/processor/references/ReferenceRecorder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace {

using namespace XapelBench;
using namespace XAPEL2::StandIn;

constexpr unsigned RADII[] = {1, 2, 3, 5, 15, 31};

ImageLayout layout(const Options& rOptions, const char* pFormat) {
    return {findPixelFormat(pFormat), rOptions.bQuick ? 192U : 2448U, rOptions.bQuick ? 128U : 2048U};
}

/// Compares a filtered reference with windows that are sorted or summed one by one, at places all over the image.
void checkFilter(const ImageLayout& rLayout, const std::vector<float>& rIn, const std::vector<float>& rOut,
                 const FilterRadii& rRadii) {
    const auto nRadius = static_cast<long>(std::max(rRadii.nMedian, rRadii.nBox));
    const auto nWidth = static_cast<long>(rLayout.nWidth);
    const auto nHeight = static_cast<long>(rLayout.nHeight);
    const std::size_t nPlaces = 500;
    for (std::size_t i = 0; i <= nPlaces; ++i) {
        const std::size_t iSample = (rIn.size() - 1) * i / nPlaces;
        const long iX = static_cast<long>(iSample) % nWidth;
        const long iY = static_cast<long>(iSample) / nWidth;
        std::vector<float> vecWindow;
        for (long iRow = iY - nRadius; iRow <= iY + nRadius; ++iRow) {
            for (long iColumn = iX - nRadius; iColumn <= iX + nRadius; ++iColumn) {
                vecWindow.push_back(rIn[static_cast<std::size_t>(std::clamp(iRow, 0L, nHeight - 1) * nWidth +
                                                                 std::clamp(iColumn, 0L, nWidth - 1))]);
            }
        }
        double dExpected = 0.0;
        if (rRadii.nMedian != 0) {
            const auto itMiddle = vecWindow.begin() + static_cast<std::ptrdiff_t>(vecWindow.size() / 2);
            std::nth_element(vecWindow.begin(), itMiddle, vecWindow.end());
            dExpected = *itMiddle;
        } else {
            for (const float fSample : vecWindow) {
                dExpected += fSample;
            }
            dExpected /= static_cast<double>(vecWindow.size());
        }
        if (std::abs(rOut[iSample] - dExpected) > (rRadii.nMedian != 0 ? 0.0 : 1e-6 * dExpected)) {
            throw std::runtime_error("wrong filter result: sample " + std::to_string(iSample) + " becomes " +
                                     std::to_string(rOut[iSample]) + ", not " + std::to_string(dExpected));
        }
    }
}

/// All that is measured, by the name that it is printed with.
class CReferenceRounds {
public:
    explicit CReferenceRounds(const Options& rOptions) : m_rOptions(rOptions), m_rounds(rOptions) {}

    bool wants(const std::string& strGroup) const { return isListed(m_rOptions.strGroups, strGroup); }
    /// @param[in] fnPrepare  makes what one fnRun uses up; empty: fnRun can be repeated.
    /// @param[in] nUnit  number of images that fnRun takes in turn.
    void add(const std::string& strName, std::function<void()> fnRun, std::function<void()> fnPrepare = {},
             uint64_t nUnit = 1) {
        Candidate candidate{strName, [fnRun = std::move(fnRun)](uint64_t nTimes) {
                                for (uint64_t i = 0; i < nTimes; ++i) {
                                    fnRun();
                                }
                            }};
        candidate.bOnce = static_cast<bool>(fnPrepare);
        candidate.fnPrepare = std::move(fnPrepare);
        candidate.nUnit = nUnit;
        m_mapResults[strName] = {m_rounds.add(std::move(candidate))};
    }
    void addLimit(const std::string& strName, const CLimit& rLimit, uint8_t* pSums,
                  const std::vector<const uint8_t*>& rFrames) {
        m_mapResults[strName] = rLimit.addTo(m_rounds, {pSums}, rFrames);
    }
    void runAndPrint() {
        m_rounds.run();
        for (const auto& rResult : m_mapResults) {
            const std::size_t iFastest = m_rounds.fastest(rResult.second);
            m_rounds.print(iFastest, rResult.first);
            if (rResult.second.size() > 1) {
                note(m_rOptions, "    %s", m_rounds.name(iFastest).c_str());
            }
        }
    }

private:
    const Options& m_rOptions;
    CRounds m_rounds;
    std::map<std::string, std::vector<std::size_t>> m_mapResults;  // a limit has many candidates
};

/// A reference that is filtered again and again from the same start.
class CFilterBench {
public:
    CFilterBench(const CScene& rScene, bool bMean) : m_rLayout(rScene.layout()), m_vecStart(rScene.light()) {
        for (float& rSample : m_vecStart) {
            rSample = bMean ? rSample : std::round(rSample);
        }
        m_vecWork = m_vecStart;
    }
    void addTo(CReferenceRounds& rRounds, const std::string& strSuffix) {
        for (const unsigned nRadius : RADII) {
            addFilter(rRounds, "box-r" + std::to_string(nRadius) + strSuffix, {0, nRadius});
            addFilter(rRounds, "median-r" + std::to_string(nRadius) + strSuffix, {nRadius, 0});
        }
    }

private:
    void addFilter(CReferenceRounds& rRounds, const std::string& strGroup, const FilterRadii& rRadii) {
        if (!rRounds.wants(strGroup)) {
            return;
        }
        m_vecWork = m_vecStart;
        filterReference(m_rLayout, rRadii, m_vecWork);
        checkFilter(m_rLayout, m_vecStart, m_vecWork, rRadii);
        rRounds.add(
            strGroup + "/ours", [this, rRadii] { filterReference(m_rLayout, rRadii, m_vecWork); },
            [this] { m_vecWork = m_vecStart; });
    }

    const ImageLayout& m_rLayout;
    std::vector<float> m_vecStart;
    std::vector<float> m_vecWork;
};

/// Images of a recording: the light reference with shot noise of its own in each, such as 10,000 electrons have at full
/// scale.
class CFrames {
public:
    explicit CFrames(const CScene& rScene) : m_nBytes(rScene.image().size()), m_memory(COUNT * m_nBytes) {
        constexpr double NOISE = 0.01;
        const ImageLayout& rLayout = rScene.layout();
        const double dFull = rLayout.pFormat->fullScale();
        std::mt19937 random(1);
        std::normal_distribution<float> normal;
        std::vector<float> vecNoise(1000003);
        std::generate(vecNoise.begin(), vecNoise.end(), [&] { return normal(random); });
        std::size_t iNoise = 0;
        std::vector<uint16_t> vecSamples(rLayout.samples());
        for (std::size_t iFrame = 0; iFrame < COUNT; ++iFrame) {
            for (std::size_t i = 0; i < vecSamples.size(); ++i) {
                const double dLight = static_cast<double>(rScene.light()[i]);
                const double dNoise = NOISE * std::sqrt(dLight * dFull) * static_cast<double>(vecNoise[iNoise]);
                vecSamples[i] = static_cast<uint16_t>(std::clamp(std::round(dLight + dNoise), 0.0, dFull));
                iNoise = (iNoise + 1) % vecNoise.size();
            }
            packSamples(*rLayout.pFormat, vecSamples.data(), 0, vecSamples.size(), frame(iFrame));
        }
    }
    static constexpr std::size_t COUNT = 16;
    uint8_t* frame(std::size_t i) const { return m_memory.data() + i % COUNT * m_nBytes; }
    std::vector<const uint8_t*> all() const {
        std::vector<const uint8_t*> vecFrames;
        for (std::size_t i = 0; i < COUNT; ++i) {
            vecFrames.push_back(frame(i));
        }
        return vecFrames;
    }

private:
    std::size_t m_nBytes;
    CHugeMemory m_memory;
};

/// Records through the nodes, beside kernels that read an image and change sums of double width.
class CAccumulateBench {
public:
    explicit CAccumulateBench(const CScene& rScene)
        : m_rLayout(rScene.layout()),
          m_frames(rScene),
          m_sums(2 * m_rLayout.bytes()),
          m_limit(eSums, 2 * m_rLayout.bytes()) {
        check();
        m_nodes.command(XAPEL2::eCommandStartLight);
    }
    void addTo(CReferenceRounds& rRounds, const std::string& strGroup) {
        rRounds.add(
            strGroup + "/ours", [this] { m_nodes.process(m_rLayout, m_frames.frame(m_iNext++)); }, {}, CFrames::COUNT);
        // The sums without a look at what is added, as recordings were made before they were watched.
        rRounds.add(
            strGroup + "/sums-alone", [this] { addAlone(m_rLayout, m_frames.frame(m_iNext++), m_sums.data()); }, {},
            CFrames::COUNT);
        rRounds.addLimit(strGroup + "/limit", m_limit, m_sums.data(), m_frames.all());
    }

    /// A recording of 16 images from its first one on: the noise is measured during the first nine.
    void addWholeTo(CReferenceRounds& rRounds, const std::string& strGroup) {
        const auto fnEach = [this](const std::function<void(const uint8_t*)>& fnAdd) {
            for (std::size_t i = 0; i < CFrames::COUNT; ++i) {
                fnAdd(m_frames.frame(i));
            }
        };
        rRounds.add(strGroup + "/ours", [this, fnEach] {
            CReferenceRecorder recorder(eReferenceLight);
            fnEach([&](const uint8_t* pFrame) { recorder.add(m_rLayout, pFrame); });
        });
        rRounds.add(strGroup + "/sums-alone", [this, fnEach] {
            std::vector<uint8_t, LargeAllocator<uint8_t>> vecSums(2 * m_rLayout.bytes());
            fnEach([&](const uint8_t* pFrame) { addAlone(m_rLayout, pFrame, vecSums.data()); });
        });
    }

private:
    // Of as many images as the sums hold, whatever they hold then.
    static void addAlone(const ImageLayout& rLayout, const uint8_t* pFrame, uint8_t* pSums) {
        if (rLayout.pFormat->nWireBits == 8) {
            addFrame(1, pFrame, rLayout.samples(), reinterpret_cast<uint16_t*>(pSums));
        } else {
            addFrame(1, reinterpret_cast<const uint16_t*>(pFrame), rLayout.samples(), rLayout.pFormat->fullScale(),
                     reinterpret_cast<uint32_t*>(pSums));
        }
    }

    void check() {
        constexpr std::size_t IMAGES = 300;  // more than 16-bit sums of 8-bit samples can hold
        const XAPEL2::Test::CTemporaryFolder folder;
        std::vector<double> vecSums(m_rLayout.samples());
        m_nodes.command(XAPEL2::eCommandStartLight);
        for (std::size_t i = 0; i < IMAGES; ++i) {
            m_nodes.process(m_rLayout, m_frames.frame(i));
            m_nodes.require(static_cast<long long>(i) + 1);
        }
        for (std::size_t i = 0; i < CFrames::COUNT; ++i) {
            const std::vector<uint16_t> vecSamples = unpack(m_rLayout, m_frames.frame(i));
            const double dTimes = static_cast<double>((IMAGES - i + CFrames::COUNT - 1) / CFrames::COUNT);
            for (std::size_t j = 0; j < vecSums.size(); ++j) {
                vecSums[j] += dTimes * vecSamples[j];
            }
        }
        m_nodes.file(XAPEL2::eCommandEnd, folder / "light.tif");
        const ReferenceImage reference = readReferenceFile(folder / "light.tif");
        for (std::size_t i = 0; i < vecSums.size(); ++i) {
            if (reference.vecSamples[i] != static_cast<float>(vecSums[i] / static_cast<double>(IMAGES))) {
                throw std::runtime_error("wrong mean: sample " + std::to_string(i));
            }
        }
    }

    const ImageLayout& m_rLayout;
    CFrames m_frames;
    CHugeMemory m_sums;
    CLimit m_limit;
    CShadingNodes m_nodes;
    std::size_t m_iNext = 0;
};

void addApply(CReferenceRounds& rRounds, const std::string& strGroup, const CScene& rScene, CShadingNodes& rNodes) {
    if (!rRounds.wants(strGroup)) {
        return;
    }
    rScene.apply(rNodes);
    std::vector<uint8_t> vecImage = rScene.image();
    rNodes.process(rScene.layout(), vecImage.data());
    rNodes.require();
    rScene.check(vecImage.data());
    rRounds.add(strGroup + "/ours", [&] { rNodes.apply(rScene.layout()); });
}

#ifdef XAPEL2_HAVE_OPENCV
void addOpenCv(CReferenceRounds& rRounds, const CScene& rScene) {
    cv::setNumThreads(1);
    const auto iRows = static_cast<int>(rScene.layout().nHeight);
    cv::Mat in;
    cv::Mat(rScene.light(), true).reshape(1, iRows).convertTo(in, CV_16U);
    const cv::Mat out(in.size(), CV_16U);
    for (const unsigned nRadius : RADII) {
        const int iSide = 2 * static_cast<int>(nRadius) + 1;
        const std::string strRadius = std::to_string(nRadius);
        if (rRounds.wants("box-r" + strRadius)) {
            rRounds.add("box-r" + strRadius + "/opencv", [=] {
                cv::boxFilter(in, out, -1, {iSide, iSide}, {-1, -1}, true, cv::BORDER_REPLICATE);
            });
        }
        // Its median of 16-bit images goes no further.
        if (nRadius <= 2 && rRounds.wants("median-r" + strRadius)) {
            rRounds.add("median-r" + strRadius + "/opencv", [=] { cv::medianBlur(in, out, iSide); });
        }
    }
}
#else
void addOpenCv(CReferenceRounds&, const CScene&) {}
#endif

void bench(const Options& rOptions) {
    const CScene scene8(layout(rOptions, "Mono8"));
    const CScene scene16(layout(rOptions, "Mono16"));
    CReferenceRounds rounds(rOptions);

    CFilterBench whole(scene16, false);
    CFilterBench mean(scene16, true);
    whole.addTo(rounds, "");
    mean.addTo(rounds, "-mean");
    addOpenCv(rounds, scene16);

    std::unique_ptr<CAccumulateBench> apAccumulate[2];
    const CScene* const apScenes[] = {&scene8, &scene16};
    const char* const apGroups[] = {"accumulate-u8", "accumulate-u16"};
    const char* const apWholes[] = {"record-16-u8", "record-16-u16"};
    for (std::size_t i = 0; i < 2; ++i) {
        if (rounds.wants(apGroups[i]) || rounds.wants(apWholes[i])) {
            apAccumulate[i] = std::make_unique<CAccumulateBench>(*apScenes[i]);
        }
        if (rounds.wants(apGroups[i])) {
            apAccumulate[i]->addTo(rounds, apGroups[i]);
        }
        if (rounds.wants(apWholes[i])) {
            apAccumulate[i]->addWholeTo(rounds, apWholes[i]);
        }
    }

    CShadingNodes nodes8;
    CShadingNodes nodes16;
    addApply(rounds, "apply-5mp", scene16, nodes16);
    addApply(rounds, "apply-5mp-mono8", scene8, nodes8);

    // From and to images of a ring, as a frame of a stream would be copied.
    const CFrames frames(scene16);
    std::size_t iNext = 0;
    rounds.add("memcpy/limit", [&] {
        std::memcpy(frames.frame(iNext + CFrames::COUNT / 2), frames.frame(iNext), scene16.image().size());
        ++iNext;
    });
    rounds.runAndPrint();
}

}  // namespace

int main(int argc, char** argv) {
    return guarded(argc, argv, bench);
}
