// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What left the other frames of a recording, judged and in words.

#include "toolkit/judgement/Outliers.h"

#include <algorithm>
#include <cmath>

#include <nlohmann/json.hpp>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

using StandIn::FrameOutlier;

constexpr std::size_t TOLD = 4;         // places in a text; all that are known are in the JSON
constexpr uint64_t SINGLE_SAMPLES = 3;  // of a place that may be a particle's track

std::string byText(const FrameOutlier& r) {
    return fixed(std::abs(r.dDeviation), 1) + (r.dDeviation < 0.0 ? " DN below" : " DN above");
}

std::string placeText(const FrameOutlier& r) {
    const std::string strFrame = "frame " + std::to_string(r.iFrame);
    if (r.eWhat == StandIn::eOutlierBrightness) {
        return strFrame + ", whose mean is " + byText(r) + " the others'";
    }
    const std::string strAt = " at (" + std::to_string(r.nX) + ", " + std::to_string(r.nY) + ")";
    const std::string strSize = std::to_string(r.nWidth) + " x " + std::to_string(r.nHeight);
    if (r.eWhat == StandIn::eOutlierShape) {
        return strFrame + ", whose light is spread otherwise, about " + strSize + " pixels" + strAt;
    }
    return strFrame + ", " + (r.nWidth * r.nHeight == 1 ? "1 pixel" : strSize + " pixels") + strAt + ", " + byText(r) +
           " the others";
}

std::string listText(const std::vector<FrameOutlier>& rPlaces, bool bSamples) {
    std::string strText;
    std::size_t nTold = 0, nMore = 0;
    for (const FrameOutlier& rPlace : rPlaces) {
        if ((rPlace.eWhat == StandIn::eOutlierSamples) != bSamples) {
            continue;
        }
        if (nTold == TOLD) {
            ++nMore;
            continue;
        }
        strText += (nTold++ == 0 ? "" : "; ") + placeText(rPlace);
    }
    return strText + (nMore == 0 ? "" : "; and " + std::to_string(nMore) + " more");
}

std::string fateText(uint64_t nAll, uint64_t nOut) {
    return nOut == nAll ? " Left out of the mean." : nOut == 0 ? " In the mean all the same." : " In part left out.";
}

}  // namespace

Findings judgeOutliers(const StandIn::RecordingOutliers& rOutliers) {
    Findings vecFindings;
    if (rOutliers.nFrames != 0) {
        vecFindings.push_back({eWarning, "outlying-frames",
                               counted(rOutliers.nFrames, "frame") +
                                   " unlike the others: " + listText(rOutliers.vecPlaces, false) + "." +
                                   fateText(rOutliers.nFrames, rOutliers.nFramesLeftOut),
                               "See that light and lens stay as they are while a reference is recorded, and record 8 "
                               "frames or more."});
    }
    if (rOutliers.nSamples != 0) {
        const bool bSingle =
            rOutliers.nSamples == rOutliers.nSamplesLeftOut &&
            std::none_of(rOutliers.vecPlaces.begin(), rOutliers.vecPlaces.end(), [](const FrameOutlier& r) {
                return r.eWhat == StandIn::eOutlierSamples && r.nSamples > SINGLE_SAMPLES;
            });
        vecFindings.push_back({bSingle ? eNote : eWarning, "outlying-samples",
                               counted(rOutliers.nSamples, "sample") +
                                   " far from what the same pixel has in the other "
                                   "frames: " +
                                   listText(rOutliers.vecPlaces, true) + "." +
                                   fateText(rOutliers.nSamples, rOutliers.nSamplesLeftOut),
                               bSingle ? ""
                                       : "See that nothing passes before the lens while a reference is recorded, and "
                                         "record 8 frames or more."});
    }
    return vecFindings;
}

nlohmann::ordered_json outliersJson(const StandIn::RecordingOutliers& rOutliers) {
    static constexpr const char* WHAT[] = {"brightness", "shape", "samples"};
    nlohmann::ordered_json places = nlohmann::ordered_json::array();
    for (const FrameOutlier& r : rOutliers.vecPlaces) {
        places.push_back({{"what", WHAT[r.eWhat]},
                          {"frame", r.iFrame},
                          {"x", r.nX},
                          {"y", r.nY},
                          {"width", r.nWidth},
                          {"height", r.nHeight},
                          {"samples", r.nSamples},
                          {"deviation", r.dDeviation},
                          {"leftOut", r.bLeftOut}});
    }
    return {{"frames", rOutliers.nFrames},
            {"framesLeftOut", rOutliers.nFramesLeftOut},
            {"samples", rOutliers.nSamples},
            {"samplesLeftOut", rOutliers.nSamplesLeftOut},
            {"places", places}};
}

}  // namespace Toolkit
}  // namespace XAPEL2
