// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The texts of a page.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/Html.h"

using namespace XAPEL2;
using namespace XAPEL2::App;

TEST(Html, TextsStandForThemselves) {
    EXPECT_EQ(escaped("<a href=\"x\">&'\n\xC3\xA9"), "&lt;a href=&quot;x&quot;&gt;&amp;&#39;\xEF\xBF\xBD\xC3\xA9");
    const std::pair<const char*, const char*> aCodes[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"fo\xFB\xFF", "Zm/7/w=="}};
    for (const auto& [pBytes, pCode] : aCodes) {
        EXPECT_EQ(base64(pBytes), pCode);
    }
    const auto json = nlohmann::ordered_json::parse(R"({"a": [{"share": 0.01234}, null]})");
    EXPECT_EQ(CFigures(json).number("/a/0/share", 2, 100.0),
              "<data value=\"0.01234\" data-figure=\"/a/0/share\">1.23</data>");
    EXPECT_EQ(CFigures(json).number("/a/1", 2), "<data value=\"null\" data-figure=\"/a/1\">\xE2\x80\x93</data>");
}
