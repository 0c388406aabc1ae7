// What a transfer of many files costs in memory: its queue, and nothing that grows beside it.

#include "copy_engine.h"
#include "logger.h"
#include "run_engine.h"
#include "sanitized.h"
#include "test_env.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::ConflictRequest;
using test_env::EngineRun;
using test_env::kSanitized;
using test_env::TempDir;

namespace {

// Resident bytes of this process that no file is behind.
int64_t resident_bytes() {
    std::FILE* file = std::fopen("/proc/self/statm", "re");
    long long total = 0;
    long long resident = 0;
    long long shared = 0;
    if (!file || std::fscanf(file, "%lld %lld %lld", &total, &resident, &shared) != 3)
        ADD_FAILURE() << "/proc/self/statm";
    if (file)
        std::fclose(file);
    return (resident - shared) * sysconf(_SC_PAGESIZE);
}

struct Measured {
    int64_t queue = 0;  // bytes, with every file queued and none copied
    int64_t paths = 0;  // bytes of all paths in the queue
    int64_t most = 0;   // bytes, the most during the copy
    size_t failures = 0;
};

// Queues `files` empty files while a question holds the workers back, then lets them go.
Measured copy_many(int folders, int per_folder) {
    const TempDir dir("/dev/shm");
    Measured measured;
    for (int d = 0; d < folders; ++d) {
        const std::string folder = dir / ("src/folder" + std::to_string(d));
        test_env::make_dirs(folder);
        for (int f = 0; f < per_folder; ++f) {
            const std::string path = folder + "/file" + std::to_string(f);
            close(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
            // "src" and "dst" are of one length, and so are the two paths of a file.
            measured.paths += 2 * static_cast<int64_t>(path.size());
        }
    }
    test_env::make_dirs(dir / "dst");
    test_env::write_file(dir / "src/first", "new");
    test_env::write_file(dir / "dst/first", "old");

    // The log's ring fills once in a run of any length, and is not what is measured.
    const std::string line(250, '.');
    for (size_t i = 0; i < Log::kRingSize; ++i)
        Log::infof("%s", line.c_str());
    malloc_trim(0);
    const int64_t before = resident_bytes();
    int64_t last = 0;
    int steady_polls = 0;
    bool answered = false;
    EngineRun run;
    run.sources = {dir / "src/first"};
    for (int d = 0; d < folders; ++d)
        run.sources.push_back(dir / ("src/folder" + std::to_string(d)));
    run.target = dir / "dst";
    run.threads = 1;
    run.limit_seconds = 3600;
    run.poll = [&](copy_engine::Engine& engine) {
        const int64_t now = resident_bytes() - before;
        measured.most = std::max(measured.most, now);
        if (answered || !engine.snapshot().conflict.pending)
            return;
        // The scanner has come to its end when nothing grows any more.
        steady_polls = now == last ? steady_polls + 1 : 0;
        last = now;
        if (steady_polls < 500)
            return;
        measured.queue = now;
        answered = true;
        engine.resolve_conflict(ConflictAction::Skip, false);
    };
    copy_engine::Engine& engine = copy_engine::instance();
    EXPECT_TRUE(engine.start(run.sources, run.target, run.op, run.threads, run.default_action));
    while (engine.is_running()) {
        run.poll(engine);
        usleep(1000);
    }
    engine.reap();
    measured.failures = engine.snapshot().failures_total;
    EXPECT_EQ(engine.snapshot().files_copied, static_cast<int64_t>(folders) * per_folder);
    return measured;
}

void expect_flat(int folders, int per_folder) {
    const int64_t files = static_cast<int64_t>(folders) * per_folder;
    const Measured measured = copy_many(folders, per_folder);
    const double a_file =
        static_cast<double>(measured.queue - measured.paths) / static_cast<double>(files);
    const double grown =
        static_cast<double>(measured.most - measured.queue) / static_cast<double>(files);
    std::printf("%lld files: the queue takes %.0f bytes a file beyond its paths, the copy %.0f "
                "more at its peak\n",
                static_cast<long long>(files), a_file, grown);
    EXPECT_EQ(measured.failures, 0U);
    EXPECT_LE(a_file, 250);
    EXPECT_LE(grown, 64);  // what is remembered of the files that were created
}

}  // namespace

TEST(CopyEngineMemory, the_queue_costs_at_most_250_bytes_a_file_beyond_its_paths) {
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer's allocator has its own sizes";
    expect_flat(60, 1000);
}

TEST(NightlyCopyEngineMemory, a_million_files_cost_no_more_than_their_queue) {
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer's allocator has its own sizes";
    expect_flat(1000, 1000);
}
