// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A folder of a test's own.

#include "TemporaryFolder.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace XAPEL2 {
namespace Test {

CTemporaryFolder::CTemporaryFolder() {
    std::string strTemplate = (std::filesystem::temp_directory_path() / "xapel2-test-XXXXXX").string();
    if (mkdtemp(strTemplate.data()) == nullptr) {
        throw std::runtime_error("no temporary folder: " + strTemplate);
    }
    m_Path = strTemplate;
}

CTemporaryFolder::~CTemporaryFolder() {
    std::error_code Ignored;
    std::filesystem::remove_all(m_Path, Ignored);
}

std::vector<std::string> CTemporaryFolder::names() const {
    std::vector<std::string> vecNames;
    for (const auto& rEntry : std::filesystem::directory_iterator(m_Path)) {
        vecNames.push_back(rEntry.path().filename().string());
    }
    return vecNames;
}

}  // namespace Test
}  // namespace XAPEL2
