// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line of xapel2-shading: its sub-commands and their options.

#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "terminal/Exit.h"
#include "terminal/Output.h"

namespace XAPEL2 {
namespace App {

namespace {

using Words = std::vector<std::string>;

std::string joined(const Words& rWords, const char* pLast) {
    std::string strText;
    for (std::size_t i = 0; i < rWords.size(); ++i) {
        strText += (i == 0 ? "" : i + 1 == rWords.size() ? pLast : ", ") + rWords[i];
    }
    return strText;
}

// What CLI11 calls wrong is told in words of these; it puts the option's name and a colon before them.

CLI::Validator within(double dLow, double dHigh, const char* pRange, bool bWhole = true) {
    return {[=](std::string& rWord) {
                char* pEnd = nullptr;
                const double dValue = std::strtod(rWord.c_str(), &pEnd);
                const bool bNumber = !rWord.empty() && *pEnd == '\0' &&
                                     (!bWhole || rWord.find_first_not_of("0123456789") == std::string::npos);
                return bNumber && dValue >= dLow && dValue <= dHigh
                           ? std::string()
                           : "takes a number from " + std::string(pRange) + ", not '" + rWord + "'";
            },
            pRange};
}

// Leaves the word as it is written here.
CLI::Validator oneOf(const Words& rWords) {
    return {[=](std::string& rWord) {
                for (const std::string& rMember : rWords) {
                    if (CLI::detail::to_lower(rMember) == CLI::detail::to_lower(rWord)) {
                        rWord = rMember;
                        return std::string();
                    }
                }
                return "takes " + joined(rWords, " or ") + ", not '" + rWord + "'";
            },
            joined(rWords, "|")};
}

CLI::Validator notEmpty() {
    return {[](std::string& rWord) { return rWord.empty() ? std::string("is given, but empty") : std::string(); }, ""};
}

CLI::Validator folderName() {
    return {[](std::string& rWord) {
                const std::string strSuffix = CLI::detail::to_lower(std::filesystem::path(rWord).extension().string());
                const Words vecFiles = {".png", ".pgm", ".ppm", ".tif", ".tiff", ".jpg", ".jpeg", ".bmp", ".html"};
                const bool bFile = std::count(vecFiles.begin(), vecFiles.end(), strSuffix) != 0;
                return bFile && !std::filesystem::is_directory(rWord)
                           ? "takes the name of a folder, and '" + rWord + "' is one of a file"
                           : std::string();
            },
            ""};
}

void addForce(CLI::App* pCommand, bool& rForce) {
    pCommand->add_flag("--force", rForce, "Go on where judgement refuses; it warns all the same");
}

CLI::Option* addDevice(CLI::App* pCommand, std::string& rDevice) {
    return pCommand->add_option("-d,--device", rDevice,
                                "Camera, such as sim, sim:7?width=320&format=Mono8, replay:DIR, aravis:ID");
}

void addTimeout(CLI::App* pCommand, double& rTimeout) {
    pCommand->add_option("--timeout", rTimeout, "Longest wait for a frame beyond its exposure time, in seconds")
        ->check(within(0.001, 86400.0, "0.001 to 86400", false))
        ->capture_default_str();
}

void addPair(CLI::App* pCommand, PairOptions& rPair) {
    pCommand->add_option("--dark", rPair.strDark, "Dark reference");
    pCommand->add_option("--light", rPair.strLight, "Light reference");
    const auto fnRadius = [&](const char* pName, unsigned& rRadius, const char* pWhat) {
        pCommand->add_option(pName, rRadius, pWhat)->check(within(0, 31, "0 to 31"))->type_name("RADIUS");
    };
    fnRadius("--box-light", rPair.nBoxLight, "Box filter on the light reference, radius in pixels");
    fnRadius("--box-dark", rPair.nBoxDark, "Box filter on the dark reference");
    fnRadius("--median-light", rPair.nMedianLight, "Median filter on the light reference, before the box filter");
    fnRadius("--median-dark", rPair.nMedianDark, "Median filter on the dark reference, before the box filter");
}

void addFileFormat(CLI::App* pCommand, std::string& rFormat, bool& rOverwrite) {
    pCommand->add_option("--format", rFormat, "Files to write: pgm (ppm for colour), tiff or png")
        ->transform(oneOf({"pgm", "tiff", "png"}))
        ->capture_default_str();
    pCommand->add_flag("--overwrite", rOverwrite, "Replace files that exist");
}

// Changes of one letter that lead from one word to the other.
std::size_t distance(const std::string& strFrom, const std::string& strTo) {
    std::vector<std::size_t> vecRow(strTo.size() + 1);
    for (std::size_t k = 0; k < vecRow.size(); ++k) {
        vecRow[k] = k;
    }
    for (std::size_t i = 0; i < strFrom.size(); ++i) {
        std::size_t nDiagonal = vecRow[0]++;
        for (std::size_t k = 0; k < strTo.size(); ++k) {
            const std::size_t nReplaced = nDiagonal + (strFrom[i] == strTo[k] ? 0 : 1);
            nDiagonal = vecRow[k + 1];
            vecRow[k + 1] = std::min({nReplaced, vecRow[k] + 1, nDiagonal + 1});
        }
    }
    return vecRow.back();
}

}  // namespace

std::string nearest(const std::string& strWord, const std::vector<std::string>& vecWords) {
    std::string strNearest;
    if (strWord.empty()) {
        return strNearest;
    }
    std::size_t nLeast = 3 + strWord.size() / 6;
    for (const std::string& rWord : vecWords) {
        const std::size_t nChanges = rWord.rfind(strWord, 0) == 0 ? 0 : distance(strWord, rWord);
        if (nChanges < std::min(nLeast, rWord.size())) {
            nLeast = nChanges;
            strNearest = rWord;
        }
    }
    return strNearest;
}

CLI::App* CCommandLine::addCommand(const char* pName, const char* pWhat, std::function<int()> fnRun) {
    CLI::App* pCommand = m_pCli->add_subcommand(pName, pWhat);
    pCommand->callback([this, fnRun = std::move(fnRun)] { m_fnRun = fnRun; });
    return pCommand;
}

void CCommandLine::addOutput(CLI::App* pCommand, bool& rJson) {
    pCommand->add_flag("--json", rJson, "Print one JSON object on standard output, nothing else");
    pCommand->add_flag_callback(
        "-q,--quiet", [] { setVerbosity(eQuiet); }, "Print nothing but warnings and errors, on standard error");
    pCommand->add_flag_callback(
        "-v,--verbose", [] { setVerbosity(eVerbose); }, "Print the notes of judgement, too");
}

void CCommandLine::addDevicesAndRecord() {
    addOutput(addCommand("devices", "List what can be opened", [this] { return runDevices(m_devices); }),
              m_devices.bJson);
    CLI::App* pSettings = addCommand("settings", "List what can be set on a camera, with limits",
                                     [this] { return runSettings(m_settings); });
    addDevice(pSettings, m_settings.strDevice)->required();
    addOutput(pSettings, m_settings.bJson);

    CLI::App* pRecord = addCommand("record", "Record a dark or a light reference from a camera", [this] {
        m_record.bLight = m_strKind == "light";
        m_record.bTimeoutNamed = m_pCli->get_subcommand("record")->count("--timeout") != 0;
        return runRecord(m_record);
    });
    pRecord->add_option("KIND", m_strKind, "dark (lens covered) or light (an even, evenly lit target)")
        ->required()
        ->transform(oneOf({"dark", "light"}));
    addDevice(pRecord, m_record.strDevice);
    pRecord->add_option("--from", m_record.strFrom,
                        "In place of a camera: the mean image that another program made of --frames frames, a TIFF of "
                        "32-bit floating-point samples in DN");
    pRecord->add_option("--pixel-format", m_record.strFormat, "What those frames were, such as Mono12");
    pRecord->add_option("-n,--frames", m_record.nFrames, "Frames to average")
        ->check(within(1, 1e6, "1 to 1000000"))
        ->capture_default_str();
    pRecord->add_option("-o,--out", m_record.strFile, "Reference file to write; replaced when it exists")->required();
    pRecord->add_flag("--line", m_record.bLine,
                      "Average over rows, too: the reference of a line-scan camera, for images of any height");
    pRecord->add_flag("--keep-outliers", m_record.bKeepOutliers,
                      "Keep in the mean what left the other frames: frames that are unlike them, and samples far from "
                      "those of their pixel; it is told all the same");
    addTimeout(pRecord, m_record.dTimeoutS);
    addForce(pRecord, m_record.bForce);
    addOutput(pRecord, m_record.bJson);
}

void CCommandLine::addCheck() {
    CLI::App* pCheck = addCommand("check", "Judge a dark and a light reference", [this] { return runCheck(m_check); });
    pCheck->add_option("DARK", m_check.strDark, "Dark reference")->required();
    pCheck->add_option("LIGHT", m_check.strLight, "Light reference")->required();
    pCheck
        ->add_option("--levels", m_check.vecLevels,
                     "Even light at several exposures, each a light reference or a folder of its image files, and dark "
                     "references of these exposures: the conversion gain is taken from a line over them")
        ->type_name("LEVEL");
    pCheck->add_flag("--list", m_check.bList, "List each hot and dead pixel");
    addForce(pCheck, m_check.bForce);
    addOutput(pCheck, m_check.bJson);
}

void CCommandLine::addRun() {
    CLI::App* pRun = addCommand("run", "Correct the live stream of a camera", [this] { return runRun(m_run); });
    addDevice(pRun, m_run.strDevice)->required();
    addPair(pRun, m_run.pair);
    pRun->add_option("-n,--frames", m_run.nFrames, "Frames to correct; without it until Ctrl-C, or all of a replay")
        ->check(within(1, 1e9, "1 to 1000000000"));
    pRun->add_option("--scene", m_run.strScene, "What a simulated or replayed camera shows: Dark, Light or Scene")
        ->transform(oneOf({"Dark", "Light", "Scene"}))
        ->capture_default_str();
    pRun->add_option("-o,--out", m_run.strOut, "Folder to write the frames to")->check(folderName());
    pRun->add_flag("--raw", m_run.bRaw, "Write the uncorrected frames too, to OUT/raw");
    addFileFormat(pRun, m_run.strFormat, m_run.bOverwrite);
    addTimeout(pRun, m_run.dTimeoutS);
    addForce(pRun, m_run.bForce);
    addOutput(pRun, m_run.bJson);
}

void CCommandLine::addCorrect() {
    CLI::App* pCorrect = addCommand(
        "correct",
        "Correct image files. Reading, correction and writing overlap; 4 frames are in memory at any time, and the "
        "references",
        [this] {
            m_correct.bFormatNamed = m_pCli->get_subcommand("correct")->count("--format") != 0;
            return runCorrect(m_correct);
        });
    pCorrect
        ->add_option(
            "FILES", m_correct.vecFiles,
            "Image files (PGM, PPM, TIFF, PNG), folders of them, or patterns; - for raw frames from standard input")
        ->required();
    addPair(pCorrect, m_correct.pair);
    pCorrect
        ->add_option("-o,--out", m_correct.strOut,
                     "Folder to write to; a source is never overwritten; - for raw frames to standard output")
        ->required()
        ->check(folderName());
    pCorrect->add_flag("--uncertainty", m_correct.bUncertainty,
                       "Write the standard deviation of each sample too, in DN, to NAME.uncertainty.tif");
    pCorrect
        ->add_option("--stream", m_correct.strStream,
                     "What raw frames are, such as Mono16:1920x1080 (gray16le of ffmpeg); 16-bit samples have the "
                     "low byte first")
        ->type_name("FORMAT:WIDTHxHEIGHT");
    addFileFormat(pCorrect, m_correct.strFormat, m_correct.bOverwrite);
    addForce(pCorrect, m_correct.bForce);
    addOutput(pCorrect, m_correct.bJson);
}

void CCommandLine::addReport() {
    CLI::App* pReport =
        addCommand("report", "Write an HTML report on a pair of references", [this] { return runReport(m_report); });
    addDevice(pReport, m_report.strDevice);
    addPair(pReport, m_report.pair);
    pReport->add_option("-n,--frames", m_report.nFrames, "Frames of each kind for the figures after correction")
        ->check(within(2, 1e5, "2 to 100000"))
        ->capture_default_str();
    pReport->add_option("-o,--out", m_report.strFile, "HTML file to write; replaced when it exists")
        ->capture_default_str();
    addTimeout(pReport, m_report.dTimeoutS);
    addForce(pReport, m_report.bForce);
    addOutput(pReport, m_report.bJson);
}

void CCommandLine::addSetOutput() {
    CLI::App* pSet = addCommand("output", "Say in a light reference how corrected images come out",
                                [this] { return runSetOutput(m_setOutput); });
    pSet->add_option("LIGHT", m_setOutput.strLight, "Light reference; replaced")->required();
    pSet->add_option("--dark", m_setOutput.strDark, "Dark reference, in which hot pixels are found");
    pSet->add_option("--defects", m_setOutput.strDefects,
                     "Pixels to replace by their neighbours: find (in the references), none, or the file of a list "
                     "(JSON or CSV of x, y, width, height on the sensor)")
        ->type_name("find|none|LIST");
    pSet->add_option("--target", m_setOutput.strTarget,
                     "What brightness is scaled to: mean of the light reference, max, its brightest place, or a mean "
                     "in DN")
        ->type_name("mean|max|DN");
    pSet->add_option("--pedestal", m_setOutput.dPedestal,
                     "DN added after the correction, so that noise around black survives")
        ->check(within(0, 32767.5, "0 to 32767.5", false));
    pSet->add_option("--gain", m_setOutput.strGain,
                     "Write the gain of each sample, at the target mean, as a TIFF of 32-bit floating-point samples")
        ->type_name("FILE");
    pSet->add_option("--export", m_setOutput.strExport,
                     "Write the defects as a list, CSV or JSON as the name ends in .csv or .json")
        ->type_name("LIST");
    addOutput(pSet, m_setOutput.bJson);
}

void CCommandLine::addDemo() {
    CLI::App* pDemo = m_pCli->add_subcommand(
        "demo", "Record a dark and a light reference, correct frames with them, and write both for comparison");
    pDemo->add_option("--frames", m_strFrames,
                      "Folder of recorded frames dark_*, light_*, scene_* (PGM, PPM, TIFF or PNG) in place of the "
                      "simulated camera");
    const CLI::Option* pCamera = pDemo
                                     ->add_option("--camera", m_demo.strCamera,
                                                  "Camera to open, such as sim:7?width=320&height=240&format=Mono8")
                                     ->capture_default_str();
    pDemo->add_option("-o,--out", m_demo.strOut, "Folder to write to; files of an earlier demo are replaced")
        ->capture_default_str()
        ->check(folderName());
    pDemo->add_flag("--overwrite", m_demo.bOverwrite, "Replace other files of these names, too");
    addOutput(pDemo, m_demo.bJson);
    pDemo->callback([this, pCamera] {
        m_fnRun = [this, pCamera] {
            if (!m_strFrames.empty() && pCamera->count() != 0) {
                throw CUsageError("--camera and --frames name two sources; demo takes one of them");
            }
            m_demo.strCamera = m_strFrames.empty() ? m_demo.strCamera : "replay:" + m_strFrames;
            return runDemo(m_demo);
        };
    });
}

CCommandLine::CCommandLine()
    : m_pCli(std::make_unique<CLI::App>("Shading correction of camera images.", "xapel2-shading")) {
    m_pCli->set_version_flag("--version", "xapel2-shading " XAPEL2_SHADING_VERSION);
    m_pCli->require_subcommand(1);
    m_pCli->footer(
        "Exit codes: 0 done, 1 refused by judgement, 2 wrong use, 3 the camera or a file cannot be used.\n"
        "Ctrl-C ends a run in order, a second one at once.");
    addDevicesAndRecord();
    addCheck();
    addRun();
    addCorrect();
    addReport();
    addSetOutput();
    addDemo();
    for (CLI::App* pCommand : m_pCli->get_subcommands({})) {
        for (CLI::Option* pOption : pCommand->get_options()) {
            if (pOption->get_items_expected_max() > 0) {
                pOption->check(notEmpty());
            }
        }
    }
}

CCommandLine::~CCommandLine() = default;

std::string CCommandLine::unknownCommand(const std::string& strWord) const {
    Words vecNames;
    for (const CLI::App* pCommand : m_pCli->get_subcommands({})) {
        vecNames.push_back(pCommand->get_name());
    }
    const std::string strNearest = nearest(strWord, vecNames);
    return "there is no sub-command '" + strWord + "'; " +
           (strNearest.empty() ? "there are " + joined(vecNames, " and ") : "did you mean " + strNearest + "?");
}

std::string CCommandLine::inOwnWords(const CLI::ParseError& rError) const {
    const CLI::App* pCommand = m_pCli->get_subcommand(m_strCommand);
    Words vecNames, vecMissing;
    for (const CLI::Option* pOption : pCommand->get_options()) {
        vecNames.push_back(pOption->get_name());
        if (pOption->get_required() && pOption->count() == 0) {
            vecMissing.push_back(pOption->get_name());
        }
    }
    const std::string strWhat = rError.what(), strName = strWhat.substr(0, strWhat.find(':'));
    std::string strText = strName + " cannot be given like that";
    const Words vecMore = pCommand->remaining(true);
    const auto it = std::find_if(vecMore.begin(), vecMore.end(), [](const std::string& r) { return r[0] == '-'; });
    // A mistyped option comes first: the one that it stands for is missing then.
    if (it != vecMore.end()) {
        const std::string strOption = it->substr(0, it->find('='));
        const std::string strNearest = nearest(strOption, vecNames);
        strText = "there is no option " + strOption + (strNearest.empty() ? "" : "; did you mean " + strNearest + "?");
    } else if (dynamic_cast<const CLI::ExtrasError*>(&rError) != nullptr && !vecMore.empty()) {
        strText = "'" + vecMore.front() + "' is one word too many";
    } else if (dynamic_cast<const CLI::RequiredError*>(&rError) != nullptr && !vecMissing.empty()) {
        strText = joined(vecMissing, " and ") + (vecMissing.size() == 1 ? " is missing" : " are missing");
    } else if (dynamic_cast<const CLI::ValidationError*>(&rError) != nullptr) {
        strText = strName + strWhat.substr(std::min(strName.size() + 1, strWhat.size()));
    } else if (dynamic_cast<const CLI::ArgumentMismatch*>(&rError) != nullptr) {
        strText = strName + " takes one value";
    }
    return m_strCommand + ": " + strText;
}

bool CCommandLine::parse(Words vecWords) {
    m_bJson = std::count(vecWords.begin(), vecWords.end(), "--json") != 0;
    if (vecWords.size() > 1 && (vecWords[0] == "-q" || vecWords[0] == "-v")) {
        std::rotate(vecWords.begin(), vecWords.begin() + 1, vecWords.end());
    }
    const std::string strFirst = vecWords.empty() ? "" : vecWords[0];
    if (strFirst == "help") {
        std::rotate(vecWords.begin(), vecWords.begin() + 1, vecWords.end());
        vecWords.back() = "--help";
    } else if (strFirst == "version" || strFirst == "-v" || strFirst == "-V") {
        vecWords = {"--version"};
    }
    if (vecWords.empty()) {
        throw CUsageError("name a sub-command; xapel2-shading --help lists them");
    }
    if (strFirst != "-h" && vecWords[0].rfind("--", 0) != 0) {
        m_strCommand = vecWords[0];
        const auto fnSame = [&](const CLI::App* p) { return p->get_name() == m_strCommand; };
        if (m_pCli->get_subcommands(fnSame).empty()) {
            throw CUsageError(unknownCommand(m_strCommand));
        }
    }
    std::reverse(vecWords.begin(), vecWords.end());
    try {
        m_pCli->parse(std::move(vecWords));
    } catch (const CLI::ParseError& rError) {
        if (rError.get_exit_code() == 0) {
            m_pCli->exit(rError);
            return false;
        }
        if (m_strCommand.empty()) {
            throw CUsageError("'" + strFirst + "' is no sub-command; xapel2-shading --help lists them");
        }
        throw CUsageError(inOwnWords(rError) + " (xapel2-shading " + m_strCommand + " --help tells more)");
    }
    return true;
}

}  // namespace App
}  // namespace XAPEL2
