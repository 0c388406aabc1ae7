// A message bus of a test's own, and on it a settings portal that answers as the test says. The
// bus starts no services, so that what the machine has installed plays no part.

#pragma once

#include "test_env.h"

#include <atomic>
#include <functional>
#include <gio/gio.h>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>

namespace test_env {

class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Empty when dbus-daemon is not installed.
    const std::string& address() const { return m_address; }
    void end();  // as at the end of a session

  private:
    TempDir m_dir;
    std::string m_address;
    pid_t m_pid = -1;
};

// A bus that takes every connection and never says a word.
class SilentBus {
  public:
    SilentBus();
    ~SilentBus();
    SilentBus(const SilentBus&) = delete;
    SilentBus& operator=(const SilentBus&) = delete;

    std::string address() const { return "unix:path=" + (m_dir / "bus"); }
    void end();  // whoever waits for a word is told that there will be none

  private:
    TempDir m_dir;
    int m_listener = -1;
};

// Answers on a thread of its own, so that the test's thread may wait for it.
class Portal {
  public:
    explicit Portal(const PrivateBus& bus);
    ~Portal();
    Portal(const Portal&) = delete;
    Portal& operator=(const Portal&) = delete;

    bool ok() const { return m_bus != nullptr; }
    // What a question for the colour scheme gets, in GVariant's text form, such as "uint32 1" or
    // "<uint32 1>" for one more wrapping. Empty: an error.
    void answer(const std::string& value);
    void delay_ms(int ms) { m_delay_ms = ms; }  // before each answer
    int questions() const { return m_questions; }
    std::string last_question() const;  // "namespace key"

    // A signal from the portal, sent when this returns.
    void changed(const std::string& space, const std::string& key,
                 const std::string& value = "uint32 1");
    // The same by another name, from another object, or with other contents.
    void signal(const char* object, const char* interface, const char* name, GVariant* parameters);

  private:
    void serve(const std::string& address, const std::function<void()>& ready);
    GVariant* reply();
    static void on_call_cb(GDBusConnection* bus, const char* sender, const char* object,
                           const char* interface, const char* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer data);

    std::thread m_thread;
    GMainContext* m_context = nullptr;
    GMainLoop* m_loop = nullptr;
    GDBusConnection* m_bus = nullptr;  // constant once the constructor has returned
    std::atomic<int> m_delay_ms{0};
    std::atomic<int> m_questions{0};
    mutable std::mutex m_mutex;  // guards the two below
    std::string m_answer;
    std::string m_last_question;
};

}  // namespace test_env
