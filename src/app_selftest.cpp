// The program as its own driver: --action= performs a list of actions through perform(), one at a
// time, waits for the work that each starts, and logs what happened. The record of all dialogues
// and their choices is written in every run.

#include "app.h"

#include "archive_ops.h"
#include "bookmarks.h"
#include "i18n.h"
#include "logger.h"
#include "settings.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

// Left out of "ALL": what would end the run, or take the user's things away.
constexpr std::string_view kSkip[] = {"Quit", "RestartAsRoot", "DeletePermanent", "SettingsReset"};

constexpr int kSettleRounds = 301;
constexpr gulong kSettleRoundUs = 50000;
constexpr int kPaintRounds = 100;
constexpr gulong kPaintRoundUs = 10000;

std::vector<std::string> all_actions() {
    std::vector<std::string> names;
    for (int i = 0; i < static_cast<int>(Action::COUNT_); ++i) {
        const std::string name = action_name(static_cast<Action>(i));
        if (name != "None" &&
            std::find(std::begin(kSkip), std::end(kSkip), name) == std::end(kSkip))
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> split_at_commas(const std::string& text) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = std::min(text.find(',', start), text.size());
        if (comma > start)
            parts.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
    return parts;
}

void pump_events() {
    while (gtk_events_pending())
        gtk_main_iteration_do(FALSE);
}

void log_listing(const archive_ops::ListStatus& listing) {
    if (!listing.done || listing.archive.empty())
        return;
    if (listing.error.empty())
        Log::infof("selftest:    archive listed: %zu entries (%zu dirs)", listing.count,
                   listing.dirs);
    else
        Log::warnf("selftest:    archive listing failed: %s", listing.error.c_str());
}

struct OverlayName {
    App::Overlay overlay;
    const char* name;
};

constexpr OverlayName kOverlayNames[] = {
    {App::Overlay::None, "None"},
    {App::Overlay::About, "About"},
    {App::Overlay::Settings, "Settings"},
    {App::Overlay::Conflict, "Conflict"},
    {App::Overlay::NewFolder, "NewFolder"},
    {App::Overlay::NewFile, "NewFile"},
    {App::Overlay::ConfirmDelete, "ConfirmDelete"},
    {App::Overlay::Pack, "Pack"},
    {App::Overlay::Properties, "Properties"},
    {App::Overlay::Errors, "Errors"},
    {App::Overlay::SelectPattern, "SelectPattern"},
    {App::Overlay::GoToPath, "GoToPath"},
    {App::Overlay::Message, "Message"},
    {App::Overlay::LanguagePicker, "LanguagePicker"},
    {App::Overlay::LogView, "LogView"},
    {App::Overlay::Bookmarks, "Bookmarks"},
    {App::Overlay::FontPicker, "FontPicker"},
    {App::Overlay::BookmarkSide, "BookmarkSide"},
    {App::Overlay::UnpackSide, "UnpackSide"},
    {App::Overlay::ArchiveView, "ArchiveView"},
    {App::Overlay::HexView, "HexView"},
    {App::Overlay::Sandbox, "Sandbox"},
    {App::Overlay::Licenses, "Licenses"},
};

static_assert(std::size(kOverlayNames) == static_cast<size_t>(App::Overlay::Licenses) + 1);

// How an option is named in the log: by what it does, or by its kind and index.
std::string option_name(const App::HitRect& hit) {
    if (hit.what == App::Hit::Overlay)
        return action_name(static_cast<Action>(hit.param));
    std::string name = App::hit_name(hit.what);
    if (hit.what == App::Hit::PackFormat || hit.what == App::Hit::ListItem ||
        hit.what == App::Hit::PermBit)
        name += "#" + std::to_string(hit.param < 0 ? ~hit.param : hit.param);
    return name;
}

}  // namespace

void App::run_self_test() {
    const bool all = m_arg_actions == "ALL";
    const Settings before = SettingsStore::instance().get();
    const std::string paths[] = {m_left.path(), m_right.path()};
    const dir_lister::SortOrder orders[] = {m_left.sort_order(), m_right.sort_order()};
    const bool active_right = m_active_right;
    const std::vector<bookmarks::Bookmark> marked =
        all ? bookmarks::all() : std::vector<bookmarks::Bookmark>();
    int executed = 0;
    int unknown = 0;
    for (const std::string& name : all ? all_actions() : split_at_commas(m_arg_actions)) {
        // A signal, or an action that closed the window, ends the run here.
        if (m_quitting)
            break;
        if (self_test_step(name))
            ++executed;
        else
            ++unknown;
    }
    if (all) {
        // "ALL" flips every switch there is; the user's settings are not for it to change.
        SettingsStore::instance().mutable_get() = before;
        I18n::instance().set_language(before.language);
        I18n::instance().set_ui_font(before.font_family);
        apply_theme();
        // What the sides show is saved at the end of the program.
        for (const bool right : {false, true}) {
            pane_for(right).set_sort_order(orders[right]);
            pane_for(right).navigate_to(paths[right], before.show_hidden);
        }
        m_active_right = active_right;
        bookmarks::restore(marked);
        SettingsStore::instance().save();
    }
    Log::infof("selftest: done, %d executed, %d unknown", executed, unknown);
    if (gtk_main_level() > 0)
        gtk_main_quit();
}

bool App::self_test_step(const std::string& name) {
    const auto action = action_from_name(name);
    if (!action) {
        Log::errorf("selftest: unknown action '%s'", name.c_str());
        return false;
    }
    Log::infof("selftest: -> %s", name.c_str());
    perform(*action, 0);
    selftest_settle();
    if (m_overlay != Overlay::None) {
        // Until a frame has painted the dialogue and its options are in the log. A window that has
        // gone will not paint one.
        request_redraw();
        for (int i = 0; i < kPaintRounds && m_logged_overlay != m_overlay && m_window; ++i) {
            pump_events();
            g_usleep(kPaintRoundUs);
        }
    }
    m_overlay_title.clear();
    close_overlay();
    close_menus();
    return true;
}

// The wait lasts until the tick, too, has seen the end: the next action finds the panes as they
// are after the work, and failures have had their dialogue.
void App::selftest_settle() {
    for (int i = 0; i < kSettleRounds; ++i) {
        const archive_ops::ListStatus listing = archive_ops::list_status();
        if (!busy() && !m_transfer_was_running && !m_bgtask_was_running && !listing.running)
            return log_listing(listing);
        if (m_quitting)
            return;
        pump_events();
        g_usleep(kSettleRoundUs);
    }
    Log::infof("selftest:    still busy after %d ms — result unproven", 15000);
}

void App::log_dialog_options() {
    if (m_overlay == m_logged_overlay)
        return;
    if (m_overlay == Overlay::None) {
        Log::infof("dialog closed: %s", overlay_name(m_logged_overlay));
        m_logged_overlay = m_overlay;
        return;
    }
    const auto count = std::count_if(m_hits.begin(), m_hits.end(),
                                     [](const HitRect& hit) { return hit.in_overlay; });
    const std::string title = m_overlay_title.empty() ? "" : " [" + m_overlay_title + "]";
    Log::infof("dialog opened: %s — %d Auswahl%s%s", overlay_name(m_overlay),
               static_cast<int>(count), count == 1 ? "" : "en", title.c_str());
    for (const HitRect& hit : m_hits)
        if (hit.in_overlay)
            Log::infof("  option %-28s %s", option_name(hit).c_str(),
                       hit.label.empty() ? "(ohne Beschriftung)" : hit.label.c_str());
    m_logged_overlay = m_overlay;
}

const char* App::overlay_name(Overlay overlay) {
    for (const OverlayName& row : kOverlayNames)
        if (row.overlay == overlay)
            return row.name;
    return "?";
}
