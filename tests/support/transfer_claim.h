// What a transfer promises whatever fails, as one check over the trees before and after it:
//
//   1. A file that is not listed as failed is at the target byte for byte, with mode and times
//      (unless the run was ended early).
//   2. A copy changes no source; of a move every source file is whole at one side at least.
//   3. No partial target stays.
//   4. What stood at the target is there still, or replaced by a whole file that bears its name.
//
// What lies outside both folders is the caller's to compare.

#pragma once

#include "copy_engine.h"
#include "tree.h"

#include <string>
#include <vector>

namespace test_env {

struct TransferClaim {
    std::string source_root;  // every source is an entry of this folder
    std::string target_root;
    tree::Snapshot source_before;
    tree::Snapshot target_before;
    copy_engine::Operation op = copy_engine::Operation::Copy;
    tree::Compare compare{};
    // The run was killed: no list of failures, and a partial target may stay, its source whole.
    bool killed = false;

    // Snapshots of both folders as they are now.
    void look();
    // What is not as promised, one line each.
    [[nodiscard]] std::string broken(const copy_engine::Progress& progress) const;
};

}  // namespace test_env
