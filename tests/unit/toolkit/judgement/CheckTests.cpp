// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check from outside, and the self test through library and image processor.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "Images.h"
#include "Program.h"
#include "toolkit/judgement/SelfTest.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

using namespace XAPEL2::Test;
using StandIn::ReferenceImage;
using ::testing::HasSubstr;

struct Pair {
    explicit Pair(const char* pFormat) {
        const StandIn::ImageLayout Layout = {StandIn::findPixelFormat(pFormat), 96, 64};
        const double dScale = Layout.pFormat->fullScale() / 4095.0;
        Dark = makeReference(StandIn::eReferenceDark, Layout,
                             [&](std::size_t i) { return dScale * (64.0 + static_cast<double>(i % 7) / 3.0); });
        Light = makeReference(StandIn::eReferenceLight, Layout, [&](std::size_t i) {
            const double dAcross =
                static_cast<double>(i % Layout.samplesPerRow()) / static_cast<double>(Layout.samplesPerRow());
            return dScale * (2800.0 - 1200.0 * dAcross + static_cast<double>(i * 2654435761U % 997U) / 7.0);
        });
    }
    void write() const {
        StandIn::writeReferenceFile(strDark, Dark);
        StandIn::writeReferenceFile(strLight, Light);
    }
    CTemporaryFolder Folder;
    ReferenceImage Dark, Light;
    std::string strDark = Folder / "dark.tif", strLight = Folder / "light.tif";
};

ProgramResult check(const Pair& rPair, std::vector<std::string> vecMore) {
    rPair.write();
    vecMore.insert(vecMore.begin(), {"check", rPair.strDark, rPair.strLight});
    return runProgram(XAPEL2_SHADING_PROGRAM, vecMore);
}

}  // namespace

TEST(SelfTest, PairIsFlatOnItsOwnMeanAndOneShiftedByAPixelIsNot) {
    for (const char* pFormat : {"Mono8", "Mono12p", "Mono16", "BayerGB12", "RGB8"}) {
        SCOPED_TRACE(pFormat);
        Pair Files(pFormat);
        // Samples that cannot be made flat do not count.
        Files.Light.vSamples[5] = static_cast<float>(Files.Light.sLayout.pFormat->fullScale());
        Files.Light.vSamples[9] = Files.Dark.vSamples[9];
        Files.Light.vSamples[11] = Files.Dark.vSamples[11] + 0.007F * Files.Light.vSamples[5];
        Files.write();
        const double dFlat = selfTest(Files.strDark, Files.strLight, Files.Dark, Files.Light);
        EXPECT_LE(dFlat, Files.Light.sLayout.pFormat->nBits > 12 ? 1.75 : 1.0);
        EXPECT_GT(dFlat, 0.0);
        ReferenceImage Shifted = Files.Light;
        std::rotate(Shifted.vSamples.begin(), Shifted.vSamples.begin() + 1, Shifted.vSamples.end());
        EXPECT_GT(selfTest(Files.strDark, Files.strLight, Files.Dark, Shifted), 3.0);
    }
}

TEST(Check, TellsAGoodPairWithTheSameNumbersInTextAndJson) {
    Pair Files("Mono12");
    Files.Dark.vSamples[96 * 20 + 33] += 836.0F;
    Files.Light.vSamples[96 * 20 + 33] += 836.0F;
    const ProgramResult Text = check(Files, {"--list"}), Json = check(Files, {"--json", "--list"});
    EXPECT_EQ(Text.iExit, 0) << Text.strErr;
    EXPECT_THAT(Text.strOut, HasSubstr("hot pixel at x 33, y 20: 90"));
    EXPECT_THAT(Text.strOut, HasSubstr("Verdict: good"));
    EXPECT_EQ(Json.iExit, 0);
    const auto Told = nlohmann::json::parse(Json.strOut);
    EXPECT_EQ(Told["verdict"], "good");
    EXPECT_EQ(Told["dark"]["hotPixels"], 1);
    EXPECT_EQ(Told["dark"]["defects"][0]["x"], 33);
    EXPECT_EQ(Told["light"]["brightPixels"], 0);
    EXPECT_TRUE(Told["dark"]["camera"].empty());
    EXPECT_LE(Told["pair"]["selfTestDn"].get<double>(), 1.0);
    char acGain[40];
    std::snprintf(acGain, sizeof acGain, "conversion gain    %.4f DN/e-", Told["pair"]["conversionGain"].get<double>());
    EXPECT_THAT(Text.strOut, HasSubstr(acGain));
}

TEST(Check, RefusesWhatIsUselessUnlessForced) {
    Pair Files("Mono12");
    Files.Light.dSaturatedShare = 0.03;
    EXPECT_EQ(check(Files, {}).iExit, 1);
    EXPECT_THAT(check(Files, {}).strOut, HasSubstr("3.00 %"));
    const ProgramResult Forced = check(Files, {"--force", "--json"});
    EXPECT_EQ(Forced.iExit, 0);
    EXPECT_EQ(nlohmann::json::parse(Forced.strOut)["light"]["findings"][0]["id"], "saturated");

    Files.Light = Pair("Mono8").Light;
    EXPECT_EQ(check(Files, {"--force"}).iExit, 1);  // no force makes these two a pair
    const std::vector<std::string> vecMissing = {"check", Files.Folder / "none.tif", Files.strLight};
    const ProgramResult Missing = runProgram(XAPEL2_SHADING_PROGRAM, vecMissing);
    EXPECT_EQ(Missing.iExit, 3);
    EXPECT_THAT(Missing.strErr, HasSubstr("none.tif"));
}

}  // namespace Toolkit
}  // namespace XAPEL2
