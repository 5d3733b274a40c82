// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A folder of a test's own.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace XAPEL2 {
namespace Test {

/// A fresh, empty folder that goes away with the object.
class CTemporaryFolder {
public:
    /// @throws std::runtime_error  it cannot be made.
    CTemporaryFolder() {
        std::string strTemplate = (std::filesystem::temp_directory_path() / "xapel2-test-XXXXXX").string();
        if (mkdtemp(strTemplate.data()) == nullptr) {
            throw std::runtime_error("no temporary folder: " + strTemplate);
        }
        m_path = strTemplate;
    }
    ~CTemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    /// The path of a file in it.
    std::string operator/(const std::string& strName) const { return (m_path / strName).string(); }
    /// The names of what is in it, in no order.
    std::vector<std::string> names() const {
        std::vector<std::string> vecNames;
        for (const auto& rEntry : std::filesystem::directory_iterator(m_path)) {
            vecNames.push_back(rEntry.path().filename().string());
        }
        return vecNames;
    }

private:
    std::filesystem::path m_path;
};

}  // namespace Test
}  // namespace XAPEL2
