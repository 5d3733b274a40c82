// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replays the image files of a folder.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FrameSource.h"
#include "ReplayFile.h"

namespace XAPEL2 {
namespace StandIn {

/// Delivers the files dark_*, light_* and scene_* with the suffix .pgm, .tif or .tiff of one folder, each scene in the
/// order of the names; other files are ignored. All must have one size and format, which is the camera's; its settings
/// cannot be changed, exposure and gain have no effect. Headers are checked when the folder is opened, pixels are read
/// from the file at each fill. A scene may lack files: its frameCount is 0 and its fill throws.
class CReplaySource : public IFrameSource {
public:
    /// @throws std::runtime_error  the folder cannot be read or has no such file, a file cannot be used, differs from
    ///                             the others or has the name of another one but for the suffix; names it.
    explicit CReplaySource(const std::string& strFolder);

    std::string description() const override;
    CameraSettings defaultSettings() const override;
    std::vector<const PixelFormat*> formats() const override { return {m_Layout.pFormat}; }
    uint64_t sensorWidth() const override { return m_Layout.nWidth; }
    uint64_t sensorHeight() const override { return m_Layout.nHeight; }
    bool canResize() const override { return false; }
    uint64_t frameCount(eScene eWhat) const override;
    /// The file's name without suffix; empty for a scene without files.
    std::string frameName(eScene eWhat, uint64_t iFrame) const override;
    void fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) override;

private:
    struct File {
        std::string strPath;
        std::string strStem;
        bool bTiff = false;
        ReplayLayout layout;
    };

    void listFolder();
    void addFile(const std::string& strName);
    const std::vector<File>& filesOf(eScene eWhat) const;

    std::string m_strFolder;
    ReplayLayout m_Layout;
    std::vector<File> m_aFiles[3];  // by scene
};

}  // namespace StandIn
}  // namespace XAPEL2
