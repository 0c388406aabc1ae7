// The text fields within a pane, to the half of a unit: at 200 % each unit is two pixels.

#include "app_pane_paint.h"

namespace {

class PaneFields : public PanePaint {
  protected:
    static constexpr const char* kThemes[] = {"light", "dark"};
    static constexpr double kWidth = 508;

    static std::string blocks(int count) {
        std::string text;
        for (int i = 0; i < count; ++i)
            text += "\xe2\x96\x88";
        return text;
    }
    // Whether a line of 1.4 about x is painted on the ground there.
    bool caret_at(double x, double y, const std::string& ground) {
        return at(x - 0.3, y) != ground || at(x + 0.2, y) != ground;
    }
};

TEST_F(PaneFields, the_path_editor_has_a_line_of_2_within_its_bar) {
    start();
    app().m_path_edit = 0;
    const double y = kTop + 62;
    for (const char* theme : kThemes) {
        for (const char* error : {"", "wrong"}) {
            app().m_path_error = error;
            look(theme, 200);
            const Palette& p = app().m_palette;
            const std::string& edge = *error ? p.danger : p.accent;
            for (const double line : {0.3, 1.7, 24.3, 25.7})
                EXPECT_EQ(at(300, y + line), edge) << line;
            for (const double inside : {2.3, 13.0, 23.7})
                EXPECT_EQ(at(300, y + inside), p.control) << inside;
        }
        // At its ends, beside the thin frame of the other side.
        app().m_active_right = true;
        frame();
        EXPECT_EQ(at(0.2, y + 13), app().m_palette.danger);
        EXPECT_EQ(at(2.7, y + 13), app().m_palette.control);
        EXPECT_EQ(at(kWidth - 0.3, y + 13), app().m_palette.danger);
        EXPECT_EQ(at(kWidth - 2.8, y + 13), app().m_palette.control);
        app().m_active_right = false;
    }
}

TEST_F(PaneFields, the_text_of_the_path_editor_ends_4_inside_of_the_bar) {
    start();
    app().m_path_edit = 0;
    app().m_path_buffer = blocks(300);
    const double y = kTop + 62 + 13;
    for (const char* theme : kThemes) {
        app().m_path_caret = 0;
        look(theme, 200);
        const Palette& p = app().m_palette;
        EXPECT_EQ(at(kWidth - 4.3, y), p.control_text);
        EXPECT_EQ(at(kWidth - 3.7, y), p.control);
        app().m_path_caret = app().m_path_buffer.size();
        frame();
        EXPECT_EQ(at(4.3, y), p.control_text);
        EXPECT_EQ(at(3.7, y), p.control);
    }
}

TEST_F(PaneFields, the_caret_of_the_path_editor_is_4_inside_of_the_bar) {
    start();
    app().m_path_edit = 0;
    const double y = kTop + 62;
    for (const char* theme : kThemes) {
        look(theme, 200);
        const std::string& ground = app().m_palette.control;
        EXPECT_FALSE(caret_at(10, y + 3.7, ground));
        EXPECT_TRUE(caret_at(10, y + 4.3, ground));
        EXPECT_TRUE(caret_at(10, y + 21.7, ground));
        EXPECT_FALSE(caret_at(10, y + 22.3, ground));
        EXPECT_EQ(at(8.7, y + 13), ground);
        EXPECT_EQ(at(11.2, y + 13), ground);
    }
}

TEST_F(PaneFields, the_rename_box_has_a_line_of_15_and_a_caret_5_inside_of_the_row) {
    files(3);
    start();
    pane().set_cursor(1, true);
    app().perform(Action::Rename, 0);
    pane().rename_set_caret(0);
    for (const char* theme : kThemes) {
        look(theme, 200);
        const Palette& p = app().m_palette;
        const double y = row_y(1);
        // From 3 left of the text, 400 wide, 2 below the row's top and 20 high.
        for (const double line : {1.5, 2.3, 21.5, 22.3})
            EXPECT_EQ(at(200, y + line), p.accent) << line;
        for (const double inside : {3.2, 12.0, 20.8})
            EXPECT_EQ(at(200, y + inside), p.control) << inside;
        EXPECT_EQ(at(6.7, y + 12), p.accent);
        EXPECT_EQ(at(7.2, y + 12), p.accent);
        EXPECT_EQ(at(8.2, y + 12), p.control);
        EXPECT_EQ(at(406.7, y + 12), p.accent);
        EXPECT_EQ(at(407.2, y + 12), p.accent);
        EXPECT_EQ(at(408.2, y + 12), p.selection);
        EXPECT_FALSE(caret_at(10, y + 4.7, p.control));
        EXPECT_TRUE(caret_at(10, y + 5.3, p.control));
        EXPECT_TRUE(caret_at(10, y + 18.7, p.control));
        EXPECT_FALSE(caret_at(10, y + 19.3, p.control));
    }
}

TEST_F(PaneFields, the_caret_of_the_filter_stands_behind_the_text_before_it) {
    files(3);
    start();
    app().m_search_pane = 0;
    for (const char* theme : kThemes) {
        look(theme, 200);
        const std::string& ground = app().m_palette.control;
        const App::HitRect box = hit(App::Hit::SearchBar, -1, 0);
        app().m_search_buffer = "file";
        for (const size_t caret : {0U, 2U, 4U}) {
            app().m_search_caret = caret;
            frame();
            const double x = box.x + 26 + width_of(std::string("file").substr(0, caret), 12.5);
            EXPECT_TRUE(caret_at(x, box.y + 4.5, ground)) << caret;
            EXPECT_FALSE(caret_at(x, box.y + 3.5, ground)) << caret;
        }
        // The bar of a side that the field has left has none.
        pane().set_filter("file", true);
        app().m_search_pane = -1;
        frame();
        EXPECT_FALSE(caret_at(box.x + 26 + width_of("file", 12.5), box.y + 4.5, ground));
        pane().set_filter("", true);
        app().m_search_pane = 0;
    }
}

}  // namespace
