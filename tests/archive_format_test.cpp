#include "archive_format.h"

#include <gtest/gtest.h>

#include <iterator>

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

}  // namespace
