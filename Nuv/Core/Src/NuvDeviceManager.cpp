// NuvDeviceManager: the host's devices on the connection manager's connectors, and the
// host's callbacks about devices arriving and leaving.
#include "NuvDeviceManager"

#include <string.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include "NuvConnectionManager"
#include "NuvLog"
#include "NuvResult"

namespace {

struct Teardowns;
void DestroyDevice(Teardowns& teardowns, NuvDevice* device);

// The connectors whose device a host thread or the reaper is destroying right now, outside
// the manager's mutex. The removal of such a connector waits here before the connection
// manager may delete it, since the device's Destroy still talks to its connector.
struct Teardowns {
    void Begin(const NuvConnector* connector) {
        std::lock_guard<std::mutex> lock(mutex);
        connectors.insert(connector);
    }
    // Notifies under the lock: the manager may free this object as soon as it sees the
    // last teardown end.
    void End(const NuvConnector* connector) {
        std::lock_guard<std::mutex> lock(mutex);
        connectors.erase(connectors.find(connector));
        finished.notify_all();
    }
    void WaitUntilDone(const NuvConnector* connector) {
        std::unique_lock<std::mutex> lock(mutex);
        finished.wait(lock, [&] { return connectors.count(connector) == 0; });
    }

    // Hands a device whose teardown has begun to the reaper, started on first use. Without
    // a thread the device waits for StopReaper.
    void Retire(NuvDevice* device) {
        std::lock_guard<std::mutex> lock(mutex);
        retired.push_back(device);
        if (!reaper.joinable()) {
            try {
                reaper = std::thread([this] { Reap(); });
            } catch (const std::system_error&) {
                print_dlog(NUV_LOG_INFO, "%s\n",
                           "\n[NuvDeviceManager] no reaper thread: the device goes with the "
                           "manager\n");
            }
        }
        work.notify_all();
    }
    void Reap() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            work.wait(lock, [&] { return !retired.empty() || stopping; });
            if (retired.empty())
                return;
            NuvDevice* device = retired.front();
            retired.pop_front();
            lock.unlock();
            DestroyDevice(*this, device);
            lock.lock();
        }
    }
    // Ends the reaper once every retired device is gone.
    void StopReaper() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
            work.notify_all();
        }
        if (reaper.joinable())
            reaper.join();
        for (NuvDevice* device : retired)
            DestroyDevice(*this, device);
        retired.clear();
    }

    std::mutex mutex;
    std::condition_variable finished;
    std::multiset<const NuvConnector*> connectors;
    std::condition_variable work;
    std::deque<NuvDevice*> retired; // destroyed from inside a callback, not yet released
    std::thread reaper;
    bool stopping = false;
};

Teardowns& TeardownsOf(void* reserved) {
    return *static_cast<Teardowns*>(reserved);
}

// Destroys a device whose teardown was announced with Begin.
void DestroyDevice(Teardowns& teardowns, NuvDevice* device) {
    const NuvConnector* connector = device->GetConnector();
    device->Destroy();
    delete device;
    teardowns.End(connector);
}

} // namespace

NuvDeviceManager::NuvDeviceManager()
    : m_pConnectionManager(nullptr), m_pReserved(nullptr), m_nNextID(1) {}

NuvDeviceManager::~NuvDeviceManager() {
    delete static_cast<Teardowns*>(m_pReserved);
}

int NuvDeviceManager::Create(NuvConnectionManager* connectionManager) {
    if (connectionManager == nullptr || m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    if (!m_mutex.Create())
        return NUV_ERR_GENERAL;
    if (NuvCallbackHandler::Create() != NUV_OK) {
        m_mutex.Destroy();
        return NUV_ERR_GENERAL;
    }
    if (m_pReserved == nullptr)
        m_pReserved = new Teardowns;
    m_pConnectionManager = connectionManager;
    const int result = t_CreateManager();
    if (result != NUV_OK || connectionManager->RegisterCallback(this) != NUV_OK) {
        if (result == NUV_OK)
            t_DestroyManager();
        m_pConnectionManager = nullptr;
        delete static_cast<Teardowns*>(m_pReserved);
        m_pReserved = nullptr;
        NuvCallbackHandler::Destroy();
        m_mutex.Destroy();
        return result != NUV_OK ? result : NUV_ERR_GENERAL;
    }
    return NUV_OK;
}

int NuvDeviceManager::Destroy() {
    if (!m_mutex.FlagCreate())
        return NUV_OK;
    std::map<int, NuvDevice*> devices;
    {
        NuvMutexGuard guard(m_mutex);
        devices.swap(m_mapDevice);
        for (auto& entry : devices)
            TeardownsOf(m_pReserved).Begin(entry.second->GetConnector());
    }
    for (auto& entry : devices)
        DestroyDevice(TeardownsOf(m_pReserved), entry.second);
    TeardownsOf(m_pReserved).StopReaper();
    // Still registered while the devices went, so a connector removal meanwhile waited for
    // them. Unregistering waits for an announcement in progress to finish.
    m_pConnectionManager->UnregisterCallback(this);

    t_DestroyManager();
    NuvCallbackHandler::Destroy();
    m_mutex.Destroy();
    delete static_cast<Teardowns*>(m_pReserved);
    m_pReserved = nullptr;
    return NUV_OK;
}

int NuvDeviceManager::t_OnCallback(int event, void* arg1, void* arg2, void* arg3) {
    switch (event) {
    case NUV_EVENT_CONNECTOR_ADDED:
        if (arg1 != nullptr)
            m_OnConnectorAdded(static_cast<NuvConnector*>(arg1));
        return NUV_OK;
    case NUV_EVENT_CONNECTOR_REMOVED:
        if (arg1 != nullptr)
            m_OnConnectorRemoved(static_cast<NuvConnector*>(arg1));
        return NUV_OK;
    default:
        return t_ProcessPrivateEvent(event, arg1, arg2, arg3);
    }
}

void NuvDeviceManager::m_OnConnectorAdded(NuvConnector* connector) {
    const _NuvDevInfo info = connector->GetDevInfo();
    ExecuteCallback(NUV_EVENT_DEVICE_ATTACHED, const_cast<_NuvDevInfo*>(&info), nullptr, nullptr);
}

void NuvDeviceManager::m_OnConnectorRemoved(NuvConnector* connector) {
    NuvDevice* device = nullptr;
    {
        NuvMutexGuard guard(m_mutex);
        device = m_FindDeviceOn(connector);
        if (device != nullptr)
            m_mapDevice.erase(device->GetDeviceID());
    }
    const _NuvDevInfo info = connector->GetDevInfo();
    const int id = device != nullptr ? device->GetDeviceID() : -1;
    ExecuteCallback(NUV_EVENT_DEVICE_DETACHED, const_cast<_NuvDevInfo*>(&info),
                    device != nullptr ? const_cast<int*>(&id) : nullptr, nullptr);
    if (device != nullptr) {
        device->Destroy();
        delete device;
    }
    // A host thread may be destroying a device on this connector right now.
    TeardownsOf(m_pReserved).WaitUntilDone(connector);
}

NuvDevice* NuvDeviceManager::m_FindDeviceOn(NuvConnector* connector) {
    for (auto& entry : m_mapDevice)
        if (entry.second->GetConnector() == connector)
            return entry.second;
    return nullptr;
}

NuvDevice* NuvDeviceManager::t_CreateDevice(int type, const char* name) {
    if (name == nullptr || !m_mutex.FlagCreate())
        return nullptr;
    // Held from the search for the connector until the device is in the map: a removal of
    // that connector either finds the new device or has already taken the connector away.
    NuvMutexGuard guard(m_mutex);
    NuvConnector* connector = m_pConnectionManager->FindConnector(type, name);
    if (connector == nullptr) // devices of one product share a name: the UID tells them apart
        connector = m_pConnectionManager->FindConnectorByUID(type, name);
    if (connector == nullptr)
        return nullptr;
    if (NuvDevice* existing = m_FindDeviceOn(connector))
        return existing;
    const int id = m_nNextID++;
    NuvDevice* device = t_NewDevice(connector, id);
    if (device == nullptr)
        return nullptr;
    if (device->Create() != NUV_OK) {
        delete device;
        return nullptr;
    }
    m_mapDevice[id] = device;
    return device;
}

int NuvDeviceManager::t_DestroyDevice(int id) {
    if (!m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    NuvDevice* device = nullptr;
    {
        NuvMutexGuard guard(m_mutex);
        auto it = m_mapDevice.find(id);
        if (it == m_mapDevice.end())
            return NUV_ERR_GENERAL;
        device = it->second;
        m_mapDevice.erase(it);
        TeardownsOf(m_pReserved).Begin(device->GetConnector());
    }
    if (NuvCallbackHandler::InCallback()) {
        device->Silence();
        TeardownsOf(m_pReserved).Retire(device);
        return NUV_OK;
    }
    DestroyDevice(TeardownsOf(m_pReserved), device);
    return NUV_OK;
}

void NuvDeviceManager::SilenceAll() {
    NuvCallbackHandler::Silence();
    if (!m_mutex.FlagCreate())
        return;
    NuvMutexGuard guard(m_mutex);
    for (auto& entry : m_mapDevice)
        entry.second->Silence();
}

NuvDevice* NuvDeviceManager::t_FindDevice(int id) {
    if (!m_mutex.FlagCreate())
        return nullptr;
    NuvMutexGuard guard(m_mutex);
    auto it = m_mapDevice.find(id);
    return it != m_mapDevice.end() ? it->second : nullptr;
}

int NuvDeviceManager::IsConnected(int type, const char* name) {
    if (m_pConnectionManager == nullptr)
        return 0;
    return m_pConnectionManager->FindConnector(type, name) != nullptr ? 1 : 0;
}

int NuvDeviceManager::GetConnectedDeviceInfo(_NuvDevInfo& info, bool& created, int type,
                                             int index) {
    if (!m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    // Under the manager's lock the connector cannot be deleted before the device search.
    NuvMutexGuard guard(m_mutex);
    NuvConnector* connector = m_pConnectionManager->ConnectorAt(type, index, &info);
    if (connector == nullptr)
        return NUV_ERR_GENERAL;
    created = m_FindDeviceOn(connector) != nullptr;
    return NUV_OK;
}
