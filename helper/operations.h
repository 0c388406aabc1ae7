// What the helper does as root, one entry at a time, on descriptors. Nothing but the entry that is
// named changes, whatever somebody else does to the folders meanwhile; see safe_path.h.

#pragma once

#include "batch.h"

#include <csignal>
#include <cstdint>

namespace operations {

struct Caller {
    int64_t uid = -1;  // who asked for root's rights; -1: nobody is known
};

// Set by a signal: what is under way is given up and cleaned away.
extern volatile std::sig_atomic_t g_stop;

// Why it was not done, or empty. One line without a tab.
[[nodiscard]] std::string carry_out(const batch::Operation& operation, const Caller& caller);

}  // namespace operations
