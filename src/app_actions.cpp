// What every command does: the guard, the dispatch, and the commands that fit into a few lines.

#include "app.h"

#include "archive_ops.h"
#include "bookmarks.h"
#include "file_ops.h"
#include "format.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

using copy_engine::ConflictAction;

// The order in which the settings step through the default conflict action. RenameExisting is left
// out on purpose: touching what is already there is no default.
constexpr ConflictAction kCycle[] = {
    ConflictAction::Ask,       ConflictAction::Overwrite,        ConflictAction::Skip,
    ConflictAction::RenameNew, ConflictAction::OverwriteIfNewer,
};

ConflictAction next_conflict(ConflictAction present) {
    const auto* const found = std::find(std::begin(kCycle), std::end(kCycle), present);
    if (found == std::end(kCycle))
        return ConflictAction::Overwrite;
    return found + 1 == std::end(kCycle) ? kCycle[0] : found[1];
}

std::string next_theme(const std::string& present) {
    if (present == "auto")
        return "light";
    return present == "light" ? "dark" : "auto";
}

bool deny(std::string* reason, const char* why) {
    if (reason)
        *reason = why;
    return false;
}

// Whether a command does something with the selected entries, or else with the cursor's.
bool works_on_entries(Action action) {
    switch (action) {
    case Action::Rename:
    case Action::Clone:
    case Action::Pack:
    case Action::Unpack:
    case Action::PackToOther:
    case Action::Properties:
    case Action::MakeLink:
    case Action::OpenWith:
    case Action::ViewArchive:
    case Action::ViewHex:
    case Action::CopyPath:
    case Action::CopyToOther:
    case Action::MoveToOther:
    case Action::Delete:
    case Action::DeleteToTrash:
    case Action::DeletePermanent:
        return true;
    default:
        return false;
    }
}

// What leaves the byte view and its changes alone, or is its own way to end them.
bool belongs_to_hex_view(Action action) {
    switch (action) {
    case Action::HexFindNext:
    case Action::HexFindMode:
    case Action::HexSave:
    case Action::HexSaveConfirm:
    case Action::HexSaveCancel:
    case Action::HexDiscardChanges:
    case Action::HexCloseAnyway:
        return true;
    default:
        return false;
    }
}

// From a format that cannot be packed here on, as after the first.
void step_archive_format() {
    const std::vector<archive_ops::Format>& formats = archive_ops::available_formats();
    if (formats.empty())
        return;
    SettingsStore& store = SettingsStore::instance();
    std::string& present = store.mutable_get().archive_format;
    size_t at = 0;
    for (size_t i = 0; i < formats.size(); ++i)
        if (present == archive_ops::label_for(formats[i]))
            at = i;
    present = archive_ops::label_for(formats[(at + 1) % formats.size()]);
    store.save();
}

}  // namespace

bool App::show_hidden() {
    return SettingsStore::instance().get().show_hidden;
}

// --- The frame around every command -----------------------------------------------------------

void App::perform(Action action, int) {
    if (m_veiled)
        return;
    if (action == Action::None) {
        request_redraw();
        return;
    }
    Log::infof("action: %s [%s]", action_name(action), active_pane().path().c_str());
    // Any other command would close the view, or put something in its place.
    if (conflict_waits() && !belongs_to_hex_view(action)) {
        ask_hex_close();
        return request_redraw();
    }
    std::string reason;
    if (!action_enabled(action, &reason)) {
        Log::warnf("action refused: %s — %s", action_name(action), reason.c_str());
        show_nothing();
        return;
    }
    // Any other command ends a filter first, so that it does not work on a part of the list unseen.
    if (m_search_pane >= 0 && action != Action::SearchPane && action != Action::ToggleHidden) {
        Log::infof("search closed: %s wurde ausgeloest", action_name(action));
        const std::vector<const FsEntry*> meant = active_pane().action_entries();
        const std::string name = meant.empty() ? std::string() : meant.front()->name;
        end_search(true);
        if (has_lost(action, name))
            return show_nothing();
    }
    dispatch(action);
    request_redraw();
}

bool App::has_lost(Action action, const std::string& name) const {
    const Pane& pane = active_pane();
    if (!works_on_entries(action) || pane.has_selection())
        return false;
    const std::vector<const FsEntry*> left = pane.action_entries();
    return left.empty() || left.front()->name != name;
}

// The reasons are for the log and no texts of the interface.
bool App::action_enabled(Action action, std::string* reason) const {
    const Pane& pane = active_pane();
    const int count = pane.selected_count();
    switch (action) {
    case Action::Rename:
        return count == 1 || deny(reason, "Umbenennen braucht genau einen Eintrag");
    case Action::Clone:
    case Action::Pack:
    case Action::PackToOther:
    case Action::Properties:
    case Action::MakeLink:
    case Action::OpenWith:
    case Action::CopyPath:
    case Action::CopyToOther:
    case Action::MoveToOther:
        return count > 0 || deny(reason, "nichts ausgewaehlt");
    case Action::Unpack:
    case Action::ViewArchive:
        if (count != 1)
            return deny(reason, "dafuer wird genau ein Eintrag gebraucht");
        return archive_ops::reader_for_name(pane.action_entries().front()->name) ||
               deny(reason, "die Auswahl ist kein Archiv");
    case Action::ViewHex: {
        if (count != 1)
            return deny(reason, "dafuer wird genau ein Eintrag gebraucht");
        const FsEntry& entry = *pane.action_entries().front();
        const bool folder = entry.is_dir_like() || entry.kind == FsEntry::Kind::Parent;
        return !folder || deny(reason, "ein Ordner hat keine Bytes");
    }
    case Action::Delete:
    case Action::DeleteToTrash:
    case Action::DeletePermanent:
        return pane.has_selection() || deny(reason, "nichts ausgewaehlt");
    default:
        return true;  // the rule for all others
    }
}

// One line for each action; what takes more is a function below. No default, so that a new action
// does not compile before it has its line.
void App::dispatch(Action action) {
    switch (action) {
    case Action::None:
    case Action::COUNT_:
        return;
    case Action::Rename:
        return begin_rename();
    case Action::Clone:
        return clone_selection();
    case Action::MakeLink:
        return make_links();
    case Action::OpenWith:
        move_cursor_to_single_selection();
        return activate_row(active_pane().cursor(), m_active_right);
    case Action::Quit:
        if (m_window)
            gtk_window_close(GTK_WINDOW(m_window));
        return;
    case Action::SelectAll:
        return active_pane().select_all();
    case Action::SelectNone:
        return active_pane().clear_selection();
    case Action::InvertSelection:
        return active_pane().invert_selection();
    case Action::CopyPath:
        return copy_paths();
    case Action::ToggleHidden:
    case Action::SettingsToggleHidden:
        return toggle_hidden();
    case Action::ToggleColSize:
    case Action::ToggleColType:
    case Action::ToggleColModified:
    case Action::ToggleColCreated:
    case Action::ToggleColPermissions:
    case Action::ToggleColOwner:
    case Action::ToggleColGroup:
        return toggle_column(action);
    case Action::Refresh:
        return refresh();
    case Action::SwapPanes:
        return swap_panes();
    case Action::MirrorPane:
        return other_pane().navigate_to(active_pane().path(), show_hidden());
    case Action::GoUp:
        return go_up(m_active_right);
    case Action::GoBack:
        return active_pane().go_back(show_hidden());
    case Action::GoForward:
        return active_pane().go_forward(show_hidden());
    case Action::GoHome:
        return active_pane().navigate_to(real_home(), show_hidden());
    case Action::GoToTrash:
        return go_to_trash();
    case Action::CopyToOther:
        return start_transfer(!m_active_right, false);
    case Action::MoveToOther:
        return start_transfer(!m_active_right, true);
    case Action::NewFolder:
        return open_text_input(Overlay::NewFolder, "dlg.new_folder_title", "");
    case Action::NewFile:
        return open_text_input(Overlay::NewFile, "dlg.new_file_title", "");
    case Action::SelectPattern:
        return open_text_input(Overlay::SelectPattern, "dlg.select_pattern_title", "*");
    case Action::GoToPath:
        return begin_path_edit(m_active_right);
    case Action::SearchPane:
        return begin_search(m_active_right);
    case Action::Delete:
        return ask_delete();
    case Action::DeleteToTrash:
        return delete_selection(true);
    case Action::DeletePermanent:
        return delete_selection(false);
    case Action::OpenTerminal:
        return open_terminal();
    case Action::OverlayOk:
        return accept_overlay();
    case Action::OverlayCancel:
        return cancel_overlay();
    case Action::DismissErrors:
        return close_overlay();
    case Action::RetryAsAdmin:
        return retry_as_admin();
    case Action::RestartAsRoot:
        return restart_as_root();
    case Action::ConflictOverwrite:
        return answer_conflict(ConflictAction::Overwrite);
    case Action::ConflictSkip:
        return answer_conflict(ConflictAction::Skip);
    case Action::ConflictRenameNew:
        return answer_conflict(ConflictAction::RenameNew);
    case Action::ConflictRenameExisting:
        return answer_conflict(ConflictAction::RenameExisting);
    case Action::ConflictOverwriteIfNewer:
        return answer_conflict(ConflictAction::OverwriteIfNewer);
    case Action::ConflictCancel:
        return answer_conflict(ConflictAction::Cancel);
    case Action::ConflictToggleAll:
        m_conflict_apply_all = !m_conflict_apply_all;
        return;
    case Action::SettingsThreadsMinus:
    case Action::SettingsThreadsPlus:
    case Action::SettingsTheme:
    case Action::SettingsConflict:
    case Action::SettingsToggleTrash:
    case Action::SettingsToggleConfirm:
    case Action::SettingsScaleMinus:
    case Action::SettingsScalePlus:
        return change_settings(action);
    case Action::SettingsLanguagePrev:
        return step_language(-1);
    case Action::SettingsLanguageNext:
        return step_language(1);
    case Action::SettingsReset:
        return reset_settings();
    case Action::BookmarkAdd:
        return toggle_bookmark();
    case Action::BookmarkRemove:
        return remove_bookmark();
    case Action::BookmarkOpenLeft:
        return open_bookmark(false);
    case Action::BookmarkOpenRight:
        return open_bookmark(true);
    case Action::Pack:
        return open_pack(false);
    case Action::PackToOther:
        return open_pack(true);
    case Action::PackTargetLeft:
    case Action::PackTargetRight:
        m_pack_target_right = action == Action::PackTargetRight;
        return;
    case Action::Unpack:
        return open_unpack();
    case Action::UnpackLeft:
        return unpack_to(false);
    case Action::UnpackRight:
        return unpack_to(true);
    case Action::ViewArchive:
        return open_archive_view();
    case Action::ViewHex:
        return view_hex();
    case Action::HexFindNext:
    case Action::HexFindMode:
    case Action::HexSave:
    case Action::HexSaveConfirm:
    case Action::HexSaveCancel:
    case Action::HexDiscardChanges:
    case Action::HexCloseAnyway:
        return hex_command(action);
    case Action::LogToggleDebug:
        Log::instance().set_debug(!Log::instance().debug());
        Log::infof("debug logging %s", Log::instance().debug() ? "ON" : "off");
        return;
    case Action::LogClear:
        Log::instance().clear();
        Log::infof("log cleared by the user");
        m_list_scroll = -1;
        return;
    case Action::LogWindow:
        open_overlay(Overlay::LogView, tr("dlg.log_title"));
        m_list_scroll = -1;
        m_log_hscroll = 0;
        return;
    case Action::BookmarkManage:
        return open_overlay(Overlay::Bookmarks, tr("menu.bookmarks"));
    case Action::LogOpenFile: {
        const std::string error = file_ops::open_with_default_app(Log::instance().file_path());
        return error.empty() ? void() : show_error(error);
    }
    case Action::SandboxDontShow:
        SettingsStore::instance().mutable_get().sandbox_notice_hidden = true;
        SettingsStore::instance().save();
        return close_overlay();
    case Action::SandboxInfo:
        return open_sandbox_notice();
    case Action::SandboxCopyCommand:
        return copy_connect_command();
    case Action::About:
        return open_overlay(Overlay::About, "Ferrodeck");
    case Action::Licenses:
        return open_licenses();
    case Action::AboutWebsite:
    case Action::AboutContact:
    case Action::AboutBugMail:
    case Action::AboutDownloads:
        return open_link(action);
    case Action::SettingsArchiveFormat:
        return step_archive_format();
    case Action::Properties:
        return open_properties();
    case Action::PermsToggleBit:
        m_perm_recursive = !m_perm_recursive;
        return;
    case Action::PermsApply:
        return apply_properties();
    case Action::SettingsWindow:
        open_overlay(Overlay::Settings, tr("dlg.settings_title"));
        m_settings_scroll = 0;
        return;
    case Action::SettingsLanguageOpen:
        return open_language_picker();
    case Action::SettingsFontOpen:
        return open_font_picker();
    // These carry an index and act where the click on a list is resolved.
    case Action::BookmarkGoto:
    case Action::RecentGoto:
    case Action::LanguagePick:
    case Action::FontPick:
    case Action::OwnerApply:
        return;
    }
}

// --- Messages ---------------------------------------------------------------------------------

void App::show_message(const std::string& title, const std::string& text, bool is_error,
                       Action action, const char* action_label) {
    if (conflict_waits()) {
        m_held_messages.push_back({title, text, is_error, action, action_label});
        return;
    }
    open_overlay(Overlay::Message, title);
    m_overlay_text = text;
    m_overlay_is_error = is_error;
    m_message_action = action;
    m_message_action_label = action_label;
}

void App::show_error(const std::string& text) {
    show_message(tr("dlg.error"), text, true);
}

void App::show_busy() {
    show_message(tr("dlg.busy_title"), tr("dlg.busy_text"));
}

void App::show_nothing() {
    show_message(tr("dlg.nothing_title"), tr("dlg.nothing_text"));
}

// --- Rows, transfer, rename -------------------------------------------------------------------

void App::activate_row(int index, bool right) {
    Pane& pane = pane_for(right);
    if (index < 0 || static_cast<size_t>(index) >= pane.entries().size())
        return;
    const FsEntry& entry = pane.entries()[static_cast<size_t>(index)];
    // Navigating replaces the entries, so the path is taken first.
    const std::string path = su::join_path(pane.path(), entry.name);
    switch (entry.kind) {
    case FsEntry::Kind::Parent:
        go_up(right);
        break;
    case FsEntry::Kind::Dir:
    case FsEntry::Kind::SymlinkDir:
        pane.navigate_to(path, show_hidden());
        break;
    case FsEntry::Kind::BrokenSymlink:
        show_error(tr("err.broken_link"));
        break;
    case FsEntry::Kind::File:
    case FsEntry::Kind::Symlink:
    case FsEntry::Kind::Special: {
        const std::string error = file_ops::open_with_default_app(path);
        if (!error.empty())
            show_error(error);
        break;
    }
    }
    request_redraw();
}

// The folder just left may stand far down in the list that is now shown from its top.
void App::go_up(bool right) {
    Pane& pane = pane_for(right);
    pane.go_up(show_hidden());
    pane.ensure_cursor_visible(rows_in_view(right));
}

void App::start_transfer(bool to_right, bool move) {
    copy_engine::Engine& engine = copy_engine::instance();
    if (engine.is_running())
        return show_busy();
    if (take_unseen_end())
        return;
    const Pane& source = pane_for(!to_right);
    const Pane& target = pane_for(to_right);
    std::vector<std::string> paths = source.action_paths();
    if (paths.empty())
        return show_nothing();
    if (source.path() == target.path())
        return show_message(tr("dlg.same_dir_title"), tr("dlg.same_dir_text"));
    const Settings& settings = SettingsStore::instance().get();
    const auto operation = move ? copy_engine::Operation::Move : copy_engine::Operation::Copy;
    if (!engine.start(std::move(paths), target.path(), operation, settings.thread_count,
                      settings.default_conflict))
        return show_busy();
    m_transfer_was_running = true;
    request_redraw();
}

// A run may have ended since the last tick. The next one would take its failures away before
// anybody has seen them, and what the lists show is not what they hold any more, so a command given
// on them is swallowed as during the run.
bool App::take_unseen_end() {
    const bool copied = m_transfer_was_running && !copy_engine::instance().is_running();
    const bool tasked = m_bgtask_was_running && !BgTask::instance().is_running();
    if (copied) {
        poll_transfer_end(false);
        m_transfer_was_running = false;
    }
    if (tasked) {
        poll_task_end(false);
        m_bgtask_was_running = false;
    }
    if (copied || tasked)
        request_redraw();
    return copied || tasked;
}

bool App::commit_rename_before(Action action) {
    const Pane& pane = active_pane();
    const bool renamed = pane.renaming() && pane.rename_target() >= 0;
    const std::string name = pane.rename_buffer();
    if (!commit_rename())
        return false;
    if (!renamed || name.empty() || !has_lost(action, name))
        return true;
    show_nothing();
    return false;
}

void App::move_cursor_to_single_selection() {
    Pane& pane = active_pane();
    if (!pane.has_selection() || pane.action_entries().size() != 1)
        return;
    for (int i = 0; i < static_cast<int>(pane.entries().size()); ++i)
        if (pane.is_selected(i))
            return pane.set_cursor(i, false);
}

// The commands work on the one selected entry, while the rename edits the cursor's row.
void App::begin_rename() {
    move_cursor_to_single_selection();
    end_path_edit();
    active_pane().begin_rename();
    active_pane().ensure_cursor_visible(rows_in_view(m_active_right));
}

// The entry is found by its name, since a reload may have moved the rows since the rename began.
bool App::commit_rename() {
    if (!m_left.renaming() && !m_right.renaming())
        return true;
    const bool right = m_right.renaming();
    Pane& pane = pane_for(right);
    const int target = pane.rename_target();
    const std::string new_name = pane.rename_buffer();
    pane.cancel_rename();
    request_redraw();
    if (target < 0)
        return true;
    const std::string old_name = pane.entries()[static_cast<size_t>(target)].name;
    if (new_name.empty() || new_name == old_name)
        return true;
    const std::string error =
        file_ops::rename_entry(su::join_path(pane.path(), old_name), new_name);
    if (!error.empty()) {
        show_error(error);
        return false;
    }
    pane.remember_cursor_name(new_name);
    pane.reload(show_hidden());
    pane.ensure_cursor_visible(rows_in_view(right));
    return true;
}

// --- Dialogues ---------------------------------------------------------------------------------

void App::open_text_input(Overlay overlay, const char* title_key, const std::string& text) {
    open_overlay(overlay, tr(title_key));
    m_input_buffer = text;
    m_input_caret = text.size();
}

// What the dialogue was about is forgotten as well, so that no later command acts on it.
void App::cancel_overlay() {
    close_overlay();
    m_input_buffer.clear();
    m_input_caret = 0;
    m_pending_bookmark.clear();
    m_pending_unpack.clear();
}

void App::accept_overlay() {
    const Overlay accepted = m_overlay;
    const std::string text = m_input_buffer;
    cancel_overlay();
    if (accepted == Overlay::NewFolder || accepted == Overlay::NewFile)
        create_entry(accepted, text);
    else if (accepted == Overlay::SelectPattern)
        select_by_pattern(text);
    else if (accepted == Overlay::GoToPath)
        go_to_path(text);
    else if (accepted == Overlay::Pack)
        start_pack(text);
}

void App::create_entry(Overlay kind, const std::string& name) {
    Pane& pane = active_pane();
    const std::string error = kind == Overlay::NewFolder
                                  ? file_ops::create_directory(pane.path(), name)
                                  : file_ops::create_empty_file(pane.path(), name);
    if (!error.empty())
        return show_error(error);
    pane.remember_cursor_name(name);
    pane.reload(show_hidden());
    pane.ensure_cursor_visible(rows_in_view(m_active_right));
}

void App::select_by_pattern(const std::string& pattern) {
    if (active_pane().select_pattern(pattern, false) == 0)
        show_message(tr("dlg.nothing_title"), tr("err.no_match"));
}

// A relative path would be looked up where the program was started, of which the user sees nothing.
void App::go_to_path(const std::string& path) {
    if (path.empty() || path[0] != '/' || !fsops::stat_path(path).is_dir)
        return show_error(tr("err.no_such_folder"));
    active_pane().navigate_to(path, show_hidden());
}

void App::ask_delete() {
    if (!active_pane().has_selection())
        return show_nothing();
    if (refuse_shown_folder())
        return;
    const Settings& settings = SettingsStore::instance().get();
    if (settings.confirm_delete)
        return open_overlay(Overlay::ConfirmDelete, tr("dlg.delete_title"));
    perform(settings.delete_to_trash ? Action::DeleteToTrash : Action::DeletePermanent, 0);
}

// Of the many that may be selected only one can lead to a pane's folder, so no paths are built.
const std::string* App::pane_path_inside_selection() const {
    const Pane& active = active_pane();
    const std::string folder = active.path() == "/" ? "/" : active.path() + "/";
    for (const Pane* pane : {&m_left, &m_right}) {
        if (!su::starts_with(pane->path(), folder))
            continue;
        const std::string_view below = std::string_view(pane->path()).substr(folder.size());
        const std::string_view name = below.substr(0, below.find('/'));
        for (size_t i = 0; i < active.entries().size(); ++i)
            if (active.entries()[i].name == name && active.is_selected(static_cast<int>(i)))
                return &pane->path();
    }
    return nullptr;
}

bool App::refuse_shown_folder() {
    const std::string* const shown = pane_path_inside_selection();
    if (!shown)
        return false;
    Log::warnf("delete refused: %s ist in einer Seite geoeffnet", shown->c_str());
    show_error(tr("err.folder_in_use"));
    return true;
}

void App::delete_selection(bool to_trash) {
    close_overlay();
    std::vector<std::string> paths = active_pane().selected_paths();
    if (paths.empty()) {
        Log::warnf("delete refused: keine ausdrueckliche Auswahl");
        return;
    }
    if (refuse_shown_folder() || take_unseen_end())
        return;
    if (!file_ops::start_delete(std::move(paths), to_trash,
                                tr(to_trash ? "task.trashing" : "task.deleting")))
        return show_busy();
    m_bgtask_was_running = true;
}

// --- Single commands --------------------------------------------------------------------------

void App::clone_selection() {
    const std::vector<std::string> paths = active_pane().action_paths();
    if (paths.empty())
        return show_nothing();
    if (take_unseen_end())
        return;
    if (!file_ops::start_clone(paths, SettingsStore::instance().get().thread_count))
        return show_busy();
    m_transfer_was_running = true;
}

void App::make_links() {
    const Pane& source = active_pane();
    const Pane& target = other_pane();
    if (source.action_entries().empty())
        return show_nothing();
    if (source.path() == target.path())
        return show_error(tr("err.link_same_dir"));
    std::string first_error;
    int64_t made = 0;
    size_t failed = 0;
    for (const FsEntry* entry : source.action_entries()) {
        const std::string link = su::join_path(target.path(), entry->name);
        const std::string goal = su::join_path(source.path(), entry->name);
        std::string error;
        if (fsops::exists(link)) {
            error = tr("err.name_exists") + (": " + fmt::embedded(entry->name));
        } else if (const std::string failure = fsops::make_symlink(goal, link); !failure.empty()) {
            Log::errorf("symlink %s -> %s failed: %s", link.c_str(), goal.c_str(), failure.c_str());
            error = fmt::embedded(entry->name) + ": " + failure;
        } else {
            Log::infof("symlink %s -> %s", link.c_str(), goal.c_str());
            ++made;
            continue;
        }
        ++failed;
        if (first_error.empty())
            first_error = error;
    }
    refresh_both();
    if (made > 0) {
        m_result = {};
        m_result.valid = true;
        m_result.title = tr("action.make_link");
        m_result.files = made;
        m_result.detail = su::basename_of(target.path());
        m_result.failures = failed;
        m_result.listed = false;  // that dialogue lists what transfers and tasks have failed at
    }
    if (!first_error.empty())
        show_error(first_error);
}

void App::copy_paths() {
    std::string text;
    for (const std::string& path : active_pane().action_paths())
        text += (text.empty() ? "" : "\n") + path;
    set_clipboards(text);
}

void App::set_clipboards(const std::string& text) {
    // The clipboard takes UTF-8 alone; a path may hold other bytes.
    const std::string valid = su::sanitize_utf8(text);
    for (const GdkAtom which : {GDK_SELECTION_CLIPBOARD, GDK_SELECTION_PRIMARY})
        gtk_clipboard_set_text(gtk_clipboard_get(which), valid.c_str(),
                               static_cast<gint>(valid.size()));
}

void App::refresh() {
    refresh_both();
    flash_panes();
    const dir_lister::Listing& listing = active_pane().listing();
    flash_status(
        std::string(tr("status.reloaded")) + "  ·  " +
        I18n::instance().trf("status.folder_summary", listing.dir_count, listing.file_count));
}

// The panes change places whole, and the active one stays active on its new side.
void App::swap_panes() {
    std::swap(m_left, m_right);
    m_active_right = !m_active_right;
    if (m_path_edit >= 0)
        m_path_edit = 1 - m_path_edit;
}

void App::open_terminal() {
    const std::string error = file_ops::open_terminal_at(active_pane().path());
    if (!error.empty())
        return show_error(error);
    flash_status(tr("status.terminal_opened"));
}

void App::go_to_trash() {
    const std::string dir = trash_dir();
    if (dir.empty())
        return show_error(tr("err.no_trash_here"));
    if (!fsops::stat_path(dir).is_dir) {
        if (g_mkdir_with_parents(dir.c_str(), 0700) != 0) {
            const int code = errno;
            Log::warnf("trash: cannot create %s: %s", dir.c_str(), std::strerror(code));
            return show_error(tr("err.no_trash_here"));
        }
        Log::infof("trash: created %s", dir.c_str());
    }
    active_pane().navigate_to(dir, show_hidden());
}

void App::toggle_bookmark() {
    const std::string path = active_pane().path();
    const bool marked = bookmarks::contains(path);
    if (marked)
        bookmarks::remove(path);
    else
        bookmarks::add(path);
    show_message(tr("menu.bookmarks"), tr(marked ? "bookmark.removed" : "bookmark.added"));
}

void App::remove_bookmark() {
    const std::string pending = std::exchange(m_pending_bookmark, {});
    const std::string path = pending.empty() ? active_pane().path() : pending;
    close_overlay();
    if (!bookmarks::remove(path))
        Log::warnf("bookmark remove failed: %s", path.c_str());
    else if (pending.empty())
        show_message(tr("menu.bookmarks"), tr("bookmark.removed"));
}

// The folder is looked at first: a bookmark may lead to a drive that is not there today, and the
// pane keeps what it shows then.
void App::open_bookmark(bool right) {
    const std::string path = std::exchange(m_pending_bookmark, {});
    close_overlay();
    if (path.empty())
        return;
    const dir_lister::Listing probe = dir_lister::read(path, show_hidden());
    if (!probe.error.empty())
        return show_error(fmt::embedded(path) + ": " + probe.error);
    activate_side(right);
    pane_for(right).navigate_to(path, show_hidden());
    Log::infof("bookmark → %s (%s pane)", path.c_str(), right ? "right" : "left");
}

void App::answer_conflict(ConflictAction answer) {
    copy_engine::instance().resolve_conflict(answer, m_conflict_apply_all);
    close_overlay();
    m_conflict_deaf_until = now_seconds() + kConflictDeafSeconds;
}

// --- Settings ---------------------------------------------------------------------------------

void App::toggle_hidden() {
    SettingsStore& store = SettingsStore::instance();
    store.mutable_get().show_hidden = !store.get().show_hidden;
    store.save();
    refresh_both();
}

void App::toggle_column(Action action) {
    SettingsStore& store = SettingsStore::instance();
    const auto column = column_for_action(static_cast<int>(action));
    if (!column)
        return;
    set_column_enabled(store.mutable_get(), *column, !column_enabled(store.get(), *column));
    store.save();
}

void App::change_settings(Action action) {
    Settings& s = SettingsStore::instance().mutable_get();
    const bool scale = action == Action::SettingsScaleMinus || action == Action::SettingsScalePlus;
    if (action == Action::SettingsThreadsMinus)
        s.thread_count = std::max(0, s.thread_count - 1);
    else if (action == Action::SettingsThreadsPlus)
        s.thread_count = std::min(16, s.thread_count + 1);
    else if (action == Action::SettingsTheme)
        s.theme = next_theme(s.theme);
    else if (action == Action::SettingsConflict)
        s.default_conflict = next_conflict(s.default_conflict);
    else if (action == Action::SettingsToggleTrash)
        s.delete_to_trash = !s.delete_to_trash;
    else if (action == Action::SettingsToggleConfirm)
        s.confirm_delete = !s.confirm_delete;
    else if (scale)
        s.font_scale =
            std::clamp(s.font_scale + (action == Action::SettingsScalePlus ? 10 : -10), 70, 200);
    SettingsStore::instance().save();
    if (action == Action::SettingsTheme)
        apply_theme();
    if (scale)
        Log::infof("UI scale %d %%", s.font_scale);
}

// "auto" and then the languages, round in either direction.
void App::step_language(int step) {
    const std::vector<LanguageInfo> choices = language_choices();
    SettingsStore& store = SettingsStore::instance();
    std::string& present = store.mutable_get().language;
    const auto found =
        std::find_if(choices.begin(), choices.end(),
                     [&present](const LanguageInfo& choice) { return choice.code == present; });
    const auto position = static_cast<int>(found == choices.end() ? 0 : found - choices.begin());
    const auto count = static_cast<int>(choices.size());
    present = choices[static_cast<size_t>((position + step + count) % count)].code;
    I18n::instance().set_language(present);
    store.save();
}

void App::reset_settings() {
    SettingsStore& store = SettingsStore::instance();
    const Settings old = store.get();
    Settings& s = store.mutable_get();
    s = Settings{};
    s.left_path = old.left_path;
    s.right_path = old.right_path;
    s.left_sort = old.left_sort;
    s.right_sort = old.right_sort;
    I18n::instance().set_language(s.language);
    I18n::instance().set_ui_font(s.font_family);
    if (m_overlay == Overlay::Settings)  // in the language that has just gone
        m_overlay_title = tr("dlg.settings_title");
    apply_theme();
    store.save();
    refresh_both();
    flash_status(tr("settings.reset_done"));
    Log::infof("settings reset to defaults");
}
