// The engine's process is killed, or the run cancelled, at a random moment, where names are taken
// at the target: what was to be replaced, stepped aside for or merged into is part of what must not
// be lost. (The program as a whole, with its window, is broken off in app_interrupt_test.cpp.)

#include "copy_engine.h"
#include "mounts_fixture.h"
#include "test_env.h"
#include "transfer_claim.h"
#include "tree.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::Operation;
using mounts_fixture::Tmpfs;
using test_env::make_dirs;
using test_env::TempDir;

namespace {

constexpr ConflictAction kActions[] = {ConflictAction::Overwrite, ConflictAction::RenameNew,
                                       ConflictAction::RenameExisting,
                                       ConflictAction::OverwriteIfNewer};

// One transfer of one seed: its trees, its options and its end.
struct Transfer {
    std::mt19937 random;
    bool other_file_system;
    TempDir near;
    std::unique_ptr<Tmpfs> far;
    test_env::TransferClaim claim;
    ConflictAction action;
    int threads;

    explicit Transfer(uint32_t seed) : random(seed), other_file_system(random() % 2) {
        if (other_file_system)
            far = std::make_unique<Tmpfs>("size=256m");
        const std::string base = far && far->ok() ? far->path() : near.path();
        claim.op = random() % 4 ? Operation::Move : Operation::Copy;
        action = kActions[random() % std::size(kActions)];
        threads = 1 + static_cast<int>(random() % 6);
        claim.source_root = near / "src";
        claim.target_root = base + "/dst";
        make_dirs(claim.source_root + "/tree");
        make_dirs(claim.source_root + "/alone");
        make_dirs(claim.target_root + "/tree");
        tree::Shape shape;
        shape.folders = 8;
        shape.files = 80;
        shape.max_bytes = 400'000;
        shape.hard_links = 4;
        shape.sparse = 1;
        tree::build(claim.source_root + "/tree", seed, shape);
        tree::build(claim.source_root + "/alone", seed + 1, {});
        take_some_names();
        claim.killed = true;
        claim.look();
    }

    // Old files under some of the names, and some that nothing comes for.
    void take_some_names() {
        for (const auto& [path, node] : tree::snapshot(claim.source_root)) {
            const std::string there = claim.target_root + "/" + path;
            if (path.starts_with("alone"))
                continue;
            if (node.kind == 'd')
                make_dirs(there);
            else if (node.kind == 'f' && random() % 3 == 0)
                test_env::write_file(there, "old " + path);
        }
        test_env::write_file(claim.target_root + "/bystander", "x");
    }

    // Runs in a process of its own. Never returns.
    [[noreturn]] void run() const {
        Engine engine;
        engine.start({claim.source_root + "/tree", claim.source_root + "/alone"}, claim.target_root,
                     claim.op, threads, action);
        while (engine.is_running())
            usleep(1000);
        engine.reap();
        _exit(0);
    }
};

// How long a transfer of this kind takes here, so that the moments lie within it.
double typical_seconds() {
    double longest = 0;
    for (uint32_t seed = 1; seed <= 3; ++seed) {
        const Transfer transfer(seed);
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = fork();
        if (child == 0)
            transfer.run();
        waitpid(child, nullptr, 0);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, took.count());
    }
    return longest;
}

// True when the transfer was in work.
bool kill_one(uint32_t seed, double within_seconds) {
    Transfer transfer(seed);
    const auto delay = static_cast<useconds_t>(
        within_seconds * 1e6 * (static_cast<double>(transfer.random() % 1000) / 1000));
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        transfer.run();
    usleep(delay);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(transfer.claim.broken({}), "")
        << "seed " << seed << ", killed after " << delay << " us, action "
        << static_cast<int>(transfer.action)
        << (transfer.other_file_system ? ", to another file system" : "");
    return WIFSIGNALED(status);
}

bool cancel_one(uint32_t seed, double within_seconds) {
    Transfer transfer(seed);
    const auto delay = static_cast<useconds_t>(
        within_seconds * 1e6 * (static_cast<double>(transfer.random() % 1000) / 1000));
    Engine engine;
    EXPECT_TRUE(engine.start(
        {transfer.claim.source_root + "/tree", transfer.claim.source_root + "/alone"},
        transfer.claim.target_root, transfer.claim.op, transfer.threads, transfer.action));
    usleep(delay);
    engine.cancel();
    engine.reap();
    // There was time to clean up: no partial target may stay.
    transfer.claim.killed = false;
    EXPECT_EQ(transfer.claim.broken(engine.snapshot()), "") << "seed " << seed;
    const copy_engine::Progress progress = engine.snapshot();
    return progress.files_done < progress.files_total;
}

void over_seeds(bool (*one)(uint32_t, double), uint32_t first, uint32_t count) {
    // Mounts need their namespace before there is any thread.
    (void)mounts_fixture::enter_namespace();
    const double seconds = typical_seconds();
    uint32_t in_work = 0;
    for (uint32_t seed = first; seed < first + count && !testing::Test::HasFailure(); ++seed)
        in_work += one(seed, seconds) ? 1 : 0;
    EXPECT_GT(in_work, 0U) << "the moments lie behind the end";
}

}  // namespace

TEST(copy_engine_kill, a_kill_at_any_moment_loses_nothing_over_30_seeds) {
    over_seeds(kill_one, 100, 30);
}

TEST(copy_engine_kill, a_cancel_at_any_moment_loses_nothing_over_30_seeds) {
    over_seeds(cancel_one, 200, 30);
}

TEST(Nightly_copy_engine_kill, a_kill_at_any_moment_loses_nothing_over_500_seeds) {
    over_seeds(kill_one, 10'000, 500);
}

TEST(Nightly_copy_engine_kill, a_cancel_at_any_moment_loses_nothing_over_500_seeds) {
    over_seeds(cancel_one, 20'000, 500);
}
