// The dialogue of the preferences: what its rows show, where they stand, and what they do.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "i18n.h"
#include "logger.h"
#include "settings.h"

#include <algorithm>

namespace {

using copy_engine::ConflictAction;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using Overlay = App::Overlay;

struct Row {
    const char* label;
    Action action;
    Action plus;  // of a stepper
};

constexpr Row kSettings[] = {
    {"settings.language", Action::SettingsLanguageOpen, Action::None},
    {"settings.theme", Action::SettingsTheme, Action::None},
    {"settings.threads", Action::SettingsThreadsMinus, Action::SettingsThreadsPlus},
    {"settings.default_conflict", Action::SettingsConflict, Action::None},
    {"settings.archive_format", Action::SettingsArchiveFormat, Action::None},
    {"settings.font", Action::SettingsFontOpen, Action::None},
    {"settings.font_scale", Action::SettingsScaleMinus, Action::SettingsScalePlus},
    {"settings.show_hidden", Action::SettingsToggleHidden, Action::None},
    {"settings.delete_to_trash", Action::SettingsToggleTrash, Action::None},
    {"settings.confirm_delete", Action::SettingsToggleConfirm, Action::None},
};

std::vector<Action> all_controls() {
    std::vector<Action> actions;
    for (const Row& row : kSettings) {
        actions.push_back(row.action);
        if (row.plus != Action::None)
            actions.push_back(row.plus);
    }
    actions.push_back(Action::OverlayCancel);
    actions.push_back(Action::SettingsReset);
    return actions;
}

class AppSettings : public PanePaint {
  protected:
    void TearDown() override {
        test_env::stretch_texts(1);
        I18n::instance().set_language("en");
        PanePaint::TearDown();
    }
    App::Rect open(int width = 0, int height = 0) {
        app().perform(Action::SettingsWindow, 0);
        return paint(width, height);
    }
    App::Rect paint(int width = 0, int height = 0) {
        test_env::forget_painted();
        frame(width, height);
        return app().m_overlay_panel;
    }
    App::HitRect control(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    bool has_control(Action action) {
        return std::any_of(app().m_hits.begin(), app().m_hits.end(), [&](const App::HitRect& one) {
            return one.what == App::Hit::Overlay && one.param == static_cast<int>(action);
        });
    }
    std::string shown(Action action) {
        paint();
        return control(action).label;
    }
    static size_t count_of(const std::string& text) {
        const std::vector<PaintedText>& all = painted_texts();
        return static_cast<size_t>(
            std::count_if(all.begin(), all.end(),
                          [&](const PaintedText& painted) { return painted.text == text; }));
    }
    static std::string file() { return test_env::read_file(config_file("settings.json")); }
    static bool saved(const std::string& line) { return file().find(line) != std::string::npos; }
    void press(Action action) {
        const App::HitRect rect = control(action);
        // Not click(): its frame has the window's size, whatever the scale.
        app().handle_click(rect.x + rect.w / 2, rect.y + rect.h / 2, 1, 0, 1);
        paint();
    }
    const Palette& palette() { return app().m_palette; }

    static bool apart(const App::HitRect& a, const App::HitRect& b) {
        return a.x + a.w <= b.x || b.x + b.w <= a.x || a.y + a.h <= b.y || b.y + b.h <= a.y;
    }
    std::vector<App::HitRect> controls() {
        std::vector<App::HitRect> found;
        for (const App::HitRect& one : app().m_hits)
            if (one.in_overlay)
                found.push_back(one);
        return found;
    }
    // No text runs into another or into a control that is not its own, and all is in the panel.
    void expect_no_overlap(const std::string& what) {
        const App::Rect panel = app().m_overlay_panel;
        const std::vector<App::HitRect> rects = controls();
        for (size_t i = 0; i < rects.size(); ++i) {
            EXPECT_GE(rects[i].x, panel.x) << what;
            EXPECT_LE(rects[i].x + rects[i].w, panel.x + panel.w) << what << rects[i].label;
            EXPECT_LE(rects[i].y + rects[i].h, panel.y + panel.h) << what;
            for (size_t j = i + 1; j < rects.size(); ++j)
                EXPECT_TRUE(apart(rects[i], rects[j]))
                    << what << ": " << rects[i].label << " and " << rects[j].label;
        }
        for (const PaintedText& label : painted_texts()) {
            // Behind the title of the dialogue, and no text of a control.
            if (label.x != panel.x + 20 || label.y < panel.y + 46)
                continue;
            // What has been scrolled below the buttons is not seen.
            const double foot = panel.y + panel.h - 46;
            for (const App::HitRect& rect : rects)
                if (rect.y < foot && label.y > rect.y - 6 && label.y < rect.y + rect.h + 6) {
                    EXPECT_LE(label.x + label.width, rect.x) << what << ": " << label.text;
                }
        }
        for (const App::HitRect& rect : rects)
            for (const PaintedText& text : painted_texts()) {
                const bool inside = text.x > rect.x - 1 && text.x < rect.x + rect.w &&
                                    std::abs(text.y - (rect.y + rect.h / 2)) < 3;
                if (inside) {
                    EXPECT_LE(text.x + text.width, rect.x + rect.w) << what << ": " << text.text;
                }
            }
    }
};

TEST_F(AppSettings, it_opens_from_its_top_as_a_panel_of_500_by_478) {
    start();
    app().m_settings_scroll = 40;
    app().perform(Action::SettingsWindow, 0);
    EXPECT_EQ(app().m_settings_scroll, 0);
    app().close_overlay();
    key(GDK_KEY_comma, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_overlay, Overlay::Settings);
    EXPECT_EQ(app().m_settings_scroll, 0);
    EXPECT_EQ(app().m_overlay_title, "Settings");
    const App::Rect panel = paint();
    EXPECT_EQ(panel.w, 500);
    EXPECT_EQ(panel.h, 478);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppSettings, its_rows_stand_36_apart_with_a_hint_of_26_below_the_third) {
    start();
    for (const int scale : {70, 100, 200}) {
        settings().font_scale = scale;
        // The surface of the scale is a little larger than the window of 1100 by 720.
        const App::Rect panel = open(scale * 11, scale * 72 / 10);
        const double first = control(Action::SettingsLanguageOpen).y;
        EXPECT_EQ(first, panel.y + 62 - 10);
        double top = first;
        for (const Row& row : kSettings) {
            const PaintedText* label = painted_text(tr(row.label));
            ASSERT_NE(label, nullptr) << row.label;
            EXPECT_EQ(label->x, panel.x + 20);
            EXPECT_NEAR(label->y, top + 15, 0.01) << row.label;
            EXPECT_EQ(label->size, 12.5);
            EXPECT_EQ(label->color, palette().text);
            const App::HitRect last = control(row.plus == Action::None ? row.action : row.plus);
            EXPECT_NEAR(last.x + last.w, panel.x + panel.w - 20, 0.01) << row.label;
            EXPECT_NEAR(last.y + last.h / 2, top + 15, 0.01) << row.label;
            top += 36;
            if (std::string(row.label) != "settings.threads")
                continue;
            const PaintedText* hint = painted_text(tr("settings.threads_hint"));
            ASSERT_NE(hint, nullptr);
            EXPECT_EQ(hint->x, panel.x + 20);
            EXPECT_EQ(hint->size, 11);
            EXPECT_EQ(hint->color, palette().secondary);
            EXPECT_GT(hint->y - 7, top - 6);
            EXPECT_LT(hint->y + 7, top + 26);
            EXPECT_LE(hint->width, panel.w - 40);
            top += 26;
        }
        app().close_overlay();
    }
}

TEST_F(AppSettings, a_hint_that_is_too_long_is_cut_to_the_panel) {
    start();
    test_env::stretch_texts(2);
    const App::Rect panel = open();
    const std::string begin = std::string(tr("settings.threads_hint")).substr(0, 10);
    bool seen = false;
    for (const PaintedText& text : painted_texts()) {
        if (text.text.compare(0, begin.size(), begin) != 0)
            continue;
        seen = true;
        EXPECT_TRUE(text.cut);
        EXPECT_LE(text.width, panel.w - 40);
        EXPECT_GT(text.width, panel.w - 60);
    }
    EXPECT_TRUE(seen);
}

TEST_F(AppSettings, each_control_shows_its_setting) {
    start();
    open();
    Settings& s = settings();
    for (const auto& [code, text] : {std::pair{"auto", "Automatic"},
                                     {"", "Automatic"},
                                     {"de", "Deutsch"},
                                     {"ja", "日本語"},
                                     {"xx", "xx"}}) {
        s.language = code;
        EXPECT_EQ(shown(Action::SettingsLanguageOpen), text);
        const PaintedText* painted = painted_text(text);
        ASSERT_NE(painted, nullptr) << text;
        if (std::string(code) != "auto" && *code) {
            EXPECT_EQ(painted->x, control(Action::SettingsLanguageOpen).x + 12);
        }
    }
    s.language = "auto";
    for (const auto& [word, text] : {std::pair{"auto", "Automatic"},
                                     {"light", "Light"},
                                     {"dark", "Dark"},
                                     {"sepia", "Automatic"},
                                     {"", "Automatic"}}) {
        s.theme = word;
        EXPECT_EQ(shown(Action::SettingsTheme), text) << word;
    }
    for (const auto& [count, text] : {std::pair{0, "Automatic"}, {1, "1"}, {16, "16"}}) {
        s.thread_count = count;
        paint();
        const PaintedText* painted = nullptr;
        for (const PaintedText& one : painted_texts())
            if (one.text == text &&
                std::abs(one.y - control(Action::SettingsThreadsPlus).y - 15) < 1)
                painted = &one;
        ASSERT_NE(painted, nullptr) << text;
        const double left = control(Action::SettingsThreadsMinus).x;
        const App::HitRect plus = control(Action::SettingsThreadsPlus);
        EXPECT_NEAR(painted->x + painted->width / 2, (left + plus.x + plus.w) / 2, 0.6);
    }
    for (const auto& [action, text] : {std::pair{ConflictAction::Ask, "Ask"},
                                       {ConflictAction::Overwrite, "Overwrite"},
                                       {ConflictAction::Skip, "Skip"},
                                       {ConflictAction::RenameNew, "Keep both"},
                                       {ConflictAction::RenameExisting, "Rename the old one"},
                                       {ConflictAction::OverwriteIfNewer, "Only if newer"}}) {
        s.default_conflict = action;
        EXPECT_EQ(shown(Action::SettingsConflict), text);
    }
    for (const auto& [label, text] :
         {std::pair{"tar.gz", "tar.gz"}, {"7z", "7z"}, {"zip", "zip"}, {"arj", "tar.gz"}}) {
        s.archive_format = label;
        EXPECT_EQ(shown(Action::SettingsArchiveFormat), text);
    }
    s.font_family = "";
    EXPECT_EQ(shown(Action::SettingsFontOpen), "System default");
    s.font_family = "DejaVu Sans";
    EXPECT_EQ(shown(Action::SettingsFontOpen), "DejaVu Sans");
    s.font_family = "";
    paint();
    const PaintedText* scale = painted_text("100 %");
    ASSERT_NE(scale, nullptr);
    const App::HitRect minus = control(Action::SettingsScaleMinus);
    EXPECT_NEAR(scale->x + scale->width / 2, minus.x + 55, 0.6);
    EXPECT_EQ(minus.label, "−");
    EXPECT_EQ(control(Action::SettingsScalePlus).label, "+");
    EXPECT_EQ(control(Action::SettingsToggleTrash).label, "Delete to trash");
}

TEST_F(AppSettings, the_name_of_a_language_is_cut_before_its_arrowhead) {
    start();
    settings().language = std::string(60, 'w');
    open();
    const PaintedText* painted = painted_text(settings().language);
    ASSERT_NE(painted, nullptr);
    EXPECT_TRUE(painted->cut);
    EXPECT_EQ(painted->x, control(Action::SettingsLanguageOpen).x + 12);
    EXPECT_LE(painted->width, 156);
    EXPECT_GT(painted->width, 140);
}

TEST_F(AppSettings, controls_are_as_wide_as_their_texts_and_110_at_least) {
    start();
    open();
    Settings& s = settings();
    EXPECT_EQ(control(Action::SettingsLanguageOpen).w, 190);
    for (const ConflictAction action : {ConflictAction::Ask, ConflictAction::RenameExisting}) {
        s.default_conflict = action;
        const std::string text = shown(Action::SettingsConflict);
        const App::HitRect rect = control(Action::SettingsConflict);
        EXPECT_EQ(rect.w, std::max(110.0, width_of(text, 12.5) + 28));
        EXPECT_EQ(rect.h, 30);
        const PaintedText* painted = painted_text(text);
        ASSERT_NE(painted, nullptr);
        EXPECT_NEAR(painted->x + painted->width / 2, rect.x + rect.w / 2, 0.6);
    }
    EXPECT_GT(control(Action::SettingsConflict).w, 110);
    for (const char* language : {"en", "de", "el", "ru"}) {
        I18n::instance().set_language(language);
        for (const int count : {0, 7}) {
            s.thread_count = count;
            paint();
            const App::HitRect minus = control(Action::SettingsThreadsMinus);
            const App::HitRect plus = control(Action::SettingsThreadsPlus);
            const std::string text = count ? "7" : tr("settings.threads_auto");
            EXPECT_EQ(plus.x + plus.w - minus.x, std::max(110.0, width_of(text, 12.5) + 64));
            for (const App::HitRect& end : {minus, plus}) {
                EXPECT_EQ(end.w, 30);
                EXPECT_EQ(end.h, 30);
            }
        }
        const App::HitRect minus = control(Action::SettingsScaleMinus);
        const App::HitRect plus = control(Action::SettingsScalePlus);
        EXPECT_EQ(plus.x + plus.w - minus.x, 110);
    }
    I18n::instance().set_language("en");
    s.font_family = std::string(119, 'W');
    paint();
    EXPECT_GT(control(Action::SettingsFontOpen).x, painted_text("Font")->x + 60);
}

TEST_F(AppSettings, a_control_is_a_box_with_an_edge_of_one_pixel) {
    start();
    for (const char* theme : {"light", "dark"}) {
        open();
        look(theme, 200);
        const Palette& p = palette();
        for (const Action action :
             {Action::SettingsLanguageOpen, Action::SettingsTheme, Action::SettingsThreadsMinus,
              Action::SettingsFontOpen, Action::SettingsScaleMinus}) {
            const App::HitRect rect = control(action);
            // The whole box, of which a stepper's minus is a part.
            const double right = app().m_overlay_panel.x + 500 - 20;
            const double x = rect.x + 10;
            for (const double edge : {0.2, 0.8, 29.2, 29.8})
                EXPECT_EQ(at(x, rect.y + edge), p.control_edge) << action_name(action);
            for (const double inside : {1.2, 28.8})
                EXPECT_EQ(at(x, rect.y + inside), p.control) << action_name(action);
            for (const double edge : {0.2, 0.8})
                EXPECT_EQ(at(rect.x + edge, rect.y + 20), p.control_edge);
            EXPECT_EQ(at(rect.x + 1.2, rect.y + 20), p.control);
            for (const double edge : {0.2, 0.8})
                EXPECT_EQ(at(right - edge, rect.y + 20), p.control_edge);
            EXPECT_EQ(at(right + 0.2, rect.y + 20), p.bar);
            EXPECT_EQ(at(rect.x - 0.2, rect.y + 20), p.bar);
            expect_corner(rect.x, rect.y, 4, action_name(action));
        }
        // A line at the inner end of either sign.
        for (const Action action : {Action::SettingsThreadsMinus, Action::SettingsScaleMinus}) {
            const App::HitRect minus = control(action);
            const App::HitRect plus =
                control(action == Action::SettingsThreadsMinus ? Action::SettingsThreadsPlus
                                                               : Action::SettingsScalePlus);
            EXPECT_EQ(at(minus.x + 29.3, minus.y + 4), p.control_edge);
            EXPECT_EQ(at(minus.x + 28.7, minus.y + 4), p.control);
            EXPECT_EQ(at(plus.x + 0.3, plus.y + 4), p.control_edge);
            EXPECT_EQ(at(plus.x + 1.3, plus.y + 4), p.control);
        }
        // The arrowhead.
        const App::HitRect language = control(Action::SettingsLanguageOpen);
        EXPECT_FALSE(has(p.secondary, language.x + 100, language.y + 2, 68, 26));
        EXPECT_TRUE(has(p.secondary, language.x + 168, language.y + 8, 16, 14));
        EXPECT_FALSE(has(p.secondary, language.x + 184, language.y + 2, 4, 26));
        app().close_overlay();
    }
}

TEST_F(AppSettings, a_switch_is_a_capsule_with_a_white_knob_at_the_side_of_its_state) {
    start();
    for (const char* theme : {"light", "dark"}) {
        for (const bool on : {false, true}) {
            settings().confirm_delete = settings().delete_to_trash = settings().show_hidden = on;
            open();
            look(theme, 200);
            for (const Action action : {Action::SettingsToggleHidden, Action::SettingsToggleTrash,
                                        Action::SettingsToggleConfirm}) {
                const App::HitRect rect = control(action);
                EXPECT_EQ(rect.w, 44);
                EXPECT_EQ(rect.h, 22);
                const std::string ground = on ? palette().accent : palette().control_edge;
                const double centre = rect.x + (on ? 44 - 11 : 11);
                const double middle = rect.y + 11;
                EXPECT_EQ(at(centre, middle), "#FFFFFF");
                EXPECT_EQ(at(centre + 7.2, middle), "#FFFFFF");
                EXPECT_EQ(at(centre - 7.2, middle), "#FFFFFF");
                EXPECT_EQ(at(centre, middle - 7.2), "#FFFFFF");
                EXPECT_EQ(at(centre, middle + 7.2), "#FFFFFF");
                EXPECT_EQ(at(centre + (on ? -9 : 9), middle), ground);
                EXPECT_EQ(at(rect.x + (on ? 5 : 39), middle), ground);
                EXPECT_EQ(at(rect.x + 22, rect.y + 0.2), ground);
                EXPECT_EQ(at(rect.x + 22, rect.y + 21.7), ground);
                EXPECT_EQ(at(rect.x + 22, rect.y - 0.3), palette().bar);
                EXPECT_EQ(at(rect.x + 22, rect.y + 22.2), palette().bar);
                // The ends are half circles.
                EXPECT_EQ(at(rect.x + 2, rect.y + 2), palette().bar);
                EXPECT_EQ(at(rect.x + 42, rect.y + 20), palette().bar);
                EXPECT_EQ(at(rect.x + (on ? 0.7 : 43.2), middle), ground);
            }
            app().close_overlay();
        }
    }
}

TEST_F(AppSettings, the_foot_has_a_faint_reset_at_the_left_and_close_at_the_right) {
    start();
    for (const char* theme : {"light", "dark"}) {
        for (const char* language : {"en", "de", "lt"}) {
            I18n::instance().set_language(language);
            open();
            look(theme, 200);
            const App::Rect panel = app().m_overlay_panel;
            const App::HitRect reset = control(Action::SettingsReset);
            EXPECT_EQ(reset.x, panel.x + 20);
            EXPECT_EQ(reset.y, panel.y + panel.h - 46);
            EXPECT_EQ(reset.w, std::max(110.0, width_of(tr("btn.reset"), 12.5) + 32));
            EXPECT_EQ(reset.h, 30);
            EXPECT_EQ(reset.label, tr("btn.reset"));
            expect_near(at(reset.x + 20, reset.y + 4), over(palette().control, 0.88, palette().bar),
                        "ground");
            expect_near(at(reset.x + 20, reset.y + 0.3),
                        over(palette().control_edge, 0.88, palette().bar), "edge");
            const App::HitRect close = control(Action::OverlayCancel);
            EXPECT_EQ(close.x + close.w, panel.x + panel.w - 20);
            EXPECT_EQ(close.y, panel.y + panel.h - 46);
            EXPECT_EQ(at(close.x + 20, close.y + 4), palette().control);
            // A slip of the keyboard resets nothing.
            for (const auto& [letter, action] : app().m_overlay_accels)
                EXPECT_EQ(action, Action::OverlayCancel) << letter;
            app().close_overlay();
        }
    }
}

// --- What the controls do ---------------------------------------------------------------------

TEST_F(AppSettings, a_click_takes_effect_in_the_next_frame_and_in_the_file_at_once) {
    test_env::write_file(left() + "/.hidden", "x");
    start();
    settings().theme = "light";
    settings().language = "en";
    open();
    const std::string light = palette().bar;
    press(Action::SettingsTheme);
    EXPECT_TRUE(saved("\"theme\": \"dark\""));
    EXPECT_EQ(control(Action::SettingsTheme).label, "Dark");
    EXPECT_NE(palette().bar, light);
    EXPECT_EQ(at(app().m_overlay_panel.x + 100, app().m_overlay_panel.y + 10), palette().bar);

    press(Action::SettingsThreadsMinus);
    EXPECT_TRUE(saved("\"thread_count\": 0"));
    EXPECT_EQ(std::count_if(painted_texts().begin(), painted_texts().end(),
                            [](const PaintedText& text) { return text.text == "Automatic"; }),
              1);
    press(Action::SettingsThreadsPlus);
    press(Action::SettingsThreadsPlus);
    press(Action::SettingsThreadsMinus);
    press(Action::SettingsThreadsPlus);
    EXPECT_TRUE(saved("\"thread_count\": 2"));
    EXPECT_NE(painted_text("2"), nullptr);

    press(Action::SettingsConflict);
    EXPECT_TRUE(saved("\"default_conflict\": \"overwrite\""));
    EXPECT_EQ(control(Action::SettingsConflict).label, "Overwrite");

    press(Action::SettingsArchiveFormat);
    const std::string format = control(Action::SettingsArchiveFormat).label;
    EXPECT_NE(format, "tar.gz");
    EXPECT_TRUE(saved("\"archive_format\": \"" + format + "\""));

    EXPECT_EQ(names().size(), 2U);
    press(Action::SettingsToggleHidden);
    EXPECT_TRUE(saved("\"show_hidden\": false"));
    EXPECT_EQ(names().size(), 1U);
    EXPECT_FALSE(settings().show_hidden);
    press(Action::SettingsToggleTrash);
    EXPECT_TRUE(saved("\"delete_to_trash\": false"));
    press(Action::SettingsToggleConfirm);
    EXPECT_TRUE(saved("\"confirm_delete\": false"));
    const App::HitRect toggle = control(Action::SettingsToggleConfirm);
    EXPECT_EQ(at(toggle.x + 11, toggle.y + 11), "#FFFFFF");
    EXPECT_EQ(at(toggle.x + 33, toggle.y + 11), palette().control_edge);

    press(Action::SettingsScalePlus);
    EXPECT_TRUE(saved("\"font_scale\": 110"));
    EXPECT_NEAR(app().m_ui_scale, 1.1, 1e-9);
    EXPECT_NE(painted_text("110 %"), nullptr);
    press(Action::SettingsScaleMinus);
    press(Action::SettingsScaleMinus);
    EXPECT_TRUE(saved("\"font_scale\": 90"));
    EXPECT_NEAR(app().m_ui_scale, 0.9, 1e-9);
    EXPECT_EQ(app().m_overlay, Overlay::Settings);

    press(Action::SettingsFontOpen);
    EXPECT_EQ(app().m_overlay, Overlay::FontPicker);
    press(Action::OverlayCancel);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    open();
    press(Action::SettingsLanguageOpen);
    EXPECT_EQ(app().m_overlay, Overlay::LanguagePicker);
    press(Action::OverlayCancel);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppSettings, a_reset_brings_the_defaults_back_with_the_words_of_their_language) {
    start();
    app().perform(Action::SettingsWindow, 0);
    settings().language = "de";
    I18n::instance().set_language("de");
    settings().thread_count = 9;
    settings().font_scale = 130;
    app().perform(Action::SettingsWindow, 0);
    EXPECT_EQ(app().m_overlay_title, "Einstellungen");
    paint();
    press(Action::SettingsReset);
    EXPECT_TRUE(saved("\"thread_count\": 0"));
    EXPECT_TRUE(saved("\"font_scale\": 100"));
    EXPECT_TRUE(saved("\"language\": \"auto\""));
    EXPECT_EQ(app().m_overlay, Overlay::Settings);
    EXPECT_EQ(app().m_overlay_title, "Settings");
    EXPECT_EQ(app().m_flash_text, "Settings reset");
    EXPECT_NE(painted_text("Appearance"), nullptr);
    press(Action::OverlayCancel);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    // Without the dialogue no title is set.
    app().perform(Action::SettingsReset, 0);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppSettings, the_log_lists_its_choices_with_what_they_show) {
    start();
    settings().theme = "light";
    open();
    EXPECT_TRUE(logged("dialog opened: Settings — 14 Auswahlen [Settings]"));
    for (const char* line :
         {"  option SettingsLanguageOpen         Automatic",
          "  option SettingsTheme                Light", "  option SettingsThreadsMinus         −",
          "  option SettingsThreadsPlus          +", "  option SettingsConflict             Ask",
          "  option SettingsArchiveFormat        tar.gz",
          "  option SettingsFontOpen             System default",
          "  option SettingsScaleMinus           −",
          "  option SettingsToggleHidden         Show hidden files",
          "  option SettingsToggleTrash          Delete to trash",
          "  option SettingsToggleConfirm        Ask before deleting",
          "  option SettingsReset                Reset",
          "  option OverlayCancel                Close"})
        EXPECT_TRUE(logged(line)) << line;
}

// A worker waits for the answer; what the user was looking at does not come back.
TEST_F(AppSettings, less_than_automatic_stays_automatic) {
    start();
    open();
    settings().thread_count = 1;
    paint();
    ASSERT_EQ(count_of("Automatic"), 1U);  // the language's
    for (int i = 0; i < 3; ++i) {
        press(Action::SettingsThreadsMinus);
        EXPECT_EQ(count_of("Automatic"), 2U) << i;
        EXPECT_EQ(settings().thread_count, 0) << i;
    }
}

TEST_F(AppSettings, a_question_of_the_engine_takes_its_place) {
    for (const std::string& side : {left(), right()})
        test_env::write_file(side + "/a.txt", side);
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    open();
    ASSERT_EQ(app().m_overlay, Overlay::Settings);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == Overlay::Conflict; }));
    app().perform(Action::ConflictSkip, 0);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(test_env::read_file(right() + "/a.txt"), right());
}

// --- Room -------------------------------------------------------------------------------------

TEST_F(AppSettings, with_room_for_all_rows_nothing_scrolls) {
    for (int i = 0; i < 60; ++i)
        test_env::write_file(left() + "/f" + std::to_string(i), "x");
    start();
    open();
    EXPECT_FALSE(app().m_overlay_scrolls);
    EXPECT_EQ(count_hits(App::Hit::LogVThumb), 0U);
    for (const Action action : all_controls())
        EXPECT_TRUE(has_control(action)) << action_name(action);
    // The whole of the last switch is there, above the buttons.
    EXPECT_EQ(control(Action::SettingsToggleConfirm).h, 22);
    EXPECT_LT(control(Action::SettingsToggleConfirm).y + 22, control(Action::OverlayCancel).y);
    const App::Rect panel = app().m_overlay_panel;
    EXPECT_GT(control(Action::SettingsLanguageOpen).y, panel.y + 45);
    // The wheel moves the list below.
    app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane().scroll(), 3);
    EXPECT_EQ(app().m_settings_scroll, 0);
}

TEST_F(AppSettings, at_200_percent_in_the_smallest_window_every_control_can_be_reached) {
    start();
    settings().thread_count = 3;
    I18n::instance().set_language("de");
    const auto wheel = [&](int) { app().handle_scroll(100, GDK_SCROLL_DOWN, 0); };
    const auto keys = [&](int) {
        GdkEventKey event = {};
        event.type = GDK_KEY_PRESS;
        event.keyval = GDK_KEY_Down;
        app().handle_key(&event);
    };
    const auto thumb = [&](int step) {
        const App::HitRect track = hit(App::Hit::LogVThumb);
        app().handle_click(track.x + 4, track.y + 1, 1, 0, 1);
        app().handle_motion(track.x + 4, track.y + track.h * (step + 1) / 6);
        app().handle_release();
    };
    const auto reach = [&](Action action, const std::function<void(int)>& scroll) {
        settings().font_scale = 200;
        const App::Rect panel = open(1000, 700);
        EXPECT_TRUE(app().m_overlay_scrolls);
        const auto whole = [&] {
            if (!has_control(action))
                return false;
            const App::HitRect rect = control(action);
            return rect.h == (rect.w == 44 ? 22 : 30);
        };
        for (int step = 0; step < 6 && !whole(); ++step) {
            scroll(step);
            paint(1000, 700);
        }
        EXPECT_TRUE(whole()) << action_name(action);
        const App::HitRect rect = control(action);
        EXPECT_GE(rect.y, panel.y + 46);
        if (action != Action::OverlayCancel && action != Action::SettingsReset) {
            EXPECT_LE(rect.y + rect.h, panel.y + panel.h - 46);
        }
        Log::instance().clear();
        app().handle_click(rect.x + rect.w / 2, rect.y + rect.h / 2, 1, 0, 1);
        EXPECT_TRUE(logged(std::string("action: ") + action_name(action) + " [" + left() + "]"))
            << action_name(action);
        app().close_overlay();
    };
    for (const Action action : all_controls())
        reach(action, wheel);
    for (const Action action : {Action::SettingsFontOpen, Action::SettingsToggleConfirm}) {
        reach(action, keys);
        reach(action, thumb);
    }
}

TEST_F(AppSettings, the_rows_end_above_the_buttons_wherever_they_are_scrolled_to) {
    start();
    settings().font_scale = 200;
    for (const char* theme : {"light", "dark"}) {
        settings().theme = theme;
        app().apply_theme();
        open(1000, 700);
        const int last = app().m_settings_max_scroll;
        EXPECT_EQ(last, 62 + 376 - 10 - (310 - 50));
        std::string thumb;
        for (const int scroll : {0, 1, 20, 36, 90, last, last + 1000, -5}) {
            app().m_settings_scroll = scroll;
            const App::Rect panel = paint(1000, 700);
            // The thumb goes along, in the margin.
            const double margin = panel.x + panel.w - 10;
            const std::string top = at(margin, panel.y + 46 + 6);
            const std::string end = at(margin, panel.y + panel.h - 50 - 6);
            if (scroll == 0) {
                thumb = top;
                EXPECT_NE(end, thumb);
            } else if (scroll == last) {
                EXPECT_EQ(end, thumb);
                EXPECT_NE(top, thumb);
            }
            EXPECT_EQ(app().m_settings_scroll, std::clamp(scroll, 0, last));
            expect_no_overlap(std::to_string(scroll));
            const double foot = panel.y + panel.h - 46;
            // Nothing of a row lies in the rule below the title, or right above the buttons.
            for (double x = panel.x + 21; x < panel.x + panel.w - 21; x += 3) {
                EXPECT_EQ(at(x, panel.y + 44.5), palette().divider);
                EXPECT_EQ(at(x, panel.y + 45.5), palette().bar);
                EXPECT_EQ(at(x, foot - 1), palette().bar);
            }
        }
        app().close_overlay();
    }
}

TEST_F(AppSettings, keys_and_wheel_scroll_by_rows_and_pages) {
    start();
    settings().font_scale = 200;
    open(1000, 700);
    const int last = app().m_settings_max_scroll;
    const int page = app().m_overlay_page;
    EXPECT_EQ(page, 310 - 46 - 50);
    const auto press_key = [&](guint keyval) {
        GdkEventKey event = {};
        event.type = GDK_KEY_PRESS;
        event.keyval = keyval;
        app().handle_key(&event);
        paint(1000, 700);
        return app().m_settings_scroll;
    };
    app().m_list_scroll = 2;
    EXPECT_EQ(press_key(GDK_KEY_Down), 36);
    EXPECT_EQ(press_key(GDK_KEY_Down), 72);
    EXPECT_EQ(press_key(GDK_KEY_Up), 36);
    EXPECT_EQ(press_key(GDK_KEY_End), last);
    EXPECT_EQ(press_key(GDK_KEY_Page_Up), std::max(0, last - page));
    EXPECT_EQ(press_key(GDK_KEY_Page_Down), std::min(last, std::max(0, last - page) + page));
    EXPECT_EQ(press_key(GDK_KEY_Home), 0);
    app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(app().m_settings_scroll, 36);
    app().handle_scroll(100, GDK_SCROLL_SMOOTH, 0.5);
    EXPECT_EQ(app().m_settings_scroll, 54);
    app().handle_scroll(100, GDK_SCROLL_UP, 0);
    app().handle_scroll(100, GDK_SCROLL_UP, 0);
    EXPECT_EQ(app().m_settings_scroll, 0);
    EXPECT_EQ(app().m_list_scroll, 2);
    EXPECT_EQ(pane().scroll(), 0);
}

TEST_F(AppSettings, no_language_makes_its_texts_run_into_one_another) {
    start();
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        settings().language = language.code;
        double widest = 0;
        for (const auto& [action, key] : {std::pair{ConflictAction::Ask, "conflict.ask"},
                                          {ConflictAction::Overwrite, "conflict.overwrite"},
                                          {ConflictAction::Skip, "conflict.skip"},
                                          {ConflictAction::RenameNew, "conflict.rename_new"},
                                          {ConflictAction::OverwriteIfNewer, "conflict.if_newer"}})
            if (const double width = width_of(tr(key), 12.5); width > widest) {
                widest = width;
                settings().default_conflict = action;
            }
        open();
        expect_no_overlap(language.code);
        // In a window with the room all but the hint is shown whole.
        const PaintedText* const title = painted_text(app().m_overlay_title);
        ASSERT_NE(title, nullptr);
        for (const PaintedText* text = title; text <= &painted_texts().back(); ++text)
            if (text->text != tr("settings.threads_hint")) {
                EXPECT_FALSE(text->cut) << language.code << ": " << text->text;
            }
        app().close_overlay();
    }
}

TEST_F(AppSettings, a_label_that_is_too_long_is_cut_before_its_control) {
    start();
    test_env::stretch_texts(2);
    I18n::instance().set_language("de");
    open();
    expect_no_overlap("de");
    const double x = app().m_overlay_panel.x + 20;
    const size_t cut = static_cast<size_t>(
        std::count_if(painted_texts().begin(), painted_texts().end(), [&](const PaintedText& text) {
            return text.x == x && text.size == 12.5 && text.cut;
        }));
    EXPECT_GT(cut, 0U);
}

TEST_F(AppSettings, texts_40_percent_longer_do_not_run_into_one_another) {
    start();
    test_env::stretch_texts(1.4);
    settings().font_family = "Noto Sans Mono CJK JP";
    settings().default_conflict = ConflictAction::OverwriteIfNewer;
    for (const char* language : {"en", "de", "ar", "ja"}) {
        I18n::instance().set_language(language);
        for (const int scale : {70, 100, 200}) {
            settings().font_scale = scale;
            open(1000, 700);
            expect_no_overlap(std::string(language) + " " + std::to_string(scale));
            shot(std::string("settings-long-") + language + std::to_string(scale));
            app().m_settings_scroll = app().m_settings_max_scroll;
            paint(1000, 700);
            expect_no_overlap(std::string(language) + " end " + std::to_string(scale));
        }
    }
}

}  // namespace
