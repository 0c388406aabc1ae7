// What the byte view paints: offsets, bytes and text side by side, and below them the tools or the
// question that has taken their place. Bytes run from left to right in every language.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "strutil.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr int kColumns = 16;
constexpr double kListTop = 56;
constexpr double kBelowList = 92;
constexpr double kTools = 30;  // the height of the find field and of what stands beside it
constexpr double kPad = 12;
constexpr double kThumbRoom = 14;
constexpr double kSize = 11;
constexpr double kSmallest = 4;
constexpr double kRowPerSize = 17 / kSize;
constexpr double kByteColumns = 48;  // in letters, with the gap after the eighth
constexpr double kGap = 3;           // between the columns, in letters
constexpr double kNarrowestGap = 1.5;
constexpr double kStatusSpace = 12;

std::string offset_text(int64_t offset) {
    char text[24];
    std::snprintf(text, sizeof text, "%08llX", static_cast<unsigned long long>(offset));
    return text;
}

std::string byte_text(int value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(value));
    return text;
}

std::string changed_text(size_t count) {
    return I18n::instance().trf("hex.changed", fmt::saturated(static_cast<int64_t>(count)));
}

bool printable(int value) {
    return value >= ' ' && value <= '~';
}

}  // namespace

// Where the rows are, and how large.
struct App::HexGrid {
    Rect list;
    double size = kSize;
    double letter = 0;  // the width of one
    double row_h = 0;
    double head_y = 0;  // the vertical centre of the line above the rows
    double rows_y = 0;
    double offset_x = 0;
    double bytes_x = 0;
    double text_x = 0;
    int rows = 0;

    [[nodiscard]] double byte_x(int column) const {
        return bytes_x + letter * (3 * column + (column >= kColumns / 2 ? 1 : 0));
    }
    [[nodiscard]] double character_x(int column) const { return text_x + letter * column; }
};

void App::draw_overlay_hex(double x, double y, double w, double h) {
    const Rect list = {x + 16, y + kListTop, w - 32, h - kListTop - kBelowList};
    if (list.w > 0 && list.h > 0) {
        fill_list_ground(list);
        const HexGrid grid = place_hex_grid(list);
        const size_t first_hit = m_hits.size();
        cairo_save(m_cr);
        clip_to(list.x, list.y, list.w, list.h);
        draw_hex_head(grid);
        draw_hex_rows(grid);
        cairo_restore(m_cr);
        draw_hex_thumb(list);
        clip_hits(first_hit, list.x, list.y, list.w, list.h);
    }
    if (hex_asks())
        draw_hex_question(x, y, w, h);
    else
        draw_hex_tools(x, y, w, h);
}

// --- Bytes ------------------------------------------------------------------------------------

// Offsets of more digits take from the gaps first and from the letters' size then, as does a panel
// that is not wide enough.
App::HexGrid App::place_hex_grid(const Rect& list) {
    static const std::string kSample(80, '0');
    HexGrid grid;
    grid.list = list;
    const int64_t lines = m_hex_size / kColumns + (m_hex_size % kColumns != 0 ? 1 : 0);
    const std::string last = offset_text(std::max<int64_t>(lines - 1, 0) * kColumns);
    const double letters = static_cast<double>(last.size()) + kByteColumns + kColumns;
    const double room = list.w - 2 * kPad - kThumbRoom;
    const auto letter_at = [this](double size) {
        return text_width(kSample, size, false, true) / static_cast<double>(kSample.size());
    };
    grid.letter = letter_at(grid.size);
    while (grid.size > kSmallest && (letters + 2 * kNarrowestGap) * grid.letter > room) {
        grid.size -= 0.25;
        grid.letter = letter_at(grid.size);
    }
    const double gap =
        std::clamp((room / grid.letter - letters) / 2, kNarrowestGap, kGap) * grid.letter;
    const double all = letters * grid.letter + 2 * gap;
    grid.offset_x = list.x + kPad + std::max(0.0, std::floor((room - all) / 2));
    grid.bytes_x = grid.offset_x + static_cast<double>(last.size()) * grid.letter + gap;
    grid.text_x = grid.bytes_x + kByteColumns * grid.letter + gap;
    grid.row_h = grid.size * kRowPerSize;
    grid.head_y = list.y + 4 + grid.row_h / 2;
    grid.rows_y = list.y + 4 + grid.row_h + 5;
    grid.rows = std::max(0, static_cast<int>((list.y + list.h - 3 - grid.rows_y) / grid.row_h));
    m_hex_rows = std::max(1, grid.rows);
    m_hex_max_line = std::max<int64_t>(0, lines - m_hex_rows);
    m_hex_line = std::clamp<int64_t>(m_hex_line, 0, m_hex_max_line);
    return grid;
}

// The last digit of each column's offsets. That of the cursor stands out.
void App::draw_hex_head(const HexGrid& grid) {
    const int column = static_cast<int>(m_hex_cursor % kColumns);
    for (int i = 0; i < kColumns; ++i)
        draw_text(byte_text(i), grid.byte_x(i), grid.head_y, grid.size,
                  i == column ? m_palette.secondary : m_palette.dim, false, true, 1);
    fill_band(grid.list.x + kPad, grid.rows_y - 3, grid.list.w - 2 * kPad - kThumbRoom, 1,
              m_palette.divider, 0.7);
}

void App::draw_hex_rows(const HexGrid& grid) {
    const int64_t first = m_hex_line * kColumns;
    const std::vector<int> bytes = hex_bytes_in_view(first, grid.rows * kColumns);
    for (int row = 0; row < grid.rows; ++row) {
        const int64_t begin = first + row * kColumns;
        if (begin >= m_hex_size)
            return;
        const double top = grid.rows_y + row * grid.row_h;
        const bool current = m_hex_cursor / kColumns == begin / kColumns;
        draw_text(offset_text(begin), grid.offset_x, top + grid.row_h / 2, grid.size,
                  current ? m_palette.text : m_palette.secondary, false, true, 1);
        for (int column = 0; column < kColumns && begin + column < m_hex_size; ++column) {
            const int cell = row * kColumns + column;
            draw_hex_byte(grid, begin + column, bytes[static_cast<size_t>(cell)], top);
            // The cells meet, so that no click falls between two of them.
            const double left = grid.byte_x(column) - grid.letter / 2;
            const double next =
                column + 1 < kColumns ? grid.byte_x(column + 1) - grid.letter / 2 : left;
            add_hit(left, top, column + 1 < kColumns ? next - left : 3 * grid.letter, grid.row_h,
                    Hit::HexByte, cell);
            add_hit(grid.character_x(column), top, grid.letter, grid.row_h, Hit::HexByte, cell,
                    true);
        }
    }
}

// One that cannot be read is left blank.
void App::draw_hex_byte(const HexGrid& grid, int64_t offset, int value, double y) {
    const int column = static_cast<int>(offset % kColumns);
    const bool cursor = offset == m_hex_cursor;
    if (cursor)
        draw_hex_cursor(grid, column, y);
    if (value < 0)
        return;
    const bool changed = m_hex_edits.find(offset) != m_hex_edits.end();
    const auto color = [&](bool ascii, bool faint) -> const std::string& {
        if (cursor && m_hex_in_ascii == ascii && !m_hex_find_focus)
            return m_palette.selection_text;
        if (changed)
            return m_palette.source_tint;
        return faint ? m_palette.dim : m_palette.text;
    };
    const double centre = y + grid.row_h / 2;
    draw_text(byte_text(value), grid.byte_x(column), centre, grid.size, color(false, value == 0),
              changed, true, 1);
    const std::string shown(1, printable(value) ? static_cast<char>(value) : '.');
    draw_text(shown, grid.character_x(column), centre, grid.size, color(true, !printable(value)),
              changed, true, 1);
}

// Strong where the keys go, soft in the other column.
void App::draw_hex_cursor(const HexGrid& grid, int column, double y) {
    for (const bool ascii : {false, true}) {
        const double margin = ascii ? 0 : grid.letter * 0.3;
        const double left = ascii ? grid.character_x(column) : grid.byte_x(column);
        const Rect box = {left - margin, y + 1, (ascii ? 1 : 2) * grid.letter + 2 * margin,
                          grid.row_h - 2};
        if (m_hex_in_ascii != ascii || m_hex_find_focus) {
            fill_rounded(box.x, box.y, box.w, box.h, 2, m_palette.accent, 0.3);
            continue;
        }
        fill_rounded(box.x, box.y, box.w, box.h, 2, m_palette.selection, 1);
        if (!ascii && m_hex_low_nibble)
            fill_rect(left + grid.letter, box.y + box.h - 2, grid.letter, 1.5,
                      m_palette.selection_text, 1);
    }
}

void App::draw_hex_thumb(const Rect& list) {
    m_hex_track_y = list.y + 2;
    m_hex_track_h = list.h - 4;
    if (m_hex_max_line <= 0 || m_hex_track_h <= 0)
        return;
    const double x = list.x + list.w - 11;
    const double seen = m_hex_rows / static_cast<double>(m_hex_max_line + m_hex_rows);
    const double thumb_h = std::min(m_hex_track_h, std::max(24.0, m_hex_track_h * seen));
    const double share = static_cast<double>(m_hex_line) / static_cast<double>(m_hex_max_line);
    fill_rounded(x, m_hex_track_y, 7, m_hex_track_h, 4, m_palette.progress_track, 0.45);
    fill_rounded(x, m_hex_track_y + share * (m_hex_track_h - thumb_h), 7, thumb_h, 4,
                 m_palette.secondary, m_hex_drag ? 0.85 : 0.55);
    add_hit(x - 2, m_hex_track_y, 11, m_hex_track_h, Hit::HexThumb);
}

void App::drag_hex_scroll(double y) {
    if (m_hex_track_h <= 0)
        return;
    const double share = std::clamp((y - m_hex_track_y) / m_hex_track_h, 0.0, 1.0);
    // Of the longest files a double does not hold every row.
    m_hex_line = std::min(static_cast<int64_t>(static_cast<double>(m_hex_max_line) * share + 0.5),
                          m_hex_max_line);
}

// --- Below the bytes --------------------------------------------------------------------------

void App::draw_hex_question(double x, double y, double w, double h) {
    const Rect box = {x + 16, y + h - kBelowList + 6, w - 32, kBelowList - 58};
    const int count = fmt::saturated(static_cast<int64_t>(m_hex_edits.size()));
    const std::string text = m_hex_confirm_save
                                 ? I18n::instance().trf("hex.confirm_save", count)
                                 : std::string(tr("hex.unsaved")) + "  ·  " +
                                       fmt::embedded(changed_text(m_hex_edits.size()));
    fill_rounded(box.x, box.y, box.w, box.h, 4, m_palette.warn_bg, 1);
    // Of the longest languages two lines fit only smaller.
    double size = 12;
    double text_h = wrapped_text(text, 0, 0, box.w - 20, size, nullptr);
    while (text_h > box.h - 4 && size > 6)
        text_h = wrapped_text(text, 0, 0, box.w - 20, --size, nullptr);
    wrapped_text(text, box.x + 10, box.y + (box.h - text_h) / 2, box.w - 20, size, &m_palette.warn);
    std::vector<ButtonSpec> buttons = {{"btn.cancel", Action::HexSaveCancel}};
    if (m_hex_confirm_save) {
        buttons.push_back({"hex.overwrite", Action::HexSaveConfirm, false, true});
    } else {
        buttons.push_back({"hex.discard", Action::HexCloseAnyway, false, true});
        buttons.push_back({"hex.save", Action::HexSaveConfirm, true});
    }
    draw_buttons(x, y + h - 46, w, buttons);
}

void App::draw_hex_tools(double x, double y, double w, double h) {
    constexpr double kSpace = 8;
    const auto button_width = [this](const char* key, double least) {
        return std::max(least, text_width(tr(key), 12.5, false, false) + 32);
    };
    std::vector<ButtonSpec> buttons = {{"btn.close", Action::OverlayCancel}};
    if (!m_hex_edits.empty()) {
        buttons.insert(buttons.begin(), {"hex.save", Action::HexSave, true});
        double taken = button_width("hex.discard", 90) + kSpace;
        for (const ButtonSpec& button : buttons)
            taken += button_width(button.label, 90) + kSpace;
        // The question at the end offers it as well.
        const double status_w = text_width(offset_text(m_hex_cursor), kSize, false, true) +
                                text_width(changed_text(m_hex_edits.size()), kSize, false, false);
        if (w - 40 - taken >= status_w + 2 * kStatusSpace)
            buttons.insert(buttons.begin(), {"hex.discard", Action::HexDiscardChanges});
    }
    const double left = draw_buttons(x, y + h - 46, w, buttons);
    draw_hex_status(x + 20, y + h - 31, left - kStatusSpace - (x + 20));

    const ButtonSpec tools[] = {{m_hex_find_as_hex ? "HEX" : "TXT", Action::HexFindMode},
                                {"hex.find", Action::HexFindNext}};
    const std::vector<Accelerator> accels = assign_accelerators({tools[0], tools[1]});
    const double top = y + h - kBelowList + 8;
    const double find_w = button_width("hex.find", 70);
    const double mode_w = std::max(button_width("HEX", 60), button_width("TXT", 60));
    const double find_x = x + w - 20 - find_w;
    const double mode_x = find_x - kSpace - mode_w;
    draw_hex_find_field({x + 20, top, mode_x - kSpace - (x + 20), kTools});
    draw_button(mode_x, top, mode_w, tools[0], accels[0]);
    draw_button(find_x, top, find_w, tools[1], accels[1]);
}

void App::draw_hex_find_field(const Rect& box) {
    constexpr double kText = 12.5;
    if (box.w <= 20)
        return;
    fill_rounded(box.x, box.y, box.w, box.h, 4, m_palette.control, 1);
    stroke_rounded(box.x, box.y, box.w, box.h, 4,
                   m_hex_find_focus ? m_palette.accent : m_palette.control_edge, 1,
                   m_hex_find_focus ? 1.5 : 1);
    const double centre = box.y + box.h / 2;
    const double room = box.w - 20;
    cairo_save(m_cr);
    clip_to(box.x + 6, box.y, box.w - 12, box.h);
    const bool empty = m_hex_find.empty() && (!m_hex_find_focus || m_preedit.empty());
    if (empty)
        draw_text_clipped(tr("hex.find_hint"), box.x + 10, centre, room, kText, m_palette.dim,
                          false, false);
    if (m_hex_find_focus)
        draw_field_text(TextField::HexFind, m_hex_find, m_hex_find_caret, box.x + 10, centre, room,
                        kText, m_palette.control_text, 9);
    else
        draw_text(m_hex_find, box.x + 10, centre, kText, m_palette.control_text, false, false, 1);
    cairo_restore(m_cr);
    add_hit(box.x, box.y, box.w, box.h, Hit::HexFindField, 0, false, tr("hex.find_hint"));
}

// What there is to tell, and below it where the cursor is and how much has changed.
void App::draw_hex_status(double x, double y, double room) {
    std::string status = m_hex_searching ? tr("hex.searching") : m_hex_status;
    if (status.empty() && !m_hex_writable)
        status = tr("hex.read_only");
    const bool alarming = m_hex_status_is_error && !m_hex_searching;
    const double line = status.empty() ? y : y + 8;
    draw_text_clipped(su::sanitize_utf8(status), x, y - 8, room, kSize,
                      alarming ? m_palette.danger : m_palette.text, false, false);
    const double offset_w = draw_text_clipped(offset_text(m_hex_cursor), x, line, room, kSize,
                                              m_palette.secondary, false, true);
    if (!m_hex_edits.empty())
        draw_text_clipped(changed_text(m_hex_edits.size()), x + offset_w + kStatusSpace, line,
                          room - offset_w - kStatusSpace, kSize, m_palette.source_tint, false,
                          false);
}
