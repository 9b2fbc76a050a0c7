// Runs a program (a sequencer peer such as aseqdump) for the length of a test and collects
// what it prints, line by line. Its output goes through a pseudo-terminal, so a program
// that buffers its output when writing to a pipe prints every line at once.
#ifndef NUV_TEST_COMMAND_OUTPUT_H
#define NUV_TEST_COMMAND_OUTPUT_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class CommandOutput {
public:
    // Starts argv[0] (searched in PATH) with these arguments. Check IsRunning().
    explicit CommandOutput(const std::vector<std::string>& argv);
    // Ends the program (SIGTERM, then waits for it) and its reader.
    ~CommandOutput();
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    bool IsRunning() const { return m_pid > 0; }
    std::vector<std::string> Lines() const;
    // Waits until a line equal to `line` has been printed (`count` of them in all).
    bool WaitForLine(const std::string& line, int count = 1,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    // Waits until a line containing `part` has been printed.
    bool WaitForLineContaining(const std::string& part,
                               std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

private:
    void m_Read();
    template <typename Predicate>
    bool m_WaitFor(Predicate predicate, std::chrono::milliseconds timeout) const;

    pid_t m_pid;
    int m_master;
    std::thread m_reader;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_lines;
    std::string m_partial;
};

#endif
