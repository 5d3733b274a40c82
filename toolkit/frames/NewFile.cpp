// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A file that appears whole or not at all.

#include "toolkit/frames/NewFile.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace XAPEL2 {
namespace Toolkit {

CNewFile::CNewFile(const std::filesystem::path& rFile) : m_File(rFile) {
    m_Temporary = rFile.parent_path() / ("." + rFile.filename().string() + "." + std::to_string(getpid()) + ".tmp");
    m_iFile = open(m_Temporary.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (m_iFile < 0) {
        fail();
    }
}

CNewFile::~CNewFile() {
    if (m_iFile >= 0) {
        close(m_iFile);
    }
    if (!m_bFinished) {
        unlink(m_Temporary.c_str());
    }
}

void CNewFile::write(const std::string& strBytes) const {
    for (std::size_t i = 0; i < strBytes.size();) {
        const ssize_t nWritten = ::write(m_iFile, strBytes.data() + i, strBytes.size() - i);
        if (nWritten < 0 && errno != EINTR) {
            fail();
        }
        i += nWritten > 0 ? static_cast<std::size_t>(nWritten) : 0;
    }
}

void CNewFile::flush() const {
    if (fsync(m_iFile) != 0) {
        fail();
    }
}

void CNewFile::finish() {
    const bool bClosed = close(m_iFile) == 0;
    m_iFile = -1;
    if (!bClosed || rename(m_Temporary.c_str(), m_File.c_str()) != 0) {
        fail();
    }
    m_bFinished = true;
}

void CNewFile::fail() const {
    throw std::runtime_error(m_File.string() + " cannot be written: " + std::generic_category().message(errno));
}

}  // namespace Toolkit
}  // namespace XAPEL2
