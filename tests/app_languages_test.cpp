// Every text of every language in the box that it is painted in: nothing is cut, leaves its panel
// or its button, or runs into its neighbour. The settings, the conflict, the errors and the
// progress band have tests of their own for this.

#include "app_fixture.h"
#include "app_texts.h"

#include "i18n.h"
#include "i18n_data.h"
#include "menu_model.h"
#include "sanitized.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

using Hit = App::Hit;
using Overlay = App::Overlay;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::write_file;

constexpr int kWidth = 1180, kHeight = 720;

class AppLanguages : public AppTest {
  protected:
    void SetUp() override {
        AppTest::SetUp();
        if (IsSkipped())
            return;
        write_file(left() + "/first", "x");
        write_file(left() + "/second", "xx");
        start({"--geometry=1180x720+0+0"});
        put_cursor_on("first");
    }
    void TearDown() override {
        I18n::instance().set_language("en");
        AppTest::TearDown();
    }
    void in_every_language(const std::function<void(const std::string&)>& body) {
        size_t number = 0;
        for (const LanguageInfo& language : I18n::available()) {
            // Under a sanitizer the code counts, not the texts.
            if (test_env::kSanitized && number++ % 11)
                continue;
            I18n::instance().set_language(language.code);
            m_below.clear();
            m_texts.clear();
            for (const char* key : i18n_data::KEYS)
                m_texts.insert(tr(key));
            body(language.code);
        }
    }
    // What a frame has painted of its own, without what lies below a dialogue or menu.
    std::vector<PaintedText> painted_above(const std::function<void()>& open) {
        if (m_below.empty()) {
            test_env::forget_painted();
            frame(kWidth, kHeight);
            m_below = painted_texts();
        }
        open();
        test_env::forget_painted();
        frame(kWidth, kHeight);
        std::vector<PaintedText> above;
        for (const PaintedText& text : painted_texts())
            if (std::find_if(m_below.begin(), m_below.end(),
                             [&](const PaintedText& other) {
                                 return other.text == text.text && other.x == text.x &&
                                        other.y == text.y;
                             }) == m_below.end() &&
                !is_drive(text.text))
                above.push_back(text);
        return above;
    }
    // Their list is read beside the window, and may change while a dialogue opens.
    bool is_drive(const std::string& text) {
        return std::any_of(app().m_frame_drives.begin(), app().m_frame_drives.end(),
                           [&](const drives::Drive& drive) { return drive.label == text; });
    }
    // A text of the catalogue may not be cut; a name or a path may.
    void expect_whole(const std::vector<PaintedText>& texts, const std::string& where) const {
        for (const PaintedText& text : texts)
            EXPECT_FALSE(text.cut && m_texts.count(text.text)) << where << " cuts " << text.text;
    }
    static void expect_apart(const std::vector<PaintedText>& texts, const std::string& where) {
        for (size_t i = 0; i < texts.size(); ++i)
            for (size_t j = i + 1; j < texts.size(); ++j) {
                const PaintedText& a = texts[i];
                const PaintedText& b = texts[j];
                const bool one_line = std::abs(a.y - b.y) < 6;
                const double overlap = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
                EXPECT_FALSE(one_line && overlap > 0.5 && a.text != b.text)
                    << where << ": " << a.text << " | " << b.text << " by " << overlap;
            }
    }
    static void expect_within(const std::vector<PaintedText>& texts, const App::Rect& box,
                              const std::string& where) {
        for (const PaintedText& text : texts) {
            EXPECT_GE(text.x, box.x) << where << ": " << text.text;
            EXPECT_LE(text.x + text.width, box.x + box.w) << where << ": " << text.text;
        }
    }
    // A label stands within the rectangle that it names.
    void expect_labels_within_hits(const std::vector<PaintedText>& texts, double margin,
                                   const std::string& where) {
        for (const App::HitRect& rect : app().m_hits)
            for (const PaintedText& text : texts)
                if (text.text == rect.label && text.y > rect.y && text.y < rect.y + rect.h &&
                    text.x + text.width / 2 > rect.x && text.x + text.width / 2 < rect.x + rect.w) {
                    EXPECT_GE(text.x, rect.x + margin - 0.5) << where << ": " << text.text;
                    EXPECT_LE(text.x + text.width, rect.x + rect.w - margin + 0.5)
                        << where << ": " << text.text;
                }
    }
    std::vector<PaintedText> m_below;  // without dialogue or menu, in the language in force
    std::set<std::string> m_texts;     // of the language in force
};

TEST_F(AppLanguages, the_window) {
    in_every_language([this](const std::string& code) {
        frame(kWidth, kHeight);
        test_env::forget_painted();
        frame(kWidth, kHeight);
        const std::vector<PaintedText> texts = painted_texts();
        expect_whole(texts, code);
        expect_apart(texts, code);
        expect_within(texts, {0, 0, kWidth, kHeight}, code);
        expect_labels_within_hits(texts, 0, code);
        shot("languages-window-" + code);
    });
}

TEST_F(AppLanguages, the_menus) {
    in_every_language([this](const std::string& code) {
        for (int menu = 0; menu < static_cast<int>(menu_model::bar().size()); ++menu) {
            const std::string where = code + " menu " + std::to_string(menu);
            const auto texts = painted_above([&] { app().open_menu(menu); });
            ASSERT_FALSE(texts.empty()) << where;
            expect_whole(texts, where);
            expect_apart(texts, where);
            expect_within(texts, {0, 0, kWidth, kHeight}, where);
            expect_labels_within_hits(texts, 0, where);
            // A menu as wide as that is none.
            for (const App::HitRect& rect : app().m_hits)
                if (rect.what == Hit::MenuItem) {
                    EXPECT_LE(rect.w, 420) << where;
                }
            app().close_menus();
        }
        for (const bool selected : {false, true}) {
            if (selected)
                pane().select_all();
            else
                pane().clear_selection();
            const std::string where =
                code + (selected ? " context menu" : " context menu of nothing");
            const auto texts = painted_above([&] { app().open_context_menu(100, 150, false); });
            ASSERT_FALSE(texts.empty()) << where;
            expect_whole(texts, where);
            expect_apart(texts, where);
            expect_labels_within_hits(texts, 0, where);
            app().close_menus();
        }
    });
}

TEST_F(AppLanguages, the_dialogues) {
    write_file(left() + "/packed.tar", "");
    app().refresh_both();
    pane().select_all();
    const std::pair<const char*, std::function<void()>> dialogues[] = {
        {"new folder", [this] { app().perform(Action::NewFolder, 0); }},
        {"new file", [this] { app().perform(Action::NewFile, 0); }},
        {"pattern", [this] { app().perform(Action::SelectPattern, 0); }},
        {"delete", [this] { app().perform(Action::Delete, 0); }},
        {"pack", [this] { app().perform(Action::Pack, 0); }},
        {"pack over there", [this] { app().perform(Action::PackToOther, 0); }},
        {"properties", [this] { app().perform(Action::Properties, 0); }},
        {"bookmarks", [this] { app().perform(Action::BookmarkManage, 0); }},
        {"log", [this] { app().perform(Action::LogWindow, 0); }},
        {"languages", [this] { app().perform(Action::SettingsLanguageOpen, 0); }},
        {"which side", [this] { app().open_overlay(Overlay::BookmarkSide, "x"); }},
        {"which side to unpack to", [this] { app().open_overlay(Overlay::UnpackSide, "x"); }},
        {"bytes",
         [this] {
             pane().clear_selection();
             put_cursor_on("first");
             app().perform(Action::ViewHex, 0);
             EXPECT_EQ(app().m_overlay, Overlay::HexView);
             pane().select_all();
         }},
        {"settings", [this] { app().perform(Action::SettingsWindow, 0); }},
        {"about", [this] { app().perform(Action::About, 0); }},
        {"licences", [this] { app().perform(Action::Licenses, 0); }},
        {"sandbox", [this] { app().open_overlay(Overlay::Sandbox, tr("sandbox.title")); }},
    };
    in_every_language([&](const std::string& code) {
        for (const auto& [name, open] : dialogues) {
            const std::string where = code + " " + name;
            const auto texts = painted_above(open);
            ASSERT_NE(app().m_overlay, Overlay::None) << where;
            const App::Rect panel = app().m_overlay_panel;
            shot("languages-dialogue-" + code + "-" + name);
            expect_whole(texts, where);
            expect_apart(texts, where);
            expect_within(texts, {panel.x + 12, panel.y, panel.w - 24, panel.h}, where);
            expect_labels_within_hits(texts, 0, where);
            for (const App::HitRect& rect : app().m_hits)
                if (rect.in_overlay) {
                    EXPECT_GE(rect.x, panel.x) << where << " " << rect.label;
                    EXPECT_LE(rect.x + rect.w, panel.x + panel.w) << where << " " << rect.label;
                }
            app().close_overlay();
        }
    });
}

// What is told in the status bar for a moment has its whole width for itself.
TEST_F(AppLanguages, the_notes_in_the_status_bar) {
    in_every_language([this](const std::string& code) {
        for (const char* key : i18n_data::KEYS) {
            if (!std::string(key).starts_with("status.") || std::strchr(tr(key), '%'))
                continue;
            app().flash_status(tr(key));
            test_env::forget_painted();
            frame(kWidth, kHeight);
            ASSERT_TRUE(test_env::painted_text(tr(key))) << code << " " << key;
            EXPECT_FALSE(test_env::painted_text(tr(key))->cut) << code << " " << key;
            expect_apart(painted_texts(), code + " " + key);
        }
    });
}

}  // namespace
