// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A folder of a test's own.

#pragma once

#include <filesystem>

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

private:
    std::filesystem::path m_Path;
};

}  // namespace Test
}  // namespace XAPEL2
