// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line and output that the benches share.

#include "Options.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "xapel2/XapelExceptions.h"

namespace XapelBench {

Options parseOptions(int argc, char** argv) {
    Options sOptions;
    for (int i = 1; i < argc; ++i) {
        const std::string strOption = argv[i];
        const auto fnValue = [&] {
            if (++i == argc)
                throw std::invalid_argument(strOption + " needs a value");
            return std::string(argv[i]);
        };
        if (strOption == "--csv")
            sOptions.bCsv = true;
        else if (strOption == "--quick")
            sOptions.bQuick = true;
        else if (strOption == "--rounds")
            sOptions.nRounds = static_cast<unsigned>(std::clamp(std::stoi(fnValue()), 1, 1000));
        else if (strOption == "--groups")
            sOptions.strGroups = fnValue();
        else if (strOption == "--formats")
            sOptions.strFormats = fnValue();
        else
            throw std::invalid_argument(strOption + " is none of --csv --quick --rounds N --groups A,B --formats A,B");
    }
    if (sOptions.bQuick)
        sOptions.nRounds = 1;
    return sOptions;
}

bool isListed(const std::string& strList, const std::string& strName) {
    return strList.empty() || ("," + strList + ",").find("," + strName + ",") != std::string::npos;
}

void note(const Options& rOptions, const char* pFormat, ...) {
    std::FILE* const pOut = rOptions.bCsv ? stderr : stdout;
    va_list args;
    va_start(args, pFormat);
    std::vfprintf(pOut, pFormat, args);
    va_end(args);
    std::fputc('\n', pOut);
    std::fflush(pOut);
}

void csv(const Options& rOptions, const std::string& strName, double dNs) {
    if (!rOptions.bCsv)
        return;
    std::printf("%s,%.1f\n", strName.c_str(), dNs);
    std::fflush(stdout);
}

int guarded(int argc, char** argv, void (*fnBench)(const Options& rOptions)) {
    try {
        fnBench(parseOptions(argc, argv));
        return 0;
    } catch (const XAPEL2::Exceptions::IException& rError) {
        std::fprintf(stderr, "%s: %s\n", argv[0], rError.GetErrorDescription().get());
    } catch (const std::exception& rError) {
        std::fprintf(stderr, "%s: %s\n", argv[0], rError.what());
    }
    return 1;
}

}  // namespace XapelBench
