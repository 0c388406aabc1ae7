#include "bg_task.h"

#include "logger.h"
#include "shim.h"
#include "wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using Kind = BgTask::Kind;
using test_env::wait_until;

bool logged(const std::string& text, Log::Level level = Log::Level::Info) {
    for (const Log::Entry& entry : Log::instance().recent())
        if (entry.text == text && entry.level == level)
            return true;
    return false;
}

TEST(bg_task, reports_what_the_job_says_and_ends) {
    BgTask task;
    std::atomic<bool> go{false};
    ASSERT_TRUE(task.start(Kind::Delete, "Deleting", [&go](BgTask::Reporter& reporter) {
        reporter.set_total(3);
        reporter.advance(1);
        reporter.advance(1);
        reporter.set_detail("/a/b");
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        reporter.set_result("two of three");
        reporter.fail("c: no");
    }));
    EXPECT_TRUE(task.is_running());
    ASSERT_TRUE(wait_until([&task] { return task.snapshot().detail == "/a/b"; }));
    BgTask::Status status = task.snapshot();
    EXPECT_TRUE(status.running);
    EXPECT_FALSE(status.finished);
    EXPECT_FALSE(status.cancelled);
    EXPECT_EQ(status.kind, Kind::Delete);
    EXPECT_EQ(status.title, "Deleting");
    EXPECT_EQ(status.done, 2);
    EXPECT_EQ(status.total, 3);

    go = true;
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    status = task.snapshot();
    EXPECT_TRUE(status.finished);
    EXPECT_EQ(status.result, "two of three");
    EXPECT_EQ(status.failures, std::vector<std::string>{"c: no"});
    EXPECT_TRUE(logged("DELETE start: Deleting"));
    EXPECT_TRUE(logged("c: no", Log::Level::Error));
    EXPECT_TRUE(logged("DELETE done: 2 of 3 done, 1 failed — first: c: no"));

    task.reap();
    status = task.snapshot();
    EXPECT_FALSE(status.finished);
    EXPECT_EQ(status.kind, Kind::None);
    EXPECT_EQ(status.title, "");
    EXPECT_EQ(status.detail, "");
    // These stay for the result line until the next start.
    EXPECT_EQ(status.result, "two of three");
    EXPECT_EQ(status.failures.size(), 1U);
}

TEST(bg_task, the_job_logs_as_task) {
    BgTask task;
    ASSERT_TRUE(task.start(Kind::Pack, "x", [](BgTask::Reporter&) { Log::infof("from the job"); }));
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    bool seen = false;
    for (const Log::Entry& entry : Log::instance().recent())
        seen = seen || (entry.text == "from the job" && entry.thread == "task");
    EXPECT_TRUE(seen);
}

TEST(bg_task, a_second_start_changes_nothing) {
    BgTask task;
    std::atomic<bool> go{false};
    ASSERT_TRUE(task.start(Kind::Pack, "first", [&go](BgTask::Reporter& reporter) {
        reporter.set_total(9);
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }));
    ASSERT_TRUE(wait_until([&task] { return task.snapshot().total == 9; }));
    bool ran = false;
    EXPECT_FALSE(task.start(Kind::Delete, "second", [&ran](BgTask::Reporter&) { ran = true; }));
    const BgTask::Status status = task.snapshot();
    EXPECT_EQ(status.title, "first");
    EXPECT_EQ(status.kind, Kind::Pack);
    EXPECT_EQ(status.total, 9);
    EXPECT_FALSE(ran);
    go = true;
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
}

TEST(bg_task, a_start_without_reap_takes_the_ended_task_away) {
    BgTask task;
    ASSERT_TRUE(task.start(Kind::Unpack, "one", [](BgTask::Reporter& reporter) {
        reporter.fail("old");
        reporter.set_result("old");
    }));
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    ASSERT_TRUE(task.start(Kind::None, "two", [](BgTask::Reporter&) {}));
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    const BgTask::Status status = task.snapshot();
    EXPECT_TRUE(status.failures.empty());
    EXPECT_EQ(status.result, "");
    EXPECT_EQ(status.done, 0);
    EXPECT_TRUE(logged("TASK start: two"));
    EXPECT_TRUE(logged("TASK done: 0 of 0 done, 0 failed"));
}

TEST(bg_task, stores_500_failures_and_logs_all) {
    BgTask task;
    ASSERT_TRUE(task.start(Kind::Delete, "many", [](BgTask::Reporter& reporter) {
        for (int i = 0; i < 600; ++i)
            reporter.fail("failure " + std::to_string(i));
    }));
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    EXPECT_EQ(task.snapshot().failures.size(), 500U);
    EXPECT_EQ(task.snapshot().failures.back(), "failure 499");
    for (int i = 0; i < 600; ++i)
        EXPECT_TRUE(logged("failure " + std::to_string(i), Log::Level::Error)) << i;
    EXPECT_TRUE(logged("DELETE done: 0 of 0 done, 500 failed — first: failure 0"));
}

TEST(bg_task, cancel_is_seen_by_a_job_that_looks) {
    BgTask task;
    ASSERT_TRUE(task.start(Kind::Unpack, "long", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }));
    task.cancel();
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    EXPECT_TRUE(task.snapshot().cancelled);
    EXPECT_TRUE(logged("UNPACK CANCELLED: 0 of 0 done, 0 failed"));
}

TEST(bg_task, a_start_forgets_all_of_the_task_before) {
    BgTask task;
    ASSERT_TRUE(task.start(Kind::Unpack, "one", [](BgTask::Reporter& reporter) {
        reporter.set_total(7);
        reporter.advance(3);
        reporter.set_detail("detail");
        reporter.set_result("result");
        reporter.fail("failure");
        while (reporter.keep_going())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }));
    task.cancel();
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
    EXPECT_TRUE(task.snapshot().cancelled);
    std::atomic<bool> go{false};
    ASSERT_TRUE(task.start(Kind::Pack, "two", [&go](BgTask::Reporter& reporter) {
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_TRUE(reporter.keep_going());
    }));
    const BgTask::Status status = task.snapshot();
    go = true;
    EXPECT_TRUE(status.running);
    EXPECT_FALSE(status.finished);
    EXPECT_FALSE(status.cancelled);
    EXPECT_EQ(status.kind, Kind::Pack);
    EXPECT_EQ(status.title, "two");
    EXPECT_EQ(status.detail + status.result, "");
    EXPECT_EQ(status.done + status.total, 0);
    EXPECT_TRUE(status.failures.empty());
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
}

TEST(bg_task, without_a_thread_the_slot_stays_free) {
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    BgTask task;
    for (const long number : {SYS_clone3, SYS_clone})
        shim::fail(number, EAGAIN, 1);
    bool ran = false;
    EXPECT_FALSE(task.start(Kind::Delete, "none", [&ran](BgTask::Reporter&) { ran = true; }));
    shim::clear();
    EXPECT_FALSE(task.is_running());
    EXPECT_FALSE(ran);
    EXPECT_TRUE(task.start(Kind::Delete, "one", [](BgTask::Reporter&) {}));
}

TEST(bg_task, a_job_that_does_not_look_goes_on) {
    BgTask task;
    std::atomic<bool> go{false};
    ASSERT_TRUE(task.start(Kind::Delete, "deaf", [&go](BgTask::Reporter&) {
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }));
    task.cancel();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(task.snapshot().running);
    task.reap();  // does nothing while it runs
    EXPECT_EQ(task.snapshot().title, "deaf");
    go = true;
    ASSERT_TRUE(wait_until([&task] { return !task.is_running(); }));
}

TEST(bg_task, the_end_of_the_slot_cancels_and_joins) {
    std::atomic<bool> ended{false};
    {
        BgTask task;
        ASSERT_TRUE(task.start(Kind::Delete, "gone", [&ended](BgTask::Reporter& reporter) {
            while (reporter.keep_going())
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            ended = true;
        }));
    }
    EXPECT_TRUE(ended);
}

}  // namespace
