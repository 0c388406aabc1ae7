#include "settings.h"

#include "actions.h"
#include "archive_format.h"
#include "config_file.h"
#include "fs_ops.h"
#include "i18n.h"
#include "paths.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

using copy_engine::ConflictAction;
using dir_lister::SortKey;

constexpr size_t kMostFontBytes = 120;

// --- Words of the file ------------------------------------------------------------------------

template <class Value>
struct Word {
    const char* word;
    Value value;
};

constexpr Word<SortKey> kSortWords[] = {
    {"name", SortKey::Name},
    {"size", SortKey::Size},
    {"modified", SortKey::Modified},
    {"kind", SortKey::Kind},
    {"permissions", SortKey::Permissions},
    {"owner", SortKey::Owner},
    {"created", SortKey::Created},
    {"group", SortKey::Group},
};

constexpr Word<ConflictAction> kConflictWords[] = {
    {"ask", ConflictAction::Ask},
    {"overwrite", ConflictAction::Overwrite},
    {"skip", ConflictAction::Skip},
    {"rename_new", ConflictAction::RenameNew},
    {"rename_existing", ConflictAction::RenameExisting},
    {"overwrite_if_newer", ConflictAction::OverwriteIfNewer},
};

// A value without a word is written as the first word of the table, and a text that is no word is
// read as the first value: the plainest order, and the answer that never loses a file.
template <class Value, size_t N>
const char* word_of(const Word<Value> (&words)[N], Value value) {
    for (const Word<Value>& row : words)
        if (row.value == value)
            return row.word;
    return words[0].word;
}

template <class Value, size_t N>
Value value_of(const Word<Value> (&words)[N], const std::string& word) {
    for (const Word<Value>& row : words)
        if (word == row.word)
            return row.value;
    return words[0].value;
}

// --- Writer -----------------------------------------------------------------------------------

// Quotes and backslashes get a backslash, control bytes become blanks. The reader undoes neither.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return result;
}

// The lines of the file in the order in which they are added.
class Writer {
  public:
    void add_bare(const char* key, const std::string& value) {
        m_text += m_text.empty() ? "{\n" : ",\n";
        m_text += std::string("  \"") + key + "\": " + value;
    }
    void add(const char* key, const std::string& value) { add_bare(key, "\"" + value + "\""); }
    void add(const char* key, const char* value) { add(key, std::string(value)); }
    void add(const char* key, bool value) { add_bare(key, value ? "true" : "false"); }
    void add(const char* key, int value) { add_bare(key, std::to_string(value)); }
    [[nodiscard]] std::string finished() const { return m_text + "\n}\n"; }

  private:
    std::string m_text;
};

std::string file_text(const Settings& s) {
    Writer out;
    out.add("language", s.language);
    out.add("theme", s.theme);
    out.add("thread_count", s.thread_count);
    out.add("show_hidden", s.show_hidden);
    out.add("default_conflict", word_of(kConflictWords, s.default_conflict));
    out.add("confirm_delete", s.confirm_delete);
    out.add("delete_to_trash", s.delete_to_trash);
    out.add("left_path", escaped(s.left_path));
    out.add("right_path", escaped(s.right_path));
    out.add("left_sort_key", word_of(kSortWords, s.left_sort.key));
    out.add("left_sort_asc", s.left_sort.ascending);
    out.add("right_sort_key", word_of(kSortWords, s.right_sort.key));
    out.add("right_sort_asc", s.right_sort.ascending);
    out.add("show_size", s.show_size);
    out.add("show_type", s.show_type);
    out.add("show_modified", s.show_modified);
    out.add("show_created", s.show_created);
    out.add("show_permissions", s.show_permissions);
    out.add("show_owner", s.show_owner);
    out.add("show_group", s.show_group);
    out.add("font_family", escaped(s.font_family));
    out.add("font_scale", s.font_scale);
    out.add("archive_format", s.archive_format);
    out.add("archive_view_w", s.archive_view_w);
    out.add("archive_view_h", s.archive_view_h);
    out.add("hex_view_w", s.hex_view_w);
    out.add("hex_view_h", s.hex_view_h);
    out.add("sandbox_notice_hidden", s.sandbox_notice_hidden);
    out.add("col_w_name", s.col_w_name);
    out.add("col_w_size", s.col_w_size);
    out.add("col_w_type", s.col_w_type);
    out.add("col_w_modified", s.col_w_modified);
    out.add("col_w_created", s.col_w_created);
    out.add("col_w_permissions", s.col_w_permissions);
    out.add("col_w_owner", s.col_w_owner);
    out.add("col_w_group", s.col_w_group);
    return out.finished();
}

// --- Reader -----------------------------------------------------------------------------------

// The bytes between the two quotes that follow the key's colon; empty when any of these is missing.
// A backslash does not protect a quote.
std::string read_string(const std::string& text, const char* key) {
    const size_t start = config_file::value_start(text, key);
    if (start == std::string::npos)
        return {};
    const size_t open = text.find('"', start);
    if (open == std::string::npos)
        return {};
    const size_t close = text.find('"', open + 1);
    if (close == std::string::npos)
        return {};
    return text.substr(open + 1, close - open - 1);
}

std::string read_raw(const std::string& text, const char* key) {
    const size_t start = config_file::value_start(text, key);
    if (start == std::string::npos)
        return {};
    const size_t first = text.find_first_not_of(" \t", start);
    if (first == std::string::npos)
        return {};
    const size_t end = text.find_first_of(",\r\n}", first);
    return text.substr(first, end == std::string::npos ? end : end - first);
}

// Only the beginning counts: "truest" is true.
bool read_bool(const std::string& text, const char* key, bool fallback) {
    const std::string raw = read_raw(text, key);
    if (raw.starts_with("true"))
        return true;
    return raw.starts_with("false") ? false : fallback;
}

int read_int(const std::string& text, const char* key, int fallback) {
    const std::string raw = read_raw(text, key);
    if (raw.empty())
        return fallback;
    char* end = nullptr;
    const long value = std::strtol(raw.c_str(), &end, 10);
    // Cut to 32 bits, as it has always been read.
    return end == raw.c_str() ? fallback : static_cast<int>(value);
}

// 0 for what lies outside.
int read_size(const std::string& text, const char* key, int least, int most) {
    const int value = read_int(text, key, 0);
    return value >= least && value <= most ? value : 0;
}

// A folder that has gone since is forgotten, rather than shown as an error at the next start.
std::string read_folder(const std::string& text, const char* key) {
    const std::string path = read_string(text, key);
    const bool usable = path.starts_with("/") && path.find('\0') == std::string::npos &&
                        fsops::stat_path(path).is_dir;
    return usable ? path : std::string();
}

dir_lister::SortOrder read_order(const std::string& text, const char* key, const char* ascending) {
    dir_lister::SortOrder order;
    order.key = value_of(kSortWords, read_string(text, key));
    order.ascending = read_bool(text, ascending, true);
    return order;
}

bool is_language(const std::string& code) {
    const auto languages = I18n::available();
    return code == "auto" || std::any_of(languages.begin(), languages.end(),
                                         [&code](const auto& row) { return row.code == code; });
}

bool is_theme(const std::string& word) {
    return word == "auto" || word == "light" || word == "dark";
}

bool is_font_family(const std::string& name) {
    const auto printable = [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && c != 0x7f;
    };
    return name.size() <= kMostFontBytes && std::all_of(name.begin(), name.end(), printable);
}

bool is_archive_format(const std::string& label) {
    return label == archive_ops::label_for(archive_ops::format_from_label(label));
}

void read_string_if(const std::string& text, const char* key, bool (*accepted)(const std::string&),
                    std::string& field) {
    std::string value = read_string(text, key);
    if (accepted(value))
        field = std::move(value);
}

struct SizeRow {
    const char* key;
    int Settings::*field;
};

constexpr SizeRow kOverlaySizes[] = {
    {"archive_view_w", &Settings::archive_view_w},
    {"archive_view_h", &Settings::archive_view_h},
    {"hex_view_w", &Settings::hex_view_w},
    {"hex_view_h", &Settings::hex_view_h},
};

constexpr SizeRow kColumnWidths[] = {
    {"col_w_name", &Settings::col_w_name},
    {"col_w_size", &Settings::col_w_size},
    {"col_w_type", &Settings::col_w_type},
    {"col_w_modified", &Settings::col_w_modified},
    {"col_w_created", &Settings::col_w_created},
    {"col_w_permissions", &Settings::col_w_permissions},
    {"col_w_owner", &Settings::col_w_owner},
    {"col_w_group", &Settings::col_w_group},
};

struct SwitchRow {
    const char* key;
    bool Settings::*field;
};

constexpr SwitchRow kSwitches[] = {
    {"show_hidden", &Settings::show_hidden},
    {"confirm_delete", &Settings::confirm_delete},
    {"delete_to_trash", &Settings::delete_to_trash},
    {"show_size", &Settings::show_size},
    {"show_type", &Settings::show_type},
    {"show_modified", &Settings::show_modified},
    {"show_created", &Settings::show_created},
    {"show_permissions", &Settings::show_permissions},
    {"show_owner", &Settings::show_owner},
    {"show_group", &Settings::show_group},
    {"sandbox_notice_hidden", &Settings::sandbox_notice_hidden},
};

// The field of a column, or null for a value outside the enumeration.
bool Settings::*column_field(ColumnId column) {
    switch (column) {
    case ColumnId::Size:
        return &Settings::show_size;
    case ColumnId::Type:
        return &Settings::show_type;
    case ColumnId::Modified:
        return &Settings::show_modified;
    case ColumnId::Created:
        return &Settings::show_created;
    case ColumnId::Permissions:
        return &Settings::show_permissions;
    case ColumnId::Owner:
        return &Settings::show_owner;
    case ColumnId::Group:
        return &Settings::show_group;
    }
    return nullptr;
}

}  // namespace

SettingsStore& SettingsStore::instance() {
    static SettingsStore store;
    return store;
}

void SettingsStore::load() {
    std::string text;
    if (!config_file::read(path(), text))
        return;
    Settings& s = m_settings;
    read_string_if(text, "language", is_language, s.language);
    read_string_if(text, "theme", is_theme, s.theme);
    read_string_if(text, "font_family", is_font_family, s.font_family);
    read_string_if(text, "archive_format", is_archive_format, s.archive_format);
    s.thread_count = std::clamp(read_int(text, "thread_count", s.thread_count), 0, 16);
    s.font_scale = std::clamp(read_int(text, "font_scale", s.font_scale), 70, 200);
    if (const std::string word = read_string(text, "default_conflict"); !word.empty())
        s.default_conflict = value_of(kConflictWords, word);
    s.left_path = read_folder(text, "left_path");
    s.right_path = read_folder(text, "right_path");
    s.left_sort = read_order(text, "left_sort_key", "left_sort_asc");
    s.right_sort = read_order(text, "right_sort_key", "right_sort_asc");
    for (const SwitchRow& row : kSwitches)
        s.*row.field = read_bool(text, row.key, s.*row.field);
    for (const SizeRow& row : kOverlaySizes)
        s.*row.field = read_size(text, row.key, 201, 19999);
    for (const SizeRow& row : kColumnWidths)
        s.*row.field = read_size(text, row.key, 40, 900);
}

void SettingsStore::save() const {
    // What could not be written is written with the next change.
    (void)config_file::replace(path(), file_text(m_settings));
}

std::string SettingsStore::path() const {
    return config_dir() + "/settings.json";
}

bool column_enabled(const Settings& settings, ColumnId column) {
    const auto field = column_field(column);
    return field && settings.*field;
}

void set_column_enabled(Settings& settings, ColumnId column, bool enabled) {
    if (const auto field = column_field(column))
        settings.*field = enabled;
}

std::optional<ColumnId> column_for_action(int action) {
    constexpr int kFirst = static_cast<int>(Action::ToggleColSize);
    constexpr int kLast = static_cast<int>(Action::ToggleColGroup);
    static_assert(kLast - kFirst == static_cast<int>(ColumnId::Group));
    if (action < kFirst || action > kLast)
        return std::nullopt;
    return static_cast<ColumnId>(action - kFirst);
}
