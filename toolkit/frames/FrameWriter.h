// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames written into a folder, never over a source.

#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "toolkit/frames/FrameFile.h"
#include "toolkit/frames/SourceFiles.h"

namespace XAPEL2 {
namespace Toolkit {

/// Writes the frames of one run. A file that exists is replaced on request only, a source and a frame of this run
/// never, by whatever name or link it is reached.
/// @threads one object per thread.
class CFrameWriter {
public:
    /// @param[in] strFormat  "pgm", "tiff" or "png".
    CFrameWriter(const std::filesystem::path& rFolder, const std::string& strFormat, bool bOverwrite,
                 const CSourceFiles& rSources);

    eFrameFile kind() const { return m_eKind; }

    /// Throws when a frame of this name may not be written.
    /// @throws CUsageError  says which file is in the way; CFileExistsError where it could be replaced.
    void requireFree(const std::string& strName, const StandIn::PixelFormat& rFormat) const;

    /// The file for a frame of this name, which is taken from now on; makes the folder where it is missing.
    /// @throws CUsageError         as requireFree().
    /// @throws std::runtime_error  the folder cannot be made; names it.
    std::filesystem::path reserve(const std::string& strName, const StandIn::PixelFormat& rFormat);

    /// Reserves a file and writes the frame.
    /// @throws std::runtime_error  it cannot be written; names the file.
    std::filesystem::path write(const Frame& rFrame);

private:
    std::filesystem::path m_folder;
    eFrameFile m_eKind;
    bool m_bOverwrite;
    CSourceFiles m_sources;
    std::set<std::filesystem::path> m_written;
};

}  // namespace Toolkit
}  // namespace XAPEL2
