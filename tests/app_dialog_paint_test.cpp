// What the dialogues paint, to the half of a unit: at 200 % each unit is two pixels.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "i18n.h"

#include <cstdlib>

namespace {

using test_env::painted_text;
using test_env::PaintedText;
using test_env::write_file;
using Overlay = App::Overlay;

class DialogPaint : public PanePaint {
  protected:
    static constexpr const char* kThemes[] = {"light", "dark"};

    void paint(const char* theme) {
        test_env::forget_painted();
        look(theme, 200);
    }
    App::Rect panel(Overlay overlay, const char* theme = "light") {
        app().open_overlay(overlay, "title");
        paint(theme);
        return app().m_overlay_panel;
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    const Palette& palette() { return app().m_palette; }
};

// --- The frame --------------------------------------------------------------------------------

TEST_F(DialogPaint, the_panel_has_corners_of_8_and_a_shadow_3_to_the_right_and_6_below) {
    start();
    for (const char* theme : kThemes) {
        const App::Rect at_ = panel(Overlay::NewFolder, theme);
        expect_corner(at_.x, at_.y, 8, "panel");
        const double right = at_.x + at_.w;
        const double bottom = at_.y + at_.h;
        const std::string beside = at(right + 3.5, at_.y + 90);
        expect_near(at(right + 2.5, at_.y + 90), over("#000000", 0.22, beside), "shadow");
        const std::string below = at(at_.x + 100, bottom + 6.5);
        expect_near(at(at_.x + 100, bottom + 5.5), over("#000000", 0.22, below), "shadow");
        // Its corner is round as well: 3 above its end it begins 1.8 further right.
        expect_near(at(at_.x + 4, bottom + 3), below, "beside the shadow");
        expect_near(at(at_.x + 6, bottom + 3), over("#000000", 0.22, below), "shadow");
        // Nor does it reach further up than 6 below the panel's top.
        expect_near(at(right + 1.5, at_.y + 5), beside, "above the shadow");
    }
}

TEST_F(DialogPaint, the_logo_is_36_wide_and_the_title_stands_68_in) {
    start();
    const App::Rect at_ = panel(Overlay::Sandbox);
    const PaintedText* title = painted_text("title");
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->x, at_.x + 68);
    EXPECT_EQ(title->y, at_.y + 26);
    EXPECT_EQ(title->size, 15);
    const std::string ground = palette().bar;
    const double middle = at_.y + 28;
    EXPECT_EQ(at(at_.x + 19.7, middle), ground);
    EXPECT_NE(at(at_.x + 20.7, middle), ground);
    EXPECT_NE(at(at_.x + 55.2, middle), ground);
    EXPECT_EQ(at(at_.x + 56.2, middle), ground);
    EXPECT_EQ(at(at_.x + 38, at_.y + 9.7), ground);
    EXPECT_NE(at(at_.x + 38, at_.y + 10.7), ground);
    EXPECT_NE(at(at_.x + 38, at_.y + 45.2), ground);
    EXPECT_EQ(at(at_.x + 38, at_.y + 46.2), ground);
}

TEST_F(DialogPaint, the_grip_is_four_diagonal_strokes) {
    start();
    for (const char* theme : kThemes) {
        for (const Overlay overlay : {Overlay::ArchiveView, Overlay::HexView}) {
            for (const int held : {0, 1}) {
                app().m_overlay_resize = held;
                const App::Rect at_ = panel(overlay, theme);
                const double right = at_.x + at_.w - 6;
                const double bottom = at_.y + at_.h - 6;
                const std::string stroke =
                    over(palette().secondary, held ? 0.9 : 0.5, palette().bar);
                for (int i = 1; i <= 4; ++i) {
                    // In its middle, and 1.4 wide across it.
                    const double x = right - 2.5 * i;
                    const double y = bottom - 2.5 * i;
                    expect_near(at(x + 0.1, y - 0.4), stroke, "stroke");
                    expect_near(at(x + 1, y + 1), palette().bar, "beside");
                    // It begins and ends 5 further than the one before.
                    expect_near(at(right - 5 * i + 0.8, bottom - 0.9), stroke, "its lower end");
                    expect_near(at(right - 0.9, bottom - 5 * i + 0.8), stroke, "its upper end");
                }
                EXPECT_EQ(at(right - 12.4, bottom - 12.6), palette().bar);  // there is no fifth
                EXPECT_EQ(at(right - 4, bottom + 1), palette().bar);
                EXPECT_EQ(at(right + 1, bottom - 4), palette().bar);
            }
        }
    }
    app().m_overlay_resize = 0;
}

TEST_F(DialogPaint, about_adds_its_bands_to_the_height_of_its_disclaimer) {
    start();
    unsetenv("SNAP_VERSION");
    for (const char* language : {"en", "de", "ja"}) {
        I18n::instance().set_language(language);
        double text_h = 0;
        measuring([&] {
            text_h =
                app().wrapped_text(tr("about.disclaimer"), 0, 0, 424, 11, nullptr, "sans-serif");
        });
        EXPECT_EQ(panel(Overlay::About).h, 68 + 30 + 20 + text_h + 330) << language;
    }
    I18n::instance().set_language("en");
}

TEST_F(DialogPaint, the_byte_view_is_as_wide_as_one_of_its_lines_and_74) {
    start();
    const double line = width_of("00000000   00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00   "
                                 "0123456789ABCDEF",
                                 11, false, true);
    EXPECT_EQ(panel(Overlay::HexView).w, line + 74);
}

// --- Buttons ----------------------------------------------------------------------------------

TEST_F(DialogPaint, buttons_have_corners_of_4_and_their_colours) {
    write_file(left() + "/a", "x");
    start();
    pane().select_all();
    for (const char* theme : kThemes) {
        app().perform(Action::Delete, 0);
        paint(theme);
        const Palette& p = palette();
        for (const Action action :
             {Action::OverlayCancel, Action::DeletePermanent, Action::DeleteToTrash}) {
            const App::HitRect rect = button(action);
            expect_corner(rect.x, rect.y, 4, action_name(action));
        }
        const auto rows = [&](Action action, double y) {
            const App::HitRect rect = button(action);
            return at(rect.x + 20, rect.y + y);
        };
        // The line lies in the outermost unit.
        for (const double edge : {0.2, 0.8, 29.2, 29.8}) {
            EXPECT_EQ(rows(Action::OverlayCancel, edge), p.control_edge);
            EXPECT_EQ(rows(Action::DeletePermanent, edge), p.danger);
            EXPECT_EQ(rows(Action::DeleteToTrash, edge), p.accent);
        }
        for (const double inside : {1.2, 28.8}) {
            EXPECT_EQ(rows(Action::OverlayCancel, inside), p.control);
            EXPECT_EQ(rows(Action::DeletePermanent, inside), p.danger_bg);
        }
        EXPECT_EQ(painted_text("Cancel")->color, p.control_text);
        EXPECT_EQ(painted_text("Delete permanently")->color, p.danger);
        EXPECT_EQ(painted_text("Move to trash")->color, "#FFFFFF");
        // Only the primary one answers to the pointer.
        for (const Action action :
             {Action::OverlayCancel, Action::DeletePermanent, Action::DeleteToTrash}) {
            const App::HitRect rect = button(action);
            const std::string before = rows(action, 4);
            app().handle_motion(rect.x + 5, rect.y + 5);
            frame();
            expect_near(rows(action, 4),
                        action == Action::DeleteToTrash ? over(p.accent, 0.88, p.bar) : before,
                        action_name(action));
            app().handle_leave();
            frame();
            EXPECT_EQ(rows(action, 4), before);
        }
        app().close_overlay();
    }
}

// --- Message ----------------------------------------------------------------------------------

TEST_F(DialogPaint, a_message_is_wrapped_at_420_and_has_its_buttons_46_above_its_end) {
    start();
    std::string text;
    for (int i = 0; i < 40; ++i)
        text += "illi" + std::to_string(i) + " ";
    app().show_message("t", text, false, Action::SwapPanes, "Swap");
    paint("light");
    const App::Rect at_ = app().m_overlay_panel;
    double wanted = 0;
    measuring([&] { wanted = app().wrapped_text(text, 0, 0, 420, 12.5, nullptr); });
    EXPECT_EQ(at_.h, wanted + 126);
    EXPECT_LE(painted_text(text)->width, 420);
    EXPECT_GT(painted_text(text)->width, 360);
    EXPECT_EQ(button(Action::OverlayCancel).y, at_.y + at_.h - 46);
    EXPECT_EQ(button(Action::SwapPanes).y, at_.y + at_.h - 46);
    EXPECT_LT(button(Action::SwapPanes).x, button(Action::OverlayCancel).x);
    EXPECT_EQ(painted_text("OK")->color, "#FFFFFF");
    EXPECT_EQ(painted_text("Swap")->color, palette().control_text);
    // In the font that the user has chosen.
    settings().font_family = "DejaVu Sans Mono";
    paint("light");
    double wider = 0;
    measuring([&] { wider = app().wrapped_text(text, 0, 0, 420, 12.5, nullptr); });
    EXPECT_GT(wider, wanted);
    EXPECT_EQ(app().m_overlay_panel.h, wider + 126);
}

// --- Text input -------------------------------------------------------------------------------

TEST_F(DialogPaint, the_field_has_an_accented_edge_and_a_caret) {
    start();
    for (const char* theme : kThemes) {
        app().perform(Action::NewFolder, 0);
        paint(theme);
        const Palette& p = palette();
        const App::Rect at_ = app().m_overlay_panel;
        const double x = at_.x + 100;
        const double top = at_.y + 92;
        const double bottom = top + 30;
        expect_corner(at_.x + 20, top, 4, "field");
        // A line of 1.5 about the middle of the outermost unit.
        for (const double y : {top + 0.2, top + 0.8, bottom - 0.8, bottom - 0.2})
            EXPECT_EQ(at(x, y), p.accent) << theme << y;
        EXPECT_LT(difference(at(x, top - 0.3), over(p.accent, 0.5, p.bar)), 12) << theme;
        EXPECT_LT(difference(at(x, top + 1.2), over(p.accent, 0.5, p.control)), 12) << theme;
        EXPECT_EQ(at(x, top - 0.7), p.bar);
        EXPECT_EQ(at(x, top + 1.7), p.control);
        EXPECT_EQ(at(x, bottom + 0.7), p.bar);
        EXPECT_EQ(at(at_.x + 20.2, top + 15), p.accent);
        EXPECT_EQ(at(at_.x + at_.w - 20.2, top + 15), p.accent);
        EXPECT_EQ(at(at_.x + at_.w - 19, top + 15), p.bar);
        // The caret of an empty text stands 10 in, from 6 to 24.
        const auto caret = [&](double y) {
            return at(at_.x + 29.7, top + y) != p.control || at(at_.x + 30.2, top + y) != p.control;
        };
        EXPECT_FALSE(caret(5.7));
        EXPECT_TRUE(caret(6.3));
        EXPECT_TRUE(caret(23.7));
        EXPECT_FALSE(caret(24.3));
        EXPECT_EQ(at(at_.x + 28.7, top + 15), p.control);
        EXPECT_EQ(at(at_.x + 31.2, top + 15), p.control);
        app().close_overlay();
    }
}

TEST_F(DialogPaint, the_text_of_the_field_ends_6_inside_of_it) {
    start();
    app().perform(Action::NewFolder, 0);
    for (int i = 0; i < 200; ++i)
        app().m_input_buffer += "\xe2\x96\x88";
    app().m_input_caret = 0;
    for (const char* theme : kThemes) {
        app().m_input_caret = 0;
        paint(theme);
        const Palette& p = palette();
        const App::Rect at_ = app().m_overlay_panel;
        const double y = at_.y + 92 + 15;
        const double end = at_.x + at_.w - 20 - 6;
        EXPECT_EQ(at(end - 0.8, y), p.control_text);
        EXPECT_EQ(at(end + 0.3, y), p.control);
        app().m_input_caret = app().m_input_buffer.size();
        paint(theme);
        EXPECT_EQ(at(at_.x + 26 + 0.8, y), p.control_text);
        EXPECT_EQ(at(at_.x + 26 - 0.3, y), p.control);
    }
}

// --- Delete confirmation ----------------------------------------------------------------------

TEST_F(DialogPaint, the_side_of_a_deletion_stands_on_a_ground_of_its_tint) {
    write_file(left() + "/a", "x");
    write_file(right() + "/b", "x");
    start();
    for (const char* theme : kThemes) {
        for (const bool on_the_right : {false, true}) {
            app().m_active_right = on_the_right;
            pane(on_the_right).select_all();
            app().perform(Action::Delete, 0);
            paint(theme);
            const Palette& p = palette();
            const App::Rect at_ = app().m_overlay_panel;
            const std::string ground =
                over(on_the_right ? p.target_tint : p.source_tint, 0.16, p.bar);
            const double x = at_.x + 20;
            const double y = at_.y + 84;
            const double w =
                width_of(on_the_right ? "Right side active" : "Left side active", 11) + 14;
            for (const auto& [px, py] : {std::pair{x + 40, y + 0.3},
                                         {x + 40, y + 16.7},
                                         {x + 0.3, y + 8},
                                         {x + w - 0.3, y + 8}})
                expect_near(at(px, py), ground, "ground");
            for (const auto& [px, py] : {std::pair{x + 40, y - 0.3},
                                         {x + 40, y + 17.3},
                                         {x - 0.3, y + 8},
                                         {x + w + 0.3, y + 8}})
                EXPECT_EQ(at(px, py), p.bar);
            expect_corner(x, y, 4, "ground");
            app().close_overlay();
        }
    }
}

TEST_F(DialogPaint, the_names_of_a_deletion_are_cut_to_60_less_than_the_panel) {
    const std::string names[] = {"a" + std::string(200, 'm'), "b.txt", "c.txt", "d.txt", "e.txt"};
    start();
    for (size_t n = 1; n <= 5; ++n) {
        write_file(left() + "/" + names[n - 1], "x");
        app().refresh_both();
        pane().select_all();
        for (const char* theme : kThemes) {
            app().perform(Action::Delete, 0);
            paint(theme);
            const App::Rect at_ = app().m_overlay_panel;
            std::vector<PaintedText> rows;
            for (const PaintedText& text : test_env::painted_texts())
                if (text.x == at_.x + 20 && text.y > at_.y + 100 && text.y < at_.y + at_.h - 46)
                    rows.push_back(text);
            ASSERT_EQ(rows.size(), std::min<size_t>(n, 4)) << n;
            for (size_t i = 0; i < rows.size(); ++i) {
                EXPECT_EQ(rows[i].y, at_.y + 92 + 17 * static_cast<double>(i + 1)) << n;
                EXPECT_EQ(rows[i].size, 11);
                EXPECT_EQ(rows[i].text,
                          i < 3 ? names[i] : "… and " + std::to_string(n - 3) + " more");
                EXPECT_EQ(rows[i].color, i < 3 ? palette().text : palette().dim);
            }
            EXPECT_LE(rows[0].width, 560 - 60);
            EXPECT_GT(rows[0].width, 560 - 60 - 12);
            EXPECT_EQ(button(Action::OverlayCancel).y, at_.y + at_.h - 46) << n;
            // The rows end above the buttons.
            EXPECT_LT(rows.back().y + 7, button(Action::OverlayCancel).y) << n;
            app().close_overlay();
        }
    }
}

// --- Side choice ------------------------------------------------------------------------------

TEST_F(DialogPaint, the_path_stands_above_the_question_and_is_cut_to_the_panel) {
    start();
    const std::string path = "/" + std::string(200, 'm');
    app().m_pending_bookmark = app().m_pending_unpack = path;
    for (const char* theme : kThemes) {
        for (const auto& [overlay, question] :
             {std::pair{Overlay::BookmarkSide, "Open in which side?"},
              {Overlay::UnpackSide, "Where should it be unpacked?"}}) {
            const App::Rect at_ = panel(overlay, theme);
            const PaintedText* text = painted_text(path);
            ASSERT_NE(text, nullptr);
            EXPECT_EQ(text->x, at_.x + 20);
            EXPECT_EQ(text->y, at_.y + 72);
            EXPECT_EQ(text->size, 12.5);
            EXPECT_EQ(text->color, palette().text);
            EXPECT_LE(text->width, 520 - 40);
            EXPECT_GT(text->width, 520 - 40 - 12);
            const PaintedText* asked = painted_text(question);
            ASSERT_NE(asked, nullptr) << question;
            EXPECT_EQ(asked->x, at_.x + 20);
            EXPECT_GT(asked->y, text->y + 14);
            EXPECT_LT(asked->y, at_.y + 120 - 7);
            EXPECT_EQ(asked->size, 11);
            EXPECT_EQ(asked->color, palette().secondary);
            app().close_overlay();
        }
    }
}

TEST_F(DialogPaint, each_tile_has_the_tint_of_its_side_and_answers_to_the_pointer) {
    start();
    for (const char* theme : kThemes) {
        for (const bool active_right : {false, true}) {
            app().m_active_right = active_right;
            app().m_pending_bookmark = "/some/where";
            panel(Overlay::BookmarkSide, theme);
            const Palette& p = palette();
            for (const bool right_tile : {false, true}) {
                const App::HitRect tile =
                    button(right_tile ? Action::BookmarkOpenRight : Action::BookmarkOpenLeft);
                EXPECT_EQ(tile.right, right_tile);
                const std::string& tint =
                    right_tile == active_right ? p.source_tint : p.target_tint;
                EXPECT_TRUE(has(tint, tile.x + 2, tile.y + 20, 12, 30)) << right_tile;
                EXPECT_EQ(at(tile.x + 40, tile.y + 6), p.control);
                EXPECT_EQ(at(tile.x + 40, tile.y + 0.3), p.control_edge);
                app().handle_motion(tile.x + 5, tile.y + 5);
                frame();
                EXPECT_NE(at(tile.x + 40, tile.y + 6), p.control);
                app().handle_leave();
                frame();
            }
            app().close_overlay();
        }
    }
}

}  // namespace
