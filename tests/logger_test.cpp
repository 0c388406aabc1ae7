// The log is one object for the whole process, made on first use: every test here needs a process
// that has not logged yet.

#include "logger.h"

#include "fresh_process.h"
#include "paths.h"
#include "test_env.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

using Level = Log::Level;

namespace {

constexpr int64_t kLimit = 33554432;
const std::string kMarker = "---- rotated at 33554432 bytes ----\n";
// Bytes of a line of the thread "ui" beside its text: "HH:MM:SS.mmm INFO  [ui  ] " and the end.
constexpr int64_t kFrame = 27;

std::string log_path() {
    return config_dir() + "/Ferrodeck.log";
}

std::string rotated_path() {
    return log_path() + ".1";
}

int64_t size_of(const std::string& path) {
    return test_env::exists(path) ? test_env::lstat_of(path).st_size : -1;
}

// A log of an earlier run, of the given size.
void make_old_log(int64_t size) {
    test_env::write_file(log_path(), "old\n");
    std::filesystem::resize_file(log_path(), static_cast<uintmax_t>(size));
}

std::vector<std::string> file_lines() {
    std::istringstream in(test_env::read_file(log_path()));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> recent_texts() {
    std::vector<std::string> texts;
    for (const Log::Entry& entry : Log::instance().recent())
        texts.push_back(entry.text);
    return texts;
}

// Writes a line that takes exactly that many bytes of the file.
void write_bytes(int64_t bytes) {
    Log::instance().write(Level::Info, std::string(static_cast<size_t>(bytes - kFrame), 'x'));
}

}  // namespace

static_assert(std::is_same_v<std::underlying_type_t<Level>, int32_t>);
static_assert(static_cast<int>(Level::Debug) == 0 && static_cast<int>(Level::Info) == 1 &&
              static_cast<int>(Level::Warn) == 2 && static_cast<int>(Level::Error) == 3);

// ---- one line ----

TEST(Logger, the_file_lies_in_the_configuration_folder) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_EQ(Log::instance().file_path(), log_path());
    EXPECT_STREQ(Log::instance().file_path_c_str(), log_path().c_str());
    EXPECT_EQ(size_of(log_path()), 0);
}

TEST(Logger, a_line_is_time_milliseconds_level_thread_and_text) {
    REQUIRE_FRESH_PROCESS();
    Log& log = Log::instance();
    log.set_debug(true);
    log.write(Level::Debug, "one");
    log.write(Level::Info, "two");
    log.write(Level::Warn, "three");
    log.write(Level::Error, "four");
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(lines.size(), 4U);
    const std::string clock = R"(\d\d:\d\d:\d\d\.\d\d\d)";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(clock + R"( DEBUG \[ui  \] one)")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(clock + R"( INFO  \[ui  \] two)")))
        << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(clock + R"( WARN  \[ui  \] three)")))
        << lines[2];
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(clock + R"( ERROR \[ui  \] four)")))
        << lines[3];
}

TEST(Logger, the_clock_is_local_time_and_the_milliseconds_count_from_the_start) {
    REQUIRE_FRESH_PROCESS();
    setenv("TZ", "XYZ-5:45", 1);
    tzset();
    Log& log = Log::instance();
    // Enough lines to see several values; by the wall clock's fraction some would differ.
    for (int i = 0; i < 60; ++i) {
        log.write(Level::Info, "x");
        usleep(1700);
    }
    const std::vector<Log::Entry> entries = log.recent();
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(entries.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const time_t shifted = entries[i].unix_time + (5 * 60 + 45) * 60;
        struct tm local = {};
        gmtime_r(&shifted, &local);
        char clock[16];
        std::strftime(clock, sizeof clock, "%H:%M:%S", &local);
        char expected[32];
        std::snprintf(expected, sizeof expected, "%s.%03d ", clock,
                      static_cast<int>(static_cast<int64_t>(entries[i].monotonic * 1000) % 1000));
        EXPECT_EQ(lines[i].substr(0, 13), expected);
    }
}

TEST(Logger, an_entry_holds_both_clocks_level_thread_and_text) {
    REQUIRE_FRESH_PROCESS();
    const int64_t before = std::time(nullptr);
    Log& log = Log::instance();
    log.write(Level::Warn, "first");
    usleep(20000);
    log.write(Level::Error, "second");
    const int64_t after = std::time(nullptr);
    const std::vector<Log::Entry> entries = log.recent();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].level, Level::Warn);
    EXPECT_EQ(entries[0].thread, "ui");
    EXPECT_EQ(entries[0].text, "first");
    EXPECT_EQ(entries[1].level, Level::Error);
    EXPECT_EQ(entries[1].text, "second");
    for (const Log::Entry& entry : entries) {
        EXPECT_GE(entry.unix_time, before);
        EXPECT_LE(entry.unix_time, after);
        EXPECT_GE(entry.monotonic, 0);
        EXPECT_LE(entry.monotonic, static_cast<double>(after - before + 1));
    }
    EXPECT_GE(entries[1].monotonic, entries[0].monotonic + 0.02);
    EXPECT_EQ(Log::Entry().level, Level::Info);
}

TEST(Logger, a_line_reaches_the_file_when_it_is_written) {
    REQUIRE_FRESH_PROCESS();
    for (int count = 1; count <= 3; ++count) {
        Log::instance().write(Level::Info, "x");
        EXPECT_EQ(size_of(log_path()), count * (kFrame + 1));
    }
}

TEST(Logger, a_message_holding_a_line_end_is_written_as_it_is) {
    REQUIRE_FRESH_PROCESS();
    Log::instance().write(Level::Info, "one\ntwo\n");
    Log::instance().write(Level::Info, "%s %n 100%");
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].substr(26), "one");
    EXPECT_EQ(lines[1], "two");
    EXPECT_EQ(lines[2], "");
    EXPECT_EQ(lines[3].substr(26), "%s %n 100%");
    EXPECT_EQ(recent_texts(), (std::vector<std::string>{"one\ntwo\n", "%s %n 100%"}));
}

TEST(Logger, the_printf_calls_carry_their_level) {
    REQUIRE_FRESH_PROCESS();
    Log::instance().set_debug(true);
    Log::infof("%s %d", "a", 1);
    Log::warnf("%5.2f|", 1.5);
    Log::errorf("%%");
    Log::debugf("%c", 'd');
    const std::vector<Log::Entry> entries = Log::instance().recent();
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[0].text, "a 1");
    EXPECT_EQ(entries[0].level, Level::Info);
    EXPECT_EQ(entries[1].text, " 1.50|");
    EXPECT_EQ(entries[1].level, Level::Warn);
    EXPECT_EQ(entries[2].text, "%");
    EXPECT_EQ(entries[2].level, Level::Error);
    EXPECT_EQ(entries[3].text, "d");
    EXPECT_EQ(entries[3].level, Level::Debug);
}

TEST(Logger, a_formatted_text_may_be_of_any_length) {
    REQUIRE_FRESH_PROCESS();
    std::vector<std::string> expected;
    for (const size_t length : {0U, 1U, 510U, 511U, 512U, 513U, 4095U, 4096U, 200000U}) {
        expected.emplace_back(length, 'y');
        Log::infof("%s", expected.back().c_str());
    }
    EXPECT_EQ(recent_texts(), expected);
}

TEST(Logger, a_format_that_cannot_be_printed_becomes_the_message) {
    REQUIRE_FRESH_PROCESS();
    const wchar_t unprintable[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    char text[16];
    ASSERT_LT(std::snprintf(text, sizeof text, "%ls", unprintable), 0);
    Log::infof("name %ls of 100%%", unprintable);
    EXPECT_EQ(recent_texts(), std::vector<std::string>{"name %ls of 100%%"});
}

// ---- the debug switch ----

TEST(Logger, debug_lines_change_neither_ring_nor_file_while_the_switch_is_off) {
    REQUIRE_FRESH_PROCESS();
    Log& log = Log::instance();
    EXPECT_FALSE(log.debug());
    log.write(Level::Debug, "silent");
    Log::debugf("silent");
    EXPECT_TRUE(log.recent().empty());
    EXPECT_EQ(size_of(log_path()), 0);
    log.set_debug(true);
    EXPECT_TRUE(log.debug());
    log.write(Level::Debug, "heard");
    log.set_debug(false);
    EXPECT_FALSE(log.debug());
    log.write(Level::Debug, "silent");
    EXPECT_EQ(recent_texts(), std::vector<std::string>{"heard"});
    EXPECT_EQ(file_lines().size(), 1U);
}

TEST(Logger, debugf_does_not_even_format_while_the_switch_is_off) {
    REQUIRE_FRESH_PROCESS();
    // "%n" stores how much has been formatted so far, and so tells whether anything was.
    int formatted = -1;
    Log::debugf("four%n", &formatted);
    EXPECT_EQ(formatted, -1);
    Log::instance().set_debug(true);
    Log::debugf("four%n", &formatted);
    EXPECT_EQ(formatted, 4);
}

// ---- the ring ----

TEST(Logger, the_ring_of_a_new_log_is_empty) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(Log::instance().recent().empty());
}

TEST(Logger, forty_thousand_lines_stay_and_one_more_drops_the_oldest) {
    REQUIRE_FRESH_PROCESS();
    Log& log = Log::instance();
    const auto expect_numbers = [&](int first, int count) {
        const std::vector<Log::Entry> entries = log.recent();
        ASSERT_EQ(entries.size(), static_cast<size_t>(count));
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(entries[static_cast<size_t>(i)].text, std::to_string(first + i));
    };
    int number = 0;
    while (number < 39999)
        log.write(Level::Info, std::to_string(number++));
    expect_numbers(0, 39999);
    log.write(Level::Info, std::to_string(number++));
    expect_numbers(0, 40000);
    log.write(Level::Info, std::to_string(number++));
    expect_numbers(1, 40000);
    while (number < 80000)
        log.write(Level::Info, std::to_string(number++));
    expect_numbers(40000, 40000);
    while (number < 80007)
        log.write(Level::Info, std::to_string(number++));
    expect_numbers(40007, 40000);
    EXPECT_EQ(file_lines().size(), 80007U);
}

TEST(Logger, clear_empties_the_ring_and_leaves_the_file) {
    REQUIRE_FRESH_PROCESS();
    Log& log = Log::instance();
    for (int i = 0; i < 40003; ++i)
        log.write(Level::Info, "before");
    const int64_t size = size_of(log_path());
    log.clear();
    EXPECT_TRUE(log.recent().empty());
    EXPECT_EQ(size_of(log_path()), size);
    log.write(Level::Warn, "after");
    EXPECT_EQ(recent_texts(), std::vector<std::string>{"after"});
    EXPECT_EQ(file_lines().size(), 40004U);
    for (int i = 0; i < 39999; ++i)
        log.write(Level::Info, "more");
    EXPECT_EQ(log.recent().size(), 40000U);
    EXPECT_EQ(log.recent().front().text, "after");
}

// ---- rotation ----

TEST(Logger, a_new_run_appends_to_the_file) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(log_path(), "old\n");
    Log::instance().write(Level::Info, "new");
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "old");
    EXPECT_EQ(lines[1].substr(26), "new");
}

TEST(Logger, a_file_of_exactly_the_limit_is_not_rotated_at_start) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit);
    test_env::write_file(rotated_path(), "older");
    Log::instance();
    EXPECT_EQ(size_of(log_path()), kLimit);
    EXPECT_EQ(test_env::read_file(rotated_path()), "older");
    // The count goes on from the file's size: the first line takes it over the limit.
    Log::instance().write(Level::Info, "x");
    EXPECT_EQ(test_env::read_file(log_path()), kMarker);
    EXPECT_EQ(size_of(rotated_path()), kLimit + kFrame + 1);
}

TEST(Logger, one_byte_over_the_limit_is_moved_aside_at_start_without_a_marker) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit + 1);
    test_env::write_file(rotated_path(), "older");
    Log::instance();
    EXPECT_EQ(size_of(log_path()), 0);
    EXPECT_EQ(size_of(rotated_path()), kLimit + 1);
    Log::instance().write(Level::Info, "x");
    EXPECT_EQ(size_of(log_path()), kFrame + 1);
}

TEST(Logger, an_empty_folder_in_the_place_of_the_rotated_file_is_removed) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit + 1);
    test_env::make_dirs(rotated_path());
    Log::instance();
    EXPECT_EQ(size_of(rotated_path()), kLimit + 1);
}

TEST(Logger, writing_up_to_the_limit_does_not_rotate_and_one_byte_more_does) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit - 100);
    write_bytes(100);
    EXPECT_EQ(size_of(log_path()), kLimit);
    EXPECT_FALSE(test_env::exists(rotated_path()));
    // The line that goes over the limit still stands in the old file.
    Log::instance().write(Level::Info, "over");
    EXPECT_EQ(size_of(rotated_path()), kLimit + kFrame + 4);
    EXPECT_EQ(test_env::read_file(log_path()), kMarker);
    Log::instance().write(Level::Info, "new");
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].substr(26), "new");
    EXPECT_EQ(recent_texts().size(), 3U);
}

TEST(Logger, one_byte_over_the_limit_in_one_line_rotates) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit - 100);
    write_bytes(101);
    EXPECT_EQ(size_of(rotated_path()), kLimit + 1);
    EXPECT_EQ(test_env::read_file(log_path()), kMarker);
}

TEST(Logger, the_marker_does_not_count_and_only_one_old_file_is_kept) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit);
    write_bytes(50);
    ASSERT_EQ(test_env::read_file(log_path()), kMarker);
    write_bytes(kLimit);
    EXPECT_EQ(size_of(log_path()), kLimit + static_cast<int64_t>(kMarker.size()));
    EXPECT_EQ(size_of(rotated_path()), kLimit + 50);
    write_bytes(50);
    EXPECT_EQ(size_of(rotated_path()), kLimit + static_cast<int64_t>(kMarker.size()) + 50);
    EXPECT_EQ(test_env::read_file(log_path()), kMarker);
    EXPECT_FALSE(test_env::exists(rotated_path() + ".1"));
}

// ---- a file that fails ----

TEST(Logger, without_a_file_every_line_goes_to_the_ring) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(log_path());  // a folder cannot be opened for writing, not even by root
    Log::infof("one");
    Log::infof("two");
    EXPECT_EQ(recent_texts(), (std::vector<std::string>{"one", "two"}));
    // There is no second try.
    std::filesystem::remove(log_path());
    Log::infof("three");
    EXPECT_FALSE(test_env::exists(log_path()));
    EXPECT_EQ(recent_texts().size(), 3U);
}

TEST(Logger, a_folder_that_may_not_be_written_costs_the_file_alone) {
    REQUIRE_FRESH_PROCESS();
    chmod(test_env::root().c_str(), 0755);
    const std::string dir = config_dir();
    chmod(test_env::root().c_str(), 0755);
    chmod((test_env::root() + "/config").c_str(), 0755);
    chmod(dir.c_str(), 0555);
    EXPECT_EQ(test_env::answer_of_child([] {
                  if (geteuid() == 0 && !test_env::become_ordinary_user())
                      return std::string("?");
                  Log::infof("one");
                  return recent_texts().at(0) + (test_env::exists(log_path()) ? " file" : "");
              }),
              "one");
    chmod(dir.c_str(), 0700);
}

TEST(Logger, a_reopening_that_fails_leaves_the_ring_alone_for_the_rest_of_the_run) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit);
    const std::string dir = config_dir();
    Log::instance();
    std::filesystem::rename(dir, dir + ".away");
    Log::infof("one");  // goes over the limit; the folder for the new file is gone
    Log::infof("two");
    std::filesystem::rename(dir + ".away", dir);
    EXPECT_EQ(size_of(log_path()), kLimit + kFrame + 3);
    Log::infof("three");
    EXPECT_EQ(size_of(log_path()), kLimit + kFrame + 3);
    EXPECT_FALSE(test_env::exists(rotated_path()));
    EXPECT_EQ(recent_texts(), (std::vector<std::string>{"one", "two", "three"}));
}

TEST(Logger, a_line_that_could_not_be_printed_is_not_counted) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit - 100);
    Log::instance();
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    struct rlimit full = before;
    full.rlim_cur = kLimit - 100;
    setrlimit(RLIMIT_FSIZE, &full);
    write_bytes(100);
    setrlimit(RLIMIT_FSIZE, &before);
    ASSERT_EQ(size_of(log_path()), kLimit - 100);
    write_bytes(100);
    EXPECT_EQ(size_of(log_path()), kLimit);
    EXPECT_FALSE(test_env::exists(rotated_path()));
    EXPECT_EQ(Log::instance().recent().size(), 2U);
}

// ---- threads ----

TEST(Logger, a_thread_that_never_named_itself_is_a_dash) {
    REQUIRE_FRESH_PROCESS();
    Log::instance();
    std::thread([] { Log::infof("x"); }).join();
    EXPECT_EQ(file_lines().at(0).substr(12), " INFO  [-   ] x");
    EXPECT_EQ(Log::instance().recent().at(0).thread, "-");
}

TEST(Logger, the_thread_that_makes_the_log_is_ui) {
    REQUIRE_FRESH_PROCESS();
    std::thread([] { Log::infof("first"); }).join();
    Log::infof("second");
    EXPECT_EQ(Log::instance().recent().at(0).thread, "ui");
    EXPECT_EQ(Log::instance().recent().at(1).thread, "-");
}

TEST(Logger, names_are_padded_to_four_columns_and_never_cut) {
    REQUIRE_FRESH_PROCESS();
    Log::instance();
    for (const char* name : {"w0", "w31", "scan", "task", "size", "longer", ""}) {
        std::thread([name] {
            Log::name_this_thread(name);
            Log::infof("x");
        }).join();
    }
    Log::infof("x");
    const std::vector<std::string> lines = file_lines();
    const std::vector<std::string> names = {"[w0  ]", "[w31 ]",   "[scan]", "[task]",
                                            "[size]", "[longer]", "[    ]", "[ui  ]"};
    ASSERT_EQ(lines.size(), names.size());
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].substr(12), " INFO  " + names[i] + " x");
    EXPECT_EQ(Log::instance().recent().at(0).thread, "w0");
}

TEST(Logger, lines_of_many_threads_stay_whole_and_ring_and_file_agree) {
    REQUIRE_FRESH_PROCESS();
    Log& log = Log::instance();
    constexpr int kThreads = 8;
    constexpr int kLines = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            Log::name_this_thread("w" + std::to_string(t));
            for (int i = 0; i < kLines; ++i) {
                Log::infof("%d %d %s", t, i, std::string(static_cast<size_t>(i % 97), 'z').c_str());
                Log::debugf("never %d", i);
            }
        });
    }
    // Readers and the switch may come at any time.
    for (int i = 0; i < 20; ++i) {
        log.set_debug(false);
        EXPECT_LE(log.recent().size(), static_cast<size_t>(kThreads * kLines));
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<Log::Entry> entries = log.recent();
    const std::vector<std::string> lines = file_lines();
    ASSERT_EQ(entries.size(), static_cast<size_t>(kThreads * kLines));
    ASSERT_EQ(lines.size(), entries.size());
    std::vector<int> next(kThreads, 0);
    for (size_t i = 0; i < entries.size(); ++i) {
        std::string name = entries[i].thread;
        name.resize(4, ' ');
        ASSERT_EQ(lines[i].substr(12), " INFO  [" + name + "] " + entries[i].text);
        int thread = -1;
        int number = -1;
        std::istringstream(entries[i].text) >> thread >> number;
        ASSERT_EQ(entries[i].thread, "w" + std::to_string(thread));
        ASSERT_EQ(number, next[static_cast<size_t>(thread)]++);
    }
}

TEST(Logger, rotation_under_many_threads_loses_no_line) {
    REQUIRE_FRESH_PROCESS();
    make_old_log(kLimit - 20000);
    Log::instance();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            Log::name_this_thread("size");
            for (int i = 0; i < 500; ++i)
                Log::infof("x");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(size_of(log_path()) + size_of(rotated_path()),
              kLimit - 20000 + 2000 * (kFrame + 1) + static_cast<int64_t>(kMarker.size()));
    EXPECT_EQ(file_lines().front() + "\n", kMarker);
    EXPECT_EQ(Log::instance().recent().size(), 2000U);
}
