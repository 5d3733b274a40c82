// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A file that appears whole, or not at all.

#include "standin/files/SafeFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace XAPEL2 {
namespace StandIn {

namespace fs = std::filesystem;

namespace {

constexpr int LINKS_MAX = 40;

[[noreturn]] void failWithSystemError(const char* pWhat) {
    throw CFileError(std::string(pWhat) + ": " + systemError());
}

/// Calls again what a signal has interrupted.
template <class F>
auto repeated(F fnCall) {
    auto result = fnCall();
    while (result < 0 && errno == EINTR) {
        result = fnCall();
    }
    return result;
}

/// The file behind symbolic links, which need not exist.
std::string target(const std::string& strFile) {
    if (strFile.find('\0') != std::string::npos) {
        throw CFileError("no file name");
    }
    fs::path file = strFile;
    std::error_code error;
    for (int i = 0; fs::is_symlink(fs::symlink_status(file, error)); ++i) {
        const fs::path link = i < LINKS_MAX ? fs::read_symlink(file, error) : fs::path();
        if (link.empty()) {
            throw CFileError("cannot follow the link");
        }
        file = file.parent_path() / link;
    }
    if (!file.has_filename()) {
        throw CFileError("no file name");
    }
    return file.string();
}

/// Refuses what would be lost against its owner's will. A superuser may write everywhere, so the mode counts as well.
void checkReplaceable(const std::string& strPath) {
    struct stat status = {};
    if (stat(strPath.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            failWithSystemError("cannot be looked at");
        }
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        throw CFileError(S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file");
    }
    if ((status.st_mode & S_IWUSR) == 0) {
        errno = EACCES;
    } else if (faccessat(AT_FDCWD, strPath.c_str(), W_OK, AT_EACCESS) == 0) {
        return;
    }
    failWithSystemError("the file that is there is read-only");
}

int openFolder(const std::string& strPath) {
    const std::string strFolder = fs::path(strPath).parent_path().string();
    const int iFolder =
        repeated([&] { return open(strFolder.empty() ? "." : strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (iFolder < 0) {
        failWithSystemError("cannot open the folder");
    }
    return iFolder;
}

// The time as well, since the number of a process comes again.
std::string temporaryName(int iProcess, long long iTime) {
    return ".xapel2-" + std::to_string(iProcess) + "-" + std::to_string(iTime) + ".tmp";
}

/// True for the number of a process that is no more.
bool isDead(int iProcess) {
    return iProcess > 0 && kill(iProcess, 0) != 0 && errno == ESRCH;
}

/// Takes away what dead processes have left. As a process may have its numbers to itself (in a container), what has
/// its lock stays. No failure matters here.
void sweep(int iFolder) {
    // Not by std::filesystem: want of memory ends the process within its iterator.
    const int iEntries = openat(iFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(iEntries < 0 ? nullptr : fdopendir(iEntries), closedir);
    if (!entries) {
        CFileDescriptor(iEntries).close();
        return;
    }
    while (const dirent* const pEntry = readdir(entries.get())) {
        int iProcess = 0;
        long long iTime = 0;
        if (std::sscanf(pEntry->d_name, ".xapel2-%d-%lld.tmp", &iProcess, &iTime) != 2 ||
            pEntry->d_name != temporaryName(iProcess, iTime) || !isDead(iProcess)) {
            continue;
        }
        const CFileDescriptor file(
            openat(iFolder, pEntry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat status = {};
        if (fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
            flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            unlinkat(iFolder, pEntry->d_name, 0);
        }
    }
}

int create(int iFolder, std::string& rName) {
    for (int i = 0; i < 100; ++i) {
        std::string strName = temporaryName(getpid(), std::chrono::system_clock::now().time_since_epoch().count());
        const int iFile =
            repeated([&] { return openat(iFolder, strName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
        if (iFile >= 0) {
            rName = std::move(strName);
            // For those who cannot see this process. Some file systems cannot, and a file without it is as good.
            static_cast<void>(flock(iFile, LOCK_EX | LOCK_NB));
            return iFile;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    failWithSystemError("cannot create a file in the folder");
}

}  // namespace

std::string savedFile(const std::string& strFile) {
    const std::string strPath = target(strFile);
    checkReplaceable(strPath);
    return strPath;
}

CSafeFile::CSafeFile(const std::string& strFile, eSave eHow)
    : m_eHow(eHow),
      m_strPath(savedFile(strFile)),
      m_folder(openFolder(m_strPath)),
      m_file((eHow == eSaveFlushed ? sweep(m_folder.get()) : void(), create(m_folder.get(), m_strTemporary))) {}

CSafeFile::~CSafeFile() {
    if (!m_strTemporary.empty()) {
        unlinkat(m_folder.get(), m_strTemporary.c_str(), 0);
    }
}

void CSafeFile::write(const void* pBytes, std::size_t nBytes) const {
    for (std::size_t i = 0; i < nBytes;) {
        const ssize_t nWritten =
            repeated([&] { return ::write(get(), static_cast<const char*>(pBytes) + i, nBytes - i); });
        if (nWritten < 0) {
            failWithSystemError("cannot write");
        }
        i += static_cast<std::size_t>(nWritten);
    }
}

void CSafeFile::finish() {
    if (m_eHow == eSaveFlushed && repeated([&] { return fsync(get()); }) != 0) {
        failWithSystemError("cannot flush");
    }
    // An interrupted one has closed the file.
    if (!m_file.close() && errno != EINTR) {
        failWithSystemError("cannot close");
    }
    const std::string strName = fs::path(m_strPath).filename().string();
    if (renameat(m_folder.get(), m_strTemporary.c_str(), m_folder.get(), strName.c_str()) != 0) {
        failWithSystemError("cannot rename");
    }
    m_strTemporary.clear();
    // Without this the new name may be lost when the power fails. Some file systems cannot: EINVAL.
    if (m_eHow == eSaveFlushed && repeated([&] { return fsync(m_folder.get()); }) != 0 && errno != EINVAL) {
        failWithSystemError("cannot flush the folder");
    }
}

void takeAwayLeftOvers(const std::string& strFolder) {
    const CFileDescriptor folder(open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) {
        sweep(folder.get());
    }
}

void saveFile(const std::string& strFile, const std::string& strBytes) {
    try {
        CSafeFile file(strFile);
        file.write(strBytes);
        file.finish();
    } catch (const CFileError& rError) {
        throw std::runtime_error(strFile + " cannot be written: " + rError.what());
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
