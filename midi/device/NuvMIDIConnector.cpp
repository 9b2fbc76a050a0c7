// Life cycle of a MIDI connector and the relay of its device's incoming MIDI.
#include "NuvMIDIConnector.h"

#include <alsa/asoundlib.h>
#include <errno.h>
#include <string.h>

#include "NuvLog"
#include "NuvMIDIWatcher.h"

NuvMIDIConnector::NuvMIDIConnector(_NuvDetailDevInfo* info, NuvMIDIWatcher* watcher,
                                   NuvMIDISeqSynth* seqSynth)
    : NuvConnector(info), m_pWatcher(watcher), m_pSeqSynth(seqSynth), m_pMIDICallback(nullptr) {
    m_nConnectorType = 9;
}

// The connector owns nothing: the client information belongs to the candidate.
NuvMIDIConnector::~NuvMIDIConnector() {}

int NuvMIDIConnector::Create() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Create] Enter -\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Create] Exit\n");
    return 0;
}

void NuvMIDIConnector::Destroy() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Destroy] Enter\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Destroy] EXit\n");
}

int NuvMIDIConnector::Open() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Open] Enter\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Open] EXit\n");
    return 0;
}

void NuvMIDIConnector::Close() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Close] Enter\n");
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::Close] EXit\n");
}

_MIDIClientInfo* NuvMIDIConnector::m_RequireClientInfo(const char* operation) const {
    _MIDIClientInfo* info = m_ClientInfo();
    if (info == nullptr)
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIConnector::%s] No MIDI client information\n",
                   operation);
    return info;
}

void NuvMIDIConnector::GetClientInformation(_MIDIClientInfo* out) {
    const _MIDIClientInfo* info = m_RequireClientInfo("GetClientInformation");
    if (info == nullptr) {
        memset(out, 0, sizeof(*out));
        return;
    }
    *out = *info;
}

std::recursive_mutex& NuvMIDIConnector::RelayLock() {
    return m_pWatcher != nullptr ? m_pWatcher->FanOutLock() : m_relayLock;
}

// The connector stands once in the watcher's list of its client, whatever the number of
// registrations, and relays to the callback registered last.
int NuvMIDIConnector::RegisterMIDICallback(NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::RegisterMIDICallback]\n");
    const _MIDIClientInfo* info = m_RequireClientInfo("RegisterMIDICallback");
    if (info == nullptr)
        return 1; // without a client number no event could ever be recognised as ours
    {
        std::lock_guard<std::recursive_mutex> lock(RelayLock());
        // Set before the watcher can hand over the first event, so that a listed
        // connector always has somewhere to relay to.
        m_pMIDICallback.store(callback);
        if (m_pWatcher != nullptr)
            m_pWatcher->RegisterMIDICallback(info->client, this);
    }
    // The subscription outlives the registration (see UnregisterMIDICallback), so a
    // repeated one finds it in place and the sequencer answers EBUSY.
    if (m_pSeqSynth != nullptr) {
        const int err = m_pSeqSynth->Listen(info->client, info->port);
        if (err < 0 && err != -EBUSY && err != -ENODEV)
            print_dlog(NUV_LOG_INFO,
                       "\n[NuvMIDIConnector::RegisterMIDICallback] no subscription to %d:%d "
                       "(%s): its events cannot arrive\n",
                       info->client, info->port, snd_strerror(err));
    }
    return 1;
}

// Only the callback that is registered now is let go: a device destroyed late must not
// cut off the device that has been created on this connector since.
int NuvMIDIConnector::UnregisterMIDICallback(NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::UnregisterMIDICallback]\n");
    // Once the watcher has let go of this connector it is no longer inside a relay (its
    // fan-out holds this lock while it calls), so the callback can be forgotten safely.
    // The sequencer subscription stays: the device may be registered again.
    std::lock_guard<std::recursive_mutex> lock(RelayLock());
    if (callback == nullptr || m_pMIDICallback.load() != callback)
        return 0;
    const _MIDIClientInfo* info = m_ClientInfo();
    if (m_pWatcher != nullptr && info != nullptr)
        m_pWatcher->UnregisterMIDICallback(info->client, this);
    m_pMIDICallback.store(nullptr);
    return 1;
}

int NuvMIDIConnector::OnMIDIEvent(int client, int code, _MIDIMessage& msg) {
    const _MIDIClientInfo* info = m_ClientInfo();
    if (info == nullptr || client != info->client)
        return 0; // the watcher hands over its own client's events only; kept as a guard
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::OnMIDIEvent]Sent message to device\n");
    // Set whenever the connector is listed; both change under the lock this call runs in.
    NuvMIDICallback* callback = m_pMIDICallback.load();
    if (callback != nullptr)
        callback->OnMIDIEvent(client, code, msg);
    return 0;
}
