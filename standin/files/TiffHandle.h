// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF on an open file, whose messages go to a text of its own instead of the standard error stream.

#pragma once

#include <tiffio.h>

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace XAPEL2 {
namespace StandIn {

/// A file that cannot be read or written; the text says why, without the file's name.
class CFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file descriptor that is closed when it goes out of scope.
class CFileDescriptor {
public:
    explicit CFileDescriptor(int iFile) : m_iFile(iFile) {}
    ~CFileDescriptor() { close(); }
    CFileDescriptor(const CFileDescriptor&) = delete;
    CFileDescriptor& operator=(const CFileDescriptor&) = delete;

    int get() const { return m_iFile; }
    /// Closes now. False, with errno, when the system reports an error.
    bool close() noexcept;

private:
    int m_iFile;
};

/// Text of the present errno.
std::string systemError();

/// Reads and writes by calls of its own: the library goes on after a seek that failed, and then puts bytes in the wrong
/// place. Here no seek can fail, and a write that failed is remembered until check.
class CTiffHandle {
public:
    /// @param[in] iFile    borrowed; must stay open longer than this object, which does not close it.
    /// @param[in] strMode  as for TIFFOpen.
    /// @param[in] nBytes   size of the file.
    /// @throws CFileError  not a TIFF, or it cannot be written.
    CTiffHandle(int iFile, const char* strMode, uint64_t nBytes);
    CTiffHandle(const CTiffHandle&) = delete;
    CTiffHandle& operator=(const CTiffHandle&) = delete;

    TIFF* get() const { return m_pTiff.get(); }
    /// @throws CFileError  not good, or a write has failed: with the system's reason, else with what the TIFF library
    ///                     said last, or with strElse alone when it said nothing.
    void check(bool bGood, const char* strElse) const;

private:
    static int onError(TIFF* pTiff, void* pThis, const char* strModule, const char* strFormat, va_list pArguments);
    static int onWarning(TIFF* pTiff, void* pThis, const char* strModule, const char* strFormat, va_list pArguments);
    static tmsize_t onRead(thandle_t pThis, void* pBytes, tmsize_t nBytes);
    static tmsize_t onWrite(thandle_t pThis, void* pBytes, tmsize_t nBytes);
    static toff_t onSeek(thandle_t pThis, toff_t uOffset, int iFrom);
    static int onClose(thandle_t) { return 0; }
    static toff_t onSize(thandle_t pThis) { return static_cast<CTiffHandle*>(pThis)->m_nBytes; }

    // Most memory of one allocation by the TIFF library: tag arrays, strips that are written, and packed strips that
    // are read, which may be the whole file. Version 4.5.0 has no limit for all of them together: what a file can make
    // it keep is bounded by CTiffInput.
    static constexpr uint64_t ALLOCATION_MAX = 4U << 20;

    const int m_iFile;
    uint64_t m_nBytes;
    uint64_t m_uPosition = 0;
    int m_iWriteError = 0;    // errno of a write that failed
    char m_aError[256] = {};  // fixed: it is filled below C code, where nothing may be thrown
    // Last, since its end calls back. After a failed write that flushes once more, which is harmless: the file is about
    // to be removed.
    std::unique_ptr<TIFF, void (*)(TIFF*)> m_pTiff{nullptr, TIFFCleanup};
};

}  // namespace StandIn
}  // namespace XAPEL2
