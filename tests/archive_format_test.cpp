#include "archive_format.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace {

using archive_ops::Format;

TEST(ArchiveFormat, each_has_its_label_and_extension) {
    struct Row {
        Format format;
        const char* extension;
        const char* label;
    };
    constexpr Row kRows[] = {
        {Format::TarGz, ".tar.gz", "tar.gz"},
        {Format::TarXz, ".tar.xz", "tar.xz"},
        {Format::TarBz2, ".tar.bz2", "tar.bz2"},
        {Format::TarZst, ".tar.zst", "tar.zst"},
        {Format::TarLz4, ".tar.lz4", "tar.lz4"},
        {Format::Tar, ".tar", "tar"},
        {Format::Zip, ".zip", "zip"},
        {Format::SevenZ, ".7z", "7z"},
    };
    ASSERT_EQ(std::size(kRows), std::size(archive_ops::kAllFormats));
    for (size_t i = 0; i < std::size(kRows); ++i) {
        EXPECT_EQ(archive_ops::kAllFormats[i], kRows[i].format);
        EXPECT_EQ(static_cast<size_t>(kRows[i].format), i);
        EXPECT_STREQ(archive_ops::extension_for(kRows[i].format), kRows[i].extension);
        EXPECT_STREQ(archive_ops::label_for(kRows[i].format), kRows[i].label);
        EXPECT_EQ(archive_ops::format_from_label(kRows[i].label), kRows[i].format);
    }
}

TEST(ArchiveFormat, an_unknown_label_is_the_first_format) {
    for (const char* label : {"", "rar", "TAR", ".zip", "tar.gz "})
        EXPECT_EQ(archive_ops::format_from_label(label), Format::TarGz) << label;
}

TEST(ArchiveFormat, a_reader_is_found_by_the_ending_of_the_name) {
    struct Row {
        const char* name;
        const char* suffix;
        const char* tool;
        bool plain;
    };
    constexpr Row kRows[] = {
        {"a.tar.gz", ".tar.gz", "gzip", false},
        {"a.tgz", ".tgz", "gzip", false},
        {"a.tar.xz", ".tar.xz", "xz", false},
        {"a.txz", ".txz", "xz", false},
        {"a.tar.lzma", ".tar.lzma", "xz", false},
        {"a.tar.lz", ".tar.lz", "lzip", false},
        {"a.tar.bz2", ".tar.bz2", "bzip2", false},
        {"a.tbz2", ".tbz2", "bzip2", false},
        {"a.tbz", ".tbz", "bzip2", false},
        {"a.tar.zst", ".tar.zst", "zstd", false},
        {"a.tzst", ".tzst", "zstd", false},
        {"a.tar.lz4", ".tar.lz4", "lz4", false},
        {"a.tar", ".tar", "", false},
        {"a.zip", ".zip", "unzip", false},
        {"a.7z", ".7z", "", false},
        {"a.gz", ".gz", "gzip", true},
        {"a.xz", ".xz", "xz", true},
        {"a.lzma", ".lzma", "xz", true},
        {"a.bz2", ".bz2", "bzip2", true},
        {"a.zst", ".zst", "zstd", true},
        {"a.lz4", ".lz4", "lz4", true},
        {"a.lz", ".lz", "lzip", true},
        {"UPPER.TAR.Gz", ".tar.gz", "gzip", false},
    };
    for (const Row& row : kRows) {
        const archive_ops::NameReader* reader = archive_ops::reader_for_name(row.name);
        ASSERT_NE(reader, nullptr) << row.name;
        EXPECT_STREQ(reader->suffix, row.suffix) << row.name;
        EXPECT_STREQ(reader->tool, row.tool) << row.name;
        EXPECT_EQ(reader->plain, row.plain) << row.name;
        EXPECT_STREQ(reader->tar_program, row.suffix == std::string(".tar.lz4") ? "lz4" : "");
    }
    for (const char* name : {"", "a", "zip", "a.zip.txt", "a.rar", "tar.g", "a.7"})
        EXPECT_EQ(archive_ops::reader_for_name(name), nullptr) << name;
}

}  // namespace
