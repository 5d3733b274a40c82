// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The same correction with OpenCV.

#include "OpenCvCorrection.h"

#ifdef XAPEL2_HAVE_OPENCV
#include <algorithm>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace XapelBench {

namespace {

/// References as OpenCV's operations want them, and images between the steps.
struct Tables {
    int iRows, iColumns, iType;
    cv::Mat dark, gain;      // 32-bit float
    cv::Mat wholeDark;       // type of the image
    cv::Mat scratch, strip;  // 32-bit float: a whole image, a strip of rows
};

std::shared_ptr<Tables> makeTables(const CScene& rScene) {
    const auto pTables = std::make_shared<Tables>();
    const auto& rLayout = rScene.layout();
    pTables->iRows = static_cast<int>(rLayout.nHeight);
    pTables->iColumns = static_cast<int>(rLayout.samplesPerRow());
    pTables->iType = rLayout.pFormat->nWireBits == 8 ? CV_8U : CV_16U;
    pTables->dark = cv::Mat(rScene.dark(), true).reshape(1, pTables->iRows);
    const cv::Mat signal = cv::Mat(rScene.light(), true).reshape(1, pTables->iRows) - pTables->dark;
    pTables->gain = cv::mean(signal)[0] / signal;
    pTables->gain.setTo(1.0, signal <= 0.0);
    pTables->gain = cv::min(pTables->gain, 16.0);
    pTables->dark.convertTo(pTables->wholeDark, pTables->iType);
    return pTables;
}

void correctFloat(const Tables& rTables, cv::Mat image, const cv::Range& rRows, cv::Mat& rScratch) {
    cv::Mat rows = image.rowRange(rRows);
    rows.convertTo(rScratch, CV_32F);
    cv::subtract(rScratch, rTables.dark.rowRange(rRows), rScratch);
    cv::multiply(rScratch, rTables.gain.rowRange(rRows), rScratch);
    rScratch.convertTo(rows, rTables.iType);
}

}  // namespace

std::vector<OpenCvWay> openCvWays(const CScene& rScene) {
    cv::setNumThreads(1);
    const auto pTables = makeTables(rScene);
    const auto fnImage = [pTables](uint8_t* pImage) {
        return cv::Mat(pTables->iRows, pTables->iColumns, pTables->iType, pImage);
    };
    return {
        {"float, whole image",
         [=](uint8_t* pImage) {
             correctFloat(*pTables, fnImage(pImage), cv::Range(0, pTables->iRows), pTables->scratch);
         }},
        // What lies between the steps stays in the cache.
        {"float, strips of 16 rows",
         [=](uint8_t* pImage) {
             for (int i = 0; i < pTables->iRows; i += 16) {
                 correctFloat(*pTables, fnImage(pImage), cv::Range(i, std::min(i + 16, pTables->iRows)),
                              pTables->strip);
             }
         }},
        // Loses the fractions of the dark.
        {"integers by float gains, strips of 16 rows",
         [=](uint8_t* pImage) {
             cv::Mat image = fnImage(pImage);
             for (int i = 0; i < pTables->iRows; i += 16) {
                 const cv::Range range(i, std::min(i + 16, pTables->iRows));
                 cv::Mat rows = image.rowRange(range);
                 cv::subtract(rows, pTables->wholeDark.rowRange(range), rows);
                 cv::multiply(rows, pTables->gain.rowRange(range), rows, 1.0, pTables->iType);
             }
         }},
    };
}

std::vector<OpenCvWay> openCvDefectWays(const CScene& rScene, const std::vector<uint8_t>& rMap) {
    const auto& rLayout = rScene.layout();
    const int iRows = static_cast<int>(rLayout.nHeight), iColumns = static_cast<int>(rLayout.nWidth);
    const int iType = rLayout.pFormat->nWireBits == 8 ? CV_8U : CV_16U;
    const cv::Mat marked = cv::Mat(rMap, true).reshape(1, iRows) != 0;
    const cv::Mat good = ~marked;
    std::vector<cv::Point> vecPlaces;
    cv::findNonZero(marked, vecPlaces);
    const auto pSmooth = std::make_shared<cv::Mat>();
    return {
        {"median of 3 x 3, copied where marked",
         [=](uint8_t* pImage) {
             cv::Mat image(iRows, iColumns, iType, pImage);
             cv::medianBlur(image, *pSmooth, 3);
             pSmooth->copyTo(image, marked);
         }},
        // All neighbours alike.
        {"mean of 5 x 5 at each mark",
         [=](uint8_t* pImage) {
             cv::Mat image(iRows, iColumns, iType, pImage);
             for (const cv::Point& rPlace : vecPlaces) {
                 const cv::Rect window = cv::Rect(rPlace.x - 2, rPlace.y - 2, 5, 5) & cv::Rect(0, 0, iColumns, iRows);
                 const cv::Scalar mean = cv::mean(image(window), good(window));
                 image(cv::Rect(rPlace.x, rPlace.y, 1, 1)).setTo(mean);
             }
         }},
    };
}

}  // namespace XapelBench

#else

std::vector<XapelBench::OpenCvWay> XapelBench::openCvWays(const CScene&) {
    return {};
}

std::vector<XapelBench::OpenCvWay> XapelBench::openCvDefectWays(const CScene&, const std::vector<uint8_t>&) {
    return {};
}

#endif
