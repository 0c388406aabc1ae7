// The roads of a user, with the built program: unattended runs, keys under a window manager, and
// every way in which a run can be broken off.

#include "app_roads.h"
#include "faultfs.h"
#include "test_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::lstat_of;
using test_env::make_dirs;
using test_env::pattern;
using test_env::Program;
using test_env::read_file;
using test_env::run;
using test_env::TempDir;
using test_env::write_file;

// Until the program has put its signal handlers in place, a signal simply ends it.
bool wait_ready(const Program& program) {
    return wait_until(30, [&program] {
        std::ifstream status("/proc/" + std::to_string(program.pid()) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.compare(0, 7, "SigCgt:") == 0)
                return (std::strtoull(line.c_str() + 7, nullptr, 16) >> (SIGHUP - 1) & 1) != 0;
        return false;
    });
}

class Roads : public ProgramRoads {
  protected:
    // A small tree with what a tree can hold, with its own modes and times.
    void make_tree() {
        make_dirs(l("folder/deep"));
        write_file(l("empty"), "");
        write_file(l("one.bin"), pattern(100000, 1), 0640);
        write_file(l("folder/script.sh"), pattern(3000, 2), 0755);
        write_file(l("folder/deep/read only"), pattern(5, 3), 0444);
        ASSERT_EQ(symlink("folder/deep", l("link").c_str()), 0);
        const timespec times[2] = {{1500000000, 123456789}, {1400000000, 987654321}};
        for (const char* name : {"empty", "one.bin", "folder/script.sh", "folder/deep/read only"})
            ASSERT_EQ(utimensat(AT_FDCWD, l(name).c_str(), times, 0), 0);
    }
    // That `dir` holds the tree of make_tree(), byte for byte, with modes and times.
    void expect_tree(const std::string& dir) {
        struct File {
            const char* name;
            size_t size;
            uint32_t seed;
            mode_t mode;
        };
        for (const File& file :
             {File{"empty", 0, 0, 0644}, File{"one.bin", 100000, 1, 0640},
              File{"folder/script.sh", 3000, 2, 0755}, File{"folder/deep/read only", 5, 3, 0444}}) {
            const std::string path = dir + "/" + file.name;
            ASSERT_TRUE(exists(path)) << path;
            EXPECT_EQ(read_file(path), file.size ? pattern(file.size, file.seed) : "") << path;
            const struct stat st = lstat_of(path);
            EXPECT_EQ(st.st_mode & 07777U, file.mode) << path;
            EXPECT_EQ(st.st_mtim.tv_sec, 1400000000) << path;
            EXPECT_EQ(st.st_mtim.tv_nsec, 987654321) << path;
        }
        EXPECT_EQ(std::filesystem::read_symlink(dir + "/link"), "folder/deep");
    }
};

// --- Unattended -------------------------------------------------------------------------------

TEST_F(Roads, a_tree_is_copied_unattended) {
    make_tree();
    ASSERT_EQ(m_program.run(sides("SelectAll,CopyToOther")), 0);
    expect_tree(m_right.path());
    expect_tree(m_left.path());
    const std::vector<std::string> log = m_program.log();
    const auto line = [&log](const std::string& prefix) {
        return std::count_if(log.begin(), log.end(), [&](const std::string& text) {
            return text.compare(0, prefix.size(), prefix) == 0;
        });
    };
    EXPECT_EQ(line("Ferrodeck "), 1);
    EXPECT_EQ(line("selftest: SelectAll,CopyToOther"), 1);
    EXPECT_EQ(line("action: SelectAll [" + m_left.path() + "]"), 1);
    EXPECT_EQ(line("transfer start: COPY of 4 source(s) → " + m_right.path() + " ["), 1);
    EXPECT_EQ(line("  from: "), 4);
    EXPECT_EQ(line("copied "), 5);  // the link is one of them
    EXPECT_EQ(line("transfer done: 5/5 files, 103005 bytes in "), 1);
    EXPECT_EQ(line("selftest: done, 2 executed, 0 unknown"), 1);
}

// Numbers in the log are read by people everywhere and by scripts.
TEST_F(Roads, numbers_keep_their_point_where_people_write_a_comma) {
    const TempDir locales;
    std::string output;
    if (test_env::run("localedef -i de_DE -f UTF-8 '" + locales / "de_DE.UTF-8" + "'", &output) !=
        0)
        GTEST_SKIP() << "no locale with a comma can be made: " << output;
    setenv("LOCPATH", locales.path().c_str(), 1);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    ASSERT_EQ(test_env::run("env printf %.1f 1,5", &output), 0);
    ASSERT_EQ(output, "1,5") << "the locale is not in use";
    make_tree();
    ASSERT_EQ(m_program.run(sides("SelectAll,CopyToOther")), 0);
    unsetenv("LC_ALL");
    unsetenv("LOCPATH");
    const std::regex rate("transfer done: .* in [0-9]+\\.[0-9] s \\([0-9]+\\.[0-9] MB/s\\), .*");
    int found = 0;
    for (const std::string& line : m_program.log())
        found += std::regex_match(line, rate);
    EXPECT_EQ(found, 1);
}

TEST_F(Roads, a_tree_is_moved_unattended) {
    make_tree();
    ASSERT_EQ(m_program.run(sides("SelectAll,MoveToOther")), 0);
    expect_tree(m_right.path());
    EXPECT_TRUE(std::filesystem::is_empty(m_left.path()));
    EXPECT_TRUE(m_program.logged("selftest: done, 2 executed, 0 unknown"));
}

TEST_F(Roads, a_tree_is_duplicated_unattended) {
    make_tree();
    ASSERT_EQ(m_program.run(sides("SelectAll,Clone")), 0);
    expect_tree(m_left.path());
    EXPECT_EQ(read_file(l("one.1.bin")), pattern(100000, 1));
    EXPECT_EQ(read_file(l("folder.1/deep/read only")), pattern(5, 3));
    EXPECT_EQ(std::filesystem::read_symlink(l("link.1")), "folder/deep");
    EXPECT_TRUE(std::filesystem::is_empty(m_right.path()));
}

TEST_F(Roads, the_active_side_is_the_source) {
    write_file(r("from the right"), "x");
    std::vector<std::string> words = sides("SelectAll,CopyToOther");
    words.push_back("--active=right");
    ASSERT_EQ(m_program.run(words), 0);
    EXPECT_EQ(read_file(l("from the right")), "x");
}

TEST_F(Roads, folders_may_be_named_from_where_one_stands) {
    make_dirs(l("a"));
    make_dirs(l("b"));
    write_file(l("a/file"), "x");
    ASSERT_EQ(m_program.run({"--left=a", "--right=./b/../b", "--action=SelectAll,CopyToOther"},
                            m_left.path()),
              0);
    EXPECT_EQ(read_file(l("b/file")), "x");
}

TEST_F(Roads, the_settings_answer_conflicts_and_are_left_as_they_were) {
    struct Case {
        const char* word;
        const char* old_name;  // what "a" holds afterwards
        const char* new_name;  // what "a.1" holds, or null
    };
    for (const Case& c :
         {Case{"skip", "old", nullptr}, Case{"overwrite", "new", nullptr},
          Case{"rename_new", "old", "new"}, Case{"rename_existing", "new", "old"}}) {
        Program program;
        const TempDir from;
        const TempDir to;
        write_file(from / "a", "new");
        write_file(to / "a", "old");
        const std::string text = std::string("{\n  \"default_conflict\": \"") + c.word +
                                 "\",\n  \"thread_count\": 3\n}\n";
        program.write_settings(text);
        ASSERT_EQ(program.run({"--left=" + from.path(), "--right=" + to.path(),
                               "--action=SelectAll,CopyToOther"}),
                  0);
        EXPECT_EQ(read_file(to / "a"), c.old_name) << c.word;
        EXPECT_EQ(exists(to / "a.1"), c.new_name != nullptr) << c.word;
        if (c.new_name) {
            EXPECT_EQ(read_file(to / "a.1"), c.new_name) << c.word;
        }
        const std::string left_behind = read_file(program.settings_path());
        EXPECT_NE(left_behind.find(std::string("\"default_conflict\": \"") + c.word + "\","),
                  std::string::npos)
            << left_behind;
        EXPECT_NE(left_behind.find("\"thread_count\": 3,"), std::string::npos) << left_behind;
        bool three = false;
        for (const std::string& line : program.log())
            three = three ||
                    (line.find("transfer start: ") == 0 && line.find(", 3×]") != std::string::npos);
        EXPECT_TRUE(three) << c.word;
    }
}

TEST_F(Roads, a_failure_is_in_the_log_and_in_a_dialogue_and_the_rest_is_done) {
    write_file(l("good"), "x");
    ASSERT_EQ(mkfifo(l("pipe").c_str(), 0600), 0);
    ASSERT_EQ(m_program.run(sides("SelectAll,CopyToOther")), 0);
    EXPECT_EQ(read_file(r("good")), "x");
    EXPECT_TRUE(m_program.logged("skipped special file: " + l("pipe")));
    EXPECT_TRUE(m_program.logged("dialog opened: Errors — 1 Auswahl [Errors]"));
}

TEST_F(Roads, nonsense_is_reported_and_ends) {
    ASSERT_EQ(m_program.run(sides("Nonsense")), 0);
    EXPECT_TRUE(m_program.logged("selftest: unknown action 'Nonsense'"));
    EXPECT_TRUE(m_program.logged("selftest: done, 0 executed, 1 unknown"));
}

TEST_F(Roads, quit_ends_the_program) {
    ASSERT_EQ(m_program.run(sides("Refresh,Quit")), 0);
    EXPECT_TRUE(m_program.logged("action: Quit [" + m_left.path() + "]"));
}

// --- The process ------------------------------------------------------------------------------

TEST_F(Roads, the_process_takes_all_the_files_it_may_and_does_not_die_of_a_pipe) {
    m_program.start(sides());
    ASSERT_TRUE(wait_ready(m_program));
    const std::string proc = "/proc/" + std::to_string(m_program.pid());
    std::istringstream limits(read_file(proc + "/limits"));
    for (std::string line; std::getline(limits, line);)
        if (line.find("Max open files") == 0) {
            std::istringstream words(line.substr(std::string("Max open files").size()));
            std::string soft;
            std::string hard;
            words >> soft >> hard;
            EXPECT_EQ(soft, hard);
        }
    const std::string status = read_file(proc + "/status");
    const size_t at = status.find("SigIgn:");
    ASSERT_NE(at, std::string::npos);
    const unsigned long long ignored = std::strtoull(status.c_str() + at + 7, nullptr, 16);
    EXPECT_TRUE(ignored >> (SIGPIPE - 1) & 1);
    m_program.signal(SIGTERM);
    EXPECT_EQ(m_program.wait(), 0);
}

// GIO ignores the signal too, but only later.
TEST_F(Roads, a_broken_pipe_is_ignored_before_anything_else) {
    const std::string trace = m_left / "trace";
    const std::string command =
        "DISPLAY=:no-such-display strace -e trace=rt_sigaction,prlimit64 -o '" + trace + "' '" +
        Program::path() + "'";
    run(command);
    const std::string calls = exists(trace) ? read_file(trace) : "";
    const size_t limit = calls.find("RLIMIT_NOFILE");
    if (limit == std::string::npos)
        GTEST_SKIP() << "strace is not installed or not allowed here";
    EXPECT_LT(calls.find("rt_sigaction(SIGPIPE, {sa_handler=SIG_IGN"), limit);
}

TEST_F(Roads, each_of_three_signals_ends_an_idle_program_in_order) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        Program program;
        program.start(sides());
        ASSERT_TRUE(wait_ready(program));
        program.signal(number);
        EXPECT_EQ(program.wait(), 0) << number;
        EXPECT_TRUE(program.logged("signal received, shutting down")) << number;
    }
}

TEST_F(Roads, a_signal_ends_a_script_that_waits_for_an_answer) {
    write_file(l("a"), "new");
    write_file(r("a"), "old");
    m_program.start(sides("SelectAll,CopyToOther,Refresh"));
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    m_program.signal(SIGTERM);
    EXPECT_EQ(m_program.wait(10), 0);
    EXPECT_EQ(read_file(r("a")), "old");
    EXPECT_FALSE(m_program.logged("selftest: -> Refresh"));
}

// Whatever the moment: no partial target, and for a move every source whole at one side at least.
TEST_F(Roads, a_signal_in_mid_transfer_leaves_no_partial_file) {
    std::mt19937 random(20240601);
    for (int round = 0; round < 6; ++round) {
        const bool move = round % 2 == 1;
        Program program;
        const TempDir from;
        // Another file system where there is one, so that a move has to copy.
        const TempDir to(exists("/dev/shm") ? "/dev/shm" : "");
        constexpr int kFiles = 300;
        const auto name = [](int i) {
            return "d" + std::to_string(i % 7) + "/f" + std::to_string(i);
        };
        for (int i = 0; i < 7; ++i)
            make_dirs(from / ("d" + std::to_string(i)));
        for (int i = 0; i < kFiles; ++i)
            write_file(from / name(i), pattern(200000, static_cast<uint32_t>(i)));
        program.start(
            {"--left=" + from.path(), "--right=" + to.path(),
             std::string("--action=SelectAll,") + (move ? "MoveToOther" : "CopyToOther")});
        ASSERT_TRUE(wait_until(30, [&to] { return !std::filesystem::is_empty(to.path()); }));
        sleep_ms(static_cast<int>(random() % 150));
        program.signal(round % 3 == 0 ? SIGTERM : SIGINT);
        EXPECT_EQ(program.wait(10), 0);
        int arrived = 0;
        for (int i = 0; i < kFiles; ++i) {
            const std::string content = pattern(200000, static_cast<uint32_t>(i));
            const bool at_target = exists(to / name(i));
            const bool at_source = exists(from / name(i));
            arrived += at_target ? 1 : 0;
            if (at_target) {
                EXPECT_EQ(read_file(to / name(i)) == content, true) << name(i);
            }
            if (at_source) {
                EXPECT_EQ(read_file(from / name(i)) == content, true) << name(i);
            }
            EXPECT_TRUE(at_source || (move && at_target)) << name(i);
        }
        RecordProperty("arrived_" + std::to_string(round), arrived);
    }
}

// A worker that waits in the kernel for a server that is gone answers to no signal. The state is
// saved and the window gone at once; two seconds later the process stops waiting for it.
TEST_F(Roads, a_worker_stuck_in_the_kernel_does_not_keep_the_window) {
    faultfs::FaultFs fs;
    if (!fs.ok())
        GTEST_SKIP() << fs.reason();
    write_file(fs.backing() + "/stuck", pattern(100000));
    faultfs::Fault fault = faultfs::stall("read", 1, -1, "stuck");
    fault.deaf = true;
    fs.set(fault);
    const test_env::XServer server(false);
    if (server.display().empty())
        GTEST_SKIP() << "Xvfb cannot be started";
    setenv("DISPLAY", server.display().c_str(), 1);
    m_program.start(
        {"--left=" + fs.path(), "--right=" + m_right.path(), "--action=SelectAll,CopyToOther"});
    ASSERT_TRUE(fs.wait_stalled(1));
    const auto window_there = [] {
        std::string tree;
        run("xwininfo -root -tree", &tree);
        // GDK keeps a small window of the same name, which is never shown.
        return tree.find(" 1100x720+") != std::string::npos;
    };
    EXPECT_TRUE(window_there());
    m_program.signal(SIGTERM);
    EXPECT_TRUE(wait_until(1.5, [&] { return !window_there(); }));
    EXPECT_TRUE(m_program.wait_logged("a worker did not end within 2 s, leaving without it", 10));
    // The kernel lets the last thread go only when its call is answered.
    fs.release();
    fs.clear();
    EXPECT_EQ(m_program.wait(30), 0);
}

// --- With keys, under a window manager --------------------------------------------------------

TEST_F(KeyRoads, marked_with_shift_and_space_and_copied_with_f5) {
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    open();
    // Down marks the row it arrives at, so that a, b and c are marked with Shift; space then takes
    // the mark from c, on which the cursor stands.
    keys("Down shift+Down shift+Down space F5");
    ASSERT_TRUE(wait_line("transfer done: 2/2 files"));
    EXPECT_EQ(read_file(r("a")), "a");
    EXPECT_EQ(read_file(r("b")), "b");
    EXPECT_FALSE(exists(r("c")));
    keys("ctrl+q");
    EXPECT_EQ(m_program.wait(15), 0);
}

TEST_F(KeyRoads, all_marked_and_moved_with_f6) {
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    open();
    keys("ctrl+a F6");
    ASSERT_TRUE(wait_line("transfer done: "));
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(read_file(r(name)), name);
        EXPECT_FALSE(exists(l(name)));
    }
    keys("ctrl+q");
    EXPECT_EQ(m_program.wait(15), 0);
}

TEST_F(KeyRoads, conflicts_are_answered_by_keys) {
    for (const char* name : {"a", "b"}) {
        write_file(l(name), "new");
        write_file(r(name), "old");
    }
    open();
    keys("ctrl+a F5");
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    keys("Return");  // answers nothing
    sleep_ms(400);
    EXPECT_FALSE(m_program.logged("dialog closed: Conflict"));
    keys("alt+o");
    ASSERT_TRUE(m_program.wait_logged("dialog accel: Alt+O → ConflictOverwrite"));
    // The second question.
    ASSERT_TRUE(wait_until(30, [this] {
        const std::vector<std::string> log = m_program.log();
        return std::count(log.begin(), log.end(), "dialog opened: Conflict — 7 Auswahlen") == 2 ||
               std::count(log.begin(), log.end(), "copied " + l("a") + " -> " + r("a") + " (3 B)") +
                       std::count(log.begin(), log.end(),
                                  "copied " + l("b") + " -> " + r("b") + " (3 B)") ==
                   1;
    }));
    sleep_ms(500);
    keys("Escape");
    ASSERT_TRUE(wait_line("transfer done: 2/2 files"));
    // One was overwritten, one skipped.
    EXPECT_EQ((read_file(r("a")) == "new") + (read_file(r("b")) == "new"), 1);
    keys("ctrl+q");
    EXPECT_EQ(m_program.wait(15), 0);
}

TEST_F(KeyRoads, walking_about_with_the_keys) {
    make_dirs(l("sub/deeper"));
    open();
    keys("Down Return Down Return");
    ASSERT_TRUE(wait_until(10, [this] {
        keys("ctrl+r");
        return m_program.logged("action: Refresh [" + l("sub/deeper") + "]");
    }));
    keys("BackSpace BackSpace ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + m_left.path() + "]"));
    keys("Tab ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + m_right.path() + "]"));
    keys("ctrl+q");
    EXPECT_EQ(m_program.wait(15), 0);
}

// The window manager's close, while a worker waits for an answer.
TEST_F(KeyRoads, closing_the_window_abandons_a_transfer_without_asking) {
    write_file(l("a"), "new");
    write_file(r("a"), "old");
    open();
    keys("ctrl+a F6");
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    keys("alt+F4");
    EXPECT_EQ(m_program.wait(15), 0);
    EXPECT_EQ(read_file(r("a")), "old");
    EXPECT_EQ(read_file(l("a")), "new");
    EXPECT_TRUE(wait_line("cancel requested"));
}

TEST_F(KeyRoads, closing_the_window_in_mid_copy_leaves_whole_files_only) {
    constexpr int kFiles = 400;
    for (int i = 0; i < kFiles; ++i)
        write_file(l("f" + std::to_string(i)), pattern(300000, static_cast<uint32_t>(i)));
    open();
    keys("ctrl+a F5");
    ASSERT_TRUE(wait_until(30, [this] { return !std::filesystem::is_empty(m_right.path()); }));
    keys("alt+F4");
    EXPECT_EQ(m_program.wait(15), 0);
    for (int i = 0; i < kFiles; ++i) {
        const std::string name = "f" + std::to_string(i);
        if (exists(r(name))) {
            EXPECT_EQ(read_file(r(name)) == pattern(300000, static_cast<uint32_t>(i)), true)
                << name;
        }
        EXPECT_TRUE(exists(l(name)));
    }
}

TEST_F(KeyRoads, escape_cancels_and_the_program_stays) {
    write_file(l("a"), "new");
    write_file(r("a"), "old");
    open();
    keys("ctrl+a F5");
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    sleep_ms(400);  // a question takes no keys at first
    keys("alt+s");
    ASSERT_TRUE(wait_line("transfer CANCELLED: "));
    sleep_ms(300);
    keys("ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + m_left.path() + "]"));
    keys("ctrl+q");
    EXPECT_EQ(m_program.wait(15), 0);
    EXPECT_EQ(read_file(r("a")), "old");
}

// --- With the pointer -------------------------------------------------------------------------

TEST_F(PointerRoads, rows_are_marked_and_a_double_click_enters) {
    make_dirs(l("a folder/inner"));
    make_files();
    open();
    click(200, row_y(1), "--repeat 2 --delay 60");
    keys("ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + l("a folder") + "]"));
    click(200, row_y(0), "--repeat 2 --delay 60");
    click(800, row_y(0));
    keys("ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + m_right.path() + "]"));
    click(200, row_y(3));
    copy_marked("f101");
    EXPECT_FALSE(exists(r("f100")));
    EXPECT_FALSE(exists(r("a folder")));
    quit();
}

TEST_F(PointerRoads, titles_sort_and_edges_are_pulled) {
    write_file(l("large"), "12345");
    write_file(l("small"), "1");
    open();
    // The edge behind the last column, which is the date.
    pull(498, kHeadY, 538, kHeadY + 200);
    click(60, kHeadY);  // by the name, downwards
    click(200, row_y(1));
    copy_marked("small");
    EXPECT_FALSE(exists(r("large")));
    quit();
    EXPECT_TRUE(stored("\"col_w_modified\": 144")) << read_file(m_program.settings_path());
    EXPECT_TRUE(stored("\"col_w_size\": 0"));
}

TEST_F(PointerRoads, the_wheel_scrolls) {
    make_files();
    open();
    go(200, row_y(5));
    xdotool("click --repeat 2 --delay 60 5");  // six rows down
    sleep_ms(200);
    click(200, row_y(0));
    copy_marked("f105");
    quit();
}

TEST_F(PointerRoads, the_vertical_thumb_scrolls) {
    make_files();
    open();
    pull(kThumbX, 208 + 50, kThumbX, 690);
    click(200, row_y(18));  // the last row of those in view
    copy_marked("f199");
    quit();
}

TEST_F(PointerRoads, the_horizontal_thumb_scrolls) {
    make_files();
    m_program.write_settings("{\n  \"col_w_name\": 800\n}\n");
    open();
    click(40, row_y(1));
    // The title of the date, which stood far outside, sorts from where it has come to.
    pull(60, 687, 480, 687);
    click(450, kHeadY);
    quit();
    EXPECT_TRUE(stored("\"left_sort_key\": \"modified\"")) << read_file(m_program.settings_path());
}

TEST_F(PointerRoads, a_click_into_the_path_bar_a_path_and_return) {
    make_dirs(l("sub"));
    open();
    click(490, kPathY);
    keys("End slash s u b Return");
    keys("ctrl+r");
    EXPECT_TRUE(m_program.wait_logged("path bar → " + l("sub")));
    EXPECT_TRUE(m_program.wait_logged("action: Refresh [" + l("sub") + "]"));
    quit();
}

TEST_F(PointerRoads, one_answer_for_all_by_clicks) {
    for (const char* name : {"a", "b", "c", "d"}) {
        write_file(l(name), "new");
        write_file(r(name), "old");
    }
    open();
    keys("ctrl+a F5");
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    sleep_ms(400);
    // The panel of 620 by 318 stands in the middle.
    click(240 + 28, 201 + 220);
    keys("alt+o");
    ASSERT_TRUE(wait_line("transfer done: 4/4 files"));
    for (const char* name : {"a", "b", "c", "d"})
        EXPECT_EQ(read_file(r(name)), "new");
    quit();
}

TEST_F(PointerRoads, a_rename_is_committed_by_a_click_on_another_row) {
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    open();
    click(200, row_y(2));
    keys("F2 Home z");
    click(200, row_y(3));
    ASSERT_TRUE(wait_until(10, [this] { return exists(l("zb")); }));
    copy_marked("c");
    EXPECT_EQ(read_file(l("zb")), "b");
    quit();
}

}  // namespace
