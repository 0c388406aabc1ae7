// What the commands on files do in the window: delete and trash, the terminal, the count of a
// folder.

#include "app_fixture.h"

#include "app_redraw.h"
#include "app_texts.h"
#include "busy_task.h"
#include "faultfs.h"
#include "fresh_process.h"
#include "logger.h"
#include "mounts_fixture.h"
#include "paths.h"
#include "sanitized.h"
#include "settings.h"
#include "strutil.h"
#include "wait_until.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <gdk/gdkkeysyms.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::write_file;

// How long this thread has stood in line for a processor, in seconds; other programs' doing.
double waited_for_processor() {
    unsigned long long run = 0;
    unsigned long long wait = 0;
    std::FILE* const file = std::fopen("/proc/thread-self/schedstat", "re");
    if (file && std::fscanf(file, "%llu %llu", &run, &wait) != 2)
        wait = 0;
    if (file)
        std::fclose(file);
    return static_cast<double>(wait) / 1e9;
}

class AppFileOps : public AppTest {
  protected:
    void TearDown() override {
        AppTest::TearDown();
        BgTask::instance().cancel();
        EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }));
    }

    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    // For what is deleted next. Nothing outside of the test's own tree is ever marked, however
    // wrong the program goes.
    void mark(const std::string& name) {
        if (!su::starts_with(pane().path(), test_env::root() + "/"))
            throw std::logic_error("not the test's: " + pane().path());
        put_cursor_on(name);
        if (cursor_name() != name)
            throw std::logic_error("not there: " + name);
        pane().toggle_selection(pane().cursor());
        frame();
    }
    void expect_message(const std::string& title, const std::string& text, bool is_error) {
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, title);
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, is_error);
    }
    bool warned(const std::string& text) const {
        const std::vector<Log::Entry> lines = Log::instance().recent();
        return std::any_of(lines.begin(), lines.end(), [&](const Log::Entry& line) {
            return line.text == text && line.level == Log::Level::Warn;
        });
    }
    // A task that has come to its end, of which no tick knows yet.
    void end_a_task_unseen() {
        ASSERT_TRUE(
            BgTask::instance().start(BgTask::Kind::Pack, "packing", [](BgTask::Reporter& reporter) {
                reporter.fail("what nobody has seen");
            }));
        app().m_bgtask_was_running = true;
        ASSERT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }));
    }
};

}  // namespace

// --- Delete -------------------------------------------------------------------------------------

TEST_F(AppFileOps, what_is_marked_is_deleted_for_good_and_the_result_tells_how_much) {
    make_dirs(left() + "/tree/sub");
    for (const char* file : {"/tree/1", "/tree/sub/2", "/stays"})
        write_file(left() + file, "x");
    start();
    mark("tree");
    key(GDK_KEY_Delete);
    ASSERT_EQ(app().m_overlay, App::Overlay::ConfirmDelete);
    click(button(Action::DeletePermanent));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(BgTask::instance().snapshot().title, "Deleting");
    EXPECT_TRUE(app().m_bgtask_was_running);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(left() + "/tree"));
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "stays"}));
    EXPECT_TRUE(app().m_result.valid);
    EXPECT_EQ(app().m_result.title, "Deleted");
    EXPECT_EQ(app().m_result.files, 4);
    EXPECT_EQ(app().m_result.failures, 0U);
    EXPECT_FALSE(app().m_result.cancelled);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_FALSE(exists(trash_dir() + "/tree"));
}

TEST_F(AppFileOps, what_is_marked_goes_to_the_trash) {
    const test_env::TempDir home(test_env::root() + "/home");
    write_file(home / "to-the-trash", "content");
    start({"--left=" + home.path()});
    mark("to-the-trash");
    key(GDK_KEY_Delete);
    click(button(Action::DeleteToTrash));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(BgTask::instance().snapshot().title, "Moving to trash");
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(), std::vector<std::string>{".."});
    EXPECT_EQ(test_env::read_file(trash_dir() + "/to-the-trash"), "content");
    EXPECT_EQ(app().m_result.title, "Deleted");
    EXPECT_EQ(app().m_result.files, 1);
    // There a permanent delete takes the record along.
    const std::string record = trash_dir() + "/../info/to-the-trash.trashinfo";
    EXPECT_TRUE(exists(record));
    app().perform(Action::GoToTrash, 0);
    mark("to-the-trash");
    app().perform(Action::DeletePermanent, 0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(trash_dir() + "/to-the-trash"));
    EXPECT_FALSE(exists(record));
}

TEST_F(AppFileOps, without_a_mark_nothing_is_deleted_past_the_guard_either) {
    write_file(left() + "/a", "x");
    start();
    put_cursor_on("a");
    for (const Action action : {Action::DeleteToTrash, Action::DeletePermanent}) {
        Log::instance().clear();
        app().open_overlay(App::Overlay::ConfirmDelete, "title");
        app().dispatch(action);
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_TRUE(warned("delete refused: keine ausdrueckliche Auswahl"));
        EXPECT_FALSE(BgTask::instance().is_running());
        EXPECT_FALSE(app().m_bgtask_was_running);
    }
    app().dispatch(Action::Delete);
    expect_message("Nothing found", "Select at least one entry first.", false);
    EXPECT_TRUE(exists(left() + "/a"));
}

TEST_F(AppFileOps, a_folder_that_a_pane_shows_is_not_deleted_by_any_way) {
    make_dirs(left() + "/a/b/c");
    make_dirs(left() + "/a/bc");
    write_file(left() + "/a/b/c/file", "x");
    start();
    const auto expect_refused = [this](const std::string& shown) {
        for (const Action action :
             {Action::Delete, Action::DeleteToTrash, Action::DeletePermanent}) {
            Log::instance().clear();
            app().perform(action, 0);
            expect_message(
                "Caution",
                "This folder is open in one of the panes. Go somewhere else first, then delete it.",
                true);
            EXPECT_TRUE(warned("delete refused: " + shown + " ist in einer Seite geoeffnet"));
            EXPECT_FALSE(BgTask::instance().is_running());
            app().close_overlay();
        }
    };
    mark("a");
    for (const char* inside : {"/a", "/a/b", "/a/b/c"}) {
        pane(true).navigate_to(left() + inside, false);
        expect_refused(left() + inside);
    }
    // A name that merely begins the same way is none of it.
    pane(true).navigate_to(left() + "/a/bc", false);
    pane().navigate_to(left() + "/a", false);
    mark("b");
    app().perform(Action::DeletePermanent, 0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(left() + "/a/b"));
    EXPECT_EQ(pane(true).path(), left() + "/a/bc");
    // Nor is the other way round.
    make_dirs(left() + "/a/b");
    pane(true).navigate_to(left() + "/a/b", false);
    app().refresh_both();
    mark("bc");
    app().perform(Action::DeletePermanent, 0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(left() + "/a/bc"));
}

// Only asked and never tried: what is marked here is no test's to lose.
TEST_F(AppFileOps, a_shown_folder_is_found_from_the_root_on) {
    start();
    pane().navigate_to("/", true);
    put_cursor_on(right().substr(1, right().find('/', 1) - 1));
    pane().toggle_selection(pane().cursor());
    const std::string* const shown = app().pane_path_inside_selection();
    EXPECT_EQ(shown ? *shown : "none", right());
    pane().clear_selection();
    EXPECT_EQ(app().pane_path_inside_selection(), nullptr);
}

TEST_F(AppFileOps, a_second_task_is_refused_while_one_runs) {
    write_file(left() + "/a", "x");
    start();
    ASSERT_TRUE(test_env::start_busy_task());
    mark("a");
    for (const Action action : {Action::DeleteToTrash, Action::DeletePermanent}) {
        app().perform(action, 0);
        expect_message("Still busy", "Wait for the running operation to finish, or cancel it.",
                       false);
        app().close_overlay();
    }
    EXPECT_TRUE(exists(left() + "/a"));
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppFileOps, what_could_not_be_deleted_is_listed) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "a", "x");
    write_file(fs / "b", "x");
    fs.set(faultfs::fail("unlink", EBUSY, 1, -1, "a"));
    start({"--left=" + fs.path()});
    pane().select_all();
    app().perform(Action::DeletePermanent, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(app().m_overlay_title, "Deleting");
    EXPECT_EQ(app().m_result.failures, 1U);
    EXPECT_EQ(app().m_result.files, 2);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "a"}));
    EXPECT_EQ(BgTask::instance().snapshot().failures,
              std::vector<std::string>{fs / "a" + ": Device or resource busy"});
}

TEST_F(AppFileOps, where_there_is_no_trash_the_user_is_told_to_delete_instead) {
    const mounts_fixture::Tmpfs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "a", "x");
    SettingsStore::instance().mutable_get().delete_to_trash = true;
    SettingsStore::instance().mutable_get().confirm_delete = false;
    start({"--left=" + fs.path()});
    pane().select_all();
    app().perform(Action::Delete, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    test_env::forget_painted();
    frame();
    EXPECT_NE(test_env::painted_text("This location has no trash. Delete permanently instead."),
              nullptr);
    EXPECT_TRUE(exists(fs / "a"));
}

TEST_F(AppFileOps, a_delete_that_is_cancelled_tells_what_went) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree");
    for (int i = 0; i < 20; ++i)
        write_file(fs / "tree/" + std::to_string(i), "x");
    fs.set(faultfs::stall("unlink", 6));
    start({"--left=" + fs.path()});
    mark("tree");
    app().perform(Action::DeletePermanent, 0);
    ASSERT_TRUE(fs.wait_stalled(1));
    frame();
    EXPECT_EQ(app().m_frame_bg.done, 5);
    EXPECT_EQ(app().m_frame_bg.total, 21);
    click(hit(App::Hit::ProgressCancel));
    fs.release();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(app().m_result.files, 6);
    EXPECT_EQ(app().m_result.failures, 0U);
    const std::filesystem::directory_iterator left_over(fs.backing() + "/tree");
    EXPECT_EQ(std::distance(begin(left_over), end(left_over)), 14);
}

// The next command would start its work over the failures of the last one, which nobody has seen.
TEST_F(AppFileOps, a_task_whose_end_nobody_has_seen_is_shown_before_the_next_command) {
    write_file(left() + "/a", "x");
    start();
    mark("a");
    for (const Action action :
         {Action::DeletePermanent, Action::DeleteToTrash, Action::CopyToOther, Action::Clone}) {
        end_a_task_unseen();
        app().perform(action, 0);
        EXPECT_EQ(app().m_overlay, App::Overlay::Errors) << action_name(action);
        EXPECT_EQ(app().m_result.title, "Packed");
        EXPECT_EQ(app().m_result.failures, 1U);
        EXPECT_FALSE(App::busy());
        EXPECT_FALSE(app().m_bgtask_was_running);
        app().close_overlay();
        app().refresh_both();
        pane().select_all();
    }
    EXPECT_TRUE(exists(left() + "/a"));
    EXPECT_FALSE(exists(right() + "/a"));
}

// --- Responsiveness -----------------------------------------------------------------------------

class AppBigDelete : public AppFileOps {
  protected:
    // Deletes what is marked, and plays the user meanwhile: the longest time that one event takes,
    // a key with the frame that shows what it did being one, in seconds.
    double longest_answer(Action action) {
        double longest = 0;
        const auto timed = [&longest, this](const auto& step) {
            const double waited = waited_for_processor();
            const double begin = App::now_seconds();
            step();
            const double took = App::now_seconds() - begin - (waited_for_processor() - waited);
            if (took > longest) {
                longest = took;
                m_longest_at = m_frames;
            }
        };
        m_frames = 0;
        timed([&] {
            app().perform(action, 0);
            frame();
        });
        while (!idle()) {
            while (gtk_events_pending())
                timed([] { gtk_main_iteration_do(FALSE); });
            timed([this] { key(GDK_KEY_Tab); });
            ++m_frames;
            g_usleep(1000);
        }
        return longest;
    }

    int m_frames = 0;
    int m_longest_at = 0;  // before which of them the longest one came
};

TEST_F(AppBigDelete, the_window_answers_while_many_entries_go) {
    const int many = 300;
    const double most = test_env::kSanitized ? 0.5 : 0.05;
    start();
    double longest = 1;
    // The server that shows the window has to wait for a processor as well, which may spoil a
    // round.
    for (int round = 0; round < 5 && longest >= most; ++round) {
        app().activate_side(false);
        make_dirs(left() + "/tree");
        for (int i = 0; i < many; ++i)
            write_file(left() + "/tree/" + std::to_string(i), "");
        app().refresh_both();
        mark("tree");
        longest = longest_answer(Action::DeletePermanent);
        EXPECT_EQ(app().m_result.files, many + 1);
        EXPECT_FALSE(exists(left() + "/tree"));
    }
    EXPECT_GT(m_frames, 0);
    EXPECT_LT(longest, most);
}

class NightlyBigDelete : public AppBigDelete {
  protected:
    void make_entries(const std::string& folder) {
        for (int i = 0; i < 100000; ++i)
            write_file(folder + "/" + std::to_string(i), "");
    }
    void report(const char* what, double longest) const {
        std::printf("%s: %d frames, the longest answer took %.1f ms, at frame %d\n", what, m_frames,
                    longest * 1000, m_longest_at);
        RecordProperty("longest_ms", std::to_string(longest * 1000));
    }
};

TEST_F(NightlyBigDelete, of_a_tree_of_a_hundred_thousand) {
    make_dirs(left() + "/tree");
    make_entries(left() + "/tree");
    start();
    mark("tree");
    const double longest = longest_answer(Action::DeletePermanent);
    report("tree", longest);
    EXPECT_LT(longest, 0.05);
    EXPECT_EQ(app().m_result.files, 100001);
    EXPECT_EQ(names(), std::vector<std::string>{".."});
}

TEST_F(NightlyBigDelete, of_a_hundred_thousand_that_are_marked) {
    make_entries(left());
    start();
    for (const Action action : {Action::DeletePermanent, Action::DeleteToTrash}) {
        app().activate_side(false);
        pane().select_all();
        const double longest = longest_answer(action);
        report(action_name(action), longest);
        EXPECT_LT(longest, 0.05);
        EXPECT_EQ(app().m_result.files, 100000);
        EXPECT_EQ(names(), std::vector<std::string>{".."});
        make_entries(left());
        app().refresh_both();
    }
}

// --- Terminal -----------------------------------------------------------------------------------

TEST_F(AppFileOps, a_terminal_opens_in_the_active_folder) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir bin;
    const std::string mark_file = bin / "called";
    write_file(bin / "st",
               "#!/bin/sh\npwd > " + mark_file + ".tmp; /bin/mv " + mark_file + ".tmp " +
                   mark_file + "\n",
               0755);
    setenv("PATH", bin.path().c_str(), 1);
    unsetenv("TERMINAL");
    start();
    key(GDK_KEY_Tab);
    frame();
    click(hit(App::Hit::BridgeTerminal));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(app().m_flash_text, "Terminal opened");
    ASSERT_TRUE(pump_until([&] { return exists(mark_file); }));
    EXPECT_EQ(test_env::read_file(mark_file), right() + "\n");
    // One that cannot begin there.
    std::filesystem::remove_all(right());
    app().flash_status("");
    app().perform(Action::OpenTerminal, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_overlay_title, "Caution");
    EXPECT_NE(app().m_overlay_text.find(right()), std::string::npos) << app().m_overlay_text;
    EXPECT_TRUE(app().m_overlay_is_error);
    EXPECT_EQ(app().m_flash_text, "");
    make_dirs(right());
}

TEST_F(AppFileOps, without_a_terminal_a_message_says_so) {
    REQUIRE_FRESH_PROCESS();
    setenv("PATH", "/nonexistent", 1);
    unsetenv("TERMINAL");
    start();
    app().perform(Action::OpenTerminal, 0);
    expect_message("Caution", "No terminal program was found on this system.", true);
}

// --- Opening ------------------------------------------------------------------------------------

TEST_F(AppFileOps, the_logs_file_is_opened_by_its_program_or_a_message_says_that_there_is_none) {
    const std::string apps = test_env::root() + "/home/.local/share/applications";
    std::filesystem::remove_all(apps);
    start();
    app().perform(Action::LogOpenFile, 0);
    expect_message("Caution", "No program answered for this file.", true);
    app().close_overlay();

    const std::string seen = test_env::root() + "/opened-log";
    const std::string script = test_env::root() + "/open-log.sh";
    write_file(script,
               "#!/bin/sh\necho \"$1\" > " + seen + ".tmp\nmv " + seen + ".tmp " + seen + "\n",
               0755);
    make_dirs(apps);
    write_file(apps + "/log.desktop",
               "[Desktop Entry]\nType=Application\nName=Log\nExec=" + script + " %f\n");
    write_file(apps + "/mimeapps.list", "[Default Applications]\ntext/plain=log.desktop\n"
                                        "text/x-log=log.desktop\n"
                                        "application/octet-stream=log.desktop\n");
    // The desktop's table of programs is read again some time after it has changed.
    ASSERT_TRUE(pump_until([&] {
        app().perform(Action::LogOpenFile, 0);
        return app().m_overlay == App::Overlay::None || (app().close_overlay(), false);
    }));
    ASSERT_TRUE(pump_until([&] { return exists(seen); }));
    EXPECT_EQ(test_env::read_file(seen), Log::instance().file_path() + "\n");
    std::filesystem::remove_all(apps);
}

TEST_F(AppFileOps, the_owners_command_does_nothing_by_itself) {
    write_file(left() + "/a", "x");
    start();
    mark("a");
    app().perform(Action::OwnerApply, 0);
    EXPECT_TRUE(logged("action: OwnerApply [" + left() + "]"));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(test_env::lstat_of(left() + "/a").st_uid, geteuid());
}

// --- The count of a folder ----------------------------------------------------------------------

namespace {

namespace folder_size = file_ops::folder_size;

// A folder whose reading takes until it is released.
class AppFolderSize : public AppTest {
  protected:
    void SetUp() override {
        REQUIRE_MOUNT(m_fs);
        AppTest::SetUp();
        m_fs.set(faultfs::stall("opendir", 1, -1));
    }
    void TearDown() override {
        AppTest::TearDown();
        m_fs.clear();
        folder_size::cancel();
    }

    faultfs::FaultFs m_fs;
};

}  // namespace

TEST_F(AppFolderSize, frames_come_while_it_is_counted_and_once_after_it) {
    start();
    app().tick();
    EXPECT_FALSE(app().poll_sizing());
    folder_size::start(m_fs.path());
    EXPECT_TRUE(app().poll_sizing());
    EXPECT_TRUE(app().poll_sizing());
    ASSERT_TRUE(m_fs.wait_stalled(1));
    m_fs.release();
    ASSERT_TRUE(test_env::wait_until([] { return !folder_size::snapshot().running; }));
    EXPECT_TRUE(folder_size::snapshot().done);
    EXPECT_TRUE(app().poll_sizing());
    EXPECT_FALSE(app().poll_sizing());
}

TEST_F(AppFolderSize, a_tick_asks_for_a_frame_while_it_is_counted) {
    start();
    ASSERT_TRUE(settle());
    // Under a dialogue nothing else asks for one.
    app().open_overlay(App::Overlay::Properties, "title");
    app().m_flash_until = 0;
    const auto ticked = [this] {
        pump();
        (void)test_env::redraw_due(app().m_canvas);
        app().tick();
        return test_env::redraw_due(app().m_canvas);
    };
    app().m_progress_hold_until = 0;
    (void)ticked();
    EXPECT_FALSE(ticked());
    folder_size::start(m_fs.path());
    ASSERT_TRUE(m_fs.wait_stalled(1));
    EXPECT_TRUE(ticked());
    EXPECT_TRUE(ticked());
    folder_size::abandon();
    EXPECT_TRUE(ticked());
    EXPECT_FALSE(ticked());
}

TEST_F(AppFolderSize, whatever_takes_the_dialogue_away_ends_the_count_without_a_wait) {
    start();
    const std::vector<std::function<void()>> ways = {
        [this] { key(GDK_KEY_Escape); },
        [this] { app().perform(Action::OverlayCancel, 0); },
        [this] { app().close_overlay(); },
        [this] { app().show_message("title", "text"); },
        [this] { app().open_overlay(App::Overlay::Conflict, ""); },
    };
    for (size_t i = 0; i < ways.size(); ++i) {
        folder_size::start(m_fs.path());
        app().open_overlay(App::Overlay::Properties, "title");
        EXPECT_TRUE(folder_size::snapshot().running) << i;
        ASSERT_TRUE(m_fs.wait_stalled(static_cast<int>(i) + 1));
        // The dialogue itself, once more, is no leaving.
        app().open_overlay(App::Overlay::Properties, "title");
        EXPECT_TRUE(folder_size::snapshot().running) << i;
        const double before = App::now_seconds() - waited_for_processor();
        ways[i]();
        EXPECT_LT(App::now_seconds() - waited_for_processor() - before, 0.4) << i;
        EXPECT_FALSE(folder_size::snapshot().running) << i;
        EXPECT_EQ(m_fs.stalled(), static_cast<int>(i) + 1);
        app().close_overlay();
    }
    // Another dialogue's end has nothing to do with it.
    folder_size::start(m_fs.path());
    app().open_overlay(App::Overlay::LogView, "title");
    app().close_overlay();
    EXPECT_TRUE(folder_size::snapshot().running);
}

TEST_F(AppFolderSize, the_end_of_the_program_waits_half_a_second_at_most) {
    start();
    folder_size::start(m_fs.path());
    ASSERT_TRUE(m_fs.wait_stalled(1));
    const double before = App::now_seconds();
    finish();
    EXPECT_LT(App::now_seconds() - before, 5);
    EXPECT_FALSE(folder_size::snapshot().running);
    EXPECT_EQ(m_fs.stalled(), 1);
}
