// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A save that is killed or fails at any of its system calls leaves the old reference or the new one, whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Program.h"
#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Test {
namespace {

namespace fs = std::filesystem;

/// One system call of a traced save.
struct SystemCall {
    std::string strName;
    std::string strLine;
    unsigned iWhen = 0;  ///< its place among the calls of this name, from the start of the program, from 1
};

class InterruptedSave : public ::testing::Test {
protected:
    static constexpr const char* OLD = "10";
    static constexpr const char* NEW = "50";
    static constexpr const char* NO_LIMIT = "1000000000";

    void SetUp() override {
        if (runProgram("/usr/bin/env", {"strace", "-o", "/dev/null", "true"}).iExit != 0)
            GTEST_SKIP() << "strace is missing or may not trace here";
        // The same recording gives the same bytes, so that bytes tell the old file, the new one, and any other.
        m_strOld = savedBytes("20", OLD);
        m_strNew = savedBytes("600", NEW);  // in two strips
        ASSERT_NE(m_strOld, m_strNew);
    }

    std::string savedBytes(const char* pSide, const char* pValue) {
        EXPECT_EQ(runProgram(XAPEL2_SAVE_PROGRAM, {m_strFile, pSide, pValue, m_strCopy, NO_LIMIT}).iExit, 0);
        EXPECT_EQ(StandIn::readReferenceFile(m_strFile).vSamples.at(0), std::stof(pValue));
        return content(m_strFile);
    }

    /// Saves the new reference over the old one.
    ProgramResult save(const char* pLimit = NO_LIMIT) {
        restoreOld();
        return runProgram(XAPEL2_SAVE_PROGRAM, {m_strFile, "600", NEW, m_strCopy, pLimit});
    }

    void restoreOld() const {
        fs::remove(m_strCopy);
        std::ofstream(m_strFile, std::ios::binary) << m_strOld;
    }

    /// After a save that was refused: the file was as it may be, a second save was good, and nothing else lies there.
    void expectRefused(const ProgramResult& rResult, bool bMayBeNew = false) const {
        EXPECT_EQ(rResult.iExit, 1) << rResult.strErr;
        const std::string strAfter = content(m_strCopy);
        EXPECT_TRUE(strAfter == m_strOld || (bMayBeNew && strAfter == m_strNew)) << strAfter.size() << " bytes";
        expectSaved();
    }
    void expectSaved() const {
        EXPECT_TRUE(content(m_strFile) == m_strNew);
        EXPECT_EQ(m_oFolder.names(), std::vector<std::string>{"light.tif"});
    }

    /// Saves the new reference over the old one, under strace with these options; the trace is in m_strLog.
    ProgramResult tracedSave(const std::vector<std::string>& rOptions) {
        restoreOld();
        const char* pOptions = std::getenv("ASAN_OPTIONS");
        // The leak check does not work in a program that is traced.
        const std::string strAsan = std::string("ASAN_OPTIONS=") + (pOptions ? pOptions : "") + ":detect_leaks=0";
        std::vector<std::string> vecArguments = {strAsan, "strace", "-f", "-y", "-o", m_strLog};
        vecArguments.insert(vecArguments.end(), rOptions.begin(), rOptions.end());
        vecArguments.insert(vecArguments.end(), {XAPEL2_SAVE_PROGRAM, m_strFile, "600", NEW, m_strCopy, NO_LIMIT});
        return runProgram("/usr/bin/env", vecArguments);
    }

    /// The system calls of a good save, in order.
    std::vector<SystemCall> callsOfSave() {
        EXPECT_EQ(tracedSave({}).iExit, 0);
        std::vector<SystemCall> vecCalls;
        std::map<std::string, unsigned> mapCount;
        std::ifstream oLog(m_strLog);
        bool bInside = false;
        for (std::string strLine; std::getline(oLog, strLine);) {
            // A line is the number of the process, then "name(arguments) = result".
            const std::size_t iName = strLine.find_first_not_of("0123456789 ");
            const std::size_t iEnd = strLine.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789", iName);
            if (iEnd >= strLine.size() || strLine[iEnd] != '(')
                continue;  // a signal or the end of the program
            const std::string strName = strLine.substr(iName, iEnd - iName);
            const unsigned iWhen = ++mapCount[strName];
            const bool bMarker = strLine.find("\"/save-") != std::string::npos;
            if (bInside && !bMarker)
                vecCalls.push_back({strName, strLine, iWhen});
            bInside = bMarker ? strLine.find("/save-begins") != std::string::npos : bInside;
        }
        return vecCalls;
    }

    const CTemporaryFolder m_oFolder, m_oOther;
    const std::string m_strFile = m_oFolder / "light.tif", m_strCopy = m_oOther / "copy", m_strLog = m_oOther / "log";
    std::string m_strOld, m_strNew;
};

TEST_F(InterruptedSave, FlushesBeforeItRenamesAndThenTheFolder) {
    std::string strOrder;
    for (const SystemCall& rCall : callsOfSave()) {
        const auto isInLine = [&](const std::string& r) { return rCall.strLine.find(r) != std::string::npos; };
        const bool bTemporary = isInLine(".tmp"), bGood = isInLine("= 0");
        if (bTemporary && isInLine("write"))
            strOrder = "write";
        else if (bTemporary && isInLine("sync(") && bGood)
            strOrder += " flush";
        else if (bTemporary && isInLine("rename") && isInLine("\"light.tif\"") && bGood)
            strOrder += " rename";
        else if (isInLine("fsync(") && isInLine("<" + m_oFolder.path().string() + ">)") && bGood)
            strOrder += " folder";
    }
    EXPECT_EQ(strOrder, "write flush rename folder");
}

TEST_F(InterruptedSave, KilledAtAnySystemCallLeavesTheOldFileOrTheNewOne) {
    const std::vector<SystemCall> vecCalls = callsOfSave();
    EXPECT_GT(vecCalls.size(), 10U);
    unsigned nOld = 0, nNew = 0;
    for (const SystemCall& rCall : vecCalls) {
        SCOPED_TRACE(rCall.strLine);
        // What earlier turns left behind lies in the same folder and must not be in the way.
        EXPECT_EQ(
            tracedSave({"-e", "inject=" + rCall.strName + ":signal=KILL:when=" + std::to_string(rCall.iWhen)}).iExit,
            -1);
        const std::string strLog = content(m_strLog);
        EXPECT_NE(strLog.find("/save-begins"), std::string::npos) << "killed outside the save";
        EXPECT_EQ(strLog.find("/save-ends"), std::string::npos) << "killed outside the save";
        const std::string strAfter = content(m_strFile);
        EXPECT_TRUE(strAfter == m_strOld || strAfter == m_strNew) << strAfter.size() << " bytes";
        ++(strAfter == m_strOld ? nOld : nNew);
    }
    EXPECT_GE(nOld, 10U);
    EXPECT_GE(nNew, 1U) << "a kill after the file has its name";
    EXPECT_EQ(save().iExit, 0);
    EXPECT_TRUE(content(m_strFile) == m_strNew);
    EXPECT_EQ(m_oFolder.names(), std::vector<std::string>{"light.tif"}) << "a save takes away what killed ones left";
}

TEST_F(InterruptedSave, ErrorOfAnySystemCallIsReportedAndLeavesNothingBehind) {
    std::set<std::string> setTried, setBorne;
    for (const SystemCall& rCall : callsOfSave()) {
        for (const char* pError : {"EIO", "ENOSPC"}) {
            if (rCall.strLine.find(m_oFolder.path().string()) == std::string::npos)
                continue;  // memory and the like
            SCOPED_TRACE(std::string(pError) + ": " + rCall.strLine);
            setTried.insert(rCall.strName);
            const ProgramResult oResult = tracedSave(
                {"-e", "inject=" + rCall.strName + ":error=" + pError + ":when=" + std::to_string(rCall.iWhen)});
            const std::string strLog = content(m_strLog);
            const std::size_t iInjected = strLog.find("(INJECTED)");
            EXPECT_TRUE(iInjected > strLog.find("/save-begins") && iInjected < strLog.find("/save-ends")) << "missed";
            const bool bOfFolder = rCall.strLine.find("<" + m_oFolder.path().string() + ">)") != std::string::npos;
            if (oResult.iExit == 0) {
                setBorne.insert(rCall.strName + (rCall.strLine.find(".tmp") == std::string::npos ? "" : " .tmp"));
                expectSaved();
            } else {
                expectRefused(oResult, bOfFolder);
            }
        }
    }
    EXPECT_GE(setTried.size(), 5U) << "open, write, flush, close, rename";
    // The lock, the search for what others left, and folders that were only read.
    const std::set<std::string> setMayFail = {"close", "fcntl", "flock .tmp", "getdents64", "newfstatat", "openat"};
    EXPECT_TRUE(std::includes(setMayFail.begin(), setMayFail.end(), setBorne.begin(), setBorne.end()))
        << ::testing::PrintToString(setBorne);
}

TEST_F(InterruptedSave, FileThatReachesItsLimitIsReported) {
    const std::size_t nBytes = m_strNew.size();
    for (const std::size_t nLimit : {std::size_t{0}, std::size_t{4}, std::size_t{8}, std::size_t{5000},
                                     std::size_t{1} << 20, nBytes - 400, nBytes - 150, nBytes - 1}) {
        SCOPED_TRACE(nLimit);
        expectRefused(save(std::to_string(nLimit).c_str()));
    }
    EXPECT_EQ(save(std::to_string(nBytes).c_str()).iExit, 0);
    expectSaved();
}

}  // namespace
}  // namespace Test
}  // namespace XAPEL2
