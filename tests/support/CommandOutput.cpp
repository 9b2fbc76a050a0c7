#include "CommandOutput.h"

#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

extern char** environ;

CommandOutput::CommandOutput(const std::vector<std::string>& argv) : m_pid(-1), m_master(-1) {
    int slave = -1;
    struct termios raw;
    cfmakeraw(&raw);
    if (openpty(&m_master, &slave, nullptr, &raw, nullptr) != 0)
        return;
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, slave, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, slave, STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, m_master);
    pid_t pid;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) == 0)
        m_pid = pid;
    posix_spawn_file_actions_destroy(&actions);
    close(slave); // the reader sees the end once the program has gone
    if (m_pid <= 0) {
        close(m_master);
        m_master = -1;
        return;
    }
    m_reader = std::thread(&CommandOutput::m_Read, this);
}

CommandOutput::~CommandOutput() {
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    if (m_reader.joinable())
        m_reader.join();
    if (m_master >= 0)
        close(m_master);
}

void CommandOutput::m_Read() {
    char buffer[512];
    for (;;) {
        const ssize_t n = read(m_master, buffer, sizeof(buffer));
        if (n <= 0)
            return; // EIO once the program and every copy of the terminal have closed
        std::lock_guard<std::mutex> lock(m_mutex);
        for (ssize_t i = 0; i < n; ++i) {
            if (buffer[i] == '\n') {
                m_lines.push_back(m_partial);
                m_partial.clear();
            } else if (buffer[i] != '\r') {
                m_partial += buffer[i];
            }
        }
        m_changed.notify_all();
    }
}

std::vector<std::string> CommandOutput::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

template <typename Predicate>
bool CommandOutput::m_WaitFor(Predicate predicate, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return predicate(m_lines); });
}

bool CommandOutput::WaitForLine(const std::string& line, int count,
                                std::chrono::milliseconds timeout) const {
    return m_WaitFor(
        [&](const std::vector<std::string>& lines) {
            return std::count(lines.begin(), lines.end(), line) >= count;
        },
        timeout);
}

bool CommandOutput::WaitForLineContaining(const std::string& part,
                                          std::chrono::milliseconds timeout) const {
    return m_WaitFor(
        [&](const std::vector<std::string>& lines) {
            return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(part) != std::string::npos;
            });
        },
        timeout);
}
