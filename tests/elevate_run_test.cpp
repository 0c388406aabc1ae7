// A batch for the helper, as it goes through pkexec: the bytes, the answers of all kinds, and
// children that do not behave. What stands in for pkexec is a script that writes down what it was
// given.

#include "elevate.h"

#include "fresh_process.h"
#include "log_lines.h"
#include "test_env.h"

#include <csignal>
#include <cstdlib>
#include <glib.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using elevate::Job;
using elevate::Result;
using test_env::exists;
using test_env::read_file;
using test_env::write_file;

constexpr char kHelper[] = "/usr/libexec/ferrodeck/ferrodeck-helper";
constexpr char kNoAnswer[] = "The helper gave no answer for this entry.";

// Where the helper is installed, in this process's own view of the machine.
#define REQUIRE_INSTALLED_HELPER()                                                                 \
    REQUIRE_FRESH_PROCESS();                                                                       \
    REQUIRE_PRIVATE_MOUNTS();                                                                      \
    ASSERT_TRUE(test_env::mount_tmpfs("/usr/libexec", "mode=755"));                                \
    test_env::make_dirs("/usr/libexec/ferrodeck");                                                 \
    write_file(kHelper, read_file(HELPER), 0755)

class ElevateRun : public ::testing::Test {
  protected:
    ElevateRun() {
        const char* const path = std::getenv("PATH");
        setenv("PATH", (m_dir.path() + ":" + (path ? path : "")).c_str(), 1);
    }

    // A script that stands in for pkexec; DIR in it is the test's folder.
    void pkexec(std::string script) {
        for (size_t at = 0; (at = script.find("DIR", at)) != script.npos;)
            script.replace(at, 3, m_dir.path());
        write_file(m_dir / "pkexec", "#!/bin/sh\n" + script, 0755);
    }
    // One that takes all it is given and then answers.
    void pkexec_answers(const std::string& answers, int status = 0) {
        write_file(m_dir / "answers", answers);
        pkexec("printf '%s\\n' \"$@\" >DIR/words; cat >DIR/batch; cat DIR/answers; exit " +
               std::to_string(status));
    }

    static std::vector<Job> copies(int count) {
        std::vector<Job> jobs;
        for (int i = 1; i <= count; ++i)
            jobs.push_back(
                {Job::Kind::Copy, "/from/" + std::to_string(i), "/to/" + std::to_string(i)});
        return jobs;
    }
    // "1 OK" or "1 why not", by the target's number, joined.
    static std::string told(const std::vector<Result>& results) {
        std::string text;
        for (const Result& result : results)
            text += (text.empty() ? "" : " | ") + result.path.substr(result.path.rfind('/') + 1) +
                    " " + (result.ok ? "OK" + result.error : result.error);
        return text;
    }
    std::string answered(const std::string& answers, int jobs = 3) {
        pkexec_answers(answers);
        return told(elevate::run(copies(jobs)));
    }

    test_env::TempDir m_dir;
};

// --- What goes out ----------------------------------------------------------------------------

TEST_F(ElevateRun, each_kind_has_its_line) {
    REQUIRE_INSTALLED_HELPER();
    pkexec_answers("");
    std::vector<Job> jobs(8);
    jobs[0] = {Job::Kind::Copy, "/from here/ä\xff", "/to \"there\"\\"};
    jobs[1] = {Job::Kind::MakeDir, "", "/new", 0755};
    jobs[2] = {Job::Kind::Remove, "", "/old"};
    jobs[3] = {Job::Kind::Chmod, "", "/file", 04711};
    jobs[4] = {Job::Kind::Chown, "", "/file", 0, 1000, 0};
    jobs[5] = {Job::Kind::Chown, "", "/file", 0, -1, 100};
    jobs[6] = {Job::Kind::Chmod, "", "/file", 0};
    jobs[7] = {Job::Kind::Chmod, "", "/file", static_cast<unsigned>(-1)};
    EXPECT_EQ(elevate::run(jobs).size(), 8U);
    EXPECT_EQ(read_file(m_dir / "batch"), "COPY\t/from here/ä\xff\t/to \"there\"\\\n"
                                          "MKDIR\t/new\t755\n"
                                          "REMOVE\t/old\n"
                                          "CHMOD\t/file\t4711\n"
                                          "CHOWN\t/file\t1000\t0\n"
                                          "CHOWN\t/file\t-1\t100\n"
                                          "CHMOD\t/file\t0\n"
                                          "CHMOD\t/file\t37777777777\n");
    EXPECT_EQ(read_file(m_dir / "words"), std::string(kHelper) + "\n--batch\n");
    EXPECT_EQ(
        test_env::logged(std::string("elevate: asking polkit for 8 operation(s) via ") + kHelper),
        1);
    EXPECT_EQ(test_env::logged("elevate: 0 of 8 operation(s) done, 8 failed"), 1);
}

TEST_F(ElevateRun, a_path_that_no_line_can_hold_leaves_its_word_alone) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("cat >DIR/batch; exec \"$@\" <DIR/batch");
    write_file(m_dir / "good", "x");
    const std::string bad[] = {"/tab\t", "/line\n", std::string("/nul\0", 5)};
    std::vector<Job> jobs;
    for (const std::string& path : bad)
        for (const Job::Kind kind : {Job::Kind::Copy, Job::Kind::MakeDir, Job::Kind::Remove,
                                     Job::Kind::Chmod, Job::Kind::Chown})
            jobs.push_back({kind, "/a", path, 0700, 1, 1});
    jobs.push_back({Job::Kind::Copy, bad[0], "/a"});
    jobs.push_back({Job::Kind::Remove, "", m_dir / "good"});
    const std::vector<Result> results = elevate::run(jobs);
    ASSERT_EQ(results.size(), jobs.size());
    std::string expected;
    for (int i = 0; i < 3; ++i)
        expected += "COPY\nMKDIR\nREMOVE\nCHMOD\nCHOWN\n";
    EXPECT_EQ(read_file(m_dir / "batch"), expected + "COPY\nREMOVE\t" + (m_dir / "good") + "\n");
    for (size_t i = 0; i + 1 < results.size(); ++i)
        EXPECT_EQ(results[i].error, "malformed line") << i;
    EXPECT_EQ(results[0].path, bad[0]);
    EXPECT_TRUE(results.back().ok);
    EXPECT_FALSE(exists(m_dir / "good"));
}

// --- What comes back --------------------------------------------------------------------------

TEST_F(ElevateRun, takes_the_answers_by_their_numbers) {
    REQUIRE_INSTALLED_HELPER();
    const std::string none = kNoAnswer;
    EXPECT_EQ(answered("OK\t1\nOK\t2\nOK\t3\n"), "1 OK | 2 OK | 3 OK");
    EXPECT_EQ(answered("OK\t3\nERR\t1\tno\twith\ttabs \nOK\t2\n"),
              "1 no\twith\ttabs  | 2 OK | 3 OK");
    EXPECT_EQ(answered("OK\t2\n"), "1 " + none + " | 2 OK | 3 " + none);
    EXPECT_EQ(answered(""), "1 " + none + " | 2 " + none + " | 3 " + none);
    EXPECT_EQ(answered("ERR\t2\t\n"), "1 " + none + " | 2  | 3 " + none);
    // One who answers twice is believed the second time.
    EXPECT_EQ(answered("ERR\t1\tno\nOK\t1\n", 1), "1 OK");
    EXPECT_EQ(answered("OK\t1\nERR\t1\tno\n", 1), "1 no");
}

TEST_F(ElevateRun, what_is_no_answer_does_no_harm) {
    REQUIRE_INSTALLED_HELPER();
    for (const char* const garbage :
         {"OK\t0\n",      "OK\t2\n",      "OK\t-1\n",     "OK\t99999999999999999999\n",
          "OK\t\n",       "OK\t1x\n",     "OK\t 1\n",     "OK\t+1\n",
          "OK\t0x1\n",    "OK 1\n",       "OK\n",         "\n",
          "\t\n",         "\t1\n",        "ok\t1\n",      "OKAY\t1\n",
          "ERR\t1\n",     "ERR\t0\tno\n", "ERR\t2\tno\n", "ERR\tno\n",
          "\tOK\t1\n",    "1\tOK\n",      "<html>\t1\n",  "OK\t1",
          "\xff\xfe\t1\n"})
        EXPECT_EQ(answered(garbage, 1), std::string("1 ") + kNoAnswer) << garbage;
    EXPECT_EQ(answered("noise\n\nOK\t1\nmore noise", 1), "1 OK");
    EXPECT_EQ(answered(std::string("\0\nOK\t1\n", 8), 1), "1 OK");
}

TEST_F(ElevateRun, its_exit_status_counts_only_where_it_is_pkexecs) {
    REQUIRE_INSTALLED_HELPER();
    for (const int status : {126, 127}) {
        pkexec_answers("OK\t1\n", status);
        bool declined = false;
        EXPECT_TRUE(elevate::run(copies(1), &declined).empty());
        EXPECT_TRUE(declined);
        EXPECT_TRUE(elevate::run(copies(1)).empty());
        EXPECT_EQ(test_env::logged("elevate: authentication declined or pkexec unavailable (" +
                                   std::to_string(status) + ")"),
                  2);
    }
    for (const int status : {0, 1, 2, 125, 128, 255}) {
        pkexec_answers("OK\t1\n", status);
        bool declined = true;
        EXPECT_EQ(told(elevate::run(copies(1), &declined)), "1 OK") << status;
        EXPECT_FALSE(declined);
    }
}

TEST_F(ElevateRun, a_helper_that_dies_has_done_what_it_answered) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("cat >/dev/null; printf 'OK\\t1\\nOK\\t2\\nOK\\t1'; kill -9 $$");
    bool declined = true;
    EXPECT_EQ(told(elevate::run(copies(12), &declined)).substr(0, 13), "1 OK | 2 OK |");
    EXPECT_FALSE(declined);
    EXPECT_EQ(test_env::logged("elevate: 2 of 12 operation(s) done, 10 failed"), 1);
}

TEST_F(ElevateRun, without_a_job_nobody_is_asked) {
    REQUIRE_INSTALLED_HELPER();
    pkexec_answers("");
    bool declined = true;
    EXPECT_TRUE(elevate::run({}, &declined).empty());
    EXPECT_FALSE(declined);
    EXPECT_FALSE(exists(m_dir / "words"));
}

TEST_F(ElevateRun, without_a_helper_every_job_has_failed) {
    REQUIRE_FRESH_PROCESS();
    if (!elevate::helper_path().empty())
        GTEST_SKIP() << "a helper is installed here";
    pkexec_answers("OK\t1\n");
    bool declined = true;
    const std::string reason = "The helper program is missing; the installation is incomplete.";
    EXPECT_EQ(told(elevate::run(copies(2), &declined)), "1 " + reason + " | 2 " + reason);
    EXPECT_FALSE(declined);
    EXPECT_FALSE(exists(m_dir / "words"));
}

TEST_F(ElevateRun, a_pkexec_that_cannot_be_started_is_every_jobs_failure) {
    REQUIRE_INSTALLED_HELPER();
    setenv("PATH", m_dir.path().c_str(), 1);
    bool declined = true;
    const std::vector<Result> results = elevate::run(copies(2), &declined);
    ASSERT_EQ(results.size(), 2U);
    EXPECT_FALSE(declined);
    EXPECT_NE(results[0].error.find("pkexec"), std::string::npos) << results[0].error;
    EXPECT_EQ(results[1].error, results[0].error);
    EXPECT_EQ(results[1].path, "/to/2");
    EXPECT_EQ(test_env::logged("elevate: " + results[0].error), 1);
}

// --- Much at a time ---------------------------------------------------------------------------

TEST_F(ElevateRun, five_hundred_jobs_with_long_paths_reach_the_helper) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("exec \"$@\"");
    std::string deep = m_dir.path();
    while (deep.size() < 3700)
        deep += "/" + std::string(200, 'x');
    ASSERT_EQ(test_env::run("mkdir -p '" + deep + "'"), 0);
    write_file(deep + "/from", "x");
    std::vector<Job> jobs;
    for (int i = 0; i < 500; ++i)
        jobs.push_back({Job::Kind::Copy, deep + "/from", deep + "/to" + std::to_string(i)});
    int done = 0;
    for (const Result& result : elevate::run(jobs))
        done += result.ok ? 1 : 0;
    EXPECT_EQ(done, 500);
    EXPECT_EQ(read_file(deep + "/to499"), "x");
}

// Both pipes are full at once.
TEST_F(ElevateRun, answers_that_come_before_the_end_of_the_batch_are_no_deadlock) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("awk -v OFS='\\t' '{ print \"ERR\", NR, $0 }'");
    std::vector<Job> jobs;
    for (int i = 0; i < 500; ++i)
        jobs.push_back({Job::Kind::Remove, "", "/" + std::string(4000, 'x')});
    const std::vector<Result> results = elevate::run(jobs);
    ASSERT_EQ(results.size(), 500U);
    EXPECT_EQ(results[499].error, "REMOVE\t/" + std::string(4000, 'x'));
}

TEST_F(ElevateRun, complaints_without_end_are_no_deadlock) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("head -c 1000000 /dev/zero >&2; cat >/dev/null; head -c 1000000 /dev/zero >&2; "
           "printf 'OK\\t1\\n'");
    EXPECT_EQ(told(elevate::run(copies(1))), "1 OK");
}

TEST_F(ElevateRun, its_standard_error_is_open_as_long_as_its_output) {
    REQUIRE_INSTALLED_HELPER();
    // Written to nobody, this would be the script's end.
    pkexec("cat >/dev/null; sleep 0.05; echo complaint >&2 || exit 9; printf 'OK\\t1\\n'");
    EXPECT_EQ(told(elevate::run(copies(1))), "1 OK");
}

// --- The main loop meanwhile ------------------------------------------------------------------

struct Beat {
    int count = 0;
    guint source = 0;
};

gboolean on_beat_cb(gpointer data) {
    ++static_cast<Beat*>(data)->count;
    return TRUE;
}

TEST_F(ElevateRun, one_that_never_reads_stops_neither_the_main_loop_nor_the_program) {
    REQUIRE_INSTALLED_HELPER();
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    ASSERT_EQ(action.sa_handler, SIG_DFL);  // which would end this process
    pkexec("sleep 0.3; exit 0");
    std::vector<Job> jobs(500, {Job::Kind::Remove, "", "/" + std::string(4000, 'x')});
    Beat beat;
    beat.source = g_timeout_add(10, on_beat_cb, &beat);
    const std::vector<Result> results = elevate::run(jobs);
    g_source_remove(beat.source);
    ASSERT_EQ(results.size(), 500U);
    EXPECT_EQ(results[0].error, kNoAnswer);
    EXPECT_GE(beat.count, 10);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

gboolean on_another_child_cb(gpointer) {
    EXPECT_EQ(std::system("sleep 60 >/dev/null 2>&1 & echo $! >\"$ANOTHER\""), 0);
    return FALSE;
}

// It would wait for the end of its input as long as somebody else could still write to it.
TEST_F(ElevateRun, another_child_started_meanwhile_gets_nothing_of_its_streams) {
    REQUIRE_INSTALLED_HELPER();
    setenv("ANOTHER", (m_dir / "another").c_str(), 1);
    pkexec("while ! [ -s DIR/another ]; do sleep 0.01; done; timeout 10 cat >/dev/null && "
           "printf 'OK\\t1\\n'");
    g_idle_add_full(G_PRIORITY_HIGH, on_another_child_cb, nullptr, nullptr);
    std::vector<Job> jobs(500, {Job::Kind::Remove, "", "/" + std::string(4000, 'x')});
    EXPECT_TRUE(elevate::run(jobs)[0].ok);
    kill(std::atoi(read_file(m_dir / "another").c_str()), SIGKILL);
}

TEST_F(ElevateRun, waits_for_the_end_and_not_for_the_output_alone) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("cat >/dev/null; exec >&- 2>&-; sleep 0.1; exit 126");
    bool declined = false;
    (void)elevate::run(copies(1), &declined);
    EXPECT_TRUE(declined);
    // And the other way round: somebody still writes.
    pkexec("cat >/dev/null; (sleep 0.1; printf 'OK\\t1\\n') & exit 0");
    EXPECT_EQ(told(elevate::run(copies(1))), "1 OK");
}

gboolean on_abandon_cb(gpointer) {
    elevate::abandon();
    return FALSE;
}

TEST_F(ElevateRun, what_is_abandoned_is_waited_for_no_longer) {
    REQUIRE_INSTALLED_HELPER();
    pkexec("trap 'echo >DIR/ended; exit 0' TERM; echo >DIR/begun; cat >/dev/null & "
           "while :; do sleep 0.01; done");
    const auto begun = [](gpointer data) -> gboolean {
        if (!exists(*static_cast<std::string*>(data)))
            return TRUE;
        g_timeout_add(1, on_abandon_cb, nullptr);
        return FALSE;
    };
    std::string mark = m_dir / "begun";
    g_timeout_add(5, begun, &mark);
    bool declined = true;
    EXPECT_TRUE(elevate::run(copies(3), &declined).empty());
    EXPECT_FALSE(declined);
    // It is told, and nobody leaves a zombie.
    for (int i = 0; i < 2000 && !exists(m_dir / "ended"); ++i)
        g_usleep(1000);
    EXPECT_TRUE(exists(m_dir / "ended"));
    const auto reaped = [] { return test_env::run("ps --ppid $PPID -o stat= | grep -q Z") != 0; };
    for (int i = 0; i < 2000 && !reaped(); ++i)
        g_main_context_iteration(nullptr, FALSE);
    EXPECT_TRUE(reaped());
    elevate::abandon();  // of nothing
    pkexec_answers("OK\t1\n");
    EXPECT_EQ(told(elevate::run(copies(1))), "1 OK");
}

}  // namespace
