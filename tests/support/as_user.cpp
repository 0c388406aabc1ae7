#include "as_user.h"

#include "test_env.h"

#include <cstdio>
#include <exception>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace as_user {

bool run(const std::function<void()>& body) {
    if (geteuid() != 0) {
        body();
        return !testing::Test::HasFailure();
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setresgid(kUid, kUid, kUid) != 0 ||
            setresuid(kUid, kUid, kUid) != 0)
            _exit(3);
        try {
            body();
        } catch (const std::exception& problem) {
            std::printf("%s\n", problem.what());
            std::fflush(nullptr);
            _exit(2);
        }
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void give(const std::string& path) {
    chmod(test_env::root().c_str(), 0755);
    (void)!chown(path.c_str(), kUid, kUid);
}

}  // namespace as_user
