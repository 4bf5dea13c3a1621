// A host in a process of its own, for programs that start, stop and kill it.
#ifndef TESTS_SUPPORT_HOST_PROCESS_H
#define TESTS_SUPPORT_HOST_PROCESS_H

#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Support {

// Owns one process, a kestrel_host as a rule. Used by the thread that owns it, but for SendKill, which
// any thread may call between Start and the end. The process is killed when this object goes away.
class HostProcess {
public:
    static constexpr int SIGNALLED = 128; // as shells tell it

    // The programs of the build in that directory; root is the framework's root, which must exist. The
    // process appends its log to the file root/service.log. The environment is taken here.
    HostProcess(const std::string& build, const std::string& root);
    // Any program, looked for on the PATH.
    HostProcess(std::vector<std::string> command, std::string root);
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess() { Kill(); }

    // Starts the process, and does not wait for it to serve.
    void Spawn();

    // Returns when the service has served a first connection, which is closed on both sides by then;
    // std::runtime_error when it ends or does not within the time.
    void Start(std::chrono::seconds patience = std::chrono::seconds(60));

    // SIGKILL; returns when the process is gone. Nothing happens when it is not running.
    void Kill();

    // SIGKILL only; the owner calls Kill or Wait afterwards.
    void SendKill() const { ::kill(m_pid, SIGKILL); }

    // SIGTERM; returns the exit status, or SIGNALLED and the signal that ended it instead.
    int Stop() {
        ::kill(m_pid, SIGTERM);
        return Wait();
    }

    // Reaps a process that was told to end; what Stop returns.
    int Wait();

    bool IsRunning() const { return m_pid > 0; }
    pid_t Pid() const { return m_pid; }
    const std::string& Root() const { return m_root; }
    std::string LogPath() const { return m_root + "/service.log"; }

private:
    bool HasEnded() const;

    std::vector<std::string> m_command;
    const std::string m_root;
    pid_t m_pid = -1;
};

} // namespace Support

#endif
