// Files that fail for a while, calls that do not come back, a full target, a cancelled run.

#include "copy_engine.h"

#include "faultfs.h"
#include "log_lines.h"
#include "mounts_fixture.h"
#include "run_engine.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::FailedItem;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using mounts_fixture::Tmpfs;
using test_env::EngineRun;
using test_env::exists;
using test_env::logged;
using test_env::logged_with;
using test_env::make_dirs;
using test_env::pattern;
using test_env::read_file;
using test_env::run_engine;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kTimedOut = "timed out — the source or target stopped responding";

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + " | " + item.target + " | " +
               std::to_string(item.attempts) + " | " + std::to_string(item.code) + "\n";
    return all;
}

void expect_one_failure(const Progress& progress, const std::string& path,
                        const std::string& message, const std::string& target, int attempts,
                        int code) {
    ASSERT_EQ(progress.failures.size(), 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures_total, 1U);
    EXPECT_EQ(progress.failures[0].path, path);
    EXPECT_EQ(progress.failures[0].message, message);
    EXPECT_EQ(progress.failures[0].target, target);
    EXPECT_EQ(progress.failures[0].attempts, attempts);
    EXPECT_EQ(progress.failures[0].code, code);
}

// Runs until the engine has ended by itself, as the interface would with its ticks.
Progress finish(Engine& engine) {
    for (int i = 0; i < 20'000 && engine.is_running(); ++i) {
        engine.watchdog_tick();
        usleep(1000);
    }
    EXPECT_FALSE(engine.is_running());
    if (engine.is_running())
        engine.cancel();
    engine.reap();
    return engine.snapshot();
}

void wait_until(const std::function<bool()>& condition) {
    for (int i = 0; i < 10'000 && !condition(); ++i)
        usleep(1000);
    ASSERT_TRUE(condition());
}

}  // namespace

// --- Failures that pass -------------------------------------------------------------------------

TEST(copy_engine_retry, a_read_that_fails_twice_succeeds_on_the_third_attempt) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", pattern(5000));
    const TempDir dir;
    fs.set(faultfs::fail("read", EIO, 1, 2));
    const Progress progress = run_engine({{fs / "f"}, dir.path()});
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_EQ(progress.files_copied, 1);
    EXPECT_EQ(read_file(dir / "f"), pattern(5000));
    EXPECT_EQ(logged("retry 2/3: " + fs / "f" + " (" + text(fs / "f", EIO) + ")"), 1)
        << test_env::log_text();
    EXPECT_EQ(logged("retry 3/3: " + fs / "f" + " (" + text(fs / "f", EIO) + ")"), 1);
    EXPECT_EQ(logged("succeeded on attempt 3: " + fs / "f"), 1);
    EXPECT_EQ(logged("copied " + fs / "f" + " -> " + dir / "f" + " (5000 B)"), 1);
    EXPECT_EQ(logged_with("0 failed, 1 retried, 0 reflinked"), 1);
}

TEST(copy_engine_retry, bytes_of_a_failed_attempt_stay_counted) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", pattern(3 << 20));
    const TempDir dir;
    // Two calls: an error behind the first bytes of one read makes it a short one.
    fs.set(faultfs::fail("read", EIO, 2, 2));
    const Progress progress = run_engine({{fs / "f"}, dir.path()});
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_GT(progress.bytes_done, progress.bytes_total);
    EXPECT_EQ(read_file(dir / "f"), pattern(3 << 20));
}

class transient_code : public testing::TestWithParam<int> {
  protected:
    // Opens that one attempt makes: the kernel itself tries once more where a file handle has
    // become stale, and we do where a lease may be the reason.
    static int opens_of_an_attempt() {
        return GetParam() == ESTALE || GetParam() == EAGAIN ? 2 : 1;
    }
};

TEST_P(transient_code, that_passes_costs_no_file) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", "content");
    const TempDir dir;
    fs.set(faultfs::fail("open", GetParam(), 1, 2 * opens_of_an_attempt()));
    const Progress progress = run_engine({{fs / "f"}, dir.path()});
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_EQ(fs.calls("open"), 2 * opens_of_an_attempt() + 1);
    EXPECT_EQ(read_file(dir / "f"), "content");
}

TEST_P(transient_code, is_tried_three_times_and_then_told) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", "content");
    write_file(fs / "other", "content");
    const TempDir dir;
    fs.set(faultfs::fail("open", GetParam(), 1, -1, "f"));
    EngineRun run{{fs / "f", fs / "other"}, dir.path()};
    run.threads = 1;
    const Progress progress = run_engine(run);
    expect_one_failure(progress, fs / "f", text(fs / "f", GetParam()), dir / "f", 3, GetParam());
    EXPECT_EQ(fs.calls("open"), 3 * opens_of_an_attempt() + 1);
    EXPECT_EQ(progress.files_done, 2);
    EXPECT_EQ(progress.files_copied, 1);
    EXPECT_EQ(progress.retried, 0);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(logged("FAILED after 3 attempt(s): " + fs / "f" + " — " + text(fs / "f", GetParam()) +
                     " (errno " + std::to_string(GetParam()) + ")"),
              1);
    EXPECT_FALSE(exists(dir / "f"));
    EXPECT_EQ(read_file(dir / "other"), "content");
}

INSTANTIATE_TEST_SUITE_P(copy_engine, transient_code,
                         testing::Values(EIO, EAGAIN, EBUSY, ETXTBSY, ENETDOWN, ENETUNREACH,
                                         ECONNABORTED, ECONNRESET, ETIMEDOUT, EHOSTDOWN,
                                         EHOSTUNREACH, ESTALE, EREMOTEIO));

// Most calls that a signal spoils are made again at once. What is left is tried like any other.
TEST(copy_engine_retry, an_interrupted_call_is_tried_three_times) {
    for (const int failing : {2, 3}) {
        FaultFs fs;
        REQUIRE_MOUNT(fs);
        const TempDir dir;
        write_file(dir / "f", "new");
        write_file(fs / "f", "old");
        fs.set(faultfs::fail("unlink", EINTR, 1, failing));
        EngineRun run{{dir / "f"}, fs.path()};
        run.default_action = ConflictAction::Overwrite;
        const Progress progress = run_engine(run);
        EXPECT_EQ(fs.calls("unlink"), 3);
        if (failing == 2) {
            EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
            EXPECT_EQ(progress.retried, 1);
            EXPECT_EQ(read_file(fs / "f"), "new");
        } else {
            expect_one_failure(progress, dir / "f", text(fs / "f", EINTR), fs / "f", 3, EINTR);
            EXPECT_EQ(read_file(fs / "f"), "old");
        }
    }
}

class permanent_code : public testing::TestWithParam<int> {};

TEST_P(permanent_code, costs_one_attempt) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", "content");
    const TempDir dir;
    fs.set(faultfs::fail("open", GetParam()));
    const Progress progress = run_engine({{fs / "f"}, dir.path()});
    expect_one_failure(progress, fs / "f", text(fs / "f", GetParam()), dir / "f", 1, GetParam());
    EXPECT_EQ(fs.calls("open"), 1);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(logged_with("FAILED after 1 attempt(s): " + fs / "f"), 1);
    EXPECT_EQ(logged_with("retry "), 0);
}

INSTANTIATE_TEST_SUITE_P(copy_engine, permanent_code,
                         testing::Values(EACCES, EPERM, ENOENT, ELOOP, EDQUOT));

TEST(copy_engine_retry, a_source_that_cannot_be_removed_is_told) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", "content");
    const TempDir dir;
    fs.set(faultfs::fail("unlink", EACCES, 1, -1, "f"));
    EngineRun run{{fs / "f"}, dir.path()};
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    expect_one_failure(progress, fs / "f", text(fs / "f", EACCES), dir / "f", 1, EACCES);
    EXPECT_EQ(logged("move: copied but could not remove source " + fs / "f" + ": " +
                     text(fs / "f", EACCES)),
              1);
    EXPECT_EQ(read_file(fs / "f"), "content");
    EXPECT_EQ(read_file(dir / "f"), "content");
    EXPECT_EQ(progress.files_copied, 1);
}

// A moved folder that cannot be removed at the end holds nothing any more: nobody is told.
TEST(copy_engine_retry, a_source_folder_that_cannot_be_removed_is_not_told) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/sub");
    write_file(fs / "tree/sub/f", "content");
    const TempDir dir;
    fs.set(faultfs::fail("rmdir", EACCES));
    EngineRun run{{fs / "tree"}, dir.path()};
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(fs.calls("rmdir"), 2);
    EXPECT_EQ(logged_with(std::strerror(EACCES)), 0) << test_env::log_text();
    EXPECT_EQ(logged_with("could not"), 0);
    EXPECT_EQ(logged_with(", 0 failed, "), 1);
    EXPECT_TRUE(exists(fs / "tree/sub"));
    EXPECT_FALSE(exists(fs / "tree/sub/f"));
    EXPECT_EQ(read_file(dir / "tree/sub/f"), "content");
}

// The look at the target folder is tried as often as the copy itself, by the scanner and by the
// workers.
TEST(copy_engine_retry, a_target_folder_that_is_away_for_a_moment_costs_no_file) {
    REQUIRE_SHIM(SYS_newfstatat);
    const TempDir dir;
    make_dirs(dir / "src/tree");
    write_file(dir / "src/tree/f", "content");
    write_file(dir / "src/g", "content");
    for (const int nth : {1, 2, 3, 4, 5}) {
        const TempDir target;
        shim::fail(SYS_newfstatat, ETIMEDOUT, nth, 2,
                   [path = target.path(), others = shim::not_this_thread()](const auto& call) {
                       return others(call) && call.arg_text(1) == path;
                   });
        EngineRun run{{dir / "src/tree", dir / "src/g"}, target.path()};
        run.threads = 1;
        const Progress progress = run_engine(run);
        shim::clear();
        EXPECT_EQ(progress.failures_total, 0U) << nth << failure_text(progress);
        EXPECT_TRUE(exists(target / "tree/f")) << nth;
        EXPECT_TRUE(exists(target / "g")) << nth;
    }
}

TEST(copy_engine_retry, a_target_folder_that_stays_away_is_told_after_three_looks) {
    REQUIRE_SHIM(SYS_newfstatat);
    const TempDir dir;
    const TempDir target;
    write_file(dir / "f", "content");
    shim::fail(SYS_newfstatat, ETIMEDOUT, 2, -1,
               [path = target.path(), others = shim::not_this_thread()](const auto& call) {
                   return others(call) && call.arg_text(1) == path;
               });
    EngineRun run{{dir / "f"}, target.path()};
    run.threads = 1;
    const Progress progress = run_engine(run);
    shim::clear();
    expect_one_failure(progress, dir / "f", text(target.path(), ETIMEDOUT), target / "f", 3,
                       ETIMEDOUT);
    EXPECT_EQ(progress.files_done, 1);
}

// A server that was started anew knows the old handle of a folder no more; only the path helps.
TEST(copy_engine_retry, a_stale_folder_is_opened_again) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    const TempDir target;
    make_dirs(dir / "tree");
    write_file(dir / "tree/f", "content");
    int opened = 0;
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            ++opened;
            return shim::go();
        },
        [path = dir / "tree"](const shim::Call& call) {
            return (call.args[2] & O_PATH) && call.arg_text(1) == path;
        });
    // The scanner has opened it once, the worker for its first attempt.
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) { return opened < 3 ? shim::refuse(ESTALE) : shim::go(); },
        [](const shim::Call& call) {
            return call.arg_text(1) == "f" && !(call.args[2] & O_CREAT);
        });
    EngineRun run{{dir / "tree"}, target.path()};
    run.threads = 1;
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_EQ(read_file(target / "tree/f"), "content");
}

// --- A full target ------------------------------------------------------------------------------

TEST(copy_engine_full, a_target_full_at_the_third_of_many_files_ends_the_run) {
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        const Tmpfs mount("size=16m");
        REQUIRE_MOUNT(mount);
        const TempDir dir;
        EngineRun run{{}, mount.path()};
        for (int i = 0; i < 10; ++i) {
            run.sources.push_back(dir / "f" + std::to_string(i));
            write_file(run.sources.back(), pattern(6 << 20, static_cast<uint32_t>(i)));
        }
        const tree::Snapshot before = tree::snapshot(dir.path());
        run.op = op;
        run.threads = 1;
        const Progress progress = run_engine(run);
        ASSERT_EQ(progress.failures.size(), 1U) << failure_text(progress);
        EXPECT_EQ(progress.failures[0].path, dir / "f2");
        EXPECT_EQ(progress.failures[0].code, ENOSPC);
        EXPECT_EQ(progress.failures[0].attempts, 1);
        EXPECT_TRUE(progress.disk_full);
        EXPECT_TRUE(progress.cancelled);
        EXPECT_EQ(progress.files_copied, 2);
        EXPECT_EQ(logged("target is full — stopping the transfer"), op == Operation::Copy ? 1 : 2);
        EXPECT_FALSE(exists(mount / "f2"));
        EXPECT_EQ(tree::snapshot(mount.path()).size(), 2U);
        tree::Snapshot expected = before;
        if (op == Operation::Move) {
            expected.erase("f0");
            expected.erase("f1");
        }
        EXPECT_EQ(tree::difference_text(expected, tree::snapshot(dir.path())), "");
    }
}

TEST(copy_engine_full, many_workers_leave_nothing_half_written) {
    const Tmpfs mount("size=16m");
    REQUIRE_MOUNT(mount);
    const TempDir dir;
    EngineRun run{{}, mount.path()};
    for (int i = 0; i < 40; ++i) {
        run.sources.push_back(dir / "f" + std::to_string(i));
        write_file(run.sources.back(), pattern(900'000, static_cast<uint32_t>(i)));
    }
    const tree::Snapshot before = tree::snapshot(dir.path());
    run.op = Operation::Move;
    run.threads = 8;
    const Progress progress = run_engine(run);
    EXPECT_TRUE(progress.disk_full);
    EXPECT_GE(progress.failures_total, 1U);
    const tree::Snapshot source = tree::snapshot(dir.path());
    const tree::Snapshot target = tree::snapshot(mount.path());
    for (const auto& [name, node] : before) {
        const bool here = source.contains(name) && tree::same_file(node, source.at(name));
        const bool there = target.contains(name) && tree::same_file(node, target.at(name));
        EXPECT_TRUE(here || there) << name;
        EXPECT_TRUE(there || !target.contains(name)) << name << " is half written";
    }
}

TEST(copy_engine_full, a_quota_is_no_full_disk) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(dir / "a", "content");
    write_file(dir / "b", "content");
    fs.set(faultfs::fail("write", EDQUOT, 1, -1, "a"));
    const Progress progress = run_engine({{dir / "a", dir / "b"}, fs.path()});
    expect_one_failure(progress, dir / "a", text(fs / "a", EDQUOT), fs / "a", 1, EDQUOT);
    EXPECT_FALSE(progress.disk_full);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(read_file(fs / "b"), "content");
}

// --- Calls that do not come back ----------------------------------------------------------------

class stall_in : public testing::TestWithParam<const char*> {
  protected:
    // A source whose call stalls, or a target whose call does.
    bool at_source() const {
        return std::strcmp(GetParam(), "open") == 0 || std::strcmp(GetParam(), "read") == 0;
    }
};

TEST_P(stall_in, is_named_after_15_seconds_woken_after_90_and_fails_as_timed_out) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    const std::string source = at_source() ? fs.path() : dir.path();
    const std::string target = at_source() ? dir.path() : fs.path();
    for (const char* name : {"/a", "/b", "/c"})
        write_file(source + name, pattern(100'000));
    fs.set(faultfs::stall(GetParam(), 1, 1, "b"));
    Engine engine;
    ASSERT_TRUE(engine.start({source + "/a", source + "/b", source + "/c"}, target, Operation::Copy,
                             1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_EQ(engine.watchdog_tick(), "");
    EXPECT_EQ(engine.snapshot().stalled_path, "");
    copy_engine::advance_clock_for_tests(14);
    EXPECT_EQ(engine.watchdog_tick(), "");
    copy_engine::advance_clock_for_tests(2);
    EXPECT_EQ(engine.watchdog_tick(), source + "/b");
    EXPECT_EQ(engine.snapshot().stalled_path, source + "/b");
    EXPECT_NEAR(engine.snapshot().stalled_seconds, 16, 3);
    copy_engine::advance_clock_for_tests(72);
    EXPECT_EQ(engine.watchdog_tick(), source + "/b");
    EXPECT_EQ(fs.stalled(), 1);
    EXPECT_EQ(logged_with("watchdog"), 0);
    copy_engine::advance_clock_for_tests(5);
    EXPECT_EQ(engine.watchdog_tick(), source + "/b");
    const Progress progress = finish(engine);
    EXPECT_EQ(logged_with("watchdog: worker 0 stalled for 9"), 1) << test_env::log_text();
    EXPECT_EQ(logged_with(" s — waking it"), 1);
    // No call of this thread had failed before, so there is no code that would allow a retry.
    expect_one_failure(progress, source + "/b", kTimedOut, target + "/b", 1, 0);
    EXPECT_EQ(progress.files_copied, 2);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_FALSE(exists(target + "/b"));
    EXPECT_EQ(read_file(target + "/c"), pattern(100'000));
}

INSTANTIATE_TEST_SUITE_P(copy_engine, stall_in, testing::Values("open", "read", "create", "write"));

TEST(copy_engine_stall, the_retry_rule_takes_the_code_that_stands) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "a", pattern(1000));
    write_file(fs / "b", pattern(1000));
    // The first file leaves EIO as this thread's last code, which is one that may pass.
    fs.set(faultfs::fail("open", EIO, 1, -1, "a"));
    fs.set(faultfs::stall("read", 1, 1, "b"));
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "a", fs / "b"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    copy_engine::advance_clock_for_tests(100);
    EXPECT_EQ(engine.watchdog_tick(), fs / "b");
    const Progress progress = finish(engine);
    expect_one_failure(progress, fs / "a", text(fs / "a", EIO), dir / "a", 3, EIO);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_EQ(logged("retry 2/3: " + fs / "b" + " (" + kTimedOut + ")"), 1);
    EXPECT_EQ(read_file(dir / "b"), pattern(1000));
}

TEST(copy_engine_stall, what_goes_on_before_90_seconds_has_lost_nothing) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(300'000));
    write_file(fs / "g", pattern(300'000));
    for (const char* name : {"f", "g"}) {
        faultfs::Fault fault = faultfs::stall("read", 1, 1, name);
        fault.deaf = true;
        fs.set(fault);
    }
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "f", fs / "g"}, dir.path(), Operation::Move, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    copy_engine::advance_clock_for_tests(40);
    EXPECT_EQ(engine.watchdog_tick(), fs / "f");
    fs.release();
    // The next file has a clock of its own, and the tick forgets the stall that is over.
    wait_until([&] { return exists(dir / "f") && !exists(fs / "f") && fs.stalled() == 1; });
    EXPECT_EQ(engine.watchdog_tick(), "");
    EXPECT_EQ(engine.snapshot().stalled_path, "");
    EXPECT_EQ(engine.snapshot().stalled_seconds, 0);
    fs.release();
    const Progress progress = finish(engine);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(read_file(dir / "f"), pattern(300'000));
    EXPECT_EQ(read_file(dir / "g"), pattern(300'000));
    EXPECT_FALSE(exists(fs / "f"));
}

TEST(copy_engine_stall, a_stall_that_does_not_hear_is_woken_again_after_90_more_seconds) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    faultfs::Fault fault = faultfs::stall("read");
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    copy_engine::advance_clock_for_tests(95);
    EXPECT_EQ(engine.watchdog_tick(), fs / "f");
    EXPECT_EQ(logged_with("watchdog: "), 1);
    // It has been given a fresh 90 seconds, and its flag still stands.
    EXPECT_EQ(engine.watchdog_tick(), "");
    copy_engine::advance_clock_for_tests(95);
    EXPECT_EQ(engine.watchdog_tick(), fs / "f");
    EXPECT_EQ(logged_with("watchdog: "), 1);
    fs.release();
    const Progress progress = finish(engine);
    expect_one_failure(progress, fs / "f", kTimedOut, dir / "f", 1, 0);
    EXPECT_FALSE(exists(dir / "f"));
}

TEST(copy_engine_stall, the_first_of_several_is_named_and_all_are_woken) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    EngineRun run{{}, dir.path()};
    for (int i = 0; i < 6; ++i) {
        run.sources.push_back(fs / "f" + std::to_string(i));
        write_file(run.sources.back(), pattern(2'000'000));
    }
    fs.set(faultfs::stall("read", 1, 3));
    Engine engine;
    ASSERT_TRUE(engine.start(run.sources, run.target, Operation::Copy, 3, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(3));
    const std::vector<std::string> current = engine.snapshot().current_files;
    copy_engine::advance_clock_for_tests(95);
    EXPECT_EQ(engine.watchdog_tick(), current[0]);
    EXPECT_EQ(logged_with("watchdog: "), 3);
    const Progress progress = finish(engine);
    EXPECT_EQ(progress.failures_total, 3U) << failure_text(progress);
    for (const FailedItem& item : progress.failures)
        EXPECT_EQ(item.message, kTimedOut);
    EXPECT_EQ(progress.files_copied, 3);
    EXPECT_EQ(progress.files_done, 6);
}

TEST(copy_engine_stall, idle_workers_are_neither_named_nor_woken) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    make_dirs(fs / "tree");
    // The scanner hangs, and with it everybody who waits for work.
    faultfs::Fault fault = faultfs::stall("opendir", 2, 1, "tree");
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "f", fs / "tree"}, dir.path(), Operation::Copy, 4, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    wait_until([&] { return engine.snapshot().files_done == 1; });
    copy_engine::advance_clock_for_tests(200);
    EXPECT_EQ(engine.watchdog_tick(), "");
    EXPECT_EQ(logged_with("watchdog"), 0);
    // Work that comes after such a pause starts with a clock of its own.
    write_file(fs.backing() + "/tree/late", "content");
    fs.release();
    const Progress progress = finish(engine);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(read_file(dir / "tree/late"), "content");
}

TEST(copy_engine_stall, a_file_that_comes_after_a_pause_is_not_taken_for_stalled) {
    FaultFs source;
    FaultFs target;
    REQUIRE_MOUNT(source);
    REQUIRE_MOUNT(target);
    make_dirs(source / "tree");
    write_file(source / "late", "content");
    faultfs::Fault fault = faultfs::stall("opendir", 2, 1, "tree");
    fault.deaf = true;
    source.set(fault);
    // Held again before the first byte, while it is looked whether its name is taken.
    target.set(faultfs::stall("lookup", 1, 1, "late"));
    Engine engine;
    ASSERT_TRUE(engine.start({source / "tree", source / "late"}, target.path(), Operation::Copy, 1,
                             ConflictAction::Ask));
    ASSERT_TRUE(source.wait_stalled(1));
    copy_engine::advance_clock_for_tests(200);
    source.release();
    // The scanner looks first, for the measuring does not.
    if (target.wait_stalled(1, 2000) && engine.snapshot().current_files[0].empty()) {
        target.set(faultfs::stall("lookup", 1, 1, "late"));
        target.release();
        ASSERT_TRUE(target.wait_stalled(1));
    }
    EXPECT_EQ(engine.snapshot().current_files[0], source / "late");
    EXPECT_EQ(engine.watchdog_tick(), "");
    target.release();
    EXPECT_EQ(finish(engine).failures_total, 0U);
    EXPECT_EQ(read_file(target / "late"), "content");
}

TEST(copy_engine_stall, a_wake_that_comes_too_late_does_not_hit_the_next_file) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "a", pattern(3000));
    write_file(fs / "b", pattern(3000));
    // The copy is done, and what hangs is the removing of the moved source.
    faultfs::Fault fault = faultfs::stall("unlink", 1, 1, "a");
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "a", fs / "b"}, dir.path(), Operation::Move, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    copy_engine::advance_clock_for_tests(95);
    EXPECT_EQ(engine.watchdog_tick(), fs / "a");
    EXPECT_EQ(logged_with(" s — waking it"), 1);
    fs.release();
    const Progress progress = finish(engine);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.files_copied, 2);
    EXPECT_EQ(read_file(dir / "b"), pattern(3000));
    EXPECT_FALSE(exists(fs / "a"));
}

TEST(copy_engine_stall, a_watchdog_without_a_run_says_nothing) {
    Engine engine;
    EXPECT_EQ(engine.watchdog_tick(), "");
    const TempDir dir;
    write_file(dir / "f", "x");
    make_dirs(dir / "dst");
    run_engine(engine, {{dir / "f"}, dir / "dst"});
    copy_engine::advance_clock_for_tests(1000);
    EXPECT_EQ(engine.watchdog_tick(), "");
}

// --- Cancelling ---------------------------------------------------------------------------------

class cancel_in : public testing::TestWithParam<const char*> {
  protected:
    bool at_source() const {
        return std::strcmp(GetParam(), "open") == 0 || std::strcmp(GetParam(), "read") == 0;
    }
};

TEST_P(cancel_in, wakes_the_worker_and_leaves_no_partial_target_and_every_source) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    const std::string source = at_source() ? fs.path() : dir.path();
    const std::string target = at_source() ? dir.path() : fs.path();
    write_file(source + "/a", pattern(100'000));
    write_file(source + "/b", pattern(100'000));
    fs.set(faultfs::stall(GetParam(), 1, 1, "a"));
    Engine engine;
    ASSERT_TRUE(engine.start({source + "/a", source + "/b"}, target, Operation::Move, 1,
                             ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.cancel();
    EXPECT_EQ(logged("cancel requested, woke 1 worker(s)"), 1);
    const Progress progress = finish(engine);
    EXPECT_TRUE(progress.cancelled);
    EXPECT_TRUE(progress.finished);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(logged_with("transfer CANCELLED: "), 1);
    for (const char* name : {"/a", "/b"}) {
        EXPECT_FALSE(exists(target + name));
        EXPECT_EQ(read_file(source + name), pattern(100'000));
    }
}

INSTANTIATE_TEST_SUITE_P(copy_engine, cancel_in,
                         testing::Values("open", "read", "create", "write"));

TEST(copy_engine_cancel, it_does_not_wait_for_a_worker_that_is_stuck) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    faultfs::Fault fault = faultfs::stall("read");
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 2, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.cancel();
    copy_engine::advance_clock_for_tests(95);
    EXPECT_EQ(engine.watchdog_tick(), fs / "f");
    EXPECT_TRUE(engine.snapshot().running);
    EXPECT_TRUE(engine.snapshot().cancelled);
    fs.release();
    // Woken and cancelled at once: the user wanted it to end, so there is nothing to tell.
    EXPECT_EQ(finish(engine).failures_total, 0U);
    EXPECT_FALSE(exists(dir / "f"));
}

TEST(copy_engine_cancel, the_run_ends_only_after_the_scanner_has) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(fs / "tree");
    write_file(fs / "tree/f", "x");
    faultfs::Fault fault = faultfs::stall("opendir", 2, 1, "tree");
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "tree"}, dir.path(), Operation::Copy, 3, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.cancel();
    usleep(300'000);
    EXPECT_TRUE(engine.is_running());
    fs.release();
    EXPECT_TRUE(finish(engine).finished);
    EXPECT_FALSE(exists(dir / "tree/f"));
}

TEST(copy_engine_cancel, while_measuring_ends_the_measuring) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    for (int i = 0; i < 20; ++i)
        make_dirs(fs / "tree/" + std::to_string(i));
    write_file(fs / "tree/f", "x");
    fs.set(faultfs::stall("opendir", 5, 1));
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "tree"}, dir.path(), Operation::Copy, 3, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_TRUE(engine.snapshot().scanning);
    engine.cancel();
    fs.release();
    const Progress progress = finish(engine);
    EXPECT_TRUE(progress.cancelled);
    EXPECT_FALSE(progress.scanning);
    EXPECT_LE(fs.calls("opendir"), 7);
    EXPECT_FALSE(exists(dir / "tree"));
}

TEST(copy_engine_cancel, a_worker_that_waits_before_a_retry_notes_nothing) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    fs.set(faultfs::fail("open", EIO));
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    wait_until([&] { return fs.calls("open") >= 1; });
    usleep(20'000);
    engine.cancel();
    const Progress progress = finish(engine);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(fs.calls("open"), 1);
    EXPECT_FALSE(exists(dir / "f"));
}

TEST(copy_engine_cancel, an_error_that_comes_in_the_end_is_noted) {
    for (const int code : {EACCES, EIO}) {
        FaultFs fs;
        REQUIRE_MOUNT(fs);
        const TempDir dir;
        write_file(fs / "f", pattern(3000));
        // One that may pass must have failed twice before.
        if (code == EIO)
            fs.set(faultfs::fail("read", EIO, 1, 2));
        faultfs::Fault fault = faultfs::stall("read", code == EIO ? 3 : 1);
        fault.deaf = true;
        fault.error = code;
        fs.set(fault);
        Engine engine;
        ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
        ASSERT_TRUE(fs.wait_stalled(1));
        engine.cancel();
        fs.release();
        const Progress progress = finish(engine);
        expect_one_failure(progress, fs / "f", text(fs / "f", code), dir / "f", 1, code);
        EXPECT_EQ(logged("cancelled while busy with " + fs / "f"), 1);
        EXPECT_EQ(logged_with("FAILED"), 0);
        EXPECT_FALSE(exists(dir / "f"));
    }
}

TEST(copy_engine_cancel, an_engine_that_goes_cancels_and_joins) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    fs.set(faultfs::stall("read"));
    {
        Engine engine;
        ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 2, ConflictAction::Ask));
        ASSERT_TRUE(fs.wait_stalled(1));
    }
    EXPECT_FALSE(exists(dir / "f"));
    EXPECT_EQ(logged_with("transfer CANCELLED"), 1);
}

// --- Threads that cannot be had -----------------------------------------------------------------

class threads_refused : public testing::TestWithParam<int> {};

TEST_P(threads_refused, the_run_ends_cleanly_with_a_message_or_does_its_work) {
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    const TempDir dir;
    make_dirs(dir / "dst");
    write_file(dir / "f", "content");
    Engine engine;
    (void)Engine::unique_name(dir.path(), "f");
    for (const long number : {SYS_clone3, SYS_clone})
        shim::fail(number, EAGAIN, GetParam());
    ASSERT_TRUE(engine.start({dir / "f"}, dir / "dst", Operation::Move, 4, ConflictAction::Ask));
    shim::clear();
    const Progress progress = finish(engine);
    EXPECT_TRUE(progress.finished);
    if (progress.failures_total == 0) {
        EXPECT_EQ(read_file(dir / "dst/f"), "content");
    } else {
        EXPECT_NE(progress.failures[0].message, "");
        EXPECT_EQ(read_file(dir / "f"), "content");
    }
    EXPECT_NE(exists(dir / "f"), exists(dir / "dst/f"));
    // And the next run has threads again.
    const std::string left = exists(dir / "f") ? dir / "f" : dir / "dst/f";
    make_dirs(dir / "next");
    EXPECT_EQ(run_engine(engine, {{left}, dir / "next"}).failures_total, 0U);
}

INSTANTIATE_TEST_SUITE_P(copy_engine, threads_refused, testing::Values(1, 2, 3, 4, 5));
