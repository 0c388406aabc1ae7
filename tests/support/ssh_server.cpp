#include "ssh_server.h"

#include "mounts_fixture.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <netinet/in.h>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

int free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<struct sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(fd);
    return port;
}

// Ends with this process, however that ends.
pid_t spawn(const std::vector<std::string>& words) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

template <class Condition>
bool wait_until(double seconds, Condition condition) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// A process and all that it has started.
void collect(pid_t parent, std::set<pid_t>& all) {
    all.insert(parent);
    const std::string path =
        "/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) + "/children";
    std::ifstream in(path);
    for (pid_t child = 0; in >> child;)
        collect(child, all);
}

void end(pid_t& pid) {
    if (pid <= 0)
        return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = -1;
}

}  // namespace

SshServer::SshServer() {
    std::string ignored;
    if (getuid() != 0)
        m_reason = "starting an SSH server needs root";
    else if (test_env::run("test -x /usr/sbin/sshd -a -x /usr/bin/sshfs -a -c /dev/fuse", &ignored))
        m_reason = "sshd, sshfs or /dev/fuse is missing";
    else
        m_reason = mounts_fixture::enter_namespace();
    if (!ok())
        return;
    if (!make_keys_and_config())
        m_reason = "no keys for the SSH server";
    else if (!start_server())
        m_reason = "sshd does not answer";
    else if (!start_mount())
        m_reason = "sshfs does not mount";
}

SshServer::~SshServer() {
    if (m_server > 0)
        go_on();
    umount2(mount().c_str(), MNT_DETACH);
    end(m_sshfs);
    std::set<pid_t> all;
    if (m_server > 0)
        collect(m_server, all);
    for (const pid_t pid : all)
        kill(pid, SIGKILL);
    end(m_server);
}

bool SshServer::make_keys_and_config() {
    for (const char* name : {"served", "mnt"})
        test_env::make_dirs(m_dir / name);
    mkdir("/run/sshd", 0755);  // sshd's own empty folder, which its service makes
    std::string output;
    for (const char* key : {"host", "user"}) {
        if (test_env::run("ssh-keygen -q -t ed25519 -N '' -f " + (m_dir / key), &output) != 0)
            return false;
    }
    m_port = free_port();
    test_env::write_file(m_dir / "config",
                         "Port " + std::to_string(m_port) + "\nListenAddress 127.0.0.1\nHostKey " +
                             (m_dir / "host") + "\nAuthorizedKeysFile " + (m_dir / "user.pub") +
                             "\nStrictModes no\nUsePAM no\nPidFile none\n"
                             "PermitRootLogin yes\nPasswordAuthentication no\n"
                             "Subsystem sftp internal-sftp\n");
    return m_port != 0;
}

bool SshServer::start_server() {
    m_server = spawn({"/usr/sbin/sshd", "-D", "-E", m_dir / "log", "-f", m_dir / "config"});
    return m_server > 0 && wait_until(10, [this] {
               return test_env::exists(m_dir / "log") &&
                      test_env::read_file(m_dir / "log").find("listening") != std::string::npos;
           });
}

bool SshServer::start_mount() {
    m_sshfs = spawn({"/usr/bin/sshfs", "-f", "-p", std::to_string(m_port), "-o",
                     "IdentityFile=" + (m_dir / "user"), "-o", "StrictHostKeyChecking=no", "-o",
                     "UserKnownHostsFile=/dev/null", "-o", "LogLevel=ERROR", "-F", "/dev/null",
                     "root@127.0.0.1:" + backing(), mount()});
    return m_sshfs > 0 && wait_until(15, [this] {
               std::ifstream table("/proc/self/mountinfo");
               std::stringstream text;
               text << table.rdbuf();
               return text.str().find(mount() + " ") != std::string::npos;
           });
}

void SshServer::signal_all(int number) const {
    std::set<pid_t> all;
    collect(m_server, all);
    for (const pid_t pid : all)
        kill(pid, number);
}

void SshServer::stop() {
    signal_all(SIGSTOP);
}

void SshServer::go_on() {
    signal_all(SIGCONT);
}
