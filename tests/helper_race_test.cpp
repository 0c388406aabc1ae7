// The helper that works with root's rights against somebody who exchanges folders, files and links
// in a folder of his own while it works there. Whatever it answers, nothing outside the folder that
// is named may change, and nothing may come out of one that he cannot read.

#include "as_user.h"
#include "fresh_process.h"
#include "run_helper.h"
#include "test_env.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using test_env::read_file;
using test_env::write_file;

constexpr char kSecret[] = "a secret of root's";
constexpr int kLines = 400;  // of one batch

// Everything about a tree but the times of looking, and what a second name changes.
std::map<std::string, std::string> facts_of(const std::string& tree) {
    std::map<std::string, std::string> facts;
    for (const auto& entry : fs::recursive_directory_iterator(tree)) {
        const struct stat st = test_env::lstat_of(entry.path());
        std::string text = std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " " +
                           std::to_string(st.st_gid) + " " + std::to_string(st.st_ino) + " " +
                           std::to_string(st.st_mtim.tv_sec) + "." +
                           std::to_string(st.st_mtim.tv_nsec) + " ";
        if (S_ISREG(st.st_mode))
            text += read_file(entry.path());
        facts[entry.path()] = text;
    }
    const struct stat st = test_env::lstat_of(tree);
    facts[tree] = std::to_string(st.st_mode) + " " + std::to_string(st.st_uid) + " " +
                  std::to_string(st.st_mtim.tv_nsec);
    return facts;
}

class Race {
  public:
    // home/way/file is what the helper is sent to. `way` is now a folder and now a link to the
    // secrets, `file` now a file, now a link, now a second name of a secret, and what the helper
    // makes meanwhile is replaced as soon as it is seen.
    explicit Race(const std::string& root) : m_secrets(root + "/secrets"), m_home(root + "/home") {
        fs::create_directory(m_secrets);
        fs::create_directory(m_secrets + "/inner");
        for (const char* const name : {"/file", "/new", "/out", "/inner/file"})
            write_file(m_secrets + name, kSecret, 0600);
        fs::permissions(m_secrets, fs::perms{0711});
        fs::create_directories(m_home + "/way");
        fs::create_directory(m_home + "/roots");
        write_file(m_home + "/roots/file", "root's", 0644);
        write_file(m_home + "/way/file", "plain");
        fs::create_symlink(m_secrets, m_home + "/other way");
        fs::create_symlink(m_secrets + "/file", m_home + "/way/other file");
        fs::create_hard_link(m_secrets + "/file", m_home + "/way/third file");
        for (const char* const name : {"", "/way", "/way/file", "/other way", "/way/other file"})
            EXPECT_EQ(lchown((m_home + name).c_str(), as_user::kUid, as_user::kUid), 0);
        m_before = facts_of(m_secrets);
        start_attacker();
    }
    ~Race() {
        kill(m_attacker, SIGKILL);
        waitpid(m_attacker, nullptr, 0);
    }

    // One batch of every kind of line. False: something outside has changed.
    [[nodiscard]] bool round() {
        const test_env::HelperRun run =
            test_env::run_helper(batch(), "PKEXEC_UID=" + std::to_string(as_user::kUid));
        EXPECT_EQ(run.status, 0);
        count(run.output);
        pause();
        EXPECT_EQ(facts_of(m_secrets), m_before);
        const bool good = facts_of(m_secrets) == m_before && nothing_is_out();
        kill(m_attacker, SIGCONT);
        return good;
    }
    int done() const { return m_done; }
    int refused() const { return m_refused; }

  private:
    std::string batch() const {
        const std::string way = m_home + "/way";
        const std::string lines[] = {
            "COPY\t" + way + "/file\t" + m_home + "/out\n",
            "COPY\t" + m_home + "/roots/file\t" + way + "/file\n",
            "CHMOD\t" + way + "/file\t666\n",
            "CHOWN\t" + way + "/file\t65534\t65534\n",
            "MKDIR\t" + way + "/new/newer\t777\n",
            "COPY\t" + m_home + "/roots/file\t" + way + "/new/out\n",
            "REMOVE\t" + way + "/new/out\n",
            "REMOVE\t" + way + "/new/newer\n",
            "REMOVE\t" + way + "/new\n",
            "CHMOD\t" + way + "\t777\n",
        };
        std::string text;
        for (int i = 0; i < kLines; ++i)
            text += lines[static_cast<size_t>(i) % std::size(lines)];
        return text;
    }

    void count(const std::string& answers) {
        for (size_t at = 0; at < answers.size(); at = answers.find('\n', at) + 1)
            ++(answers.compare(at, 3, "OK\t") == 0 ? m_done : m_refused);
    }

    // What lies in the attacker's folders, but for the second name that he had himself.
    bool nothing_is_out() const {
        bool good = true;
        for (const auto& entry : fs::recursive_directory_iterator(m_home)) {
            const struct stat st = test_env::lstat_of(entry.path());
            if (S_ISREG(st.st_mode) && st.st_nlink == 1)
                good = good && read_file(entry.path()) != kSecret;
        }
        EXPECT_TRUE(good);
        return good;
    }

    void pause() const {
        kill(m_attacker, SIGSTOP);
        waitpid(m_attacker, nullptr, WUNTRACED);
    }

    void start_attacker() {
        const pid_t parent = getpid();
        m_attacker = fork();
        if (m_attacker != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent || setgroups(0, nullptr) != 0 ||
            setresgid(as_user::kUid, as_user::kUid, as_user::kUid) != 0 ||
            setresuid(as_user::kUid, as_user::kUid, as_user::kUid) != 0 ||
            chdir(m_home.c_str()) != 0)
            _exit(1);
        for (unsigned turn = 0;; ++turn) {
            exchange("way", "other way");
            exchange("way/file", turn % 2 ? "way/other file" : "way/third file");
            if (turn % 3 == 0)
                exchange("way/new", "roots");
            if (turn % 3 == 1)
                exchange("way/new", "other way");
            replace_temporaries(".");
            replace_temporaries("way");
        }
    }
    static void exchange(const char* a, const char* b) {
        renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
    }
    void replace_temporaries(const char* folder) const {
        DIR* const entries = opendir(folder);
        if (!entries)
            return;
        while (const struct dirent* entry = readdir(entries))
            if (entry->d_name[0] == '.' && entry->d_name[1] == 'f') {
                const std::string path = std::string(folder) + "/" + entry->d_name;
                unlink(path.c_str());
                (void)!symlink((m_secrets + "/file").c_str(), path.c_str());
            }
        closedir(entries);
    }

    std::string m_secrets;
    std::string m_home;
    std::map<std::string, std::string> m_before;
    pid_t m_attacker = -1;
    int m_done = 0;
    int m_refused = 0;
};

// On a file system of its own, so that a helper that is led astray harms nobody.
#define REQUIRE_GROUND_OF_ITS_OWN()                                                                \
    REQUIRE_FRESH_PROCESS();                                                                       \
    if (geteuid() != 0)                                                                            \
        GTEST_SKIP() << "not root";                                                                \
    REQUIRE_PRIVATE_MOUNTS();                                                                      \
    ASSERT_TRUE(test_env::mount_tmpfs("/mnt", "mode=755"));

void run_race(int lines) {
    Race race("/mnt");
    for (int done = 0; done < lines; done += kLines)
        if (!race.round())
            return;
    std::printf("%d lines carried out, %d refused\n", race.done(), race.refused());
    // Neither was always too late.
    EXPECT_GT(race.done(), lines / 100);
    EXPECT_GT(race.refused(), lines / 100);
}

TEST(HelperRace, somebody_who_exchanges_what_is_named_gets_nothing) {
    REQUIRE_GROUND_OF_ITS_OWN();
    run_race(10 * kLines);
}

TEST(NightlyHelperRace, not_in_a_hundred_thousand_rounds) {
    REQUIRE_GROUND_OF_ITS_OWN();
    run_race(100'000);
}

// --- The worst moment -------------------------------------------------------------------------

// The helper on one line, halted before each system call that it makes once it has its input.
// before(n) is called at the n-th of them, from 1. Returns how many there were; -1: it did not end
// as it should.
int run_halted(const std::string& batch_file, const std::function<void(int)>& before) {
    const std::string program = test_env::helper_program();
    const pid_t child = fork();
    if (child == 0) {
        dup2(open(batch_file.c_str(), O_RDONLY), STDIN_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        setenv("PKEXEC_UID", std::to_string(as_user::kUid).c_str(), 1);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which cannot look while it is traced
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execl(program.c_str(), program.c_str(), "--batch", nullptr);
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, options);
    bool has_input = false;
    bool reads = false;
    int count = 0;
    while (WIFSTOPPED(status)) {
        const int number = WSTOPSIG(status);
        __ptrace_syscall_info info = {};
        if (number == (SIGTRAP | 0x80))
            ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && has_input)
            before(++count);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY)
            reads = info.entry.nr == SYS_read && info.entry.args[0] == STDIN_FILENO;
        if (info.op == PTRACE_SYSCALL_INFO_EXIT && reads && info.exit.rval == 0)
            has_input = true;
        const long deliver = number == SIGTRAP || number == (SIGTRAP | 0x80) ? 0 : number;
        ptrace(PTRACE_SYSCALL, child, nullptr, deliver);
        waitpid(child, &status, 0);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? count : -1;
}

std::string temporary_in(const std::string& folder) {
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().rfind(".ferrodeck-", 0) == 0)
            return entry.path();
    return {};
}

// In his own folder the caller may exchange what the helper has just made for something of root's
// that lies there too. Whenever he does, that stays root's.
TEST(HelperWorstMoment, what_is_exchanged_for_the_new_entry_stays_roots) {
    REQUIRE_GROUND_OF_ITS_OWN();
    fs::create_symlink("away", "/mnt/link");
    write_file("/mnt/file", "x");
    for (const std::string line :
         {"COPY\t/mnt/link\t/mnt/home/new\n", "COPY\t/mnt/file\t/mnt/home/new\n",
          "MKDIR\t/mnt/home/new\t2755\n"}) {
        write_file("/mnt/batch", line);
        int exchanged = 0;
        int calls = 1;
        for (int moment = 1; moment <= calls; ++moment) {
            fs::create_directory("/mnt/home");
            write_file("/mnt/home/roots", kSecret, 0600);
            ASSERT_EQ(chown("/mnt/home", as_user::kUid, as_user::kUid), 0);
            const ino_t roots = test_env::lstat_of("/mnt/home/roots").st_ino;
            calls = run_halted("/mnt/batch", [&](int now) {
                const std::string made =
                    line[0] == 'M' ? "/mnt/home/new" : temporary_in("/mnt/home");
                if (now == moment && !made.empty() &&
                    renameat2(AT_FDCWD, made.c_str(), AT_FDCWD, "/mnt/home/roots",
                              RENAME_EXCHANGE) == 0)
                    ++exchanged;
            });
            if (calls == 0)
                GTEST_SKIP() << "nothing may be traced here";
            ASSERT_GT(calls, 0);
            int found = 0;
            for (const auto& entry : fs::directory_iterator("/mnt/home")) {
                const struct stat st = test_env::lstat_of(entry.path());
                if (st.st_ino != roots)
                    continue;
                ++found;
                EXPECT_EQ(st.st_uid, 0U) << line << moment;
                EXPECT_EQ(st.st_mode & 07777, 0600U) << line << moment;
            }
            EXPECT_EQ(found, 1) << line << moment;
            fs::remove_all("/mnt/home");
        }
        EXPECT_GE(exchanged, 2) << line;
    }
}

}  // namespace
