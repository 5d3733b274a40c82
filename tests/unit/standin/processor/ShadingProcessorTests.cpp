// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The commands of the image processor: what they correct, trace, and leave behind when they fail. (The statuses in
// every state are compared with a model by the fuzz target of the processor.)

#include "standin/processor/ShadingProcessor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "Allocations.h"
#include "TemporaryFolder.h"
#include "TestImages.h"
#include "xapel2/GenTLCodes.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class ShadingProcessor : public testing::Test {
protected:
    /// Runs a command with an image of one value.
    int64_t run(int64_t iCommand, const std::string& strFormat = "Mono12", int64_t iWidth = 8, int64_t iHeight = 4,
                uint16_t uValue = 100) {
        const ImageLayout layout = layoutOf(strFormat, static_cast<uint64_t>(iWidth), static_cast<uint64_t>(iHeight));
        m_vecImage.assign(64, 0);
        if (layout.isPossible()) {
            m_vecImage = pack(layout, std::vector<uint16_t>(layout.samples(), uValue));
        }
        m_inputs.iBufferSize = static_cast<int64_t>(m_vecImage.size());
        m_inputs.strPixelFormat = strFormat;
        m_inputs.iWidth = iWidth;
        m_inputs.iHeight = iHeight;
        m_inputs.iBuffer = static_cast<int64_t>(reinterpret_cast<uintptr_t>(m_vecImage.data()));
        return m_oProcessor.execute(iCommand, m_inputs);
    }
    int64_t runFile(int64_t iCommand, const std::string& strName) {
        m_inputs.strFilename = m_oFolder / strName;
        return m_oProcessor.execute(iCommand, m_inputs);
    }
    int64_t record(eShadingCommand eStart, uint16_t uValue, const std::string& strName,
                   const std::string& strFormat = "Mono12") {
        EXPECT_EQ(run(eStart), 0);
        EXPECT_EQ(run(eCommandProcess, strFormat, 8, 4, uValue), 1);
        EXPECT_EQ(unpack(layoutOf(strFormat, 8, 4), m_vecImage)[5], uValue) << "a recording leaves its images alone";
        return runFile(eCommandEnd, strName);
    }
    /// The value that an even image of 100 has after processing.
    int corrected(const std::string& strFormat = "Mono12") {
        EXPECT_EQ(run(eCommandProcess, strFormat), 0);
        return unpack(layoutOf(strFormat, 8, 4), m_vecImage)[5];
    }
    std::size_t traces(const std::string& strPart) const {
        std::size_t nCount = 0;
        for (const std::string& rTrace : m_vecTraces) {
            nCount += rTrace.find(strPart) != std::string::npos;
        }
        return nCount;
    }

    XAPEL2::Test::CTemporaryFolder m_oFolder;
    std::vector<std::string> m_vecTraces;
    CShadingProcessor m_oProcessor{[this](int32_t iLevel, const std::string& strText) {
        EXPECT_EQ(iLevel, 2);
        m_vecTraces.push_back(strText);
    }};
    ShadingInputs m_inputs;
    std::vector<uint8_t> m_vecImage;
};

TEST_F(ShadingProcessor, CorrectsWithDarkAndLight) {
    ASSERT_EQ(record(eCommandStartDark, 20, "dark"), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(corrected(), 80);
    ASSERT_EQ(record(eCommandStartLight, 500, "light"), 0);
    EXPECT_EQ(corrected(), 80) << "a reference takes effect when it is applied";
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(corrected(), 80) << "an even light changes nothing";
    ASSERT_EQ(run(eCommandApply, "Mono12p"), 0) << "packing does not matter to a reference";
    EXPECT_EQ(corrected("Mono12p"), 80);
    for (const auto& [strFormat, iWidth] : {std::make_pair("Mono10", 8), std::make_pair("BayerRG12", 8),
                                            std::make_pair("Mono16", 8), std::make_pair("Mono12", 4)}) {
        EXPECT_EQ(run(eCommandApply, strFormat, iWidth), GC_ERR_NOT_AVAILABLE) << strFormat << " " << iWidth;
    }
    EXPECT_EQ(corrected("Mono12p"), 80) << "an apply that fails leaves what was applied";
    // Another colour phase, another order of channels.
    for (const auto& [strHeld, strOther] : {std::make_pair("BayerGR8", "BayerRG8"), std::make_pair("RGB8", "BGR8")}) {
        ASSERT_EQ(run(eCommandClear), 0);
        ASSERT_EQ(record(eCommandStartDark, 20, strHeld, strHeld), 0);
        EXPECT_EQ(run(eCommandApply, strOther), GC_ERR_NOT_AVAILABLE) << strOther;
    }
}

TEST_F(ShadingProcessor, FilterValuesTakeEffectAtTheNextApply) {
    // One hot pixel in the dark: gone with a median of radius 1, spread by a box.
    ReferenceImage dark{eReferenceDark, layoutOf("Mono12", 8, 4), 1, 0, 0, 0, "", std::vector<float>(32, 10.0F)};
    dark.vecSamples[5] = 100.0F;
    writeReferenceFile(m_oFolder / "dark", dark);
    ASSERT_EQ(runFile(eCommandLoadDark, "dark"), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(corrected(), 0);
    EXPECT_TRUE(m_oProcessor.setParameter(SHADING_PARAM_MEDIAN_DARK, 1));
    EXPECT_TRUE(m_oProcessor.setParameter(SHADING_PARAM_BOX_LIGHT, 31));
    EXPECT_EQ(corrected(), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(corrected(), 90);
    EXPECT_TRUE(m_oProcessor.setParameter(SHADING_PARAM_MEDIAN_DARK, 0));
    EXPECT_TRUE(m_oProcessor.setParameter(SHADING_PARAM_BOX_DARK, 1));
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(corrected(), 70) << "9 pixels, two of them the hot one on the border row";
    ASSERT_EQ(run(eCommandClear), 0);
    EXPECT_EQ(m_oProcessor.parameter(SHADING_PARAM_BOX_DARK), 1) << "clearing keeps the parameters";
}

TEST_F(ShadingProcessor, ReferenceTellsOfTheImagesThatItTook) {
    ASSERT_EQ(run(eCommandStartLight), 0);
    EXPECT_EQ(run(eCommandProcess), 1);
    EXPECT_EQ(run(eCommandProcess, "Mono12p"), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(run(eCommandProcess, "Mono12", 8, 4, 4095), 2);
    EXPECT_EQ(run(eCommandProcess, "Mono12", 8, 4, 104), 3);
    ASSERT_EQ(runFile(eCommandEnd, "light"), 0);
    const ReferenceImage light = readReferenceFile(m_oFolder / "light");
    EXPECT_EQ(light.nImages, 3U);
    EXPECT_EQ(light.vecSamples, std::vector<float>(32, 4299.0F / 3));
    EXPECT_NEAR(light.dMean, 1433.0, 1e-9);
    EXPECT_NEAR(light.dSaturatedShare, 1.0 / 3, 1e-12);
    EXPECT_NEAR(light.dTemporalNoise, 0.0, 1e-9);  // all samples went together: that is the light
    EXPECT_EQ(light.means.dLeast, 100.0);
    EXPECT_EQ(light.means.dMost, 4095.0);
    EXPECT_EQ(light.means.dLast, 104.0);

    EXPECT_EQ(runFile(eCommandLoadLight, "absent"), GC_ERR_IO);
    EXPECT_EQ(runFile(eCommandLoadDark, "light"), GC_ERR_IO);
    EXPECT_EQ(traces("absent") + traces("it is a light reference"), 2U);
}

TEST_F(ShadingProcessor, TracesOnceWhyAnImageIsLeftUntouched) {
    const auto processAll = [&] {
        for (int i = 0; i < 6; ++i) {
            run(eCommandProcess, i % 2 ? "Mono99" : "Mono12");
            for (const auto& [strFormat, iWidth] : {std::make_pair("Mono8", 8), std::make_pair("Mono12", 4)}) {
                run(eCommandProcess, strFormat, iWidth);
                EXPECT_EQ(unpack(layoutOf(strFormat, static_cast<uint64_t>(iWidth), 4), m_vecImage)[5], 100);
            }
        }
    };
    processAll();
    EXPECT_EQ(traces("no reference is applied"), 1U);
    EXPECT_EQ(traces("impossible"), 1U);
    EXPECT_EQ(m_vecTraces.size(), 2U);
    ASSERT_EQ(record(eCommandStartDark, 20, "dark"), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    m_vecTraces.clear();
    processAll();
    EXPECT_EQ(traces("another format"), 1U);
    EXPECT_EQ(traces("another size"), 1U);
    EXPECT_EQ(traces("impossible"), 1U);
    EXPECT_EQ(m_vecTraces.size(), 3U);
    ASSERT_EQ(run(eCommandApply), 0);
    processAll();
    EXPECT_EQ(m_vecTraces.size(), 6U) << "new tables, new reasons";
    for (const eShadingCommand eNew : {eCommandStartLight, eCommandClear}) {
        run(eNew);
        run(eCommandProcess, "Mono12", 0, 4);
        run(eCommandProcess, "Mono12", 0, 4);
        EXPECT_EQ(m_vecTraces.size(), eNew == eCommandClear ? 8U : 7U) << "a new recording, a new beginning";
    }
    // An offset into a buffer whose base nobody knows.
    run(eCommandProcess);
    m_inputs.iBuffer = 128;
    EXPECT_EQ(m_oProcessor.execute(eCommandProcess, m_inputs), GC_ERR_INVALID_PARAMETER);
}

TEST_F(ShadingProcessor, WantOfMemoryChangesNothing) {
    ASSERT_EQ(record(eCommandStartDark, 20, "dark"), 0);
    ASSERT_EQ(record(eCommandStartDark, 60, "other"), 0);
    for (const int64_t iCommand : {eCommandApply, eCommandLoadDark}) {
        uint64_t nFailed = 0;
        for (;; ++nFailed) {
            SCOPED_TRACE("command " + std::to_string(iCommand) + ", allocation " + std::to_string(nFailed));
            ASSERT_LT(nFailed, 1000U);
            ASSERT_EQ(runFile(eCommandLoadDark, "dark"), 0);
            ASSERT_EQ(run(eCommandApply), 0);
            ASSERT_EQ(runFile(eCommandLoadDark, "other"), 0);  // another apply would show
            m_inputs.strFilename = m_oFolder / "dark";
            Allocations::failAfter(nFailed);
            const int64_t iStatus = m_oProcessor.execute(iCommand, m_inputs);
            Allocations::failAfter(UINT64_MAX);
            if (iStatus != GC_ERR_ERROR) {
                break;
            }
            ASSERT_EQ(corrected(), 80) << "the tables as before";
            ASSERT_EQ(run(eCommandApply), 0);
            ASSERT_EQ(corrected(), 40) << "the reference as before";
        }
        EXPECT_GT(nFailed, 0U) << "command " << iCommand << " allocates";
    }
}

TEST_F(ShadingProcessor, SaysWhichTableCorrects) {
    EXPECT_EQ(m_oProcessor.correction(), "none");
    ASSERT_EQ(record(eCommandStartDark, 20, "dark"), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    EXPECT_EQ(m_oProcessor.correction().rfind("12 bit, dark u", 0), 0U) << m_oProcessor.correction();
    ASSERT_EQ(run(eCommandClear), 0);
    EXPECT_EQ(m_oProcessor.correction(), "none");
}

TEST_F(ShadingProcessor, CorrectingAllocatesNothing) {
    ASSERT_EQ(record(eCommandStartDark, 20, "dark"), 0);
    ASSERT_EQ(run(eCommandApply), 0);
    ASSERT_EQ(corrected(), 80);
    const uint64_t nBefore = Allocations::done();
    EXPECT_EQ(m_oProcessor.execute(eCommandProcess, m_inputs), 0);
    EXPECT_EQ(Allocations::done(), nBefore);
}

TEST_F(ShadingProcessor, RefusesASecondCommandButNotAParameter) {
    ReferenceImage dark{eReferenceDark, layoutOf("Mono16", 256, 256), 1, 0, 0, 0, "", std::vector<float>(65536)};
    for (std::size_t i = 0; i < dark.vecSamples.size(); ++i) {
        dark.vecSamples[i] = static_cast<float>(i * 7919 % 65521);
    }
    writeReferenceFile(m_oFolder / "dark", dark);
    ASSERT_EQ(runFile(eCommandLoadDark, "dark"), 0);
    ASSERT_TRUE(m_oProcessor.setParameter(SHADING_PARAM_MEDIAN_DARK, 31));
    m_inputs.strPixelFormat = "Mono16";
    m_inputs.iWidth = m_inputs.iHeight = 256;
    std::atomic<bool> bStop{false};
    std::thread oApply([&] {
        while (!bStop) {
            m_oProcessor.execute(eCommandApply, m_inputs);  // refused where it meets the other command
        }
    });
    // A parameter that was set between two refusals of the same apply did not wait for it. The apply is long beside
    // these calls, so a few rounds are enough.
    const auto tDeadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool bSeen = false;
    while (!bSeen && std::chrono::steady_clock::now() < tDeadline) {
        const bool bBefore = m_oProcessor.execute(eCommandEnable, {}) == GC_ERR_RESOURCE_IN_USE;
        const bool bSet = m_oProcessor.setParameter(SHADING_PARAM_BOX_LIGHT, 3);
        bSeen = bBefore && bSet && m_oProcessor.execute(eCommandEnable, {}) == GC_ERR_RESOURCE_IN_USE;
    }
    bStop = true;
    oApply.join();
    EXPECT_TRUE(bSeen);
}

/// A host that says what it is told to.
class CToldPlaces : public IImagePlaces {
public:
    bool placeOf(const void*, ImageGeometry& rGeometry) const override { return answer(rGeometry); }
    bool presentPlace(const ImageLayout&, ImageGeometry& rGeometry) const override { return answer(rGeometry); }

    ImageGeometry place{};
    bool bThrows = false;

private:
    bool answer(ImageGeometry& rGeometry) const {
        if (bThrows) {
            throw std::runtime_error("no answer");
        }
        rGeometry = place;
        return place.isKnown();
    }
};

class PlacedProcessor : public ShadingProcessor {
protected:
    PlacedProcessor() {
        m_places.place = at(4);
        EXPECT_EQ(command(eCommandStartDark, 0), 0);
        EXPECT_EQ(command(eCommandProcess, 10), 1);
        m_inputs.strFilename = m_oFolder / "dark";
        EXPECT_EQ(m_placed.execute(eCommandEnd, m_inputs), 0);
    }
    static ImageGeometry at(uint64_t nOffset) {
        return {{32, nOffset, 1, eBinningAverage, false}, {4, 0, 1, eBinningAverage, false}};
    }
    int64_t command(int64_t iCommand, uint16_t uValue, int64_t iWidth = 16) {
        setImage("Mono12", iWidth, 4, uValue);
        return m_placed.execute(iCommand, m_inputs);
    }
    void setImage(const std::string& strFormat, int64_t iWidth, int64_t iHeight, uint16_t uValue) {
        const ImageLayout layout = layoutOf(strFormat, static_cast<uint64_t>(iWidth), static_cast<uint64_t>(iHeight));
        m_vecImage = pack(layout, std::vector<uint16_t>(layout.samples(), uValue));
        m_inputs.strPixelFormat = strFormat;
        m_inputs.iWidth = iWidth;
        m_inputs.iHeight = iHeight;
        m_inputs.iBufferSize = static_cast<int64_t>(m_vecImage.size());
        m_inputs.iBuffer = static_cast<int64_t>(reinterpret_cast<uintptr_t>(m_vecImage.data()));
    }

    CToldPlaces m_places;
    CShadingProcessor m_placed{[this](int32_t, const std::string& strText) { m_vecTraces.push_back(strText); },
                               &m_places};
};

TEST_F(PlacedProcessor, FilesThePlaceOfItsImagesAndRecordsNoOther) {
    EXPECT_EQ(readReferenceFile(m_oFolder / "dark").geometry, at(4));
    ASSERT_EQ(command(eCommandStartDark, 0), 0);
    ASSERT_EQ(command(eCommandProcess, 10), 1);
    m_places.place = at(5);
    EXPECT_EQ(command(eCommandProcess, 10), GC_ERR_INVALID_PARAMETER);
    m_places.place = at(4);
    EXPECT_EQ(command(eCommandProcess, 10), 2);
    ASSERT_EQ(command(eCommandClear, 0), 0);

    // A place that cannot be is none: it would spoil the file.
    m_places.place = at(20);
    ASSERT_EQ(command(eCommandStartDark, 0), 0);
    ASSERT_EQ(command(eCommandProcess, 10), 1);
    m_inputs.strFilename = m_oFolder / "none";
    m_inputs.strNote = "{}";
    ASSERT_EQ(m_placed.execute(eCommandEnd, m_inputs), 0);
    EXPECT_FALSE(readReferenceFile(m_oFolder / "none").geometry.isKnown());

    // Where no image tells, the camera's settings do.
    m_places.place = {};
    ASSERT_EQ(command(eCommandStartDark, 0), 0);
    ASSERT_EQ(command(eCommandProcess, 10), 1);
    m_inputs.strNote = R"({"Gain":1.5,"SensorWidth":32,"SensorHeight":4,"OffsetX":4.0,"OffsetY":0,)"
                       R"("BinningHorizontal":1,"BinningHorizontalMode":"Average","BinningVertical":1,)"
                       R"("BinningVerticalMode":"Average","ReverseX":false,"Other":null})";
    ASSERT_EQ(m_placed.execute(eCommandEnd, m_inputs), 0);
    EXPECT_EQ(readReferenceFile(m_oFolder / "none").geometry, at(4));
}

TEST_F(PlacedProcessor, WhatCannotBeDerivedIsLeftUntouchedAndTracedOnce) {
    ASSERT_EQ(command(eCommandApply, 0), 0);
    m_places.place = at(9);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 0);
    EXPECT_EQ(unpack(layoutOf("Mono12", 8, 4), m_vecImage)[5], 90);
    EXPECT_NE(m_placed.correction().find("window 8 x 4 at 9, 0"), std::string::npos) << m_placed.correction();
    constexpr uint64_t MOST = ~uint64_t{0};
    const GeometryAxis y = at(0).y;
    const struct {
        const char* pTrace;
        ImageGeometry place;
    } CASES[] = {{"outside the reference", at(3)},
                 {"outside the reference", at(MOST - 3)},
                 {"outside the reference", {{32, 8, 0, eBinningSum, true}, y}},
                 {"a sensor of another size", {{MOST, MOST, MOST, eBinningSum, true}, y}},
                 {"binned pixels are made is not known", {{32, 2, 2, eBinningUnknown, false}, y}}};
    for (const auto& rCase : CASES) {
        m_places.place = rCase.place;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(command(eCommandProcess, 100, 8), 1);
            EXPECT_EQ(unpack(layoutOf("Mono12", 8, 4), m_vecImage)[5], 100);
        }
        EXPECT_EQ(traces(rCase.pTrace), 1U) << rCase.pTrace;
    }
    EXPECT_EQ(traces("; reference: window 16 x 4 at 4, 0 of a sensor of 32 x 4"), 3U) << "with the numbers";
    // An apply needs no present place: each image tells its own.
    EXPECT_EQ(command(eCommandApply, 0, 8), 0);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 1);
    EXPECT_NE(command(eCommandApply, 0, 17), 0) << "a size that does not fit";
    m_places.place = {};
    EXPECT_EQ(command(eCommandProcess, 100), 0) << "the size of the reference, and nobody knows where";
}

// To search a place takes memory: a stream whose place is refused is searched for once, and again where the references
// are others.
TEST_F(PlacedProcessor, ARefusedPlaceCostsOneSearchForEachApply) {
    ASSERT_EQ(command(eCommandApply, 0), 0);
    const std::vector<uint64_t> OFFSETS = {0, 1, 2, 3};
    for (const unsigned iRound : {0U, 1U, 2U}) {
        for (const uint64_t nOffset : OFFSETS) {
            m_places.place = at(nOffset);
            setImage("Mono12", 8, 4, 100);
            const uint64_t nBefore = Allocations::done();
            ASSERT_EQ(m_placed.execute(eCommandProcess, m_inputs), 1);
            EXPECT_EQ(Allocations::done() == nBefore, iRound != 0) << nOffset << ", round " << iRound;
        }
    }
    m_places.place = at(3);
    EXPECT_EQ(command(eCommandProcess, 100, 9), 1) << "makes the oldest forgotten";
    m_places.place = at(4);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 0) << "a refused one says nothing about others";

    // The same place, now held by the reference; and the other way round.
    m_places.place = at(0);
    ASSERT_EQ(command(eCommandStartDark, 0, 16), 0);
    ASSERT_EQ(command(eCommandProcess, 10, 16), 1);
    m_inputs.strFilename = m_oFolder / "first";
    ASSERT_EQ(m_placed.execute(eCommandEnd, m_inputs), 0);
    m_places.place = at(3);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 1) << "a reference is none before it is applied";
    ASSERT_EQ(command(eCommandApply, 0), 0);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 0);
    EXPECT_EQ(unpack(layoutOf("Mono12", 8, 4), m_vecImage)[5], 90);
    m_places.place = at(9);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 1);
    m_inputs.strFilename = m_oFolder / "dark";
    ASSERT_EQ(m_placed.execute(eCommandLoadDark, m_inputs), 0);
    ASSERT_EQ(command(eCommandApply, 0, 8), 0);
    EXPECT_EQ(command(eCommandProcess, 100, 8), 0);
}

TEST_F(PlacedProcessor, UnknownPlacesTakeTheReferenceAsItIs) {
    ASSERT_EQ(command(eCommandApply, 0, 8), 0) << "a size that fits";
    for (const bool bThrows : {false, true}) {
        m_places.bThrows = bThrows;
        m_places.place = bThrows ? at(4) : ImageGeometry{};
        EXPECT_EQ(command(eCommandProcess, 100), 0) << "the size of the reference";
        EXPECT_EQ(command(eCommandProcess, 100, 8), 1);
    }
    EXPECT_EQ(traces("nobody knows where it lies"), 1U) << "the reference is a window";
    EXPECT_EQ(traces("another size"), 1U);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
