// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists of defective pixels in files, and the defect map of a reference.

#include "toolkit/judgement/DefectList.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "toolkit/judgement/Defects.h"
#include "toolkit/judgement/SensorLine.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

using Json = nlohmann::json;

constexpr std::size_t BYTES_MAX = 16 << 20;
constexpr std::size_t ENTRIES_MAX = 1000000;
constexpr double COORDINATE_MAX = 1e6;

[[noreturn]] void fail(const std::string& strFile, std::size_t iEntry, const char* pWhat) {
    throw std::runtime_error(strFile + ": entry " + std::to_string(iEntry) + ": " + pWhat);
}

/// A whole number from dLeast on.
uint64_t coordinate(const std::string& strFile, std::size_t iEntry, double dValue, double dLeast) {
    if (!(dValue >= dLeast && dValue <= COORDINATE_MAX) || dValue != std::floor(dValue)) {
        fail(strFile, iEntry, "a coordinate is no whole number in its range");
    }
    return static_cast<uint64_t>(dValue);
}

double numberOf(const std::string& strFile, std::size_t iEntry, const Json& rValue) {
    if (!rValue.is_number()) {
        fail(strFile, iEntry, "a coordinate is no number");
    }
    return rValue.get<double>();
}

DefectArea fromPixel(const std::string& strFile, std::size_t iEntry, const Json& rEntry) {
    const auto itPixel = rEntry.find("Pixel");
    if (itPixel == rEntry.end() || !itPixel->is_array() || itPixel->size() != 2) {
        fail(strFile, iEntry, "\"Pixel\" is no pair of numbers");
    }
    return {coordinate(strFile, iEntry, numberOf(strFile, iEntry, (*itPixel)[0]), 0),
            coordinate(strFile, iEntry, numberOf(strFile, iEntry, (*itPixel)[1]), 0), 1, 1};
}

uint8_t bitsOf(const std::string& strFile, std::size_t iEntry, const Json& rKind) {
    const std::string strKind = rKind.is_string() ? rKind.get<std::string>() : std::string();
    if (strKind == "hot") {
        return StandIn::eDefectHot;
    }
    if (strKind == "dead") {
        return StandIn::eDefectDead;
    }
    if (strKind == "bright" || strKind == "dim") {
        return StandIn::eDefectUneven;
    }
    fail(strFile, iEntry, "unknown kind");
}

DefectArea fromObject(const std::string& strFile, std::size_t iEntry, const Json& rEntry) {
    DefectArea area;
    if (!rEntry.contains("x") || !rEntry.contains("y")) {
        fail(strFile, iEntry, "x or y is missing");
    }
    area.nX = coordinate(strFile, iEntry, numberOf(strFile, iEntry, rEntry["x"]), 0);
    area.nY = coordinate(strFile, iEntry, numberOf(strFile, iEntry, rEntry["y"]), 0);
    if (rEntry.contains("width")) {
        area.nWidth = coordinate(strFile, iEntry, numberOf(strFile, iEntry, rEntry["width"]), 1);
    }
    if (rEntry.contains("height")) {
        area.nHeight = coordinate(strFile, iEntry, numberOf(strFile, iEntry, rEntry["height"]), 1);
    }
    if (rEntry.contains("kind")) {
        area.uBits = bitsOf(strFile, iEntry, rEntry["kind"]);
    }
    return area;
}

std::vector<DefectArea> fromJson(const std::string& strFile, const std::string& strText) {
    const Json json = Json::parse(strText, nullptr, false);
    const bool bPixels = json.is_object() && json.contains("Bad pixels");
    const Json& rEntries = bPixels ? json["Bad pixels"] : json;
    if (!rEntries.is_array() || rEntries.size() > ENTRIES_MAX) {
        throw std::runtime_error(strFile + ": neither an array of pixels nor an object with \"Bad pixels\"");
    }
    std::vector<DefectArea> vecAreas;
    for (const Json& rEntry : rEntries) {
        const std::size_t iEntry = vecAreas.size() + 1;
        if (!rEntry.is_object()) {
            fail(strFile, iEntry, "no object");
        }
        vecAreas.push_back(bPixels ? fromPixel(strFile, iEntry, rEntry) : fromObject(strFile, iEntry, rEntry));
    }
    return vecAreas;
}

enum eColumn { eColumnX, eColumnY, eColumnWidth, eColumnHeight };

using Words = std::vector<std::string>;
using Columns = std::vector<eColumn>;

constexpr std::array<const char*, 4> COLUMN_NAMES = {"x", "y", "width", "height"};
constexpr const char* BLANKS = " \t\r";

[[noreturn]] void failAsList(const std::string& strFile) {
    throw std::runtime_error(
        strFile +
        ": no list of defects; a CSV file has lines x,y or x,y,width,height, or begins with a line "
        "of these names in any order, a JSON file is an array or an object with \"Bad pixels\"");
}

std::string lowerCase(std::string strText) {
    std::transform(strText.begin(), strText.end(), strText.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strText;
}

bool endsIn(const std::string& strFile, const std::string& strEnd) {
    return strFile.size() >= strEnd.size() && lowerCase(strFile.substr(strFile.size() - strEnd.size())) == strEnd;
}

// Between commas, or where there are none, between blanks. Empty fields at the end are left out.
Words fieldsOf(const std::string& strLine) {
    Words vecFields;
    const bool bCommas = strLine.find(',') != std::string::npos;
    const char* const pBetween = bCommas ? "," : BLANKS;
    for (std::size_t i = 0; i <= strLine.size();) {
        const std::size_t iEnd = std::min(strLine.find_first_of(pBetween, i), strLine.size());
        const std::size_t iFirst = std::min(strLine.find_first_not_of(BLANKS, i), iEnd);
        const std::size_t iLast = iFirst == iEnd ? iEnd : strLine.find_last_not_of(BLANKS, iEnd - 1) + 1;
        if (bCommas || iFirst != iLast) {
            vecFields.push_back(strLine.substr(iFirst, iLast - iFirst));
        }
        i = iEnd + 1;
    }
    while (!vecFields.empty() && vecFields.back().empty()) {
        vecFields.pop_back();
    }
    return vecFields;
}

eColumn columnOf(const std::string& strFile, std::string strName) {
    if (strName.size() >= 2 && strName.front() == '"' && strName.back() == '"') {
        strName = strName.substr(1, strName.size() - 2);
    }
    const auto iName = std::find(COLUMN_NAMES.begin(), COLUMN_NAMES.end(), lowerCase(strName));
    if (iName != COLUMN_NAMES.end()) {
        return static_cast<eColumn>(iName - COLUMN_NAMES.begin());
    }
    if (strName.size() > 40 ||
        !std::all_of(strName.begin(), strName.end(), [](char c) { return c >= ' ' && c <= '~'; })) {
        failAsList(strFile);
    }
    throw std::runtime_error(strFile + ": unknown column '" + strName + "'; a list has x, y, width and height");
}

Columns columnsOf(const std::string& strFile, const Words& rNames) {
    Columns vecColumns;
    for (const std::string& rName : rNames) {
        const eColumn eOne = columnOf(strFile, rName);
        if (std::count(vecColumns.begin(), vecColumns.end(), eOne) != 0) {
            throw std::runtime_error(strFile + ": there are two columns '" + COLUMN_NAMES[eOne] + "'");
        }
        vecColumns.push_back(eOne);
    }
    for (const eColumn eMust : {eColumnX, eColumnY}) {
        if (std::count(vecColumns.begin(), vecColumns.end(), eMust) == 0) {
            throw std::runtime_error(strFile + ": there is no column '" + COLUMN_NAMES[eMust] + "'");
        }
    }
    return vecColumns;
}

DefectArea fromFields(const std::string& strFile, std::size_t iEntry, const Columns& rColumns, const Words& rFields) {
    std::array<uint64_t, 4> aValues = {0, 0, 1, 1};
    std::array<bool, 4> abGiven{};
    bool bGood = rFields.size() <= rColumns.size();
    for (std::size_t i = 0; bGood && i < rFields.size(); ++i) {
        const std::string& rField = rFields[i];
        if (rField.empty()) {
            continue;
        }
        char* pEnd = nullptr;
        const double dValue = std::strtod(rField.c_str(), &pEnd);
        bGood =
            pEnd == rField.c_str() + rField.size() && rField.find_first_not_of("0123456789+-.eE") == std::string::npos;
        if (bGood) {
            aValues[rColumns[i]] = coordinate(strFile, iEntry, dValue, rColumns[i] >= eColumnWidth ? 1 : 0);
            abGiven[rColumns[i]] = true;
        }
    }
    const bool bSides = std::count(rColumns.begin(), rColumns.end(), eColumnWidth) != 0 &&
                        std::count(rColumns.begin(), rColumns.end(), eColumnHeight) != 0;
    if (!bGood || !abGiven[eColumnX] || !abGiven[eColumnY] ||
        (bSides && abGiven[eColumnWidth] != abGiven[eColumnHeight])) {
        std::string strNames;
        for (const eColumn eOne : rColumns) {
            strNames += (strNames.empty() ? "" : ",") + std::string(COLUMN_NAMES[eOne]);
        }
        fail(strFile, iEntry, ("not " + strNames + ", of which width and height may both be left out").c_str());
    }
    return {aValues[eColumnX], aValues[eColumnY], aValues[eColumnWidth], aValues[eColumnHeight]};
}

std::vector<DefectArea> fromCsv(const std::string& strFile, const std::string& strText) {
    std::vector<DefectArea> vecAreas;
    Columns vecColumns;
    std::istringstream lines(strText);
    for (std::string strLine; std::getline(lines, strLine);) {
        strLine.resize(std::min(strLine.size(), strLine.find('#')));
        const std::size_t iFirst = strLine.find_first_not_of(BLANKS);
        if (iFirst == std::string::npos) {
            continue;
        }
        const Words vecFields = fieldsOf(strLine);
        if (vecColumns.empty()) {
            if (std::string("0123456789+-.,").find(strLine[iFirst]) == std::string::npos) {
                vecColumns = columnsOf(strFile, vecFields);
                continue;
            }
            vecColumns = {eColumnX, eColumnY, eColumnWidth, eColumnHeight};
        }
        const std::size_t iEntry = vecAreas.size() + 1;
        if (iEntry > ENTRIES_MAX) {
            fail(strFile, iEntry, "more than a list may have");
        }
        vecAreas.push_back(fromFields(strFile, iEntry, vecColumns, vecFields));
    }
    if (vecColumns.empty()) {
        failAsList(strFile);
    }
    return vecAreas;
}

// From left to right, and from top to bottom.
std::pair<CSensorLine, CSensorLine> sensorLines(const StandIn::ReferenceImage& rReference) {
    const StandIn::ImageLayout& rLayout = rReference.layout;
    const StandIn::ImageGeometry place = sensorPlace(rReference);
    const bool bCfa = rLayout.pFormat->isCfa();
    return {{place.x, rLayout.nWidth, bCfa}, {place.y, rLayout.nHeight, bCfa}};
}

// What of the sensor makes the marked pixels, line by line.
std::vector<DefectArea> markedAreas(const StandIn::ReferenceImage& rReference) {
    const StandIn::ImageLayout& rLayout = rReference.layout;
    const auto [columns, rows] = sensorLines(rReference);
    std::vector<DefectArea> vecAreas;
    for (std::size_t i = 0; i < rReference.vecDefects.size(); ++i) {
        if (rReference.vecDefects[i] == 0) {
            continue;
        }
        for (const CSensorLine::Run& rRow : rows.runsOf(i / rLayout.nWidth)) {
            for (const CSensorLine::Run& rColumn : columns.runsOf(i % rLayout.nWidth)) {
                vecAreas.push_back({rColumn.iFirst, rRow.iFirst, rColumn.nLength, rRow.nLength});
            }
        }
    }
    std::sort(vecAreas.begin(), vecAreas.end(),
              [](const DefectArea& r, const DefectArea& s) { return std::pair(r.nY, r.nX) < std::pair(s.nY, s.nX); });
    return vecAreas;
}

std::string csvText(const std::vector<DefectArea>& rAreas) {
    const bool bSides =
        std::any_of(rAreas.begin(), rAreas.end(), [](const DefectArea& r) { return r.nWidth != 1 || r.nHeight != 1; });
    std::string strText = bSides ? "x,y,width,height\n" : "x,y\n";
    for (const DefectArea& rArea : rAreas) {
        strText += std::to_string(rArea.nX) + ',' + std::to_string(rArea.nY);
        strText += bSides ? ',' + std::to_string(rArea.nWidth) + ',' + std::to_string(rArea.nHeight) : "";
        strText += '\n';
    }
    return strText;
}

// There are no areas but single pixels in it.
std::string jsonText(const std::vector<DefectArea>& rAreas) {
    std::string strText = "{\"Bad pixels\": [";
    const char* pBetween = "\n";
    for (const DefectArea& rArea : rAreas) {
        for (uint64_t i = 0; i < rArea.nWidth * rArea.nHeight; ++i) {
            strText += pBetween + ("  {\"Pixel\": [" + std::to_string(rArea.nX + i % rArea.nWidth)) + ", " +
                       std::to_string(rArea.nY + i / rArea.nWidth) + "], \"Median\": [2, 2]}";
            pBetween = ",\n";
        }
    }
    return strText + "\n]}\n";
}

}  // namespace

std::vector<DefectArea> readDefectList(const std::string& strFile) {
    std::ifstream file(strFile, std::ios::binary);
    std::string strText(BYTES_MAX + 1, '\0');
    file.read(strText.data(), static_cast<std::streamsize>(strText.size()));
    if (!file.is_open() || file.bad()) {
        throw std::runtime_error(strFile + ": cannot be read");
    }
    strText.resize(static_cast<std::size_t>(file.gcount()));
    if (strText.size() > BYTES_MAX) {
        throw std::runtime_error(strFile + ": too long for a list of defects");
    }
    if (strText.compare(0, 3, "\xEF\xBB\xBF") == 0) {  // a mark of UTF-8
        strText.erase(0, 3);
    }
    const std::size_t iFirst = strText.find_first_not_of(" \t\r\n");
    const bool bJson = iFirst != std::string::npos && (strText[iFirst] == '{' || strText[iFirst] == '[');
    return bJson ? fromJson(strFile, strText) : fromCsv(strFile, strText);
}

bool isDefectListName(const std::string& strFile) {
    return endsIn(strFile, ".csv") || endsIn(strFile, ".json");
}

std::string defectListText(const std::string& strFile, const StandIn::ReferenceImage& rReference) {
    const std::vector<DefectArea> vecAreas = markedAreas(rReference);
    return endsIn(strFile, ".csv") ? csvText(vecAreas) : jsonText(vecAreas);
}

std::vector<uint8_t> defectMap(const std::vector<DefectArea>& rAreas, const StandIn::ReferenceImage& rReference,
                               uint64_t& rOutside) {
    const uint64_t nWidth = rReference.layout.nWidth;
    const auto [columns, rows] = sensorLines(rReference);
    std::vector<uint8_t> vecMap(static_cast<std::size_t>(nWidth * rReference.layout.nHeight), 0);
    rOutside = 0;
    for (const DefectArea& rArea : rAreas) {
        const CSensorLine::Hits x = columns.hitsOf({rArea.nX, rArea.nWidth});
        const CSensorLine::Hits y = rows.hitsOf({rArea.nY, rArea.nHeight});
        for (const uint64_t iRow : y.vecPixels) {
            for (const uint64_t iColumn : x.vecPixels) {
                uint8_t& rBits = vecMap[static_cast<std::size_t>(iRow * nWidth + iColumn)];
                rBits = static_cast<uint8_t>(rBits | rArea.uBits);
            }
        }
        rOutside += rArea.nWidth * rArea.nHeight - x.nInside * y.nInside;
    }
    return vecMap;
}

std::vector<uint8_t> foundDefectMap(const StandIn::ReferenceImage& rLight, const StandIn::ReferenceImage* pDark) {
    std::vector<Defect> vecFound = findDefects(rLight, pDark);
    if (pDark) {
        const std::vector<Defect> vecHot = findDefects(*pDark);
        vecFound.insert(vecFound.end(), vecHot.begin(), vecHot.end());
    }
    std::vector<uint8_t> vecMap(static_cast<std::size_t>(rLight.layout.nWidth * rLight.layout.nHeight), 0);
    for (const Defect& rDefect : vecFound) {
        uint8_t& rBits = vecMap[static_cast<std::size_t>(rDefect.nY * rLight.layout.nWidth + rDefect.nX)];
        const uint8_t uBit = rDefect.eKind == eHot    ? StandIn::eDefectHot
                             : rDefect.eKind == eDead ? StandIn::eDefectDead
                                                      : StandIn::eDefectUneven;
        rBits = static_cast<uint8_t>(rBits | uBit);
    }
    return vecMap;
}

uint64_t countMarked(const std::vector<uint8_t>& rMap) {
    return rMap.size() - static_cast<uint64_t>(std::count(rMap.begin(), rMap.end(), 0));
}

}  // namespace Toolkit
}  // namespace XAPEL2
