#include "bg_task.h"

#include "logger.h"

#include <cinttypes>
#include <system_error>
#include <utility>

namespace {

const char* kind_word(BgTask::Kind kind) {
    switch (kind) {
    case BgTask::Kind::Delete:
        return "DELETE";
    case BgTask::Kind::Pack:
        return "PACK";
    case BgTask::Kind::Unpack:
        return "UNPACK";
    case BgTask::Kind::None:
        break;
    }
    return "TASK";
}

}  // namespace

BgTask& BgTask::instance() {
    // The log is used by the job to its end, so it has to outlive the task: made first, gone last.
    Log::instance();
    static BgTask task;
    return task;
}

BgTask::~BgTask() {
    m_cancel.store(true);
    if (m_thread.joinable())
        m_thread.join();
}

bool BgTask::start(Kind kind, const std::string& title, Work work) {
    if (m_running.load())
        return false;
    if (m_thread.joinable())
        m_thread.join();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_kind = kind;
        m_title = title;
        m_detail.clear();
        m_result.clear();
        m_failures.clear();
    }
    m_done.store(0);
    m_total.store(0);
    m_cancel.store(false);
    m_finished.store(false);
    m_running.store(true);
    Log::infof("%s start: %s", kind_word(kind), title.c_str());
    try {
        m_thread = std::thread([this, job = std::move(work)] { run(job); });
    } catch (const std::system_error& error) {
        // std::thread reports in no other way. Nothing has begun, so the slot is free again.
        m_running.store(false);
        Log::errorf("%s: no thread: %s", kind_word(kind), error.what());
        return false;
    }
    return true;
}

void BgTask::cancel() {
    m_cancel.store(true);
}

BgTask::Status BgTask::snapshot() const {
    Status status;
    status.running = m_running.load();
    status.finished = m_finished.load();
    status.cancelled = m_cancel.load();
    status.done = m_done.load();
    status.total = m_total.load();
    const std::lock_guard<std::mutex> lock(m_mutex);
    status.kind = m_kind;
    status.title = m_title;
    status.detail = m_detail;
    status.result = m_result;
    status.failures = m_failures;
    return status;
}

void BgTask::reap() {
    if (m_running.load())
        return;
    if (m_thread.joinable())
        m_thread.join();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_kind = Kind::None;
        m_title.clear();
        m_detail.clear();
    }
    m_finished.store(false);
}

void BgTask::run(const Work& work) {
    Log::name_this_thread("task");
    Reporter reporter(*this);
    work(reporter);

    std::string first;
    size_t failed = 0;
    const char* word = "";
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        failed = m_failures.size();
        if (failed > 0)
            first = m_failures.front();
        word = kind_word(m_kind);
    }
    Log::infof("%s %s: %" PRId64 " of %" PRId64 " done, %zu failed%s%s", word,
               m_cancel.load() ? "CANCELLED" : "done", m_done.load(), m_total.load(), failed,
               failed == 0 ? "" : " — first: ", first.c_str());
    m_finished.store(true);
    m_running.store(false);
}

void BgTask::Reporter::set_total(int64_t n) {
    m_owner.m_total.store(n);
}

void BgTask::Reporter::advance(int64_t n) {
    m_owner.m_done.fetch_add(n);
}

bool BgTask::Reporter::keep_going() const {
    return !m_owner.m_cancel.load();
}

void BgTask::Reporter::set_detail(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_owner.m_mutex);
    m_owner.m_detail = text;
}

void BgTask::Reporter::set_result(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_owner.m_mutex);
    m_owner.m_result = text;
}

void BgTask::Reporter::fail(const std::string& text) {
    Log::errorf("%s", text.c_str());
    const std::lock_guard<std::mutex> lock(m_owner.m_mutex);
    if (m_owner.m_failures.size() < kMaxStoredFailures)
        m_owner.m_failures.push_back(text);
}
