// What becomes of a name that is taken: questions, answers, standing rules, and what two files that
// want one name get.

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
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::ConflictRequest;
using copy_engine::Engine;
using copy_engine::FailedItem;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using test_env::EngineRun;
using test_env::exists;
using test_env::logged;
using test_env::logged_with;
using test_env::lstat_of;
using test_env::make_dirs;
using test_env::read_file;
using test_env::run_engine;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kInTheWay = "a file with this name is in the way";

void set_mtime(const std::string& path, time_t seconds, long nanoseconds = 0) {
    const struct timespec times[2] = {{seconds, 0}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + " | " + item.target + "\n";
    return all;
}

// src/f "new" against dst/f "older", the source the newer one.
struct Ground {
    TempDir dir;
    std::string src = dir / "src";
    std::string dst = dir / "dst";

    Ground() {
        make_dirs(src);
        make_dirs(dst);
    }
    std::string from(const std::string& name) const { return src + "/" + name; }
    std::string to(const std::string& name) const { return dst + "/" + name; }
    void put(const std::string& name) const {
        write_file(from(name), "new");
        write_file(to(name), "older");
        set_mtime(from(name), 2'000'000'000);
        set_mtime(to(name), 1'000'000'000);
    }
};

// How an action reaches the engine.
enum class Way { Default, Answer };

struct Outcome {
    Progress progress;
    int questions = 0;
    ConflictRequest last;
};

Outcome transfer(const Ground& ground, const std::vector<std::string>& names, ConflictAction action,
                 Way way = Way::Answer, Operation op = Operation::Copy, bool for_all = false,
                 int threads = 1) {
    Outcome outcome;
    EngineRun run{{}, ground.dst};
    for (const std::string& name : names)
        run.sources.push_back(ground.from(name));
    run.op = op;
    run.threads = threads;
    if (way == Way::Default)
        run.default_action = action;
    run.answer = [&](const ConflictRequest& request, bool& all) {
        ++outcome.questions;
        outcome.last = request;
        all = for_all;
        return action;
    };
    outcome.progress = run_engine(run);
    return outcome;
}

void wait_for_question(Engine& engine) {
    for (int i = 0; i < 5000 && !engine.snapshot().conflict.pending; ++i)
        usleep(1000);
    ASSERT_TRUE(engine.snapshot().conflict.pending);
}

void finish(Engine& engine) {
    for (int i = 0; i < 20'000 && engine.is_running(); ++i)
        usleep(1000);
    ASSERT_FALSE(engine.is_running());
    engine.reap();
}

}  // namespace

// --- One file -----------------------------------------------------------------------------------

class conflict_by : public testing::TestWithParam<Way> {
  protected:
    int questions() const { return GetParam() == Way::Answer ? 1 : 0; }
};

TEST_P(conflict_by, overwrite_replaces) {
    const Ground ground;
    ground.put("f");
    ASSERT_EQ(link(ground.to("f").c_str(), ground.to("shared").c_str()), 0);
    const Outcome outcome = transfer(ground, {"f"}, ConflictAction::Overwrite, GetParam());
    EXPECT_EQ(outcome.questions, questions());
    EXPECT_EQ(outcome.progress.failures_total, 0U);
    EXPECT_EQ(outcome.progress.files_copied, 1);
    EXPECT_EQ(read_file(ground.to("f")), "new");
    EXPECT_EQ(read_file(ground.to("shared")), "older");
}

TEST_P(conflict_by, skip_counts_as_done_and_not_as_copied) {
    const Ground ground;
    ground.put("f");
    const Outcome outcome =
        transfer(ground, {"f"}, ConflictAction::Skip, GetParam(), Operation::Move);
    EXPECT_EQ(outcome.questions, questions());
    EXPECT_EQ(outcome.progress.files_done, 1);
    EXPECT_EQ(outcome.progress.files_copied, 0);
    EXPECT_EQ(outcome.progress.bytes_done, 3);
    EXPECT_EQ(outcome.progress.failures_total, 0U);
    EXPECT_EQ(read_file(ground.to("f")), "older");
    EXPECT_EQ(read_file(ground.from("f")), "new");
}

TEST_P(conflict_by, rename_new_keeps_both) {
    const Ground ground;
    ground.put("f.tar.gz");
    write_file(ground.to("f.1.tar.gz"), "taken");
    const Outcome outcome = transfer(ground, {"f.tar.gz"}, ConflictAction::RenameNew, GetParam());
    EXPECT_EQ(outcome.questions, questions());
    EXPECT_EQ(read_file(ground.to("f.tar.gz")), "older");
    EXPECT_EQ(read_file(ground.to("f.1.tar.gz")), "taken");
    EXPECT_EQ(read_file(ground.to("f.2.tar.gz")), "new");
    EXPECT_EQ(outcome.progress.files_copied, 1);
}

TEST_P(conflict_by, rename_existing_steps_aside) {
    const Ground ground;
    ground.put("f.txt");
    const ino_t old = lstat_of(ground.to("f.txt")).st_ino;
    const Outcome outcome =
        transfer(ground, {"f.txt"}, ConflictAction::RenameExisting, GetParam(), Operation::Move);
    EXPECT_EQ(outcome.questions, questions());
    EXPECT_EQ(read_file(ground.to("f.txt")), "new");
    EXPECT_EQ(read_file(ground.to("f.1.txt")), "older");
    EXPECT_EQ(lstat_of(ground.to("f.1.txt")).st_ino, old);
    EXPECT_FALSE(exists(ground.from("f.txt")));
}

TEST_P(conflict_by, overwrite_if_newer_wants_a_later_second) {
    const Ground ground;
    for (const char* name : {"newer", "equal", "older"})
        ground.put(name);
    set_mtime(ground.from("equal"), 1'000'000'000);
    set_mtime(ground.from("older"), 999'999'999);
    const Outcome outcome =
        transfer(ground, {"newer", "equal", "older"}, ConflictAction::OverwriteIfNewer, GetParam());
    EXPECT_EQ(outcome.questions, 3 * questions());
    EXPECT_EQ(read_file(ground.to("newer")), "new");
    EXPECT_EQ(read_file(ground.to("equal")), "older");
    EXPECT_EQ(read_file(ground.to("older")), "older");
    EXPECT_EQ(outcome.progress.files_copied, 1);
    EXPECT_EQ(outcome.progress.files_done, 3);
    EXPECT_EQ(outcome.progress.bytes_done, 9);
}

TEST_P(conflict_by, cancel_ends_the_run) {
    const Ground ground;
    for (const char* name : {"a", "b", "c"})
        ground.put(name);
    const Outcome outcome =
        transfer(ground, {"a", "b", "c"}, ConflictAction::Cancel, GetParam(), Operation::Move);
    EXPECT_EQ(outcome.questions, questions());
    EXPECT_TRUE(outcome.progress.cancelled);
    EXPECT_TRUE(outcome.progress.finished);
    EXPECT_EQ(outcome.progress.files_copied, 0);
    EXPECT_EQ(outcome.progress.failures_total, 0U);
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(read_file(ground.to(name)), "older");
        EXPECT_EQ(read_file(ground.from(name)), "new");
    }
    EXPECT_EQ(logged_with("transfer CANCELLED: "), 1);
}

INSTANTIATE_TEST_SUITE_P(copy_engine, conflict_by, testing::Values(Way::Default, Way::Answer),
                         [](const auto& way) {
                             return way.param == Way::Default ? "default" : "answer";
                         });

TEST(copy_engine_conflict, a_question_tells_both_sides) {
    const Ground ground;
    ground.put("f");
    const Outcome outcome = transfer(ground, {"f"}, ConflictAction::Skip);
    EXPECT_TRUE(outcome.last.pending);
    EXPECT_EQ(outcome.last.source_path, ground.from("f"));
    EXPECT_EQ(outcome.last.target_path, ground.to("f"));
    EXPECT_EQ(outcome.last.source_size, 3);
    EXPECT_EQ(outcome.last.target_size, 5);
    EXPECT_EQ(outcome.last.source_mtime, 2'000'000'000);
    EXPECT_EQ(outcome.last.target_mtime, 1'000'000'000);
    EXPECT_FALSE(outcome.last.is_dir);
    EXPECT_FALSE(outcome.progress.conflict.pending);
}

TEST(copy_engine_conflict, a_dangling_link_is_a_name_that_is_taken) {
    const Ground ground;
    write_file(ground.from("f"), "new");
    ASSERT_EQ(symlink("nowhere", ground.to("f").c_str()), 0);
    EXPECT_EQ(transfer(ground, {"f"}, ConflictAction::Skip).questions, 1);
    EXPECT_EQ(transfer(ground, {"f"}, ConflictAction::Overwrite).progress.failures_total, 0U);
    EXPECT_TRUE(S_ISREG(lstat_of(ground.to("f")).st_mode));
    EXPECT_FALSE(exists(ground.to("nowhere")));
}

TEST(copy_engine_conflict, what_a_link_at_the_target_points_to_is_never_written) {
    const Ground ground;
    write_file(ground.dir / "victim", "victim");
    for (const ConflictAction action :
         {ConflictAction::Overwrite, ConflictAction::RenameNew, ConflictAction::RenameExisting,
          ConflictAction::OverwriteIfNewer, ConflictAction::Skip}) {
        const std::string name = "f" + std::to_string(static_cast<int>(action));
        write_file(ground.from(name), "new");
        ASSERT_EQ(symlink("../victim", ground.to(name).c_str()), 0);
        EXPECT_EQ(transfer(ground, {name}, action).progress.failures_total, 0U);
        EXPECT_EQ(read_file(ground.dir / "victim"), "victim");
    }
}

TEST(copy_engine_conflict, a_link_replaces_a_file_and_a_file_a_link) {
    const Ground ground;
    ASSERT_EQ(symlink("text", ground.from("l").c_str()), 0);
    write_file(ground.to("l"), "old");
    EXPECT_EQ(transfer(ground, {"l"}, ConflictAction::Overwrite).progress.failures_total, 0U);
    char text[16] = "";
    EXPECT_EQ(readlink(ground.to("l").c_str(), text, sizeof text), 4);
    EXPECT_STREQ(text, "text");
}

TEST(copy_engine_conflict, a_pipe_at_the_target_is_in_the_way) {
    const Ground ground;
    for (const char* name : {"f", "l"})
        ASSERT_EQ(mkfifo(ground.to(name).c_str(), 0644), 0);
    write_file(ground.from("f"), "new");
    ASSERT_EQ(symlink("text", ground.from("l").c_str()), 0);
    const Outcome outcome =
        transfer(ground, {"f", "l"}, ConflictAction::Overwrite, Way::Default, Operation::Move);
    ASSERT_EQ(outcome.progress.failures.size(), 2U) << failure_text(outcome.progress);
    for (const FailedItem& item : outcome.progress.failures)
        EXPECT_EQ(item.message, kInTheWay);
    EXPECT_TRUE(S_ISFIFO(lstat_of(ground.to("f")).st_mode));
    EXPECT_TRUE(S_ISFIFO(lstat_of(ground.to("l")).st_mode));
    EXPECT_EQ(read_file(ground.from("f")), "new");
}

TEST(copy_engine_conflict, a_folder_at_the_target_is_never_replaced_by_a_file) {
    const Ground ground;
    write_file(ground.from("f"), "new");
    make_dirs(ground.to("f/inside"));
    const Outcome outcome =
        transfer(ground, {"f"}, ConflictAction::Overwrite, Way::Default, Operation::Move);
    EXPECT_EQ(outcome.progress.failures_total, 1U) << failure_text(outcome.progress);
    EXPECT_TRUE(exists(ground.to("f/inside")));
    EXPECT_EQ(read_file(ground.from("f")), "new");
    EXPECT_EQ(transfer(ground, {"f"}, ConflictAction::RenameNew).progress.failures_total, 0U);
    EXPECT_EQ(read_file(ground.to("f.1")), "new");
}

TEST(copy_engine_conflict, without_a_free_name_the_file_fails) {
    const mounts_fixture::Tmpfs mount("size=64m,nr_inodes=20000");
    REQUIRE_MOUNT(mount);
    make_dirs(mount / "src");
    make_dirs(mount / "dst");
    write_file(mount / "src/f", "new");
    write_file(mount / "dst/f", "old");
    for (int i = 1; i <= 9999; ++i)
        write_file(mount / "dst/f." + std::to_string(i), "");
    for (const ConflictAction action :
         {ConflictAction::RenameNew, ConflictAction::RenameExisting}) {
        EngineRun run{{mount / "src/f"}, mount / "dst"};
        run.default_action = action;
        const Progress progress = run_engine(run);
        ASSERT_EQ(progress.failures.size(), 1U);
        EXPECT_EQ(progress.failures[0].path, mount / "dst/f");
        EXPECT_EQ(progress.failures[0].message, "no free name available");
        EXPECT_EQ(progress.failures[0].target, "");
        EXPECT_EQ(progress.failures[0].attempts, 1);
        EXPECT_EQ(progress.failures[0].code, 0);
        EXPECT_EQ(progress.files_done, 1);
        EXPECT_EQ(progress.bytes_done, 3);
        EXPECT_EQ(progress.files_copied, 0);
        EXPECT_EQ(read_file(mount / "dst/f"), "old");
    }
}

TEST(copy_engine_conflict, an_old_file_that_cannot_step_aside_is_a_failure) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(dir / "f", "new");
    write_file(fs / "f", "old");
    fs.set(faultfs::fail("rename", EACCES));
    EngineRun run{{dir / "f"}, fs.path()};
    run.default_action = ConflictAction::RenameExisting;
    const Progress progress = run_engine(run);
    ASSERT_EQ(progress.failures.size(), 1U);
    EXPECT_EQ(progress.failures[0].path, fs / "f");
    EXPECT_EQ(progress.failures[0].message, fs / "f" + ": " + std::strerror(EACCES));
    EXPECT_EQ(progress.failures[0].target, fs / "f.1");
    EXPECT_EQ(progress.failures[0].attempts, 1);
    EXPECT_EQ(read_file(fs / "f"), "old");
    EXPECT_EQ(progress.files_done, 1);
    EXPECT_EQ(progress.files_copied, 0);
}

TEST(copy_engine_conflict, stepping_aside_never_replaces_what_came_meanwhile) {
    REQUIRE_SHIM(SYS_renameat2);
    const Ground ground;
    ground.put("f");
    shim::rule(SYS_renameat2, [&](const shim::Call& call) {
        if (call.nth == 1)
            write_file(ground.to("f.1"), "somebody's");
        return shim::go();
    });
    const Outcome outcome = transfer(ground, {"f"}, ConflictAction::RenameExisting);
    shim::clear();
    EXPECT_EQ(read_file(ground.to("f.1")), "somebody's");
    EXPECT_EQ(read_file(ground.to("f")), "new");
    EXPECT_EQ(read_file(ground.to("f.2")), "older");
    EXPECT_EQ(outcome.progress.failures_total, 0U) << failure_text(outcome.progress);
}

TEST(copy_engine_conflict, a_name_taken_at_the_last_moment_is_asked_about) {
    REQUIRE_SHIM(SYS_openat);
    const Ground ground;
    write_file(ground.from("f"), "new");
    bool done = false;
    shim::rule(SYS_openat, [&](const shim::Call& call) {
        if (!done && (call.args[2] & O_CREAT) && call.arg_text(1).ends_with("f")) {
            done = true;
            write_file(ground.to("f"), "somebody's");
        }
        return shim::go();
    });
    const Outcome outcome = transfer(ground, {"f"}, ConflictAction::RenameNew);
    shim::clear();
    EXPECT_TRUE(done);
    EXPECT_EQ(outcome.questions, 1);
    EXPECT_EQ(read_file(ground.to("f")), "somebody's");
    EXPECT_EQ(read_file(ground.to("f.1")), "new");
    EXPECT_EQ(outcome.progress.failures_total, 0U);
}

// --- Many files ---------------------------------------------------------------------------------

TEST(copy_engine_conflict, an_answer_for_all_serves_the_rest) {
    const Ground ground;
    std::vector<std::string> names;
    for (int i = 0; i < 30; ++i) {
        names.push_back("f" + std::to_string(i));
        ground.put(names.back());
    }
    const Outcome outcome =
        transfer(ground, names, ConflictAction::Skip, Way::Answer, Operation::Copy, true, 8);
    EXPECT_EQ(outcome.questions, 1);
    EXPECT_EQ(outcome.progress.files_done, 30);
    EXPECT_EQ(outcome.progress.files_copied, 0);
    for (const std::string& name : names)
        EXPECT_EQ(read_file(ground.to(name)), "older");
    // The rule does not outlive the run.
    EXPECT_EQ(transfer(ground, {"f0"}, ConflictAction::Overwrite).questions, 1);
}

TEST(copy_engine_conflict, an_answer_for_one_is_for_one_and_one_question_is_open_at_a_time) {
    const Ground ground;
    std::vector<std::string> names;
    for (int i = 0; i < 12; ++i) {
        names.push_back("f" + std::to_string(i));
        ground.put(names.back());
    }
    std::set<std::string> asked;
    EngineRun run{{}, ground.dst};
    for (const std::string& name : names)
        run.sources.push_back(ground.from(name));
    run.threads = 6;
    run.answer = [&](const ConflictRequest& request, bool&) {
        EXPECT_TRUE(asked.insert(request.source_path).second) << request.source_path;
        return asked.size() % 2 ? ConflictAction::Overwrite : ConflictAction::Skip;
    };
    const Progress progress = run_engine(run);
    EXPECT_EQ(asked.size(), 12U);
    EXPECT_EQ(progress.files_copied, 6);
    EXPECT_EQ(progress.files_done, 12);
}

TEST(copy_engine_conflict, the_default_action_goes_before_an_answer_for_all) {
    const Ground ground;
    ground.put("a");
    const Outcome outcome = transfer(ground, {"a"}, ConflictAction::Overwrite, Way::Default);
    EXPECT_EQ(outcome.questions, 0);
    EXPECT_EQ(read_file(ground.to("a")), "new");
}

TEST(copy_engine_conflict, a_cancel_ends_the_run_while_a_question_is_open) {
    const Ground ground;
    ground.put("a");
    ground.put("b");
    Engine engine;
    ASSERT_TRUE(engine.start({ground.from("a"), ground.from("b")}, ground.dst, Operation::Move, 3,
                             ConflictAction::Ask));
    wait_for_question(engine);
    engine.cancel();
    finish(engine);
    const Progress progress = engine.snapshot();
    EXPECT_TRUE(progress.cancelled);
    EXPECT_FALSE(progress.conflict.pending);
    EXPECT_EQ(progress.files_copied, 0);
    EXPECT_EQ(read_file(ground.to("a")), "older");
    EXPECT_EQ(read_file(ground.from("b")), "new");
    EXPECT_EQ(logged_with("cancel requested, woke "), 1);
}

// The best of a few, since this thread may be kept from running for longer than that.
TEST(copy_engine_conflict, a_cancel_answers_an_open_question_within_a_fifth_of_a_second) {
    const Ground ground;
    ground.put("a");
    double best = 1e9;
    for (int i = 0; i < 5 && best >= 0.2; ++i) {
        Engine engine;
        ASSERT_TRUE(
            engine.start({ground.from("a")}, ground.dst, Operation::Copy, 1, ConflictAction::Ask));
        wait_for_question(engine);
        const auto begin = std::chrono::steady_clock::now();
        engine.cancel();
        while (engine.snapshot().conflict.pending)
            usleep(500);
        best = std::min(
            best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        finish(engine);
        EXPECT_TRUE(engine.snapshot().cancelled);
    }
    EXPECT_LT(best, 0.2);
}

TEST(copy_engine_conflict, a_second_answer_is_ignored) {
    const Ground ground;
    ground.put("a");
    Engine engine;
    ASSERT_TRUE(
        engine.start({ground.from("a")}, ground.dst, Operation::Copy, 1, ConflictAction::Ask));
    wait_for_question(engine);
    engine.resolve_conflict(ConflictAction::Skip, true);
    EXPECT_FALSE(engine.snapshot().conflict.pending);
    engine.resolve_conflict(ConflictAction::Overwrite, false);
    engine.resolve_conflict(ConflictAction::Cancel, false);
    finish(engine);
    EXPECT_FALSE(engine.snapshot().cancelled);
    EXPECT_EQ(read_file(ground.to("a")), "older");
}

TEST(copy_engine_conflict, an_answer_without_a_question_is_ignored) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "a", "new");
    write_file(fs / "b", "new");
    const TempDir dir;
    write_file(dir / "b", "old");
    Engine engine;
    engine.resolve_conflict(ConflictAction::Cancel, false);
    EXPECT_FALSE(engine.snapshot().cancelled);
    fs.set(faultfs::stall("open", 1, 1, "a"));
    ASSERT_TRUE(
        engine.start({fs / "a", fs / "b"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    engine.resolve_conflict(ConflictAction::Overwrite, true);
    engine.resolve_conflict(ConflictAction::Cancel, true);
    fs.release();
    // The question comes all the same.
    wait_for_question(engine);
    engine.resolve_conflict(ConflictAction::Skip, false);
    finish(engine);
    EXPECT_FALSE(engine.snapshot().cancelled);
    EXPECT_EQ(read_file(dir / "a"), "new");
    EXPECT_EQ(read_file(dir / "b"), "old");
}

TEST(copy_engine_conflict, a_worker_that_waits_for_an_answer_is_not_woken) {
    const Ground ground;
    ground.put("a");
    ground.put("b");
    Engine engine;
    ASSERT_TRUE(engine.start({ground.from("a"), ground.from("b")}, ground.dst, Operation::Copy, 2,
                             ConflictAction::Ask));
    wait_for_question(engine);
    for (int i = 0; i < 5; ++i) {
        copy_engine::advance_clock_for_tests(80);
        usleep(450'000);  // a question looks up every 200 ms
        EXPECT_EQ(engine.watchdog_tick(), "");
    }
    EXPECT_TRUE(engine.snapshot().conflict.pending);
    engine.resolve_conflict(ConflictAction::Overwrite, true);
    finish(engine);
    EXPECT_EQ(engine.snapshot().failures_total, 0U);
    EXPECT_EQ(logged_with("watchdog"), 0);
    EXPECT_EQ(read_file(ground.to("b")), "new");
}

// --- Two files for one name ---------------------------------------------------------------------

class two_for_one_name : public testing::TestWithParam<ConflictAction> {};

TEST_P(two_for_one_name, never_write_the_same_file) {
    for (int round = 0; round < 20; ++round) {
        const Ground ground;
        std::vector<std::string> sources;
        for (int i = 0; i < 6; ++i) {
            make_dirs(ground.from(std::to_string(i)));
            sources.push_back(ground.from(std::to_string(i) + "/f"));
            write_file(sources.back(), std::string(50'000, static_cast<char>('a' + i)));
        }
        EngineRun run{sources, ground.dst};
        run.threads = 6;
        run.default_action = GetParam();
        const Progress progress = run_engine(run);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        std::set<std::string> found;
        for (const auto& [name, node] : tree::snapshot(ground.dst)) {
            const std::string content = read_file(ground.to(name));
            EXPECT_EQ(content, std::string(50'000, content[0])) << name;
            EXPECT_TRUE(found.insert(content.substr(0, 1)).second) << name;
        }
        // Skip keeps the first that came; all others keep every file.
        EXPECT_EQ(found.size(), GetParam() == ConflictAction::Skip ? 1U : 6U);
    }
}

INSTANTIATE_TEST_SUITE_P(copy_engine, two_for_one_name,
                         testing::Values(ConflictAction::Overwrite, ConflictAction::Skip,
                                         ConflictAction::RenameNew,
                                         ConflictAction::RenameExisting));

TEST(copy_engine_conflict, a_file_of_this_run_is_asked_about_and_overwrite_keeps_both) {
    const Ground ground;
    make_dirs(ground.from("1"));
    make_dirs(ground.from("2"));
    write_file(ground.from("1/f"), "first");
    write_file(ground.from("2/f"), "second");
    const Outcome outcome = transfer(ground, {"1/f", "2/f"}, ConflictAction::Overwrite);
    EXPECT_EQ(outcome.questions, 1);
    EXPECT_EQ(read_file(ground.to("f")), "first");
    EXPECT_EQ(read_file(ground.to("f.1")), "second");
}

// The folder is being filled by this run, so it neither steps aside nor is it overwritten.
TEST(copy_engine_conflict, a_folder_of_this_run_does_not_make_room_for_a_file) {
    for (const ConflictAction action :
         {ConflictAction::Overwrite, ConflictAction::RenameExisting}) {
        for (const bool was_there : {false, true}) {
            const Ground ground;
            make_dirs(ground.from("1/n/sub"));
            make_dirs(ground.from("2"));
            write_file(ground.from("1/n/f"), "first");
            write_file(ground.from("1/n/sub/g"), "deep");
            write_file(ground.from("2/n"), "second");
            if (was_there)
                make_dirs(ground.to("n"));
            const Outcome outcome = transfer(ground, {"1/n", "2/n"}, action, Way::Default);
            EXPECT_EQ(outcome.progress.failures_total, 0U) << failure_text(outcome.progress);
            EXPECT_TRUE(exists(ground.to("n/f")) && read_file(ground.to("n/f")) == "first");
            EXPECT_TRUE(exists(ground.to("n/sub/g")));
            EXPECT_TRUE(S_ISREG(lstat_of(ground.to("n.1")).st_mode));
        }
    }
}

TEST(copy_engine_conflict, a_target_that_folds_case_loses_nothing) {
    faultfs::Options options;
    options.fold_case = true;
    const FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    for (const int threads : {1, 6}) {
        const TempDir dir;
        make_dirs(dir / "tree/Sub");
        make_dirs(dir / "tree/sub");
        std::set<std::string> contents;
        for (const char* name : {"tree/README", "tree/readme", "tree/ReadMe", "tree/Sub/F",
                                 "tree/sub/f", "tree/sub/g"}) {
            write_file(dir / name, name);
            contents.insert(name);
        }
        make_dirs(fs / std::to_string(threads));
        EngineRun run{{dir / "tree"}, fs / std::to_string(threads)};
        run.threads = threads;
        run.op = Operation::Move;
        run.default_action = ConflictAction::Overwrite;
        const Progress progress = run_engine(run);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        std::set<std::string> found;
        for (const auto& [name, node] : tree::snapshot(run.target)) {
            if (node.kind == 'f')
                found.insert(read_file(run.target + "/" + name));
        }
        EXPECT_EQ(found, contents);
    }
}

TEST(copy_engine_conflict, links_that_fold_into_one_name_lose_nothing_either) {
    faultfs::Options options;
    options.fold_case = true;
    const FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(dir / "tree");
    ASSERT_EQ(symlink("one", (dir / "tree/L").c_str()), 0);
    ASSERT_EQ(symlink("two", (dir / "tree/l").c_str()), 0);
    write_file(dir / "tree/A", "12345");
    ASSERT_EQ(link((dir / "tree/A").c_str(), (dir / "tree/a").c_str()), 0);
    EngineRun run{{dir / "tree"}, fs.path()};
    run.threads = 1;
    run.default_action = ConflictAction::Overwrite;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    std::set<std::string> links;
    int files = 0;
    for (const auto& [name, node] : tree::snapshot(fs / "tree")) {
        if (node.kind == 'l')
            links.insert(node.link);
        files += node.kind == 'f';
    }
    EXPECT_EQ(links, (std::set<std::string>{"one", "two"}));
    EXPECT_EQ(files, 2);
}

// --- Folders ------------------------------------------------------------------------------------

TEST(copy_engine_conflict, a_folder_that_is_there_is_asked_about_once) {
    const Ground ground;
    make_dirs(ground.from("tree/sub"));
    make_dirs(ground.to("tree/sub"));
    write_file(ground.from("tree/sub/f"), "new");
    set_mtime(ground.from("tree"), 2'000'000'000);
    set_mtime(ground.to("tree"), 1'000'000'000);
    const Outcome outcome = transfer(ground, {"tree"}, ConflictAction::Overwrite);
    EXPECT_EQ(outcome.questions, 1);
    EXPECT_TRUE(outcome.last.is_dir);
    EXPECT_EQ(outcome.last.source_path, ground.from("tree"));
    EXPECT_EQ(outcome.last.target_path, ground.to("tree"));
    EXPECT_EQ(outcome.last.source_mtime, 2'000'000'000);
    EXPECT_EQ(outcome.last.target_mtime, 1'000'000'000);
    EXPECT_EQ(logged("folder conflict: merging into " + ground.to("tree")), 1);
    EXPECT_EQ(read_file(ground.to("tree/sub/f")), "new");
}

TEST(copy_engine_conflict, a_skipped_folder_stays_as_it_is_and_the_rest_goes_on) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    make_dirs(ground.to("tree"));
    write_file(ground.from("tree/f"), "new");
    write_file(ground.from("other"), "x");
    const Outcome outcome =
        transfer(ground, {"tree", "other"}, ConflictAction::Skip, Way::Answer, Operation::Move);
    EXPECT_EQ(outcome.progress.failures_total, 0U);
    EXPECT_TRUE(exists(ground.from("tree/f")));
    EXPECT_FALSE(exists(ground.to("tree/f")));
    EXPECT_EQ(read_file(ground.to("other")), "x");
    EXPECT_EQ(logged_with("folder conflict: skipping "), 1);
}

TEST(copy_engine_conflict, both_folders_are_kept_under_a_new_name) {
    const Ground ground;
    make_dirs(ground.from("tree.d/sub"));
    make_dirs(ground.to("tree.d"));
    write_file(ground.from("tree.d/sub/f"), "new");
    const Outcome outcome = transfer(ground, {"tree.d"}, ConflictAction::RenameNew);
    EXPECT_EQ(read_file(ground.to("tree.1.d/sub/f")), "new");
    EXPECT_EQ(tree::snapshot(ground.to("tree.d")).size(), 0U);
    EXPECT_EQ(logged("folder conflict: keeping both, new folder " + ground.to("tree.1.d")), 1)
        << test_env::log_text();
    EXPECT_EQ(outcome.progress.failures_total, 0U);
}

TEST(copy_engine_conflict, a_cancelled_folder_ends_the_run) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    make_dirs(ground.to("tree"));
    write_file(ground.from("tree/f"), "new");
    write_file(ground.from("other"), "x");
    const Outcome outcome = transfer(ground, {"tree", "other"}, ConflictAction::Cancel);
    EXPECT_TRUE(outcome.progress.cancelled);
    EXPECT_FALSE(exists(ground.to("tree/f")));
    EXPECT_FALSE(exists(ground.to("other")));
}

TEST(copy_engine_conflict, a_linked_folder_at_the_top_is_merged_into) {
    const Ground ground;
    make_dirs(ground.dir / "elsewhere");
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/f"), "new");
    ASSERT_EQ(symlink("../elsewhere", ground.to("tree").c_str()), 0);
    const Outcome outcome = transfer(ground, {"tree"}, ConflictAction::Overwrite);
    EXPECT_EQ(outcome.progress.failures_total, 0U) << failure_text(outcome.progress);
    EXPECT_EQ(read_file(ground.dir / "elsewhere/f"), "new");
    EXPECT_TRUE(S_ISLNK(lstat_of(ground.to("tree")).st_mode));
}

TEST(copy_engine_conflict, a_folders_answer_for_all_serves_its_files_too) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    make_dirs(ground.to("tree"));
    for (const char* name : {"tree/a", "tree/b", "c"})
        ground.put(name);
    const Outcome outcome = transfer(ground, {"tree", "c"}, ConflictAction::Overwrite, Way::Answer,
                                     Operation::Copy, true);
    EXPECT_EQ(outcome.questions, 1);
    for (const char* name : {"tree/a", "tree/b", "c"})
        EXPECT_EQ(read_file(ground.to(name)), "new") << name;
}

TEST(copy_engine_conflict, two_folders_of_one_name_from_different_places_both_arrive) {
    const Ground ground;
    for (const char* side : {"1", "2"}) {
        make_dirs(ground.from(side) + "/tree/sub");
        write_file(ground.from(side) + "/tree/f", side);
        write_file(ground.from(side) + "/tree/sub/only" + side, side);
    }
    EngineRun run{{ground.from("1/tree"), ground.from("2/tree")}, ground.dst};
    run.default_action = ConflictAction::Overwrite;
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    std::set<std::string> found;
    for (const auto& [name, node] : tree::snapshot(ground.dst)) {
        if (node.kind == 'f')
            found.insert(name.substr(name.rfind('/') + 1) + "=" + read_file(ground.to(name)));
    }
    const std::set<std::string> contents = {"only1=1", "only2=2"};
    EXPECT_TRUE(std::includes(found.begin(), found.end(), contents.begin(), contents.end()));
    EXPECT_EQ(found.size(), 4U);
}
