// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF on an open file, whose messages go to a text of its own instead of the standard error stream.

#include "TiffHandle.h"

#include <unistd.h>

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

CTiffHandle::CTiffHandle(int iFile, const char* strMode) {
    TIFFOpenOptions* pOptions = TIFFOpenOptionsAlloc();
    if (!pOptions)
        throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(pOptions, ALLOCATION_MAX);
    TIFFOpenOptionsSetErrorHandlerExtR(pOptions, onError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(pOptions, onWarning, this);
    m_pTiff = TIFFFdOpenExt(iFile, "TIFF", strMode, pOptions);
    TIFFOpenOptionsFree(pOptions);
    check(m_pTiff != nullptr, "not a TIFF file");
}

CTiffHandle::~CTiffHandle() {
    // Unlike TIFFClose this leaves the file open. After a failed write it tries to flush once more, which is harmless:
    // the file is about to be removed.
    TIFFCleanup(m_pTiff);
}

void CTiffHandle::fail(const char* strElse) const {
    throw CFileError(m_aError[0] ? m_aError : strElse);
}

int CTiffHandle::onError(TIFF*, void* pThis, const char*, const char* strFormat, va_list pArguments) {
    char* pText = static_cast<CTiffHandle*>(pThis)->m_aError;
    std::vsnprintf(pText, sizeof m_aError, strFormat, pArguments);
    return 1;  // handled: no other handler is called
}

int CTiffHandle::onWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

}  // namespace StandIn
}  // namespace XAPEL2
