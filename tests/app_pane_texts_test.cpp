// The texts of a pane: where each stands, in which size and colour. Positions are those of the
// default window, whose left pane is 508 wide.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "format.h"
#include "i18n.h"

#include <unistd.h>

namespace {

using test_env::painted_text;
using test_env::PaintedText;
using test_env::write_file;

class PaneTexts : public PanePaint {
  protected:
    void paint(const Look& look_of) {
        test_env::forget_painted();
        look(look_of.theme, look_of.scale);
    }
    void paint() {
        test_env::forget_painted();
        frame();
    }
    // The first text of this kind that lies in the left pane at that height.
    static const PaintedText* find(const std::string& text, double y) {
        for (const PaintedText& painted : test_env::painted_texts())
            if (painted.text == text && painted.x < 508 && std::abs(painted.y - y) < 0.01)
                return &painted;
        ADD_FAILURE() << "no \"" << text << "\" at " << y;
        static const PaintedText none;
        return &none;
    }
    static double right_end(const PaintedText& text) { return text.x + text.width; }
};

TEST_F(PaneTexts, the_banner_has_its_word_at_14_and_its_hint_at_11) {
    start();
    for (const Look& look_of : kLooks) {
        for (const bool active_right : {false, true}) {
            app().m_active_right = active_right;
            paint(look_of);
            const PaintedText word = *find(active_right ? "TARGET" : "SOURCE", kTop + 14);
            EXPECT_EQ(word.x, 14);
            EXPECT_EQ(word.size, 14);
            EXPECT_EQ(word.color, "#FFFFFF");
            const PaintedText hint =
                *find(active_right ? "files land here" : "copy from here", kTop + 14);
            EXPECT_GT(hint.x, word.x + word.width);
            EXPECT_EQ(hint.size, 11);
            EXPECT_EQ(hint.color, "#FFFFFF");
            EXPECT_NEAR(hint.alpha, 0.85, 1e-3);
            // The other side is the mirror.
            const PaintedText* mirrored = painted_text(active_right ? "SOURCE" : "TARGET");
            ASSERT_NE(mirrored, nullptr);
            EXPECT_NEAR(right_end(*mirrored), 1100 - 14, 0.01);
        }
    }
}

TEST_F(PaneTexts, the_hint_needs_its_width_the_words_and_80) {
    start();
    paint({"light", 100});
    const double wanted =
        painted_text("SOURCE")->width + painted_text("copy from here")->width + 80;
    for (const int spare : {0, 1, 5}) {
        test_env::forget_painted();
        frame(2 * static_cast<int>(wanted + spare) + 84, 720);
        ASSERT_EQ(app().m_layout.left_w, wanted + spare);
        EXPECT_NE(painted_text("copy from here"), nullptr) << spare;
    }
    test_env::forget_painted();
    frame(2 * static_cast<int>(wanted - 1) + 84, 720);
    EXPECT_EQ(painted_text("copy from here"), nullptr);
    EXPECT_NE(painted_text("SOURCE"), nullptr);
}

TEST_F(PaneTexts, the_segments_of_a_path_are_accented_but_for_the_last) {
    test_env::make_dirs(left() + "/aaa/bbb");
    start({"--left=" + left() + "/aaa/bbb"});
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const double y = kTop + 28 + 34 + 13;
        const Palette& p = app().m_palette;
        const PaintedText root = *find("/", y);
        EXPECT_EQ(root.x, 10);
        EXPECT_EQ(root.size, 11);
        EXPECT_EQ(root.color, p.accent);
        // 6 behind the root begins the first folder.
        EXPECT_NEAR(find("tmp", y)->x, 10 + root.width + 6, 0.01);
        const PaintedText parent = *find("aaa", y);
        EXPECT_EQ(parent.color, p.accent);
        const PaintedText last = *find("bbb", y);
        EXPECT_EQ(last.color, p.text);
        EXPECT_EQ(last.size, 11);
        EXPECT_NEAR(last.x, right_end(parent) + 14, 0.01);
        bool separator = false;
        for (const PaintedText& text : test_env::painted_texts())
            separator |= text.color == p.dim && std::abs(text.x - right_end(parent) - 4) < 0.01 &&
                         text.y == y;
        EXPECT_TRUE(separator);
        EXPECT_EQ(painted_text("…"), nullptr);
    }
}

TEST_F(PaneTexts, dropped_segments_leave_an_ellipsis) {
    std::string deep = left();
    for (int i = 0; i < 20; ++i)
        deep += "/folder number " + std::to_string(i);
    test_env::make_dirs(deep);
    start({"--left=" + deep});
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const double y = kTop + 28 + 34 + 13;
        const PaintedText dots = *find("…", y);
        EXPECT_EQ(dots.color, app().m_palette.dim);
        EXPECT_NEAR(dots.x, right_end(*find("/", y)) + 6, 0.01);
        const App::HitRect first = all(App::Hit::PathSegment, 0)[1];
        EXPECT_NEAR(first.x + 3, right_end(dots) + 8, 0.01);
        EXPECT_EQ(painted_text("folder number 0"), nullptr);
        EXPECT_EQ(find("folder number 19", y)->color, app().m_palette.text);
    }
}

TEST_F(PaneTexts, segments_are_dropped_when_they_would_reach_into_the_last_30) {
    const std::string deep = left() + "/first folder/second folder/third folder";
    test_env::make_dirs(deep);
    start({"--left=" + deep});
    // Each takes its width and 14; the first stands 6 behind the root, which stands at 10.
    double wanted = 10 + width_of("/", 11) + 6 + 30;
    size_t count = 0;
    for (size_t at = 1; at < deep.size(); ++count) {
        const size_t end = std::min(deep.find('/', at), deep.size());
        wanted += width_of(deep.substr(at, end - at), 11) + 14;
        at = end + 1;
    }
    const auto segments_at = [this](double pane_w) {
        test_env::forget_painted();
        frame(2 * static_cast<int>(pane_w) + 84, 720);
        EXPECT_EQ(app().m_layout.left_w, pane_w);
        return all(App::Hit::PathSegment, 0).size();
    };
    EXPECT_EQ(segments_at(wanted), count + 1);
    EXPECT_EQ(painted_text("…"), nullptr);
    EXPECT_EQ(segments_at(wanted - 1), count);
    EXPECT_NE(painted_text("…"), nullptr);
    // No more than needed: the room that the first has left serves for the rest.
    const double first = width_of(deep.substr(1, deep.find('/', 1) - 1), 11) + 14;
    EXPECT_EQ(segments_at(wanted - first), count);
    EXPECT_EQ(segments_at(wanted - first - 1), count - 1);
}

TEST_F(PaneTexts, the_editor_of_a_path_shifts_it_no_more_than_the_caret_needs) {
    start();
    app().m_path_edit = 0;
    for (const Look& look_of : kLooks) {
        const double y = kTop + 28 + 34 + 13;
        app().m_path_buffer = "/short";
        app().m_path_caret = 6;
        paint(look_of);
        const PaintedText text = *find("/short", y);
        EXPECT_EQ(text.x, 10);
        EXPECT_EQ(text.size, 11);
        EXPECT_EQ(text.color, app().m_palette.control_text);
        const std::string path = "/" + std::string(400, 'w');
        app().m_path_buffer = path;
        app().m_path_caret = path.size();
        paint();
        // The caret 12 before the end of a room that is 20 narrower than the pane.
        EXPECT_NEAR(right_end(*find(path, y)), 10 + 508 - 20 - 12, 0.01);
        app().m_path_caret = 3;
        paint();
        EXPECT_EQ(find(path, y)->x, 10);
    }
}

TEST_F(PaneTexts, an_error_of_the_path_stands_below_the_bar) {
    start();
    app().m_path_edit = 0;
    app().m_path_buffer = "/x";
    app().m_path_error = "no such folder";
    for (const Look& look_of : kLooks) {
        app().m_active_right = true;  // with a thin frame
        paint(look_of);
        const Palette& p = app().m_palette;
        const double top = kTop + 28 + 34 + 26;
        const PaintedText text = *find("no such folder", top + 10);
        EXPECT_EQ(text.x, 10);
        EXPECT_EQ(text.size, 11);
        EXPECT_EQ(text.color, p.danger);
        if (look_of.scale == 200) {
            EXPECT_EQ(at(2.6, top + 10), p.danger);  // the strip is 3 wide
            EXPECT_EQ(at(3.3, top + 10), p.danger_bg);
        }
    }
}

TEST_F(PaneTexts, the_filter_bar_has_its_text_its_hint_and_its_count) {
    files(30);
    start();
    for (const Look& look_of : kLooks) {
        const double y = kTop + 28 + 34 + 26 + 3 + 11;
        pane().set_filter("", true);
        app().m_search_pane = 0;
        app().m_search_buffer.clear();
        app().m_search_caret = 0;
        paint(look_of);
        const Palette& p = app().m_palette;
        const PaintedText hint = *find("Filter this folder…", y);
        EXPECT_EQ(hint.x, 10 + 26);
        EXPECT_EQ(hint.color, p.dim);
        EXPECT_EQ(hint.size, 12.5);
        EXPECT_EQ(find("31 / 31", y)->color, p.secondary);
        pane().set_filter("file1", true);  // 11 of 30, and the parent row
        app().m_search_buffer = "file1";
        app().m_search_caret = 5;
        paint();
        const PaintedText text = *find("file1", y);
        EXPECT_EQ(text.x, 10 + 26);
        EXPECT_EQ(text.color, p.text);
        EXPECT_EQ(text.size, 12.5);
        EXPECT_EQ(painted_text("Filter this folder…"), nullptr);
        const PaintedText count = *find("12 / 31", y);
        EXPECT_EQ(count.color, p.secondary);
        EXPECT_LT(right_end(count), hit(App::Hit::SearchClear, -1, 0).x);
        // A side that the field has left shows the filter in force.
        app().m_search_pane = 1;
        app().m_search_buffer = "other";
        app().m_search_caret = 0;
        paint();
        EXPECT_EQ(find("file1", y)->color, p.text);
        app().m_search_pane = -1;
    }
}

TEST_F(PaneTexts, the_labels_of_the_columns_end_where_their_texts_do) {
    files(3);
    start();
    const double y = kTop + 28 + 34 + 26 + 13;
    // Size ends 104 + 16 + 10 before the pane, and its text 6 before that; modified 10.
    const double size_end = 508 - 130 - 6;
    const double modified_end = 508 - 10 - 6;
    for (const Look& look_of : kLooks) {
        pane().set_sort_order({dir_lister::SortKey::Name, true, true});
        paint(look_of);
        const Palette& p = app().m_palette;
        EXPECT_EQ(find("Name", y)->x, 10);
        EXPECT_EQ(find("Name", y)->color, p.accent);
        EXPECT_EQ(find("Name", y)->size, 11);
        EXPECT_NEAR(right_end(*find("Size", y)), size_end, 0.01);
        EXPECT_NEAR(right_end(*find("Modified", y)), modified_end, 0.01);
        for (const char* label : {"Size", "Modified"}) {
            EXPECT_EQ(find(label, y)->color, p.secondary);
            EXPECT_EQ(find(label, y)->size, 11);
        }
        if (look_of.scale == 200) {
            // The triangle begins 5 behind the name and is 7 wide.
            const double x = right_end(*find("Name", y)) + 5;
            EXPECT_FALSE(has(p.accent, x - 3, y - 3, 2.5, 6));
            EXPECT_TRUE(has(p.accent, x + 2, y - 3, 3, 6));
            EXPECT_FALSE(has(p.accent, x + 7.5, y - 3, 3, 6));
        }
        pane().set_sort_order({dir_lister::SortKey::Size, true, true});
        paint();
        EXPECT_EQ(find("Name", y)->color, p.secondary);
        EXPECT_EQ(find("Size", y)->color, p.accent);
        EXPECT_NEAR(right_end(*find("Size", y)), size_end - 12, 0.01);
        EXPECT_NEAR(right_end(*find("Modified", y)), modified_end, 0.01);
    }
}

TEST_F(PaneTexts, a_row_has_its_name_at_125_and_its_columns_at_11) {
    test_env::make_dirs(left() + "/folder");
    write_file(left() + "/plain.jpeg", std::string(3000, 'x'));
    write_file(left() + "/x.abcdefghi", "x");  // an extension of nine letters
    ASSERT_EQ(symlink("plain.jpeg", (left() + "/way").c_str()), 0);
    start();
    settings().show_type = true;
    for (const Look& look_of : kLooks) {
        pane().clear_selection();
        paint(look_of);
        const Palette& p = app().m_palette;
        const auto y_of = [this](const char* name) { return row_y(pane().index_of(name)) + 12; };
        EXPECT_EQ(find("folder", y_of("folder"))->x, 10 + 15);
        EXPECT_EQ(find("..", y_of(".."))->x, 10 + 15);
        EXPECT_EQ(find("..", y_of(".."))->color, p.secondary);
        const PaintedText name = *find("plain.jpeg", y_of("plain.jpeg"));
        EXPECT_EQ(name.x, 10);
        EXPECT_EQ(name.size, 12.5);
        EXPECT_EQ(name.color, p.text);
        EXPECT_EQ(find("way → plain.jpeg", y_of("way"))->color, p.link_text);
        const PaintedText size = *find(fmt::bytes(3000), y_of("plain.jpeg"));
        EXPECT_NEAR(right_end(size), 508 - 10 - 120 - 82 - 6, 0.01);
        EXPECT_EQ(size.size, 11);
        EXPECT_EQ(size.color, p.secondary);
        EXPECT_NEAR(right_end(*find("JPEG", y_of("plain.jpeg"))), 508 - 10 - 120 - 6, 0.01);
        EXPECT_NEAR(right_end(*find("—", y_of("folder"))), 508 - 10 - 120 - 82 - 6, 0.01);
        const auto& entry = pane().entries()[static_cast<size_t>(pane().index_of("plain.jpeg"))];
        EXPECT_NEAR(right_end(*find(fmt::date_time(entry.mtime), y_of("plain.jpeg"))), 508 - 10 - 6,
                    0.01);
        // Of the parent row and of a long extension there is nothing to tell.
        int on_parent = 0;
        int on_long = 0;
        for (const PaintedText& text : test_env::painted_texts()) {
            on_parent += text.x < 508 && text.y == y_of("..");
            on_long += text.x < 508 && text.y == y_of("x.abcdefghi");
        }
        EXPECT_EQ(on_parent, 1);
        EXPECT_EQ(on_long, 3);
        // A marked row of the active side is in one colour, one of the other side keeps its own.
        pane().toggle_selection(pane().index_of("plain.jpeg"));
        paint();
        EXPECT_EQ(find("plain.jpeg", y_of("plain.jpeg"))->color, p.selection_text);
        EXPECT_EQ(find("JPEG", y_of("plain.jpeg"))->color, p.selection_text);
        app().m_active_right = true;
        paint();
        EXPECT_EQ(find("plain.jpeg", y_of("plain.jpeg"))->color, p.text);
        EXPECT_EQ(find("JPEG", y_of("plain.jpeg"))->color, p.secondary);
        app().m_active_right = false;
    }
}

TEST_F(PaneTexts, an_unknown_birth_is_a_dim_dash) {
    write_file(left() + "/a", "x");
    start();
    settings().show_created = true;
    auto& entry = const_cast<FsEntry&>(pane().entries()[1]);
    for (const Look& look_of : kLooks) {
        entry.btime = 0;
        paint(look_of);
        const PaintedText dash = *find("—", row_y(1) + 12);
        EXPECT_EQ(dash.color, app().m_palette.dim);
        EXPECT_NEAR(right_end(dash), 508 - 10 - 6, 0.01);
        EXPECT_EQ(painted_text(fmt::date_time(0)), nullptr);
        entry.btime = 1700000000;
        paint();
        EXPECT_EQ(find(fmt::date_time(1700000000), row_y(1) + 12)->color,
                  app().m_palette.secondary);
    }
}

TEST_F(PaneTexts, a_folder_that_cannot_be_read_gives_the_systems_text) {
    start();
    pane().navigate_to(left() + "/missing", true);
    ASSERT_FALSE(pane().error().empty());
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const double top = kTop + 28 + 34 + 26 + 26;
        const PaintedText* word = painted_text("Permission denied");
        ASSERT_NE(word, nullptr);
        EXPECT_EQ(word->x, 10);
        EXPECT_EQ(word->size, 12.5);
        EXPECT_EQ(word->color, app().m_palette.danger);
        EXPECT_GT(word->y, top);
        const PaintedText* system = painted_text(pane().error());
        ASSERT_NE(system, nullptr);
        EXPECT_EQ(system->x, 10);
        EXPECT_EQ(system->size, 11);
        EXPECT_EQ(system->color, app().m_palette.secondary);
        EXPECT_GT(system->y, word->y + 10);
        EXPECT_LE(system->width, 508 - 20);
    }
}

TEST_F(PaneTexts, only_a_list_without_any_row_is_called_empty) {
    start({"--left=/"});
    pane().set_filter("nothing is called like this", true);
    ASSERT_TRUE(pane().entries().empty());
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const PaintedText* word = painted_text("empty");
        ASSERT_NE(word, nullptr);
        EXPECT_EQ(word->x, 10);
        EXPECT_EQ(word->size, 12.5);
        EXPECT_EQ(word->color, app().m_palette.dim);
    }
    pane().set_filter("", true);
    pane().navigate_to(left(), true);
    paint();
    EXPECT_EQ(painted_text("empty"), nullptr);  // the parent row is there
}

TEST_F(PaneTexts, a_name_is_cut_in_the_middle_of_its_own_room) {
    const std::string name = "begin" + std::string(200, 'm') + "end.txt";
    write_file(left() + "/" + name, "x");
    start();
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const PaintedText text = *find(name, row_y(1) + 12);
        EXPECT_EQ(text.x, 10);
        EXPECT_LE(text.width, 508 - 20 - 214);
        EXPECT_GT(text.width, 508 - 20 - 214 - 30);
    }
}

// --- Texts and the edges of their room --------------------------------------------------------

// As narrow as a column can be made, with 12 for the arrow.
TEST_F(PaneTexts, nothing_of_a_narrow_column_leaves_it) {
    files(1);
    start();
    settings().show_permissions = true;
    settings().col_w_permissions = 40;
    pane().set_sort_order({dir_lister::SortKey::Permissions, true, true});
    const std::string rights = column_text(ColumnId::Permissions, pane().entries()[1], "%d");
    for (const Look& look_of : kLooks) {
        paint(look_of);
        const App::HitRect cell =
            hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Permissions), 0);
        ASSERT_EQ(cell.w, 40);
        int seen = 0;
        for (const PaintedText& text : test_env::painted_texts()) {
            // What is cut tells its room as its width.
            const bool head = text.text == "Permissions" && text.x < 508;
            const bool row = text.text == rights && text.x < 508;
            if (!head && !row)
                continue;
            ++seen;
            EXPECT_TRUE(text.cut) << text.text;
            EXPECT_GE(text.x, cell.x - 0.01 + (head ? -6 : 0)) << text.text;
            EXPECT_LE(text.width, head ? 28 : 34) << text.text;
        }
        EXPECT_EQ(seen, 2);
    }
}

TEST_F(PaneTexts, a_column_that_is_half_out_of_view_is_still_painted) {
    files(1);
    start();
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings(), static_cast<ColumnId>(i), true);
    paint();
    const double left_of_size =
        hit(App::Hit::PaneHeader, static_cast<int>(dir_lister::SortKey::Size), 0).x;
    app().m_pane_hscroll[0] = left_of_size + 20;
    paint();
    const double y = row_y(1) + 12;
    const PaintedText* const size = find("1 B", y);
    EXPECT_NEAR(right_end(*size), 78 - 20 - 6, 0.01);
}

// The scrollbar takes 11 of the pane; a row that is scrolled sideways ends before it.
TEST_F(PaneTexts, no_text_shows_through_the_scrollbar_of_the_rows) {
    files(60);
    start();
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings(), static_cast<ColumnId>(i), true);
    for (double shift = 0; shift < 60; shift += 6) {
        app().m_pane_hscroll[0] = shift;
        frame();
        const App::HitRect thumb = hit(App::Hit::ScrollThumb, -1, 0);
        const App::HitRect rows = hit(App::Hit::PaneBackground, -1, 0);
        const int below = static_cast<int>(thumb.y + thumb.h) + 4;
        // Odd rows are striped, so that one row is looked at at a time.
        for (int y = below - below % 24; y + 24 < rows.y + rows.h - 4; ++y)
            for (int x = static_cast<int>(thumb.x); x < 508 - 5; ++x)
                ASSERT_TRUE(y < below || pixel(x, y) == pixel(static_cast<int>(thumb.x), y))
                    << shift << " " << x << " " << y;
    }
}

TEST_F(PaneTexts, the_name_of_a_row_that_is_renamed_is_not_painted_below_its_box) {
    const std::string name(120, 'w');  // wider than the box
    write_file(left() + "/" + name, "x");
    start();
    pane().set_cursor(1, true);
    paint();
    EXPECT_EQ(find(name, row_y(1) + 12)->color, app().m_palette.selection_text);
    app().perform(Action::Rename, 0);
    paint();
    int seen = 0;
    for (const PaintedText& text : test_env::painted_texts())
        seen += text.text == name && text.x < 508;
    EXPECT_EQ(seen, 1) << "the field's own";
}

TEST_F(PaneTexts, the_rename_box_ends_3_before_a_narrow_pane) {
    files(3);
    start();
    pane().set_cursor(1, true);
    app().perform(Action::Rename, 0);
    AppTest::frame(600, 720);
    const App::Rect& box = app().m_rename_field.box;
    EXPECT_EQ(box.x, 10 - 3);
    EXPECT_EQ(box.w, (600 - 84) / 2 - 3 - 10);
    EXPECT_EQ(box.h, 20);
}

TEST_F(PaneTexts, a_long_filter_ends_8_before_the_count) {
    start();
    app().m_search_pane = 0;
    app().m_search_buffer = std::string(100, 'W');
    app().m_search_caret = 0;
    paint({"light", 200});
    const PaintedText count = *find("1 / 1", kTop + 28 + 34 + 26 + 3 + 11);
    const App::HitRect box = hit(App::Hit::SearchBar, -1, 0);
    const Palette& p = app().m_palette;
    EXPECT_FALSE(has(p.text, count.x - 7.5, box.y + 4, 7.5, 14));
    EXPECT_TRUE(has(p.text, count.x - 18, box.y + 4, 10, 14));
}

}  // namespace
