#include "host_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "test_client.h"

namespace Support {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// Whether a service answers at the path. The probe says that nothing more will come and waits until the
// service has closed its end: what is counted of the service from then on is without the probe.
bool Serves(const std::string& path) {
    TestClient probe(kestrel_open(path.c_str(), O_RDWR | O_CLOEXEC));
    probe.ShutDownWriting();
    return probe.IsConnected() && probe.MeetsEnd();
}

} // namespace

HostProcess::HostProcess(const std::string& build, const std::string& root) :
    HostProcess({build + "/bin/kestrel_host", build + "/lib/libapp_cfg_mgmt_service.so"}, root) {}

HostProcess::HostProcess(std::vector<std::string> command, std::string root) :
    m_command(std::move(command)), m_root(std::move(root)) {
    m_command.insert(m_command.begin(), {"env", "KESTREL_ROOT=" + m_root}); // which becomes the command
}

void HostProcess::Start(std::chrono::seconds patience) {
    Spawn();
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!Serves(m_root + "/storage.paas.orb")) {
        if (HasEnded() || std::chrono::steady_clock::now() > deadline) {
            Kill();
            throw std::runtime_error("the service did not start; see " + LogPath());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// In a process group of its own, so that ctrl-C reaches this program only.
void HostProcess::Spawn() {
    const std::vector<char*> command = Pointers(m_command);
    posix_spawn_file_actions_t files{};
    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, LogPath().c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    const int error = ::posix_spawnp(&m_pid, command[0], &files, &attributes, command.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        m_pid = -1;
        throw std::runtime_error(m_command[0] + ": " + std::strerror(error));
    }
}

// Leaves the process to be reaped.
bool HostProcess::HasEnded() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == m_pid;
}

void HostProcess::Kill() {
    if (IsRunning()) {
        SendKill();
        Wait();
    }
}

int HostProcess::Wait() {
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : SIGNALLED + WTERMSIG(status);
}

} // namespace Support
