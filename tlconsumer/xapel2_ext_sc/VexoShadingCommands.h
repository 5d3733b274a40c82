// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Codes of the node "ShadingCommand".

#pragma once

enum eVexoCommand : long long {
    eVexoEnable = 1,
    eVexoProcess = 2,
    eVexoApply = 3,
    eVexoClear = 4,
    eVexoLoadDark = 5,
    eVexoLoadLight = 6,
    eVexoStartDark = 7,
    eVexoStartLight = 8,
    eVexoEnd = 9,
};
