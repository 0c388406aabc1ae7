// Archives that somebody has made to do harm, or that are no whole archives, with the real tools.

#include "archive_ops.h"
#include "bg_task.h"
#include "fresh_process.h"
#include "test_env.h"
#include "tree.h"
#include "wait_until.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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

// Of every ending. Nothing of it is left of a single compressed file.
TEST_F(ArchiveOpsHostile, broken_archives_end_with_the_tools_message) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(dir / "big", test_env::pattern(60000));
    const auto by = [this](const std::string& tool, const std::string& name) {
        return tool == "zip" || tool == "7z"
                   ? "cd " + dir.path() + " && " + tool + (tool == "7z" ? " a " : " ") + name +
                         " big >/dev/null"
                   : (name.find(".t") != std::string::npos ? "tar -C " + dir.path() + " -c big"
                                                           : "cat " + (dir / "big")) +
                         " | " + tool + " > " + (dir / name);
    };
    for (const auto& [tool, name] : std::initializer_list<std::pair<const char*, const char*>>{
             {"gzip", "x.tar.gz"},   {"gzip", "x.tgz"},      {"xz", "x.tar.xz"},
             {"xz", "x.txz"},        {"lzma", "x.tar.lzma"}, {"lzip", "x.tar.lz"},
             {"bzip2", "x.tar.bz2"}, {"bzip2", "x.tbz2"},    {"bzip2", "x.tbz"},
             {"zstd", "x.tar.zst"},  {"zstd", "x.tzst"},     {"lz4", "x.tar.lz4"},
             {"cat", "x.tar"},       {"zip", "x.zip"},       {"7z", "x.7z"},
             {"gzip", "x.gz"},       {"xz", "x.xz"},         {"lzma", "x.lzma"},
             {"bzip2", "x.bz2"},     {"zstd", "x.zst"},      {"lz4", "x.lz4"},
             {"lzip", "x.lz"}}) {
        const std::string archive = dir / name;
        ASSERT_EQ(test_env::run(by(tool, name)), 0) << name;
        const std::string whole = test_env::read_file(archive);
        for (const bool garbage : {false, true}) {
            test_env::write_file(archive,
                                 garbage ? test_env::pattern(30000) : whole.substr(0, 30000));
            const test_env::TempDir target(dir.path());
            const BgTask::Status status = unpacked(archive, target.path());
            // The tool's own words, and the exit status.
            EXPECT_GT(status.failures.size(), 1u) << name << garbage << text_of(status);
            EXPECT_EQ(status.result, "") << name;
            EXPECT_FALSE(test_env::exists(target / "x")) << name;
        }
    }
    EXPECT_EQ(tree::difference_text(before, tree::snapshot(dir / "outside")), "");
}

// A newline would end a log line or a row, an escape would speak to a terminal.
TEST_F(ArchiveOpsHostile, control_characters_in_names_lead_nowhere_else) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(test_env::run("/usr/bin/python3 -c \"\nimport zipfile\n"
                            "z = zipfile.ZipFile('" +
                            (dir / "x.zip") +
                            "', 'w')\n"
                            "for n in ['good', '../outside/mi\\nne', '../outside\\n/mine', "
                            "'\\x1b[31m/../../outside/mine', '..\\x08/../outside/new', "
                            "'/\\n..' + '" +
                            (dir / "outside/new;1") + "']: z.writestr(n, 'good')\nz.close()\""),
              0);
    expect_nothing_outside("x.zip");
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
        EXPECT_EQ(tree::difference_text(tree::snapshot(dir / "in"),
                                        tree::snapshot(dir / ("out " + name)), how),
                  "");
    }
}

// --- Large ones
// -----------------------------------------------------------------------------------

// Many zeros in a few MB: the same compressed block of 16 MiB so many times. A tool, or "zip".
constexpr const char* kBomber = R"PY(
import struct, subprocess, sys, tarfile, zlib
tool, path, blocks = sys.argv[1], sys.argv[2], int(sys.argv[3])
block = bytes(16 << 20)
out = open(path, 'wb')
if tool != 'zip':
    pack = lambda data: subprocess.run([tool, '-c'], input=data, capture_output=True).stdout
    if '.tar' in path:
        entry = tarfile.TarInfo('zeros')
        entry.size = blocks << 24
        out.write(pack(tarfile.TarInfo('good').tobuf() + entry.tobuf()))
    out.write(pack(block) * blocks)
else:
    deflate = zlib.compressobj(9, zlib.DEFLATED, -15)
    data = (deflate.compress(block) + deflate.flush(zlib.Z_FULL_FLUSH)) * blocks + b'\x03\0'
    about = (8, 0, 0x21, 0, len(data), blocks << 24, 5, 0)
    local = struct.pack('<IHHHHHIIIHH', 0x04034b50, 20, 0, *about) + b'zeros'
    entry = struct.pack('<IHHHHHHIIIHHHHHII', 0x02014b50, 0x314, 20, 0, *about, 0, 0, 0,
                        0o100644 << 16, 0) + b'zeros'
    out.write(local + data + entry + struct.pack('<IHHHHIIH', 0x06054b50, 0, 0, 1, 1, len(entry),
                                                 len(local) + len(data), 0))
)PY";

class ArchiveOpsBomb : public ArchiveOpsHostile {
  protected:
    void make(const std::string& tool, const std::string& archive, int blocks) {
        test_env::write_file(dir / "bomber.py", kBomber);
        ASSERT_EQ(test_env::run("/usr/bin/python3 '" + (dir / "bomber.py") + "' " + tool + " '" +
                                (dir / archive) + "' " + std::to_string(blocks)),
                  0);
    }
    // The target is a disk of 4 MB, which stays full but for a single file.
    void expect_full_disk(const std::string& archive, const std::string& word) {
        const std::string disk = dir / "disk";
        test_env::make_dirs(disk);
        ASSERT_TRUE(test_env::mount_tmpfs(disk, "size=4m"));
        EXPECT_LT(test_env::lstat_of(dir / archive).st_size, 20 << 20);
        const auto begin = Clock::now();
        ASSERT_TRUE(archive_ops::start_unpack(dir / archive, disk, "Unpacking"));
        EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(500));
        ASSERT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }, 120));
        const BgTask::Status status = BgTask::instance().snapshot();
        EXPECT_NE(text_of(status).find(word), std::string::npos) << archive << text_of(status);
        EXPECT_EQ(status.result, "") << archive;
        EXPECT_EQ(tree::difference_text(before, tree::snapshot(dir / "outside")), "") << archive;
        EXPECT_FALSE(test_env::exists(disk + "/x")) << archive;
        ASSERT_EQ(test_env::run("umount '" + disk + "'"), 0);
    }
};

// By one tool of each way: into a file of ours, by tar with and without a program, by unzip. Where
// the tool goes on to the archive's end there are fewer zeros; all of them are for the night.
TEST_F(ArchiveOpsBomb, gigabytes_of_zeros_fill_the_target_and_no_more) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    make("zstd", "x.zst", 256);
    expect_full_disk("x.zst", "writing the unpacked file failed");
    for (const auto& [tool, archive, word] : {std::tuple{"zstd", "x.tar.zst", "tar: "},
                                              {"lz4", "x.tar.lz4", "tar: "},
                                              {"zip", "x.zip", "disk full?"}}) {
        make(tool, archive, 8);
        expect_full_disk(archive, word);
    }
}

class NightlyArchiveOpsBomb : public ArchiveOpsBomb {};

TEST_F(NightlyArchiveOpsBomb, four_gigabytes_of_zeros_by_every_other_tool) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    for (const auto& [tool, ending] : {std::pair{"gzip", "gz"},
                                       {"xz", "xz"},
                                       {"lzma", "lzma"},
                                       {"bzip2", "bz2"},
                                       {"zstd", "zst"},
                                       {"lz4", "lz4"},
                                       {"lzip", "lz"}}) {
        make(tool, std::string("x.") + ending, 256);
        expect_full_disk(std::string("x.") + ending, "writing the unpacked file failed");
        // What lzma writes is one stream and no more.
        if (ending == std::string("lzma"))
            continue;
        make(tool, std::string("x.tar.") + ending, 256);
        expect_full_disk(std::string("x.tar.") + ending, "tar: ");
    }
    make("zip", "x.zip", 255);
    expect_full_disk("x.zip", "disk full?");
}

TEST_F(NightlyArchiveOpsBomb, four_gigabytes_of_zeros_by_7z) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_EQ(test_env::run("cd '" + dir.path() + "' && truncate -s 4G zeros && " +
                            "7z a -mx=1 x.7z zeros >/dev/null && rm zeros"),
              0);
    expect_full_disk("x.7z", "No space left on device");
}

// A million empty files. Written without an archiver where the layout lets us.
constexpr const char* kMillion = R"PY(
import os, struct, subprocess, sys, tarfile
path, count = sys.argv[1], 1000000
names = (b'folder/file number %d' % n for n in range(count))
if path.endswith('.tar'):
    with tarfile.open(path, 'w') as tar:
        for name in names:
            tar.fileobj.write(tarfile.TarInfo(name.decode()).tobuf())
        tar.offset = tar.fileobj.tell()
elif path.endswith('.zip'):
    about = (0, 0, 0x21, 0, 0, 0)
    out, directory, at = open(path, 'wb'), bytearray(), 0
    for name in names:
        local = struct.pack('<IHHHHHIIIHH', 0x04034b50, 20, 0, *about, len(name), 0) + name
        directory += struct.pack('<IHHHHHHIIIHHHHHII', 0x02014b50, 0x314, 20, 0, *about,
                                 len(name), 0, 0, 0, 0, 0o100644 << 16, at) + name
        out.write(local)
        at += len(local)
    out.write(directory)
    size = len(directory)
    out.write(struct.pack('<IQHHIIQQQQ', 0x06064b50, 44, 45, 45, 0, 0, count, count, size, at))
    out.write(struct.pack('<IIQI', 0x07064b50, 0, at + size, 1))
    out.write(struct.pack('<IHHHHIIH', 0x06054b50, 0, 0, 0xffff, 0xffff, size, at, 0))
else:
    os.chdir(os.path.dirname(path))
    os.mkdir('folder')
    for name in names:
        os.close(os.open(name, os.O_CREAT | os.O_WRONLY))
    subprocess.run(['7z', 'a', '-mx=1', path, 'folder'], stdout=subprocess.DEVNULL, check=True)
)PY";

double ms_since(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Of what the program holds, in KiB.
int64_t resident() {
    const std::string status = test_env::read_file("/proc/self/status");
    return std::atoll(status.c_str() + status.find("VmRSS:") + 6);
}

// The first entries are there at once, no look takes long, and the whole does not fill the memory.
void list_a_million(const std::string& name) {
    const test_env::TempDir dir;
    const std::string archive = dir / name;
    const bool sevenz = archive.find(".7z") != std::string::npos;
    if (sevenz && test_env::enter_private_mounts()) {
        ASSERT_TRUE(test_env::mount_tmpfs(dir.path()));
    }
    const std::string maker = dir / "maker.py";
    test_env::write_file(maker, kMillion);
    ASSERT_EQ(test_env::run("/usr/bin/python3 '" + maker + "' '" + archive + "'"), 0);
    // 7z has to read all of the list before it can tell of an entry.
    const auto alone = Clock::now();
    if (sevenz) {
        ASSERT_EQ(test_env::run("7z l -bd '" + archive + "' | head -n 40 >/dev/null"), 0);
    }
    const double allowed = 200 + ms_since(alone);

    const int64_t before = resident();
    const auto begin = Clock::now();
    archive_ops::start_list(archive);
    ASSERT_TRUE(test_env::wait_until([] { return archive_ops::list_status().count > 20; }));
    const double first = ms_since(begin);
    EXPECT_LT(first, allowed);
    double slowest = 0;
    while (archive_ops::list_status().running) {
        const auto frame = Clock::now();
        const size_t count = archive_ops::list_status().count;
        EXPECT_EQ(archive_ops::list_slice(count / 2, 10).size(), 10u);
        slowest = std::max(slowest, ms_since(frame));
        ASSERT_TRUE(Clock::now() - begin < std::chrono::seconds(120));
        (void)test_env::wait_until([frame] { return ms_since(frame) > 10; });
    }
    const double all = ms_since(begin);
    EXPECT_EQ(archive_ops::list_status().error, "");
    EXPECT_EQ(archive_ops::list_status().count, sevenz ? 1000001u : 1000000u);
    EXPECT_LT(slowest, 50);
    const int64_t held = resident() - before;
    EXPECT_LT(held, 160 << 10);
    const auto cancel = Clock::now();
    archive_ops::cancel_list();
    const double cancelled = ms_since(cancel);
    EXPECT_LT(cancelled, 20);
    std::printf("first %.0f ms (allowed %.0f), all %.0f ms, slowest look %.2f ms, held %lld KiB, "
                "let go in %.2f ms\n",
                first, allowed, all, slowest, static_cast<long long>(held), cancelled);
}

TEST(NightlyArchiveOpsList, of_a_tar_with_a_million_entries) {
    REQUIRE_FRESH_PROCESS();
    list_a_million("x.tar");
}

TEST(NightlyArchiveOpsList, of_a_zip_with_a_million_entries) {
    REQUIRE_FRESH_PROCESS();
    list_a_million("x.zip");
}

TEST(NightlyArchiveOpsList, of_a_7z_with_a_million_entries) {
    REQUIRE_FRESH_PROCESS();
    list_a_million("x.7z");
}

}  // namespace
