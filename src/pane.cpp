#include "pane.h"

#include "fs_ops.h"
#include "strutil.h"

#include <algorithm>
#include <fnmatch.h>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace {

// A dotfile has no extension: its stem is the whole name.
size_t stem_end(const std::string& text) {
    const size_t dot = text.rfind('.');
    return dot == std::string::npos || dot == 0 ? text.size() : dot;
}

bool matches(const std::string& pattern, const std::string& name) {
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

// Shared by all panes, since two of them can change places.
uint64_t next_number() {
    static uint64_t last = 0;
    return ++last;
}

}  // namespace

// --- Navigation ---------------------------------------------------------------------------------

void Pane::navigate_to(std::string path, bool show_hidden) {
    if (path.empty())
        return;
    if (m_history_pos >= 0)
        m_history.resize(static_cast<size_t>(m_history_pos) + 1);
    if (m_history.empty() || m_history.back() != path) {
        m_history.push_back(path);
        m_history_pos = static_cast<int>(m_history.size()) - 1;
    }
    m_path = std::move(path);
    m_visit = next_number();
    m_anchor = 0;
    cancel_rename();
    // m_wanted_name and m_filter stay: the one is the caller's wish, the other the user's.
    m_selected.clear();
    m_cursor = 0;
    m_scroll = 0;
    // Without the old rows, reload() has no name to carry over from the folder that was left.
    m_listing.entries.clear();
    reload(show_hidden);
}

void Pane::reload(bool show_hidden) {
    if (m_wanted_name.empty() && in_range(m_cursor))
        m_wanted_name = entries()[static_cast<size_t>(m_cursor)].name;
    const std::vector<std::string> names = selected_names();
    m_listing = dir_lister::read(m_path, show_hidden);
    m_generation = next_number();
    dir_lister::sort(m_listing.entries, m_sort);
    apply_filter();
    select_names(names);
    apply_sort_and_restore_cursor();
}

void Pane::go_up(bool show_hidden) {
    if (m_path.empty() || m_path == "/")
        return;
    std::string parent = su::parent_of(m_path);
    if (parent.empty())
        parent = "/";
    m_wanted_name = su::basename_of(m_path);
    navigate_to(std::move(parent), show_hidden);
}

bool Pane::can_go_back() const {
    return m_history_pos > 0;
}

bool Pane::can_go_forward() const {
    return static_cast<size_t>(m_history_pos) + 1 < m_history.size();
}

void Pane::go_back(bool show_hidden) {
    if (can_go_back())
        show_history_entry(m_history_pos - 1, show_hidden);
}

void Pane::go_forward(bool show_hidden) {
    if (can_go_forward())
        show_history_entry(m_history_pos + 1, show_hidden);
}

void Pane::show_history_entry(int position, bool show_hidden) {
    m_history_pos = position;
    m_path = m_history[static_cast<size_t>(position)];
    m_visit = next_number();
    m_selected.clear();
    m_cursor = 0;
    m_scroll = 0;
    m_listing.entries.clear();  // as in navigate_to()
    reload(show_hidden);
}

void Pane::remember_cursor_name(std::string name) {
    m_wanted_name = std::move(name);
}

void Pane::apply_sort_and_restore_cursor() {
    if (!m_wanted_name.empty()) {
        if (const int index = index_of(m_wanted_name); index >= 0)
            m_cursor = index;
        m_wanted_name.clear();
    }
    clamp_cursor();
    m_anchor = m_cursor;
}

void Pane::clamp_cursor() {
    m_cursor = entries().empty() ? 0 : clamped(m_cursor);
}

// --- Rows ---------------------------------------------------------------------------------------

bool Pane::is_ordinary(int index) const {
    return in_range(index) && entries()[static_cast<size_t>(index)].kind != FsEntry::Kind::Parent;
}

int Pane::clamped(int64_t index) const {
    return static_cast<int>(std::clamp<int64_t>(index, 0, row_count() - 1));
}

int Pane::index_of(const std::string& name) const {
    const auto found = std::find_if(entries().begin(), entries().end(),
                                    [&name](const FsEntry& entry) { return entry.name == name; });
    return found == entries().end() ? -1 : static_cast<int>(found - entries().begin());
}

std::vector<std::string> Pane::selected_names() const {
    std::vector<std::string> names;
    names.reserve(m_selected.size());
    for (const int index : m_selected) {
        if (in_range(index))
            names.push_back(entries()[static_cast<size_t>(index)].name);
    }
    return names;
}

// A set, not a search per row: everything may be selected in a folder of 100,000.
void Pane::select_names(const std::vector<std::string>& names) {
    m_selected.clear();
    const std::unordered_set<std::string_view> wanted(names.begin(), names.end());
    if (wanted.empty())
        return;
    for (int i = 0; i < row_count(); ++i) {
        if (is_ordinary(i) && wanted.contains(entries()[static_cast<size_t>(i)].name))
            m_selected.insert(m_selected.end(), i);
    }
}

// --- Cursor and selection -----------------------------------------------------------------------

void Pane::select_only(int index) {
    m_selected.clear();
    if (is_ordinary(index))
        m_selected.insert(index);
}

void Pane::set_cursor(int index, bool select_only_this) {
    if (entries().empty())
        return;
    m_cursor = clamped(index);
    m_anchor = m_cursor;
    if (select_only_this)
        select_only(m_cursor);
}

void Pane::move_cursor(Move move, bool extend, int page_rows) {
    if (entries().empty())
        return;
    const int64_t page = std::max(page_rows, 1);
    int64_t target = m_cursor;
    switch (move) {
    case Move::Up:
        target -= 1;
        break;
    case Move::Down:
        target += 1;
        break;
    case Move::PageUp:
        target -= page;
        break;
    case Move::PageDown:
        target += page;
        break;
    case Move::First:
        target = 0;
        break;
    case Move::Last:
        target = row_count() - 1;
        break;
    }
    m_cursor = clamped(target);
    if (extend) {
        extend_selection_to(m_cursor);
    } else {
        m_anchor = m_cursor;
        select_only(m_cursor);
    }
}

void Pane::toggle_selection(int index) {
    if (!is_ordinary(index))
        return;
    if (m_selected.erase(index) == 0)
        m_selected.insert(index);
    m_cursor = index;
    m_anchor = index;
}

void Pane::extend_selection_to(int index) {
    if (entries().empty())
        return;
    index = clamped(index);
    m_selected.clear();
    for (int i = std::min(m_anchor, index); i <= std::max(m_anchor, index); ++i) {
        if (is_ordinary(i))
            m_selected.insert(m_selected.end(), i);
    }
    m_cursor = index;
}

void Pane::select_all() {
    m_selected.clear();
    for (int i = 0; i < row_count(); ++i) {
        if (is_ordinary(i))
            m_selected.insert(m_selected.end(), i);
    }
}

void Pane::clear_selection() {
    m_selected.clear();
}

void Pane::invert_selection() {
    std::set<int> inverted;
    for (int i = 0; i < row_count(); ++i) {
        if (is_ordinary(i) && !is_selected(i))
            inverted.insert(inverted.end(), i);
    }
    m_selected = std::move(inverted);
}

int Pane::select_pattern(const std::string& pattern, bool deselect) {
    if (pattern.empty())
        return 0;
    int matched = 0;
    for (int i = 0; i < row_count(); ++i) {
        if (!is_ordinary(i) || !matches(pattern, entries()[static_cast<size_t>(i)].name))
            continue;
        ++matched;
        if (deselect)
            m_selected.erase(i);
        else
            m_selected.insert(i);
    }
    return matched;
}

// --- What an action works on --------------------------------------------------------------------

std::vector<const FsEntry*> Pane::action_entries() const {
    std::vector<const FsEntry*> result;
    if (m_selected.empty()) {
        if (is_ordinary(m_cursor))
            result.push_back(&entries()[static_cast<size_t>(m_cursor)]);
        return result;
    }
    result.reserve(m_selected.size());
    for (const int index : m_selected) {
        if (in_range(index))
            result.push_back(&entries()[static_cast<size_t>(index)]);
    }
    return result;
}

std::vector<std::string> Pane::action_paths() const {
    std::vector<std::string> paths;
    for (const FsEntry* entry : action_entries())
        paths.push_back(su::join_path(m_path, entry->name));
    return paths;
}

std::vector<std::string> Pane::selected_paths() const {
    std::vector<std::string> paths;
    for (const int index : m_selected) {
        if (is_ordinary(index))
            paths.push_back(su::join_path(m_path, entries()[static_cast<size_t>(index)].name));
    }
    return paths;
}

int Pane::selected_count() const {
    return m_selected.empty() ? (is_ordinary(m_cursor) ? 1 : 0)
                              : static_cast<int>(m_selected.size());
}

int64_t Pane::selected_bytes() const {
    int64_t bytes = 0;
    for (const FsEntry* entry : action_entries())
        bytes = fsops::add_sizes(bytes, std::max<int64_t>(entry->size, 0));
    return bytes;
}

// --- Scrolling ----------------------------------------------------------------------------------

void Pane::set_scroll(int rows, int visible_rows) {
    const int last = std::max(row_count() - std::max(visible_rows, 1), 0);
    m_scroll = std::clamp(rows, 0, last);
}

void Pane::scroll_by(int rows, int visible_rows) {
    const int64_t target = int64_t{m_scroll} + rows;
    set_scroll(static_cast<int>(std::clamp<int64_t>(target, 0, row_count())), visible_rows);
}

void Pane::ensure_cursor_visible(int visible_rows) {
    if (visible_rows <= 0)
        return;
    if (m_cursor < m_scroll)
        m_scroll = m_cursor;
    else if (int64_t{m_cursor} >= int64_t{m_scroll} + visible_rows)
        m_scroll = m_cursor - visible_rows + 1;
}

// --- Filter and sort ----------------------------------------------------------------------------

void Pane::apply_filter() {
    m_unfiltered_count = row_count();
    if (m_filter.empty())
        return;
    const std::string wanted = su::lower_ascii(m_filter);
    const bool is_pattern = wanted.find_first_of("*?") != std::string::npos;
    std::vector<FsEntry> kept;
    m_listing.file_count = 0;
    m_listing.dir_count = 0;
    m_listing.total_bytes = 0;
    for (FsEntry& entry : m_listing.entries) {
        if (entry.kind != FsEntry::Kind::Parent) {
            const std::string name = su::lower_ascii(entry.name);
            if (is_pattern ? !matches(wanted, name) : name.find(wanted) == std::string::npos)
                continue;
        }
        if (entry.kind == FsEntry::Kind::File) {
            ++m_listing.file_count;
            m_listing.total_bytes =
                fsops::add_sizes(m_listing.total_bytes, std::max<int64_t>(entry.size, 0));
        } else if (entry.kind == FsEntry::Kind::Dir) {
            ++m_listing.dir_count;
        }
        kept.push_back(std::move(entry));
    }
    m_listing.entries = std::move(kept);
}

void Pane::set_filter(const std::string& text, bool show_hidden) {
    if (text == m_filter)
        return;
    m_filter = text;
    reload(show_hidden);
    m_scroll = 0;
    clamp_cursor();
}

void Pane::set_sort_order(const dir_lister::SortOrder& order) {
    m_sort = order;
    const std::vector<std::string> names = selected_names();
    const bool has_cursor_row = in_range(m_cursor);
    std::string cursor_name;
    if (has_cursor_row)
        cursor_name = entries()[static_cast<size_t>(m_cursor)].name;
    dir_lister::sort(m_listing.entries, m_sort);
    m_generation = next_number();
    select_names(names);
    if (has_cursor_row)
        m_cursor = index_of(cursor_name);
    clamp_cursor();
    m_anchor = m_cursor;
}

void Pane::toggle_sort_column(dir_lister::SortKey key) {
    dir_lister::SortOrder order = m_sort;
    if (key == order.key) {
        order.ascending = !order.ascending;
    } else {
        // The largest or the newest is what a first click asks for.
        order.key = key;
        order.ascending = key != dir_lister::SortKey::Size && key != dir_lister::SortKey::Modified;
    }
    set_sort_order(order);
}

// --- Rename -------------------------------------------------------------------------------------

void Pane::begin_rename() {
    if (!is_ordinary(m_cursor))
        return;
    m_rename_index = m_cursor;
    m_rename_name = entries()[static_cast<size_t>(m_cursor)].name;
    m_rename_path = m_path;
    m_rename_buffer = m_rename_name;
    rename_select_stem();
}

void Pane::cancel_rename() {
    m_rename_index = -1;
    m_rename_buffer.clear();
    m_rename_caret = 0;
    m_rename_name.clear();
    m_rename_path.clear();
}

int Pane::rename_target() const {
    if (!renaming() || m_path != m_rename_path)
        return -1;
    const auto started_at = static_cast<size_t>(m_rename_index);
    if (in_range(m_rename_index) && entries()[started_at].name == m_rename_name)
        return m_rename_index;  // most often; each frame asks
    return index_of(m_rename_name);
}

void Pane::rename_select_stem() {
    m_rename_caret = stem_end(m_rename_buffer);
}

bool Pane::rename_insert(const std::string& text) {
    if (!renaming() || text.empty())
        return false;
    if (text.find('/') != std::string::npos)
        return true;
    m_rename_caret = std::min(m_rename_caret, m_rename_buffer.size());
    m_rename_buffer.insert(m_rename_caret, text);
    m_rename_caret += text.size();
    return true;
}

bool Pane::rename_backspace() {
    if (!renaming())
        return false;
    const size_t start = su::previous_character(m_rename_buffer, m_rename_caret);
    m_rename_buffer.erase(start, m_rename_caret - start);
    m_rename_caret = start;
    return true;
}

bool Pane::rename_delete() {
    if (!renaming())
        return false;
    const size_t end = su::next_character(m_rename_buffer, m_rename_caret);
    m_rename_buffer.erase(m_rename_caret, end - m_rename_caret);
    return true;
}

bool Pane::rename_move_caret(int delta) {
    if (!renaming())
        return false;
    if (delta < 0)
        m_rename_caret = su::previous_character(m_rename_buffer, m_rename_caret);
    else if (delta > 0)
        m_rename_caret = su::next_character(m_rename_buffer, m_rename_caret);
    return true;
}

void Pane::rename_set_caret(size_t position) {
    m_rename_caret = std::min(position, m_rename_buffer.size());
}
