// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Files that must not be written to.

#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

namespace XAPEL2 {
namespace Toolkit {

/// A set of files, whatever the names and links by which they are reached.
/// @threads one object per thread.
class CSourceFiles {
public:
    /// Adds a file, or each file of a folder. What does not exist adds nothing.
    void add(const std::filesystem::path& rSource);

    /// Adds the files that this device replays; none for any other device.
    void addDevice(const std::string& strDevice);

    bool contains(const std::filesystem::path& rFile) const;

    /// @throws CUsageError  the file is one of them; names it.
    void requireOther(const std::filesystem::path& rFile) const;

private:
    using FileId = std::pair<uint64_t, uint64_t>;  // device and inode
    static bool identify(const std::filesystem::path& rFile, FileId& rId);

    std::set<FileId> m_files;
};

}  // namespace Toolkit
}  // namespace XAPEL2
