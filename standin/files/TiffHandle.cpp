// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF on an open file, whose messages go to a text of its own instead of the standard error stream.

#include "standin/files/TiffHandle.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>

namespace XAPEL2 {
namespace StandIn {

bool CFileDescriptor::close() noexcept {
    const int iFile = m_iFile;
    m_iFile = -1;
    return iFile < 0 || ::close(iFile) == 0;
}

std::string systemError() {
    return std::generic_category().message(errno);
}

CTiffHandle::CTiffHandle(int iFile, const char* strMode, uint64_t nBytes) : m_iFile(iFile), m_nBytes(nBytes) {
    TIFFOpenOptions* pOptions = TIFFOpenOptionsAlloc();
    if (!pOptions) {
        throw std::bad_alloc();
    }
    constexpr uint64_t ROUNDED = 65536;  // the library takes whole kilobytes
    TIFFOpenOptionsSetMaxSingleMemAlloc(pOptions, static_cast<tmsize_t>(std::max(ALLOCATION_MAX, nBytes + ROUNDED)));
    TIFFOpenOptionsSetErrorHandlerExtR(pOptions, onError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(pOptions, onWarning, this);
    m_pTiff.reset(
        TIFFClientOpenExt("TIFF", strMode, this, onRead, onWrite, onSeek, onClose, onSize, nullptr, nullptr, pOptions));
    TIFFOpenOptionsFree(pOptions);
    check(m_pTiff != nullptr, "cannot be opened as TIFF");
}

void CTiffHandle::check(bool bGood, const char* strElse) const {
    if (m_iWriteError != 0) {
        throw CFileError(std::string(strElse) + ": " + std::generic_category().message(m_iWriteError));
    }
    if (!bGood) {
        throw CFileError(m_aError[0] ? m_aError : strElse);
    }
}

int CTiffHandle::onError(TIFF*, void* pThis, const char*, const char* strFormat, va_list pArguments) {
    char* pText = static_cast<CTiffHandle*>(pThis)->m_aError;
    std::vsnprintf(pText, sizeof m_aError, strFormat, pArguments);
    return 1;  // handled: no other handler is called
}

tmsize_t CTiffHandle::onRead(thandle_t pThis, void* pBytes, tmsize_t nBytes) {
    auto* const p = static_cast<CTiffHandle*>(pThis);
    ssize_t nRead = 0;
    do {
        nRead = pread(p->m_iFile, pBytes, static_cast<std::size_t>(nBytes), static_cast<off_t>(p->m_uPosition));
    } while (nRead < 0 && errno == EINTR);
    p->m_uPosition += static_cast<uint64_t>(std::max<ssize_t>(nRead, 0));
    return nRead;
}

tmsize_t CTiffHandle::onWrite(thandle_t pThis, void* pBytes, tmsize_t nBytes) {
    auto* const p = static_cast<CTiffHandle*>(pThis);
    for (tmsize_t nDone = 0; nDone < nBytes;) {
        const ssize_t nNow = pwrite(p->m_iFile, static_cast<const char*>(pBytes) + nDone,
                                    static_cast<std::size_t>(nBytes - nDone), static_cast<off_t>(p->m_uPosition));
        if (nNow < 0 && errno == EINTR) {
            continue;
        }
        if (nNow <= 0) {
            p->m_iWriteError = nNow < 0 ? errno : EIO;
            return nDone;
        }
        nDone += nNow;
        p->m_uPosition += static_cast<uint64_t>(nNow);
        p->m_nBytes = std::max(p->m_nBytes, p->m_uPosition);
    }
    return nBytes;
}

toff_t CTiffHandle::onSeek(thandle_t pThis, toff_t uOffset, int iFrom) {
    auto* const p = static_cast<CTiffHandle*>(pThis);
    return p->m_uPosition = uOffset + (iFrom == SEEK_END ? p->m_nBytes : iFrom == SEEK_CUR ? p->m_uPosition : 0);
}

int CTiffHandle::onWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

}  // namespace StandIn
}  // namespace XAPEL2
