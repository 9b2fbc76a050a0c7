// Names of the calling process's threads, to tell whether a thread is running.
#ifndef NUV_TEST_THREAD_NAMES_H
#define NUV_TEST_THREAD_NAMES_H

#include <dirent.h>

#include <fstream>
#include <string>

inline int CountThreadsNamed(const std::string& name) {
    int count = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr)
        return -1;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string text;
        std::getline(comm, text);
        count += text == name;
    }
    closedir(tasks);
    return count;
}

#endif
