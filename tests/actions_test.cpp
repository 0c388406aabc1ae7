#include "actions.h"

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>

namespace {

constexpr const char* kExpected[] = {
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

TEST(actions, there_are_107_in_this_order) {
    ASSERT_EQ(std::size(kExpected), 107U);
    ASSERT_EQ(static_cast<int>(Action::COUNT_), 107);
    for (int i = 0; i < 107; ++i)
        EXPECT_STREQ(action_name(static_cast<Action>(i)), kExpected[i]) << i;
}

// The enumeration and the table of names are two lists; these pin both ends and the middle.
TEST(actions, enumerators_stand_where_their_names_do) {
    EXPECT_STREQ(action_name(Action::None), "None");
    EXPECT_STREQ(action_name(Action::ToggleColSize), "ToggleColSize");
    EXPECT_EQ(static_cast<int>(Action::ToggleColSize), 23);
    EXPECT_EQ(static_cast<int>(Action::ToggleColGroup), 29);
    EXPECT_STREQ(action_name(Action::NewFolder), "NewFolder");
    EXPECT_STREQ(action_name(Action::NewFile), "NewFile");
    EXPECT_STREQ(action_name(Action::Rename), "Rename");
    EXPECT_STREQ(action_name(Action::Clone), "Clone");
    EXPECT_STREQ(action_name(Action::Pack), "Pack");
    EXPECT_STREQ(action_name(Action::Unpack), "Unpack");
    EXPECT_STREQ(action_name(Action::Delete), "Delete");
    EXPECT_STREQ(action_name(Action::Properties), "Properties");
    EXPECT_STREQ(action_name(Action::MakeLink), "MakeLink");
    EXPECT_STREQ(action_name(Action::PackToOther), "PackToOther");
    EXPECT_STREQ(action_name(Action::OpenWith), "OpenWith");
    EXPECT_STREQ(action_name(Action::Quit), "Quit");
    EXPECT_STREQ(action_name(Action::ViewArchive), "ViewArchive");
    EXPECT_STREQ(action_name(Action::ViewHex), "ViewHex");
    EXPECT_STREQ(action_name(Action::OpenTerminal), "OpenTerminal");
    EXPECT_STREQ(action_name(Action::SelectAll), "SelectAll");
    EXPECT_STREQ(action_name(Action::SelectNone), "SelectNone");
    EXPECT_STREQ(action_name(Action::InvertSelection), "InvertSelection");
    EXPECT_STREQ(action_name(Action::SelectPattern), "SelectPattern");
    EXPECT_STREQ(action_name(Action::CopyPath), "CopyPath");
    EXPECT_STREQ(action_name(Action::SearchPane), "SearchPane");
    EXPECT_STREQ(action_name(Action::ToggleHidden), "ToggleHidden");
    EXPECT_STREQ(action_name(Action::ToggleColSize), "ToggleColSize");
    EXPECT_STREQ(action_name(Action::ToggleColType), "ToggleColType");
    EXPECT_STREQ(action_name(Action::ToggleColModified), "ToggleColModified");
    EXPECT_STREQ(action_name(Action::ToggleColCreated), "ToggleColCreated");
    EXPECT_STREQ(action_name(Action::ToggleColPermissions), "ToggleColPermissions");
    EXPECT_STREQ(action_name(Action::ToggleColOwner), "ToggleColOwner");
    EXPECT_STREQ(action_name(Action::ToggleColGroup), "ToggleColGroup");
    EXPECT_STREQ(action_name(Action::Refresh), "Refresh");
    EXPECT_STREQ(action_name(Action::SwapPanes), "SwapPanes");
    EXPECT_STREQ(action_name(Action::MirrorPane), "MirrorPane");
    EXPECT_STREQ(action_name(Action::GoUp), "GoUp");
    EXPECT_STREQ(action_name(Action::GoBack), "GoBack");
    EXPECT_STREQ(action_name(Action::GoForward), "GoForward");
    EXPECT_STREQ(action_name(Action::GoToPath), "GoToPath");
    EXPECT_STREQ(action_name(Action::GoHome), "GoHome");
    EXPECT_STREQ(action_name(Action::GoToTrash), "GoToTrash");
    EXPECT_STREQ(action_name(Action::CopyToOther), "CopyToOther");
    EXPECT_STREQ(action_name(Action::MoveToOther), "MoveToOther");
    EXPECT_STREQ(action_name(Action::BookmarkAdd), "BookmarkAdd");
    EXPECT_STREQ(action_name(Action::BookmarkRemove), "BookmarkRemove");
    EXPECT_STREQ(action_name(Action::BookmarkManage), "BookmarkManage");
    EXPECT_STREQ(action_name(Action::BookmarkGoto), "BookmarkGoto");
    EXPECT_STREQ(action_name(Action::BookmarkOpenLeft), "BookmarkOpenLeft");
    EXPECT_STREQ(action_name(Action::BookmarkOpenRight), "BookmarkOpenRight");
    EXPECT_STREQ(action_name(Action::UnpackLeft), "UnpackLeft");
    EXPECT_STREQ(action_name(Action::UnpackRight), "UnpackRight");
    EXPECT_STREQ(action_name(Action::PackTargetLeft), "PackTargetLeft");
    EXPECT_STREQ(action_name(Action::PackTargetRight), "PackTargetRight");
    EXPECT_STREQ(action_name(Action::RecentGoto), "RecentGoto");
    EXPECT_STREQ(action_name(Action::About), "About");
    EXPECT_STREQ(action_name(Action::SettingsWindow), "SettingsWindow");
    EXPECT_STREQ(action_name(Action::LogWindow), "LogWindow");
    EXPECT_STREQ(action_name(Action::Licenses), "Licenses");
    EXPECT_STREQ(action_name(Action::SandboxInfo), "SandboxInfo");
    EXPECT_STREQ(action_name(Action::SandboxCopyCommand), "SandboxCopyCommand");
    EXPECT_STREQ(action_name(Action::SandboxDontShow), "SandboxDontShow");
    EXPECT_STREQ(action_name(Action::OverlayOk), "OverlayOk");
    EXPECT_STREQ(action_name(Action::OverlayCancel), "OverlayCancel");
    EXPECT_STREQ(action_name(Action::ConflictOverwrite), "ConflictOverwrite");
    EXPECT_STREQ(action_name(Action::ConflictSkip), "ConflictSkip");
    EXPECT_STREQ(action_name(Action::ConflictRenameNew), "ConflictRenameNew");
    EXPECT_STREQ(action_name(Action::ConflictRenameExisting), "ConflictRenameExisting");
    EXPECT_STREQ(action_name(Action::ConflictOverwriteIfNewer), "ConflictOverwriteIfNewer");
    EXPECT_STREQ(action_name(Action::ConflictCancel), "ConflictCancel");
    EXPECT_STREQ(action_name(Action::ConflictToggleAll), "ConflictToggleAll");
    EXPECT_STREQ(action_name(Action::SettingsThreadsMinus), "SettingsThreadsMinus");
    EXPECT_STREQ(action_name(Action::SettingsThreadsPlus), "SettingsThreadsPlus");
    EXPECT_STREQ(action_name(Action::SettingsLanguagePrev), "SettingsLanguagePrev");
    EXPECT_STREQ(action_name(Action::SettingsLanguageNext), "SettingsLanguageNext");
    EXPECT_STREQ(action_name(Action::SettingsTheme), "SettingsTheme");
    EXPECT_STREQ(action_name(Action::SettingsConflict), "SettingsConflict");
    EXPECT_STREQ(action_name(Action::SettingsArchiveFormat), "SettingsArchiveFormat");
    EXPECT_STREQ(action_name(Action::SettingsToggleHidden), "SettingsToggleHidden");
    EXPECT_STREQ(action_name(Action::SettingsToggleTrash), "SettingsToggleTrash");
    EXPECT_STREQ(action_name(Action::SettingsReset), "SettingsReset");
    EXPECT_STREQ(action_name(Action::SettingsToggleConfirm), "SettingsToggleConfirm");
    EXPECT_STREQ(action_name(Action::DeleteToTrash), "DeleteToTrash");
    EXPECT_STREQ(action_name(Action::DeletePermanent), "DeletePermanent");
    EXPECT_STREQ(action_name(Action::DismissErrors), "DismissErrors");
    EXPECT_STREQ(action_name(Action::RetryAsAdmin), "RetryAsAdmin");
    EXPECT_STREQ(action_name(Action::RestartAsRoot), "RestartAsRoot");
    EXPECT_STREQ(action_name(Action::AboutWebsite), "AboutWebsite");
    EXPECT_STREQ(action_name(Action::AboutContact), "AboutContact");
    EXPECT_STREQ(action_name(Action::AboutBugMail), "AboutBugMail");
    EXPECT_STREQ(action_name(Action::AboutDownloads), "AboutDownloads");
    EXPECT_STREQ(action_name(Action::SettingsLanguageOpen), "SettingsLanguageOpen");
    EXPECT_STREQ(action_name(Action::LanguagePick), "LanguagePick");
    EXPECT_STREQ(action_name(Action::LogToggleDebug), "LogToggleDebug");
    EXPECT_STREQ(action_name(Action::LogClear), "LogClear");
    EXPECT_STREQ(action_name(Action::LogOpenFile), "LogOpenFile");
    EXPECT_STREQ(action_name(Action::SettingsFontOpen), "SettingsFontOpen");
    EXPECT_STREQ(action_name(Action::FontPick), "FontPick");
    EXPECT_STREQ(action_name(Action::SettingsScaleMinus), "SettingsScaleMinus");
    EXPECT_STREQ(action_name(Action::SettingsScalePlus), "SettingsScalePlus");
    EXPECT_STREQ(action_name(Action::PermsToggleBit), "PermsToggleBit");
    EXPECT_STREQ(action_name(Action::PermsApply), "PermsApply");
    EXPECT_STREQ(action_name(Action::OwnerApply), "OwnerApply");
    EXPECT_STREQ(action_name(Action::HexFindNext), "HexFindNext");
    EXPECT_STREQ(action_name(Action::HexFindMode), "HexFindMode");
    EXPECT_STREQ(action_name(Action::HexSave), "HexSave");
    EXPECT_STREQ(action_name(Action::HexSaveConfirm), "HexSaveConfirm");
    EXPECT_STREQ(action_name(Action::HexSaveCancel), "HexSaveCancel");
    EXPECT_STREQ(action_name(Action::HexDiscardChanges), "HexDiscardChanges");
    EXPECT_STREQ(action_name(Action::HexCloseAnyway), "HexCloseAnyway");
}

TEST(actions, a_value_outside_has_no_name) {
    EXPECT_STREQ(action_name(static_cast<Action>(-1)), "?");
    EXPECT_STREQ(action_name(Action::COUNT_), "?");
    EXPECT_STREQ(action_name(static_cast<Action>(100000)), "?");
}

TEST(actions, a_name_leads_back_to_its_action) {
    for (int i = 0; i < 107; ++i)
        EXPECT_EQ(action_from_name(kExpected[i]), static_cast<Action>(i));
    for (const char* unknown : {"", "?", "COUNT_", "copytoother", "CopyToOther ", "Nonsense"})
        EXPECT_EQ(action_from_name(unknown), std::nullopt) << unknown;
}

}  // namespace
