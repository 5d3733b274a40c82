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
    /// @param[in] strFormat  "pgm" or "tiff".
    CFrameWriter(const std::filesystem::path& rFolder, const std::string& strFormat, bool bOverwrite,
                 const CSourceFiles& rSources);

    /// Throws when this frame may not be written.
    /// @throws CUsageError  says which file is in the way; CFileExistsError where it could be replaced.
    void requireFree(const Frame& rFrame) const;

    /// Writes a frame, making the folder where it is missing.
    /// @throws CUsageError         as requireFree().
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
