// For what another thread is to do.

#pragma once

#include <chrono>
#include <thread>

namespace test_env {

// False: the condition did not come true in time.
template <class Condition>
bool wait_until(Condition condition, double seconds = 20) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace test_env
