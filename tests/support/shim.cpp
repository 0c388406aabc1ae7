#include "shim.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <list>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

namespace shim {

namespace {

struct Rule {
    long number = 0;
    Action action;
    Match match;
    int64_t seen = 0;
};

// Leaked on purpose: the shim's thread answers until the process ends, after static objects went.
struct State {
    std::mutex mutex;
    std::list<Rule> rules;
    std::map<long, int64_t> calls;
    std::vector<uint64_t> waiting;  // notifications that stay without an answer for now
    int listener = -1;
    pid_t process = 0;
};

State& state() {
    static State* const one = new State;
    return *one;
}

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kArchitecture = 0;
#endif

sock_filter statement(uint16_t code, uint32_t value) {
    return sock_filter{code, 0, 0, value};
}

sock_filter jump_if_equal(uint32_t value, uint8_t when_equal, uint8_t otherwise) {
    return sock_filter{BPF_JMP | BPF_JEQ | BPF_K, when_equal, otherwise, value};
}

std::vector<sock_filter> program(const std::vector<long>& numbers) {
    std::vector<sock_filter> code;
    code.push_back(statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)));
    code.push_back(jump_if_equal(kArchitecture, 1, 0));
    code.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    code.push_back(statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const long number : numbers) {
        code.push_back(jump_if_equal(static_cast<uint32_t>(number), 0, 1));
        code.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    code.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return code;
}

void answer(uint64_t id, const Answer& with) {
    seccomp_notif_resp response = {};
    response.id = id;
    if (with.kind == Answer::Kind::Go)
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    else if (with.value < 0)
        response.error = static_cast<int32_t>(with.value);
    else
        response.val = with.value;
    // A caller that a signal took away in the meantime is nobody's loss.
    ioctl(state().listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
}

Answer judge(Call call) {
    State& all = state();
    std::list<Rule*> found;
    {
        const std::lock_guard<std::mutex> lock(all.mutex);
        ++all.calls[call.number];
        for (Rule& rule : all.rules) {
            if (rule.number == call.number && (!rule.match || rule.match(call)))
                found.push_back(&rule);
        }
    }
    for (Rule* rule : found) {
        Action action;
        {
            const std::lock_guard<std::mutex> lock(all.mutex);
            bool still_there = false;
            for (Rule& each : all.rules)
                still_there = still_there || &each == rule;
            if (!still_there)
                continue;
            call.nth = ++rule->seen;
            action = rule->action;
        }
        const Answer result = action(call);
        if (result.kind != Answer::Kind::Go)
            return result;
    }
    return go();
}

void serve() {
    State& all = state();
    for (;;) {
        seccomp_notif notice = {};
        if (ioctl(all.listener, SECCOMP_IOCTL_NOTIF_RECV, &notice) != 0) {
            if (errno == EINTR || errno == ENOENT)
                continue;
            return;
        }
        Call call;
        call.number = notice.data.nr;
        for (int i = 0; i < 6; ++i)
            call.args[i] = notice.data.args[i];
        call.thread = static_cast<pid_t>(notice.pid);
        // A forked child has memory and descriptors of its own: its calls are left alone.
        if (syscall(SYS_tgkill, all.process, call.thread, 0) != 0) {
            answer(notice.id, go());
            continue;
        }
        const Answer result = judge(call);
        if (result.kind == Answer::Kind::Wait) {
            const std::lock_guard<std::mutex> lock(all.mutex);
            all.waiting.push_back(notice.id);
        } else {
            answer(notice.id, result);
        }
    }
}

#ifdef __SANITIZE_THREAD__
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreWritesBegin(const char* file, int line);
#endif

// The shim reads the memory of a thread that waits for its answer. That order is the kernel's, and
// ThreadSanitizer cannot see it.
void ignore_races_of_this_thread() {
#ifdef __SANITIZE_THREAD__
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
#endif
}

}  // namespace

std::string Call::arg_text(int index) const {
    const char* text = reinterpret_cast<const char*>(args[index]);
    return text ? text : "";
}

std::string Call::arg_file(int index) const {
    char target[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(arg_fd(index));
    const ssize_t n = readlink(link.c_str(), target, sizeof target);
    if (n <= 0)
        return {};
    const std::string path(target, static_cast<size_t>(n));
    return path.substr(path.rfind('/') + 1);
}

Answer go() {
    return {};
}

Answer give(int64_t value) {
    return {Answer::Kind::Give, value};
}

Answer refuse(int error) {
    return {Answer::Kind::Give, -error};
}

Answer wait() {
    return {Answer::Kind::Wait, 0};
}

Answer close_and_refuse(const Call& call, int error) {
    close(call.arg_fd(0));
    return refuse(error);
}

std::string install(const std::vector<long>& numbers) {
    State& all = state();
    if (all.listener >= 0)
        return "the shim is installed already";
    // The thread must exist before the filter does, so that it is not watched itself.
    static std::mutex start;
    static std::unique_lock<std::mutex> not_yet(start);
    std::thread([] {
        ignore_races_of_this_thread();
        const std::lock_guard<std::mutex> wait_for_listener(start);
        if (state().listener >= 0)
            serve();
    }).detach();
    std::vector<sock_filter> code = program(numbers);
    const sock_fprog filter = {static_cast<unsigned short>(code.size()), code.data()};
    all.process = getpid();
    if (geteuid() != 0)
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const long listener =
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter);
    const int code_of_failure = errno;
    all.listener = static_cast<int>(listener);
    not_yet.unlock();
    if (listener < 0)
        return std::string("system calls cannot be watched: ") + std::strerror(code_of_failure);
    return {};
}

void rule(long number, const Action& action, const Match& match) {
    State& all = state();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.rules.push_back({number, action, match, 0});
}

void fail(long number, int error, int64_t nth, int64_t count, const Match& match) {
    rule(
        number,
        [=](const Call& call) {
            const bool hit = call.nth >= nth && (count < 0 || call.nth < nth + count);
            return hit ? refuse(error) : go();
        },
        match);
}

void release() {
    State& all = state();
    std::vector<uint64_t> waiting;
    {
        const std::lock_guard<std::mutex> lock(all.mutex);
        waiting.swap(all.waiting);
    }
    // Without the lock: this thread's own ioctl may be watched.
    for (const uint64_t id : waiting)
        answer(id, go());
}

void clear() {
    State& all = state();
    {
        const std::lock_guard<std::mutex> lock(all.mutex);
        all.rules.clear();
        all.calls.clear();
    }
    release();
}

int64_t calls(long number) {
    State& all = state();
    const std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.calls.find(number);
    return found == all.calls.end() ? 0 : found->second;
}

int waiting() {
    State& all = state();
    const std::lock_guard<std::mutex> lock(all.mutex);
    return static_cast<int>(all.waiting.size());
}

bool wait_waiting(int at_least, int timeout_ms) {
    for (int waited = 0; waited < timeout_ms; waited += 5) {
        if (waiting() >= at_least)
            return true;
        poll(nullptr, 0, 5);
    }
    return false;
}

Match path_ends(int index, const std::string& end) {
    return [=](const Call& call) {
        const std::string text = call.arg_text(index);
        return text.size() >= end.size() &&
               text.compare(text.size() - end.size(), end.size(), end) == 0;
    };
}

Match on_file(int index, const std::string& name) {
    return [=](const Call& call) { return call.arg_file(index) == name; };
}

Match not_this_thread() {
    const pid_t self = gettid();
    return [=](const Call& call) { return call.thread != self; };
}

}  // namespace shim

// Asked by LeakSanitizer as the process ends. Its search stops every other thread, the shim's too,
// and then makes calls of its own that nobody would answer.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return shim::state().listener >= 0;
}
