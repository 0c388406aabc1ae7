#include "actions.h"

#include <iterator>

namespace {

// In the enumeration's order.
constexpr const char* kNames[] = {
    "None",
    "NewFolder",
    "NewFile",
    "Rename",
    "Clone",
    "Pack",
    "Unpack",
    "Delete",
    "Properties",
    "MakeLink",
    "PackToOther",
    "OpenWith",
    "Quit",
    "ViewArchive",
    "ViewHex",
    "OpenTerminal",
    "SelectAll",
    "SelectNone",
    "InvertSelection",
    "SelectPattern",
    "CopyPath",
    "SearchPane",
    "ToggleHidden",
    "ToggleColSize",
    "ToggleColType",
    "ToggleColModified",
    "ToggleColCreated",
    "ToggleColPermissions",
    "ToggleColOwner",
    "ToggleColGroup",
    "Refresh",
    "SwapPanes",
    "MirrorPane",
    "GoUp",
    "GoBack",
    "GoForward",
    "GoToPath",
    "GoHome",
    "GoToTrash",
    "CopyToOther",
    "MoveToOther",
    "BookmarkAdd",
    "BookmarkRemove",
    "BookmarkManage",
    "BookmarkGoto",
    "BookmarkOpenLeft",
    "BookmarkOpenRight",
    "UnpackLeft",
    "UnpackRight",
    "PackTargetLeft",
    "PackTargetRight",
    "RecentGoto",
    "About",
    "SettingsWindow",
    "LogWindow",
    "Licenses",
    "SandboxInfo",
    "SandboxCopyCommand",
    "SandboxDontShow",
    "OverlayOk",
    "OverlayCancel",
    "ConflictOverwrite",
    "ConflictSkip",
    "ConflictRenameNew",
    "ConflictRenameExisting",
    "ConflictOverwriteIfNewer",
    "ConflictCancel",
    "ConflictToggleAll",
    "SettingsThreadsMinus",
    "SettingsThreadsPlus",
    "SettingsLanguagePrev",
    "SettingsLanguageNext",
    "SettingsTheme",
    "SettingsConflict",
    "SettingsArchiveFormat",
    "SettingsToggleHidden",
    "SettingsToggleTrash",
    "SettingsReset",
    "SettingsToggleConfirm",
    "DeleteToTrash",
    "DeletePermanent",
    "DismissErrors",
    "RetryAsAdmin",
    "RestartAsRoot",
    "AboutWebsite",
    "AboutContact",
    "AboutBugMail",
    "AboutDownloads",
    "SettingsLanguageOpen",
    "LanguagePick",
    "LogToggleDebug",
    "LogClear",
    "LogOpenFile",
    "SettingsFontOpen",
    "FontPick",
    "SettingsScaleMinus",
    "SettingsScalePlus",
    "PermsToggleBit",
    "PermsApply",
    "OwnerApply",
    "HexFindNext",
    "HexFindMode",
    "HexSave",
    "HexSaveConfirm",
    "HexSaveCancel",
    "HexDiscardChanges",
    "HexCloseAnyway",
};

static_assert(std::size(kNames) == static_cast<size_t>(Action::COUNT_));

}  // namespace

const char* action_name(Action action) {
    const int index = static_cast<int>(action);
    if (index < 0 || index >= static_cast<int>(Action::COUNT_))
        return "?";
    return kNames[index];
}

std::optional<Action> action_from_name(std::string_view name) {
    for (size_t i = 0; i < std::size(kNames); ++i)
        if (name == kNames[i])
            return static_cast<Action>(i);
    return std::nullopt;
}
