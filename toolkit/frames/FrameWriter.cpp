// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames written into a folder, never over a source.

#include "toolkit/frames/FrameWriter.h"

#include <stdexcept>
#include <system_error>

#include "standin/files/SafeFile.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

CFrameWriter::CFrameWriter(const fs::path& rFolder, const std::string& strFormat, bool bOverwrite,
                           const CSourceFiles& rSources)
    : m_folder(rFolder),
      m_eKind(strFormat == "tiff"  ? eTiff
              : strFormat == "png" ? ePng
                                   : ePixmap),
      m_bOverwrite(bOverwrite),
      m_sources(rSources) {}

void CFrameWriter::requireFree(const std::string& strName, const StandIn::PixelFormat& rFormat) const {
    const fs::path file = frameFile(m_folder, strName, rFormat, m_eKind);
    m_sources.requireOther(file);
    if (m_written.count(file) != 0) {
        throw CUsageError(file.string() + " would be written twice; two sources have this name");
    }
    std::error_code ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(file, ignored))) {
        throw CFileExistsError(file.string() + " exists");
    }
}

fs::path CFrameWriter::reserve(const std::string& strName, const StandIn::PixelFormat& rFormat) {
    requireFree(strName, rFormat);
    if (m_written.empty()) {
        try {
            fs::create_directories(m_folder);
        } catch (const fs::filesystem_error& rError) {
            throw std::runtime_error("folder " + m_folder.string() + " cannot be made: " + rError.code().message());
        }
        StandIn::takeAwayLeftOvers(m_folder);
    }
    return *m_written.insert(frameFile(m_folder, strName, rFormat, m_eKind)).first;
}

fs::path CFrameWriter::write(const Frame& rFrame) {
    reserve(rFrame.strName, *rFrame.pFormat);
    return writeFrame(m_folder, rFrame, m_eKind);
}

}  // namespace Toolkit
}  // namespace XAPEL2
