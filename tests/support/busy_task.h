// A background task for tests of what is refused or shown while one runs.

#pragma once

#include "bg_task.h"

#include <glib.h>

namespace test_env {

// Runs until it is cancelled. False when another one runs.
[[nodiscard]] inline bool start_busy_task() {
    return BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    });
}

}  // namespace test_env
