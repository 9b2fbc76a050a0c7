#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "WaitFor.h"

namespace {

std::string Contents(int fd) {
    std::ostringstream text;
    text << std::ifstream("/proc/self/fd/" + std::to_string(fd)).rdbuf();
    return text.str();
}

} // namespace

ChildProcess::~ChildProcess() {
    Signal(SIGKILL);
    m_Update(true);
    close(m_outFd);
    close(m_errFd);
}

bool ChildProcess::Start(const std::vector<std::string>& argv) {
    m_outFd = memfd_create("out", MFD_CLOEXEC);
    m_errFd = memfd_create("err", MFD_CLOEXEC);
    if (argv.empty() || m_outFd < 0 || m_errFd < 0)
        return false;
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, m_outFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, m_errFd, STDERR_FILENO);
    // The child gets the default signal handling, whatever the test process did.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (posix_spawn(&m_pid, args[0], &files, &attributes, args.data(), environ) != 0)
        m_pid = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return m_pid > 0;
}

void ChildProcess::m_Update(bool block) {
    int status = 0;
    if (m_pid > 0 && waitpid(m_pid, &status, block ? 0 : WNOHANG) == m_pid) {
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        m_pid = -1;
    }
    if (m_outFd >= 0 && m_errFd >= 0) {
        m_out = Contents(m_outFd);
        m_err = Contents(m_errFd);
    }
}

bool ChildProcess::WaitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
    WaitFor(
        [&] {
            m_Update(false);
            return m_out.find(text) != std::string::npos || m_pid <= 0;
        },
        timeout);
    return m_out.find(text) != std::string::npos;
}

void ChildProcess::Signal(int signal) {
    if (m_pid > 0)
        kill(m_pid, signal);
}

bool ChildProcess::Wait(std::chrono::milliseconds timeout) {
    const bool ended = WaitFor(
        [&] {
            m_Update(false);
            return m_pid <= 0;
        },
        timeout);
    Signal(SIGKILL); // still running: killed and reaped
    m_Update(true);
    return ended;
}

ProgramResult RunProgram(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    ChildProcess child;
    const bool ended = child.Start(argv) && child.Wait(timeout);
    return {ended ? child.Status() : -1, child.Out(), child.Err()};
}
