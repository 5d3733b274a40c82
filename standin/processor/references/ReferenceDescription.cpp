// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The JSON text that a reference file carries in its image description.
//
// Read from the stream of tokens, never as a tree: nothing then grows with what a file says, and the destructor of a
// tree, which allocates, cannot end the process for want of memory.

#include "standin/processor/references/ReferenceDescription.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>

#include "xapel2_standin/GeometryNames.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

using Json = nlohmann::json;

constexpr std::size_t BYTES_MAX = 64 << 10;
constexpr std::size_t NOTE_BYTES_MAX = 63 << 10;  // the rest of a description takes a few hundred bytes
constexpr std::size_t DEPTH_MAX = 8;
constexpr double IMAGES_MAX = 9007199254740992.0;  // 2^53, exact as a double

constexpr const char* OUTLIERS[] = {"brightness", "shape", "samples"};  // by eOutlier

void require(bool bGood, const std::string& strElse) {
    if (!bGood) {
        throw CFileError(strElse);
    }
}

/// Takes the tokens of a description: keeps texts and numbers of the outer object by name, and the member "camera" as
/// JSON text. The last of several members of one name counts.
class CDescriptionReader : public nlohmann::json_sax<Json> {
public:
    double number(const std::string& strName, double dLargest) const {
        const auto iNumber = m_numbers.find(strName);
        require(iNumber != m_numbers.end(), "no number in the description: " + strName);
        require(iNumber->second >= 0.0 && iNumber->second <= dLargest, "a number out of range: " + strName);
        return iNumber->second;
    }
    bool has(const std::string& strName) const { return m_numbers.count(strName) != 0; }
    std::string text(const std::string& strName) const {
        const auto iText = m_texts.find(strName);
        require(iText != m_texts.end(), "no text in the description: " + strName);
        return iText->second;
    }
    const std::string& camera() const { return m_strCamera; }
    bool hasOutput() const { return m_bHasOutput; }
    /// Passes over what is no geometry inside its object.
    void takeOthers() { m_bOthers = true; }
    RecordingOutliers outliers(const ImageLayout& rLayout) const;
    ReferenceOutput output(double dFull) const;
    ImageGeometry geometry(const ImageLayout& rLayout) const;

    bool null() override { return value("null"); }
    bool boolean(bool bValue) override {
        if (isGeometryMember()) {
            m_geometryNumbers[m_strInnerKey] = bValue ? 1.0 : 0.0;
            return true;
        }
        if (isPlaceMember() && m_strPlaceKey == "leftOut") {
            m_outliers.vecPlaces.back().bLeftOut = bValue;
        }
        return value(bValue ? "true" : "false");
    }
    bool number_integer(number_integer_t iValue) override {
        return number(static_cast<double>(iValue), std::to_string(iValue));
    }
    bool number_unsigned(number_unsigned_t uValue) override {
        return number(static_cast<double>(uValue), std::to_string(uValue));
    }
    bool number_float(number_float_t dValue, const string_t& strText) override { return number(dValue, strText); }
    bool string(string_t& strValue) override {
        if (m_nDepth == 1) {
            m_texts[m_strKey] = strValue;
        }
        if (isPlaceMember() && m_strPlaceKey == "what") {
            const auto iWhat = std::find(std::begin(OUTLIERS), std::end(OUTLIERS), strValue) - std::begin(OUTLIERS);
            require(iWhat <= eOutlierSamples, "unknown kind of outlier");
            m_outliers.vecPlaces.back().eWhat = static_cast<eOutlier>(iWhat);
        }
        if (isOutputMember() && m_strInnerKey == "target") {
            require(strValue == "mean" || strValue == "max", "unknown target of the output");
            m_output.eTarget = strValue == "max" ? eTargetMax : eTargetMean;
            return true;
        }
        if (isGeometryMember()) {
            m_geometryTexts[m_strInnerKey] = strValue;
            return true;
        }
        return value(Json(strValue).dump());
    }
    bool binary(binary_t&) override { return false; }  // not in JSON text
    bool key(string_t& strKey) override {
        if (m_nDepth == 1) {
            m_strKey = strKey;
            m_bCamera = strKey == "camera";
            m_bOutput = strKey == "output";
            m_bGeometry = strKey == "geometry";
            m_bHasGeometry = m_bHasGeometry || m_bGeometry;
            m_bOutliers = strKey == "outliers";
            m_outliers = m_bOutliers ? RecordingOutliers() : m_outliers;
            m_bHasOutput = m_bHasOutput || m_bOutput;
            if (m_bCamera) {
                m_strCamera.clear();
            }
            m_bComma = false;
        } else if (m_nDepth == 2 && (m_bOutput || m_bGeometry)) {
            m_strInnerKey = strKey;
        } else if (m_bOutliers && (m_nDepth == 2 || m_nDepth == 4)) {
            (m_nDepth == 2 ? m_strOutliersKey : m_strPlaceKey) = strKey;
        } else if (m_bCamera) {
            append(Json(strKey).dump() + ':');
            m_bComma = false;
        }
        return true;
    }
    bool start_object(std::size_t) override { return open('{'); }
    bool end_object() override { return close('}'); }
    bool start_array(std::size_t) override {
        require(m_nDepth != 0, "the description is no JSON object");
        require(m_nDepth != 1 || !m_bCamera, "the camera settings are no JSON object");
        require(m_nDepth != 1 || !m_bOutput, "the output is no JSON object");
        require(m_nDepth != 1 || !m_bGeometry, "the geometry is no JSON object");
        return open('[');
    }
    bool end_array() override { return close(']'); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& rError) override {
        throw CFileError(std::string("the description cannot be read: ") + rError.what());
    }

private:
    /// A member of the outliers, or of one of their places. They are checked once all is read.
    void outlierNumber(double dValue) {
        if (m_bOutliers && m_nDepth == 2) {
            m_mapOutliers[m_strOutliersKey] = dValue;
        }
        if (!isPlaceMember()) {
            return;
        }
        FrameOutlier& rPlace = m_outliers.vecPlaces.back();
        const std::map<std::string, uint64_t*> mapMembers = {
            {"frame", &rPlace.iFrame}, {"x", &rPlace.nX},           {"y", &rPlace.nY},
            {"width", &rPlace.nWidth}, {"height", &rPlace.nHeight}, {"samples", &rPlace.nSamples}};
        const auto itMember = mapMembers.find(m_strPlaceKey);
        if (itMember != mapMembers.end()) {
            require(dValue >= 0.0 && dValue <= IMAGES_MAX, "a number of an outlier is out of range");
            *itMember->second = static_cast<uint64_t>(dValue);
        } else if (m_strPlaceKey == "deviation") {
            rPlace.dDeviation = dValue;
        }
    }
    bool isPlaceMember() const { return m_bOutliers && m_nDepth == 4 && m_bPlaces; }
    bool number(double dValue, const std::string& strText) {
        outlierNumber(dValue);
        if (m_nDepth == 1) {
            m_numbers[m_strKey] = dValue;
        }
        if (isOutputMember() && m_strInnerKey == "target") {
            m_output.eTarget = eTargetValue;
            m_output.dTarget = dValue;
            return true;
        }
        if (isOutputMember() && m_strInnerKey == "pedestal") {
            m_output.dPedestal = dValue;
            return true;
        }
        if (isGeometryMember()) {
            m_geometryNumbers[m_strInnerKey] = dValue;
            return true;
        }
        return value(strText);
    }
    bool value(const std::string& strText) {
        require(m_nDepth != 0, "the description is no JSON object");
        require(m_nDepth != 1 || !m_bCamera, "the camera settings are no JSON object");
        require(m_nDepth != 1 || !m_bOutput, "the output is no JSON object");
        require(m_nDepth != 1 || !m_bGeometry, "the geometry is no JSON object");
        require(m_bOthers || !isGeometryMember(), "a member of the geometry has a wrong type");
        require(!isOutputMember() || (m_strInnerKey != "target" && m_strInnerKey != "pedestal"),
                "a member of the output has a wrong type");
        append(strText);
        m_bComma = true;
        return true;
    }
    bool isOutputMember() const { return m_nDepth == 2 && m_bOutput; }
    bool isGeometryMember() const { return m_nDepth == 2 && m_bGeometry; }
    bool open(char cBracket) {
        require(m_bOthers || !isGeometryMember(), "a member of the geometry has a wrong type");
        require(!isOutputMember() || (m_strInnerKey != "target" && m_strInnerKey != "pedestal"),
                "a member of the output has a wrong type");
        require(++m_nDepth <= DEPTH_MAX, "the description is nested too deeply");
        if (m_bOutliers && m_nDepth == 3) {
            m_bPlaces = cBracket == '[' && m_strOutliersKey == "places";
        }
        if (isPlaceMember()) {
            require(cBracket == '{' && m_outliers.vecPlaces.size() < RecordingOutliers::PLACES_MAX,
                    "the places of the outliers are no list, or too many");
            m_outliers.vecPlaces.emplace_back();
            m_strPlaceKey.clear();
        }
        append(std::string(1, cBracket));
        m_bComma = false;
        return true;
    }
    bool close(char cBracket) {
        m_bComma = false;
        if (--m_nDepth != 0) {
            append(std::string(1, cBracket));
        }
        m_bComma = true;
        return true;
    }
    void append(const std::string& strText) {
        if (!m_bCamera) {
            return;
        }
        if (m_bComma) {
            m_strCamera += ',';
        }
        m_strCamera += strText;
    }

    std::map<std::string, double> m_numbers;
    std::map<std::string, std::string> m_texts;
    std::string m_strCamera;
    std::string m_strKey;      // of the outer object
    std::size_t m_nDepth = 0;  // open brackets
    ReferenceOutput m_output;
    std::string m_strInnerKey;  // inside the output or the geometry
    std::map<std::string, double> m_geometryNumbers;
    std::map<std::string, std::string> m_geometryTexts;
    bool m_bGeometry = false;  // inside the member "geometry"
    bool m_bHasGeometry = false;
    bool m_bOthers = false;
    RecordingOutliers m_outliers;
    std::map<std::string, double> m_mapOutliers;
    std::string m_strOutliersKey, m_strPlaceKey;
    bool m_bOutliers = false;  // inside the member "outliers"
    bool m_bPlaces = false;    // inside its member "places"
    bool m_bOutput = false;    // inside the member "output"
    bool m_bHasOutput = false;
    bool m_bCamera = false;  // inside the member "camera"
    bool m_bComma = false;   // a value stands before in the same brackets
};

// Nothing of a steady recording. The places are left away where there is no room for them.
std::string outliersText(const RecordingOutliers& rOutliers, std::size_t nRoom) {
    if (rOutliers.isEmpty()) {
        return {};
    }
    const std::string strCounts = R"(,"outliers":{"frames":)" + std::to_string(rOutliers.nFrames) +
                                  R"(,"framesLeftOut":)" + std::to_string(rOutliers.nFramesLeftOut) + R"(,"samples":)" +
                                  std::to_string(rOutliers.nSamples) + R"(,"samplesLeftOut":)" +
                                  std::to_string(rOutliers.nSamplesLeftOut);
    std::string strPlaces;
    for (const FrameOutlier& rPlace : rOutliers.vecPlaces) {
        strPlaces += std::string(strPlaces.empty() ? "" : ",") + R"({"what":")" + OUTLIERS[rPlace.eWhat] +
                     R"(","frame":)" + std::to_string(rPlace.iFrame) + R"(,"x":)" + std::to_string(rPlace.nX) +
                     R"(,"y":)" + std::to_string(rPlace.nY) + R"(,"width":)" + std::to_string(rPlace.nWidth) +
                     R"(,"height":)" + std::to_string(rPlace.nHeight) + R"(,"samples":)" +
                     std::to_string(rPlace.nSamples) + R"(,"deviation":)" + Json(rPlace.dDeviation).dump() +
                     R"(,"leftOut":)" + (rPlace.bLeftOut ? "true}" : "false}");
    }
    strPlaces = R"(,"places":[)" + strPlaces + "]";
    return strCounts + (strCounts.size() + strPlaces.size() + 2 < nRoom ? strPlaces : "") + "}";
}

std::string classNoiseName(std::size_t iClass) {
    return "temporalNoise" + std::to_string(iClass);
}

// What older files do not have.
void readNewer(const CDescriptionReader& rReader, double dFull, ReferenceImage& rReference) {
    if (rReader.has("firstMean")) {
        rReference.means = {rReader.number("firstMean", dFull), rReader.number("lastMean", dFull),
                            rReader.number("leastMean", dFull), rReader.number("mostMean", dFull)};
    }
    for (unsigned k = 0; rReader.has(classNoiseName(0)) && k < rReference.layout.classes(); ++k) {
        rReference.vecClassNoise.push_back(rReader.number(classNoiseName(k), dFull));
    }
    if (rReader.has("neighbourNoise")) {
        rReference.dNeighbourNoise = rReader.number("neighbourNoise", dFull);
    }
    if (rReader.has("rows")) {
        const double dRows = rReader.number("rows", IMAGE_SIDE_MAX);
        require(rReference.layout.nHeight == 1 && dRows >= 1.0 && dRows == std::floor(dRows),
                "rows is no number from 1 on, or the image is no line");
        rReference.nRows = static_cast<uint64_t>(dRows);
    }
    if (rReader.has("largest")) {
        rReference.uLargest = static_cast<uint32_t>(rReader.number("largest", dFull));
    }
}

// Of one direction the mode of its binning may be missing, and the mirror, but nothing else.
ImageGeometry CDescriptionReader::geometry(const ImageLayout& rLayout) const {
    const auto fnNumber = [this](const char* pName, double dLeast, double dMost) {
        const auto iNumber = m_geometryNumbers.find(pName);
        require(iNumber != m_geometryNumbers.end() && iNumber->second >= dLeast && iNumber->second <= dMost &&
                    iNumber->second == std::floor(iNumber->second),
                std::string("the geometry has no ") + pName + ", or one out of range");
        return static_cast<uint64_t>(iNumber->second);
    };
    const auto fnAxis = [&](const AxisNames& rNames) {
        constexpr double SIDE_MAX = IMAGE_SIDE_MAX;
        GeometryAxis axis;
        axis.nSensor = fnNumber(rNames.pSensor, 1.0, SIDE_MAX);
        axis.nOffset = fnNumber(rNames.pOffset, 0.0, SIDE_MAX);
        axis.nBinning = fnNumber(rNames.pBinning, 1.0, BINNING_MAX);
        require(m_geometryTexts.count(rNames.pReverse) == 0 && m_geometryNumbers.count(rNames.pMode) == 0,
                "a member of the geometry has a wrong type");
        const bool bMirror = m_geometryNumbers.count(rNames.pReverse) != 0;
        axis.bReverse = bMirror && fnNumber(rNames.pReverse, 0.0, 1.0) != 0;
        const auto iMode = m_geometryTexts.find(rNames.pMode);
        if (iMode != m_geometryTexts.end()) {
            require(iMode->second == "Sum" || iMode->second == "Average", "the geometry has an unknown binning mode");
            axis.eMode = iMode->second == "Sum" ? eBinningSum : eBinningAverage;
        }
        return axis;
    };
    if (!m_bHasGeometry) {
        return {};
    }
    const ImageGeometry geometry = {fnAxis(NAMES_X), fnAxis(NAMES_Y)};
    require(rLayout.liesOn(geometry), "the image does not lie on the sensor of its geometry");
    return geometry;
}

std::string geometryText(const ImageGeometry& rGeometry) {
    const auto fnAxis = [](const AxisNames& rNames, const GeometryAxis& rAxis) {
        const auto fnMember = [](const char* pName, const std::string& strValue) {
            return std::string("\"") + pName + "\":" + strValue;
        };
        return fnMember(rNames.pSensor, std::to_string(rAxis.nSensor)) + "," +
               fnMember(rNames.pOffset, std::to_string(rAxis.nOffset)) + "," +
               fnMember(rNames.pBinning, std::to_string(rAxis.nBinning)) + "," +
               (rAxis.eMode == eBinningUnknown
                    ? ""
                    : fnMember(rNames.pMode, rAxis.eMode == eBinningSum ? "\"Sum\"" : "\"Average\"") + ",") +
               fnMember(rNames.pReverse, rAxis.bReverse ? "true" : "false");
    };
    return "{" + fnAxis(NAMES_X, rGeometry.x) + "," + fnAxis(NAMES_Y, rGeometry.y) + "}";
}

RecordingOutliers CDescriptionReader::outliers(const ImageLayout& rLayout) const {
    RecordingOutliers result = m_outliers;
    const std::map<std::string, uint64_t*> mapMembers = {{"frames", &result.nFrames},
                                                         {"framesLeftOut", &result.nFramesLeftOut},
                                                         {"samples", &result.nSamples},
                                                         {"samplesLeftOut", &result.nSamplesLeftOut}};
    for (const auto& rNumber : m_mapOutliers) {
        const auto itMember = mapMembers.find(rNumber.first);
        if (itMember != mapMembers.end()) {
            require(rNumber.second >= 0.0 && rNumber.second <= IMAGES_MAX, "a number of outliers is out of range");
            *itMember->second = static_cast<uint64_t>(rNumber.second);
        }
    }
    for (const FrameOutlier& rPlace : result.vecPlaces) {
        require(rPlace.nX + rPlace.nWidth <= rLayout.nWidth && rPlace.nY + rPlace.nHeight <= rLayout.nHeight,
                "an outlier is outside the image");
        require(std::abs(rPlace.dDeviation) <= rLayout.pFormat->fullScale(), "an outlier is out of range");
    }
    return result;
}

ReferenceOutput CDescriptionReader::output(double dFull) const {
    require(m_output.eTarget != eTargetValue || (m_output.dTarget > 0.0 && m_output.dTarget <= dFull),
            "the target of the output is not above 0 and up to full scale");
    require(m_output.dPedestal >= 0.0 && m_output.dPedestal <= dFull / 2,
            "the pedestal of the output is not from 0 to half of full scale");
    return m_output;
}

}  // namespace

std::string makeDescription(const ReferenceImage& rReference) {
    const auto fnNumber = [](double dValue) { return Json(dValue).dump(); };
    std::string strText = std::string(R"({"kind":")") + (rReference.eKind == eReferenceLight ? "light" : "dark") +
                          R"(","pixelFormat":")" + rReference.layout.pFormat->pName + R"(","images":)" +
                          std::to_string(rReference.nImages) + R"(,"saturatedShare":)" +
                          fnNumber(rReference.dSaturatedShare) + R"(,"mean":)" + fnNumber(rReference.dMean) +
                          R"(,"temporalNoise":)" + fnNumber(rReference.dTemporalNoise);
    const FrameMeans& rMeans = rReference.means;
    if (!std::isnan(rMeans.dFirst)) {
        strText += R"(,"firstMean":)" + fnNumber(rMeans.dFirst) + R"(,"lastMean":)" + fnNumber(rMeans.dLast) +
                   R"(,"leastMean":)" + fnNumber(rMeans.dLeast) + R"(,"mostMean":)" + fnNumber(rMeans.dMost);
    }
    for (std::size_t k = 0; k < rReference.vecClassNoise.size(); ++k) {
        strText += ",\"" + classNoiseName(k) + "\":" + fnNumber(rReference.vecClassNoise[k]);
    }
    if (rReference.dNeighbourNoise > 0.0) {
        strText += R"(,"neighbourNoise":)" + fnNumber(rReference.dNeighbourNoise);
    }
    if (rReference.nRows != 1) {
        strText += R"(,"rows":)" + std::to_string(rReference.nRows);
    }
    if (rReference.uLargest != 0) {
        strText += R"(,"largest":)" + std::to_string(rReference.uLargest);
    }
    if (!rReference.strCamera.empty()) {
        require(Json::accept(rReference.strCamera), "the camera settings are no JSON object");
        strText += R"(,"camera":)" + rReference.strCamera;
    }
    if (rReference.geometry.isKnown()) {
        strText += R"(,"geometry":)" + geometryText(rReference.geometry);
    }
    if (!rReference.output.isDefault()) {
        const ReferenceOutput& rOutput = rReference.output;
        strText += R"(,"output":{"target":)" + (rOutput.eTarget == eTargetValue ? fnNumber(rOutput.dTarget)
                                                : rOutput.eTarget == eTargetMax ? R"("max")"
                                                                                : R"("mean")");
        strText += R"(,"pedestal":)" + fnNumber(rOutput.dPedestal) + '}';
    }
    strText += outliersText(rReference.outliers, BYTES_MAX - std::min(BYTES_MAX, strText.size()));
    strText += '}';
    parseDescription(strText.c_str(), rReference.layout.nWidth, rReference.layout.nHeight);
    return strText;
}

void checkNote(const std::string& strJson) {
    require(strJson.size() <= NOTE_BYTES_MAX, "the camera settings are too long");
    ReferenceImage reference;
    reference.layout = {&pixelFormats().front(), 1, 1};
    reference.nImages = 1;
    reference.strCamera = strJson;
    makeDescription(reference);
}

ImageGeometry geometryOfNote(const std::string& strJson, const ImageLayout& rLayout) {
    // As if the settings were the member "geometry"; they have the same names.
    const std::string strText = R"({"geometry":)" + strJson + "}";
    try {
        CDescriptionReader oReader;
        oReader.takeOthers();
        Json::sax_parse(strText, &oReader);
        return oReader.geometry(rLayout);
    } catch (const CFileError&) {
        return {};
    }
}

ReferenceImage parseDescription(const char* strText, uint64_t nWidth, uint64_t nHeight) {
    const std::size_t nLength = strnlen(strText, BYTES_MAX + 1);
    require(nLength <= BYTES_MAX, "the description is too long");
    CDescriptionReader oReader;
    Json::sax_parse(strText, strText + nLength, &oReader);

    ReferenceImage reference;
    const std::string strKind = oReader.text("kind");
    require(strKind == "dark" || strKind == "light", "unknown kind of reference");
    reference.eKind = strKind == "light" ? eReferenceLight : eReferenceDark;
    reference.layout = {findPixelFormat(oReader.text("pixelFormat")), nWidth, nHeight};
    require(reference.layout.pFormat != nullptr, "unknown pixel format");
    require(reference.layout.isPossible(), "impossible size");
    const double dFull = reference.layout.pFormat->fullScale();
    const double dImages = oReader.number("images", IMAGES_MAX);
    require(dImages >= 1.0 && dImages == std::floor(dImages), "images is no number from 1 on");
    reference.nImages = static_cast<uint64_t>(dImages);
    reference.dSaturatedShare = oReader.number("saturatedShare", 1.0);
    reference.dMean = oReader.number("mean", dFull);
    reference.dTemporalNoise = oReader.number("temporalNoise", dFull);
    readNewer(oReader, dFull, reference);
    reference.outliers = oReader.outliers(reference.layout);
    reference.strCamera = oReader.camera();
    reference.geometry = oReader.geometry(reference.layout);
    require(!oReader.hasOutput() || reference.eKind == eReferenceLight,
            "only a light reference tells how the output is scaled");
    reference.output = oReader.output(dFull);
    return reference;
}

}  // namespace StandIn
}  // namespace XAPEL2
