// Hands every incoming MIDI message to the callbacks registered for its sending client, in
// registration order.
//
// Each client has a list of its own, so an event costs one look-up and the calls of its
// own callbacks, however many devices are listening. A callback stands at most once in a
// list. The lock is held for a whole walk, so a callback removed by another thread is
// never called once its removal has returned. The walk's own thread may change the lists
// from inside a callback (the lock is recursive): removals then leave a null entry that
// the walk skips and the outermost walk erases at its end, so no walk stands on a freed
// node; callbacks added during a walk wait for the next message. Lists are std::lists in
// an unordered_map: neither an insertion nor a new client moves a node that a walk holds.
#include <algorithm>

#include "NuvLog"
#include "NuvMIDIWatcher.h"

int NuvMIDIWatcher::RegisterMIDICallback(int client, NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::RegisterMIDICallback]\n");
    if (callback == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIWatcher::RegisterMIDICallback] null callback ignored\n");
        return 1;
    }
    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    std::list<NuvMIDICallback*>& callbacks = m_callbacksByClient[client];
    if (std::find(callbacks.begin(), callbacks.end(), callback) == callbacks.end())
        callbacks.push_back(callback);
    return 1;
}

int NuvMIDIWatcher::UnregisterMIDICallback(int client, NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::UnregisterMIDICallback]\n");
    if (callback == nullptr)
        return 0;
    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    const auto found = m_callbacksByClient.find(client);
    if (found == m_callbacksByClient.end())
        return 0;
    std::list<NuvMIDICallback*>& callbacks = found->second;
    const auto entry = std::find(callbacks.begin(), callbacks.end(), callback);
    if (entry == callbacks.end())
        return 0;
    if (m_nWalkDepth > 0) {
        *entry = nullptr;
        m_bRemovedDuringWalk = true;
    } else {
        callbacks.erase(entry);
        if (callbacks.empty())
            m_callbacksByClient.erase(found);
    }
    return 1;
}

int NuvMIDIWatcher::OnMIDIEvent(int client, int code, _MIDIMessage& msg) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::OnMIDIEvent]\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::OnMIDIEvent]\n");

    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    const auto found = m_callbacksByClient.find(client);
    if (found == m_callbacksByClient.end() ||
        std::all_of(found->second.begin(), found->second.end(),
                    [](NuvMIDICallback* entry) { return entry == nullptr; })) {
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIWatcher::OnMIDIEvent] device doesn't exist\n");
        return 0;
    }

    // Nodes are not erased while a walk runs, so the first `count` nodes stay the same.
    ++m_nWalkDepth;
    std::list<NuvMIDICallback*>& callbacks = found->second;
    size_t count = callbacks.size();
    for (auto it = callbacks.begin(); count > 0; ++it, --count) {
        NuvMIDICallback* callback = *it;
        if (callback == nullptr)
            continue;
        callback->OnMIDIEvent(client, code, msg);
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIWatcher::OnMIDIEvent] sent to connector\n");
    }
    m_EndWalk();
    return 1;
}

void NuvMIDIWatcher::m_EndWalk() {
    if (--m_nWalkDepth > 0 || !m_bRemovedDuringWalk)
        return;
    m_bRemovedDuringWalk = false;
    for (auto it = m_callbacksByClient.begin(); it != m_callbacksByClient.end();) {
        it->second.remove(nullptr);
        it = it->second.empty() ? m_callbacksByClient.erase(it) : std::next(it);
    }
}
