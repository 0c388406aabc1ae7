// The pack dialogue. Which archivers are installed is asked once per process; fake ones stand in
// front of the machine's where nothing is packed.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "busy_task.h"
#include "fresh_process.h"

#include <algorithm>
#include <cstdlib>

namespace {

using archive_ops::Format;
using test_env::exists;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::PaintedText;
using test_env::write_file;
using Overlay = App::Overlay;

class AppPack : public PanePaint {
  protected:
    // These are all the tools that the program finds.
    void install(const std::vector<std::string>& tools) {
        for (const std::string& tool : tools)
            write_file(m_bin / tool, "#!/bin/sh\nexit 0\n", 0755);
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

    // One entry under the cursor, and the dialogue painted.
    App::Rect open(Action action = Action::Pack, const char* theme = "light") {
        put_cursor_on("entry");
        app().perform(action, 0);
        return paint(theme);
    }
    App::Rect paint(const char* theme = "light") {
        test_env::forget_painted();
        look(theme, 200);
        return app().m_overlay_panel;
    }
    void start_with_entry() {
        write_file(left() + "/entry", "content");
        write_file(right() + "/entry", "content");
        start();
    }
    App::HitRect chip(Format format) {
        const std::vector<Format>& formats = archive_ops::available_formats();
        const auto at = std::find(formats.begin(), formats.end(), format) - formats.begin();
        return hit(App::Hit::PackFormat, static_cast<int>(at));
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    void expect_message(const std::string& title, const std::string& text, bool is_error) {
        EXPECT_EQ(app().m_overlay, Overlay::Message) << text;
        EXPECT_EQ(app().m_overlay_title, title) << text;
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, is_error) << text;
    }
    const Palette& palette() { return app().m_palette; }
    // Neither bold nor of another family.
    void expect_plain(const PaintedText* text) {
        ASSERT_NE(text, nullptr);
        EXPECT_NEAR(text->width, width_of(text->text, text->size), 0.1) << text->text;
    }
    // Of an upper left corner at 200 %: no radius but 4 leaves the second pixel of the diagonal as
    // the ground is and paints much of the third.
    void expect_radius_4(double x, double y, const char* what) {
        const int px = static_cast<int>(2 * x);
        const int py = static_cast<int>(2 * y);
        const std::string ground = pixel(px, py);
        EXPECT_EQ(pixel(px + 1, py + 1), ground) << what;
        EXPECT_GT(difference(pixel(px + 2, py + 2), ground),
                  0.12 * difference(pixel(px + 40, py + 1), ground))
            << what;
    }

    static constexpr const char* kThemes[] = {"light", "dark"};

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

// --- Opening ----------------------------------------------------------------------------------

TEST_F(AppPack, the_name_of_the_one_entry_is_proposed) {
    start_with_entry();
    put_cursor_on("entry");
    app().perform(Action::Pack, 0);
    EXPECT_EQ(app().m_overlay, Overlay::Pack);
    EXPECT_EQ(app().m_overlay_title, "Pack");
    EXPECT_EQ(app().m_input_buffer, "entry");
    EXPECT_EQ(app().m_input_caret, 5U);
}

TEST_F(AppPack, of_several_entries_the_folder_s_name_is_proposed) {
    make_dirs(left() + "/the folder");
    write_file(left() + "/the folder/a", "x");
    write_file(left() + "/the folder/b", "x");
    start();
    pane().navigate_to(left() + "/the folder", false);
    pane().select_all();
    app().perform(Action::Pack, 0);
    EXPECT_EQ(app().m_input_buffer, "the folder");
    EXPECT_EQ(app().m_input_caret, 10U);
    app().close_overlay();
    pane().navigate_to("/", false);
    pane().select_all();
    ASSERT_GT(pane().selected_count(), 1);
    app().perform(Action::Pack, 0);
    EXPECT_EQ(app().m_input_buffer, "archive");
    EXPECT_EQ(app().m_input_caret, 7U);
}

TEST_F(AppPack, the_command_and_the_active_side_choose_where_it_goes) {
    start_with_entry();
    for (const bool active_right : {false, true}) {
        app().m_active_right = active_right;
        put_cursor_on("entry", active_right);
        app().perform(Action::Pack, 0);
        EXPECT_EQ(app().m_pack_target_right, active_right);
        EXPECT_FALSE(app().m_pack_to_other);
        app().close_overlay();
        app().perform(Action::PackToOther, 0);
        EXPECT_EQ(app().m_overlay, Overlay::Pack);
        EXPECT_EQ(app().m_pack_target_right, !active_right);
        EXPECT_TRUE(app().m_pack_to_other);
        app().close_overlay();
    }
}

TEST_F(AppPack, the_format_of_the_settings_is_chosen_or_else_the_first_there_is) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "xz", "zip"});
    start_with_entry();
    for (const auto& [setting, format] : {std::pair{"zip", Format::Zip},
                                          {"tar", Format::Tar},
                                          {"7z", Format::TarXz},
                                          {"tar.gz", Format::TarXz},
                                          {"nonsense", Format::TarXz}}) {
        settings().archive_format = setting;
        open();
        EXPECT_EQ(app().m_pack_format, format) << setting;
        EXPECT_EQ(settings().archive_format, setting);
        app().close_overlay();
    }
}

TEST_F(AppPack, without_an_archiver_a_message_says_so) {
    REQUIRE_FRESH_PROCESS();
    unsetenv("SNAP");
    install({"gzip"});
    start_with_entry();
    for (const Action action : {Action::Pack, Action::PackToOther}) {
        open(action);
        expect_message("Caution", "The tool for this format is not installed.", true);
        app().close_overlay();
    }
}

TEST_F(AppPack, in_a_sandbox_the_message_tells_of_the_other_editions) {
    REQUIRE_FRESH_PROCESS();
    setenv("SNAP", "/snap/ferrodeck/1", 1);
    setenv("SNAP_NAME", "ferrodeck", 1);
    install({"gzip"});
    start_with_entry();
    open();
    expect_message("Caution", tr("err.archiver_sandboxed"), true);
}

TEST_F(AppPack, without_a_selection_there_is_nothing_to_pack) {
    start();
    // Asked by the second guard as well, should the first let it pass.
    app().open_pack(false);
    expect_message("Nothing found", "Select at least one entry first.", false);
}

// --- Painting ---------------------------------------------------------------------------------

TEST_F(AppPack, the_count_stands_above_the_name_with_its_extension) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "xz", "zip"});
    start_with_entry();
    for (const char* theme : kThemes) {
        settings().archive_format = "tar.xz";
        const App::Rect at_ = open(Action::Pack, theme);
        const PaintedText* count = painted_text("1 entries are packed.");
        ASSERT_NE(count, nullptr);
        EXPECT_EQ(count->x, at_.x + 20);
        EXPECT_EQ(count->y, at_.y + 68);
        EXPECT_EQ(count->size, 11);
        EXPECT_EQ(count->color, palette().secondary);
        expect_plain(count);

        const PaintedText* name = painted_text("entry.tar.xz");
        ASSERT_NE(name, nullptr);
        EXPECT_EQ(name->x, at_.x + 20 + 10);
        EXPECT_EQ(name->y, at_.y + 84 + 15);
        EXPECT_EQ(name->size, 12.5);
        EXPECT_EQ(name->color, palette().control_text);

        // The field: its ground, its outline, and the caret between name and extension.
        expect_near(at(at_.x + 23, at_.y + 88), palette().control, "field");
        expect_near(at(at_.x + 40, at_.y + 84.5), palette().accent, "top");
        expect_near(at(at_.x + 40, at_.y + 113.2), palette().accent, "bottom");
        expect_near(at(at_.x + 500 - 20.6, at_.y + 100), palette().accent, "right");
        const double caret = at_.x + 30 + width_of("entry", 12.5);
        EXPECT_TRUE(has(palette().accent, caret - 1, at_.y + 84 + 6.5, 2, 1));
        EXPECT_TRUE(has(palette().accent, caret - 1, at_.y + 84 + 23, 2, 0.9));
        EXPECT_FALSE(has(palette().accent, caret - 1, at_.y + 84 + 4, 2, 1.5));
        EXPECT_FALSE(has(palette().accent, caret - 1, at_.y + 84 + 24.5, 2, 1.5));
        app().close_overlay();
    }
    shot("pack-field");
}

TEST_F(AppPack, a_long_name_is_cut_10_before_the_field_s_edges) {
    start_with_entry();
    const App::Rect at_ = open();
    app().m_input_buffer = std::string(200, 'W');
    for (const size_t caret : {size_t{0}, size_t{100}, size_t{200}}) {
        app().m_input_caret = caret;
        paint();
        const double top = at_.y + 84 + 2;
        const auto inked = [&](double x, double w) {
            return has(palette().control_text, x, top, w, 26);
        };
        EXPECT_FALSE(inked(at_.x + 22, 7)) << caret;
        EXPECT_FALSE(inked(at_.x + 500 - 29, 7)) << caret;
        EXPECT_TRUE(inked(at_.x + 60, 380)) << caret;
        // The caret is never out of sight.
        EXPECT_TRUE(has(palette().accent, at_.x + 28, at_.y + 84 + 12, 444, 1)) << caret;
    }
}

TEST_F(AppPack, the_chips_stand_below_the_field_and_the_chosen_one_is_filled) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "gzip", "xz", "bzip2", "zstd", "lz4", "zip", "7z"});
    start_with_entry();
    for (const char* theme : kThemes) {
        settings().archive_format = "tar.bz2";
        const App::Rect at_ = open(Action::Pack, theme);
        double x = at_.x + 20;
        int index = 0;
        for (const char* label :
             {"tar.gz", "tar.xz", "tar.bz2", "tar.zst", "tar.lz4", "tar", "zip", "7z"}) {
            const App::HitRect found = hit(App::Hit::PackFormat, index);
            EXPECT_EQ(found.label, label);
            EXPECT_NEAR(found.x, x, 1e-6) << label;
            EXPECT_EQ(found.y, at_.y + 84 + 44) << label;
            EXPECT_NEAR(found.w, chip_w(label), 1e-6) << label;
            EXPECT_EQ(found.h, 26) << label;
            EXPECT_TRUE(found.in_overlay);
            const bool chosen = index == 2;
            const PaintedText* text = painted_text(label);
            ASSERT_NE(text, nullptr) << label;
            EXPECT_NEAR(text->x, x + 11, 0.01) << label;
            EXPECT_EQ(text->y, found.y + 13) << label;
            EXPECT_EQ(text->size, 11) << label;
            expect_plain(text);
            EXPECT_EQ(text->color, chosen ? "#FFFFFF" : palette().control_text) << label;
            expect_near(at(x + 6, found.y + 5), chosen ? palette().accent : palette().control,
                        label);
            expect_near(at(x + found.w / 2, found.y + 0.5),
                        chosen ? palette().accent : palette().control_edge, label);
            x += found.w + 6;
            ++index;
        }
        expect_radius_4(at_.x + 20, at_.y + 128, "a chip");
        app().m_pack_format = Format::TarGz;
        paint(theme);
        expect_radius_4(at_.x + 20, at_.y + 128, "the chosen chip");
        app().close_overlay();
    }
    shot("pack-chips");
}

TEST_F(AppPack, a_format_that_has_gone_leaves_no_chip_chosen) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "xz", "zip"});
    start_with_entry();
    open();
    app().m_pack_format = Format::SevenZ;
    const App::Rect at_ = paint();
    EXPECT_EQ(count_hits(App::Hit::PackFormat), 3U);
    EXPECT_FALSE(has(palette().accent, at_.x + 20, at_.y + 128, 460, 26));
    EXPECT_NE(painted_text("entry.7z"), nullptr);
    // Nor is anything packed.
    app().perform(Action::OverlayOk, 0);
    expect_message("Caution", "The tool for this format is not installed.", true);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "entry"}));
}

TEST_F(AppPack, one_archiver_is_one_chip_in_the_dialogue) {
    REQUIRE_FRESH_PROCESS();
    install({"zip"});
    start_with_entry();
    const App::Rect at_ = open();
    EXPECT_EQ(count_hits(App::Hit::PackFormat), 1U);
    EXPECT_EQ(at_.h, 238 + 32);
    EXPECT_EQ(app().m_pack_format, Format::Zip);
}

// Nothing of the dialogue lies on anything else of it, however narrow the window is.
TEST_F(AppPack, in_a_narrow_panel_the_chips_wrap_and_the_panel_grows) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "gzip", "xz", "bzip2", "zstd", "lz4", "zip", "7z"});
    start_with_entry();
    put_cursor_on("entry");
    app().perform(Action::PackToOther, 0);
    int most = 0;
    for (const int window : {1400, 540, 500, 460, 400, 300}) {
        frame(window, 900);
        const App::Rect at_ = app().m_overlay_panel;
        const double room = std::min(460, window - 80);
        EXPECT_EQ(at_.w, room + 40);
        EXPECT_EQ(at_.h, 238 + 32 * rows(room)) << window;
        most = std::max(most, rows(room));
        double bottom = 0;
        for (const App::HitRect& rect : app().m_hits) {
            if (rect.what != App::Hit::PackFormat)
                continue;
            EXPECT_LE(rect.x + rect.w, at_.x + at_.w - 20 + 1e-6) << window;
            bottom = std::max(bottom, rect.y + rect.h);
        }
        EXPECT_EQ(bottom, at_.y + 128 + 32 * (rows(room) - 1) + 26);
        const App::HitRect tile = button(Action::PackTargetLeft);
        EXPECT_GT(tile.y, bottom + 3) << window;
        const PaintedText* hint = painted_text("The archive is written to the other side.");
        ASSERT_NE(hint, nullptr);
        EXPECT_GT(hint->y - 7, tile.y + tile.h - 1) << window;
        EXPECT_LE(hint->y + 7, button(Action::OverlayOk).y) << window;
    }
    EXPECT_GE(most, 3);
}

TEST_F(AppPack, in_the_smallest_window_at_200_percent_all_has_its_place) {
    start_with_entry();
    for (const char* theme : kThemes) {
        for (const bool smallest : {false, true}) {
            open(Action::PackToOther, theme);
            test_env::forget_painted();
            if (smallest)
                frame(1000, 700);
            const App::Rect at_ = app().m_overlay_panel;
            std::vector<App::HitRect> hits;
            for (const App::HitRect& rect : app().m_hits)
                if (rect.what == App::Hit::PackFormat || rect.what == App::Hit::Overlay)
                    hits.push_back(rect);
            ASSERT_EQ(hits.size(), archive_ops::available_formats().size() + 4);
            for (const App::HitRect& a : hits) {
                EXPECT_GE(a.x, at_.x + 20 - 1e-6) << a.label;
                EXPECT_LE(a.x + a.w, at_.x + at_.w - 20 + 1e-6) << a.label;
                EXPECT_LE(a.y + a.h, at_.y + at_.h) << a.label;
                for (const App::HitRect& b : hits) {
                    if (a.x < b.x) {
                        EXPECT_TRUE(a.x + a.w <= b.x || a.y + a.h <= b.y || b.y + b.h <= a.y)
                            << a.label << " lies on " << b.label;
                    }
                }
            }
            if (smallest) {
                EXPECT_LE(at_.x + at_.w, 500);
                EXPECT_LE(at_.y + at_.h, 350);
            }
            shot(std::string("pack-") + (smallest ? "smallest-" : "200-") + theme);
            app().close_overlay();
        }
    }
}

TEST_F(AppPack, the_tile_of_the_chosen_side_has_its_tint) {
    start_with_entry();
    for (const char* theme : kThemes) {
        for (const bool active_right : {false, true}) {
            app().m_active_right = active_right;
            put_cursor_on("entry", active_right);
            app().perform(Action::Pack, 0);
            for (const bool chosen_right : {false, true}) {
                app().m_pack_target_right = chosen_right;
                app().m_hover = -1;
                paint(theme);
                for (const bool right : {false, true}) {
                    const App::HitRect tile =
                        button(right ? Action::PackTargetRight : Action::PackTargetLeft);
                    const bool chosen = right == chosen_right;
                    const std::string& tint =
                        right == active_right ? palette().source_tint : palette().target_tint;
                    EXPECT_EQ(tile.right, right);
                    EXPECT_EQ(tile.label, right ? "Right" : "Left");
                    expect_near(at(tile.x + 8, tile.y + 8),
                                chosen ? over(tint, 0.85, palette().bar) : palette().control,
                                "ground");
                    expect_near(at(tile.x + 30, tile.y + 0.5),
                                chosen ? over(tint, 0.85, palette().bar) : palette().control_edge,
                                "edge");
                    EXPECT_EQ(painted_text(right ? "Right" : "Left")->color,
                              chosen ? "#FFFFFF" : palette().control_text);
                    expect_radius_4(tile.x, tile.y, "tile");
                }
                const bool told = painted_text("The archive is written to the other side.");
                EXPECT_EQ(told, chosen_right != active_right);
                if (told)
                    expect_plain(painted_text("The archive is written to the other side."));
                // Under the pointer the tint is whole.
                const App::HitRect tile =
                    button(chosen_right ? Action::PackTargetRight : Action::PackTargetLeft);
                app().handle_motion(tile.x + 5, tile.y + 5);
                paint(theme);
                expect_near(at(tile.x + 8, tile.y + 8),
                            chosen_right == active_right ? palette().source_tint
                                                         : palette().target_tint,
                            "under the pointer");
            }
            app().close_overlay();
        }
    }
}

TEST_F(AppPack, cancel_and_pack_stand_at_the_bottom) {
    start_with_entry();
    const App::Rect at_ = open(Action::PackToOther);
    const App::HitRect tiles[] = {button(Action::PackTargetLeft), button(Action::PackTargetRight)};
    EXPECT_EQ(tiles[0].x, at_.x + 20);
    EXPECT_EQ(tiles[1].x + tiles[1].w, at_.x + at_.w - 20);
    EXPECT_EQ(tiles[1].x - tiles[0].x - tiles[0].w, 20);
    for (const App::HitRect& tile : tiles) {
        EXPECT_EQ(tile.w, (at_.w - 60) / 2);
        EXPECT_EQ(tile.h, 30);
        EXPECT_EQ(tile.y, tiles[0].y);
    }
    EXPECT_EQ(button(Action::OverlayCancel).label, "Cancel");
    EXPECT_EQ(button(Action::OverlayOk).label, "Pack");
    EXPECT_EQ(button(Action::OverlayOk).y, at_.y + at_.h - 46);
    EXPECT_EQ(button(Action::OverlayCancel).y, at_.y + at_.h - 46);
    EXPECT_GT(button(Action::OverlayOk).x, button(Action::OverlayCancel).x);
    expect_near(at(button(Action::OverlayOk).x + 5, at_.y + at_.h - 40), palette().accent,
                "primary");
    EXPECT_EQ(app().m_overlay_accels, (std::map<char, Action>{{'C', Action::OverlayCancel},
                                                              {'P', Action::OverlayOk},
                                                              {'L', Action::PackTargetLeft},
                                                              {'R', Action::PackTargetRight}}));
    shot("pack");
}

// --- Answering --------------------------------------------------------------------------------

TEST_F(AppPack, a_click_on_a_chip_chooses_its_format_for_the_next_time_too) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "xz", "zip"});
    start_with_entry();
    settings().archive_format = "tar.xz";
    open();
    click(chip(Format::Zip));
    EXPECT_EQ(app().m_overlay, Overlay::Pack);
    EXPECT_EQ(app().m_pack_format, Format::Zip);
    EXPECT_EQ(settings().archive_format, "zip");
    EXPECT_NE(test_env::read_file(config_file("settings.json")).find("\"zip\""), std::string::npos);
    paint();
    EXPECT_NE(painted_text("entry.zip"), nullptr);
    click(chip(Format::TarXz));
    EXPECT_EQ(app().m_pack_format, Format::TarXz);
    EXPECT_EQ(settings().archive_format, "tar.xz");
    click(chip(Format::Zip));
    // A number that there is no chip for, or another one by now, changes nothing.
    App::HitRect other = chip(Format::Tar);
    for (const int index : {-1, 3, 1000}) {
        other.param = index;
        app().click_pack_format(other);
        EXPECT_EQ(app().m_pack_format, Format::Zip) << index;
    }
    other.param = 0;
    app().click_pack_format(other);
    EXPECT_EQ(app().m_pack_format, Format::Zip);
    EXPECT_EQ(settings().archive_format, "zip");
}

TEST_F(AppPack, a_tile_changes_the_side_and_the_dialogue_stays) {
    start_with_entry();
    open();
    click(button(Action::PackTargetRight));
    EXPECT_TRUE(app().m_pack_target_right);
    EXPECT_EQ(app().m_overlay, Overlay::Pack);
    EXPECT_EQ(app().m_input_buffer, "entry");
    paint();
    key(GDK_KEY_l, GDK_MOD1_MASK);
    EXPECT_FALSE(app().m_pack_target_right);
    EXPECT_EQ(app().m_overlay, Overlay::Pack);
}

TEST_F(AppPack, typed_letters_go_before_the_extension) {
    REQUIRE_FRESH_PROCESS();
    install({"tar"});
    start_with_entry();
    open();
    key(GDK_KEY_Left);
    key(GDK_KEY_BackSpace);
    key(GDK_KEY_x);
    EXPECT_EQ(app().m_input_buffer, "entxy");
    for (int i = 0; i < 10; ++i)
        key(GDK_KEY_Right);
    key(GDK_KEY_z);
    paint();
    EXPECT_NE(painted_text("entxyz.tar"), nullptr);
}

TEST_F(AppPack, a_name_that_no_archive_can_have_is_refused) {
    start_with_entry();
    settings().archive_format = "tar";
    write_file(left() + "/taken.tar", "mine");
    make_dirs(left() + "/folder.tar");
    ASSERT_EQ(symlink("nowhere", (left() + "/dangling.tar").c_str()), 0);
    const std::pair<std::string, std::string> cases[] = {
        {"", "The name must not be empty."},
        {"a/b", "A name cannot contain a slash."},
        {"/", "A name cannot contain a slash."},
        {".", "That name is reserved."},
        {"..", "That name is reserved."},
        {std::string(252, 'n'), "That name is too long."},
        {"taken", "Something with that name is already there."},
        {"folder", "Something with that name is already there."},
        {"dangling", "Something with that name is already there."},
    };
    for (const auto& [name, text] : cases) {
        open();
        app().m_input_buffer = name;
        app().m_input_caret = name.size();
        key(GDK_KEY_Return);
        expect_message("Caution", text, true);
        EXPECT_FALSE(BgTask::instance().is_running()) << name;
        app().close_overlay();
    }
    EXPECT_EQ(test_env::read_file(left() + "/taken.tar"), "mine");
    // Only where the archive would go.
    open(Action::PackToOther);
    app().m_input_buffer = "taken";
    key(GDK_KEY_Return);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(right() + "/taken.tar"));
}

// No name in a list is anything but text, so neither is one that is proposed. What stands behind it
// is not found, and no archive is left.
TEST_F(AppPack, an_entry_whose_name_is_no_text_is_told_of_and_not_packed) {
    const std::string name = "\xef\xbf\xbd ok";
    write_file(left() + "/\xff ok", "content");
    start();
    for (const char* label : {"tar", "zip", "7z"}) {
        settings().archive_format = label;
        put_cursor_on(name);
        app().perform(Action::Pack, 0);
        EXPECT_EQ(app().m_input_buffer, name);
        paint();
        EXPECT_NE(painted_text(name + "." + label), nullptr);
        key(GDK_KEY_Return);
        EXPECT_EQ(app().m_overlay, Overlay::None) << app().m_overlay_text;
        ASSERT_TRUE(settle());
        EXPECT_GT(app().m_result.failures, 0U) << label;
        EXPECT_EQ(names(), (std::vector<std::string>{"..", name})) << label;
    }
}

// 251 bytes and ".tar" are as many as a name can have. What the whole is called does not matter to
// a name that an entry without the extension has.
TEST_F(AppPack, a_name_that_is_just_free_is_taken) {
    start_with_entry();
    settings().archive_format = "tar";
    for (const std::string& name : {std::string(251, 'n'), std::string("entry")}) {
        open();
        app().m_input_buffer = name;
        app().m_input_caret = name.size();
        key(GDK_KEY_Return);
        EXPECT_EQ(app().m_overlay, Overlay::None) << app().m_overlay_text;
        ASSERT_TRUE(settle());
        EXPECT_TRUE(exists(left() + "/" + name + ".tar")) << name;
    }
}

TEST_F(AppPack, the_selection_is_packed_into_the_chosen_side) {
    make_dirs(left() + "/folder/deeper");
    write_file(left() + "/folder/deeper/file", "inside");
    write_file(left() + "/single", "x");
    write_file(left() + "/not selected", "x");
    start();
    settings().archive_format = "tar";
    for (const char* name : {"folder", "single"})
        pane().toggle_selection(pane().index_of(name));
    app().perform(Action::PackToOther, 0);
    app().m_input_buffer = "two";
    app().perform(Action::OverlayOk, 0);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_TRUE(app().m_bgtask_was_running);
    EXPECT_EQ(BgTask::instance().snapshot().title, "Packing");
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_result.title, "Packed");
    EXPECT_EQ(app().m_result.failures, 0U);
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "two.tar"}));
    EXPECT_FALSE(exists(left() + "/two.tar"));
    std::string listed;
    ASSERT_EQ(test_env::run("tar -tf '" + right() + "/two.tar' | sort", &listed), 0);
    EXPECT_EQ(listed, "folder/\nfolder/deeper/\nfolder/deeper/file\nsingle\n");
}

TEST_F(AppPack, while_another_task_runs_a_message_says_so) {
    start_with_entry();
    open();
    ASSERT_TRUE(test_env::start_busy_task());
    app().perform(Action::OverlayOk, 0);
    expect_message("Still busy", tr("dlg.busy_text"), false);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "entry"}));
}

}  // namespace
