// Runs a program as a child process with nothing on its standard input and its standard
// output and error captured, for the tests of command-line programs. Every wait has a
// deadline; a child still running when the object goes is killed and reaped.
#ifndef NUV_MEASURE_CHILD_PROCESS_H
#define NUV_MEASURE_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts argv[0] (a path).
    bool Start(const std::vector<std::string>& argv);
    // Waits until standard output holds `text`; false when the child ended or the time ran
    // out first.
    bool WaitForOutput(const std::string& text, std::chrono::milliseconds timeout);
    void Signal(int signal);
    pid_t Pid() const { return m_pid; }
    // Waits until the child has exited; false (and the child killed) when it has not within
    // `timeout`.
    bool Wait(std::chrono::milliseconds timeout);

    // The exit code, or 128 + the signal that ended the child.
    int Status() const { return m_status; }
    // What the child wrote, as of the last wait.
    const std::string& Out() const { return m_out; }
    const std::string& Err() const { return m_err; }

private:
    // Reaps the child if it has ended (or once it does, with `block`), then reads its output.
    void m_Update(bool block);

    pid_t m_pid = -1;
    // Memory files the child writes its output to: never full, so it never blocks on them.
    int m_outFd = -1;
    int m_errFd = -1;
    int m_status = -1;
    std::string m_out;
    std::string m_err;
};

struct ProgramResult {
    int status = -1; // as ChildProcess::Status; -1 when it did not end in time
    std::string out;
    std::string err;
};

// Runs a program to its end.
ProgramResult RunProgram(const std::vector<std::string>& argv,
                         std::chrono::milliseconds timeout = std::chrono::seconds(60));

#endif
