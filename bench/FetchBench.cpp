// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// fetch-bench: what the library adds to a fetch, and what its gate takes.
//
//     fetch-bare/host          a fetch without the library
//     fetch-forwarded/host     the same through a hook that only calls the host's own fetch
//     fetch-off/ours           with the library, correction off
//     fetch-on/ours            with correction on
//     processor/host           the five node writes and the command for such a frame, by themselves; as this is no
//                              fetch, with a look among all announced buffers for the one that has the image
//
// The host's own share is measured by itself, so that the library's can be told: with correction off it is what
// fetch-off takes more than fetch-forwarded, with it on what fetch-on takes more than fetch-off and processor, the
// host's answers to what it asks about the buffer included.

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include "Rounds.h"
#include "ShadingNodes.h"
#include "TemporaryFolder.h"
#include "TinyStream.h"
#include "XapelAccessControl.h"
#include "xapel2/GenTLCodes.h"
#include "xapel2/XapelBypassRegistration.h"
#include "xapel2_ext_sc.h"

namespace {

using namespace XapelBench;
using XAPEL2::Ext::Sc::Shading;

constexpr uint8_t DARK = 30;  // the dark reference; there is no light reference, so corrected pixels are PIXEL - DARK

/// The smallest hook that there can be.
class CForwarder {
public:
    explicit CForwarder(XAPEL2::DataStream* pStream) : m_pStream(pStream) {
        registerBypass_DataStreamEventControlGetFilledBuffer(m_pStream, &fetch, this, &m_pfnHost, &m_pHandle);
    }
    ~CForwarder() { registerBypass_DataStreamEventControlGetFilledBuffer(m_pStream, nullptr, this, nullptr, nullptr); }
    CForwarder(const CForwarder&) = delete;
    CForwarder& operator=(const CForwarder&) = delete;

private:
    static int fetch(void** ppBuffer, unsigned long long iTimeout, void* pContext) {
        const auto* pSelf = static_cast<const CForwarder*>(pContext);
        return pSelf->m_pfnHost(ppBuffer, iTimeout, pSelf->m_pHandle);
    }
    XAPEL2::DataStream* m_pStream;
    DataStreamGetFilledBufferFunc m_pfnHost = nullptr;
    void* m_pHandle = nullptr;
};

/// Takes the states of a stream one after another.
class CFetchBench {
public:
    enum eState { eBare, eForwarded, eOff, eOn };

    explicit CFetchBench(const Options& rOptions) : m_nFrames(rOptions.bQuick ? 200 : 20000), m_stream(m_nFrames) {
        Shading recorder(m_stream.device());
        uint8_t uDark = DARK;
        recorder.ReferenceStart(false);
        recorder.ReferenceAdd("Mono8", 1, 1, &uDark, 1);
        recorder.ReferenceEnd((m_folder / "dark.tif").c_str());
        m_nodes.file(XAPEL2::eCommandLoadDark, m_folder / "dark.tif");
        m_nodes.apply({XAPEL2::StandIn::findPixelFormat("Mono8"), 1, 1});
    }

    void addFetch(CRounds& rRounds, const char* pName, eState eWanted) {
        const auto fnPrepare = [this, eWanted] {
            enter(eWanted);
            m_stream.fill();
        };
        fnPrepare();
        m_stream.fetch(m_nFrames);
        m_stream.requirePixels(eWanted == eOn ? CTinyStream::PIXEL - DARK : CTinyStream::PIXEL);
        rRounds.add({pName, [this](uint64_t nTimes) { m_stream.fetch(nTimes); }, fnPrepare, m_nFrames, true});
    }

    void addProcessor(CRounds& rRounds) {
        m_uPixel = CTinyStream::PIXEL;
        m_nodes.process("Mono8", 1, 1, 1, &m_uPixel);
        m_nodes.require();
        if (m_uPixel != CTinyStream::PIXEL - DARK) {
            throw std::runtime_error("wrong result of the image processor");
        }
        rRounds.add({"processor/host", [this](uint64_t nTimes) {
                         for (uint64_t i = 0; i < nTimes; ++i) {
                             m_nodes.process("Mono8", 1, 1, 1, &m_uPixel);
                         }
                     }});
    }

private:
    void enter(eState eWanted) {
        m_pShading.reset();
        m_pForwarder.reset();
        if (eWanted == eForwarded) {
            m_pForwarder = std::make_unique<CForwarder>(m_stream.stream());
        }
        if (eWanted < eOff) {
            return;
        }
        m_pShading = std::make_unique<Shading>(m_stream.device());
        if (eWanted == eOff) {
            return;
        }
        m_pShading->ReferenceLoad(false, (m_folder / "dark.tif").c_str());
        m_pShading->ReferenceApply();
        m_pShading->SetEnable(true);
    }

    const XAPEL2::Test::CTemporaryFolder m_folder;
    const uint64_t m_nFrames;
    CTinyStream m_stream;
    std::unique_ptr<CForwarder> m_pForwarder;
    std::unique_ptr<Shading> m_pShading;  // before the stream's device is closed
    CShadingNodes m_nodes;
    uint8_t m_uPixel = 0;
};

/// The mutex beside the words, as a hub has them.
struct Gate {
    XapelMutex mtx;
    XapelAccessControlData data;

    void enterAndLeave(unsigned uFlags) {
        const CXapelAccessControl guard(mtx, data, CXapelAccessControl::eShared, uFlags);
    }
};

using Loop = std::function<void(uint64_t nTimes)>;

/// Runs the loop on two threads that start together; the time is that of the slower one.
void onTwoThreads(const Loop& rLoop, uint64_t nTimes) {
    std::atomic<int> nReady{0};
    const auto fnRun = [&] {
        for (++nReady; nReady != 2;) {
            xapelSpinPause();
        }
        rLoop(nTimes);
    };
    std::thread other(fnRun);
    fnRun();
    other.join();
}

template <typename Step>
Loop repeat(Step fnStep) {
    return [=](uint64_t nTimes) {
        for (uint64_t i = 0; i < nTimes; ++i) {
            fnStep();
        }
    };
}

/// A shared guard of the gate with and without a flag beside the standard locks, from one thread and from two at once.
void benchGate(const Options& rOptions) {
    alignas(64) std::mutex mutex;
    alignas(64) std::shared_mutex sharedMutex;
    alignas(64) Gate gate;
    const struct {
        const char* pName;
        Loop fnLoop;
    } aSubjects[] = {
        {"mutex", repeat([&] { const std::lock_guard<std::mutex> lock(mutex); })},
        {"shared_mutex", repeat([&] { const std::shared_lock<std::shared_mutex> lock(sharedMutex); })},
        {"ours", repeat([&] { gate.enterAndLeave(0); })},
        {"ours-flags", repeat([&] { gate.enterAndLeave(1); })},
    };
    CRounds rounds(rOptions);
    for (const auto& rSubject : aSubjects) {
        rounds.add({std::string("gate-1-thread/") + rSubject.pName, rSubject.fnLoop, {}, 1000});
    }
    // Many times: starting a thread must not count.
    for (const auto& rSubject : aSubjects) {
        rounds.add({std::string("gate-2-threads/") + rSubject.pName,
                    [&](uint64_t nTimes) { onTwoThreads(rSubject.fnLoop, nTimes); },
                    {},
                    rOptions.bQuick ? 1000U : 100000U,
                    false,
                    true});
    }
    rounds.run();
    if (gate.data.Flags() != 0 || !gate.data.IsExclusive()) {
        throw std::runtime_error("wrong result: the gate is not empty");
    }
    for (std::size_t i = 0; i < 2 * std::size(aSubjects); ++i) {
        rounds.print(i, rounds.name(i));
    }
}

void bench(const Options& rOptions) {
    CFetchBench fetches(rOptions);
    CRounds rounds(rOptions);
    fetches.addFetch(rounds, "fetch-bare/host", CFetchBench::eBare);
    fetches.addFetch(rounds, "fetch-forwarded/host", CFetchBench::eForwarded);
    fetches.addFetch(rounds, "fetch-off/ours", CFetchBench::eOff);
    fetches.addFetch(rounds, "fetch-on/ours", CFetchBench::eOn);
    fetches.addProcessor(rounds);
    rounds.run();
    for (std::size_t i = 0; i < 5; ++i) {
        rounds.print(i, rounds.name(i));
    }
    benchGate(rOptions);
}

}  // namespace

int main(int argc, char** argv) {
    return guarded(argc, argv, bench);
}
