// The one logger: the newest 40,000 lines stay in a ring in memory, and every line goes to a plain
// text file in the configuration directory as well. Any thread may call any function. The file is
// optional at every moment: a failing disk costs the file's lines, never the ring's.

#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

class Log {
  public:
    enum class Level : int32_t { Debug = 0, Info = 1, Warn = 2, Error = 3 };

    struct Entry {
        int64_t unix_time = 0;  // wall clock, seconds
        double monotonic = 0;   // seconds since the logger was constructed, steady clock
        Level level = Level::Info;
        std::string thread;
        std::string text;  // without a line end of its own
    };

    static constexpr size_t kRingSize = 40000;
    static constexpr int64_t kRotateBytes = 33554432;

    // Constructed on first use; the thread that does so is named "ui".
    static Log& instance();

    // The name under which the calling thread logs; "-" until it has one.
    static void name_this_thread(const std::string& name);

    void write(Level level, const std::string& text);

    // printf style, on the instance.
    static void infof(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void warnf(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void errorf(const char* format, ...) __attribute__((format(printf, 1, 2)));
    // Does not even format while the debug switch is off.
    static void debugf(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // A copy of the ring, oldest line first.
    [[nodiscard]] std::vector<Entry> recent() const { return recent(0, kRingSize); }
    // Of that, so many lines from the given one on, or as many as there are.
    [[nodiscard]] std::vector<Entry> recent(size_t first, size_t count) const;
    [[nodiscard]] size_t size() const;  // how many lines the ring holds

    // Empties the ring. The file keeps its lines.
    void clear();

    [[nodiscard]] const std::string& file_path() const { return m_path; }
    [[nodiscard]] const char* file_path_c_str() const { return m_path.c_str(); }

    void set_debug(bool on) { m_debug.store(on); }
    [[nodiscard]] bool debug() const { return m_debug.load(); }

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

  private:
    Log();
    ~Log();

    void open_file();
    void rotate_locked();  // m_mutex is held
    void writef(Level level, const char* format, va_list args);

    mutable std::mutex m_mutex;  // guards all below but m_debug and m_start_time
    std::vector<Entry> m_ring;   // kRingSize slots, never resized
    size_t m_ring_pos = 0;       // the slot that the next line takes
    bool m_ring_wrapped = false;
    std::string m_path;           // constant after construction
    std::FILE* m_file = nullptr;  // null while no file is open
    int64_t m_bytes_written = 0;  // the file's size as the logger knows it
    std::atomic<bool> m_debug{false};
    double m_start_time = 0;  // steady clock, seconds
};
