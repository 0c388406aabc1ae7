// What remains when a process dies: the report, the dialogue's script, and how the process ends.

#include "crash_handler.h"

#include "fresh_process.h"
#include "maker.h"
#include "sanitized.h"
#include "shim.h"
#include "test_env.h"
#include "wait_until.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <regex>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using test_env::answer_of_child;
using test_env::exists;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

struct Fatal {
    int number;
    const char* text;
};

// In the order in which they are registered.
constexpr Fatal kFatal[] = {
    {SIGSEGV, "SIGSEGV (Segmentation fault)"},
    {SIGABRT, "SIGABRT (Abort)"},
    {SIGFPE, "SIGFPE (Floating point exception)"},
    {SIGBUS, "SIGBUS (Bus error)"},
    {SIGILL, "SIGILL (Illegal instruction)"},
    {SIGTRAP, "SIGTRAP (Trap — usually a fatal GLib/GTK error)"},
};

// Each test's dying process finds programs in m_bin first, and the report's folder is m_run.
class Crash : public ::testing::Test {
  protected:
    Crash() : m_run(m_dir / "run") {
        test_env::make_dirs(m_run);
        test_env::make_dirs(m_dir / "bin");
        test_env::make_dirs(m_dir / "record");
        // The dialogue of a process that has died becomes a child of ours.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }
    ~Crash() override {
        while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR)
            continue;
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }

    std::string report() const { return m_run + "/Ferrodeck_crash.txt"; }
    std::string recorded(const std::string& program) const {
        const std::string file = m_dir / ("record/" + program);
        return exists(file) ? read_file(file) : "not run";
    }
    // Records its arguments, one in a line.
    void fake(const std::string& program, const std::string& then) {
        write_file(m_dir / ("bin/" + program),
                   "#!/bin/bash\nprintf '%s\\n' \"$@\" >'" + m_dir.path() + "/record/" + program +
                       "'\n" + then + "\n",
                   0755);
    }
    void fake_desktop(int zenity_ends_with) {
        fake("zenity", "echo 'it \"just\" died'; exit " + std::to_string(zenity_ends_with));
        fake("xdg-open", "exit 3");
    }

    // The wait status of a process that has installed the handler and done that.
    int end_of(const std::function<void()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            const rlimit none = {};
            setrlimit(RLIMIT_CORE, &none);
            for (const char* name : {"LC_ALL", "LANGUAGE", "LANG", "SNAP_VERSION", "SNAP_REVISION",
                                     "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE"})
                unsetenv(name);
            setenv("XDG_RUNTIME_DIR", m_run.c_str(), 1);
            setenv("PATH", (m_dir / "bin:/usr/bin:/bin").c_str(), 1);
            CrashHandler::install();
            body();
            _exit(99);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }
    // How many processes it has left behind, now ended.
    static int dialogues() {
        int count = 0;
        for (;;) {
            if (waitpid(-1, nullptr, 0) > 0)
                ++count;
            else if (errno != EINTR)
                return count;
        }
    }
    static void expect_killed_by(int status, int number) {
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
    }

    TempDir m_dir;
    std::string m_run;
};

// --- Installing -------------------------------------------------------------------------------

TEST_F(Crash, six_signals_with_an_empty_mask_and_one_flag) {
    for (const Fatal& fatal : kFatal) {
        const std::string found = answer_of_child([&fatal] {
            CrashHandler::install();
            struct sigaction set = {};
            sigaction(fatal.number, nullptr, &set);
            for (int number = 1; number <= 64; ++number)
                if (sigismember(&set.sa_mask, number) == 1)
                    return std::string("masks ") + std::to_string(number);
            constexpr int kRestorer = 0x04000000;  // libc's own
            return std::string(set.sa_handler != SIG_DFL && set.sa_handler != SIG_IGN
                                   ? "set "
                                   : "not set ") +
                   std::to_string(static_cast<unsigned>(set.sa_flags & ~kRestorer));
        });
        EXPECT_EQ(found, "set " + std::to_string(SA_RESETHAND)) << fatal.text;
    }
}

TEST_F(Crash, they_are_registered_in_their_order) {
    const std::string found = answer_of_child([]() -> std::string {
        const std::string why_not = shim::install({SYS_rt_sigaction});
        if (!why_not.empty())
            return "shim: " + why_not;
        std::string order;
        shim::rule(
            SYS_rt_sigaction,
            [&order](const shim::Call& call) {
                order += std::to_string(call.args[0]) + " ";
                return shim::go();
            },
            [](const shim::Call& call) { return call.args[1] != 0; });
        CrashHandler::install();
        shim::clear();
        return order;
    });
    if (found.rfind("shim: ", 0) == 0)
        GTEST_SKIP() << found;
    std::string expected;
    for (const Fatal& fatal : kFatal)
        expected += std::to_string(fatal.number) + " ";
    EXPECT_EQ(found, expected);
}

// --- The report -------------------------------------------------------------------------------

TEST_F(Crash, each_signal_leaves_its_report_and_ends_the_process_itself) {
    for (const Fatal& fatal : kFatal) {
        expect_killed_by(end_of([&fatal] { raise(fatal.number); }), fatal.number);
        const std::string text = read_file(report());
        struct utsname host = {};
        uname(&host);
        const std::string pattern = std::string("=== Ferrodeck Crash Report ===\n") +
                                    "Version: " FERRODECK_VERSION " \\(Build " FERRODECK_BUILD
                                    "\\)\n"
                                    "Signal: (.*) \\((\\d+)\\)\n"
                                    "Time: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n"
                                    "System: (.*)\n"
                                    "Desktop: unknown \\(unknown\\)\n"
                                    "Snap: no\n"
                                    "\nBacktrace:\n"
                                    "([^\n]+\\[0x[0-9a-f]+\\]\n)+"
                                    "\n\nLog \\(written up to the crash\\):\n  (.*)\n"
                                    "\n=== End Report ===\n";
        std::smatch found;
        ASSERT_TRUE(std::regex_match(text, found, std::regex(pattern))) << text;
        EXPECT_EQ(found[1], fatal.text);
        EXPECT_EQ(found[2], std::to_string(fatal.number));
        for (const char* part : {host.sysname, host.release, host.machine})
            EXPECT_NE(found[3].str().find(part), std::string::npos) << part;
        EXPECT_EQ(found[5], test_env::root() + "/config/Ferrodeck/Ferrodeck.log");
        EXPECT_EQ(test_env::lstat_of(report()).st_mode & 07777, 0600U);
    }
}

TEST_F(Crash, the_report_names_snap_and_desktop) {
    end_of([] {
        setenv("SNAP_VERSION", "1.2", 1);
        setenv("SNAP_REVISION", "34", 1);
        setenv("XDG_CURRENT_DESKTOP", "KDE", 1);
        setenv("XDG_SESSION_TYPE", "wayland", 1);
        raise(SIGSEGV);
    });
    const std::string text = read_file(report());
    EXPECT_NE(text.find(")\nSnap revision: 34\nSignal: "), std::string::npos) << text;
    EXPECT_NE(text.find("\nDesktop: KDE (wayland)\nSnap: yes (v1.2)\n\nBacktrace:\n"),
              std::string::npos)
        << text;
}

TEST_F(Crash, an_empty_revision_is_not_named) {
    end_of([] {
        setenv("SNAP_REVISION", "", 1);
        raise(SIGSEGV);
    });
    EXPECT_EQ(read_file(report()).find("Snap revision"), std::string::npos);
}

TEST_F(Crash, a_real_fault_on_another_thread_is_reported) {
    expect_killed_by(end_of([] { std::thread([] { std::abort(); }).join(); }), SIGABRT);
    EXPECT_NE(read_file(report()).find("Signal: SIGABRT (Abort) (6)\n"), std::string::npos);
}

TEST_F(Crash, without_a_runtime_folder_the_report_is_in_tmp) {
    const std::string found = answer_of_child([this]() -> std::string {
        if (!test_env::enter_private_mounts() || !test_env::mount_tmpfs("/tmp"))
            return "no mounts";
        std::string lines;
        for (const bool empty : {false, true}) {
            end_of([empty] {
                CrashHandler::set_silent(true);
                empty ? setenv("XDG_RUNTIME_DIR", "", 1) : unsetenv("XDG_RUNTIME_DIR");
                raise(SIGSEGV);
            });
            lines += read_file("/tmp/Ferrodeck_crash.txt").substr(0, 15) + "\n";
            unlink("/tmp/Ferrodeck_crash.txt");
        }
        return lines;
    });
    if (found == "no mounts")
        GTEST_SKIP() << "no private mount namespace to be had (needs root)";
    EXPECT_EQ(found, "=== Ferrodeck C\n=== Ferrodeck C\n");
}

TEST_F(Crash, an_older_report_of_ones_own_is_replaced) {
    write_file(report(), std::string(100000, 'x'), 0644);
    ASSERT_EQ(link(report().c_str(), (m_dir / "older").c_str()), 0);
    end_of([] { raise(SIGSEGV); });
    EXPECT_EQ(read_file(report()).rfind("=== Ferrodeck", 0), 0U);
    EXPECT_EQ(test_env::lstat_of(report()).st_mode & 07777, 0600U);
    EXPECT_EQ(read_file(m_dir / "older"), std::string(100000, 'x'));
}

TEST_F(Crash, a_link_in_the_reports_place_is_not_followed) {
    write_file(m_dir / "precious", "mine");
    ASSERT_EQ(symlink((m_dir / "precious").c_str(), report().c_str()), 0);
    end_of([] { raise(SIGSEGV); });
    EXPECT_EQ(read_file(m_dir / "precious"), "mine");
    EXPECT_TRUE(S_ISREG(test_env::lstat_of(report()).st_mode));
}

TEST_F(Crash, what_another_user_has_put_there_stays_and_there_is_no_dialogue) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, who can give files away";
    fake_desktop(0);
    write_file(m_dir / "precious", "theirs");
    for (const bool is_link : {false, true}) {
        unlink(report().c_str());
        if (is_link)
            ASSERT_EQ(symlink((m_dir / "precious").c_str(), report().c_str()), 0);
        else
            write_file(report(), "theirs", 0666);
        ASSERT_EQ(lchown(report().c_str(), 65534, 65534), 0);
        expect_killed_by(end_of([] { raise(SIGFPE); }), SIGFPE);
        EXPECT_EQ(dialogues(), 0);
        EXPECT_EQ(read_file(report()), "theirs") << is_link;
        EXPECT_EQ(S_ISLNK(test_env::lstat_of(report()).st_mode), is_link);
    }
}

TEST_F(Crash, a_report_that_cannot_be_written_gives_up_the_dialogue) {
    fake_desktop(0);
    for (const Fatal& fatal : kFatal) {
        expect_killed_by(end_of([&fatal] {
                             setenv("XDG_RUNTIME_DIR", "/nonexistent", 1);
                             raise(fatal.number);
                         }),
                         fatal.number);
        EXPECT_EQ(dialogues(), 0);
    }
    EXPECT_EQ(recorded("zenity"), "not run");
}

// --- Silent -----------------------------------------------------------------------------------

TEST_F(Crash, a_silent_crash_leaves_the_report_and_a_status) {
    fake_desktop(0);
    for (const Fatal& fatal : kFatal) {
        unlink(report().c_str());
        const int status = end_of([&fatal] {
            CrashHandler::set_silent(true);
            raise(fatal.number);
        });
        EXPECT_TRUE(WIFEXITED(status)) << fatal.text;
        EXPECT_EQ(WEXITSTATUS(status), fatal.number == SIGABRT ? 134 : 139) << fatal.text;
        const std::string text = read_file(report());
        EXPECT_NE(text.find(std::string("Signal: ") + fatal.text), std::string::npos);
        EXPECT_NE(text.find("\n=== End Report ===\n"), std::string::npos);
        EXPECT_EQ(dialogues(), 0);
    }
    EXPECT_EQ(recorded("zenity"), "not run");
}

TEST_F(Crash, silence_can_be_ended) {
    expect_killed_by(end_of([] {
                         CrashHandler::set_silent(true);
                         CrashHandler::set_silent(false);
                         raise(SIGSEGV);
                     }),
                     SIGSEGV);
}

// --- The dialogue -----------------------------------------------------------------------------

constexpr char kEnglishArguments[] =
    "--text-info\n--editable\n"
    "--title=Ferrodeck - Can you describe when the error occurred?\n"
    "--width=500\n--height=250\n"
    "--ok-label=Send crash report\n--cancel-label=Don't send\n";
constexpr char kGermanArguments[] =
    "--text-info\n--editable\n"
    "--title=Ferrodeck - Können Sie beschreiben, wann der Fehler aufgetreten ist?\n"
    "--width=500\n--height=250\n"
    "--ok-label=Absturzbericht senden\n--cancel-label=Nicht senden\n";

TEST_F(Crash, a_user_who_agrees_gets_a_mail_and_the_report_what_was_typed) {
    fake_desktop(0);
    expect_killed_by(end_of([] { raise(SIGSEGV); }), SIGSEGV);
    EXPECT_EQ(dialogues(), 1);
    EXPECT_EQ(recorded("zenity"), kEnglishArguments);
    const std::string text = read_file(report());
    const std::string end = "\n=== End Report ===\n\nUser description:\nit \"just\" died\n";
    ASSERT_GT(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
    const size_t at = text.find("\nTime: ") + 7;
    std::string time = text.substr(at, text.find('\n', at) - at);
    time = std::regex_replace(time, std::regex(" "), "%20");
    time = std::regex_replace(time, std::regex(":"), "%3A");
    EXPECT_EQ(recorded("xdg-open"),
              std::string("mailto:") + maker::kContact +
                  "?subject=Ferrodeck%20Crash%3A%20SIGSEGV%20%28Segmentation%20fault%29%20-%20" +
                  time + "&body=Please attach this file: " + report() + "\n");
}

TEST_F(Crash, a_user_who_declines_keeps_the_report_as_it_is) {
    fake_desktop(1);
    end_of([] { raise(SIGSEGV); });
    EXPECT_EQ(dialogues(), 1);
    EXPECT_EQ(recorded("zenity"), kEnglishArguments);
    EXPECT_EQ(recorded("xdg-open"), "not run");
    const std::string text = read_file(report());
    EXPECT_EQ(text.substr(text.size() - 19), "=== End Report ===\n");
}

TEST_F(Crash, without_a_dialogue_program_there_is_no_mail) {
    fake("xdg-open", "");
    end_of([this] {
        setenv("PATH", (m_dir / "bin").c_str(), 1);
        raise(SIGSEGV);
    });
    EXPECT_EQ(dialogues(), 1);
    EXPECT_EQ(recorded("xdg-open"), "not run");
    EXPECT_EQ(read_file(report()).find("User description"), std::string::npos);
}

TEST_F(Crash, quotes_blanks_and_dollars_in_the_reports_path_stay_what_they_are) {
    fake_desktop(0);
    m_run = m_dir / "it's \"my\" $HOME `id` 100% \\ ü";
    test_env::make_dirs(m_run);
    end_of([] { raise(SIGTRAP); });
    EXPECT_EQ(dialogues(), 1);
    EXPECT_NE(read_file(report()).find("\nUser description:\nit \"just\" died\n"),
              std::string::npos);
    const std::string opened = recorded("xdg-open");
    EXPECT_NE(opened.find("&body=Please attach this file: " + m_dir.path() +
                          "/it%27s%20%22my%22%20%24HOME%20%60id%60%20100%25%20%5C%20%C3%BC/"
                          "Ferrodeck_crash.txt\n"),
              std::string::npos)
        << opened;
    EXPECT_NE(opened.find("%20SIGTRAP%20%28Trap%20%E2%80%94%20usually"), std::string::npos)
        << opened;
}

TEST_F(Crash, any_of_three_variables_decides_for_german) {
    struct Case {
        const char* lc_all;
        const char* language;
        const char* lang;
        bool german;
    };
    constexpr Case kCases[] = {
        {nullptr, nullptr, nullptr, false},
        {"C", "", "de_DE.UTF-8", true},
        {"fr_FR.UTF-8", nullptr, "de_DE.UTF-8", true},
        {"en_US.UTF-8", "de", "en_US.UTF-8", true},
        {"de_AT", "en", "en", true},
        {"en_US.UTF-8", "en:de", "nl_NL.UTF-8", false},
        {"DE", "", "", false},
    };
    for (const Case& it : kCases)
        EXPECT_EQ(answer_of_child([&it] {
                      const auto put = [](const char* name, const char* value) {
                          value ? setenv(name, value, 1) : unsetenv(name);
                      };
                      put("LC_ALL", it.lc_all);
                      put("LANGUAGE", it.language);
                      put("LANG", it.lang);
                      return std::string(CrashHandler::german_session() ? "de" : "en");
                  }),
                  it.german ? "de" : "en")
            << (it.lc_all ? it.lc_all : "-");
}

TEST_F(Crash, the_german_dialogue_has_german_words) {
    fake_desktop(0);
    end_of([] {
        setenv("LANG", "de_DE.UTF-8", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        raise(SIGILL);
    });
    EXPECT_EQ(dialogues(), 1);
    EXPECT_EQ(recorded("zenity"), kGermanArguments);
    EXPECT_NE(recorded("xdg-open").find("&body=Bitte die Datei anhaengen: " + m_run),
              std::string::npos);
}

TEST_F(Crash, the_dialogue_runs_as_a_program_of_its_own) {
    fake("zenity", "exec >'" + m_dir.path() +
                       "/record/state'\n"
                       "echo \"$DISPLAY|$WAYLAND_DISPLAY|$XAUTHORITY\"\n"
                       "readlink /proc/self/fd/0\n"
                       "grep -E '^Sig(Blk|Ign):' /proc/self/status\n"
                       "exit 1");
    end_of([] {
        setenv("DISPLAY", ":7", 1);
        unsetenv("WAYLAND_DISPLAY");
        setenv("XAUTHORITY", "/x auth", 1);
        std::signal(SIGPIPE, SIG_IGN);
        raise(SIGSEGV);
    });
    EXPECT_EQ(dialogues(), 1);
    std::smatch found;
    const std::string state = recorded("state");
    ASSERT_TRUE(std::regex_match(state, found,
                                 std::regex(":7\\|\\|/x auth\n/dev/null\n"
                                            "SigBlk:\t([0-9a-f]+)\nSigIgn:\t([0-9a-f]+)\n")))
        << state;
    EXPECT_EQ(std::stoull(found[1], nullptr, 16) >> (SIGSEGV - 1) & 1, 0U);
    EXPECT_EQ(std::stoull(found[2], nullptr, 16) >> (SIGPIPE - 1) & 1, 0U);
}

std::string script_of(const CrashHandler::Dialog& dialog) {
    std::string script(1 << 16, '\0');
    EXPECT_TRUE(CrashHandler::dialog_script(dialog, script.data(), script.size()));
    return script.c_str();
}

TEST_F(Crash, the_script_line_by_line) {
    CrashHandler::Dialog dialog;
    dialog.report = "/run/it's/Ferrodeck_crash.txt";
    dialog.contact = "a@b.example";
    dialog.subject = "Ferrodeck Crash: SIGABRT (Abort) - 2026-01-02 03:04:05";
    EXPECT_EQ(script_of(dialog),
              "DESC=$(zenity --text-info --editable "
              "--title='Ferrodeck - Can you describe when the error occurred?' "
              "--width=500 --height=250 --ok-label='Send crash report' "
              "--cancel-label='Don'\\''t send' 2>/dev/null)\n"
              "if [ $? -ne 0 ]; then exit 0; fi\n"
              "echo '' >> '/run/it'\\''s/Ferrodeck_crash.txt'\n"
              "echo 'User description:' >> '/run/it'\\''s/Ferrodeck_crash.txt'\n"
              "echo \"$DESC\" >> '/run/it'\\''s/Ferrodeck_crash.txt'\n"
              "BODY='Please attach this file: '\n"
              "xdg-open \"mailto:a@b.example?subject=Ferrodeck%20Crash%3A%20SIGABRT%20%28Abort%29"
              "%20-%202026-01-02%2003%3A04%3A05&body=${BODY}/run/it%27s/Ferrodeck_crash.txt\" "
              "2>/dev/null || true\n");
    dialog.german = true;
    dialog.report = "/r";
    const std::string german = script_of(dialog);
    EXPECT_EQ(german.substr(0, german.find('\n')),
              "DESC=$(zenity --text-info --editable "
              "--title='Ferrodeck - Können Sie beschreiben, wann der Fehler aufgetreten ist?' "
              "--width=500 --height=250 --ok-label='Absturzbericht senden' "
              "--cancel-label='Nicht senden' 2>/dev/null)");
    EXPECT_NE(german.find("\nBODY='Bitte die Datei anhaengen: '\n"), std::string::npos);
}

TEST_F(Crash, an_address_keeps_letters_digits_and_five_more) {
    std::string every_byte;
    std::string encoded;
    const std::string kept = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./~";
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        char text[4];
        std::snprintf(text, sizeof text, "%%%02X", static_cast<unsigned>(byte));
        every_byte += c;
        encoded += kept.find(c) != std::string::npos ? std::string(1, c) : text;
    }
    CrashHandler::Dialog dialog;
    dialog.contact = "c";
    dialog.subject = every_byte.c_str();
    dialog.report = "/r";
    EXPECT_NE(script_of(dialog).find("\"mailto:c?subject=" + encoded + "&body=${BODY}/r\" "),
              std::string::npos);
}

TEST_F(Crash, a_script_that_does_not_fit_is_none) {
    CrashHandler::Dialog dialog;
    dialog.report = "/some/where";
    const size_t needed = script_of(dialog).size() + 1;
    std::string room(needed, 'x');
    EXPECT_TRUE(CrashHandler::dialog_script(dialog, room.data(), needed));
    EXPECT_FALSE(CrashHandler::dialog_script(dialog, room.data(), needed - 1));
    EXPECT_FALSE(CrashHandler::dialog_script(dialog, room.data(), 1));
    // The longest path there may be, all of it quotes.
    const std::string longest(4095, '\'');
    dialog.report = longest.c_str();
    script_of(dialog);
}

// A program that dies inside malloc(), with its lock held, did not end: the report, the fork or the
// script waited for that lock for ever.
TEST_F(Crash, a_death_inside_malloc_ends_as_any_other) {
    fake_desktop(1);
    for (int round = 0; round < (test_env::kSanitized ? 5 : 30); ++round) {
        const pid_t child = fork();
        if (child == 0) {
            const rlimit none = {};
            setrlimit(RLIMIT_CORE, &none);
            setenv("XDG_RUNTIME_DIR", m_run.c_str(), 1);
            setenv("PATH", (m_dir / "bin:/usr/bin:/bin").c_str(), 1);
            CrashHandler::install();
            const pthread_t main_thread = pthread_self();
            std::thread([main_thread] {
                usleep(2000);
                pthread_kill(main_thread, SIGSEGV);
            }).detach();
            for (size_t size = 2000;; size = size < 60000 ? size + 512 : 2000) {
                void* volatile block = std::malloc(size);  // past what needs no lock
                std::free(block);
            }
        }
        int status = 0;
        const bool ended =
            test_env::wait_until([&] { return waitpid(child, &status, WNOHANG) == child; }, 10);
        if (!ended) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        ASSERT_TRUE(ended) << "round " << round;
        expect_killed_by(status, SIGSEGV);
        pid_t dialogue = 0;
        ASSERT_TRUE(test_env::wait_until(
            [&] { return (dialogue = waitpid(-1, nullptr, WNOHANG)) > 0; }, 10))
            << "round " << round;
        ASSERT_NE(recorded("zenity"), "not run");
    }
}

}  // namespace
