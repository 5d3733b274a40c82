// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF on an open file, whose messages go to a text of its own instead of the standard error stream.

#pragma once

#include <tiffio.h>

#include <cstdarg>
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

class CTiffHandle {
public:
    /// @param[in] iFile    borrowed; must stay open longer than this object, which does not close it.
    /// @param[in] strMode  as for TIFFOpen.
    /// @throws CFileError  not a TIFF.
    CTiffHandle(int iFile, const char* strMode);
    ~CTiffHandle();
    CTiffHandle(const CTiffHandle&) = delete;
    CTiffHandle& operator=(const CTiffHandle&) = delete;

    TIFF* get() const { return m_pTiff; }
    /// @throws CFileError  with what the TIFF library said last, or strElse when it said nothing.
    [[noreturn]] void fail(const char* strElse) const;
    void check(bool bGood, const char* strElse) const {
        if (!bGood)
            fail(strElse);
    }

private:
    static int onError(TIFF* pTiff, void* pThis, const char* strModule, const char* strFormat, va_list pArguments);
    static int onWarning(TIFF* pTiff, void* pThis, const char* strModule, const char* strFormat, va_list pArguments);

    // Most memory of one allocation by the TIFF library: tag arrays, and strips that are written. Version 4.5.0 has no
    // limit for all of them together: what a file can make it keep is bounded by CTiffInput.
    static constexpr tmsize_t ALLOCATION_MAX = 4 << 20;

    TIFF* m_pTiff = nullptr;
    char m_aError[256] = {};  // fixed: it is filled below C code, where nothing may be thrown
};

}  // namespace StandIn
}  // namespace XAPEL2
