// A window that is worked with the pointer, by what the last frame has painted.

#pragma once

#include "app_fixture.h"

#include "settings.h"

#include <functional>
#include <gdk/gdkkeysyms.h>
#include <string>
#include <vector>

using Names = std::vector<std::string>;

class AppPointer : public AppTest {
  protected:
    static Settings& settings() { return SettingsStore::instance().mutable_get(); }

    void files(int count, bool on_the_right = false) {
        for (int i = 0; i < count; ++i)
            test_env::write_file((on_the_right ? right() : left()) + "/file" + std::to_string(i),
                                 "x");
    }
    void start_with_files(int count) {
        files(count);
        start();
    }
    App::HitRect row(int index, bool on_the_right = false) {
        return hit(App::Hit::PaneRow, index, on_the_right ? 1 : 0);
    }
    App::HitRect row(const std::string& name, bool on_the_right = false) {
        return row(pane(on_the_right).index_of(name), on_the_right);
    }
    // A press without a frame behind it, as it comes before what has changed is painted.
    void press(const App::HitRect& rect, int button = 1, guint state = 0, guint32 clicks = 1) {
        app().handle_click(rect.x + rect.w / 2, rect.y + rect.h / 2, button, state, clicks);
    }
    void click_and_release(const App::HitRect& rect, int button = 1, guint state = 0) {
        click(rect, button, state);
        app().handle_release();
        frame();
    }
    // A point of the empty space below the rows.
    void click_below_rows(bool on_the_right = false, int button = 1, guint state = 0) {
        const App::HitRect area = hit(App::Hit::PaneBackground, -1, on_the_right ? 1 : 0);
        click(area.x + 50, area.y + area.h - 10, button, state);
    }
    void type(const std::string& letters) {
        for (const char letter : letters)
            key(static_cast<guint>(letter));
    }
    // Begins the rename of an entry, and puts letters in front of its extension.
    void rename(const std::string& name, const std::string& letters, bool on_the_right = false) {
        app().m_active_right = on_the_right;
        put_cursor_on(name, on_the_right);
        pane(on_the_right).clear_selection();
        app().perform(Action::Rename, 0);
        frame();
        ASSERT_TRUE(pane(on_the_right).renaming());
        type(letters);
    }
};
