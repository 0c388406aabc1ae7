// An SSH server of a test's own on a port of the loopback interface, with a folder of it mounted
// through sshfs. It can be stopped, as a server that hangs, and set going again. It ends with the
// object; nothing of the machine's own SSH is read or written.

#pragma once

#include "test_env.h"

#include <string>
#include <sys/types.h>
#include <vector>

class SshServer {
  public:
    SshServer();
    ~SshServer();
    SshServer(const SshServer&) = delete;
    SshServer& operator=(const SshServer&) = delete;

    bool ok() const { return m_reason.empty(); }
    const std::string& reason() const { return m_reason; }    // why there is none
    std::string backing() const { return m_dir / "served"; }  // what the server serves
    std::string mount() const { return m_dir / "mnt"; }       // the same through sshfs

    void stop();  // SIGSTOP to the server and its sessions
    void go_on();

  private:
    bool make_keys_and_config();
    bool start_server();
    bool start_mount();
    void signal_all(int number) const;

    test_env::TempDir m_dir;
    std::string m_reason;
    int m_port = 0;
    pid_t m_server = -1;
    pid_t m_sshfs = -1;
};
