// Hands every incoming MIDI message to the registered callbacks, in registration order.
//
// The list's lock is held for a whole walk, so a callback removed by another thread is
// never called once its removal has returned. The walk's own thread may change the list
// from inside a callback (the lock is recursive): removals then leave a null entry that
// the walk skips and the outermost walk erases at its end, so no walk stands on a freed
// node; callbacks added during a walk wait for the next message.
#include <algorithm>

#include "NuvLog"
#include "NuvMIDIWatcher.h"

int NuvMIDIWatcher::RegisterMIDICallback(NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::RegisterMIDICallback]\n");
    if (callback == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIWatcher::RegisterMIDICallback] null callback ignored\n");
        return 1;
    }
    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    m_callbackList.push_back(callback);
    return 1;
}

int NuvMIDIWatcher::UnregisterMIDICallback(NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::UnregisterMIDICallback]\n");
    if (callback == nullptr)
        return 0;
    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    if (std::find(m_callbackList.begin(), m_callbackList.end(), callback) == m_callbackList.end())
        return 0;
    if (m_nWalkDepth > 0) {
        std::replace(m_callbackList.begin(), m_callbackList.end(), callback,
                     static_cast<NuvMIDICallback*>(nullptr));
        m_bRemovedDuringWalk = true;
    } else {
        m_callbackList.remove(callback);
    }
    return 1;
}

int NuvMIDIWatcher::OnMIDIEvent(int client, int code, _MIDIMessage& msg) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::OnMIDIEvent]\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::OnMIDIEvent]\n");

    std::lock_guard<std::recursive_mutex> lock(m_fanOutLock);
    const bool empty = std::all_of(m_callbackList.begin(), m_callbackList.end(),
                                   [](NuvMIDICallback* entry) { return entry == nullptr; });
    if (empty) {
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIWatcher::OnMIDIEvent] device doesn't exist\n");
        return 0;
    }

    // Nodes are not erased while a walk runs, so the first `count` nodes stay the same.
    ++m_nWalkDepth;
    size_t count = m_callbackList.size();
    for (auto it = m_callbackList.begin(); count > 0; ++it, --count) {
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
    if (--m_nWalkDepth == 0 && m_bRemovedDuringWalk) {
        m_callbackList.remove(nullptr);
        m_bRemovedDuringWalk = false;
    }
}
