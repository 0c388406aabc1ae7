#include "archive_ops.h"

#include "fresh_process.h"
#include "log_lines.h"
#include "shim.h"
#include "test_env.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <vector>

namespace {

using archive_ops::available_formats;
using archive_ops::Format;

// The labels of what can be packed when these are all the tools there are.
std::string formats_with(const std::vector<std::pair<std::string, std::string>>& tools) {
    const test_env::TempDir bin;
    for (const auto& [name, script] : tools)
        test_env::write_file(bin / name, "#!/bin/sh\n" + script + "\n", 0755);
    return test_env::answer_of_child([&] {
        setenv("PATH", bin.path().c_str(), 1);
        std::string labels;
        for (const Format format : available_formats())
            labels += std::string(archive_ops::label_for(format)) + " ";
        return labels;
    });
}

TEST(ArchiveOps, a_format_is_available_when_all_its_tools_run) {
    EXPECT_EQ(formats_with({}), "");
    EXPECT_EQ(formats_with({{"tar", ""}}), "tar ");
    EXPECT_EQ(formats_with({{"gzip", ""}, {"xz", ""}, {"bzip2", ""}, {"zstd", ""}}), "");
    EXPECT_EQ(formats_with({{"tar", ""}, {"gzip", ""}}), "tar.gz tar ");
    EXPECT_EQ(formats_with({{"tar", ""}, {"xz", ""}}), "tar.xz tar ");
    EXPECT_EQ(formats_with({{"tar", ""}, {"bzip2", ""}}), "tar.bz2 tar ");
    EXPECT_EQ(formats_with({{"tar", ""}, {"zstd", ""}}), "tar.zst tar ");
    EXPECT_EQ(formats_with({{"tar", ""}, {"lz4", ""}}), "tar.lz4 tar ");
    EXPECT_EQ(formats_with({{"zip", ""}}), "zip ");
    for (const char* tool : {"7z", "7zz", "7za"})
        EXPECT_EQ(formats_with({{tool, ""}}), "7z ") << tool;
    EXPECT_EQ(formats_with({{"7z", ""},
                            {"zip", ""},
                            {"lz4", ""},
                            {"zstd", ""},
                            {"bzip2", ""},
                            {"xz", ""},
                            {"gzip", ""},
                            {"tar", ""}}),
              "tar.gz tar.xz tar.bz2 tar.zst tar.lz4 tar zip 7z ");
}

TEST(ArchiveOps, a_tool_that_rejects_the_question_is_there_all_the_same) {
    EXPECT_EQ(formats_with({{"zip", "exit 1"}}), "zip ");
    EXPECT_EQ(formats_with({{"zip", "exit 125"}}), "zip ");
    EXPECT_EQ(formats_with({{"zip", "exit 126"}}), "");
    EXPECT_EQ(formats_with({{"zip", "exit 127"}}), "");
    EXPECT_EQ(formats_with({{"zip", "kill -9 $$"}}), "");
    EXPECT_EQ(formats_with({{"zip", "[ \"$*\" = --version ] || exit 127"}}), "zip ");
}

TEST(ArchiveOps, an_archive_can_be_unpacked_when_all_tools_of_its_ending_run) {
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"x.tar.gz", {"tar", "gzip"}},
        {"x.tgz", {"tar", "gzip"}},
        {"x.tar.xz", {"tar", "xz"}},
        {"x.txz", {"tar", "xz"}},
        {"x.tar.lzma", {"tar", "xz"}},
        {"x.tar.lz", {"tar", "lzip"}},
        {"x.tar.bz2", {"tar", "bzip2"}},
        {"x.tbz2", {"tar", "bzip2"}},
        {"x.tbz", {"tar", "bzip2"}},
        {"x.tar.zst", {"tar", "zstd"}},
        {"x.tzst", {"tar", "zstd"}},
        {"x.tar.lz4", {"tar", "lz4"}},
        {"x.tar", {"tar"}},
        {"x.zip", {"unzip"}},
        {"x.7z", {"7zz"}},
        {"x.gz", {"gzip"}},
        {"x.xz", {"xz"}},
        {"x.lzma", {"xz"}},
        {"x.bz2", {"bzip2"}},
        {"x.zst", {"zstd"}},
        {"x.lz4", {"lz4"}},
        {"x.lz", {"lzip"}},
    };
    const auto answer = [](const std::string& name, const std::vector<std::string>& tools) {
        const test_env::TempDir bin;
        for (const std::string& tool : tools)
            test_env::write_file(bin / tool, "#!/bin/sh\n", 0755);
        return test_env::answer_of_child([&] {
            setenv("PATH", bin.path().c_str(), 1);
            return std::string(archive_ops::can_unpack("/a/" + name) ? "yes" : "no");
        });
    };
    for (const auto& [name, tools] : rows) {
        EXPECT_EQ(answer(name, tools), "yes") << name;
        for (const std::string& missing : tools) {
            std::vector<std::string> others = {"zip", "sh"};
            for (const std::string& tool : tools)
                if (tool != missing)
                    others.push_back(tool);
            EXPECT_EQ(answer(name, others), "no") << name << " without " << missing;
        }
    }
    EXPECT_EQ(answer("x.txt", {"tar", "gzip", "unzip", "7z"}), "no");
}

TEST(ArchiveOps, the_tools_are_asked_once) {
    const test_env::TempDir bin;
    test_env::write_file(bin / "tar", "#!/bin/sh\necho tar >> " + (bin / "asked") + "\n", 0755);
    EXPECT_EQ(test_env::answer_of_child([&] {
                  setenv("PATH", bin.path().c_str(), 1);
                  const std::vector<Format>* first = &available_formats();
                  setenv("PATH", "/nonexistent", 1);
                  (void)archive_ops::format_available(Format::TarGz);
                  return std::string(first == &available_formats() ? "same " : "") +
                         test_env::read_file(bin / "asked");
              }),
              "same tar\n");
}

TEST(ArchiveOps, the_log_tells_what_there_is) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir bin;
    test_env::write_file(bin / "tar", "#!/bin/sh\n", 0755);
    setenv("PATH", bin.path().c_str(), 1);
    (void)available_formats();
    EXPECT_TRUE(test_env::logged("archiver tar.gz   missing"));
    EXPECT_TRUE(test_env::logged("archiver tar      available"));
    EXPECT_TRUE(test_env::logged("archiver 7z       missing"));
    EXPECT_TRUE(test_env::logged("archivers: 1 of 8 formats available"));
}

// --- A probe in the background ----------------------------------------------------------------

// "tar" answers only once the flag is there, and then fails; the others are what they seem.
void write_slow_tar(const test_env::TempDir& bin) {
    test_env::write_file(bin / "tar",
                         "#!/bin/sh\nwhile [ ! -e " + (bin / "flag") +
                             " ]; do /bin/sleep 0.02; done\nexit 127\n",
                         0755);
    test_env::write_file(bin / "gzip", "#!/bin/sh\n", 0755);
    test_env::write_file(bin / "zip", "#!/bin/sh\n", 0755);
    setenv("PATH", bin.path().c_str(), 1);
}

std::string labels() {
    std::string text;
    for (const Format format : available_formats())
        text += std::string(archive_ops::label_for(format)) + " ";
    return text;
}

TEST(ArchiveOps, until_the_probe_has_its_answer_the_search_path_counts) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir bin;
    write_slow_tar(bin);
    ASSERT_TRUE(archive_ops::announce_probe());
    EXPECT_EQ(labels(), "tar.gz tar zip ");
    std::thread probe(archive_ops::run_probe);
    EXPECT_EQ(labels(), "tar.gz tar zip ");
    EXPECT_TRUE(archive_ops::format_available(Format::Tar));
    EXPECT_FALSE(archive_ops::format_available(Format::TarXz));
    EXPECT_EQ(test_env::logged("archiver tar      available"), 0);
    EXPECT_TRUE(archive_ops::can_unpack("/a/x.tar"));
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.tar.xz"));
    test_env::write_file(bin / "flag", "");
    probe.join();
    EXPECT_EQ(labels(), "zip ");
    EXPECT_FALSE(archive_ops::format_available(Format::Tar));
    EXPECT_TRUE(archive_ops::format_available(Format::Zip));
    EXPECT_FALSE(archive_ops::can_unpack("/a/x.tar"));
    EXPECT_TRUE(archive_ops::can_unpack("/a/x.gz"));
    EXPECT_EQ(labels(), "zip ");
    EXPECT_EQ(test_env::logged("archiver tar      missing"), 1);
    EXPECT_EQ(test_env::logged("archiver zip      available"), 1);
    EXPECT_EQ(test_env::logged("archivers: 1 of 8 formats available"), 1);
    EXPECT_FALSE(archive_ops::announce_probe());
}

// The start goes on without a thread, and what there is in the search path can be packed.
TEST(ArchiveOps, without_a_thread_the_search_path_is_the_answer) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    for (const long number : {SYS_clone3, SYS_clone})
        shim::fail(number, EAGAIN, 1);
    archive_ops::probe_in_background([] {});
    shim::clear();
    EXPECT_TRUE(archive_ops::format_available(Format::Tar));
    EXPECT_EQ(test_env::logged_with("archivers: no thread to ask them: "), 1);
}

}  // namespace
