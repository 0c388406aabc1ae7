// The built program's crashes, as a user meets them: by each signal, with the desktop's dialogue
// and mail program replaced by such as record what they are asked.

#include "app_roads.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

using test_env::exists;
using test_env::read_file;
using test_env::write_file;

class CrashRoads : public ProgramRoads {
  protected:
    void SetUp() override {
        ProgramRoads::SetUp();
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // the dialogue becomes a child of ours
        const rlimit none = {};
        setrlimit(RLIMIT_CORE, &none);
        test_env::make_dirs(m_dir / "bin");
        test_env::make_dirs(run());
        for (const char* program : {"zenity", "xdg-open"})
            write_file(m_dir / (std::string("bin/") + program),
                       std::string("#!/bin/bash\nprintf '%s\\n' \"$@\" >'") + m_dir.path() + "/" +
                           program + "'\n[ " + program + " = xdg-open ] || echo 'I clicked'\n",
                       0755);
        set("PATH", m_dir / "bin:/usr/bin:/bin");
        set("XDG_RUNTIME_DIR", run());
        set("LC_ALL", "C.UTF-8");
        set("LANGUAGE", "");
        set("LANG", "");
    }
    void TearDown() override {
        for (const auto& [name, value] : m_before)
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }
    void set(const std::string& name, const std::string& value) {
        const char* const before = std::getenv(name.c_str());
        m_before.emplace(name, before ? std::optional<std::string>(before) : std::nullopt);
        setenv(name.c_str(), value.c_str(), 1);
    }
    // Not only blanks and quotes: what a shell would do something with.
    std::string run() { return m_dir / "it's a \"run\" $HOME"; }
    std::string report() { return run() + "/Ferrodeck_crash.txt"; }
    std::string recorded(const std::string& program) {
        return exists(m_dir / program) ? read_file(m_dir / program) : "not run";
    }
    // Until the window is there and its work has begun.
    void open(const std::vector<std::string>& more = {}) {
        std::remove(m_program.log_path().c_str());
        std::vector<std::string> words = sides();
        words.insert(words.end(), more.begin(), more.end());
        m_program.start(words);
        ASSERT_TRUE(wait_until(60, [this] {
            for (const std::string& line : m_program.log())
                if (line.rfind("language ", 0) == 0)
                    return true;
            return false;
        }));
    }
    // Reaps whatever of the program's children has ended, among them those that looked for
    // archivers. True once that was the dialogue's shell.
    static bool reap_dialogue() {
        siginfo_t info = {};
        while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid > 0) {
            const std::string name = read_file("/proc/" + std::to_string(info.si_pid) + "/comm");
            waitpid(info.si_pid, nullptr, 0);
            if (name == "bash\n")
                return true;
            info = {};
        }
        return false;
    }
    static bool dialogue_ends() { return wait_until(20, reap_dialogue); }
    // Whether the dialogue's shell is there.
    static bool dialogue_lives() {
        const std::string self = std::to_string(getpid());
        std::istringstream children(read_file("/proc/self/task/" + self + "/children"));
        for (std::string pid; children >> pid;) {
            std::ifstream comm("/proc/" + pid + "/comm");
            std::string name;
            std::getline(comm, name);
            if (name == "bash")
                return true;
        }
        return false;
    }
    void crash(int number, const std::string& text) {
        open();
        m_program.signal(number);
        EXPECT_EQ(m_program.wait(), 128 + number) << text;
        EXPECT_TRUE(m_program.killed()) << text;
        ASSERT_TRUE(dialogue_ends()) << text;
        const std::string written = read_file(report());
        EXPECT_EQ(written.rfind("=== Ferrodeck Crash Report ===\nVersion: ", 0), 0U) << written;
        for (const std::string& part :
             {"\nSignal: " + text + " (" + std::to_string(number) + ")\nTime: ",
              std::string("\nBacktrace:\n/"),
              "\nLog (written up to the crash):\n  " + m_program.log_path() + "\n",
              std::string("\n=== End Report ===\n\nUser description:\nI clicked\n")})
            EXPECT_NE(written.find(part), std::string::npos) << part << "\nin\n" << written;
        EXPECT_NE(recorded("zenity").find("\n--cancel-label=Don't send\n"), std::string::npos)
            << recorded("zenity");
        const std::string opened = recorded("xdg-open");
        EXPECT_EQ(opened.rfind("mailto:", 0), 0U) << opened;
        EXPECT_NE(opened.find("/it%27s%20a%20%22run%22%20%24HOME/Ferrodeck_crash.txt\n"),
                  std::string::npos)
            << opened;
    }

    test_env::TempDir m_dir;
    std::map<std::string, std::optional<std::string>> m_before;
};

TEST_F(CrashRoads, a_segmentation_fault) {
    crash(SIGSEGV, "SIGSEGV (Segmentation fault)");
}

TEST_F(CrashRoads, an_abort) {
    crash(SIGABRT, "SIGABRT (Abort)");
}

TEST_F(CrashRoads, a_floating_point_exception) {
    crash(SIGFPE, "SIGFPE (Floating point exception)");
}

TEST_F(CrashRoads, a_bus_error) {
    crash(SIGBUS, "SIGBUS (Bus error)");
}

TEST_F(CrashRoads, an_illegal_instruction) {
    crash(SIGILL, "SIGILL (Illegal instruction)");
}

TEST_F(CrashRoads, a_trap) {
    crash(SIGTRAP, "SIGTRAP (Trap — usually a fatal GLib/GTK error)");
}

TEST_F(CrashRoads, a_german_session_is_asked_in_german) {
    set("LANG", "de_DE.UTF-8");  // LC_ALL names another language
    open();
    m_program.signal(SIGSEGV);
    EXPECT_EQ(m_program.wait(), 128 + SIGSEGV);
    ASSERT_TRUE(dialogue_ends());
    EXPECT_NE(recorded("zenity").find("\n--ok-label=Absturzbericht senden\n"
                                      "--cancel-label=Nicht senden\n"),
              std::string::npos)
        << recorded("zenity");
}

// The empty script runs nothing, but whoever gives it is no user.
TEST_F(CrashRoads, an_unattended_run_leaves_the_report_and_a_status) {
    for (const int number : {SIGABRT, SIGSEGV}) {
        open({"--action="});
        m_program.signal(number);
        EXPECT_EQ(m_program.wait(), number == SIGABRT ? 134 : 139);
        EXPECT_FALSE(m_program.killed());
        EXPECT_EQ(recorded("zenity"), "not run");
        EXPECT_NE(read_file(report()).find("\n=== End Report ===\n"), std::string::npos);
        EXPECT_FALSE(dialogue_lives());
    }
}

}  // namespace
