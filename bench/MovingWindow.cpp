// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Group move: what a window that moves costs, and what other ways to correct it cost in error.

#include "MovingWindow.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Scene.h"
#include "standin/processor/AppliedReferences.h"

namespace XapelBench {

namespace {

using namespace XAPEL2::StandIn;

ReferencePair pairOf(const CScene& rScene) {
    ReferencePair pair;
    for (const eReferenceKind eKind : {eReferenceDark, eReferenceLight}) {
        auto pReference = std::make_shared<ReferenceImage>();
        pReference->eKind = eKind;
        pReference->layout = rScene.layout();
        pReference->geometry = {{rScene.layout().nWidth, 0, 1, eBinningAverage, false},
                                {rScene.layout().nHeight, 0, 1, eBinningAverage, false}};
        pReference->vecSamples = eKind == eReferenceDark ? rScene.dark() : rScene.light();
        pair[eKind] = pReference;
    }
    return pair;
}

/// The same pair, of a sensor that has one row more.
ReferencePair narrowPair(const ReferencePair& rPair) {
    ReferencePair narrow;
    for (const eReferenceKind eKind : {eReferenceDark, eReferenceLight}) {
        auto pReference = std::make_shared<ReferenceImage>(*rPair[eKind]);
        ++pReference->geometry.y.nSensor;
        narrow[eKind] = pReference;
    }
    return narrow;
}

void refuse(ePlaceObstacle eWhy) {
    if (eWhy != eOutside) {
        throw std::runtime_error("wrong result: a place outside the reference is not refused");
    }
}

/// Mean of a frame by what it should be, and the spread around the mean, both in percent.
struct Errors {
    double dMean = 0.0, dSpread = 0.0;
};
Errors errorsOf(const std::vector<double>& rResult, double dTarget) {
    Errors errors;
    double dSquares = 0.0;
    for (const double d : rResult) {
        errors.dMean += 100.0 * (d / dTarget - 1.0) / static_cast<double>(rResult.size());
    }
    for (const double d : rResult) {
        dSquares += std::pow(100.0 * (d / dTarget - 1.0) - errors.dMean, 2.0);
    }
    errors.dSpread = std::sqrt(dSquares / static_cast<double>(rResult.size()));
    return errors;
}

/// One even frame of a window near the corner, corrected in three ways.
void compareErrors(const Options& rOptions, const CScene& rScene, CAppliedReferences& rApplied) {
    const ImageLayout& rSensor = rScene.layout();
    const ImageLayout window = {rSensor.pFormat, rSensor.nWidth / 4, rSensor.nHeight / 4};
    ImageGeometry place = rApplied.main().geometry;
    place.x.nOffset = rSensor.nWidth - window.nWidth - 8;
    place.y.nOffset = rSensor.nHeight - window.nHeight - 8;
    const ClassTargets targets = classTargets(rSensor, &rScene.dark(), &rScene.light(), {});
    std::vector<uint16_t> vecFrame;
    std::vector<double> vecSignal, vecResized;
    for (std::size_t i = 0; i < window.samples(); ++i) {
        const std::size_t iX = i % window.nWidth, iY = i / window.nWidth;
        const auto fnSignal = [&](std::size_t iAt) {
            return static_cast<double>(rScene.light()[iAt]) - static_cast<double>(rScene.dark()[iAt]);
        };
        const std::size_t iPlace = (iY + place.y.nOffset) * rSensor.nWidth + iX + place.x.nOffset;
        vecSignal.push_back(fnSignal(iPlace));
        vecFrame.push_back(static_cast<uint16_t>(std::lround(rScene.light()[iPlace])));
        vecResized.push_back(fnSignal(iY * 4 * rSensor.nWidth + iX * 4));  // the nearest pixel of the whole reference
    }
    std::vector<uint8_t> vecImage(window.bytes());
    packSamples(*window.pFormat, vecFrame.data(), 0, vecFrame.size(), vecImage.data());
    rApplied.build(window, place).pCorrection->correct(vecImage.data());
    unpackSamples(*window.pFormat, vecImage.data(), 0, vecFrame.size(), vecFrame.data());
    const std::vector<double> vecOurs(vecFrame.begin(), vecFrame.end());
    double dCropMean = 0.0, dResizedMean = 0.0;
    for (std::size_t i = 0; i < vecSignal.size(); ++i) {
        dCropMean += vecSignal[i] / static_cast<double>(vecSignal.size());
        dResizedMean += vecResized[i] / static_cast<double>(vecSignal.size());
    }
    std::vector<double> vecCropped(vecSignal.size(), dCropMean), vecByResized;
    for (std::size_t i = 0; i < vecSignal.size(); ++i) {
        vecByResized.push_back(vecResized[i] > 0.0 ? vecSignal[i] * dResizedMean / vecResized[i] : vecSignal[i]);
    }
    const auto fnTell = [&](const char* pWay, const std::vector<double>& rResult) {
        const Errors errors = errorsOf(rResult, targets[0]);
        note(rOptions, "    %-28s brightness %+7.2f %%, unevenness %6.3f %%", pWay, errors.dMean, errors.dSpread);
        return errors;
    };
    const Errors ours = fnTell("ours", vecOurs);
    fnTell("cropped and averaged anew", vecCropped);
    fnTell("resized to the window", vecByResized);
    if (std::abs(ours.dMean) > 0.5 || ours.dSpread > 1.0) {
        throw std::runtime_error("wrong result: a window is not as bright as the whole, or not as even");
    }
}

void measureMove(const Options& rOptions, const char* pName, const char* pFormat) {
    const uint64_t nWidth = rOptions.bQuick ? 320 : 2448, nHeight = rOptions.bQuick ? 240 : 2048;
    const CScene scene({findPixelFormat(pFormat), nWidth, nHeight});
    const ReferencePair pair = pairOf(scene);
    const ImageGeometry whole = pair[eReferenceLight]->geometry;
    CAppliedReferences applied(pair);
    applied.prepare({});
    const ImageLayout window = {scene.layout().pFormat, nWidth - 64, nHeight - 64};
    std::vector<uint8_t> vecImage(scene.image().begin(),
                                  scene.image().begin() + static_cast<std::ptrdiff_t>(window.bytes()));
    uint64_t nMoves = 0;
    const auto fnPlace = [&whole](uint64_t n) {
        ImageGeometry place = whole;
        place.x.nOffset = n % 64;
        place.y.nOffset = n / 64 % 64;
        return place;
    };
    CRounds rounds(rOptions);
    const std::size_t iApply = rounds.add({"apply", [&](uint64_t nTimes) {
                                               for (uint64_t i = 0; i < nTimes; ++i) {
                                                   CAppliedReferences fresh(pair);
                                                   fresh.prepare({});
                                                   fresh.build(scene.layout(), whole);
                                               }
                                           }});
    const std::size_t iFirst = rounds.add(
        {"first frame", [&](uint64_t nTimes) {
             for (uint64_t i = 0; i < nTimes; ++i) {
                 const ImageGeometry place = fnPlace(++nMoves);
                 if (applied.find(window, place) == nullptr && applied.obstacle(window, place) == eNoObstacle) {
                     applied.build(window, place).pCorrection->correct(vecImage.data());
                 }
             }
         }});
    const std::size_t iLater = rounds.add({"later frames", [&](uint64_t nTimes) {
                                               const ImageGeometry place = fnPlace(nMoves);
                                               for (uint64_t i = 0; i < nTimes; ++i) {
                                                   applied.find(window, place)->pCorrection->correct(vecImage.data());
                                               }
                                           }});
    const std::size_t iBare = rounds.add({"correction alone", [&](uint64_t nTimes) {
                                              const ICorrection& rBare =
                                                  *applied.find(window, fnPlace(nMoves))->pCorrection;
                                              for (uint64_t i = 0; i < nTimes; ++i) {
                                                  rBare.correct(vecImage.data());
                                              }
                                          }});
    // Its last row alone lies outside, which takes the longest to see.
    ImageGeometry outside = whole;
    outside.y = {nHeight + 1, 65, 1, eBinningAverage, false};
    CAppliedReferences narrow(narrowPair(pair));
    const std::size_t iReckoned = rounds.add({"refused, reckoned", [&](uint64_t nTimes) {
                                                  for (uint64_t i = 0; i < nTimes; ++i) {
                                                      refuse(narrow.obstacle(window, outside));
                                                  }
                                              }});
    const std::size_t iRemembered = rounds.add({"refused, remembered", [&](uint64_t nTimes) {
                                                    for (uint64_t i = 0; i < nTimes; ++i) {
                                                        refuse(narrow.obstacleOnce(window, outside));
                                                    }
                                                }});
    applied.build(window, fnPlace(nMoves));
    rounds.run();
    const std::string strName = std::string("move/") + pName;
    rounds.print(iApply, strName + "/apply");
    rounds.print(iFirst, strName + "/first");
    rounds.print(iLater, strName + "/later");
    rounds.print(iReckoned, strName + "/refused-reckoned");
    rounds.print(iRemembered, strName + "/refused");
    note(rOptions, "    first frame by apply %.2f, later frames by correction alone %.3f", rounds.ratio(iFirst, iApply),
         rounds.ratio(iLater, iBare));
    compareErrors(rOptions, scene, applied);
}

}  // namespace

void benchMove(const Options& rOptions) {
    for (const auto& [pName, pFormat] : {std::pair("mono8", "Mono8"), std::pair("mono12", "Mono12")}) {
        if (isListed(rOptions.strFormats, pName)) {
            measureMove(rOptions, pName, pFormat);
        }
    }
}

}  // namespace XapelBench
