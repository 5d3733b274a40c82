// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A file that appears whole and flushed to disk, or not at all.

#pragma once

#include <string>

#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

/// A file that is written beside the place of its own under a hidden name, and takes that place when it is finished:
/// another file there stays as it was until then. Without finish() nothing is left of it. A symbolic link is followed,
/// so that its target is replaced; a file that may not be written is not replaced either.
/// What a process left behind that was killed while it wrote is taken away by the next object in the same folder.
/// @threads any, one object from one thread at a time; several processes may write into one folder.
class CSafeFile {
public:
    /// @throws CFileError  the place is taken by something that may not be replaced, or the folder refuses a file; says
    ///                     why in the system's words.
    explicit CSafeFile(const std::string& strFile);
    ~CSafeFile();
    CSafeFile(const CSafeFile&) = delete;
    CSafeFile& operator=(const CSafeFile&) = delete;

    /// For reading and writing; the object closes it.
    int get() const { return m_file.get(); }

    /// Appends. @throws CFileError
    void write(const std::string& strBytes) const;

    /// Flushes the file, gives it its name, and flushes the folder. The last call.
    /// @throws CFileError  nothing was saved; or only the folder could not be flushed, and the file is there.
    void finish();

private:
    std::string m_strPath;  // no symbolic link
    CFileDescriptor m_folder;
    std::string m_strTemporary;  // name in the folder; empty when there is none
    CFileDescriptor m_file;
};

/// Saves bytes as a file. @throws std::runtime_error  names the file and says why, as CSafeFile does.
void saveFile(const std::string& strFile, const std::string& strBytes);

}  // namespace StandIn
}  // namespace XAPEL2
