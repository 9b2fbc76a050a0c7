// NuvCallbackHandler: the registry of callbacks, walked under its recursive mutex.
#include "NuvCallback"
#include "NuvResult"

namespace {
// Walks in progress on this thread, of any handler.
thread_local int t_callbackDepth = 0;
} // namespace

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
    if (m_bSilenced)
        return NUV_ERR_GENERAL;
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

bool NuvCallbackHandler::HasCallbacks() {
    if (!m_mutex.FlagCreate())
        return !m_mapCallback.empty();
    NuvMutexGuard guard(m_mutex);
    return !m_mapCallback.empty();
}

void NuvCallbackHandler::ExecuteCallback(int event, void* arg1, void* arg2, void* arg3) {
    if (!m_mutex.FlagCreate())
        return;
    NuvMutexGuard guard(m_mutex);
    ++t_callbackDepth;
    // The map may change during a call (the lock is recursive), so every step looks the
    // next key up afresh: a callback removed meanwhile is skipped, and no iterator is
    // held across a call.
    auto it = m_mapCallback.begin();
    while (it != m_mapCallback.end()) {
        const uintptr_t key = it->first;
        it->second->t_OnCallback(event, arg1, arg2, arg3);
        it = m_mapCallback.upper_bound(key);
    }
    --t_callbackDepth;
}

// Walks run on the watcher thread, where this is called from inside a callback: taking the
// recursive mutex there does not wait, and a host thread holds it only to change the map.
void NuvCallbackHandler::Silence() {
    if (!m_mutex.FlagCreate()) {
        m_bSilenced = true;
        m_mapCallback.clear();
        return;
    }
    NuvMutexGuard guard(m_mutex);
    m_bSilenced = true;
    m_mapCallback.clear();
}

bool NuvCallbackHandler::InCallback() {
    return t_callbackDepth > 0;
}
