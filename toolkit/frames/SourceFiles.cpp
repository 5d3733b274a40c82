// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Files that must not be written to.

#include "toolkit/frames/SourceFiles.h"

#include <system_error>

#include <sys/stat.h>

#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

bool CSourceFiles::identify(const fs::path& rFile, FileId& rId) {
    struct stat status {};
    if (stat(rFile.c_str(), &status) != 0) {
        return false;
    }
    rId = {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
    return true;
}

void CSourceFiles::add(const fs::path& rSource) {
    FileId id;
    std::error_code ignored;
    if (fs::is_directory(rSource, ignored)) {
        for (const fs::directory_entry& rEntry : fs::directory_iterator(rSource, ignored)) {
            if (identify(rEntry.path(), id)) {
                m_files.insert(id);
            }
        }
    } else if (identify(rSource, id)) {
        m_files.insert(id);
    }
}

void CSourceFiles::addDevice(const std::string& strDevice) {
    const std::string strReplay = "replay:";
    if (strDevice.rfind(strReplay, 0) == 0) {
        // With and without settings: a folder's name may have a question mark.
        const std::string strFolder = strDevice.substr(strReplay.size());
        add(strFolder);
        add(strFolder.substr(0, strFolder.rfind('?')));
    }
}

bool CSourceFiles::contains(const fs::path& rFile) const {
    FileId id;
    return identify(rFile, id) && m_files.count(id) != 0;
}

void CSourceFiles::requireOther(const fs::path& rFile) const {
    if (contains(rFile)) {
        throw CUsageError(rFile.string() +
                          " is a source and is not overwritten; choose another place for what is written");
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
