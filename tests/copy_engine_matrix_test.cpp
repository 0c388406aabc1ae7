// The fault matrix: every kind of call fails with every code, or stalls, at its first, middle and
// last time, in copies and moves, and each time the promises of a transfer hold.
//
// One test is one kind of call on one road and runs all rows on the same mounts. A first run
// without faults counts the calls, so that "middle" and "last" mean something.

#include "copy_engine.h"

#include "faultfs.h"
#include "mounts_fixture.h"
#include "run_engine.h"
#include "test_env.h"
#include "transfer_claim.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Engine;
using copy_engine::Operation;
using copy_engine::Progress;
using faultfs::FaultFs;
using mounts_fixture::Tmpfs;
using test_env::make_dirs;
using test_env::write_file;

namespace {

// Which end lies on the file system that fails.
enum class Road { Out, In, Within };

struct Column {
    const char* op;
    Road road;
    Operation operation;
    ConflictAction action;  // for the names that are taken at the target
};

std::string column_name(const Column& column) {
    const char* const road = column.road == Road::Out  ? "_out_"
                             : column.road == Road::In ? "_in_"
                                                       : "_within_";
    return std::string(column.op) + road + (column.operation == Operation::Copy ? "copy" : "move") +
           (column.action == ConflictAction::RenameExisting ? "_aside" : "");
}

// How a failed test names its parameter.
void PrintTo(const Column& column, std::ostream* out) {
    *out << column_name(column);
}

struct Row {
    int code;     // 0: stall
    int64_t nth;  // the first call that fails
    int count;    // how many in a row
    int threads;
};

std::string row_text(const Row& row) {
    return (row.code ? std::string(std::strerror(row.code)) : "stall") + " from call " +
           std::to_string(row.nth) + ", " + std::to_string(row.count) + " time(s), " +
           std::to_string(row.threads) + " worker(s)";
}

class Matrix {
  public:
    explicit Matrix(const Column& column) : m_column(column), m_plain("size=64m") {
        m_claim.op = column.operation;
        if (std::strcmp(column.op, "chmod") == 0)
            m_claim.compare.modes = m_claim.compare.folder_modes = false;
        if (std::strcmp(column.op, "utimens") == 0)
            m_claim.compare.times = false;
    }

    std::string reason() const { return m_fs.ok() ? m_plain.reason() : m_fs.reason(); }

    // How often the column's call is made when nothing fails.
    int64_t count_calls() {
        build();
        m_fs.clear();
        const Progress progress = drive({0, 0, 0, 1}, false);
        EXPECT_EQ(progress.failures_total, 0U);
        EXPECT_EQ(m_claim.broken(progress), "");
        const int64_t calls = m_fs.calls(m_column.op);
        remove();
        return calls;
    }

    void run(const Row& row) {
        SCOPED_TRACE(column_name(m_column) + ": " + row_text(row));
        build();
        m_fs.clear();
        faultfs::Fault fault;
        fault.op = m_column.op;
        fault.from = static_cast<int>(row.nth);
        fault.count = row.count;
        fault.error = row.code;
        fault.stall = row.code == 0;
        m_fs.set(fault);
        const Progress progress = drive(row, row.code == 0);
        m_fs.clear();
        EXPECT_TRUE(progress.finished);
        EXPECT_EQ(m_claim.broken(progress), "") << failure_text(progress);
        tree::Compare everything;
        everything.folder_times = true;
        everything.inodes = true;
        EXPECT_EQ(tree::difference_text(m_outside, tree::snapshot(m_outside_root), everything), "");
        EXPECT_EQ(progress.cancelled, progress.disk_full) << "nobody has cancelled";
        EXPECT_TRUE(!progress.disk_full || row.code == ENOSPC);
        remove();
    }

  private:
    static std::string failure_text(const Progress& progress) {
        std::string all;
        for (const copy_engine::FailedItem& item : progress.failures)
            all += item.path + " | " + item.message + " | " + std::to_string(item.attempts) + "\n";
        return all;
    }

    // Behind the mount, where nothing fails.
    std::string source_base() const {
        return m_column.road == Road::In ? m_plain.path() : m_fs.backing();
    }
    std::string target_base() const {
        return m_column.road == Road::Out ? m_plain.path() : m_fs.backing();
    }
    // The same folder as the engine gets to see it.
    std::string seen(const std::string& base, const std::string& name) const {
        return (base == m_fs.backing() ? m_fs.path() : base) + "/" + name;
    }

    void build() {
        make_dirs(source_base() + "/src/tree");
        make_dirs(target_base() + "/dst/tree");
        make_dirs(source_base() + "/outside");
        tree::Shape shape;
        shape.folders = 3;
        shape.files = 7;
        shape.max_bytes = 60'000;
        shape.hard_links = 2;
        const std::string source = source_base() + "/src";
        const std::string target = target_base() + "/dst";
        tree::build(source + "/tree", 42, shape);
        make_dirs(source + "/other/empty");
        write_file(source + "/other/file", test_env::pattern(5000, 5), 0640);
        write_file(source + "/named", test_env::pattern(20'000, 6), 0600);
        write_file(source + "/taken", test_env::pattern(3000, 7), 0604);
        write_file(source + "/tree/taken", test_env::pattern(3000, 8), 0604);
        write_file(target + "/taken", "old");
        write_file(target + "/tree/taken", "old");
        write_file(target + "/bystander", "x");
        write_file(source_base() + "/outside/file", "x");
        m_outside_root = source_base() + "/outside";
        m_outside = tree::snapshot(m_outside_root);
        m_claim.source_root = source;
        m_claim.target_root = target;
        m_claim.look();
        // Paths in the list of failures are those that the engine has seen.
        m_claim.source_root = seen(source_base(), "src");
        m_claim.target_root = seen(target_base(), "dst");
    }

    void remove() const {
        for (const std::string& base : {source_base(), target_base()}) {
            for (const char* name : {"/src", "/dst", "/outside"})
                (void)fsops::remove_recursive(base + name, {});
        }
    }

    Progress drive(const Row& row, bool stalls) {
        std::vector<std::string> sources;
        for (const char* name : {"src/tree", "src/other", "src/named", "src/taken"})
            sources.push_back(seen(source_base(), name));
        Engine engine;
        EXPECT_TRUE(engine.start(sources, m_claim.target_root, m_column.operation, row.threads,
                                 m_column.action));
        int stalled_for = 0;  // polls in a row
        for (int i = 0; i < 30'000 && engine.is_running(); ++i) {
            engine.watchdog_tick();
            stalled_for = stalls && m_fs.stalled() > 0 ? stalled_for + 1 : 0;
            if (stalled_for == 5) {
                copy_engine::advance_clock_for_tests(100);
                engine.watchdog_tick();
            }
            // The scanner has no watchdog: the disk comes back.
            if (stalled_for == 50)
                m_fs.release();
            usleep(1000);
        }
        EXPECT_FALSE(engine.is_running()) << "the run does not end";
        if (engine.is_running()) {
            engine.cancel();
            m_fs.clear();
        }
        engine.reap();
        return engine.snapshot();
    }

    Column m_column;
    FaultFs m_fs;
    Tmpfs m_plain;
    test_env::TransferClaim m_claim;
    std::string m_outside_root;
    tree::Snapshot m_outside;
};

void run_column(const Column& column, const std::vector<int>& codes, bool bursts) {
    Matrix matrix(column);
    if (!matrix.reason().empty())
        GTEST_SKIP() << matrix.reason();
    const int64_t calls = matrix.count_calls();
    ASSERT_GE(calls, 1) << column.op << " is never called on this road";
    std::vector<int64_t> places = {1, (calls + 1) / 2, calls};
    places.erase(std::unique(places.begin(), places.end()), places.end());
    // A worker that is called off in mid-copy removes what it has written, which it cannot do while
    // removing itself is what fails.
    const int many = std::strcmp(column.op, "unlink") == 0 ? 1 : 3;
    // Nor while no name can be looked up, which the kernel does before it removes.
    bursts = bursts && std::strcmp(column.op, "lookup") != 0;
    for (const int code : codes) {
        for (const int64_t place : places) {
            matrix.run({code, place, 1, 1});
            // Often enough to use up every attempt.
            if (bursts && code != 0)
                matrix.run({code, place, fsops::is_transient(code) ? 3 : 100, many});
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
}

constexpr int kStall = 0;
const std::vector<int> kCodes = {EIO, ENOSPC, EACCES, ESTALE, ETIMEDOUT, kStall};

constexpr Operation kCopy = Operation::Copy;
constexpr Operation kMove = Operation::Move;
constexpr ConflictAction kOver = ConflictAction::Overwrite;
constexpr ConflictAction kAside = ConflictAction::RenameExisting;

}  // namespace

class fault_matrix : public testing::TestWithParam<Column> {};

TEST_P(fault_matrix, loses_nothing) {
    run_column(GetParam(), kCodes, true);
}

INSTANTIATE_TEST_SUITE_P(
    copy_engine, fault_matrix,
    testing::Values(
        Column{"open", Road::Out, kCopy, kOver}, Column{"open", Road::Out, kMove, kOver},
        Column{"create", Road::In, kCopy, kOver}, Column{"create", Road::In, kMove, kOver},
        Column{"read", Road::Out, kCopy, kOver}, Column{"read", Road::Out, kMove, kOver},
        Column{"write", Road::In, kCopy, kOver}, Column{"write", Road::In, kMove, kOver},
        Column{"copy_file_range", Road::Within, kCopy, kOver},
        Column{"copy_file_range", Road::Within, kMove, kOver},
        Column{"flush", Road::In, kCopy, kOver}, Column{"flush", Road::In, kMove, kOver},
        Column{"unlink", Road::In, kCopy, kOver}, Column{"unlink", Road::Out, kMove, kOver},
        Column{"unlink", Road::Within, kMove, kOver}, Column{"rename", Road::Within, kCopy, kAside},
        Column{"rename", Road::Within, kMove, kOver}, Column{"rename", Road::Within, kMove, kAside},
        Column{"mkdir", Road::In, kCopy, kOver}, Column{"mkdir", Road::In, kMove, kOver},
        Column{"readdir", Road::Out, kCopy, kOver}, Column{"readdir", Road::Out, kMove, kOver}),
    [](const auto& column) { return column_name(column.param); });

// The calls that are not in the way of bytes, by hand: ./test nightly.
class Nightly_fault_matrix : public testing::TestWithParam<Column> {};

TEST_P(Nightly_fault_matrix, loses_nothing) {
    run_column(GetParam(), {EIO, ENOSPC, EACCES, ESTALE, ETIMEDOUT, EPERM, EINTR, EDQUOT, kStall},
               true);
}

// No getattr at the target: the kernel asks for it once more after it has created a file, and then
// reports the creation as failed. Nobody can know that the empty file is there.
std::vector<Column> nightly_columns() {
    std::vector<Column> columns;
    for (const Operation operation : {kCopy, kMove}) {
        for (const char* op :
             {"lookup", "getattr", "opendir", "readdir", "readlink", "open", "flush"})
            columns.push_back({op, Road::Out, operation, kOver});
        for (const char* op :
             {"lookup", "symlink", "link", "chmod", "utimens", "unlink", "mkdir", "statfs"})
            columns.push_back({op, Road::In, operation, kOver});
        for (const char* op : {"lookup", "open", "create", "flush", "copy_file_range"})
            columns.push_back({op, Road::Within, operation, kAside});
        columns.push_back({"rename", Road::In, operation, kAside});
    }
    columns.push_back({"rmdir", Road::Out, kMove, kOver});
    return columns;
}

INSTANTIATE_TEST_SUITE_P(Nightly_copy_engine, Nightly_fault_matrix,
                         testing::ValuesIn(nightly_columns()),
                         [](const auto& column) { return column_name(column.param); });
