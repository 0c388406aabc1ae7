// The columns and rows of a pane: what they paint and which rectangles they make.

#include "app_pane_paint.h"

#include "i18n.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::write_file;

// --- Columns ----------------------------------------------------------------------------------

TEST_F(PanePaint, the_columns_stand_where_their_widths_put_them) {
    files(3);
    start();
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const double w = app().m_layout.left_w;
        // Size 78 and modified 104, each with 16 in front: 214. The margins are 20.
        const double name_w = std::max(130.0, w - 20 - 214);
        const double edge = 10 + name_w;
        const auto grip = [&](int column, double x) {
            if (x - 6 >= w) {
                EXPECT_FALSE(std::ranges::any_of(all(App::Hit::ColumnResize, 0),
                                                 [&](const auto& r) { return r.param == column; }));
                return;
            }
            const App::HitRect rect = [&] {
                for (const App::HitRect& r : all(App::Hit::ColumnResize, 0))
                    if (r.param == column)
                        return r;
                ADD_FAILURE() << "no grip " << column;
                return App::HitRect{};
            }();
            EXPECT_DOUBLE_EQ(rect.x, x - 6) << column << " " << look_of.scale;
            EXPECT_DOUBLE_EQ(rect.w, std::min(12.0, w - (x - 6))) << column;
            EXPECT_EQ(rect.h, 26);
        };
        grip(-1, edge);
        grip(0, edge + 16 + 78);
        grip(2, edge + 16 + 78 + 16 + 104);
        const App::HitRect name =
            hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Name), 0);
        EXPECT_EQ(name.x, 10);
        EXPECT_DOUBLE_EQ(name.w, std::min(name_w, w - 10));
        EXPECT_EQ(name.h, 26);
        const App::HitRect size =
            hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Size), 0);
        EXPECT_DOUBLE_EQ(size.x, edge + 16);
        EXPECT_DOUBLE_EQ(size.w, std::min(78.0, w - edge - 16));
    }
}

TEST_F(PanePaint, a_grip_is_above_the_labels_and_a_label_above_the_strip) {
    start();
    const double y = kRows - 13;
    EXPECT_EQ(app().hit_test(100, y)->what, App::Hit::PaneHeader);
    EXPECT_EQ(app().hit_test(5, y)->what, App::Hit::PaneHeaderMenu);
    EXPECT_EQ(app().hit_test(10 + 508 - 234, y)->what, App::Hit::ColumnResize);
}

TEST_F(PanePaint, the_rules_between_the_columns_end_5_inside_the_header) {
    start();
    const int x = 10 + 508 - 234;  // the name's right edge; a line of width 1 covers half of two
    const Palette& p = app().m_palette;
    const std::string back = mix_hex(p.header, p.bar, 0.13);
    const int top = static_cast<int>(kRows) - 26;
    EXPECT_EQ(pixel(x, top + 4), back);
    expect_near(pixel(x, top + 5), over(p.divider, 0.4, back), "rule");
    expect_near(pixel(x, top + 20), over(p.divider, 0.4, back), "rule");
    EXPECT_EQ(pixel(x, top + 21), back);
}

TEST_F(PanePaint, a_column_that_is_switched_on_is_as_wide_as_the_user_made_it) {
    files(1);
    start();
    settings().show_owner = true;
    settings().col_w_owner = 100;
    frame();
    const App::HitRect owner =
        hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Owner), 0);
    EXPECT_EQ(owner.w, 100);
    EXPECT_EQ(owner.x + owner.w, 508 - 10);
    settings().col_w_name = 400;
    frame();
    // 400, 94, 120 and 116 with margins of 20 are 750: 242 of them out of view.
    EXPECT_EQ(app().m_pane_content_w[0], 750);
    EXPECT_EQ(app().m_pane_view_w[0], 508);
    app().m_pane_hscroll[0] = 1000;
    frame();
    EXPECT_EQ(app().m_pane_hscroll[0], 242);
    EXPECT_EQ(hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Owner), 0).x,
              508 - 10 - 100);
}

TEST_F(PanePaint, the_sorted_column_has_its_label_and_arrow_in_the_accent_colour) {
    files(3);
    start();
    const double y = kRows - 26;
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        const std::string accent = app().m_palette.accent;
        pane().set_sort_order({dir_lister::SortKey::Name, true, true});
        frame();
        EXPECT_TRUE(has(accent, 10, y, 60, 22));
        // The size column ends 104 + 16 + 10 before the pane; its text 6 before that.
        const double size_edge = 508 - 130 - 6;
        EXPECT_FALSE(has(accent, size_edge - 12, y, 14, 22));
        for (const bool ascending : {true, false}) {
            pane().set_sort_order({dir_lister::SortKey::Size, ascending, true});
            frame();
            EXPECT_FALSE(has(accent, 10, y, 60, 22));
            // The triangle is 7 wide from 9 before the edge, 3.5 high about the middle: its base
            // is below when it points up.
            const double tip_x = size_edge - 9;
            const auto width_at = [&](double line_y) {
                int n = 0;
                for (int x = static_cast<int>(tip_x); x < static_cast<int>(tip_x) + 7; ++x)
                    n += at(x, line_y) == accent ? 1 : 0;
                return n;
            };
            const double centre = y + 13;
            if (ascending)
                EXPECT_GT(width_at(centre), width_at(centre - 1)) << theme;
            else
                EXPECT_GT(width_at(centre - 1), width_at(centre)) << theme;
            EXPECT_FALSE(has(accent, tip_x - 2.9, y, 2, 22));  // 3 free between text and triangle
        }
    }
}

// --- Rows -------------------------------------------------------------------------------------

TEST_F(PanePaint, names_have_the_colour_of_their_kind) {
    test_env::make_dirs(left() + "/folderHHH");
    write_file(left() + "/plainHHH", "x");
    write_file(left() + "/HHHH.tgz", "x", 0755);
    write_file(left() + "/programHHH", "x", 0700);
    ASSERT_EQ(symlink("folderHHH", (left() + "/HHHlinkdir").c_str()), 0);
    ASSERT_EQ(symlink("plainHHH", (left() + "/HHHlink").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (left() + "/HHHbroken").c_str()), 0);
    ASSERT_EQ(mkfifo((left() + "/HHHfifo").c_str(), 0644), 0);
    start();
    app().m_active_right = true;  // no cursor, no stripes
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const std::pair<const char*, std::string> kinds[] = {
            {"..", p.secondary},          {"folderHHH", p.dir_text},    {"plainHHH", p.text},
            {"HHHH.tgz", p.archive_text}, {"programHHH", p.exec_text},  {"HHHlinkdir", p.link_text},
            {"HHHlink", p.link_text},     {"HHHbroken", p.broken_text}, {"HHHfifo", p.secondary}};
        for (const auto& [name, color] : kinds) {
            const double y = row_y(pane().index_of(name));
            if (look_of.scale == 70 && std::string(name) != "folderHHH")
                continue;  // strokes this thin need not cover a whole pixel
            EXPECT_TRUE(has(color, 6, y, 130, 24)) << name << look_of.theme << look_of.scale;
        }
    }
}

TEST_F(PanePaint, folders_have_a_symbol_and_their_names_stand_15_further_right) {
    const std::string block = "\xe2\x96\x88";
    test_env::make_dirs(left() + "/" + block + block);
    write_file(left() + "/" + block, "x");
    start();
    app().m_active_right = true;
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        const Palette& p = app().m_palette;
        const double folder = row_y(pane().index_of(block + block));
        const double file = row_y(pane().index_of(block));
        EXPECT_EQ(at(15, folder + 14), p.dir_text);  // within the symbol
        EXPECT_FALSE(has(p.dir_text, 21, folder, 4, 24));
        EXPECT_TRUE(has(p.dir_text, 25, folder, 14, 24));
        EXPECT_TRUE(has(p.text, 10, file, 6, 24));
        EXPECT_EQ(at(30, file + 12), p.pane);
    }
}

TEST_F(PanePaint, stripes_lie_on_odd_rows_of_the_active_side) {
    files(6);
    start();
    for (const Look& look_of : kLooks) {
        app().m_active_right = false;
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const double x = app().m_layout.left_w - 7;
        for (int i = 1; i < 6; ++i)
            EXPECT_EQ(at(x, row_y(i) + 12), i % 2 ? p.row_alt : p.pane_active) << i;
        app().m_active_right = true;
        frame();
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(at(x, row_y(i) + 12), p.pane) << i;
    }
}

TEST_F(PanePaint, a_selected_row_is_filled_fully_or_at_045) {
    for (int i = 0; i < 6; ++i)
        write_file(left() + "/\xe2\x96\x88" + std::to_string(i), "x");
    start();
    pane().toggle_selection(2);
    pane().toggle_selection(3);
    pane().set_cursor(0, false);
    for (const Look& look_of : kLooks) {
        app().m_active_right = false;
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const double x = app().m_layout.left_w - 7;
        EXPECT_EQ(at(x, row_y(2) + 12), p.selection);
        EXPECT_EQ(at(x, row_y(3) + 12), p.selection);  // no stripe shows through
        EXPECT_TRUE(has(p.selection_text, 8, row_y(2), 60, 24));
        app().m_active_right = true;
        frame();
        expect_near(at(x, row_y(2) + 12), over(p.selection, 0.45, p.pane), "selection");
        expect_near(at(x, row_y(3) + 12), over(p.selection, 0.45, p.pane), "selection");
        // The name keeps the colour of its kind there.
        EXPECT_FALSE(has(p.selection_text, 8, row_y(2), 60, 24));
    }
}

// The frame covers the bar up to 3.5.
TEST_F(PanePaint, the_cursor_row_has_a_bar_of_4_and_a_line_around_it) {
    files(6);
    start();
    for (const char* theme : {"light", "dark"}) {
        app().m_active_right = false;
        look(theme, 100);
        pane().set_cursor(2, false);
        frame();
        const Palette& p = app().m_palette;
        const double y = row_y(2);
        EXPECT_EQ(at(3, y + 12), p.source_tint);
        EXPECT_EQ(at(4, y + 12), p.pane_active);
        EXPECT_EQ(at(3, y + 23), p.source_tint);
        EXPECT_NE(at(3, row_y(4) + 12), p.source_tint);
        // 23 high from the top: its lines lie in the first and the last line of pixels.
        for (const double line_y : {y, y + 23})
            expect_near(at(250, line_y), over(p.source_tint, 0.55, p.pane_active), "line");
        EXPECT_EQ(at(250, y + 1), p.pane_active);
        EXPECT_EQ(at(250, y + 22), p.pane_active);
        app().m_active_right = true;
        frame();
        EXPECT_EQ(at(250, y), p.pane);
        EXPECT_EQ(at(3, y + 12), p.pane);
    }
}

TEST_F(PanePaint, the_row_that_files_are_dragged_onto_is_green) {
    files(4);
    start();
    app().m_drag_active = app().m_drag_inside = true;
    app().m_drag_row = 2;
    frame();
    const Palette& p = app().m_palette;
    expect_near(at(500, row_y(2) + 12), over(p.ok, 0.3, p.pane_active), "drop row");
    EXPECT_EQ(at(250, row_y(2) + 1), p.ok);
    EXPECT_EQ(at(500, row_y(4) + 12), p.pane_active);
    app().m_drag_target_right = true;
    frame();
    EXPECT_EQ(at(500, row_y(2) + 12), p.pane_active);
}

TEST_F(PanePaint, the_rename_box_is_at_most_400_wide_and_ends_3_before_the_pane) {
    files(4);
    start();
    pane().set_cursor(2, true);
    app().perform(Action::Rename, 0);
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const double y = row_y(2);
        const double box = 10 - 3;
        const double width = std::min(400.0, app().m_layout.left_w - 3 - 10);
        // 2 below the row's top, 20 high.
        EXPECT_EQ(at(box + width - 5, y + 12), p.control);
        EXPECT_EQ(at(box + width - 5, y + 4), p.control);
        EXPECT_EQ(at(box + width - 5, y + 20), p.control);
        EXPECT_EQ(at(box + width + 2, y + 12),
                  width < 400 ? at(box + width + 2, y + 12) : p.selection);
        const double s = look_of.scale / 100.0;
        // Width 1.5 about the edge: three quarters of a pixel inside it, or more than a whole one.
        for (const double line_y : {y + 2, y + 22 - 0.5 / s}) {
            if (s >= 2) {
                EXPECT_EQ(at(box + width - 5, line_y), p.accent);
            } else if (s >= 1) {
                expect_near(at(box + width - 5, line_y), over(p.accent, 0.75, p.control), "box");
            }
        }
    }
    // The caret stands where the text before it ends, 5 inside the row.
    look("light", 100);
    const double y = row_y(2);
    pane().rename_set_caret(0);
    frame();
    EXPECT_TRUE(has(app().m_palette.accent, 9, y + 5, 3, 14) ||
                at(10, y + 12) != app().m_palette.control);
    const std::string at_start = at(10, y + 6);
    pane().rename_set_caret(5);
    frame();
    EXPECT_NE(at(10, y + 6), at_start);
    shot("panes-rename");
}

TEST_F(PanePaint, the_caret_of_a_long_name_stays_in_the_box) {
    write_file(left() + "/" + std::string(200, 'w'), "x");
    start();
    pane().set_cursor(1, true);
    app().perform(Action::Rename, 0);
    pane().rename_set_caret(200);
    frame();
    const double y = row_y(1);
    EXPECT_TRUE(has(app().m_palette.accent, 380, y + 6, 25, 10) ||
                painted(385, static_cast<int>(y) + 6, 18, 10));
    // Nothing of it is painted beyond the box.
    EXPECT_EQ(at(415, y + 6), app().m_palette.selection);
}

TEST_F(PanePaint, only_a_folder_without_a_parent_row_is_called_empty) {
    start();
    frame();
    // The parent row of an empty folder, and nothing below it.
    EXPECT_EQ(all(App::Hit::PaneRow, 0).size(), 1U);
    EXPECT_FALSE(painted(10, static_cast<int>(kRows) + 30, 480, 100));
}

TEST_F(PanePaint, a_folder_that_cannot_be_read_says_so) {
    start({"--left=" + left() + "/missing"});
    pane().navigate_to(left() + "/missing", true);
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        EXPECT_TRUE(all(App::Hit::PaneRow, 0).empty());
        EXPECT_EQ(all(App::Hit::PaneBackground, 0).size(), 1U);
        EXPECT_TRUE(has(app().m_palette.danger, 10, kRows + 8, 150, 16)) << theme;
        EXPECT_TRUE(painted(10, static_cast<int>(kRows) + 28, 150, 12)) << theme;
    }
}

TEST_F(PanePaint, a_reload_flashes_for_045_seconds) {
    start();
    app().m_reload_flash_until = App::now_seconds() + 0.45;
    frame();
    EXPECT_NE(at(300, 500), app().m_palette.pane_active);
    EXPECT_NE(at(kRight + 300, 500), app().m_palette.pane);
    EXPECT_EQ(at(300, 696 - 40 + 24), app().m_palette.header);  // the rows alone
    // Half of the time is left: a quarter of 0.16, since it fades with the square.
    app().m_reload_flash_until = App::now_seconds() + 0.225;
    look("light", 100);
    const Palette& p = app().m_palette;
    Rgb flashed;
    Rgb accent;
    ASSERT_TRUE(hex_to_rgb(at(300, 500), flashed) && hex_to_rgb(p.accent, accent));
    const double alpha = (1 - flashed.r) / (1 - accent.r);
    EXPECT_GT(alpha, 0.02);
    EXPECT_LT(alpha, 0.16 * 0.25 + 0.005);
    app().m_reload_flash_until = App::now_seconds() - 0.001;
    frame();
    EXPECT_EQ(at(300, 500), app().m_palette.pane_active);
    EXPECT_EQ(app().m_reload_flash_until, 0);
}

TEST_F(PanePaint, the_flash_has_016_of_the_accent_and_fades_with_the_square) {
    start();
    look("light", 100);
    const auto red = [this] {
        Rgb rgb;
        EXPECT_TRUE(hex_to_rgb(at(kRight + 300, 500), rgb));
        return rgb.r;
    };
    Rgb back;
    Rgb accent;
    ASSERT_TRUE(hex_to_rgb(app().m_palette.pane, back));
    ASSERT_TRUE(hex_to_rgb(app().m_palette.accent, accent));
    for (const double left : {0.45, 0.3, 0.2}) {
        const double until = app().m_reload_flash_until = App::now_seconds() + left;
        const double most = (until - App::now_seconds()) / 0.45;
        frame();
        const double least = std::max(0.0, (until - App::now_seconds()) / 0.45);
        const double alpha = (back.r - red()) / (back.r - accent.r);
        EXPECT_LT(alpha, 0.16 * most * most + 0.004) << left;
        EXPECT_GT(alpha, 0.16 * least * least - 0.004) << left;
    }
}

// The name may have moved since the rename began.
TEST_F(PanePaint, the_rename_box_follows_its_entry) {
    files(4);
    start();
    pane().set_cursor(2, true);
    app().perform(Action::Rename, 0);
    pane().set_sort_order({dir_lister::SortKey::Name, false, true});
    frame();
    const Palette& p = app().m_palette;
    for (const int row : {1, 2, 3, 4}) {
        const bool renamed = row == pane().rename_target();
        EXPECT_EQ(has(p.control, 300, row_y(row) + 5, 50, 14) &&
                      has(p.accent, 300, row_y(row) + 21, 50, 2),
                  renamed)
            << row;
    }
    EXPECT_EQ(pane().rename_target(), 3);
}

// --- Hostile places and names -----------------------------------------------------------------

TEST_F(PanePaint, without_room_for_rows_nothing_leaves_its_band) {
    files(40);
    start();
    pane().select_all();
    app().m_progress_hold_until = App::now_seconds() + 100;
    app().m_search_pane = 0;
    app().m_path_edit = 1;
    app().m_path_error = "wrong";
    settings().font_scale = 200;
    for (const int height : {0, 100, 236, 388, 390, 440, 512, 560, 640, 700, 720}) {
        for (const int width : {170, 300, 720, 1100}) {
            frame(std::max(1, width), std::max(1, height));
            const App::Layout& l = app().m_layout;
            for (const App::HitRect& rect : app().m_hits) {
                // These belong to the bands above.
                if (rect.what == App::Hit::ResultDismiss || rect.what == App::Hit::MenuTitle)
                    continue;
                const bool bridge = std::string(App::hit_name(rect.what)).starts_with("Bridge");
                const double x = bridge ? l.bridge_x : rect.right ? l.right_x : l.left_x;
                const double w = bridge ? l.bridge_w : rect.right ? l.right_w : l.left_w;
                EXPECT_GE(rect.x, x) << App::hit_name(rect.what);
                EXPECT_LE(rect.x + rect.w, x + w) << App::hit_name(rect.what);
                EXPECT_GE(rect.y, l.pane_y) << App::hit_name(rect.what);
                EXPECT_LE(rect.y + rect.h, std::max(l.pane_y, l.status_y))
                    << App::hit_name(rect.what) << height;
                EXPECT_GT(rect.w, 0);
                EXPECT_GT(rect.h, 0);
            }
            // The status bar keeps its colour below the panes.
            if (l.pane_h > 0 && l.left_w > 20) {
                EXPECT_EQ(at(6, l.status_y + 12), app().m_palette.bar) << height;
            }
        }
    }
    shot("panes-no-room");
}

TEST_F(PanePaint, pixels_outside_a_pane_are_the_same_whatever_it_lists) {
    start();
    const auto outside = [this] {
        std::string image;
        for (int y = 94; y < 696; y += 3)
            for (int x = 509; x < 591; x += 3)
                if (y < 300 || y > 520)  // the bridge's own buttons
                    image += pixel(x, y);
        return image;
    };
    frame();
    const std::string before = outside();
    for (const char* name :
         {"a\nb\nc", "tab\tbed", "\xe2\x80\xaereversed.txt",
          "\xe2\x80\xaa\xe2\x80\xab\xe2\x81\xa6open", "\xd7\xa9\xd7\x9c\xd7\x95"})
        write_file(left() + "/" + name, "x");
    write_file(left() + "/" + std::string(250, 'M'), "x");
    ASSERT_EQ(symlink(std::string(3000, 'y').c_str(), (left() + "/link").c_str()), 0);
    settings().show_owner = settings().show_group = settings().show_permissions = true;
    settings().col_w_owner = 40;
    app().refresh_both();
    for (const double scroll : {0.0, 60.0, 10000.0}) {
        app().m_pane_hscroll[0] = scroll;
        frame();
        EXPECT_EQ(outside(), before) << scroll;
    }
    shot("panes-hostile");
}

TEST_F(PanePaint, a_name_with_line_breaks_and_direction_marks_stays_in_its_cell) {
    start();
    const auto columns_of = [this](int row) {
        const int y = static_cast<int>(row_y(row));
        std::string image;
        for (int line = y; line < y + 24; ++line)
            for (int x = 290; x < 500; ++x)
                image += pixel(x, line);
        return image;
    };
    const auto rows_around = [this](int row) {
        const int y = static_cast<int>(row_y(row));
        std::string image;
        for (int line = y - 24; line < y + 48; ++line)
            for (int x = 5; x < 500 && (line < y || line >= y + 24); ++x)
                image += pixel(x, line);
        return image;
    };
    write_file(left() + "/plain", "x");
    app().refresh_both();
    app().m_active_right = true;
    frame();
    const std::string size_and_date = columns_of(1);
    const std::string around = rows_around(1);
    for (const std::string name :
         {"a\nb\nc\nd", "a\rb",
          "a\xe2\x80\xa8"
          "b\xe2\x80\xa9"
          "c",
          "\xe2\x80\xae"
          "abc",
          "\xe2\x81\xa7\xe2\x80\xab"
          "abc",
          "\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d",
          "a\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81\xcc\x81"}) {
        for (const std::string& old : names())
            if (old != "..") {
                ASSERT_EQ(rename((left() + "/" + old).c_str(), (left() + "/" + name).c_str()), 0);
            }
        app().refresh_both();
        frame();
        ASSERT_EQ(pane().entries().size(), 2U);
        EXPECT_EQ(columns_of(1), size_and_date) << name;
        EXPECT_EQ(rows_around(1), around) << name;
    }
}

// A name that turns the direction around would swap itself with the target of the link.
TEST_F(PanePaint, a_link_reads_from_its_name_to_its_target_in_every_direction) {
    const std::string override_mark = "\xe2\x80\xae";
    const std::string hebrew = "\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d";
    const std::string names[] = {"aaaa", hebrew, override_mark + "aaaa",
                                 "\xe2\x81\xa9" + override_mark + "aa",
                                 "\xe2\x81\xa7"
                                 "aaaa"};
    for (const std::string& name : names) {
        FsEntry entry;
        entry.kind = FsEntry::Kind::Symlink;
        entry.name = name;
        entry.link_target = "zz";
        const std::string text = row_text(entry);
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 10, 10);
        cairo_t* cr = cairo_create(surface);
        PangoLayout* layout = pango_cairo_create_layout(cr);
        pango_layout_set_single_paragraph_mode(layout, TRUE);
        pango_layout_set_text(layout, text.c_str(), -1);
        const auto x_of = [&](const std::string& part) {
            PangoRectangle place;
            pango_layout_index_to_pos(layout, static_cast<int>(text.find(part)), &place);
            return std::min(place.x, place.x + place.width);
        };
        const std::string letter = name == hebrew ? "\xd7\x9c" : "a";
        EXPECT_LT(x_of(letter), x_of("→")) << text;
        EXPECT_LT(x_of("→"), x_of("zz")) << text;
        g_object_unref(layout);
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }
}

// For the eye: what the panes look like, in both themes and at the extreme scales.
TEST_F(PanePaint, every_kind_of_name_can_be_painted_in_every_look) {
    test_env::make_dirs(left() + "/Documents/deeper");
    for (const char* name :
         {"notes.txt", "photo.jpeg", "backup.tar.gz",
          "\xd9\x85\xd8\xb3\xd8\xaa\xd9\x86\xd8\xaf \xd8\xac\xd8\xaf\xd9\x8a\xd8\xaf.txt",
          "\xd7\xa7\xd7\x95\xd7\x91\xd7\xa5 2024.pdf",
          "\xe6\x96\xb0\xe3\x81\x97\xe3\x81\x84\xe6\x96\x87\xe6\x9b\xb8.odt",
          "\xec\x83\x88 \xeb\xac\xb8\xec\x84\x9c.hwp"})
        write_file(left() + "/" + name, std::string(5000, 'x'));
    write_file(left() + "/run.sh", "x", 0755);
    ASSERT_EQ(symlink("Documents", (left() + "/shortcut").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (left() + "/broken").c_str()), 0);
    for (int i = 0; i < 40; ++i)
        write_file(right() + "/file" + std::to_string(i) + ".dat", "y");
    start();
    settings().show_type = true;
    pane().toggle_selection(pane().index_of("notes.txt"));
    put_cursor_on("photo.jpeg");
    pane(true).toggle_selection(4);
    pane(true).set_filter("file", true);
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        EXPECT_GT(all(App::Hit::PaneRow, 0).size(), 3U);
        shot(std::string("panes-") + look_of.theme + "-" + std::to_string(look_of.scale));
        // The same in a language written from the right, and in one without spaces.
        for (const char* language : {"ar", "ja"}) {
            I18n::instance().set_language(language);
            frame();
            const App::Layout& l = app().m_layout;
            EXPECT_EQ(hit(App::Hit::PaneRow, 0, 0).x, l.left_x) << language;  // nothing is mirrored
            shot(std::string("panes-") + language + "-" + look_of.theme + "-" +
                 std::to_string(look_of.scale));
        }
        I18n::instance().set_language("en");
    }
}

}  // namespace
