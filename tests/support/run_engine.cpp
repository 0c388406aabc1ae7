#include "run_engine.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace test_env {

using copy_engine::ConflictAction;

copy_engine::Progress run_engine(copy_engine::Engine& engine, const EngineRun& run) {
    using namespace std::chrono;
    EXPECT_TRUE(engine.start(run.sources, run.target, run.op, run.threads, run.default_action));
    const auto end = steady_clock::now() + duration<double>(run.limit_seconds);
    while (engine.is_running()) {
        const copy_engine::Progress now = engine.snapshot();
        if (now.conflict.pending) {
            bool for_all = false;
            const ConflictAction answer =
                run.answer ? run.answer(now.conflict, for_all) : ConflictAction::Cancel;
            engine.resolve_conflict(answer, for_all);
        }
        engine.watchdog_tick();
        if (run.poll)
            run.poll(engine);
        if (steady_clock::now() > end) {
            ADD_FAILURE() << "the transfer did not end in " << run.limit_seconds << " s";
            engine.cancel();
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    engine.reap();
    return engine.snapshot();
}

copy_engine::Progress run_engine(const EngineRun& run) {
    return run_engine(copy_engine::instance(), run);
}

}  // namespace test_env
