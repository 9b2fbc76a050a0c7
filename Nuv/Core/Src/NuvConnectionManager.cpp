// NuvConnectionManager: turns the watcher's candidates into connectors and tells the
// device manager about them.
#include "NuvConnectionManager"

#include <string.h>

#include <vector>

#include "NuvLog"
#include "NuvResult"
#include "NuvWatcher"

NuvConnectionManager::NuvConnectionManager()
    : m_pWatcher(nullptr), m_pChecker(nullptr), m_nNextConnectorID(1) {}

NuvConnectionManager::~NuvConnectionManager() {}

int NuvConnectionManager::Create(NuvDeviceChecker* checker, NuvWatcher* watcher) {
    if (watcher == nullptr || m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    if (!m_mutex.Create())
        return NUV_ERR_GENERAL;
    if (NuvCallbackHandler::Create() != NUV_OK) {
        m_mutex.Destroy();
        return NUV_ERR_GENERAL;
    }
    m_pChecker = checker;
    m_pWatcher = watcher;
    const int result = t_CreateManager();
    if (result != NUV_OK || watcher->RegisterCallback(this) != NUV_OK) {
        if (result == NUV_OK)
            t_DestroyManager();
        m_pWatcher = nullptr;
        m_pChecker = nullptr;
        NuvCallbackHandler::Destroy();
        m_mutex.Destroy();
        return result != NUV_OK ? result : NUV_ERR_GENERAL;
    }
    return NUV_OK;
}

int NuvConnectionManager::Destroy() {
    if (!m_mutex.FlagCreate())
        return NUV_OK;
    // Waits for a candidate announcement in progress: afterwards no watcher pass reaches
    // this manager any more.
    m_pWatcher->UnregisterCallback(this);

    std::map<int, NuvConnector*> connectors;
    {
        NuvMutexGuard guard(m_mutex);
        connectors.swap(m_mapConnector);
    }
    for (auto& entry : connectors) {
        // A device manager still registered lets go of its devices first.
        ExecuteCallback(NUV_EVENT_CONNECTOR_REMOVED, entry.second, nullptr, nullptr);
        entry.second->Destroy();
        delete entry.second;
    }

    t_DestroyManager();
    NuvCallbackHandler::Destroy();
    m_mutex.Destroy();
    return NUV_OK;
}

int NuvConnectionManager::t_OnCallback(int event, void* arg1, void* arg2, void* arg3) {
    switch (event) {
    case NUV_EVENT_CANDIDATE_ADDED:
        if (arg1 != nullptr)
            m_AddCandidate(static_cast<_NuvDetailDevInfo*>(arg1));
        return NUV_OK;
    case NUV_EVENT_CANDIDATE_REMOVED:
        if (arg1 != nullptr)
            m_RemoveCandidate(static_cast<_NuvDetailDevInfo*>(arg1));
        return NUV_OK;
    default:
        return t_ProcessPrivateEvent(event, arg1, arg2, arg3);
    }
}

void NuvConnectionManager::m_AddCandidate(_NuvDetailDevInfo* info) {
    if (m_pChecker != nullptr) {
        const int verdict = m_pChecker->t_CheckDevice(info);
        if (verdict != NUV_OK && verdict != NUV_ERR_NOT_IMPLEMENTED) {
            print_dlog(NUV_LOG_TRACE, "\n[NuvConnectionManager] candidate %.256s refused (%d)\n",
                       info->devInfo.UID, verdict);
            return;
        }
    }
    NuvConnector* connector = t_NewConnector(info);
    if (connector == nullptr)
        return;
    connector->Create();

    {
        NuvMutexGuard guard(m_mutex);
        m_mapConnector[m_nNextConnectorID++] = connector;
    }
    ExecuteCallback(NUV_EVENT_CONNECTOR_ADDED, connector, nullptr, nullptr);
}

void NuvConnectionManager::m_RemoveCandidate(_NuvDetailDevInfo* info) {
    NuvConnector* connector = nullptr;
    {
        NuvMutexGuard guard(m_mutex);
        for (auto it = m_mapConnector.begin(); it != m_mapConnector.end(); ++it) {
            if (strncmp(it->second->GetDevInfo().UID, info->devInfo.UID,
                        sizeof(info->devInfo.UID)) == 0) {
                connector = it->second;
                m_mapConnector.erase(it);
                break;
            }
        }
    }
    if (connector == nullptr)
        return;
    ExecuteCallback(NUV_EVENT_CONNECTOR_REMOVED, connector, nullptr, nullptr);
    connector->Destroy();
    delete connector;
}

NuvConnector* NuvConnectionManager::FindConnector(int type, const char* name) {
    return m_Find(type, name, false);
}

NuvConnector* NuvConnectionManager::FindConnectorByUID(int type, const char* uid) {
    return m_Find(type, uid, true);
}

NuvConnector* NuvConnectionManager::m_Find(int type, const char* text, bool byUID) {
    if (text == nullptr || !m_mutex.FlagCreate())
        return nullptr;
    NuvMutexGuard guard(m_mutex);
    for (auto& entry : m_mapConnector) {
        const _NuvDevInfo& info = entry.second->GetDevInfo();
        const char* field = byUID ? info.UID : info.deviceName;
        if (info.type == type && strncmp(field, text, sizeof(info.UID)) == 0)
            return entry.second;
    }
    return nullptr;
}

NuvConnector* NuvConnectionManager::ConnectorAt(int type, int index, _NuvDevInfo* info) {
    if (index < 0 || !m_mutex.FlagCreate())
        return nullptr;
    NuvMutexGuard guard(m_mutex);
    int seen = 0;
    for (auto& entry : m_mapConnector) {
        if (entry.second->GetDevInfo().type != type)
            continue;
        if (seen++ == index) {
            if (info != nullptr)
                memcpy(info, &entry.second->GetDevInfo(), sizeof(*info));
            return entry.second;
        }
    }
    return nullptr;
}
