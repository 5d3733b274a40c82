// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command report: writes an HTML report on a pair of references.

#include "commands/Report.h"

#include <cerrno>
#include <cmath>
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

/// A folder for references that nobody asked to keep.
class CScratchFolder {
public:
    CScratchFolder() {
        std::error_code missing;
        const fs::path folder = fs::temp_directory_path(missing);
        m_strPath = (folder / "xapel2-report-XXXXXX").string();
        if (missing || mkdtemp(m_strPath.data()) == nullptr) {
            throw std::runtime_error("no folder for the references can be made in " +
                                     (missing ? "TMPDIR" : folder.string()) + ": " +
                                     (missing ? missing : std::error_code(errno, std::generic_category())).message() +
                                     "; set TMPDIR to one that can be written");
        }
    }
    ~CScratchFolder() {
        std::error_code ignored;
        fs::remove_all(m_strPath, ignored);
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
        : m_rOptions(rOptions), m_rOutput(rOutput), m_files(rOptions.pair) {
        m_input.strDevice = rOptions.strDevice;
        m_input.files = rOptions.pair;
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
    CProgress m_progress;
    std::optional<CScratchFolder> m_scratch;
    PairOptions m_files;
    ReportInput m_input;
};

void CReportRun::recordOwnPair(CSession& rSession) {
    if (!rSession.hasScenes()) {
        throw CUsageError(
            "this camera cannot cover its lens by itself; record a dark and a light reference (xapel2-shading record), "
            "then name them with --dark and --light");
    }
    m_scratch.emplace();
    m_files = recordPair(rSession, REFERENCE_FRAMES, m_rOptions.nFrames, m_scratch->path(), m_progress);
}

// A report tells of what judgement refuses, too; it only takes references that can be applied at all. False where they
// cannot.
bool CReportRun::judgeAndMeasure() {
    std::optional<CSession> session;
    if (!m_rOptions.strDevice.empty()) {
        session.emplace(m_rOptions.strDevice, m_rOptions.dTimeoutS);
        if (m_files.empty()) {
            recordOwnPair(*session);
        }
    }
    m_input.pair = judgeWithSelfTest(m_files);
    if (m_scratch) {
        const auto fnName = [](const std::optional<StandIn::ReferenceImage>& rReference, std::string& rFile) {
            rFile = rReference ? counted(rReference->nImages, "frame") + " recorded for this report" : "";
        };
        fnName(m_input.pair.dark, m_input.files.strDark);
        fnName(m_input.pair.light, m_input.files.strLight);
    }
    if (session) {
        m_input.camera = readCameraSettings(session->nodes());
        m_input.pair.compareWith(m_input.camera);
    }
    if (refused(m_input.pair.findings(), true)) {
        return false;
    }
    if (session) {
        measure(*session);
        session.reset();
    }
    if (!m_input.light.before) {
        showSelfTest();
    }
    return true;
}

int CReportRun::refuse() {
    isUsable(m_input.pair, true);
    m_rOutput.json()["references"] = toJson(m_input.pair);
    return m_rOutput.finish(eExitRefused);
}

void CReportRun::measure(CSession& rSession) {
    applyPair(rSession, m_files);
    m_input.pair.requireUnchanged();
    if (!rSession.hasScenes()) {
        askForScene(true);
    }
    static_cast<MeasuredFrames&>(m_input) = measureFrames(rSession, m_input.pair, m_rOptions.nFrames, 1, m_progress);
    if (!m_input.light.before) {
        complain(
            "warning: there is no even frame that is not in the light reference; the report shows the reference "
            "itself, "
            "which is a self-test only. Record the reference from fewer frames");
    }
}

void CReportRun::showSelfTest() {
    if (!m_input.pair.light) {
        throw CUsageError("a report without a camera takes a light reference; name one with --light");
    }
    m_input.bSelfTest = true;
    m_input.light = selfTestFrames(m_files, *m_input.pair.light);
}

int CReportRun::finish() {
    m_progress.clear();
    const Report result = makeReport(m_input);
    writeReport(m_rOptions.strFile, result);
    const CFigures figures(result.figures);
    const auto fnText = [&](const std::string& strFigure, const std::string& strUnit) {
        const double dLimit = figures.value("/summary/" + strFigure + "Limit");
        return std::isnan(dLimit) ? withUnit(figures.value("/summary/" + strFigure), 3, strUnit)
                                  : "not resolved (below " + withUnit(dLimit, 3, strUnit) + ")";
    };
    const auto fnChange = [&](const char* pName, const std::string& strKey, const std::string& strUnit,
                              const char* pBefore) {
        m_rOutput.text() << pName << ' ' << fnText(strKey + "Before", strUnit) << pBefore << ", "
                         << fnText(strKey + "After", strUnit) << " after correction\n";
    };
    if (m_input.bSelfTest) {
        m_rOutput.text() << "Self-test: the pair on its own mean, no measurement\n";
    }
    fnChange("PRNU1288", "prnu", "%", " before");
    // Without dark frames of its own a report tells that of the reference, whatever camera it is of.
    fnChange("DSNU1288", "dsnu", figures.at("/before/dsnuUnit").get<std::string>(),
             m_input.dark.before ? " before" : " in the reference");
    m_rOutput.text() << "Verdict: " << figures.at("/verdict").get<std::string>() << "\nWritten to "
                     << shown(m_rOptions.strFile) << '\n';
    m_rOutput.json()["file"] = m_rOptions.strFile;
    m_rOutput.json().update(result.figures);
    const Findings vecMeasured = measuredFindings(m_input, result.figures);
    warnAbout(vecMeasured, eNote);
    const bool bUsable = isUsable(m_input.pair, m_rOptions.bForce) && !refused(vecMeasured, m_rOptions.bForce);
    return m_rOutput.finish(bUsable ? eExitDone : eExitRefused);
}

}  // namespace

int runReport(const ReportOptions& rOptions) {
    if (rOptions.strDevice.empty() && rOptions.pair.empty()) {
        throw CUsageError(
            "name a camera with -d, references with --dark and --light, or both; xapel2-shading devices lists cameras");
    }
    CSourceFiles sources;
    sources.add(rOptions.pair.strDark);
    sources.add(rOptions.pair.strLight);
    sources.addDevice(rOptions.strDevice);
    requireWritable(rOptions.strFile, sources);
    COutput output("report", rOptions.bJson);
    return CReportRun(rOptions, output).run();
}

}  // namespace App
}  // namespace XAPEL2
