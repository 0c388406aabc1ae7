// Root's rights in the window: the retry by the helper, the restart as root, and the message about
// a folder that may not be read. All of it as an ordinary user; where a password would open the
// way, a process of the test's that stayed root does the work.

#include "app_display.h"
#include "app_fixture.h"
#include "app_program.h"
#include "app_root.h"
#include "as_user.h"
#include "copy_engine.h"
#include "elevate.h"
#include "fresh_process.h"
#include "i18n.h"
#include "paths.h"
#include "settings.h"
#include "test_env.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gdk/gdkx.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#undef None  // X's

namespace {

namespace fs = std::filesystem;
using test_env::exists;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

// The helper is installed, and there is an X server, in this process's own view of the machine.
#define REQUIRE_ROOT_TO_GIVE_UP()                                                                  \
    REQUIRE_FRESH_PROCESS();                                                                       \
    if (geteuid() != 0)                                                                            \
        GTEST_SKIP() << "needs root, to be an ordinary user who is raised";                        \
    REQUIRE_PRIVATE_MOUNTS();                                                                      \
    ASSERT_TRUE(test_env::mount_tmpfs("/usr/libexec", "mode=755"));                                \
    test_env::make_dirs("/usr/libexec/ferrodeck");                                                 \
    fs::permissions("/usr/libexec/ferrodeck", fs::perms{0755});                                    \
    write_file("/usr/libexec/ferrodeck/ferrodeck-helper", "", 0755)

class AppRoot : public AppTest {
  protected:
    AppRoot() {
        const char* const path = std::getenv("PATH");
        setenv("PATH", (m_dir.path() + ":" + (path ? path : "")).c_str(), 1);
        unsetenv("XAUTHORITY");
        as_user::give(m_dir.path());
        for (const char* const folder : {"", "/config", "/home", "/run"})
            as_user::give(test_env::root() + folder);
        chmod(left().c_str(), 0755);
        chmod(right().c_str(), 0755);
        as_user::give(left());
    }
    ~AppRoot() override { test_env::end(m_servant); }

    // Whoever asks first whether this process is root's is told the same to its end: that is to be
    // the user's own.
    void SetUp() override {
        if (!test_env::ensure_display())
            GTEST_SKIP() << "no X server, and Xvfb cannot be started";
    }
    bool run_as_user(const std::function<void()>& body) {
        return as_user::run([&] {
            AppTest::SetUp();
            body();
        });
    }

    // A script that stands in for pkexec; DIR in it is the test's folder.
    void pkexec(std::string script) {
        for (size_t at = 0; (at = script.find("DIR", at)) != script.npos;)
            script.replace(at, 3, m_dir.path());
        write_file(m_dir / "pkexec", "#!/bin/sh\n" + script, 0755);
    }
    // Root's own process, which does for the script what pkexec would.
    void serve_as_root(const std::string& command) {
        for (const char* const pipe : {"ask", "tell"}) {
            ASSERT_EQ(mkfifo((m_dir / pipe).c_str(), 0600), 0);
            as_user::give(m_dir / pipe);
        }
        m_servant = test_env::spawn(
            {"sh", "-c", "cd '" + m_dir.path() + "' && " + command + " <ask >tell"});
    }
    void pkexec_runs_the_helper() {
        serve_as_root("PKEXEC_UID=65534 " HELPER " --batch");
        pkexec("cat DIR/tell & cat >DIR/ask; wait");
    }

    // Selects all of the left side and copies it to the right one, which is root's.
    void copy_all() {
        app().perform(Action::SelectAll, 0);
        app().perform(Action::CopyToOther, 0);
        ASSERT_TRUE(settle());
        frame();
    }
    App::HitRect button(Action action) { return hit(App::Hit::Overlay, static_cast<int>(action)); }
    size_t buttons(Action action) {
        size_t count = 0;
        for (const App::HitRect& rect : app().m_hits)
            count += rect.what == App::Hit::Overlay && rect.param == static_cast<int>(action);
        return count;
    }
    void expect_error(const std::string& key) {
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, tr("dlg.error"));
        EXPECT_EQ(app().m_overlay_text, tr(key.c_str()));
    }
    // Calls something every few milliseconds from the main loop, until it answers false.
    static void meanwhile(const std::function<bool()>& what) {
        g_timeout_add_full(
            G_PRIORITY_DEFAULT, 5,
            [](gpointer data) -> gboolean {
                return (*static_cast<std::function<bool()>*>(data))();
            },
            new std::function<bool()>(what),
            [](gpointer data) { delete static_cast<std::function<bool()>*>(data); });
    }

    TempDir m_dir;
    pid_t m_servant = -1;
};

// --- Retry ------------------------------------------------------------------------------------

class AppRetry : public AppRoot {
  protected:
    void one_failure() {
        write_file(left() + "/a", "content of a");
        as_user::give(left() + "/a");
    }
    void open_errors() {
        start();
        copy_all();
        ASSERT_EQ(app().m_overlay, App::Overlay::Errors);
    }
};

TEST_F(AppRetry, what_was_refused_is_copied_by_the_helper) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    write_file(left() + "/b", std::string(200'000, 'b'), 0640);
    fs::create_symlink("a", left() + "/link");
    as_user::give(left() + "/b");
    pkexec_runs_the_helper();
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        EXPECT_EQ(app().elevatable_failures(), 3);
        shot("retry-offered");
        click(button(Action::RetryAsAdmin));
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a", "b", "link"}));
        EXPECT_EQ(names(false), (std::vector<std::string>{"..", "a", "b", "link"}));
        EXPECT_EQ(read_file(right() + "/a"), "content of a");
        EXPECT_EQ(fs::read_symlink(right() + "/link"), "a");
        EXPECT_EQ(app().m_result.title, "Copied as administrator");
        EXPECT_EQ(app().m_result.detail, "3 copied, 0 failed");
        EXPECT_EQ(app().m_result.failures, 0U);
        EXPECT_TRUE(app().m_result.valid);
        EXPECT_EQ(app().elevatable_failures(), 0);
        EXPECT_TRUE(logged("retry as admin: 3 operation(s)"));
        EXPECT_TRUE(logged("retry as admin: 3 of 3 succeeded"));
        shot("retry-done");
    }));
    EXPECT_EQ(test_env::lstat_of(right() + "/b").st_uid, 0U);
    EXPECT_EQ(test_env::lstat_of(right() + "/b").st_mode & 07777, 0640U);
}

TEST_F(AppRetry, only_what_lacks_rights_is_handed_over) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0644), 0);  // which nobody copies
    pkexec("cat >DIR/batch; printf 'OK\\t1\\n'");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        EXPECT_EQ(copy_engine::instance().snapshot().failures.size(), 2U);
        EXPECT_EQ(app().m_result.failures, 2U);
        click(button(Action::RetryAsAdmin));
        EXPECT_EQ(read_file(m_dir / "batch"), "COPY\t" + left() + "/a\t" + right() + "/a\n");
        EXPECT_EQ(app().m_result.failures, 1U);
        EXPECT_EQ(app().m_result.detail, "1 copied, 0 failed");
        // The dialogue lists what is left.
        app().perform(Action::None, 0);
        click(hit(App::Hit::ErrorBanner));
        EXPECT_EQ(app().failure_lines(), 1U);
        EXPECT_EQ(buttons(Action::RetryAsAdmin), 0U);
    }));
}

TEST_F(AppRetry, a_declined_password_leaves_everything_as_it_was) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("exit 126");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        const App::LastResult before = app().m_result;
        click(button(Action::RetryAsAdmin));
        EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
        EXPECT_EQ(buttons(Action::RetryAsAdmin), 1U);
        EXPECT_EQ(app().m_result.title, before.title);
        EXPECT_EQ(app().m_result.detail, before.detail);
        EXPECT_EQ(app().m_result.failures, before.failures);
        EXPECT_EQ(names(true), std::vector<std::string>{".."});
        EXPECT_TRUE(logged("retry as admin: cancelled by the user"));
        EXPECT_FALSE(app().m_veiled);
    }));
}

TEST_F(AppRetry, the_first_error_is_shown_and_the_sides_are_read_again) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    write_file(left() + "/b", "b");
    as_user::give(left() + "/b");
    pkexec("cat >/dev/null; touch '" + left() +
           "/seen'; "
           "printf 'ERR\\t1\\tnot today\\nERR\\t2\\tnor tomorrow\\n'");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        const std::string first = copy_engine::instance().snapshot().failures[0].target;
        click(button(Action::RetryAsAdmin));
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, tr("dlg.error"));
        EXPECT_EQ(app().m_overlay_text, first + ": not today");
        EXPECT_EQ(names(), (std::vector<std::string>{"..", "a", "b", "seen"}));
        EXPECT_EQ(app().m_result.failures, 2U);
        EXPECT_EQ(app().m_result.detail, "0 copied, 2 failed");
        EXPECT_TRUE(
            logged("retry as admin: 0 of 2 succeeded — first error: " + first + ": not today"));
    }));
}

TEST_F(AppRetry, a_moved_file_whose_source_stayed_is_not_copied_again) {
    REQUIRE_ROOT_TO_GIVE_UP();
    write_file(right() + "/a", "x");
    as_user::give(left());
    pkexec("touch DIR/asked");
    EXPECT_TRUE(run_as_user([this] {
        start();
        app().m_active_right = true;  // the side that is root's, where nothing can be removed
        app().perform(Action::SelectAll, 0);
        app().perform(Action::MoveToOther, 0);
        ASSERT_TRUE(settle());
        frame();
        ASSERT_EQ(app().m_overlay, App::Overlay::Errors);
        const auto failures = copy_engine::instance().snapshot().failures;
        ASSERT_EQ(failures.size(), 1U);
        EXPECT_EQ(failures[0].code, EACCES);
        EXPECT_TRUE(failures[0].copied);
        EXPECT_EQ(read_file(left() + "/a"), "x");
        EXPECT_EQ(app().elevatable_failures(), 0);
        EXPECT_EQ(buttons(Action::RetryAsAdmin), 0U);
        app().perform(Action::RetryAsAdmin, 0);
        EXPECT_FALSE(exists(m_dir / "asked"));
        EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    }));
}

TEST_F(AppRetry, while_the_helper_is_waited_for_the_window_lives_and_hears_nothing) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("echo >>DIR/asked; while ! [ -e DIR/go ]; do sleep 0.01; done; cat >/dev/null; "
           "printf 'OK\\t1\\n'");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        const App::HitRect retry = button(Action::RetryAsAdmin);
        const App::HitRect close = button(Action::DismissErrors);
        const std::string dialogue =
            pixel(static_cast<int>(close.x) - 6, static_cast<int>(close.y));
        const unsigned ticks = app().m_idle_frame;
        int turns = 0;
        meanwhile([&] {
            EXPECT_TRUE(app().m_veiled);
            if (app().m_idle_frame < ticks + 2)
                return true;  // the tick goes on
            if (++turns == 1) {
                frame();
                EXPECT_TRUE(app().m_hits.empty());
                EXPECT_NE(pixel(static_cast<int>(close.x) - 6, static_cast<int>(close.y)),
                          dialogue);
                app().m_palette = Palette::dark_();
                frame();
                shot("retry-veiled-dark");
                app().m_palette = Palette::light();
                frame();
                shot("retry-veiled-light");
            }
            // The rectangles of the frame before, had they survived.
            click(retry);
            click(close);
            key(GDK_KEY_Escape);
            key(GDK_KEY_Return);
            key(GDK_KEY_F7);
            key(GDK_KEY_Tab);
            app().perform(Action::RetryAsAdmin, 0);
            app().perform(Action::DismissErrors, 0);
            app().handle_scroll(10, GDK_SCROLL_DOWN, 0);
            app().handle_motion(retry.x + 5, retry.y + 5);
            EXPECT_FALSE(app().drop_uris({"file://" + left() + "/a"}, 10, 300, false));
            EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
            EXPECT_FALSE(app().m_active_right);
            if (turns < 3)
                return true;
            write_file(m_dir / "go", "");
            return false;
        });
        click(retry);
        EXPECT_EQ(turns, 3);
        EXPECT_FALSE(app().m_veiled);
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_EQ(read_file(m_dir / "asked"), "\n");
        frame();
        EXPECT_FALSE(app().m_hits.empty());
    }));
}

// As a window manager asks before it calls a window dead.
TEST_F(AppRetry, while_the_helper_is_waited_for_the_desktops_question_is_answered) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("while ! [ -e DIR/go ]; do sleep 0.01; done; exit 126");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        Display* const desktop = XOpenDisplay(nullptr);
        ASSERT_TRUE(desktop);
        const Window root = DefaultRootWindow(desktop);
        const Atom ping = XInternAtom(desktop, "_NET_WM_PING", False);
        const Atom protocols = XInternAtom(desktop, "WM_PROTOCOLS", False);
        const Window window = gdk_x11_window_get_xid(gtk_widget_get_window(app().m_window));
        XSelectInput(desktop, root, SubstructureNotifyMask);
        bool asked = false;
        int rounds = 0;
        bool answered = false;
        meanwhile([&] {
            XEvent event = {};
            if (!asked) {
                event.xclient.type = ClientMessage;
                event.xclient.window = window;
                event.xclient.message_type = protocols;
                event.xclient.format = 32;
                event.xclient.data.l[0] = static_cast<long>(ping);
                event.xclient.data.l[1] = 4711;
                event.xclient.data.l[2] = static_cast<long>(window);
                XSendEvent(desktop, window, False, NoEventMask, &event);
                XFlush(desktop);
                asked = true;
            }
            while (XPending(desktop) > 0) {
                XNextEvent(desktop, &event);
                answered = answered || (event.type == ClientMessage &&
                                        event.xclient.message_type == protocols &&
                                        event.xclient.data.l[0] == static_cast<long>(ping) &&
                                        event.xclient.data.l[1] == 4711);
            }
            if (!answered && ++rounds < 2000)
                return true;
            write_file(m_dir / "go", "");
            return false;
        });
        click(button(Action::RetryAsAdmin));
        EXPECT_TRUE(answered);
        XCloseDisplay(desktop);
    }));
}

TEST_F(AppRetry, a_transfer_may_end_meanwhile) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("cat >/dev/null; while ! [ -e DIR/go ]; do sleep 0.01; done; printf 'OK\\t1\\n'");
    TempDir other;
    as_user::give(other.path());
    EXPECT_TRUE(run_as_user([&] {
        open_errors();
        // As if it had run all the time and ended now, with the failure that is listed.
        meanwhile([&] {
            app().m_transfer_was_running = true;
            app().tick();
            EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
            write_file(m_dir / "go", "");
            return false;
        });
        click(button(Action::RetryAsAdmin));
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_EQ(app().m_result.failures, 0U);
        EXPECT_EQ(app().m_result.detail, "1 copied, 0 failed");
    }));
}

TEST_F(AppRetry, the_window_may_go_meanwhile) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("exec sleep 60");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        meanwhile([this] {
            if (!app().m_veiled)
                return true;
            gtk_window_close(GTK_WINDOW(app().m_window));
            return false;
        });
        click(button(Action::RetryAsAdmin));
        EXPECT_FALSE(app().m_window);
        EXPECT_TRUE(app().m_quitting);
        EXPECT_FALSE(app().m_veiled);
        EXPECT_FALSE(logged("retry as admin: cancelled by the user"));
        EXPECT_EQ(app().m_result.detail, "");
        finish();
    }));
}

TEST_F(AppRetry, a_signal_may_end_the_program_meanwhile) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("exec sleep 60");
    EXPECT_TRUE(run_as_user([this] {
        open_errors();
        meanwhile([this] {
            if (!app().m_veiled)
                return true;
            raise(SIGTERM);
            return false;
        });
        click(button(Action::RetryAsAdmin));
        EXPECT_TRUE(app().m_quitting);
        EXPECT_TRUE(logged("signal received, shutting down"));
        finish();
    }));
}

// The built program, in its own main loop.
class AppRetryRoads : public AppRetry {
  protected:
    void SetUp() override {
        AppRetry::SetUp();
        if (geteuid() != 0 ||
            as_user::run([] { _exit(access(test_env::Program::path().c_str(), X_OK)); }))
            return;
        GTEST_SKIP() << "an ordinary user cannot reach the built program here";
    }
    std::vector<std::string> copying() const {
        return {"--left=" + left(), "--right=" + right(),
                "--action=SelectAll,CopyToOther,RetryAsAdmin"};
    }
};

TEST_F(AppRetryRoads, what_was_refused_is_copied_by_the_helper) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec_runs_the_helper();
    EXPECT_TRUE(as_user::run([this] {
        test_env::Program program;
        EXPECT_EQ(program.run(copying()), 0);
        EXPECT_TRUE(program.logged("retry as admin: 1 of 1 succeeded"));
        EXPECT_EQ(read_file(right() + "/a"), "content of a");
    }));
}

TEST_F(AppRetryRoads, a_signal_ends_it_while_the_helper_is_waited_for) {
    REQUIRE_ROOT_TO_GIVE_UP();
    one_failure();
    pkexec("exec sleep 60");
    EXPECT_TRUE(as_user::run([this] {
        test_env::Program program;
        program.start(copying());
        EXPECT_TRUE(program.wait_logged("retry as admin: 1 operation(s)"));
        program.signal(SIGTERM);
        EXPECT_EQ(program.wait(20), 0);
        EXPECT_TRUE(program.logged("signal received, shutting down"));
    }));
}

// --- A folder that may not be read ------------------------------------------------------------

// The socket is there a moment before somebody listens.
bool is_listened_to(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool good = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return good;
}

class AppNoAccess : public AppRoot {
  protected:
    // A folder of the left side that only root may read.
    std::string closed(const std::string& name = "closed") {
        const std::string path = left() + "/" + name;
        fs::create_directory(path);
        EXPECT_EQ(chmod(path.c_str(), 0), 0);
        return path;
    }
    static std::string head(const std::string& path) {
        return path +
               "\nPermission denied\n\n"
               "This folder can only be read with administrator rights. In a terminal:\n"
               "sudo -i        # a root shell\n"
               "sudo ls -la '" +
               path + "'";
    }
};

constexpr char kHint[] =
    "\n\nCopying into such a folder works from this app: it will offer \"Retry as administrator\" "
    "when a copy fails on permissions.";
constexpr char kRestart[] =
    "\n\nThis app can restart itself with administrator rights — the desktop will ask once. "
    "Everything is then done as root, including deleting.";

TEST_F(AppNoAccess, a_side_that_goes_there_is_followed_by_the_message) {
    REQUIRE_ROOT_TO_GIVE_UP();
    const std::string path = closed();
    pkexec("exit 0");
    EXPECT_TRUE(run_as_user([&] {
        start();
        for (const bool on_the_right : {false, true}) {
            pane(on_the_right).navigate_to(path, false);
            EXPECT_TRUE(pump_until([this] { return app().m_overlay != App::Overlay::None; }));
            EXPECT_EQ(app().m_overlay, App::Overlay::Message);
            EXPECT_EQ(app().m_overlay_title, "Permission denied");
            EXPECT_EQ(app().m_overlay_text, head(path) + kHint + kRestart);
            EXPECT_EQ(app().m_message_action, Action::RestartAsRoot);
            EXPECT_STREQ(app().m_message_action_label, "action.restart_root");
            EXPECT_TRUE(logged("permission denied: " + path));
            for (const bool dark : {false, true}) {
                app().m_palette = dark ? Palette::dark_() : Palette::light();
                frame(1000, 700);
                shot(dark ? "no-access-dark" : "no-access-light");
            }
            EXPECT_EQ(buttons(Action::RestartAsRoot), 1U);
            key(GDK_KEY_Return);
            EXPECT_EQ(app().m_overlay, App::Overlay::None);
        }
        // Once, and not with each tick.
        for (int i = 0; i < 3; ++i)
            app().tick();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
    }));
}

TEST_F(AppNoAccess, the_path_field_tells_it_too_and_stays_open) {
    REQUIRE_ROOT_TO_GIVE_UP();
    const std::string path = closed("it's closed");
    EXPECT_TRUE(run_as_user([&] {
        start();
        app().begin_path_edit(false);
        app().m_path_buffer = "it's closed";
        app().m_path_caret = 0;
        key(GDK_KEY_Return);
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        // Without pkexec neither way is offered, and the reason is the last word.
        std::string expected = head(path);
        expected.replace(expected.rfind("it's"), 4, "it'\\''s");
        EXPECT_EQ(app().m_overlay_text,
                  expected +
                      "\n\npkexec is not installed, so this cannot be run as administrator.");
        EXPECT_EQ(app().m_message_action, Action::None);
        EXPECT_TRUE(logged("root restart unavailable: pkexec not found"));
        EXPECT_EQ(app().m_path_edit, 0);
        EXPECT_EQ(app().m_path_error, path + ": Permission denied");
        // A path that is merely missing has no such message.
        app().close_overlay();
        app().m_path_buffer = "missing";
        app().commit_path_edit();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
    }));
}

TEST_F(AppNoAccess, the_restart_is_unavailable_for_reasons_that_the_log_tells) {
    REQUIRE_ROOT_TO_GIVE_UP();
    pkexec("exit 0");
    EXPECT_TRUE(run_as_user([this] {
        start();
        std::string reason;
        EXPECT_TRUE(App::can_restart_as_root(&reason));
        EXPECT_EQ(reason, "");
        setenv("SNAP", "/snap/x", 1);
        EXPECT_FALSE(App::can_restart_as_root(&reason));
        EXPECT_EQ(reason, tr("elevate.sandboxed"));
        EXPECT_FALSE(App::can_restart_as_root(nullptr));
        EXPECT_TRUE(logged("root restart unavailable: sandboxed (snap/flatpak)"));
        app().perform(Action::RestartAsRoot, 0);
        expect_error("elevate.sandboxed");
        unsetenv("SNAP");
    }));
    fs::remove("/usr/libexec/ferrodeck/ferrodeck-helper");
    EXPECT_TRUE(run_as_user([this] {
        std::string reason;
        EXPECT_FALSE(App::can_restart_as_root(&reason));
        EXPECT_EQ(reason, tr("elevate.no_helper"));
        EXPECT_TRUE(logged("root restart unavailable: helper not installed"));
    }));
}

TEST_F(AppNoAccess, on_wayland_the_reason_is_the_last_word) {
    REQUIRE_ROOT_TO_GIVE_UP();
    std::string ignored;
    if (test_env::run("command -v weston", &ignored) != 0)
        GTEST_SKIP() << "weston is not installed";
    const std::string path = closed();
    pkexec("touch DIR/asked");
    EXPECT_TRUE(run_as_user([&] {
        const pid_t compositor = test_env::spawn(
            {"env", "XDG_RUNTIME_DIR=" + m_dir.path(), "weston", "--backend=headless-backend.so",
             "--socket=ferrodeck", "--width=1600", "--height=1200", "--idle-time=0"});
        const std::string socket = m_dir / "ferrodeck";
        for (int i = 0; i < 1000 && !is_listened_to(socket); ++i)
            g_usleep(10'000);
        // The frame that GTK gives the window there has icons.
        setenv("XDG_DATA_DIRS", "/usr/local/share:/usr/share", 1);
        setenv("GDK_BACKEND", "wayland", 1);
        setenv("WAYLAND_DISPLAY", socket.c_str(), 1);
        unsetenv("DISPLAY");
        start();
        std::string reason;
        EXPECT_FALSE(App::can_restart_as_root(&reason));
        EXPECT_EQ(reason,
                  "Under Wayland an app cannot restart itself as administrator: the session "
                  "belongs to your user. Start it from a terminal instead: "
                  "sudo -E Ferrodeck");
        pane().navigate_to(path, false);
        EXPECT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Message; }));
        EXPECT_EQ(app().m_overlay_text, head(path) + kHint + "\n\n" + reason);
        frame();
        EXPECT_EQ(buttons(Action::RestartAsRoot), 0U);
        app().perform(Action::RestartAsRoot, 0);
        expect_error("err.root_wayland");
        EXPECT_FALSE(exists(m_dir / "asked"));
        finish();
        test_env::end(compositor);
    }));
}

TEST_F(AppNoAccess, a_question_of_the_transfer_is_not_covered) {
    AppTest::SetUp();
    start();
    app().open_overlay(App::Overlay::Conflict, "");
    app().warn_no_access("/root", "Permission denied");
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    EXPECT_TRUE(logged("permission denied: /root"));
    app().close_overlay();
}

TEST_F(AppRoot, root_is_told_what_it_is) {
    if (!running_as_root())
        GTEST_SKIP() << "not root";
    AppTest::SetUp();
    start();
    EXPECT_FALSE(App::can_restart_as_root(nullptr));
    app().show_message("open", "before");
    app().perform(Action::RestartAsRoot, 0);
    expect_error("header.root_mode");
}

// --- Restart ----------------------------------------------------------------------------------

class AppRestart : public AppRoot {
  protected:
    // A cookie that the user may read.
    std::string cookie(const std::string& path) {
        test_env::make_dirs(path.substr(0, path.rfind('/')));
        write_file(path, "cookie", 0600);
        as_user::give(path.substr(0, path.rfind('/')));
        as_user::give(path);
        return path;
    }
    void with_cookie() { setenv("XAUTHORITY", cookie(m_dir / "cookie").c_str(), 1); }
    void restart() { app().perform(Action::RestartAsRoot, 0); }
    static std::string own_program() { return fs::read_symlink("/proc/self/exe").string(); }
    std::string cookie_used() {
        for (const std::string& line : log_lines())
            if (const size_t at = line.find(" (cookie ");
                line.rfind("restarting as root via pkexec: ", 0) == 0 && at != line.npos)
                return line.substr(at + 9, line.size() - at - 10);
        return {};
    }
    // A process of root's that is called as this program is.
    pid_t root_process() {
        const std::string name = su_basename(own_program());
        fs::copy_file("/bin/sleep", m_dir / name, fs::copy_options::overwrite_existing);
        return test_env::spawn({m_dir / name, "60"});
    }
    static std::string su_basename(const std::string& path) {
        return path.substr(path.rfind('/') + 1);
    }
    // Runs body, as root, where no other process is seen than those that it starts: another test's
    // would be taken for the second instance. They end with it.
    static bool alone(const std::function<void()>& body) {
        std::fflush(nullptr);
        const pid_t outside = fork();
        if (outside == 0) {
            if (unshare(CLONE_NEWPID) != 0 || !test_env::enter_private_mounts())
                _exit(3);
            const pid_t first = fork();
            if (first == 0) {
                if (mount("proc", "/proc", "proc", 0, nullptr) != 0)
                    _exit(3);
                body();
                std::fflush(nullptr);
                _exit(HasFailure() ? 1 : 0);
            }
            int status = 1;
            waitpid(first, &status, 0);
            _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 4);
        }
        int status = 1;
        waitpid(outside, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    bool user_alone(const std::function<void()>& body) {
        return alone([&] { EXPECT_TRUE(run_as_user(body)); });
    }
};

TEST_F(AppRestart, the_command_line_hands_the_state_over) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("printf '%s\\n' \"$@\" >DIR/words.new; mv DIR/words.new DIR/words; exec sleep 60");
    EXPECT_TRUE(user_alone([this] {
        start({"--active=right", "--geometry=1111x777+23+45"});
        int x = 0;
        int y = 0;
        ASSERT_TRUE(pump_until([&] {
            gtk_window_get_position(GTK_WINDOW(app().m_window), &x, &y);
            return x == 23 && y == 45;
        }));
        restart();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        ASSERT_TRUE(pump_until([this] { return exists(m_dir / "words"); }));
        const char* const display = std::getenv("DISPLAY");
        EXPECT_EQ(read_file(m_dir / "words"),
                  std::string("env\nDISPLAY=") + display + "\nXAUTHORITY=" + (m_dir / "cookie") +
                      "\n" + own_program() + "\n--left=" + left() + "\n--right=" + right() +
                      "\n--active=right\n--geometry=1111x777+23+45\n");
        EXPECT_TRUE(logged("restarting as root via pkexec: " + own_program() + " (cookie " +
                           (m_dir / "cookie") + ")"));
        // A second command while the first is under way asks nobody.
        fs::remove(m_dir / "words");
        const GPid child = app().m_root_restart->child;
        restart();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_EQ(app().m_root_restart->child, child);
        // Without DISPLAY it is the first one.
        unsetenv("DISPLAY");
        EXPECT_EQ(app().root_command("p", "c")[2], "DISPLAY=:0");
        app().m_active_right = false;
        EXPECT_EQ(app().root_command("p", "c")[7], "--active=left");
        kill(child, SIGKILL);
    }));
}

TEST_F(AppRestart, the_cookie_is_looked_for_in_four_places) {
    REQUIRE_ROOT_TO_GIVE_UP();
    pkexec("exit 0");
    const std::string first = cookie(m_dir / "x/first");
    const std::string second = cookie(m_dir / "x/second");
    const std::string third = cookie(test_env::root() + "/run/gdm/Xauthority");
    const std::string fourth = cookie(test_env::root() + "/home/.Xauthority");
    EXPECT_TRUE(alone([&] {
        // Servers by their command lines; the first two are none that count.
        std::vector<pid_t> servers;
        const auto server = [&servers](const std::string& name, const std::string& words) {
            servers.push_back(test_env::spawn(
                {"bash", "-c",
                 "exec -a '" + name + "' sh -c 'while :; do sleep 60; done' " + words}));
        };
        server("/usr/bin/Xvfb", "-auth " + first);
        server("/usr/lib/xorg/Xorg", "-nolisten tcp -auth");
        server("/usr/lib/xorg/Xorg", "-auth /missing/cookie");
        EXPECT_TRUE(run_as_user([&] {
            start();
            const auto used = [this] {
                Log::instance().clear();
                restart();
                EXPECT_TRUE(pump_until([this] { return !app().m_root_restart; }));
                return cookie_used();
            };
            setenv("XAUTHORITY", first.c_str(), 1);
            EXPECT_EQ(used(), first);
            setenv("XAUTHORITY", "/missing/cookie", 1);
            EXPECT_EQ(used(), third);
            fs::permissions(third, fs::perms::none);
            EXPECT_EQ(used(), fourth);
            fs::remove(fourth);
            unsetenv("XAUTHORITY");
            // Nothing is spawned.
            EXPECT_EQ(used(), "");
            expect_error("err.root_no_cookie");
            EXPECT_TRUE(logged("restart as root: no readable X cookie found"));
            EXPECT_FALSE(logged("restart as root: child exited early with 0"));
        }));
        server("/usr/lib/xorg/Xorg", ":0 vt1 -auth " + second + " -noreset");
        server("/opt/X", "-auth " + second);
        const auto second_is_used = [&] {
            return run_as_user([&] {
                start();
                restart();
                EXPECT_EQ(cookie_used(), second);
                EXPECT_TRUE(pump_until([this] { return !app().m_root_restart; }));
            });
        };
        // Until it is what its command line says.
        for (int i = 0; i < 1000; ++i, usleep(2000)) {
            const auto words = [](pid_t pid) {
                return read_file("/proc/" + std::to_string(pid) + "/cmdline");
            };
            if (words(servers[3]).rfind("/usr/lib", 0) == 0 &&
                words(servers[4]).rfind("/opt", 0) == 0)
                break;
        }
        EXPECT_TRUE(second_is_used());
        test_env::end(servers[3]);
        EXPECT_TRUE(second_is_used());
        for (const size_t i : {0U, 1U, 2U, 4U})
            test_env::end(servers[i]);
    }));
}

TEST_F(AppRestart, a_child_that_ends_early_says_why) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("echo 'first line'; printf 'second\\nthird, not ended' >&2; exit $(cat DIR/status)");
    EXPECT_TRUE(user_alone([this] {
        start();
        for (const int status : {126, 127, 1, 0}) {
            write_file(m_dir / "status", std::to_string(status));
            app().show_message("open", "before");
            restart();
            EXPECT_NE(app().m_overlay, App::Overlay::Message);  // closed first
            EXPECT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Message; }));
            EXPECT_EQ(app().m_overlay_title, tr("dlg.error"));
            EXPECT_TRUE(
                logged("restart as root: child exited early with " + std::to_string(status)));
            EXPECT_FALSE(app().m_root_restart);
            if (status >= 126) {
                EXPECT_EQ(app().m_overlay_text,
                          "The authentication was cancelled — nothing was changed.");
                continue;
            }
            const std::string text = app().m_overlay_text;
            EXPECT_EQ(text.rfind(tr("err.root_failed") + std::string("\n"), 0), 0U) << text;
            for (const char* const line : {"\nfirst line", "\nsecond", "\nthird, not ended"})
                EXPECT_NE(text.find(line), std::string::npos) << text;
            EXPECT_NE(text.back(), '\n');
            EXPECT_TRUE(logged("root child: first line"));
            EXPECT_TRUE(logged("root child: third, not ended"));
        }
    }));
}

TEST_F(AppRestart, a_child_that_never_stops_talking_leaves_the_window_alive) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("exec timeout 3 yes");
    EXPECT_TRUE(user_alone([this] {
        start();
        restart();
        while (app().m_root_restart && app().m_root_restart->output.empty())
            g_main_context_iteration(nullptr, TRUE);
        // As often as a window is painted again and again.
        int turns = 0;
        const auto paint = [](gpointer data) -> gboolean {
            return ++*static_cast<int*>(data) < 10;
        };
        g_idle_add_full(GDK_PRIORITY_REDRAW, paint, &turns, nullptr);
        while (turns < 10 && app().m_root_restart)
            g_main_context_iteration(nullptr, TRUE);
        EXPECT_EQ(turns, 10);
        EXPECT_TRUE(app().m_root_restart);  // it still talks
        app().forget_root_start();
    }));
}

TEST_F(AppRestart, a_pkexec_that_cannot_be_started_is_told) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    write_file(m_dir / "pkexec", "#!/missing/interpreter\n", 0755);
    EXPECT_TRUE(user_alone([this] {
        start();
        restart();
        expect_error("err.root_failed");
        EXPECT_FALSE(app().m_root_restart);
    }));
}

TEST_F(AppRestart, the_window_closes_once_the_second_instance_is_up) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("echo >DIR/asked; exec sleep 60");
    EXPECT_TRUE(alone([&] {
        const pid_t before = root_process();
        ASSERT_GT(before, 0);
        ASSERT_TRUE(
            pump_until([&] { return !App::root_instances(su_basename(own_program())).empty(); }));
        // It comes up when the user has been asked, by a process of root's.
        const std::string name = su_basename(own_program());
        m_servant = test_env::spawn({"sh", "-c",
                                     "while ! [ -e '" + (m_dir / "go") +
                                         "' ]; do sleep 0.01; done; "
                                         "exec '" +
                                         (m_dir / name) + "' 60"});
        EXPECT_TRUE(run_as_user([&] {
            start();
            restart();
            ASSERT_TRUE(pump_until([this] { return exists(m_dir / "asked"); }));
            // Neither the one that was there before nor one of the user's is taken for it.
            const pid_t own = test_env::spawn({m_dir / name, "60"});
            const int polls = app().m_root_restart->polls;
            ASSERT_TRUE(pump_until([&] { return app().m_root_restart->polls >= polls + 2; }));
            EXPECT_TRUE(app().m_window);
            test_env::end(own);
            const GPid child = app().m_root_restart->child;
            write_file(m_dir / "go", "");
            EXPECT_TRUE(pump_until([this] { return !app().m_window; }));
            EXPECT_TRUE(app().m_quitting);
            EXPECT_TRUE(logged("restart as root: the new root instance is up, pid " +
                               std::to_string(m_servant)));
            kill(child, SIGKILL);
        }));
        test_env::end(before);
    }));
}

TEST_F(AppRestart, it_is_given_up_after_240_seconds) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("trap 'echo >DIR/ended; exit 0' TERM; echo >DIR/asked; while :; do sleep 0.01; done");
    EXPECT_TRUE(user_alone([this] {
        start();
        restart();
        ASSERT_TRUE(pump_until([this] { return exists(m_dir / "asked"); }));
        app().m_root_restart->polls = 958;
        app().poll_root_start();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        app().poll_root_start();
        expect_error("err.root_failed");
        EXPECT_TRUE(logged("restart as root: gave up waiting after 240 s"));
        EXPECT_FALSE(app().m_root_restart);
        app().close_overlay();
        // The question goes, and its end is no news.
        EXPECT_TRUE(pump_until([this] { return exists(m_dir / "ended"); }));
        for (int i = 0; i < 20; ++i, g_usleep(2000))
            pump();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
    }));
}

TEST_F(AppRestart, the_program_may_end_meanwhile) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("echo >DIR/asked; sleep 0.05; echo late; exit 1");
    EXPECT_TRUE(user_alone([this] {
        start();
        restart();
        ASSERT_TRUE(pump_until([this] { return exists(m_dir / "asked"); }));
        finish();
        for (int i = 0; i < 50; ++i, g_usleep(2000))
            g_main_context_iteration(nullptr, FALSE);
        EXPECT_FALSE(logged("root child: late"));
    }));
}

TEST_F(AppRestart, work_that_would_end_with_the_window_comes_first) {
    REQUIRE_ROOT_TO_GIVE_UP();
    with_cookie();
    pkexec("echo >DIR/asked; exit 1");
    write_file(left() + "/a", "new");
    write_file(left() + "/b", "new");
    as_user::give(right());
    write_file(right() + "/a", "old");
    EXPECT_TRUE(user_alone([this] {
        start();
        app().perform(Action::SelectAll, 0);
        app().perform(Action::CopyToOther, 0);
        ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
        restart();
        EXPECT_EQ(app().m_overlay_title, tr("dlg.busy_title"));
        EXPECT_FALSE(exists(m_dir / "asked"));
    }));
}

}  // namespace
