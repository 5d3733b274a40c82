// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames written into a folder, never over a source.

#include "images/FrameWriter.h"

#include <stdexcept>
#include <system_error>

#include <sys/stat.h>

#include "commands/Exit.h"

namespace XAPEL2 {
namespace App {

namespace fs = std::filesystem;

CFrameWriter::CFrameWriter(const fs::path& rFolder, const std::string& strFormat, bool bOverwrite)
    : m_Folder(rFolder), m_eKind(strFormat == "tiff" ? eTiff : ePixmap), m_bOverwrite(bOverwrite) {}

bool CFrameWriter::identify(const fs::path& rFile, FileId& rId) {
    struct stat Status {};
    if (stat(rFile.c_str(), &Status) != 0) {
        return false;
    }
    rId = {static_cast<uint64_t>(Status.st_dev), static_cast<uint64_t>(Status.st_ino)};
    return true;
}

void CFrameWriter::protect(const fs::path& rSource) {
    FileId Id;
    std::error_code Ignored;
    if (fs::is_directory(rSource, Ignored)) {
        for (const fs::directory_entry& rEntry : fs::directory_iterator(rSource, Ignored)) {
            if (identify(rEntry.path(), Id)) {
                m_Sources.insert(Id);
            }
        }
    } else if (identify(rSource, Id)) {
        m_Sources.insert(Id);
    }
}

void CFrameWriter::requireFree(const Frame& rFrame) const {
    const fs::path File = frameFile(m_Folder, rFrame, m_eKind);
    FileId Id;
    if (identify(File, Id) && m_Sources.count(Id) != 0) {
        throw CUsageError(File.string() + " is a source and is not overwritten; choose another folder with -o");
    }
    if (m_Written.count(File) != 0) {
        throw CUsageError(File.string() + " would be written twice; two sources have this name");
    }
    std::error_code Ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(File, Ignored))) {
        throw CUsageError(File.string() + " exists; choose another folder with -o, or replace it with --overwrite");
    }
}

fs::path CFrameWriter::write(const Frame& rFrame) {
    requireFree(rFrame);
    try {
        fs::create_directories(m_Folder);
    } catch (const fs::filesystem_error& rError) {
        throw std::runtime_error("folder " + m_Folder.string() + " cannot be made: " + rError.code().message());
    }
    const fs::path File = writeFrame(m_Folder, rFrame, m_eKind);
    m_Written.insert(File);
    return File;
}

}  // namespace App
}  // namespace XAPEL2
