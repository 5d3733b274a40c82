// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The image files that some words name.

#include "toolkit/frames/FileList.h"

#include <glob.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "standin/files/ImageFile.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

namespace {

using Files = std::vector<std::string>;

// The program writes these beside corrected frames, and they are none.
bool isUncertainty(const std::string& strName) {
    const std::string strEnd = ".uncertainty.tif";
    return strName.size() >= strEnd.size() &&
           strName.compare(strName.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

Files filesOfFolder(const std::string& strFolder) {
    Files vecFiles;
    std::error_code error;
    fs::directory_iterator it(strFolder, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const std::string strName = it->path().filename().string();
        // Hidden ones are not meant.
        if (strName[0] != '.' && StandIn::hasImageSuffix(strName) && !isUncertainty(strName)) {
            vecFiles.push_back(it->path().string());
        }
    }
    if (error) {
        throw std::runtime_error(strFolder + ": the folder cannot be read: " + error.message());
    }
    return vecFiles;
}

Files filesOfPattern(const std::string& strPattern) {
    Files vecFiles;
    glob_t found{};
    if (glob(strPattern.c_str(), 0, nullptr, &found) == 0) {
        vecFiles.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    globfree(&found);
    return vecFiles;
}

}  // namespace

std::vector<std::string> listFiles(const std::vector<std::string>& vecWords, const CSourceFiles& rLeftOut) {
    Files vecFiles;
    for (const std::string& rWord : vecWords) {
        std::error_code ignored;
        const bool bFolder = fs::is_directory(rWord, ignored);
        const bool bPattern =
            !fs::exists(fs::symlink_status(rWord, ignored)) && rWord.find_first_of("*?[") != std::string::npos;
        if (!bFolder && !bPattern) {
            vecFiles.push_back(rWord);
            continue;
        }
        Files vecFound = bFolder ? filesOfFolder(rWord) : filesOfPattern(rWord);
        vecFound.erase(std::remove_if(vecFound.begin(), vecFound.end(),
                                      [&](const std::string& r) { return rLeftOut.contains(r); }),
                       vecFound.end());
        if (vecFound.empty()) {
            throw CUsageError(rWord + (bFolder ? ": the folder has no image file (.pgm, .ppm, .tif, .tiff, .png)"
                                               : ": no file matches"));
        }
        std::sort(vecFound.begin(), vecFound.end());
        vecFiles.insert(vecFiles.end(), vecFound.begin(), vecFound.end());
    }
    return vecFiles;
}

}  // namespace Toolkit
}  // namespace XAPEL2
