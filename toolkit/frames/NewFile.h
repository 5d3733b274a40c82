// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A file that appears whole or not at all.

#pragma once

#include <filesystem>
#include <string>

namespace XAPEL2 {
namespace Toolkit {

/// A file that is written beside the place of its own, hidden, and takes that place when it is finished: another file
/// there stays as it was until then. Removed when it is not finished. Every operation throws std::runtime_error, which
/// names the file, when the system refuses it.
class CNewFile {
public:
    explicit CNewFile(const std::filesystem::path& rFile);
    ~CNewFile();
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    /// For reading and writing; the object closes it.
    int descriptor() const { return m_iFile; }

    void write(const std::string& strBytes) const;

    /// Waits until the bytes are on the disk, so that not even a loss of power leaves a file in part.
    void flush() const;

    /// The last call.
    void finish();

private:
    [[noreturn]] void fail() const;

    std::filesystem::path m_File, m_Temporary;
    int m_iFile = -1;
    bool m_bFinished = false;
};

}  // namespace Toolkit
}  // namespace XAPEL2
