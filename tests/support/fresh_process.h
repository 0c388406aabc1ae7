// Answers that are taken once per process (the packaging kind, the mount table, the log) need a
// process that has not asked yet. Under ctest each test has a process of its own; when the whole
// binary runs in one, such a test runs itself again in a new process and takes over the outcome.
//
// The rest of this header changes what the process sees of the machine. Mounts made after
// enter_private_mounts() vanish with the process and are seen by no other.

#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace test_env {

struct Rerun {
    bool elsewhere = false;  // the body ran in another process: nothing is left to do in this one
    bool skipped = false;
    int status = 0;
    std::string output;
};

Rerun rerun_in_fresh_process();

// What body answers in a forked child, so that a fresh process can be asked under several
// conditions. "no answer" when the child ended otherwise.
std::string answer_of_child(const std::function<std::string()>& body);

// Gives up root for good: uid and gid 65534, no further groups. False when not root to begin with.
[[nodiscard]] bool become_ordinary_user();

// A mount namespace of this process's own. False when the machine or the rights forbid it.
[[nodiscard]] bool enter_private_mounts();
// An empty tmpfs over an existing folder. The options are tmpfs's own, such as "size=16m".
[[nodiscard]] bool mount_tmpfs(const std::string& folder, const std::string& options = {});
// One existing file or folder shown at the place of another; refused inside the throw-away tree,
// whose removal would follow it.
[[nodiscard]] bool mount_bind(const std::string& source, const std::string& target);
// Changes the root to a tmpfs that shows every top-level folder of the old one but /mnt, so that
// files can be made in "/". Needs enter_private_mounts() before.
[[nodiscard]] bool enter_private_root();

}  // namespace test_env

// The first line of a test whose answers must not have been asked for before.
#define REQUIRE_FRESH_PROCESS()                                                                    \
    do {                                                                                           \
        const test_env::Rerun rerun = test_env::rerun_in_fresh_process();                          \
        if (rerun.skipped)                                                                         \
            GTEST_SKIP() << rerun.output;                                                          \
        if (rerun.elsewhere) {                                                                     \
            EXPECT_EQ(rerun.status, 0) << rerun.output;                                            \
            return;                                                                                \
        }                                                                                          \
    } while (false)

#define REQUIRE_PRIVATE_MOUNTS()                                                                   \
    do {                                                                                           \
        if (!test_env::enter_private_mounts())                                                     \
            GTEST_SKIP() << "no private mount namespace to be had (needs root)";                   \
    } while (false)
