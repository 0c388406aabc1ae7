// What a transfer's frames cost is bounded by how many there are: one to a tick while the window
// can be seen, and none while it cannot. How much time that is, bench/progress_bench tells.

#include "app_display.h"
#include "app_fixture.h"
#include "fresh_process.h"

#include "settings.h"

#include <cstdlib>
#include <string>

namespace {

class TransferFrames : public AppTest {
  protected:
    static constexpr int kFiles = 400;

    // Our own handler takes the signal for itself, so that no other behind it would be called.
    void count_frames() {
        const auto hook = [](GSignalInvocationHint*, guint, const GValue* values,
                             gpointer data) -> gboolean {
            auto& self = *static_cast<TransferFrames*>(data);
            if (g_value_get_object(values) == self.app().m_canvas)
                ++self.m_frames;
            return TRUE;
        };
        g_signal_add_emission_hook(g_signal_lookup("draw", GTK_TYPE_WIDGET), 0, hook, this,
                                   nullptr);
    }
    bool iconified() {
        return gdk_window_get_state(gtk_widget_get_window(app().m_window)) &
               GDK_WINDOW_STATE_ICONIFIED;
    }
    // The frames of one transfer from its command to its result, and its seconds.
    std::pair<int, double> copy() {
        pane().select_all();
        m_frames = 0;
        const double from = App::now_seconds();
        app().perform(Action::CopyToOther, 0);
        EXPECT_TRUE(settle());
        const double took = App::now_seconds() - from;
        EXPECT_EQ(app().m_result.files, kFiles);
        return {m_frames, took};
    }

    int m_frames = 0;
};

TEST_F(TransferFrames, are_one_to_a_tick_and_none_while_iconified) {
    REQUIRE_FRESH_PROCESS();
    const test_env::XServer screen(true);
    if (screen.display().empty() || !screen.wait_for_window_manager())
        GTEST_SKIP() << "no server with a window manager to be had";
    setenv("DISPLAY", screen.display().c_str(), 1);
    for (int i = 0; i < kFiles; ++i)
        test_env::write_file(left() + "/" + std::to_string(i), "x");
    SettingsStore::instance().mutable_get().default_conflict =
        copy_engine::ConflictAction::Overwrite;
    start();
    count_frames();

    const auto [seen, seen_took] = copy();
    EXPECT_GE(seen, 1);
    // The first by the command, and one more by the focus or by a tick cut in half.
    EXPECT_LE(seen, seen_took / 0.1 + 3) << seen_took << " s";

    gtk_window_iconify(GTK_WINDOW(app().m_window));
    ASSERT_TRUE(pump_until([this] { return iconified(); }));
    pump_until([] { return false; }, 0.15);
    const auto [unseen, unseen_took] = copy();
    EXPECT_EQ(unseen, 0) << unseen_took << " s";

    // What has happened meanwhile is painted when it comes back.
    gtk_window_deiconify(GTK_WINDOW(app().m_window));
    ASSERT_TRUE(pump_until([this] { return m_frames > 0; }));
    finish();
}

}  // namespace
