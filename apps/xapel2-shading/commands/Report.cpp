// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command report: writes an HTML report on a pair of references.

#include "commands/Report.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "commands/AskForScene.h"
#include "commands/OutputFile.h"
#include "report/Html.h"
#include "report/Report.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/figures/SelfTestFrames.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t REFERENCE_FRAMES = 16;  // of references that are recorded for the report

/// A folder for references that nobody asked to keep.
class CScratchFolder {
public:
    CScratchFolder() {
        std::error_code Missing;
        const fs::path Folder = fs::temp_directory_path(Missing);
        m_strPath = (Folder / "xapel2-report-XXXXXX").string();
        if (Missing || mkdtemp(m_strPath.data()) == nullptr) {
            throw std::runtime_error("no folder for the references can be made in " +
                                     (Missing ? "TMPDIR" : Folder.string()) + ": " +
                                     (Missing ? Missing : std::error_code(errno, std::generic_category())).message() +
                                     "; set TMPDIR to one that can be written");
        }
    }
    ~CScratchFolder() {
        std::error_code Ignored;
        fs::remove_all(m_strPath, Ignored);
    }
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;
    const std::string& path() const { return m_strPath; }

private:
    std::string m_strPath;
};

class CReportRun {
public:
    CReportRun(const ReportOptions& rOptions, COutput& rOutput)
        : m_rOptions(rOptions), m_rOutput(rOutput), m_Files(rOptions.Pair) {
        m_Input.strDevice = rOptions.strDevice;
        m_Input.Files = rOptions.Pair;
    }

    int run() { return judgeAndMeasure() ? finish() : refuse(); }

private:
    void recordOwnPair(CSession& rSession);
    bool judgeAndMeasure();
    int refuse();
    void measure(CSession& rSession);
    void showSelfTest();
    int finish();

    const ReportOptions& m_rOptions;
    COutput& m_rOutput;
    CProgress m_Progress;
    std::optional<CScratchFolder> m_Scratch;
    PairOptions m_Files;
    ReportInput m_Input;
};

void CReportRun::recordOwnPair(CSession& rSession) {
    if (!rSession.hasScenes()) {
        throw CUsageError(
            "this camera cannot cover its lens by itself; record a dark and a light reference (xapel2-shading record), "
            "then name them with --dark and --light");
    }
    m_Scratch.emplace();
    m_Files = recordPair(rSession, REFERENCE_FRAMES, m_rOptions.nFrames, m_Scratch->path(), m_Progress);
}

// A report tells of what judgement refuses, too; it only takes references that can be applied at all. False where they
// cannot.
bool CReportRun::judgeAndMeasure() {
    std::optional<CSession> Session;
    if (!m_rOptions.strDevice.empty()) {
        Session.emplace(m_rOptions.strDevice, m_rOptions.fTimeoutS);
        if (m_Files.empty()) {
            recordOwnPair(*Session);
        }
    }
    m_Input.Pair = judgeWithSelfTest(m_Files);
    if (m_Scratch) {
        const auto fnName = [](const std::optional<StandIn::ReferenceImage>& rReference, std::string& rFile) {
            rFile = rReference ? counted(rReference->nImages, "frame") + " recorded for this report" : "";
        };
        fnName(m_Input.Pair.Dark, m_Input.Files.strDark);
        fnName(m_Input.Pair.Light, m_Input.Files.strLight);
    }
    if (Session) {
        m_Input.Camera = readCameraSettings(Session->nodes());
        m_Input.Pair.compareWith(m_Input.Camera);
    }
    if (refused(m_Input.Pair.findings(), true)) {
        return false;
    }
    if (Session) {
        measure(*Session);
        Session.reset();
    }
    if (!m_Input.Light.Before) {
        showSelfTest();
    }
    return true;
}

int CReportRun::refuse() {
    isUsable(m_Input.Pair, true);
    m_rOutput.json()["references"] = toJson(m_Input.Pair);
    return m_rOutput.finish(eExitRefused);
}

void CReportRun::measure(CSession& rSession) {
    applyPair(rSession, m_Files);
    if (!rSession.hasScenes()) {
        askForScene(true);
    }
    static_cast<MeasuredFrames&>(m_Input) = measureFrames(rSession, m_Input.Pair, m_rOptions.nFrames, 1, m_Progress);
    if (!m_Input.Light.Before) {
        complain(
            "warning: there is no even frame that is not in the light reference; the report shows the reference "
            "itself, "
            "which is a self-test only. Record the reference from fewer frames");
    }
}

void CReportRun::showSelfTest() {
    if (!m_Input.Pair.Light) {
        throw CUsageError("a report without a camera takes a light reference; name one with --light");
    }
    m_Input.bSelfTest = true;
    m_Input.Light = selfTestFrames(m_Files, *m_Input.Pair.Light);
}

int CReportRun::finish() {
    m_Progress.clear();
    const Report Result = makeReport(m_Input);
    writeReport(m_rOptions.strFile, Result);
    const CFigures Figures(Result.Figures);
    const auto fnChange = [&](const char* pName, const std::string& strKey, const std::string& strUnit) {
        m_rOutput.text() << pName << ' ' << fixed(Figures.value("/summary/" + strKey + "Before"), 3) << ' ' << strUnit
                         << " before, " << fixed(Figures.value("/summary/" + strKey + "After"), 3) << ' ' << strUnit
                         << " after correction\n";
    };
    if (m_Input.bSelfTest) {
        m_rOutput.text() << "Self-test: the pair on its own mean, no measurement\n";
    }
    fnChange("PRNU1288", "prnu", "%");
    fnChange("DSNU1288", "dsnu", Figures.at("/before/dsnuUnit").get<std::string>());
    m_rOutput.text() << "Verdict: " << Figures.at("/verdict").get<std::string>() << "\nWritten to "
                     << shown(m_rOptions.strFile) << '\n';
    m_rOutput.json()["file"] = m_rOptions.strFile;
    m_rOutput.json().update(Result.Figures);
    // Of the frames that were measured; what concerns the references the pair says itself.
    bool bRefused = false;
    for (const auto& rFinding : Result.Figures.at("findings")) {
        if (rFinding.at("id").get<std::string>().rfind("measured-", 0) == 0) {
            const bool bRefusal = rFinding.at("severity") == "refusal";
            bRefused = bRefused || bRefusal;
            complain((bRefusal ? "refused: " : "warning: ") + rFinding.at("text").get<std::string>() + ' ' +
                     rFinding.at("advice").get<std::string>());
        }
    }
    const bool bUsable = isUsable(m_Input.Pair, m_rOptions.bForce) && (!bRefused || m_rOptions.bForce);
    return m_rOutput.finish(bUsable ? eExitDone : eExitRefused);
}

}  // namespace

int runReport(const ReportOptions& rOptions) {
    if (rOptions.strDevice.empty() && rOptions.Pair.empty()) {
        throw CUsageError(
            "name a camera with -d, references with --dark and --light, or both; xapel2-shading devices lists cameras");
    }
    CSourceFiles Sources;
    Sources.add(rOptions.Pair.strDark);
    Sources.add(rOptions.Pair.strLight);
    Sources.addDevice(rOptions.strDevice);
    requireWritable(rOptions.strFile, Sources);
    COutput Output("report", rOptions.bJson);
    return CReportRun(rOptions, Output).run();
}

}  // namespace App
}  // namespace XAPEL2
