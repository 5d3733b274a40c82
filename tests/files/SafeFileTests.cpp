// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a save replaces, refuses, and takes away. Saves that are cut short: InterruptedSaveTests.cpp.

#include "standin/files/SafeFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "TemporaryFolder.h"

namespace XAPEL2 {
namespace Test {
namespace {

namespace fs = std::filesystem;
using StandIn::saveFile;

class SafeFile : public ::testing::Test {
protected:
    std::string path(const std::string& strName) const { return m_folder / strName; }
    std::string content(const std::string& strName) const {
        std::ifstream file(path(strName));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void put(const std::string& strName) const { std::ofstream(path(strName)) << "old"; }
    std::set<std::string> names() const {
        const std::vector<std::string> vecNames = m_folder.names();
        return {vecNames.begin(), vecNames.end()};
    }
    std::string error(const std::string& strFile) const {
        try {
            saveFile(strFile, "new");
            return "";
        } catch (const std::runtime_error& rError) {
            return rError.what();
        }
    }

    const CTemporaryFolder m_folder;
};

TEST_F(SafeFile, ReplacesTheFileBehindLinksAndKeepsThem) {
    fs::create_directory(path("in"));
    put("in/file");
    fs::create_symlink("file", path("in/inner"));
    fs::create_symlink("in/inner", path("outer"));
    fs::create_symlink(path("in/later"), path("dangling"));
    EXPECT_EQ(error(path("outer")), "");
    EXPECT_EQ(error(path("dangling")), "");
    for (const char* pLink : {"in/inner", "outer", "dangling"}) {
        EXPECT_TRUE(fs::is_symlink(path(pLink))) << pLink;
        EXPECT_EQ(content(pLink), "new") << pLink;
    }
    EXPECT_FALSE(fs::is_symlink(path("in/file")));
    EXPECT_TRUE(fs::is_regular_file(path("in/later")));
}

TEST_F(SafeFile, SaysWhyAPlaceCannotBeTakenAndLeavesIt) {
    put("locked");
    fs::permissions(path("locked"), fs::perms::owner_read);
    fs::create_symlink("locked", path("link"));
    fs::create_symlink("loop", path("loop"));
    fs::create_directory(path("folder"));
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const std::set<std::string> setBefore = names();
    const std::pair<std::string, std::string> aRows[] = {
        {path("locked"), "the file that is there is read-only: Permission denied"},
        {path("link"), "the file that is there is read-only: Permission denied"},
        {path("loop"), "cannot follow the link"},
        {path("folder"), "it is a folder"},
        {path("pipe"), "it is no regular file"},
        {path("none/file"), "cannot open the folder: No such file or directory"},
        {path("locked/file"), "cannot be looked at: Not a directory"},
        {path(""), "no file name"},
        {"", "no file name"},
        {"/proc/self/new", "cannot create a file in the folder: No such file or directory"}};
    for (const auto& [strFile, strReason] : aRows) {
        EXPECT_EQ(error(strFile), strFile + " cannot be written: " + strReason);
    }
    EXPECT_EQ(content("locked"), "old");
    EXPECT_EQ(names(), setBefore);
}

TEST_F(SafeFile, TakesAwayWhatDeadProcessesLeftAndNothingElse) {
    const pid_t iDead = fork();
    if (iDead == 0) {
        _exit(0);
    }
    ASSERT_EQ(waitpid(iDead, nullptr, 0), iDead);
    const std::string strDead = std::to_string(iDead);
    put(".xapel2-" + strDead + "-1.tmp");
    std::set<std::string> setOthers = {".xapel2-" + std::to_string(getppid()) + "-1.tmp",
                                       ".xapel2-" + std::to_string(getpid()) + "-1.tmp",
                                       ".xapel2-" + strDead + "-1.tmp~",
                                       ".xapel2-0" + strDead + "-1.tmp",
                                       ".xapel2--" + strDead + "-1.tmp",
                                       ".other-" + strDead + "-1.tmp",
                                       ".xapel2-" + strDead + "-2.tmp"};
    for (const std::string& strName : setOthers) {
        put(strName);
    }
    // Of a process whose number is not to be seen from here.
    const StandIn::CFileDescriptor file(open(path(".xapel2-" + strDead + "-2.tmp").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
    fs::create_directory(path(".xapel2-" + strDead + "-3.tmp"));
    fs::create_symlink("file", path(".xapel2-" + strDead + "-4.tmp"));
    setOthers.insert({".xapel2-" + strDead + "-3.tmp", ".xapel2-" + strDead + "-4.tmp", "file"});
    std::set<std::string> setAll = setOthers;
    setAll.insert(".xapel2-" + strDead + "-1.tmp");
    StandIn::CSafeFile(path("file"), StandIn::eSaveQuick).finish();
    EXPECT_EQ(names(), setAll) << "one of many files does not look";
    EXPECT_EQ(error(path("file")), "");
    EXPECT_EQ(names(), setOthers);
    put(".xapel2-" + strDead + "-1.tmp");
    StandIn::takeAwayLeftOvers(m_folder.path());
    EXPECT_EQ(names(), setOthers);
}

TEST_F(SafeFile, TwoAtOnceAndAnUnfinishedOneLeaveNothingElse) {
    put("file");
    {
        StandIn::CSafeFile first(path("file"));
        StandIn::CSafeFile second(path("file"));
        StandIn::CSafeFile unfinished(path("file"));
        first.write("first");
        second.write("second");
        unfinished.write("unfinished");
        EXPECT_EQ(content("file"), "old");
        second.finish();
        EXPECT_EQ(content("file"), "second");
        first.finish();
    }
    EXPECT_EQ(content("file"), "first");
    EXPECT_EQ(names(), std::set<std::string>{"file"});
}

}  // namespace
}  // namespace Test
}  // namespace XAPEL2
