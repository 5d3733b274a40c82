// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The folder that a demonstration writes to.

#pragma once

#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "demo/Figures.h"
#include "terminal/Toolkit.h"
#include "toolkit/frames/Frame.h"
#include "toolkit/frames/SourceFiles.h"

namespace XAPEL2 {
namespace App {

/// The content of figures.json.
nlohmann::ordered_json toJson(const DemoFigures& rFigures);

/// Where a demonstration writes. Files of its own names are replaced; all others stay.
class COutputFolder {
public:
    /// Touches nothing yet.
    explicit COutputFolder(const std::filesystem::path& rFolder);

    /// Creates the folder where it is missing. Where an earlier demonstration has left its figures.json, takes out the
    /// frames that this lists, pictures and references. To be called when all is ready to be written.
    /// @throws std::runtime_error  the folder cannot be made or cleaned; names it.
    /// @throws CUsageError         a file that may be written over is one of the sources; nothing has changed.
    void prepare(const CSourceFiles& rSources) const;

    const std::filesystem::path& path() const { return m_Folder; }
    std::filesystem::path file(const char* pName) const { return m_Folder / pName; }

    /// Writes one frame before and after correction, under the same name in raw/ and corrected/.
    /// @return that file name.
    std::string writePair(const Frame& rRaw, const Frame& rCorrected) const;

    /// Writes figures.json, last of all files: the next run finds there which frames are this one's.
    void writeFigures(const DemoFigures& rFigures) const;

private:
    void requireForeign(const CSourceFiles& rSources) const;
    void removeEarlier() const;

    std::filesystem::path m_Folder;
};

}  // namespace App
}  // namespace XAPEL2
