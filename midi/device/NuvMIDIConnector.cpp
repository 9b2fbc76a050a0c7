// Life cycle of a MIDI connector and the relay of its device's incoming MIDI.
#include "NuvMIDIConnector.h"

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

int NuvMIDIConnector::RegisterMIDICallback(NuvMIDICallback* callback) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::RegisterMIDICallback]\n");
    const _MIDIClientInfo* info = m_RequireClientInfo("RegisterMIDICallback");
    if (info == nullptr)
        return 1; // without a client number no event could ever be recognised as ours
    // Set before the watcher can offer the first event, so that a listed connector
    // always has somewhere to relay to.
    m_pMIDICallback.store(callback);
    if (m_pWatcher != nullptr)
        m_pWatcher->RegisterMIDICallback(this);
    // A repeated registration subscribes the same pair again; the sequencer refuses it
    // and the existing subscription is what matters.
    if (m_pSeqSynth != nullptr)
        m_pSeqSynth->Listen(info->client, info->port);
    return 1;
}

int NuvMIDIConnector::UnregisterMIDICallback(NuvMIDICallback*) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::UnregisterMIDICallback]\n");
    // Once the watcher has let go of this connector it is no longer inside a relay (its
    // fan-out holds its lock while it calls), so the callback can be forgotten safely.
    // The sequencer subscription stays: other callbacks of the watcher may want the
    // device's events.
    if (m_pWatcher != nullptr)
        m_pWatcher->UnregisterMIDICallback(this);
    m_pMIDICallback.store(nullptr);
    return 1;
}

int NuvMIDIConnector::OnMIDIEvent(int client, int code, _MIDIMessage& msg) {
    const _MIDIClientInfo* info = m_ClientInfo();
    if (info == nullptr || client != info->client)
        return 0; // another device's event: the watcher offers every event to everyone
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::OnMIDIEvent]Sent message to device\n");
    // Null only while a registration and an unregistration on two host threads cross.
    NuvMIDICallback* callback = m_pMIDICallback.load();
    if (callback != nullptr)
        callback->OnMIDIEvent(client, code, msg);
    return 0;
}
