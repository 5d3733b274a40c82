// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames written into a folder, never over a source.

#include "toolkit/frames/FrameWriter.h"

#include <stdexcept>
#include <system_error>

#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

CFrameWriter::CFrameWriter(const fs::path& rFolder, const std::string& strFormat, bool bOverwrite,
                           const CSourceFiles& rSources)
    : m_Folder(rFolder),
      m_eKind(strFormat == "tiff" ? eTiff : ePixmap),
      m_bOverwrite(bOverwrite),
      m_Sources(rSources) {}

void CFrameWriter::requireFree(const Frame& rFrame) const {
    const fs::path File = frameFile(m_Folder, rFrame, m_eKind);
    m_Sources.requireOther(File);
    if (m_Written.count(File) != 0) {
        throw CUsageError(File.string() + " would be written twice; two sources have this name");
    }
    std::error_code Ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(File, Ignored))) {
        throw CFileExistsError(File.string() + " exists");
    }
}

fs::path CFrameWriter::write(const Frame& rFrame) {
    requireFree(rFrame);
    try {
        fs::create_directories(m_Folder);
    } catch (const fs::filesystem_error& rError) {
        throw std::runtime_error("folder " + m_Folder.string() + " cannot be made: " + rError.code().message());
    }
    fs::path File = writeFrame(m_Folder, rFrame, m_eKind);
    m_Written.insert(File);
    return File;
}

}  // namespace Toolkit
}  // namespace XAPEL2
