#include "i18n.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

struct Text {
    const char* key;
    const char* english;
};

// In strcmp order of the keys: tr() searches by bisection.
constexpr Text kTexts[] = {
    {"%s files", "%s files"},
    {"1 file", "1 file"},
    {"action.make_link", "Create link on the other side"},
    {"bridge.copy", "Copy"},
    {"bridge.move", "Move"},
    {"bridge.refresh", "Refresh"},
    {"btn.cancel", "Cancel"},
    {"btn.close", "Close"},
    {"btn.details", "Details"},
    {"btn.ok", "OK"},
    {"col.created", "Created"},
    {"col.group", "Group"},
    {"col.modified", "Modified"},
    {"col.name", "Name"},
    {"col.owner", "Owner"},
    {"col.permissions", "Permissions"},
    {"col.size", "Size"},
    {"col.type", "Type"},
    {"conflict.apply_to_all", "Do this for all remaining files"},
    {"conflict.cancel_all", "Stop everything"},
    {"conflict.existing", "Already there"},
    {"conflict.headline", "This file is already there:"},
    {"conflict.if_newer", "Only if newer"},
    {"conflict.incoming", "Incoming"},
    {"conflict.overwrite", "Overwrite"},
    {"conflict.rename_existing", "Rename the old one"},
    {"conflict.rename_new", "Keep both"},
    {"conflict.skip", "Skip"},
    {"dlg.busy_text", "Wait for the running operation to finish, or cancel it."},
    {"dlg.busy_title", "Still busy"},
    {"dlg.error", "Caution"},
    {"dlg.errors_count", "%d entries failed"},
    {"dlg.errors_title", "Errors"},
    {"dlg.errors_truncated", "… further entries not listed."},
    {"dlg.nothing_text", "Select at least one entry first."},
    {"dlg.nothing_title", "Nothing found"},
    {"dlg.same_dir_text", "Both sides show the same folder. Use Duplicate instead."},
    {"dlg.same_dir_title", "Same folder"},
    {"err.broken_link", "This link points at something that is not there."},
    {"err.cannot_read", "Permission denied"},
    {"err.disk_full", "Stopped — the target is full"},
    {"err.link_same_dir",
     "Both sides show the same folder — open a different one on the other side."},
    {"err.name_empty", "The name must not be empty."},
    {"err.name_exists", "Something with that name is already there."},
    {"err.name_reserved", "That name is reserved."},
    {"err.name_slash", "A name cannot contain a slash."},
    {"err.name_too_long", "That name is too long."},
    {"err.no_trash_here", "This location has no trash. Delete permanently instead."},
    {"err.open_failed", "No program answered for this file."},
    {"label.empty_folder", "empty"},
    {"label.files", "files"},
    {"pane.source", "SOURCE"},
    {"pane.target", "TARGET"},
    {"progress.cancelled_label", "Cancelled"},
    {"progress.copied", "Copied"},
    {"progress.copying", "Copying"},
    {"progress.failures", "%d failed"},
    {"progress.finished", "Done"},
    {"progress.measuring", "Measuring what has to be copied …"},
    {"progress.moved", "Moved"},
    {"progress.moving", "Moving"},
    {"progress.no_space", "Not enough space: %s free, %s needed"},
    {"progress.stalled", "Waiting for %s — the drive is not responding"},
    {"s", "s"},
    {"settings.reset_done", "Settings reset"},
    {"status.folder_summary", "%d folders, %d files"},
    {"status.left_active", "Left side active"},
    {"status.reloaded", "Reloaded"},
    {"status.right_active", "Right side active"},
    {"status.selected", "%d selected"},
    {"task.deleted", "Deleted"},
    {"task.packed", "Packed"},
    {"task.unpacked", "Unpacked"},
};

static_assert(std::is_sorted(std::begin(kTexts), std::end(kTexts),
                             [](const Text& a, const Text& b) {
                                 return std::string_view(a.key) < std::string_view(b.key);
                             }));

}  // namespace

I18n& I18n::instance() {
    static I18n i18n;
    return i18n;
}

void I18n::set_language(const std::string& code) {
    m_setting = code.empty() ? "auto" : code;
    m_code = "en";
}

const char* I18n::tr(const char* key) const {
    if (!key || !*key)
        return key;
    const Text* found = std::lower_bound(
        std::begin(kTexts), std::end(kTexts), key,
        [](const Text& text, const char* k) { return std::strcmp(text.key, k) < 0; });
    if (found == std::end(kTexts) || std::strcmp(found->key, key) != 0)
        return key;
    return found->english;
}

std::string I18n::trf(const char* key, ...) {
    const char* format = instance().tr(key);
    va_list args;
    va_start(args, key);
    va_list measure;
    va_copy(measure, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string text = format;
    if (length >= 0) {
        text.assign(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, args);
        text.resize(static_cast<size_t>(length));
    }
#pragma GCC diagnostic pop
    va_end(args);
    return text;
}

std::string I18n::ui_font_family() const {
    return m_ui_font.empty() ? "sans-serif" : m_ui_font;
}

const char* tr(const char* key) {
    return I18n::instance().tr(key);
}
