// The properties dialogue: the facts of an entry, its permissions, for root its owner.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "fresh_process.h"
#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "settings.h"
#include "shim.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::lstat_of;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::write_file;
using Overlay = App::Overlay;
namespace folder_size = file_ops::folder_size;

class AppProperties : public PanePaint {
  protected:
    void TearDown() override {
        test_env::stretch_texts(1);
        I18n::instance().set_language("en");
        PanePaint::TearDown();
    }
    // Of the entry of that name.
    App::Rect open(const std::string& name) {
        app().close_overlay();
        app().refresh_both();
        put_cursor_on(name);
        app().perform(Action::Properties, 0);
        return paint();
    }
    App::Rect paint(int width = 0, int height = 0) {
        test_env::forget_painted();
        frame(width, height);
        return app().m_overlay_panel;
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    bool has_button(Action action) {
        return std::any_of(app().m_hits.begin(), app().m_hits.end(), [&](const App::HitRect& one) {
            return one.in_overlay && one.what == App::Hit::Overlay &&
                   one.param == static_cast<int>(action);
        });
    }
    void press(const App::HitRect& rect) {
        app().handle_click(rect.x + rect.w / 2, rect.y + rect.h / 2, 1, 0, 1);
        paint();
    }
    void type(const std::string& text) {
        for (const char c : text)
            key(gdk_unicode_to_keyval(static_cast<guint32>(c)));
        paint();
    }
    // A fact of the last frame, by its label.
    static std::string fact(const std::string& label) {
        const PaintedText* const key = painted_text(label);
        if (!key)
            return "";
        for (const PaintedText& text : painted_texts())
            if (std::abs(text.y - key->y) < 0.6 && text.x > key->x + 100 && text.size == 12.5)
                return text.text;
        return "(no value)";
    }
    // What is told, from above.
    std::vector<std::string> labels() {
        std::vector<std::string> found;
        const double x = app().m_overlay_panel.x + 20;
        for (const PaintedText& text : painted_texts())
            if (text.x == x && text.size == 11)
                found.push_back(text.text);
        return found;
    }
    mode_t mode(const std::string& name) { return lstat_of(left() + "/" + name).st_mode & 07777; }
    const Palette& palette() { return app().m_palette; }
    static bool counted() { return !folder_size::snapshot().running; }
    // As everybody but root sees it.
    void as_ordinary_user() {
        app().m_owner_editable = false;
        paint();
    }
};

// --- Facts ------------------------------------------------------------------------------------

TEST_F(AppProperties, a_file_is_told_of_from_its_name_on) {
    write_file(left() + "/readme.txt", std::string(12345, 'x'), 0640);
    start();
    put_cursor_on("readme.txt");
    app().m_perm_recursive = true;
    key(GDK_KEY_Return, GDK_MOD1_MASK);
    const App::Rect panel = paint();
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    EXPECT_EQ(app().m_overlay_title, "Properties");
    EXPECT_EQ(app().m_perm_edit, 0640U);
    EXPECT_FALSE(app().m_perm_recursive);
    as_ordinary_user();
    EXPECT_EQ(labels(), (std::vector<std::string>{"Location", "Size", "Modified", "Owner",
                                                  "Free here", "Permissions"}));
    EXPECT_EQ(panel.w, 560);
    EXPECT_EQ(panel.h, 24 * 5 + 52 + 150);
    const PaintedText* name = nullptr;
    for (const PaintedText& text : painted_texts())
        if (text.text == "readme.txt" && text.size == 15)
            name = &text;
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(name->x, panel.x + 20);
    EXPECT_EQ(name->y, panel.y + 70);
    EXPECT_EQ(name->color, palette().text);
    double y = panel.y + 100;
    for (const char* label : {"Location", "Size", "Modified", "Owner", "Free here"}) {
        const PaintedText* key = painted_text(label);
        ASSERT_NE(key, nullptr) << label;
        EXPECT_EQ(key->y, y) << label;
        EXPECT_EQ(key->color, palette().secondary);
        const PaintedText* value = painted_text(fact(label));
        ASSERT_NE(value, nullptr) << label;
        EXPECT_EQ(value->x, panel.x + 150);
        EXPECT_EQ(value->y, y);
        EXPECT_EQ(value->size, 12.5);
        EXPECT_EQ(value->color, palette().text);
        y += 24;
    }
    EXPECT_EQ(fact("Location"), left());
    EXPECT_EQ(fact("Size"), "12 KB");
    EXPECT_EQ(fact("Free here").substr(fact("Free here").size() - 1), "B");
}

TEST_F(AppProperties, of_several_entries_it_is_the_first) {
    write_file(left() + "/a", "1");
    write_file(left() + "/b", "22");
    write_file(left() + "/c", "333");
    start();
    put_cursor_on("c");
    pane().select_all();
    pane().toggle_selection(1);  // all but a
    app().perform(Action::Properties, 0);
    EXPECT_EQ(app().m_properties.name, "b");
    EXPECT_EQ(app().m_properties.path, left() + "/b");
    EXPECT_EQ(app().m_properties.size, 2);
}

TEST_F(AppProperties, dates_are_those_of_the_language_to_the_second) {
    write_file(left() + "/old", "x");
    const struct timespec times[] = {{1000000000, 0}, {1000000000, 0}};  // 9 September 2001
    ASSERT_EQ(utimensat(AT_FDCWD, (left() + "/old").c_str(), times, 0), 0);
    start();
    for (const char* language : {"en", "de", "ja"}) {
        I18n::instance().set_language(language);
        open("old");
        const std::time_t time = 1000000000;
        std::tm local = {};
        localtime_r(&time, &local);
        char wanted[64];
        const std::string format = I18n::instance().date_format();
        std::strftime(wanted, sizeof wanted, (format + " %H:%M:%S").c_str(), &local);
        EXPECT_EQ(fact(tr("prop.modified")), wanted) << language;
    }
    app().m_properties.mtime = 0;
    paint();
    EXPECT_EQ(labels().size(), 5U);
}

TEST_F(AppProperties, each_fact_is_there_only_if_there_is_something_to_tell) {
    write_file(left() + "/file", "x");
    start();
    open("file");
    as_ordinary_user();
    app().m_properties.path = "";
    app().m_properties.free_space = -1;
    app().m_properties.mtime = 0;
    app().m_properties.owner = "me";
    app().m_properties.group = "us";
    paint();
    EXPECT_EQ(labels(), (std::vector<std::string>{"Size", "Owner", "Permissions"}));
    EXPECT_EQ(fact("Owner"), "me : us");
    app().m_properties.free_space = 0;
    app().m_properties.path = "/x";
    app().m_properties.link_target = "somewhere";
    app().m_properties.mtime = -5;
    paint();
    EXPECT_EQ(labels(), (std::vector<std::string>{"Location", "Size", "Owner", "Points to",
                                                  "Free here", "Permissions"}));
    EXPECT_EQ(fact("Location"), "/");
    EXPECT_EQ(fact("Points to"), "somewhere");
    EXPECT_EQ(fact("Free here"), "0 B");
}

TEST_F(AppProperties, long_names_and_values_are_cut_to_the_panel) {
    const std::string name(200, 'm');
    write_file(left() + "/" + name, "x");
    start();
    open(name);
    app().m_properties.link_target = "/" + std::string(200, 'w');
    const App::Rect panel = paint();
    for (const PaintedText& text : painted_texts()) {
        if (text.text == name && text.size == 15) {
            EXPECT_TRUE(text.cut);
            EXPECT_LE(text.width, panel.w - 40);
            EXPECT_GT(text.width, panel.w - 60);
        }
        if (text.text == app().m_properties.link_target) {
            EXPECT_TRUE(text.cut);
            EXPECT_LE(text.width, panel.w - 170);
            EXPECT_GT(text.width, panel.w - 190);
        }
    }
}

TEST_F(AppProperties, a_folder_has_its_contents_and_a_box_that_a_file_has_not) {
    make_dirs(left() + "/folder/inner");
    write_file(left() + "/folder/a", std::string(3000, 'x'));
    write_file(left() + "/folder/inner/b", std::string(72, 'x'));
    start();
    open("folder");
    ASSERT_TRUE(pump_until(counted));
    const App::Rect panel = paint();
    as_ordinary_user();
    EXPECT_EQ(labels(), (std::vector<std::string>{"Location", "Size", "Contents", "Modified",
                                                  "Owner", "Free here", "Permissions"}));
    EXPECT_EQ(fact("Size"), "3 KB");
    EXPECT_EQ(fact("Contents"), "2 files in 2 folders");
    EXPECT_EQ(panel.h, 24 * 6 + 52 + 172);
    EXPECT_TRUE(has_button(Action::PermsToggleBit));
    // With the same number of facts.
    app().m_properties.is_dir = false;
    app().m_properties.link_target = "x";
    EXPECT_EQ(paint().h, panel.h - 22);
    EXPECT_FALSE(has_button(Action::PermsToggleBit));
}

// The worker is held up at a subfolder that does not answer.
TEST_F(AppProperties, while_a_folder_is_counted_its_size_is_a_lower_bound) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_openat);
    make_dirs(left() + "/folder/held");
    write_file(left() + "/folder/a", "12345");
    start();
    shim::rule(
        SYS_openat, [](const shim::Call&) { return shim::wait(); }, shim::path_ends(1, "held"));
    open("folder");
    ASSERT_TRUE(shim::wait_waiting(1));
    EXPECT_TRUE(folder_size::snapshot().running);
    for (const char* language : {"en", "de"}) {
        I18n::instance().set_language(language);
        paint();
        EXPECT_EQ(fact(tr("prop.size")).find(std::string(tr("prop.at_least")) + " "), 0U);
    }
    I18n::instance().set_language("en");
    // A file does not care.
    app().m_properties.is_dir = false;
    paint();
    EXPECT_EQ(fact("Size"), "0 B");
    const App::Rect of_file = app().m_overlay_panel;
    EXPECT_EQ(at(of_file.x + of_file.w - 72, painted_text("Size")->y), palette().bar);
    app().m_properties.is_dir = true;
    // The dot beats in the size's row, between a fifth and the whole of its colour.
    look("light", 200);
    const App::Rect panel = app().m_overlay_panel;
    const double x = panel.x + panel.w - 20 - 52;
    const double y = painted_text("Size")->y;
    double least = 1, most = 0;
    for (int i = 0; i < 40; ++i) {
        frame();
        Rgb ground, accent, seen;
        ASSERT_TRUE(hex_to_rgb(palette().bar, ground) && hex_to_rgb(palette().accent, accent) &&
                    hex_to_rgb(at(x + 0.1, y + 0.1), seen));
        const double share = (ground.r - seen.r) / (ground.r - accent.r);
        least = std::min(least, share);
        most = std::max(most, share);
        EXPECT_EQ(at(x + 0.1, y + 0.1), at(x - 1.9, y + 0.1));
        EXPECT_EQ(at(x + 0.1, y + 0.1), at(x + 0.1, y + 1.6));
        EXPECT_EQ(at(x + 3, y), palette().bar);
        EXPECT_EQ(at(x - 3.4, y), palette().bar);
        if (least < 0.35 && most > 0.85)
            break;
        g_usleep(40000);
    }
    EXPECT_GE(least, 0.19);
    EXPECT_LT(least, 0.35);
    EXPECT_GT(most, 0.85);
    settings().font_scale = 100;
    shim::clear();
    shim::release();
    ASSERT_TRUE(pump_until(counted));
    paint();
    EXPECT_EQ(fact("Size"), "5 B");
    EXPECT_EQ(fact("Contents"), "1 files in 2 folders");
    EXPECT_EQ(at(x, y), palette().bar);
}

TEST_F(AppProperties, what_cannot_be_read_leaves_the_size_a_lower_bound) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_openat);
    make_dirs(left() + "/folder/closed");
    write_file(left() + "/folder/a", "12345");
    start();
    shim::fail(SYS_openat, EACCES, 1, -1, shim::path_ends(1, "closed"));
    open("folder");
    ASSERT_TRUE(pump_until(counted));
    shim::clear();
    paint();
    EXPECT_EQ(fact("Size"), "at least 5 B");
}

TEST_F(AppProperties, leaving_by_any_road_ends_the_counting) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_openat);
    make_dirs(left() + "/folder/held");
    start();
    const std::function<void()> roads[] = {
        [&] { key(GDK_KEY_Escape); },
        [&] { key(GDK_KEY_Return); },
        [&] { click(button(Action::OverlayCancel)); },
        [&] { app().perform(Action::About, 0); },
        [&] { app().open_overlay(Overlay::Conflict, ""); },
    };
    for (const auto& leave : roads) {
        shim::rule(
            SYS_openat, [](const shim::Call&) { return shim::wait(); }, shim::path_ends(1, "held"));
        open("folder");
        ASSERT_TRUE(shim::wait_waiting(1));
        EXPECT_TRUE(folder_size::snapshot().running);
        const double before = App::now_seconds();
        leave();
        EXPECT_NE(app().m_overlay, Overlay::Properties);
        EXPECT_FALSE(folder_size::snapshot().running);
        EXPECT_LT(App::now_seconds() - before, 0.4);  // nobody waited for the worker
        shim::clear();
        shim::release();
        app().close_overlay();
    }
}

// --- Permissions ------------------------------------------------------------------------------

TEST_F(AppProperties, the_bits_stand_in_three_groups_of_three) {
    write_file(left() + "/file", "x", 0642);
    start();
    for (const char* theme : {"light", "dark"}) {
        open("file");
        test_env::forget_painted();
        look(theme, 200);
        const App::Rect panel = app().m_overlay_panel;
        const Palette& p = palette();
        // 8 below the last row, which ends 12 below its text.
        const double rule = painted_text("Free here")->y + 12 + 8;
        EXPECT_EQ(at(panel.x + 20.3, rule + 0.3), p.divider);
        EXPECT_EQ(at(panel.x + panel.w - 20.7, rule + 0.3), p.divider);
        EXPECT_EQ(at(panel.x + 19.2, rule + 0.3), p.bar);
        EXPECT_EQ(at(panel.x + panel.w - 19.2, rule + 0.3), p.bar);
        EXPECT_EQ(at(panel.x + 100, rule - 0.7), p.bar);
        EXPECT_EQ(at(panel.x + 100, rule + 1.2), p.bar);
        const PaintedText* label = painted_text("Permissions");
        ASSERT_NE(label, nullptr);
        EXPECT_EQ(label->x, panel.x + 20);
        EXPECT_EQ(label->y, rule + 12);
        EXPECT_EQ(label->size, 11);
        EXPECT_EQ(label->color, p.secondary);
        for (int group = 0; group < 3; ++group) {
            const double left_x = panel.x + 150 + 90 * group;
            const PaintedText* head = nullptr;
            for (const PaintedText& text : painted_texts())
                if (text.text == std::string(1, "ugo"[group]) && text.x == left_x)
                    head = &text;
            ASSERT_NE(head, nullptr) << group;
            EXPECT_EQ(head->size, 11);
            EXPECT_EQ(head->color, p.dim);
            EXPECT_EQ(head->y, rule + 12);
            for (int i = 0; i < 3; ++i) {
                const int bit = 8 - 3 * group - i;
                const App::HitRect rect = hit(App::Hit::PermBit, bit);
                EXPECT_EQ(rect.x, left_x + 26 * i);
                EXPECT_EQ(rect.w, 22);
                EXPECT_EQ(rect.h, 22);
                EXPECT_GT(rect.y, head->y + 6);
                EXPECT_LT(rect.y, head->y + 14);
                EXPECT_LT(rect.y + 22, panel.y + panel.h - 46 - 8);
                EXPECT_EQ(rect.label, std::string(1, "rwx"[i]));
                const bool set = 0642 >> bit & 1;
                EXPECT_EQ(at(rect.x + 4, rect.y + 4), set ? p.accent : p.control) << bit;
                EXPECT_EQ(at(rect.x + 11, rect.y + 0.2), set ? p.accent : p.control_edge);
                EXPECT_EQ(at(rect.x + 11, rect.y + 0.8), set ? p.accent : p.control_edge);
                EXPECT_EQ(at(rect.x + 11, rect.y + 1.2), set ? p.accent : p.control);
                EXPECT_EQ(at(rect.x + 21.7, rect.y + 11), set ? p.accent : p.control_edge);
                EXPECT_EQ(at(rect.x + 22.2, rect.y + 11), p.bar);
                expect_corner(rect.x, rect.y, 3, "bit");
                const PaintedText* letter = nullptr;
                for (const PaintedText& text : painted_texts())
                    if (text.text == rect.label && text.x > rect.x && text.x < rect.x + 22 &&
                        std::abs(text.y - (rect.y + 11)) < 0.6)
                        letter = &text;
                ASSERT_NE(letter, nullptr) << bit;
                EXPECT_EQ(letter->size, 11);
                EXPECT_EQ(letter->color, set ? "#FFFFFF" : p.dim);
                EXPECT_NEAR(letter->x + letter->width / 2, rect.x + 11, 0.6);
            }
        }
        const PaintedText* octal = painted_text("0642");
        ASSERT_NE(octal, nullptr);
        EXPECT_EQ(octal->size, 12.5);
        EXPECT_NEAR(octal->x + octal->width, panel.x + panel.w - 20, 0.01);
        EXPECT_GT(octal->x, panel.x + 150 + 180 + 74);
    }
}

TEST_F(AppProperties, a_click_flips_a_bit_and_the_others_stay) {
    write_file(left() + "/file", "x", 0644);
    ASSERT_EQ(chmod((left() + "/file").c_str(), 04755), 0);
    start();
    open("file");
    EXPECT_NE(painted_text("4755"), nullptr);
    uint32_t wanted = 04755;
    for (int bit = 8; bit >= 0; --bit) {
        press(hit(App::Hit::PermBit, bit));
        wanted ^= 1U << bit;
        EXPECT_EQ(app().m_perm_edit, wanted) << bit;
        char octal[8];
        std::snprintf(octal, sizeof octal, "%04o", wanted);
        EXPECT_NE(painted_text(octal), nullptr);
    }
    for (int bit = 0; bit <= 8; ++bit)
        press(hit(App::Hit::PermBit, bit));
    EXPECT_EQ(app().m_perm_edit, 04755U);
    // No other number is a bit.
    app().click_permission(9);
    app().click_permission(-1);
    EXPECT_EQ(app().m_perm_edit, 04755U);
    // Nothing has been changed yet.
    EXPECT_EQ(mode("file"), 04755U);
}

TEST_F(AppProperties, the_box_of_a_folder_stands_30_below_the_bits) {
    make_dirs(left() + "/folder");
    start();
    for (const char* theme : {"light", "dark"}) {
        open("folder");
        ASSERT_TRUE(pump_until(counted));
        look(theme, 200);
        const App::Rect panel = app().m_overlay_panel;
        const double x = panel.x + 150;
        const double y = hit(App::Hit::PermBit, 8).y + 30;
        const PaintedText* label = painted_text("Also everything inside");
        ASSERT_NE(label, nullptr);
        EXPECT_EQ(label->size, 12.5);
        EXPECT_EQ(label->y, y + 7);
        EXPECT_EQ(label->color, palette().text);
        const App::HitRect rect = button(Action::PermsToggleBit);
        EXPECT_EQ(rect.label, "Also everything inside");
        EXPECT_LE(rect.x, x);
        EXPECT_LE(rect.y, y);
        EXPECT_GE(rect.x + rect.w, label->x + label->width);
        EXPECT_GE(rect.y + rect.h, y + 14);
        EXPECT_LT(rect.y + rect.h, panel.y + panel.h - 46);
        for (const bool on : {false, true}) {
            EXPECT_EQ(app().m_perm_recursive, on);
            EXPECT_EQ(at(x + 2, y + 3), on ? palette().accent : palette().control);
            EXPECT_EQ(at(x + 7, y + 0.2), palette().control_edge);
            EXPECT_EQ(at(x + 7, y + 13.7), palette().control_edge);
            EXPECT_EQ(at(x + 13.7, y + 7), palette().control_edge);
            EXPECT_EQ(at(x + 14.2, y + 7), palette().bar);
            EXPECT_EQ(at(x + 7, y + 14.2), palette().bar);
            press(rect);
        }
        EXPECT_FALSE(app().m_perm_recursive);
    }
}

// --- Applying ---------------------------------------------------------------------------------

TEST_F(AppProperties, applied_bits_are_read_again_and_the_dialogue_stays) {
    write_file(left() + "/file", "x", 0644);
    start();
    settings().show_permissions = true;
    const App::Rect panel = open("file");
    const App::HitRect apply = button(Action::PermsApply);
    EXPECT_EQ(apply.y, panel.y + panel.h - 46);
    EXPECT_EQ(apply.label, "Apply");
    EXPECT_EQ(at(apply.x + 6, apply.y + 15), palette().accent);
    EXPECT_EQ(button(Action::OverlayCancel).y, panel.y + panel.h - 46);
    EXPECT_LT(button(Action::OverlayCancel).x, apply.x);
    press(hit(App::Hit::PermBit, 5));  // the group's right to read
    EXPECT_EQ(mode("file"), 0644U);
    write_file(left() + "/file", "four more", 0644);
    press(apply);
    EXPECT_EQ(mode("file"), 0604U);
    EXPECT_TRUE(logged("chmod 0604 " + left() + "/file"));
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    EXPECT_EQ(app().m_properties.permissions, "-rw----r--");
    EXPECT_EQ(app().m_properties.size, 9);
    EXPECT_EQ(app().m_perm_edit, 0604U);
    EXPECT_NE(painted_text("-rw----r--"), nullptr);  // in the list below
    // And once more, from there.
    press(hit(App::Hit::PermBit, 5));
    press(button(Action::PermsApply));
    EXPECT_EQ(mode("file"), 0644U);
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
}

TEST_F(AppProperties, a_folder_is_changed_with_all_inside_only_if_the_box_says_so) {
    make_dirs(left() + "/folder/inner");
    write_file(left() + "/folder/inner/file", "x", 0600);
    write_file(left() + "/outside", "x", 0600);
    ASSERT_EQ(symlink((left() + "/outside").c_str(), (left() + "/folder/link").c_str()), 0);
    start();
    open("folder");
    app().m_perm_edit = 0750;
    press(button(Action::PermsApply));
    EXPECT_EQ(mode("folder"), 0750U);
    EXPECT_EQ(mode("folder/inner"), 0755U);
    EXPECT_EQ(mode("folder/inner/file"), 0600U);
    press(button(Action::PermsToggleBit));
    app().m_perm_edit = 0640;
    press(button(Action::PermsApply));
    EXPECT_TRUE(logged("chmod 0640 -R " + left() + "/folder"));
    EXPECT_EQ(mode("folder"), 0750U);
    EXPECT_EQ(mode("folder/inner"), 0750U);
    EXPECT_EQ(mode("folder/inner/file"), 0640U);
    EXPECT_EQ(mode("outside"), 0600U);
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    EXPECT_EQ(app().m_perm_edit, 0750U);
    // A file has no inside, whatever an earlier dialogue was told.
    open("outside");
    app().m_perm_recursive = true;
    press(button(Action::PermsApply));
    EXPECT_TRUE(logged("chmod 0600 " + left() + "/outside"));
    ASSERT_TRUE(pump_until(counted));
}

TEST_F(AppProperties, a_failure_takes_the_place_of_the_dialogue) {
    write_file(left() + "/file", "x");
    start();
    open("file");
    unlink((left() + "/file").c_str());
    app().perform(Action::PermsApply, 0);
    EXPECT_EQ(app().m_overlay, Overlay::Message);
    EXPECT_TRUE(app().m_overlay_is_error);
    EXPECT_EQ(app().m_overlay_text.find("The permissions could not be changed.: "), 0U)
        << app().m_overlay_text;
    EXPECT_EQ(names(), std::vector<std::string>{".."}) << "the lists are read again";
}

TEST_F(AppProperties, a_link_put_in_the_entrys_place_is_not_followed) {
    write_file(left() + "/mine", "x");
    write_file(right() + "/theirs", "x", 0600);
    start();
    open("mine");
    ASSERT_EQ(unlink((left() + "/mine").c_str()), 0);
    ASSERT_EQ(symlink((right() + "/theirs").c_str(), (left() + "/mine").c_str()), 0);
    app().m_perm_edit = 0777;
    press(button(Action::PermsApply));
    EXPECT_EQ(app().m_overlay, Overlay::Message);
    EXPECT_EQ(app().m_overlay_text, left() + "/mine: Too many levels of symbolic links");
    struct stat theirs {};
    ASSERT_EQ(stat((right() + "/theirs").c_str(), &theirs), 0);
    EXPECT_EQ(theirs.st_mode & 07777, 0600U);
}

TEST_F(AppProperties, without_the_dialogue_nothing_is_applied) {
    write_file(left() + "/file", "x", 0644);
    start();
    open("file");
    app().m_perm_edit = 0600;
    app().close_overlay();
    app().perform(Action::PermsApply, 0);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(mode("file"), 0644U);
    app().show_message("title", "text");
    app().perform(Action::PermsApply, 0);
    EXPECT_EQ(app().m_overlay_text, "text");
    EXPECT_EQ(mode("file"), 0644U);
}

TEST_F(AppProperties, a_link_starts_from_what_it_points_to) {
    write_file(left() + "/target", "x", 0640);
    make_dirs(left() + "/folder");
    ASSERT_EQ(symlink("target", (left() + "/link").c_str()), 0);
    ASSERT_EQ(symlink("folder", (left() + "/to_folder").c_str()), 0);
    start();
    open("link");
    EXPECT_EQ(fact("Points to"), "target");
    EXPECT_EQ(app().m_perm_edit, 0640U);
    press(hit(App::Hit::PermBit, 2));
    press(button(Action::PermsApply));
    EXPECT_EQ(mode("target"), 0644U);
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    EXPECT_EQ(app().m_perm_edit, 0644U);
    open("to_folder");
    EXPECT_EQ(app().m_perm_edit, 0755U);
    EXPECT_FALSE(has_button(Action::PermsToggleBit));
    EXPECT_TRUE(has_button(Action::PermsApply));
}

TEST_F(AppProperties, a_broken_link_has_nothing_to_apply) {
    ASSERT_EQ(symlink("nowhere", (left() + "/link").c_str()), 0);
    start();
    open("link");
    EXPECT_EQ(fact("Points to"), "nowhere");
    EXPECT_FALSE(has_button(Action::PermsApply));
    EXPECT_TRUE(has_button(Action::OverlayCancel));
    EXPECT_EQ(count_hits(App::Hit::PermBit), 0U);
    EXPECT_EQ(count_hits(App::Hit::OwnerField), 0U);
    app().perform(Action::PermsApply, 0);
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    // The next entry has everything again.
    write_file(left() + "/file", "x");
    open("file");
    EXPECT_TRUE(has_button(Action::PermsApply));
    EXPECT_EQ(count_hits(App::Hit::PermBit), 9U);
}

// --- Owner ------------------------------------------------------------------------------------

TEST_F(AppProperties, only_root_edits_the_owner) {
    write_file(left() + "/file", "x");
    start();
    open("file");
    EXPECT_EQ(app().m_owner_editable, running_as_root());
    app().m_owner_editable = true;
    app().m_properties.owner = app().m_owner_text[0] = "some";
    app().m_properties.group = app().m_owner_text[1] = "body";
    const App::Rect panel = paint();
    EXPECT_NE(painted_text("Owner and group"), nullptr);
    EXPECT_EQ(painted_text("Owner"), nullptr);
    EXPECT_EQ(painted_text("some : body"), nullptr);
    const App::HitRect user = hit(App::Hit::OwnerField, 0);
    const App::HitRect group = hit(App::Hit::OwnerField, 1);
    EXPECT_EQ(user.x, panel.x + 150);
    EXPECT_LT(user.x + user.w, group.x);
    EXPECT_LE(group.x + group.w, panel.x + panel.w - 20);
    EXPECT_LE(user.h, 24);
    EXPECT_EQ(user.y + user.h / 2, painted_text("Owner and group")->y);
    EXPECT_EQ(user.label, "some");
    EXPECT_EQ(group.label, "body");
    const PaintedText* name = painted_text("some");
    ASSERT_NE(name, nullptr);
    EXPECT_GT(name->x, user.x);
    EXPECT_GT(painted_text("body")->x, group.x);
    EXPECT_EQ(at(user.x + 20, user.y + 2), palette().control);
    EXPECT_EQ(at(user.x + 20, user.y), palette().control_edge);
    as_ordinary_user();
    EXPECT_EQ(fact("Owner"), "some : body");
    EXPECT_EQ(count_hits(App::Hit::OwnerField), 0U);
    key(GDK_KEY_Tab);
    type("x");
    EXPECT_EQ(app().m_owner_text[0], "some");
}

TEST_F(AppProperties, the_owners_fields_take_clicks_and_keys) {
    write_file(left() + "/file", "x");
    start();
    open("file");
    app().m_owner_editable = true;
    app().m_owner_text[0] = "some";
    app().m_owner_text[1] = "body";
    app().m_owner_caret[0] = app().m_owner_caret[1] = 4;
    paint();
    type("z");
    EXPECT_EQ(app().m_owner_text[0], "some") << "no field has the keyboard yet";
    key(GDK_KEY_Tab);
    EXPECT_EQ(app().m_owner_focus, 0);
    type("one");
    EXPECT_EQ(app().m_owner_text[0], "someone");
    key(GDK_KEY_BackSpace);
    key(GDK_KEY_Home);
    key(GDK_KEY_Delete);
    type("t");
    EXPECT_EQ(app().m_owner_text[0], "tomeon");
    key(GDK_KEY_End);
    key(GDK_KEY_Left);
    type("o");
    EXPECT_EQ(app().m_owner_text[0], "tomeoon");
    key(GDK_KEY_Tab);
    EXPECT_EQ(app().m_owner_focus, 1);
    type("!");
    key(GDK_KEY_ISO_Left_Tab);
    EXPECT_EQ(app().m_owner_focus, 0);
    // A click puts the caret where it is.
    const App::HitRect group = hit(App::Hit::OwnerField, 1);
    app().handle_click(group.x + 7, group.y + 10, 1, 0, 1);
    EXPECT_EQ(app().m_owner_focus, 1);
    EXPECT_EQ(app().m_owner_caret[1], 0U);
    paint();
    EXPECT_EQ(at(group.x + 20, group.y), palette().accent);
    EXPECT_NE(at(group.x + 5.5, group.y + 10), palette().control) << "the caret";
    app().handle_click(group.x + group.w - 3, group.y + 10, 1, 0, 1);
    EXPECT_EQ(app().m_owner_caret[1], app().m_owner_text[1].size());
    EXPECT_EQ(app().focused_field(), (App::FieldFocus{App::TextField::Owner, 1}));
    app().m_owner_editable = false;
    EXPECT_EQ(app().focused_field(), App::FieldFocus{});
    app().m_owner_editable = true;
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(app().focused_field(), App::FieldFocus{});
    // The next dialogue begins without.
    open("file");
    EXPECT_EQ(app().m_owner_focus, -1);
}

TEST_F(AppProperties, an_input_method_works_in_the_owners_fields) {
    write_file(left() + "/file", "x");
    start();
    open("file");
    app().m_owner_editable = true;
    app().m_owner_text[0] = "ab";
    app().m_owner_caret[0] = 2;
    key(GDK_KEY_Tab);
    app().sync_input_method();
    app().input_method_commits("ü");
    EXPECT_EQ(app().m_owner_text[0], "abü");
    EXPECT_TRUE(app().delete_surrounding(-1, 1));
    EXPECT_EQ(app().m_owner_text[0], "ab");
    EXPECT_EQ(app().m_owner_caret[0], 2U);
}

TEST_F(AppProperties, root_changes_the_owner_together_with_the_bits) {
    if (!running_as_root())
        GTEST_SKIP() << "needs root";
    write_file(left() + "/file", "x");
    make_dirs(left() + "/folder/inner");
    ASSERT_EQ(chmod((left() + "/file").c_str(), 04755), 0);
    start();
    open("file");
    EXPECT_EQ(app().m_owner_text[0], "root");
    EXPECT_EQ(app().m_owner_text[1], app().m_properties.group);
    // Untouched fields change nothing.
    press(button(Action::PermsApply));
    for (const std::string& line : log_lines())
        EXPECT_NE(line.find("chown"), 0U) << line;
    app().m_owner_text[1] = "daemon";
    press(button(Action::PermsApply));
    EXPECT_TRUE(logged("chown :daemon " + left() + "/file"));
    EXPECT_EQ(lstat_of(left() + "/file").st_gid, 1U);
    EXPECT_EQ(lstat_of(left() + "/file").st_uid, 0U);
    // A change of the owner takes this bit away.
    EXPECT_EQ(mode("file"), 04755U);
    EXPECT_EQ(app().m_properties.group, "daemon");
    app().m_owner_text[0] = "daemon";
    press(button(Action::PermsApply));
    EXPECT_TRUE(logged("chown daemon: " + left() + "/file"));
    EXPECT_EQ(lstat_of(left() + "/file").st_uid, 1U);
    EXPECT_EQ(app().m_overlay, Overlay::Properties);
    EXPECT_EQ(app().m_properties.owner, "daemon");

    open("folder");
    app().m_owner_text[0] = "daemon";
    press(button(Action::PermsToggleBit));
    press(button(Action::PermsApply));
    EXPECT_EQ(lstat_of(left() + "/folder/inner").st_uid, 1U);
    ASSERT_TRUE(pump_until(counted));

    open("file");
    app().m_owner_text[0] = "no-such-user";
    app().m_perm_edit = 0600;
    press(button(Action::PermsApply));
    EXPECT_EQ(app().m_overlay, Overlay::Message);
    EXPECT_EQ(app().m_overlay_text, std::string(tr("err.chown_failed")) + ": no-such-user");
    EXPECT_EQ(mode("file"), 0600U);
}

// --- Room and log -----------------------------------------------------------------------------

TEST_F(AppProperties, in_a_low_window_the_facts_make_room_and_scroll) {
    make_dirs(left() + "/folder");
    start();
    open("folder");
    ASSERT_TRUE(pump_until(counted));
    EXPECT_FALSE(app().m_overlay_scrolls);
    settings().font_scale = 200;
    for (const char* language : {"en", "de", "ar", "ja"}) {
        I18n::instance().set_language(language);
        app().m_list_scroll = 0;
        App::Rect panel = paint(1000, 700);
        EXPECT_EQ(panel.h, 310);
        EXPECT_TRUE(app().m_overlay_scrolls);
        EXPECT_EQ(app().m_overlay_page, 3);
        const double foot = panel.y + panel.h - 46;
        for (int bit = 0; bit <= 8; ++bit) {
            const App::HitRect rect = hit(App::Hit::PermBit, bit);
            EXPECT_GT(rect.y, painted_text(tr("prop.size"))->y + 24);
            EXPECT_LT(rect.y + rect.h, foot);
        }
        EXPECT_LT(button(Action::PermsToggleBit).y + button(Action::PermsToggleBit).h, foot);
        EXPECT_NE(painted_text(tr("prop.path")), nullptr);
        EXPECT_EQ(painted_text(tr("prop.free_space")), nullptr);
        app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
        paint(1000, 700);
        EXPECT_EQ(app().m_list_scroll, 3);
        EXPECT_EQ(painted_text(tr("prop.path")), nullptr);
        EXPECT_NE(painted_text(tr("prop.free_space")), nullptr);
        EXPECT_EQ(count_hits(App::Hit::LogVThumb), 1U);
    }
}

TEST_F(AppProperties, texts_40_percent_longer_do_not_run_into_one_another) {
    make_dirs(left() + "/folder");
    start();
    open("folder");
    ASSERT_TRUE(pump_until(counted));
    test_env::stretch_texts(1.4);
    for (const char* language : {"en", "de", "ar", "ja", "fi", "el"}) {
        I18n::instance().set_language(language);
        for (const int scale : {100, 200}) {
            settings().font_scale = scale;
            const App::Rect panel = paint(scale == 100 ? 1100 : 1000, scale == 100 ? 720 : 700);
            for (const PaintedText& text : painted_texts()) {
                if (text.x == panel.x + 20 && text.size == 11) {
                    EXPECT_LT(text.x + text.width, panel.x + 150) << text.text;
                }
            }
            const std::vector<App::HitRect> rects = [&] {
                std::vector<App::HitRect> found;
                for (const App::HitRect& one : app().m_hits)
                    if (one.in_overlay)
                        found.push_back(one);
                return found;
            }();
            for (const App::HitRect& a : rects) {
                EXPECT_LE(a.x + a.w, panel.x + panel.w);
                for (const App::HitRect& b : rects) {
                    const bool apart = &a == &b || a.x + a.w <= b.x || b.x + b.w <= a.x ||
                                       a.y + a.h <= b.y || b.y + b.h <= a.y;
                    EXPECT_TRUE(apart) << language << a.label << b.label;
                }
            }
        }
    }
}

TEST_F(AppProperties, the_log_lists_the_bits_and_the_buttons) {
    make_dirs(left() + "/folder");
    start();
    Log::instance().clear();
    open("folder");
    EXPECT_TRUE(logged(std::string("dialog opened: Properties — ") +
                       (running_as_root() ? "14" : "12") + " Auswahlen [Properties]"));
    for (const char* line :
         {"  option PermBit#8                    r", "  option PermBit#7                    w",
          "  option PermBit#0                    x",
          "  option PermsToggleBit               Also everything inside",
          "  option PermsApply                   Apply",
          "  option OverlayCancel                Close"})
        EXPECT_TRUE(logged(line)) << line;
    ASSERT_TRUE(pump_until(counted));
    key(GDK_KEY_Escape);
    EXPECT_TRUE(logged("dialog closed: Properties"));
}

}  // namespace
