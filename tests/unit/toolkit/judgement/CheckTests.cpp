// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check from outside, and the self test through library and image processor.

#include <gmock/gmock.h>

#include <filesystem>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "Images.h"
#include "Program.h"
#include "toolkit/judgement/JudgedPair.h"
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
        const StandIn::ImageLayout layout = {StandIn::findPixelFormat(pFormat), 96, 64};
        const double dScale = layout.pFormat->fullScale() / 4095.0;
        dark = makeReference(StandIn::eReferenceDark, layout,
                             [&](std::size_t i) { return dScale * (64.0 + static_cast<double>(i % 7) / 3.0); });
        light = makeReference(StandIn::eReferenceLight, layout, [&](std::size_t i) {
            const double dAcross =
                static_cast<double>(i % layout.samplesPerRow()) / static_cast<double>(layout.samplesPerRow());
            return dScale * (2800.0 - 1200.0 * dAcross + static_cast<double>(i * 2654435761U % 997U) / 7.0);
        });
    }
    void write() const {
        StandIn::writeReferenceFile(strDark, dark);
        StandIn::writeReferenceFile(strLight, light);
    }
    CTemporaryFolder folder;
    ReferenceImage dark, light;
    std::string strDark = folder / "dark.tif", strLight = folder / "light.tif";
};

ProgramResult check(const Pair& rPair, std::vector<std::string> vecMore) {
    rPair.write();
    vecMore.insert(vecMore.begin(), {"check", rPair.strDark, rPair.strLight});
    return runProgram(XAPEL2_SHADING_PROGRAM, vecMore);
}

}  // namespace

TEST(JudgedPair, KnowsThatItsFilesAreOthersByNow) {
    const Pair files("Mono12");
    files.write();
    const JudgedPair pair = judge({files.strDark, files.strLight});
    EXPECT_NO_THROW(pair.requireUnchanged());
    files.write();
    EXPECT_THROW(pair.requireUnchanged(), std::runtime_error) << "replaced by a save";
    const JudgedPair again = readPair({"", files.strLight});
    EXPECT_NO_THROW(again.requireUnchanged());
    std::filesystem::remove(files.strLight);
    EXPECT_THROW(again.requireUnchanged(), std::runtime_error);
}

TEST(SelfTest, PairIsFlatOnItsOwnMeanAndOneShiftedByAPixelIsNot) {
    for (const char* pFormat : {"Mono8", "Mono12p", "Mono16", "BayerGB12", "RGB8"}) {
        SCOPED_TRACE(pFormat);
        Pair files(pFormat);
        // Samples that cannot be made flat do not count.
        files.light.vecSamples[5] = static_cast<float>(files.light.layout.pFormat->fullScale());
        files.light.vecSamples[9] = files.dark.vecSamples[9];
        files.light.vecSamples[11] = files.dark.vecSamples[11] + 0.007F * files.light.vecSamples[5];
        files.write();
        const double dFlat = selfTest(files.strDark, files.strLight, files.dark, files.light);
        EXPECT_LE(dFlat, files.light.layout.pFormat->nBits > 12 ? 1.75 : 1.0);
        EXPECT_GT(dFlat, 0.0);
        ReferenceImage shifted = files.light;
        std::rotate(shifted.vecSamples.begin(), shifted.vecSamples.begin() + 1, shifted.vecSamples.end());
        EXPECT_GT(selfTest(files.strDark, files.strLight, files.dark, shifted), 3.0);
    }
}

TEST(Check, TellsAGoodPairWithTheSameNumbersInTextAndJson) {
    Pair files("Mono12");
    files.dark.vecSamples[96 * 20 + 33] += 836.0F;
    files.light.vecSamples[96 * 20 + 33] += 836.0F;
    const ProgramResult text = check(files, {"--list"}), json = check(files, {"--json", "--list"});
    EXPECT_EQ(text.iExit, 0) << text.strErr;
    EXPECT_THAT(text.strOut, HasSubstr("hot pixel at x 33, y 20: 90"));
    EXPECT_THAT(text.strOut, HasSubstr("Verdict: good"));
    EXPECT_EQ(json.iExit, 0);
    const auto told = nlohmann::json::parse(json.strOut);
    EXPECT_EQ(told["verdict"], "good");
    EXPECT_EQ(told["dark"]["hotPixels"], 1);
    EXPECT_EQ(told["dark"]["defects"][0]["x"], 33);
    EXPECT_EQ(told["light"]["brightPixels"], 0);
    EXPECT_TRUE(told["dark"]["camera"].empty());
    EXPECT_LE(told["pair"]["selfTestDn"].get<double>(), 1.0);
    char acGain[40];
    std::snprintf(acGain, sizeof acGain, "conversion gain    %.4f DN/e-", told["pair"]["conversionGain"].get<double>());
    EXPECT_THAT(text.strOut, HasSubstr(acGain));
}

TEST(Check, RefusesWhatIsUselessUnlessForced) {
    Pair files("Mono12");
    files.light.dSaturatedShare = 0.03;
    EXPECT_EQ(check(files, {}).iExit, 1);
    EXPECT_THAT(check(files, {}).strOut, HasSubstr("3.00 %"));
    const ProgramResult forced = check(files, {"--force", "--json"});
    EXPECT_EQ(forced.iExit, 0);
    EXPECT_EQ(nlohmann::json::parse(forced.strOut)["light"]["findings"][0]["id"], "saturated");

    files.light = Pair("Mono8").light;
    EXPECT_EQ(check(files, {"--force"}).iExit, 1);  // no force makes these two a pair
    const std::vector<std::string> vecMissing = {"check", files.folder / "none.tif", files.strLight};
    const ProgramResult missing = runProgram(XAPEL2_SHADING_PROGRAM, vecMissing);
    EXPECT_EQ(missing.iExit, 3);
    EXPECT_THAT(missing.strErr, HasSubstr("none.tif"));
}

}  // namespace Toolkit
}  // namespace XAPEL2
