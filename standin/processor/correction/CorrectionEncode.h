// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The arithmetic that makes tables from references, a block at a time. The same results on every processor.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Samples that are worked on together, everywhere in the correction. A block begins at a whole byte in every format.
constexpr std::size_t BLOCK = 64;

/// Offsets in DN and gains of the samples of a block.
struct FormulaBlock {
    std::array<double, BLOCK> aOffsets;
    std::array<double, BLOCK> aGains;
};

/// D, and G = T / (L - D), limited to [0, GAIN_LIMIT); 1 where L - D is not above 0.
/// @param[in] pTargets, pDark, pLight  T, D and L of BLOCK samples.
void formulaBlock(const double* pTargets, const float* pDark, const float* pLight, FormulaBlock& rBlock);

/// How offsets and gains become codes, and when they are close enough.
struct EncodeRule {
    double dBase;      ///< offset of dark code 0, DN
    double dPerUnit;   ///< step of the dark codes, DN
    double dDarkLast;  ///< largest dark code, below 2^31
    double dPerGain;   ///< step of the gains
    double dGainLast;  ///< largest gain code, below 2^31
    double dFull;      ///< full scale, DN
    double dBound;     ///< largest error of a result before rounding: dBound + dBoundPerGain G
    double dBoundPerGain;
};

struct EncodedBlock {
    std::array<uint32_t, BLOCK> aDarks;
    std::array<uint32_t, BLOCK> aGains;
    uint64_t uMisfits;  ///< bit i: the codes of sample i do not keep the bound
};

/// Takes the nearest codes, those half way upwards, and checks the bound on the error of a result:
/// min(F, F / min(G, G')) |G' - G| + max(G, G') |D' - D|, where D' and G' are what the codes stand for.
void encodeBlock(const EncodeRule& rRule, const FormulaBlock& rBlock, EncodedBlock& rCodes);

}  // namespace StandIn
}  // namespace XAPEL2
