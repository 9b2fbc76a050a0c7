// Test doubles for the framework core: a watcher whose passes a test controls, and
// connection and device managers that record what the core asks of them.
#ifndef NUV_TEST_CORE_FAKES_H
#define NUV_TEST_CORE_FAKES_H

#include <stdio.h>
#include <string.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "NuvConnectionManager"
#include "NuvDeviceChecker"
#include "NuvDeviceManager"
#include "NuvResult"
#include "NuvWatcher"

// An ordered record of what happened, shared by the doubles of one test.
class EventLog {
public:
    void Add(const std::string& event) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(event);
    }
    std::vector<std::string> Events() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    int Count(const std::string& event) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const auto& e : m_events)
            n += e == event;
        return n;
    }
    // Position of the first occurrence, or -1.
    int IndexOf(const std::string& event) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (size_t i = 0; i < m_events.size(); ++i)
            if (m_events[i] == event)
                return static_cast<int>(i);
        return -1;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_events;
};

// A candidate record as a plug-in's watcher makes it: key and UID are the same text.
inline _NuvDetailDevInfo* MakeCandidate(const char* key, const char* name,
                                        int type = NUV_DEVICE_TYPE_MIDI) {
    auto* info = new _NuvDetailDevInfo();
    snprintf(info->key, sizeof(info->key), "%s", key);
    snprintf(info->devInfo.UID, sizeof(info->devInfo.UID), "%s", key);
    snprintf(info->devInfo.deviceName, sizeof(info->devInfo.deviceName), "%s", name);
    info->devInfo.type = type;
    info->pExtraInfo = new std::string(key); // released by the watcher's t_DeleteExtraInfo
    return info;
}

// A watcher whose passes run a function the test chooses; it exposes the protected
// candidate operations and logs every extra-info release.
class TestWatcher : public NuvWatcher {
public:
    explicit TestWatcher(EventLog* log = nullptr) : m_log(log) {}

    std::function<void()> onPass; // set before Start
    std::atomic<int> specialPasses{0};
    std::atomic<int> extraPasses{0};

    void t_SpecialEnumerate() override { ++specialPasses; }
    void t_ExtraEnumerate() override {
        ++extraPasses;
        if (onPass)
            onPass();
    }
    void t_DeleteExtraInfo(_NuvDetailDevInfo* info) override {
        auto* extra = static_cast<std::string*>(info->pExtraInfo);
        if (m_log != nullptr)
            m_log->Add("extra-freed " + (extra != nullptr ? *extra : std::string("?")));
        delete extra;
        info->pExtraInfo = nullptr;
    }

    int AddCandidate(_NuvDetailDevInfo* info) { return t_AddCandidate(info); }
    int DeleteCandidate(const char* key) { return t_DeleteCandidate(key); }
    void SetWakeDescriptors(const struct pollfd* fds, int count) {
        t_SetWakeDescriptors(fds, count);
    }
    int ParseMajorMinor(_NuvDetailDevInfo* info, const char* path) {
        return t_ParseMajorMinorNumber(info, path);
    }
    size_t CandidateCount() {
        if (!m_mutex.FlagCreate())
            return m_mapCandidate.size();
        NuvMutexGuard guard(m_mutex);
        return m_mapCandidate.size();
    }

private:
    EventLog* m_log;
};

class TestChecker : public NuvDeviceChecker {
public:
    std::atomic<int> verdict{NUV_ERR_NOT_IMPLEMENTED};
    int t_CheckDevice(_NuvDetailDevInfo*) override { return verdict; }
};

// Checks on Destroy that the candidate's extra information is still there: the core
// must remove a connector before it frees its candidate.
class TestConnector : public NuvConnector {
public:
    TestConnector(_NuvDetailDevInfo* info, EventLog* log) : NuvConnector(info), m_log(log) {}
    int Create() override {
        m_log->Add(std::string("connector-created ") + m_DevInfo.UID);
        return NUV_OK;
    }
    void Destroy() override {
        const bool extraAlive =
            m_pExtraInfo != nullptr && *static_cast<std::string*>(m_pExtraInfo) == m_DevInfo.UID;
        m_log->Add(std::string("connector-destroyed ") + m_DevInfo.UID +
                   (extraAlive ? "" : " (extra info gone)"));
    }

private:
    EventLog* m_log;
};

class TestConnectionManager : public NuvConnectionManager {
public:
    explicit TestConnectionManager(EventLog* log) : m_log(log) {}
    NuvConnector* t_NewConnector(_NuvDetailDevInfo* info) override {
        m_log->Add(std::string("new-connector ") + info->devInfo.UID);
        return new TestConnector(info, m_log);
    }

private:
    EventLog* m_log;
};

class TestDevice : public NuvDevice {
public:
    static inline std::atomic<int> live{0}; // devices made and not yet deleted

    TestDevice(NuvConnector* connector, int id, EventLog* log, bool failCreate)
        : NuvDevice(connector, id), m_log(log), m_failCreate(failCreate) {
        ++live;
    }
    ~TestDevice() override { --live; }
    int Create() override {
        NuvDevice::Create();
        if (m_log != nullptr)
            m_log->Add("device-created " + std::to_string(m_nID));
        if (m_failCreate) {
            NuvDevice::Destroy();
            return NUV_ERR_OPEN_CONNECTOR;
        }
        return NUV_OK;
    }
    void Destroy() override {
        if (m_log != nullptr)
            m_log->Add("device-destroyed " + std::to_string(m_nID));
        NuvDevice::Destroy();
    }

private:
    EventLog* m_log;
    bool m_failCreate;
};

class TestDeviceManager : public NuvDeviceManager {
public:
    explicit TestDeviceManager(EventLog* log) : m_log(log) {}
    std::atomic<bool> failDeviceCreate{false};
    NuvDevice* t_NewDevice(NuvConnector* connector, int id) override {
        return new TestDevice(connector, id, m_log, failDeviceCreate);
    }

private:
    EventLog* m_log;
};

// A host callback on the device manager: "attached NAME" / "detached NAME ID|-".
class HostCallback : public NuvCallback {
public:
    explicit HostCallback(EventLog* log) : m_log(log) {}
    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        const auto* info = static_cast<const _NuvDevInfo*>(arg1);
        const auto* id = static_cast<const int*>(arg2);
        const std::string what = event == NUV_EVENT_DEVICE_ATTACHED   ? "attached "
                                 : event == NUV_EVENT_DEVICE_DETACHED ? "detached "
                                                                      : "other ";
        m_log->Add(what + info->deviceName + " " + (id != nullptr ? std::to_string(*id) : "-"));
        return 0;
    }

private:
    EventLog* m_log;
};

#endif
