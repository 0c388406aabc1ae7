// Wakes that come at the wrong moment: a cancel just before a call that hangs, a watchdog's wake
// just as a file becomes complete, a drive that hangs again while a part is taken away.

#include "copy_engine.h"

#include "faultfs.h"
#include "log_lines.h"
#include "shim.h"
#include "test_env.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::FailedItem;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using test_env::exists;
using test_env::logged_with;
using test_env::make_dirs;
using test_env::pattern;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kTimedOut = "timed out — the source or target stopped responding";
constexpr const char* kNotResponding = "cancelled — the drive was not responding";

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + "\n";
    return all;
}

bool comes_true(const std::function<bool()>& condition, double seconds = 10) {
    for (int i = 0; i < seconds * 1000 && !condition(); ++i)
        usleep(1000);
    return condition();
}

// Ticks as the interface does, until the run has ended by itself or the time is over.
bool ends_by_ticks(Engine& engine, double seconds = 8) {
    return comes_true(
        [&engine] {
            engine.watchdog_tick();
            return !engine.is_running();
        },
        seconds);
}

// A link whose text cannot be read twice, and whose third reading hangs. The waits before the
// attempts last out a signal, so a cancel that falls into the last one is lost on the reading.
void hang_after_a_wait(FaultFs& fs) {
    ASSERT_EQ(symlink("somewhere", (fs / "f").c_str()), 0);
    fs.set(faultfs::fail("readlink", EIO, 1, 2));
    fs.set(faultfs::stall("readlink", 3, -1));
}

}  // namespace

// --- A cancel that is lost ----------------------------------------------------------------------

TEST(copy_engine_wake, a_worker_that_hangs_just_after_a_cancel_is_woken_again) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    hang_after_a_wait(fs);
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(comes_true([&] { return fs.calls("readlink") == 2; }));
    usleep(50'000);
    engine.cancel();
    ASSERT_TRUE(fs.wait_stalled(1)) << "the cancel was not lost";
    EXPECT_TRUE(ends_by_ticks(engine));
    fs.clear();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    const Progress progress = engine.snapshot();
    EXPECT_TRUE(progress.cancelled);
    for (const FailedItem& item : progress.failures)
        EXPECT_NE(item.message, kTimedOut);
    EXPECT_EQ(logged_with("watchdog: "), 0);
    EXPECT_FALSE(exists(dir / "f"));
}

TEST(copy_engine_wake, a_cancelled_run_is_woken_about_once_a_second) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    REQUIRE_SHIM(SYS_tgkill);
    const TempDir dir;
    write_file(fs / "f", pattern(3000));
    faultfs::Fault fault = faultfs::stall("read", 1, 1);
    fault.deaf = true;
    fs.set(fault);
    // Of the thread that got most: the others may still be about to leave when the cancel comes.
    std::map<uint64_t, int> by_thread;
    std::atomic<int> signals{0};
    shim::rule(SYS_tgkill, [&](const shim::Call& call) {
        if (call.args[2] == SIGUSR2)
            signals = std::max(signals.load(), ++by_thread[call.args[1]]);
        return shim::go();
    });
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 2, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    const auto after_ticks = [&](double seconds) {
        copy_engine::advance_clock_for_tests(seconds);
        for (int i = 0; i < 20; ++i)
            engine.watchdog_tick();
        return signals.load();
    };
    EXPECT_EQ(after_ticks(20), 0) << "without a cancel nobody is woken so soon";
    engine.cancel();
    EXPECT_EQ(after_ticks(0.3), 1);
    EXPECT_EQ(after_ticks(1), 2);
    EXPECT_EQ(after_ticks(0.3), 2);
    EXPECT_EQ(after_ticks(1), 3);
    EXPECT_EQ(logged_with("watchdog: "), 0);
    fs.release();
    EXPECT_TRUE(ends_by_ticks(engine));
    engine.reap();
    EXPECT_EQ(engine.snapshot().failures_total, 0U);
    shim::clear();
}

TEST(copy_engine_wake, a_scanner_that_hangs_just_after_a_cancel_is_woken_again) {
    REQUIRE_SHIM(SYS_newfstatat);
    const TempDir dir;
    const TempDir target;
    write_file(dir / "f", "content");
    std::atomic<int> looks{0};
    shim::rule(
        SYS_newfstatat,
        [&](const shim::Call&) { return ++looks <= 2 ? shim::refuse(ETIMEDOUT) : shim::wait(); },
        [path = target.path(), others = shim::not_this_thread()](const shim::Call& call) {
            return others(call) && call.arg_text(1) == path;
        });
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "f"}, target.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(comes_true([&] { return looks == 2; }));
    usleep(50'000);
    engine.cancel();
    ASSERT_TRUE(shim::wait_waiting(1)) << "the cancel was not lost";
    EXPECT_TRUE(ends_by_ticks(engine));
    shim::clear();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    EXPECT_TRUE(engine.snapshot().cancelled);
}

TEST(copy_engine_wake, the_end_of_a_run_that_hangs_just_after_a_cancel_is_woken_again) {
    REQUIRE_SHIM(SYS_fchmod, SYS_openat);
    const TempDir dir;
    const TempDir target;
    make_dirs(dir / "tree/sub");
    ASSERT_EQ(chmod((dir / "tree/sub").c_str(), 0555), 0);
    // The cancel is spent on the mode of the one folder, and then the other cannot be opened.
    std::atomic<bool> spent{false};
    shim::rule(SYS_fchmod, [&](const shim::Call&) {
        spent = true;
        return shim::wait();
    });
    shim::rule(
        SYS_openat,
        [&](const shim::Call& call) {
            const bool opens = call.arg_text(1) == target / "tree" && !(call.args[2] & O_PATH);
            return opens ? shim::wait() : shim::go();
        },
        shim::not_this_thread());
    Engine engine;
    ASSERT_TRUE(
        engine.start({dir / "tree"}, target.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(comes_true([&] { return spent.load(); }));
    ASSERT_TRUE(shim::wait_waiting(1));
    engine.cancel();
    EXPECT_TRUE(ends_by_ticks(engine));
    shim::clear();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
}

TEST(copy_engine_wake, an_engine_that_goes_wakes_until_its_run_has_ended) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    hang_after_a_wait(fs);
    {
        Engine engine;
        ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
        ASSERT_TRUE(comes_true([&] { return fs.calls("readlink") == 2; }));
        usleep(50'000);
    }
    EXPECT_EQ(logged_with("transfer CANCELLED"), 1);
}

// --- A part that cannot be taken away -----------------------------------------------------------

TEST(copy_engine_wake, a_part_that_a_cancel_cannot_take_away_is_told) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(dir / "f", pattern(100'000));
    fs.set(faultfs::stall("write", 1, 1));
    fs.set(faultfs::stall("unlink", 1, -1));
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "f"}, fs.path(), Operation::Move, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.cancel();
    EXPECT_TRUE(ends_by_ticks(engine, 20));
    fs.clear();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    const Progress progress = engine.snapshot();
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, dir / "f");
    EXPECT_EQ(progress.failures[0].message, kNotResponding);
    EXPECT_EQ(progress.failures[0].target, fs / "f");
    EXPECT_EQ(progress.failures[0].attempts, 1);
    EXPECT_EQ(progress.files_copied, 0);
    EXPECT_EQ(logged_with("cancelled while busy with " + dir / "f"), 1);
    EXPECT_TRUE(exists(fs / "f"));
    EXPECT_EQ(test_env::read_file(dir / "f"), pattern(100'000));
}

TEST(copy_engine_wake, a_part_that_may_not_be_taken_away_is_told_with_the_reason) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(dir / "f", pattern(100'000));
    fs.set(faultfs::stall("write", 1, 1));
    fs.set(faultfs::fail("unlink", EROFS));
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "f"}, fs.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.cancel();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    const Progress progress = engine.snapshot();
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].message, fs / "f" + ": Read-only file system");
    EXPECT_EQ(progress.failures[0].code, EROFS);
}

// --- A wake just as a file is done --------------------------------------------------------------

class done_too_late : public testing::TestWithParam<const char*> {};

// The last call of a file outlasts the wake and then succeeds. The file is listed as timed out, so
// no copy of it may stay.
TEST_P(done_too_late, leaves_nothing_of_the_file_that_is_listed) {
    const std::string call = GetParam();
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(dir / "tree");
    const std::string first = dir / "tree/first";
    const std::string second = dir / "tree/second";
    if (call == "symlink") {
        ASSERT_EQ(symlink("somewhere", first.c_str()), 0);
    } else {
        write_file(first, pattern(3000));
    }
    if (call == "link") {
        ASSERT_EQ(link(first.c_str(), second.c_str()), 0);
    }
    faultfs::Fault fault = faultfs::stall(call, 1, 1);
    fault.deaf = true;
    fs.set(fault);
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "tree"}, fs.path(), Operation::Move, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    copy_engine::advance_clock_for_tests(95);
    const std::string listed = engine.watchdog_tick();
    fs.release();
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    const Progress progress = engine.snapshot();
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, listed);
    EXPECT_EQ(progress.failures[0].message, kTimedOut);
    const std::string name = listed.substr(listed.rfind('/') + 1);
    EXPECT_TRUE(exists(listed));
    EXPECT_FALSE(exists(fs / "tree/" + name));
    if (call == "link") {
        const std::string other = name == "first" ? "second" : "first";
        EXPECT_EQ(test_env::read_file(fs / "tree/" + other), pattern(3000));
        EXPECT_FALSE(exists(dir / "tree/" + other));
    }
}

INSTANTIATE_TEST_SUITE_P(copy_engine, done_too_late, testing::Values("flush", "symlink", "link"));

// --- A target that is away at the start ---------------------------------------------------------

TEST(copy_engine_wake, a_target_that_cannot_be_opened_for_a_moment_costs_no_file) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    const TempDir target;
    write_file(dir / "f", "content");
    shim::fail(SYS_openat, ETIMEDOUT, 1, 2, [path = target.path()](const shim::Call& call) {
        return (call.args[2] & O_PATH) && call.arg_text(1) == path;
    });
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "f"}, target.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    shim::clear();
    EXPECT_EQ(engine.snapshot().failures_total, 0U) << failure_text(engine.snapshot());
    EXPECT_EQ(test_env::read_file(target / "f"), "content");
}

class target_away : public testing::TestWithParam<int> {};

TEST_P(target_away, from_the_start_is_told_after_as_many_looks_as_it_deserves) {
    const int code = GetParam();
    const int looks = code == ETIMEDOUT ? 3 : 1;
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    const TempDir target;
    write_file(dir / "f", "content");
    std::atomic<int> opened{0};
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            ++opened;
            return shim::refuse(code);
        },
        [path = target.path()](const shim::Call& call) {
            return (call.args[2] & O_PATH) && call.arg_text(1) == path;
        });
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "f"}, target.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(ends_by_ticks(engine));
    engine.reap();
    shim::clear();
    const Progress progress = engine.snapshot();
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, dir / "f");
    EXPECT_EQ(progress.failures[0].attempts, looks);
    EXPECT_EQ(progress.failures[0].code, code);
    EXPECT_EQ(opened, looks);
    EXPECT_FALSE(exists(target / "f"));
}

INSTANTIATE_TEST_SUITE_P(copy_engine, target_away, testing::Values(ETIMEDOUT, EACCES));
