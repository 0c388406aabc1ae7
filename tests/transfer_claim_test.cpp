// The check behind the fault matrix must itself see what it is there for.

#include "transfer_claim.h"

#include "run_engine.h"
#include "test_env.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::Operation;
using copy_engine::Progress;
using test_env::make_dirs;
using test_env::TempDir;
using test_env::TransferClaim;
using test_env::write_file;

namespace {

// A transfer that has been carried out as promised.
struct Done {
    TempDir dir;
    TransferClaim claim;
    Progress progress;

    explicit Done(Operation op) {
        make_dirs(dir / "src/tree");
        make_dirs(dir / "dst");
        for (const char* name : {"src/tree/a", "src/tree/b"})
            write_file(dir / name, test_env::pattern(5000), 0640);
        write_file(dir / "src/taken", "new");
        write_file(dir / "dst/taken", "old");
        write_file(dir / "dst/bystander", "x");
        claim.source_root = dir / "src";
        claim.target_root = dir / "dst";
        claim.op = op;
        claim.look();
        test_env::EngineRun run{{dir / "src/tree", dir / "src/taken"}, dir / "dst"};
        run.op = op;
        run.default_action = copy_engine::ConflictAction::Overwrite;
        progress = test_env::run_engine(run);
    }
    std::string broken() const { return claim.broken(progress); }
};

}  // namespace

TEST(transfer_claim, is_content_with_a_good_copy_and_a_good_move) {
    EXPECT_EQ(Done(Operation::Copy).broken(), "");
    EXPECT_EQ(Done(Operation::Move).broken(), "");
}

TEST(transfer_claim, sees_every_break) {
    struct Break {
        const char* command;  // in the test's folder
        Operation op;
        const char* seen;
    };
    const Break kBreaks[] = {
        {"rm dst/tree/a", Operation::Copy, "tree/a: is not listed"},
        {"rm dst/tree/a", Operation::Move, "tree/a: is whole at neither side"},
        {"truncate -s 4000 dst/tree/a", Operation::Copy, "tree/a: is at the target and is neither"},
        {"chmod 600 dst/tree/a", Operation::Copy, "tree/a: is not listed"},
        {"touch dst/tree/a", Operation::Copy, "tree/a: is not listed"},
        {"touch src/tree/a", Operation::Copy, "tree/a: a copy has changed its source"},
        {"rm src/tree/a", Operation::Copy, "tree/a: a copy has changed its source"},
        {"rm dst/bystander", Operation::Copy, "bystander: stood at the target and is gone"},
        {"echo y > dst/bystander", Operation::Copy, "bystander: stood at the target and has"},
        {"echo y > dst/stray", Operation::Copy, "stray: is at the target and is neither"},
        {"rm dst/taken", Operation::Copy, "taken: stood at the target, is gone, and nothing"},
    };
    for (const Break& one : kBreaks) {
        const Done done(one.op);
        ASSERT_EQ(test_env::run("cd '" + done.dir.path() + "' && " + one.command), 0);
        EXPECT_NE(done.broken().find(one.seen), std::string::npos)
            << one.command << " gives: " << done.broken();
    }
}

TEST(transfer_claim, a_listed_file_may_be_missing_and_not_be_partial) {
    Done done(Operation::Copy);
    ASSERT_EQ(unlink((done.dir / "dst/tree/a").c_str()), 0);
    done.progress.failures.push_back({done.dir / "src/tree/a", {}, "x", 1, 5});
    EXPECT_EQ(done.broken(), "");
    write_file(done.dir / "dst/tree/a", "part");
    EXPECT_NE(done.broken(), "");
    done.claim.killed = true;
    EXPECT_EQ(done.broken(), "");
    // After a kill the source of a partial file must be whole.
    write_file(done.dir / "src/tree/a", "also part");
    EXPECT_NE(done.broken(), "");
}

TEST(transfer_claim, a_file_kept_beside_another_counts) {
    Done done(Operation::Copy);
    ASSERT_EQ(rename((done.dir / "dst/tree/a").c_str(), (done.dir / "dst/tree/a.1").c_str()), 0);
    EXPECT_EQ(done.broken(), "");
}
