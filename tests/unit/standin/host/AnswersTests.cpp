// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host tells an application: traces to its sink, the last error of a thread, what became of a frame.

#include "xapel2_standin/Answers.h"

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <tuple>

#include "HostFixture.h"
#include "TemporaryFolder.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelTrace.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

enum eCommand : int64_t { eProcess = 2, eApply = 3, eLoadDark = 5, eStartDark = 7, eStartLight = 8, eEnd = 9 };

// An image processor, used by its nodes as an extension library does.
class CProcessor {
public:
    int64_t run(int64_t iCommand, const std::string& strFile = "") {
        node(SHADING_NODE_FILE_NAME).SetString(strFile.c_str());
        node(SHADING_NODE_COMMAND).SetInt(iCommand);
        return node(SHADING_NODE_STATUS).GetInt();
    }
    int64_t run(int64_t iCommand, int64_t nWidth, int64_t nHeight, const void* pImage, int64_t nBytes) {
        node(SHADING_NODE_PIXEL_FORMAT).SetString("Mono8");
        node(SHADING_NODE_WIDTH).SetInt(nWidth);
        node(SHADING_NODE_HEIGHT).SetInt(nHeight);
        node(SHADING_NODE_BUFFER_SIZE).SetInt(nBytes);
        node(SHADING_NODE_BUFFER).SetInt(static_cast<int64_t>(reinterpret_cast<uintptr_t>(pImage)));
        return run(iCommand);
    }
    int64_t process(const void* pImage) { return run(eProcess, 64, 48, pImage, 64 * 48); }
    // Applies a dark reference of this size.
    void applyDark(int64_t nWidth, int64_t nHeight, const std::string& strFile) {
        const std::vector<uint8_t> vecDark(static_cast<std::size_t>(nWidth * nHeight), 3);
        EXPECT_EQ(run(eStartDark), 0);
        EXPECT_EQ(run(eProcess, nWidth, nHeight, vecDark.data(), nWidth * nHeight), 1);
        EXPECT_EQ(run(eEnd, strFile), 0);
        EXPECT_EQ(run(eApply, nWidth, nHeight, nullptr, 0), 0);
    }

private:
    Node& node(const char* pName) { return *m_processor.GetNodeList()->GetNode(pName); }
    ImageProcessor m_processor;
};

class Answers : public HostFixture {
protected:
    using Outcome = std::pair<uint64_t, std::string>;

    ~Answers() override {
        setReferenceNote("");
        clearLastError();
    }

    std::string reason(BufferHandle hBuffer) {
        char acText[256] = {};
        unsigned long long nSize = sizeof acText;
        EXPECT_EQ(GC_ERR_SUCCESS,
                  getBufferInfo(m_pStream, hBuffer, BUFFER_INFO_STANDIN_CORRECTION_REASON, nullptr, acText, &nSize));
        return acText;
    }
    Outcome outcome(BufferHandle hBuffer) {
        return {bufferNumber(hBuffer, BUFFER_INFO_STANDIN_CORRECTION), reason(hBuffer)};
    }
    unsigned char* imageOf(BufferHandle hBuffer) {
        return reinterpret_cast<unsigned char*>(bufferNumber(hBuffer, BUFFER_INFO_BASE)) +
               bufferNumber(hBuffer, BUFFER_INFO_IMAGEOFFSET);
    }

    // From now on, each fetch hands its complete frames to these processors in order.
    void hand(std::vector<CProcessor*> vecProcessors) {
        m_hook.fnFetch = [this, vecProcessors](void** ppBuffer, unsigned long long iTimeoutMs) {
            const int iResult = m_hook.pfnFetch(ppBuffer, iTimeoutMs, m_hook.pFetch);
            if (bufferNumber(*ppBuffer, BUFFER_INFO_IS_INCOMPLETE) == 0 &&
                bufferNumber(*ppBuffer, BUFFER_INFO_IMAGEPRESENT) != 0) {
                for (CProcessor* pProcessor : vecProcessors) {
                    pProcessor->process(imageOf(*ppBuffer));
                }
            }
            return iResult;
        };
        EXPECT_TRUE(m_hook.put(Control::eHookFetch, m_pDevice, m_pStream));
    }

    XAPEL2::Test::CTemporaryFolder m_folder;
    HookSide m_hook;
    CProcessor m_processor;
};

TEST_F(Answers, EachFrameTellsWhatBecameOfIt) {
    Control::recordTraces(true);
    Control::setImageOffset(16);
    startStream(1);
    const auto fnNext = [&] {
        const BufferHandle hBuffer = nextFrame();
        const Outcome result = outcome(hBuffer);
        EXPECT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, hBuffer));
        return result;
    };
    EXPECT_EQ(fnNext(), Outcome(eNotHanded, "no image processor got the frame"));
    hand({&m_processor});
    // The camera fills a buffer as soon as it is queued: a frame with a fault is the one after the next.
    const auto fnAfterNext = [&](Control::eBufferFault eFault) {
        Control::setBufferFaults([eFault](uint64_t) { return eFault; });
        fnNext();
        return fnNext();
    };
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(fnNext(), Outcome(eLeftUntouched, "no reference is applied")) << i;
    }
    EXPECT_EQ(XapelTest::traceTexts(2).size(), 1U) << "traced once, told each time";
    m_processor.applyDark(32, 24, m_folder / "small.tif");
    EXPECT_EQ(fnNext(), Outcome(eLeftUntouched, "a reference is applied for another size"));
    m_processor.applyDark(64, 48, m_folder / "dark.tif");
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(fnNext(), Outcome(eCorrected, "")) << i;
    }
    EXPECT_EQ(fnAfterNext(Control::eIncomplete), Outcome(eNotHanded, "the frame is incomplete"));
    EXPECT_EQ(fnAfterNext(Control::eNoImage), Outcome(eNotHanded, "the frame has no image"));
    EXPECT_EQ(fnAfterNext(Control::eGood), Outcome(eCorrected, "")) << "nothing stays with the buffer";
    EXPECT_EQ(m_processor.run(eStartDark), 0);
    EXPECT_EQ(fnNext(), Outcome(eRecorded, "a recording is running"));
}

TEST_F(Answers, ImageThatIsHandedOverByItsAddressCountsUntilItsBufferIsQueued) {
    startStream(2, 3);
    const BufferHandle hBuffer = nextFrame(), hOther = nextFrame();
    m_processor.applyDark(64, 48, m_folder / "dark.tif");
    EXPECT_EQ(outcome(hBuffer).first, eNotHanded) << "images in memory of the application are nobody's";
    EXPECT_EQ(m_processor.run(eProcess, 64, 48, imageOf(hBuffer), 7), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(outcome(hBuffer), Outcome(eRefused, "the image is impossible"));
    m_processor.process(imageOf(hBuffer));
    EXPECT_EQ(outcome(hBuffer).first, eCorrected);
    EXPECT_EQ(outcome(hOther).first, eNotHanded);
    ASSERT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, hBuffer));
    ASSERT_TRUE(waitForFilled(1));
    m_processor.process(imageOf(hBuffer));
    EXPECT_EQ(outcome(hBuffer).first, eNotHanded) << "the camera's, not the application's";
    EXPECT_EQ(outcome(nextFrame()).first, eNotHanded);
}

// Memory that two buffers share is an image of both; that of a revoked one is nobody's.
TEST_F(Answers, ImageIsFoundInTheBufferThatHasItsMemory) {
    Control::setImageOffset(8);
    const std::size_t nBytes = payloadSize(m_pStream);
    std::vector<unsigned char> vecMemory(4 * nBytes);
    std::vector<BufferHandle> vecBuffers(5);
    const std::size_t aPlaces[] = {3, 0, 2, 2, 1};
    for (std::size_t i = 0; i < vecBuffers.size(); ++i) {
        ASSERT_EQ(GC_ERR_SUCCESS,
                  announceBuffer(m_pStream, vecMemory.data() + aPlaces[i] * nBytes, nBytes, &vecBuffers[i]));
        ASSERT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, vecBuffers[i]));
    }
    ASSERT_EQ(GC_ERR_SUCCESS, startAcquisition(m_pStream, vecBuffers.size()));
    for (const BufferHandle hBuffer : vecBuffers) {
        ASSERT_EQ(nextFrame(), hBuffer);
    }
    const auto fnCodes = [&] {
        std::string strCodes;
        for (const BufferHandle hBuffer : vecBuffers) {
            strCodes += std::to_string(outcome(hBuffer).first);
        }
        return strCodes;
    };
    m_processor.applyDark(64, 48, m_folder / "dark.tif");
    m_processor.process(vecMemory.data() + 2 * nBytes + 7);
    EXPECT_EQ(fnCodes(), "00000") << "no image begins there";
    m_processor.process(vecMemory.data() + 2 * nBytes + 8);
    EXPECT_EQ(fnCodes(), "00110");
    m_processor.process(vecMemory.data() + 8);
    EXPECT_EQ(fnCodes(), "01110");
    for (unsigned i = 0; i < 2; ++i) {
        ASSERT_EQ(GC_ERR_SUCCESS, revokeBuffer(m_pStream, vecBuffers.back()));
        vecBuffers.pop_back();
    }
    m_processor.process(vecMemory.data() + nBytes + 8);
    m_processor.process(vecMemory.data() + 3 * nBytes + 8);
    EXPECT_EQ(fnCodes(), "111");
    CProcessor().process(vecMemory.data() + 2 * nBytes + 8);
    EXPECT_NE(reason(vecBuffers.back()), "") << "the one that is left of the two";
}

TEST_F(Answers, OneOfSeveralProcessorsCorrectsAFrame) {
    startStream(4);
    CProcessor idle;
    m_processor.applyDark(64, 48, m_folder / "dark.tif");
    const Outcome mixed(eCorrected, "corrected once, but not by all: no reference is applied");
    const std::vector<std::pair<std::vector<CProcessor*>, Outcome>> vecCases = {
        {{&m_processor, &idle}, mixed},
        {{&idle, &m_processor}, mixed},
        {{&m_processor, &m_processor}, {eCorrected, ""}},
        {{&idle, &idle}, {eLeftUntouched, "no reference is applied"}}};
    for (const auto& [vecProcessors, expected] : vecCases) {
        hand(vecProcessors);
        EXPECT_EQ(outcome(nextFrame()), expected);
    }
}

TEST_F(Answers, FailedCommandIsTheLastErrorOfItsThread) {
    EXPECT_EQ(lastError().iCode, 0);
    std::thread([&] { EXPECT_EQ(m_processor.run(eLoadDark, m_folder / "none.tif"), GC_ERR_IO); }).join();
    EXPECT_EQ(lastError().iCode, 0) << "another thread's";
    CProcessor recorder;
    recorder.run(eStartDark);
    const std::array<std::tuple<std::function<int64_t()>, const char*>, 8> aCases = {{
        {[&] { return m_processor.run(eLoadDark, m_folder / "none.tif"); }, "cannot open: No such file or directory"},
        {[&] { return m_processor.run(eApply, 64, 48, nullptr, 0); },
         "cannot apply to Mono8 64x48; there is no reference"},
        {[&] { return m_processor.run(eApply, 0, 48, nullptr, 0); },
         "cannot apply to Mono8 0x48; unknown format or impossible size"},
        {[&] { return m_processor.run(eEnd, ""); }, "no recording is running"},
        {[&] { return recorder.run(eEnd, ""); }, "the recording has no image"},
        {[&] { return recorder.run(eStartLight); }, "a recording is running"},
        {[&] { return recorder.run(eLoadDark, ""); }, "a recording is running"},
        {[&] { return m_processor.process(nullptr); }, "the image is impossible"},
    }};
    for (const auto& [fnRun, pText] : aCases) {
        SCOPED_TRACE(pText);
        clearLastError();
        EXPECT_EQ(lastError().strText, "");
        const int64_t iStatus = fnRun();
        EXPECT_LT(iStatus, 0);
        EXPECT_EQ(lastError().iCode, iStatus);
        EXPECT_EQ(lastError().strText, pText);
    }
    recorder.run(1);
    EXPECT_NE(lastError().iCode, 0) << "success leaves it alone";
}

TEST_F(Answers, ForcedStatusStandsForTheCommandInItsLastErrorToo) {
    const std::string strMissing = m_folder / "none.tif";
    Control::forceStatus(0, -77);
    EXPECT_EQ(m_processor.run(eLoadDark, strMissing), -77);
    EXPECT_EQ(lastError().iCode, -77);
    EXPECT_EQ(lastError().strText, "cannot open: No such file or directory");
    Control::forceStatus(0, 3);
    EXPECT_EQ(m_processor.run(eLoadDark, strMissing), 3);
    EXPECT_EQ(lastError().iCode, -77) << "success leaves it alone";
    Control::reset();
    EXPECT_EQ(m_processor.run(eLoadDark, strMissing), GC_ERR_IO);
    EXPECT_EQ(lastError().iCode, GC_ERR_IO);
}

TEST_F(Answers, SinkTakesTheTracesInPlaceOfThePrint) {
    const int32_t iError = 2;
    std::vector<std::string> vecTold;
    testing::internal::CaptureStderr();
    setTraceSink([&](int32_t iLevel, const std::string& rText) {
        vecTold.push_back(std::to_string(iLevel) + rText);
        if (vecTold.size() == 3) {
            throw std::runtime_error("sink");
        }
    });
    extT(nullptr, "ordinary");
    extT(&iError, "error");
    extT(&iError, "dropped");
    setTraceSink(nullptr);
    extT(nullptr, "ordinary");
    extT(&iError, "printed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "printed\n");
    EXPECT_EQ(vecTold, (std::vector<std::string>{"0ordinary", "2error", "2dropped"}));
}

// What a sink owns lives as long as a call of it; each trace goes to one sink, or is printed.
TEST_F(Answers, SinkIsReplacedWhileOthersTrace) {
    struct Count {
        explicit Count(std::atomic<uint64_t>& rAll) : rTotal(rAll) {}
        ~Count() {
            rTotal += nTraces;
            bEnded = true;
            extT(nullptr, "an end that traces");
        }
        std::atomic<uint64_t>& rTotal;
        std::atomic<uint64_t> nTraces{0};
        bool bEnded = false;
    };
    constexpr unsigned THREADS = 3, TRACES = 3000;
    const int32_t iError = 2;
    std::atomic<uint64_t> nTotal{0};
    std::atomic<unsigned> nRunning{THREADS};
    std::atomic<bool> bBegin{false};
    testing::internal::CaptureStderr();
    std::vector<std::thread> vecThreads;
    for (unsigned i = 0; i < THREADS; ++i) {
        vecThreads.emplace_back([&] {
            while (!bBegin) {
                std::this_thread::yield();
            }
            for (unsigned n = 0; n < TRACES; ++n) {
                extT(&iError, "x");
            }
            --nRunning;
        });
    }
    for (unsigned i = 0; nRunning != 0 || i < 100; ++i) {
        const auto pCount = std::make_shared<Count>(nTotal);
        setTraceSink([pCount](int32_t iLevel, const std::string&) {
            EXPECT_FALSE(pCount->bEnded);
            pCount->nTraces += iLevel == 2 ? 1 : 0;
        });
        bBegin = true;
        if (i % 5 == 4) {
            setTraceSink(nullptr);
        }
    }
    for (std::thread& rThread : vecThreads) {
        rThread.join();
    }
    setTraceSink(nullptr);
    EXPECT_EQ(nTotal + testing::internal::GetCapturedStderr().size() / 2, THREADS * TRACES);
}

TEST_F(Answers, ReferencesOfAThreadCarryItsNote) {
    const auto fnCamera = [&] {
        m_processor.applyDark(8, 4, m_folder / "dark.tif");
        return readReferenceFile(m_folder / "dark.tif").strCamera;
    };
    constexpr std::size_t LONGEST = 63 << 10;
    const auto fnLong = [](std::size_t nBytes) { return R"({"a":")" + std::string(nBytes - 8, 'x') + R"("})"; };
    const auto fnDeep = [](unsigned nLevels) {
        std::string strText = "1";
        for (unsigned i = 0; i < nLevels; ++i) {
            strText = R"({"a":)" + strText + "}";
        }
        return strText;
    };
    EXPECT_EQ(fnCamera(), "");
    for (const std::string& strNote : {std::string(R"({"Gain":1.5,"ReverseX":true})"), fnLong(LONGEST), fnDeep(7)}) {
        setReferenceNote(strNote);
        EXPECT_EQ(fnCamera(), strNote);
        EXPECT_EQ(fnCamera(), strNote) << "from now on";
    }
    for (const std::string& strBad :
         {fnLong(LONGEST + 1), fnDeep(8), std::string("{"), std::string("null"), std::string("[1]"),
          std::string(R"({"a":1},"kind":"light")"), std::string("{}\0{}", 5), std::string("{\"a\":\"\xff\"}")}) {
        EXPECT_THROW(setReferenceNote(strBad), Exceptions::Xapel_InvalidParameterException) << strBad.substr(0, 40);
        EXPECT_EQ(fnCamera(), fnDeep(7)) << "the note before stays";
    }
    std::thread([&] { EXPECT_EQ(fnCamera(), "") << "another thread's"; }).join();
    setReferenceNote("");
    EXPECT_EQ(fnCamera(), "");
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
