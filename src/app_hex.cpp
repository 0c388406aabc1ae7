// The byte view: a file that is shown and changed byte by byte. What is changed stays in a small
// map until it is saved, and then those bytes alone are written, in place. Painting is in
// app_hex_paint.cpp.

#include "app.h"

#include "i18n.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gdk/gdkkeysyms.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int64_t kRow = 16;
constexpr size_t kSlice = 8388608;
constexpr int64_t kPage = 4096;  // what a disk fails at as a whole
constexpr size_t kLoggedChanges = 20;
constexpr double kTwiceSeconds = 0.4;  // between the presses of a double click
constexpr double kHeldSeconds = 0.8;   // until a key that is held repeats itself
constexpr char kReplaced[] = "the file was replaced meanwhile";
constexpr char kCutShort[] = "the file was cut short meanwhile";

// A FIFO or a device must not make the window wait, nor become its terminal.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// As many bytes as there are, or -1 if not even the first can be read.
ssize_t read_at(int fd, unsigned char* out, size_t size, int64_t offset) {
    size_t got = 0;
    while (got < size) {
        const ssize_t n = pread(fd, out + got, size - got, offset + static_cast<off_t>(got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && got == 0)
            return -1;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

// Empty, or why not.
std::string write_byte(int fd, int64_t offset, unsigned char value) {
    struct stat now = {};
    if (fstat(fd, &now) != 0)
        return std::strerror(errno);
    if (offset >= now.st_size)
        return kCutShort;
    ssize_t n = 0;
    do {
        errno = EIO;  // for a disk that takes nothing and does not say why
        n = pwrite(fd, &value, 1, offset);
    } while (n < 0 && errno == EINTR);
    return n == 1 ? "" : std::strerror(errno);
}

bool same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Nothing for an odd count of digits.
std::optional<std::vector<unsigned char>> compile_needle(const std::string& text, bool as_hex) {
    if (!as_hex)
        return std::vector<unsigned char>(text.begin(), text.end());
    std::vector<unsigned char> bytes;
    int high = -1;
    for (const char c : text) {
        const int digit = hex_digit(c);
        if (digit < 0)
            continue;
        if (high >= 0)
            bytes.push_back(static_cast<unsigned char>(high << 4 | digit));
        high = high >= 0 ? -1 : digit;
    }
    if (high >= 0)
        return std::nullopt;
    return bytes;
}

}  // namespace

// --- Opening and closing ----------------------------------------------------------------------

// Most of this has been asked before the command gets here.
void App::view_hex() {
    const std::vector<const FsEntry*> entries = active_pane().action_entries();
    if (entries.size() != 1)
        return show_message(tr("dlg.nothing_title"), tr("err.hex_one"));
    const FsEntry& entry = *entries.front();
    if (entry.is_dir_like() || entry.kind == FsEntry::Kind::Parent)
        return show_error(tr("err.hex_not_a_file"));
    const std::string path = su::join_path(active_pane().path(), entry.name);
    if (!open_hex_view(path))
        return show_error(tr("err.hex_open_failed"));
    open_overlay(Overlay::HexView, su::basename_of(path));
}

bool App::open_hex_view(const std::string& path) {
    close_hex_view();
    const int fd = open(path.c_str(), O_RDONLY | kOpenFlags);
    if (fd < 0) {
        Log::warnf("hex: cannot open %s: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    struct stat found = {};
    if (fstat(fd, &found) != 0 || !S_ISREG(found.st_mode)) {
        close(fd);
        Log::warnf("hex: not a regular file: %s", path.c_str());
        return false;
    }
    m_hex_fd = fd;
    m_hex_path = path;
    m_hex_size = found.st_size;
    m_hex_writable = access(path.c_str(), W_OK) == 0;
    if (!m_hex_writable)
        set_hex_status(tr("hex.read_only"));
    Log::infof("hex: %s (%lld bytes, %s)", path.c_str(), static_cast<long long>(m_hex_size),
               m_hex_writable ? "writable" : "read-only");
    return true;
}

void App::close_hex_view() {
    if (m_hex_fd >= 0)
        close(m_hex_fd);
    m_hex_fd = -1;
    m_hex_path.clear();
    m_hex_size = m_hex_line = m_hex_max_line = m_hex_cursor = m_hex_search_pos = 0;
    m_hex_drag = false;
    m_hex_track_y = m_hex_track_h = 0;
    m_hex_rows = 1;
    m_hex_edits.clear();
    m_hex_in_ascii = m_hex_low_nibble = m_hex_writable = false;
    m_hex_confirm_save = m_hex_confirm_close = false;
    m_hex_asked_at = 0;
    m_hex_asked_by = 0;
    m_hex_find.clear();
    m_hex_find_caret = 0;
    m_hex_find_focus = m_hex_find_as_hex = false;
    m_hex_needle.clear();
    m_hex_searching = false;
    set_hex_status("");
    m_hex_found_text.clear();
    m_hex_found_as_hex = false;
    m_hex_bad_pages.clear();
}

bool App::poll_hex() {
    if (m_overlay != Overlay::HexView) {
        if (m_hex_fd >= 0)
            close_hex_view();
        return false;
    }
    if (!m_hex_searching)
        return false;
    hex_search_step();
    return true;
}

void App::set_hex_status(const std::string& text, bool is_error) {
    m_hex_status = text;
    m_hex_status_is_error = is_error;
}

// --- Commands ---------------------------------------------------------------------------------

void App::hex_command(Action action) {
    switch (action) {
    case Action::HexFindNext:
        m_hex_find_focus = false;
        return hex_start_search(m_hex_cursor + 1);
    case Action::HexFindMode:
        m_hex_find_as_hex = !m_hex_find_as_hex;
        return set_hex_status("");
    case Action::HexSave:
        if (!m_hex_edits.empty()) {
            m_hex_confirm_save = true;
            m_hex_confirm_close = false;
            m_hex_asked_at = now_seconds();
            m_hex_asked_by = 0;
        }
        return;
    case Action::HexSaveConfirm:
        return confirm_hex_save();
    case Action::HexSaveCancel:
        m_hex_confirm_save = m_hex_confirm_close = false;
        return;
    case Action::HexDiscardChanges:
        m_hex_edits.clear();
        m_hex_low_nibble = false;
        m_hex_confirm_save = m_hex_confirm_close = false;
        return;
    case Action::HexCloseAnyway:
        close_overlay();
        return close_hex_view();
    default:
        return;
    }
}

void App::confirm_hex_save() {
    const bool closing = std::exchange(m_hex_confirm_close, false);
    m_hex_confirm_save = false;
    const std::string error = hex_save();
    if (!error.empty())
        return set_hex_status(error, true);
    if (closing) {
        close_overlay();
        close_hex_view();
    }
}

void App::ask_hex_close() {
    m_hex_confirm_save = false;
    m_hex_confirm_close = true;
    m_hex_asked_at = now_seconds();
    m_hex_asked_by = 0;
}

bool App::repeats_hex_question(Action action, char letter) {
    if (!hex_asks() || (action != Action::HexSaveConfirm && action != Action::HexCloseAnyway))
        return false;
    const double now = now_seconds();
    if (!letter)
        return now < m_hex_asked_at + kTwiceSeconds;
    if (letter != m_hex_asked_by || now >= m_hex_asked_at + kHeldSeconds)
        return false;
    m_hex_asked_at = now;
    return true;
}

// --- Bytes ------------------------------------------------------------------------------------

bool App::hex_byte_at(int64_t offset, unsigned char* out) const {
    if (offset < 0 || offset >= m_hex_size)
        return false;
    if (const auto edit = m_hex_edits.find(offset); edit != m_hex_edits.end()) {
        *out = edit->second;
        return true;
    }
    return read_at(m_hex_fd, out, 1, offset) == 1;
}

void App::hex_set_byte(int64_t offset, unsigned char value) {
    if (offset < 0 || offset >= m_hex_size)
        return;
    unsigned char old = 0;
    if (read_at(m_hex_fd, &old, 1, offset) == 1 && old == value)
        m_hex_edits.erase(offset);
    else
        m_hex_edits[offset] = value;
}

// A page that cannot be read may hold the window up for as long as the disk tries, so no frame
// tries it twice.
std::vector<int> App::hex_bytes_in_view(int64_t first, int count) {
    std::vector<int> bytes(static_cast<size_t>(count), -1);
    const int64_t end = m_hex_size - first > count ? first + count : m_hex_size;
    for (int64_t at = first; at < end;) {
        const int64_t page = at / kPage * kPage;
        const int64_t wanted = std::min<int64_t>(kPage - (at - page), end - at);
        unsigned char read[kPage];
        const ssize_t got = m_hex_bad_pages.count(page)
                                ? 0
                                : read_at(m_hex_fd, read, static_cast<size_t>(wanted), at);
        if (got < 0)
            m_hex_bad_pages.insert(page);
        for (ssize_t i = 0; i < got; ++i)
            bytes[static_cast<size_t>(at - first + i)] = read[i];
        at += wanted;
    }
    for (auto edit = m_hex_edits.lower_bound(first); edit != m_hex_edits.end() && edit->first < end;
         ++edit)
        bytes[static_cast<size_t>(edit->first - first)] = edit->second;
    return bytes;
}

void App::hex_scroll_to_cursor() {
    const int64_t row = m_hex_cursor / kRow;
    m_hex_line = std::clamp(m_hex_line, row - m_hex_rows + 1, row);
    m_hex_line = std::clamp<int64_t>(m_hex_line, 0, m_hex_max_line);
}

// --- Search -----------------------------------------------------------------------------------

void App::hex_start_search(int64_t from) {
    const auto needle = compile_needle(m_hex_find, m_hex_find_as_hex);
    m_hex_found_text = m_hex_find;
    m_hex_found_as_hex = m_hex_find_as_hex;
    if (!needle) {
        m_hex_searching = false;
        return set_hex_status(tr("hex.bad_hex"));
    }
    m_hex_needle = *needle;
    if (m_hex_needle.empty()) {
        m_hex_searching = false;
        return;
    }
    m_hex_search_pos = from;
    m_hex_searching = true;
    set_hex_status("");
    Log::infof("hex: searching %zu bytes from %lld", m_hex_needle.size(),
               static_cast<long long>(from));
}

bool App::hex_search_step() {
    const size_t n = m_hex_needle.size();
    const size_t room = kSlice + n - 1;
    const int64_t left = m_hex_size - m_hex_search_pos;
    const size_t wanted =
        left <= 0 ? 0 : static_cast<size_t>(std::min<uint64_t>(room, static_cast<uint64_t>(left)));
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(room);
    const ssize_t result = read_at(m_hex_fd, buffer.get(), wanted, m_hex_search_pos);
    const size_t got = result < 0 ? 0 : static_cast<size_t>(result);
    const int64_t end = m_hex_search_pos + static_cast<int64_t>(got);
    if (n > 0 && got >= n) {
        for (auto edit = m_hex_edits.lower_bound(m_hex_search_pos);
             edit != m_hex_edits.end() && edit->first < end; ++edit)
            buffer[static_cast<size_t>(edit->first - m_hex_search_pos)] = edit->second;
        // In time that grows with the slice alone, whatever the needle: a file may be all zeros.
        const void* const match = memmem(buffer.get(), got, m_hex_needle.data(), n);
        if (match) {
            m_hex_cursor =
                m_hex_search_pos + (static_cast<const unsigned char*>(match) - buffer.get());
            m_hex_searching = m_hex_low_nibble = false;
            hex_scroll_to_cursor();
            Log::infof("hex: match at 0x%llX", static_cast<unsigned long long>(m_hex_cursor));
            return false;
        }
        m_hex_search_pos = end - static_cast<int64_t>(n - 1);
        if (end < m_hex_size)
            return true;
    }
    m_hex_searching = false;
    set_hex_status(tr("hex.not_found"));
    Log::infof("hex: pattern not found");
    return false;
}

// --- Saving -----------------------------------------------------------------------------------

std::string App::hex_save() {
    if (!m_hex_writable)
        return tr("hex.read_only");
    struct stat viewed = {};
    struct stat present = {};
    if (fstat(m_hex_fd, &viewed) != 0)
        return std::strerror(errno);
    // Before it is opened, since another program would notice that on its FIFO.
    if (stat(m_hex_path.c_str(), &present) == 0 && !same_file(viewed, present))
        return kReplaced;
    const int fd = open(m_hex_path.c_str(), O_WRONLY | kOpenFlags);
    if (fd < 0)
        return std::strerror(errno);
    std::string error;
    if (fstat(fd, &present) != 0 || !same_file(viewed, present)) {
        close(fd);
        return kReplaced;
    }
    size_t written = 0;
    for (auto edit = m_hex_edits.begin(); edit != m_hex_edits.end() && error.empty(); ++edit) {
        error = write_byte(fd, edit->first, edit->second);
        written += error.empty() ? 1 : 0;
    }
    if (error.empty() && fsync(fd) != 0)
        error = std::strerror(errno);
    close(fd);
    if (!error.empty()) {
        Log::errorf("hex: write failed after %zu bytes in %s: %s", written, m_hex_path.c_str(),
                    error.c_str());
        return error;
    }
    Log::infof("hex: wrote %zu byte(s) to %s", written, m_hex_path.c_str());
    size_t logged = 0;
    for (auto edit = m_hex_edits.begin(); edit != m_hex_edits.end() && logged < kLoggedChanges;
         ++edit, ++logged)
        Log::infof("  0x%08llX = %02X", static_cast<unsigned long long>(edit->first),
                   static_cast<unsigned>(edit->second));
    if (m_hex_edits.size() > logged)
        Log::infof("  … and %zu more", m_hex_edits.size() - logged);
    m_hex_edits.clear();
    m_hex_low_nibble = false;
    m_hex_bad_pages.clear();  // a disk may mend what is written
    set_hex_status(tr("hex.saved"));
    return {};
}

// --- Keys and pointer -------------------------------------------------------------------------

bool App::handle_hex_key(GdkEventKey* event) {
    const guint key = event->keyval;
    const bool ctrl = event->state & GDK_CONTROL_MASK;
    if (hex_asks()) {
        if (is_return(key))
            perform(Action::HexSaveConfirm, 0);
        else if (key == GDK_KEY_Escape)
            perform(Action::HexSaveCancel, 0);
        else
            perform_accelerator(*event);
    } else if (ctrl && latin_key(*event) == GDK_KEY_f) {
        m_hex_find_focus = true;
        m_hex_find_caret = m_hex_find.size();
    } else if (ctrl && latin_key(*event) == GDK_KEY_s) {
        perform(Action::HexSave, 0);
    } else if (key == GDK_KEY_F3) {
        perform(Action::HexFindNext, 0);
    } else if (key == GDK_KEY_Escape) {
        escape_hex();
    } else if (perform_accelerator(*event)) {
        return true;
    } else if (m_hex_find_focus) {
        handle_hex_find_key(event);
    } else if (key == GDK_KEY_BackSpace) {
        take_hex_byte_back();
    } else if (!move_hex_cursor(key, ctrl)) {
        type_hex(m_hex_in_ascii ? typed_text(*event) : typed_hex(*event));
    }
    return true;
}

// What is under way, or has the keys, ends before the view does.
void App::escape_hex() {
    if (m_hex_searching)
        m_hex_searching = false;
    else if (m_hex_find_focus)
        m_hex_find_focus = false;
    else
        perform(Action::OverlayCancel, 0);
}

// The next one is asked for by the same key once more.
void App::find_hex_text() {
    const bool again = m_hex_find == m_hex_found_text && m_hex_find_as_hex == m_hex_found_as_hex;
    hex_start_search(again ? m_hex_cursor + 1 : m_hex_cursor);
}

bool App::move_hex_cursor(guint key, bool ctrl) {
    const int64_t last = std::max<int64_t>(m_hex_size - 1, 0);
    const int64_t row = m_hex_cursor / kRow;
    const int64_t column = m_hex_cursor % kRow;
    const auto in_row = [&](int64_t wanted) {
        return std::clamp<int64_t>(wanted, 0, last / kRow) * kRow + column;
    };
    switch (key) {
    case GDK_KEY_Left:
        put_hex_cursor(m_hex_cursor - 1);
        return true;
    case GDK_KEY_Right:
        put_hex_cursor(m_hex_cursor + 1);
        return true;
    case GDK_KEY_Up:
        put_hex_cursor(in_row(row - 1));
        return true;
    case GDK_KEY_Down:
        put_hex_cursor(in_row(row + 1));
        return true;
    case GDK_KEY_Page_Up:
        put_hex_cursor(in_row(row - m_hex_rows));
        return true;
    case GDK_KEY_Page_Down:
        put_hex_cursor(in_row(row + m_hex_rows));
        return true;
    case GDK_KEY_Home:
        put_hex_cursor(ctrl ? 0 : row * kRow);
        return true;
    case GDK_KEY_End:
        put_hex_cursor(ctrl ? last : row * kRow + (kRow - 1));
        return true;
    case GDK_KEY_Tab:
    case GDK_KEY_ISO_Left_Tab:
        m_hex_in_ascii = !m_hex_in_ascii;
        put_hex_cursor(m_hex_cursor);
        return true;
    default:
        return false;
    }
}

void App::put_hex_cursor(int64_t offset) {
    m_hex_cursor = std::clamp<int64_t>(offset, 0, std::max<int64_t>(m_hex_size - 1, 0));
    m_hex_low_nibble = false;
    hex_scroll_to_cursor();
}

// A key of another alphabet can mean nothing but the digit that it types in the Latin one.
std::string App::typed_hex(const GdkEventKey& event) {
    const std::string text = typed_text(event);
    if (text.size() <= 1)
        return text;
    GdkEventKey latin = event;
    latin.state =
        (event.state & ~guint{GDK_SHIFT_MASK}) | GDK_CONTROL_MASK;  // which ask for the command
    latin.keyval = latin_key(latin);
    latin.state = 0;
    return typed_text(latin);
}

void App::type_hex(const std::string& text) {
    const char typed = text.size() == 1 ? text[0] : '\0';
    const int digit = hex_digit(typed);
    if (m_hex_in_ascii ? typed < ' ' || typed > '~' : digit < 0)
        return;
    if (!m_hex_writable)
        return set_hex_status(tr("hex.read_only"));
    unsigned char value = 0;
    if (!hex_byte_at(m_hex_cursor, &value))
        return;
    const bool whole = m_hex_in_ascii || m_hex_low_nibble;
    if (m_hex_in_ascii)
        value = static_cast<unsigned char>(typed);
    else if (m_hex_low_nibble)
        value = static_cast<unsigned char>((value & 0xf0) | digit);
    else
        value = static_cast<unsigned char>((value & 0x0f) | digit << 4);
    hex_set_byte(m_hex_cursor, value);
    set_hex_status("");
    put_hex_cursor(m_hex_cursor + (whole ? 1 : 0));
    m_hex_low_nibble = !whole;
}

// From the last byte the cursor cannot have moved on, nor after the first of two digits.
void App::take_hex_byte_back() {
    const bool here = m_hex_low_nibble || (m_hex_cursor + 1 == m_hex_size &&
                                           m_hex_edits.find(m_hex_cursor) != m_hex_edits.end());
    if (!here && m_hex_cursor == 0)
        return;
    const int64_t at = here ? m_hex_cursor : m_hex_cursor - 1;
    m_hex_edits.erase(at);
    put_hex_cursor(at);
}

void App::click_hex_byte(const HitRect& hit) {
    const int64_t last = std::max<int64_t>(m_hex_size - 1, 0);
    // The wheel may have turned beyond the end since the last frame.
    m_hex_cursor = std::min(std::min(m_hex_line, m_hex_max_line) * kRow + hit.param, last);
    m_hex_in_ascii = hit.right;
    m_hex_low_nibble = m_hex_find_focus = false;
}
