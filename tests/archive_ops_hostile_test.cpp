// Archives that somebody has made to do harm, or that are no whole archives, with the real tools.

#include "archive_ops.h"
#include "bg_task.h"
#include "fresh_process.h"
#include "test_env.h"
#include "tree.h"
#include "wait_until.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Makes one archive: MODE FILE OUTSIDE. The first entry is harmless, the others are not.
constexpr const char* kMaker = R"PY(
import io, sys, tarfile, zipfile
mode, path, outside = sys.argv[1:4]
entries = {'absolute': [(outside + '/mine', b'evil', '')],
           'dots': [('../outside/mine', b'evil', ''), ('a/../../outside/new', b'evil', '')],
           'link': [('l', b'', outside), ('l/mine', b'evil', ''), ('l/new', b'evil', '')],
           'file link': [('f', b'', outside + '/mine'), ('f', b'evil', '')],
           'dots link': [('l', b'', '../outside'), ('l/mine', b'evil', '')],
           'hard link': [('h', b'', '=' + outside + '/mine'), ('h', b'evil', '')],
           'hard dots': [('h', b'', '=../outside/mine'), ('h', b'evil', '')]}[mode]
if path.endswith('.tar'):
    with tarfile.open(path, 'w') as t:
        for name, data, link in [('good', b'good', '')] + entries:
            i = tarfile.TarInfo(name)
            i.size = len(data)
            if link:
                i.type = tarfile.LNKTYPE if link[0] == '=' else tarfile.SYMTYPE
                i.linkname = link.lstrip('=')
            t.addfile(i, io.BytesIO(data))
else:
    with zipfile.ZipFile(path, 'w') as z:
        for name, data, link in [('good', b'good', '')] + entries:
            i = zipfile.ZipInfo(name)
            i.create_system = 3
            i.external_attr = (0o120777 if link else 0o100644) << 16
            z.writestr(i, link or data)
)PY";

BgTask::Status unpacked(const std::string& archive, const std::string& target) {
    EXPECT_TRUE(archive_ops::start_unpack(archive, target, "Unpacking"));
    EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }, 60));
    return BgTask::instance().snapshot();
}

archive_ops::ListStatus listed(const std::string& archive) {
    archive_ops::start_list(archive);
    EXPECT_TRUE(test_env::wait_until([] { return !archive_ops::list_status().running; }, 60));
    return archive_ops::list_status();
}

std::string text_of(const BgTask::Status& status) {
    std::string text;
    for (const std::string& line : status.failures)
        text += line + "\n";
    return text;
}

class ArchiveOpsHostile : public testing::Test {
  protected:
    void SetUp() override {
        test_env::make_dirs(dir / "outside");
        test_env::write_file(dir / "outside/mine", "mine");
        before = tree::snapshot(dir / "outside");
        test_env::write_file(dir / "maker.py", kMaker);
    }
    void TearDown() override { archive_ops::cancel_list(); }

    void expect_nothing_outside(const std::string& archive) {
        const std::string target = dir / "target";
        const BgTask::Status status = unpacked(dir / archive, target);
        EXPECT_EQ(test_env::read_file(target + "/good"), "good") << archive << text_of(status);
        tree::Compare how;
        how.inodes = true;
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(dir / "outside"), how), "")
            << archive;
        EXPECT_EQ(test_env::lstat_of(dir / "outside/mine").st_nlink, 1u) << archive;
        ASSERT_EQ(test_env::run("rm -r '" + target + "'"), 0);
    }
    test_env::TempDir dir;
    tree::Snapshot before;
};

TEST_F(ArchiveOpsHostile, nothing_is_written_outside_the_target) {
    REQUIRE_FRESH_PROCESS();
    for (const char* mode :
         {"absolute", "dots", "link", "file link", "dots link", "hard link", "hard dots"}) {
        for (const char* archive : {"x.tar", "x.zip"}) {
            if (std::string(mode).find("hard") == 0 && archive == std::string("x.zip"))
                continue;
            std::string output;
            ASSERT_EQ(test_env::run("/usr/bin/python3 '" + (dir / "maker.py") + "' '" + mode +
                                        "' '" + (dir / archive) + "' '" + (dir / "outside") +
                                        "' 2>&1",
                                    &output),
                      0)
                << output;
            SCOPED_TRACE(mode);
            expect_nothing_outside(archive);
        }
    }
}

TEST_F(ArchiveOpsHostile, nothing_is_written_outside_the_target_by_7z) {
    REQUIRE_FRESH_PROCESS();
    const auto pack = [this](const std::string& command) {
        std::string output;
        ASSERT_EQ(
            test_env::run("cd '" + (dir / "in") + "' && " + command + " </dev/null 2>&1", &output),
            0)
            << output;
    };
    test_env::make_dirs(dir / "in/evil/l");
    test_env::write_file(dir / "in/good", "good");
    test_env::write_file(dir / "in/evil/l/mine", "evil");
    pack("ln -s '" + (dir / "outside") +
         "' l && 7z a -snl ../link.7z good l && cd evil && "
         "7z a ../../link.7z l/mine");
    expect_nothing_outside("link.7z");
    test_env::make_dirs(dir / "in/outside");
    pack("7z a -spf ../absolute.7z good '" + (dir / "outside/mine") + "' ../outside/mine");
    // What was packed is older than this.
    test_env::write_file(dir / "outside/mine", "changed");
    before = tree::snapshot(dir / "outside");
    expect_nothing_outside("absolute.7z");
}

TEST_F(ArchiveOpsHostile, encrypted_archives_end_with_the_tools_message) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(test_env::run("cd " + (dir / "outside") +
                            " && zip -q -P secret ../x.zip mine && "
                            "7z a -psecret ../x.7z mine >/dev/null && "
                            "7z a -psecret -mhe=on ../h.7z mine >/dev/null"),
              0);
    for (const char* archive : {"x.zip", "x.7z", "h.7z"}) {
        const BgTask::Status status = unpacked(dir / archive, dir / "target");
        EXPECT_FALSE(status.failures.empty()) << archive;
        EXPECT_EQ(status.result, "") << archive;
        EXPECT_GT(status.failures.size(), 1u) << "no word of the tool: " << text_of(status);
    }
    EXPECT_EQ(listed(dir / "x.zip").count, 1u);
    EXPECT_EQ(listed(dir / "x.7z").count, 1u);
    EXPECT_FALSE(listed(dir / "h.7z").error.empty());
}

TEST_F(ArchiveOpsHostile, truncated_archives_are_failures) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(dir / "big", test_env::pattern(200000));
    ASSERT_EQ(test_env::run("cd " + dir.path() +
                            " && tar -czf x.tar.gz big && tar -cf x.tar big && zip -q x.zip big && "
                            "7z a x.7z big >/dev/null && truncate -s 100000 x.*"),
              0);
    for (const char* archive : {"x.tar.gz", "x.tar", "x.zip", "x.7z"}) {
        const BgTask::Status status = unpacked(dir / archive, dir / "target");
        EXPECT_GT(status.failures.size(), 1u) << archive << text_of(status);
        EXPECT_EQ(status.result, "");
        EXPECT_FALSE(listed(dir / archive).error.empty()) << archive;
    }
}

TEST_F(ArchiveOpsHostile, names_with_control_characters_are_reported) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(dir / "in");
    test_env::write_file(dir / "in/a\nb", "x");
    test_env::write_file(dir / "in/a\x1b[31mred", "x");
    for (const char* packer : {"tar -cf ../x.tar", "zip -q -r ../x.zip", "7z a ../x.7z"}) {
        ASSERT_EQ(
            test_env::run("cd " + (dir / "in") + " && " + packer + " * </dev/null >/dev/null"), 0);
        const std::string name = std::string(packer).substr(std::string(packer).find("x."));
        EXPECT_EQ(listed(dir / name).count, 2u) << packer;
        EXPECT_EQ(listed(dir / name).total_size, 2) << packer;
        const BgTask::Status status = unpacked(dir / name, dir / ("out " + name));
        EXPECT_EQ(text_of(status), "");
        tree::Compare how;
        how.times = false;
        if (name == "x.tar") {
            EXPECT_EQ(tree::difference_text(tree::snapshot(dir / "in"),
                                            tree::snapshot(dir / ("out " + name)), how),
                      "");
        }
    }
}

// --- Large ones
// -----------------------------------------------------------------------------------

TEST(NightlyArchiveOpsList, of_a_million_entries_the_first_are_there_at_once) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir dir;
    ASSERT_EQ(test_env::run(
                  "/usr/bin/python3 -c \"\nimport tarfile\n"
                  "t = tarfile.open('" +
                  (dir / "x.tar") +
                  "', 'w')\n"
                  "for n in range(1000000): t.fileobj.write(tarfile.TarInfo('folder/file number %d'"
                  " % n).tobuf()); \nt.offset = t.fileobj.tell(); t.close()\""),
              0);
    const auto begin = Clock::now();
    archive_ops::start_list(dir / "x.tar");
    ASSERT_TRUE(test_env::wait_until([] { return archive_ops::list_status().count > 20; }));
    const std::chrono::duration<double, std::milli> first = Clock::now() - begin;
    EXPECT_LT(first.count(), 200);
    double slowest = 0;
    while (archive_ops::list_status().running) {
        const auto frame = Clock::now();
        const size_t count = archive_ops::list_status().count;
        EXPECT_EQ(archive_ops::list_slice(count / 2, 10).size(), 10u);
        const std::chrono::duration<double, std::milli> took = Clock::now() - frame;
        slowest = std::max(slowest, took.count());
        ASSERT_TRUE(Clock::now() - begin < std::chrono::seconds(120));
        (void)test_env::wait_until(
            [frame] { return Clock::now() - frame > std::chrono::milliseconds(10); });
    }
    EXPECT_EQ(archive_ops::list_status().count, 1000000u);
    EXPECT_LT(slowest, 50);
    const auto cancel = Clock::now();
    archive_ops::cancel_list();
    const std::chrono::duration<double, std::milli> cancelled = Clock::now() - cancel;
    EXPECT_LT(cancelled.count(), 20);
    RecordProperty("first_ms", std::to_string(first.count()));
    RecordProperty("slowest_ms", std::to_string(slowest));
    RecordProperty("cancel_ms", std::to_string(cancelled.count()));
}

}  // namespace
