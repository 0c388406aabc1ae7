// The byte view in the window: what it paints, and what pointer and keyboard do with it.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "faultfs.h"
#include "i18n.h"
#include "log_lines.h"

#include <fcntl.h>
#include <gdk/gdkkeysyms.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::logged_with;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::pattern;
using test_env::read_file;
using test_env::write_file;
using Hit = App::Hit;
using Overlay = App::Overlay;

constexpr int64_t kGiB = 1 << 30;

class AppHexWindow : public PanePaint {
  protected:
    std::string file() const { return left() + "/file"; }
    // Through the command, as a user does it.
    void view(const std::string& content) {
        write_file(file(), content);
        view_there();
    }
    void view_sparse(int64_t size) {
        write_file(file(), "");
        ASSERT_EQ(truncate(file().c_str(), size), 0);
        view_there();
    }
    void view_there() {
        if (!app().m_window)
            start();
        app().refresh_both();
        put_cursor_on("file");
        app().perform(Action::ViewHex, 0);
        ASSERT_EQ(app().m_overlay, Overlay::HexView);
        paint();
    }
    void paint(int width = 0, int height = 0) {
        test_env::forget_painted();
        frame(width, height);
    }
    App::HitRect button(Action action) { return hit(Hit::Overlay, static_cast<int>(action)); }
    // Some time after the question has come.
    void answer(Action action) {
        app().m_hex_asked_at -= 1;
        click(button(action));
    }
    bool offers(Action action) {
        for (const App::HitRect& rect : app().m_hits)
            if (rect.in_overlay && rect.what == Hit::Overlay &&
                rect.param == static_cast<int>(action))
                return true;
        return false;
    }
    // Types and paints once.
    void type(const std::string& text) {
        for (const char c : text) {
            GdkEventKey event = {};
            event.type = GDK_KEY_PRESS;
            event.window = gtk_widget_get_window(app().m_window);
            event.keyval = gdk_unicode_to_keyval(static_cast<guint32>(c));
            app().handle_key(&event);
        }
        paint();
    }
    // The painted text of a byte's cell, or null for a blank.
    const PaintedText* cell(int number, bool ascii) {
        const App::HitRect rect = hit(Hit::HexByte, number, ascii ? 1 : 0);
        for (const PaintedText& text : painted_texts())
            if (text.x >= rect.x && text.x + 1 < rect.x + rect.w &&
                std::abs(text.y - (rect.y + rect.h / 2)) < 1)
                return &text;
        return nullptr;
    }
    // In its box of 34, with something left above and below.
    void expect_question_fits(const std::string& what) {
        const App::Rect panel = app().m_overlay_panel;
        const double centre = panel.y + panel.h - 69;
        int found = 0;
        for (const PaintedText& text : painted_texts()) {
            if (std::abs(text.y - centre) > 1 || text.x != panel.x + 26)
                continue;
            ++found;
            measuring([&] {
                EXPECT_LE(app().wrapped_text(text.text, 0, 0, panel.w - 52, text.size, nullptr), 30)
                    << what << text.text;
            });
        }
        EXPECT_EQ(found, 1) << what;
    }
    const Palette& palette() { return app().m_palette; }
    // Everything of the panel that can be clicked lies in it, and nothing overlaps.
    void expect_apart(const std::string& what) {
        const App::Rect panel = app().m_overlay_panel;
        std::vector<App::HitRect> seen;
        for (const App::HitRect& rect : app().m_hits) {
            if (!rect.in_overlay || rect.what == Hit::OverlayResize)
                continue;
            EXPECT_GE(rect.x, panel.x) << what << App::hit_name(rect.what);
            EXPECT_GE(rect.y, panel.y + 45) << what << App::hit_name(rect.what);
            EXPECT_LE(rect.x + rect.w, panel.x + panel.w) << what << App::hit_name(rect.what);
            EXPECT_LE(rect.y + rect.h, panel.y + panel.h) << what << App::hit_name(rect.what);
            if (rect.what == Hit::HexByte && rect.param % 16 != 0 && rect.param % 16 != 15)
                continue;
            for (const App::HitRect& other : seen) {
                constexpr double kTouch = 0.01;
                EXPECT_FALSE(
                    rect.x + kTouch < other.x + other.w && other.x + kTouch < rect.x + rect.w &&
                    rect.y + kTouch < other.y + other.h && other.y + kTouch < rect.y + rect.h)
                    << what << App::hit_name(rect.what) << rect.param << " on "
                    << App::hit_name(other.what) << other.param;
            }
            seen.push_back(rect);
        }
    }
};

}  // namespace

// --- The command ------------------------------------------------------------------------------

TEST_F(AppHexWindow, the_command_shows_the_selected_file) {
    view("hello");
    EXPECT_EQ(app().m_overlay_title, "file");
    EXPECT_EQ(app().m_hex_path, file());
    EXPECT_TRUE(painted_text("00000000"));
    EXPECT_EQ(cell(0, false)->text, "68");
    EXPECT_EQ(cell(0, true)->text, "h");
    EXPECT_EQ(cell(4, true)->text, "o");
    EXPECT_EQ(count_hits(Hit::HexByte), 10U);
}

TEST_F(AppHexWindow, what_has_no_bytes_is_told) {
    write_file(left() + "/a", "x");
    test_env::make_dirs(left() + "/folder");
    ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0600), 0);
    start();
    const auto expect_told = [this](const char* title, const char* text, bool is_error) {
        EXPECT_EQ(app().m_overlay, Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, title);
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, is_error);
        app().close_overlay();
    };
    pane().select_all();
    app().view_hex();
    expect_told("Nothing found", "Select exactly one file.", false);
    pane().clear_selection();
    put_cursor_on("folder");
    app().view_hex();
    expect_told("Caution", "Only a file can be shown as bytes, not a folder.", true);
    put_cursor_on("pipe");
    app().perform(Action::ViewHex, 0);
    expect_told("Caution", "This file cannot be opened for reading.", true);
    put_cursor_on("a");
    ASSERT_EQ(unlink((left() + "/a").c_str()), 0);
    app().perform(Action::ViewHex, 0);
    expect_told("Caution", "This file cannot be opened for reading.", true);
}

TEST_F(AppHexWindow, the_bridge_and_the_tick_open_and_close_it) {
    view("hello");
    app().close_overlay();
    EXPECT_GE(app().m_hex_fd, 0);
    app().tick();
    EXPECT_EQ(app().m_hex_fd, -1) << "closed by whatever road";
    paint();
    click(hit(Hit::BridgeHex));
    EXPECT_EQ(app().m_overlay, Overlay::HexView);
    EXPECT_GE(app().m_hex_fd, 0);
    app().perform(Action::OverlayCancel, 0);
    app().tick();
    EXPECT_EQ(app().m_hex_fd, -1);
    view_there();
    finish();
    EXPECT_EQ(app().m_hex_fd, -1) << "at the program's end";
}

// --- Painting ---------------------------------------------------------------------------------

TEST_F(AppHexWindow, a_row_is_16_bytes_and_their_text) {
    std::string content;
    for (int i = 0; i < 256; ++i)
        content += static_cast<char>(i);
    view(content);
    for (int i = 0; i < 256; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(i));
        ASSERT_TRUE(cell(i, false)) << i;
        EXPECT_EQ(cell(i, false)->text, digits);
        EXPECT_EQ(cell(i, true)->text,
                  i >= 32 && i < 127 ? std::string(1, static_cast<char>(i)) : ".");
    }
    for (const char* offset : {"00000000", "00000010", "000000F0"})
        EXPECT_TRUE(painted_text(offset)) << offset;
    EXPECT_FALSE(painted_text("00000100"));
    // Columns of equal width, with a gap after the eighth.
    const auto x = [this](int i) { return cell(i, false)->x; };
    const double step = x(1) - x(0);
    for (int i = 2; i < 16; ++i)
        EXPECT_NEAR(x(i) - x(i - 1), i == 8 ? step * 4 / 3 : step, 0.01) << i;
    for (int i = 1; i < 16; ++i)
        EXPECT_NEAR(cell(i, true)->x - cell(i - 1, true)->x, step / 3, 0.01);
    EXPECT_EQ(x(16 + 3), x(3));
    EXPECT_EQ(cell(0, false)->family, "monospace");
    EXPECT_EQ(cell(0, true)->family, "monospace");
    // No click falls between two cells of a row.
    const App::HitRect first = hit(Hit::HexByte, 0, 0);
    const App::HitRect last = hit(Hit::HexByte, 15, 0);
    for (double at_x = first.x; at_x < last.x + last.w; at_x += 0.5)
        EXPECT_EQ(app().hit_test(at_x, first.y + 3)->what, Hit::HexByte);
}

TEST_F(AppHexWindow, the_last_row_ends_with_the_file) {
    view(pattern(16 * 2 + 5));
    EXPECT_EQ(count_hits(Hit::HexByte), 2U * 37);
    EXPECT_TRUE(painted_text("00000020"));
    EXPECT_FALSE(painted_text("00000030"));
    EXPECT_EQ(count_hits(Hit::HexThumb), 0U) << "all is in view";
    view("");
    EXPECT_EQ(count_hits(Hit::HexByte), 0U);
    EXPECT_EQ(app().m_hex_max_line, 0);
}

TEST_F(AppHexWindow, what_is_no_longer_there_is_blank) {
    view(pattern(100));
    ASSERT_EQ(truncate(file().c_str(), 50), 0);
    paint();
    EXPECT_TRUE(cell(49, false));
    EXPECT_FALSE(cell(50, false));
    EXPECT_FALSE(cell(50, true));
    EXPECT_FALSE(cell(99, false));
    EXPECT_TRUE(painted_text("00000060"));
}

TEST_F(AppHexWindow, a_change_stands_out_and_so_does_the_cursor) {
    view(pattern(100));
    for (const char* theme : {"light", "dark"}) {
        app().m_hex_edits = {{20, 'x'}};
        app().m_hex_cursor = 40;
        app().m_hex_find_focus = false;
        settings().theme = theme;
        app().apply_theme();
        const auto ground = [this](int number, bool ascii) {
            const App::HitRect rect = hit(Hit::HexByte, number, ascii ? 1 : 0);
            return at(rect.x + rect.w / 2, rect.y + 2.5);
        };
        for (const bool ascii : {false, true}) {
            app().m_hex_in_ascii = ascii;
            paint();
            EXPECT_EQ(cell(20, false)->text, "78");
            EXPECT_EQ(cell(20, true)->text, "x");
            for (const bool column : {false, true}) {
                EXPECT_EQ(cell(20, column)->color, palette().source_tint);
                EXPECT_EQ(cell(40, column)->color == palette().selection_text, column == ascii);
            }
            EXPECT_EQ(ground(40, ascii), palette().selection) << theme;
            const std::string plain = ground(41, !ascii);
            expect_near(ground(40, !ascii), over(palette().accent, 0.3, plain), "soft");
        }
        // While the find field has the keys neither is strong.
        app().m_hex_find_focus = true;
        paint();
        for (const bool column : {false, true})
            EXPECT_NE(ground(40, column), palette().selection);
        shot(std::string("hex-marks-") + theme);
    }
}

TEST_F(AppHexWindow, the_strip_tells_what_there_is_to_tell) {
    view(pattern(100));
    EXPECT_TRUE(painted_text("TXT"));
    EXPECT_TRUE(painted_text("Find"));
    EXPECT_TRUE(painted_text("Text or hex sequence"));
    EXPECT_TRUE(painted_text("Close"));
    EXPECT_FALSE(offers(Action::HexSave));
    EXPECT_FALSE(offers(Action::HexDiscardChanges));
    type("ff");
    EXPECT_TRUE(painted_text("1 changed"));
    EXPECT_TRUE(offers(Action::HexSave));
    EXPECT_TRUE(offers(Action::HexDiscardChanges));
    type("ff");
    EXPECT_TRUE(painted_text("2 changed"));
    click(button(Action::HexFindMode));
    paint();
    EXPECT_TRUE(painted_text("HEX"));
    EXPECT_FALSE(painted_text("TXT"));
    click(hit(Hit::HexFindField));
    EXPECT_TRUE(app().m_hex_find_focus);
    type("abc");
    EXPECT_TRUE(painted_text("abc"));
    EXPECT_FALSE(painted_text("Text or hex sequence"));
    key(GDK_KEY_Return);
    paint();
    ASSERT_TRUE(painted_text("Incomplete hex sequence"));
    app().set_hex_status("Input/output error", true);
    paint();
    EXPECT_EQ(painted_text("Input/output error")->color, palette().danger);
    app().m_hex_searching = true;
    paint();
    EXPECT_TRUE(painted_text("Searching…"));
    EXPECT_FALSE(painted_text("Input/output error"));
    app().m_hex_searching = false;
    app().set_hex_status("");
    app().m_hex_writable = false;
    paint();
    EXPECT_TRUE(painted_text("Read-only")) << "even when a search has cleared the status";
}

TEST_F(AppHexWindow, questions_take_the_place_of_the_tools) {
    view(pattern(100));
    type("ffff");
    click(button(Action::HexSave));
    paint();
    EXPECT_TRUE(painted_text("Overwrite 2 byte(s) in this file? This cannot be undone."));
    EXPECT_TRUE(painted_text("Overwrite"));
    EXPECT_TRUE(painted_text("Cancel"));
    EXPECT_EQ(count_hits(Hit::HexFindField), 0U);
    for (const Action gone : {Action::HexSave, Action::HexFindMode, Action::HexFindNext,
                              Action::HexDiscardChanges, Action::OverlayCancel})
        EXPECT_FALSE(offers(gone)) << action_name(gone);
    click(button(Action::HexSaveCancel));
    EXPECT_FALSE(app().hex_asks());
    click(button(Action::OverlayCancel));
    paint();
    EXPECT_EQ(app().m_overlay, Overlay::HexView);
    EXPECT_TRUE(painted_text("Unsaved changes  ·  2 changed"));
    for (const char* label : {"Discard", "Save", "Cancel"})
        EXPECT_TRUE(painted_text(label)) << label;
    answer(Action::HexCloseAnyway);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(read_file(file()), pattern(100));
    view_there();
    type("ffff");
    click(button(Action::HexSave));
    answer(Action::HexSaveConfirm);
    EXPECT_EQ(read_file(file()).substr(0, 2), "\xff\xff");
    paint();
    EXPECT_TRUE(painted_text("Saved"));
    EXPECT_FALSE(painted_text("2 changed"));
}

TEST_F(AppHexWindow, letters_with_alt_take_the_buttons) {
    view(pattern(100));
    type("ff");
    const auto press = [this](Action action) {
        for (const auto& [letter, taken] : app().m_overlay_accels)
            if (taken == action) {
                key(static_cast<guint>(std::tolower(letter)), GDK_MOD1_MASK);
                return;
            }
        ADD_FAILURE() << action_name(action);
    };
    press(Action::HexFindMode);
    EXPECT_TRUE(app().m_hex_find_as_hex);
    press(Action::HexSave);
    EXPECT_TRUE(app().m_hex_confirm_save);
    press(Action::HexSaveCancel);
    EXPECT_FALSE(app().hex_asks());
    press(Action::OverlayCancel);
    EXPECT_TRUE(app().m_hex_confirm_close);
    EXPECT_EQ(logged_with("dialog accel: Alt+"), 4);
    press(Action::HexCloseAnyway);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

// What asks stands where the answers will be, and may have the letter of one. Nobody who presses it
// twice, or holds it, means the answer.
TEST_F(AppHexWindow, a_question_is_not_answered_by_what_asked_it) {
    const std::string content = pattern(100);
    view(content);
    type("ffff");
    const auto expect_kept = [&](const std::string& what) {
        EXPECT_EQ(app().m_overlay, Overlay::HexView) << what;
        EXPECT_EQ(app().m_hex_edits.size(), 2U) << what;
        EXPECT_EQ(read_file(file()), content) << what;
        app().perform(Action::HexSaveCancel, 0);
    };
    for (const char* language : {"en", "de", "ru"}) {
        I18n::instance().set_language(language);
        for (const int scale : {100, 200})
            for (const Action asking : {Action::HexSave, Action::OverlayCancel}) {
                settings().font_scale = scale;
                const std::string what = language + std::to_string(scale) + action_name(asking);
                for (const double share : {0.02, 0.5, 0.98}) {
                    paint(1000, 700);
                    const App::HitRect rect = button(asking);
                    for (int i = 0; i < 2; ++i) {
                        click(rect.x + share * rect.w, rect.y + 3);
                        paint(1000, 700);
                    }
                    expect_kept(what);
                    if (HasFailure())
                        return;
                }
                paint(1000, 700);
                char letter = 0;
                for (const auto& [each, action] : app().m_overlay_accels)
                    if (action == asking)
                        letter = each;
                for (int i = 0; i < 20; ++i) {
                    key(static_cast<guint>(std::tolower(letter)), GDK_MOD1_MASK);
                    paint(1000, 700);
                }
                expect_kept(what + letter);
            }
    }
    I18n::instance().set_language("en");
    // Another letter is an answer at once, and the same one after a while.
    settings().font_scale = 100;
    for (const bool same : {false, true}) {
        app().m_hex_edits = {{0, 'x'}};
        app().perform(Action::HexSave, 0);
        paint();
        app().m_hex_asked_by = same ? 'O' : 'S';
        key('o', GDK_MOD1_MASK);
        EXPECT_EQ(app().m_hex_edits.size(), same ? 1U : 0U);
        app().m_hex_asked_at -= 1;
        key('o', GDK_MOD1_MASK);
        EXPECT_EQ(app().m_hex_edits.size(), 0U);
    }
    app().hex_set_byte(1, 'y');
    app().perform(Action::HexSave, 0);
    key(GDK_KEY_Return);
    EXPECT_TRUE(app().m_hex_edits.empty()) << "Enter asks nothing, so it is always an answer";
}

TEST_F(AppHexWindow, every_look_keeps_everything_apart) {
    view(pattern(5000));
    app().m_hex_edits = {{20, 'x'}, {33, 'y'}};
    app().m_hex_cursor = 50;
    for (const Look& look_ : kLooks) {
        const std::string name = std::string(look_.theme) + "-" + std::to_string(look_.scale);
        look(look_.theme, look_.scale);
        paint();
        expect_apart(name);
        shot("hex-" + name);
        // The smallest window of all, in pixels.
        paint(1000, 700);
        expect_apart("small " + name);
        shot("hex-small-" + name);
        app().perform(Action::HexSave, 0);
        paint(1000, 700);
        expect_apart("asking " + name);
        shot("hex-asks-" + name);
        app().perform(Action::OverlayCancel, 0);
        paint(1000, 700);
        expect_apart("closing " + name);
        app().perform(Action::HexSaveCancel, 0);
        for (const Action needed :
             {Action::HexSave, Action::HexFindMode, Action::HexFindNext, Action::OverlayCancel}) {
            paint(1000, 700);
            EXPECT_TRUE(offers(needed)) << name << action_name(needed);
        }
    }
}

TEST_F(AppHexWindow, every_language_fits_the_smallest_window) {
    view(pattern(5000));
    app().m_hex_edits = {{20, 'x'}, {33, 'y'}};
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        settings().font_scale = 200;
        for (const char* state : {"", "save", "close"}) {
            app().m_hex_confirm_save = *state == 's';
            app().m_hex_confirm_close = *state == 'c';
            paint(1000, 700);
            expect_apart(language.code + state);
            const std::string count = I18n::instance().trf("hex.changed", 2);
            if (*state == '\0') {
                EXPECT_TRUE(painted_text(count) && !painted_text(count)->cut) << language.code;
            } else {
                expect_question_fits(language.code);
            }
            for (const PaintedText& text : painted_texts()) {
                // The rows and the text of the strip; the rest of the window is none of ours.
                if (text.y < app().m_overlay_panel.y + app().m_overlay_panel.h - 92 ||
                    text.y > app().m_overlay_panel.y + app().m_overlay_panel.h)
                    continue;
                const double right = app().m_overlay_panel.x + app().m_overlay_panel.w - 14;
                if (text.x > app().m_overlay_panel.x && text.x < right) {
                    EXPECT_LE(text.x + text.width, right) << language.code << text.text;
                }
            }
            if (language.code == "de" || language.code == "ar" || language.code == "ru")
                shot("hex-" + language.code + "-" + state);
        }
    }
    I18n::instance().set_language("en");
}

TEST_F(AppHexWindow, a_window_with_no_room_for_rows_paints_none) {
    view(pattern(5000));
    for (const int height : {40, 100, 150, 180, 200, 240, 300}) {
        paint(700, height);
        EXPECT_GE(app().m_hex_rows, 1);
        for (const App::HitRect& rect : app().m_hits)
            if (rect.what == Hit::HexByte) {
                EXPECT_LE(rect.y + rect.h, app().m_overlay_panel.y + app().m_overlay_panel.h - 92);
            }
    }
    for (const int width : {60, 150, 250, 400})
        paint(width, 700);
}

TEST_F(AppHexWindow, long_offsets_find_their_room) {
    const auto expect_no_touch = [this](int digits) {
        double offset_end = 0;
        for (const PaintedText& text : painted_texts())
            if (text.text.size() == static_cast<size_t>(digits) && text.family == "monospace" &&
                text.y < app().m_overlay_panel.y + app().m_overlay_panel.h - 92)
                offset_end = text.x + text.width;
        ASSERT_GT(offset_end, 0);
        EXPECT_GT(cell(0, false)->x, offset_end + 4) << digits;
        EXPECT_GT(cell(0, true)->x, cell(15, false)->x + cell(15, false)->width + 4) << digits;
        const App::HitRect thumb = hit(Hit::HexThumb);
        EXPECT_LE(cell(15, true)->x + cell(15, true)->width, thumb.x) << digits;
    };
    view_sparse(100 * kGiB);
    app().m_hex_line = app().m_hex_max_line;
    paint();
    EXPECT_TRUE(painted_text("18FFFFFFF0"));
    expect_no_touch(10);
    shot("hex-100-gib");
    paint(500, 350);
    expect_no_touch(10);
    view_sparse(int64_t{1} << 43);  // of 11 digits, as large as the file system takes
    app().m_hex_line = app().m_hex_max_line;
    paint();
    EXPECT_TRUE(painted_text("7FFFFFFFFF0"));
    expect_no_touch(11);
    // None is larger than this.
    app().m_hex_size = INT64_MAX;
    app().m_hex_line = INT64_MAX;
    paint();
    EXPECT_TRUE(painted_text("7FFFFFFFFFFFFFF0"));
}

TEST_F(AppHexWindow, a_frame_reads_the_rows_in_view_and_nothing_else) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "file", pattern(1 << 20));
    start({"--left=" + fs.path()});
    view_there();
    for (const int64_t line : {0, 1000, 4096 / 16 - 5}) {
        app().m_hex_line = line;
        fs.clear();
        paint();
        EXPECT_GE(fs.calls("read"), 1);
        EXPECT_LE(fs.calls("read"), 2) << "one for each page that the rows lie in";
        EXPECT_EQ(fs.calls("open") + fs.calls("lookup"), 0);
    }
    fs.set(faultfs::fail("read", EIO));
    app().m_hex_line = 3000;
    paint();
    EXPECT_FALSE(cell(0, false));
    EXPECT_FALSE(cell(17, true));
}

// --- Pointer ----------------------------------------------------------------------------------

TEST_F(AppHexWindow, a_click_puts_the_cursor_on_a_byte) {
    view(pattern(16 * 200));
    app().m_hex_line = 50;
    paint();
    app().m_hex_low_nibble = app().m_hex_find_focus = true;
    click(hit(Hit::HexByte, 16 * 3 + 5, 1));
    EXPECT_EQ(app().m_hex_cursor, 16 * 53 + 5);
    EXPECT_TRUE(app().m_hex_in_ascii);
    EXPECT_FALSE(app().m_hex_low_nibble);
    EXPECT_FALSE(app().m_hex_find_focus);
    EXPECT_EQ(app().m_hex_line, 50);
    click(hit(Hit::HexByte, 15, 0));
    EXPECT_EQ(app().m_hex_cursor, 16 * 50 + 15);
    EXPECT_FALSE(app().m_hex_in_ascii);
    // The row in view times 16 and the column.
    std::set<int> numbers;
    for (const App::HitRect& rect : app().m_hits)
        if (rect.what == Hit::HexByte)
            numbers.insert(rect.param);
    EXPECT_EQ(numbers.size(), static_cast<size_t>(app().m_hex_rows) * 16);
    EXPECT_EQ(*numbers.rbegin(), app().m_hex_rows * 16 - 1);
}

TEST_F(AppHexWindow, a_click_focuses_the_find_field_at_its_end) {
    view("abc");
    app().m_hex_find = "x\xc3\xa4y";
    app().m_hex_find_caret = 0;
    paint();
    click(hit(Hit::HexFindField));
    EXPECT_TRUE(app().m_hex_find_focus);
    EXPECT_EQ(app().m_hex_find_caret, 4U);
    key('a');
    EXPECT_EQ(app().m_hex_find, "x\xc3\xa4ya");
}

TEST_F(AppHexWindow, the_thumb_is_dragged_over_the_whole_file) {
    view_sparse(100 * kGiB);
    const App::HitRect thumb = hit(Hit::HexThumb);
    EXPECT_EQ(app().m_hex_max_line, 100 * kGiB / 16 - app().m_hex_rows);
    const auto line_for = [this](double share) {
        return static_cast<int64_t>(static_cast<double>(app().m_hex_max_line) * share + 0.5);
    };
    click(thumb.x + 3, app().m_hex_track_y + app().m_hex_track_h / 4);
    EXPECT_TRUE(app().m_hex_drag);
    EXPECT_TRUE(app().dragging());
    EXPECT_EQ(app().m_hex_line, line_for(0.25));
    app().handle_motion(5, app().m_hex_track_y + app().m_hex_track_h / 2);
    EXPECT_EQ(app().m_hex_line, line_for(0.5));
    app().handle_motion(5, 10000);
    EXPECT_EQ(app().m_hex_line, app().m_hex_max_line);
    paint();
    EXPECT_TRUE(painted_text("18FFFFFFF0"));
    app().handle_motion(5, -10000);
    EXPECT_EQ(app().m_hex_line, 0);
    app().handle_release();
    EXPECT_FALSE(app().m_hex_drag);
    app().handle_motion(5, 10000);
    EXPECT_EQ(app().m_hex_line, 0);
    // Of the longest file, where a number of rows is more than a double holds.
    app().m_hex_max_line = INT64_MAX / 16;
    app().drag_hex_scroll(1e9);
    EXPECT_EQ(app().m_hex_line, INT64_MAX / 16);
    app().m_hex_track_h = 0;
    app().drag_hex_scroll(0);
    EXPECT_EQ(app().m_hex_line, INT64_MAX / 16);
    // A question of the engine takes the view's place while it is held.
    app().m_hex_drag = true;
    app().open_overlay(Overlay::Conflict, "");
    EXPECT_FALSE(app().m_hex_drag);
    app().close_overlay();
}

TEST_F(AppHexWindow, the_wheel_scrolls_three_rows) {
    view(pattern(16 * 200));
    const auto turn = [this](GdkScrollDirection direction, double delta = 0) {
        app().handle_scroll(600, direction, delta);
        return app().m_hex_line;
    };
    EXPECT_EQ(turn(GDK_SCROLL_DOWN), 3);
    EXPECT_EQ(turn(GDK_SCROLL_DOWN), 6);
    EXPECT_EQ(turn(GDK_SCROLL_UP), 3);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 1.5), 7);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0.1), 7) << "a smooth step of 0";
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, -100), 0);
    EXPECT_EQ(turn(GDK_SCROLL_LEFT), 0);
    // The painter has the last word.
    turn(GDK_SCROLL_SMOOTH, 1000);
    paint();
    EXPECT_EQ(app().m_hex_line, app().m_hex_max_line);
    EXPECT_EQ(app().m_hex_max_line, 200 - app().m_hex_rows);
    EXPECT_EQ(pane().scroll(), 0);
}

TEST_F(AppHexWindow, the_grip_changes_how_many_rows_are_seen) {
    view(pattern(16 * 200));
    const int before = app().m_hex_rows;
    const App::HitRect grip = hit(Hit::OverlayResize);
    EXPECT_EQ(grip.param, 1);
    click(grip);
    EXPECT_EQ(app().m_overlay_resize, 2);
    app().handle_motion(10000, 10000);
    app().handle_release();
    paint();
    EXPECT_EQ(settings().hex_view_w, 1060);
    EXPECT_EQ(settings().hex_view_h, 680);
    EXPECT_GT(app().m_hex_rows, before);
    EXPECT_EQ(app().m_overlay_panel.w, 1060);
    expect_apart("grown");
    shot("hex-grown");
}

TEST_F(AppHexWindow, the_tick_shows_a_message_when_nothing_is_lost_by_it) {
    view("abc");
    type("41");
    app().show_message("title", "text");
    for (int i = 0; i < 3; ++i)
        app().tick();
    EXPECT_EQ(app().m_overlay, Overlay::HexView);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_GE(app().m_hex_fd, 0);
    paint();
    click(button(Action::HexDiscardChanges));
    app().tick();
    EXPECT_EQ(app().m_overlay, Overlay::Message);
    EXPECT_EQ(app().m_overlay_title, "title");
}

TEST_F(AppHexWindow, what_cannot_be_saved_is_told_and_kept) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "file", "abc");
    start({"--left=" + fs.path()});
    view_there();
    type("4142");
    fs.set(faultfs::fail("write", EIO, 2));
    click(button(Action::HexSave));
    answer(Action::HexSaveConfirm);
    paint();
    EXPECT_TRUE(painted_text("Input/output error"));
    EXPECT_TRUE(painted_text("2 changed"));
    EXPECT_TRUE(offers(Action::HexSave));
    fs.clear();
    click(button(Action::HexSave));
    answer(Action::HexSaveConfirm);
    paint();
    EXPECT_TRUE(painted_text("Saved"));
    EXPECT_EQ(read_file(fs.backing() + "/file"), "ABc");
}

// --- Keyboard ---------------------------------------------------------------------------------

TEST_F(AppHexWindow, ctrl_with_home_and_end_goes_through_the_file) {
    view_sparse(100 * kGiB);
    key(GDK_KEY_End, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_hex_cursor, 100 * kGiB - 1);
    EXPECT_EQ(app().m_hex_line, app().m_hex_max_line);
    key(GDK_KEY_Home, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_hex_cursor, 0);
    EXPECT_EQ(app().m_hex_line, 0);
    key(GDK_KEY_Page_Down);
    EXPECT_EQ(app().m_hex_cursor, app().m_hex_rows * 16);
    EXPECT_EQ(app().m_hex_line, 1);
}

TEST_F(AppHexWindow, no_key_reaches_the_panes) {
    view("abc");
    const std::string path = pane().path();
    for (const guint each : {guint{GDK_KEY_F5}, guint{GDK_KEY_F7}, guint{GDK_KEY_Delete},
                             guint{GDK_KEY_asterisk}, guint{'q'}, guint{GDK_KEY_F2}})
        for (const guint state : {0U, static_cast<guint>(GDK_CONTROL_MASK)})
            key(each, state);
    EXPECT_EQ(app().m_overlay, Overlay::HexView);
    EXPECT_EQ(pane().path(), path);
    EXPECT_FALSE(pane().renaming());
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHexWindow, the_find_field_takes_composed_text_and_the_clipboard) {
    view("abc");
    EXPECT_EQ(app().focused_field(), (App::FieldFocus{}));
    click(hit(Hit::HexFindField));
    EXPECT_EQ(app().focused_field(), (App::FieldFocus{App::TextField::HexFind, 0}));
    app().sync_input_method();
    app().input_method_commits("ö");
    EXPECT_EQ(app().m_hex_find, "ö");
    App::set_clipboards("one\ntwo");
    key('v', GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_hex_find, "öone");
    EXPECT_EQ(app().m_hex_find_caret, 5U);
    EXPECT_TRUE(app().delete_surrounding(-2, 2));
    EXPECT_EQ(app().m_hex_find, "öo");
    EXPECT_EQ(app().m_hex_find_caret, 3U);
    paint();
    EXPECT_GT(app().m_caret_rect.w, 0);
    // A question has the keys, and so have the bytes.
    app().m_hex_edits[0] = 1;
    app().perform(Action::HexSave, 0);
    EXPECT_EQ(app().focused_field(), (App::FieldFocus{}));
    app().perform(Action::HexSaveCancel, 0);
    EXPECT_EQ(app().focused_field(), (App::FieldFocus{App::TextField::HexFind, 0}));
    app().m_hex_find_focus = false;
    app().hex_find_insert("late");
    EXPECT_EQ(app().m_hex_find, "öo");
}

TEST_F(AppHexWindow, a_search_of_100_gib_leaves_the_window_live) {
    constexpr int64_t kNeedle = 8 * kGiB;
    view_sparse(100 * kGiB);
    const int fd = ::open(file().c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(fd, "needle", 6, kNeedle), 6);
    ::close(fd);
    key('f', GDK_CONTROL_MASK);
    type("needle");
    key(GDK_KEY_Return);
    ASSERT_TRUE(app().m_hex_searching);
    // It goes on by the tick, and the window takes keys and clicks meanwhile.
    ASSERT_TRUE(pump_until([this] { return app().m_hex_search_pos > 0; }));
    EXPECT_TRUE(app().m_hex_searching);
    paint();
    EXPECT_TRUE(painted_text("Searching…"));
    click(hit(Hit::HexByte, 5, 0));
    EXPECT_EQ(app().m_hex_cursor, 5);
    EXPECT_TRUE(app().m_hex_searching);
    app().m_hex_search_pos = kNeedle - (20 << 20);  // a minute later
    ASSERT_TRUE(pump_until([this] { return !app().m_hex_searching; }));
    EXPECT_EQ(app().m_hex_cursor, kNeedle);
    paint();
    EXPECT_TRUE(painted_text("200000000"));
}

TEST_F(AppHexWindow, the_dialogues_choices_are_in_the_log) {
    view("abc");
    EXPECT_TRUE(logged("dialog opened: HexView — 11 Auswahlen [file]")) << test_env::log_text();
    EXPECT_EQ(logged_with("  option HexByte"), 6);
    EXPECT_EQ(logged_with("  option HexFindMode"), 1);
    EXPECT_EQ(logged_with("  option OverlayResize"), 1);
}
