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

#include "toolkit/judgement/Defects.h"

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

}  // namespace

SensorOffset sensorOffset(const StandIn::ReferenceImage& rReference) {
    const Json json = Json::parse(rReference.strCamera, nullptr, false);
    const auto valueOf = [&](const char* pName) -> uint64_t {
        if (!json.is_object() || !json.contains(pName) || !json[pName].is_number()) {
            return 0;
        }
        const double dValue = json[pName].get<double>();
        return dValue >= 0.0 && dValue <= COORDINATE_MAX ? static_cast<uint64_t>(dValue) : 0;
    };
    return {valueOf("OffsetX"), valueOf("OffsetY")};
}

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
    const SensorOffset offset = sensorOffset(rReference);
    const bool bCsv = endsIn(strFile, ".csv");
    std::string strText = bCsv ? "x,y\n" : "{\"Bad pixels\": [";
    const char* pBetween = "\n";
    for (std::size_t i = 0; i < rReference.vecDefects.size(); ++i) {
        if (rReference.vecDefects[i] == 0) {
            continue;
        }
        const std::string strX = std::to_string(i % rReference.layout.nWidth + offset.nX);
        const std::string strY = std::to_string(i / rReference.layout.nWidth + offset.nY);
        if (bCsv) {
            strText += strX + ',' + strY + '\n';
        } else {
            strText += pBetween + ("  {\"Pixel\": [" + strX + ", " + strY + "], \"Median\": [2, 2]}");
            pBetween = ",\n";
        }
    }
    return strText + (bCsv ? "" : "\n]}\n");
}

std::vector<uint8_t> defectMap(const std::vector<DefectArea>& rAreas, const StandIn::ReferenceImage& rReference,
                               uint64_t& rOutside) {
    const SensorOffset offset = sensorOffset(rReference);
    const uint64_t nWidth = rReference.layout.nWidth;
    const uint64_t nHeight = rReference.layout.nHeight;
    std::vector<uint8_t> vecMap(static_cast<std::size_t>(nWidth * nHeight), 0);
    rOutside = 0;
    for (const DefectArea& rArea : rAreas) {
        const auto inside = [](uint64_t iAt, uint64_t nOffset, uint64_t nSide) {
            return std::clamp(iAt, nOffset, nOffset + nSide) - nOffset;
        };
        const uint64_t iLeft = inside(rArea.nX, offset.nX, nWidth);
        const uint64_t iRight = inside(rArea.nX + rArea.nWidth, offset.nX, nWidth);
        const uint64_t iTop = inside(rArea.nY, offset.nY, nHeight);
        const uint64_t iBottom = inside(rArea.nY + rArea.nHeight, offset.nY, nHeight);
        for (uint64_t y = iTop; y < iBottom; ++y) {
            for (uint64_t x = iLeft; x < iRight; ++x) {
                uint8_t& rBits = vecMap[static_cast<std::size_t>(y * nWidth + x)];
                rBits = static_cast<uint8_t>(rBits | rArea.uBits);
            }
        }
        rOutside += rArea.nWidth * rArea.nHeight - (iRight - iLeft) * (iBottom - iTop);
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
