// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// One life of a facade on a camera of its own, in steps that may fail, and what must hold after it.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Control.h"
#include "xapel2_standin/Host.h"

#include "Participants.h"
#include "TemporaryFolder.h"

namespace XapelTest {

/// What a failure, a crash, an abort or a hang of the program is said to have happened in.
void beginCase(const std::string& strCase);
void endCases();

/// Every frame of the camera is a pattern that a light reference of it makes flat. After run() every frame that came
/// was wholly the one or wholly the other.
class CScenario {
public:
    /// @param[in] bHolder  another participant holds the device's hub before, during and after the scenario.
    /// @param[in] fnArm    called with true before and with false after each step; null: nothing.
    explicit CScenario(bool bHolder, std::function<void(bool)> fnArm = nullptr);
    ~CScenario();
    CScenario(const CScenario&) = delete;
    CScenario& operator=(const CScenario&) = delete;

    /// Construct, enable, fetch, record, load, apply, filter, re-open, disable, destroy. Exceptions end their step
    /// only.
    void run();
    /// Switches all faults off and looks at what is left.
    /// @param[in] bFaulty       a fault hit, so steps may have failed.
    /// @param[in] nRefusedHooks removals of hooks that the host refused: so many may be left, of hubs that are gone.
    void check(bool bFaulty, uint64_t nRefusedHooks);

private:
    typedef XAPEL2::Ext::Sc::Shading Shading;

    void step(const std::function<void()>& fnStep);
    void facade(const std::function<void(Shading&)>& fnStep);
    void start();
    void fetch(unsigned nFrames, unsigned long long iTimeoutMs = 5000);
    void reopen();
    void disableBesideABlockedFetch();
    void checkHub();
    void checkLateCalls();
    void checkFreshFacade();

    const std::function<void(bool)> m_fnArm;
    XAPEL2::Device* m_pDevice;
    std::vector<XAPEL2::DataStream*> m_vecStreams;  // the last one is the one in use
    std::unique_ptr<CPlain> m_pHolder;
    std::unique_ptr<Shading> m_pShading;
    bool m_bRunning = false;  // every buffer is queued and the camera fills them
    unsigned m_nBad = 0;      // frames neither raw nor flat, exceptions of an unknown type
    unsigned m_nRaw = 0, m_nFlat = 0;
};

}  // namespace XapelTest
