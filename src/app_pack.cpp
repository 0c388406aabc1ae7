// The pack dialogue: the name of the archive, the formats that can be packed here, and the side
// that it goes to.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "file_ops.h"
#include "i18n.h"
#include "paths.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double kFieldTop = 84;
constexpr double kChipsTop = kFieldTop + 44;
constexpr double kChipH = 26;
constexpr double kChipText = 11;
constexpr double kChipPadding = 22;
constexpr double kChipGap = 6;
constexpr double kTileH = 30;
constexpr double kTileGap = 20;

// Empty, or why no archive may get this name.
std::string refuse_name(const std::string& dir, const std::string& name, const char* extension) {
    // Alone first, since with its extension no name is empty. Whether it is taken counts only for
    // the whole.
    const std::string error = file_ops::validate_name(dir, name, name);
    return error.empty() ? file_ops::validate_name(dir, name + extension, "") : error;
}

}  // namespace

// --- Commands ---------------------------------------------------------------------------------

void App::show_tools_missing() {
    show_error(tr(running_in_snap() ? "err.archiver_sandboxed" : "err.archiver_missing"));
}

void App::open_pack(bool to_other) {
    m_pack_to_other = to_other;
    m_pack_target_right = m_active_right != to_other;
    const Pane& pane = active_pane();
    const std::vector<const FsEntry*> entries = pane.action_entries();
    if (entries.empty())
        return show_nothing();
    const std::vector<archive_ops::Format>& formats = archive_ops::available_formats();
    if (formats.empty())
        return show_tools_missing();
    const std::string& wanted = SettingsStore::instance().get().archive_format;
    const auto found =
        std::find_if(formats.begin(), formats.end(), [&wanted](archive_ops::Format format) {
            return wanted == archive_ops::label_for(format);
        });
    m_pack_format = found == formats.end() ? formats.front() : *found;
    const std::string name =
        entries.size() == 1 ? entries.front()->name : su::basename_of(pane.path());
    open_text_input(Overlay::Pack, "dlg.pack_title",
                    name.empty() || name == "/" ? "archive" : name);
}

void App::start_pack(const std::string& name) {
    if (!archive_ops::format_available(m_pack_format))
        return show_error(tr("err.archiver_missing"));
    const std::string& folder = pane_for(m_pack_target_right).path();
    const char* const extension = archive_ops::extension_for(m_pack_format);
    if (const std::string error = refuse_name(folder, name, extension); !error.empty())
        return show_error(error);
    std::vector<std::string> sources = active_pane().action_paths();
    if (sources.empty())  // a reload has taken them away
        return show_nothing();
    if (take_unseen_end())
        return;
    if (!archive_ops::start_pack(std::move(sources), active_pane().path(),
                                 su::join_path(folder, name + extension), m_pack_format,
                                 tr("task.packing")))
        return show_busy();
    m_bgtask_was_running = true;
}

// The list of formats may have become another one since it was painted; the one that was clicked is
// the one that is meant.
void App::click_pack_format(const HitRect& chip) {
    const std::vector<archive_ops::Format>& formats = archive_ops::available_formats();
    if (chip.param < 0 || static_cast<size_t>(chip.param) >= formats.size())
        return;
    const archive_ops::Format format = formats[static_cast<size_t>(chip.param)];
    if (chip.label != archive_ops::label_for(format))
        return request_redraw();
    m_pack_format = format;
    SettingsStore::instance().mutable_get().archive_format = chip.label;
    SettingsStore::instance().save();
    request_redraw();
}

// --- Painting ---------------------------------------------------------------------------------

std::vector<App::FormatChip> App::pack_format_layout(double width) {
    std::vector<FormatChip> chips;
    double x = 0;
    double y = 0;
    for (const archive_ops::Format format : archive_ops::available_formats()) {
        const char* const label = archive_ops::label_for(format);
        const double w = text_width(label, kChipText, false, false) + kChipPadding;
        if (x > 0 && x + w > width) {
            x = 0;
            y += FormatChip::row_h;
        }
        chips.push_back({format, label, x, y, w});
        x += w + kChipGap;
    }
    return chips;
}

int App::pack_format_rows(double width) {
    const std::vector<FormatChip> chips = pack_format_layout(width);
    return chips.empty() ? 0 : static_cast<int>(chips.back().y / FormatChip::row_h) + 1;
}

void App::draw_overlay_pack(double x, double y, double w, double h) {
    const double left = x + 20;
    const double room = w - 40;
    draw_text_clipped(I18n::instance().trf("dlg.pack_count", active_pane().selected_count()), left,
                      y + 68, room, 11, m_palette.secondary, false, false);
    // The text ends 10 from the field's edge; half of the caret may stand beyond that.
    draw_input_field(left, y + kFieldTop, room, archive_ops::extension_for(m_pack_format), 9);

    const std::vector<FormatChip> chips = pack_format_layout(room);
    double tiles_y = y + kChipsTop + 4;
    for (size_t i = 0; i < chips.size(); ++i)
        draw_format_chip(chips[i], static_cast<int>(i), left + chips[i].x,
                         y + kChipsTop + chips[i].y);
    if (!chips.empty())
        tiles_y += chips.back().y + FormatChip::row_h;

    draw_buttons(x, y + h - 46, w,
                 {{"btn.cancel", Action::OverlayCancel}, {"btn.pack", Action::OverlayOk, true}});
    const std::vector<ButtonSpec> sides = {{"bookmark.left", Action::PackTargetLeft},
                                           {"bookmark.right", Action::PackTargetRight}};
    const std::vector<Accelerator> accels = assign_accelerators(sides);
    const double tile_w = (room - kTileGap) / 2;
    draw_pack_side({left, tiles_y, tile_w, kTileH}, false, sides[0], accels[0]);
    draw_pack_side({left + tile_w + kTileGap, tiles_y, tile_w, kTileH}, true, sides[1], accels[1]);
    if (m_pack_target_right != m_active_right)
        draw_text_clipped(tr("dlg.pack_target_hint"), left, tiles_y + kTileH + 12, room, 11,
                          m_palette.secondary, false, false);
}

void App::draw_format_chip(const FormatChip& chip, int index, double x, double y) {
    const bool chosen = chip.format == m_pack_format;
    fill_rounded(x, y, chip.w, kChipH, 4, chosen ? m_palette.accent : m_palette.control, 1);
    if (!chosen)
        stroke_rounded(x, y, chip.w, kChipH, 4, m_palette.control_edge, 1, 1);
    draw_text(chip.label, x + kChipPadding / 2, y + 13, kChipText,
              chosen ? "#FFFFFF" : m_palette.control_text, false, false, 1);
    add_hit(x, y, chip.w, kChipH, Hit::PackFormat, index, false, chip.label);
}

// The active side is the source in this program's colours, the other one the target.
void App::draw_pack_side(const Rect& tile, bool right, const ButtonSpec& side,
                         const Accelerator& accel) {
    const int param = static_cast<int>(side.action);
    const bool chosen = right == m_pack_target_right;
    if (chosen) {
        const HitRect* hover = hovered();
        const bool hot = hover && hover->what == Hit::Overlay && hover->param == param;
        fill_rounded(tile.x, tile.y, tile.w, tile.h, 4,
                     right == m_active_right ? m_palette.source_tint : m_palette.target_tint,
                     hot ? 1 : 0.85);
    } else {
        fill_rounded(tile.x, tile.y, tile.w, tile.h, 4, m_palette.control, 1);
        stroke_rounded(tile.x, tile.y, tile.w, tile.h, 4, m_palette.control_edge, 1, 1);
    }
    draw_button_label(side.label, tile, tile.y + tile.h / 2,
                      chosen ? "#FFFFFF" : m_palette.control_text, accel);
    add_hit(tile.x, tile.y, tile.w, tile.h, Hit::Overlay, param, right, tr(side.label));
}
