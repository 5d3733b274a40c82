// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What correction leaves of an even scene: the shot noise of the light reference, and with a filter on it the
// differences from pixel to pixel.

#include <cmath>

#include <gtest/gtest.h>

#include "Images.h"
#include "TemporaryFolder.h"
#include "toolkit/judgement/Judgement.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Toolkit {

class ReferenceLaw : public ::testing::Test {
protected:
    static constexpr uint64_t TEST_FRAMES = 200, FIRST_TEST_FRAME = 1000;

    ~ReferenceLaw() override { StandIn::closeDevice(m_pDevice); }

    void record(Ext::Sc::Shading& rShading, bool bLight, uint64_t nFrames, const std::string& strFile) {
        rShading.ReferenceStart(bLight);
        for (uint64_t i = 0; i < nFrames; ++i) {
            add(rShading, m_camera.image(bLight ? StandIn::eSceneLight : StandIn::eSceneDark, i));
        }
        rShading.ReferenceEnd(strFile.c_str());
    }
    std::vector<unsigned char> add(Ext::Sc::Shading& rShading, std::vector<unsigned char> vecImage) {
        rShading.ReferenceAdd("Mono12", m_camera.layout.nWidth, m_camera.layout.nHeight, vecImage.data(),
                              vecImage.size());
        return vecImage;
    }

    /// Relative variance over the pixels of the mean of corrected frames, their own noise taken out.
    double residualVariance(Ext::Sc::Shading& rShading) {
        rShading.ReferenceApply();
        CFrameStack stack(m_camera.layout);
        for (uint64_t i = 0; i < TEST_FRAMES; ++i) {
            stack.add(m_camera.unpacked(add(rShading, m_camera.image(StandIn::eSceneLight, FIRST_TEST_FRAME + i))));
        }
        const MeanImage mean = stack.mean();
        const double dSpatial =
            spatialVariances(colourPlane(mean.layout, mean.vecSamples, 0), TEST_FRAMES, mean.dTemporalVariance).dTotal;
        double dMean = 0.0;
        for (const float fSample : mean.vecSamples) {
            dMean += static_cast<double>(fSample) / static_cast<double>(mean.vecSamples.size());
        }
        return dSpatial / (dMean * dMean);
    }

    SimulatedFrames m_camera{{StandIn::findPixelFormat("Mono12"), 96, 72}};
    Device* m_pDevice = StandIn::openDevice("sim:7?width=96&height=72&format=Mono12");
    XAPEL2::Test::CTemporaryFolder m_folder;
    std::string m_strDark = m_folder / "dark.tif", m_strLight = m_folder / "light.tif";
};

TEST_F(ReferenceLaw, ResidualIsTheShotNoiseOfTheReference) {
    Ext::Sc::Shading shading(m_pDevice);
    record(shading, false, 64, m_strDark);
    for (const uint64_t nFrames : {1U, 4U, 16U, 64U}) {
        SCOPED_TRACE(nFrames);
        record(shading, true, nFrames, m_strLight);
        const double dResidualPercent = 100.0 * std::sqrt(residualVariance(shading));
        // 6912 pixels tell a standard deviation to 0.9 %; lens fall-off and read noise add 2 to 3 % to the plain law.
        const double dElectrons = 0.01 * std::pow(dResidualPercent, 2) * static_cast<double>(nFrames);
        EXPECT_NEAR(dResidualPercent * std::sqrt(static_cast<double>(nFrames)), 100.0 / std::sqrt(7000.0), 0.06)
            << dElectrons;
        if (nFrames > 1) {
            const PairJudgement pair =
                judgePair(StandIn::readReferenceFile(m_strDark), StandIn::readReferenceFile(m_strLight));
            EXPECT_NEAR(dResidualPercent / pair.figures.dResidualPercent, 1.0, 0.02);
        }
    }
}

TEST_F(ReferenceLaw, FilterOnTheLightReferenceGivesSinglePixelsUp) {
    Ext::Sc::Shading shading(m_pDevice);
    record(shading, false, 64, m_strDark);
    record(shading, true, 64, m_strLight);
    const double dPrnu = 100.0 * m_camera.sensor.model().dPrnu;
    EXPECT_LT(100.0 * std::sqrt(residualVariance(shading)), dPrnu / 4.0);
    for (const auto eFilter : {Ext::Sc::Shading::eBoxFilter, Ext::Sc::Shading::eMedianFilter}) {
        shading.SetFilter(eFilter, true, 2);
        EXPECT_NEAR(100.0 * std::sqrt(residualVariance(shading)), dPrnu, 0.1 * dPrnu);
        shading.SetFilter(eFilter, true, 0);
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
