// Unpacking the selected archive, and the dialogue that shows what is in one without unpacking it.
// The archive is listed in the background; a frame fetches the rows in view alone.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double kRow = 21;
constexpr double kSize = 11;
constexpr double kHeadY = 66;
constexpr double kListTop = 84;
constexpr double kBelowList = 56;
constexpr double kNarrowestFolder = 120;
constexpr double kSizeRoom = 110;  // of the row's right end, for the entry's size
// Of either end of a name, in bytes. No row shows more, and an archive may hold names of any
// length.
constexpr size_t kNameEnd = 1000;

std::string cut(const std::string& name) {
    if (name.size() <= 2 * kNameEnd)
        return name;
    return name.substr(0, kNameEnd) + "…" + name.substr(name.size() - kNameEnd);
}

}  // namespace

// --- Commands ---------------------------------------------------------------------------------

// Most of this has been asked before a command gets here.
std::string App::readable_archive(const char* what) {
    if (archive_ops::available_formats().empty()) {
        show_tools_missing();
        return {};
    }
    const std::vector<const FsEntry*> entries = active_pane().action_entries();
    if (entries.size() != 1) {
        Log::warnf("%s refused: %zu entries selected, need exactly 1", what, entries.size());
        show_message(tr("dlg.nothing_title"), tr("err.unpack_one"));
        return {};
    }
    const std::string& name = entries.front()->name;
    if (!archive_ops::reader_for_name(name)) {
        Log::warnf("%s refused: '%s' is not an archive name", what, name.c_str());
        show_error(tr("err.not_an_archive"));
        return {};
    }
    std::string path = su::join_path(active_pane().path(), name);
    if (!archive_ops::can_unpack(path)) {
        show_tools_missing();
        return {};
    }
    return path;
}

void App::open_unpack() {
    close_overlay();
    std::string archive = readable_archive("unpack");
    if (archive.empty())
        return;
    m_pending_unpack = std::move(archive);
    open_overlay(Overlay::UnpackSide, tr("action.unpack"));
}

void App::unpack_to(bool right) {
    const std::string archive = std::exchange(m_pending_unpack, {});
    close_overlay();
    if (archive.empty() || take_unseen_end())
        return;
    const std::string& target = pane_for(right).path();
    Log::infof("unpack %s -> %s", archive.c_str(), target.c_str());
    if (!archive_ops::start_unpack(archive, target, tr("task.unpacking")))
        return show_busy();
    m_bgtask_was_running = true;
}

void App::open_archive_view() {
    std::string archive = readable_archive("view");
    if (archive.empty())
        return;
    m_archive_path = std::move(archive);
    archive_ops::start_list(m_archive_path);
    open_overlay(Overlay::ArchiveView, su::basename_of(m_archive_path));
}

bool App::poll_listing() {
    bool listing = archive_ops::list_status().running;
    if (listing && m_overlay != Overlay::ArchiveView) {
        archive_ops::cancel_list();
        listing = false;
    }
    return std::exchange(m_listing_was_running, listing) || listing;
}

// --- Painting ---------------------------------------------------------------------------------

void App::draw_overlay_archive(double x, double y, double w, double h) {
    m_overlay_scrolls = true;
    const archive_ops::ListStatus status = archive_ops::list_status();
    const Rect list = {x + 16, y + kListTop, w - 32, h - kListTop - kBelowList};
    const int total = fmt::saturated(static_cast<int64_t>(status.count));
    m_overlay_page = std::max(1, static_cast<int>(list.h / kRow));
    m_list_scroll = std::clamp(m_list_scroll, 0, std::max(0, total - m_overlay_page));
    draw_archive_head(x, y + kHeadY, w, status);
    fill_list_ground(list);
    if (!status.error.empty()) {
        cairo_save(m_cr);
        clip_to(list.x, list.y, list.w, list.h);
        wrapped_text(su::sanitize_utf8(status.error), list.x + 14, list.y + 10, list.w - 28, kSize,
                     &m_palette.danger);
        cairo_restore(m_cr);
    } else if (total == 0 && !status.running) {
        draw_text(tr("archive.empty"), list.x + 14, list.y + kRow / 2, kSize, m_palette.secondary,
                  false, false, 1);
    } else {
        draw_archive_rows(list, total);
    }
    draw_list_thumb(list, status.error.empty() ? total : 0, m_list_scroll);
    draw_buttons(x, y + h - 46, w,
                 {{"action.unpack", Action::Unpack}, {"btn.close", Action::OverlayCancel}});
}

void App::draw_archive_head(double x, double y, double w, const archive_ops::ListStatus& status) {
    std::string text;
    if (!status.error.empty())
        text = tr("archive.failed");
    else if (status.running)
        text = fmt::count(static_cast<int64_t>(status.count)) + "  ·  " + tr("archive.reading");
    else
        text = I18n::instance().trf("status.folder_summary",
                                    fmt::saturated(static_cast<int64_t>(status.dirs)),
                                    fmt::saturated(static_cast<int64_t>(status.count) -
                                                   static_cast<int64_t>(status.dirs))) +
               "  ·  " + fmt::embedded(fmt::bytes(status.total_size));
    const double text_w =
        draw_text_clipped(text, x + 20, y, w - 40, kSize, m_palette.secondary, false, false);
    const double right = x + w - 20;
    const double room = right - (x + 20 + text_w) - 20;
    if (room <= kNarrowestFolder)
        return;
    const std::string folder = su::parent_of(m_archive_path);
    const double folder_w = std::min(room, text_width(folder, kSize, false, false));
    draw_text_clipped(folder, right - folder_w, y, room, kSize, m_palette.secondary, false, false);
}

void App::draw_archive_rows(const Rect& list, int total) {
    const std::vector<archive_ops::ListEntry> rows = archive_ops::list_slice(
        static_cast<size_t>(m_list_scroll), static_cast<size_t>(m_overlay_page) + 1);
    // Entries may have come since the total was taken; the thumb and the rows are of one frame.
    const int shown = std::min(static_cast<int>(rows.size()), total - m_list_scroll);
    const double right = list.x + list.w - 18;
    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    for (int i = 0; i < shown && kRow * i < list.h; ++i) {
        const archive_ops::ListEntry& row = rows[static_cast<size_t>(i)];
        const double top = list.y + kRow * i;
        // By the entry's own number, so that the bands move with the rows.
        if ((m_list_scroll + i) % 2 == 0)
            fill_rect(list.x, top, list.w, kRow, m_palette.pane, 0.5);
        draw_text_clipped(cut(row.name), list.x + 14, top + kRow / 2,
                          right - kSizeRoom - list.x - 14, kSize,
                          row.is_dir ? m_palette.dir_text : m_palette.text, false, false);
        if (!row.is_dir && row.size >= 0)
            draw_text_right(fmt::bytes(row.size), right, top + kRow / 2, kSize, m_palette.secondary,
                            false, false);
    }
    cairo_restore(m_cr);
}
