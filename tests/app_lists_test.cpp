// The lists from which a language or a font is picked.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "fresh_process.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <dlfcn.h>
#include <set>

namespace {

int g_family_lists = 0;

}  // namespace

// Stands in front of the library's own, which does the work.
extern "C" void pango_font_map_list_families(PangoFontMap* map, PangoFontFamily*** families,
                                             int* count) {
    using List = void (*)(PangoFontMap*, PangoFontFamily***, int*);
    static const auto list =
        reinterpret_cast<List>(dlsym(RTLD_NEXT, "pango_font_map_list_families"));
    ++g_family_lists;
    list(map, families, count);
}

namespace {

using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using Overlay = App::Overlay;

class AppLists : public PanePaint {
  protected:
    // Of 560 in the window of 1100 by 720: 448 for the list, which are 14 rows and a part of one.
    static constexpr int kPage = 14;

    void TearDown() override {
        I18n::instance().set_language("en");
        I18n::instance().set_ui_font("");
        PanePaint::TearDown();
    }
    App::Rect open(Action action) {
        app().perform(action, 0);
        return paint();
    }
    App::Rect paint() {
        test_env::forget_painted();
        frame();
        return app().m_overlay_panel;
    }
    App::HitRect row(int index) { return hit(App::Hit::ListItem, index); }
    std::vector<App::HitRect> rows() { return all(App::Hit::ListItem, 0); }
    // The text of a row: at 34 from its left edge, in its middle.
    const PaintedText* name_of(const App::HitRect& rect) {
        for (const PaintedText& text : painted_texts())
            if (std::abs(text.x - (rect.x + 34)) < 0.01 && std::abs(text.y - (rect.y + 15)) < 0.6)
                return &text;
        return nullptr;
    }
    static std::string file() { return test_env::read_file(config_file("settings.json")); }
    static bool saved(const std::string& line) { return file().find(line) != std::string::npos; }
    const Palette& palette() { return app().m_palette; }
    std::string ground() { return palette().dark ? "#101317" : "#FBFBFC"; }
};

// --- Language ---------------------------------------------------------------------------------

TEST_F(AppLists, the_languages_are_listed_by_code_behind_the_automatic_one) {
    start();
    const App::Rect panel = open(Action::SettingsLanguageOpen);
    EXPECT_EQ(app().m_overlay, Overlay::LanguagePicker);
    EXPECT_EQ(app().m_overlay_title, "Language");
    EXPECT_EQ(panel.w, 460);
    EXPECT_EQ(panel.h, 560);
    EXPECT_TRUE(app().m_overlay_scrolls);
    EXPECT_EQ(app().m_overlay_page, kPage);
    const std::vector<LanguageInfo> languages = I18n::available();
    ASSERT_EQ(rows().size(), kPage + 1U);
    for (int i = 0; i <= kPage; ++i) {
        const App::HitRect rect = row(i);
        EXPECT_EQ(rect.x, panel.x + 16);
        EXPECT_EQ(rect.w, 460 - 32);
        EXPECT_EQ(rect.y, panel.y + 56 + 30 * i);
        EXPECT_EQ(rect.h, i < kPage ? 30 : 448 - 30 * kPage);
        const std::string name =
            i == 0 ? "Automatic" : languages[static_cast<size_t>(i - 1)].native_name;
        const std::string code = i == 0 ? "auto" : languages[static_cast<size_t>(i - 1)].code;
        EXPECT_EQ(rect.label, name);
        const PaintedText* text = name_of(rect);
        ASSERT_NE(text, nullptr) << i;
        EXPECT_EQ(text->text, name);
        EXPECT_EQ(text->size, 12.5);
        const PaintedText* at_end = painted_text(code);
        ASSERT_NE(at_end, nullptr) << code;
        EXPECT_EQ(at_end->size, 11);
        EXPECT_NEAR(at_end->x + at_end->width, rect.x + rect.w - 20, 0.01);
        EXPECT_NEAR(at_end->y, rect.y + 15, 0.01);
    }
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).y, panel.y + 514);
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).label, "Close");
}

TEST_F(AppLists, the_present_row_is_marked_and_the_hovered_one_is_lit) {
    start();
    for (const char* theme : {"light", "dark"}) {
        settings().language = "cs";
        app().perform(Action::SettingsLanguageOpen, 0);
        app().m_list_scroll = 0;
        test_env::forget_painted();
        look(theme, 100);
        const std::vector<LanguageInfo> languages = I18n::available();
        int current = 0;
        for (size_t i = 0; i < languages.size(); ++i)
            if (languages[i].code == "cs")
                current = static_cast<int>(i) + 1;
        ASSERT_GT(current, 0);
        const App::HitRect hovered = row(2);
        app().handle_motion(hovered.x + 10, hovered.y + 10);
        test_env::forget_painted();
        frame();
        for (int i = 0; i < kPage; ++i) {
            const App::HitRect rect = row(i);
            const std::string color = i == current ? palette().selection
                                      : i == 2     ? palette().menu_hover
                                                   : ground();
            EXPECT_EQ(at(rect.x + 20, rect.y + 15), color) << theme << i;
            EXPECT_EQ(at(rect.x + rect.w - 60, rect.y + 1), color) << theme << i;
            const std::string ink = i == current ? palette().selection_text : palette().text;
            EXPECT_EQ(name_of(rect)->color, ink);
            const std::string code = i == 0 ? "auto" : languages[static_cast<size_t>(i - 1)].code;
            EXPECT_EQ(painted_text(code)->color, ink);
        }
        // The present one stays marked below the pointer.
        app().handle_motion(row(current).x + 10, row(current).y + 10);
        frame();
        EXPECT_EQ(at(row(current).x + 20, row(current).y + 15), palette().selection);
        EXPECT_EQ(at(row(2).x + 20, row(2).y + 15), ground());
        app().handle_leave();
        app().close_overlay();
    }
    settings().language = "auto";
    open(Action::SettingsLanguageOpen);
    EXPECT_EQ(at(row(0).x + 20, row(0).y + 15), palette().selection);
}

TEST_F(AppLists, a_code_that_there_is_no_language_for_marks_no_row) {
    start();
    settings().language = "xx";
    open(Action::SettingsLanguageOpen);
    const int total = static_cast<int>(I18n::available().size()) + 1;
    std::set<std::string> seen;
    for (app().m_list_scroll = 0; app().m_list_scroll < total; app().m_list_scroll += kPage) {
        paint();  // which cuts the last step to the last page
        for (const App::HitRect& rect : rows()) {
            EXPECT_EQ(at(rect.x + 20, rect.y + 2), ground()) << rect.label;
            seen.insert(rect.label);
        }
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(total));
}

TEST_F(AppLists, the_language_in_force_is_in_view_with_three_before_it) {
    start();
    const std::vector<LanguageInfo> languages = I18n::available();
    for (const auto& [code, less] : {std::pair{"auto", 0},
                                     {"xx", 0},
                                     {languages[1].code.c_str(), 0},
                                     {languages[3].code.c_str(), 0},
                                     {languages[4].code.c_str(), 1},
                                     {languages[20].code.c_str(), 17}}) {
        settings().language = code;
        app().perform(Action::SettingsLanguageOpen, 0);
        EXPECT_EQ(app().m_list_scroll, less) << code;
        paint();
        EXPECT_EQ(app().m_list_scroll, less) << code;
    }
    settings().language = languages.back().code;
    open(Action::SettingsLanguageOpen);
    EXPECT_EQ(app().m_list_scroll, static_cast<int>(languages.size()) + 1 - kPage);
    EXPECT_EQ(rows().back().label, languages.back().native_name);
}

TEST_F(AppLists, a_pick_is_the_language_of_the_next_frame_and_of_the_file) {
    start();
    const std::vector<LanguageInfo> languages = I18n::available();
    for (const char* code : {"de", "ja", "ar"}) {
        open(Action::SettingsLanguageOpen);
        int index = 0;
        for (size_t i = 0; i < languages.size(); ++i)
            if (languages[i].code == code)
                index = static_cast<int>(i) + 1;
        app().m_list_scroll = std::max(0, index - 2);
        paint();
        click(row(index));
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_EQ(settings().language, code);
        EXPECT_EQ(I18n::instance().language(), code);
        EXPECT_TRUE(saved(std::string("\"language\": \"") + code + "\""));
        EXPECT_TRUE(logged(std::string("language set to ") + code));
        paint();
        EXPECT_NE(painted_text(tr("menu.file")), nullptr);
    }
    open(Action::SettingsLanguageOpen);
    app().m_list_scroll = 0;
    paint();
    click(row(0));
    EXPECT_EQ(settings().language, "auto");
    EXPECT_TRUE(logged("language set to auto"));
    EXPECT_EQ(I18n::instance().effective_language(), "en");
}

TEST_F(AppLists, a_row_that_is_not_in_the_list_only_closes_it) {
    start();
    settings().language = "de";
    settings().font_family = "DejaVu Sans";
    const int languages = static_cast<int>(I18n::available().size()) + 1;
    const int families = static_cast<int>(App::font_families().size()) + 1;
    for (const int index : {-1, languages, languages + 7}) {
        open(Action::SettingsLanguageOpen);
        app().pick_language(index);
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_EQ(settings().language, "de");
    }
    for (const int index : {-1, families, families + 7}) {
        open(Action::SettingsFontOpen);
        app().pick_font(index);
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_EQ(settings().font_family, "DejaVu Sans");
    }
    open(Action::SettingsFontOpen);
    app().pick_font(families - 1);
    EXPECT_EQ(settings().font_family, App::font_families().back());
    open(Action::SettingsLanguageOpen);
    app().pick_language(languages - 1);
    EXPECT_EQ(settings().language, I18n::available().back().code);
}

TEST_F(AppLists, a_list_scrolls_by_wheel_keys_and_thumb) {
    start();
    const App::Rect panel = open(Action::SettingsLanguageOpen);
    const int last = static_cast<int>(I18n::available().size()) + 1 - kPage;
    app().m_list_scroll = 0;
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(app().m_list_scroll, 3);
    app().handle_scroll(500, GDK_SCROLL_SMOOTH, 0.1);
    EXPECT_EQ(app().m_list_scroll, 3);
    key(GDK_KEY_Page_Down);
    EXPECT_EQ(app().m_list_scroll, 3 + kPage);
    key(GDK_KEY_Up);
    EXPECT_EQ(app().m_list_scroll, 2 + kPage);
    key(GDK_KEY_End);
    EXPECT_EQ(app().m_list_scroll, last);
    EXPECT_EQ(row(last + kPage - 1).label, I18n::available().back().native_name);
    key(GDK_KEY_Home);
    EXPECT_EQ(app().m_list_scroll, 0);
    const App::HitRect thumb = hit(App::Hit::LogVThumb);
    EXPECT_NEAR(thumb.x + 2, panel.x + 460 - 27, 0.01);
    app().handle_click(thumb.x + 5, thumb.y + thumb.h / 2, 1, 0, 1);
    EXPECT_NEAR(app().m_list_scroll, last / 2.0, 1);
    app().handle_release();
    EXPECT_EQ(app().m_overlay, Overlay::LanguagePicker);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppLists, a_list_in_a_low_window_keeps_to_its_area) {
    start();
    settings().font_scale = 200;
    for (const Action action : {Action::SettingsLanguageOpen, Action::SettingsFontOpen}) {
        app().perform(action, 0);
        test_env::forget_painted();
        frame(1000, 700);
        const App::Rect panel = app().m_overlay_panel;
        EXPECT_EQ(panel.h, 350 - 90);
        EXPECT_EQ(app().m_overlay_page, (260 - 112) / 30);
        for (const App::HitRect& rect : rows()) {
            EXPECT_GE(rect.y, panel.y + 56);
            EXPECT_LE(rect.y + rect.h, panel.y + 260 - 56);
        }
        for (double x = panel.x + 20; x < panel.x + panel.w - 20; x += 7) {
            EXPECT_EQ(at(x, panel.y + 55), palette().bar);
            EXPECT_EQ(at(x, panel.y + 260 - 55), palette().bar);
        }
        app().close_overlay();
    }
}

TEST_F(AppLists, the_ground_of_a_list_is_rounded) {
    start();
    for (const char* theme : {"light", "dark"}) {
        settings().language = "xx";
        settings().font_family = "no such family";
        for (const Action action : {Action::SettingsLanguageOpen, Action::SettingsFontOpen}) {
            app().perform(action, 0);
            look(theme, 200);
            const App::Rect panel = app().m_overlay_panel;
            EXPECT_EQ(at(panel.x + 16.2, panel.y + 200), ground());
            EXPECT_EQ(at(panel.x + 15.7, panel.y + 200), palette().bar);
            EXPECT_EQ(at(panel.x + panel.w - 16.3, panel.y + 200), ground());
            EXPECT_EQ(at(panel.x + panel.w - 15.8, panel.y + 200), palette().bar);
            EXPECT_EQ(at(panel.x + 16.2, panel.y + 56.2), palette().bar);
            EXPECT_EQ(at(panel.x + 18, panel.y + 58), ground());
            app().close_overlay();
        }
    }
}

TEST_F(AppLists, the_log_lists_what_can_be_picked) {
    start();
    open(Action::SettingsLanguageOpen);
    // 15 rows, the last of them in part, the thumb and the button.
    EXPECT_TRUE(logged("dialog opened: LanguagePicker — 17 Auswahlen [Language]"));
    EXPECT_TRUE(logged("  option ListItem#0                   Automatic"));
    EXPECT_TRUE(
        logged("  option ListItem#1                   " + I18n::available()[0].native_name));
    EXPECT_TRUE(logged("  option OverlayCancel                Close"));
    app().close_overlay();
    frame();
    open(Action::SettingsFontOpen);
    EXPECT_TRUE(logged("dialog opened: FontPicker — 17 Auswahlen [Font]"));
    EXPECT_TRUE(logged("  option ListItem#1                   " + App::font_families()[0]));
}

TEST_F(AppLists, a_long_name_is_cut_before_its_code) {
    start();
    settings().font_family = "DejaVu Sans Mono";
    app().perform(Action::SettingsLanguageOpen, 0);
    test_env::stretch_texts(2);
    settings().font_scale = 200;
    test_env::forget_painted();
    frame(500, 600);  // narrower than a window can be, so that it happens
    test_env::stretch_texts(1);
    const App::HitRect first = row(1);
    int cut = 0;
    for (const PaintedText& text : painted_texts()) {
        if (text.x != first.x + 34)
            continue;
        cut += text.cut ? 1 : 0;
        for (const PaintedText& code : painted_texts()) {
            if (code.size == 11 && code.y == text.y && code.x > text.x) {
                EXPECT_LE(text.x + text.width, code.x) << text.text;
            }
        }
    }
    EXPECT_GT(cut, 0);
}

// --- Font -------------------------------------------------------------------------------------

TEST_F(AppLists, the_families_are_read_once_and_sorted) {
    start();
    (void)App::font_families();
    const int before = g_family_lists;
    const std::vector<std::string>& families = App::font_families();
    open(Action::SettingsFontOpen);
    app().m_list_scroll = 5;
    paint();
    app().pick_font(1);
    EXPECT_EQ(&App::font_families(), &families);
    EXPECT_EQ(g_family_lists, before);
    EXPECT_EQ(settings().font_family, families[0]);
    EXPECT_GE(families.size(), 5U);
    EXPECT_NE(std::find(families.begin(), families.end(), "DejaVu Sans"), families.end());
    for (size_t i = 1; i < families.size(); ++i)
        EXPECT_LT(g_ascii_strcasecmp(families[i - 1].c_str(), families[i].c_str()), 0)
            << families[i];
}

TEST_F(AppLists, each_family_in_view_is_shown_in_its_own_letters) {
    start();
    settings().font_family = "DejaVu Serif";
    I18n::instance().set_ui_font("DejaVu Serif");
    app().m_list_scroll = 9;
    const App::Rect panel = open(Action::SettingsFontOpen);
    EXPECT_EQ(app().m_overlay, Overlay::FontPicker);
    EXPECT_EQ(app().m_overlay_title, "Font");
    EXPECT_EQ(app().m_list_scroll, 0);
    EXPECT_EQ(panel.w, 480);
    EXPECT_EQ(app().m_overlay_page, kPage);
    const std::vector<std::string>& families = App::font_families();
    const int total = static_cast<int>(families.size()) + 1;
    const PaintedText* first = name_of(row(0));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->text, "System default");
    EXPECT_EQ(first->family, "DejaVu Serif");
    EXPECT_EQ(row(0).label, "System default");
    for (const int scroll : {0, 1, total / 2, total}) {
        app().m_list_scroll = scroll;
        paint();
        std::vector<App::HitRect> shown = rows();
        EXPECT_LE(shown.size(), kPage + 1U);
        size_t named = 0;
        for (const PaintedText& text : painted_texts())
            named += text.x == panel.x + 16 + 34 && text.y > panel.y + 56 ? 1 : 0;
        EXPECT_EQ(named, shown.size()) << "rows out of view are not laid out";
        for (App::HitRect rect : shown) {
            if (rect.param == 0)
                continue;
            const std::string& family = families[static_cast<size_t>(rect.param - 1)];
            EXPECT_EQ(rect.label, family);
            const PaintedText* text = name_of(rect);
            ASSERT_NE(text, nullptr) << family;
            EXPECT_EQ(text->text, family);
            EXPECT_EQ(text->family, family);
            EXPECT_EQ(text->size, 12.5);
        }
    }
    EXPECT_EQ(rows().back().param, total - 1);
}

TEST_F(AppLists, a_picked_family_is_that_of_the_next_frame_and_of_the_file) {
    start();
    const std::vector<std::string>& families = App::font_families();
    const auto index = static_cast<int>(
        std::find(families.begin(), families.end(), "DejaVu Serif") - families.begin());
    open(Action::SettingsFontOpen);
    app().m_list_scroll = index;
    paint();
    EXPECT_EQ(at(row(index + 1).x + 20, row(index + 1).y + 2), ground());
    click(row(index + 1));
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(settings().font_family, "DejaVu Serif");
    EXPECT_EQ(I18n::instance().ui_font_family(), "DejaVu Serif");
    EXPECT_TRUE(saved("\"font_family\": \"DejaVu Serif\""));
    EXPECT_TRUE(logged("UI font: DejaVu Serif"));
    paint();
    EXPECT_EQ(painted_text("File")->family, "DejaVu Serif");
    // Marked, and only it.
    open(Action::SettingsFontOpen);
    app().m_list_scroll = index;
    paint();
    for (const App::HitRect& rect : rows())
        EXPECT_EQ(at(rect.x + 20, rect.y + 2),
                  rect.param == index + 1 ? palette().selection : ground());
    app().m_list_scroll = 0;
    paint();
    click(row(0));
    EXPECT_EQ(settings().font_family, "");
    EXPECT_EQ(I18n::instance().ui_font_family(), "sans-serif");
    EXPECT_TRUE(saved("\"font_family\": \"\""));
    EXPECT_TRUE(logged("UI font: (system default)"));
    open(Action::SettingsFontOpen);
    EXPECT_EQ(at(row(0).x + 20, row(0).y + 15), palette().selection);
}

// Some letters are taller than a row.
TEST_F(AppLists, the_letters_of_a_family_stay_in_their_row) {
    start();
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 200, 40);
    cairo_t* const cr = cairo_create(surface);
    app().m_cr = cr;
    app().draw_in_family("DejaVu Sans", {0, 0, 200, 14}, "#000000");
    app().m_cr = nullptr;
    cairo_destroy(cr);
    cairo_surface_flush(surface);
    int inside = 0, below = 0;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 200; ++x)
            (y < 14 ? inside : below) +=
                cairo_image_surface_get_data(
                    surface)[y * cairo_image_surface_get_stride(surface) + x]
                    ? 1
                    : 0;
    cairo_surface_destroy(surface);
    EXPECT_GT(inside, 20);
    EXPECT_EQ(below, 0);
}

// Reading them takes a while, which is not a frame's to take.
TEST_F(AppLists, the_families_are_read_as_their_list_is_opened) {
    REQUIRE_FRESH_PROCESS();
    start();
    EXPECT_EQ(g_family_lists, 0);
    app().perform(Action::SettingsFontOpen, 0);
    EXPECT_EQ(g_family_lists, 1);
    paint();
    EXPECT_EQ(g_family_lists, 1);
}

}  // namespace
