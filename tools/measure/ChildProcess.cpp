#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "WaitFor.h"

namespace {

// Reads what a non-blocking descriptor has into `to`; closes it at its end.
void Drain(int& fd, std::string& to) {
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n > 0) {
            to.append(buffer, size_t(n));
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        close(fd);
        fd = -1;
        return;
    }
}

} // namespace

ChildProcess::~ChildProcess() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        m_Reap(true);
    }
    if (m_outFd >= 0)
        close(m_outFd);
    if (m_errFd >= 0)
        close(m_errFd);
}

bool ChildProcess::Start(const std::vector<std::string>& argv) {
    int out[2], err[2];
    if (argv.empty() || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return false;
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        // The child gets the default signal handling, whatever the test process did.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        signal(SIGPIPE, SIG_DFL);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    if (m_pid < 0) {
        close(out[0]);
        close(err[0]);
        return false;
    }
    m_outFd = out[0];
    m_errFd = err[0];
    fcntl(m_outFd, F_SETFL, O_NONBLOCK);
    fcntl(m_errFd, F_SETFL, O_NONBLOCK);
    return true;
}

bool ChildProcess::m_Read(std::chrono::steady_clock::time_point deadline) {
    if (m_outFd < 0 && m_errFd < 0)
        return false;
    struct pollfd fds[2] = {{m_outFd, POLLIN, 0}, {m_errFd, POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (poll(fds, 2, left.count() > 0 ? int(left.count()) : 0) > 0) {
        if (m_outFd >= 0 && fds[0].revents != 0)
            Drain(m_outFd, m_out);
        if (m_errFd >= 0 && fds[1].revents != 0)
            Drain(m_errFd, m_err);
    }
    return m_outFd >= 0 || m_errFd >= 0;
}

bool ChildProcess::WaitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (m_out.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline || !m_Read(deadline))
            return m_out.find(text) != std::string::npos;
    }
    return true;
}

void ChildProcess::Signal(int signal) {
    if (m_pid > 0)
        kill(m_pid, signal);
}

bool ChildProcess::Wait(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (m_Read(deadline)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(m_pid, SIGKILL);
            m_Reap(true);
            return false;
        }
    }
    // Both outputs are closed: the child has ended or is about to.
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (WaitFor(
            [&] {
                m_Reap(false);
                return m_pid <= 0;
            },
            left))
        return true;
    kill(m_pid, SIGKILL);
    m_Reap(true);
    return false;
}

void ChildProcess::m_Reap(bool block) {
    if (m_pid <= 0)
        return;
    int status = 0;
    if (waitpid(m_pid, &status, block ? 0 : WNOHANG) != m_pid)
        return;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    m_pid = -1;
}

ProgramResult RunProgram(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    ProgramResult result;
    ChildProcess child;
    if (!child.Start(argv))
        return result;
    const bool ended = child.Wait(timeout);
    result.status = ended ? child.Status() : -1;
    result.out = child.Out();
    result.err = child.Err();
    return result;
}
