// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether a file can be written, asked before a camera takes minutes for what goes into it.

#include "commands/OutputFile.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <unistd.h>

#include "standin/files/SafeFile.h"

namespace XAPEL2 {
namespace App {

namespace fs = std::filesystem;

std::string requireWritable(const std::string& strFile, const CSourceFiles& rSources) {
    rSources.requireOther(strFile);
    std::error_code ignored;
    if (fs::is_directory(strFile, ignored)) {
        throw std::runtime_error(strFile + " is a folder; give the name of a file in it");
    }
    std::string strSaved;
    try {
        strSaved = StandIn::savedFile(strFile);
    } catch (const StandIn::CFileError& rError) {
        throw std::runtime_error(strFile + ": " + rError.what() + "; choose another name");
    }
    const fs::path parent = fs::path(strSaved).parent_path();
    const fs::path folder = parent.empty() ? "." : parent;
    if (!fs::is_directory(folder, ignored)) {
        throw std::runtime_error(folder.string() + " is no folder; create it first");
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        throw std::runtime_error(folder.string() + ": " + std::generic_category().message(errno) +
                                 "; choose another folder");
    }
    return strSaved;
}

}  // namespace App
}  // namespace XAPEL2
