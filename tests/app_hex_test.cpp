// The byte view without its window: what is read, changed and found.

#include "app_hex.h"

#include "as_user.h"
#include "faultfs.h"
#include "fresh_process.h"
#include "log_lines.h"
#include "sanitized.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using faultfs::FaultFs;
using test_env::logged_with;
using test_env::lstat_of;
using test_env::pattern;
using test_env::write_file;

constexpr int64_t kSlice = 8388608;
constexpr int64_t kGiB = 1 << 30;

class AppHex : public HexAlone {
  protected:
    static int64_t resident() {
        std::ifstream statm("/proc/self/statm");
        int64_t pages = 0;
        statm >> pages >> pages;
        return pages * 4096;
    }
};

}  // namespace

// --- Opening and closing ----------------------------------------------------------------------

TEST_F(AppHex, a_file_opens_with_its_size) {
    open("0123456789");
    EXPECT_GE(app().m_hex_fd, 0);
    EXPECT_EQ(app().m_hex_path, file());
    EXPECT_EQ(app().m_hex_size, 10);
    EXPECT_TRUE(app().m_hex_writable);
    EXPECT_EQ(app().m_hex_status, "");
    EXPECT_TRUE(informed("hex: " + file() + " (10 bytes, writable)"));
    EXPECT_EQ(fcntl(app().m_hex_fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_TRUE(fcntl(app().m_hex_fd, F_GETFD) & FD_CLOEXEC);
}

TEST_F(AppHex, what_is_not_there_does_not_open) {
    EXPECT_FALSE(app().open_hex_view(in_dir("none")));
    EXPECT_TRUE(has_logged(Log::Level::Warn,
                           "hex: cannot open " + in_dir("none") + ": No such file or directory"));
    EXPECT_EQ(app().m_hex_fd, -1);
}

// Nobody writes to the FIFO: to wait for that would be to hang.
TEST_F(AppHex, only_a_regular_file_opens_and_nothing_is_waited_for) {
    ASSERT_EQ(mkfifo(in_dir("pipe").c_str(), 0600), 0);
    const auto before = std::chrono::steady_clock::now();
    for (const std::string& path : {in_dir("pipe"), dir(), std::string("/dev/null")}) {
        EXPECT_FALSE(app().open_hex_view(path));
        EXPECT_TRUE(has_logged(Log::Level::Warn, "hex: not a regular file: " + path))
            << test_env::log_text();
        EXPECT_EQ(app().m_hex_fd, -1);
        EXPECT_EQ(app().m_hex_path, "");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    ASSERT_EQ(mknod(in_dir("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_FALSE(app().open_hex_view(in_dir("socket")));
    EXPECT_TRUE(
        has_logged(Log::Level::Warn, "hex: cannot open " + in_dir("socket") + ": " + words(ENXIO)));
}

TEST_F(AppHex, a_link_shows_the_file_it_leads_to) {
    write_file(file(), "abc");
    ASSERT_EQ(symlink(file().c_str(), in_dir("link").c_str()), 0);
    open_there(in_dir("link"));
    type("41");
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(saved(), "Abc");
    EXPECT_TRUE(S_ISLNK(lstat_of(in_dir("link")).st_mode));
}

TEST_F(AppHex, closing_forgets_everything) {
    for (const bool by_opening : {false, true}) {
        open(pattern(1000));
        const int fd = app().m_hex_fd;
        app().m_hex_line = 3;
        app().m_hex_drag = app().m_hex_in_ascii = app().m_hex_low_nibble = true;
        app().m_hex_track_y = app().m_hex_track_h = 4;
        app().m_hex_edits[5] = 1;
        app().m_hex_cursor = 7;
        app().m_hex_confirm_save = app().m_hex_confirm_close = true;
        app().m_hex_asked_at = 1;
        app().m_hex_asked_by = 'S';
        app().m_hex_find = "abc";
        app().m_hex_find_caret = 2;
        app().m_hex_find_focus = app().m_hex_find_as_hex = app().m_hex_searching = true;
        app().m_hex_needle = {1, 2};
        app().m_hex_search_pos = 9;
        app().m_hex_status = "x";
        app().m_hex_status_is_error = true;
        app().m_hex_found_text = "abc";
        app().m_hex_found_as_hex = true;
        app().m_hex_bad_pages = {4096};
        if (by_opening) {
            write_file(in_dir("other"), "x");
            ASSERT_TRUE(app().open_hex_view(in_dir("other")));
            EXPECT_EQ(app().m_hex_size, 1);
        } else {
            app().close_hex_view();
            EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "still open";
            EXPECT_EQ(app().m_hex_fd, -1);
            EXPECT_EQ(app().m_hex_path, "");
            EXPECT_EQ(app().m_hex_size, 0);
            EXPECT_FALSE(app().m_hex_writable);
        }
        EXPECT_EQ(app().m_hex_line, 0);
        EXPECT_EQ(app().m_hex_max_line, 0);
        EXPECT_EQ(app().m_hex_track_y, 0);
        EXPECT_EQ(app().m_hex_track_h, 0);
        EXPECT_FALSE(app().m_hex_drag || app().m_hex_in_ascii || app().m_hex_low_nibble);
        EXPECT_TRUE(app().m_hex_edits.empty());
        EXPECT_EQ(app().m_hex_cursor, 0);
        EXPECT_FALSE(app().m_hex_confirm_save || app().m_hex_confirm_close);
        EXPECT_EQ(app().m_hex_asked_at, 0);
        EXPECT_EQ(app().m_hex_asked_by, 0);
        EXPECT_EQ(app().m_hex_find, "");
        EXPECT_EQ(app().m_hex_find_caret, 0U);
        EXPECT_FALSE(app().m_hex_find_focus || app().m_hex_find_as_hex || app().m_hex_searching);
        EXPECT_TRUE(app().m_hex_needle.empty());
        EXPECT_EQ(app().m_hex_search_pos, 0);
        EXPECT_EQ(app().m_hex_status, "");
        EXPECT_FALSE(app().m_hex_status_is_error);
        EXPECT_EQ(app().m_hex_found_text, "");
        EXPECT_FALSE(app().m_hex_found_as_hex);
        EXPECT_TRUE(app().m_hex_bad_pages.empty());
    }
}

TEST_F(AppHex, a_read_only_file_opens_and_refuses_edits) {
    write_file(file(), "abc", 0444);
    as_user::give(dir());
    as_user::give(file());
    EXPECT_TRUE(as_user::run([this] {
        open_there(file());
        EXPECT_FALSE(app().m_hex_writable);
        EXPECT_EQ(app().m_hex_status, "Read-only");
        EXPECT_TRUE(informed("hex: " + file() + " (3 bytes, read-only)"));
        EXPECT_EQ(shown(0), 'a');
        app().set_hex_status("");
        type("4");
        EXPECT_EQ(app().m_hex_status, "Read-only");
        EXPECT_FALSE(app().m_hex_low_nibble);
        app().m_hex_in_ascii = true;
        type("x");
        EXPECT_TRUE(app().m_hex_edits.empty());
        EXPECT_EQ(app().m_hex_cursor, 0);
        app().m_hex_edits[0] = 'x';  // by whatever road
        EXPECT_EQ(app().hex_save(), "Read-only");
        EXPECT_EQ(app().m_hex_edits.size(), 1U);
        EXPECT_EQ(saved(), "abc");
    }));
}

// --- Bytes ------------------------------------------------------------------------------------

TEST_F(AppHex, a_byte_is_the_files_or_its_change) {
    open(std::string("ab\0\xff", 4));
    EXPECT_EQ(shown(-1), -1);
    EXPECT_EQ(shown(0), 'a');
    EXPECT_EQ(shown(2), 0);
    EXPECT_EQ(shown(3), 0xff);
    EXPECT_EQ(shown(4), -1);
    app().hex_set_byte(3, 0x80);
    EXPECT_EQ(shown(3), 0x80);
    // One outside is none, whatever it is said to be.
    app().m_hex_edits[4] = 1;
    app().m_hex_edits[-1] = 1;
    EXPECT_EQ(shown(4), -1);
    EXPECT_EQ(shown(-1), -1);
}

TEST_F(AppHex, outside_the_file_nothing_is_set) {
    open("abc");
    for (const int64_t offset : {int64_t{-1}, int64_t{3}, int64_t{4}, 100 * kGiB})
        app().hex_set_byte(offset, 'x');
    EXPECT_TRUE(app().m_hex_edits.empty());
    open("");
    app().hex_set_byte(0, 'x');
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHex, the_old_value_leaves_nothing_to_save) {
    open("abc");
    app().hex_set_byte(0, 'x');
    app().hex_set_byte(2, 'z');
    EXPECT_EQ(app().m_hex_edits.size(), 2U);
    app().hex_set_byte(0, 'y');
    EXPECT_EQ(app().m_hex_edits.size(), 2U);
    app().hex_set_byte(0, 'a');
    EXPECT_EQ(app().m_hex_edits, (std::map<int64_t, unsigned char>{{2, 'z'}}));
    app().hex_set_byte(1, 'b');
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    // By the file as it is, not as it was.
    write_file(file(), "abz");
    app().hex_set_byte(2, 'z');
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHex, past_the_end_of_a_file_cut_short_there_is_nothing) {
    open(pattern(100));
    app().hex_set_byte(80, 1);
    ASSERT_EQ(truncate(file().c_str(), 50), 0);
    EXPECT_EQ(app().m_hex_size, 100);
    EXPECT_EQ(shown(49), static_cast<unsigned char>(pattern(100)[49]));
    EXPECT_EQ(shown(50), -1);
    EXPECT_EQ(shown(80), 1);
    const std::vector<int> view = app().hex_bytes_in_view(32, 96);
    for (int i = 0; i < 96; ++i)
        EXPECT_EQ(view[static_cast<size_t>(i)], shown(32 + i)) << i;
    // Nothing is there that could be changed.
    app().m_hex_cursor = 60;
    type("41");
    app().m_hex_in_ascii = true;
    type("x");
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
}

TEST_F(AppHex, rows_are_read_as_single_bytes_are) {
    open(pattern(10000));
    for (const int64_t offset : {0, 4095, 4096, 5000, 9999})
        app().hex_set_byte(offset, static_cast<unsigned char>(~shown(offset)));
    for (const int64_t first : {int64_t{0}, int64_t{4080}, int64_t{9984}, int64_t{20000}}) {
        const std::vector<int> view = app().hex_bytes_in_view(first, 9000);
        ASSERT_EQ(view.size(), 9000U);
        for (int i = 0; i < 9000; ++i)
            ASSERT_EQ(view[static_cast<size_t>(i)], shown(first + i)) << first << " " << i;
    }
}

// No offset is larger, and none past the end can be told.
TEST_F(AppHex, the_longest_file_is_read_to_its_end) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    test_env::make_dirs(in_dir("large"));
    ASSERT_TRUE(test_env::mount_tmpfs(in_dir("large"), "size=1m"));
    constexpr int64_t kEnd = INT64_MAX;
    const std::string path = in_dir("large/file");
    const std::string tail = pattern(3000);
    write_file(path, "");
    ASSERT_EQ(truncate(path.c_str(), kEnd), 0);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(fd, tail.data(), tail.size(), kEnd - 3000), 3000);
    ::close(fd);
    open_there(path, 30);
    const int64_t last_row = kEnd / 16 * 16;
    for (const int64_t first : {last_row - 16 * 180, last_row - 16 * 29, last_row}) {
        const std::vector<int> view = app().hex_bytes_in_view(first, 480);
        for (int i = 0; i < 480; ++i)
            ASSERT_EQ(view[static_cast<size_t>(i)], i <= kEnd - 1 - first ? shown(first + i) : -1)
                << kEnd - first << " " << i;
    }
    key(GDK_KEY_End, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_hex_cursor, kEnd - 1);
    for (const guint each :
         {guint{GDK_KEY_Right}, guint{GDK_KEY_Down}, guint{GDK_KEY_Page_Down}, guint{GDK_KEY_End}})
        key(each);
    EXPECT_EQ(app().m_hex_cursor, kEnd - 1);
    type("fe");
    search("fe", true, kEnd - 100);
    EXPECT_EQ(shown(app().m_hex_cursor), 0xfe);
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(shown(kEnd - 1), 0xfe);
    EXPECT_EQ(lstat_of(path).st_size, kEnd);
    app().close_hex_view();
}

// The wheel may have turned beyond the end since the last frame, which will not go as far.
TEST_F(AppHex, a_click_is_on_a_row_that_is_there) {
    open(pattern(16 * 100 + 5), 10);
    for (const int64_t line : {int64_t{91}, int64_t{93}, int64_t{1000}, INT64_MAX / 16 + 5}) {
        app().m_hex_line = line;
        App::HitRect hit = {};
        hit.what = App::Hit::HexByte;
        hit.param = 16 * 2 + 3;
        app().click_hex_byte(hit);
        EXPECT_EQ(app().m_hex_cursor, 16 * 93 + 3) << line;
    }
}

TEST_F(AppHex, a_page_that_cannot_be_read_is_tried_once) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "disk", pattern(20000));
    open_there(fs / "disk");
    fs.set(faultfs::fail("read", EIO));
    EXPECT_EQ(app().hex_bytes_in_view(0, 480), std::vector<int>(480, -1));
    const int64_t tried = fs.calls("read");
    EXPECT_GT(tried, 0);
    fs.clear();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(app().hex_bytes_in_view(16 * i, 480)[0], -1);
    EXPECT_EQ(fs.calls("read"), 0);
    // The next page is another one.
    EXPECT_EQ(app().hex_bytes_in_view(4096 - 16, 480)[15], -1);
    EXPECT_EQ(app().hex_bytes_in_view(4096 - 16, 480)[16], shown(4096));
    // What has been changed there is seen.
    app().m_hex_edits[3] = 7;
    EXPECT_EQ(app().hex_bytes_in_view(0, 480)[3], 7);
}

// --- Keys -------------------------------------------------------------------------------------

TEST_F(AppHex, a_digit_changes_half_a_byte) {
    open(std::string("\x12\x34\x56", 3));
    type("a");
    EXPECT_EQ(shown(0), 0xa2);
    EXPECT_EQ(app().m_hex_cursor, 0);
    EXPECT_TRUE(app().m_hex_low_nibble);
    type("F");
    EXPECT_EQ(shown(0), 0xaf);
    EXPECT_EQ(app().m_hex_cursor, 1);
    EXPECT_FALSE(app().m_hex_low_nibble);
    type("g x~");
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(app().m_hex_cursor, 1);
    key(GDK_KEY_KP_9);
    key(GDK_KEY_KP_0);
    EXPECT_EQ(shown(1), 0x90);
    // No modifier makes a digit of a command.
    key('1', GDK_MOD1_MASK);
    EXPECT_EQ(shown(2), 0x56);
}

TEST_F(AppHex, typing_the_old_digits_makes_the_counter_fall) {
    open(std::string("\x12\x34", 2));
    type("ff");
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    key(GDK_KEY_Left);
    type("1");
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    type("2");
    EXPECT_TRUE(app().m_hex_edits.empty());
    type("34");
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHex, at_the_last_byte_the_cursor_stays) {
    open("ab");
    app().m_hex_cursor = 1;
    type("1234");
    EXPECT_EQ(app().m_hex_cursor, 1);
    EXPECT_EQ(shown(1), 0x34);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    open("");
    type("12");
    key(GDK_KEY_Right);
    key(GDK_KEY_End);
    key(GDK_KEY_Page_Down);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_cursor, 0);
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHex, in_the_text_column_a_character_replaces_the_byte) {
    open("abcdef");
    key(GDK_KEY_Tab);
    EXPECT_TRUE(app().m_hex_in_ascii);
    type("Z ~1");
    EXPECT_EQ(shown(0), 'Z');
    EXPECT_EQ(shown(1), ' ');
    EXPECT_EQ(shown(2), '~');
    EXPECT_EQ(shown(3), '1');
    EXPECT_EQ(app().m_hex_cursor, 4);
    EXPECT_FALSE(app().m_hex_low_nibble);
    // What is not one byte, or is not printable.
    key(GDK_KEY_adiaeresis);
    key(GDK_KEY_EuroSign);
    key(GDK_KEY_Delete);
    key(GDK_KEY_Return);
    key('x', GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_hex_edits.size(), 4U);
    EXPECT_EQ(app().m_hex_cursor, 4);
    key(GDK_KEY_ISO_Left_Tab);
    EXPECT_FALSE(app().m_hex_in_ascii);
    type("Z");
    EXPECT_EQ(app().m_hex_edits.size(), 4U);
}

TEST_F(AppHex, arrows_and_pages_move_the_cursor) {
    open(pattern(16 * 100 + 5), 10);
    const auto after = [this](guint keyval, int64_t from) {
        app().m_hex_cursor = from;
        app().m_hex_low_nibble = true;
        key(keyval);
        EXPECT_FALSE(app().m_hex_low_nibble);
        const int64_t row = app().m_hex_cursor / 16;
        EXPECT_LE(app().m_hex_line, row);
        EXPECT_GT(app().m_hex_line + 10, row);
        return app().m_hex_cursor;
    };
    const int64_t last = 16 * 100 + 4;
    EXPECT_EQ(after(GDK_KEY_Left, 16), 15);
    EXPECT_EQ(after(GDK_KEY_Left, 0), 0);
    EXPECT_EQ(after(GDK_KEY_Right, 15), 16);
    EXPECT_EQ(after(GDK_KEY_Right, last), last);
    EXPECT_EQ(after(GDK_KEY_Up, 35), 19);
    EXPECT_EQ(after(GDK_KEY_Up, 7), 7);
    EXPECT_EQ(after(GDK_KEY_Down, 19), 35);
    EXPECT_EQ(after(GDK_KEY_Down, last - 16), last);
    EXPECT_EQ(after(GDK_KEY_Down, 16 * 99 + 12), last);
    EXPECT_EQ(after(GDK_KEY_Down, last), last);
    EXPECT_EQ(after(GDK_KEY_Page_Down, 3), 163);
    EXPECT_EQ(after(GDK_KEY_Page_Down, 16 * 95 + 3), 16 * 100 + 3);
    EXPECT_EQ(after(GDK_KEY_Page_Up, 16 * 50 + 3), 16 * 40 + 3);
    EXPECT_EQ(after(GDK_KEY_Page_Up, 16 * 5 + 3), 3);
    EXPECT_EQ(after(GDK_KEY_Home, 37), 32);
    EXPECT_EQ(after(GDK_KEY_End, 37), 47);
    EXPECT_EQ(after(GDK_KEY_End, 16 * 100 + 1), last);
}

TEST_F(AppHex, the_view_moves_just_as_far_as_the_cursor_needs) {
    open(pattern(16 * 100), 10);
    const auto line_for = [this](int64_t cursor, int64_t from) {
        app().m_hex_cursor = cursor;
        app().m_hex_line = from;
        app().hex_scroll_to_cursor();
        return app().m_hex_line;
    };
    EXPECT_EQ(line_for(16 * 25, 20), 20);
    EXPECT_EQ(line_for(16 * 29 + 15, 20), 20);
    EXPECT_EQ(line_for(16 * 30, 20), 21);
    EXPECT_EQ(line_for(16 * 20, 20), 20);
    EXPECT_EQ(line_for(16 * 19, 20), 19);
    EXPECT_EQ(line_for(0, 20), 0);
    EXPECT_EQ(line_for(16 * 99, 20), 90);
    EXPECT_EQ(line_for(16 * 95, 1000), 90);
    EXPECT_EQ(line_for(3, -4), 0);
}

TEST_F(AppHex, backspace_takes_back_the_edit_before_the_cursor) {
    open("abcdef");
    type("7172");
    EXPECT_EQ(app().m_hex_cursor, 2);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_cursor, 1);
    EXPECT_EQ(shown(1), 'b');
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    // After the first of two digits it is the byte itself.
    type("7");
    EXPECT_EQ(app().m_hex_edits.size(), 2U);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_cursor, 1);
    EXPECT_FALSE(app().m_hex_low_nibble);
    EXPECT_EQ(app().m_hex_edits, (std::map<int64_t, unsigned char>{{0, 'q'}}));
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_cursor, 0);
    EXPECT_TRUE(app().m_hex_edits.empty());
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_cursor, 0);
    // From the last byte the cursor could not move on.
    app().m_hex_in_ascii = true;
    app().m_hex_cursor = 4;
    type("xy");
    EXPECT_EQ(app().m_hex_cursor, 5);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_hex_edits, (std::map<int64_t, unsigned char>{{4, 'x'}}));
    EXPECT_EQ(app().m_hex_cursor, 5);
    key(GDK_KEY_BackSpace);
    EXPECT_TRUE(app().m_hex_edits.empty());
    EXPECT_EQ(app().m_hex_cursor, 4);
}

// So that what is behind the end of a file cut short can be given up.
TEST_F(AppHex, backspace_needs_nothing_of_the_file) {
    open(pattern(100));
    app().hex_set_byte(80, 1);
    ASSERT_EQ(truncate(file().c_str(), 50), 0);
    app().m_hex_cursor = 81;
    key(GDK_KEY_BackSpace);
    EXPECT_TRUE(app().m_hex_edits.empty());
}

TEST_F(AppHex, ctrl_f_and_escape_give_the_find_field_the_keys_and_take_them) {
    open("abc");
    app().m_hex_find = "xyz";
    key('f', GDK_CONTROL_MASK);
    EXPECT_TRUE(app().m_hex_find_focus);
    EXPECT_EQ(app().m_hex_find_caret, 3U);
    type("12");
    EXPECT_EQ(app().m_hex_find, "xyz12");
    EXPECT_TRUE(app().m_hex_edits.empty());
    key(GDK_KEY_Home);
    key(GDK_KEY_Right);
    key(GDK_KEY_BackSpace);
    key(GDK_KEY_Delete);
    key(GDK_KEY_End);
    key(GDK_KEY_Left);
    key(GDK_KEY_adiaeresis);
    EXPECT_EQ(app().m_hex_find, "z1ä2");
    EXPECT_EQ(app().m_hex_cursor, 0);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().m_hex_find_focus);
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    key('f', GDK_CONTROL_MASK);
    key(GDK_KEY_Tab);
    EXPECT_FALSE(app().m_hex_find_focus);
    EXPECT_FALSE(app().m_hex_in_ascii);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

// --- Search -----------------------------------------------------------------------------------

TEST_F(AppHex, text_is_found_as_it_is) {
    open("one two one");
    EXPECT_EQ(search("one", false, 1), 1);
    EXPECT_EQ(app().m_hex_cursor, 8);
    EXPECT_EQ(app().m_hex_status, "");
    EXPECT_TRUE(informed("hex: searching 3 bytes from 1"));
    EXPECT_TRUE(informed("hex: match at 0x8"));
    search("One");
    EXPECT_EQ(app().m_hex_status, "Not found");
    EXPECT_EQ(app().m_hex_cursor, 8);
    EXPECT_TRUE(informed("hex: pattern not found"));
    // Not from the beginning again.
    search("two", false, 5);
    EXPECT_EQ(app().m_hex_status, "Not found");
    search("one", false, 8);
    EXPECT_EQ(app().m_hex_status, "");
    EXPECT_EQ(app().m_hex_cursor, 8);
}

TEST_F(AppHex, hex_digits_are_read_two_to_a_byte) {
    open(std::string("..\x00\xab\xCD\xef\x10..", 9));
    for (const char* text : {"00abcdef10", "00 AB CD EF 10", "0 0aB:cD, (eF)\t1-0 zyx"}) {
        app().m_hex_cursor = 0;
        search(text, true);
        EXPECT_EQ(app().m_hex_cursor, 2) << text;
        EXPECT_EQ(app().m_hex_needle, (std::vector<unsigned char>{0, 0xab, 0xcd, 0xef, 0x10}));
    }
    search("10", false);
    EXPECT_EQ(app().m_hex_status, "Not found") << "two characters, not a byte";
}

TEST_F(AppHex, an_odd_count_of_digits_starts_nothing) {
    open("abc");
    for (const char* text : {"6", "61 6", "abcde", "x1y"}) {
        EXPECT_EQ(search(text, true), 0) << text;
        EXPECT_EQ(app().m_hex_status, "Incomplete hex sequence") << text;
    }
    EXPECT_EQ(logged_with("hex: searching"), 0);
    search("6162", true);
    EXPECT_EQ(app().m_hex_status, "");
}

TEST_F(AppHex, an_empty_needle_starts_nothing) {
    open("abc");
    app().set_hex_status("as it was");
    EXPECT_EQ(search(""), 0);
    EXPECT_EQ(search("", true), 0);
    EXPECT_EQ(search("xyz -", true), 0);
    EXPECT_EQ(app().m_hex_status, "as it was");
    EXPECT_EQ(logged_with("hex: searching"), 0);
}

TEST_F(AppHex, the_search_sees_what_is_shown) {
    open(std::string(100, '.') + "needle" + std::string(100, '.'));
    app().hex_set_byte(50, 'n');
    app().hex_set_byte(51, 'e');
    app().hex_set_byte(52, 'w');
    search("new");
    EXPECT_EQ(app().m_hex_cursor, 50);
    search(".new.");
    EXPECT_EQ(app().m_hex_cursor, 49);
    app().hex_set_byte(105, 'd');
    search("needle");
    EXPECT_EQ(app().m_hex_status, "Not found");
    search("needld");
    EXPECT_EQ(app().m_hex_cursor, 100);
    // At the very edges.
    app().hex_set_byte(0, 'A');
    app().hex_set_byte(205, 'Z');
    search("A");
    EXPECT_EQ(app().m_hex_cursor, 0);
    search("Z", false, 205);
    EXPECT_EQ(app().m_hex_cursor, 205);
}

TEST_F(AppHex, a_match_ends_half_a_typed_byte_and_comes_into_view) {
    open(std::string(16 * 100, '.') + "needle", 10);
    app().m_hex_low_nibble = true;
    search("needle");
    EXPECT_EQ(app().m_hex_cursor, 1600);
    EXPECT_FALSE(app().m_hex_low_nibble);
    EXPECT_EQ(app().m_hex_line, 91);
}

TEST_F(AppHex, a_needle_across_two_slices_is_found) {
    for (const int64_t at : {kSlice - 1, kSlice, kSlice + 1, kSlice + 4, kSlice + 5}) {
        sparse(3 * kSlice, at, "needle");
        open_there(file());
        // The first slice holds so much more that no match can lie across its end.
        EXPECT_EQ(search("needle"), at < kSlice ? 1 : 2) << at;
        EXPECT_EQ(app().m_hex_cursor, at);
    }
    // From everywhere, with a change in either slice.
    sparse(3 * kSlice);
    open_there(file());
    const std::string needle = "needle";
    for (size_t i = 0; i < needle.size(); ++i)
        app().hex_set_byte(kSlice + 100 - 3 + static_cast<int64_t>(i),
                           static_cast<unsigned char>(needle[i]));
    search(needle, false, 100);
    EXPECT_EQ(app().m_hex_cursor, kSlice + 97);
    app().hex_set_byte(kSlice + 97, 'N');
    EXPECT_EQ(search(needle, false, 100), 3);
    EXPECT_EQ(app().m_hex_status, "Not found");
}

TEST_F(AppHex, a_slice_is_8_mib_and_the_rest_of_a_needle) {
    sparse(100 * kGiB);
    open_there(file());
    app().m_hex_find = "needle";
    app().hex_start_search(7);
    for (int64_t step = 1; step <= 3; ++step) {
        EXPECT_TRUE(app().hex_search_step());
        EXPECT_EQ(app().m_hex_search_pos, 7 + step * kSlice);
    }
}

TEST_F(AppHex, the_search_ends_with_the_file) {
    sparse(kSlice, kSlice - 6, "needle");
    open_there(file());
    EXPECT_EQ(search("needle"), 1);
    EXPECT_EQ(app().m_hex_cursor, kSlice - 6);
    EXPECT_EQ(search("needles"), 1);
    EXPECT_EQ(app().m_hex_status, "Not found");
    EXPECT_EQ(search("needle", false, kSlice - 5), 1);
    EXPECT_EQ(app().m_hex_status, "Not found");
    EXPECT_EQ(search("n", false, kSlice), 1);
    EXPECT_EQ(search("n", false, kSlice + 1000), 1);
    EXPECT_EQ(app().m_hex_status, "Not found");
    // What has been added since is not shown, nor found.
    put(kSlice, "sss");
    search("needles");
    EXPECT_EQ(app().m_hex_status, "Not found");
    // What has been cut off is not there.
    ASSERT_EQ(truncate(file().c_str(), kSlice - 2), 0);
    search("needle");
    EXPECT_EQ(app().m_hex_status, "Not found");
    open("");
    EXPECT_EQ(search("x"), 1);
    EXPECT_EQ(app().m_hex_status, "Not found");
}

TEST_F(AppHex, a_disk_that_fails_ends_the_search) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "disk", pattern(20000));
    open_there(fs / "disk");
    fs.set(faultfs::fail("read", EIO));
    EXPECT_EQ(search("needle"), 1);
    EXPECT_EQ(app().m_hex_status, "Not found");
}

TEST_F(AppHex, many_almost_matches_do_not_hold_the_window_up) {
    sparse(2 * kSlice);
    open_there(file());
    app().m_hex_find.clear();
    for (int i = 0; i < 4000; ++i)
        app().m_hex_find += "00";
    app().m_hex_find += "01";
    app().m_hex_find_as_hex = true;
    app().hex_start_search(0);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(app().hex_search_step());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(3));
}

TEST_F(AppHex, enter_searches_on_and_f3_too) {
    open("ab ab ab ab");
    key('f', GDK_CONTROL_MASK);
    type("ab");
    const auto enter = [this](guint keyval) {
        key(keyval);
        while (app().m_hex_searching)
            app().hex_search_step();
        return app().m_hex_cursor;
    };
    // From the cursor on, and then from the next byte.
    EXPECT_EQ(enter(GDK_KEY_Return), 0);
    EXPECT_TRUE(app().m_hex_find_focus);
    EXPECT_EQ(enter(GDK_KEY_Return), 3);
    EXPECT_EQ(enter(GDK_KEY_KP_Enter), 6);
    type(" ");
    EXPECT_EQ(enter(GDK_KEY_Return), 6) << "the text has changed";
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(enter(GDK_KEY_Return), 6) << "and again";
    app().perform(Action::HexFindMode, 0);
    app().m_hex_find = "6162";
    app().m_hex_find_caret = 4;
    EXPECT_EQ(enter(GDK_KEY_Return), 6);
    app().m_hex_cursor = 0;
    EXPECT_EQ(enter(GDK_KEY_F3), 3);
    EXPECT_FALSE(app().m_hex_find_focus);
    EXPECT_EQ(enter(GDK_KEY_F3), 6);
    EXPECT_EQ(enter(GDK_KEY_F3), 9);
    EXPECT_EQ(enter(GDK_KEY_F3), 9);
    EXPECT_EQ(app().m_hex_status, "Not found");
    // What F3 has searched for counts as searched for.
    app().m_hex_cursor = 3;
    key('f', GDK_CONTROL_MASK);
    EXPECT_EQ(enter(GDK_KEY_Return), 6);
}

TEST_F(AppHex, the_same_text_as_hex_is_another_one) {
    open(std::string("61 a", 4));
    key('f', GDK_CONTROL_MASK);
    type("61");
    key(GDK_KEY_Return);
    app().hex_search_step();
    EXPECT_EQ(app().m_hex_cursor, 0);
    app().m_hex_cursor = 3;
    app().m_hex_find_as_hex = true;
    key(GDK_KEY_Return);
    app().hex_search_step();
    EXPECT_EQ(app().m_hex_cursor, 3);
    EXPECT_EQ(app().m_hex_status, "");
}

TEST_F(AppHex, escape_stops_a_search_first) {
    sparse(4 * kSlice);
    open_there(file());
    key('f', GDK_CONTROL_MASK);
    type("x");
    key(GDK_KEY_Return);
    EXPECT_TRUE(app().m_hex_searching);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().m_hex_searching);
    EXPECT_TRUE(app().m_hex_find_focus);
    EXPECT_EQ(app().m_hex_cursor, 0);
}

TEST_F(AppHex, the_tick_searches_one_slice_and_closes_what_nobody_sees) {
    sparse(100 * kGiB);
    open_there(file());
    EXPECT_FALSE(app().poll_hex());
    app().m_hex_find = "x";
    app().hex_start_search(0);
    EXPECT_TRUE(app().poll_hex());
    EXPECT_EQ(app().m_hex_search_pos, kSlice);
    app().m_overlay = App::Overlay::None;
    EXPECT_FALSE(app().poll_hex());
    EXPECT_EQ(app().m_hex_fd, -1);
    EXPECT_FALSE(app().m_hex_searching);
}

TEST_F(AppHex, a_file_of_100_gib_opens_at_once_and_takes_no_memory) {
    const int64_t at = 100 * kGiB - 4 * kSlice;
    // The room of one slice stays with the allocator for the next, whatever the file.
    sparse(2 * kSlice);
    open_there(file());
    EXPECT_EQ(search("needle"), 2);
    sparse(100 * kGiB, at, "needle");
    const int64_t before = resident();
    const auto start = std::chrono::steady_clock::now();
    open_there(file(), 30);
    key(GDK_KEY_Page_Down);
    app().m_hex_line = app().m_hex_max_line;
    EXPECT_EQ(app().m_hex_max_line, 100 * kGiB / 16 - 30);
    EXPECT_EQ(app().hex_bytes_in_view(app().m_hex_line * 16, 480), std::vector<int>(480, 0));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(search("needle", false, at - 9 * kSlice), 10);
    EXPECT_EQ(app().m_hex_cursor, at);
    EXPECT_EQ(app().m_hex_line, at / 16) << "from below, just so far";
    type("41");
    EXPECT_EQ(app().hex_save(), "");
    EXPECT_EQ(shown(at), 'A');
    EXPECT_LT(lstat_of(file()).st_blocks, 64);
    EXPECT_EQ(lstat_of(file()).st_size, 100 * kGiB);
    if (!test_env::kSanitized) {  // whose runtime keeps what is freed
        EXPECT_LT(resident() - before, 4 << 20);
    }
}
