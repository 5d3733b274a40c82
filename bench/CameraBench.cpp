// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// camera-bench: frames lost from a GigE Vision camera of 1024x1024 pixels Mono8 at 200 frames/s, correction off and on.
//
// The camera is a process of its own that sends over the loopback of a network of its own. Frames are numbered by the
// camera, so that those that never arrive are counted too. Each complete frame is compared with what it must be.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include <sys/wait.h>

#include "FakeCamera.h"
#include "Rounds.h"
#include "xapel2/GenTLCodes.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

namespace {

using namespace XapelBench;
using namespace XAPEL2::StandIn;

constexpr unsigned BUFFERS = 40;  // a fifth of a second
constexpr unsigned TIMEOUT_MS = 5000;

void require(bool bDone, const char* pStep) {
    if (!bDone) {
        throw std::runtime_error(std::string(pStep) + " failed");
    }
}

/// The camera's process.
class CCameraProcess {
public:
    CCameraProcess() {
        int aiPipe[2];
        require(pipe(aiPipe) == 0, "a pipe");
        m_iProcess = fork();
        require(m_iProcess >= 0, "fork");
        if (m_iProcess == 0) {
            close(aiPipe[1]);
            send(aiPipe[0]);
        }
        close(aiPipe[0]);
        m_iPipe = aiPipe[1];
    }
    ~CCameraProcess() {
        close(m_iPipe);
        waitpid(m_iProcess, nullptr, 0);
    }
    CCameraProcess(const CCameraProcess&) = delete;
    CCameraProcess& operator=(const CCameraProcess&) = delete;

private:
    // Sends a ramp that never changes until the other end of the pipe is closed.
    [[noreturn]] static void send(int iPipe) {
        std::vector<uint8_t> vecRamp;
        const XapelTest::CFakeCamera camera([&](const PixelFormat&, uint64_t nWidth, uint64_t nHeight, void* pImage) {
            if (vecRamp.size() != nWidth * nHeight) {
                vecRamp.resize(nWidth * nHeight);
                for (std::size_t i = 0; i < vecRamp.size(); ++i) {
                    vecRamp[i] = static_cast<uint8_t>(100 + 100 * (i % nWidth) / nWidth);
                }
            }
            std::memcpy(pImage, vecRamp.data(), vecRamp.size());
        });
        char c = 0;
        while (read(iPipe, &c, 1) > 0) {
        }
        _exit(0);
    }

    int m_iPipe = -1;
    pid_t m_iProcess = -1;
};

class CCameraBench {
public:
    explicit CCameraBench(unsigned nSide) : m_pDevice(openWhenThere()), m_pStream(firstDataStream(m_pDevice)) {
        for (const char* pName : {"Width", "Height"}) {
            remoteNodes(m_pDevice)->GetNode(pName)->SetInt(nSide);
        }
        remoteNodes(m_pDevice)->GetNode("AcquisitionFrameRate")->SetInt(200);
        require(openDataStream(m_pDevice, m_pStream) == 0, "opening the stream");
        for (unsigned i = 0; i < BUFFERS; ++i) {
            BufferHandle hBuffer = nullptr;
            require(allocAndAnnounceBuffer(m_pStream, payloadSize(m_pStream), &hBuffer) == 0, "announcing a buffer");
            require(queueBuffer(m_pStream, hBuffer) == 0, "queueing a buffer");
        }
    }
    ~CCameraBench() { closeDevice(m_pDevice); }
    CCameraBench(const CCameraBench&) = delete;
    CCameraBench& operator=(const CCameraBench&) = delete;

    XAPEL2::Device* device() const { return m_pDevice; }

    struct Result {
        uint64_t iFirst = 0, iLast = 0, nComplete = 0, nIncomplete = 0;
        std::vector<uint8_t> vecFirst;  // complete
    };
    /// Fetches nFrames frames; complete ones must all be alike.
    Result run(uint64_t nFrames) {
        Result result;
        require(startAcquisition(m_pStream, nFrames) == 0, "starting the camera");
        for (uint64_t i = 0; i < nFrames; ++i) {
            BufferHandle hBuffer = nullptr;
            require(getFilledBuffer(m_pStream, &hBuffer, TIMEOUT_MS) == 0, "fetching a frame");
            const auto iFrame = info<uint64_t>(hBuffer, BUFFER_INFO_FRAMEID);
            result.iFirst = i == 0 ? iFrame : result.iFirst;
            result.iLast = iFrame;
            if (info<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE)) {
                ++result.nIncomplete;
            } else {
                const auto* pBytes = static_cast<const uint8_t*>(info<void*>(hBuffer, BUFFER_INFO_BASE));
                if (result.nComplete++ == 0) {
                    result.vecFirst.assign(pBytes, pBytes + payloadSize(m_pStream));
                }
                require(std::memcmp(pBytes, result.vecFirst.data(), result.vecFirst.size()) == 0, "comparing a frame");
            }
            require(queueBuffer(m_pStream, hBuffer) == 0, "queueing a buffer");
        }
        return result;
    }

private:
    static XAPEL2::Device* openWhenThere() {
        for (int i = 0;; ++i) {
            try {
                return openDevice("aravis:127.0.0.1");
            } catch (const XAPEL2::Exceptions::Xapel_NotAvailableException&) {
                if (i == 10) {
                    throw;
                }
            }
        }
    }
    template <typename T>
    T info(BufferHandle hBuffer, int iInfoCmd) const {
        T value{};
        unsigned long long nSize = sizeof value;
        require(getBufferInfo(m_pStream, hBuffer, iInfoCmd, nullptr, &value, &nSize) == 0, "asking for a property");
        return value;
    }

    XAPEL2::Device* m_pDevice;
    XAPEL2::DataStream* m_pStream;
};

void report(const Options& rOptions, bool bOn, const CCameraBench::Result& rResult, double dSeconds) {
    // The numbers of GigE Vision go from 1 to 65535 and round.
    const uint64_t nSent = (rResult.iLast + 65535 - rResult.iFirst) % 65535 + 1;
    note(rOptions, "correction %-3s  %llu frames sent, %llu lost (%llu of them came incomplete), %.1f frames/s",
         bOn ? "on" : "off", static_cast<unsigned long long>(nSent),
         static_cast<unsigned long long>(nSent - rResult.nComplete),
         static_cast<unsigned long long>(rResult.nIncomplete), static_cast<double>(rResult.nComplete) / dSeconds);
}

void bench(const Options& rOptions) {
    XapelTest::enterOwnNetwork();
    const CCameraProcess camera;
    CCameraBench cameraBench(rOptions.bQuick ? 128 : 1024);
    const uint64_t nFrames = rOptions.bQuick ? 50 : 2000;
    const XAPEL2::Test::CTemporaryFolder folder;
    XAPEL2::Ext::Sc::Shading shading(cameraBench.device());
    shading.ReferenceStart(true);
    shading.SetEnable(true);
    cameraBench.run(4);
    shading.ReferenceEnd((folder / "light.tif").c_str());
    shading.ReferenceApply();
    for (const bool bOn : {false, true}) {
        shading.SetEnable(bOn);
        const auto tBegin = std::chrono::steady_clock::now();
        const auto result = cameraBench.run(nFrames);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - tBegin;
        const auto [itLeast, itMost] = std::minmax_element(result.vecFirst.begin(), result.vecFirst.end());
        require(result.vecFirst.empty() || bOn == (*itMost - *itLeast <= 1), "correcting a frame");
        report(rOptions, bOn, result, taken.count());
    }
}

}  // namespace

int main(int argc, char** argv) {
    return guarded(argc, argv, bench);
}
