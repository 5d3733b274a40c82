// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command output: says in a light reference how corrected images come out.

#include "commands/SetOutput.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "commands/OutputFile.h"
#include "standin/files/SafeFile.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "toolkit/figures/Curves.h"
#include "toolkit/frames/FloatImage.h"
#include "toolkit/judgement/DefectList.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace App {

namespace {

std::string targetText(const StandIn::ReferenceOutput& rOutput) {
    return rOutput.eTarget == StandIn::eTargetMax     ? "max"
           : rOutput.eTarget == StandIn::eTargetValue ? fixed(rOutput.dTarget, 2) + " DN"
                                                      : "mean";
}

void setTarget(const std::string& strTarget, double dFull, StandIn::ReferenceOutput& rOutput) {
    if (strTarget == "mean" || strTarget == "max") {
        rOutput.eTarget = strTarget == "max" ? StandIn::eTargetMax : StandIn::eTargetMean;
        rOutput.dTarget = 0.0;
        return;
    }
    char* pEnd = nullptr;
    rOutput.dTarget = std::strtod(strTarget.c_str(), &pEnd);
    rOutput.eTarget = StandIn::eTargetValue;
    if (*pEnd != '\0' || !(rOutput.dTarget >= 1.0 && rOutput.dTarget <= dFull)) {
        throw CUsageError("--target is neither mean nor max nor a number from 1 up to " + fixed(dFull, 0) + " DN");
    }
}

/// None where none was named.
std::optional<StandIn::ReferenceImage> readDark(const SetOutputOptions& rOptions,
                                                const StandIn::ReferenceImage& rLight) {
    if (rOptions.strDark.empty()) {
        return {};
    }
    StandIn::ReferenceImage dark = readReference(rOptions.strDark);
    if (dark.eKind != StandIn::eReferenceDark || !dark.layout.hasSamplesLike(rLight.layout)) {
        throw CUsageError(rOptions.strDark + " is no dark reference of the same format and size");
    }
    return dark;
}

bool namesList(const std::string& strDefects) {
    return !strDefects.empty() && strDefects != "find" && strDefects != "none";
}

// Before the first file is written: what was read stays, and one output does not take the place of the other.
void requireOutputs(const SetOutputOptions& rOptions) {
    CSourceFiles sources;
    sources.add(rOptions.strLight);
    sources.add(rOptions.strDark);
    if (namesList(rOptions.strDefects)) {
        sources.add(rOptions.strDefects);
    }
    for (const std::string& rFile : {rOptions.strGain, rOptions.strExport}) {
        if (!rFile.empty()) {
            requireWritable(rFile, sources);
        }
    }
    std::error_code ignored;
    if (!rOptions.strGain.empty() && !rOptions.strExport.empty() &&
        (std::filesystem::weakly_canonical(rOptions.strGain) == std::filesystem::weakly_canonical(rOptions.strExport) ||
         std::filesystem::equivalent(rOptions.strGain, rOptions.strExport, ignored))) {
        throw CUsageError("--gain and --export name one file, " + rOptions.strGain + "; give each its own");
    }
    if (!rOptions.strExport.empty() && !isDefectListName(rOptions.strExport)) {
        throw CUsageError("--export takes a name that ends in .csv or .json, not '" + rOptions.strExport + "'");
    }
}

/// Pixels of the list that lie beyond the image.
uint64_t setDefects(const SetOutputOptions& rOptions, StandIn::ReferenceImage& rLight) {
    uint64_t nOutside = 0;
    if (rOptions.strDefects == "none") {
        rLight.vecDefects.clear();
    } else if (rOptions.strDefects == "find") {
        const auto dark = readDark(rOptions, rLight);
        rLight.vecDefects = foundDefectMap(rLight, dark ? &*dark : nullptr);
    } else if (!rOptions.strDefects.empty()) {
        std::error_code ignored;
        if (!std::filesystem::exists(rOptions.strDefects, ignored)) {
            throw std::runtime_error(rOptions.strDefects +
                                     ": there is no such file; --defects takes find, none or the file of a list");
        }
        rLight.vecDefects = defectMap(readDefectList(rOptions.strDefects), rLight, nOutside);
    }
    const uint64_t nMarked = countMarked(rLight.vecDefects);
    if (nMarked == 0) {
        rLight.vecDefects.clear();
    }
    if (nMarked > StandIn::ReferenceImage::defectsMax(rLight.layout)) {
        throw CUsageError(counted(nMarked, "defect") + " are more than a reference of this size can mark, " +
                          std::to_string(StandIn::ReferenceImage::defectsMax(rLight.layout)));
    }
    return nOutside;
}

void tellChange(COutput& rOutput, const char* pName, const std::string& strBefore, const std::string& strAfter) {
    rOutput.text() << capital(pName) << ": " << strAfter
                   << (strBefore == strAfter ? ", unchanged" : " (was " + strBefore + ")") << '\n';
    rOutput.json()[pName] = {{"before", strBefore}, {"after", strAfter}};
}

}  // namespace

int runSetOutput(const SetOutputOptions& rOptions) {
    COutput output("output", rOptions.bJson);
    StandIn::ReferenceImage light = readReference(rOptions.strLight);
    if (light.eKind != StandIn::eReferenceLight) {
        throw CUsageError(rOptions.strLight + " is a dark reference");
    }
    const StandIn::ReferenceOutput before = light.output;
    const std::vector<uint8_t> vecBefore = light.vecDefects;
    const double dFull = light.layout.pFormat->fullScale();
    if (!rOptions.strTarget.empty()) {
        setTarget(rOptions.strTarget, dFull, light.output);
    }
    if (rOptions.dPedestal >= 0.0) {
        if (rOptions.dPedestal > dFull / 2) {
            throw CUsageError("--pedestal is above half of full scale, " + fixed(dFull / 2, 1) + " DN");
        }
        light.output.dPedestal = rOptions.dPedestal;
    }
    if (light.output.eTarget == StandIn::eTargetValue && light.output.dTarget + light.output.dPedestal >= dFull) {
        throw CUsageError("target and pedestal come to " + fixed(light.output.dTarget + light.output.dPedestal, 2) +
                          " DN together, where full scale is " + fixed(dFull, 0) + " DN: an even image is cut off");
    }
    requireOutputs(rOptions);
    const uint64_t nOutside = setDefects(rOptions, light);
    const auto dark = rOptions.strGain.empty() ? std::nullopt : readDark(rOptions, light);
    const bool bChanged = before.eTarget != light.output.eTarget || before.dTarget != light.output.dTarget ||
                          before.dPedestal != light.output.dPedestal || vecBefore != light.vecDefects;
    if (bChanged) {
        try {
            StandIn::writeReferenceFile(rOptions.strLight, light);
        } catch (const std::runtime_error& rError) {
            throw std::runtime_error(rOptions.strLight + ": " + rError.what());
        }
    }
    if (!rOptions.strExport.empty()) {
        StandIn::saveFile(rOptions.strExport, defectListText(rOptions.strExport, light));
    }
    if (!rOptions.strGain.empty()) {
        writeFloatImage(rOptions.strGain, light.layout, gainsOf(dark ? &*dark : nullptr, &light));
    }
    tellChange(output, "target", targetText(before), targetText(light.output));
    tellChange(output, "pedestal", fixed(before.dPedestal, 2) + " DN", fixed(light.output.dPedestal, 2) + " DN");
    tellChange(output, "defects", std::to_string(countMarked(vecBefore)),
               std::to_string(countMarked(light.vecDefects)));
    if (nOutside != 0) {
        output.text() << "Beyond the image: " << counted(nOutside, "pixel") << " of the list\n";
    }
    output.json()["outside"] = nOutside;
    output.json()["written"] = bChanged;
    output.text() << rOptions.strLight << (bChanged ? ": written\n" : ": left as it is\n");
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
