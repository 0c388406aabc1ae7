#include "run_helper.h"

#include "test_env.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace test_env {

std::string helper_program() {
    return geteuid() == 0 ? HELPER : HELPER_FOR_ANYBODY;
}

HelperRun run_helper(const std::string& batch, const std::string& environment) {
    const TempDir folder;
    write_file(folder / "batch", batch);
    HelperRun result;
    result.status = run("env -u PKEXEC_UID " + environment + " '" + helper_program() +
                            "' --batch <'" + (folder / "batch") + "' 2>&1",
                        &result.output);
    return result;
}

std::string answers_of_helper(const std::string& batch, const std::string& environment) {
    const HelperRun result = run_helper(batch, environment);
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

}  // namespace test_env
