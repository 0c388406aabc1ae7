#include "logger.h"

#include "paths.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <sys/stat.h>

namespace {

thread_local std::string t_thread_name = "-";

double steady_seconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

const char* level_word(Log::Level level) {
    switch (level) {
    case Log::Level::Debug:
        return "DEBUG";
    case Log::Level::Info:
        return "INFO ";
    case Log::Level::Warn:
        return "WARN ";
    case Log::Level::Error:
        return "ERROR";
    }
    return "?    ";
}

// Local time of day. A transfer logs thousands of lines in a second, and the conversion costs more
// than the line: so a thread keeps the text of its last second.
struct ClockText {
    time_t second = -1;
    char text[32] = "";
};
thread_local ClockText t_clock;

const char* clock_text(time_t second) {
    if (t_clock.second != second) {
        t_clock.second = second;
        t_clock.text[0] = '\0';
        struct tm local = {};
        if (localtime_r(&second, &local))
            std::strftime(t_clock.text, sizeof t_clock.text, "%H:%M:%S", &local);
    }
    return t_clock.text;
}

std::string format_args(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    char small[512];
    const int length = std::vsnprintf(small, sizeof small, format, measure);
    va_end(measure);
    if (length < 0)
        return format;
    if (static_cast<size_t>(length) < sizeof small)
        return std::string(small, static_cast<size_t>(length));
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<size_t>(length));
    return text;
}

}  // namespace

Log& Log::instance() {
    // Never destroyed: threads that nobody waits for may log as the process ends. Each line is on
    // its way to the file when write() returns.
    static Log& log = *new Log;
    return log;
}

Log::Log() : m_ring(kRingSize), m_start_time(steady_seconds()) {
    open_file();
    name_this_thread("ui");
}

Log::~Log() {
    if (m_file) {
        std::fclose(m_file);
        m_file = nullptr;
    }
}

void Log::name_this_thread(const std::string& name) {
    t_thread_name = name;
}

void Log::open_file() {
    m_path = config_dir() + "/Ferrodeck.log";
    struct stat st = {};
    if (stat(m_path.c_str(), &st) == 0 && st.st_size > kRotateBytes) {
        const std::string old = m_path + ".1";
        std::remove(old.c_str());
        std::rename(m_path.c_str(), old.c_str());
    }
    m_file = std::fopen(m_path.c_str(), "ae");
    if (!m_file)
        return;
    std::setvbuf(m_file, nullptr, _IOLBF, BUFSIZ);
    if (stat(m_path.c_str(), &st) == 0)
        m_bytes_written = st.st_size;
}

void Log::rotate_locked() {
    if (m_file) {
        std::fclose(m_file);
        m_file = nullptr;
    }
    const std::string old = m_path + ".1";
    std::remove(old.c_str());
    std::rename(m_path.c_str(), old.c_str());
    m_file = std::fopen(m_path.c_str(), "ae");
    m_bytes_written = 0;
    if (m_file) {
        std::setvbuf(m_file, nullptr, _IOLBF, BUFSIZ);
        std::fprintf(m_file, "---- rotated at %lld bytes ----\n",
                     static_cast<long long>(kRotateBytes));
    }
}

void Log::write(Level level, const std::string& text) {
    if (level == Level::Debug && !debug())
        return;
    const double monotonic = steady_seconds() - m_start_time;
    const time_t now = std::time(nullptr);
    const char* clock = clock_text(now);
    // Milliseconds since the program's start, not the fraction of the wall-clock second before
    // them: two lines can be told apart by age even when the clock is set back between them.
    const int milliseconds = static_cast<int>(static_cast<int64_t>(monotonic * 1000) % 1000);

    std::lock_guard<std::mutex> lock(m_mutex);
    Entry& slot = m_ring[m_ring_pos];
    slot.unix_time = now;
    slot.monotonic = monotonic;
    slot.level = level;
    slot.thread = t_thread_name;
    slot.text = text;
    m_ring_pos = (m_ring_pos + 1) % kRingSize;
    if (m_ring_pos == 0)
        m_ring_wrapped = true;
    if (m_file) {
        const int printed = std::fprintf(m_file, "%s.%03d %s [%-4s] %s\n", clock, milliseconds,
                                         level_word(level), t_thread_name.c_str(), text.c_str());
        if (printed > 0)
            m_bytes_written += printed;
    }
    if (m_bytes_written > kRotateBytes)
        rotate_locked();
}

void Log::writef(Level level, const char* format, va_list args) {
    write(level, format_args(format, args));
}

void Log::infof(const char* format, ...) {
    va_list args;
    va_start(args, format);
    instance().writef(Level::Info, format, args);
    va_end(args);
}

void Log::warnf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    instance().writef(Level::Warn, format, args);
    va_end(args);
}

void Log::errorf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    instance().writef(Level::Error, format, args);
    va_end(args);
}

void Log::debugf(const char* format, ...) {
    Log& log = instance();
    if (!log.debug())
        return;
    va_list args;
    va_start(args, format);
    log.writef(Level::Debug, format, args);
    va_end(args);
}

std::vector<Log::Entry> Log::recent(size_t first, size_t count) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const size_t held = m_ring_wrapped ? kRingSize : m_ring_pos;
    const size_t oldest = m_ring_wrapped ? m_ring_pos : 0;
    std::vector<Entry> lines;
    first = std::min(first, held);
    count = std::min(count, held - first);
    lines.reserve(count);
    for (size_t i = first; i < first + count; ++i)
        lines.push_back(m_ring[(oldest + i) % kRingSize]);
    return lines;
}

size_t Log::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_ring_wrapped ? kRingSize : m_ring_pos;
}

void Log::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Entry& slot : m_ring)
        slot = Entry();
    m_ring_pos = 0;
    m_ring_wrapped = false;
}
