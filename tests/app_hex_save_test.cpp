// What the byte view writes, when it asks before, and what keeps the changes from being lost.

#include "app_hex.h"

#include "faultfs.h"
#include "fresh_process.h"
#include "log_lines.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using faultfs::FaultFs;
using test_env::logged;
using test_env::logged_with;
using test_env::lstat_of;
using test_env::pattern;
using test_env::read_file;
using test_env::write_file;

class AppHexSave : public HexAlone {
  protected:
    static bool failed(size_t written, const std::string& path, const std::string& why) {
        return has_logged(Log::Level::Error, "hex: write failed after " + std::to_string(written) +
                                                 " bytes in " + path + ": " + why);
    }
};

}  // namespace

// --- Saving -----------------------------------------------------------------------------------

TEST_F(AppHexSave, the_changed_bytes_alone_are_written_in_place) {
    open("0123456789");
    const struct stat before = lstat_of(file());
    app().hex_set_byte(3, 'x');
    app().hex_set_byte(9, 0xab);
    // Another program's work on other bytes stays.
    put(5, "Z");
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(saved(), "012x4Z678\xab");
    EXPECT_TRUE(app().m_hex_edits.empty());
    EXPECT_EQ(app().m_hex_status, "Saved");
    EXPECT_EQ(lstat_of(file()).st_ino, before.st_ino);
    EXPECT_EQ(lstat_of(file()).st_size, before.st_size);
    EXPECT_EQ(lstat_of(file()).st_mode, before.st_mode);
    EXPECT_TRUE(informed("hex: wrote 2 byte(s) to " + file()));
    EXPECT_TRUE(informed("  0x00000003 = 78"));
    EXPECT_TRUE(informed("  0x00000009 = AB"));
    EXPECT_EQ(logged_with("more"), 0);
}

TEST_F(AppHexSave, of_many_changes_the_first_are_in_the_log) {
    open(std::string(100, '.'));
    for (int i = 0; i < 20; ++i)
        app().hex_set_byte(i, 'x');
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(logged_with(" = 78"), 20);
    EXPECT_EQ(logged_with("more"), 0);
    Log::instance().clear();
    for (int i = 0; i < 53; ++i)
        app().hex_set_byte(i, 'y');
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(logged_with(" = 79"), 20);
    EXPECT_TRUE(informed("  0x00000013 = 79"));
    EXPECT_EQ(logged("  … and 33 more"), 1);
}

TEST_F(AppHexSave, another_file_in_its_place_is_left_alone) {
    open("0123456789");
    app().hex_set_byte(3, 'x');
    write_file(in_dir("new"), "abcdefghij");
    ASSERT_EQ(rename(in_dir("new").c_str(), file().c_str()), 0);
    EXPECT_EQ(app().hex_save(), "the file was replaced meanwhile");
    EXPECT_EQ(saved(), "abcdefghij");
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(shown(0), '0');
    // Nor does anybody wait for what stands there now, or notice.
    ASSERT_EQ(unlink(file().c_str()), 0);
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    const int reader = ::open(file().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(app().hex_save(), "the file was replaced meanwhile");
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    ::close(reader);
    EXPECT_EQ(app().hex_save(), "the file was replaced meanwhile");
    ASSERT_EQ(unlink(file().c_str()), 0);
    EXPECT_EQ(app().hex_save(), words(ENOENT));
    EXPECT_FALSE(test_env::exists(file())) << "nothing is made";
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
}

TEST_F(AppHexSave, nothing_is_written_past_the_present_end) {
    open(pattern(100));
    app().hex_set_byte(10, 1);
    app().hex_set_byte(60, 2);
    app().hex_set_byte(80, 3);
    ASSERT_EQ(truncate(file().c_str(), 60), 0);
    EXPECT_EQ(app().hex_save(), "the file was cut short meanwhile");
    EXPECT_EQ(lstat_of(file()).st_size, 60);
    std::string wanted = pattern(100).substr(0, 60);
    wanted[10] = 1;
    EXPECT_EQ(saved(), wanted);
    EXPECT_EQ(app().m_hex_edits.size(), 3U) << "the changes stay";
    EXPECT_TRUE(failed(1, file(), "the file was cut short meanwhile"));
    EXPECT_EQ(app().m_hex_status, "");
    // As soon as there is room for them they can be saved.
    ASSERT_EQ(truncate(file().c_str(), 100), 0);
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(saved()[80], 3);
    EXPECT_EQ(lstat_of(file()).st_size, 100);
}

TEST_F(AppHexSave, a_full_disk_keeps_the_changes) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    test_env::make_dirs(in_dir("small"));
    ASSERT_TRUE(test_env::mount_tmpfs(in_dir("small"), "size=64k"));
    const std::string path = in_dir("small/sparse");
    write_file(path, "begin");
    ASSERT_EQ(truncate(path.c_str(), 1 << 20), 0);
    std::ofstream(in_dir("small/rest")) << std::string(1 << 20, 'x');
    open_there(path);
    app().hex_set_byte(0, 'B');
    app().hex_set_byte(500000, 1);
    EXPECT_EQ(app().hex_save(), words(ENOSPC));
    EXPECT_TRUE(failed(1, path, words(ENOSPC)));
    EXPECT_EQ(app().m_hex_edits.size(), 2U);
    EXPECT_EQ(shown(500000), 1);
    EXPECT_EQ(read_file(path).substr(0, 5), "Begin") << "what has been written stays";
    ASSERT_EQ(unlink(in_dir("small/rest").c_str()), 0);
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_TRUE(app().m_hex_edits.empty());
    EXPECT_EQ(read_file(path)[500000], 1);
    app().close_hex_view();
}

TEST_F(AppHexSave, an_error_in_the_middle_keeps_the_changes) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "disk", "0123456789");
    open_there(fs / "disk");
    for (const int64_t offset : {1, 3, 5, 7})
        app().hex_set_byte(offset, 'x');
    fs.set(faultfs::fail("write", EIO, 3));
    EXPECT_EQ(app().hex_save(), words(EIO));
    EXPECT_TRUE(failed(2, fs / "disk", words(EIO)));
    EXPECT_EQ(app().m_hex_edits.size(), 4U);
    EXPECT_EQ(read_file(fs.backing() + "/disk"), "0x2x456789");
    // The next one writes all of them again.
    fs.clear();
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(fs.calls("write"), 4);
    EXPECT_EQ(fs.calls("fsync"), 1);
    EXPECT_EQ(read_file(fs.backing() + "/disk"), "0x2x4x6x89");
    // A failure to store it is one to write it.
    Log::instance().clear();
    app().hex_set_byte(0, 'x');
    fs.set(faultfs::fail("fsync", ENOSPC));
    EXPECT_EQ(app().hex_save(), words(ENOSPC));
    EXPECT_TRUE(failed(1, fs / "disk", words(ENOSPC)));
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(logged_with("hex: wrote"), 0);
    // One that is not opened has written nothing.
    fs.clear();
    fs.set(faultfs::fail("open", EACCES));
    EXPECT_EQ(app().hex_save(), words(EACCES));
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
}

// --- Commands ---------------------------------------------------------------------------------

TEST_F(AppHexSave, save_asks_first) {
    open("abc");
    app().perform(Action::HexSave, 0);
    EXPECT_FALSE(app().hex_asks()) << "nothing to save";
    app().m_hex_confirm_close = true;
    type("41");
    EXPECT_EQ(app().m_hex_edits.size(), 0U) << "keys are the question's";
    app().m_hex_confirm_close = false;
    type("41");
    key('s', GDK_CONTROL_MASK);
    EXPECT_TRUE(app().m_hex_confirm_save);
    EXPECT_FALSE(app().m_hex_confirm_close);
    for (const guint swallowed : {guint{'1'}, guint{GDK_KEY_BackSpace}, guint{GDK_KEY_F3},
                                  guint{GDK_KEY_Right}, guint{GDK_KEY_Tab}})
        key(swallowed);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(app().m_hex_cursor, 1);
    EXPECT_EQ(saved(), "abc");
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().hex_asks());
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    key('s', GDK_CONTROL_MASK);
    key(GDK_KEY_Return);
    EXPECT_FALSE(app().hex_asks());
    EXPECT_EQ(saved(), "Abc");
    EXPECT_EQ(app().m_hex_status, "Saved");
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView) << "it was not to be closed";
    EXPECT_GE(app().m_hex_fd, 0);
    // The next change is not saved.
    type("4");
    EXPECT_EQ(app().m_hex_status, "");
}

TEST_F(AppHexSave, the_find_field_has_ctrl_s_too) {
    open("abc");
    type("41");
    key('f', GDK_CONTROL_MASK);
    key('s', GDK_CONTROL_MASK);
    EXPECT_TRUE(app().m_hex_confirm_save);
    EXPECT_EQ(app().m_hex_find, "");
}

TEST_F(AppHexSave, closing_with_changes_only_asks) {
    open("abc");
    type("41");
    const auto expect_asked = [this](const char* what) {
        EXPECT_TRUE(app().m_hex_confirm_close) << what;
        EXPECT_FALSE(app().m_hex_confirm_save) << what;
        EXPECT_EQ(app().m_overlay, App::Overlay::HexView) << what;
        EXPECT_EQ(app().m_hex_edits.size(), 1U) << what;
        EXPECT_EQ(saved(), "abc") << what;
        app().perform(Action::HexSaveCancel, 0);
        EXPECT_FALSE(app().hex_asks()) << what;
    };
    key(GDK_KEY_Escape);
    expect_asked("Escape");
    for (const Action action :
         {Action::OverlayCancel, Action::OverlayOk, Action::About, Action::ViewHex,
          Action::SettingsWindow, Action::DismissErrors, Action::GoToTrash, Action::Quit}) {
        app().perform(action, 0);
        expect_asked(action_name(action));
    }
    app().m_hex_confirm_save = true;
    app().perform(Action::OverlayCancel, 0);
    expect_asked("while the other question stands");
    key(GDK_KEY_Escape);
    EXPECT_TRUE(app().m_hex_confirm_close);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().m_hex_confirm_close) << "Escape takes the question back";
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    app().perform(Action::OverlayCancel, 0);
    app().perform(Action::HexCloseAnyway, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(app().m_hex_fd, -1);
    EXPECT_EQ(saved(), "abc");
}

TEST_F(AppHexSave, saving_from_the_closing_question_closes) {
    open("abc");
    type("41");
    key(GDK_KEY_Escape);
    key(GDK_KEY_KP_Enter);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(app().m_hex_fd, -1);
    EXPECT_EQ(saved(), "Abc");
}

TEST_F(AppHexSave, a_save_that_fails_closes_nothing) {
    open("abc");
    type("41");
    write_file(in_dir("new"), "xyz");
    ASSERT_EQ(rename(in_dir("new").c_str(), file().c_str()), 0);
    key(GDK_KEY_Escape);
    app().perform(Action::HexSaveConfirm, 0);
    EXPECT_FALSE(app().hex_asks());
    EXPECT_EQ(app().m_hex_status, "the file was replaced meanwhile");
    EXPECT_TRUE(app().m_hex_status_is_error);
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(saved(), "xyz");
}

TEST_F(AppHexSave, discarding_keeps_the_view) {
    open("abc");
    type("4142");
    type("4");
    app().m_hex_confirm_save = app().m_hex_confirm_close = true;
    app().perform(Action::HexDiscardChanges, 0);
    EXPECT_TRUE(app().m_hex_edits.empty());
    EXPECT_FALSE(app().hex_asks());
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    EXPECT_EQ(shown(0), 'a');
    app().m_hex_confirm_save = app().m_hex_confirm_close = true;
    app().perform(Action::HexSaveCancel, 0);
    EXPECT_FALSE(app().m_hex_confirm_save);
    EXPECT_FALSE(app().m_hex_confirm_close);
}

TEST_F(AppHexSave, the_toggle_flips_what_the_field_holds) {
    open("abc");
    app().set_hex_status("x");
    app().perform(Action::HexFindMode, 0);
    EXPECT_TRUE(app().m_hex_find_as_hex);
    EXPECT_EQ(app().m_hex_status, "");
    app().perform(Action::HexFindMode, 0);
    EXPECT_FALSE(app().m_hex_find_as_hex);
}

TEST_F(AppHexSave, a_message_waits_until_nothing_is_lost_by_it) {
    open("abc");
    type("41");
    app().show_message("title", "text", true, Action::BookmarkRemove, "bookmark.forget");
    app().show_message("second", "another");
    for (int i = 0; i < 3; ++i)
        app().poll_held_message();
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    app().perform(Action::HexDiscardChanges, 0);
    app().poll_held_message();
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_overlay_title, "title");
    EXPECT_EQ(app().m_overlay_text, "text");
    EXPECT_TRUE(app().m_overlay_is_error);
    EXPECT_EQ(app().m_message_action, Action::BookmarkRemove);
    EXPECT_STREQ(app().m_message_action_label, "bookmark.forget");
    // One after the other, and not in place of a question.
    app().poll_held_message();
    EXPECT_EQ(app().m_overlay_title, "title");
    app().m_overlay = App::Overlay::Conflict;
    app().poll_held_message();
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    app().m_overlay = App::Overlay::None;
    app().poll_held_message();
    EXPECT_EQ(app().m_overlay_title, "second");
    app().close_overlay();
    app().poll_held_message();
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

// --- Against a plain array --------------------------------------------------------------------

namespace {

// Moves, types, takes back, searches and saves at random; the array does the same in its own way.
class Script : public HexAlone {
  protected:
    void play(unsigned seed) {
        std::mt19937 random(seed);
        const auto below = [&random](size_t n) { return static_cast<size_t>(random() % n); };
        const size_t size = 1 + below(seed % 5 == 0 ? 20000 : 200);
        const std::string original = pattern(size, seed);
        open(original, 1 + static_cast<int>(below(30)));
        const struct stat before = lstat_of(file());
        std::string disk = original;
        std::string shown_now = original;
        for (int step = 0; step < 120; ++step) {
            switch (below(8)) {
            case 0:
                move(below(10));
                break;
            case 1:
                app().m_hex_cursor = static_cast<int64_t>(below(size));
                app().m_hex_low_nibble = false;
                break;
            case 2:
            case 3: {
                const size_t at = static_cast<size_t>(app().m_hex_cursor);
                const auto value = static_cast<unsigned char>(random());
                app().m_hex_in_ascii = app().m_hex_low_nibble = false;
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", value);
                type(digits);
                shown_now[at] = static_cast<char>(value);
                break;
            }
            case 4: {
                const size_t at = static_cast<size_t>(app().m_hex_cursor);
                const char value = static_cast<char>(' ' + below('~' - ' ' + 1));
                app().m_hex_in_ascii = true;
                app().m_hex_low_nibble = false;
                type(std::string(1, value));
                shown_now[at] = value;
                break;
            }
            case 5: {
                const size_t at = below(size);
                // The old value again, now and then.
                const char value = below(2) ? disk[at] : static_cast<char>(random());
                app().hex_set_byte(static_cast<int64_t>(at), static_cast<unsigned char>(value));
                shown_now[at] = value;
                break;
            }
            case 6: {
                const size_t length = 1 + below(std::min<size_t>(size, 4));
                const size_t at = below(size - length + 1);
                const std::string needle = shown_now.substr(at, length);
                const size_t from = below(size);
                app().m_hex_needle.assign(needle.begin(), needle.end());
                app().m_hex_search_pos = static_cast<int64_t>(from);
                app().m_hex_searching = true;
                const int64_t cursor = app().m_hex_cursor;
                while (app().hex_search_step()) {
                }
                const size_t found = shown_now.find(needle, from);
                ASSERT_EQ(app().m_hex_cursor,
                          found == std::string::npos ? cursor : static_cast<int64_t>(found));
                break;
            }
            default:
                if (below(4) == 0) {
                    ASSERT_EQ(app().hex_save(), "");
                    disk = shown_now;
                }
            }
            size_t changed = 0;
            for (size_t i = 0; i < size; ++i)
                changed += disk[i] != shown_now[i] ? 1 : 0;
            ASSERT_EQ(app().m_hex_edits.size(), changed) << seed << " " << step;
        }
        for (size_t i = 0; i<size; i += size> 500 ? 97 : 1)
            ASSERT_EQ(shown(static_cast<int64_t>(i)), static_cast<unsigned char>(shown_now[i]));
        EXPECT_EQ(saved(), disk) << seed;
        EXPECT_EQ(app().hex_save(), "");
        EXPECT_EQ(saved(), shown_now) << seed;
        EXPECT_EQ(lstat_of(file()).st_ino, before.st_ino);
        EXPECT_EQ(lstat_of(file()).st_size, before.st_size);
    }

  private:
    void move(size_t which) {
        constexpr guint kKeys[] = {GDK_KEY_Left,    GDK_KEY_Right,     GDK_KEY_Up,   GDK_KEY_Down,
                                   GDK_KEY_Page_Up, GDK_KEY_Page_Down, GDK_KEY_Home, GDK_KEY_End,
                                   GDK_KEY_Tab,     GDK_KEY_F3};
        key(kKeys[which]);
        EXPECT_GE(app().m_hex_cursor, 0);
        EXPECT_LT(app().m_hex_cursor, app().m_hex_size);
    }
};

class AppHexScript : public Script {};
class NightlyAppHexScript : public Script {};

}  // namespace

TEST_F(AppHexScript, what_is_saved_is_what_an_array_holds) {
    for (unsigned seed = 1; seed <= 100 && !HasFailure(); ++seed)
        play(seed);
}

TEST_F(NightlyAppHexScript, what_is_saved_is_what_an_array_holds_over_10000_seeds) {
    for (unsigned seed = 1; seed <= 10000 && !HasFailure(); ++seed)
        play(seed);
}
