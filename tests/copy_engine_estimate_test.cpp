// When a transfer says how long it will still take, and what it takes over from the run before.

#include "copy_engine.h"

#include "faultfs.h"
#include "test_env.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using test_env::pattern;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr useconds_t kPastARateInterval = 600'000;

void wait_for_end(Engine& engine) {
    for (int i = 0; i < 20'000 && engine.is_running(); ++i)
        usleep(1000);
    ASSERT_FALSE(engine.is_running());
    engine.reap();
}

// The first look at a run of files of these sizes, of which `done` have arrived and the next one
// hangs. It is the only look, so its rates are those since the start.
Progress look_after(Engine& engine, FaultFs& fs, const std::vector<size_t>& sizes, size_t done) {
    std::vector<std::string> sources;
    for (size_t i = 0; i < sizes.size(); ++i) {
        sources.push_back(fs / "f" + std::to_string(i));
        write_file(sources.back(), pattern(sizes[i]));
    }
    const TempDir dir;
    fs.set(faultfs::stall("open", 1, 1, "f" + std::to_string(done)));
    EXPECT_TRUE(engine.start(sources, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    EXPECT_TRUE(fs.wait_stalled(1));
    usleep(kPastARateInterval);
    Progress progress = engine.snapshot();
    EXPECT_EQ(progress.files_done, static_cast<int64_t>(done));
    EXPECT_FALSE(progress.scanning);
    EXPECT_GT(progress.bytes_per_second, 1024);
    fs.release();
    wait_for_end(engine);
    return progress;
}

double by_bytes(const Progress& progress) {
    return static_cast<double>(progress.bytes_total - progress.bytes_done) *
           progress.elapsed_seconds / static_cast<double>(progress.bytes_done);
}

double by_files(const Progress& progress) {
    return static_cast<double>(progress.files_total - progress.files_done) *
           progress.elapsed_seconds / static_cast<double>(progress.files_done);
}

struct Mix {
    const char* name;
    size_t done_size;  // of each of the two files that have arrived, bytes
    size_t left_size;  // of each that has not
    int left;
    enum class Expected { None, ByBytes, ByFiles } expected;
};

void PrintTo(const Mix& mix, std::ostream* out) {
    *out << mix.name;
}

class estimate_of : public testing::TestWithParam<Mix> {};

}  // namespace

// Two files have come over. By files the rest takes left / 2 times as long, by bytes
// left * left_size / (2 * done_size).
TEST_P(estimate_of, many_files_is_the_longer_of_two_that_agree) {
    const Mix& mix = GetParam();
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    std::vector<size_t> sizes(2, mix.done_size);
    sizes.insert(sizes.end(), static_cast<size_t>(mix.left), mix.left_size);
    Engine engine;
    const Progress progress = look_after(engine, fs, sizes, 2);
    double expected = -1;
    if (mix.expected == Mix::Expected::ByBytes)
        expected = by_bytes(progress);
    if (mix.expected == Mix::Expected::ByFiles)
        expected = by_files(progress);
    EXPECT_NEAR(progress.seconds_remaining, expected, 1e-6);
}

INSTANTIATE_TEST_SUITE_P(
    copy_engine, estimate_of,
    testing::Values(Mix{"bytes 3.9 times as long", 10'000, 39'000, 5, Mix::Expected::ByBytes},
                    Mix{"bytes 4.1 times as long", 10'000, 41'000, 5, Mix::Expected::None},
                    Mix{"files 3.9 times as long", 39'000, 10'000, 5, Mix::Expected::ByFiles},
                    Mix{"files 4.1 times as long", 41'000, 10'000, 5, Mix::Expected::None},
                    Mix{"four left, which bytes alone tell", 10'000, 41'000, 4,
                        Mix::Expected::ByBytes}));

TEST(copy_engine_estimate, many_files_of_which_none_has_come_give_none) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    std::vector<std::string> sources;
    for (int i = 0; i < 6; ++i) {
        sources.push_back(fs / "f" + std::to_string(i));
        write_file(sources.back(), pattern(i == 0 ? 16 << 20 : 2 << 20));
    }
    const TempDir dir;
    // The kernel asks for 128 KiB to 1 MiB at a time: the first chunk is through by then, in the
    // smallest pieces too, and the file is not, in the largest.
    fs.set(faultfs::stall("read", 12, 1, "f0"));
    Engine engine;
    ASSERT_TRUE(engine.start(sources, dir.path(), Operation::Copy, 1, ConflictAction::Ask));
    ASSERT_TRUE(fs.wait_stalled(1));
    usleep(kPastARateInterval);
    const Progress progress = engine.snapshot();
    EXPECT_EQ(progress.files_done, 0);
    EXPECT_GT(progress.bytes_per_second, 1024);
    EXPECT_EQ(progress.seconds_remaining, -1);
    fs.release();
    wait_for_end(engine);
}

// The rate of files and their last count stay from the run before, and colour the first estimate.
TEST(copy_engine_estimate, the_first_of_a_run_is_coloured_by_the_run_before) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    constexpr double kFilesBefore = 10;
    constexpr size_t kDone = 2;
    Engine engine;
    const TempDir dir;
    std::vector<std::string> sources;
    for (int i = 0; i < static_cast<int>(kFilesBefore); ++i) {
        sources.push_back(dir / "g" + std::to_string(i));
        write_file(sources.back(), "content");
    }
    const TempDir target;
    ASSERT_TRUE(engine.start(sources, target.path(), Operation::Copy, 1, ConflictAction::Ask));
    wait_for_end(engine);
    usleep(kPastARateInterval);
    const Progress before = engine.snapshot();
    ASSERT_EQ(before.files_done, kFilesBefore);
    const double rate_before = kFilesBefore / before.elapsed_seconds;

    // Larger files first, so that bytes and files agree.
    std::vector<size_t> sizes(10, 100'000);
    sizes[0] = sizes[1] = 300'000;
    const Progress progress = look_after(engine, fs, sizes, kDone);
    const double instant = (kDone - kFilesBefore) / progress.elapsed_seconds;
    const double rate = 0.4 * instant + 0.6 * rate_before;
    const double files = (10 - kDone) / rate;
    const double bytes = by_bytes(progress);
    ASSERT_GT(files, bytes) << "the machine was too slow to tell";
    ASSERT_LE(files, 4 * bytes) << "the machine was too slow to tell";
    EXPECT_NEAR(progress.seconds_remaining, files, 1e-6);
}
