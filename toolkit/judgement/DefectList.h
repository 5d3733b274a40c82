// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists of defective pixels in files, and the defect map of a reference.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A rectangle of defective pixels, in coordinates of the sensor.
struct DefectArea {
    uint64_t nX = 0, nY = 0;
    uint64_t nWidth = 1, nHeight = 1;
    uint8_t uBits = StandIn::eDefectByHand;  ///< of StandIn::eDefectBit
};

/// Reads a list: CSV with x, y and, where wanted, width and height in each line, or in the columns that a first line
/// names so, in any order (empty lines and what follows # are skipped); or JSON, an array of objects {"x", "y",
/// "width", "height", "kind"} of which the last three may be left out, or the object {"Bad pixels": [{"Pixel": [x, y],
/// ...}]} of EPICS areaDetector, whose ways of replacement are not taken over. An empty list is an empty array or a
/// line of names alone; a file without any entry is none. A file takes 16 MiB and 1,000,000 entries at most.
/// @throws std::runtime_error  names file and entry.
std::vector<DefectArea> readDefectList(const std::string& strFile);

/// True where the name ends in ".csv" or ".json", in letters of either case.
bool isDefectListName(const std::string& strFile);

/// Text of a list: CSV where the name ends in ".csv", in letters of either case; else JSON, {"Bad pixels": [{"Pixel":
/// [x, y], "Median": [2, 2]}]}, which areaDetector reads too and replaces by the median of 5 x 5. Each sensor pixel
/// that is in a marked pixel is listed, see sensorPlace(): CSV has areas for what is binned, JSON single pixels.
std::string defectListText(const std::string& strFile, const StandIn::ReferenceImage& rReference);

/// The map of the areas for a reference of this kind: what holds a sensor pixel of theirs is marked, see sensorPlace().
/// What lies beyond the image is left out.
/// @param[out] rOutside  sensor pixels that were left out.
std::vector<uint8_t> defectMap(const std::vector<DefectArea>& rAreas, const StandIn::ReferenceImage& rReference,
                               uint64_t& rOutside);

/// The map of what findDefects tells of a light reference and, where there is one, its dark.
/// @throws std::invalid_argument  the two have different layouts.
std::vector<uint8_t> foundDefectMap(const StandIn::ReferenceImage& rLight, const StandIn::ReferenceImage* pDark);

/// Marked pixels of a map.
uint64_t countMarked(const std::vector<uint8_t>& rMap);

}  // namespace Toolkit
}  // namespace XAPEL2
