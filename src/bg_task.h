// The single slot for one long job that is not a transfer: delete, pack or unpack. At most one runs
// at a time, on a thread of its own; it talks to the slot only through a Reporter, and the
// interface polls snapshot(). The job decides what a failure means to it and when to look at
// cancel().
//
// idle -> start() -> running -> finished -> reap() -> idle

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class BgTask {
  public:
    enum class Kind { None = 0, Delete = 1, Pack = 2, Unpack = 3 };

    // What the display reads.
    struct Status {
        bool running = false;
        bool finished = false;
        bool cancelled = false;
        Kind kind = Kind::None;
        std::string title;
        std::string detail;  // what is being done now
        int64_t done = 0;
        int64_t total = 0;                  // 0: not known
        std::vector<std::string> failures;  // at most kMaxStoredFailures
        std::string result;                 // the one-line summary
    };

    // For the job, on the job's thread alone.
    class Reporter {
      public:
        void set_total(int64_t n);
        void advance(int64_t n);
        [[nodiscard]] bool keep_going() const;
        void set_detail(const std::string& text);
        void set_result(const std::string& text);
        // Logs the text and, while there is room, keeps it for the display.
        void fail(const std::string& text);

      private:
        friend class BgTask;
        explicit Reporter(BgTask& owner) : m_owner(owner) {}

        BgTask& m_owner;
    };

    using Work = std::function<void(Reporter&)>;

    static constexpr size_t kMaxStoredFailures = 500;

    static BgTask& instance();

    BgTask() = default;
    ~BgTask();  // asks the job to end and waits for it
    BgTask(const BgTask&) = delete;
    BgTask& operator=(const BgTask&) = delete;

    // --- Interface thread. ----------------------------------------------------------------------

    // False, with nothing changed, while a task is running or when no thread can be had.
    [[nodiscard]] bool start(Kind kind, const std::string& title, Work work);
    void cancel();
    [[nodiscard]] Status snapshot() const;
    [[nodiscard]] bool is_running() const { return m_running.load(); }
    // Joins a task that has ended. Failures and result stay until the next start().
    void reap();

  private:
    void run(const Work& work);

    mutable std::mutex m_mutex;  // guards m_kind to m_failures
    std::thread m_thread;        // interface thread only
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_cancel{false};
    std::atomic<bool> m_finished{false};
    std::atomic<int64_t> m_done{0};
    std::atomic<int64_t> m_total{0};
    Kind m_kind = Kind::None;
    std::string m_title;
    std::string m_result;
    std::string m_detail;
    std::vector<std::string> m_failures;
};
