// A transfer that is broken off at a moment that nobody chose: by kill -9, by SIGTERM, by closing
// the window, by cancel. Whatever the moment, every source file is whole at one side at least, what
// stands at the target is whole (but for kill -9, which leaves a worker no time to clean up), and
// nothing beside the target changes.

#include "app_display.h"
#include "app_program.h"
#include "app_roads.h"
#include "copy_engine.h"
#include "run_engine.h"
#include "sanitized.h"
#include "test_env.h"
#include "tree.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

namespace {

using copy_engine::Operation;
using test_env::exists;
using test_env::Program;
using test_env::TempDir;

enum class Way { Kill, Terminate, Close, Cancel };
constexpr int kWays = 4;

const char* way_name(Way way) {
    switch (way) {
    case Way::Kill:
        return "kill -9";
    case Way::Terminate:
        return "SIGTERM";
    case Way::Close:
        return "close";
    case Way::Cancel:
        return "cancel";
    }
    return "?";
}

class Interrupt : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string ignored;
        if (test_env::run("command -v xdotool && command -v openbox", &ignored) != 0)
            GTEST_SKIP() << "xdotool or openbox is not installed";
        m_server = std::make_unique<test_env::XServer>(true);
        if (m_server->display().empty())
            GTEST_SKIP() << "Xvfb cannot be started";
        setenv("DISPLAY", m_server->display().c_str(), 1);
    }

    // One transfer, broken off in one way at a random moment. True if it was in mid-transfer.
    bool break_off(uint32_t seed, Way way) {
        std::mt19937 random(seed);
        const bool move = random() % 2 == 1;
        const TempDir from;
        // Another file system where there is one, so that a move has to copy.
        const TempDir to(exists("/dev/shm") ? "/dev/shm" : "");
        tree::Shape shape;
        shape.folders = 30;
        shape.files = 300;
        shape.symlinks = 8;
        shape.hard_links = 6;
        shape.sparse = 2;
        tree::build(from.path(), seed, shape);
        test_env::make_dirs(to / "beside");
        test_env::make_dirs(to / "target");
        test_env::write_file(to / "beside/file", "untouched");
        const tree::Snapshot before = tree::snapshot(from.path());
        const int delay_ms = static_cast<int>(random() % 60);

        const bool in_work = way == Way::Cancel
                                 ? cancel(from.path(), to / "target", move, delay_ms)
                                 : end_program(from.path(), to / "target", move, way, delay_ms);

        SCOPED_TRACE(std::string(way_name(way)) + (move ? ", move" : ", copy") + ", seed " +
                     std::to_string(seed) + ", after " + std::to_string(delay_ms) + " ms");
        check(before, tree::snapshot(from.path()), tree::snapshot(to / "target"), move, way);
        EXPECT_EQ(test_env::read_file(to / "beside/file"), "untouched");
        return in_work;
    }

  private:
    static bool cancel(const std::string& from, const std::string& to, bool move, int delay_ms) {
        test_env::EngineRun run;
        for (const auto& entry : std::filesystem::directory_iterator(from))
            run.sources.push_back(entry.path());
        run.target = to;
        run.op = move ? Operation::Move : Operation::Copy;
        const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(delay_ms);
        run.poll = [due](copy_engine::Engine& engine) {
            if (std::chrono::steady_clock::now() >= due)
                engine.cancel();
        };
        return test_env::run_engine(run).cancelled;
    }

    static bool end_program(const std::string& from, const std::string& to, bool move, Way way,
                            int delay_ms) {
        Program program;
        program.start(
            {"--left=" + from, "--right=" + to,
             std::string("--action=SelectAll,") + (move ? "MoveToOther" : "CopyToOther")});
        const auto begun = [&to] { return !std::filesystem::is_empty(to); };
        EXPECT_TRUE(wait_until(60, begun)) << "the transfer did not begin";
        sleep_ms(delay_ms);
        std::string output;
        switch (way) {
        case Way::Kill:
            program.signal(SIGKILL);
            break;
        case Way::Terminate:
            program.signal(SIGTERM);
            break;
        case Way::Close:
        case Way::Cancel:
            test_env::run("xdotool key alt+F4", &output);
            break;
        }
        const int status = program.wait(60);
        EXPECT_TRUE(status == 0 || (way == Way::Kill && status == 128 + SIGKILL)) << status;
        return !program.logged("selftest: done, 2 executed, 0 unknown");
    }

    static void check(const tree::Snapshot& before, const tree::Snapshot& source,
                      const tree::Snapshot& target, bool move, Way way) {
        const auto whole_in = [](const tree::Snapshot& side, const std::string& path,
                                 const tree::Node& node) {
            const auto found = side.find(path);
            return found != side.end() && tree::same_file(node, found->second);
        };
        for (const auto& [path, node] : before) {
            if (node.kind == 'd')
                continue;
            const bool at_source = whole_in(source, path, node);
            const bool at_target = whole_in(target, path, node);
            EXPECT_TRUE(at_source || (move && at_target)) << path;
            if (way != Way::Kill) {
                EXPECT_TRUE(at_target || !target.contains(path)) << "partial: " << path;
            }
        }
        if (!move) {
            EXPECT_EQ(tree::difference_text(before, source), "");
        }
        for (const auto& [path, node] : target) {
            EXPECT_TRUE(before.contains(path)) << "made up: " << path;
        }
    }

    std::unique_ptr<test_env::XServer> m_server;
};

// All ways in turn.
void run_seeds(const std::function<bool(uint32_t, Way)>& break_off, uint32_t first, int count) {
    int in_work = 0;
    for (int i = 0; i < count && !::testing::Test::HasFailure(); ++i)
        in_work += break_off(first + static_cast<uint32_t>(i), static_cast<Way>(i % kWays)) ? 1 : 0;
    std::printf("%d of %d transfers were broken off before their end\n", in_work, count);
    EXPECT_GT(in_work, 0) << "the transfers are too short for this test";
}

using NightlyInterrupt = Interrupt;

}  // namespace

TEST_F(Interrupt, nothing_is_lost_at_any_moment) {
    run_seeds([this](uint32_t seed, Way way) { return break_off(seed, way); }, 1,
              test_env::kSanitized ? 12 : 30);
}

TEST_F(NightlyInterrupt, nothing_is_lost_over_500_seeds) {
    run_seeds([this](uint32_t seed, Way way) { return break_off(seed, way); }, 1000, 500);
}
