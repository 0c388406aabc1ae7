// The question about a name that is taken, and the list of what has failed: painted alone in a
// window of 1100 by 720, and lived through with the real engine.

#include "app_fixture.h"
#include "app_paint_alone.h"

#include "as_user.h"
#include "fresh_process.h"
#include "run_engine.h"
#include "test_env.h"
#include "wait_until.h"

#include "elevate.h"
#include "format.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <gdk/gdkkeysyms.h>
#include <initializer_list>
#include <map>
#include <set>
#include <sys/stat.h>

namespace {

using copy_engine::FailedItem;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::read_file;
using test_env::write_file;

class TransferDialogue : public PaintAlone {
  protected:
    ~TransferDialogue() override { I18n::instance().set_language("en"); }

    void draw(App::Overlay overlay, double w = 1100, double h = 720) {
        app().m_overlay = overlay;
        paint(w, h, [this] { app().draw_overlay(); });
    }
    const App::Rect& panel() { return app().m_overlay_panel; }
    const App::HitRect& button(Action action) {
        static const App::HitRect none;
        const App::HitRect* const found = hit(App::Hit::Overlay, static_cast<int>(action));
        EXPECT_TRUE(found);
        return found ? *found : none;
    }
    static bool shows(const std::string& text) { return painted_text(text) != nullptr; }
    // Whether a text on that ground reaches to x and ends there.
    bool ends_at(double x, double y, const std::string& ground) const {
        const auto inked = [&](double left, double w) {
            for (double py = y - 6; py < y + 6; ++py)
                for (double px = left; px < left + w; ++px)
                    if (!near(at(px, py), rgb(ground)))
                        return true;
            return false;
        };
        return inked(x - 16, 16) && !inked(x + 1, 3);
    }
    double width(const std::string& text, double size) {
        double found = 0;
        paint(10, 10, [&] { found = app().text_width(text, size, false, false); });
        return found;
    }
};

class Conflict : public TransferDialogue {
  protected:
    Conflict() {
        copy_engine::ConflictRequest& q = copy().conflict;
        q.pending = true;
        q.source_path = "/from/report.txt";
        q.target_path = "/to/the report.txt";
        q.source_size = 123456789;
        q.target_size = 42;
        q.source_mtime = 1'700'000'000;
        q.target_mtime = 1'600'000'000;
    }
    copy_engine::ConflictRequest& question() { return copy().conflict; }
    void draw() { TransferDialogue::draw(App::Overlay::Conflict); }
    static std::string local(int64_t t, const char* format) {
        const time_t seconds = t;
        struct tm parts = {};
        localtime_r(&seconds, &parts);
        char text[64];
        strftime(text, sizeof text, format, &parts);
        return text;
    }
};

TEST_F(Conflict, names_the_file_that_is_there) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        EXPECT_EQ(panel(), (App::Rect{240, 201, 620, 318}));
        const auto [x, y, w, h] = panel();
        expect_text("This file is already there:", x + 20, y + 66, 12.5, look.text);
        expect_text("the report.txt", x + 20, y + 88, 12.5, look.warn);
    }
    question().target_path = "/to/" + std::string(300, 'm');
    draw();
    EXPECT_TRUE(ends_at(panel().x + 600, panel().y + 88, palette().bar));
}

TEST_F(Conflict, shows_both_files_on_cards_of_equal_width) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        const auto [x, y, w, h] = panel();
        for (const double left : {x + 20, x + 320}) {
            expect_color(left, y + 150, look.pane, "left edge");
            expect_color(left - 1, y + 150, look.bar, "before");
            expect_color(left + 279, y + 150, look.pane, "right edge");
            expect_color(left + 280, y + 150, look.bar, "behind");
            expect_color(left + 140, y + 114, look.pane, "top");
            expect_color(left + 140, y + 113, look.bar, "above");
            expect_color(left + 140, y + 187, look.pane, "bottom");
            expect_color(left + 240, y + 188, look.bar, "below");
            expect_color(left, y + 114, look.bar, "rounded corner");
        }
        const PaintedText incoming = *painted_text("Incoming");
        const PaintedText existing = *painted_text("Already there");
        EXPECT_EQ(incoming.color, look.accent);
        EXPECT_EQ(existing.color, look.secondary);
        EXPECT_EQ(incoming.x, x + 32);
        EXPECT_EQ(existing.x, x + 332);
        EXPECT_EQ(incoming.y, existing.y);
        const PaintedText size = *painted_text(fmt::bytes(123456789));
        EXPECT_GT(size.y - incoming.y, 12);
        expect_text(fmt::bytes(123456789), x + 32, size.y, 12.5, look.text);
        expect_text(fmt::bytes(42), x + 332, size.y, 12.5, look.text);
        expect_text(local(1'700'000'000, "%m/%d/%y %H:%M"), x + 32, size.y + 16, 11,
                    look.secondary);
        expect_text(local(1'600'000'000, "%m/%d/%y %H:%M"), x + 332, size.y + 16, 11,
                    look.secondary);
        // All of it within its card.
        EXPECT_GT(incoming.y - 8, y + 114);
        EXPECT_LT(size.y + 16 + 8, y + 188);
    }
}

TEST_F(Conflict, writes_the_date_as_the_language_does) {
    I18n::instance().set_language("de");
    draw();
    const std::string format = std::string(I18n::instance().date_format()) + " %H:%M";
    EXPECT_NE(format, "%m/%d/%y %H:%M");
    EXPECT_TRUE(shows(local(1'700'000'000, format.c_str())));
    EXPECT_TRUE(shows(local(1'600'000'000, format.c_str())));
}

TEST_F(Conflict, a_time_that_is_none_is_a_dash) {
    for (const int64_t none : {int64_t{0}, int64_t{-5}}) {
        question().source_mtime = none;
        draw();
        const PaintedText* const dash = painted_text("—");
        ASSERT_TRUE(dash);
        EXPECT_EQ(dash->x, panel().x + 32);
        EXPECT_FALSE(shows("The incoming file is newer."));
        EXPECT_FALSE(shows("The file already there is newer."));
    }
    question().source_mtime = 1;
    question().target_mtime = 0;
    draw();
    EXPECT_EQ(painted_text("—")->x, panel().x + 332);
    EXPECT_FALSE(shows("The incoming file is newer."));
}

TEST_F(Conflict, says_which_file_is_newer) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        question().source_mtime = 1'700'000'000;
        draw();
        const auto [x, y, w, h] = panel();
        expect_text("The incoming file is newer.", x + 20, y + 196, 11, look.ok);
        EXPECT_FALSE(shows("The file already there is newer."));
        question().source_mtime = 1'599'999'999;
        draw();
        expect_text("The file already there is newer.", x + 20, y + 196, 11, look.warn);
        EXPECT_FALSE(shows("The incoming file is newer."));
        question().source_mtime = question().target_mtime;
        draw();
        EXPECT_FALSE(shows("The file already there is newer."));
        EXPECT_FALSE(shows("The incoming file is newer."));
    }
}

TEST_F(Conflict, has_a_box_for_all_that_remain) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        for (const bool all : {false, true}) {
            app().m_conflict_apply_all = all;
            draw();
            const auto [x, y, w, h] = panel();
            const double top = y + 220 - 8;
            expect_text("Do this for all remaining files", x + 44, y + 220, 11, look.text);
            const App::HitRect box = button(Action::ConflictToggleAll);
            EXPECT_EQ(box.x, x + 20);
            EXPECT_EQ(box.y, y + 210);
            EXPECT_EQ(box.w, painted_text("Do this for all remaining files")->width + 28);
            EXPECT_EQ(box.h, 20);
            EXPECT_TRUE(box.in_overlay);
            EXPECT_EQ(box.label, "Do this for all remaining files");
            expect_color(x + 22, top + 2, all ? look.accent : look.control, "fill");
            for (const double edge : {0.0, 15.0}) {
                expect_color(x + 28, top + edge, look.control_edge, "edge");
                expect_color(x + 20 + edge, top + 8, look.control_edge, "edge");
            }
            expect_color(x + 19, top + 8, look.bar, "before");
            expect_color(x + 36, top + 8, look.bar, "behind");
            expect_color(x + 28, top - 1, look.bar, "above");
            expect_color(x + 28, top + 16, look.bar, "below");
            expect_color(x + 20, top, look.bar, "rounded corner");
            // From (3.5, 8) through (6.5, 11.5) to (12.5, 4.5).
            const auto light = [&, left = x](double px, double py) {
                const Rgb c = at(left + 20 + px, top + py);
                return std::min({c.r, c.g, c.b});
            };
            for (const auto& [px, py] : {std::pair{6.0, 10.0}, {9.0, 7.0}, {11.0, 5.0}, {4.0, 8.0}})
                if (all) {
                    EXPECT_GT(light(px, py), 0.7) << px << " " << py;
                }
            if (all) {
                expect_color(x + 20 + 4, top + 4, look.accent, "above the tick");
                expect_color(x + 20 + 12, top + 11, look.accent, "below the tick");
            }
        }
    }
}

TEST_F(Conflict, offers_two_rows_of_answers_of_which_the_safe_one_stands_out) {
    struct Case {
        Action action;
        const char* label;
        double up;  // from the panel's bottom
        char kind;
    };
    const Case rows[][3] = {{{Action::ConflictRenameNew, "Keep both", 82, ' '},
                             {Action::ConflictRenameExisting, "Rename the old one", 82, ' '},
                             {Action::ConflictOverwriteIfNewer, "Only if newer", 82, ' '}},
                            {{Action::ConflictCancel, "Stop everything", 44, 'd'},
                             {Action::ConflictOverwrite, "Overwrite", 44, 'd'},
                             {Action::ConflictSkip, "Skip", 44, 'p'}}};
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        for (const auto& row : rows) {
            double right = panel().x + panel().w - 20;
            for (int i = 2; i >= 0; --i) {
                const App::HitRect at = button(row[i].action);
                EXPECT_EQ(at.label, row[i].label);
                EXPECT_EQ(at.y, panel().y + panel().h - row[i].up) << row[i].label;
                EXPECT_EQ(at.h, 30);
                EXPECT_NEAR(at.x + at.w, right, 0.01) << row[i].label;
                right = at.x - 8;
                const std::string fill = row[i].kind == 'd'   ? look.danger_bg
                                         : row[i].kind == 'p' ? look.accent
                                                              : look.control;
                expect_color(at.x + 5, at.y + 24, fill, row[i].label);
                EXPECT_EQ(painted_text(row[i].label)->color, row[i].kind == 'd' ? look.danger
                                                             : row[i].kind == 'p'
                                                                 ? "#FFFFFF"
                                                                 : look.control_text);
            }
        }
    }
    EXPECT_EQ(app().m_hits.size(), 7U);
}

// The second row's letters replace the first's, which stay underlined.
TEST_F(Conflict, only_the_lower_rows_letters_act) {
    draw();
    EXPECT_EQ(app().m_overlay_accels, (std::map<char, Action>{{'S', Action::ConflictCancel},
                                                              {'O', Action::ConflictOverwrite},
                                                              {'K', Action::ConflictSkip}}));
    for (const Action action : {Action::ConflictRenameNew, Action::ConflictRenameExisting,
                                Action::ConflictOverwriteIfNewer}) {
        const PaintedText label = *painted_text(button(action).label);
        expect_color(label.x + 2, button(action).y + 15 + 8, palette().control_text, label.text);
    }
}

// Between the answer and the tick that closes the dialogue.
TEST_F(Conflict, a_question_that_is_gone_is_empty) {
    question().pending = false;
    draw();
    EXPECT_FALSE(shows("the report.txt"));
    EXPECT_FALSE(shows("The incoming file is newer."));
    EXPECT_TRUE(shows(fmt::bytes(0)));
    EXPECT_FALSE(shows(fmt::bytes(42)));
    EXPECT_TRUE(shows("—"));
    EXPECT_TRUE(shows("This file is already there:"));
}

TEST_F(Conflict, a_folder_has_no_bytes_of_its_own) {
    question().is_dir = true;
    question().source_size = question().target_size = 4096;
    draw();
    EXPECT_FALSE(shows(fmt::bytes(4096)));
    ASSERT_TRUE(shows("—"));
    EXPECT_EQ(painted_text("—")->size, 12.5);
}

TEST_F(Conflict, fits_its_panel_in_every_language) {
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        const bool picture = wants_pictures(language.code);
        for (const int scale : {70, 100, 200}) {
            if (scale != 100 && !picture)
                continue;
            app().m_ui_scale = scale / 100.0;
            for (const bool dark : {false, true}) {
                if (dark && !picture)
                    continue;
                app().m_palette = dark ? Palette::dark_() : Palette::light();
                app().m_conflict_apply_all = dark;
                // At 200 % of the smallest window the panel itself is cut.
                TransferDialogue::draw(App::Overlay::Conflict,
                                       std::max(660.0, 1000 / app().m_ui_scale),
                                       std::max(360.0, 700 / app().m_ui_scale));
                const std::string name = "conflict-" + language.code +
                                         (dark ? "-dark-" : "-light-") + std::to_string(scale);
                for (const App::HitRect& rect : app().m_hits) {
                    EXPECT_GE(rect.x, panel().x + 19.9) << name << " " << rect.label;
                    EXPECT_LE(rect.x + rect.w, panel().x + panel().w - 19.9) << name;
                    for (const App::HitRect& other : app().m_hits)
                        EXPECT_FALSE(&other != &rect && other.x < rect.x + rect.w &&
                                     rect.x < other.x + other.w && other.y < rect.y + rect.h &&
                                     rect.y < other.y + other.h)
                            << name << " " << rect.label << " " << other.label;
                }
                for (const PaintedText& text : painted_texts())
                    EXPECT_LE(text.x + text.width, panel().x + panel().w) << name << text.text;
                if (picture)
                    shot(name);
            }
        }
    }
    app().m_ui_scale = 1;
}

// Twice as large in the smallest window there is less room than the panel wants.
TEST_F(Conflict, can_be_answered_in_the_smallest_window_in_every_language) {
    app().m_ui_scale = 2;
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        TransferDialogue::draw(App::Overlay::Conflict, 500, 350);
        EXPECT_EQ(panel().w, 460);
        EXPECT_EQ(app().m_hits.size(), 7U);
        for (const App::HitRect& rect : app().m_hits) {
            // The longest labels pass the left edge, but none is out of reach.
            EXPECT_GE(rect.x + rect.w, 40) << language.code << " " << rect.label;
            EXPECT_LE(rect.x + rect.w, 500) << language.code << " " << rect.label;
            EXPECT_GE(rect.y, panel().y) << language.code << " " << rect.label;
            EXPECT_LE(rect.y + rect.h, panel().y + panel().h) << language.code << " " << rect.label;
        }
        if (wants_pictures(language.code))
            shot("conflict-smallest-" + language.code);
    }
    app().m_ui_scale = 1;
}

// --- Errors -----------------------------------------------------------------------------------

class Errors : public TransferDialogue {
  protected:
    Errors() { app().m_overlay_title = "Errors"; }
    void draw(double w = 1100, double h = 720) {
        TransferDialogue::draw(App::Overlay::Errors, w, h);
    }
    void fail(int count, int code = EIO, const char* target = "/to/x") {
        for (int i = 0; i < count; ++i)
            copy().failures.push_back({"/from/" + std::to_string(i), target, "no luck", 3, code});
    }
    std::vector<PaintedText> rows() {
        std::vector<PaintedText> found;
        for (const PaintedText& text : painted_texts())
            if (text.x == panel().x + 28)
                found.push_back(text);
        return found;
    }
};

TEST_F(Errors, lists_what_both_workers_have_failed_at) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        copy().failures.clear();
        fail(2);
        copy().failures_total = 700;  // of which these are kept
        task().failures = {"/old: in use"};
        draw();
        EXPECT_EQ(panel().w, 640);
        EXPECT_EQ(panel().h, 3 * 18 + 26 + 144);
        const auto [x, y, w, h] = panel();
        expect_text("3 entries failed", x + 20, y + 68, 12.5, look.danger);
        expect_text("/from/0 — no luck", x + 28, y + 88 + 14, 11, look.text);
        expect_text("/from/1 — no luck", x + 28, y + 88 + 32, 11, look.text);
        expect_text("/old: in use", x + 28, y + 88 + 50, 11, look.text);
        EXPECT_EQ(rows().size(), 3U);
        const double bottom = y + 88 + h - 144;
        expect_color(x + 16, y + 100, look.pane, "left edge");
        expect_color(x + 15, y + 100, look.bar, "before");
        expect_color(x + w - 17, y + 100, look.pane, "right edge");
        expect_color(x + w - 16, y + 100, look.bar, "behind");
        expect_color(x + 300, y + 88, look.pane, "top");
        expect_color(x + 300, y + 87, look.bar, "above");
        expect_color(x + 300, bottom - 1, look.pane, "bottom");
        expect_color(x + 300, bottom, look.bar, "below");
        expect_color(x + 16, y + 88, look.bar, "rounded corner");
    }
}

TEST_F(Errors, none_is_a_count_of_nothing_and_an_empty_box) {
    draw();
    EXPECT_EQ(panel().h, 188);
    EXPECT_TRUE(shows("0 entries failed"));
    EXPECT_TRUE(rows().empty());
    expect_color(panel().x + 300, panel().y + 100, palette().pane, "box");
    EXPECT_EQ(app().m_hits.size(), 1U);
}

TEST_F(Errors, a_long_line_is_cut_within_the_box) {
    copy().failures.push_back({"/" + std::string(300, 'm'), "", "gone", 1, EIO});
    draw();
    EXPECT_TRUE(ends_at(panel().x + 640 - 28, panel().y + 88 + 14, palette().pane));
}

TEST_F(Errors, as_many_rows_as_fit_and_then_a_line_that_says_so) {
    fail(60);
    task().failures.assign(40, "of a task");
    draw();
    EXPECT_EQ(panel().h, 524);
    EXPECT_TRUE(shows("100 entries failed"));
    // The box is 380 high: rows at 14, 32, ... 338, and the last one at 356. One more would pass
    // it.
    const std::vector<PaintedText> found = rows();
    ASSERT_EQ(found.size(), 20U);
    for (size_t i = 0; i < 19; ++i) {
        EXPECT_EQ(found[i].text, "/from/" + std::to_string(i) + " — no luck");
        EXPECT_EQ(found[i].y, panel().y + 88 + 14 + 18 * static_cast<double>(i));
    }
    expect_text("… further entries not listed.", panel().x + 28, panel().y + 88 + 356, 11,
                palette().secondary);
    // Twenty fit.
    copy().failures.resize(20);
    task().failures.clear();
    draw();
    EXPECT_EQ(panel().h, 524);
    EXPECT_EQ(rows().size(), 20U);
    EXPECT_FALSE(shows("… further entries not listed."));
    // Nineteen have a box of their own size.
    copy().failures.resize(19);
    draw();
    EXPECT_EQ(panel().h, 19 * 18 + 26 + 144);
    EXPECT_EQ(rows().size(), 19U);
    EXPECT_FALSE(shows("… further entries not listed."));
}

TEST_F(Errors, a_low_window_shows_fewer) {
    fail(10);
    draw(1100, 400);
    EXPECT_EQ(panel().h, 280);  // 120 less than the window
    // A box of 136: rows at 14 to 104, and the line at 122.
    EXPECT_EQ(rows().size(), 7U);
    EXPECT_EQ(rows().back().text, "… further entries not listed.");
    EXPECT_EQ(rows().back().y, panel().y + 88 + 122);
    // The last of all needs no line in its place where it fits itself.
    copy().failures.resize(7);
    draw(1100, 400);
    EXPECT_EQ(rows().back().text, "/from/6 — no luck");
    draw(1100, 394);
    EXPECT_EQ(rows().back().text, "… further entries not listed.");
    // What does not fit into the box is not seen outside it.
    draw(1100, 270);
    EXPECT_EQ(panel().h, 150);
    for (double px = panel().x + 20; px < panel().x + 200; ++px)
        for (double py = panel().y + 94; py < panel().y + 104; ++py)
            ASSERT_TRUE(near(at(px, py), rgb(palette().bar))) << px << " " << py;
    // Nor does anything break without room for a box.
    draw(1100, 200);
    EXPECT_TRUE(shows("7 entries failed"));
    EXPECT_TRUE(rows().empty());
}

TEST_F(Errors, the_retry_is_offered_where_roots_rights_may_help) {
    struct Case {
        int code;
        const char* target;
        bool counts;
    };
    app().m_can_elevate = true;
    for (const Case& c :
         {Case{EACCES, "/to/x", true}, Case{EPERM, "/to/x", true}, Case{EACCES, "", false},
          Case{EPERM, "", false}, Case{ENOSPC, "/to/x", false}, Case{EIO, "/to/x", false},
          Case{0, "/to/x", false}}) {
        copy().failures.clear();
        fail(2, EIO);
        fail(1, c.code, c.target);
        draw();
        EXPECT_EQ(app().m_hits.size(), c.counts ? 2U : 1U) << c.code << c.target;
        EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::RetryAsAdmin)) != nullptr,
                  c.counts);
        const App::HitRect close = button(Action::DismissErrors);
        EXPECT_EQ(close.label, "Close");
        EXPECT_EQ(close.y, panel().y + panel().h - 46);
        EXPECT_NEAR(close.x + close.w, panel().x + 620, 0.01);
        expect_color(close.x + 5, close.y + 24, palette().accent, "primary");
        if (c.counts) {
            const App::HitRect retry = button(Action::RetryAsAdmin);
            EXPECT_EQ(retry.label, "Retry as administrator");
            EXPECT_EQ(retry.y, close.y);
            EXPECT_NEAR(retry.x + retry.w, close.x - 8, 0.01);
            expect_color(retry.x + 5, retry.y + 24, palette().control, "ordinary");
        }
    }
    // What a task has failed at is no file to copy.
    copy().failures.clear();
    task().failures = {"/x: Permission denied"};
    draw();
    EXPECT_EQ(app().m_hits.size(), 1U);
}

TEST_F(Errors, without_the_helper_the_reason_stands_in_its_place) {
    app().m_why_not_elevate = "The reason.";
    fail(1, EACCES);
    draw();
    expect_text("The reason.", panel().x + 20, panel().y + panel().h - 62, 11, palette().dim);
    EXPECT_EQ(app().m_hits.size(), 1U);
    EXPECT_TRUE(hit(App::Hit::Overlay, static_cast<int>(Action::DismissErrors)));
    app().m_why_not_elevate = std::string(300, 'm');
    draw();
    EXPECT_TRUE(ends_at(panel().x + 620, panel().y + panel().h - 65, palette().pane));
    // A list that fills the box ends one row earlier.
    app().m_why_not_elevate = "The reason.";
    fail(99, EACCES);
    draw();
    EXPECT_EQ(rows().size(), 20U);
    EXPECT_EQ(rows().back().text, "… further entries not listed.");
    EXPECT_EQ(rows().back().y + 18, painted_text("The reason.")->y);
    copy().failures.resize(20);
    draw();
    EXPECT_EQ(rows().size(), 20U);
    EXPECT_EQ(rows().back().text, "/from/18 — no luck");
    copy().failures.resize(19);
    draw();
    EXPECT_EQ(rows().size(), 19U);
    EXPECT_EQ(rows().back().text, "/from/17 — no luck");
    // In a box of 125 the sixth row would stand too close to it.
    copy().failures.resize(6);
    draw(1100, 389);
    EXPECT_EQ(rows().back().text, "… further entries not listed.");
    draw(1100, 395);
    EXPECT_EQ(rows().back().text, "/from/4 — no luck");
    copy().failures.resize(1);
    // With nothing to repeat there is nothing to explain.
    copy().failures[0].code = EIO;
    app().m_why_not_elevate = "The reason.";
    draw();
    EXPECT_FALSE(shows("The reason."));
    copy().failures[0].code = EACCES;
    app().m_can_elevate = true;
    app().m_why_not_elevate.clear();
    draw();
    EXPECT_EQ(app().m_hits.size(), 2U);
}

TEST_F(Errors, hold_together_in_every_language) {
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        const bool picture = wants_pictures(language.code);
        for (const int scale : {70, 100, 200}) {
            if (scale != 100 && !picture)
                continue;
            app().m_ui_scale = scale / 100.0;
            for (const bool dark : {false, true}) {
                app().m_palette = dark ? Palette::dark_() : Palette::light();
                app().m_can_elevate = dark;
                app().m_why_not_elevate = dark ? "" : tr("elevate.no_helper");
                app().m_overlay_title = tr("dlg.errors_title");
                copy().failures.clear();
                fail(dark ? 30 : 3, EACCES);
                draw(std::max(680.0, 1000 / app().m_ui_scale), 700 / app().m_ui_scale);
                const std::string name = "errors-" + language.code + (dark ? "-dark-" : "-light-") +
                                         std::to_string(scale);
                for (const App::HitRect& rect : app().m_hits)
                    EXPECT_GE(rect.x, panel().x + 20) << name << " " << rect.label;
                for (const PaintedText& text : painted_texts())
                    EXPECT_LE(text.x + text.width, panel().x + panel().w - 19) << name << text.text;
                if (picture)
                    shot(name);
            }
        }
    }
    app().m_ui_scale = 1;
}

TEST_F(Errors, its_buttons_are_within_reach_in_the_smallest_window_in_every_language) {
    app().m_ui_scale = 2;
    app().m_can_elevate = true;
    fail(30, EACCES);
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        draw(500, 350);
        ASSERT_EQ(app().m_hits.size(), 3U) << language.code;  // with the list's thumb
        for (const App::HitRect& rect : app().m_hits) {
            EXPECT_GE(rect.x, panel().x) << language.code << " " << rect.label;
            EXPECT_LE(rect.x + rect.w, panel().x + panel().w) << language.code;
            EXPECT_LE(rect.y + rect.h, panel().y + panel().h) << language.code;
        }
        EXPECT_LT(rows().back().y + 9, button(Action::DismissErrors).y) << language.code;
    }
    app().m_ui_scale = 1;
}

// --- With the engine --------------------------------------------------------------------------

TEST(ElevatableFailures, count_what_a_fresh_look_at_the_engine_finds) {
    REQUIRE_FRESH_PROCESS();
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to make what a user may not touch";
    const test_env::TempDir from;
    const test_env::TempDir to;
    for (const char* name : {"a", "b"})
        write_file(from / name, "x");
    write_file(from / "secret", "x", 0600);  // root's
    ASSERT_EQ(mkfifo((from / "pipe").c_str(), 0644), 0);
    ASSERT_EQ(chmod(from.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(to.path().c_str(), 0755), 0);
    as_user::give(from.path());
    EXPECT_TRUE(as_user::run([&] {
        App app;
        EXPECT_EQ(app.elevatable_failures(), 0);
        (void)test_env::run_engine(
            copy_engine::instance(),
            {.sources = {from / "a", from / "b", from / "pipe"}, .target = to.path()});
        EXPECT_EQ(copy_engine::instance().snapshot().failures_total, 3U);
        EXPECT_EQ(app.elevatable_failures(), 2);
        // Whether anything can be done about them is asked as their list is opened.
        setenv("SNAP", "/snap/x", 1);
        app.m_can_elevate = true;
        app.open_overlay(App::Overlay::Message, "");
        EXPECT_TRUE(app.m_can_elevate);
        app.open_overlay(App::Overlay::Errors, "");
        EXPECT_FALSE(app.m_can_elevate);
        EXPECT_EQ(app.m_why_not_elevate, tr("elevate.sandboxed"));
    }));
}

class Questions : public AppTest {
  protected:
    // So many files on both sides, asked about by eight workers.
    void ask(int count) {
        for (int i = 0; i < count; ++i) {
            write_file(left() + "/" + std::to_string(i), "new");
            write_file(right() + "/" + std::to_string(i), "old");
        }
        SettingsStore::instance().mutable_get().thread_count = 8;
        start();
        app().perform(Action::SelectAll, 0);
        app().perform(Action::CopyToOther, 0);
        ASSERT_TRUE(wait_for_question());
    }
    // The move of what is on the left alone.
    void ask_about_one() {
        app().refresh_both();
        app().perform(Action::SelectAll, 0);
        app().perform(Action::MoveToOther, 0);
        ASSERT_TRUE(wait_for_question());
    }
    bool wait_for_question() {
        return pump_until([this] {
            app().tick();
            return app().m_overlay == App::Overlay::Conflict;
        });
    }
    bool settle() {
        return pump_until([this] {
            app().tick();
            return idle();
        });
    }
    // As after the time that a hand needs.
    void wait_for_hand() {
        app().m_conflict_deaf_until = 0;
        frame();
    }
    static copy_engine::Progress engine() { return copy_engine::instance().snapshot(); }
    int count_on_the_right(const std::string& content, int files) {
        int found = 0;
        for (int i = 0; i < files; ++i)
            found += read_file(right() + "/" + std::to_string(i)) == content ? 1 : 0;
        return found;
    }
};

TEST_F(Questions, eight_workers_ask_one_after_the_other) {
    constexpr int kFiles = 12;
    ask(kFiles);
    EXPECT_EQ(engine().threads_active, 8);
    std::set<std::string> asked;
    for (int i = 0; i < kFiles; ++i) {
        ASSERT_TRUE(wait_for_question()) << i;
        const copy_engine::ConflictRequest question = engine().conflict;
        EXPECT_TRUE(asked.insert(question.target_path).second) << question.target_path;
        frame();
        EXPECT_EQ(engine().conflict.target_path, question.target_path) << "no other comes between";
        EXPECT_LE(engine().files_done, i);  // the file before may still be on its way
        app().perform(i % 2 == 0 ? Action::ConflictSkip : Action::ConflictOverwrite, 0);
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(count_on_the_right("new", kFiles), kFiles / 2);
    EXPECT_EQ(count_on_the_right("old", kFiles), kFiles / 2);
    EXPECT_EQ(app().m_result.files, kFiles / 2);
}

TEST_F(Questions, an_answer_for_all_serves_the_seven_that_wait) {
    constexpr int kFiles = 40;
    ask(kFiles);
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(wait_for_question());
    EXPECT_FALSE(app().m_conflict_apply_all);
    wait_for_hand();
    click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictToggleAll)));
    EXPECT_TRUE(app().m_conflict_apply_all);
    shot("question-all");
    click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictOverwrite)));
    ASSERT_TRUE(pump_until([this] {
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        return idle();
    }));
    EXPECT_EQ(count_on_the_right("new", kFiles), kFiles - 1);
    EXPECT_EQ(count_on_the_right("old", kFiles), 1);
}

TEST_F(Questions, stopping_everything_takes_less_than_a_fifth_of_a_second) {
    constexpr int kFiles = 40;
    ask(kFiles);
    const double from = App::now_seconds();
    app().perform(Action::ConflictCancel, 0);
    while (copy_engine::instance().is_running())
        g_usleep(500);
    EXPECT_LT(App::now_seconds() - from, 0.2);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(count_on_the_right("old", kFiles), kFiles);
}

TEST_F(Questions, escape_skips_one_and_return_answers_nothing) {
    constexpr int kFiles = 9;
    ask(kFiles);
    wait_for_hand();
    for (const guint none : std::initializer_list<guint>{GDK_KEY_Return, GDK_KEY_KP_Enter}) {
        key(none);
        EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
        EXPECT_TRUE(engine().conflict.pending);
    }
    EXPECT_EQ(engine().files_done, 0);
    key(GDK_KEY_Escape);
    ASSERT_TRUE(wait_for_question());
    EXPECT_LE(engine().files_done, 1);
    EXPECT_FALSE(engine().cancelled);
    app().perform(Action::ConflictToggleAll, 0);
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(app().m_result.cancelled);
    EXPECT_EQ(count_on_the_right("old", kFiles), kFiles);
}

// Until the next question is shown there is no dialogue, and Escape stops what runs.
TEST_F(Questions, an_escape_too_many_does_not_stop_the_transfer) {
    ask(3);
    for (int question = 0; question < 3; ++question) {
        ASSERT_TRUE(wait_for_question());
        wait_for_hand();
        for (int repeat = 0; repeat < 20; ++repeat)
            key(GDK_KEY_Escape);
        EXPECT_FALSE(engine().cancelled) << question;
    }
    ASSERT_TRUE(settle());
    EXPECT_FALSE(app().m_result.cancelled);
    EXPECT_EQ(count_on_the_right("old", 3), 3);
}

TEST_F(Questions, escape_stops_the_transfer_again_after_a_while) {
    ask(2);
    wait_for_hand();
    key(GDK_KEY_Escape);
    // Without the main loop, whose tick would show the next question.
    ASSERT_TRUE(test_env::wait_until([] { return engine().conflict.pending; }));
    const double before = App::now_seconds();
    app().m_conflict_deaf_until = before + 0.01;
    key(GDK_KEY_Escape);  // and the time begins anew, as when a key is held
    EXPECT_GE(app().m_conflict_deaf_until, before + 0.25);
    EXPECT_FALSE(engine().cancelled);
    app().m_conflict_deaf_until = App::now_seconds();
    key(GDK_KEY_Escape);
    EXPECT_TRUE(engine().cancelled);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
}

TEST_F(Questions, alt_and_a_letter_of_the_upper_row_answers_nothing_of_it) {
    ask(2);
    wait_for_hand();
    for (const guint letter :
         std::initializer_list<guint>{GDK_KEY_e, GDK_KEY_r, GDK_KEY_n, GDK_KEY_d}) {
        key(letter, GDK_MOD1_MASK);
        EXPECT_EQ(app().m_overlay, App::Overlay::Conflict) << letter;
        EXPECT_TRUE(engine().conflict.pending) << letter;
        EXPECT_FALSE(app().m_conflict_apply_all) << letter;
    }
    // The first letter of "Keep both" is what "Skip" is left with.
    key(GDK_KEY_k, GDK_MOD1_MASK);
    EXPECT_TRUE(logged("dialog accel: Alt+K → ConflictSkip"));
    ASSERT_TRUE(wait_for_question());
    wait_for_hand();
    key(GDK_KEY_o, GDK_MOD1_MASK);
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "0", "1"}));
    EXPECT_EQ(count_on_the_right("new", 2), 1);
}

// A key or a click meant for what was there before must not answer.
TEST_F(Questions, nothing_answers_in_the_first_quarter_of_a_second) {
    ask(2);
    for (int question = 0; question < 2; ++question) {
        const std::string asked = engine().conflict.target_path;
        const double opened = App::now_seconds();
        EXPECT_GT(app().m_conflict_deaf_until, opened + 0.1);
        EXPECT_LE(app().m_conflict_deaf_until, opened + 0.25);
        app().m_conflict_deaf_until = opened + 100;  // however long a frame takes here
        frame();
        key(GDK_KEY_Escape);
        key(GDK_KEY_o, GDK_MOD1_MASK);
        key(GDK_KEY_Return);
        click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictOverwrite)));
        click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictToggleAll)));
        EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
        EXPECT_FALSE(app().m_conflict_apply_all);
        EXPECT_TRUE(engine().conflict.pending);
        EXPECT_EQ(engine().conflict.target_path, asked);
        app().m_conflict_deaf_until = App::now_seconds() + 0.02;
        ASSERT_TRUE(
            pump_until([this] { return App::now_seconds() > app().m_conflict_deaf_until; }));
        frame();
        click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictOverwrite)));
        ASSERT_TRUE(question == 1 || wait_for_question());
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(count_on_the_right("new", 2), 2);
    // Other dialogues are not concerned.
    app().m_conflict_deaf_until = App::now_seconds() + 100;
    app().show_message("t", "x");
    frame();
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(Questions, one_waits_for_the_end_of_unsaved_changes) {
    write_file(left() + "/0", "new");
    write_file(right() + "/0", "old");
    start();
    app().open_overlay(App::Overlay::HexView, "changed");
    app().m_hex_edits[0] = 1;
    test_env::forget_painted();
    frame();
    for (const PaintedText& text : painted_texts())
        EXPECT_NE(text.text.substr(0, 12), "This file is") << "nothing has been asked";
    app().close_overlay();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    app().open_overlay(App::Overlay::HexView, "changed");
    app().m_hex_edits[0] = 1;
    ASSERT_TRUE(pump_until([] { return engine().conflict.pending; }));
    for (int i = 0; i < 3; ++i)
        app().tick();
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    EXPECT_TRUE(App::busy());
    // The status bar tells of it, before anything else.
    app().flash_status("a message");
    app().m_flash_until = App::now_seconds() + 0.2;  // which is fading
    test_env::forget_painted();
    frame();
    shot("question-waits");
    const PaintedText* const note = painted_text("This file is already there: 0");
    ASSERT_TRUE(note);
    EXPECT_EQ(note->color, app().m_palette.warn);
    EXPECT_EQ(note->y, app().m_layout.status_y + 12);
    EXPECT_EQ(note->alpha, 1);
    EXPECT_FALSE(painted_text("a message"));
    Rgb ground;
    ASSERT_TRUE(
        hex_to_rgb(pixel(static_cast<int>(note->x) - 4, static_cast<int>(note->y)), ground));
    Rgb dimmed;
    ASSERT_TRUE(hex_to_rgb(mix_hex("#000000", app().m_palette.danger_bg, 0.38), dimmed));
    EXPECT_NEAR(ground.r, dimmed.r, 0.01);
    EXPECT_NEAR(ground.g, dimmed.g, 0.01);
    EXPECT_NEAR(note->x + note->width / 2, app().m_layout.width / 2, 1);
    // It comes as soon as the view is closed, and is not lost with the next one.
    app().close_overlay();
    EXPECT_FALSE(app().conflict_waits());
    app().tick();
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    test_env::forget_painted();
    frame();
    EXPECT_FALSE(painted_text("This file is already there: 0"));
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(settle());
}

TEST_F(Questions, what_has_been_saved_makes_no_question_wait) {
    write_file(left() + "/0", "new");
    write_file(right() + "/0", "old");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(app().open_hex_view(left() + "/0"));
    app().open_overlay(App::Overlay::HexView, "as it was");
    ASSERT_TRUE(wait_for_question());
    // Changes that another view held do not hold up the next question.
    app().m_hex_edits[0] = 1;
    EXPECT_FALSE(app().conflict_waits());
    ASSERT_TRUE(app().open_hex_view(right() + "/0"));
    app().open_overlay(App::Overlay::HexView, "another file");
    EXPECT_FALSE(app().conflict_waits());
    ASSERT_TRUE(wait_for_question());
    app().perform(Action::ConflictCancel, 0);
    ASSERT_TRUE(settle());
}

TEST_F(Questions, the_failures_pill_leads_to_the_list_while_a_worker_waits) {
    ASSERT_EQ(mkfifo((left() + "/a pipe").c_str(), 0600), 0);
    ask(1);
    ASSERT_TRUE(pump_until([] { return engine().failures_total == 1; }));
    // The question hides the band; it comes again as long as it has no answer.
    app().close_overlay();
    frame();
    click(hit(App::Hit::ErrorBanner));
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(app().m_overlay_title, "Errors");
    // A task of another test may have left failures in this process.
    const size_t listed = 1 + BgTask::instance().snapshot().failures.size();
    EXPECT_TRUE(painted_text(std::to_string(listed) + " entries failed"));
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    ASSERT_TRUE(wait_for_question());
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    app().perform(Action::DismissErrors, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_TRUE(app().m_result.valid);
}

// What a question is about may have changed before its answer comes.
TEST_F(Questions, an_old_file_outlives_a_new_one_that_has_vanished) {
    const std::string fresh = left() + "/0";
    const std::string old = right() + "/0";
    start();
    for (const Action answer : {Action::ConflictOverwrite, Action::ConflictRenameNew,
                                Action::ConflictOverwriteIfNewer, Action::ConflictRenameExisting}) {
        write_file(fresh, "new");
        write_file(old, "old");
        ask_about_one();
        ASSERT_EQ(unlink(fresh.c_str()), 0);
        frame();
        app().perform(answer, 0);
        ASSERT_TRUE(settle());
        const bool aside = answer == Action::ConflictRenameExisting;
        EXPECT_EQ(names(true), (std::vector<std::string>{"..", aside ? "0.1" : "0"}));
        EXPECT_EQ(read_file(aside ? old + ".1" : old), "old");
        EXPECT_EQ(app().m_overlay == App::Overlay::Errors,
                  answer != Action::ConflictOverwriteIfNewer);
        app().close_overlay();
    }
}

TEST_F(Questions, an_answer_does_no_harm_where_another_thing_stands_meanwhile) {
    const std::string fresh = left() + "/0";
    const std::string old = right() + "/0";
    start();
    for (const Action answer :
         {Action::ConflictOverwrite, Action::ConflictRenameNew, Action::ConflictRenameExisting}) {
        const bool kept_here = answer != Action::ConflictRenameExisting;
        write_file(fresh, "new");
        write_file(old, "old");
        ask_about_one();
        ASSERT_EQ(unlink(old.c_str()), 0);
        test_env::make_dirs(old);
        write_file(old + "/inside", "kept");
        frame();
        app().perform(answer, 0);
        ASSERT_TRUE(settle());
        EXPECT_EQ(read_file(kept_here ? old + "/inside" : old + ".1/inside"), "kept");
        if (answer == Action::ConflictOverwrite) {
            EXPECT_EQ(read_file(fresh), "new");
            EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
        } else {
            EXPECT_EQ(read_file(kept_here ? old + ".1" : old), "new");
            EXPECT_NE(access(fresh.c_str(), F_OK), 0);
            EXPECT_EQ(app().m_overlay, App::Overlay::None);
        }
        app().close_overlay();
        std::filesystem::remove_all(old);
        std::filesystem::remove_all(old + ".1");
    }
}

TEST_F(Questions, dismissing_a_result_ends_the_hold) {
    write_file(left() + "/0", "new");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    const double before = App::now_seconds();
    ASSERT_TRUE(settle());
    EXPECT_GE(app().m_progress_hold_until, before + 2.5);
    EXPECT_LE(app().m_progress_hold_until, App::now_seconds() + 2.5);
    frame();
    EXPECT_EQ(app().m_layout.progress_h, 76);
    shot("result-held");
    click(hit(App::Hit::ResultDismiss));
    EXPECT_EQ(app().m_progress_hold_until, 0);
    EXPECT_FALSE(app().m_result.valid);
    EXPECT_EQ(app().m_layout.progress_h, 0);
    EXPECT_EQ(count_hits(App::Hit::ResultDismiss), 0U);
}

}  // namespace
