// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Who is told how far a run is.

#pragma once

#include <cstdint>
#include <string>

namespace XAPEL2 {
namespace Toolkit {

/// Told by whatever takes long. @threads those of the run.
class IProgress {
public:
    virtual ~IProgress() = default;

    /// iDone of nAll frames of this step are done; strMore tells more about them.
    /// @param[in] nAll  0: without end.
    virtual void show(const std::string& strStep, uint64_t iDone, uint64_t nAll, const std::string& strMore = {}) = 0;
    /// The step is over, or something else is to be said.
    virtual void clear() = 0;
};

/// For those whom it does not interest.
class CSilentProgress : public IProgress {
public:
    void show(const std::string&, uint64_t, uint64_t, const std::string&) override {}
    void clear() override {}
};

}  // namespace Toolkit
}  // namespace XAPEL2
