// What has been packed comes out again, by the real tools: every format, every ending that is only
// read, and names that tools take for something else.

#include "archive_ops.h"
#include "bg_task.h"
#include "fresh_process.h"
#include "test_env.h"
#include "tree.h"
#include "wait_until.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using archive_ops::Format;
using Names = std::vector<std::string>;

std::string all_of(const Names& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

BgTask::Status finished() {
    EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }, 300));
    return BgTask::instance().snapshot();
}

class ArchiveOpsRound : public testing::Test {
  protected:
    std::string in() const { return dir / "in"; }
    void SetUp() override { test_env::make_dirs(in()); }
    void TearDown() override { archive_ops::cancel_list(); }

    std::string pack(const Names& names, Format format) {
        return pack(names, format, std::string("x") + archive_ops::extension_for(format));
    }
    std::string pack(const Names& names, Format format, const std::string& archive_name) {
        const std::string archive = dir / archive_name;
        Names sources;
        for (const std::string& name : names)
            sources.push_back(in() + "/" + name);
        EXPECT_TRUE(archive_ops::start_pack(sources, in(), archive, format, "Packing"));
        EXPECT_EQ(all_of(finished().failures), "") << archive;
        return archive;
    }
    tree::Snapshot unpack(const std::string& archive) {
        const test_env::TempDir target(dir.path());
        EXPECT_TRUE(archive_ops::start_unpack(archive, target.path(), "Unpacking"));
        EXPECT_EQ(all_of(finished().failures), "") << archive;
        return tree::snapshot(target.path());
    }
    static size_t listed(const std::string& archive) {
        archive_ops::start_list(archive);
        EXPECT_TRUE(test_env::wait_until([] { return archive_ops::list_status().done; }, 120));
        EXPECT_EQ(archive_ops::list_status().error, "") << archive;
        return archive_ops::list_status().count;
    }
    // All of them, and in a folder as well.
    Names write_hostile_names() {
        Names names = tree::hostile_names();
        // Next to each other, so that a name that is changed takes another one's place.
        for (const char* name : {"a;1", "a;2", "a;", "a", "a\nb", "ab", "^J", "c^Jd", ";7", "x\xff",
                                 "x", "@", "@a", "-", "--", "--help", "~", "!", "\xe2\x80\xae"})
            names.emplace_back(name);
        test_env::make_dirs(in() + "/folder;1");
        for (const std::string& name : names) {
            test_env::write_file(in() + "/" + name, name);
            test_env::write_file(in() + "/folder;1/" + name, name + "2");
        }
        names.emplace_back("folder;1");
        return names;
    }
    // In eleven folders, and in the memory where that can be had: a disk takes its time.
    tree::Snapshot write_ten_thousand() {
        if (test_env::enter_private_mounts()) {
            EXPECT_TRUE(test_env::mount_tmpfs(dir.path()));
            test_env::make_dirs(in());
        }
        for (int d = 0; d < 11; ++d) {
            const std::string folder = in() + "/many/d" + std::to_string(d);
            test_env::make_dirs(folder);
            for (int i = 0; i < 908; ++i)
                test_env::write_file(folder + "/file number " + std::to_string(i),
                                     std::to_string(i));
        }
        return tree::snapshot(in());
    }

    test_env::TempDir dir;
    tree::Compare how = [] {
        tree::Compare all;
        all.times = false;  // some formats have whole seconds, or two of them
        return all;
    }();
};

TEST_F(ArchiveOpsRound, no_name_is_changed_by_any_format) {
    REQUIRE_FRESH_PROCESS();
    const Names names = write_hostile_names();
    const tree::Snapshot before = tree::snapshot(in());
    for (const Format format : archive_ops::kAllFormats) {
        const std::string archive = pack(names, format);
        EXPECT_EQ(tree::difference_text(before, unpack(archive), how), "") << archive;
        // 7z names no folders but empty ones in an archive of other versions.
        EXPECT_EQ(listed(archive), before.size()) << archive;
    }
}

TEST_F(ArchiveOpsRound, no_name_is_changed_by_any_ending_that_is_read) {
    REQUIRE_FRESH_PROCESS();
    (void)write_hostile_names();
    test_env::make_dirs(in() + "/empty");
    const tree::Snapshot before = tree::snapshot(in());
    for (const char* how_made :
         {"gzip x.tar.gz", "gzip x.tgz", "xz x.tar.xz", "xz x.txz", "lzma x.tar.lzma",
          "lzip x.tar.lz", "bzip2 x.tar.bz2", "bzip2 x.tbz2", "bzip2 x.tbz", "zstd x.tar.zst",
          "zstd x.tzst", "lz4 x.tar.lz4", "cat x.tar", "gzip X.TGZ"}) {
        const std::string text = how_made;
        const std::string archive = dir / text.substr(text.find(' ') + 1);
        ASSERT_EQ(test_env::run("tar -C '" + in() + "' -c . | " + text.substr(0, text.find(' ')) +
                                " > '" + archive + "'"),
                  0);
        EXPECT_TRUE(archive_ops::can_unpack(archive)) << archive;
        EXPECT_EQ(tree::difference_text(before, unpack(archive), how), "") << archive;
        EXPECT_EQ(listed(archive), before.size() + 1) << archive;  // with "./"
    }
}

TEST_F(ArchiveOpsRound, the_archive_s_own_name_may_be_any) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "content");
    const tree::Snapshot before = tree::snapshot(in());
    for (const Format format : {Format::TarLz4, Format::Tar, Format::Zip, Format::SevenZ}) {
        for (const char* name :
             {"\xff\xfe", "new\nline", "-rf", " ", "a:b", "@x", "%s", "x;1", "a\x1b[31m", "-"}) {
            const std::string ending = archive_ops::extension_for(format);
            const std::string archive = pack({"a"}, format, name + ending);
            ASSERT_TRUE(test_env::exists(archive));
            EXPECT_EQ(tree::difference_text(before, unpack(archive), how), "") << archive;
            EXPECT_EQ(listed(archive), 1u) << archive;
            ASSERT_EQ(tree::snapshot(dir.path()).size(), 3u) << archive;
            ASSERT_EQ(unlink(archive.c_str()), 0);
        }
    }
}

TEST_F(ArchiveOpsRound, links_empty_folders_modes_and_holes) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(in() + "/folder/empty");
    test_env::write_file(in() + "/folder/program", "#!/bin/sh\n", 0755);
    test_env::write_file(in() + "/folder/private", "x", 0600);
    test_env::write_file(in() + "/folder/nothing", "");
    ASSERT_EQ(link((in() + "/folder/private").c_str(), (in() + "/folder/second").c_str()), 0);
    ASSERT_EQ(symlink("program", (in() + "/folder/link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere at all", (in() + "/folder/dangling").c_str()), 0);
    ASSERT_EQ(symlink("empty", (in() + "/folder/to a folder").c_str()), 0);
    ASSERT_EQ(test_env::run("cd '" + in() + "/folder' && truncate -s 3M hole && printf x >> hole" +
                            " && truncate -s 6M hole"),
              0);
    ASSERT_LT(tree::snapshot(in())["folder/hole"].blocks * 512, 1 << 20);
    const tree::Snapshot before = tree::snapshot(in());
    for (const Format format : archive_ops::kAllFormats) {
        if (format == Format::SevenZ)
            continue;
        const std::string archive = pack({"folder"}, format);
        const tree::Snapshot after = unpack(archive);
        EXPECT_EQ(tree::difference_text(before, after, how), "") << archive;
        if (format == Format::Zip)
            continue;
        tree::Compare with_links = how;
        with_links.links = true;
        EXPECT_EQ(tree::difference_text(before, after, with_links), "") << archive;
    }
}

TEST_F(ArchiveOpsRound, what_has_an_entry_s_name_is_replaced_and_nothing_else) {
    REQUIRE_FRESH_PROCESS();
    test_env::write_file(in() + "/a", "new");
    test_env::make_dirs(in() + "/folder");
    test_env::write_file(in() + "/folder/b", "new");
    for (const Format format : {Format::TarGz, Format::Tar, Format::Zip, Format::SevenZ}) {
        const std::string archive = pack({"a", "folder"}, format);
        const test_env::TempDir target(dir.path());
        test_env::make_dirs(target / "folder");
        for (const char* name : {"a", "folder/b", "other", "folder/other"})
            test_env::write_file(target / name, "old");
        EXPECT_TRUE(archive_ops::start_unpack(archive, target.path(), "Unpacking"));
        EXPECT_EQ(all_of(finished().failures), "") << archive;
        for (const char* name : {"a", "folder/b"})
            EXPECT_EQ(test_env::read_file(target / name), "new") << archive;
        for (const char* name : {"other", "folder/other"})
            EXPECT_EQ(test_env::read_file(target / name), "old") << archive;
    }
}

TEST_F(ArchiveOpsRound, what_root_unpacks_is_root_s) {
    REQUIRE_FRESH_PROCESS();
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    test_env::write_file(in() + "/program", "x", 04777);
    for (const char* packer : {"tar --owner=12345 --group=12345 -cf ../x.tar",
                               "tar --owner=12345 --group=12345 -I lz4 -cf ../x.tar.lz4"}) {
        const std::string text = packer;
        ASSERT_EQ(test_env::run("cd '" + in() + "' && " + text + " program"), 0);
        const tree::Snapshot after = unpack(dir / text.substr(text.find("x.tar")));
        ASSERT_EQ(after.count("program"), 1u);
        EXPECT_EQ(after.at("program").uid, 0u);
        // As the umask has it.
        EXPECT_EQ(after.at("program").mode & 022u, 0u);
    }
}

// As a link or as what it leads to, which differs from one 7z to the next.
TEST_F(ArchiveOpsRound, sevenz_keeps_what_a_link_is_or_leads_to) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(in() + "/folder/empty");
    test_env::write_file(in() + "/folder/file", "content");
    ASSERT_EQ(symlink("file", (in() + "/folder/link").c_str()), 0);
    ASSERT_EQ(test_env::run("cd '" + in() + "/folder' && truncate -s 3M hole && printf x >> hole" +
                            " && truncate -s 6M hole"),
              0);
    tree::Snapshot before = tree::snapshot(in());
    const tree::Snapshot after = unpack(pack({"folder"}, Format::SevenZ));
    ASSERT_EQ(after.count("folder/link"), 1u);
    if (after.at("folder/link").kind == 'f')
        before["folder/link"] = before["folder/file"];
    EXPECT_EQ(tree::difference_text(before, after, how), "");
}

TEST_F(ArchiveOpsRound, ten_thousand_entries) {
    REQUIRE_FRESH_PROCESS();
    const tree::Snapshot before = write_ten_thousand();
    ASSERT_EQ(before.size(), 10000u);
    const std::string archive = pack({"many"}, Format::Tar);
    EXPECT_EQ(BgTask::instance().snapshot().total, 10000);
    EXPECT_EQ(BgTask::instance().snapshot().done, 10000);
    EXPECT_EQ(tree::difference_text(before, unpack(archive), how), "");
    EXPECT_EQ(BgTask::instance().snapshot().done, 10000);
    EXPECT_EQ(listed(archive), 10000u);
}

class NightlyArchiveOpsRound : public ArchiveOpsRound {};

TEST_F(NightlyArchiveOpsRound, ten_thousand_entries_by_every_format) {
    REQUIRE_FRESH_PROCESS();
    const tree::Snapshot before = write_ten_thousand();
    ASSERT_EQ(before.size(), 10000u);
    for (const Format format : archive_ops::kAllFormats) {
        const std::string archive = pack({"many"}, format);
        EXPECT_EQ(tree::difference_text(before, unpack(archive), how), "") << archive;
        EXPECT_EQ(listed(archive), 10000u) << archive;
    }
}

}  // namespace
