#include "fresh_process.h"

#include "test_env.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test_env {

Rerun rerun_in_fresh_process() {
    static bool used = false;
    const testing::UnitTest& unit_test = *testing::UnitTest::GetInstance();
    if (!used && unit_test.test_to_run_count() == 1) {
        used = true;
        return {};
    }
    const testing::TestInfo& test = *unit_test.current_test_info();
    char exe[4096] = "";
    if (readlink("/proc/self/exe", exe, sizeof exe - 1) < 0)
        return {true, false, -1, "/proc/self/exe cannot be read"};
    Rerun rerun;
    rerun.elsewhere = true;
    rerun.status = run("'" + std::string(exe) + "' --gtest_color=no --gtest_repeat=1 " +
                           "--gtest_filter=" + test.test_suite_name() + "." + test.name(),
                       &rerun.output);
    rerun.skipped = rerun.status == 0 && rerun.output.find("[  SKIPPED ]") != std::string::npos;
    if (rerun.skipped) {
        // "file:line: Skipped", the reason, then the next banner.
        constexpr std::string_view kHead = ": Skipped\n";
        const size_t head = rerun.output.find(kHead);
        if (head != std::string::npos)
            rerun.output = rerun.output.substr(head + kHead.size(), rerun.output.find("\n[", head) -
                                                                        head - kHead.size());
    }
    return rerun;
}

std::string answer_of_child(const std::function<std::string()>& body) {
    const std::string path = root() + "/answer";
    unlink(path.c_str());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const pid_t child = fork();
    if (child == 0) {
        const std::string answer = "=" + body();
        const ssize_t written = write(fd, answer.data(), answer.size());
        _exit(written == static_cast<ssize_t>(answer.size()) ? 0 : 1);
    }
    close(fd);
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const std::string answer = read_file(path);
    return status == 0 && !answer.empty() ? answer.substr(1) : "no answer";
}

bool become_ordinary_user() {
    constexpr uid_t kNobody = 65534;
    return geteuid() == 0 && setgroups(0, nullptr) == 0 &&
           setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0;
}

bool enter_private_mounts() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool mount_tmpfs(const std::string& folder, const std::string& options) {
    return mount("tmpfs", folder.c_str(), "tmpfs", 0,
                 options.empty() ? nullptr : options.c_str()) == 0;
}

bool mount_bind(const std::string& source, const std::string& target) {
    // The throw-away tree is removed at the end with all it shows: never show foreign files there.
    if (target.compare(0, root().size(), root()) == 0)
        return false;
    return mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

bool enter_private_root() {
    const std::string new_root = "/mnt";
    if (!mount_tmpfs(new_root))
        return false;
    DIR* old_root = opendir("/");
    if (!old_root)
        return false;
    bool good = true;
    while (const struct dirent* entry = readdir(old_root)) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == "mnt")
            continue;
        const std::string source = "/" + name;
        const std::string target = new_root + source;
        char link[4096] = "";
        if (entry->d_type == DT_DIR)
            good = good && mkdir(target.c_str(), 0755) == 0 && mount_bind(source, target);
        else if (entry->d_type == DT_LNK)
            good = good && readlink(source.c_str(), link, sizeof link - 1) > 0 &&
                   symlink(link, target.c_str()) == 0;
    }
    closedir(old_root);
    return good && chroot(new_root.c_str()) == 0 && chdir("/") == 0;
}

}  // namespace test_env
