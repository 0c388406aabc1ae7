// Somebody else works on the same files: what changes while it is being copied or moved, folders
// that are swapped, mounts that vanish.

#include "copy_engine.h"

#include "faultfs.h"
#include "log_lines.h"
#include "mounts_fixture.h"
#include "run_engine.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <ostream>
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
using test_env::make_dirs;
using test_env::pattern;
using test_env::read_file;
using test_env::run_engine;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kChanged = "changed while it was being moved";

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + " | " + item.target + " | " +
               std::to_string(item.code) + "\n";
    return all;
}

bool has_failed(const Progress& progress, const std::string& path) {
    return std::any_of(progress.failures.begin(), progress.failures.end(),
                       [&](const FailedItem& item) { return item.path == path; });
}

Progress finish(Engine& engine) {
    for (int i = 0; i < 20'000 && engine.is_running(); ++i)
        usleep(1000);
    EXPECT_FALSE(engine.is_running());
    if (engine.is_running())
        engine.cancel();
    engine.reap();
    return engine.snapshot();
}

void append(const std::string& path, const std::string& more) {
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(fd, more.data(), more.size()), static_cast<ssize_t>(more.size()));
    close(fd);
}

// What a somebody does to the file "f" of the folder while it is being copied.
struct Change {
    const char* name;
    void (*apply)(const std::string& folder);
};

void PrintTo(const Change& change, std::ostream* out) {
    *out << change.name;
}

void touch(const std::string& folder) {
    utimensat(AT_FDCWD, (folder + "/f").c_str(), nullptr, 0);
}

// What the next look at a file would show, but for its size and its identity.
void give_time_of(const std::string& path, const struct stat& st) {
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

constexpr Change kChanges[] = {
    {"grows", [](const std::string& folder) { append(folder + "/f", "more"); }},
    {"shrinks", [](const std::string& folder) { (void)!truncate((folder + "/f").c_str(), 1000); }},
    {"is_touched", touch},
    {"is_written_in_place",
     [](const std::string& folder) {
         const int fd = open((folder + "/f").c_str(), O_WRONLY | O_CLOEXEC);
         (void)!pwrite(fd, "XXXX", 4, 0);
         close(fd);
     }},
    {"is_replaced",
     [](const std::string& folder) {
         write_file(folder + "/new", pattern(2 << 20, 99));
         rename((folder + "/new").c_str(), (folder + "/f").c_str());
     }},
    {"is_replaced_by_a_twin",
     [](const std::string& folder) {
         write_file(folder + "/new", pattern(2 << 20, 99));
         give_time_of(folder + "/new", test_env::lstat_of(folder + "/f"));
         rename((folder + "/new").c_str(), (folder + "/f").c_str());
     }},
};

}  // namespace

// --- Sources that change ------------------------------------------------------------------------

class moved_file : public testing::TestWithParam<Change> {};

TEST_P(moved_file, stays_when_it_changes_meanwhile) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_read);
    const Tmpfs mount("size=64m");
    REQUIRE_MOUNT(mount);
    const TempDir dir;
    make_dirs(dir / "src");
    write_file(dir / "src/f", pattern(2 << 20));
    const struct timespec old[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    utimensat(AT_FDCWD, (dir / "src/f").c_str(), old, 0);
    const auto change = [&](const shim::Call& call) {
        if (call.nth == 2)
            GetParam().apply(dir / "src");
        return shim::go();
    };
    // Between file systems the bytes go through read and write.
    shim::rule(SYS_read, change, shim::on_file(0, "f"));
    EngineRun run{{dir / "src/f"}, mount.path()};
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    shim::clear();
    ASSERT_EQ(progress.failures.size(), 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, dir / "src/f");
    EXPECT_EQ(progress.failures[0].message, kChanged);
    EXPECT_TRUE(exists(dir / "src/f"));
    EXPECT_EQ(test_env::logged("move: copied but could not remove source " + dir / "src/f" + ": " +
                               kChanged),
              1);
}

INSTANTIATE_TEST_SUITE_P(copy_engine, moved_file, testing::ValuesIn(kChanges),
                         [](const auto& change) { return std::string(change.param.name); });

TEST(copy_engine_guard, a_moved_file_that_changes_after_its_last_byte_stays_too) {
    REQUIRE_SHIM(SYS_unlinkat, SYS_unlink, SYS_close);
    const Tmpfs mount("size=64m");
    REQUIRE_MOUNT(mount);
    const TempDir dir;
    write_file(dir / "f", pattern(5000));
    // The source's descriptor is closed once all is read.
    // Its times are put back, so that its size alone tells.
    std::atomic<bool> done{false};
    shim::rule(SYS_close, [&](const shim::Call& call) {
        const std::string file = call.arg_file(0);
        if (!done && file == "f" && (fcntl(call.arg_fd(0), F_GETFL) & O_ACCMODE) == O_RDONLY) {
            done = true;
            const struct stat before = test_env::lstat_of(dir / "f");
            append(dir / "f", "more");
            give_time_of(dir / "f", before);
        }
        return shim::go();
    });
    EngineRun run{{dir / "f"}, mount.path()};
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_TRUE(done);
    ASSERT_EQ(progress.failures.size(), 1U);
    EXPECT_EQ(progress.failures[0].message, kChanged);
    EXPECT_EQ(read_file(dir / "f"), pattern(5000) + "more");
}

TEST(copy_engine_guard, a_copied_file_may_change_without_an_error) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_read);
    const TempDir dir;
    make_dirs(dir / "src");
    make_dirs(dir / "dst");
    write_file(dir / "src/f", pattern(2 << 20));
    shim::rule(
        SYS_copy_file_range,
        [&](const shim::Call& call) {
            if (call.nth == 2)
                append(dir / "src/f", "more");
            return shim::go();
        },
        shim::on_file(0, "f"));
    const Progress progress = run_engine({{dir / "src/f"}, dir / "dst"});
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(read_file(dir / "dst/f"), pattern(2 << 20));
}

TEST(copy_engine_guard, a_file_swapped_for_a_pipe_fails_and_nobody_waits_for_the_pipe) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(dir / "src");
    make_dirs(dir / "dst");
    for (const char* name : {"first", "f", "last"})
        write_file(fs / name, "content");
    // The run is held at the first file until the second is a pipe.
    fs.set(faultfs::stall("open", 1, 1, "first"));
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "first", fs / "f", fs / "last"}, dir / "dst", Operation::Move, 1,
                             ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    usleep(100'000);
    ASSERT_EQ(unlink((fs.backing() + "/f").c_str()), 0);
    ASSERT_EQ(mkfifo((fs.backing() + "/f").c_str(), 0644), 0);
    fs.release();
    const Progress progress = finish(engine);
    ASSERT_EQ(progress.failures.size(), 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, fs / "f");
    EXPECT_EQ(progress.failures[0].message, "not a regular file (pipe, socket or device)");
    EXPECT_FALSE(exists(dir / "dst/f"));
    EXPECT_EQ(read_file(dir / "dst/last"), "content");
}

// --- Folders that are swapped -------------------------------------------------------------------

// The run is held at "first", a file of the same share, while the folder behind the next files
// changes its meaning.
class swapped_folder : public testing::TestWithParam<Operation> {};

TEST_P(swapped_folder, of_the_source_never_gives_another_places_files) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(fs / "tree/sub");
    make_dirs(fs / "secret");
    write_file(fs / "first", "x");
    for (const char* name : {"a", "b", "c"}) {
        write_file(fs / "tree/sub/" + name, "public");
        write_file(fs / "secret/" + name, "secret");
    }
    fs.set(faultfs::stall("open", 1, 1, "first"));
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "first", fs / "tree"}, dir.path(), GetParam(), 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    // The scanner has walked all by now or soon.
    for (int i = 0; i < 5000 && !exists(dir / "tree/sub"); ++i)
        usleep(1000);
    usleep(100'000);
    ASSERT_EQ(rename((fs.backing() + "/tree/sub").c_str(), (fs.backing() + "/moved").c_str()), 0);
    ASSERT_EQ(symlink("../secret", (fs.backing() + "/tree/sub").c_str()), 0);
    fs.release();
    const Progress progress = finish(engine);
    for (const char* name : {"a", "b", "c"}) {
        const std::string target = dir / "tree/sub/" + name;
        EXPECT_TRUE(!exists(target) || read_file(target) == "public") << name;
        EXPECT_TRUE(exists(target) || has_failed(progress, fs / "tree/sub/" + name))
            << failure_text(progress);
        EXPECT_EQ(read_file(fs.backing() + "/secret/" + name), "secret");
    }
    EXPECT_EQ(read_file(dir / "first"), "x");
}

TEST_P(swapped_folder, of_the_target_never_leads_elsewhere) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(fs / "tree/sub");
    write_file(fs / "first", "x");
    for (const char* name : {"a", "b", "c"})
        write_file(fs / "tree/sub/" + name, "content");
    make_dirs(dir / "elsewhere");
    make_dirs(dir / "dst");
    fs.set(faultfs::stall("open", 1, 1, "first"));
    Engine engine;
    ASSERT_TRUE(
        engine.start({fs / "first", fs / "tree"}, dir / "dst", GetParam(), 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    for (int i = 0; i < 5000 && !exists(dir / "dst/tree/sub"); ++i)
        usleep(1000);
    usleep(100'000);
    ASSERT_EQ(rename((dir / "dst/tree/sub").c_str(), (dir / "moved").c_str()), 0);
    ASSERT_EQ(symlink("../../elsewhere", (dir / "dst/tree/sub").c_str()), 0);
    fs.release();
    const Progress progress = finish(engine);
    EXPECT_EQ(tree::snapshot(dir / "elsewhere").size(), 0U);
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_TRUE(exists(dir / "moved/" + name) || has_failed(progress, fs / "tree/sub/" + name))
            << failure_text(progress);
        EXPECT_TRUE(exists(dir / "moved/" + name) || exists(fs / "tree/sub/" + name));
    }
}

INSTANTIATE_TEST_SUITE_P(copy_engine, swapped_folder,
                         testing::Values(Operation::Copy, Operation::Move));

// From here on the folders "tree" and "sub" of a device have other numbers.
void renumber_folders(dev_t device) {
    const auto is_folder = [](const std::string& name) { return name == "tree" || name == "sub"; };
    const auto renumber = [device](int result, struct stat* st) {
        if (result != 0 || st->st_dev != device)
            return shim::go();
        st->st_ino += 1U << 20;
        return shim::give(0);
    };
    shim::rule(
        SYS_fstat,
        [=](const shim::Call& call) {
            auto* const st = reinterpret_cast<struct stat*>(call.args[1]);
            return renumber(fstat(call.arg_fd(0), st), st);
        },
        [=](const shim::Call& call) { return is_folder(call.arg_file(0)); });
    shim::rule(
        SYS_newfstatat,
        [=](const shim::Call& call) {
            auto* const st = reinterpret_cast<struct stat*>(call.args[2]);
            const int flags = static_cast<int>(call.args[3]);
            return renumber(fstatat(call.arg_fd(0), call.arg_text(1).c_str(), st, flags), st);
        },
        [=](const shim::Call& call) {
            const std::string name = call.arg_text(1);
            return is_folder(name.empty() ? call.arg_file(0) : name);
        });
}

// FAT, exFAT and most file systems in user space number a folder anew once the kernel has dropped
// it from memory, which a large transfer makes it do. Every file in it failed as if the folder had
// been replaced.
TEST(copy_engine_guard, a_folder_with_a_new_number_is_believed_where_numbers_change) {
    // The server first: the shim's thread asks it, so its own calls must not go through the shim.
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const Tmpfs fixed("size=16m");
    REQUIRE_MOUNT(fixed);
    REQUIRE_SHIM(SYS_fstat, SYS_newfstatat);
    for (const bool numbers_change : {true, false}) {
        for (const Operation op : {Operation::Copy, Operation::Move}) {
            const TempDir dir;
            const std::string src = (numbers_change ? fs.path() : fixed.path()) +
                                    (op == Operation::Copy ? "/copied" : "/moved");
            fs.clear();
            write_file(fs / "first", "x");
            make_dirs(src + "/tree/sub");
            write_file(src + "/tree/a", "a");
            write_file(src + "/tree/sub/b", "b");
            fs.set(faultfs::stall("open", 1, 1, "first"));
            Engine engine;
            ASSERT_TRUE(engine.start({fs / "first", src + "/tree"}, dir.path(), op, 1,
                                     ConflictAction::Ask));
            ASSERT_TRUE(fs.wait_stalled(1));
            for (int i = 0; i < 5000 && !exists(dir / "tree/sub"); ++i)
                usleep(1000);
            usleep(100'000);
            renumber_folders(test_env::lstat_of(src).st_dev);
            fs.release();
            const Progress progress = finish(engine);
            shim::clear();
            if (numbers_change) {
                EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
                EXPECT_TRUE(exists(dir / "tree/a") && exists(dir / "tree/sub/b"));
                EXPECT_EQ(exists(src + "/tree"), op == Operation::Copy);
            } else {
                EXPECT_EQ(progress.failures_total, 2U) << failure_text(progress);
                EXPECT_TRUE(exists(src + "/tree/sub/b"));
            }
        }
    }
}

TEST(copy_engine_guard, a_target_folder_with_a_new_number_is_filled_and_gets_its_mode) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    REQUIRE_SHIM(SYS_fstat, SYS_newfstatat);
    const TempDir dir;
    make_dirs(dir / "tree/sub");
    write_file(dir / "first", "x");
    write_file(dir / "tree/a", "a");
    write_file(dir / "tree/sub/b", "b");
    chmod((dir / "tree/sub").c_str(), 0555);
    fs.set(faultfs::stall("write", 1, 1, "first"));
    Engine engine;
    ASSERT_TRUE(engine.start({dir / "first", dir / "tree"}, fs.path(), Operation::Copy, 1,
                             ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    for (int i = 0; i < 5000 && !exists(fs / "tree/sub"); ++i)
        usleep(1000);
    usleep(100'000);
    renumber_folders(test_env::lstat_of(fs.path()).st_dev);
    fs.release();
    const Progress progress = finish(engine);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_TRUE(exists(fs / "tree/a") && exists(fs / "tree/sub/b"));
    EXPECT_EQ(test_env::lstat_of(fs / "tree/sub").st_mode & 07777, 0555U);
}

TEST(copy_engine_guard, a_folder_swapped_before_it_is_walked_is_not_followed) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    make_dirs(fs / "tree/a-first");
    make_dirs(fs / "tree/sub");
    make_dirs(fs / "secret");
    write_file(fs / "secret/f", "secret");
    // The measuring opens the folder once, the walk comes after it.
    fs.set(faultfs::stall("opendir", 2, 1, "tree"));
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "tree"}, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    ASSERT_EQ(rmdir((fs.backing() + "/tree/sub").c_str()), 0);
    ASSERT_EQ(symlink("../secret", (fs.backing() + "/tree/sub").c_str()), 0);
    fs.release();
    finish(engine);
    EXPECT_FALSE(exists(dir / "tree/sub/f"));
}

// --- Mounts that vanish -------------------------------------------------------------------------

TEST(copy_engine_guard, a_target_mount_that_vanishes_does_not_fill_the_folder_below) {
    FaultFs source;
    REQUIRE_MOUNT(source);
    make_dirs(source / "tree/sub");
    write_file(source / "first", "x");
    for (int i = 0; i < 10; ++i) {
        write_file(source / "named" + std::to_string(i), "x");
        write_file(source / "tree/sub/" + std::to_string(i), "x");
    }
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        Tmpfs target;
        REQUIRE_MOUNT(target);
        const tree::Snapshot before = tree::snapshot(source.backing());
        std::vector<std::string> sources = {source / "first", source / "tree"};
        for (int i = 0; i < 10; ++i)
            sources.push_back(source / "named" + std::to_string(i));
        source.clear();
        source.set(faultfs::stall("open", 1, 1, "first"));
        Engine engine;
        ASSERT_TRUE(engine.start(sources, target.path(), op, 1, ConflictAction::Ask));
        ASSERT_TRUE(source.wait_stalled(1));
        usleep(200'000);
        target.unmount();
        source.release();
        const Progress progress = finish(engine);
        // The folder that the mount had covered.
        EXPECT_EQ(tree::snapshot(target.path()).size(), 0U);
        EXPECT_GE(progress.failures_total, 20U) << failure_text(progress);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(has_failed(progress, source / "named" + std::to_string(i)));
            EXPECT_TRUE(has_failed(progress, source / "tree/sub/" + std::to_string(i)));
        }
        tree::Snapshot expected = before;
        if (op == Operation::Move && !exists(source / "first"))
            expected.erase("first");
        EXPECT_EQ(tree::difference_text(expected, tree::snapshot(source.backing())), "");
    }
}

TEST(copy_engine_guard, a_target_that_is_not_there_fails_every_source) {
    const TempDir dir;
    write_file(dir / "f", "x");
    make_dirs(dir / "tree");
    write_file(dir / "tree/g", "x");
    EngineRun run{{dir / "f", dir / "tree"}, dir / "missing"};
    run.op = Operation::Move;
    const Progress progress = run_engine(run);
    EXPECT_GE(progress.failures_total, 1U);
    EXPECT_EQ(progress.files_copied, 0);
    EXPECT_TRUE(has_failed(progress, dir / "f")) << failure_text(progress);
    EXPECT_EQ(read_file(dir / "f"), "x");
    EXPECT_EQ(read_file(dir / "tree/g"), "x");
    EXPECT_TRUE(progress.finished);
}

TEST(copy_engine_guard, a_target_that_is_no_folder_says_so) {
    const TempDir dir;
    write_file(dir / "f", "x");
    write_file(dir / "file", "content");
    const Progress progress = run_engine({{dir / "f"}, dir / "file"});
    ASSERT_EQ(progress.failures.size(), 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, dir / "f");
    EXPECT_EQ(progress.failures[0].message, dir / "file" + ": " + std::strerror(ENOTDIR));
    EXPECT_EQ(progress.failures[0].code, ENOTDIR);
    EXPECT_EQ(read_file(dir / "file"), "content");
}

TEST(copy_engine_guard, a_source_whose_server_dies_fails_and_the_run_ends) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree");
    for (int i = 0; i < 10; ++i)
        write_file(fs / "tree/" + std::to_string(i), pattern(50'000));
    const TempDir dir;
    fs.set(faultfs::stall("read", 30));
    Engine engine;
    ASSERT_TRUE(engine.start({fs / "tree"}, dir.path(), Operation::Move, 3, ConflictAction::Ask));
    for (int i = 0; i < 2000 && fs.stalled() == 0 && engine.is_running(); ++i)
        usleep(1000);
    fs.kill_server();
    const Progress progress = finish(engine);
    for (int i = 0; i < 10; ++i) {
        const std::string name = std::to_string(i);
        const bool there = exists(dir / "tree/" + name);
        EXPECT_TRUE(!there || read_file(dir / "tree/" + name) == pattern(50'000));
        EXPECT_TRUE(there || exists(fs.backing() + "/tree/" + name));
        EXPECT_TRUE(there || has_failed(progress, fs / "tree/" + name) ||
                    has_failed(progress, fs / "tree"))
            << failure_text(progress);
    }
}
