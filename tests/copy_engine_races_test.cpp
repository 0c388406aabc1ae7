// What a transfer does when things happen in between: two workers at one file, a wake signal in an
// odd place, a folder that is swapped, an answer that comes late. System calls are held where the
// moment matters, so each case takes the same way every time.

#include "copy_engine.h"
#include "logger.h"

#include "faultfs.h"
#include "mounts_fixture.h"
#include "run_engine.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <cerrno>
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
using test_env::make_dirs;
using test_env::read_file;
using test_env::run_engine;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kTimedOut = "timed out — the source or target stopped responding";

std::string failure_text(const Progress& progress) {
    std::string all;
    for (const FailedItem& item : progress.failures)
        all += item.path + " | " + item.message + " | " + item.target + "\n";
    return all;
}

// The contents of all files below a folder.
std::multiset<std::string> contents(const std::string& root) {
    std::multiset<std::string> found;
    for (const auto& [name, node] : tree::snapshot(root)) {
        if (node.kind == 'f')
            found.insert(read_file(root + "/" + name));
    }
    return found;
}

// Lets held calls go once `reached` holds, or after a while: then what was to happen in between is
// what the engine does not let happen.
std::function<void(Engine&)> release_when(std::function<bool(const Progress&)> reached) {
    return [reached, polls = 0](Engine& engine) mutable {
        if (shim::waiting() == 0)
            return;
        if (reached(engine.snapshot()) || ++polls > 500)
            shim::release();
    };
}

bool is_creation(const shim::Call& call) {
    return call.args[2] & O_CREAT;
}

bool is_path_open(const shim::Call& call) {
    return call.args[2] & O_PATH;
}

// Waits until the run has ended; false when it does not within the time.
bool ends(const Engine& engine, int seconds = 10) {
    for (int i = 0; i < seconds * 1000 && engine.is_running(); ++i)
        usleep(1000);
    return !engine.is_running();
}

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

// --- Two workers at one name --------------------------------------------------------------------

// Both saw the old file and may replace it; the slower one removed what the faster one had brought,
// and a move had let its source go by then.
TEST(copy_engine_races, two_names_that_fold_into_one_old_file_both_arrive) {
    REQUIRE_SHIM(SYS_unlinkat);
    for (const ConflictAction action : {ConflictAction::Overwrite, ConflictAction::RenameExisting,
                                        ConflictAction::OverwriteIfNewer}) {
        faultfs::Options options;
        options.fold_case = true;
        const FaultFs fs(options);
        REQUIRE_MOUNT(fs);
        const Ground ground;
        make_dirs(ground.from("1"));
        make_dirs(ground.from("2"));
        write_file(ground.from("1/READ"), "one");
        write_file(ground.from("2/read"), "two");
        write_file(fs / "read", "old");
        const struct timespec old[2] = {{1, 0}, {1, 0}};
        utimensat(AT_FDCWD, (fs / "read").c_str(), old, 0);
        shim::rule(SYS_unlinkat, [](const shim::Call& call) {
            const std::string name = call.arg_text(1);
            return (name == "READ" || name == "read") && call.nth == 1 ? shim::wait() : shim::go();
        });
        EngineRun run{{ground.from("1/READ"), ground.from("2/read")}, fs.path()};
        run.op = Operation::Move;
        run.default_action = action;
        run.poll = release_when([](const Progress& now) { return now.files_done > 0; });
        const Progress progress = run_engine(run);
        shim::clear();
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        std::multiset<std::string> expected = {"one", "two"};
        if (action == ConflictAction::RenameExisting)
            expected.insert("old");
        std::multiset<std::string> found = contents(fs.backing());
        // Looked at after the other had come over, a source of the same second is not newer: it is
        // skipped, and stays.
        for (const char* name : {"1/READ", "2/read"}) {
            if (action == ConflictAction::OverwriteIfNewer && test_env::exists(ground.from(name)))
                found.insert(read_file(ground.from(name)));
        }
        EXPECT_EQ(found, expected) << static_cast<int>(action);
    }
}

// An old file with two names is old under both.
TEST(copy_engine_races, two_old_names_of_one_file_are_both_overwritten) {
    REQUIRE_SHIM(SYS_unlinkat);
    const Ground ground;
    make_dirs(ground.from("1"));
    make_dirs(ground.from("2"));
    write_file(ground.from("1/a"), "one");
    write_file(ground.from("2/b"), "two");
    write_file(ground.to("a"), "old");
    ASSERT_EQ(link(ground.to("a").c_str(), ground.to("b").c_str()), 0);
    shim::rule(SYS_unlinkat,
               [](const shim::Call& call) { return call.nth == 1 ? shim::wait() : shim::go(); });
    EngineRun run{{ground.from("1/a"), ground.from("2/b")}, ground.dst};
    run.default_action = ConflictAction::Overwrite;
    run.poll = release_when([](const Progress& now) { return now.files_done > 0; });
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(tree::snapshot(ground.dst).size(), 2U);
    EXPECT_EQ(read_file(ground.to("a")), "one");
    EXPECT_EQ(read_file(ground.to("b")), "two");
}

// Where a rename cannot promise to replace nothing, it must not meet a worker's file.
TEST(copy_engine_races, a_rename_does_not_replace_what_a_worker_is_writing) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_openat, SYS_newfstatat);
    const mounts_fixture::Tmpfs elsewhere;
    REQUIRE_MOUNT(elsewhere);
    const Ground ground;
    write_file(elsewhere / "f", "copied");
    write_file(ground.from("f"), "renamed");
    shim::fail(SYS_renameat2, EINVAL);
    // The second source comes up when the first one's target is about to be created, and that is
    // created when the rename has looked and found the name free.
    bool creating = false;
    shim::rule(
        SYS_newfstatat,
        [&](const shim::Call& call) {
            return call.nth == 2 && !creating ? shim::wait() : shim::go();
        },
        [&](const shim::Call& call) { return call.arg_text(1) == ground.from("f"); });
    shim::rule(
        SYS_openat,
        [&](const shim::Call& call) {
            creating = true;
            shim::release();
            return call.nth == 1 ? shim::wait() : shim::go();
        },
        [](const shim::Call& call) { return is_creation(call) && call.arg_text(1) == "f"; });
    shim::rule(SYS_rename, [](const shim::Call&) {
        shim::release();
        return shim::wait();
    });
    EngineRun run{{elsewhere / "f", ground.from("f")}, ground.dst};
    run.op = Operation::Move;
    run.default_action = ConflictAction::Overwrite;
    run.poll = release_when([](const Progress& now) { return now.files_copied > 0; });
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(contents(ground.dst), (std::multiset<std::string>{"copied", "renamed"}));
}

// The name that an old file is to step aside to is taken from the moment on at which it was found.
TEST(copy_engine_races, a_name_that_was_given_out_is_taken_for_everybody) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_newfstatat);
    const Ground ground;
    make_dirs(ground.from("1"));
    make_dirs(ground.from("2"));
    write_file(ground.from("1/f"), "one");
    write_file(ground.from("2/f.1"), "two");
    write_file(ground.to("f"), "old");
    shim::fail(SYS_renameat2, EINVAL);
    // The second source is found only when the old file is about to step aside.
    shim::rule(
        SYS_newfstatat,
        [](const shim::Call& call) { return call.nth == 2 ? shim::wait() : shim::go(); },
        shim::path_ends(1, "2/f.1"));
    shim::rule(SYS_rename, [](const shim::Call&) {
        shim::release();
        return shim::wait();
    });
    EngineRun run{{ground.from("1/f"), ground.from("2/f.1")}, ground.dst};
    run.default_action = ConflictAction::RenameExisting;
    run.poll = release_when([](const Progress& now) { return now.files_copied > 0; });
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(contents(ground.dst), (std::multiset<std::string>{"old", "one", "two"}));
    EXPECT_EQ(read_file(ground.to("f")), "one");
}

TEST(copy_engine_races, a_duplicate_in_place_asks_nothing_about_its_reserved_name) {
    const Ground ground;
    write_file(ground.from("f"), "x");
    for (const Operation op : {Operation::Copy, Operation::Move}) {
        EngineRun run{{ground.from("f")}, ground.src};
        run.op = op;
        run.default_action = ConflictAction::RenameNew;
        const Progress progress = run_engine(run);
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_FALSE(progress.cancelled);
    }
    EXPECT_TRUE(exists(ground.from("f.1")));
    EXPECT_TRUE(exists(ground.from("f.2")));
    EXPECT_FALSE(exists(ground.from("f")));
}

// --- Wake signals in odd places -----------------------------------------------------------------

// A dead mount may hang where a folder is opened just as well as in a read. The signal was taken
// there and the call begun again, so neither a cancel nor the watchdog could ever end it.
TEST(copy_engine_races, a_cancel_frees_a_worker_that_hangs_opening_a_folder) {
    REQUIRE_SHIM(SYS_openat);
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/f"), "x");
    shim::rule(
        SYS_openat, [](const shim::Call&) { return shim::wait(); },
        [&](const shim::Call& call) {
            return is_path_open(call) && call.arg_text(1) == ground.to("tree");
        });
    Engine& engine = copy_engine::instance();
    ASSERT_TRUE(
        engine.start({ground.from("tree")}, ground.dst, Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(shim::wait_waiting(1));
    engine.cancel();
    EXPECT_TRUE(ends(engine));
    shim::clear();
    ASSERT_TRUE(ends(engine));
    engine.reap();
}

TEST(copy_engine_races, the_watchdog_frees_a_worker_that_hangs_opening_a_folder) {
    REQUIRE_SHIM(SYS_openat);
    const Ground ground;
    make_dirs(ground.from("tree"));
    write_file(ground.from("tree/f"), "x");
    shim::rule(
        SYS_openat,
        [](const shim::Call& call) { return call.nth == 1 ? shim::wait() : shim::go(); },
        [&](const shim::Call& call) {
            return is_path_open(call) && call.arg_text(1) == ground.to("tree");
        });
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.threads = 1;
    run.poll = [woken = false](Engine&) mutable {
        if (!woken && shim::waiting() > 0) {
            woken = true;
            copy_engine::advance_clock_for_tests(100);
        }
    };
    run.limit_seconds = 20;
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_EQ(progress.retried, 1);
    EXPECT_EQ(read_file(ground.to("tree/f")), "x");
}

TEST(copy_engine_races, a_cancel_ends_the_run_in_whichever_folder_it_hangs) {
    REQUIRE_SHIM(SYS_openat);
    const Ground ground;
    make_dirs(ground.from("tree/sub"));
    for (int i = 0; i < 3; ++i)
        write_file(ground.from("tree/sub/") + std::to_string(i), "x");
    const shim::Match others = shim::not_this_thread();
    // Each opening of a folder, of the scanner, the worker and the end of the run, in turn.
    for (int nth = 1;; ++nth) {
        TempDir target;
        int seen = 0;
        shim::rule(
            SYS_openat,
            [&](const shim::Call&) { return ++seen == nth ? shim::wait() : shim::go(); },
            [others](const shim::Call& call) {
                return others(call) && (call.args[2] & O_DIRECTORY);
            });
        Engine& engine = copy_engine::instance();
        ASSERT_TRUE(engine.start({ground.from("tree")}, target.path(), Operation::Copy, 1,
                                 ConflictAction::Ask));
        for (int i = 0; i < 20000 && shim::waiting() == 0 && engine.is_running(); ++i)
            usleep(1000);
        const bool held = shim::waiting() > 0;
        if (held)
            engine.cancel();
        EXPECT_TRUE(ends(engine)) << nth;
        shim::clear();
        ASSERT_TRUE(ends(engine));
        engine.reap();
        if (!held)
            break;
    }
}

// A stall in the look at the target folder is a stall like any other.
TEST(copy_engine_races, a_stall_at_the_target_folder_is_told_as_one) {
    REQUIRE_SHIM(SYS_newfstatat);
    const Ground ground;
    write_file(ground.from("f"), "x");
    write_file(ground.from("g"), "x");
    const std::string target = ground.dst;
    // The scanner looks once for each source, the worker once for each file.
    pid_t scanner = 0;
    bool held = false;
    shim::rule(
        SYS_newfstatat,
        [&](const shim::Call& call) {
            if (scanner == 0)
                scanner = call.thread;
            if (call.thread == scanner || held)
                return shim::go();
            held = true;
            return shim::wait();
        },
        [target, others = shim::not_this_thread()](const shim::Call& call) {
            return others(call) && call.arg_text(1) == target;
        });
    EngineRun run{{ground.from("f"), ground.from("g")}, ground.dst};
    run.threads = 1;
    run.poll = [woken = false](Engine&) mutable {
        if (!woken && shim::waiting() > 0) {
            woken = true;
            copy_engine::advance_clock_for_tests(100);
        }
    };
    const Progress progress = run_engine(run);
    shim::clear();
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].message, kTimedOut);
    EXPECT_EQ(progress.files_copied, 1);
}

// A worker that was woken once may hang again while it clears up behind itself.
TEST(copy_engine_races, a_worker_that_hangs_again_while_clearing_up_is_woken_again) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_unlinkat, SYS_ioctl);
    const Ground ground;
    write_file(ground.from("f"), test_env::pattern(100'000));
    write_file(ground.from("g"), "x");
    shim::fail(SYS_ioctl, EOPNOTSUPP);
    shim::rule(
        SYS_copy_file_range,
        [](const shim::Call& call) { return call.nth == 1 ? shim::wait() : shim::go(); },
        shim::on_file(0, "f"));
    shim::rule(
        SYS_unlinkat,
        [](const shim::Call& call) { return call.nth == 1 ? shim::wait() : shim::go(); },
        shim::path_ends(1, "f"));
    EngineRun run{{ground.from("f"), ground.from("g")}, ground.dst};
    run.threads = 1;
    run.limit_seconds = 20;
    run.poll = [last = 0](Engine&) mutable {
        const auto calls = static_cast<int>(shim::calls(SYS_unlinkat)) + 1;
        // Twice: once more would be the next file's.
        if (shim::waiting() > 0 && calls != last && calls <= 2) {
            last = calls;
            copy_engine::advance_clock_for_tests(100);
        }
    };
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_FALSE(progress.cancelled);
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].message, kTimedOut);
    EXPECT_FALSE(exists(ground.to("f")));
    EXPECT_EQ(read_file(ground.to("g")), "x");
    int woken = 0;
    for (const Log::Entry& entry : Log::instance().recent())
        woken += entry.text.find("watchdog: worker 0 stalled for ") == 0;
    EXPECT_EQ(woken, 1);
}

// --- A cancel before the answer is carried out --------------------------------------------------

TEST(copy_engine_races, after_a_cancel_no_old_file_steps_aside) {
    REQUIRE_SHIM(SYS_newfstatat);
    const Ground ground;
    write_file(ground.from("f"), "new");
    write_file(ground.to("f"), "old");
    Engine& engine = copy_engine::instance();
    // The user presses cancel while the worker looks at the old file.
    shim::rule(
        SYS_newfstatat,
        [&](const shim::Call& call) {
            if (call.nth == 1)
                engine.cancel();
            return shim::go();
        },
        [&](const shim::Call& call) { return call.arg_text(1) == ground.to("f"); });
    ASSERT_TRUE(engine.start({ground.from("f")}, ground.dst, Operation::Copy, 1,
                             ConflictAction::RenameExisting));
    ASSERT_TRUE(ends(engine));
    shim::clear();
    engine.reap();
    EXPECT_TRUE(engine.snapshot().cancelled);
    EXPECT_EQ(read_file(ground.to("f")), "old");
    EXPECT_FALSE(exists(ground.to("f.1")));
}

// --- Sources that are not what they were --------------------------------------------------------

// At the end of a move the emptied source folders go, but not folders of the same names at a place
// that a link has put there meanwhile.
TEST(copy_engine_races, a_folder_swapped_for_a_link_leads_no_removal_elsewhere) {
    const Ground ground;
    make_dirs(ground.from("tree/a/b"));
    write_file(ground.from("tree/f"), "new");
    make_dirs(ground.to("tree"));
    write_file(ground.to("tree/f"), "old");
    make_dirs(ground.dir / "elsewhere/b");
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.op = Operation::Move;
    run.answer = [&](const ConflictRequest& request, bool&) {
        if (request.is_dir)
            return ConflictAction::Overwrite;
        // The scanner may still be at it.
        for (int i = 0; i < 5000 && !exists(ground.to("tree/a/b")); ++i)
            usleep(1000);
        usleep(50'000);
        EXPECT_EQ(rename(ground.from("tree/a").c_str(), (ground.dir / "a").c_str()), 0);
        EXPECT_EQ(symlink((ground.dir / "elsewhere").c_str(), ground.from("tree/a").c_str()), 0);
        return ConflictAction::Skip;
    };
    const Progress progress = run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
    EXPECT_TRUE(exists(ground.dir / "elsewhere/b"));
    EXPECT_TRUE(exists(ground.dir / "a/b"));
    EXPECT_EQ(read_file(ground.from("tree/f")), "new");
}

// The first name's copy ended early; a second name tied to it would have passed for whole.
TEST(copy_engine_races, a_second_name_is_not_tied_to_a_copy_that_ended_early) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_read, SYS_ioctl, SYS_unlinkat);
    const Ground ground;
    const std::string whole = test_env::pattern(300'000);
    make_dirs(ground.from("tree"));
    make_dirs(ground.to("tree"));
    write_file(ground.from("tree/f"), whole);
    ASSERT_EQ(link(ground.from("tree/f").c_str(), ground.from("tree/g").c_str()), 0);
    shim::fail(SYS_ioctl, EOPNOTSUPP);
    const shim::Match on_source = [](const shim::Call& call) {
        const std::string name = call.arg_file(0);
        return name == "f" || name == "g";
    };
    const shim::Action first_is_empty = [](const shim::Call& call) {
        return call.nth == 1 ? shim::give(0) : shim::go();
    };
    shim::rule(SYS_copy_file_range, first_is_empty, on_source);
    shim::rule(SYS_read, first_is_empty, on_source);
    shim::fail(SYS_unlinkat, EIO, 1, 1);  // what is to take the early end away again
    EngineRun run{{ground.from("tree")}, ground.dst};
    run.op = Operation::Move;
    run.threads = 1;
    run.default_action = ConflictAction::Overwrite;
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(progress.failures_total, 1U) << failure_text(progress);
    for (const char* name : {"tree/f", "tree/g"}) {
        const bool here = exists(ground.from(name)) && read_file(ground.from(name)) == whole;
        const bool there = exists(ground.to(name)) && read_file(ground.to(name)) == whole;
        EXPECT_TRUE(here || there) << name;
    }
}

// Between the listing and the copy another file took the place of one of the two names. The group's
// other name got its bytes, or it got the group's.
TEST(copy_engine_races, a_second_name_is_not_tied_to_what_has_taken_a_names_place) {
    REQUIRE_SHIM(SYS_openat);
    for (const bool first_is_replaced : {true, false}) {
        const Ground ground;
        make_dirs(ground.from("tree"));
        write_file(ground.from("tree/a"), "the group's");
        ASSERT_EQ(link(ground.from("tree/a").c_str(), ground.from("tree/b").c_str()), 0);
        write_file(ground.from("new"), "another's");
        std::string replaced;
        std::string kept;
        shim::rule(
            SYS_openat,
            [&](const shim::Call& call) {
                if (replaced.empty()) {
                    const bool is_a = call.arg_text(1) == "a";
                    replaced = is_a == first_is_replaced ? "tree/a" : "tree/b";
                    kept = is_a == first_is_replaced ? "tree/b" : "tree/a";
                    rename(ground.from("new").c_str(), ground.from(replaced).c_str());
                }
                return shim::go();
            },
            [](const shim::Call& call) {
                return !is_creation(call) && (call.arg_text(1) == "a" || call.arg_text(1) == "b");
            });
        EngineRun run{{ground.from("tree")}, ground.dst};
        run.threads = 1;
        const Progress progress = run_engine(run);
        shim::clear();
        ASSERT_NE(replaced, "");
        EXPECT_EQ(progress.failures_total, 0U) << failure_text(progress);
        EXPECT_EQ(read_file(ground.to(replaced)), "another's") << first_is_replaced;
        EXPECT_EQ(read_file(ground.to(kept)), "the group's") << first_is_replaced;
    }
}

// A link was replaced after its text had been read: the move took the new one away.
TEST(copy_engine_races, a_link_that_is_replaced_while_it_is_moved_is_not_lost) {
    REQUIRE_SHIM(SYS_readlinkat, SYS_newfstatat);
    const mounts_fixture::Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const Ground ground;
    ASSERT_EQ(symlink("old", ground.from("l").c_str()), 0);
    ASSERT_EQ(symlink("new", ground.from("other").c_str()), 0);
    bool has_read = false;
    bool replaced = false;
    shim::rule(
        SYS_readlinkat,
        [&](const shim::Call&) {
            has_read = true;
            return shim::go();
        },
        [](const shim::Call& call) { return call.arg_text(1) == "l"; });
    shim::rule(
        SYS_newfstatat,
        [&](const shim::Call&) {
            if (has_read && !replaced) {
                replaced = true;
                rename(ground.from("other").c_str(), ground.from("l").c_str());
            }
            return shim::go();
        },
        [](const shim::Call& call) { return call.arg_text(1) == "l"; });
    EngineRun run{{ground.from("l")}, mount.path()};
    run.op = Operation::Move;
    run.threads = 1;
    const Progress progress = run_engine(run);
    shim::clear();
    ASSERT_TRUE(replaced);
    char text[16] = "";
    const std::string where = exists(ground.from("l")) ? ground.from("l") : mount / "l";
    EXPECT_EQ(readlink(where.c_str(), text, sizeof text), 3);
    EXPECT_STREQ(text, "new") << failure_text(progress);
}

// What the listing could not look at may be anything, and opening a device may act.
TEST(copy_engine_races, an_entry_that_could_not_be_looked_at_is_looked_at_before_it_is_opened) {
    REQUIRE_SHIM(SYS_newfstatat, SYS_openat);
    faultfs::Options options;
    options.unknown_types = true;
    const FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    const TempDir target;
    make_dirs(fs / "tree");
    ASSERT_EQ(mkfifo((fs / "tree/pipe").c_str(), 0644), 0);
    write_file(fs / "tree/f", "x");
    // The measuring and the listing.
    shim::fail(SYS_newfstatat, EIO, 1, 2,
               [](const shim::Call& call) { return call.arg_text(1) == "pipe"; });
    EngineRun run{{fs / "tree"}, target.path()};
    run.threads = 1;
    int opened = 0;
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            ++opened;
            return shim::go();
        },
        [](const shim::Call& call) { return call.arg_text(1) == "pipe"; });
    const Progress progress = run_engine(run);
    shim::clear();
    EXPECT_EQ(opened, 0);
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].message, "not a regular file (pipe, socket or device)");
    EXPECT_EQ(read_file(target / "tree/f"), "x");
}

// A folder whose listing fails is left out, also when the failure comes after the first names.
TEST(copy_engine_races, a_folder_whose_listing_breaks_off_is_dropped) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir target;
    make_dirs(fs / "tree/bad");
    for (int i = 0; i < 5; ++i)
        write_file(fs / "tree/bad/" + std::to_string(i), "x");
    write_file(fs / "tree/other", "x");
    fs.clear();
    fs.set(faultfs::limit("readdir", 1));
    // Each listing takes a call for each name, for "." and ".." and for the end.
    fs.set(faultfs::fail("readdir", EIO, 8 + 5, -1, "bad"));
    const Progress progress = run_engine(EngineRun{{fs / "tree"}, target.path()});
    ASSERT_EQ(progress.failures_total, 1U) << failure_text(progress);
    EXPECT_EQ(progress.failures[0].path, fs / "tree/bad");
    EXPECT_EQ(progress.failures[0].target, "");
    EXPECT_TRUE(tree::snapshot(target / "tree/bad").empty());
    EXPECT_EQ(read_file(target / "tree/other"), "x");
}
