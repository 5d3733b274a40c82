// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// One run of the demonstration, with everything that it wrote.

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ImageFiles.h"
#include "Program.h"

namespace XAPEL2 {
namespace Test {

struct FramePair {
    std::string strName;
    Image<uint16_t> Raw, Corrected;
};

struct DemoRun {
    ProgramResult Program;
    nlohmann::json Figures;
    Image<float> Light, Dark;  // Dark: zeros when there is no dark reference
    std::vector<FramePair> aPairs;
};

/// Runs the application without looking at what it writes.
ProgramResult runShading(const std::vector<std::string>& rArguments);

/// Runs "demo" into rOut and reads the files. @throws std::runtime_error  it failed, or a file is not as it should be.
DemoRun runDemo(std::vector<std::string> astrArguments, const std::filesystem::path& rOut);

/// The reference formula in double precision, made from the two references of a run.
class CFormula {
public:
    explicit CFormula(const DemoRun& rRun);

    /// Colour class of a sample.
    unsigned classOf(std::size_t iSample) const;
    /// Mean of light minus dark over a colour class: what a correct frame of an even field shows.
    double target(unsigned iClass) const { return m_afTarget[iClass]; }
    double signal(std::size_t iSample) const { return m_afSignal[iSample]; }
    double dark(std::size_t iSample) const { return m_afDark[iSample]; }
    double gain(std::size_t iSample) const;
    double corrected(std::size_t iSample, uint16_t uRaw) const;
    std::size_t samples() const { return m_afSignal.size(); }

private:
    std::size_t m_nWidth, m_nChannels;
    bool m_bCfa;
    double m_fFullScale;
    std::vector<double> m_afDark, m_afSignal, m_afTarget;
};

/// Percent of standard deviation over mean, over blocks of nSide x nSide pixels (1: single samples), after every colour
/// class has been divided by its mean.
double unevennessPercent(const CFormula& rFormula, const Image<uint16_t>& rFrame, bool bDarkOff, std::size_t nSide);

}  // namespace Test
}  // namespace XAPEL2
