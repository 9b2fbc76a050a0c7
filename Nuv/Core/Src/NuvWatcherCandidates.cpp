// NuvWatcher: the candidate map and the check of a device node against its uevent file.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "NuvLog"
#include "NuvResult"
#include "NuvWatcher"
#include "NuvWatcherLoop.h"

namespace {

std::string KeyOf(const _NuvDetailDevInfo* info) {
    return std::string(info->key, strnlen(info->key, sizeof(info->key)));
}

} // namespace

int NuvWatcher::t_AddCandidate(_NuvDetailDevInfo* info) {
    if (info == nullptr)
        return NUV_ERR_GENERAL;

    bool added;
    {
        NuvCandidateGuard guard(m_mutex);
        added = m_mapCandidate.emplace(KeyOf(info), info).second;
    }
    if (!added) {
        t_DeleteExtraInfo(info);
        delete info;
        return 1;
    }
    ExecuteCallback(NUV_EVENT_CANDIDATE_ADDED, info, nullptr, nullptr);
    return NUV_OK;
}

int NuvWatcher::t_DeleteCandidate(const char* key) {
    if (key == nullptr)
        return NUV_ERR_GENERAL;

    _NuvDetailDevInfo* info = nullptr;
    {
        NuvCandidateGuard guard(m_mutex);
        auto it = m_mapCandidate.find(key);
        if (it == m_mapCandidate.end())
            return NUV_ERR_GENERAL;
        info = it->second;
        m_mapCandidate.erase(it);
    }
    // Whoever holds a connector or device made from this record lets go of it here,
    // before the record is freed.
    ExecuteCallback(NUV_EVENT_CANDIDATE_REMOVED, info, nullptr, nullptr);
    t_DeleteExtraInfo(info);
    delete info;
    return NUV_OK;
}

int NuvWatcher::t_ParseMajorMinorNumber(_NuvDetailDevInfo* info, const char* ueventPath) {
    if (info == nullptr || ueventPath == nullptr)
        return 0;

    FILE* file = fopen(ueventPath, "r");
    if (file == nullptr) {
        print_dlog(NUV_LOG_TRACE, "\n[NuvWatcher::t_ParseMajorMinorNumber] cannot open %s\n",
                   ueventPath);
        return 0;
    }
    int major = -1;
    int minor = -1;
    char line[256];
    while (fgets(line, sizeof(line), file) != nullptr) {
        int value;
        if (sscanf(line, "MAJOR=%d", &value) == 1)
            major = value;
        else if (sscanf(line, "MINOR=%d", &value) == 1)
            minor = value;
    }
    fclose(file);
    if (major < 0 || minor < 0) {
        print_dlog(NUV_LOG_TRACE, "\n[NuvWatcher::t_ParseMajorMinorNumber] no MAJOR/MINOR in %s\n",
                   ueventPath);
        return 0;
    }

    char path[sizeof(info->devicePath) + 1];
    memcpy(path, info->devicePath, sizeof(info->devicePath));
    path[sizeof(info->devicePath)] = '\0';
    struct stat node;
    if (stat(path, &node) != 0 || !S_ISCHR(node.st_mode) ||
        static_cast<int>(::major(node.st_rdev)) != major ||
        static_cast<int>(::minor(node.st_rdev)) != minor) {
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvWatcher::t_ParseMajorMinorNumber] %s is not the device %d:%d\n", path,
                   major, minor);
        return 0;
    }
    return 1;
}
