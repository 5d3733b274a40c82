// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Findings on standard error.

#pragma once

#include "terminal/Toolkit.h"
#include "toolkit/judgement/JudgedPair.h"

namespace XAPEL2 {
namespace App {

/// Says those findings on stderr that are this grave or graver, each text once; all of them where the user wants to
/// know more. With warnings also which settings could not be compared.
void warnAbout(const Findings& rFindings, eSeverity eLeast = eWarning);

/// Of a sub-command that tells findings on standard output: says on stderr those that lead to a refusal, and warnings,
/// too, where the user wants it quiet and nothing tells them there.
void warnBeside(const Findings& rFindings, bool bRefused);

/// Says on stderr what warnAbout() says of all findings, and what to do when it refuses.
/// @param[in] bCanForce  the sub-command has --force.
/// @return false when it refuses; with bForce only what cannot be forced does.
bool isUsable(const JudgedPair& rPair, bool bForce, bool bCanForce = true);

}  // namespace App
}  // namespace XAPEL2
