// Runs the transfer engine to its end, as the interface's timer would: a poll, a watchdog tick, an
// answer to a question, a join.

#pragma once

#include "copy_engine.h"

#include <functional>
#include <string>
#include <vector>

namespace test_env {

struct EngineRun {
    std::vector<std::string> sources;
    std::string target;
    copy_engine::Operation op = copy_engine::Operation::Copy;
    int threads = 2;
    copy_engine::ConflictAction default_action = copy_engine::ConflictAction::Ask;
    // Answers a question; empty: Cancel, so that a test that expects none does not hang.
    std::function<copy_engine::ConflictAction(const copy_engine::ConflictRequest&, bool& for_all)>
        answer{};
    // Called on every poll.
    std::function<void(copy_engine::Engine&)> poll{};
    double limit_seconds = 120;
};

// The last snapshot. A run past the limit is cancelled and fails the test.
copy_engine::Progress run_engine(copy_engine::Engine& engine, const EngineRun& run);
copy_engine::Progress run_engine(const EngineRun& run);

}  // namespace test_env
