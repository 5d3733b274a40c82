// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A file that appears whole, or not at all.

#pragma once

#include <cstddef>
#include <string>

#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

/// What a save promises besides.
enum eSave {
    eSaveFlushed,  ///< not even a loss of power leaves a file in part; what dead processes left in the folder is taken
                   ///< away
    eSaveQuick,    ///< for one of many files: neither
};

/// The file that a save under this name makes: behind symbolic links, which need not lead to one yet.
/// @throws CFileError  what is there may not be replaced: a folder, a device, a file that is read-only.
std::string savedFile(const std::string& strFile);

/// A file that is written beside the place of its own under a hidden name, and takes that place when it is finished:
/// another file there stays as it was until then. Without finish() nothing is left of it. A symbolic link is followed,
/// so that its target is replaced; a file that may not be written is not replaced either.
/// @threads any, one object from one thread at a time; several processes may write into one folder.
class CSafeFile {
public:
    /// @throws CFileError  the place is taken by something that may not be replaced, or the folder refuses a file; says
    ///                     why in the system's words.
    explicit CSafeFile(const std::string& strFile, eSave eHow = eSaveFlushed);
    ~CSafeFile();
    CSafeFile(const CSafeFile&) = delete;
    CSafeFile& operator=(const CSafeFile&) = delete;

    /// For reading and writing; the object closes it.
    int get() const { return m_file.get(); }

    /// Appends. @throws CFileError
    void write(const std::string& strBytes) const { write(strBytes.data(), strBytes.size()); }
    void write(const void* pBytes, std::size_t nBytes) const;

    /// Gives the file its name; flushes the file before and the folder after it. The last call.
    /// @throws CFileError  nothing was saved; or only the folder could not be flushed, and the file is there.
    void finish();

private:
    const eSave m_eHow;
    std::string m_strPath;  // no symbolic link
    CFileDescriptor m_folder;
    std::string m_strTemporary;  // name in the folder; empty when there is none
    CFileDescriptor m_file;
};

/// Takes away what processes left in the folder that were killed while they saved. No failure matters.
void takeAwayLeftOvers(const std::string& strFolder);

/// Saves bytes as a file, flushed. @throws std::runtime_error  names the file and says why, as CSafeFile does.
void saveFile(const std::string& strFile, const std::string& strBytes);

}  // namespace StandIn
}  // namespace XAPEL2
