// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line of xapel2-shading: its sub-commands and their options.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/Check.h"
#include "commands/Correct.h"
#include "commands/Devices.h"
#include "commands/Record.h"
#include "commands/Report.h"
#include "commands/Run.h"
#include "commands/SetOutput.h"
#include "commands/Settings.h"
#include "demo/Demo.h"

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace XAPEL2 {
namespace App {

/// The options of all sub-commands, and the one that was chosen.
class CCommandLine {
public:
    CCommandLine();
    ~CCommandLine();

    /// @param[in] vecWords  without the name of the program.
    /// @return false when help or the version was asked for, and has been printed.
    /// @throws CUsageError  the words make no sense; says what to type instead. command() and json() are told as far as
    ///                      they are known.
    bool parse(std::vector<std::string> vecWords);

    const std::string& command() const { return m_strCommand; }
    bool json() const { return m_bJson; }
    int run() const { return m_fnRun(); }

private:
    CLI::App* addCommand(const char* pName, const char* pWhat, std::function<int()> fnRun);
    void addOutput(CLI::App* pCommand, bool& rJson);
    void addDevicesAndRecord();
    void addCheck();
    void addRun();
    void addCorrect();
    void addReport();
    void addSetOutput();
    void addDemo();
    std::string inOwnWords(const CLI::ParseError& rError) const;
    std::string unknownCommand(const std::string& strWord) const;

    std::unique_ptr<CLI::App> m_pCli;
    DevicesOptions m_devices;
    SettingsOptions m_settings;
    RecordOptions m_record;
    CheckOptions m_check;
    RunOptions m_run;
    CorrectOptions m_correct;
    ReportOptions m_report;
    SetOutputOptions m_setOutput;
    DemoOptions m_demo;
    std::string m_strFrames, m_strKind;
    std::function<int()> m_fnRun;
    std::string m_strCommand;
    bool m_bJson = false;
};

/// The word of vecWords that takes the fewest changes of a letter to be strWord, when they are few; empty otherwise.
std::string nearest(const std::string& strWord, const std::vector<std::string>& vecWords);

}  // namespace App
}  // namespace XAPEL2
