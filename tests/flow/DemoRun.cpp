// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// One run of the demonstration, with everything that it wrote.

#include "DemoRun.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <stdexcept>

namespace XAPEL2 {
namespace Test {

ProgramResult runShading(const std::vector<std::string>& rArguments) {
    return runProgram(XAPEL2_SHADING_PROGRAM, rArguments);
}

DemoRun runDemo(std::vector<std::string> astrArguments, const std::filesystem::path& rOut) {
    astrArguments.insert(astrArguments.begin(), "demo");
    astrArguments.insert(astrArguments.end(), {"--out", rOut});
    DemoRun Run;
    Run.Program = runShading(astrArguments);
    if (Run.Program.iExit != 0) {
        throw std::runtime_error("demo ended with " + std::to_string(Run.Program.iExit) + ": " + Run.Program.strErr);
    }
    std::ifstream(rOut / "figures.json") >> Run.Figures;
    Run.Light = readFloatTiff(rOut / "reference-light.tif");
    Run.Dark = Run.Light;
    std::fill(Run.Dark.aSamples.begin(), Run.Dark.aSamples.end(), 0.0F);
    if (std::filesystem::exists(rOut / "reference-dark.tif")) {
        Run.Dark = readFloatTiff(rOut / "reference-dark.tif");
    }
    for (const nlohmann::json& rName : Run.Figures.at("frames")) {
        const auto strName = rName.get<std::string>();
        Run.aPairs.push_back({strName, readPixmap(rOut / "raw" / strName), readPixmap(rOut / "corrected" / strName)});
        for (const Image<uint16_t>* pImage : {&Run.aPairs.back().Raw, &Run.aPairs.back().Corrected}) {
            if (pImage->nWidth != Run.Light.nWidth || pImage->nHeight != Run.Light.nHeight ||
                pImage->nChannels != Run.Light.nChannels) {
                throw std::runtime_error(strName + " is of another size than the reference");
            }
        }
    }
    return Run;
}

CFormula::CFormula(const DemoRun& rRun)
    : m_nWidth(rRun.Light.nWidth),
      m_nChannels(rRun.Light.nChannels),
      m_bCfa(rRun.Figures.at("pixel_format").get<std::string>().rfind("Bayer", 0) == 0),
      m_fFullScale(rRun.aPairs.at(0).Raw.uFullScale),
      m_afDark(rRun.Dark.aSamples.begin(), rRun.Dark.aSamples.end()),
      m_afSignal(rRun.Light.aSamples.begin(), rRun.Light.aSamples.end()),
      m_afTarget(m_bCfa ? 4 : m_nChannels) {
    std::vector<double> afCount(m_afTarget.size());
    for (std::size_t i = 0; i < m_afSignal.size(); ++i) {
        m_afSignal[i] -= m_afDark[i];
        m_afTarget[classOf(i)] += m_afSignal[i];
        afCount[classOf(i)] += 1.0;
    }
    for (std::size_t i = 0; i < afCount.size(); ++i) {
        m_afTarget[i] /= afCount[i];
    }
}

unsigned CFormula::classOf(std::size_t iSample) const {
    const std::size_t iSite = iSample / m_nWidth % 2 * 2 + iSample % m_nWidth % 2;
    return static_cast<unsigned>(m_bCfa ? iSite : iSample % m_nChannels);
}

double CFormula::gain(std::size_t iSample) const {
    const double fSignal = m_afSignal[iSample];
    return fSignal > 0.0 ? std::clamp(m_afTarget[classOf(iSample)] / fSignal, 0.0, 16.0) : 1.0;
}

double CFormula::corrected(std::size_t iSample, uint16_t uRaw) const {
    if (uRaw >= m_fFullScale) {
        return m_fFullScale;
    }
    return std::clamp(std::round((uRaw - m_afDark[iSample]) * gain(iSample)), 0.0, m_fFullScale);
}

double unevennessPercent(const CFormula& rFormula, const Image<uint16_t>& rFrame, bool bDarkOff, std::size_t nSide) {
    std::vector<double> afValues(rFrame.aSamples.begin(), rFrame.aSamples.end());
    std::map<unsigned, std::pair<double, double>> Classes;
    for (std::size_t i = 0; i < afValues.size(); ++i) {
        afValues[i] -= bDarkOff ? rFormula.dark(i) : 0.0;
        Classes[rFormula.classOf(i)].first += afValues[i];
        Classes[rFormula.classOf(i)].second += 1.0;
    }
    const std::size_t nRow = rFrame.nWidth * rFrame.nChannels;
    const std::size_t nBlock = nSide == 1 ? 1 : nSide * rFrame.nChannels;  // samples of one line of a block
    const std::size_t nAcross = nRow / nBlock;
    std::map<std::size_t, double> Blocks;
    for (std::size_t i = 0; i < afValues.size(); ++i) {
        const auto& [fSum, fCount] = Classes[rFormula.classOf(i)];
        const std::size_t iX = i % nRow / nBlock;
        const std::size_t iY = i / nRow / nSide;
        if (iX < nAcross && iY < rFrame.nHeight / nSide) {
            Blocks[iY * nAcross + iX] += afValues[i] * fCount / fSum;
        }
    }
    double fMean = 0.0;
    double fSquare = 0.0;
    for (const auto& [iBlock, fValue] : Blocks) {
        fMean += fValue / static_cast<double>(Blocks.size());
    }
    for (const auto& [iBlock, fValue] : Blocks) {
        fSquare += (fValue - fMean) * (fValue - fMean) / static_cast<double>(Blocks.size());
    }
    return 100.0 * std::sqrt(fSquare) / fMean;
}

}  // namespace Test
}  // namespace XAPEL2
