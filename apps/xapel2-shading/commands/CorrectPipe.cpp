// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct in a pipe: raw frames from standard input.

#include "commands/CorrectPipe.h"

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include "standin/files/SampleBytes.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/frames/CorrectionMark.h"
#include "toolkit/frames/FrameWorkers.h"
#include "toolkit/frames/FrameWriter.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/FrameCorrector.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

using Buffer = std::vector<unsigned char>;

constexpr std::size_t RING_FRAMES = 4;

// FORMAT:WIDTHxHEIGHT
StandIn::ImageLayout parseStream(const std::string& strStream) {
    const std::size_t iColon = std::min(strStream.find(':'), strStream.size());
    StandIn::ImageLayout layout;
    layout.pFormat = StandIn::findPixelFormat(strStream.substr(0, iColon));
    unsigned long long nWidth = 0, nHeight = 0;
    int nRead = 0;
    const std::string strSize = strStream.substr(std::min(iColon + 1, strStream.size()));
    const bool bSize = strSize.find_first_not_of("0123456789x") == std::string::npos && strSize.size() < 20 &&
                       std::sscanf(strSize.c_str(), "%llux%llu%n", &nWidth, &nHeight, &nRead) == 2 &&
                       static_cast<std::size_t>(nRead) == strSize.size();
    layout.nWidth = nWidth;
    layout.nHeight = nHeight;
    if (!bSize || !layout.isPossible()) {
        throw CUsageError("--stream takes a pixel format and a size, such as Mono16:1920x1080, not '" + strStream +
                          "'");
    }
    return layout;
}

[[noreturn]] void failSystem(const char* pWhat) {
    throw std::runtime_error(std::string(pWhat) + ": " + std::generic_category().message(errno));
}

// False at the end of the input. An interrupt ends the wait.
bool readFrame(Buffer& rBuffer) {
    for (std::size_t i = 0; i < rBuffer.size();) {
        std::array<pollfd, 2> aWaits{{{STDIN_FILENO, POLLIN, 0}, {Interrupt::descriptor(), POLLIN, 0}}};
        if (poll(aWaits.data(), aWaits.size(), -1) < 0 && errno != EINTR) {
            failSystem("standard input cannot be waited for");
        }
        Interrupt::check();
        const ssize_t nRead = read(STDIN_FILENO, rBuffer.data() + i, rBuffer.size() - i);
        if (nRead == 0 && i == 0) {
            return false;
        }
        if (nRead == 0) {
            throw std::runtime_error("standard input ends within a frame: " + std::to_string(i) + " of " +
                                     std::to_string(rBuffer.size()) + " bytes; is the size as --stream says?");
        }
        if (nRead < 0 && errno != EINTR && errno != EAGAIN) {
            failSystem("standard input cannot be read");
        }
        i += static_cast<std::size_t>(nRead < 0 ? 0 : nRead);
    }
    return true;
}

void writeFrame(const Buffer& rBuffer) {
    for (std::size_t i = 0; i < rBuffer.size();) {
        const ssize_t nWritten = write(STDOUT_FILENO, rBuffer.data() + i, rBuffer.size() - i);
        if (nWritten < 0 && errno != EINTR && errno != EAGAIN) {
            failSystem("standard output cannot be written");
        }
        i += static_cast<std::size_t>(nWritten < 0 ? 0 : nWritten);
    }
}

// What a pipe cannot do is refused, not left out.
void requirePossible(const CorrectOptions& rOptions) {
    const bool bToPipe = rOptions.strOut == PIPE;
    if (rOptions.vecFiles != std::vector<std::string>{PIPE}) {
        throw CUsageError("standard output takes what comes from standard input: give - in place of the files, too");
    }
    if (rOptions.strStream.empty()) {
        throw CUsageError("raw frames do not tell what they are: say so, such as --stream Mono16:1920x1080");
    }
    if (rOptions.bUncertainty) {
        throw CUsageError("--uncertainty goes with files, not with raw frames from standard input");
    }
    if (bToPipe && rOptions.bJson) {
        throw CUsageError("standard output carries the frames; --json goes with a folder");
    }
    if (bToPipe && (rOptions.bFormatNamed || rOptions.bOverwrite)) {
        throw CUsageError("standard output carries raw frames; --format and --overwrite go with a folder");
    }
    if (isatty(STDIN_FILENO) != 0 || (bToPipe && isatty(STDOUT_FILENO) != 0)) {
        throw CUsageError("raw frames are nothing for a terminal; use correct - in a pipe");
    }
}

/// The buffers that nobody works on.
class CRing {
public:
    explicit CRing(std::size_t nBytes) : m_vecBuffers(RING_FRAMES, Buffer(nBytes)) {
        for (Buffer& rBuffer : m_vecBuffers) {
            m_vecFree.push_back(&rBuffer);
        }
    }
    Buffer& take() {
        std::unique_lock<std::mutex> lock(m_mtx);
        m_cv.wait(lock, [this] { return !m_vecFree.empty(); });
        Buffer* const pBuffer = m_vecFree.back();
        m_vecFree.pop_back();
        return *pBuffer;
    }
    void giveBack(Buffer& rBuffer) {
        {
            const std::lock_guard<std::mutex> lock(m_mtx);
            m_vecFree.push_back(&rBuffer);
        }
        m_cv.notify_one();
    }

private:
    std::vector<Buffer> m_vecBuffers;
    std::mutex m_mtx;  // guards the free ones
    std::condition_variable m_cv;
    std::vector<Buffer*> m_vecFree;
};

class CPipe {
public:
    CPipe(const CorrectOptions& rOptions, const StandIn::ImageLayout& rLayout, const JudgedPair& rPair)
        : m_layout(rLayout),
          m_strMark(correctionMark(rPair.dark ? &*rPair.dark : nullptr, rPair.light ? &*rPair.light : nullptr)),
          m_corrector(rOptions.pair, rLayout),
          m_ring(rLayout.bytes()) {
        if (rOptions.strOut != PIPE) {
            CSourceFiles sources;
            sources.add(rOptions.pair.strDark);
            sources.add(rOptions.pair.strLight);
            m_writer.emplace(rOptions.strOut, rOptions.strFormat, rOptions.bOverwrite, sources);
        }
    }

    /// Until the input ends. @return false when the user ended it; what was read whole by then is written.
    bool run() {
        bool bToItsEnd = true;
        try {
            readFrames();
        } catch (const CInterruptedError&) {
            bToItsEnd = false;
        }
        m_worker.finish();
        return bToItsEnd;
    }

    uint64_t frames() const { return m_nFrames; }

private:
    void readFrames() {
        for (;; ++m_nFrames) {
            Buffer& rBuffer = m_ring.take();
            if (!readFrame(rBuffer)) {
                break;
            }
            checkSamples(rBuffer, m_nFrames);
            const std::filesystem::path file = m_writer ? m_writer->reserve(nameOf(m_nFrames), *m_layout.pFormat) : "";
            m_worker.add([this, &rBuffer, file] { work(rBuffer, file); },
                         [this, &rBuffer] { m_ring.giveBack(rBuffer); });
        }
    }

    static std::string nameOf(uint64_t iFrame) {
        std::array<char, 40> acName{};
        std::snprintf(acName.data(), acName.size(), "frame_%06llu", static_cast<unsigned long long>(iFrame));
        return acName.data();
    }

    // As of files: they would all be saturated, and that looks like an image.
    void checkSamples(const Buffer& rBuffer, uint64_t iFrame) const {
        const StandIn::PixelFormat& rFormat = *m_layout.pFormat;
        if (rFormat.nWireBits != 16 || rFormat.nBits == 16) {
            return;
        }
        const uint32_t uLargest = StandIn::largestSample16(rBuffer.data(), m_layout.samples());
        if (uLargest > rFormat.fullScale()) {
            throw std::runtime_error("standard input: frame " + std::to_string(iFrame) + " has a sample of " +
                                     std::to_string(uLargest) + ", above the full scale of " + rFormat.pName);
        }
    }

    void work(Buffer& rBuffer, const std::filesystem::path& rFile) {
        m_corrector.correct(rBuffer.data());
        if (m_writer) {
            writeImage(rFile, m_layout, rBuffer.data(), m_writer->kind(), m_strMark);
        } else {
            writeFrame(rBuffer);
        }
    }

    const StandIn::ImageLayout m_layout;
    const std::string m_strMark;
    CFrameCorrector m_corrector;
    std::optional<CFrameWriter> m_writer;
    uint64_t m_nFrames = 0;
    CRing m_ring;
    CFrameWorkers m_worker{1};  // one: frames leave in their order. Last: its work is on the members above
};

// As of files; here no frame is left untouched: the first that cannot be corrected ends it.
void describe(COutput& rOutput, uint64_t nFrames, const std::string& strFolder) {
    rOutput.text() << counted(nFrames, "corrected frame");
    if (nFrames != 0) {
        rOutput.text() << " written to " << shown(strFolder);
    }
    rOutput.text() << '\n';
    nlohmann::ordered_json& rJson = rOutput.json();
    rJson["frames"] = nFrames;
    rJson["corrected"] = nFrames;
    rJson["untouched"] = nlohmann::ordered_json::array();
    rJson["written"] = nFrames;
    rJson["folder"] = strFolder;
}

}  // namespace

int runCorrectPipe(const CorrectOptions& rOptions) {
    requirePossible(rOptions);
    const bool bToPipe = rOptions.strOut == PIPE;
    const StandIn::ImageLayout layout = parseStream(rOptions.strStream);
    std::optional<COutput> output;
    if (!bToPipe) {
        output.emplace("correct", rOptions.bJson);
    }
    const auto fnFinish = [&](int iExit) { return output ? output->finish(iExit) : iExit; };
    JudgedPair pair = judge(rOptions.pair);
    CameraSettings settings;
    settings.strPixelFormat = layout.pFormat->pName;
    settings.nWidth = layout.nWidth;
    settings.nHeight = layout.nHeight;
    pair.compareWith(settings, true);
    if (output) {
        output->json()["judgement"] = toJson(pair);
    }
    if (!isUsable(pair, rOptions.bForce)) {
        return fnFinish(eExitRefused);
    }
    CPipe pipe(rOptions, layout, pair);
    pair.requireUnchanged();
    const bool bToItsEnd = pipe.run();
    if (bToItsEnd && pipe.frames() == 0) {
        throw std::runtime_error("standard input is empty; does the program before the pipe write its frames there?");
    }
    if (output) {
        describe(*output, pipe.frames(), rOptions.strOut);
    }
    return fnFinish(bToItsEnd ? eExitDone : eExitInterrupted);
}

}  // namespace App
}  // namespace XAPEL2
