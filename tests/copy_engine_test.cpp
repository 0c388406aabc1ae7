// The engine's start, its scanner and what arrives: names, folders, links, counters, log lines.

#include "copy_engine.h"

#include "as_user.h"
#include "faultfs.h"
#include "log_lines.h"
#include "logger.h"
#include "mounts_fixture.h"
#include "run_engine.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::FailedItem;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using mounts_fixture::LoopImage;
using mounts_fixture::Tmpfs;
using test_env::EngineRun;
using test_env::exists;
using test_env::logged;
using test_env::logged_with;
using test_env::lstat_of;
using test_env::make_dirs;
using test_env::pattern;
using test_env::read_file;
using test_env::run_engine;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kIntoItself = "cannot copy a folder into itself";
constexpr const char* kSameFile = "source and target are the same file";
constexpr const char* kInTheWay = "a file with this name is in the way";
constexpr const char* kSpecial = "not a regular file (pipe, socket or device)";

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

Progress transfer(const std::vector<std::string>& sources, const std::string& target,
                  Operation op = Operation::Copy, ConflictAction action = ConflictAction::Ask) {
    EngineRun run{sources, target};
    run.op = op;
    run.default_action = action;
    return run_engine(run);
}

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + " | " + item.target + " | " +
               std::to_string(item.attempts) + " | " + std::to_string(item.code) + "\n";
    return all;
}

void finish(Engine& engine) {
    for (int i = 0; i < 20'000 && engine.is_running(); ++i)
        usleep(1000);
    ASSERT_FALSE(engine.is_running());
    engine.reap();
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

// A source folder "src" with a tree in it, and an empty folder "dst".
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
};

}  // namespace

// --- Start --------------------------------------------------------------------------------------

TEST(copy_engine, a_start_without_sources_or_target_changes_nothing) {
    const Ground ground;
    write_file(ground.from("f"), "x");
    Engine engine;
    run_engine(engine, {{ground.from("f")}, ground.dst});
    const size_t lines = Log::instance().recent().size();
    EXPECT_FALSE(engine.start({}, ground.dst, Operation::Move, 3, ConflictAction::Skip));
    EXPECT_FALSE(engine.start({ground.from("f")}, "", Operation::Move, 3, ConflictAction::Skip));
    const Progress after = engine.snapshot();
    EXPECT_FALSE(after.running);
    EXPECT_TRUE(after.finished);
    EXPECT_EQ(after.operation, Operation::Copy);
    EXPECT_EQ(after.target_dir, ground.dst);
    EXPECT_EQ(after.threads_active, 2);
    EXPECT_EQ(after.files_copied, 1);
    EXPECT_EQ(Log::instance().recent().size(), lines);
}

TEST(copy_engine, a_second_start_is_refused_while_one_runs) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "f", "content");
    make_dirs(fs / "dst");
    const TempDir dir;
    Engine engine;
    fs.set(faultfs::stall("open", 1, 1, "f"));
    ASSERT_TRUE(engine.start({fs / "f"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_TRUE(engine.is_running());
    EXPECT_FALSE(engine.start({fs / "f"}, fs / "dst", Operation::Move, 2, ConflictAction::Ask));
    EXPECT_EQ(engine.snapshot().target_dir, dir.path());
    fs.release();
    finish(engine);
    EXPECT_EQ(read_file(dir / "f"), "content");
    EXPECT_FALSE(exists(fs / "dst/f"));
}

TEST(copy_engine, a_start_joins_the_run_before_by_itself) {
    const Ground ground;
    write_file(ground.from("a"), "a");
    write_file(ground.from("b"), "b");
    Engine engine;
    for (const char* name : {"a", "b"}) {
        ASSERT_TRUE(
            engine.start({ground.from(name)}, ground.dst, Operation::Copy, 2, ConflictAction::Ask));
        for (int i = 0; i < 20'000 && engine.is_running(); ++i)
            usleep(1000);
    }
    engine.reap();
    EXPECT_EQ(read_file(ground.to("a")), "a");
    EXPECT_EQ(read_file(ground.to("b")), "b");
}

TEST(copy_engine, each_run_counts_from_nothing) {
    const Ground ground;
    write_file(ground.from("f"), "12345");
    ASSERT_EQ(mkfifo(ground.from("fifo").c_str(), 0644), 0);
    Engine engine;
    const Progress first =
        run_engine(engine, {{ground.from("f"), ground.from("fifo")}, ground.dst});
    EXPECT_EQ(first.failures_total, 1U);
    EngineRun again{{ground.from("f")}, ground.dst};
    again.default_action = ConflictAction::Skip;
    const Progress second = run_engine(engine, again);
    EXPECT_EQ(second.failures_total, 0U);
    EXPECT_EQ(second.failures.size(), 0U);
    EXPECT_EQ(second.files_total, 1);
    EXPECT_EQ(second.files_done, 1);
    EXPECT_EQ(second.files_copied, 0);
    EXPECT_EQ(second.bytes_total, 5);
    EXPECT_EQ(second.bytes_done, 5);
}

TEST(copy_engine, the_start_is_logged_with_at_most_twenty_sources) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    make_dirs(mount / "src");
    make_dirs(mount / "dst");
    std::vector<std::string> sources;
    for (int i = 0; i < 23; ++i) {
        sources.push_back(mount / "src/f" + std::to_string(i));
        write_file(sources.back(), "");
    }
    const Progress progress = transfer(sources, mount / "dst");
    EXPECT_EQ(progress.device_summary, "memory → memory, 2×");
    EXPECT_EQ(logged("transfer start: COPY of 23 source(s) → " + mount / "dst" +
                     " [memory → memory, 2×]"),
              1)
        << test_env::log_text();
    EXPECT_EQ(logged("  from: " + sources[0]), 1);
    EXPECT_EQ(logged("  from: " + sources[19]), 1);
    EXPECT_EQ(logged_with("  from: "), 20);
    EXPECT_EQ(logged("  … and 3 more"), 1);
    EXPECT_EQ(logged_with("transfer done: 23/23 files, 0 bytes in "), 1);
    EXPECT_EQ(logged_with(" MB/s), 0 failed, 0 retried, 0 reflinked"), 1);
}

TEST(copy_engine, a_move_is_logged_as_one) {
    const Ground ground;
    write_file(ground.from("f"), "x");
    EngineRun run{{ground.from("f")}, ground.dst};
    run.op = Operation::Move;
    run.threads = 5;
    const Progress progress = run_engine(run);
    EXPECT_EQ(logged_with("transfer start: MOVE of 1 source(s) → " + ground.dst + " ["), 1);
    EXPECT_EQ(logged_with("… and"), 0);
    EXPECT_EQ(progress.operation, Operation::Move);
    EXPECT_EQ(progress.threads_active, 5);
    EXPECT_EQ(progress.current_files.size(), 5U);
    EXPECT_TRUE(progress.device_summary.ends_with(", 5×"));
}

TEST(copy_engine, threads_are_named_for_the_log) {
    const Ground ground;
    write_file(ground.from("f"), "x");
    ASSERT_EQ(mkfifo(ground.from("fifo").c_str(), 0644), 0);
    EngineRun run{{ground.from("f"), ground.from("fifo")}, ground.dst};
    run.threads = 1;
    run_engine(run);
    std::string who_skipped;
    std::string who_copied;
    for (const Log::Entry& entry : Log::instance().recent()) {
        if (entry.text == "skipped special file: " + ground.from("fifo"))
            who_skipped = entry.thread;
        if (entry.text == "copied " + ground.from("f") + " -> " + ground.to("f") + " (1 B)")
            who_copied = entry.thread;
    }
    EXPECT_EQ(who_skipped, "scan");
    EXPECT_EQ(who_copied, "w0");
}

// --- Measuring and space ------------------------------------------------------------------------

TEST(copy_engine, totals_are_known_before_the_first_file_is_copied) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/sub");
    write_file(fs / "tree/a", "12345");
    write_file(fs / "tree/sub/b", "123");
    ASSERT_EQ(symlink("a", (fs / "tree/link").c_str()), 0);
    const TempDir dir;
    Engine engine;
    fs.set(faultfs::stall("opendir", 1, 1, "sub"));
    ASSERT_TRUE(engine.start({fs / "tree"}, dir.path(), Operation::Copy, 2, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_TRUE(engine.snapshot().scanning);
    EXPECT_EQ(engine.snapshot().files_total, 0);
    EXPECT_FALSE(exists(dir / "tree"));
    fs.set(faultfs::stall("open", 1, 1, "a"));
    fs.release();
    ASSERT_TRUE(fs.wait_stalled(1));
    const Progress during = engine.snapshot();
    EXPECT_FALSE(during.scanning);
    EXPECT_TRUE(during.running);
    EXPECT_EQ(during.files_total, 3);
    EXPECT_EQ(during.bytes_total, 8);
    EXPECT_TRUE(std::find(during.current_files.begin(), during.current_files.end(),
                          fs / "tree/a") != during.current_files.end());
    fs.release();
    finish(engine);
    const Progress after = engine.snapshot();
    EXPECT_EQ(after.files_done, 3);
    EXPECT_EQ(after.bytes_done, 8);
    EXPECT_TRUE(after.finished);
    EXPECT_FALSE(after.running);
    for (const std::string& path : after.current_files)
        EXPECT_EQ(path, "");
}

TEST(copy_engine, a_target_that_is_too_small_is_a_warning_and_the_run_goes_on) {
    const Tmpfs mount("size=16m");
    REQUIRE_MOUNT(mount);
    const Ground ground;
    const int fd = open(ground.from("sparse").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_EQ(ftruncate(fd, 20 << 20), 0);
    ASSERT_EQ(pwrite(fd, "x", 1, 19 << 20), 1);
    close(fd);
    const Progress progress = transfer({ground.from("sparse")}, mount.path());
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(progress.target_free, 16 << 20);
    EXPECT_EQ(progress.space_short, 4 << 20);
    EXPECT_FALSE(progress.disk_full);
    EXPECT_EQ(logged("target may be too small: 20971520 bytes needed, 16777216 free (" +
                     mount.path() + ")"),
              1);
    EXPECT_EQ(lstat_of(mount / "sparse").st_size, 20 << 20);
}

TEST(copy_engine, enough_space_is_no_warning_and_unknown_space_is_minus_one) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const Ground ground;
    write_file(ground.from("f"), "12345");
    const Progress known = transfer({ground.from("f")}, ground.dst);
    EXPECT_GT(known.target_free, 0);
    EXPECT_EQ(known.space_short, 0);
    fs.set(faultfs::fail("statfs", EIO));
    const Progress unknown = transfer({ground.from("f")}, fs.path());
    EXPECT_EQ(unknown.target_free, -1);
    EXPECT_EQ(unknown.space_short, 0);
    EXPECT_EQ(unknown.failures_total, 0U);
    EXPECT_EQ(logged_with("too small"), 0);
    EXPECT_EQ(read_file(fs / "f"), "12345");
}

TEST(copy_engine, sums_of_bytes_end_at_the_largest_number) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    for (const char* folder : {"src/tree", "skipped", "copied", "moved"})
        make_dirs(mount / folder);
    for (const char* name : {"src/tree/a", "src/tree/b", "src/c", "src/d", "skipped/c"}) {
        write_file(mount / name, "");
        ASSERT_EQ(truncate((mount / name).c_str(), kMost), 0);
    }
    const std::vector<std::string> sources = {mount / "src/tree", mount / "src/c", mount / "src/d"};
    for (const char* folder : {"skipped", "copied", "moved"}) {
        const Operation op = std::strcmp(folder, "moved") == 0 ? Operation::Move : Operation::Copy;
        const Progress progress = transfer(sources, mount / folder, op, ConflictAction::Skip);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(progress.bytes_total, kMost) << folder;
        EXPECT_EQ(progress.bytes_done, kMost) << folder;
        EXPECT_EQ(progress.files_done, 4) << folder;
        EXPECT_GT(progress.space_short, 0) << folder;
    }
}

// --- Sources that cannot be taken ---------------------------------------------------------------

TEST(copy_engine, a_folder_does_not_go_into_itself_by_whatever_way) {
    const Ground ground;
    make_dirs(ground.from("tree/sub/deep"));
    write_file(ground.from("tree/f"), "x");
    ASSERT_EQ(symlink("src/tree/sub", (ground.dir / "way").c_str()), 0);
    const tree::Snapshot before = tree::snapshot(ground.dir.path());
    std::vector<std::string> targets = {ground.from("tree/sub"), ground.from("tree"),
                                        ground.from("tree/sub/deep"), ground.dir / "way"};
    const mounts_fixture::Bind bind(ground.from("tree"));
    if (bind.ok())
        targets.insert(targets.end(), {bind.path(), bind / "sub/deep"});
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        for (const std::string& target : targets) {
            for (const char* end : {"", "/"}) {
                const Progress progress =
                    transfer({ground.from("tree") + end}, target, op, ConflictAction::Overwrite);
                ASSERT_EQ(progress.failures.size(), 1U) << target;
                EXPECT_EQ(progress.failures[0].message, kIntoItself) << target;
                EXPECT_EQ(progress.failures[0].target, "");
                EXPECT_EQ(progress.failures[0].attempts, 1);
                EXPECT_EQ(progress.failures[0].code, 0);
                EXPECT_EQ(progress.files_copied, 0);
            }
        }
    }
    tree::Compare all;
    all.folder_times = true;
    EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.dir.path()), all), "");
}

TEST(copy_engine, a_folder_is_not_copied_onto_itself) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/f"), "x");
    ASSERT_EQ(symlink("src", (ground.dir / "way").c_str()), 0);
    const tree::Snapshot before = tree::snapshot(ground.dir.path());
    for (const std::string& target : {ground.src, ground.dir / "way", ground.src + "/"}) {
        const Progress progress =
            transfer({ground.from("tree")}, target, Operation::Copy, ConflictAction::Overwrite);
        ASSERT_EQ(progress.failures.size(), 1U) << target;
        EXPECT_EQ(progress.failures[0].message, kIntoItself) << target;
    }
    EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.dir.path())), "");
}

TEST(copy_engine, a_file_is_not_copied_or_moved_onto_itself) {
    const Ground ground;
    write_file(ground.from("f"), "content");
    ASSERT_EQ(link(ground.from("f").c_str(), ground.to("f").c_str()), 0);
    ASSERT_EQ(symlink("src", (ground.dir / "way").c_str()), 0);
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        for (const std::string& target : {ground.dst, ground.dir / "way"}) {
            for (const ConflictAction action :
                 {ConflictAction::Ask, ConflictAction::Overwrite, ConflictAction::RenameExisting,
                  ConflictAction::OverwriteIfNewer}) {
                const Progress progress = transfer({ground.from("f")}, target, op, action);
                ASSERT_EQ(progress.failures.size(), 1U) << target << static_cast<int>(action);
                EXPECT_EQ(progress.failures[0].message, kSameFile);
                EXPECT_FALSE(progress.cancelled) << "a question was asked";
                EXPECT_EQ(read_file(ground.from("f")), "content");
                EXPECT_EQ(lstat_of(ground.from("f")).st_nlink, 2U);
            }
        }
    }
    const Progress same_path = transfer({ground.from("f")}, ground.src);
    ASSERT_EQ(same_path.failures.size(), 1U);
    EXPECT_TRUE(same_path.failures[0].message == kSameFile ||
                same_path.failures[0].message == kIntoItself);
    EXPECT_EQ(read_file(ground.from("f")), "content");
}

TEST(copy_engine, the_root_is_left_out_without_a_message) {
    if (geteuid() != 0)
        GTEST_SKIP() << "a root of its own needs root";
    const Ground ground;
    write_file(ground.from("f"), "x");
    (void)Log::instance();
    const pid_t child = fork();
    if (child == 0) {
        // A small tree as the root, since all of it is measured.
        if (chroot(ground.dir.path().c_str()) != 0 || chdir("/") != 0)
            _exit(9);
        const Progress progress = transfer({"/", "//", "/src/f"}, "/dst");
        const bool good = progress.failures_total == 0 && progress.files_copied == 1 &&
                          progress.finished && !progress.cancelled && exists("/dst/f");
        _exit(good && !testing::Test::HasFailure() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(copy_engine, a_source_that_has_gone_is_told) {
    const Ground ground;
    write_file(ground.from("f"), "x");
    const Progress progress = transfer({ground.from("missing"), ground.from("f")}, ground.dst);
    expect_one_failure(progress, ground.from("missing"), "no longer exists", ground.to("missing"),
                       1, 0);
    EXPECT_EQ(read_file(ground.to("f")), "x");
}

TEST(copy_engine, special_files_are_left_out_and_told) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/f"), "x");
    ASSERT_EQ(mkfifo(ground.from("fifo").c_str(), 0644), 0);
    ASSERT_EQ(mkfifo(ground.from("tree/fifo").c_str(), 0644), 0);
    const Progress named = transfer({ground.from("fifo")}, ground.dst);
    expect_one_failure(named, ground.from("fifo"), kSpecial, ground.to("fifo"), 1, 0);
    EXPECT_EQ(logged("skipped special file: " + ground.from("fifo")), 1);
    const Progress inside = transfer({ground.from("tree")}, ground.dst);
    expect_one_failure(inside, ground.from("tree/fifo"), kSpecial, ground.to("tree/fifo"), 1, 0);
    EXPECT_EQ(logged("skipped special file: " + ground.from("tree/fifo")), 1);
    EXPECT_EQ(inside.files_total, 2);
    EXPECT_EQ(inside.files_done, 1);
    EXPECT_FALSE(exists(ground.to("tree/fifo")));
    EXPECT_EQ(read_file(ground.to("tree/f")), "x");
}

TEST(copy_engine, a_move_leaves_special_files_and_their_folder_where_they_are) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const Ground ground;
    make_dirs(ground.from("tree/sub"));
    write_file(ground.from("tree/f"), "x");
    ASSERT_EQ(mkfifo(ground.from("tree/sub/fifo").c_str(), 0644), 0);
    const Progress progress = transfer({ground.from("tree")}, mount.path(), Operation::Move);
    EXPECT_EQ(progress.failures_total, 1U);
    EXPECT_FALSE(exists(ground.from("tree/f")));
    EXPECT_TRUE(exists(ground.from("tree/sub/fifo")));
    EXPECT_EQ(read_file(mount / "tree/f"), "x");
}

TEST(copy_engine, at_most_500_failures_are_kept_and_all_are_counted) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    for (int i = 0; i < 600; ++i)
        ASSERT_EQ(mkfifo(ground.from("tree/" + std::to_string(i)).c_str(), 0644), 0);
    const Progress progress = transfer({ground.from("tree")}, ground.dst);
    EXPECT_EQ(progress.failures_total, 600U);
    EXPECT_EQ(progress.failures.size(), 500U);
}

TEST(copy_engine, what_an_ordinary_user_may_not_read_fails_and_the_rest_arrives) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(dir / "src/tree/closed");
        make_dirs(dir / "dst");
        write_file(dir / "src/tree/secret", "x", 0);
        write_file(dir / "src/tree/open", "12345", 0640);
        write_file(dir / "src/tree/closed/f", "x");
        chmod((dir / "src/tree/closed").c_str(), 0);
        const Progress progress = transfer({dir / "src/tree"}, dir / "dst");
        chmod((dir / "src/tree/closed").c_str(), 0700);
        EXPECT_EQ(progress.failures_total, 2U) << failure_text(progress);
        int found = 0;
        for (const FailedItem& item : progress.failures) {
            if (item.path == dir / "src/tree/secret") {
                ++found;
                EXPECT_EQ(item.message, text(dir / "src/tree/secret", EACCES));
                EXPECT_EQ(item.target, dir / "dst/tree/secret");
                EXPECT_EQ(item.attempts, 1);
                EXPECT_EQ(item.code, EACCES);
            }
            found += item.path.ends_with("tree/closed");
        }
        EXPECT_EQ(found, 2) << failure_text(progress);
        EXPECT_EQ(read_file(dir / "dst/tree/open"), "12345");
        EXPECT_FALSE(exists(dir / "dst/tree/secret"));
        EXPECT_EQ(logged_with("FAILED after 1 attempt(s): " + dir / "src/tree/secret"), 1);
    }));
}

TEST(copy_engine, root_copies_what_has_mode_0000) {
    if (geteuid() != 0)
        GTEST_SKIP() << "root's right";
    const Ground ground;
    make_dirs(ground.from("tree/closed"));
    write_file(ground.from("tree/closed/secret"), "x", 0);
    chmod(ground.from("tree/closed").c_str(), 0);
    const Progress progress = transfer({ground.from("tree")}, ground.dst);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(tree::difference_text(tree::snapshot(ground.src), tree::snapshot(ground.dst)), "");
}

// --- Names --------------------------------------------------------------------------------------

TEST(copy_engine, unique_names_keep_the_ending) {
    const TempDir dir;
    const std::pair<const char*, const char*> kNames[] = {
        {"report.txt", "report.1.txt"},
        {"README", "README.1"},
        {"backup.tar.gz", "backup.1.tar.gz"},
        {"a.tar.bz2", "a.1.tar.bz2"},
        {"a.tar.xz", "a.1.tar.xz"},
        {"a.tar.zst", "a.1.tar.zst"},
        {"a.tar.lz", "a.1.tar.lz"},
        {"a.tar.lz4", "a.tar.1.lz4"},
        {"BACKUP.Tar.GZ", "BACKUP.1.Tar.GZ"},
        {".tar.gz", ".tar.1.gz"},
        {"a.b.c", "a.b.1.c"},
        {".hidden", ".hidden.1"},
        {".hidden.txt", ".hidden.1.txt"},
        {"point.", "point.1."},
        {"two words.txt", "two words.1.txt"},
        {"tar.gz", "tar.1.gz"},
    };
    for (const auto& [name, expected] : kNames)
        EXPECT_EQ(Engine::unique_name(dir.path(), name), expected) << name;
}

TEST(copy_engine, unique_names_count_up_past_what_is_taken) {
    const TempDir dir;
    write_file(dir / "f.1.txt", "");
    ASSERT_EQ(symlink("nowhere", (dir / "f.2.txt").c_str()), 0);
    make_dirs(dir / "f.3.txt");
    EXPECT_EQ(Engine::unique_name(dir.path(), "f.txt"), "f.4.txt");
    // What cannot be looked at counts as free.
    EXPECT_EQ(Engine::unique_name(dir / "missing", "f.txt"), "f.1.txt");
}

TEST(copy_engine, after_9999_taken_names_there_is_none_and_folders_merge) {
    const Tmpfs mount("size=64m,nr_inodes=20000");
    REQUIRE_MOUNT(mount);
    make_dirs(mount / "dst");
    for (int i = 1; i <= 9999; ++i)
        write_file(mount / "dst/tree." + std::to_string(i), "");
    EXPECT_EQ(Engine::unique_name(mount / "dst", "tree"), "");
    ASSERT_EQ(unlink((mount / "dst/tree.9999").c_str()), 0);
    EXPECT_EQ(Engine::unique_name(mount / "dst", "tree"), "tree.9999");
    write_file(mount / "dst/tree.9999", "");
    make_dirs(mount / "src/tree");
    make_dirs(mount / "dst/tree");
    write_file(mount / "src/tree/f", "x");
    const Progress progress =
        transfer({mount / "src/tree"}, mount / "dst", Operation::Copy, ConflictAction::RenameNew);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(read_file(mount / "dst/tree/f"), "x");
    EXPECT_EQ(logged_with("keeping both"), 0);
}

TEST(copy_engine, duplicating_in_place_takes_the_next_name) {
    const Ground ground;
    write_file(ground.from("report.txt"), "content");
    make_dirs(ground.from("tree/sub"));
    write_file(ground.from("tree/sub/f"), "x");
    const std::vector<std::string> sources = {ground.from("report.txt"), ground.from("tree")};
    for (int round = 0; round < 2; ++round) {
        const Progress progress =
            transfer(sources, ground.src, Operation::Copy, ConflictAction::RenameNew);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    }
    for (const char* name : {"report.txt", "report.1.txt", "report.2.txt"})
        EXPECT_EQ(read_file(ground.from(name)), "content") << name;
    for (const char* name : {"tree/sub/f", "tree.1/sub/f", "tree.2/sub/f"})
        EXPECT_EQ(read_file(ground.from(name)), "x") << name;
    EXPECT_EQ(tree::snapshot(ground.src).size(), 3U + 9U);
}

// --- Trees --------------------------------------------------------------------------------------

TEST(copy_engine, a_tree_arrives_whole_and_every_byte_is_counted) {
    for (const uint32_t seed : {1U, 2U, 3U}) {
        const Ground ground;
        tree::Shape shape;
        shape.folders = 12;
        shape.files = 60;
        shape.sparse = 2;
        shape.symlinks = 5;
        shape.folder_modes = true;
        shape.hostile_names = true;
        make_dirs(ground.from("tree"));
        tree::build(ground.from("tree"), seed, shape);
        const tree::Snapshot before = tree::snapshot(ground.src);
        const Progress progress = transfer({ground.from("tree")}, ground.dst);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.dst)), "");
        tree::Compare all;
        all.folder_times = true;
        all.inodes = true;
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.src), all), "");
        EXPECT_EQ(progress.bytes_done, progress.bytes_total);
        EXPECT_EQ(progress.files_done, progress.files_total);
        EXPECT_EQ(progress.files_copied, progress.files_total);
        EXPECT_EQ(progress.files_total, 60 + 2 + 5);
        chmod(ground.dst.c_str(), 0755);
    }
}

TEST(copy_engine, a_moved_tree_arrives_whole_and_nothing_stays_behind) {
    const Tmpfs mount("size=64m");
    REQUIRE_MOUNT(mount);
    for (const uint32_t seed : {4U, 5U}) {
        const Ground ground;
        tree::Shape shape;
        shape.folders = 12;
        shape.files = 60;
        shape.sparse = 1;
        shape.symlinks = 5;
        shape.folder_modes = true;
        shape.hostile_names = true;
        const std::string name = "tree" + std::to_string(seed);
        make_dirs(ground.from(name));
        tree::build(ground.from(name), seed, shape);
        const tree::Snapshot before = tree::snapshot(ground.from(name));
        const Progress progress = transfer({ground.from(name)}, mount.path(), Operation::Move);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(mount / name)), "");
        EXPECT_FALSE(exists(ground.from(name)));
        EXPECT_EQ(progress.bytes_done, progress.bytes_total);
    }
}

TEST(copy_engine, a_move_inside_one_file_system_is_one_rename) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_renameat, SYS_unlinkat, SYS_unlink);
    const Ground ground;
    make_dirs(ground.from("tree"));
    tree::build(ground.from("tree"), 7, {});
    write_file(ground.from("f"), "12345");
    const tree::Snapshot before = tree::snapshot(ground.src);
    const Progress progress =
        transfer({ground.from("tree"), ground.from("f")}, ground.dst, Operation::Move);
    EXPECT_EQ(progress.failures_total, 0U);
    tree::Compare same;
    same.inodes = true;
    same.folder_times = true;
    EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.dst), same), "");
    EXPECT_EQ(shim::calls(SYS_renameat2) + shim::calls(SYS_rename) + shim::calls(SYS_renameat), 2);
    EXPECT_EQ(shim::calls(SYS_unlink) + shim::calls(SYS_unlinkat), 0);
    EXPECT_EQ(progress.files_done, progress.files_total);
    EXPECT_EQ(progress.bytes_done, progress.bytes_total);
    EXPECT_EQ(progress.files_copied, 0);
}

TEST(copy_engine, a_rename_that_is_refused_goes_the_ordinary_way_without_a_word) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_renameat);
    const Ground ground;
    for (const int code : {EXDEV, EACCES, EIO}) {
        const std::string name = "tree" + std::to_string(code);
        make_dirs(ground.from(name));
        tree::build(ground.from(name), 8, {});
        const tree::Snapshot before = tree::snapshot(ground.from(name));
        for (const long number : {SYS_renameat2, SYS_rename, SYS_renameat})
            shim::fail(number, code);
        const Progress progress = transfer({ground.from(name)}, ground.dst, Operation::Move);
        shim::clear();
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(ground.to(name))), "");
        EXPECT_FALSE(exists(ground.from(name)));
    }
}

TEST(copy_engine, a_name_taken_just_before_the_rename_is_asked_about) {
    REQUIRE_SHIM(SYS_renameat2);
    const Ground ground;
    write_file(ground.from("f"), "new");
    shim::rule(SYS_renameat2, [&](const shim::Call& call) {
        if (call.nth == 1)
            write_file(ground.to("f"), "somebody's");
        return shim::go();
    });
    int asked = 0;
    EngineRun run{{ground.from("f")}, ground.dst};
    run.op = Operation::Move;
    run.answer = [&](const copy_engine::ConflictRequest& request, bool&) {
        ++asked;
        EXPECT_EQ(request.target_path, ground.to("f"));
        return ConflictAction::Skip;
    };
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(read_file(ground.to("f")), "somebody's");
    EXPECT_EQ(read_file(ground.from("f")), "new");
}

TEST(copy_engine, a_move_onto_an_existing_target_never_renames) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    make_dirs(ground.to("tree"));
    write_file(ground.from("tree/f"), "new");
    write_file(ground.to("tree/f"), "old");
    write_file(ground.to("tree/other"), "stays");
    const ino_t inode = lstat_of(ground.from("tree/f")).st_ino;
    const Progress progress =
        transfer({ground.from("tree")}, ground.dst, Operation::Move, ConflictAction::Overwrite);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(read_file(ground.to("tree/f")), "new");
    EXPECT_NE(lstat_of(ground.to("tree/f")).st_ino, inode);
    EXPECT_EQ(read_file(ground.to("tree/other")), "stays");
    EXPECT_FALSE(exists(ground.from("tree")));
    EXPECT_EQ(progress.files_copied, 1);
}

TEST(copy_engine, source_folders_go_at_the_very_end_of_a_move) {
    REQUIRE_SHIM(SYS_rmdir, SYS_unlinkat, SYS_unlink);
    const Tmpfs mount("size=64m");
    REQUIRE_MOUNT(mount);
    const Ground ground;
    make_dirs(ground.from("tree/a/b"));
    make_dirs(ground.from("tree/empty"));
    for (const char* name : {"tree/1", "tree/a/2", "tree/a/b/3"})
        write_file(ground.from(name), "x");
    std::vector<char> order;
    const auto note_folder = [&](const shim::Call&) {
        order.push_back('d');
        return shim::go();
    };
    const auto note = [&](const shim::Call& call) {
        order.push_back(call.number == SYS_unlinkat && (call.args[2] & AT_REMOVEDIR) ? 'd' : 'f');
        return shim::go();
    };
    shim::rule(SYS_rmdir, note_folder);
    shim::rule(SYS_unlinkat, note);
    shim::rule(SYS_unlink, note);
    const Progress progress = transfer({ground.from("tree")}, mount.path(), Operation::Move);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_FALSE(exists(ground.from("tree")));
    EXPECT_TRUE(exists(mount / "tree/empty"));
    EXPECT_EQ(std::string(order.begin(), order.end()), "fffdddd");
}

TEST(copy_engine, a_file_in_the_place_of_a_folder_drops_that_folder_alone) {
    const Ground ground;
    make_dirs(ground.from("tree/sub/deep"));
    write_file(ground.from("tree/sub/deep/f"), "x");
    write_file(ground.from("tree/other"), "x");
    make_dirs(ground.to("tree"));
    write_file(ground.to("tree/sub"), "a file");
    const Progress progress =
        transfer({ground.from("tree")}, ground.dst, Operation::Move, ConflictAction::Overwrite);
    expect_one_failure(progress, ground.to("tree/sub"), kInTheWay, "", 1, 0);
    EXPECT_EQ(read_file(ground.to("tree/sub")), "a file");
    EXPECT_EQ(read_file(ground.to("tree/other")), "x");
    EXPECT_EQ(read_file(ground.from("tree/sub/deep/f")), "x");
    EXPECT_FALSE(exists(ground.from("tree/other")));
}

TEST(copy_engine, a_link_in_the_place_of_a_folder_is_not_entered) {
    const Ground ground;
    make_dirs(ground.dir / "elsewhere");
    make_dirs(ground.from("tree/sub"));
    write_file(ground.from("tree/sub/f"), "x");
    write_file(ground.from("tree/other"), "x");
    make_dirs(ground.to("tree"));
    ASSERT_EQ(symlink("../../elsewhere", ground.to("tree/sub").c_str()), 0);
    const Progress progress =
        transfer({ground.from("tree")}, ground.dst, Operation::Copy, ConflictAction::Overwrite);
    expect_one_failure(progress, ground.to("tree/sub"), kInTheWay, "", 1, 0);
    EXPECT_EQ(tree::snapshot(ground.dir / "elsewhere").size(), 0U);
    EXPECT_EQ(read_file(ground.to("tree/other")), "x");
}

TEST(copy_engine, a_folder_that_cannot_be_made_drops_what_lies_below) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const Ground ground;
    make_dirs(ground.from("tree/bad/below"));
    make_dirs(ground.from("tree/good"));
    write_file(ground.from("tree/bad/below/f"), "x");
    write_file(ground.from("tree/good/f"), "x");
    fs.set(faultfs::fail("mkdir", EACCES, 1, -1, "bad"));
    const Progress progress = transfer({ground.from("tree")}, fs.path());
    expect_one_failure(progress, fs / "tree/bad", text(fs / "tree/bad", EACCES), "", 1, 0);
    EXPECT_EQ(read_file(fs / "tree/good/f"), "x");
    EXPECT_FALSE(exists(fs / "tree/bad"));
}

TEST(copy_engine, a_listing_that_fails_is_told_whenever_it_fails) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/bad");
    for (int i = 0; i < 20; ++i)
        write_file(fs / "tree/bad/" + std::to_string(i), "x");
    write_file(fs / "tree/other", "x");
    const TempDir dir;
    // The measuring reads the folder first, in one call and another that finds the end.
    for (const int nth : {3, 4}) {
        fs.clear();
        fs.set(faultfs::fail("readdir", EIO, nth, -1, "bad"));
        const TempDir target;
        const Progress progress = transfer({fs / "tree"}, target.path());
        ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
        EXPECT_TRUE(progress.failures[0].path == fs / "tree/bad" ||
                    progress.failures[0].path == target / "tree/bad");
        EXPECT_EQ(progress.failures[0].message, text(fs / "tree/bad", EIO));
        EXPECT_EQ(read_file(target / "tree/other"), "x");
    }
}

// Told as a failure, and yet it was gone: an empty folder can be removed without being read.
TEST(copy_engine, a_move_keeps_a_folder_that_it_could_not_list) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/bad");
    write_file(fs / "tree/other", "x");
    fs.set(faultfs::fail("opendir", EACCES, 1, -1, "bad"));
    const TempDir target;
    const Progress progress = transfer({fs / "tree"}, target.path(), Operation::Move);
    expect_one_failure(progress, fs / "tree/bad", text(fs / "tree/bad", EACCES), "", 1, 0);
    EXPECT_TRUE(exists(fs.backing() + "/tree/bad"));
    EXPECT_FALSE(exists(fs.backing() + "/tree/other"));
    EXPECT_EQ(read_file(target / "tree/other"), "x");
}

TEST(copy_engine, folders_of_mode_0555_are_copied_whole_by_an_ordinary_user) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        umask(077);
        make_dirs(dir / "src/tree/sub");
        make_dirs(dir / "dst");
        write_file(dir / "src/tree/f", "x", 0444);
        write_file(dir / "src/tree/sub/g", "x", 0400);
        for (const char* name : {"src/tree/sub", "src/tree"})
            chmod((dir / name).c_str(), 0555);
        const Progress progress = transfer({dir / "src/tree"}, dir / "dst");
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(tree::difference_text(tree::snapshot(dir / "src"), tree::snapshot(dir / "dst")),
                  "");
        EXPECT_EQ(lstat_of(dir / "dst/tree/sub").st_mode & 07777, 0555U);
        for (const char* name : {"src/tree/sub", "src/tree", "dst/tree/sub", "dst/tree"})
            chmod((dir / name).c_str(), 0755);
    }));
}

TEST(copy_engine, folders_that_were_there_keep_their_mode) {
    const Ground ground;
    make_dirs(ground.from("tree/sub"));
    make_dirs(ground.to("tree/sub"));
    chmod(ground.from("tree/sub").c_str(), 0700);
    chmod(ground.to("tree/sub").c_str(), 0750);
    write_file(ground.from("tree/sub/f"), "x");
    transfer({ground.from("tree")}, ground.dst, Operation::Copy, ConflictAction::Overwrite);
    EXPECT_EQ(lstat_of(ground.to("tree/sub")).st_mode & 07777, 0750U);
    EXPECT_EQ(read_file(ground.to("tree/sub/f")), "x");
}

TEST(copy_engine, links_are_copied_as_links) {
    const Ground ground;
    make_dirs(ground.from("tree/folder"));
    write_file(ground.from("tree/folder/f"), "x");
    const std::pair<const char*, const char*> kLinks[] = {
        {"tree/to-folder", "folder"}, {"tree/dangling", "no/where"},
        {"tree/loop", "loop"},        {"tree/up", ".."},
        {"tree/absolute", "/etc"},    {"named", "tree"}};
    for (const auto& [name, target] : kLinks)
        ASSERT_EQ(symlink(target, ground.from(name).c_str()), 0);
    const Progress progress = transfer({ground.from("tree"), ground.from("named")}, ground.dst);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.files_copied, 7);
    EXPECT_EQ(tree::difference_text(tree::snapshot(ground.src), tree::snapshot(ground.dst)), "");
}

TEST(copy_engine, a_depth_beyond_any_path_is_told_and_not_a_crash) {
    struct rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    const Ground ground;
    make_dirs(ground.from("tree"));
    const std::string name(100, 'd');
    tree::build_deep(ground.from("tree"), 200, name);
    write_file(ground.from("tree/f"), "x");
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        const Progress progress =
            transfer({ground.from("tree")}, ground.dst, op, ConflictAction::Overwrite);
        EXPECT_TRUE(progress.finished);
        EXPECT_FALSE(progress.cancelled);
        EXPECT_EQ(read_file(ground.to("tree/f")), "x");
        // Either the leaf has arrived, or somebody has been told.
        const tree::Snapshot there = tree::snapshot(ground.dst);
        const bool whole = std::any_of(there.begin(), there.end(), [](const auto& entry) {
            return entry.first.ends_with("/leaf");
        });
        EXPECT_TRUE(whole || progress.failures_total > 0) << failure_text(progress);
    }
    tree::remove_deep(ground.src);
    tree::remove_deep(ground.dst);
}

TEST(copy_engine, a_target_that_lies_in_the_source_by_a_bind_mount_is_not_walked_for_ever) {
    const Ground ground;
    make_dirs(ground.from("tree/a"));
    make_dirs(ground.from("tree/bound"));
    write_file(ground.from("tree/a/f"), "x");
    const mounts_fixture::Bind bind(ground.dst, ground.from("tree/bound"));
    REQUIRE_MOUNT(bind);
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.limit_seconds = 20;
    const Progress progress = run_engine(run);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(read_file(ground.to("tree/a/f")), "x");
    EXPECT_FALSE(exists(ground.to("tree/bound/tree/bound/tree")));
}

// --- Hard links ---------------------------------------------------------------------------------

TEST(copy_engine, the_second_name_of_a_file_becomes_a_link) {
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/a"), "12345");
    ASSERT_EQ(link(ground.from("tree/a").c_str(), ground.from("tree/b").c_str()), 0);
    Log::instance().set_debug(true);
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.threads = 1;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(progress.files_copied, 1);
    EXPECT_EQ(progress.files_done, 2);
    EXPECT_EQ(progress.bytes_done, 10);
    EXPECT_EQ(lstat_of(ground.to("tree/a")).st_ino, lstat_of(ground.to("tree/b")).st_ino);
    EXPECT_NE(lstat_of(ground.to("tree/a")).st_ino, lstat_of(ground.from("tree/a")).st_ino);
    EXPECT_EQ(logged("hardlink " + ground.to("tree/a") + " → " + ground.to("tree/b")) +
                  logged("hardlink " + ground.to("tree/b") + " → " + ground.to("tree/a")),
              1)
        << test_env::log_text();
    EXPECT_EQ(logged_with("copied "), 1);
}

TEST(copy_engine, groups_of_hard_links_arrive_as_groups) {
    const Ground ground;
    tree::Shape shape;
    shape.folders = 6;
    shape.files = 20;
    shape.hard_links = 30;
    make_dirs(ground.from("tree"));
    tree::build(ground.from("tree"), 11, shape);
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.threads = 1;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U);
    tree::Compare how;
    how.links = true;
    EXPECT_EQ(tree::difference_text(tree::snapshot(ground.src), tree::snapshot(ground.dst), how),
              "");
    EXPECT_EQ(progress.bytes_done, progress.bytes_total);
    // Many workers copy what they meet at the same moment in full, which is right as well.
    const TempDir other;
    run.target = other.path();
    run.threads = 8;
    EXPECT_EQ(run_engine(run).failures_total, 0U);
    EXPECT_EQ(tree::difference_text(tree::snapshot(ground.src), tree::snapshot(other.path())), "");
}

TEST(copy_engine, files_that_are_named_directly_are_not_tied) {
    const Ground ground;
    write_file(ground.from("a"), "12345");
    ASSERT_EQ(link(ground.from("a").c_str(), ground.from("b").c_str()), 0);
    EngineRun run{{ground.from("a"), ground.from("b")}, ground.dst};
    run.threads = 1;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.files_copied, 2);
    EXPECT_NE(lstat_of(ground.to("a")).st_ino, lstat_of(ground.to("b")).st_ino);
}

TEST(copy_engine, where_links_are_refused_both_names_are_copied) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/a"), "12345");
    ASSERT_EQ(link(ground.from("tree/a").c_str(), ground.from("tree/b").c_str()), 0);
    fs.set(faultfs::fail("link", EPERM));
    EngineRun run{{ground.from("tree")}, fs.path()};
    run.threads = 1;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.files_copied, 2);
    EXPECT_EQ(read_file(fs / "tree/a"), "12345");
    EXPECT_EQ(read_file(fs / "tree/b"), "12345");
}

TEST(copy_engine, a_group_of_links_moves_whole) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/a"), pattern(5000), 0600);
    for (const char* name : {"b", "c"})
        ASSERT_EQ(link(ground.from("tree/a").c_str(), (ground.from("tree/") + name).c_str()), 0);
    const tree::Snapshot before = tree::snapshot(ground.src);
    EngineRun run{{ground.from("tree")}, mount.path()};
    run.op = Operation::Move;
    run.threads = 1;
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    tree::Compare how;
    how.links = true;
    EXPECT_EQ(tree::difference_text(before, tree::snapshot(mount.path()), how), "");
    EXPECT_FALSE(exists(ground.from("tree")));
}

// --- Reflinks -----------------------------------------------------------------------------------

class engine_reflink : public testing::TestWithParam<const char*> {};

TEST_P(engine_reflink, copies_a_tree_without_moving_data) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    make_dirs(mount / "src/tree");
    make_dirs(mount / "dst");
    for (int i = 0; i < 10; ++i) {
        write_file(mount / "src/tree/" + std::to_string(i),
                   pattern(2 << 20, static_cast<uint32_t>(i)));
    }
    sync();
    const int64_t free = fsops::free_space(mount.path());
    Log::instance().set_debug(true);
    const Progress progress = transfer({mount / "src/tree"}, mount / "dst");
    sync();
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(progress.cloned, 10);
    EXPECT_EQ(progress.files_copied, 10);
    EXPECT_EQ(progress.bytes_done, 20 << 20);
    EXPECT_GT(fsops::free_space(mount.path()), free - (4 << 20));
    EXPECT_EQ(logged("reflink " + mount / "src/tree/3" + " (2097152 bytes, no data moved)"), 1);
    EXPECT_EQ(logged_with("0 failed, 0 retried, 10 reflinked"), 1);
    EXPECT_EQ(tree::difference_text(tree::snapshot(mount / "src"), tree::snapshot(mount / "dst")),
              "");
}

INSTANTIATE_TEST_SUITE_P(copy_engine, engine_reflink, testing::Values("btrfs", "xfs"));

// --- The estimate -------------------------------------------------------------------------------

TEST(copy_engine, the_estimate_of_few_files_follows_the_bytes) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "a", pattern(4 << 20));
    write_file(fs / "b", pattern(4 << 20));
    const TempDir dir;
    Engine engine;
    fs.set(faultfs::stall("open", 1, 1, "b"));
    ASSERT_TRUE(
        engine.start({fs / "a", fs / "b"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    EXPECT_EQ(engine.snapshot().seconds_remaining, -1);
    ASSERT_TRUE(fs.wait_stalled(1));
    usleep(600'000);
    const Progress during = engine.snapshot();
    EXPECT_EQ(during.bytes_done, 4 << 20);
    EXPECT_GT(during.bytes_per_second, 1024);
    EXPECT_NEAR(during.seconds_remaining, (4 << 20) / during.bytes_per_second, 1e-6);
    EXPECT_GE(during.elapsed_seconds, 0.6);
    // Half a second later the rate is smoothed: nothing has moved since.
    usleep(600'000);
    const Progress later = engine.snapshot();
    EXPECT_NEAR(later.bytes_per_second, 0.6 * during.bytes_per_second, 1e-3);
    // Right after that the old rate stands.
    EXPECT_EQ(engine.snapshot().bytes_per_second, later.bytes_per_second);
    fs.release();
    finish(engine);
    EXPECT_EQ(engine.snapshot().seconds_remaining, -1);
}

TEST(copy_engine, many_files_of_mixed_size_give_no_estimate) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    // One large file done, ten empty ones and a large one left: the two rates say different things.
    write_file(fs / "a", pattern(8 << 20));
    std::vector<std::string> sources = {fs / "a"};
    for (int i = 0; i < 10; ++i) {
        sources.push_back(fs / "e" + std::to_string(i));
        write_file(sources.back(), "");
    }
    sources.push_back(fs / "z");
    write_file(sources.back(), "12345");
    const TempDir dir;
    Engine engine;
    fs.set(faultfs::stall("open", 1, 1, "e0"));
    ASSERT_TRUE(engine.start(sources, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    (void)engine.snapshot();
    ASSERT_TRUE(fs.wait_stalled(1));
    usleep(600'000);
    const Progress during = engine.snapshot();
    EXPECT_GT(during.bytes_per_second, 1024);
    EXPECT_EQ(during.seconds_remaining, -1);
    fs.release();
    finish(engine);
}
