#include "settings.h"

#include "actions.h"
#include "paths.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

using copy_engine::ConflictAction;

// The file has the form of JSON, but the readers are tolerant searches of the whole text: order,
// unknown keys and missing commas do not matter.

// The position behind the first colon after the first "key", or npos.
size_t value_start(const std::string& text, const char* key) {
    const std::string quoted = std::string("\"") + key + "\"";
    const size_t found = text.find(quoted);
    if (found == std::string::npos)
        return found;
    const size_t colon = text.find(':', found + quoted.size());
    return colon == std::string::npos ? colon : colon + 1;
}

std::string read_string(const std::string& text, const char* key) {
    const size_t start = value_start(text, key);
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
    const size_t start = value_start(text, key);
    if (start == std::string::npos)
        return {};
    const size_t first = text.find_first_not_of(" \t", start);
    if (first == std::string::npos)
        return {};
    const size_t end = text.find_first_of(",\r\n}", first);
    return text.substr(first, end == std::string::npos ? end : end - first);
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

struct ConflictWord {
    const char* word;
    ConflictAction action;
};

constexpr ConflictWord kConflictWords[] = {
    {"ask", ConflictAction::Ask},
    {"overwrite", ConflictAction::Overwrite},
    {"skip", ConflictAction::Skip},
    {"rename_new", ConflictAction::RenameNew},
    {"rename_existing", ConflictAction::RenameExisting},
    {"overwrite_if_newer", ConflictAction::OverwriteIfNewer},
};

// An absent key keeps the present value; an unknown word is Ask, the one that never loses a file.
ConflictAction read_conflict(const std::string& text, const char* key, ConflictAction present) {
    const std::string word = read_string(text, key);
    if (word.empty())
        return present;
    for (const ConflictWord& known : kConflictWords)
        if (word == known.word)
            return known.action;
    return ConflictAction::Ask;
}

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
    std::ifstream in(path(), std::ios::binary);
    if (!in)
        return;
    std::ostringstream content;
    content << in.rdbuf();
    const std::string text = content.str();

    Settings& s = m_settings;
    s.thread_count = std::clamp(read_int(text, "thread_count", s.thread_count), 0, 16);
    s.default_conflict = read_conflict(text, "default_conflict", s.default_conflict);
}

void SettingsStore::save() const {}

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
