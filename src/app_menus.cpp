// The menus: the bar with its drop-downs, the menu of a pane, and that of its columns. All of them
// are lists of lines in a box, which is measured, placed and painted by the same functions.
//
// Lengths are logical units from the window's upper left corner.

#include "app.h"

#include "archive_format.h"
#include "bookmarks.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "menu_model.h"
#include "recent.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double kTextSize = 12.5;
constexpr double kSmallSize = 11;
constexpr double kLineH = 26;
constexpr double kSeparatorH = 7;
constexpr double kMargin = 6;        // above the first line and below the last
constexpr double kEdge = 4;          // between a box and the window's edge
constexpr double kFirstTitle = 10;   // where the bar's titles begin
constexpr double kTitleMargin = 10;  // on either side of a title's text
constexpr double kBookmarkRoom = 40;
constexpr double kRecentRoom = 50;

// The setting that an item shows by its tick.
bool is_checked(int action) {
    const Settings& settings = SettingsStore::instance().get();
    if (action == static_cast<int>(Action::ToggleHidden))
        return settings.show_hidden;
    const auto column = column_for_action(action);
    return column && column_enabled(settings, *column);
}

}  // namespace

// How one kind of menu is laid out.
struct App::MenuKind {
    double least_w;
    double label_x;        // from the box, as is the tick's place
    double tick_x;         // 0: no ticks
    double label_room;     // what the box is wider than a label
    double shortcut_room;  // what it is wider still than the shortcut beside it
    bool check_boxes;
    double second_shadow;  // its alpha; 0: none
};

constexpr App::MenuKind App::kDropDown = {160, 28, 11, 50, 20, false, 0.08};
constexpr App::MenuKind App::kContextMenu = {180, 16, 0, 40, 10, false, 0};
constexpr App::MenuKind App::kColumnMenu = {190, 36, 14, 50, 0, true, 0};

struct App::MenuLine {
    enum class What { Item, Separator, Heading, Note };

    What what = What::Item;
    Hit hit = Hit::MenuItem;
    int param = 0;
    std::string text;
    const char* shortcut = nullptr;
    double room = 0;  // for its label; 0: as its kind has it
    bool enabled = true;
    bool checked = false;
    bool rule_above = false;
    bool rule_below = false;

    [[nodiscard]] double height() const { return what == What::Separator ? kSeparatorH : kLineH; }
    [[nodiscard]] double text_size() const {
        return what == What::Heading ? kSmallSize : kTextSize;
    }

    static MenuLine of(const menu_model::Item& item) {
        MenuLine line;
        line.what = item.separator ? What::Separator : What::Item;
        line.param = item.action;
        if (!item.separator)
            line.text = tr(item.label_key);
        line.shortcut = item.shortcut;
        line.checked = item.checkable && is_checked(item.action);
        return line;
    }
};

// --- Opening and closing ----------------------------------------------------------------------

// What was painted of a menu that is gone must not take a click before the next frame.
void App::forget_menu_input() {
    m_menu_hover_item = m_drive_hover = -1;
    m_menu_scroll = 0;
    for (HitRect& hit : m_hits)
        if (hit.in_menu || hit.what == Hit::MenuItem || hit.what == Hit::DriveItem)
            hit.what = Hit::None;
}

void App::open_menu(int index) {
    forget_menu_input();
    m_open_menu = index;
    // Each folder is looked at on the disk, which is nothing for a frame.
    if (index == menu_model::kGoMenu)
        m_menu_recent = recent::all();
    request_redraw();
}

bool App::close_menus() {
    const bool open = m_open_menu >= 0 || m_context_menu || m_open_drive_picker >= 0;
    m_open_menu = m_open_drive_picker = -1;
    m_context_menu = m_column_menu = false;
    forget_menu_input();
    return open;
}

void App::open_context_menu(double x, double y, bool right) {
    if (m_overlay != Overlay::None)
        return;  // the rename that the click has ended was refused
    close_menus();
    m_context_right = right;
    m_context_x = x;
    m_context_y = y;
    m_context_menu = true;
    request_redraw();
}

void App::open_column_menu(double x, double y, bool right) {
    activate_side(right);
    open_context_menu(x, y, right);
    m_column_menu = m_context_menu;
}

// --- Pointer ----------------------------------------------------------------------------------

void App::click_menu_title(int index) {
    if (m_open_menu == index)
        close_menus();
    else
        open_menu(index);
}

void App::click_menu_item(Action action) {
    // The keys may have gone to the other side since the menu was opened.
    if (m_context_menu)
        activate_side(m_context_right);
    close_menus();
    if (action == Action::None)
        return request_redraw();
    click_command(action);
}

void App::click_bookmark_item(int index) {
    const std::vector<bookmarks::Bookmark>& all = bookmarks::all();
    if (index < 0 || static_cast<size_t>(index) >= all.size())
        return;
    const bookmarks::Bookmark& bookmark = all[static_cast<size_t>(index)];
    close_menus();
    m_pending_bookmark = bookmark.path;
    if (fsops::stat_path(bookmark.path).is_dir)
        return open_overlay(Overlay::BookmarkSide, bookmark.name);
    Log::warnf("bookmark gone: %s", bookmark.path.c_str());
    show_message(tr("menu.bookmarks"), tr("err.bookmark_gone"), true, Action::BookmarkRemove,
                 "bookmark.forget");
}

void App::click_recent_item(int index) {
    if (index < 0 || static_cast<size_t>(index) >= m_menu_recent.size())
        return;
    close_menus();
    m_pending_bookmark = m_menu_recent[static_cast<size_t>(index)];
    open_overlay(Overlay::BookmarkSide, su::basename_of(m_pending_bookmark));
}

void App::slide_to_menu(const HitRect* hit) {
    if (m_open_menu >= 0 && hit && hit->what == Hit::MenuTitle && hit->param != m_open_menu)
        open_menu(hit->param);
}

bool App::hover_menu(const HitRect* hit) {
    const int item = hit && hit->what == Hit::MenuItem ? hit->param : -1;
    return std::exchange(m_menu_hover_item, item) != item;
}

bool App::scroll_menu(double lines) {
    if (!m_menu_scrolls || !menu_open())
        return false;
    m_menu_scroll += lines * kLineH;  // the painter keeps it within the list
    request_redraw();
    return true;
}

// --- The bar ----------------------------------------------------------------------------------

double App::menu_title_width(size_t index) {
    return text_width(tr(menu_model::bar()[index].title_key), kTextSize, false, false) +
           2 * kTitleMargin;
}

void App::draw_menu_bar() {
    const double h = m_layout.menu_h;
    fill_band(0, 0, m_layout.width, h, m_palette.bar);
    fill_band(0, h - 1, m_layout.width, 1, m_palette.divider);
    const HitRect* hover = hovered();
    double x = kFirstTitle;
    for (size_t i = 0; i < menu_model::bar().size(); ++i) {
        const int index = static_cast<int>(i);
        const double w = menu_title_width(i);
        const bool open = m_open_menu == index;
        if (open || (hover && hover->what == Hit::MenuTitle && hover->param == index))
            fill_rounded(x, 3, w, h - 7, 4, open ? m_palette.menu_hover : m_palette.control_hover,
                         1);
        const std::string title = tr(menu_model::bar()[i].title_key);
        draw_text(title, x + kTitleMargin, h / 2, kTextSize, m_palette.text, false, false, 1);
        add_hit(x, 0, w, h, Hit::MenuTitle, index, false, title);
        x += w;
    }
}

// --- The three menus --------------------------------------------------------------------------

void App::draw_open_menu() {
    if (m_open_menu < 0 || static_cast<size_t>(m_open_menu) >= menu_model::bar().size())
        return;
    m_drawing_menu = true;
    std::vector<MenuLine> lines;
    for (const menu_model::Item& item : menu_model::bar()[static_cast<size_t>(m_open_menu)].items) {
        MenuLine line = MenuLine::of(item);
        line.enabled = item.separator || action_enabled(static_cast<Action>(item.action), nullptr);
        lines.push_back(std::move(line));
    }
    if (m_open_menu == menu_model::kGoMenu)
        add_recent_lines(lines);
    if (m_open_menu == menu_model::kBookmarksMenu)
        add_bookmark_lines(lines);
    double x = kFirstTitle;
    for (int i = 0; i < m_open_menu; ++i)
        x += menu_title_width(static_cast<size_t>(i));
    draw_menu(lines, kDropDown, x, m_layout.menu_h);
    m_drawing_menu = false;
}

void App::add_recent_lines(std::vector<MenuLine>& lines) const {
    if (m_menu_recent.empty())
        return;
    MenuLine heading;
    heading.what = MenuLine::What::Heading;
    heading.text = tr("menu.recent");
    heading.rule_above = true;
    lines.push_back(heading);
    for (const std::string& path : m_menu_recent) {
        MenuLine line;
        line.hit = Hit::RecentItem;
        line.param = static_cast<int>(&path - m_menu_recent.data());
        line.text = path;
        line.room = kRecentRoom;
        lines.push_back(std::move(line));
    }
}

void App::add_bookmark_lines(std::vector<MenuLine>& lines) {
    const size_t first = lines.size();
    for (const bookmarks::Bookmark& bookmark : bookmarks::all()) {
        MenuLine line;
        line.hit = Hit::BookmarkItem;
        line.param = static_cast<int>(&bookmark - bookmarks::all().data());
        line.text = bookmark.name;
        line.room = kBookmarkRoom;
        lines.push_back(std::move(line));
    }
    if (lines.size() == first) {
        MenuLine note;
        note.what = MenuLine::What::Note;
        note.text = tr("bookmark.empty_menu");
        lines.push_back(std::move(note));
    }
    lines[first].rule_above = true;
}

void App::draw_context_menu() {
    if (m_column_menu)
        return draw_column_menu();
    const std::vector<const FsEntry*> entries = pane_for(m_context_right).action_entries();
    menu_model::ContextInfo info;
    info.has_selection = !entries.empty();
    info.selection_count = static_cast<int>(entries.size());
    if (!entries.empty()) {
        const FsEntry& first = *entries.front();
        info.is_dir = first.is_dir_like() || first.kind == FsEntry::Kind::Parent;
        info.is_link = first.kind == FsEntry::Kind::Symlink ||
                       first.kind == FsEntry::Kind::SymlinkDir ||
                       first.kind == FsEntry::Kind::BrokenSymlink;
        info.is_archive = archive_ops::reader_for_name(first.name) != nullptr;
    }
    std::vector<MenuLine> lines;
    for (const menu_model::Item& item : menu_model::context_menu(info))
        lines.push_back(MenuLine::of(item));
    if (lines.empty()) {
        close_menus();
        return;
    }
    draw_menu(lines, kContextMenu, m_context_x, m_context_y);
}

void App::draw_column_menu() {
    std::vector<MenuLine> lines(1);
    lines[0].what = MenuLine::What::Heading;
    lines[0].text = tr("menu.columns");
    lines[0].rule_below = true;
    for (const menu_model::Item& item : menu_model::columns())
        lines.push_back(MenuLine::of(item));
    draw_menu(lines, kColumnMenu, m_context_x, m_context_y);
}

// --- Boxes and lines --------------------------------------------------------------------------

App::Size App::menu_size(const std::vector<MenuLine>& lines, const MenuKind& kind) {
    Size size = {kind.least_w, 2 * kMargin};
    for (const MenuLine& line : lines) {
        size.h += line.height();
        if (line.what == MenuLine::What::Separator)
            continue;
        double w = text_width(line.text, line.text_size(), false, false) +
                   (line.room > 0 ? line.room : kind.label_room);
        if (line.shortcut)
            w += text_width(line.shortcut, kSmallSize, false, false) + kind.shortcut_room;
        size.w = std::max(size.w, w);
    }
    return size;
}

// At a point, but on the surface. A list that is taller than the window scrolls.
void App::draw_menu(const std::vector<MenuLine>& lines, const MenuKind& kind, double x, double y) {
    const Size wanted = menu_size(lines, kind);
    Rect box;
    box.w = std::min(wanted.w, m_layout.width - 2 * kEdge);
    box.h = std::min(wanted.h, m_layout.height - 2 * kEdge);
    box.x = std::max(kEdge, std::min(x, m_layout.width - kEdge - box.w));
    box.y = std::max(kEdge, std::min(y, m_layout.height - kEdge - box.h));
    m_menu_scrolls = wanted.h > box.h;
    m_menu_scroll = std::clamp(m_menu_scroll, 0.0, wanted.h - box.h);

    fill_rounded(box.x + 1, box.y + 2, box.w, box.h, 4, "#000000", 0.1);
    if (kind.second_shadow > 0)
        fill_rounded(box.x + 2, box.y + 4, box.w, box.h, 4, "#000000", kind.second_shadow);
    fill_rounded(box.x, box.y, box.w, box.h, 4, m_palette.menu_bg, 1);

    const size_t first_hit = m_hits.size();
    add_hit(box.x, box.y, box.w, box.h, Hit::None);
    cairo_save(m_cr);
    clip_to(box.x, box.y, box.w, box.h);
    double top = box.y + kMargin - m_menu_scroll;
    for (const MenuLine& line : lines) {
        if (top + line.height() > box.y && top < box.y + box.h)
            draw_menu_line(line, kind, box, top);
        top += line.height();
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, box.x, box.y, box.w, box.h);
    if (m_menu_scrolls) {
        const double thumb_h = std::max(20.0, box.h * box.h / wanted.h);
        const double way = m_menu_scroll / (wanted.h - box.h) * (box.h - 4 - thumb_h);
        fill_rounded(box.x + box.w - 6, box.y + 2 + way, 4, thumb_h, 2, m_palette.secondary, 0.55);
    }
    stroke_rounded(box.x, box.y, box.w, box.h, 4, m_palette.menu_border, 1, 1);
}

void App::draw_menu_line(const MenuLine& line, const MenuKind& kind, const Rect& box, double y) {
    const double h = line.height();
    const double centre = y + h / 2;
    if (line.what == MenuLine::What::Separator)
        return fill_band(box.x + 10, y + 3, box.w - 20, 1, m_palette.divider);
    if (line.rule_above)
        fill_band(box.x + 10, y, box.w - 20, 1, m_palette.divider);
    if (line.rule_below)
        fill_band(box.x + 10, y + h - 1, box.w - 20, 1, m_palette.divider);

    const bool heading = line.what == MenuLine::What::Heading;
    const double label_x = box.x + (heading && kind.check_boxes ? kind.tick_x : kind.label_x);
    double room = box.x + box.w - 10 - label_x;
    if (line.what == MenuLine::What::Item) {
        const HitRect* hover = hovered();
        const bool hot = line.hit == Hit::MenuItem
                             ? line.enabled && m_menu_hover_item == line.param
                             : hover && hover->what == line.hit && hover->param == line.param;
        if (hot)
            fill_rounded(box.x + 4, y, box.w - 8, h, 4, m_palette.menu_hover, 1);
        if (kind.check_boxes)
            draw_check_box(box.x + kind.tick_x, y + 6, line.checked);
        else if (line.checked)
            draw_tick(box.x + kind.tick_x, centre, 11,
                      line.enabled ? m_palette.text : m_palette.dim);
        add_hit(box.x, y, box.w, h, line.hit, line.enabled ? line.param : 0, false, line.text);
    }
    if (line.shortcut) {
        draw_text_right(line.shortcut, box.x + box.w - 14, centre, kSmallSize,
                        line.enabled ? m_palette.secondary : m_palette.dim, false, false);
        room -= text_width(line.shortcut, kSmallSize, false, false) + 10;
    }
    const bool plain = line.what == MenuLine::What::Item && line.enabled;
    draw_text_clipped(line.text, label_x, centre, room, line.text_size(),
                      plain     ? m_palette.text
                      : heading ? m_palette.secondary
                                : m_palette.dim,
                      false, false);
}

void App::draw_tick(double x, double centre, double size, const std::string& color) {
    set_color(color, 1);
    cairo_move_to(m_cr, x, centre);
    cairo_line_to(m_cr, x + 0.35 * size, centre + 0.35 * size);
    cairo_line_to(m_cr, x + size, centre - 0.4 * size);
    cairo_set_line_width(m_cr, 1.8);
    cairo_stroke(m_cr);
}

void App::draw_check_box(double x, double y, bool checked) {
    constexpr double kSide = 13;
    fill_rounded(x, y, kSide, kSide, 3, m_palette.control, 1);
    stroke_rounded(x, y, kSide, kSide, 3, checked ? m_palette.accent : m_palette.control_edge, 1,
                   1);
    if (checked)
        draw_tick(x + 3, y + kSide / 2, kSide - 6, m_palette.accent);
}
