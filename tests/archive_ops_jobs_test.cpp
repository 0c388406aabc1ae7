#include "archive_ops.h"
#include "bg_task.h"
#include "format.h"
#include "fresh_process.h"
#include "log_lines.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"
#include "wait_until.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using archive_ops::Format;
using Names = std::vector<std::string>;

BgTask::Status finished() {
    EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }, 60));
    return BgTask::instance().snapshot();
}

std::string all_of(const Names& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

BgTask::Status unpacked(const std::string& archive, const std::string& target) {
    EXPECT_TRUE(archive_ops::start_unpack(archive, target, "Unpacking"));
    return finished();
}

class ArchiveOpsJobs : public testing::Test {
  protected:
    std::string in() const { return dir / "in"; }
    void SetUp() override { test_env::make_dirs(in()); }

    BgTask::Status packed(const Names& names, const std::string& archive, Format format) {
        Names sources;
        for (const std::string& name : names)
            sources.push_back(in() + "/" + name);
        EXPECT_TRUE(archive_ops::start_pack(sources, in(), archive, format, "Packing"));
        return finished();
    }
    // A tool of the test's own. From then on there are no others but these and the shell's.
    void tool(const std::string& name, const std::string& script) {
        test_env::make_dirs(dir / "bin");
        test_env::write_file(dir / ("bin/" + name), "#!/bin/sh\n" + script + "\n", 0755);
        setenv("PATH", (dir / "bin").c_str(), 1);
    }
    // Whether the process is gone whose number a tool has left in a file. Who takes in an orphan
    // may be slow to notice its end.
    bool is_gone(const std::string& pid_file) const {
        const std::string number = test_env::read_file(dir / pid_file);
        const std::string stat = "/proc/" + std::to_string(std::atoi(number.c_str())) + "/stat";
        return test_env::wait_until(
            [&stat] {
                std::ifstream in(stat);
                std::string line;
                return !std::getline(in, line) || line.find(") Z ") != std::string::npos;
            },
            3);
    }
    test_env::TempDir dir;
};

TEST_F(ArchiveOpsJobs, what_comes_out_of_every_format_is_what_went_in) {
    REQUIRE_FRESH_PROCESS();
    const Names names = {"two  blanks",  "ünï", "-dash",  "--",   "quo'te\"", "st*r", "que?", "[1]",
                         "back\\tslash", "@at", "folder", "link", "$HOME",    "~"};
    for (const std::string& name : names) {
        if (name != "folder" && name != "link")
            test_env::write_file(in() + "/" + name, test_env::pattern(3000));
    }
    test_env::make_dirs(in() + "/folder/empty");
    test_env::write_file(in() + "/folder/-r", "x");
    ASSERT_EQ(symlink("two  blanks", (in() + "/link").c_str()), 0);
    // A name that only a pattern would add.
    test_env::write_file(in() + "/stxr", "");
    tree::Snapshot expected = tree::snapshot(in());
    expected.erase("stxr");

    tree::Compare how;
    how.times = false;  // some formats have whole seconds, or two of them
    for (const Format format : archive_ops::kAllFormats) {
        const std::string label = archive_ops::label_for(format);
        const std::string archive =
            dir / ("out [1]*?\\t" + label + archive_ops::extension_for(format));
        BgTask::Status status = packed(names, archive, format);
        EXPECT_EQ(status.failures, Names{}) << label << "\n" << all_of(status.failures);
        EXPECT_EQ(status.kind, BgTask::Kind::Pack);
        EXPECT_EQ(status.title, "Packing");
        EXPECT_EQ(status.total, 16) << label;
        const int64_t size = test_env::lstat_of(archive).st_size;
        EXPECT_EQ(status.result, "out [1]*?\\t" + label + archive_ops::extension_for(format) +
                                     "  ·  " + fmt::bytes(size));
        if (format != Format::SevenZ) {
            EXPECT_EQ(status.done, 16) << label;
        }
        EXPECT_EQ(test_env::logged("PACK ok: " + archive + " (" + std::to_string(size) + " B)"), 1);
        EXPECT_EQ(test_env::logged("PACK -> " + archive + " (" +
                                   archive_ops::extension_for(format) +
                                   "), 14 source(s), 16 entries, base " + in()),
                  1);

        const std::string target = dir / ("target * \\t" + label + "/new");
        EXPECT_TRUE(archive_ops::can_unpack(archive));
        status = unpacked(archive, target);
        EXPECT_EQ(status.failures, Names{}) << label << "\n" << all_of(status.failures);
        EXPECT_EQ(status.total, 0);
        EXPECT_GE(status.done, 15) << label;
        EXPECT_EQ(status.result, "out [1]*?\\t" + label + archive_ops::extension_for(format) +
                                     "  ·  " + fmt::files(status.done));
        // 7z stores what a link leads to where it is not told otherwise.
        tree::Snapshot wanted = expected;
        if (format == Format::SevenZ && tree::snapshot(target)["link"].kind == 'f')
            wanted["link"] = wanted["two  blanks"];
        EXPECT_EQ(tree::difference_text(wanted, tree::snapshot(target), how), "") << label;
    }
    EXPECT_EQ(test_env::logged("  packing: " + in() + "/-dash"), 8);
}

TEST_F(ArchiveOpsJobs, every_kind_that_is_only_read) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", test_env::pattern(100000));
    for (const char* how : {"lzma x.tar.lzma", "lzip x.TAR.LZ", "gzip x.tgz", "xz x.txz",
                            "bzip2 x.tbz2", "bzip2 x.tbz", "zstd x.tzst"}) {
        const std::string text = how;
        const std::string tool = text.substr(0, text.find(' '));
        const std::string name = text.substr(text.find(' ') + 1);
        const std::string target = dir / ("t" + name);
        ASSERT_EQ(test_env::run("tar -C " + in() + " --use-compress-program=" + tool + " -cf " +
                                (dir / name) + " a"),
                  0);
        EXPECT_TRUE(archive_ops::can_unpack(dir / name)) << name;
        const BgTask::Status status = unpacked(dir / name, target);
        EXPECT_EQ(status.failures, Names{}) << name;
        EXPECT_EQ(status.done, 1) << name;
        EXPECT_EQ(test_env::logged("UNPACK ok: 1 entries -> " + target), 1);
        EXPECT_EQ(test_env::read_file(target + "/a"), test_env::pattern(100000)) << name;
    }
    for (const char* how : {"gzip x.gz", "xz x.xz", "lzma x.lzma", "bzip2 x.bz2", "zstd x.zst",
                            "lz4 x.lz4", "lzip x.LZ"}) {
        const std::string text = how;
        const std::string name = text.substr(text.find(' ') + 1);
        const std::string target = dir / ("p" + name);
        ASSERT_EQ(test_env::run(text.substr(0, text.find(' ')) + " -c < " + in() + "/a > " +
                                (dir / name)),
                  0);
        EXPECT_TRUE(archive_ops::can_unpack(dir / name)) << name;
        const BgTask::Status status = unpacked(dir / name, target);
        EXPECT_EQ(status.failures, Names{}) << name;
        EXPECT_EQ(status.done, 1) << name;
        EXPECT_EQ(status.detail, "x") << name;
        EXPECT_EQ(status.result, "x  ·  " + fmt::bytes(100000)) << name;
        EXPECT_EQ(test_env::logged("UNPACK ok: " + target + "/x (100000 B)"), 1);
        EXPECT_EQ(test_env::read_file(target + "/x"), test_env::pattern(100000)) << name;
    }
}

TEST_F(ArchiveOpsJobs, the_name_of_a_single_file) {
    EXPECT_EQ(archive_ops::plain_inner_name("/a/x.gz"), "x");
    EXPECT_EQ(archive_ops::plain_inner_name("/a/X.Y.LZMA"), "X.Y");
    EXPECT_EQ(archive_ops::plain_inner_name("/a/.gz"), ".gz.out");
    EXPECT_EQ(archive_ops::plain_inner_name("/a/x.tar.gz"), "x.tar.gz");
    EXPECT_EQ(archive_ops::plain_inner_name("/a/x.txt"), "x.txt");
    test_env::write_file(in() + "/a", "content");
    ASSERT_EQ(test_env::run("cd " + in() + " && gzip -c a > .gz"), 0);
    const BgTask::Status status = unpacked(in() + "/.gz", dir / "out");
    EXPECT_EQ(status.failures, Names{});
    EXPECT_EQ(status.detail, ".gz.out");
    EXPECT_EQ(test_env::read_file(dir / "out/.gz.out"), "content");
}

TEST_F(ArchiveOpsJobs, a_single_file_takes_nobodys_place) {
    test_env::write_file(dir / "a", "new");
    ASSERT_EQ(test_env::run("gzip " + (dir / "a")), 0);
    for (const char* there : {"echo old > ", "ln -s /nowhere ", "mkdir "}) {
        const test_env::TempDir target;
        ASSERT_EQ(test_env::run(there + (target / "a")), 0);
        const tree::Snapshot before = tree::snapshot(target.path());
        const BgTask::Status status = unpacked(dir / "a.gz", target.path());
        EXPECT_EQ(status.failures, Names{"a: exists already"});
        EXPECT_EQ(status.result, "");
        EXPECT_EQ(test_env::logged("UNPACK refused: " + (target / "a") + " exists"), 1);
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(target.path())), "");
    }
}

// What comes to stand there after the look is neither written to nor removed.
TEST_F(ArchiveOpsJobs, a_single_file_takes_nobodys_place_in_the_last_moment_either) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_openat);
    test_env::write_file(dir / "a", "new");
    test_env::write_file(dir / "other", "mine");
    ASSERT_EQ(test_env::run("gzip " + (dir / "a")), 0);
    for (const char* there : {"cp ../other a", "ln -s ../other a", "ln -s missing a"}) {
        const test_env::TempDir target(dir.path());
        shim::rule(
            SYS_openat,
            [&](const shim::Call& call) {
                EXPECT_EQ(call.nth, 1);
                EXPECT_EQ(test_env::run("cd " + target.path() + " && " + there), 0);
                return shim::go();
            },
            shim::path_ends(1, target / "a"));
        const BgTask::Status status = unpacked(dir / "a.gz", target.path());
        shim::clear();
        EXPECT_EQ(status.failures, Names{"cannot write " + (target / "a")}) << there;
        EXPECT_EQ(status.result, "");
        EXPECT_TRUE(test_env::exists(target / "a")) << there;
        EXPECT_EQ(test_env::read_file(dir / "other"), "mine") << there;
        EXPECT_FALSE(test_env::exists(target / "missing"));
    }
}

TEST_F(ArchiveOpsJobs, a_broken_single_file_leaves_nothing) {
    test_env::write_file(dir / "a", test_env::pattern(1000000));
    ASSERT_EQ(test_env::run("gzip " + (dir / "a") + " && truncate -s 500000 " + (dir / "a.gz")), 0);
    const BgTask::Status status = unpacked(dir / "a.gz", dir / "target");
    ASSERT_EQ(status.failures.size(), 2u);
    EXPECT_NE(status.failures[0].find("unexpected end of file"), std::string::npos);
    EXPECT_EQ(status.failures[1], "Child process exited with code 1");
    EXPECT_EQ(status.done, 0);
    EXPECT_FALSE(test_env::exists(dir / "target/a"));
    EXPECT_EQ(test_env::logged("UNPACK failed: " + (dir / "a.gz") + " -> " + (dir / "target")), 1);
}

TEST_F(ArchiveOpsJobs, a_full_disk_leaves_no_single_file) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    test_env::make_dirs(dir / "small");
    ASSERT_TRUE(test_env::mount_tmpfs(dir / "small", "size=64k"));
    test_env::write_file(dir / "a", std::string(1000000, 'x'));
    ASSERT_EQ(test_env::run("gzip " + (dir / "a")), 0);
    EXPECT_EQ(unpacked(dir / "a.gz", dir / "small").failures,
              Names{"writing the unpacked file failed"});
    EXPECT_FALSE(test_env::exists(dir / "small/a"));
}

TEST_F(ArchiveOpsJobs, a_target_that_cannot_be_made_ends_the_job) {
    test_env::write_file(dir / "file", "");
    const BgTask::Status status = unpacked(dir / "a.tar", dir / "file/target");
    ASSERT_EQ(status.failures.size(), 1u);
    EXPECT_NE(status.failures[0].find("file"), std::string::npos);
    EXPECT_EQ(test_env::logged_with("UNPACK " + (dir / "a.tar")), 0);
}

TEST_F(ArchiveOpsJobs, a_folder_is_not_left_when_nothing_can_be_written_there) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "x");
    const BgTask::Status status = packed({"a"}, dir / "missing/x.tar", Format::Tar);
    EXPECT_FALSE(status.failures.empty());
    EXPECT_EQ(status.result, "");
    EXPECT_EQ(test_env::logged("PACK aborted, removed partial " + (dir / "missing/x.tar")), 1);
}

TEST_F(ArchiveOpsJobs, what_stands_at_the_archives_name_stays) {
    test_env::write_file(in() + "/a", "x");
    test_env::write_file(dir / "x.tar", "mine");
    EXPECT_EQ(packed({"a"}, dir / "x.tar", Format::Tar).failures, Names{"x.tar: exists already"});
    EXPECT_EQ(test_env::read_file(dir / "x.tar"), "mine");
}

TEST_F(ArchiveOpsJobs, an_entry_that_is_gone_leaves_no_archive) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "x");
    for (const Format format : {Format::TarGz, Format::SevenZ}) {
        const std::string archive = dir / (std::string("x") + archive_ops::extension_for(format));
        const BgTask::Status status = packed({"a", "gone"}, archive, format);
        EXPECT_FALSE(status.failures.empty());
        EXPECT_EQ(status.result, "");
        EXPECT_FALSE(test_env::exists(archive));
        EXPECT_EQ(test_env::logged("PACK aborted, removed partial " + archive), 1);
    }
}

TEST_F(ArchiveOpsJobs, only_the_first_fifty_sources_are_logged) {
    Names names;
    for (int i = 0; i < 53; ++i)
        names.push_back("n" + std::to_string(i));
    for (const std::string& name : names)
        test_env::write_file(in() + "/" + name, "");
    EXPECT_EQ(packed(names, dir / "x.tar", Format::Tar).done, 53);
    EXPECT_EQ(test_env::logged("  packing: " + in() + "/n0"), 1);
    EXPECT_EQ(test_env::logged("  packing: " + in() + "/n49"), 1);
    EXPECT_EQ(test_env::logged("  packing: " + in() + "/n50"), 0);
    EXPECT_EQ(test_env::logged("  … and 3 more"), 1);
}

TEST_F(ArchiveOpsJobs, a_second_task_is_refused) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "while [ ! -e " + (dir / "flag") + " ]; do /bin/sleep 0.01; done");
    ASSERT_TRUE(archive_ops::start_unpack("/a/x.tar", in(), "one"));
    EXPECT_FALSE(archive_ops::start_unpack("/a/x.tar", in(), "two"));
    EXPECT_FALSE(archive_ops::start_pack({}, in(), "/a/x.tar", Format::Tar, "three"));
    test_env::write_file(dir / "flag", "");
    EXPECT_EQ(finished().title, "one");
}

// --- What a child says and how it ends
// ------------------------------------------------------------

TEST_F(ArchiveOpsJobs, standard_error_is_told_also_when_all_went_well) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "echo one; echo 'a warning\r' >&2; echo >&2; printf 'and more' >&2; printf two");
    const BgTask::Status status = unpacked("/a/x.tar", in());
    EXPECT_EQ(status.failures, (Names{"a warning", "and more"}));
    EXPECT_EQ(status.done, 2);
    EXPECT_EQ(status.detail, "two");
    EXPECT_EQ(status.result, "x.tar  ·  " + fmt::files(2));
}

TEST_F(ArchiveOpsJobs, a_silent_failure_is_told_by_the_exit_status) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "exit 7");
    EXPECT_EQ(unpacked("/a/x.tar", in()).failures, Names{"Child process exited with code 7"});
    tool("tar", "kill -9 $$");
    EXPECT_EQ(unpacked("/a/x.tar", in()).failures, Names{"Child process killed by signal 9"});
}

// By a signal, or because there is nothing there yet.
TEST_F(ArchiveOpsJobs, an_interrupted_read_or_wait_is_done_again) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_read, SYS_wait4);
    tool("tar", "echo one; echo two >&2; exit 7");
    const auto of_a_stream = [](const shim::Call& call) { return call.args[2] == 8192; };
    shim::fail(SYS_read, EINTR, 1, 1, of_a_stream);
    shim::fail(SYS_read, EAGAIN, 2, 1, of_a_stream);
    shim::fail(SYS_wait4, EINTR, 1, 1);
    const BgTask::Status status = unpacked("/a/x.tar", in());
    EXPECT_GE(shim::calls(SYS_wait4), 2);
    shim::clear();
    EXPECT_EQ(status.failures, (Names{"two", "Child process exited with code 7"}));
    EXPECT_EQ(status.done, 1);
    EXPECT_EQ(status.detail, "one");
}

TEST_F(ArchiveOpsJobs, missing_tools) {
    REQUIRE_FRESH_PROCESS();
    tool("gzip", "");
    for (const char* path : {"/a/x.tar.gz", "/a/x.tar", "/a/x.tar.lz4"}) {
        EXPECT_FALSE(archive_ops::can_unpack(path));
        EXPECT_EQ(
            test_env::logged(std::string("cannot unpack '") + path + "': tar is not runnable"), 1);
    }
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.zip"));
    EXPECT_EQ(test_env::logged("cannot unpack '/a/x.zip': 'unzip' is not runnable"), 1);
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.lz"));
    EXPECT_EQ(test_env::logged("cannot unpack '/a/x.lz': 'lzip' is not runnable"), 1);
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.7z"));
    EXPECT_TRUE(archive_ops::can_unpack("/a/x.gz"));
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.txt"));
    EXPECT_TRUE(archive_ops::is_archive_name("x.lz"));
    EXPECT_FALSE(archive_ops::is_archive_name("x.txt"));

    EXPECT_EQ(unpacked("/a/x.7z", in()).failures, Names{"7z is not installed"});
    const Names failures = unpacked("/a/x.zip", in()).failures;
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].find("unzip"), std::string::npos) << failures[0];
    EXPECT_EQ(unpacked("/a/x.lz", in()).failures.size(), 1u);
    EXPECT_FALSE(test_env::exists(in() + "/x"));
}

TEST_F(ArchiveOpsJobs, cancelling_stops_the_whole_session_and_leaves_no_archive) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "x");
    tool("tar",
         "echo part > $2\n(trap '' TERM; echo 1; while :; do /bin/sleep 0.01; done) & echo $! > " +
             (dir / "helper") + "; echo $$ > " + (dir / "leader") +
             "\nwhile :; do echo line; /bin/sleep 0.01; done");
    ASSERT_TRUE(
        archive_ops::start_pack({in() + "/a"}, in(), dir / "x.tar", Format::Tar, "Packing"));
    ASSERT_TRUE(test_env::wait_until([] { return BgTask::instance().snapshot().done > 2; }));
    EXPECT_TRUE(test_env::exists(dir / "x.tar"));
    const auto begin = std::chrono::steady_clock::now();
    BgTask::instance().cancel();
    const BgTask::Status status = finished();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(600));
    EXPECT_TRUE(status.cancelled);
    EXPECT_EQ(status.failures, Names{});
    EXPECT_EQ(status.result, "");
    EXPECT_FALSE(test_env::exists(dir / "x.tar"));
    EXPECT_TRUE(is_gone("leader"));
    EXPECT_TRUE(is_gone("helper"));
    EXPECT_EQ(test_env::logged("PACK aborted, removed partial " + (dir / "x.tar")), 1);
}

TEST_F(ArchiveOpsJobs, a_child_that_ignores_the_request_is_killed_after_a_second) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "trap '' TERM PIPE; echo $$ > " + (dir / "leader") +
                    "; echo 1; while :; do /bin/sleep 0.02; done");
    ASSERT_TRUE(archive_ops::start_unpack("/a/x.tar", in(), "Unpacking"));
    ASSERT_TRUE(test_env::wait_until([] { return BgTask::instance().snapshot().done > 0; }));
    const auto begin = std::chrono::steady_clock::now();
    BgTask::instance().cancel();
    EXPECT_EQ(finished().failures, Names{});
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GT(took, std::chrono::milliseconds(950));
    EXPECT_LT(took, std::chrono::milliseconds(1950));
    EXPECT_TRUE(is_gone("leader"));
}

// The names in a zip are looked at first, so that unzip does not change them.
TEST_F(ArchiveOpsJobs, cancelled_at_the_look_nothing_is_unpacked) {
    REQUIRE_FRESH_PROCESS();
    tool("unzip", "if [ \"$1\" != -l ]; then echo > " + (dir / "unpacking") +
                      "; exit; fi\necho > " + (dir / "looking") +
                      "; while :; do /bin/sleep 0.01; done");
    ASSERT_TRUE(archive_ops::start_unpack("/a/x.zip", in(), "Unpacking"));
    ASSERT_TRUE(test_env::wait_until([this] { return test_env::exists(dir / "looking"); }));
    BgTask::instance().cancel();
    EXPECT_EQ(finished().failures, Names{});
    EXPECT_FALSE(test_env::exists(dir / "unpacking"));
    EXPECT_EQ(test_env::logged("UNPACK failed: /a/x.zip -> " + in()), 1);
}

// As zip and 7z do, which write beside the archive until they are done. A file that is only read,
// one that is written elsewhere, and one that is another's by the end stay.
TEST_F(ArchiveOpsJobs, what_a_killed_archiver_was_writing_goes_and_nothing_else) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "x");
    test_env::make_dirs(dir / "out");
    test_env::make_dirs(dir / "elsewhere");
    for (const char* name : {"read", "ziOTHER1", "x.zip.tmp"})
        test_env::write_file(dir / (std::string("out/") + name), "mine");
    ASSERT_EQ(symlink("out", (dir / "link").c_str()), 0);
    tool("zip", "trap '' TERM PIPE; cd " + (dir / "out") +
                    "; exec 3> ziABCDEF 4< read 5> ../elsewhere/written 6> replaced 7>&1"
                    "; echo part >&3; /bin/mv replaced ../elsewhere/; echo new > replaced"
                    "; echo $$ > " +
                    (dir / "leader") + "; echo 1; while :; do /bin/sleep 0.02; done");
    ASSERT_TRUE(
        archive_ops::start_pack({in() + "/a"}, in(), dir / "link/x.zip", Format::Zip, "Packing"));
    ASSERT_TRUE(test_env::wait_until([] { return BgTask::instance().snapshot().done > 0; }));
    EXPECT_TRUE(test_env::exists(dir / "out/ziABCDEF"));
    BgTask::instance().cancel();
    EXPECT_EQ(finished().failures, Names{});
    EXPECT_TRUE(is_gone("leader"));
    EXPECT_FALSE(test_env::exists(dir / "out/ziABCDEF"));
    for (const char* name :
         {"out/read", "out/ziOTHER1", "out/x.zip.tmp", "out/replaced", "elsewhere/written"})
        EXPECT_TRUE(test_env::exists(dir / name)) << name;
    EXPECT_EQ(test_env::logged("PACK aborted, removed partial " + (dir / "link/x.zip")), 1);
    EXPECT_EQ(test_env::logged("PACK aborted, removed partial " + (dir / "out/ziABCDEF")), 1);
}

// It tells of it first, at any length.
TEST_F(ArchiveOpsJobs, an_archiver_that_is_told_to_end_can_clean_up) {
    REQUIRE_FRESH_PROCESS();
    for (const char* stream : {"", " >&2"}) {
        tool("zip", "trap 'i=0; while [ $i -lt 3000 ]; do echo " + std::string(80, 'x') + stream +
                        "; i=$((i+1)); done; /bin/rm -f " + (dir / "partial") +
                        "; exit 9' TERM\necho > " + (dir / "partial") +
                        "; echo 1; while :; do /bin/sleep 0.01; done");
        ASSERT_TRUE(
            archive_ops::start_pack({in() + "/a"}, in(), dir / "x.zip", Format::Zip, "Packing"));
        ASSERT_TRUE(test_env::wait_until([] { return BgTask::instance().snapshot().done > 0; }));
        BgTask::instance().cancel();
        EXPECT_EQ(finished().failures, Names{});
        EXPECT_FALSE(test_env::exists(dir / "partial")) << stream;
    }
}

// The real ones, told to end in the middle of their work.
TEST_F(ArchiveOpsJobs, a_cancelled_archiver_leaves_nothing_beside_the_archive) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(dir / "out");
    test_env::write_file(in() + "/small", "x");
    ASSERT_EQ(test_env::run("truncate -s 8G '" + in() + "/zlarge'"), 0);
    for (const Format format : archive_ops::kAllFormats) {
        const std::string archive =
            dir / (std::string("out/x") + archive_ops::extension_for(format));
        ASSERT_TRUE(archive_ops::start_pack({in() + "/small", in() + "/zlarge"}, in(), archive,
                                            format, "Packing"));
        // By its name alone: what it holds grows faster than it could be read.
        ASSERT_TRUE(test_env::wait_until([this] {
            return !std::filesystem::is_empty(dir / "out") || !BgTask::instance().is_running();
        }));
        BgTask::instance().cancel();
        EXPECT_EQ(finished().failures, Names{}) << archive;
        EXPECT_EQ(tree::difference_text({}, tree::snapshot(dir / "out")), "") << archive;
    }
}

TEST_F(ArchiveOpsJobs, a_cancelled_unpacking_keeps_what_is_out_but_no_part_of_a_single_file) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "echo x > " + in() + "/out; while :; do echo 1; /bin/sleep 0.01; done");
    tool("gzip", "while :; do echo 1; /bin/sleep 0.01; done");
    ASSERT_TRUE(archive_ops::start_unpack("/a/x.tar", in(), "Unpacking"));
    ASSERT_TRUE(test_env::wait_until([] { return BgTask::instance().snapshot().done > 0; }));
    BgTask::instance().cancel();
    EXPECT_EQ(finished().failures, Names{});
    EXPECT_TRUE(test_env::exists(in() + "/out"));

    ASSERT_TRUE(archive_ops::start_unpack("/a/x.gz", in(), "Unpacking"));
    ASSERT_TRUE(test_env::wait_until([this] { return test_env::exists(in() + "/x"); }));
    BgTask::instance().cancel();
    EXPECT_EQ(finished().failures, Names{});
    EXPECT_FALSE(test_env::exists(in() + "/x"));
    EXPECT_EQ(test_env::logged("UNPACK failed: /a/x.gz -> " + in()), 1);
}

}  // namespace
