// The bridge between the panes, a column with the direction of the work and its main commands, and
// the status bar below everything. Lengths are logical units.

#include "app.h"

#include "archive_ops.h"
#include "file_ops.h"
#include "format.h"
#include "i18n.h"
#include "strutil.h"

#include <algorithm>
#include <initializer_list>

namespace {

enum class Symbol { Copy, Move, Pack, Refresh, NewFolder, Delete, Hex, Terminal, Search, Trash };

struct BridgeButton {
    const char* key;
    App::Hit hit;
    Action action;
    Symbol symbol;
    std::string Palette::*color;
    bool primary;
};

constexpr BridgeButton kButtons[] = {
    {"bridge.copy", App::Hit::BridgeCopy, Action::CopyToOther, Symbol::Copy, &Palette::accent,
     true},
    {"bridge.move", App::Hit::BridgeMove, Action::MoveToOther, Symbol::Move, &Palette::warn, true},
    {"bridge.pack", App::Hit::BridgePack, Action::PackToOther, Symbol::Pack, &Palette::archive_text,
     false},
    {"bridge.search", App::Hit::BridgeSearch, Action::SearchPane, Symbol::Search,
     &Palette::secondary, false},
    {"bridge.hex", App::Hit::BridgeHex, Action::ViewHex, Symbol::Hex, &Palette::accent, false},
    {"bridge.terminal", App::Hit::BridgeTerminal, Action::OpenTerminal, Symbol::Terminal,
     &Palette::secondary, false},
    {"bridge.refresh", App::Hit::BridgeRefresh, Action::Refresh, Symbol::Refresh,
     &Palette::secondary, false},
    {"bridge.new_folder", App::Hit::BridgeNewFolder, Action::NewFolder, Symbol::NewFolder,
     &Palette::exec_text, false},
    {"bridge.delete", App::Hit::BridgeDelete, Action::Delete, Symbol::Delete, &Palette::danger,
     false},
    {"nav.trash", App::Hit::BridgeTrash, Action::GoToTrash, Symbol::Trash, &Palette::secondary,
     false},
};

bool exists(const BridgeButton& button) {
    switch (button.symbol) {
    case Symbol::Pack:
        return !archive_ops::available_formats().empty();
    case Symbol::Terminal:
        return file_ops::terminal_program() != nullptr;
    default:
        return true;
    }
}

// Where the buttons stand in a column at y, h high.
struct Stack {
    double top;
    double button_h;
    double gap;
};

Stack stack_of(int count, double y, double h) {
    Stack stack{y + 44, 40, 10};
    const double room = h - 44 - 6;
    const double wanted = stack.button_h * count + stack.gap * (count - 1);
    if (wanted > room) {
        stack.gap = std::max(4.0, stack.gap * room / wanted);
        stack.button_h = std::max(30.0, (room - stack.gap * (count - 1)) / count);
    }
    const double height = stack.button_h * count + stack.gap * (count - 1);
    stack.top += std::max(0.0, (room - height) / 2);
    return stack;
}

// --- Symbols: strokes in a square of 26 units -------------------------------------------------

struct Point {
    double x;
    double y;
};

void trace(cairo_t* cr, std::initializer_list<Point> points) {
    cairo_new_sub_path(cr);
    for (const Point& point : points)
        cairo_line_to(cr, point.x, point.y);
}

void box(cairo_t* cr, double x, double y, double w, double h) {
    cairo_rectangle(cr, x, y, w, h);
}

void circle(cairo_t* cr, double x, double y, double r) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, x, y, r, 0, 2 * G_PI);
}

void trace_symbol(cairo_t* cr, Symbol symbol) {
    switch (symbol) {
    case Symbol::Copy:
        box(cr, 10, 9, 11, 13);
        trace(cr, {{7, 17}, {5, 17}, {5, 4}, {16, 4}, {16, 6}});
        return;
    case Symbol::Move:
        trace(cr, {{4, 13}, {21, 13}});
        trace(cr, {{15, 7}, {21, 13}, {15, 19}});
        return;
    case Symbol::Pack:
        box(cr, 4, 5, 18, 5);
        trace(cr, {{6, 10}, {6, 22}, {20, 22}, {20, 10}});
        trace(cr, {{10, 14}, {16, 14}});
        return;
    case Symbol::Refresh:
        cairo_new_sub_path(cr);
        cairo_arc(cr, 13, 13, 8, -0.25 * G_PI, 1.5 * G_PI);
        trace(cr, {{9, 1.5}, {13, 5}, {9, 8.5}});
        return;
    case Symbol::NewFolder:
        trace(cr, {{4, 21}, {4, 6}, {10, 6}, {12, 9}, {22, 9}, {22, 21}, {4, 21}});
        trace(cr, {{13, 11.5}, {13, 18.5}});
        trace(cr, {{9.5, 15}, {16.5, 15}});
        return;
    case Symbol::Delete:
        trace(cr, {{6, 6}, {20, 20}});
        trace(cr, {{20, 6}, {6, 20}});
        return;
    case Symbol::Hex:
        cairo_new_sub_path(cr);
        cairo_arc(cr, 8, 10, 3.5, G_PI, 2 * G_PI);
        cairo_arc(cr, 8, 17, 3.5, 0, G_PI);
        cairo_close_path(cr);
        trace(cr, {{15, 9}, {18.5, 6.5}, {18.5, 20.5}});
        trace(cr, {{15, 20.5}, {22, 20.5}});
        return;
    case Symbol::Terminal:
        box(cr, 3, 5, 20, 16);
        trace(cr, {{7, 9.5}, {11, 13}, {7, 16.5}});
        trace(cr, {{13, 17}, {18, 17}});
        return;
    case Symbol::Search:
        circle(cr, 11.5, 11.5, 7);
        trace(cr, {{16.5, 16.5}, {22, 22}});
        return;
    case Symbol::Trash:
        trace(cr, {{4, 7}, {22, 7}});
        trace(cr, {{10, 7}, {10, 4}, {16, 4}, {16, 7}});
        trace(cr, {{6, 7}, {7.5, 22}, {18.5, 22}, {20, 7}});
        trace(cr, {{11, 11}, {11, 18}});
        trace(cr, {{15, 11}, {15, 18}});
        return;
    }
}

}  // namespace

// --- The bridge -------------------------------------------------------------------------------

void App::draw_bridge(double x, double y, double w, double h) {
    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(x, y, w, h);
    fill_band(x, y, w, h, m_palette.window);
    draw_direction(x + 10, x + w - 10, y + 26);
    const auto count = std::count_if(std::begin(kButtons), std::end(kButtons), exists);
    const Stack stack = stack_of(static_cast<int>(count), y, h);
    const bool working = frame_busy();
    // One button: the symbol in the upper part, the label under it.
    const auto button = [&](double bx, double by, double bw, double bh, const BridgeButton& what,
                            bool disabled) {
        const HitRect* hover = hovered();
        const bool hot = !disabled && hover && hover->what == what.hit;
        const double alpha = disabled ? 0.4 : 1;
        const std::string& plain = hot ? m_palette.control_hover : m_palette.control;
        fill_rounded(bx, by, bw, bh, 4,
                     what.primary ? mix_hex(m_palette.accent, plain, 0.14) : plain, alpha);
        stroke_rounded(bx, by, bw, bh, 4, what.primary ? m_palette.accent : m_palette.control_edge,
                       alpha, 1);
        const double scale = bh / 40;
        cairo_save(m_cr);
        cairo_translate(m_cr, bx + (bw - 26 * scale) / 2, by);
        cairo_scale(m_cr, scale, scale);
        // A move goes where the arrow above points.
        if (what.symbol == Symbol::Move && m_active_right) {
            cairo_translate(m_cr, 26, 0);
            cairo_scale(m_cr, -1, 1);
        }
        trace_symbol(m_cr, what.symbol);
        cairo_restore(m_cr);
        set_color(m_palette.*what.color, alpha);
        cairo_set_line_width(m_cr, 1.6);
        cairo_stroke(m_cr);
        const std::string label = tr(what.key);
        const double size = 10 * scale;
        const double label_w = std::min(text_width(label, size, false, false), bw - 6);
        draw_text_clipped(label, bx + (bw - label_w) / 2, by + bh - 9 * scale, label_w, size,
                          m_palette.control_text, false, false, alpha);
        if (disabled)
            return;
        const bool sided = what.hit == Hit::BridgeCopy || what.hit == Hit::BridgeMove;
        add_hit(bx, by, bw, bh, what.hit, 0, sided && !m_active_right, label);
    };
    double by = stack.top;
    for (const BridgeButton& what : kButtons) {
        if (!exists(what))
            continue;
        button(x + 10, by, w - 20, stack.button_h, what,
               working || !action_enabled(what.action, nullptr));
        by += stack.button_h + stack.gap;
    }
    cairo_restore(m_cr);
    // What runs past the column cannot be seen, and so cannot be clicked.
    clip_hits(first_hit, x, y, w, h);
}

// An arrow from the source to the target, in the colours of both.
void App::draw_direction(double left, double right, double y) {
    const double tail = m_active_right ? right : left;
    const double tip = m_active_right ? left : right;
    const double neck = tail + 0.7 * (tip - tail);
    cairo_pattern_t* gradient = cairo_pattern_create_linear(tail, y, tip, y);
    Rgb source{1, 0, 1};
    Rgb target{1, 0, 1};
    (void)hex_to_rgb(m_palette.source_tint, source);
    (void)hex_to_rgb(m_palette.target_tint, target);
    cairo_pattern_add_color_stop_rgb(gradient, 0, source.r, source.g, source.b);
    cairo_pattern_add_color_stop_rgb(gradient, 1, target.r, target.g, target.b);
    cairo_set_source(m_cr, gradient);
    cairo_pattern_destroy(gradient);
    cairo_move_to(m_cr, tail, y);
    cairo_line_to(m_cr, neck, y);
    cairo_set_line_width(m_cr, 4);
    cairo_stroke(m_cr);
    cairo_move_to(m_cr, tip, y);
    cairo_line_to(m_cr, neck, y - 9);
    cairo_line_to(m_cr, neck, y + 9);
    cairo_close_path(m_cr);
    cairo_fill(m_cr);
}

// --- The status bar ---------------------------------------------------------------------------

void App::draw_status_bar(double y, double w) {
    fill_band(0, y, w, Layout::status_h, m_palette.bar);
    fill_band(0, y, w, 1, m_palette.divider);
    const double centre = y + Layout::status_h / 2;
    const std::string side = tr(m_active_right ? "status.right_active" : "status.left_active");
    const double side_w = text_width(side, 11, false, false) + 16;
    const double side_x = w - 10 - side_w;
    fill_rounded(side_x, y + 3, side_w, 18, 4, m_palette.source_bg, 1);
    draw_text(side, side_x + 8, centre, 11, m_palette.source_tint, false, false, 1);

    // In a window too narrow for all three the middle gives way to the right, and the left to both.
    const double note_x = draw_status_note(y, w, side_x - 8);
    const dir_lister::Listing& listing = active_pane().listing();
    const std::string summary =
        I18n::instance().trf("status.folder_summary", listing.dir_count, listing.file_count) +
        "  ·  " + fmt::embedded(fmt::bytes(listing.total_bytes));
    draw_text_clipped(summary, 10, centre, std::min(note_x, side_x) - 8 - 10, 11,
                      m_palette.secondary, false, false);
}

// A question that waits, the short message or, without one, the selection, in a pill that is
// centred and ends at right_end at the latest. Returns where it begins, or right_end for none.
double App::draw_status_note(double y, double w, double right_end) {
    const double left = m_flash_until > 0 ? m_flash_until - now_seconds() : 0;
    if (left <= 0)
        m_flash_until = 0;
    const bool flashing = m_flash_until > 0;
    const Pane& pane = active_pane();
    const bool asked = m_frame_copy.conflict.pending && conflict_waits();
    std::string note;
    if (asked)
        note = std::string(tr("conflict.headline")) + " " +
               fmt::embedded(su::basename_of(m_frame_copy.conflict.target_path));
    else if (flashing)
        note = m_flash_text;
    else if (pane.has_selection())
        note = I18n::instance().trf("status.selected", pane.selected_count()) + "  ·  " +
               fmt::embedded(fmt::bytes(pane.selected_bytes()));
    const double room = 2 * (right_end - w / 2) - 16;
    if (note.empty() || room <= 0)
        return right_end;
    // The last half second of a message fades out.
    const bool fading = flashing && !asked;
    const double alpha = fading ? std::min(1.0, 2 * left) : 1;
    const double note_w = std::min(text_width(note, 11, false, false), room);
    const double x = (w - note_w - 16) / 2;
    fill_rounded(x, y + 3, note_w + 16, 18, 4, asked ? m_palette.danger_bg : m_palette.ok_bg,
                 asked      ? 1
                 : flashing ? 0.9 * alpha
                            : 0.5);
    draw_text_clipped(note, x + 8, y + Layout::status_h / 2, note_w, 11,
                      asked ? m_palette.warn : m_palette.ok, false, false, alpha);
    return x;
}
