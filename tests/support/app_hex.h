// The byte view without a window: the file, the changes, the keys.

#pragma once

#include "app.h"
#include "i18n.h"
#include "test_env.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gdk/gdkkeysyms.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

class HexAlone : public ::testing::Test {
  protected:
    HexAlone() { Log::instance().clear(); }
    ~HexAlone() override { app().close_hex_view(); }

    App& app() { return *m_app; }
    const std::string& file() const { return m_file; }
    std::string in_dir(const std::string& name) const { return m_dir / name; }
    const std::string& dir() const { return m_dir.path(); }

    // As the command does it, with a view so many rows high.
    void open(const std::string& content, int rows = 10) {
        test_env::write_file(m_file, content);
        open_there(m_file, rows);
    }
    void open_there(const std::string& path, int rows = 10) {
        ASSERT_TRUE(app().open_hex_view(path));
        app().m_overlay = App::Overlay::HexView;
        app().m_hex_rows = rows;
        app().m_hex_max_line =
            std::max<int64_t>(0, app().m_hex_size / 16 + (app().m_hex_size % 16 ? 1 : 0) - rows);
    }
    void key(guint keyval, guint state = 0) {
        GdkEventKey event = {};
        event.type = GDK_KEY_PRESS;
        event.keyval = keyval;
        event.state = state;
        EXPECT_TRUE(app().handle_hex_key(&event)) << keyval;
    }
    void type(const std::string& text) {
        for (const char c : text)
            key(gdk_unicode_to_keyval(static_cast<guint32>(c)));
    }
    // Of the whole file, and how many steps it took.
    int search(const std::string& text, bool as_hex = false, int64_t from = 0) {
        app().m_hex_find = text;
        app().m_hex_find_as_hex = as_hex;
        app().hex_start_search(from);
        int steps = 0;
        while (app().m_hex_searching) {
            ++steps;
            EXPECT_EQ(app().hex_search_step(), app().m_hex_searching);
        }
        return steps;
    }
    // What is shown, -1 for a blank.
    int shown(int64_t offset) {
        unsigned char value = 0;
        return app().hex_byte_at(offset, &value) ? value : -1;
    }
    std::string saved() const { return test_env::read_file(m_file); }
    // The file becomes so many bytes of which none takes room but those put there.
    void sparse(int64_t size, int64_t at = 0, const std::string& content = {}) {
        test_env::write_file(m_file, "");
        ASSERT_EQ(truncate(m_file.c_str(), size), 0);
        put(at, content);
    }
    // As another program writes.
    void put(int64_t at, const std::string& content) {
        const int fd = ::open(m_file.c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(pwrite(fd, content.data(), content.size(), at),
                  static_cast<ssize_t>(content.size()));
        ::close(fd);
    }
    static bool has_logged(Log::Level level, const std::string& text) {
        for (const Log::Entry& entry : Log::instance().recent())
            if (entry.text == text && entry.level == level)
                return true;
        return false;
    }
    static bool informed(const std::string& text) { return has_logged(Log::Level::Info, text); }
    static std::string words(int error) { return std::strerror(error); }

  private:
    std::unique_ptr<App> m_app = std::make_unique<App>();
    test_env::TempDir m_dir;
    std::string m_file = m_dir / "file";
};
