// NuvCallbackHandler: the registry of callbacks, walked under its recursive mutex.
#include "NuvCallback"
#include "NuvResult"

NuvCallbackHandler::~NuvCallbackHandler() {}

int NuvCallbackHandler::Create() {
    if (m_mutex.FlagCreate())
        return NUV_OK;
    return m_mutex.Create() ? NUV_OK : NUV_ERR_GENERAL;
}

void NuvCallbackHandler::Destroy() {
    if (!m_mutex.FlagCreate()) {
        m_mapCallback.clear();
        return;
    }
    m_mutex.Lock();
    m_mapCallback.clear();
    m_mutex.Unlock();
    m_mutex.Destroy();
}

int NuvCallbackHandler::RegisterCallback(NuvCallback* callback) {
    if (callback == nullptr || !m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    NuvMutexGuard guard(m_mutex);
    m_mapCallback[reinterpret_cast<uintptr_t>(callback)] = callback;
    return NUV_OK;
}

int NuvCallbackHandler::UnregisterCallback(NuvCallback* callback) {
    if (callback == nullptr || !m_mutex.FlagCreate())
        return NUV_ERR_GENERAL;
    NuvMutexGuard guard(m_mutex);
    return m_mapCallback.erase(reinterpret_cast<uintptr_t>(callback)) == 1 ? NUV_OK
                                                                               : NUV_ERR_GENERAL;
}

void NuvCallbackHandler::ExecuteCallback(int event, void* arg1, void* arg2, void* arg3) {
    if (!m_mutex.FlagCreate())
        return;
    NuvMutexGuard guard(m_mutex);
    // The map may change during a call (the lock is recursive), so every step looks the
    // next key up afresh: a callback removed meanwhile is skipped, and no iterator is
    // held across a call.
    auto it = m_mapCallback.begin();
    while (it != m_mapCallback.end()) {
        const uintptr_t key = it->first;
        it->second->t_OnCallback(event, arg1, arg2, arg3);
        it = m_mapCallback.upper_bound(key);
    }
}
