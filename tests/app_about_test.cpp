// About, the licences and the sandbox notice: what they show and what their choices do.

#include "app_pane_paint.h"

#include "app_program.h"
#include "app_texts.h"
#include "fresh_process.h"
#include "i18n.h"
#include "licenses_data.h"
#include "maker.h"
#include "paths.h"

#include <cstdlib>
#include <optional>

namespace {

using test_env::exists;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::read_file;
using test_env::write_file;
using Overlay = App::Overlay;

class Notices : public PanePaint {
  protected:
    void TearDown() override {
        I18n::instance().set_language("en");
        unsetenv("SNAP_VERSION");
        unsetenv("SNAP_REVISION");
        PanePaint::TearDown();
    }
    App::Rect open(Action action) {
        app().perform(action, 0);
        paint();
        return panel();
    }
    void paint() {
        test_env::forget_painted();
        frame();
    }
    const App::Rect& panel() { return app().m_overlay_panel; }
    const Palette& palette() { return app().m_palette; }
    App::HitRect choice(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    bool offered(Action action) {
        for (const App::HitRect& rect : app().m_hits)
            if (rect.what == App::Hit::Overlay && rect.param == static_cast<int>(action))
                return true;
        return false;
    }
    void expect_text(const std::string& text, double x, double y, double size,
                     const std::string& color) {
        const PaintedText* const found = painted_text(text);
        ASSERT_NE(found, nullptr) << text;
        EXPECT_NEAR(found->x, x, 0.02) << text;
        EXPECT_NEAR(found->y, y, 0.02) << text;
        EXPECT_EQ(found->size, size) << text;
        EXPECT_EQ(found->color, color) << text;
    }
    void expect_centred(const std::string& text, double size, const std::string& color,
                        std::optional<double> y = {}) {
        const PaintedText* const found = painted_text(text);
        ASSERT_NE(found, nullptr) << text;
        EXPECT_NEAR(found->x + found->width / 2, panel().x + panel().w / 2, 1) << text;
        EXPECT_EQ(found->size, size) << text;
        EXPECT_EQ(found->color, color) << text;
        if (y) {
            EXPECT_NEAR(found->y, panel().y + *y, 0.02) << text;
        }
    }
    // From the dialogue's first text on, behind which nothing else is painted.
    static std::vector<PaintedText> dialogue_texts(const std::string& first) {
        const PaintedText* const from = painted_text(first);
        EXPECT_NE(from, nullptr) << first;
        if (!from)
            return {};
        return {painted_texts().begin() + (from - painted_texts().data()), painted_texts().end()};
    }
    static double text_y(const std::string& text) {
        const PaintedText* const found = painted_text(text);
        EXPECT_NE(found, nullptr) << text;
        return found ? found->y : 0;
    }
    void wheel_down() {
        app().handle_scroll(200, GDK_SCROLL_DOWN, 0);
        paint();
    }
};

// --- About ------------------------------------------------------------------------------------

class About : public Notices {};

TEST_F(About, the_logo_is_72_square_and_26_below_the_top) {
    start();
    for (const char* theme : {"light", "dark"}) {
        settings().theme = theme;
        app().apply_theme();
        settings().font_scale = 200;
        const App::Rect at_ = open(Action::About);
        const double left = at_.x + (480 - 72) / 2.0;
        const double top = at_.y + 26;
        EXPECT_EQ(at(left + 36, top - 0.3), palette().bar);
        EXPECT_NE(at(left + 36, top + 0.6), palette().bar);
        EXPECT_NE(at(left + 36, top + 71.4), palette().bar);
        EXPECT_EQ(at(left + 36, top + 72.3), palette().bar);
        EXPECT_EQ(at(left - 0.3, top + 36), palette().bar);
        EXPECT_NE(at(left + 0.6, top + 36), palette().bar);
        EXPECT_NE(at(left + 71.4, top + 36), palette().bar);
        EXPECT_EQ(at(left + 72.3, top + 36), palette().bar);
        EXPECT_EQ(at(left + 0.6, top + 0.6), palette().bar);  // a rounded corner
        expect_near(at(left + 20, top + 36), "#F3F7F9", "left pane");
        expect_near(at(left + 55, top + 36), "#45CBBB", "right pane");
    }
}

TEST_F(About, tells_name_version_and_makers) {
    start();
    EXPECT_EQ(open(Action::About).w, 480);
    EXPECT_EQ(app().m_overlay_title, "Ferrodeck");
    expect_centred("Ferrodeck", 15, palette().text, 26 + 72 + 24);
    expect_centred("Version " FERRODECK_VERSION " (Build " FERRODECK_BUILD ")", 11,
                   palette().secondary);
    expect_centred("Two panes, one job: move your files and see it happen.", 12.5, palette().text);
    expect_centred("Orlomar Software", 11, palette().secondary);
    EXPECT_LT(text_y("Ferrodeck"),
              text_y("Version " FERRODECK_VERSION " (Build " FERRODECK_BUILD ")"));
    EXPECT_LT(text_y(tr("about.tagline")), text_y("Orlomar Software"));
}

TEST_F(About, in_a_snap_the_versions_are_the_snaps) {
    start();
    setenv("SNAP_VERSION", "1.4.2", 1);
    setenv("SNAP_REVISION", "77", 1);
    open(Action::About);
    expect_centred("Snap 1.4.2 (Revision 77)", 11, palette().secondary);
    for (const PaintedText& text : painted_texts())
        EXPECT_EQ(text.text.rfind("Version ", 0), std::string::npos) << text.text;
}

TEST_F(About, the_disclaimer_stands_in_a_panel) {
    start();
    open(Action::About);
    const PaintedText* const title = painted_text("Disclaimer");
    const PaintedText* const text = painted_text(tr("about.disclaimer"));
    ASSERT_TRUE(title && text);
    EXPECT_EQ(title->size, 11);
    EXPECT_EQ(text->size, 11);
    EXPECT_EQ(text->family, "sans-serif");
    EXPECT_LT(title->y, text->y);
    EXPECT_EQ(at(panel().x + 22, title->y), palette().pane);
    EXPECT_EQ(at(panel().x + 18, title->y), palette().bar);
    EXPECT_EQ(at(panel().x + 458, title->y), palette().pane);
    EXPECT_EQ(at(panel().x + 462, title->y), palette().bar);
    // Wrapped to the panel's inner width, and whole.
    EXPECT_LE(text->width, 424);
    EXPECT_FALSE(text->cut);
}

TEST_F(About, four_links_each_18_high_in_their_order) {
    start();
    open(Action::About);
    constexpr Action kLinks[] = {Action::AboutWebsite, Action::AboutContact, Action::AboutBugMail,
                                 Action::AboutDownloads};
    double below = text_y("Disclaimer");
    for (const Action action : kLinks) {
        const App::HitRect link = choice(action);
        EXPECT_EQ(link.h, 18) << action_name(action);
        EXPECT_TRUE(link.in_overlay);
        EXPECT_GE(link.y, below) << action_name(action);
        EXPECT_NEAR(link.x + link.w / 2, panel().x + 240, 1) << action_name(action);
        below = link.y + 18;
    }
    EXPECT_LE(below, choice(Action::OverlayCancel).y - 8);
    EXPECT_EQ(choice(Action::AboutWebsite).label, "https://example.org/ferrodeck");
    EXPECT_EQ(choice(Action::AboutContact).label, "contact@example.org");
    EXPECT_EQ(choice(Action::AboutBugMail).label, "Report a bug: bugs@example.org");
    EXPECT_EQ(choice(Action::AboutDownloads).label, "https://example.org/ferrodeck/download");
    expect_centred("https://example.org/ferrodeck", 12.5, palette().accent);
    expect_centred("contact@example.org", 11, palette().accent);
    expect_centred("Also available as .deb, .rpm, AppImage and Flatpak:", 11, palette().secondary);
    EXPECT_LT(text_y(tr("about.packages")), choice(Action::AboutDownloads).y);
    EXPECT_EQ(choice(Action::OverlayCancel).y, panel().y + panel().h - 46);
    EXPECT_EQ(choice(Action::OverlayCancel).label, "Close");
}

TEST_F(About, the_link_under_the_pointer_is_underlined) {
    start();
    open(Action::About);
    const App::HitRect link = choice(Action::AboutContact);
    EXPECT_FALSE(has(palette().accent, link.x, link.y + 15, link.w, 1));
    app().handle_motion(link.x + 5, link.y + 5);
    frame();
    EXPECT_TRUE(has(palette().accent, link.x, link.y + 15, link.w, 1));
}

TEST_F(About, everything_fits_in_every_language) {
    start();
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        for (const bool snap : {false, true}) {
            if (snap && language.code != "el")  // whose texts are among the longest
                continue;
            snap ? setenv("SNAP_VERSION", "1.0", 1) : unsetenv("SNAP_VERSION");
            open(Action::About);
            EXPECT_FALSE(app().m_overlay_scrolls) << language.code;
            EXPECT_TRUE(offered(Action::AboutDownloads)) << language.code;
            const App::HitRect last = choice(Action::AboutDownloads);
            EXPECT_EQ(last.h, 18);
            EXPECT_LE(last.y + last.h, choice(Action::OverlayCancel).y - 8) << language.code;
            for (const PaintedText& text : dialogue_texts("Ferrodeck")) {
                EXPECT_FALSE(text.cut) << language.code << ": " << text.text;
                EXPECT_LE(text.x + text.width, panel().x + 480 - 19) << language.code << text.text;
            }
        }
    }
}

// At 200 % the window leaves the panel less than it needs.
TEST_F(About, what_does_not_fit_is_scrolled_to) {
    start();
    for (const int height : {700, 720}) {
        settings().font_scale = 200;
        app().perform(Action::About, 0);
        PanePaint::frame(1000, height);
        EXPECT_TRUE(app().m_overlay_scrolls);
        EXPECT_FALSE(offered(Action::AboutDownloads));
        for (const App::HitRect& rect : app().m_hits) {
            if (rect.in_overlay && rect.param != static_cast<int>(Action::OverlayCancel)) {
                EXPECT_LE(rect.y + rect.h, panel().y + panel().h - 56) << rect.label;
            }
        }
        app().handle_scroll(200, GDK_SCROLL_DOWN, 0);
        EXPECT_EQ(app().m_list_scroll, 36);
        app().scroll_overlay(GDK_KEY_End);
        PanePaint::frame(1000, height);
        EXPECT_TRUE(offered(Action::AboutDownloads));
        EXPECT_FALSE(offered(Action::AboutWebsite) && choice(Action::AboutWebsite).y < panel().y);
        app().scroll_overlay(GDK_KEY_Home);
        EXPECT_EQ(app().m_list_scroll, 0);
    }
}

// --- Links ------------------------------------------------------------------------------------

class Links : public Notices {
  protected:
    // A program that records the address it is handed.
    void make_handler() {
        const std::string apps = test_env::root() + "/home/.local/share/applications";
        test_env::make_dirs(apps);
        write_file(test_env::root() + "/link.sh",
                   "#!/bin/sh\necho \"$1\" > " + mark() + ".tmp\nmv " + mark() + ".tmp " + mark() +
                       "\n",
                   0755);
        write_file(apps + "/link.desktop",
                   "[Desktop Entry]\nType=Application\nName=Link\nExec=" + test_env::root() +
                       "/link.sh %u\nMimeType=x-scheme-handler/https;x-scheme-handler/mailto;\n");
        write_file(apps + "/mimeapps.list",
                   "[Default Applications]\nx-scheme-handler/https=link.desktop\n"
                   "x-scheme-handler/mailto=link.desktop\n");
    }
    static std::string mark() { return test_env::root() + "/link-opened"; }
};

TEST_F(Links, lead_to_their_addresses) {
    REQUIRE_FRESH_PROCESS();  // GIO reads what programs there are once
    make_handler();
    start();
    const std::pair<Action, const char*> kAddresses[] = {
        {Action::AboutWebsite, "https://example.org/ferrodeck"},
        {Action::AboutDownloads, "https://example.org/ferrodeck/download"},
        {Action::AboutContact, "mailto:contact@example.org"},
        {Action::AboutBugMail, "mailto:bugs@example.org?subject=Ferrodeck%20" FERRODECK_VERSION
                               "%20%28Build%20" FERRODECK_BUILD "%29"},
    };
    for (const auto& [action, address] : kAddresses) {
        std::remove(mark().c_str());
        open(Action::About);
        click(choice(action));
        ASSERT_EQ(app().m_overlay, Overlay::About) << app().m_overlay_text;
        ASSERT_TRUE(pump_until([] { return exists(mark()); })) << address;
        EXPECT_EQ(read_file(mark()), std::string(address) + "\n");
    }
}

TEST_F(Links, that_nothing_answers_to_say_so_in_glibs_words) {
    REQUIRE_FRESH_PROCESS();
    start();
    setenv("PATH", "/nonexistent", 1);
    for (const Action action : {Action::AboutWebsite, Action::AboutContact}) {
        GError* error = nullptr;
        const char* const address = action == Action::AboutWebsite ? "https://example.org/ferrodeck"
                                                                   : "mailto:contact@example.org";
        if (g_app_info_launch_default_for_uri(address, nullptr, &error))
            GTEST_SKIP() << "this machine has a program for such addresses";
        app().perform(action, 0);
        EXPECT_EQ(app().m_overlay, Overlay::Message);
        EXPECT_TRUE(app().m_overlay_is_error);
        EXPECT_EQ(app().m_overlay_title, "Caution");
        EXPECT_EQ(app().m_overlay_text, error->message);
        EXPECT_NE(app().m_overlay_text, "");
        g_clear_error(&error);
    }
}

// --- Licences ---------------------------------------------------------------------------------

class Licences : public Notices {};

TEST_F(Licences, a_list_with_a_band_between_what_is_shipped_and_what_is_not) {
    start();
    const App::Rect at_ = open(Action::Licenses);
    EXPECT_EQ(at_.w, 640);
    EXPECT_EQ(app().m_overlay_title, "Licenses");
    const PaintedText* const intro = painted_text(tr("licenses.intro"));
    ASSERT_NE(intro, nullptr);
    EXPECT_EQ(intro->x, at_.x + 20);
    EXPECT_EQ(intro->size, 11);
    EXPECT_EQ(intro->family, "sans-serif");
    EXPECT_LE(intro->width, 600);
    double intro_h = 0;
    measuring([&] {
        intro_h = app().wrapped_text(tr("licenses.intro"), 0, 0, 600, 11, nullptr, "sans-serif");
    });
    EXPECT_NEAR(intro->y - intro_h / 2, at_.y + 58, 0.6);

    // Every row in view, from the top and then from the end.
    std::vector<std::string> seen;
    const double list_x = at_.x + 16;
    const auto look_at_rows = [&](size_t first) {
        double y = 0;
        for (size_t row = first; row < 25; ++row) {
            const std::string name = row == 14  ? "Invoked, not shipped — these belong to your "
                                                  "distribution"
                                     : row < 14 ? licenses_data::COMPONENTS[row].name
                                                : licenses_data::COMPONENTS[row - 1].name;
            const PaintedText* const found = painted_text(name);
            if (!found)
                break;
            if (y != 0) {
                EXPECT_EQ(found->y, y + 22) << name;
            }
            y = found->y;
            EXPECT_EQ(found->x, list_x + 14) << name;
            EXPECT_EQ(found->size, 11) << name;
            EXPECT_EQ(found->color, row == 14 ? palette().secondary : palette().text) << name;
            seen.push_back(name);
        }
    };
    look_at_rows(0);
    const PaintedText* const license = painted_text("FTL or GPL-2-or-later");
    ASSERT_NE(license, nullptr);
    EXPECT_NEAR(license->x + license->width, at_.x + 640 - 34, 0.02);
    EXPECT_EQ(license->y, text_y("FreeType"));
    EXPECT_EQ(license->size, 11);
    const size_t in_view = seen.size();
    EXPECT_GE(in_view, 10U);
    EXPECT_LT(in_view, 20U);
    test_env::forget_painted();
    key(GDK_KEY_End);
    EXPECT_EQ(app().m_list_scroll, 25 - app().m_overlay_page);
    look_at_rows(static_cast<size_t>(app().m_list_scroll));
    EXPECT_EQ(seen.back(), "Zenity");
    EXPECT_EQ(painted_text("GTK 3"), nullptr);
}

TEST_F(Licences, below_the_list_stands_what_else_there_is) {
    start();
    open(Action::Licenses);
    EXPECT_NE(painted_text("Another 34 components are under MIT, BSD and similar licenses; their "
                           "license texts ship with the package."),
              nullptr);
    app().m_licenses_folder.clear();
    paint();
    EXPECT_NE(painted_text("LGPL-2.1: https://www.gnu.org/licenses/old-licenses/lgpl-2.1.html"),
              nullptr);
    app().m_licenses_folder = "/some/where";
    paint();
    EXPECT_NE(painted_text("The full license texts are in /some/where."), nullptr);
    EXPECT_EQ(painted_text(tr("licenses.texts_online")), nullptr);
    const App::HitRect close = choice(Action::OverlayCancel);
    EXPECT_EQ(close.y, panel().y + panel().h - 46);
    EXPECT_LT(text_y("The full license texts are in /some/where."), close.y);
}

TEST_F(Licences, the_folder_of_the_texts_is_looked_for_as_the_dialogue_opens) {
    start();
    app().m_licenses_folder = "left over";
    open(Action::Licenses);
    EXPECT_EQ(app().m_licenses_folder, licenses_data::first_folder(licenses_data::text_folders()));
}

TEST_F(Licences, its_texts_keep_apart_in_every_language_and_size) {
    start();
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        for (const int scale : {70, 100, 200}) {
            settings().font_scale = scale;
            app().perform(Action::Licenses, 0);
            test_env::forget_painted();
            PanePaint::frame(1100, 720);
            EXPECT_TRUE(app().m_overlay_scrolls);
            const PaintedText* const gtk = painted_text("GTK 3");
            ASSERT_NE(gtk, nullptr) << language.code << scale;
            const PaintedText* const intro = painted_text(tr("licenses.intro"));
            ASSERT_NE(intro, nullptr);
            EXPECT_GT(gtk->y, intro->y + 10) << language.code << scale;
            const PaintedText* const others =
                painted_text(I18n::instance().trf("licenses.others", 34));
            ASSERT_NE(others, nullptr);
            EXPECT_GT(others->y, gtk->y + 15) << language.code << scale;
            EXPECT_LT(others->y, choice(Action::OverlayCancel).y) << language.code << scale;
        }
    }
}

// --- Sandbox notice ---------------------------------------------------------------------------

class SandboxNotice : public Notices {
  protected:
    static constexpr char kCommand[] = "sudo sh -c 'for i in removable-media system-backup "
                                       "mount-observe; do snap connect ferrodeck:$i; done'";

    // A Snap, before anything asks. The host's files are there or are not.
    static void become_snap(bool hostfs) {
        setenv("SNAP", "/snap/ferrodeck/1", 1);
        setenv("SNAP_NAME", "ferrodeck", 1);
        ASSERT_TRUE(test_env::mount_tmpfs("/var/lib"));
        if (hostfs)
            test_env::make_dirs("/var/lib/snapd/hostfs");
    }
    // What a mark's box is outlined with, in the row of that text.
    std::string mark_of(const char* key) { return at(panel().x + 24 + 6, text_y(tr(key)) - 6.3); }
};

TEST_F(SandboxNotice, tells_what_is_held_back_from_top_to_bottom) {
    start();
    open(Action::SandboxInfo);
    EXPECT_EQ(app().m_overlay, Overlay::Sandbox);
    EXPECT_EQ(app().m_overlay_title, "This edition runs in a sandbox");
    EXPECT_EQ(panel().w, 860);
    EXPECT_EQ(panel().h, 460);
    EXPECT_FALSE(app().m_overlay_scrolls);
    const double left = panel().x + 24;
    const PaintedText* const intro = painted_text(tr("sandbox.intro"));
    ASSERT_NE(intro, nullptr);
    EXPECT_EQ(intro->x, left);
    EXPECT_EQ(intro->size, 11);
    EXPECT_EQ(intro->family, "sans-serif");
    EXPECT_LE(intro->width, 812);
    double y = intro->y;
    for (const char* key :
         {"sandbox.fixable", "sandbox.removable", "sandbox.outside_home", "sandbox.once",
          "sandbox.not_fixable", "sandbox.archivers", "sandbox.terminal", "sandbox.admin"}) {
        const PaintedText* const found = painted_text(tr(key));
        ASSERT_NE(found, nullptr) << key;
        EXPECT_GE(found->y, y + 14) << key;
        EXPECT_EQ(found->size, 11) << key;
        EXPECT_FALSE(found->cut) << key;
        y = found->y;
    }
    EXPECT_LT(y + 8, panel().y + 460 - 46);
    for (const char* key : {"sandbox.removable", "sandbox.admin"})
        EXPECT_EQ(painted_text(tr(key))->x, panel().x + 48) << key;
    // The rule between the introduction and the first heading is 2 high.
    const double rule = text_y(tr("sandbox.fixable")) - 20;
    EXPECT_EQ(at(left + 5, rule), palette().divider);
    EXPECT_EQ(at(left + 5, rule + 1), palette().divider);
    EXPECT_EQ(at(left + 5, rule + 2), palette().bar);
    EXPECT_EQ(at(left + 5, rule - 1), palette().bar);
}

TEST_F(SandboxNotice, the_command_stands_in_a_box_beside_its_button) {
    start();
    open(Action::SandboxInfo);
    EXPECT_STREQ(snap_connect_command(), kCommand);
    const App::HitRect copy = choice(Action::SandboxCopyCommand);
    EXPECT_EQ(copy.h, 30);
    EXPECT_NEAR(copy.w, width_of("Copy", 12.5) + 26, 0.01);
    EXPECT_EQ(copy.x + copy.w, panel().x + 860 - 24);
    EXPECT_EQ(copy.label, "Copy");
    const PaintedText* const command = painted_text(kCommand);
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(command->x, panel().x + 24 + 10);
    EXPECT_EQ(command->y, copy.y + 15);
    EXPECT_EQ(command->size, 11);
    EXPECT_FALSE(command->cut);
    EXPECT_LE(command->x + command->width, copy.x - 8 - 10);
    EXPECT_GT(text_y(tr("sandbox.once")), copy.y + 30);
}

TEST_F(SandboxNotice, copying_puts_the_command_onto_both_clipboards_and_says_so) {
    start();
    open(Action::SandboxInfo);
    EXPECT_EQ(painted_text(tr("sandbox.once"))->color, palette().secondary);
    click(choice(Action::SandboxCopyCommand));
    EXPECT_TRUE(logged("sandbox: connect command copied"));
    EXPECT_EQ(app().m_overlay, Overlay::Sandbox);
    for (const GdkAtom which : {GDK_SELECTION_CLIPBOARD, GDK_SELECTION_PRIMARY}) {
        char* const text = gtk_clipboard_wait_for_text(gtk_clipboard_get(which));
        EXPECT_STREQ(text, kCommand);
        g_free(text);
    }
    paint();
    ASSERT_NE(painted_text("Copied — paste it into a terminal and press Enter"), nullptr);
    EXPECT_EQ(painted_text("Copied — paste it into a terminal and press Enter")->color,
              palette().progress_fill_2);
    EXPECT_EQ(painted_text(tr("sandbox.once")), nullptr);
    // The next time it has not been copied yet.
    app().close_overlay();
    open(Action::SandboxInfo);
    EXPECT_FALSE(app().m_sandbox_copied);
    EXPECT_NE(painted_text(tr("sandbox.once")), nullptr);
}

TEST_F(SandboxNotice, each_choice_has_its_key) {
    start();
    for (const char* language : {"en", "de", "ja"}) {
        I18n::instance().set_language(language);
        open(Action::SandboxInfo);
        EXPECT_EQ(app().m_overlay_accels.size(), 3U) << language;
        const App::HitRect hide = choice(Action::SandboxDontShow);
        const App::HitRect close = choice(Action::OverlayCancel);
        EXPECT_EQ(hide.y, panel().y + panel().h - 46);
        EXPECT_EQ(hide.x + hide.w + 8, close.x);
    }
    EXPECT_EQ(choice(Action::SandboxDontShow).label, tr("sandbox.dont_show"));
}

TEST_F(SandboxNotice, holds_together_in_every_language_and_size) {
    start();
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        settings().font_scale = 100;
        open(Action::SandboxInfo);
        EXPECT_FALSE(app().m_overlay_scrolls) << language.code;
        for (const PaintedText& text : dialogue_texts(tr("sandbox.title"))) {
            EXPECT_LE(text.x + text.width, panel().x + panel().w - 20)
                << language.code << text.text;
            EXPECT_FALSE(text.cut) << language.code << text.text;
        }
        // Where it does not fit, wheel and keys lead to its end.
        settings().font_scale = 200;
        app().perform(Action::SandboxInfo, 0);
        PanePaint::frame(1000, 700);
        EXPECT_TRUE(app().m_overlay_scrolls) << language.code;
        app().scroll_overlay(GDK_KEY_End);
        test_env::forget_painted();
        PanePaint::frame(1000, 700);
        ASSERT_NE(painted_text(tr("sandbox.admin")), nullptr) << language.code;
        EXPECT_LT(text_y(tr("sandbox.admin")), panel().y + panel().h - 56) << language.code;
        EXPECT_TRUE(offered(Action::SandboxDontShow) && offered(Action::OverlayCancel));
        app().close_overlay();
    }
}

// --- In a Snap --------------------------------------------------------------------------------

TEST_F(SandboxNotice, outside_a_snap_it_does_not_open_by_itself) {
    start();
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(SandboxNotice, opens_by_itself_where_an_interface_is_missing) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    become_snap(false);
    start();
    EXPECT_EQ(app().m_overlay, Overlay::Sandbox);
    EXPECT_TRUE(logged("sandbox notice shown (removable=1 hostfs=0)"));
    EXPECT_TRUE(logged("dialog opened: Sandbox — 3 Auswahlen [This edition runs in a sandbox]"));
    paint();
    expect_near(mark_of("sandbox.removable"), palette().ok, "removable");
    expect_near(mark_of("sandbox.outside_home"), palette().warn, "outside");
    expect_near(mark_of("sandbox.terminal"), palette().dim, "terminal");
    // Hidden for good, but still to be had from the menu.
    click(choice(Action::SandboxDontShow));
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_NE(read_file(config_file("settings.json")).find("\"sandbox_notice_hidden\": true"),
              std::string::npos);
    app().offer_sandbox_notice();
    EXPECT_EQ(app().m_overlay, Overlay::None);
    app().perform(Action::SandboxInfo, 0);
    EXPECT_EQ(app().m_overlay, Overlay::Sandbox);
}

TEST_F(SandboxNotice, never_opens_by_itself_with_both_interfaces) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    become_snap(true);
    start();
    EXPECT_EQ(app().m_overlay, Overlay::None);
    open(Action::SandboxInfo);
    expect_near(mark_of("sandbox.removable"), palette().ok, "removable");
    expect_near(mark_of("sandbox.outside_home"), palette().ok, "outside");
}

TEST_F(SandboxNotice, stays_hidden_in_the_next_run) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    become_snap(false);
    setenv("SNAP_VERSION", "1.0", 1);
    setenv("SNAP_REVISION", "5", 1);
    test_env::Program program;
    EXPECT_EQ(program.run({"--action=SandboxCopyCommand,SandboxDontShow,SandboxInfo"}), 0);
    EXPECT_TRUE(program.logged("package snap, uid " + std::to_string(geteuid()) +
                               (geteuid() == 0 ? " (ROOT)" : "")));
    EXPECT_TRUE(program.logged("sandbox notice shown (removable=1 hostfs=0)"));
    EXPECT_TRUE(program.logged("sandbox: connect command copied"));
    EXPECT_TRUE(
        program.logged("dialog opened: Sandbox — 3 Auswahlen [This edition runs in a sandbox]"));
    for (const char* option :
         {"SandboxDontShow              Don’t show again", "OverlayCancel                Close",
          "SandboxCopyCommand           Copy"})
        EXPECT_TRUE(program.logged(std::string("  option ") + option)) << option;
    EXPECT_NE(read_file(program.settings_path()).find("\"sandbox_notice_hidden\": true"),
              std::string::npos);
    std::remove(program.log_path().c_str());
    EXPECT_EQ(program.run({"--action=Refresh"}), 0);
    for (const std::string& line : program.log())
        EXPECT_EQ(line.find("sandbox notice"), std::string::npos) << line;
}

// --- Pictures ---------------------------------------------------------------------------------

TEST_F(Notices, are_painted_in_both_themes_and_every_size) {
    start();
    for (const char* language : {"en", "de", "ar"}) {
        I18n::instance().set_language(language);
        for (const Look& look_ : kLooks)
            for (const Action action : {Action::About, Action::Licenses, Action::SandboxInfo}) {
                settings().theme = look_.theme;
                settings().font_scale = look_.scale;
                app().apply_theme();
                app().perform(action, 0);
                // A window of one size, as a user has it: at 200 % not everything fits.
                AppTest::frame(1100, 720);
                EXPECT_TRUE(offered(Action::OverlayCancel));
                shot(std::string(action_name(action)) + "-" + language + "-" + look_.theme + "-" +
                     std::to_string(look_.scale));
            }
    }
}

}  // namespace
