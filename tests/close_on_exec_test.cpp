// Every descriptor that the program opens is closed in the programs that it starts: a file viewer
// that outlives the window must not keep a drive from being unmounted.

#include "copy_engine.h"
#include "dir_lister.h"
#include "fresh_process.h"
#include "fs_ops.h"
#include "logger.h"
#include "mounts.h"
#include "run_engine.h"
#include "sanitized.h"
#include "settings.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <linux/openat2.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Operation;
using test_env::EngineRun;
using test_env::TempDir;

namespace {

// Watches the calls that make descriptors, for those that would be inherited. open, creat, dup2 and
// pipe are left out: not every machine has them, and the core makes none of them.
class Inherited {
  public:
    void watch() {
        on(
            SYS_open, [](const shim::Call& call) { return bit(call, 1, O_CLOEXEC); }, 0);
        on(
            SYS_openat, [](const shim::Call& call) { return bit(call, 2, O_CLOEXEC); }, 1);
        on(
            SYS_openat2, [](const shim::Call& call) { return how_of(call).flags & O_CLOEXEC; }, 1);
        on(SYS_dup, never);
        on(SYS_dup3, [](const shim::Call& call) { return bit(call, 2, O_CLOEXEC); });
        on(SYS_fcntl, [](const shim::Call& call) { return call.args[1] != F_DUPFD; });
        on(SYS_socket, [](const shim::Call& call) { return bit(call, 1, SOCK_CLOEXEC); });
        // A sanitizer's runtime looks at memory through pipes of its own.
        if (!test_env::kSanitized)
            on(SYS_pipe2, [](const shim::Call& call) { return bit(call, 1, O_CLOEXEC); });
        on(SYS_eventfd2, [](const shim::Call& call) { return bit(call, 1, EFD_CLOEXEC); });
        on(SYS_epoll_create1, [](const shim::Call& call) { return bit(call, 0, EPOLL_CLOEXEC); });
        on(SYS_inotify_init1, [](const shim::Call& call) { return bit(call, 0, IN_CLOEXEC); });
        on(
            SYS_memfd_create, [](const shim::Call& call) { return bit(call, 1, MFD_CLOEXEC); }, 0);
    }

    std::string text() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::string all;
        for (const std::string& each : m_found)
            all += each + "\n";
        return all;
    }

    int calls() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

  private:
    using Closes = std::function<bool(const shim::Call&)>;

    static bool bit(const shim::Call& call, int index, uint64_t flag) {
        return (call.args[index] & flag) != 0;
    }
    static bool never(const shim::Call&) { return false; }
    static open_how how_of(const shim::Call& call) {
        return *reinterpret_cast<const open_how*>(call.args[2]);
    }

    // path: the argument that names the file, or -1.
    void on(long number, const Closes& closes, int path = -1) {
        shim::rule(number, [this, number, closes, path](const shim::Call& call) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_calls;
            if (!closes(call))
                m_found.insert("call " + std::to_string(number) + " " +
                               (path < 0 ? std::string() : call.arg_text(path)));
            return shim::go();
        });
    }

    std::mutex m_mutex;
    std::set<std::string> m_found;
    int m_calls = 0;
};

}  // namespace

TEST(close_on_exec, every_descriptor_of_the_core_has_it) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    test_env::make_dirs(dir / "src/tree");
    test_env::make_dirs(dir / "copied/tree");
    test_env::make_dirs(dir / "moved/tree");
    tree::Shape shape;
    shape.hard_links = 2;
    shape.sparse = 1;
    shape.folder_modes = true;
    tree::build(dir / "src/tree", 7, shape);
    REQUIRE_SHIM(SYS_openat, SYS_openat2, SYS_dup, SYS_dup3, SYS_fcntl, SYS_socket, SYS_pipe2,
                 SYS_eventfd2, SYS_epoll_create1, SYS_inotify_init1, SYS_memfd_create);
    Inherited inherited;
    inherited.watch();

    Log::infof("the log has its own");
    EXPECT_FALSE(mounts::all().empty());
    SettingsStore::instance().load();
    SettingsStore::instance().save();
    EngineRun run{{dir / "src/tree"}, dir / "copied"};
    run.default_action = ConflictAction::Overwrite;
    EXPECT_EQ(test_env::run_engine(run).failures_total, 0U);
    // Into a folder that is there, so that it is no mere rename.
    run.target = dir / "moved";
    run.op = Operation::Move;
    EXPECT_EQ(test_env::run_engine(run).failures_total, 0U);
    EXPECT_TRUE(fsops::list_dir_raw(dir / "moved/tree").error.empty());
    EXPECT_GT(fsops::measure_tree(dir / "moved/tree", {}, {}).files, 0);
    static_cast<void>(fsops::clone_file(dir / "copied/tree", dir / "clone"));
    EXPECT_EQ(fsops::remove_recursive(dir / "moved/tree", {}), "");

    EXPECT_GT(inherited.calls(), 50);
    EXPECT_EQ(inherited.text(), "");
    shim::clear();
}
