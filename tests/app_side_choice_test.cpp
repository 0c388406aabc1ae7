// The question which side, and the frame of the dialogues that show the logo.

#include "app_fixture.h"

#include "app_texts.h"
#include "i18n.h"

#include <cstdlib>

namespace {

using Overlay = App::Overlay;
using test_env::make_dirs;
using test_env::painted_text;

class AppSideChoice : public AppTest {
  protected:
    App::Rect open(Overlay overlay, int width = 1400, int height = 900) {
        app().open_overlay(overlay, "title");
        frame(width, height);
        return app().m_overlay_panel;
    }
};

TEST_F(AppSideChoice, two_tiles_ask_for_the_side_of_a_bookmark) {
    start();
    app().m_pending_bookmark = "/some/where";
    const App::Rect panel = open(Overlay::BookmarkSide);
    const App::HitRect left = hit(App::Hit::Overlay, static_cast<int>(Action::BookmarkOpenLeft));
    const App::HitRect right = hit(App::Hit::Overlay, static_cast<int>(Action::BookmarkOpenRight));
    EXPECT_EQ(left.x, panel.x + 20);
    EXPECT_EQ(left.y, panel.y + 120);
    EXPECT_EQ(left.w, (520 - 60) / 2);
    EXPECT_EQ(left.h, 74);
    EXPECT_EQ(left.label, "Left");
    EXPECT_EQ(right.x, left.x + left.w + 20);
    EXPECT_EQ(right.y, left.y);
    EXPECT_EQ(right.w, left.w);
    EXPECT_EQ(right.h, 74);
    EXPECT_EQ(right.label, "Right");
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).y,
              panel.y + panel.h - 46);
    shot("side-choice");
}

TEST_F(AppSideChoice, an_archive_has_the_same_with_its_own_actions) {
    start();
    app().m_pending_unpack = "/some/where.zip";
    open(Overlay::UnpackSide);
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::UnpackLeft)).label, "Left");
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::UnpackRight)).label, "Right");
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).label, "Cancel");
}

TEST_F(AppSideChoice, the_question_and_what_it_is_about_are_told) {
    start();
    app().m_pending_bookmark = "/some/where";
    app().m_pending_unpack = "/some/where.zip";
    open(Overlay::BookmarkSide);
    EXPECT_NE(nullptr, painted_text("/some/where"));
    EXPECT_NE(nullptr, painted_text("Open in which side?"));
    test_env::forget_painted();
    open(Overlay::UnpackSide);
    EXPECT_NE(nullptr, painted_text("/some/where.zip"));
    EXPECT_NE(nullptr, painted_text("Where should it be unpacked?"));
}

TEST_F(AppSideChoice, a_click_opens_the_bookmark_there) {
    make_dirs(left() + "/sub");
    start();
    app().m_pending_bookmark = left() + "/sub";
    open(Overlay::BookmarkSide);
    click(hit(App::Hit::Overlay, static_cast<int>(Action::BookmarkOpenRight)));
    EXPECT_EQ(pane(true).path(), left() + "/sub");
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppSideChoice, the_keys_alone_can_answer) {
    make_dirs(left() + "/sub");
    start();
    for (const auto& [letter, on_the_right] : {std::pair{GDK_KEY_r, true}, {GDK_KEY_l, false}}) {
        app().m_pending_bookmark = left() + "/sub";
        open(Overlay::BookmarkSide);
        key(static_cast<guint>(letter), GDK_MOD1_MASK);
        EXPECT_EQ(pane(on_the_right).path(), left() + "/sub") << letter;
        EXPECT_EQ(app().m_overlay, Overlay::None);
    }
    app().m_pending_bookmark = left();
    open(Overlay::BookmarkSide);
    key(GDK_KEY_c, GDK_MOD1_MASK);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_TRUE(app().m_pending_bookmark.empty());
}

// In a script without ASCII letters the tiles and the button below share the digits.
TEST_F(AppSideChoice, each_choice_has_a_digit_of_its_own_in_another_script) {
    make_dirs(left() + "/sub");
    start();
    I18n::instance().set_language("ja");
    app().m_pending_bookmark = left() + "/sub";
    open(Overlay::BookmarkSide);
    EXPECT_EQ(app().m_overlay_accels, (std::map<char, Action>{{'1', Action::OverlayCancel},
                                                              {'2', Action::BookmarkOpenLeft},
                                                              {'3', Action::BookmarkOpenRight}}));
    for (const auto& [digit, action] : {std::pair{"1", Action::OverlayCancel},
                                        {"2", Action::BookmarkOpenLeft},
                                        {"3", Action::BookmarkOpenRight}}) {
        const App::HitRect place = hit(App::Hit::Overlay, static_cast<int>(action));
        const test_env::PaintedText* shown = painted_text(digit);
        ASSERT_NE(shown, nullptr) << digit;
        EXPECT_GT(shown->x, place.x + place.w - 20) << digit;
        EXPECT_LT(shown->x, place.x + place.w) << digit;
        EXPECT_LT(shown->y, place.y + 15) << digit;
        EXPECT_GT(shown->y, place.y) << digit;
    }
    key(GDK_KEY_2, GDK_MOD1_MASK);
    EXPECT_EQ(pane().path(), left() + "/sub");
    I18n::instance().set_language("en");
}

// --- Logo -------------------------------------------------------------------------------------

TEST_F(AppSideChoice, the_sandbox_notice_has_the_logo_beside_its_title) {
    start();
    const App::Rect panel = open(Overlay::Sandbox);
    const int x = static_cast<int>(panel.x), y = static_cast<int>(panel.y);
    const std::string ground = pixel(x + 10, y + 30);
    EXPECT_TRUE(painted(x + 20, y + 10, 36, 36));
    EXPECT_NE(pixel(x + 38, y + 13), ground);  // the logo's upper edge
    EXPECT_NE(pixel(x + 38, y + 43), ground);  // and its lower one
    EXPECT_EQ(pixel(x + 38, y + 8), ground);
    EXPECT_EQ(pixel(x + 38, y + 48), ground);
    // Its corners are round.
    EXPECT_EQ(pixel(x + 20, y + 10), ground);
    EXPECT_FALSE(painted(x + 57, y + 14, 10, 24));
    EXPECT_TRUE(painted(x + 67, y + 14, 40, 24));  // the title
    EXPECT_EQ(pixel(x + 30, y + 54), app().m_palette.divider);
    EXPECT_EQ(pixel(x + 30, y + 44 + 5), ground);
    shot("sandbox");
    // The others have their rule higher, and no logo.
    open(Overlay::Licenses);
    const App::Rect other = app().m_overlay_panel;
    EXPECT_EQ(pixel(static_cast<int>(other.x) + 30, static_cast<int>(other.y) + 44),
              app().m_palette.divider);
    EXPECT_EQ(pixel(static_cast<int>(other.x) + 30, static_cast<int>(other.y) + 54), ground);
}

TEST_F(AppSideChoice, about_is_as_high_as_its_disclaimer) {
    start();
    unsetenv("SNAP_VERSION");
    const App::Rect panel = open(Overlay::About);
    const double text_h = panel.h - (68 + 30 + 20 + 330);
    EXPECT_EQ(panel.w, 480);
    // The English text takes three or four lines at size 11 in 424 units.
    EXPECT_GT(text_h, 3 * 11);
    EXPECT_LT(text_h, 4 * 18);
    setenv("SNAP_VERSION", "1.0", 1);
    EXPECT_EQ(open(Overlay::About).h, panel.h + 20);
    unsetenv("SNAP_VERSION");
    // Its font is its own, whatever the user has chosen for the rest.
    I18n::instance().set_ui_font("DejaVu Sans Mono");
    EXPECT_EQ(open(Overlay::About).h, panel.h);
    I18n::instance().set_ui_font("");
}

}  // namespace
