#include "archive_ops.h"
#include "archive_ops_child.h"
#include "archive_ops_list.h"
#include "fresh_process.h"
#include "log_lines.h"
#include "shim.h"
#include "test_env.h"
#include "wait_until.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <vector>

namespace {

using archive_ops::ListEntry;
using archive_ops::ListStatus;
using archive_ops::ParseLine;
using Words = std::vector<std::string>;

// "name size" with a slash in front of a folder's; "-" for a line that tells of nothing.
std::string told(ParseLine parse, const std::string& line) {
    ListEntry entry;
    if (!parse(line, entry))
        return "-";
    return (entry.is_dir ? "/" : "") + entry.name + " " + std::to_string(entry.size);
}

TEST(ArchiveOpsLines, fields) {
    using archive_ops::split_fields;
    EXPECT_EQ(split_fields("  a b\t c  d  e ", 3), (Words{"a", "b", "c  d  e "}));
    EXPECT_EQ(split_fields("a b", 3), (Words{"a", "b"}));
    EXPECT_EQ(split_fields("a b  ", 3), (Words{"a", "b"}));
    EXPECT_EQ(split_fields(" \t ", 3), Words{});
    EXPECT_EQ(split_fields("", 3), Words{});
    EXPECT_EQ(split_fields(" a b ", 1), Words{"a b "});
}

TEST(ArchiveOpsLines, zip) {
    const auto zip = [](const std::string& line) {
        return told(archive_ops::parse_zip_line, line);
    };
    EXPECT_EQ(zip("     1234  2024-05-06 07:08   a  name with blanks"), "a  name with blanks 1234");
    EXPECT_EQ(zip("        0  2024-05-06 07:08   folder/"), "/folder/ 0");
    EXPECT_EQ(zip("Archive:  /a/x-1 b c.zip"), "-");
    EXPECT_EQ(zip("  Length      Date    Time    Name"), "-");
    EXPECT_EQ(zip("---------  ---------- -----   ----"), "-");
    EXPECT_EQ(zip("---------                     -------"), "-");
    EXPECT_EQ(zip("     1234                     2 files"), "-");
    EXPECT_EQ(zip("     1234  2 of 3 files"), "-");
    EXPECT_EQ(zip("     1234  2024-05-06 07:08"), "-");
    EXPECT_EQ(zip(""), "-");
    EXPECT_EQ(zip("99999999999999999999999 - - x"), "x 9223372036854775807");
}

TEST(ArchiveOpsLines, what_stands_above_a_zip_s_entries) {
    using archive_ops::begins_zip_entries;
    EXPECT_TRUE(begins_zip_entries("---------  ---------- -----   ----"));
    EXPECT_TRUE(begins_zip_entries(" --------    ----   ----    ----"));
    EXPECT_FALSE(begins_zip_entries("---------                     -------"));
    EXPECT_FALSE(begins_zip_entries("---------  ---------- -----   --- -"));
    EXPECT_FALSE(begins_zip_entries("---------  ---------- -----   -x--"));
    EXPECT_FALSE(begins_zip_entries("        1  2024-05-06 07:08   ----"));
    EXPECT_FALSE(begins_zip_entries(""));
}

TEST(ArchiveOpsLines, sevenz) {
    const auto sevenz = [](const std::string& line) {
        return told(archive_ops::parse_7z_line, line);
    };
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11           20  a  b"), "a  b 11");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11               @list"), "@list 11");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11               a  b c"), "a  b c 11");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11               123"), "123 11");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11               1x 23"), "1x 23 11");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 D....            0            0  e"), "/e 0");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 DRHSA            0            0  e"), "/e 0");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....a            0            0  e"), "-");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....             0            0  e"), "-");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27                 16           20  4 files, 1 folders"),
              "-");
    EXPECT_EQ(sevenz("   Date      Time    Attr         Size   Compressed  Name"), "-");
    EXPECT_EQ(sevenz("------------------- ----- ------------ ------------  -----------------"),
              "-");
    EXPECT_EQ(sevenz("20261-1-21 20:46:27 ....A            0            0  e"), "-");
    EXPECT_EQ(sevenz("2026-11-21 20:46:27 ....A           11"), "-");
}

TEST(ArchiveOpsLines, tar) {
    const auto tar = [](const std::string& line) {
        return told(archive_ops::parse_tar_line, line);
    };
    EXPECT_EQ(tar("-rw-r--r-- root/root      1234 2026-11-21 20:46 a  b"), "a  b 1234");
    EXPECT_EQ(tar("drwxr-xr-x root/root         0 2026-11-21 20:46 e/"), "/e/ 0");
    EXPECT_EQ(tar("lrwxrwxrwx root/root         0 2026-11-21 20:46 a link -> to -> this"),
              "a link 0");
    EXPECT_EQ(tar("-rw-r--r-- root/root         7 2026-11-21 20:46 no -> link"), "no -> link 7");
    EXPECT_EQ(tar("hrw-r--r-- root/root         0 2026-11-21 20:46 hard link to that"), "hard 0");
    EXPECT_EQ(tar("-rw-r--r-- root/root         7 2026-11-21 20:46 b link to a"), "b link to a 7");
    EXPECT_EQ(tar("-rw-r--r-- root/root         7 2026-11-21 20:46"), "-");
    EXPECT_EQ(tar(""), "-");
}

TEST(ArchiveOpsLines, a_stream_becomes_lines) {
    Words lines;
    archive_ops::LineCutter cutter([&lines](const std::string& line) { lines.push_back(line); });
    for (const char* part : {"a", "b\r", "\nc\r\r\n\n", "d\re"})
        cutter.add(part);
    EXPECT_EQ(lines, (Words{"ab", "c", ""}));
    cutter.finish();
    cutter.finish();
    EXPECT_EQ(lines, (Words{"ab", "c", "", "d\re"}));
    const std::string piece(50000, 'x');
    cutter.add(piece);
    cutter.add(piece);
    cutter.add("\ny\n");
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[4].size(), 65536u);
    EXPECT_EQ(lines[5], "y");
}

// --- The real tools
// -------------------------------------------------------------------------------

ListStatus listed(const std::string& archive) {
    archive_ops::start_list(archive);
    EXPECT_TRUE(test_env::wait_until([] { return !archive_ops::list_status().running; }));
    return archive_ops::list_status();
}

std::string names() {
    std::string text;
    for (const ListEntry& entry : archive_ops::list_slice(0, 1000))
        text += (entry.is_dir ? "/" : "") + entry.name + ":" + std::to_string(entry.size) + "|";
    return text;
}

class ArchiveOpsList : public testing::Test {
  protected:
    void SetUp() override {
        test_env::make_dirs(dir / "in/empty folder");
        test_env::write_file(dir / "in/two  blanks", "12345");
        test_env::write_file(dir / "in/ünï", "123");
        ASSERT_EQ(test_env::run("ln -s target '" + dir.path() + "/in/link'"), 0);
    }
    void TearDown() override { archive_ops::cancel_list(); }

    // Runs a packer on all entries, in a set order.
    void pack(const std::string& command) {
        std::string output;
        ASSERT_EQ(test_env::run("cd " + dir.path() + "/in && " + command +
                                    " 'empty folder' link 'two  blanks' ünï 2>&1",
                                &output),
                  0)
            << output;
    }
    test_env::TempDir dir;
};

TEST_F(ArchiveOpsList, every_kind_of_tar) {
    for (const char* kind : {"-czf ../x.tar.gz", "-czf ../x.tgz", "-cJf ../x.tar.xz",
                             "--lzma -cf ../x.tar.lzma", "--lzip -cf ../x.tar.lz", "-cjf ../x.tbz2",
                             "--zstd -cf ../x.tzst", "-I lz4 -cf ../x.tar.lz4", "-cf ../x.tar"}) {
        pack("tar " + std::string(kind));
        const std::string name = std::string(kind).substr(std::string(kind).find("x.t"));
        const ListStatus status = listed(dir / name);
        EXPECT_TRUE(status.done) << name;
        EXPECT_EQ(status.error, "") << name;
        EXPECT_EQ(status.count, 4u) << name;
        EXPECT_EQ(status.dirs, 1u) << name;
        EXPECT_EQ(status.total_size, 8) << name;
        EXPECT_EQ(status.archive, dir / name);
        EXPECT_EQ(names(), "/empty folder/:0|link:0|two  blanks:5|ünï:3|") << name;
        EXPECT_EQ(test_env::logged("LIST " + (dir / name)), 1);
        EXPECT_EQ(test_env::logged("LIST ok: 4 entries in " + (dir / name)), 1);
    }
}

TEST_F(ArchiveOpsList, zip_and_7z) {
    REQUIRE_FRESH_PROCESS();
    pack("zip -q -r -y '../x[1].zip'");
    ListStatus status = listed(dir / "x[1].zip");
    EXPECT_EQ(status.error, "");
    EXPECT_EQ(names(), "/empty folder/:0|link:6|two  blanks:5|ünï:3|");
    EXPECT_EQ(status.total_size, 14);
    EXPECT_EQ(status.dirs, 1u);

    pack("7z a -snl -spd '../x*.7z'");
    status = listed(dir / "x*.7z");
    EXPECT_EQ(status.error, "");
    EXPECT_EQ(status.count, 4u);
    EXPECT_EQ(status.dirs, 1u);
    for (const char* entry : {"/empty folder:0|", "two  blanks:5|", "ünï:3|"})
        EXPECT_NE(names().find(entry), std::string::npos) << names();
}

TEST_F(ArchiveOpsList, a_comment_that_looks_like_entries_is_none) {
    REQUIRE_FRESH_PROCESS();
    pack("zip -q -r -y ../x.zip");
    ASSERT_EQ(test_env::run("printf '%s\\n' '    1234  2024-05-06 07:08   fake' "
                            "'---------  ---------- -----   ----' "
                            "'       7  2024-05-06 07:08   fake folder/' | zip -q -z " +
                            (dir / "x.zip") + " >/dev/null"),
              0);
    const ListStatus status = listed(dir / "x.zip");
    EXPECT_EQ(status.error, "");
    EXPECT_EQ(names(), "/empty folder/:0|link:6|two  blanks:5|ünï:3|");
    EXPECT_EQ(status.dirs, 1u);
    EXPECT_EQ(status.total_size, 14);
}

TEST_F(ArchiveOpsList, a_single_compressed_file_needs_no_tool) {
    const ListStatus status = listed("/nowhere/a.txt.GZ");
    EXPECT_TRUE(status.done);
    EXPECT_EQ(status.error, "");
    EXPECT_EQ(names(), "a.txt:-1|");
    EXPECT_EQ(status.dirs, 0u);
    EXPECT_EQ(status.total_size, 0);
    EXPECT_EQ(test_env::logged("LIST ok: 1 entry in /nowhere/a.txt.GZ (single compressed file)"),
              1);
}

TEST_F(ArchiveOpsList, slices_end_where_the_list_does) {
    pack("tar -cf ../x.tar");
    (void)listed(dir / "x.tar");
    EXPECT_EQ(archive_ops::list_slice(1, 2).size(), 2u);
    EXPECT_EQ(archive_ops::list_slice(1, 2)[0].name, "link");
    EXPECT_EQ(archive_ops::list_slice(3, 2).size(), 1u);
    EXPECT_EQ(archive_ops::list_slice(3, SIZE_MAX).size(), 1u);
    EXPECT_EQ(archive_ops::list_slice(4, 1).size(), 0u);
    EXPECT_EQ(archive_ops::list_slice(SIZE_MAX, 1).size(), 0u);
    EXPECT_EQ(archive_ops::list_slice(0, 0).size(), 0u);
}

TEST_F(ArchiveOpsList, after_cancelling_there_is_nothing) {
    EXPECT_FALSE(archive_ops::list_status().running);
    pack("tar -cf ../x.tar");
    (void)listed(dir / "x.tar");
    archive_ops::cancel_list();
    const ListStatus status = archive_ops::list_status();
    EXPECT_FALSE(status.running || status.done);
    EXPECT_EQ(status.count, 0u);
    EXPECT_EQ(status.archive, "");
    EXPECT_TRUE(archive_ops::list_slice(0, 1).empty());
}

// Each wait would be of 50 ms.
TEST_F(ArchiveOpsList, an_ended_listing_is_not_waited_for) {
    std::chrono::steady_clock::duration waited{};
    for (int i = 0; i < 20; ++i) {
        (void)listed("/nowhere/a.gz");
        const auto begin = std::chrono::steady_clock::now();
        archive_ops::cancel_list();
        waited += std::chrono::steady_clock::now() - begin;
    }
    EXPECT_LT(waited, std::chrono::milliseconds(800));
}

TEST_F(ArchiveOpsList, without_a_thread_the_listing_has_failed) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    for (const long number : {SYS_clone3, SYS_clone})
        shim::fail(number, EAGAIN, 1);
    archive_ops::start_list("/a/x.tar");
    shim::clear();
    const ListStatus status = archive_ops::list_status();
    EXPECT_TRUE(status.done);
    EXPECT_FALSE(status.running);
    EXPECT_EQ(status.error, "listing failed");
    EXPECT_EQ(test_env::logged("LIST failed: /a/x.tar — listing failed"), 1);
    const auto begin = std::chrono::steady_clock::now();
    archive_ops::cancel_list();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(45));
}

TEST_F(ArchiveOpsList, a_broken_archive_ends_with_the_tools_message) {
    REQUIRE_FRESH_PROCESS();
    for (const char* name : {"x.zip", "x.7z", "x.tar.gz", "x.tar"}) {
        test_env::write_file(dir / name, test_env::pattern(3000));
        const ListStatus status = listed(dir / name);
        EXPECT_TRUE(status.done);
        EXPECT_FALSE(status.running);
        EXPECT_FALSE(status.error.empty()) << name;
        EXPECT_NE(status.error, "the archiver reported an error") << name;
        EXPECT_NE(status.error.front(), '\n');
        EXPECT_NE(status.error.back(), '\n');
        EXPECT_EQ(test_env::logged_with("LIST failed: " + (dir / name) + " — "), 1);
    }
}

// Tools of the test's own, in a search path of their own.
class ArchiveOpsListTools : public testing::Test {
  protected:
    void TearDown() override { archive_ops::cancel_list(); }
    void tool(const std::string& name, const std::string& script) {
        test_env::write_file(dir / name, "#!/bin/sh\n" + script + "\n", 0755);
        setenv("PATH", dir.path().c_str(), 1);
    }
    test_env::TempDir dir;
};

TEST_F(ArchiveOpsListTools, the_message_when_a_tool_says_nothing_or_too_much_or_is_missing) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "exit 3");
    EXPECT_EQ(listed("/a/x.tar").error, "the archiver reported an error");
    EXPECT_EQ(listed("/a/x.zip").error, "could not start the archiver");
    EXPECT_EQ(listed("/a/x.7z").error, "could not start the archiver");
    tool("tar", "i=0; while [ $i -lt 1000 ]; do echo 123456789 >&2; i=$((i+1)); done; exit 1");
    EXPECT_EQ(listed("/a/x.tar").error.size(), 4096u);
    tool("tar", "echo only a warning >&2");
    EXPECT_EQ(listed("/a/x.tar").error, "");
}

TEST_F(ArchiveOpsListTools, a_tool_has_nothing_to_read_and_speaks_english) {
    REQUIRE_FRESH_PROCESS();
    setenv("LANGUAGE", "de", 1);
    tool("tar", "read line && exit 9\necho \"- - 1 - - $LC_ALL:$LANGUAGE:\"\n"
                "read a b c d e sid rest < /proc/$$/stat; [ $e = $$ ] || exit 8\n[ $sid = $$ ]");
    const ListStatus status = listed("/a/x.tar");
    EXPECT_EQ(status.error, "");
    EXPECT_EQ(names(), "C.UTF-8:::1|");
}

TEST_F(ArchiveOpsListTools, cancelling_ends_the_tool_at_once_and_nothing_comes_late) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "echo $$ > " + (dir / "pid") +
                    "\necho '- - 1 - - first'; while :; do /bin/sleep 0.01; echo '- - 1 - - x'; "
                    "done");
    archive_ops::start_list("/a/x.tar");
    ASSERT_TRUE(test_env::wait_until([] { return archive_ops::list_status().count > 2; }));
    EXPECT_TRUE(archive_ops::list_status().running);
    const std::string pid = test_env::read_file(dir / "pid");
    const auto begin = std::chrono::steady_clock::now();
    archive_ops::cancel_list();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
    EXPECT_TRUE(test_env::wait_until(
        [&] { return !test_env::exists("/proc/" + pid.substr(0, pid.size() - 1)); }));
    test_env::write_file(dir / "tar", "#!/bin/sh\necho '- - 1 - - second'\n", 0755);
    (void)listed("/a/y.tar");
    EXPECT_EQ(names(), "second:1|");
}

TEST_F(ArchiveOpsListTools, a_tool_that_does_not_heed_is_not_waited_for) {
    REQUIRE_FRESH_PROCESS();
    tool("tar", "trap '' TERM PIPE\necho $$ > " + (dir / "pid") +
                    "\necho '- - 1 - - x'; while :; do /bin/sleep 0.05; done");
    archive_ops::start_list("/a/x.tar");
    ASSERT_TRUE(test_env::wait_until([] { return archive_ops::list_status().count > 0; }));
    const std::string pid = test_env::read_file(dir / "pid");
    const auto begin = std::chrono::steady_clock::now();
    archive_ops::cancel_list();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
    EXPECT_FALSE(archive_ops::list_status().running);
    // A second later it is killed.
    EXPECT_TRUE(test_env::wait_until(
        [&] { return !test_env::exists("/proc/" + pid.substr(0, pid.size() - 1)); }, 5));
}

}  // namespace
