// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replays image files: those of a folder, or those of a list.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "standin/cameras/interface/FrameSource.h"
#include "standin/files/ImageFile.h"

namespace XAPEL2 {
namespace StandIn {

/// Delivers the files dark_*, light_* and scene_* with the suffix .pgm, .ppm, .tif, .tiff or .png of one folder, each
/// scene in the order of the names, other files being ignored; or listed files of any name as the scene of objects, in
/// the order of the list. All must have one size and format, which is the camera's; its settings cannot be changed,
/// exposure and gain have no effect. Each image of a file is a frame.
///
/// A format may be given where the files cannot say it, for a filter array, for blue first, or for fewer significant
/// bits than a file has room for: a name whose unpacked samples are stored as those of the files are. No sample may
/// exceed it. Headers are checked when the folder is opened, pixels are read from the file at each fill. A scene may
/// lack files: its frameCount is 0 and its fill throws.
class CReplaySource : public IFrameSource {
public:
    /// @throws std::runtime_error  the folder cannot be read or has no such file, a file cannot be used, differs from
    ///                             the others or has the name of another one but for the suffix; names it.
    /// @param[in] pFormat  null: the format that the files say.
    explicit CReplaySource(const std::string& strFolder, const PixelFormat* pFormat = nullptr);
    explicit CReplaySource(const std::vector<std::string>& vecFiles, const PixelFormat* pFormat = nullptr);

    std::string description() const override;
    CameraSettings defaultSettings() const override;
    std::vector<const PixelFormat*> formats() const override { return {m_layout.pFormat}; }
    uint64_t sensorWidth() const override { return m_layout.nWidth; }
    uint64_t sensorHeight() const override { return m_layout.nHeight; }
    bool canResize() const override { return false; }
    uint64_t frameCount(eScene eWhat) const override;
    /// The file's name without suffix, with the number of the image behind it ("NAME_0003") where the file has several;
    /// empty for a scene without files.
    std::string frameName(eScene eWhat, uint64_t iFrame) const override;
    void fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) override;

private:
    struct File {
        std::string strPath;
        std::string strStem;
        ImageFileLayout layout;
    };
    /// One image of a file.
    struct Place {
        std::size_t iFile = 0, iPage = 0;
    };

    void listFolder();
    void addFile(const std::string& strPath, eScene eWhat);
    void refuseSameStem(const File& rFile, eScene eWhat) const;
    void checkFormat(const File& rFile) const;
    void checkSamples(const File& rFile, const void* pImage) const;
    Place placeOf(eScene eWhat, uint64_t iFrame) const;

    std::string m_strWhat;              // the folder, or how many files
    const PixelFormat* m_pGiven;        // null: none
    ImageFileLayout m_layout;           // that of the first file, with the format that is delivered
    std::string m_strFirst;             // the first file
    std::vector<File> m_vecFiles[3];    // by scene
    std::vector<Place> m_vecPlaces[3];  // by scene, in the order of the frames
};

}  // namespace StandIn
}  // namespace XAPEL2
