#include "file_ops.h"

#include "as_user.h"
#include "faultfs.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using file_ops::create_directory;
using file_ops::create_empty_file;
using file_ops::rename_entry;
using file_ops::validate_name;
using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kTaken = "Something with that name is already there.";

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

std::string names_in(const std::string& folder) {
    std::string names;
    for (const auto& entry : tree::snapshot(folder))
        names += (names.empty() ? "" : " ") + entry.first;
    return names;
}

}  // namespace

TEST(FileNames, the_first_thing_wrong_is_told) {
    const TempDir dir;
    const std::string slash_and_long = "/" + std::string(300, 'x');
    EXPECT_EQ(validate_name(dir.path(), slash_and_long, ""), "A name cannot contain a slash.");
    EXPECT_EQ(validate_name(dir.path(), "../..", ""), "A name cannot contain a slash.");
    // Bytes are what a file system counts: 128 letters of two each.
    std::string umlauts;
    for (int i = 0; i < 128; ++i)
        umlauts += "ä";
    EXPECT_EQ(validate_name(dir.path(), umlauts, ""), "That name is too long.");
    EXPECT_EQ(validate_name(dir.path(), umlauts.substr(2), ""), "");
    EXPECT_EQ(validate_name(dir.path(), "...", ""), "");
}

TEST(FileNames, the_present_name_takes_no_call) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_renameat);
    const TempDir dir;
    write_file(dir / "a", "1");
    EXPECT_EQ(rename_entry(dir / "a", "a"), "");
    for (const long number : {SYS_renameat2, SYS_rename, SYS_renameat})
        EXPECT_EQ(shim::calls(number), 0);
    EXPECT_EQ(rename_entry(dir / "a", "b"), "");
    EXPECT_EQ(shim::calls(SYS_renameat2), 1);
}

TEST(FileNames, a_rename_that_is_refused_tells_the_path_and_the_reason) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(dir / "closed");
        write_file(dir / "closed/a", "1");
        chmod((dir / "closed").c_str(), 0555);
        EXPECT_EQ(rename_entry(dir / "closed/a", "b"), text(dir / "closed/a", EACCES));
        EXPECT_EQ(create_directory(dir / "closed", "c"), text(dir / "closed/c", EACCES));
        EXPECT_EQ(create_empty_file(dir / "closed", "c"), text(dir / "closed/c", EACCES));
        chmod((dir / "closed").c_str(), 0755);
    }));
    EXPECT_EQ(rename_entry(dir / "none", "b"), text(dir / "none", ENOENT));
}

// Somebody else makes an entry of the name between the look and the call.
TEST(FileNames, nothing_is_replaced_by_a_rename_that_comes_second) {
    REQUIRE_SHIM(SYS_renameat2);
    for (const bool old_file_system : {false, true}) {
        const TempDir dir;
        write_file(dir / "a", "1");
        shim::rule(SYS_renameat2, [&](const shim::Call&) {
            write_file(dir / "b", "2");
            return old_file_system ? shim::refuse(EINVAL) : shim::go();
        });
        EXPECT_EQ(rename_entry(dir / "a", "b"), kTaken);
        shim::clear();
        EXPECT_EQ(read_file(dir / "a"), "1");
        EXPECT_EQ(read_file(dir / "b"), "2");
    }
}

// Where the kernel cannot be asked to replace nothing.
TEST(FileNames, a_name_is_taken_before_a_rename_that_would_replace) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_renameat);
    for (const bool folder : {false, true}) {
        const TempDir dir;
        folder ? make_dirs(dir / "a/inner") : write_file(dir / "a", "1");
        shim::fail(SYS_renameat2, EINVAL);
        bool theirs = false;
        for (const long number : {SYS_rename, SYS_renameat})
            shim::rule(number, [&](const shim::Call&) {
                const int fd = open((dir / "b").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
                theirs = fd >= 0;
                close(fd);
                return shim::go();
            });
        EXPECT_EQ(rename_entry(dir / "a", "b"), "");
        shim::clear();
        EXPECT_FALSE(theirs);
        EXPECT_EQ(names_in(dir.path()), folder ? "b b/inner" : "b");
        EXPECT_TRUE(folder ? exists(dir / "b/inner") : read_file(dir / "b") == "1");
    }
}

TEST(FileNames, a_name_taken_for_a_rename_that_fails_is_given_back) {
    REQUIRE_SHIM(SYS_renameat2, SYS_rename, SYS_renameat);
    for (const bool folder : {false, true}) {
        const TempDir dir;
        folder ? make_dirs(dir / "a/inner") : write_file(dir / "a", "1");
        shim::fail(SYS_renameat2, EINVAL);
        for (const long number : {SYS_rename, SYS_renameat})
            shim::fail(number, EACCES);
        EXPECT_EQ(rename_entry(dir / "a", "b"), text(dir / "a", EACCES));
        EXPECT_EQ(names_in(dir.path()), folder ? "a a/inner" : "a");
        shim::clear();
        // One that cannot replace anything is asked again, with nothing in its way.
        shim::fail(SYS_renameat2, EINVAL);
        for (const long number : {SYS_rename, SYS_renameat})
            shim::fail(number, EEXIST, 1, 1);
        EXPECT_EQ(rename_entry(dir / "a", "b"), "");
        EXPECT_EQ(names_in(dir.path()), folder ? "b b/inner" : "b");
        shim::clear();
        // What has gone takes no name, and what somebody has put into ours is his.
        EXPECT_EQ(rename_entry(dir / "a", "c"), text(dir / "a", ENOENT));
        shim::fail(SYS_renameat2, EINVAL);
        EXPECT_EQ(rename_entry(dir / "a", "c"), text(dir / "a", ENOENT));
        for (const long number : {SYS_rename, SYS_renameat})
            shim::rule(number, [&](const shim::Call&) {
                write_file(dir / (folder ? "c/theirs" : "c"), "2");
                return shim::refuse(folder ? ENOTEMPTY : EACCES);
            });
        EXPECT_EQ(rename_entry(dir / "b", "c"), kTaken);
        EXPECT_EQ(read_file(dir / (folder ? "c/theirs" : "c")), "2");
        shim::clear();
    }
}

TEST(FileNames, nothing_is_replaced_by_an_entry_that_is_made_second) {
    REQUIRE_SHIM(SYS_openat, SYS_mkdir, SYS_mkdirat);
    const TempDir dir;
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            write_file(dir / "file", "theirs");
            return shim::go();
        },
        shim::path_ends(1, "file"));
    EXPECT_EQ(create_empty_file(dir.path(), "file"), text(dir / "file", EEXIST));
    EXPECT_EQ(read_file(dir / "file"), "theirs");
    shim::clear();

    for (const long number : {SYS_mkdir, SYS_mkdirat})
        shim::rule(number, [&](const shim::Call&) {
            make_dirs(dir / "folder/of/others");
            write_file(dir / "file2", "theirs");
            return shim::go();
        });
    // A folder of that name is what was asked for, whoever made it.
    EXPECT_EQ(create_directory(dir.path(), "folder"), "");
    EXPECT_TRUE(exists(dir / "folder/of/others"));
    std::remove((dir / "file2").c_str());
    EXPECT_EQ(create_directory(dir.path(), "file2"), text(dir / "file2", EEXIST));
    EXPECT_EQ(read_file(dir / "file2"), "theirs");
    shim::clear();
}

TEST(FileNames, two_links_to_one_file_are_two_names) {
    const TempDir dir;
    write_file(dir / "a", "1");
    ASSERT_EQ(link((dir / "a").c_str(), (dir / "A").c_str()), 0);
    EXPECT_EQ(validate_name(dir.path(), "A", "a"), kTaken);
    EXPECT_EQ(rename_entry(dir / "a", "A"), kTaken);
    EXPECT_EQ(names_in(dir.path()), "A a");
    // A folder that does not let itself be read cannot say, so they are taken for two.
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        chmod(dir.path().c_str(), 0300);
        EXPECT_EQ(validate_name(dir.path(), "A", "a"), kTaken);
        chmod(dir.path().c_str(), 0700);
    }));
}

// --- Where A and a are one name -----------------------------------------------------------------

class FoldedNames : public ::testing::Test {
  protected:
    static faultfs::Options options() {
        faultfs::Options options;
        options.keep_case = true;
        return options;
    }
    void SetUp() override { REQUIRE_MOUNT(m_fs); }

    faultfs::FaultFs m_fs{options()};
};

TEST_F(FoldedNames, another_case_of_the_name_is_no_clash) {
    write_file(m_fs / "name", "1");
    make_dirs(m_fs / "folder/inside");
    EXPECT_EQ(validate_name(m_fs.path(), "NAME", "name"), "");
    EXPECT_EQ(rename_entry(m_fs / "name", "Name"), "");
    EXPECT_EQ(rename_entry(m_fs / "folder", "FOLDER"), "");
    EXPECT_EQ(names_in(m_fs.path()), "FOLDER FOLDER/inside Name");
    EXPECT_EQ(read_file(m_fs / "Name"), "1");
    // Of another entry it is one, and so it is for a new one.
    EXPECT_EQ(rename_entry(m_fs / "Name", "folder"), kTaken);
    EXPECT_EQ(create_empty_file(m_fs.path(), "NAME"), kTaken);
    EXPECT_EQ(create_directory(m_fs.path(), "folder"), kTaken);
    EXPECT_EQ(names_in(m_fs.path()), "FOLDER FOLDER/inside Name");
}

TEST_F(FoldedNames, a_rename_that_fails_half_way_goes_back) {
    write_file(m_fs / "name", "1");
    m_fs.set(faultfs::fail("rename", EIO, 2, 1));
    EXPECT_EQ(rename_entry(m_fs / "name", "NAME"), text(m_fs / "name", EIO));
    EXPECT_EQ(names_in(m_fs.path()), "name");
    // With no way back, what it is called now.
    m_fs.clear();
    m_fs.set(faultfs::fail("rename", EIO, 2));
    const std::string error = rename_entry(m_fs / "name", "NAME");
    m_fs.clear();
    const std::string left = names_in(m_fs.path());
    EXPECT_NE(left, "name");
    EXPECT_EQ(error, text(m_fs / left, EIO));
    // And with none out.
    write_file(m_fs / "second", "2");
    m_fs.set(faultfs::fail("rename", EIO));
    EXPECT_EQ(rename_entry(m_fs / "second", "Second").substr(0, (m_fs / "second").size()),
              m_fs / "second");
}

TEST_F(FoldedNames, the_name_in_between_takes_nobody_elses) {
    write_file(m_fs / "name", "1");
    const std::string stem = ".ferrodeck-rename-" + std::to_string(getpid()) + "-";
    write_file(m_fs / (stem + "0"), "theirs");
    EXPECT_EQ(rename_entry(m_fs / "name", "NAME"), "");
    EXPECT_EQ(names_in(m_fs.path()), stem + "0 NAME");
    EXPECT_EQ(read_file(m_fs / (stem + "0")), "theirs");
}
