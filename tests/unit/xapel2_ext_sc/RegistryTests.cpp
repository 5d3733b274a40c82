// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registry: one hub for each device, for as long as somebody holds it.

#include "XapelBypassManager.h"

#include "xapel2/XapelExceptions.h"

#include "Participants.h"
#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using namespace XAPEL2::Exceptions;
using XapelTest::thrown;

typedef std::vector<std::string> Texts;

class Registry : public XapelTest::StreamFixture {};

TEST_F(Registry, LivesAsLongAsOneParticipantAndHooksOnce) {
    EXPECT_FALSE(m_pStream->IsOpen());
    Control::recordRegistrations(true);
    {
        CXapelBypass first(m_pDevice);
        EXPECT_TRUE(m_pStream->IsOpen());
        EXPECT_EQ(first.getXapelDataStream(), m_pStream);
        {
            CXapelBypass second(m_pDevice);
            EXPECT_EQ(Control::hookContexts().size(), 1U);
        }
        EXPECT_EQ(Control::liveHooks(), 5U);
    }
    EXPECT_EQ(Control::liveHooks(), 0U);
    EXPECT_EQ(Control::registrations(),
              (Texts{"register fetch", "register cancel", "register info", "register close", "register open",
                     "remove fetch", "remove cancel", "remove info", "remove close", "remove open"}));
    { CXapelBypass again(m_pDevice); }
    EXPECT_EQ(Control::calls(Control::eStreamOpen), 1U);
}

TEST_F(Registry, DevicesHaveHubsOfTheirOwnAndNullHasNone) {
    XAPEL2::Device* pOther = openDevice("sim:8?width=64&height=48&format=Mono8");
    {
        CXapelBypass first(m_pDevice), second(pOther);
        CXapelBypassManager::removeXapelBypassDevice(nullptr);
        EXPECT_EQ(thrown<Xapel_InvalidParameterException>([] { CXapelBypass none(nullptr); }),
                  "CXapelBypass: Device parameter is nullptr.");
        EXPECT_EQ(Control::hookContexts().size(), 2U);
    }
    closeDevice(pOther);
}

}  // namespace
