// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A folder of a test's own.

#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace XAPEL2 {
namespace Test {

/// A fresh, empty folder that goes away with the object.
class CTemporaryFolder {
public:
    /// @throws std::runtime_error  it cannot be made.
    CTemporaryFolder();
    ~CTemporaryFolder();
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_Path; }
    /// The path of a file in it.
    std::string operator/(const std::string& strName) const { return (m_Path / strName).string(); }
    /// The names of what is in it, in no order.
    std::vector<std::string> names() const;

private:
    std::filesystem::path m_Path;
};

}  // namespace Test
}  // namespace XAPEL2
