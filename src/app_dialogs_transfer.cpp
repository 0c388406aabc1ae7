// What stands inside the panels of the transfer's dialogues: the question what to do about a name
// that is taken, and the list of what has failed.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "strutil.h"

#include <algorithm>

namespace {

constexpr double kCardH = 74;
constexpr double kRowStep = 18;
constexpr double kHalfRow = 9;
constexpr double kFirstRow = 14;    // its centre, from the box's top
constexpr double kReasonRoom = 15;  // of the box, from its bottom

constexpr const char* kUnknown = "—";

std::string date_text(int64_t seconds) {
    const std::string text = seconds > 0 ? fmt::date_time(seconds) : std::string();
    return text.empty() ? kUnknown : text;
}

int count_elevatable(const std::vector<copy_engine::FailedItem>& failures) {
    return static_cast<int>(
        std::count_if(failures.begin(), failures.end(), App::may_succeed_as_root));
}

}  // namespace

// --- Conflict ---------------------------------------------------------------------------------

void App::draw_overlay_conflict(double x, double y, double w, double h) {
    // Between the answer and the tick that closes the dialogue there is nothing to tell.
    const copy_engine::ConflictRequest ask =
        m_frame_copy.conflict.pending ? m_frame_copy.conflict : copy_engine::ConflictRequest{};
    draw_text_clipped(tr("conflict.headline"), x + 20, y + 66, w - 40, 12.5, m_palette.text, false,
                      false);
    draw_text_clipped(su::basename_of(ask.target_path), x + 20, y + 88, w - 40, 12.5,
                      m_palette.warn, false, false);

    // The bytes of a folder itself say nothing about what is in it.
    const auto size_text = [&ask](int64_t size) {
        return ask.is_dir ? std::string(kUnknown) : fmt::bytes(size);
    };
    const double card_w = (w - 60) / 2;
    const double cards_y = y + 114;
    draw_conflict_card({x + 20, cards_y, card_w, kCardH}, "conflict.incoming", m_palette.accent,
                       size_text(ask.source_size), ask.source_mtime);
    draw_conflict_card({x + 40 + card_w, cards_y, card_w, kCardH}, "conflict.existing",
                       m_palette.secondary, size_text(ask.target_size), ask.target_mtime);
    draw_conflict_verdict(x + 20, cards_y + 82, ask);
    draw_apply_to_all(x + 20, cards_y + 82 + 24, w - 40);

    // The second row's letters replace those of the first: the keyboard answers by the lower row.
    draw_buttons(x, y + h - 82, w,
                 {{"conflict.rename_new", Action::ConflictRenameNew},
                  {"conflict.rename_existing", Action::ConflictRenameExisting},
                  {"conflict.if_newer", Action::ConflictOverwriteIfNewer}});
    draw_buttons(x, y + h - 44, w,
                 {{"conflict.cancel_all", Action::ConflictCancel, false, true},
                  {"conflict.overwrite", Action::ConflictOverwrite, false, true},
                  {"conflict.skip", Action::ConflictSkip, true}});
}

void App::draw_conflict_card(const Rect& card, const char* title_key, const std::string& tint,
                             const std::string& size, int64_t mtime) {
    const double x = card.x + 12;
    const double room = card.w - 24;
    fill_rounded(card.x, card.y, card.w, card.h, 4, m_palette.pane, 1);
    draw_text_clipped(tr(title_key), x, card.y + 17, room, 11, tint, false, false);
    draw_text_clipped(size, x, card.y + 39, room, 12.5, m_palette.text, false, false);
    draw_text_clipped(date_text(mtime), x, card.y + 55, room, 11, m_palette.secondary, false,
                      false);
}

void App::draw_conflict_verdict(double x, double y, const copy_engine::ConflictRequest& ask) {
    if (ask.source_mtime <= 0 || ask.target_mtime <= 0 || ask.source_mtime == ask.target_mtime)
        return;
    const bool newer = ask.source_mtime > ask.target_mtime;
    draw_text(tr(newer ? "conflict.incoming_newer" : "conflict.existing_newer"), x, y, 11,
              newer ? m_palette.ok : m_palette.warn, false, false, 1);
}

void App::draw_apply_to_all(double x, double centre, double w) {
    constexpr double kSide = 16;
    const double top = centre - kSide / 2;
    fill_rounded(x, top, kSide, kSide, 3,
                 m_conflict_apply_all ? m_palette.accent : m_palette.control, 1);
    stroke_rounded(x, top, kSide, kSide, 3, m_palette.control_edge, 1, 1);
    if (m_conflict_apply_all) {
        set_color("#FFFFFF", 1);
        cairo_move_to(m_cr, x + 3.5, top + 8);
        cairo_line_to(m_cr, x + 6.5, top + 11.5);
        cairo_line_to(m_cr, x + 12.5, top + 4.5);
        cairo_set_line_width(m_cr, 2);
        cairo_stroke(m_cr);
    }
    const std::string label = tr("conflict.apply_to_all");
    const double label_w =
        draw_text_clipped(label, x + 24, centre, w - 24, 11, m_palette.text, false, false);
    add_hit(x, centre - 10, label_w + 28, 20, Hit::Overlay,
            static_cast<int>(Action::ConflictToggleAll), false, label);
}

// --- Errors -----------------------------------------------------------------------------------

int App::elevatable_failures() const {
    return count_elevatable(copy_engine::instance().snapshot().failures);
}

std::string App::failure_line(size_t index) const {
    const size_t of_transfer = m_frame_copy.failures.size();
    if (index >= of_transfer)
        return m_frame_bg.failures[index - of_transfer];
    const copy_engine::FailedItem& item = m_frame_copy.failures[index];
    return item.path + " — " + item.message;
}

void App::draw_overlay_errors(double x, double y, double w, double h) {
    draw_text_clipped(I18n::instance().trf("dlg.errors_count",
                                           fmt::saturated(static_cast<int64_t>(failure_lines()))),
                      x + 20, y + 68, w - 40, 12.5, m_palette.danger, false, false);
    const bool elevatable = count_elevatable(m_frame_copy.failures) > 0;
    const bool told_why = elevatable && !m_can_elevate && !m_why_not_elevate.empty();
    // The reason stands at the box's bottom, which the list leaves to it.
    draw_failures({x + 16, y + 88, w - 32, h - 144}, told_why ? kReasonRoom : 0);
    if (told_why)
        draw_text_clipped(m_why_not_elevate, x + 20, y + h - 62, w - 40, 11, m_palette.dim, false,
                          false);

    std::vector<ButtonSpec> buttons;
    if (elevatable && m_can_elevate)
        buttons.push_back({"btn.retry_admin", Action::RetryAsAdmin});
    buttons.push_back({"btn.close", Action::DismissErrors, true});
    draw_buttons(x, y + h - 46, w, buttons);
}

// As many rows as fit from the one scrolled to, the last of which says so when there are more.
void App::draw_failures(const Rect& list, double left_free) {
    if (list.h <= 0)
        return;
    m_overlay_scrolls = true;
    const int count = fmt::saturated(static_cast<int64_t>(failure_lines()));
    const int fit =
        std::max(1, static_cast<int>((list.h - left_free - (kFirstRow - kHalfRow)) / kRowStep));
    m_list_scroll = std::clamp(m_list_scroll, 0, std::max(0, count - fit));
    fill_rounded(list.x, list.y, list.w, list.h, 4, m_palette.pane, 1);
    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    for (int row = 0; row < fit && m_list_scroll + row < count; ++row) {
        const int index = m_list_scroll + row;
        const double row_y = list.y + kFirstRow + kRowStep * row;
        if (row == fit - 1 && index + 1 < count)
            draw_text(tr("dlg.errors_truncated"), list.x + 12, row_y, 11, m_palette.secondary,
                      false, false, 1);
        else
            draw_text_clipped(failure_line(static_cast<size_t>(index)), list.x + 12, row_y,
                              list.w - 24, 11, m_palette.text, false, false);
    }
    cairo_restore(m_cr);
    m_overlay_page = fit;
    draw_list_thumb(list, count, m_list_scroll);
    // The next page begins with the row whose place that line has taken.
    m_overlay_page = std::max(1, fit - 1);
}
