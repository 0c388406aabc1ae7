// The program that works with root's rights, on real files: what each line of a batch does, what is
// refused, and what is left behind when it fails.

#include "as_user.h"
#include "batch.h"
#include "faultfs.h"
#include "fresh_process.h"
#include "run_helper.h"
#include "sanitized.h"
#include "test_env.h"
#include "wait_until.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using test_env::answers_of_helper;
using test_env::exists;
using test_env::lstat_of;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

constexpr uid_t kUser = as_user::kUid;
constexpr char kAsUser[] = "PKEXEC_UID=65534";

mode_t mode_of(const std::string& path) {
    return lstat_of(path).st_mode & 07777;
}

std::string line(const std::vector<std::string>& fields) {
    std::string text;
    for (const std::string& field : fields)
        text += (text.empty() ? "" : "\t") + field;
    return text + "\n";
}

std::string entries_of(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

void give_to_user(const std::string& path) {
    ASSERT_EQ(lchown(path.c_str(), kUser, kUser), 0);
}

class Helper : public ::testing::Test {
  protected:
    // What the one operation is answered, without its number: "OK", or "ERR" and why.
    static std::string ask(const std::vector<std::string>& fields,
                           const std::string& environment = {}) {
        const std::string answer = answers_of_helper(line(fields), environment);
        if (answer == "OK\t1\n")
            return "OK";
        return answer.rfind("ERR\t1\t", 0) == 0 ? "ERR " + answer.substr(6, answer.size() - 7)
                                                : "not an answer: " + answer;
    }
    std::string at(const std::string& name) const { return m_dir / name; }

    TempDir m_dir;
};

class HelperAsRoot : public Helper {
  protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "not root";
    }
};

// --- The lines --------------------------------------------------------------------------------

TEST(HelperLines, good_ones) {
    batch::Operation op;
    EXPECT_EQ(batch::parse("COPY\t/a b\t/c\xff\"'\\", op), "");
    EXPECT_EQ(op.verb, batch::Verb::Copy);
    EXPECT_EQ(op.source, "/a b");
    EXPECT_EQ(op.target, "/c\xff\"'\\");
    EXPECT_EQ(batch::parse("MKDIR\t/a//b/\t755", op), "");
    EXPECT_EQ(op.verb, batch::Verb::MakeDir);
    EXPECT_EQ(op.target, "/a//b/");
    EXPECT_EQ(op.mode, 0755);
    EXPECT_EQ(batch::parse("REMOVE\t/...", op), "");
    EXPECT_EQ(op.verb, batch::Verb::Remove);
    EXPECT_EQ(op.target, "/...");
    EXPECT_EQ(batch::parse("CHMOD\t/a\t7777", op), "");
    EXPECT_EQ(op.verb, batch::Verb::Chmod);
    EXPECT_EQ(op.mode, 07777);
    EXPECT_EQ(batch::parse("CHMOD\t/a\t0", op), "");
    EXPECT_EQ(op.mode, 0);
    EXPECT_EQ(batch::parse("CHMOD\t/a\t37777777777", op), "");
    EXPECT_EQ(op.mode, batch::kUnchanged);
    EXPECT_EQ(batch::parse("CHOWN\t/a\t-1\t0", op), "");
    EXPECT_EQ(op.verb, batch::Verb::Chown);
    EXPECT_EQ(op.uid, batch::kUnchanged);
    EXPECT_EQ(op.gid, 0);
    EXPECT_EQ(batch::parse("CHOWN\t/a\t4294967294\t-1", op), "");
    EXPECT_EQ(op.uid, 4294967294);
    EXPECT_EQ(op.gid, batch::kUnchanged);
}

TEST(HelperLines, bad_ones) {
    batch::Operation op;
    for (const char* const text : {
             "",
             "\t",
             "COPY",
             "COPY\t",
             "COPY\t/a",
             "COPY\t/a\t",
             "COPY\t\t/b",
             "COPY\t/a\t/b\t/c",
             "COPY\t/a\t/b\t",
             "copy\t/a\t/b",
             "COPY /a /b",
             " COPY\t/a\t/b",
             "MOVE\t/a\t/b",
             "MKDIR",
             "MKDIR\t/a",
             "MKDIR\t/a\t",
             "MKDIR\t/a\t8",
             "MKDIR\t/a\t-1",
             "MKDIR\t/a\t10000",
             "MKDIR\t/a\t755\t",
             "MKDIR\t/a\t 755",
             "MKDIR\t/a\t755 ",
             "MKDIR\t/a\t+755",
             "MKDIR\t/a\t37777777777",
             "REMOVE",
             "REMOVE\t",
             "REMOVE\t/a\t/b",
             "REMOVE\ta",
             "REMOVE\t./a",
             "REMOVE\t../a",
             "REMOVE\t/",
             "REMOVE\t//",
             "REMOVE\t///",
             "REMOVE\t/.",
             "REMOVE\t/..",
             "REMOVE\t/a/..",
             "REMOVE\t/a/.",
             "REMOVE\t/a/./b",
             "REMOVE\t/a/../b",
             "REMOVE\t/../b",
             "REMOVE\t/a//..//b",
             "CHMOD\t/a",
             "CHMOD\t/a\t",
             "CHMOD\t/a\trwx",
             "CHMOD\t/a\t0x1",
             "CHMOD\t/a\t10000",
             "CHMOD\ta\t755",
             "CHMOD\t/a\t99999999999999999999",
             "CHOWN\t/a\t0",
             "CHOWN\t/a\t0\t",
             "CHOWN\t/a\t\t0",
             "CHOWN\t/a\t-2\t0",
             "CHOWN\t/a\t4294967295\t0",
             "CHOWN\t/a\t0\troot",
             "CHOWN\t/a\t0\t0\t0",
             "OK\t1",
             "COPY\t/a\tb",
             "COPY\ta\t/b",
             "COPY\t/a/../b\t/c",
             "COPY\t/a\t/b/..",
         })
        EXPECT_NE(batch::parse(text, op), "") << text;
    EXPECT_NE(batch::parse(std::string_view("REMOVE\t/a\0b", 11), op), "");
    EXPECT_NE(batch::parse(std::string_view("REMOVE\t/ab\0", 11), op), "");
}

TEST_F(Helper, answers_each_line_by_its_number_and_goes_on_after_a_failure) {
    write_file(at("a"), "one");
    const std::string answers =
        answers_of_helper("COPY\n" + line({"COPY", at("a"), at("b")}) + "\n" +
                          line({"REMOVE", at("missing")}) + line({"REMOVE", at("a")}));
    EXPECT_EQ(answers, "ERR\t1\tmalformed line\n"
                       "OK\t2\n"
                       "ERR\t3\tmalformed line\n"
                       "ERR\t4\tit cannot be removed: No such file or directory\n"
                       "OK\t5\n");
    EXPECT_EQ(entries_of(m_dir.path()), "b");
}

TEST_F(Helper, refuses_a_path_that_does_not_lead_straight_down) {
    fs::create_directory(at("folder"));
    write_file(at("a"), "x", 0600);
    const std::string relative = at("a").substr(1);  // from "/", where it works
    EXPECT_EQ(ask({"REMOVE", relative}), "ERR the path is not absolute");
    EXPECT_EQ(ask({"COPY", relative, at("b")}), "ERR the path is not absolute");
    EXPECT_EQ(ask({"COPY", at("a"), at("b").substr(1)}), "ERR the path is not absolute");
    for (const char* const way : {"folder/../a", "./a", "folder/.././a"}) {
        const std::string refused = "ERR the path holds a \".\" or \"..\"";
        EXPECT_EQ(ask({"REMOVE", at(way)}), refused);
        EXPECT_EQ(ask({"COPY", at(way), at("b")}), refused);
        EXPECT_EQ(ask({"COPY", at("a"), at(way)}), refused);
        EXPECT_EQ(ask({"MKDIR", at(way), "755"}), refused);
        EXPECT_EQ(ask({"CHMOD", at(way), "777"}), refused);
        EXPECT_EQ(ask({"CHOWN", at(way), "-1", "-1"}), refused);
    }
    EXPECT_EQ(ask({"REMOVE", at("a"), at("a")}), "ERR malformed line");
    EXPECT_EQ(entries_of(m_dir.path()), "a folder");
    EXPECT_EQ(mode_of(at("a")), 0600U);
}

TEST_F(Helper, without_a_line_there_is_nothing_to_say) {
    EXPECT_EQ(answers_of_helper(""), "");
}

// What was to be /dir/file may end as /dir.
TEST_F(Helper, a_last_line_that_is_not_ended_is_not_carried_out) {
    write_file(at("a"), "");
    write_file(at("b"), "");
    EXPECT_EQ(answers_of_helper(line({"REMOVE", at("a")}) + "REMOVE\t" + at("b")),
              "OK\t1\nERR\t2\tthe line is cut off\n");
    EXPECT_EQ(entries_of(m_dir.path()), "b");
}

TEST_F(Helper, a_nul_ends_no_path) {
    write_file(at("a"), "");
    EXPECT_EQ(answers_of_helper("REMOVE\t" + at("a") + std::string(1, '\0') + "b\n"),
              "ERR\t1\tmalformed line\n");
    EXPECT_TRUE(exists(at("a")));
}

TEST_F(Helper, takes_many_lines) {
    std::string batch;
    std::string expected;
    for (int i = 1; i <= 2000; ++i) {
        batch += line({"REMOVE", at(std::string(200, 'x') + std::to_string(i))});
        expected +=
            "ERR\t" + std::to_string(i) + "\tit cannot be removed: No such file or directory\n";
    }
    EXPECT_EQ(answers_of_helper(batch), expected);
}

// --- The call ---------------------------------------------------------------------------------

TEST_F(Helper, wants_the_one_word_and_nothing_else) {
    const std::string program = test_env::helper_program();
    for (const char* const words : {"", "batch", "-batch", "--batch --batch", "--batch=1", "''"}) {
        std::string output;
        EXPECT_EQ(test_env::run(program + " " + words + " </dev/null 2>&1", &output), 2) << words;
        EXPECT_EQ(output, "ferrodeck-helper: started by Ferrodeck, with --batch\n");
    }
}

TEST_F(Helper, a_missing_stream_is_nothing_to_work_with) {
    write_file(at("a"), "");
    write_file(at("batch"), line({"REMOVE", at("a")}));
    const std::string call = "(" + test_env::helper_program() + " --batch ";
    EXPECT_EQ(test_env::run(call + "<'" + at("batch") + "' >&-)"), 1);
    EXPECT_EQ(test_env::run(call + "<&-)"), 1);
    EXPECT_TRUE(exists(at("a")));
    EXPECT_EQ(test_env::run(call + "<'" + at("batch") + "' 2>&-)"), 0);
    EXPECT_FALSE(exists(at("a")));
}

// The one that is installed: nothing lets an ordinary user run it.
TEST_F(HelperAsRoot, is_for_root_alone) {
    write_file(at("batch"), line({"MKDIR", at("new"), "755"}), 0644);
    write_file(at("helper"), read_file(HELPER), 0755);
    as_user::give(m_dir.path());
    std::string output;
    const std::string call =
        "cd / && setpriv --reuid 65534 --regid 65534 --clear-groups env PKEXEC_UID=0 ";
    EXPECT_EQ(test_env::run(call + at("helper") + " --batch <'" + at("batch") + "' 2>&1", &output),
              1);
    EXPECT_EQ(output, "ferrodeck-helper: needs root's rights\n");
    // Made setuid by mistake, it has been given no password either.
    ASSERT_EQ(chmod(at("helper").c_str(), 04755), 0);
    EXPECT_EQ(test_env::run(call + at("helper") + " --batch <'" + at("batch") + "' 2>&1", &output),
              1);
    EXPECT_EQ(output, "ferrodeck-helper: needs root's rights\n");
    EXPECT_FALSE(exists(at("new")));
}

TEST_F(Helper, links_the_c_library_alone) {
    if (test_env::kSanitized)
        GTEST_SKIP() << "a sanitizer brings libraries of its own";
    std::string output;
    if (test_env::run("readelf -d " HELPER " | grep NEEDED | sed 's/.*\\[//; s/\\]//' | sort",
                      &output) != 0)
        GTEST_SKIP() << "no readelf";
    for (const std::string_view other : {"libstdc++", "libgcc_s", "glib", "libm."})
        EXPECT_EQ(output.find(other), output.npos) << output;
    EXPECT_NE(output.find("libc.so"), output.npos) << output;
}

TEST_F(Helper, reads_all_of_its_input_before_it_does_anything) {
    write_file(at("a"), "");
    int in[2];
    ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
    const std::string program = test_env::helper_program();
    const pid_t child = fork();
    if (child == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        execl(program.c_str(), program.c_str(), "--batch", nullptr);
        _exit(127);
    }
    close(in[0]);
    const std::string first = line({"REMOVE", at("a")});
    ASSERT_EQ(write(in[1], first.data(), first.size()), static_cast<ssize_t>(first.size()));
    // Until it has taken the line and waits for more.
    EXPECT_TRUE(test_env::wait_until([&] {
        const std::string call = read_file("/proc/" + std::to_string(child) + "/syscall");
        int pending = 0;
        return ioctl(in[1], FIONREAD, &pending) == 0 && pending == 0 &&
               call.rfind("0 0x0 ", 0) == 0;
    }));
    EXPECT_TRUE(exists(at("a")));
    close(in[1]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(exists(at("a")));
}

// --- COPY -------------------------------------------------------------------------------------

TEST_F(Helper, copies_a_file_with_its_mode_and_times_and_leaves_the_source) {
    const std::string content = test_env::pattern(300'001);
    write_file(at("a"), content);
    ASSERT_EQ(chmod(at("a").c_str(), 0641), 0);
    const struct timespec times[] = {{1'000'000'001, 5}, {987'654'321, 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, at("a").c_str(), times, 0), 0);
    EXPECT_EQ(ask({"COPY", at("a"), at("b")}), "OK");
    EXPECT_EQ(read_file(at("b")), content);
    EXPECT_EQ(mode_of(at("b")), 0641U);
    EXPECT_EQ(lstat_of(at("b")).st_mtim.tv_sec, 987'654'321);
    EXPECT_EQ(lstat_of(at("b")).st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(read_file(at("a")), content);
    EXPECT_EQ(entries_of(m_dir.path()), "a b");
}

TEST_F(Helper, copies_holes_and_zeros_at_the_end) {
    std::string content = test_env::pattern(200'000);
    content.replace(10, 150'000, 150'000, '\0');
    content += std::string(400'000, '\0');
    write_file(at("a"), content);
    EXPECT_EQ(ask({"COPY", at("a"), at("b")}), "OK");
    EXPECT_EQ(read_file(at("b")), content);
    EXPECT_LT(lstat_of(at("b")).st_blocks * 512, 300'000);
    write_file(at("empty"), "");
    EXPECT_EQ(ask({"COPY", at("empty"), at("b")}), "OK");
    EXPECT_EQ(read_file(at("b")), "");
}

TEST_F(Helper, copies_a_link_as_a_link) {
    write_file(at("far"), "not to be copied");
    fs::create_symlink("far", at("link"));
    fs::create_symlink("/nowhere/at all", at("dangling"));
    EXPECT_EQ(ask({"COPY", at("link"), at("b")}), "OK");
    EXPECT_EQ(ask({"COPY", at("dangling"), at("c")}), "OK");
    EXPECT_EQ(fs::read_symlink(at("b")), "far");
    EXPECT_EQ(fs::read_symlink(at("c")), "/nowhere/at all");
    EXPECT_EQ(fs::read_symlink(at("link")), "far");
    EXPECT_EQ(entries_of(m_dir.path()), "b c dangling far link");
}

TEST_F(Helper, replaces_a_target_that_exists) {
    write_file(at("a"), "new");
    write_file(at("b"), "old and longer", 0400);
    const ino_t before = lstat_of(at("b")).st_ino;
    fs::create_hard_link(at("b"), at("second name"));
    EXPECT_EQ(ask({"COPY", at("a"), at("b")}), "OK");
    EXPECT_EQ(read_file(at("b")), "new");
    EXPECT_NE(lstat_of(at("b")).st_ino, before);
    EXPECT_EQ(read_file(at("second name")), "old and longer");
}

TEST_F(Helper, a_link_at_the_target_is_replaced_and_never_written_through) {
    write_file(at("a"), "new");
    write_file(at("precious"), "precious");
    fs::create_symlink("precious", at("b"));
    fs::create_symlink("not there", at("c"));
    EXPECT_EQ(ask({"COPY", at("a"), at("b")}), "OK");
    EXPECT_EQ(ask({"COPY", at("a"), at("c")}), "OK");
    EXPECT_EQ(read_file(at("precious")), "precious");
    EXPECT_FALSE(exists(at("not there")));
    EXPECT_FALSE(fs::is_symlink(at("b")));
    EXPECT_FALSE(fs::is_symlink(at("c")));
    EXPECT_EQ(read_file(at("b")), "new");
}

TEST_F(Helper, what_is_no_file_is_neither_copied_nor_replaced) {
    write_file(at("a"), "x");
    fs::create_directory(at("folder"));
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
    const std::string refused = "ERR the source is neither a file nor a symbolic link";
    EXPECT_EQ(ask({"COPY", at("folder"), at("b")}), refused);
    EXPECT_EQ(ask({"COPY", at("pipe"), at("b")}), refused);  // and is not waited for
    EXPECT_EQ(ask({"COPY", "/dev/null", at("b")}), refused);
    EXPECT_EQ(ask({"COPY", "/", at("b")}), refused);
    EXPECT_EQ(ask({"COPY", at("a"), at("folder")}),
              "ERR the target cannot be replaced: Is a directory");
    EXPECT_EQ(ask({"COPY", at("a"), "/"}), "ERR the target is a folder");
    EXPECT_EQ(entries_of(m_dir.path()), "a folder pipe");
}

TEST_F(Helper, a_copy_makes_no_folders) {
    write_file(at("a"), "x");
    EXPECT_EQ(ask({"COPY", at("a"), at("new/b")}),
              "ERR a folder on the way cannot be opened: No such file or directory");
    EXPECT_EQ(ask({"COPY", at("missing"), at("b")}),
              "ERR source: it cannot be opened: No such file or directory");
    EXPECT_EQ(ask({"COPY", at("a"), at("a/b")}),
              "ERR a folder on the way cannot be opened: Not a directory");
    EXPECT_EQ(entries_of(m_dir.path()), "a");
}

TEST_F(HelperAsRoot, a_copy_belongs_to_whom_its_folder_belongs_if_that_is_who_asked) {
    write_file(at("a"), "x");
    fs::create_symlink("x", at("link"));
    for (const char* const name : {"users", "others", "roots"})
        fs::create_directory(at(name));
    ASSERT_EQ(chown(at("users").c_str(), kUser, 4242), 0);
    ASSERT_EQ(chown(at("others").c_str(), 1234, 1234), 0);
    struct Case {
        const char* folder;
        const char* environment;
        uid_t uid;
        gid_t gid;
    };
    for (const Case& c : {Case{"users", kAsUser, kUser, 4242}, Case{"others", kAsUser, 0, 0},
                          Case{"roots", kAsUser, 0, 0}, Case{"users", "", 0, 0},
                          Case{"users", "PKEXEC_UID=65534x", 0, 0},
                          Case{"users", "PKEXEC_UID=-2", 0, 0}, Case{"users", "PKEXEC_UID=", 0, 0}})
        for (const char* const source : {"a", "link"}) {
            const std::string target = at(std::string(c.folder) + "/b");
            EXPECT_EQ(ask({"COPY", at(source), target}, c.environment), "OK");
            EXPECT_EQ(lstat_of(target).st_uid, c.uid) << c.folder << " " << c.environment;
            EXPECT_EQ(lstat_of(target).st_gid, c.gid) << c.folder << " " << c.environment;
        }
}

TEST_F(HelperAsRoot, rights_of_an_owner_are_not_carried_to_another) {
    write_file(at("roots"), "x");
    write_file(at("users"), "x");
    fs::create_directory(at("home"));
    give_to_user(at("home"));
    give_to_user(at("users"));
    ASSERT_EQ(chmod(at("roots").c_str(), 06755), 0);
    ASSERT_EQ(chmod(at("users").c_str(), 07755), 0);
    EXPECT_EQ(ask({"COPY", at("users"), at("b")}, kAsUser), "OK");
    EXPECT_EQ(mode_of(at("b")), 01755U);
    EXPECT_EQ(ask({"COPY", at("roots"), at("home/b")}, kAsUser), "OK");
    EXPECT_EQ(mode_of(at("home/b")), 0755U);
    EXPECT_EQ(ask({"COPY", at("users"), at("home/c")}, kAsUser), "OK");
    EXPECT_EQ(mode_of(at("home/c")), 07755U);
    EXPECT_EQ(ask({"COPY", at("roots"), at("c")}, kAsUser), "OK");
    EXPECT_EQ(mode_of(at("c")), 06755U);
    // The group alone is another.
    ASSERT_EQ(chown(at("roots").c_str(), 0, 4242), 0);
    ASSERT_EQ(chmod(at("roots").c_str(), 06755), 0);
    EXPECT_EQ(ask({"COPY", at("roots"), at("d")}, kAsUser), "OK");
    EXPECT_EQ(mode_of(at("d")), 04755U);
}

TEST_F(HelperAsRoot, rights_that_mean_nothing_where_the_source_is_come_into_no_force) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    fs::create_directory(at("stick"));
    ASSERT_EQ(test_env::run("mount -t tmpfs -o nosuid tmpfs '" + at("stick") + "'"), 0);
    write_file(at("stick/shell"), "x");
    ASSERT_EQ(chmod(at("stick/shell").c_str(), 06755), 0);
    EXPECT_EQ(ask({"COPY", at("stick/shell"), at("b")}), "OK");
    EXPECT_EQ(mode_of(at("b")), 0755U);
}

TEST_F(HelperAsRoot, nothing_half_written_stays_when_the_target_is_full) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    fs::create_directory(at("small"));
    ASSERT_TRUE(test_env::mount_tmpfs(at("small"), "size=256k"));
    write_file(at("a"), test_env::pattern(1 << 20));
    write_file(at("small/b"), "old");
    EXPECT_EQ(ask({"COPY", at("a"), at("small/b")}),
              "ERR the target cannot be written: No space left on device");
    EXPECT_EQ(entries_of(at("small")), "b");
    EXPECT_EQ(read_file(at("small/b")), "old");
}

// A network's file system may say only then that it has no room.
TEST_F(Helper, what_the_file_system_says_at_the_close_is_heard) {
    faultfs::FaultFs mount;
    REQUIRE_MOUNT(mount);
    write_file(at("a"), "new");
    write_file(mount.backing() + "/b", "old");
    mount.set(faultfs::fail("flush", ENOSPC));
    EXPECT_EQ(ask({"COPY", at("a"), mount / "b"}),
              "ERR the target cannot be written: No space left on device");
    EXPECT_EQ(entries_of(mount.backing()), "b");
    EXPECT_EQ(read_file(mount.backing() + "/b"), "old");
}

TEST_F(Helper, nothing_half_written_stays_when_it_is_told_to_stop) {
    // Some come of a clock that was set before pkexec was started, and some of the terminal.
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGALRM, SIGVTALRM, SIGPROF, SIGXCPU,
                             SIGUSR1, SIGUSR2}) {
        write_file(at("a"), "");
        ASSERT_EQ(truncate(at("a").c_str(), off_t{1} << 40), 0);
        fs::create_directory(at("to"));
        write_file(at("batch"), line({"COPY", at("a"), at("to/b")}) + line({"REMOVE", at("a")}));
        const std::string program = test_env::helper_program();
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(at("batch").c_str(), O_RDONLY), STDIN_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            execl(program.c_str(), program.c_str(), "--batch", nullptr);
            _exit(127);
        }
        EXPECT_TRUE(test_env::wait_until([&] { return !entries_of(at("to")).empty(); }));
        EXPECT_EQ(entries_of(at("to")).rfind(".ferrodeck-", 0), 0U);
        EXPECT_EQ(lstat_of(at("to/" + entries_of(at("to")))).st_mode & 0777, 0600U);
        kill(child, number);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
        EXPECT_EQ(entries_of(at("to")), "");
        EXPECT_TRUE(exists(at("a")));
        fs::remove(at("to"));
    }
}

// --- MKDIR ------------------------------------------------------------------------------------

TEST_F(Helper, makes_a_folder_and_its_parents) {
    EXPECT_EQ(ask({"MKDIR", at("a/b/c"), "1730"}), "OK");
    EXPECT_EQ(mode_of(at("a")), 0755U);
    EXPECT_EQ(mode_of(at("a/b")), 0755U);
    EXPECT_EQ(mode_of(at("a/b/c")), 01730U);
    EXPECT_EQ(ask({"MKDIR", at("a/d"), "777"}), "OK");
    EXPECT_EQ(mode_of(at("a/d")), 0777U);
    EXPECT_EQ(ask({"MKDIR", at("a/e"), "2750"}), "OK");
    EXPECT_EQ(mode_of(at("a/e")), 02750U);
    // One that is there stays as it is.
    EXPECT_EQ(ask({"MKDIR", at("a/d"), "700"}), "OK");
    EXPECT_EQ(mode_of(at("a/d")), 0777U);
    EXPECT_EQ(ask({"MKDIR", "/", "700"}), "OK");
    EXPECT_NE(mode_of("/"), 0700U);
}

TEST_F(Helper, makes_no_folder_where_something_else_is) {
    write_file(at("a"), "x");
    fs::create_directory(at("real"));
    fs::create_symlink("real", at("link"));
    EXPECT_EQ(ask({"MKDIR", at("a"), "755"}), "ERR the folder cannot be made: File exists");
    EXPECT_EQ(ask({"MKDIR", at("link"), "755"}), "ERR the folder cannot be made: File exists");
    EXPECT_EQ(ask({"MKDIR", at("a/b/c"), "755"}),
              "ERR a folder on the way cannot be opened: Not a directory");
    EXPECT_EQ(read_file(at("a")), "x");
    EXPECT_EQ(entries_of(at("real")), "");
}

TEST_F(HelperAsRoot, a_folder_made_in_the_callers_is_the_callers) {
    fs::create_directory(at("home"));
    give_to_user(at("home"));
    EXPECT_EQ(ask({"MKDIR", at("home/a/b"), "750"}, kAsUser), "OK");
    EXPECT_EQ(lstat_of(at("home/a")).st_uid, kUser);
    EXPECT_EQ(lstat_of(at("home/a/b")).st_uid, kUser);
    EXPECT_EQ(lstat_of(at("home/a/b")).st_gid, kUser);
    EXPECT_EQ(mode_of(at("home/a/b")), 0750U);
    EXPECT_EQ(ask({"MKDIR", at("a/b"), "750"}, kAsUser), "OK");
    EXPECT_EQ(lstat_of(at("a/b")).st_uid, 0U);
}

// --- REMOVE -----------------------------------------------------------------------------------

TEST_F(Helper, removes_one_entry) {
    write_file(at("file"), "x");
    write_file(at("far"), "x");
    fs::create_directories(at("empty"));
    fs::create_directories(at("full/inner"));
    fs::create_symlink("far", at("link"));
    fs::create_symlink("full", at("to folder"));
    EXPECT_EQ(ask({"REMOVE", at("file")}), "OK");
    EXPECT_EQ(ask({"REMOVE", at("link")}), "OK");
    EXPECT_EQ(ask({"REMOVE", at("to folder")}), "OK");
    EXPECT_EQ(ask({"REMOVE", at("empty")}), "OK");
    EXPECT_EQ(ask({"REMOVE", at("full")}), "ERR it cannot be removed: Directory not empty");
    EXPECT_EQ(ask({"REMOVE", at("missing")}),
              "ERR it cannot be removed: No such file or directory");
    EXPECT_EQ(ask({"REMOVE", "/"}), "ERR the root folder cannot be removed");
    EXPECT_EQ(entries_of(m_dir.path()), "far full");
    EXPECT_EQ(entries_of(at("full")), "inner");
}

// --- CHMOD, CHOWN -----------------------------------------------------------------------------

TEST_F(Helper, changes_a_mode) {
    write_file(at("file"), "x");
    fs::create_directory(at("folder"));
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
    EXPECT_EQ(ask({"CHMOD", at("file"), "4711"}), "OK");
    EXPECT_EQ(mode_of(at("file")), 04711U);
    EXPECT_EQ(ask({"CHMOD", at("file"), "0"}), "OK");
    EXPECT_EQ(mode_of(at("file")), 0U);
    EXPECT_EQ(ask({"CHMOD", at("folder"), "1777"}), "OK");
    EXPECT_EQ(mode_of(at("folder")), 01777U);
    EXPECT_EQ(ask({"CHMOD", at("pipe"), "640"}), "OK");  // which nobody has to open
    EXPECT_EQ(mode_of(at("pipe")), 0640U);
    EXPECT_EQ(ask({"CHMOD", at("folder"), "37777777777"}), "OK");
    EXPECT_EQ(mode_of(at("folder")), 01777U);
    EXPECT_EQ(ask({"CHMOD", at("missing"), "37777777777"}),
              "ERR it cannot be opened: No such file or directory");
}

TEST_F(Helper, changes_no_mode_through_a_link) {
    write_file(at("far"), "x", 0600);
    fs::create_symlink("far", at("link"));
    EXPECT_EQ(ask({"CHMOD", at("link"), "777"}), "ERR a symbolic link has no mode of its own");
    EXPECT_EQ(mode_of(at("far")), 0600U);
}

TEST_F(HelperAsRoot, changes_an_owner) {
    write_file(at("file"), "x");
    fs::create_directory(at("folder"));
    EXPECT_EQ(ask({"CHOWN", at("file"), "1234", "4321"}), "OK");
    EXPECT_EQ(lstat_of(at("file")).st_uid, 1234U);
    EXPECT_EQ(lstat_of(at("file")).st_gid, 4321U);
    EXPECT_EQ(ask({"CHOWN", at("file"), "-1", "77"}), "OK");
    EXPECT_EQ(lstat_of(at("file")).st_uid, 1234U);
    EXPECT_EQ(lstat_of(at("file")).st_gid, 77U);
    EXPECT_EQ(ask({"CHOWN", at("file"), "78", "-1"}), "OK");
    EXPECT_EQ(lstat_of(at("file")).st_uid, 78U);
    EXPECT_EQ(lstat_of(at("file")).st_gid, 77U);
    EXPECT_EQ(ask({"CHOWN", at("folder"), "78", "79"}), "OK");
    EXPECT_EQ(lstat_of(at("folder")).st_uid, 78U);
}

TEST_F(HelperAsRoot, a_new_owner_gets_no_rights_of_the_old_one) {
    write_file(at("file"), "x");
    ASSERT_EQ(chmod(at("file").c_str(), 06744), 0);  // no execute bit for the group
    EXPECT_EQ(ask({"CHOWN", at("file"), "-1", "-1"}), "OK");
    EXPECT_EQ(ask({"CHOWN", at("file"), "0", "0"}), "OK");
    EXPECT_EQ(mode_of(at("file")), 06744U);
    EXPECT_EQ(ask({"CHOWN", at("file"), "1234", "-1"}), "OK");
    EXPECT_EQ(mode_of(at("file")), 0744U);
}

TEST_F(HelperAsRoot, the_owner_of_a_link_is_the_links) {
    write_file(at("far"), "x");
    fs::create_symlink("far", at("link"));
    EXPECT_EQ(ask({"CHOWN", at("link"), "1234", "4321"}), "OK");
    EXPECT_EQ(lstat_of(at("link")).st_uid, 1234U);
    EXPECT_EQ(lstat_of(at("far")).st_uid, 0U);
}

TEST_F(HelperAsRoot, a_file_of_roots_with_several_names_is_left_alone) {
    write_file(at("passwd"), "x", 0600);
    fs::create_hard_link(at("passwd"), at("mine"));
    const std::string refused = "ERR the file is root's and has several names";
    EXPECT_EQ(ask({"CHMOD", at("mine"), "666"}), refused);
    EXPECT_EQ(ask({"CHOWN", at("mine"), "65534", "-1"}), refused);
    EXPECT_EQ(mode_of(at("passwd")), 0600U);
    EXPECT_EQ(lstat_of(at("passwd")).st_uid, 0U);
    give_to_user(at("mine"));
    EXPECT_EQ(ask({"CHMOD", at("mine"), "640"}), "OK");
    // A folder has several by nature.
    fs::create_directories(at("folder/inner"));
    EXPECT_EQ(ask({"CHMOD", at("folder"), "700"}), "OK");
}

// Its second name may be there for the sake of the copy, which its maker could read.
TEST_F(HelperAsRoot, a_second_name_that_others_may_have_made_gets_nobody_a_copy) {
    write_file(at("passwd"), "x", 0600);
    for (const char* const name : {"home", "shared", "backup"})
        fs::create_directory(at(name));
    give_to_user(at("home"));
    ASSERT_EQ(chmod(at("shared").c_str(), 01777), 0);
    for (const char* const name : {"home/second", "shared/second", "backup/second"})
        fs::create_hard_link(at("passwd"), at(name));
    const std::string refused = "ERR the file is root's and has several names";
    EXPECT_EQ(ask({"COPY", at("home/second"), at("home/b")}, kAsUser), refused);
    EXPECT_EQ(ask({"COPY", at("shared/second"), at("home/b")}, kAsUser), refused);
    EXPECT_EQ(entries_of(at("home")), "second");
    // Where the copy stays root's, or root alone can have made the name.
    EXPECT_EQ(ask({"COPY", at("home/second"), at("b")}, kAsUser), "OK");
    EXPECT_EQ(ask({"COPY", at("home/second"), at("home/b")}), "OK");
    EXPECT_EQ(lstat_of(at("home/b")).st_uid, 0U);
    EXPECT_EQ(ask({"COPY", at("backup/second"), at("home/b")}, kAsUser), "OK");
    EXPECT_EQ(lstat_of(at("home/b")).st_uid, kUser);
}

// --- The way there ----------------------------------------------------------------------------

// at("there/x") is reached by the link at("way") if the walk follows it.
class HelperWay : public HelperAsRoot {
  protected:
    void SetUp() override {
        HelperAsRoot::SetUp();
        if (IsSkipped())
            return;
        fs::create_directory(at("there"));
        fs::create_directory(at("holder"));
        write_file(at("there/x"), "old", 0600);
        write_file(at("a"), "new");
        fs::create_symlink("../there", at("holder/way"));
    }
    // With every kind of operation: none may get there, or all must.
    void expect_closed() {
        const std::string refused =
            "ERR a folder on the way is a symbolic link that others can change";
        const std::string way = at("holder/way");
        EXPECT_EQ(ask({"COPY", at("a"), way + "/x"}), refused);
        EXPECT_EQ(ask({"COPY", way + "/x", at("out")}), "ERR source: " + refused.substr(4));
        EXPECT_EQ(ask({"MKDIR", way + "/new/newer", "755"}), refused);
        EXPECT_EQ(ask({"REMOVE", way + "/x"}), refused);
        EXPECT_EQ(ask({"CHMOD", way + "/x", "777"}), refused);
        EXPECT_EQ(ask({"CHOWN", way + "/x", "1", "1"}), refused);
        EXPECT_EQ(entries_of(at("there")), "x");
        EXPECT_EQ(read_file(at("there/x")), "old");
        EXPECT_EQ(mode_of(at("there/x")), 0600U);
        EXPECT_EQ(lstat_of(at("there/x")).st_uid, 0U);
        EXPECT_FALSE(exists(at("out")));
    }
    void expect_open() {
        const std::string way = at("holder/way");
        EXPECT_EQ(ask({"COPY", way + "/x", at("out")}), "OK");
        EXPECT_EQ(ask({"COPY", at("a"), way + "/x"}), "OK");
        EXPECT_EQ(ask({"MKDIR", way + "/new/newer", "755"}), "OK");
        EXPECT_EQ(ask({"CHMOD", way + "/x", "640"}), "OK");
        EXPECT_EQ(ask({"CHOWN", way + "/x", "-1", "1"}), "OK");
        EXPECT_EQ(read_file(at("there/x")), "new");
        EXPECT_EQ(mode_of(at("there/x")), 0640U);
        EXPECT_TRUE(exists(at("there/new/newer")));
        EXPECT_EQ(ask({"REMOVE", way + "/x"}), "OK");
        EXPECT_EQ(entries_of(at("there")), "new");
    }
};

TEST_F(HelperWay, follows_a_link_that_only_root_can_have_made) {
    expect_open();
}

TEST_F(HelperWay, follows_an_absolute_link_and_one_behind_another) {
    fs::remove(at("holder/way"));
    fs::create_symlink(at("holder/second"), at("holder/way"));
    fs::create_symlink("./.././/there/", at("holder/second"));
    expect_open();
}

TEST_F(HelperWay, a_link_of_another_owner_is_an_error) {
    give_to_user(at("holder/way"));
    expect_closed();
}

TEST_F(HelperWay, a_link_in_a_folder_of_another_owner_is_an_error) {
    give_to_user(at("holder"));
    expect_closed();
}

TEST_F(HelperWay, a_link_in_a_folder_that_the_group_may_write_to_is_an_error) {
    ASSERT_EQ(chmod(at("holder").c_str(), 0775), 0);
    expect_closed();
}

TEST_F(HelperWay, a_link_in_a_folder_that_all_may_write_to_is_an_error) {
    ASSERT_EQ(chmod(at("holder").c_str(), 01757), 0);  // not even with the sticky bit
    expect_closed();
}

TEST_F(HelperWay, what_a_good_link_leads_to_is_held_to_the_same) {
    fs::remove(at("holder/way"));
    fs::create_symlink("../bad/way", at("holder/way"));
    fs::create_directory(at("bad"));
    fs::create_symlink("../there", at("bad/way"));
    give_to_user(at("bad"));
    expect_closed();
}

TEST_F(HelperWay, a_ring_of_links_ends) {
    fs::remove(at("holder/way"));
    fs::create_symlink("way", at("holder/way"));
    EXPECT_EQ(ask({"REMOVE", at("holder/way/x")}),
              "ERR a folder on the way cannot be opened: Too many levels of symbolic links");
}

TEST_F(HelperWay, folders_of_others_are_walked_through) {
    give_to_user(at("there"));
    EXPECT_EQ(ask({"CHMOD", at("there//x"), "640"}), "OK");
    EXPECT_EQ(mode_of(at("there/x")), 0640U);
    EXPECT_EQ(ask({"MKDIR", at("there/y/"), "755"}), "OK");
    EXPECT_EQ(ask({"REMOVE", at("there/y/")}), "OK");
}

}  // namespace
