// A network share whose server stops answering in mid-copy: an sshfs mount of an SSH server on this
// machine. The share is named, the window lives, and the transfer goes on when the server does.

#include "app_display.h"
#include "app_fixture.h"
#include "app_program.h"
#include "i18n.h"
#include "ssh_server.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

using test_env::pattern;
using test_env::Program;
using test_env::read_file;
using test_env::run;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr int kFiles = 24;
constexpr size_t kBytes = 12'000'000;

std::string name_of(int i) {
    return "film" + std::to_string(i);
}

void fill(const std::string& folder) {
    for (int i = 0; i < kFiles; ++i)
        write_file(folder + "/" + name_of(i), pattern(kBytes, static_cast<uint32_t>(i)));
}

class SshfsTest : public AppTest {
  protected:
    void SetUp() override {
        m_server = std::make_unique<SshServer>();  // before the first thread
        if (!m_server->ok())
            GTEST_SKIP() << m_server->reason();
        AppTest::SetUp();
    }
    std::unique_ptr<SshServer> m_server;
};

}  // namespace

TEST_F(SshfsTest, a_server_that_stops_is_named_and_waited_for_while_the_window_lives) {
    fill(m_server->backing());
    const TempDir target("/dev/shm");
    start({"--left=" + m_server->mount(), "--right=" + target.path()});
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    key(GDK_KEY_F5);
    ASSERT_TRUE(copy_engine::instance().is_running());
    ASSERT_TRUE(pump_until([] { return copy_engine::instance().snapshot().bytes_done > 0; }));
    EXPECT_EQ(copy_engine::instance().snapshot().threads_active, 8);
    m_server->stop();
    const auto stopped = std::chrono::steady_clock::now();

    // No turn of the main loop may wait for the share. A loaded machine takes its time too, so the
    // limit is far above that and far below a stall.
    double longest = 0;
    auto last = stopped;
    const bool named = pump_until(
        [&] {
            const auto now = std::chrono::steady_clock::now();
            longest = std::max(longest, std::chrono::duration<double>(now - last).count());
            last = now;
            return !copy_engine::instance().snapshot().stalled_path.empty();
        },
        40);
    ASSERT_TRUE(named);
    EXPECT_LT(longest, 3.0);
    const copy_engine::Progress stalled = copy_engine::instance().snapshot();
    EXPECT_GE(stalled.stalled_seconds, 15);
    EXPECT_EQ(stalled.stalled_path.rfind(m_server->mount() + "/film", 0), 0U);
    EXPECT_LT(stalled.bytes_done, stalled.bytes_total);
    pump();
    EXPECT_EQ(app().m_flash_text,
              I18n::instance().trf(
                  "progress.stalled",
                  stalled.stalled_path.substr(stalled.stalled_path.rfind('/') + 1).c_str()));
    frame();
    shot("sshfs_stalled");

    m_server->go_on();
    ASSERT_TRUE(pump_until([] { return !copy_engine::instance().is_running(); }, 60));
    ASSERT_TRUE(settle());
    const copy_engine::Progress done = copy_engine::instance().snapshot();
    EXPECT_EQ(done.failures_total, 0U);
    EXPECT_EQ(done.stalled_path, "");
    for (int i = 0; i < kFiles; ++i) {
        EXPECT_TRUE(read_file(target / name_of(i)) == pattern(kBytes, static_cast<uint32_t>(i)))
            << name_of(i);
    }
}

TEST_F(SshfsTest, the_program_can_be_left_while_the_server_is_silent) {
    const test_env::XServer display(false);
    if (display.display().empty())
        GTEST_SKIP() << "Xvfb cannot be started";
    setenv("DISPLAY", display.display().c_str(), 1);
    fill(m_server->backing());
    const TempDir target("/dev/shm");
    const auto window_there = [] {
        std::string windows;
        run("xwininfo -root -tree", &windows);
        return windows.find(" 1100x720+") != std::string::npos;
    };
    const auto wait_until = [](double seconds, const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return condition();
    };
    Program program;
    program.start({"--left=" + m_server->mount(), "--right=" + target.path(),
                   "--action=SelectAll,CopyToOther"});
    ASSERT_TRUE(wait_until(30, [&] { return !std::filesystem::is_empty(target.path()); }));
    m_server->stop();
    ASSERT_TRUE(window_there());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    program.signal(SIGTERM);
    EXPECT_TRUE(wait_until(10, [&] { return !window_there(); }));
    EXPECT_TRUE(program.wait_logged("a worker did not end within 2 s, leaving without it", 10));
    // The kernel lets a thread go that waits for the share only when its call is answered.
    m_server->go_on();
    EXPECT_EQ(program.wait(30), 0);
    for (int i = 0; i < kFiles; ++i) {
        EXPECT_TRUE(read_file(m_server->backing() + "/" + name_of(i)) ==
                    pattern(kBytes, static_cast<uint32_t>(i)))
            << name_of(i);
    }
}
