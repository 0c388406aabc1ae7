// settings.json as it may come: hand-edited, cut off, from another program. Whatever it holds, the
// values stay within their bounds, and what is saved of them reads as the same.

#include "config_dir.h"
#include "settings.h"

namespace {

void require(bool held) {
    if (!held)
        std::abort();
}

void require_size(int value, int least, int most) {
    require(value == 0 || (value >= least && value <= most));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    make_config_dir("settings.json");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    write_config_file(data, size);
    SettingsStore& store = SettingsStore::instance();
    store.mutable_get() = Settings();
    store.load();
    const Settings s = store.get();
    require(s.thread_count >= 0 && s.thread_count <= 16);
    require(s.font_scale >= 70 && s.font_scale <= 200);
    require(s.font_family.size() <= 120);
    require(s.default_conflict != copy_engine::ConflictAction::Cancel);
    require(s.theme == "auto" || s.theme == "light" || s.theme == "dark");
    for (const int view : {s.archive_view_w, s.archive_view_h, s.hex_view_w, s.hex_view_h})
        require_size(view, 201, 19999);
    for (const int column : {s.col_w_name, s.col_w_size, s.col_w_type, s.col_w_modified,
                             s.col_w_created, s.col_w_permissions, s.col_w_owner, s.col_w_group})
        require_size(column, 40, 900);
    store.save();
    store.load();
    const Settings& again = store.get();
    require(again.language == s.language && again.theme == s.theme);
    require(again.thread_count == s.thread_count && again.font_scale == s.font_scale);
    require(again.left_sort == s.left_sort && again.archive_format == s.archive_format);
    return 0;
}
