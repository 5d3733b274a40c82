// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How uneven dark and light are before and after correction.

#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "toolkit/figures/ReportFigures.h"

namespace XAPEL2 {
namespace Toolkit {

/// Non-uniformity after EMVA 1288 of the frames that were measured, or of the references where there are too few.
/// Figures after correction are those of neither target nor pedestal: electrons stay those of the camera.
class CMeasuredUnevenness {
public:
    /// @param[in] rInput  borrowed.
    explicit CMeasuredUnevenness(const ReportInput& rInput) : m_rInput(rInput), m_rPair(rInput.pair) {}

    /// Adds "before", "after", "nonUniformityText" and "summary", the figures of the colour that is worst.
    void addTo(nlohmann::ordered_json& rJson) const;

private:
    bool isOfFrames(const std::optional<StandIn::ReferenceImage>& rReference) const;
    MeanImage withoutOutput(MeanImage image) const;
    bool isDarkComputed() const;
    MeanImage darkAfter() const;
    std::string text(bool bEven, bool bDark) const;
    static void addSummary(nlohmann::ordered_json& rJson);

    const ReportInput& m_rInput;
    const JudgedPair& m_rPair;
};

}  // namespace Toolkit
}  // namespace XAPEL2
