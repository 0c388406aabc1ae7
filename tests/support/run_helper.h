// The helper that works with root's rights, run on a batch: the one that is installed where the
// test is root's, otherwise the one that any user may run.

#pragma once

#include <string>

namespace test_env {

struct HelperRun {
    int status = -1;     // its exit status; 128 and the number for a signal
    std::string output;  // its answers, and what it complained of
};

// environment: assignments as a shell has them, "PKEXEC_UID=1000".
HelperRun run_helper(const std::string& batch, const std::string& environment = {});
// Its answers alone; fails the test unless it has worked through the batch.
std::string answers_of_helper(const std::string& batch, const std::string& environment = {});
// The program that they run.
std::string helper_program();

}  // namespace test_env
