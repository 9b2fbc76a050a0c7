// The calling process's threads by name, to tell whether a thread is running.
#ifndef NUV_TEST_THREAD_NAMES_H
#define NUV_TEST_THREAD_NAMES_H

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// The /proc directories of the threads named `name`.
inline std::vector<std::filesystem::path> ThreadsNamed(const std::string& name) {
    std::vector<std::filesystem::path> threads;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string comm;
        std::getline(std::ifstream(task.path() / "comm"), comm);
        if (comm == name)
            threads.push_back(task.path());
    }
    return threads;
}

inline int CountThreadsNamed(const std::string& name) {
    return int(ThreadsNamed(name).size());
}

#endif
