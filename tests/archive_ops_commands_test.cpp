#include "archive_ops_commands.h"

#include "as_user.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using archive_ops::Format;
using Words = std::vector<std::string>;

Words packing(Format format, const Words& names, const std::string& archive = "/a/x") {
    return archive_ops::pack_command(format, archive, names, "7zz");
}

TEST(ArchiveOpsCommands, packing) {
    const Words names = {"b c", "d"};
    EXPECT_EQ(packing(Format::TarGz, names), (Words{"tar", "-czvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::TarXz, names), (Words{"tar", "-cJvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::TarBz2, names), (Words{"tar", "-cjvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::TarZst, names),
              (Words{"tar", "--use-compress-program=zstd", "-cvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::TarLz4, names),
              (Words{"tar", "--use-compress-program=lz4", "-cvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::Tar, names), (Words{"tar", "-cvf", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(packing(Format::Zip, names), (Words{"zip", "-r", "-y", "/a/x", "b c", "d"}));
    EXPECT_EQ(packing(Format::SevenZ, names),
              (Words{"7zz", "a", "-bd", "-bb1", "-y", "/a/x", "--", "b c", "d"}));
    EXPECT_EQ(archive_ops::pack_command(Format::SevenZ, "/a/x", names, "")[0], "7z");
}

TEST(ArchiveOpsCommands, names_that_a_tool_would_take_for_something_else) {
    EXPECT_EQ(packing(Format::Zip, {"-r", "a-", "--"}),
              (Words{"zip", "-r", "-y", "/a/x", "./-r", "a-", "./--"}));
    EXPECT_EQ(packing(Format::Tar, {"-r"}), (Words{"tar", "-cvf", "/a/x", "--", "-r"}));
    EXPECT_EQ(packing(Format::Tar, {"a", "b\\t"}),
              (Words{"tar", "--no-unquote", "-cvf", "/a/x", "--", "a", "b\\t"}));
    for (const char* name : {"a*", "?"})
        EXPECT_EQ(packing(Format::SevenZ, {"-r", name}),
                  (Words{"7zz", "a", "-bd", "-bb1", "-y", "-spd", "/a/x", "--", "-r", name}));
    EXPECT_EQ(packing(Format::SevenZ, {"a"}, "/a/x*.7z"),
              (Words{"7zz", "a", "-bd", "-bb1", "-y", "-spd", "/a/x*.7z", "--", "a"}));
    EXPECT_EQ(packing(Format::SevenZ, {"@a", "b@"}),
              (Words{"7zz", "a", "-bd", "-bb1", "-y", "/a/x", "--", "./@a", "b@"}));
}

Words unpacking(const std::string& archive, const std::string& target = "/t u") {
    return archive_ops::unpack_command(archive, target, "7zz").argv;
}

TEST(ArchiveOpsCommands, unpacking_as_an_ordinary_user) {
    EXPECT_TRUE(as_user::run([] {
        EXPECT_EQ(unpacking("/a/x.ZIP"), (Words{"unzip", "-o", "/a/x.ZIP", "-d", "/t u"}));
        EXPECT_EQ(unpacking("/a/x.7z"),
                  (Words{"7zz", "x", "-bd", "-bb1", "-y", "-o/t u", "/a/x.7z"}));
        EXPECT_EQ(unpacking("/a/x.tar.lz4"), (Words{"tar", "--use-compress-program=lz4", "-xvf",
                                                    "/a/x.tar.lz4", "-C", "/t u"}));
        for (const char* archive : {"/a/x.tar", "/a/x.tar.gz", "/a/x.tbz", "/a/x.tar.lz"})
            EXPECT_EQ(unpacking(archive), (Words{"tar", "-xavf", archive, "-C", "/t u"}));
        EXPECT_EQ(unpacking("/a/x.tar", "/t\\t"),
                  (Words{"tar", "--no-unquote", "-xavf", "/a/x.tar", "-C", "/t\\t"}));
    }));
}

TEST(ArchiveOpsCommands, root_unpacks_for_root) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    EXPECT_EQ(unpacking("/a/x.tar"), (Words{"tar", "--no-same-owner", "--no-same-permissions",
                                            "-xavf", "/a/x.tar", "-C", "/t u"}));
    EXPECT_EQ(unpacking("/a/x.zip"), (Words{"unzip", "-o", "/a/x.zip", "-d", "/t u"}));
}

// As the listing prints them: a newline is "^J", and 255 is the one byte above 126 that unzip
// leaves out.
TEST(ArchiveOpsCommands, names_that_unzip_would_change) {
    const auto with = [](const Words& names) {
        archive_ops::UnzipOptions options;
        for (const std::string& name : names)
            archive_ops::add_needed(options, name);
        const Words argv = archive_ops::unpack_command("/a/x.zip", "/t", "", options).argv;
        EXPECT_EQ(Words(argv.end() - 3, argv.end()), (Words{"/a/x.zip", "-d", "/t"}));
        return Words(argv.begin(), argv.end() - 3);
    };
    EXPECT_EQ(with({}), (Words{"unzip", "-o"}));
    EXPECT_EQ(with({"a", "ünï", "x\xfe", "1", "12", ";", "a;b", "a;1b", "a;1/", "f;1/x"}),
              (Words{"unzip", "-o", "-V"}));
    EXPECT_EQ(with({"a", "ünï", "x\xfe", "1", "12", "a;b", "a;1b", "a;1/", "f;1/x", ""}),
              (Words{"unzip", "-o"}));
    for (const char* name : {"a^Jb", "^", "x\xff"})
        EXPECT_EQ(with({"a", name, "b"}), (Words{"unzip", "-o", "-^"})) << name;
    for (const char* name : {"a;1", "a;", "f/a;1234567890", ";7"})
        EXPECT_EQ(with({"a", name, "b"}), (Words{"unzip", "-o", "-V"})) << name;
    EXPECT_EQ(with({"a^J;1"}), (Words{"unzip", "-o", "-^", "-V"}));
}

TEST(ArchiveOpsCommands, an_asterisk_in_the_target_is_kept_from_7z) {
    const archive_ops::Command command = archive_ops::unpack_command("/a/x.7z", "/t*", "7z");
    EXPECT_EQ(command.argv, (Words{"7z", "x", "-bd", "-bb1", "-y", "-o.", "/a/x.7z"}));
    EXPECT_EQ(command.cwd, "/t*");
    EXPECT_EQ(archive_ops::unpack_command("/a/x.7z", "/t", "7z").cwd, "");
}

TEST(ArchiveOpsCommands, listing) {
    const auto listing = [](const std::string& archive) {
        return archive_ops::list_command(archive, "7za");
    };
    EXPECT_EQ(listing("/a/x.zip"), (Words{"unzip", "-l", "/a/x.zip"}));
    EXPECT_EQ(listing("/a/x.7Z"), (Words{"7za", "l", "-bd", "/a/x.7Z"}));
    EXPECT_EQ(listing("/a/?.7z"), (Words{"7za", "l", "-bd", "-spd", "/a/?.7z"}));
    EXPECT_EQ(listing("/a/x.tar.lz4"),
              (Words{"tar", "--use-compress-program=lz4", "-tvf", "/a/x.tar.lz4"}));
    EXPECT_EQ(listing("/a/x.tgz"), (Words{"tar", "-tavf", "/a/x.tgz"}));
    EXPECT_EQ(archive_ops::list_command("/a/x.7z", "")[0], "7z");
}

// The folder is opened by its name as it stands.
TEST(ArchiveOpsCommands, unzip_gets_a_pattern_that_matches_the_archive_alone) {
    const auto path = [](const std::string& archive) {
        return archive_ops::list_command(archive, "")[2];
    };
    EXPECT_EQ(path("/a/x[1]*?.zip"), "/a/x[[]1][*][?].zip");
    EXPECT_EQ(path("/a[1]/x.zip"), "/a[1]/x.zip");
    EXPECT_EQ(path("/a*/x?.zip"), "/a*/x[?].zip");
    EXPECT_EQ(path("/a/x\\y.zip"), "/a/x\\y.zip");
    EXPECT_EQ(path("/a/x\\[y.zip"), "/a/x\\[y.zip");
    EXPECT_EQ(path("/a/[x.zip"), "/a/[[]x.zip");
    EXPECT_EQ(path("/a/\\\\[x.zip"), "/a/\\\\\\\\[[]x.zip");
    EXPECT_EQ(path("/a/x\\y[.zip"), "/a/x\\\\y[[].zip");
    EXPECT_EQ(path("/a[/x\\y.zip"), "/a[/x\\\\y.zip");
}

}  // namespace
