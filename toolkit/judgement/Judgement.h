// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether references are good, alone, as a pair, and for a camera.

#pragma once

#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "toolkit/judgement/Defects.h"
#include "toolkit/judgement/NonUniformity.h"
#include "toolkit/judgement/SensorNoise.h"
#include "toolkit/sessions/CameraSettings.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

enum eSeverity { eNote, eWarning, eRefusal };

/// One thing that is to be said about a reference.
struct Finding {
    eSeverity eLevel = eNote;
    std::string strId;      ///< fixed name, such as "saturated", "too-dark", "other-exposure"
    std::string strText;    ///< what is so, with numbers
    std::string strAdvice;  ///< what to do next; empty for a note that asks for nothing
    bool bFinal = false;    ///< a refusal that nobody can override: the host would refuse, too
};
using Findings = std::vector<Finding>;

/// Puts the second behind the first.
void append(Findings& rTo, const Findings& rFrom);

/// True when one of them refuses; with bForce only what cannot be overridden does.
bool refused(const Findings& rFindings, bool bForce = false);

/// The gravest level among them, "good" (notes only), "warning" or "refused".
const char* verdict(const Findings& rFindings);

/// Numbers of one reference. Unknown ones are NaN.
struct ReferenceFigures {
    StandIn::eReferenceKind eKind = StandIn::eReferenceDark;
    StandIn::ImageLayout layout;
    uint64_t nFrames = 0;
    double dMean = 0.0;                                                ///< DN
    double dMeanPercent = 0.0;                                         ///< of full scale
    double dSaturatedShare = 0.0;                                      ///< of all samples of all frames, 0 to 1
    double dTemporalNoise = std::numeric_limits<double>::quiet_NaN();  ///< of one frame, DN
    StandIn::FrameMeans means;                                         ///< how the light went
    StandIn::RecordingOutliers outliers;                               ///< what left the other frames
    std::vector<double> vecClassMeans;                                 ///< DN, in the order of colourClassNames()
    std::vector<Defect> vecDefects;   ///< hot pixels of a dark reference, dead and bright ones of a light reference
    StandIn::ImageGeometry geometry;  ///< where on the sensor it lies
    CameraSettings settings;          ///< from the file
};

struct ReferenceJudgement {
    ReferenceFigures figures;
    Findings vecFindings;
};

/// Numbers of a pair. Unknown ones are NaN.
struct PairFigures {
    double dGain = std::numeric_limits<double>::quiet_NaN();       ///< K, DN per electron
    double dElectrons = std::numeric_limits<double>::quiet_NaN();  ///< mean light signal of one frame
    /// Relative standard deviation that the noise of the references leaves in every corrected frame, percent, of the
    /// colour where it is largest; see CCorrectedNoise::residualPercent().
    double dResidualPercent = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> vecResidualPercent;                         ///< of each class; empty: not known
    SensorNoise noise;                                              ///< of the camera; empty: not known
    double dSelfTestDn = std::numeric_limits<double>::quiet_NaN();  ///< see SelfTest.h
    NonUniformity unevenness;                                       ///< of the references; no classes: not comparable
};

struct PairJudgement {
    PairFigures figures;
    Findings vecFindings;
};

/// Judges one reference by itself. Refused is what is useless: more than 1 % saturated, a light reference without
/// light.
/// @param[in] pDark  for a light reference: its dark one, which is taken off before dead pixels are sought; null, or of
///                   another layout: nothing is.
ReferenceJudgement judgeReference(const StandIn::ReferenceImage& rReference,
                                  const StandIn::ReferenceImage* pDark = nullptr);

/// True for a dark and a light reference that can be applied together.
bool isPair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight);

/// Judges whether the two belong together and what correction by them can reach. Does not repeat what
/// judgeReference() says of each.
/// @param[in] dSelfTestDn  what selfTest() yields; NaN: not done.
/// @param[in] rGains       K of each class, DN per electron, from several levels (PhotonTransfer.h); empty or NaN: from
/// the
///                         pair.
PairJudgement judgePair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                        double dSelfTestDn = std::numeric_limits<double>::quiet_NaN(),
                        const std::vector<double>& rGains = {});

/// Compares a reference with the camera that is to be corrected. Where of both is known where on the sensor they lie, a
/// place that cannot be derived from that of the reference is refused for good, and any other one is right. Else
/// another size or layout is refused for good, another offset, binning or mirror is refused, another exposure, gain
/// or camera is warned about. Of settings that one of the two does not tell nothing is said but one note.
/// @param[in] strWhat  how the texts name the reference, such as "the dark reference".
/// @param[in] bFiles   the frames come from image files, and the texts say so.
Findings compareWithCamera(const std::string& strWhat, const StandIn::ReferenceImage& rReference,
                           const CameraSettings& rCamera, bool bFiles = false);

/// Lines for people, each ended: one for a finding, "Warning: TEXT ADVICE". Empty for no findings.
std::string describe(const Findings& rFindings);
/// Lines for people: the figures with their units, then the findings.
std::string describe(const ReferenceJudgement& rJudgement);
std::string describe(const PairJudgement& rJudgement);

/// [{"severity": "note" | "warning" | "refusal", "id", "text", "advice", "final"}]
nlohmann::ordered_json toJson(const Findings& rFindings);
/// {"kind", "pixelFormat", "width", "height", "frames", "mean", "meanPercent", "saturatedShare", "temporalNoise",
/// "frameMeans": {"first", "last", "least", "most"}, "classes": [{"class", "mean"}], "hotPixels", "deadPixels",
/// "brightPixels", "outliers": see outliersJson(), "camera", "verdict", "findings"}
nlohmann::ordered_json toJson(const ReferenceJudgement& rJudgement);
/// {"conversionGain", "electrons", "predictedResidualPercent", "predictedResidualPercentOfClasses", "selfTestDn",
/// "nonUniformity", "verdict", "findings"}
nlohmann::ordered_json toJson(const PairJudgement& rJudgement);

}  // namespace Toolkit
}  // namespace XAPEL2
