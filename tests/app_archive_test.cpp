// Unpacking, and the dialogue that shows what is in an archive, with the real archivers.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "busy_task.h"
#include "format.h"
#include "fresh_process.h"
#include "strutil.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace {

using archive_ops::list_status;
using test_env::exists;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;
using test_env::read_file;
using test_env::run;
using test_env::write_file;
using Overlay = App::Overlay;

class AppArchive : public PanePaint {
  protected:
    // Of 820 by 620 in a window that has the room: 480 for the list, which are 22 rows.
    static constexpr int kPage = 22;

    static constexpr const char* kThemes[] = {"light", "dark"};

    // So many empty files, f0000 and so on, in the order of their names.
    void make_tar(const std::string& path, int count) {
        const test_env::TempDir content;
        std::string names;
        for (int i = 0; i < count; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "f%04d", i);
            write_file(content / name, "");
            names += std::string(name) + "\n";
        }
        write_file(content / "names", names);
        ASSERT_EQ(run("cd '" + content.path() + "' && tar -cf '" + path + "' -T names"), 0);
    }
    // In the folder called away: a file of 1234567 bytes, an empty one and a folder.
    void make_small_tar(const std::string& path) {
        const test_env::TempDir content;
        write_file(content / "a large one", std::string(1234567, 'x'));
        make_dirs(content / "folder");
        write_file(content / "nothing", "");
        ASSERT_EQ(run("cd '" + content.path() + "' && tar -cf '" + path +
                      "' 'a large one' folder nothing"),
                  0);
    }
    void install(const std::vector<std::pair<std::string, std::string>>& tools) {
        for (const auto& [name, script] : tools)
            write_file(m_bin / name, "#!/bin/sh\n" + script + "\n", 0755);
        setenv("PATH", m_bin.path().c_str(), 1);
    }
    void view(const std::string& name) {
        put_cursor_on(name);
        app().perform(Action::ViewArchive, 0);
    }
    App::Rect view_whole(const std::string& name, const char* theme = "light") {
        view(name);
        EXPECT_TRUE(pump_until([] { return list_status().done; }));
        return paint(theme);
    }
    App::Rect paint(const char* theme = "light") {
        test_env::forget_painted();
        settings().theme = theme;
        settings().font_scale = 200;
        app().apply_theme();
        frame(1400 * 2, 900 * 2);
        return app().m_overlay_panel;
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    void expect_message(const std::string& title, const std::string& text, bool is_error) {
        EXPECT_EQ(app().m_overlay, Overlay::Message) << text;
        EXPECT_EQ(app().m_overlay_title, title) << text;
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, is_error) << text;
        app().close_overlay();
    }
    bool warned(const std::string& text) const {
        for (const Log::Entry& entry : Log::instance().recent())
            if (entry.text == text && entry.level == Log::Level::Warn)
                return true;
        return false;
    }
    // The numbers of the files of make_tar() in view.
    static std::pair<int, int> in_view() {
        int first = -1, last = -1;
        for (const PaintedText& text : painted_texts()) {
            int number = 0;
            if (std::sscanf(text.text.c_str(), "f%04d", &number) != 1)
                continue;
            first = first < 0 ? number : first;
            last = number;
        }
        return {first, last};
    }
    const Palette& palette() { return app().m_palette; }

  private:
    test_env::TempDir m_bin;
};

// With threads of their own.
class AppArchiveWork : public AppArchive {};

// --- Which entries are archives ---------------------------------------------------------------

TEST_F(AppArchive, an_entry_with_an_archive_s_name_can_be_unpacked_and_viewed) {
    for (const char* name : {"a.zip", "B.TAR.GZ", "c.lzma", "d.7z", "zip", "e.zip.txt", "f.rar"})
        write_file(left() + "/" + name, "x");
    start();
    for (const char* name : {"a.zip", "B.TAR.GZ", "c.lzma", "d.7z"}) {
        put_cursor_on(name);
        EXPECT_TRUE(app().action_enabled(Action::Unpack, nullptr)) << name;
        EXPECT_TRUE(app().action_enabled(Action::ViewArchive, nullptr)) << name;
    }
    for (const char* name : {"zip", "e.zip.txt", "f.rar"}) {
        put_cursor_on(name);
        for (const Action action : {Action::Unpack, Action::ViewArchive}) {
            std::string reason;
            EXPECT_FALSE(app().action_enabled(action, &reason)) << name;
            EXPECT_EQ(reason, "die Auswahl ist kein Archiv");
        }
    }
    put_cursor_on("f.rar");
    app().perform(Action::Unpack, 0);
    expect_message("Nothing found", "Select at least one entry first.", false);
}

TEST_F(AppArchive, the_second_guard_has_words_of_its_own) {
    write_file(left() + "/a.txt", "x");
    write_file(left() + "/b.zip", "x");
    start();
    pane().select_all();
    app().open_unpack();
    expect_message("Nothing found", "Select exactly one archive.", false);
    EXPECT_TRUE(warned("unpack refused: 2 entries selected, need exactly 1"));
    app().open_archive_view();
    expect_message("Nothing found", "Select exactly one archive.", false);
    EXPECT_TRUE(warned("view refused: 2 entries selected, need exactly 1"));
    pane().clear_selection();
    put_cursor_on("a.txt");
    app().open_unpack();
    expect_message("Caution", "This is not an archive this app can open.", true);
    EXPECT_TRUE(warned("unpack refused: 'a.txt' is not an archive name"));
    app().open_archive_view();
    expect_message("Caution", "This is not an archive this app can open.", true);
    EXPECT_TRUE(warned("view refused: 'a.txt' is not an archive name"));
    EXPECT_TRUE(app().m_pending_unpack.empty());
    EXPECT_FALSE(list_status().running);
}

TEST_F(AppArchive, without_the_archive_s_tool_a_message_says_so) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""}, {"xz", ""}});
    write_file(left() + "/a.zip", "x");
    write_file(left() + "/a.tar.gz", "x");
    start();
    for (const char* name : {"a.zip", "a.tar.gz"}) {
        put_cursor_on(name);
        for (const Action action : {Action::Unpack, Action::ViewArchive}) {
            app().perform(action, 0);
            expect_message("Caution", "The tool for this format is not installed.", true);
        }
    }
    EXPECT_TRUE(app().m_pending_unpack.empty());
    EXPECT_TRUE(app().m_archive_path.empty());
}

TEST_F(AppArchive, in_a_sandbox_the_message_tells_of_the_other_editions) {
    REQUIRE_FRESH_PROCESS();
    setenv("SNAP", "/snap/ferrodeck/1", 1);
    setenv("SNAP_NAME", "ferrodeck", 1);
    const std::string text =
        "The program for this format is missing. The Snap edition may not run the system's "
        "programs and has only what its base provides (tar, gzip, bzip2). The .deb, .rpm, AppImage "
        "and Arch editions handle every format.";
    install({{"tar", ""}, {"gzip", ""}, {"bzip2", ""}});
    for (const char* name : {"a.zip", "a.7z", "a.tar.xz", "a.tar.gz", "a.gz", "a.txt"})
        write_file(left() + "/" + name, "x");
    start();
    for (const char* name : {"a.zip", "a.7z", "a.tar.xz"}) {
        put_cursor_on(name);
        for (const Action action : {Action::Unpack, Action::ViewArchive}) {
            app().perform(action, 0);
            expect_message("Caution", text, true);
        }
    }
    EXPECT_TRUE(app().m_pending_unpack.empty());
    EXPECT_TRUE(app().m_archive_path.empty());
    // What the base provides is unpacked as everywhere.
    for (const char* name : {"a.tar.gz", "a.gz"}) {
        put_cursor_on(name);
        app().perform(Action::Unpack, 0);
        EXPECT_EQ(app().m_overlay, Overlay::UnpackSide) << name;
        app().close_overlay();
    }
    // The other guards are asked before the tool.
    put_cursor_on("a.txt");
    app().open_unpack();
    expect_message("Caution", "This is not an archive this app can open.", true);
}

TEST_F(AppArchive, in_a_sandbox_without_any_archiver_the_message_is_the_same) {
    REQUIRE_FRESH_PROCESS();
    setenv("SNAP", "/snap/ferrodeck/1", 1);
    setenv("SNAP_NAME", "ferrodeck", 1);
    install({{"unzip", ""}});  // which packs nothing
    write_file(left() + "/a.zip", "x");
    start();
    put_cursor_on("a.zip");
    for (const Action action : {Action::Unpack, Action::ViewArchive}) {
        app().perform(action, 0);
        expect_message("Caution", tr("err.archiver_sandboxed"), true);
    }
}

TEST_F(AppArchive, without_any_archiver_a_message_says_so) {
    REQUIRE_FRESH_PROCESS();
    install({{"unzip", ""}});  // which packs nothing
    write_file(left() + "/a.zip", "x");
    start();
    put_cursor_on("a.zip");
    for (const Action action : {Action::Unpack, Action::ViewArchive}) {
        app().perform(action, 0);
        expect_message("Caution", "The tool for this format is not installed.", true);
    }
}

// --- Unpacking --------------------------------------------------------------------------------

TEST_F(AppArchive, unpack_asks_for_the_side) {
    make_small_tar(left() + "/a.tar");
    start();
    put_cursor_on("a.tar");
    app().perform(Action::Unpack, 0);
    EXPECT_EQ(app().m_overlay, Overlay::UnpackSide);
    EXPECT_EQ(app().m_overlay_title, "Unpack");
    EXPECT_EQ(app().m_pending_unpack, left() + "/a.tar");
    paint();
    EXPECT_NE(painted_text(left() + "/a.tar"), nullptr);
}

TEST_F(AppArchiveWork, a_tile_unpacks_into_its_side) {
    make_small_tar(left() + "/a.tar");
    start();
    for (const bool to_right : {true, false}) {
        const std::string& target = to_right ? right() : left();
        put_cursor_on("a.tar");
        app().perform(Action::Unpack, 0);
        frame();
        click(button(to_right ? Action::UnpackRight : Action::UnpackLeft));
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_TRUE(app().m_pending_unpack.empty());
        EXPECT_TRUE(app().m_bgtask_was_running);
        EXPECT_EQ(BgTask::instance().snapshot().title, "Unpacking");
        EXPECT_TRUE(logged("unpack " + left() + "/a.tar -> " + target));
        ASSERT_TRUE(settle());
        EXPECT_EQ(app().m_result.title, "Unpacked");
        EXPECT_EQ(app().m_result.failures, 0U);
        EXPECT_EQ(read_file(target + "/a large one").size(), 1234567U);
        EXPECT_TRUE(exists(target + "/folder"));
        EXPECT_EQ(exists(left() + "/folder"), !to_right);
    }
}

TEST_F(AppArchive, without_an_archive_the_tiles_only_close) {
    start();
    for (const Action action : {Action::UnpackLeft, Action::UnpackRight}) {
        app().open_overlay(Overlay::UnpackSide, "");
        app().perform(action, 0);
        EXPECT_EQ(app().m_overlay, Overlay::None);
        EXPECT_FALSE(app().m_bgtask_was_running);
        EXPECT_FALSE(BgTask::instance().is_running());
    }
}

TEST_F(AppArchiveWork, nothing_is_unpacked_while_another_task_runs) {
    make_small_tar(left() + "/a.tar");
    start();
    put_cursor_on("a.tar");
    app().perform(Action::Unpack, 0);
    ASSERT_TRUE(test_env::start_busy_task());
    app().perform(Action::UnpackRight, 0);
    expect_message("Still busy", tr("dlg.busy_text"), false);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(true), (std::vector<std::string>{".."}));
}

// 4 GiB of zeros on a disk of 4 MB, of which tar reads on to the end.
TEST_F(AppArchiveWork, the_window_lives_while_an_archive_of_zeros_fills_the_disk) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs(right(), "size=4m"));
    const test_env::TempDir scratch;
    ASSERT_EQ(run("cd '" + scratch.path() +
                  "' && /usr/bin/python3 -c \"\nimport sys, tarfile\n"
                  "entry = tarfile.TarInfo('zeros')\nentry.size = 4 << 30\n"
                  "sys.stdout.buffer.write(entry.tobuf())\" | zstd -q > head && "
                  "head -c 16M /dev/zero | zstd -q > block && "
                  "(cat head; for i in $(seq 256); do cat block; done) > '" +
                  left() + "/bomb.tar.zst'"),
              0);
    start();
    put_cursor_on("bomb.tar.zst");
    app().perform(Action::Unpack, 0);
    frame();
    click(button(Action::UnpackRight));
    const std::string& out = right() + "/zeros";
    ASSERT_TRUE(pump_until([&out] { return exists(out); }));
    double longest = 0;
    for (int i = 0; i < 15; ++i) {
        const double from = App::now_seconds();
        while (gtk_events_pending())
            gtk_main_iteration_do(FALSE);
        app().tick();
        frame();
        longest = std::max(longest, App::now_seconds() - from);
        g_usleep(10000);
    }
    EXPECT_TRUE(BgTask::instance().is_running());
    EXPECT_LT(longest, 1);
    key(GDK_KEY_Escape);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "bomb.tar.zst"}));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "zeros"}));
    ASSERT_EQ(run("umount '" + right() + "'"), 0);
}

// --- The archive's contents -------------------------------------------------------------------

TEST_F(AppArchive, its_rows_tell_name_and_size) {
    make_small_tar(left() + "/small.tar");
    start();
    for (const char* theme : kThemes) {
        const App::Rect panel = view_whole("small.tar", theme);
        EXPECT_EQ(app().m_overlay, Overlay::ArchiveView);
        EXPECT_EQ(app().m_overlay_title, "small.tar");
        EXPECT_EQ(app().m_archive_path, left() + "/small.tar");
        EXPECT_EQ(app().m_overlay_page, kPage);
        const double top = panel.y + 84;
        int row = 0;
        for (const auto& [name, is_dir, size] : {std::tuple{"a large one", false, "1.18 MB"},
                                                 {"folder/", true, ""},
                                                 {"nothing", false, "0 B"}}) {
            const PaintedText* text = painted_text(name);
            ASSERT_NE(text, nullptr) << name;
            EXPECT_EQ(text->x, panel.x + 30) << name;
            EXPECT_EQ(text->y, top + 21 * row + 10.5) << name;
            EXPECT_EQ(text->size, 11) << name;
            EXPECT_EQ(text->color, is_dir ? palette().dir_text : palette().text) << name;
            EXPECT_NEAR(text->width, width_of(name, 11), 0.1) << name;
            size_t sizes = 0;
            for (const PaintedText& other : painted_texts()) {
                if (other.y != text->y || &other == text)
                    continue;
                ++sizes;
                EXPECT_EQ(other.text, size);
                EXPECT_NEAR(other.x + other.width, panel.x + 820 - 34, 0.6);
                EXPECT_EQ(other.size, 11);
                EXPECT_EQ(other.color, palette().secondary);
            }
            EXPECT_EQ(sizes, is_dir ? 0U : 1U) << name;
            ++row;
        }
        // The ground, and the bands on it.
        const std::string ground = app().m_palette.dark ? "#101317" : "#FBFBFC";
        const double beside = panel.x + 22;
        expect_near(at(beside, top + 15), over(palette().pane, 0.5, ground), "first row");
        expect_near(at(beside, top + 21 + 15), ground, "second row");
        expect_near(at(beside, top + 42 + 15), over(palette().pane, 0.5, ground), "third row");
        expect_near(at(beside, top + 63 + 15), ground, "below the rows");
        expect_near(at(beside, top + 470), ground, "end of the list");
        EXPECT_EQ(at(panel.x + 14, top + 100), palette().bar);
        EXPECT_EQ(at(panel.x + 820 - 14, top + 100), palette().bar);
        EXPECT_EQ(at(panel.x + 100, top + 482), palette().bar);
        EXPECT_EQ(count_hits(App::Hit::LogVThumb), 0U);
        app().close_overlay();
    }
    shot("archive-small");
}

TEST_F(AppArchive, the_head_counts_and_names_the_folder_it_lies_in) {
    make_small_tar(left() + "/small.tar");
    start();
    const App::Rect panel = view_whole("small.tar");
    const PaintedText* head = painted_text("1 folders, 2 files  ·  1.18 MB");
    ASSERT_NE(head, nullptr);
    EXPECT_EQ(head->x, panel.x + 20);
    EXPECT_EQ(head->y, panel.y + 66);
    EXPECT_EQ(head->size, 11);
    const PaintedText* folder = painted_text(left());
    ASSERT_NE(folder, nullptr);
    EXPECT_NEAR(folder->x + folder->width, panel.x + 820 - 20, 0.6);
    EXPECT_EQ(folder->y, panel.y + 66);
    EXPECT_EQ(folder->size, 11);
}

// Less than 120 beside the head's gap of 20 is no room for a folder.
TEST_F(AppArchive, a_wide_head_hides_the_folder) {
    make_small_tar(left() + "/small.tar");
    start();
    view_whole("small.tar");
    const double head_w = width_of("1 folders, 2 files  ·  1.18 MB", 11);
    app().m_archive_path = "/" + std::string(300, 'm') + "/small.tar";
    const std::string folder = su::parent_of(app().m_archive_path);
    const auto shown_in = [&](double panel_w) -> double {
        test_env::forget_painted();
        measuring([&] { app().draw_archive_head(0, 66, panel_w, list_status()); });
        const PaintedText* text = painted_text(folder);
        return text ? text->width : 0;
    };
    EXPECT_EQ(shown_in(20 + head_w + 20 + 119 + 20), 0);
    EXPECT_EQ(shown_in(20 + head_w + 20 + 120 + 20), 0);
    EXPECT_NEAR(shown_in(20 + head_w + 20 + 121 + 20), 121, 12);
    EXPECT_NEAR(shown_in(820), 820 - 60 - head_w, 12);
    // Nor does the head itself leave the panel.
    (void)shown_in(100);
    ASSERT_FALSE(painted_texts().empty());
    EXPECT_LE(painted_texts().front().width, 60);
}

TEST_F(AppArchive, the_list_scrolls_by_keys_and_wheel) {
    make_tar(left() + "/many.tar", 100);
    start();
    view_whole("many.tar");
    EXPECT_EQ(in_view(), (std::pair{0, kPage}));  // the last one is cut
    const auto after = [this](guint pressed) {
        key(pressed);
        paint();
        return app().m_list_scroll;
    };
    EXPECT_EQ(after(GDK_KEY_Down), 1);
    EXPECT_EQ(in_view().first, 1);
    EXPECT_EQ(after(GDK_KEY_Page_Down), 1 + kPage);
    EXPECT_EQ(after(GDK_KEY_End), 100 - kPage);
    EXPECT_EQ(in_view(), (std::pair{100 - kPage, 99}));
    EXPECT_EQ(after(GDK_KEY_Down), 100 - kPage);
    EXPECT_EQ(after(GDK_KEY_Up), 99 - kPage);
    EXPECT_EQ(after(GDK_KEY_Page_Up), 99 - 2 * kPage);
    EXPECT_EQ(after(GDK_KEY_Home), 0);
    EXPECT_EQ(after(GDK_KEY_Up), 0);
    app().handle_scroll(1000, GDK_SCROLL_DOWN, 0);
    paint();
    EXPECT_EQ(in_view().first, 3);
}

TEST_F(AppArchive, a_scroll_left_from_a_longer_list_is_clamped) {
    make_tar(left() + "/many.tar", 100);
    start();
    view_whole("many.tar");
    app().m_list_scroll = 5000;
    paint();
    EXPECT_EQ(app().m_list_scroll, 100 - kPage);
    app().m_list_scroll = -7;
    paint();
    EXPECT_EQ(app().m_list_scroll, 0);
    app().m_list_scroll = 50;
    make_small_tar(left() + "/small.tar");
    app().close_overlay();
    app().refresh_both();
    view("small.tar");
    EXPECT_EQ(app().m_list_scroll, 0);
    ASSERT_TRUE(pump_until([] { return list_status().done; }));
    app().m_list_scroll = 50;
    paint();
    EXPECT_EQ(app().m_list_scroll, 0);
}

TEST_F(AppArchive, the_bands_move_with_the_rows) {
    make_tar(left() + "/many.tar", 60);
    start();
    const App::Rect panel = view_whole("many.tar");
    const std::string ground = "#FBFBFC";
    for (int scroll = 0; scroll < 3; ++scroll) {
        app().m_list_scroll = scroll;
        paint();
        for (int row = 0; row < 4; ++row)
            expect_near(at(panel.x + 22, panel.y + 84 + 21 * row + 15),
                        (scroll + row) % 2 == 0 ? over(palette().pane, 0.5, ground) : ground,
                        "row");
    }
}

TEST_F(AppArchive, no_row_leaves_the_list) {
    make_tar(left() + "/many.tar", 60);
    start();
    const App::Rect panel = view_whole("many.tar");
    // The 23rd row begins 18 before the end of the list.
    const double end = panel.y + 620 - 56;
    expect_near(at(panel.x + 60, end - 1), over(palette().pane, 0.5, "#FBFBFC"), "cut row");
    EXPECT_EQ(at(panel.x + 60, end + 1), palette().bar);
    EXPECT_FALSE(
        painted(static_cast<int>(2 * (panel.x + 20)), static_cast<int>(2 * (end + 0.5)), 800, 10));
    shot("archive-many");
}

TEST_F(AppArchive, a_list_too_low_for_a_row_pages_by_one) {
    make_tar(left() + "/many.tar", 60);
    start();
    view_whole("many.tar");
    for (const int height : {185, 200, 220, 260}) {
        settings().font_scale = 100;
        frame(1400, height);
        EXPECT_EQ(app().m_overlay_page,
                  std::max(1, static_cast<int>((app().m_overlay_panel.h - 140) / 21)))
            << height;
        EXPECT_GE(app().m_overlay_page, 1);
    }
    frame(1400, 185);
    EXPECT_EQ(app().m_overlay_page, 1);
    app().m_list_scroll = 1000;
    frame(1400, 185);
    EXPECT_EQ(app().m_list_scroll, 59);
}

TEST_F(AppArchive, the_thumb_shows_the_place_and_can_be_dragged) {
    make_tar(left() + "/many.tar", 100);
    start();
    for (const char* theme : kThemes) {
        const App::Rect panel = view_whole("many.tar", theme);
        const App::HitRect track = hit(App::Hit::LogVThumb);
        EXPECT_EQ(track.x, panel.x + 820 - 27 - 2);
        EXPECT_EQ(track.w, 11);
        EXPECT_EQ(track.y, panel.y + 84 + 2);
        EXPECT_EQ(track.h, 480 - 4);
        EXPECT_EQ(app().m_log_track_y, track.y);
        EXPECT_EQ(app().m_log_track_h, track.h);
        EXPECT_EQ(app().m_log_max_scroll, 100 - kPage);
        const double length = 476.0 * kPage / 100;
        const double x = panel.x + 820 - 27 + 3.5;
        const auto back = [&](double y) {
            const int row = static_cast<int>((y - panel.y - 84) / 21);
            const std::string ground = palette().dark ? "#101317" : "#FBFBFC";
            const std::string band = row % 2 == 0 ? over(palette().pane, 0.5, ground) : ground;
            return over(palette().progress_track, 0.45, band);
        };
        for (const double y : {track.y + 6, track.y + length - 5})
            expect_near(at(x, y), over(palette().secondary, 0.55, back(y)), "thumb");
        const double below = track.y + length + 5;
        expect_near(at(x, below), back(below), "track");
        app().handle_click(track.x + 5, track.y + track.h / 2, 1, 0, 1);
        app().handle_motion(track.x + 5, track.y + track.h / 2);
        EXPECT_EQ(app().m_list_scroll, (100 - kPage) / 2);
        EXPECT_EQ(app().m_log_drag, 1);
        paint(theme);
        expect_near(at(x, track.y + track.h / 2),
                    over(palette().secondary, 0.85, back(track.y + track.h / 2 - 21)), "held");
        app().handle_release();
        app().close_overlay();
    }
}

TEST_F(AppArchive, in_the_smallest_window_at_200_percent_all_has_its_place) {
    make_tar(left() + "/many.tar", 60);
    start();
    for (const char* theme : kThemes) {
        view_whole("many.tar", theme);
        test_env::forget_painted();
        frame(1000, 700);
        const App::Rect panel = app().m_overlay_panel;
        EXPECT_GE(panel.x, 0);
        EXPECT_GE(panel.y, 0);
        EXPECT_LE(panel.x + panel.w, 500);
        EXPECT_LE(panel.y + panel.h, 350);
        EXPECT_EQ(app().m_overlay_page, static_cast<int>((panel.h - 140) / 21));
        EXPECT_EQ(in_view(), (std::pair{0, app().m_overlay_page}));
        EXPECT_GE(app().m_overlay_page, 5);
        const App::HitRect track = hit(App::Hit::LogVThumb);
        EXPECT_LE(track.y + track.h, button(Action::Unpack).y);
        EXPECT_GE(button(Action::Unpack).x, panel.x);
        for (const Action action : {Action::Unpack, Action::OverlayCancel})
            EXPECT_LE(button(action).y + button(action).h, panel.y + panel.h);
        for (const PaintedText& text : painted_texts()) {
            if (text.text == left()) {
                EXPECT_LE(text.x + text.width, panel.x + panel.w - 19);
            }
        }
        shot(std::string("archive-smallest-") + theme);
        app().close_overlay();
    }
}

TEST_F(AppArchive, an_empty_archive_is_told_so) {
    ASSERT_EQ(run("tar -cf '" + left() + "/empty.tar' -T /dev/null"), 0);
    start();
    const App::Rect panel = view_whole("empty.tar");
    const PaintedText* text = painted_text("This archive is empty.");
    ASSERT_NE(text, nullptr);
    EXPECT_GT(text->x, panel.x + 16);
    EXPECT_GT(text->y, panel.y + 84);
    EXPECT_LT(text->y, panel.y + 620 - 56);
    EXPECT_NEAR(text->width, width_of(text->text, text->size), 0.1);
    EXPECT_NE(painted_text("0 folders, 0 files  ·  0 B"), nullptr);
}

TEST_F(AppArchive, an_archive_that_cannot_be_read_shows_why) {
    write_file(left() + "/broken.tar", test_env::pattern(5000));
    start();
    const App::Rect panel = view_whole("broken.tar");
    ASSERT_FALSE(list_status().error.empty());
    EXPECT_NE(painted_text("The archive could not be read."), nullptr);
    const PaintedText* text = painted_text(su::sanitize_utf8(list_status().error));
    ASSERT_NE(text, nullptr);
    EXPECT_GT(text->x, panel.x + 16);
    EXPECT_GT(text->y, panel.y + 84);
    EXPECT_EQ(painted_text("This archive is empty."), nullptr);
    EXPECT_EQ(count_hits(App::Hit::LogVThumb), 0U);
    // The dialogue stays, with its buttons.
    app().tick();
    EXPECT_EQ(app().m_overlay, Overlay::ArchiveView);
    EXPECT_EQ(button(Action::OverlayCancel).label, "Close");
    shot("archive-broken");
}

TEST_F(AppArchive, a_long_message_is_wrapped_inside_the_list) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""},
             {"zip", ""},
             {"unzip", "i=0; while [ $i -lt 300 ]; do printf 'word%d ' $i >&2; i=$((i+1)); done; "
                       "exit 9"}});
    write_file(left() + "/a.zip", "x");
    start();
    for (const int width : {1400, 1000}) {
        view("a.zip");
        ASSERT_TRUE(pump_until([] { return list_status().done; }));
        test_env::forget_painted();
        settings().font_scale = 200;
        frame(width * (width == 1400 ? 2 : 1), width == 1400 ? 1800 : 700);
        const App::Rect panel = app().m_overlay_panel;
        int lines = 0;
        for (const PaintedText& text : painted_texts()) {
            if (text.text.find("word") == std::string::npos)
                continue;
            ++lines;
            EXPECT_GE(text.x, panel.x + 16 + 14);
            EXPECT_LE(text.x + text.width, panel.x + panel.w - 16 - 14);
        }
        EXPECT_GT(lines, 0);
        app().close_overlay();
        app().tick();
    }
}

// One header is garbage, with entries before and behind it.
TEST_F(AppArchive, what_was_read_before_a_failure_is_not_listed) {
    make_tar(left() + "/whole.tar", 100);
    std::string bytes = read_file(left() + "/whole.tar");
    bytes.replace(512 * 50, 512, std::string(512, 'g'));
    write_file(left() + "/short.tar", bytes);
    start();
    view_whole("short.tar");
    ASSERT_FALSE(list_status().error.empty());
    ASSERT_GT(list_status().count, 30U);
    EXPECT_EQ(in_view().first, -1);
    EXPECT_EQ(count_hits(App::Hit::LogVThumb), 0U);
}

TEST_F(AppArchiveWork, its_buttons_unpack_and_close) {
    make_small_tar(left() + "/small.tar");
    start();
    const App::Rect panel = view_whole("small.tar");
    EXPECT_EQ(button(Action::Unpack).label, "Unpack");
    EXPECT_EQ(button(Action::Unpack).y, panel.y + panel.h - 46);
    EXPECT_LT(button(Action::Unpack).x, button(Action::OverlayCancel).x);
    click(button(Action::OverlayCancel));
    EXPECT_EQ(app().m_overlay, Overlay::None);
    view_whole("small.tar");
    click(button(Action::Unpack));
    EXPECT_EQ(app().m_overlay, Overlay::UnpackSide);
    EXPECT_EQ(app().m_pending_unpack, left() + "/small.tar");
}

TEST_F(AppArchive, a_name_of_any_length_is_painted_in_its_row) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""},
             {"zip", ""},
             {"unzip", "[ \"$1\" = -l ] || exit 0\nprintf '  12  2020-01-01 10:00   ff'\n"
                       "i=0; while [ $i -lt 15 ]; do x=\"$x$x\"; [ $i = 0 ] && x=m; "
                       "i=$((i+1)); done\nprintf '%se\\n' \"$x$x$x$x\""}});
    write_file(left() + "/a.zip", "x");
    start();
    const App::Rect panel = view_whole("a.zip");
    ASSERT_EQ(list_status().count, 1U);
    ASSERT_GT(archive_ops::list_slice(0, 1)[0].name.size(), 60000U);
    size_t longest = 0;
    for (const PaintedText& text : painted_texts()) {
        longest = std::max(longest, text.text.size());
        if (text.text.find("mmm") != std::string::npos) {
            EXPECT_LE(text.x + text.width, panel.x + panel.w - 34 - 110);
        }
    }
    EXPECT_GT(longest, 1000U);
    EXPECT_LT(longest, 3000U);
}

// --- While it is read -------------------------------------------------------------------------

// Lists one entry and then nothing more.
constexpr char kSlowUnzip[] = "[ \"$1\" = -l ] || exit 0\n"
                              "echo '   12  2020-01-01 10:00   first'\n"
                              "exec /bin/sleep 600";

TEST_F(AppArchiveWork, what_has_arrived_is_shown_while_the_rest_is_read) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""}, {"zip", ""}, {"unzip", kSlowUnzip}});
    write_file(left() + "/a.zip", "x");
    start();
    view("a.zip");
    ASSERT_TRUE(pump_until([] { return list_status().count == 1; }));
    paint();
    EXPECT_NE(painted_text("1  ·  Reading the archive…"), nullptr);
    EXPECT_NE(painted_text("first"), nullptr);
    EXPECT_EQ(painted_text("This archive is empty."), nullptr);
    app().tick();
    EXPECT_TRUE(app().m_listing_was_running);
    EXPECT_TRUE(list_status().running);
    // However it is closed, the next tick ends the listing.
    app().show_message("t", "x");
    app().tick();
    EXPECT_FALSE(list_status().running);
    EXPECT_FALSE(list_status().done);
    EXPECT_EQ(list_status().count, 0U);
    EXPECT_FALSE(app().m_listing_was_running);
}

class NightlyAppArchive : public AppArchive {
  protected:
    // The median of some frames, in milliseconds.
    double frame_ms() {
        std::vector<double> times;
        for (int i = 0; i < 21; ++i) {
            const double from = App::now_seconds();
            frame(1400, 900);
            times.push_back((App::now_seconds() - from) * 1000);
        }
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }
};

// A page is full with thirty.
TEST_F(NightlyAppArchive, frames_of_a_million_entries_cost_what_those_of_a_full_page_do) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""},
             {"zip", ""},
             {"unzip", "n=${2##*/}; /usr/bin/seq -f '   12  2020-01-01 10:00   folder/file %.0f' "
                       "${n%.zip}"}});
    for (const char* name : {"10.zip", "30.zip", "1000000.zip"})
        write_file(left() + "/" + name, "x");
    start();
    std::map<std::string, double> cost;
    for (const char* name : {"10.zip", "30.zip", "1000000.zip"}) {
        view(name);
        frame(1400, 900);
        double worst = 0;
        while (!list_status().done) {
            const double from = App::now_seconds();
            app().tick();
            frame(1400, 900);
            worst = std::max(worst, (App::now_seconds() - from) * 1000);
        }
        ASSERT_EQ(list_status().count, static_cast<size_t>(std::atoi(name)));
        for (const int scroll : {0, std::atoi(name)}) {
            app().m_list_scroll = scroll;
            cost[name] = std::max(cost[name], frame_ms());
        }
        std::printf("%s: %.2f ms a frame, the worst while it was read %.2f ms\n", name, cost[name],
                    worst);
        app().close_overlay();
        app().tick();
    }
    EXPECT_LT(cost["1000000.zip"], 1.5 * cost["30.zip"] + 1);
}

TEST_F(AppArchiveWork, the_ticks_repaint_until_the_listing_has_ended_and_once_more) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""}, {"zip", ""}, {"unzip", kSlowUnzip}});
    write_file(left() + "/a.zip", "x");
    start();
    EXPECT_FALSE(app().poll_listing());
    view("a.zip");
    EXPECT_TRUE(app().poll_listing());
    EXPECT_TRUE(app().poll_listing());
    archive_ops::cancel_list();
    EXPECT_TRUE(app().poll_listing());
    EXPECT_FALSE(app().poll_listing());
}

TEST_F(AppArchiveWork, the_end_of_the_program_ends_the_listing) {
    REQUIRE_FRESH_PROCESS();
    install({{"tar", ""}, {"zip", ""}, {"unzip", kSlowUnzip}});
    write_file(left() + "/a.zip", "x");
    start();
    view("a.zip");
    finish();
    EXPECT_FALSE(list_status().running);
}

TEST_F(AppArchiveWork, the_self_test_waits_for_the_listing) {
    make_tar(left() + "/many.tar", 50);
    start();
    put_cursor_on("many.tar");
    app().perform(Action::ViewArchive, 0);
    app().selftest_settle();
    EXPECT_TRUE(list_status().done);
}

}  // namespace
