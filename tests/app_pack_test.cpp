// The format chips of the pack dialogue, and its height, which goes by their rows. Which archivers
// are installed is asked once per process; fake ones stand in front of the machine's.

#include "app_pane_paint.h"

#include "fresh_process.h"

#include <cstdlib>

namespace {

using archive_ops::Format;

class AppPack : public PanePaint {
  protected:
    // These are all the tools that the program finds.
    void install(const std::vector<std::string>& tools) {
        for (const std::string& tool : tools)
            test_env::write_file(m_bin / tool, "#!/bin/sh\nexit 0\n", 0755);
        setenv("PATH", m_bin.path().c_str(), 1);
    }
    std::vector<App::FormatChip> chips(double width) {
        std::vector<App::FormatChip> found;
        measuring([&] { found = app().pack_format_layout(width); });
        return found;
    }
    int rows(double width) {
        int found = -1;
        measuring([&] { found = app().pack_format_rows(width); });
        return found;
    }
    double chip_w(const std::string& label) { return width_of(label, 11) + 22; }
    App::Rect panel() {
        app().open_overlay(App::Overlay::Pack, "title");
        frame(1400, 900);
        return app().m_overlay_panel;
    }

  private:
    test_env::TempDir m_bin;
};

TEST_F(AppPack, each_format_has_a_chip_in_the_order_they_are_offered) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "gzip", "xz", "bzip2", "zstd", "lz4", "zip", "7z"});
    start();
    const std::pair<Format, std::string> formats[] = {
        {Format::TarGz, "tar.gz"},   {Format::TarXz, "tar.xz"},   {Format::TarBz2, "tar.bz2"},
        {Format::TarZst, "tar.zst"}, {Format::TarLz4, "tar.lz4"}, {Format::Tar, "tar"},
        {Format::Zip, "zip"},        {Format::SevenZ, "7z"},
    };
    const std::vector<App::FormatChip> found = chips(10000);
    ASSERT_EQ(found.size(), std::size(formats));
    double x = 0;
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].format, formats[i].first);
        EXPECT_EQ(found[i].label, formats[i].second);
        EXPECT_EQ(found[i].x, x) << found[i].label;
        EXPECT_EQ(found[i].y, 0) << found[i].label;
        EXPECT_EQ(found[i].w, chip_w(formats[i].second)) << found[i].label;
        x += found[i].w + 6;
    }
    EXPECT_EQ(rows(10000), 1);
}

TEST_F(AppPack, a_chip_that_would_pass_the_width_begins_a_new_row) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "gzip", "xz", "bzip2", "zstd", "lz4", "zip", "7z"});
    start();
    const double three = chip_w("tar.gz") + 6 + chip_w("tar.xz") + 6 + chip_w("tar.bz2");
    // What ends with the width fits.
    EXPECT_EQ(chips(three)[2].y, 0);
    std::vector<App::FormatChip> found = chips(three - 1);
    EXPECT_EQ(found[1].y, 0);
    EXPECT_EQ(found[2].x, 0);
    EXPECT_EQ(found[2].y, 32);
    EXPECT_EQ(found[3].x, found[2].w + 6);
    EXPECT_EQ(found[3].y, 32);
    EXPECT_EQ(rows(three - 1), static_cast<int>(found.back().y / 32) + 1);
    // Narrower than any chip: one in each row, and no row without one.
    found = chips(5);
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].x, 0);
        EXPECT_EQ(found[i].y, 32.0 * static_cast<double>(i));
    }
    EXPECT_EQ(rows(5), 8);
}

TEST_F(AppPack, the_panel_is_as_high_as_the_rows_of_its_chips) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "gzip", "xz", "bzip2", "zstd", "lz4", "zip", "7z"});
    start();
    for (const char* font : {"", "DejaVu Sans Mono"}) {
        settings().font_family = font;
        const App::Rect found = panel();
        EXPECT_EQ(found.w, 500);
        EXPECT_EQ(found.h, 238 + 32 * rows(460)) << font;
        EXPECT_EQ(found.x, 450);
        EXPECT_EQ(found.y, std::floor((900 - found.h) / 2));
    }
    // In letters as wide as these they take two.
    EXPECT_EQ(panel().h, 238 + 64);
}

TEST_F(AppPack, one_archiver_makes_one_chip_and_one_row) {
    REQUIRE_FRESH_PROCESS();
    install({"zip"});
    start();
    const std::vector<App::FormatChip> found = chips(460);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].format, Format::Zip);
    EXPECT_EQ(found[0].x, 0);
    EXPECT_EQ(panel().h, 238 + 32);
}

TEST_F(AppPack, a_format_whose_tool_is_missing_has_no_chip) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "xz", "7za"});
    start();
    std::string labels;
    for (const App::FormatChip& chip : chips(460))
        labels += chip.label + " ";
    EXPECT_EQ(labels, "tar.xz tar 7z ");
}

TEST_F(AppPack, without_an_archiver_there_is_no_row) {
    REQUIRE_FRESH_PROCESS();
    install({"gzip"});
    start();
    EXPECT_TRUE(chips(460).empty());
    EXPECT_EQ(rows(460), 0);
    EXPECT_EQ(panel().h, 238);
}

}  // namespace
