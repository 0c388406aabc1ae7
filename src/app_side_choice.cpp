// One question with two tiles: on which side a bookmark is opened, or an archive unpacked.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "i18n.h"

namespace {

constexpr double kTilesTop = 120;
constexpr double kTileH = 74;

}  // namespace

void App::draw_side_choice(double x, double y, double w, double h, const std::string& path,
                           const char* question_key, Action left_action, Action right_action) {
    draw_text_clipped(path, x + 20, y + 72, w - 40, 12.5, m_palette.text, false, false);
    draw_text(tr(question_key), x + 20, y + 96, 11, m_palette.secondary, false, false, 1);
    draw_buttons(x, y + h - 46, w, {{"btn.cancel", Action::OverlayCancel}});
    const std::vector<ButtonSpec> sides = {{"bookmark.left", left_action},
                                           {"bookmark.right", right_action}};
    const std::vector<Accelerator> accels = assign_accelerators(sides);
    const double tile_w = (w - 60) / 2;
    for (size_t i = 0; i < sides.size(); ++i)
        draw_side_tile(
            {x + 20 + static_cast<double>(i) * (tile_w + 20), y + kTilesTop, tile_w, kTileH},
            i == 1, sides[i], accels[i]);
}

// Below its label stands the folder that the side shows.
void App::draw_side_tile(const Rect& tile, bool right, const ButtonSpec& side,
                         const Accelerator& accel) {
    const int param = static_cast<int>(side.action);
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::Overlay && hover->param == param;
    fill_rounded(tile.x, tile.y, tile.w, tile.h, 4,
                 hot ? m_palette.control_hover : m_palette.control, 1);
    stroke_rounded(tile.x, tile.y, tile.w, tile.h, 4,
                   hot ? m_palette.accent : m_palette.control_edge, 1, 1);
    // The active side is the source in this program's colours, the other one the target.
    fill_rounded(tile.x + 6, tile.y + 10, 4, tile.h - 20, 2,
                 right == m_active_right ? m_palette.source_tint : m_palette.target_tint, 1);
    draw_button_label(side.label, tile, tile.y + 28, m_palette.control_text, accel);
    const std::string& folder = pane_for(right).path();
    const double room = tile.w - 40;
    const double folder_w = std::min(room, text_width(folder, 11, false, false));
    draw_text_clipped(folder, tile.x + (tile.w - folder_w) / 2, tile.y + 50, room, 11,
                      m_palette.secondary, false, false);
    add_hit(tile.x, tile.y, tile.w, tile.h, Hit::Overlay, param, right, tr(side.label));
}

void App::draw_overlay_bookmark_side(double x, double y, double w, double h) {
    draw_side_choice(x, y, w, h, m_pending_bookmark, "bookmark.which_side",
                     Action::BookmarkOpenLeft, Action::BookmarkOpenRight);
}

void App::draw_overlay_unpack_side(double x, double y, double w, double h) {
    draw_side_choice(x, y, w, h, m_pending_unpack, "unpack.where", Action::UnpackLeft,
                     Action::UnpackRight);
}
