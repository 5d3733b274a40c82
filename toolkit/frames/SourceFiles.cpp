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
    struct stat Status {};
    if (stat(rFile.c_str(), &Status) != 0) {
        return false;
    }
    rId = {static_cast<uint64_t>(Status.st_dev), static_cast<uint64_t>(Status.st_ino)};
    return true;
}

void CSourceFiles::add(const fs::path& rSource) {
    FileId Id;
    std::error_code Ignored;
    if (fs::is_directory(rSource, Ignored)) {
        for (const fs::directory_entry& rEntry : fs::directory_iterator(rSource, Ignored)) {
            if (identify(rEntry.path(), Id)) {
                m_Files.insert(Id);
            }
        }
    } else if (identify(rSource, Id)) {
        m_Files.insert(Id);
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

void CSourceFiles::requireOther(const fs::path& rFile) const {
    FileId Id;
    if (identify(rFile, Id) && m_Files.count(Id) != 0) {
        throw CUsageError(rFile.string() +
                          " is a source and is not overwritten; choose another place for what is written");
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
