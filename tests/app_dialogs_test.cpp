// The frame of the dialogues, their sizes and buttons, and what stands in the message, the text
// input and the delete confirmation. The commands behind them, from the keyboard to the disk.

#include "app_fixture.h"
#include "app_texts.h"
#include "fresh_process.h"

#include "i18n.h"
#include "logger.h"
#include "settings.h"

#include <cmath>
#include <gdk/gdkkeysyms.h>
#include <sys/stat.h>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::PaintedText;
using test_env::read_file;
using test_env::write_file;

Settings& settings() {
    return SettingsStore::instance().mutable_get();
}

class AppDialogs : public AppTest {
  protected:
    using Overlay = App::Overlay;

    // Opens a dialogue and paints it in a window of this size.
    App::Rect panel(Overlay overlay, int w = 1400, int h = 900) {
        app().open_overlay(overlay, "title");
        frame(w, h);
        return app().m_overlay_panel;
    }
    void paint() {
        test_env::forget_painted();
        frame();
    }
    void expect_size(Overlay overlay, double w, double h, int window_w = 1400, int window_h = 900) {
        const App::Rect found = panel(overlay, window_w, window_h);
        EXPECT_EQ(found.w, w) << App::overlay_name(overlay);
        EXPECT_EQ(found.h, h) << App::overlay_name(overlay);
        EXPECT_EQ(found.x, std::floor((window_w - w) / 2)) << App::overlay_name(overlay);
        EXPECT_EQ(found.y, std::floor((window_h - h) / 2)) << App::overlay_name(overlay);
    }
    void expect_text(const std::string& text, double x, double y, double size,
                     const std::string& color) {
        const PaintedText* found = painted_text(text);
        ASSERT_TRUE(found) << text;
        EXPECT_NEAR(found->x, x, 0.01) << text;
        EXPECT_NEAR(found->y, y, 0.01) << text;
        EXPECT_NEAR(found->size, size, 0.01) << text;
        EXPECT_EQ(found->color, color) << text;
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    char accel(Action action) {
        for (const auto& [key, value] : app().m_overlay_accels)
            if (value == action)
                return key;
        return 0;
    }
    void type(const std::string& text) {
        for (const char c : text)
            key(static_cast<guint>(static_cast<unsigned char>(c)));
    }
    // Fails at so many entries: a task's failures are what the errors dialogue lists.
    void fail_at(int count) {
        ASSERT_TRUE(
            BgTask::instance().start(BgTask::Kind::Pack, "x", [count](BgTask::Reporter& reporter) {
                for (int i = 0; i < count; ++i)
                    reporter.fail("entry " + std::to_string(i));
            }));
        app().m_bgtask_was_running = true;
        ASSERT_TRUE(settle());
    }
    const Palette& palette() { return app().m_palette; }
};

// --- The frame --------------------------------------------------------------------------------

TEST_F(AppDialogs, each_dialogue_has_its_size) {
    start();
    expect_size(Overlay::Settings, 500, 478);
    expect_size(Overlay::Conflict, 620, 318);
    for (const Overlay overlay :
         {Overlay::NewFolder, Overlay::NewFile, Overlay::SelectPattern, Overlay::GoToPath})
        expect_size(overlay, 480, 178);
    expect_size(Overlay::LanguagePicker, 460, 560);
    expect_size(Overlay::LanguagePicker, 460, 510, 1400, 600);
    expect_size(Overlay::FontPicker, 480, 560);
    expect_size(Overlay::FontPicker, 480, 510, 1400, 600);
    expect_size(Overlay::LogView, 900, 600);
    expect_size(Overlay::LogView, 900, 530, 1400, 600);
    expect_size(Overlay::Bookmarks, 520, 460);
    expect_size(Overlay::Bookmarks, 520, 380, 1400, 500);
    expect_size(Overlay::BookmarkSide, 520, 246);
    expect_size(Overlay::UnpackSide, 520, 246);
    expect_size(Overlay::Sandbox, 860, 460);
    expect_size(Overlay::Sandbox, 740, 460, 800, 900);
    expect_size(Overlay::Licenses, 640, 560);
    expect_size(Overlay::Licenses, 640, 510, 1400, 600);
}

TEST_F(AppDialogs, the_properties_panel_grows_with_its_facts) {
    start();
    // Location, size, owner.
    app().m_properties = {};
    app().m_properties.path = "/some/file";
    expect_size(Overlay::Properties, 560, 24 * 3 + 52 + 150);
    app().m_properties.mtime = 1;
    expect_size(Overlay::Properties, 560, 24 * 4 + 52 + 150);
    app().m_properties.free_space = 0;
    expect_size(Overlay::Properties, 560, 24 * 5 + 52 + 150);
    app().m_properties.link_target = "there";
    expect_size(Overlay::Properties, 560, 24 * 6 + 52 + 150);
    // A folder has a row for its contents, and a box below its permissions.
    app().m_properties.is_dir = true;
    expect_size(Overlay::Properties, 560, 24 * 7 + 52 + 172);
    // The root lies nowhere.
    app().m_properties.path = "";
    expect_size(Overlay::Properties, 560, 24 * 6 + 52 + 172);
}

TEST_F(AppDialogs, the_viewers_keep_the_users_size_but_no_smaller_than_their_own) {
    start();
    expect_size(Overlay::ArchiveView, 820, 620);
    EXPECT_EQ(app().m_overlay_min_w, 820);
    EXPECT_EQ(app().m_overlay_min_h, 620);
    expect_size(Overlay::ArchiveView, 820, 530, 1400, 600);
    EXPECT_EQ(app().m_overlay_min_h, 530);
    settings().archive_view_w = 819;
    settings().archive_view_h = 700;
    expect_size(Overlay::ArchiveView, 820, 700);
    settings().archive_view_w = 1000;
    settings().archive_view_h = 619;
    expect_size(Overlay::ArchiveView, 1000, 620);
    settings().archive_view_w = 5000;
    expect_size(Overlay::ArchiveView, 1360, 620);

    const App::Rect hex = panel(Overlay::HexView);
    EXPECT_EQ(hex.w, app().m_overlay_min_w);
    EXPECT_GT(hex.w, 74 + 77 * 5);  // 77 characters of equal width, and 74
    EXPECT_EQ(hex.h, 640);
    settings().hex_view_w = static_cast<int>(hex.w) + 100;
    settings().hex_view_h = 641;
    expect_size(Overlay::HexView, hex.w + 100, 641);
    expect_size(Overlay::HexView, hex.w + 100, 641);
    settings().hex_view_w = 0;
    settings().hex_view_h = 0;
    expect_size(Overlay::HexView, hex.w, 530, 1400, 600);
    // Only these two can be resized.
    panel(Overlay::Settings);
    EXPECT_EQ(app().m_overlay_min_w, 0);
    EXPECT_EQ(app().m_overlay_min_h, 0);
}

TEST_F(AppDialogs, a_small_window_leaves_a_margin_of_twenty) {
    start();
    expect_size(Overlay::Settings, 360, 260, 400, 300);
    expect_size(Overlay::Conflict, 361, 261, 401, 301);
}

TEST_F(AppDialogs, a_message_is_as_high_as_its_text) {
    start();
    app().show_message("t", "one line");
    frame(1400, 900);
    const double line = app().m_overlay_panel.h - 126;
    EXPECT_EQ(app().m_overlay_panel.w, 460);
    EXPECT_GT(line, 10);
    EXPECT_LT(line, 25);
    app().show_message("t", "one\ntwo\nthree");
    frame(1400, 900);
    EXPECT_NEAR(app().m_overlay_panel.h - 126, 3 * line, 2);
    std::string lines;
    for (int i = 0; i < 100; ++i)
        lines += "line\n";
    app().show_message("t", lines);
    frame(1400, 900);
    EXPECT_EQ(app().m_overlay_panel.h, 560);
    frame(1400, 500);
    EXPECT_EQ(app().m_overlay_panel.h, 410);
    shot("message-long");
}

TEST_F(AppDialogs, the_errors_panel_grows_with_its_list) {
    REQUIRE_FRESH_PROCESS();  // in which no transfer has failed at anything
    start();
    expect_size(Overlay::Errors, 640, 188);
    fail_at(1);
    expect_size(Overlay::Errors, 640, 18 + 26 + 144);
    fail_at(2);
    expect_size(Overlay::Errors, 640, 36 + 26 + 144);
    fail_at(19);
    expect_size(Overlay::Errors, 640, 19 * 18 + 26 + 144);
    fail_at(20);
    expect_size(Overlay::Errors, 640, 524);
    expect_size(Overlay::Errors, 640, 380, 1400, 500);
    paint();
    EXPECT_TRUE(painted_text("20 entries failed"));
    shot("errors-20");
}

TEST_F(AppDialogs, the_frame_is_painted_in_both_themes) {
    start();
    for (const char* theme : {"light", "dark"}) {
        settings().theme = theme;
        app().apply_theme();
        app().close_overlay();
        frame(1000, 700);
        const std::string below = pixel(5, 300);
        const App::Rect at = panel(Overlay::NewFolder, 1000, 700);
        const int x = static_cast<int>(at.x);
        const int y = static_cast<int>(at.y);
        const int w = static_cast<int>(at.w);
        const int h = static_cast<int>(at.h);
        EXPECT_EQ(pixel(x + 8, y + 10), palette().bar);
        EXPECT_EQ(pixel(x + 200, y), palette().menu_border);
        EXPECT_EQ(pixel(x + 200, y + h - 1), palette().menu_border);
        EXPECT_EQ(pixel(x, y + 100), palette().menu_border);
        EXPECT_EQ(pixel(x + 20, y + 44), palette().divider);
        EXPECT_EQ(pixel(x + w - 21, y + 44), palette().divider);
        EXPECT_EQ(pixel(x + 19, y + 44), palette().bar);
        EXPECT_EQ(pixel(x + w - 20, y + 44), palette().bar);
        // Dimmed all around, and once more where the shadow lies.
        Rgb rgb;
        ASSERT_TRUE(hex_to_rgb(below, rgb));
        const double keep = 1 - 0.38;
        Rgb dimmed;
        ASSERT_TRUE(hex_to_rgb(pixel(5, 300), dimmed));
        EXPECT_NEAR(dimmed.r, rgb.r * keep, 0.005);
        EXPECT_NEAR(dimmed.g, rgb.g * keep, 0.005);
        const auto red = [this](int px, int py) {
            Rgb found;
            EXPECT_TRUE(hex_to_rgb(pixel(px, py), found));
            return found.r;
        };
        const double open = red(x + 100, y + h + 20);
        EXPECT_NEAR(red(x + 100, y + h + 5), open * (1 - 0.22), 0.01);
        EXPECT_NEAR(red(x + 100, y + h + 6), open, 0.01);
    }
}

TEST_F(AppDialogs, the_title_stands_above_the_rule) {
    start();
    panel(Overlay::NewFile);
    paint();
    const App::Rect at = app().m_overlay_panel;
    expect_text("title", at.x + 20, at.y + 26, 15, palette().text);
    // This one paints its own.
    panel(Overlay::About);
    paint();
    EXPECT_FALSE(painted_text("title"));
}

TEST_F(AppDialogs, the_viewers_have_a_grip_in_their_corner) {
    start();
    for (const Overlay overlay : {Overlay::ArchiveView, Overlay::HexView}) {
        const App::Rect at = panel(overlay, 1000, 700);
        const App::HitRect grip = hit(App::Hit::OverlayResize);
        EXPECT_TRUE(grip.in_overlay);
        EXPECT_EQ(grip.x + grip.w, at.x + at.w);
        EXPECT_EQ(grip.y + grip.h, at.y + at.h);
        EXPECT_EQ(grip.w, 26);
        EXPECT_EQ(grip.h, 26);
        const int x = static_cast<int>(at.x + at.w);
        const int y = static_cast<int>(at.y + at.h);
        EXPECT_TRUE(painted(x - 26, y - 26, 20, 20));
        EXPECT_FALSE(painted(x - 48, y - 14, 20, 8));  // below the buttons
        // Stronger while it is dragged.
        const std::string idle = pixel(x - 9, y - 9);
        app().m_overlay_resize = 1;
        frame(1000, 700);
        EXPECT_NE(pixel(x - 9, y - 9), idle);
        app().m_overlay_resize = 0;
    }
    panel(Overlay::Licenses);
    EXPECT_EQ(count_hits(App::Hit::OverlayResize), 0U);
}

TEST_F(AppDialogs, every_list_starts_at_its_top) {
    start();
    app().m_list_scroll = 7;
    app().open_overlay(Overlay::Licenses, "");
    EXPECT_EQ(app().m_list_scroll, 0);
}

// --- Buttons ----------------------------------------------------------------------------------

TEST_F(AppDialogs, buttons_stand_in_a_row_from_the_right) {
    start();
    panel(Overlay::NewFolder);
    paint();
    const App::Rect at = app().m_overlay_panel;
    const App::HitRect cancel = button(Action::OverlayCancel);
    const App::HitRect ok = button(Action::OverlayOk);
    EXPECT_EQ(ok.x + ok.w, at.x + at.w - 20);
    EXPECT_EQ(ok.w, 90);
    EXPECT_EQ(ok.h, 30);
    EXPECT_EQ(ok.y, at.y + at.h - 46);
    EXPECT_EQ(cancel.x + cancel.w, ok.x - 8);
    EXPECT_EQ(cancel.y, ok.y);
    EXPECT_EQ(ok.label, "OK");
    const PaintedText* label = painted_text("OK");
    ASSERT_TRUE(label);
    EXPECT_NEAR(label->x + label->width / 2, ok.x + 45, 0.01);
    EXPECT_NEAR(label->y, ok.y + 15, 0.01);
    EXPECT_EQ(label->size, 12.5);
    EXPECT_EQ(label->color, "#FFFFFF");
    EXPECT_EQ(painted_text("Cancel")->color, palette().control_text);
    // A longer label makes a wider button.
    app().show_message("t", "x", false, Action::Refresh, "a label that is longer than ninety");
    paint();
    label = painted_text("a label that is longer than ninety");
    ASSERT_TRUE(label);
    EXPECT_EQ(button(Action::Refresh).w, label->width + 32);
}

TEST_F(AppDialogs, buttons_are_coloured_by_their_kind) {
    write_file(left() + "/a", "x");
    start();
    pane().select_all();
    for (const char* theme : {"light", "dark"}) {
        settings().theme = theme;
        app().apply_theme();
        app().perform(Action::Delete, 0);
        frame();
        const auto fill = [this](Action action) {
            const App::HitRect at = button(action);
            return pixel(static_cast<int>(at.x) + 6, static_cast<int>(at.y) + 20);
        };
        const auto edge = [this](Action action) {
            const App::HitRect at = button(action);
            return pixel(static_cast<int>(at.x) + 20, static_cast<int>(at.y) + 29);
        };
        EXPECT_EQ(fill(Action::OverlayCancel), palette().control);
        EXPECT_EQ(edge(Action::OverlayCancel), palette().control_edge);
        EXPECT_EQ(fill(Action::DeletePermanent), palette().danger_bg);
        EXPECT_EQ(edge(Action::DeletePermanent), palette().danger);
        EXPECT_EQ(fill(Action::DeleteToTrash), palette().accent);
        EXPECT_EQ(edge(Action::DeleteToTrash), palette().accent);
        const App::HitRect trash = button(Action::DeleteToTrash);
        app().handle_motion(trash.x + 5, trash.y + 5);
        frame();
        EXPECT_NE(fill(Action::DeleteToTrash), palette().accent);
        app().handle_leave();
        // The safe way is the primary one as long as it is the user's.
        settings().delete_to_trash = false;
        frame();
        EXPECT_EQ(fill(Action::DeleteToTrash), palette().control);
        settings().delete_to_trash = true;
        app().close_overlay();
    }
}

TEST_F(AppDialogs, a_shared_letter_goes_to_the_first_button) {
    start();
    app().show_message("t", "x", false, Action::Refresh, "Oh");
    frame();
    EXPECT_EQ(accel(Action::Refresh), 'O');
    EXPECT_EQ(accel(Action::OverlayCancel), 'K');
    // Nothing is left for a label whose letters are all taken.
    app().show_message("t", "x", false, Action::Refresh, "ko");
    frame();
    EXPECT_EQ(accel(Action::Refresh), 'K');
    EXPECT_EQ(accel(Action::OverlayCancel), 'O');
    app().show_message("t", "x", false, Action::Refresh, "O-K");
    app().m_message_action = Action::Refresh;
    frame();
    EXPECT_EQ(app().m_overlay_accels.size(), 2U);
    // Bytes beyond ASCII are no letters, whatever letter they may be in some other encoding.
    app().show_message("t", "x", false, Action::Refresh, "öxy");
    frame();
    EXPECT_EQ(accel(Action::Refresh), 'X');
}

TEST_F(AppDialogs, labels_without_letters_get_the_next_free_digit) {
    start();
    std::vector<App::ButtonSpec> buttons = {
        {"取消", Action::OverlayCancel}, {"OK", Action::OverlayOk}, {"KO", Action::Quit},
        {"OKOK", Action::GoUp},          {"Да", Action::Refresh},   {"12", Action::GoBack}};
    app().m_overlay_accels.clear();
    const auto accels = app().assign_accelerators(buttons);
    std::string keys;
    for (const App::Accelerator& a : accels)
        keys += a.key ? a.key : '-';
    EXPECT_EQ(keys, "1OK-23");
    EXPECT_EQ(accels[0].at, std::string::npos);
    EXPECT_EQ(accels[1].at, 0U);
    EXPECT_EQ(accels[2].at, 0U);
    EXPECT_EQ(app().m_overlay_accels.at('2'), Action::Refresh);
    EXPECT_EQ(app().m_overlay_accels.size(), 5U);
    // Ten of them: the digits end with nine.
    app().m_overlay_accels.clear();
    const auto many = app().assign_accelerators(
        std::vector<App::ButtonSpec>(10, App::ButtonSpec{"да", Action::Quit}));
    EXPECT_EQ(many[8].key, '9');
    EXPECT_EQ(many[9].key, 0);
}

TEST_F(AppDialogs, a_digit_is_shown_in_the_corner_and_acts_with_alt) {
    start();
    app().show_message("t", "x", false, Action::SwapPanes, "确定");
    paint();
    const App::HitRect at = button(Action::SwapPanes);
    const PaintedText* digit = painted_text("1");
    ASSERT_TRUE(digit);
    EXPECT_GT(digit->x, at.x + at.w - 14);
    EXPECT_LT(digit->y, at.y + 15);
    EXPECT_LT(digit->size, 11);
    shot("digit");
    key(GDK_KEY_1);
    EXPECT_EQ(pane().path(), left());
    key(GDK_KEY_1, GDK_MOD1_MASK);
    EXPECT_EQ(pane().path(), right());
    EXPECT_TRUE(logged("dialog accel: Alt+1 → SwapPanes"));
}

TEST_F(AppDialogs, the_letter_is_underlined) {
    start();
    app().show_message("t", "x");
    paint();
    const PaintedText label = *painted_text("OK");
    const App::HitRect at = button(Action::OverlayCancel);
    const int y = static_cast<int>(at.y) + 15 + 8;
    const int start_x = static_cast<int>(label.x);
    EXPECT_EQ(pixel(start_x + 3, y), "#FFFFFF");
    EXPECT_EQ(pixel(start_x - 2, y), palette().accent);
    EXPECT_EQ(pixel(start_x + static_cast<int>(label.width) - 1, y), palette().accent);
    // The second letter: as wide as it is, behind the first.
    app().show_message("t", "x", false, Action::Refresh, "ok");
    paint();
    EXPECT_EQ(pixel(start_x + 3, y), palette().accent);
    EXPECT_EQ(pixel(start_x + static_cast<int>(label.width) - 3, y), "#FFFFFF");
}

// Letters and rectangles on the screen are those of the last frame.
TEST_F(AppDialogs, nothing_of_an_old_dialogue_acts_in_a_new_one) {
    start();
    app().show_message("t", "x", false, Action::SwapPanes, "Swap");
    frame();
    const App::HitRect swap = button(Action::SwapPanes);
    app().show_message("t", "another");
    app().handle_click(swap.x + 5, swap.y + 5, 1, 0, 1);
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(app().m_overlay, Overlay::Message);
    EXPECT_TRUE(app().m_overlay_accels.empty());
    GdkEventKey event = {};
    event.keyval = GDK_KEY_s;
    event.state = GDK_MOD1_MASK;
    app().handle_key(&event);
    EXPECT_EQ(pane().path(), left());
    // Nor after its end.
    app().show_message("t", "x", false, Action::SwapPanes, "Swap");
    frame();
    app().close_overlay();
    EXPECT_TRUE(app().m_overlay_accels.empty());
    app().handle_click(swap.x + 5, swap.y + 5, 1, 0, 1);
    EXPECT_EQ(pane().path(), left());
    // Nor does a frame leave letters behind that are none of its dialogue's.
    app().open_overlay(Overlay::Licenses, "");
    app().m_overlay_accels['S'] = Action::SwapPanes;
    frame();
    EXPECT_FALSE(app().m_overlay_accels.contains('S'));
}

TEST_F(AppDialogs, the_end_of_a_dialogue_forgets_what_it_was_about) {
    start();
    const auto pending = [this] { return app().m_pending_bookmark + app().m_pending_unpack; };
    const auto open = [this] {
        app().open_overlay(Overlay::UnpackSide, "");
        app().m_pending_bookmark = "/usr";
        app().m_pending_unpack = "/a.zip";
    };
    open();
    key(GDK_KEY_Escape);
    EXPECT_EQ(pending(), "");
    open();
    app().perform(Action::OverlayCancel, 0);
    EXPECT_EQ(pending(), "");
    open();
    app().perform(Action::OverlayOk, 0);
    EXPECT_EQ(pending(), "");
    EXPECT_EQ(app().m_overlay, Overlay::None);
    // The self-test goes on with the next step of what it has begun.
    app().m_pending_bookmark = "/usr";
    app().m_pending_unpack = "/a.zip";
    EXPECT_TRUE(app().self_test_step("NewFolder"));
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(pending(), "/usr/a.zip");
}

// --- Message ----------------------------------------------------------------------------------

TEST_F(AppDialogs, a_message_is_red_when_it_tells_of_an_error) {
    start();
    app().show_message("t", "the text");
    paint();
    const App::Rect at = app().m_overlay_panel;
    const PaintedText* body = painted_text("the text");
    ASSERT_TRUE(body);
    EXPECT_NEAR(body->x, at.x + 20, 0.01);
    EXPECT_NEAR(body->y - (at.h - 126) / 2, at.y + 68, 0.01);
    EXPECT_EQ(body->size, 12.5);
    EXPECT_EQ(body->color, palette().text);
    app().show_message("t", "the text", true);
    paint();
    EXPECT_EQ(painted_text("the text")->color, palette().danger);
}

// --- Text input -------------------------------------------------------------------------------

TEST_F(AppDialogs, the_four_questions_for_a_text) {
    start();
    struct Case {
        Action action;  // None: no command opens it
        Overlay overlay;
        const char* title;
        const char* hint;
        std::string text;
    };
    for (const Case& c :
         {Case{Action::NewFolder, Overlay::NewFolder, "New folder",
               "Name of the new folder in this side:", ""},
          Case{Action::NewFile, Overlay::NewFile, "New file", "Name of the new empty file:", ""},
          Case{Action::SelectPattern, Overlay::SelectPattern, "Select by pattern",
               "Shell pattern, e.g. *.png or report-*:", "*"},
          Case{Action::None, Overlay::GoToPath, "Go to folder",
               "Full path, e.g. /mnt/backup:", left()}}) {
        if (c.action == Action::None)
            app().open_text_input(c.overlay, "dlg.go_to_path_title", c.text);
        app().perform(c.action, 0);
        EXPECT_EQ(app().m_overlay, c.overlay);
        EXPECT_EQ(app().m_input_buffer, c.text);
        EXPECT_EQ(app().m_input_caret, c.text.size());
        paint();
        const App::Rect at = app().m_overlay_panel;
        expect_text(c.title, at.x + 20, at.y + 26, 15, palette().text);
        expect_text(c.hint, at.x + 20, at.y + 70, 11, palette().secondary);
        if (!c.text.empty())
            expect_text(c.text, at.x + 30, at.y + 92 + 15, 12.5, palette().control_text);
        EXPECT_EQ(pixel(static_cast<int>(at.x) + 23, static_cast<int>(at.y) + 98),
                  palette().control);
        EXPECT_EQ(count_hits(App::Hit::Overlay), 2U);
        key(GDK_KEY_Escape);
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_EQ(app().m_input_buffer, "");
        EXPECT_EQ(app().m_input_caret, 0U);
    }
}

TEST_F(AppDialogs, the_text_moves_so_that_the_caret_stays_in_the_field) {
    start();
    app().perform(Action::NewFolder, 0);
    const std::string text(200, 'm');
    app().m_input_buffer = text;
    app().m_input_caret = text.size();
    paint();
    const App::Rect at = app().m_overlay_panel;
    const double field = at.w - 40;
    const PaintedText painted = *painted_text(text);
    EXPECT_NEAR(painted.x + painted.width, at.x + 20 + 10 + field - 20, 0.01);
    // Nothing leaves the field.
    EXPECT_EQ(pixel(static_cast<int>(at.x) + 10, static_cast<int>(at.y) + 107), palette().bar);
    EXPECT_FALSE(painted_text("") != nullptr);
    const int caret_x = static_cast<int>(at.x + 20 + 10 + field - 20);
    EXPECT_EQ(pixel(caret_x, static_cast<int>(at.y) + 92 + 3), palette().control);
    EXPECT_NE(pixel(caret_x, static_cast<int>(at.y) + 92 + 8), palette().control);
    shot("input-long");
    app().m_input_caret = 0;
    paint();
    EXPECT_NEAR(painted_text(text)->x, at.x + 30, 0.01);
    app().m_input_caret = 3;
    paint();
    EXPECT_NEAR(painted_text(text)->x, at.x + 30, 0.01);
}

TEST_F(AppDialogs, the_keys_of_a_text) {
    start();
    key(GDK_KEY_F7);
    ASSERT_EQ(app().m_overlay, Overlay::NewFolder);
    type("ac");
    key(GDK_KEY_odiaeresis);
    key(GDK_KEY_Left);
    key(GDK_KEY_Left);
    key(GDK_KEY_b);
    EXPECT_EQ(app().m_input_buffer, "abcö");
    key(GDK_KEY_Right);
    key(GDK_KEY_Right);
    EXPECT_EQ(app().m_input_caret, 5U);
    key(GDK_KEY_Right);
    EXPECT_EQ(app().m_input_caret, 5U);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_input_buffer, "abc");
    key(GDK_KEY_space);
    key(GDK_KEY_plus);
    EXPECT_EQ(app().m_input_buffer, "abc +");
    // Home and End mean nothing here, and Delete types the character of its number.
    key(GDK_KEY_Home);
    EXPECT_EQ(app().m_input_caret, 5U);
    key(GDK_KEY_Left);
    key(GDK_KEY_End);
    EXPECT_EQ(app().m_input_caret, 4U);
    key(GDK_KEY_Delete);
    EXPECT_EQ(app().m_input_buffer, "abc \x7f+");
    for (int i = 0; i < 9; ++i)
        key(GDK_KEY_Left);
    EXPECT_EQ(app().m_input_caret, 0U);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_input_buffer, "abc \x7f+");
    // A letter held with Ctrl or Alt types nothing, nor does a key without a character.
    key(GDK_KEY_x, GDK_CONTROL_MASK);
    key(GDK_KEY_x, GDK_MOD1_MASK);
    key(GDK_KEY_Tab);
    key(GDK_KEY_F5);
    key(GDK_KEY_Shift_L);
    EXPECT_EQ(app().m_input_buffer, "abc \x7f+");
    EXPECT_EQ(app().m_overlay, Overlay::NewFolder);
    // The letters of the buttons act with Alt alone.
    key(GDK_KEY_c, GDK_MOD1_MASK);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_TRUE(logged("dialog accel: Alt+C → OverlayCancel"));
}

TEST_F(AppDialogs, a_paste_is_one_line) {
    start();
    for (const char* text : {"two\nlines", "two\rlines", "two"}) {
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text, -1);
        app().perform(Action::NewFile, 0);
        type("<>");
        key(GDK_KEY_Left);
        key(GDK_KEY_v, GDK_CONTROL_MASK);
        EXPECT_EQ(app().m_input_buffer, "<two>");
        EXPECT_EQ(app().m_input_caret, 4U);
        key(GDK_KEY_Escape);
    }
}

TEST_F(AppDialogs, other_dialogues_take_no_text) {
    start();
    app().show_message("t", "x");
    type("abc");
    EXPECT_EQ(app().m_input_buffer, "");
}

// --- The commands behind the texts ------------------------------------------------------------

TEST_F(AppDialogs, a_folder_and_a_file_are_made_and_get_the_cursor) {
    write_file(left() + "/a", "x");
    write_file(left() + "/z", "x");
    const mode_t mask = umask(022);
    start();
    key(GDK_KEY_F7);
    type("new folder");
    key(GDK_KEY_Return);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(cursor_name(), "new folder");
    EXPECT_TRUE(S_ISDIR(test_env::lstat_of(left() + "/new folder").st_mode));
    EXPECT_EQ(test_env::lstat_of(left() + "/new folder").st_mode & 07777U, 0755U);
    app().perform(Action::NewFile, 0);
    frame();
    type("file.txt");
    key(GDK_KEY_o, GDK_MOD1_MASK);
    EXPECT_EQ(cursor_name(), "file.txt");
    EXPECT_EQ(test_env::lstat_of(left() + "/file.txt").st_mode, S_IFREG | 0644U);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "new folder", "a", "file.txt", "z"}));
    umask(mask);
}

TEST_F(AppDialogs, they_are_made_on_the_active_side_and_the_cursor_stays_in_view) {
    for (int i = 0; i < 90; ++i)
        write_file(right() + "/file" + std::to_string(i), "x");
    start();
    key(GDK_KEY_Tab);
    app().perform(Action::NewFile, 0);
    type("last");
    key(GDK_KEY_Return);
    EXPECT_TRUE(exists(right() + "/last"));
    EXPECT_FALSE(exists(left() + "/last"));
    const int row = pane(true).cursor() - pane(true).scroll();
    EXPECT_EQ(cursor_name(true), "last");
    EXPECT_GE(row, 0);
    EXPECT_LT(row, app().rows_in_view(true));
}

TEST_F(AppDialogs, a_name_that_cannot_be_is_refused_in_words) {
    write_file(left() + "/taken", "x");
    start();
    for (const Action action : {Action::NewFolder, Action::NewFile}) {
        for (const auto& [name, text] :
             {std::pair<std::string, std::string>{"", "The name must not be empty."},
              {"a/b", "A name cannot contain a slash."},
              {"..", "That name is reserved."},
              {std::string(256, 'x'), "That name is too long."},
              {"taken", "Something with that name is already there."}}) {
            app().perform(action, 0);
            app().m_input_buffer = name;
            app().perform(Action::OverlayOk, 0);
            EXPECT_EQ(app().m_overlay, Overlay::Message) << name;
            EXPECT_EQ(app().m_overlay_title, "Caution");
            EXPECT_EQ(app().m_overlay_text, text);
            EXPECT_TRUE(app().m_overlay_is_error);
            EXPECT_EQ(app().m_input_buffer, "");
            app().close_overlay();
        }
    }
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "taken"}));
}

TEST_F(AppDialogs, a_pattern_adds_to_the_marks_and_says_when_nothing_fits) {
    for (const char* name : {"a.png", "b.png", "c.txt"})
        write_file(left() + "/" + name, "x");
    start();
    put_cursor_on("c.txt");
    key(GDK_KEY_space);
    key(GDK_KEY_plus);
    type(".png");
    key(GDK_KEY_Return);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"a.png", "b.png", "c.txt"}));
    key(GDK_KEY_KP_Add);
    ASSERT_EQ(app().m_overlay, Overlay::SelectPattern);
    type("nothing");
    key(GDK_KEY_Return);
    EXPECT_EQ(app().m_overlay_title, "Nothing found");
    EXPECT_EQ(app().m_overlay_text, "Nothing matched that pattern.");
    EXPECT_FALSE(app().m_overlay_is_error);
    EXPECT_EQ(selected_names().size(), 3U);
}

TEST_F(AppDialogs, a_path_is_gone_to) {
    make_dirs(left() + "/sub");
    write_file(left() + "/file", "x");
    start();
    const auto open = [this] {
        app().open_text_input(Overlay::GoToPath, "dlg.go_to_path_title", pane().path());
    };
    open();
    type("/sub");
    key(GDK_KEY_Return);
    EXPECT_EQ(pane().path(), left() + "/sub");
    for (const std::string& path :
         {left() + "/none", left() + "/file", std::string(), std::string(".")}) {
        open();
        app().m_input_buffer = path;
        app().perform(Action::OverlayOk, 0);
        EXPECT_EQ(app().m_overlay_text, "There is no folder at that path.") << path;
        EXPECT_TRUE(app().m_overlay_is_error);
        EXPECT_EQ(pane().path(), left() + "/sub");
        app().close_overlay();
    }
}

// --- Delete confirmation ----------------------------------------------------------------------

TEST_F(AppDialogs, the_question_names_what_would_be_deleted) {
    start();
    const double heights[] = {0, 189, 206, 223, 243, 243};
    for (int n = 1; n <= 5; ++n) {
        write_file(left() + "/file" + std::to_string(n), "x");
        app().refresh_both();
        pane().select_all();
        app().perform(Action::Delete, 0);
        ASSERT_EQ(app().m_overlay, Overlay::ConfirmDelete);
        paint();
        const App::Rect at = app().m_overlay_panel;
        EXPECT_EQ(at.w, 560) << n;
        EXPECT_EQ(at.h, heights[n]) << n;
        expect_text("Delete permanently?", at.x + 20, at.y + 26, 15, palette().text);
        expect_text(n == 1 ? "Delete this entry?" : "Delete " + std::to_string(n) + " entries?",
                    at.x + 20, at.y + 72, 12.5, palette().text);
        double y = at.y + 92;
        std::vector<double> rows;
        for (const PaintedText& text : test_env::painted_texts())
            if (text.text.compare(0, 4, "file") == 0 && text.x == at.x + 20)
                rows.push_back(text.y);
        ASSERT_EQ(rows.size(), static_cast<size_t>(std::min(n, 3))) << n;
        for (const double row : rows)
            EXPECT_NEAR(row, y += 17, 0.01) << n;
        if (n > 3)
            expect_text("… and " + std::to_string(n - 3) + " more", at.x + 20, y + 17, 11,
                        palette().dim);
        for (const PaintedText& text : test_env::painted_texts())
            EXPECT_TRUE(n > 3 || text.text.find("more") == std::string::npos) << n;
        shot("delete-" + std::to_string(n));
        key(GDK_KEY_Escape);
        EXPECT_TRUE(exists(left() + "/file1"));
    }
}

TEST_F(AppDialogs, the_question_names_the_side_and_its_folder) {
    write_file(left() + "/a", "x");
    write_file(right() + "/b", "x");
    start();
    for (const bool on_the_right : {false, true}) {
        app().m_active_right = on_the_right;
        pane(on_the_right).select_all();
        app().perform(Action::Delete, 0);
        paint();
        const App::Rect at = app().m_overlay_panel;
        const std::string side = on_the_right ? "Right side active" : "Left side active";
        const std::string& tint = on_the_right ? palette().target_tint : palette().source_tint;
        double pill = 0;
        for (const PaintedText& text : test_env::painted_texts())
            if (text.text == side && text.x == at.x + 27) {
                EXPECT_NEAR(text.y, at.y + 92, 0.01);
                EXPECT_EQ(text.size, 11);
                EXPECT_EQ(text.color, tint);
                pill = text.width + 14;
            }
        ASSERT_GT(pill, 14);
        expect_text(on_the_right ? right() : left(), at.x + 20 + pill + 24, at.y + 92, 11,
                    palette().secondary);
        const std::string ground = mix_hex(tint, palette().bar, 0.16);
        Rgb wanted;
        Rgb found;
        ASSERT_TRUE(hex_to_rgb(ground, wanted));
        ASSERT_TRUE(
            hex_to_rgb(pixel(static_cast<int>(at.x) + 23, static_cast<int>(at.y) + 99), found));
        EXPECT_NEAR(found.r, wanted.r, 0.01);
        EXPECT_NEAR(found.b, wanted.b, 0.01);
        EXPECT_EQ(pixel(static_cast<int>(at.x) + 30, static_cast<int>(at.y) + 83), palette().bar);
        app().close_overlay();
    }
}

TEST_F(AppDialogs, a_long_path_keeps_its_end) {
    std::string deep = left();
    for (int i = 0; i < 12; ++i)
        deep += "/a folder with a long name " + std::to_string(i);
    make_dirs(deep);
    write_file(deep + "/a", "x");
    start({"--left=" + deep});
    pane().select_all();
    app().perform(Action::Delete, 0);
    paint();
    const App::Rect at = app().m_overlay_panel;
    const PaintedText* found = nullptr;
    for (const PaintedText& text : test_env::painted_texts())
        if (text.text.compare(0, 4, "…/") == 0)
            found = &text;
    ASSERT_TRUE(found);
    const std::string rest = found->text.substr(std::string("…").size());
    EXPECT_EQ(deep.substr(deep.size() - rest.size()), rest);
    EXPECT_NE(rest.find("long name 11"), std::string::npos);
    EXPECT_LE(found->x + found->width, at.x + at.w - 20);
    // No more has gone than had to.
    EXPECT_GT(found->x + 2 * found->width, at.x + at.w - 20);
    shot("delete-deep");
}

TEST_F(AppDialogs, deleting_is_refused_for_what_a_pane_shows) {
    make_dirs(left() + "/b/c");
    make_dirs(left() + "/bc");
    start({"--right=" + left() + "/bc"});
    const auto refused = [this](const char* name) {
        pane().clear_selection();
        put_cursor_on(name);
        key(GDK_KEY_space);
        key(GDK_KEY_Delete);
        const bool result =
            app().m_overlay == Overlay::Message &&
            app().m_overlay_text.find("open in one of the panes") != std::string::npos;
        app().close_overlay();
        return result;
    };
    // A name that merely begins the same way is another folder.
    EXPECT_FALSE(refused("b"));
    EXPECT_TRUE(refused("bc"));
    EXPECT_TRUE(logged("delete refused: " + left() + "/bc ist in einer Seite geoeffnet"));
    pane(true).navigate_to(left() + "/b/c", false);
    EXPECT_TRUE(refused("b"));
    EXPECT_FALSE(refused("bc"));
}

TEST_F(AppDialogs, deleting_asks_first_unless_told_not_to) {
    write_file(left() + "/a", "x");
    start();
    pane().select_all();
    key(GDK_KEY_Delete);
    EXPECT_EQ(app().m_overlay, Overlay::ConfirmDelete);
    EXPECT_EQ(button(Action::OverlayCancel).label, "Cancel");
    EXPECT_EQ(button(Action::DeletePermanent).label, "Delete permanently");
    EXPECT_EQ(button(Action::DeleteToTrash).label, "Move to trash");
    EXPECT_LT(button(Action::OverlayCancel).x, button(Action::DeletePermanent).x);
    EXPECT_LT(button(Action::DeletePermanent).x, button(Action::DeleteToTrash).x);
    click(button(Action::OverlayCancel));
    EXPECT_EQ(app().m_overlay, Overlay::None);
    // Return takes the way that the settings say, and so does the command without a question.
    for (const bool to_trash : {true, false}) {
        const std::string line = std::string("action: ") +
                                 (to_trash ? "DeleteToTrash" : "DeletePermanent") + " [" + left() +
                                 "]";
        settings().delete_to_trash = to_trash;
        settings().confirm_delete = true;
        Log::instance().clear();
        pane().select_all();
        key(GDK_KEY_Delete);
        EXPECT_FALSE(logged(line));
        EXPECT_TRUE(exists(left() + "/a"));
        key(GDK_KEY_Return);
        EXPECT_TRUE(logged(line));
        ASSERT_TRUE(settle());
        EXPECT_FALSE(exists(left() + "/a"));
        settings().confirm_delete = false;
        Log::instance().clear();
        write_file(left() + "/a", "x");
        app().refresh_both();
        pane().select_all();
        key(GDK_KEY_Delete);
        EXPECT_TRUE(logged(line));
        ASSERT_TRUE(settle());
        EXPECT_FALSE(exists(left() + "/a"));
        write_file(left() + "/a", "x");
        app().refresh_both();
    }
}

// --- For the eye ------------------------------------------------------------------------------

TEST_F(AppDialogs, every_dialogue_can_be_painted_at_every_scale) {
    for (int i = 0; i < 5; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start({"--geometry=1000x700+0+0"});
    pane().select_all();
    const auto paint_and_look = [this](const std::string& name) {
        frame();
        const App::Rect panel = app().m_overlay_panel;
        for (const App::HitRect& rect : app().m_hits)
            if (rect.in_overlay) {
                EXPECT_GE(rect.y, panel.y) << name;
                EXPECT_LE(rect.y + rect.h, panel.y + panel.h) << name;
            }
        EXPECT_GE(panel.y, 19) << name;
        EXPECT_LE(panel.y + panel.h, app().m_layout.height - 20) << name;
        shot("dialog-" + name);
        app().close_overlay();
    };
    for (const char* language : {"en", "ar", "ja"}) {
        settings().language = language;
        I18n::instance().set_language(language);
        for (const char* theme : {"light", "dark"}) {
            settings().theme = theme;
            app().apply_theme();
            for (const int scale : {70, 100, 200}) {
                settings().font_scale = scale;
                const std::string look =
                    std::string("-") + language + "-" + theme + "-" + std::to_string(scale);
                for (const Action action :
                     {Action::NewFolder, Action::SelectPattern, Action::Delete}) {
                    app().perform(action, 0);
                    frame();
                    EXPECT_FALSE(app().m_overlay_accels.empty());
                    paint_and_look(action_name(action) + look);
                }
                for (int value = 1; value <= static_cast<int>(Overlay::Licenses); ++value) {
                    const auto overlay = static_cast<Overlay>(value);
                    app().open_overlay(overlay, "title");
                    paint_and_look(App::overlay_name(overlay) + look);
                }
            }
        }
    }
    I18n::instance().set_language("en");
}

}  // namespace
