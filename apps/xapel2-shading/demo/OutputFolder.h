// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The folder that a demonstration writes to.

#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "terminal/Toolkit.h"
#include "toolkit/figures/Measurement.h"
#include "toolkit/frames/SourceFiles.h"

namespace XAPEL2 {
namespace App {

/// Where a demonstration writes: pictures, references, report and figures.json, and each frame before and after
/// correction under the same name in raw/ and corrected/. What an earlier one wrote is replaced, as its figures.json
/// tells; of other files none is, unless that is asked for. A demonstration that comes to no end leaves none of its
/// own.
class COutputFolder {
public:
    /// Touches nothing yet. @param[in] bOverwrite  replace whatever has the name of a file to write.
    COutputFolder(const std::filesystem::path& rFolder, bool bOverwrite)
        : m_folder(rFolder), m_bOverwrite(bOverwrite) {}
    /// Takes out what was written, unless finish() was called.
    ~COutputFolder();
    COutputFolder(const COutputFolder&) = delete;
    COutputFolder& operator=(const COutputFolder&) = delete;

    /// Creates the folder where it is missing, and takes out what an earlier demonstration has written. To be called
    /// when all is ready to be written.
    /// @throws std::runtime_error            the folder cannot be made or cleaned; names it.
    /// @throws CUsageError, CFileExistsError  a file in the way is a source, or nobody knows whose; nothing has
    /// changed.
    void prepare(const CSourceFiles& rSources);

    const std::filesystem::path& path() const { return m_folder; }

    /// The path of a file of the demonstration's own, which is going to be written.
    std::filesystem::path file(const char* pName) { return claim(pName); }
    /// @throws std::runtime_error  it cannot be written; names it.
    void write(const char* pName, const std::string& strBytes);
    /// @throws CFileExistsError  there is such a frame, and not by an earlier demonstration.
    void writePair(const FramePair& rPair);

    /// File names of the frames, in the order of their writing.
    const std::vector<std::string>& frames() const { return m_vecFrames; }

    /// Writes figures.json, where the next demonstration finds which files are this one's.
    void finish(const nlohmann::ordered_json& rFigures);

private:
    std::filesystem::path claim(const std::filesystem::path& rName);
    void requireFree(const std::filesystem::path& rFile) const;

    std::filesystem::path m_folder;
    bool m_bOverwrite;
    std::set<std::filesystem::path> m_made;  // files that were not there before
    std::vector<std::string> m_vecFrames;
};

}  // namespace App
}  // namespace XAPEL2
