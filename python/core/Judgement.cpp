// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What check() says.

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>
#include <nlohmann/json.hpp>

#include "python/core/Gil.h"
#include "python/core/Parts.h"
#include "toolkit/judgement/PairCheck.h"
#include "toolkit/text/Errors.h"
#include "xapel2_standin/GenTL.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;

// The object as JSON, and lines for people. Bytes: a text may hold a file name that is no UTF-8.
std::pair<py::bytes, py::bytes> check(const std::string& strDark, const std::string& strLight,
                                      const std::vector<std::string>& rLevels) {
    std::string strJson, strText;
    withoutGil([&] {
        static std::mutex s_mtx;  // for the self test of the pair
        const std::lock_guard<std::mutex> lock(s_mtx);
        try {
            const Toolkit::PairCheck result = Toolkit::checkPair(strDark, strLight, rLevels);
            strJson = Toolkit::toJson(result, true).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
            strText = Toolkit::describe(result, false) + "\nVerdict: " + Toolkit::verdict(result.findings()) + '\n';
        } catch (const Toolkit::CGenTlError&) {
            throw;
        } catch (const Toolkit::CUsageError&) {
            throw;
        } catch (const Exceptions::IException&) {
            throw;
        } catch (const std::runtime_error& rError) {
            throw Toolkit::CGenTlError(GC_ERR_IO, rError.what());
        }
    });
    return {py::bytes(strJson), py::bytes(strText)};
}

}  // namespace

void defineJudgement(py::module_& rModule) {
    rModule.def("check", &check, py::arg("dark"), py::arg("light"), py::arg("levels"));
}

}  // namespace Python
}  // namespace XAPEL2
