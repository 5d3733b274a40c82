// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a cancel does to the fetches of a stream.

#pragma once

#include <memory>

namespace XAPEL2 {
namespace StandIn {

/// The fetches, as a cancel sees them.
class ICancelledFetches {
public:
    virtual ~ICancelledFetches() = default;
    /// Ends every fetch called before now, waiting already or not.
    virtual void endBegun() = 0;
    /// Ends the oldest fetch that waits and has not been ended; false when there is none.
    virtual bool endOldestWaiting() = 0;
};

/// One for each stream. Every call comes with the lock of the stream's fetches held.
class ICancelPolicy {
public:
    virtual ~ICancelPolicy() = default;
    virtual void cancel(ICancelledFetches& rFetches) = 0;
    /// Asked once for each fetch as it begins: true when a cancel before it ends it.
    virtual bool endsNext() { return false; }
    /// The stream has been closed: cancels before it count no more.
    virtual void forget() {}
};

/// The host's own: ends what was called before, and nothing that is called later.
class CCancelBegun : public ICancelPolicy {
public:
    void cancel(ICancelledFetches& rFetches) override { rFetches.endBegun(); }
};

}  // namespace StandIn
}  // namespace XAPEL2
