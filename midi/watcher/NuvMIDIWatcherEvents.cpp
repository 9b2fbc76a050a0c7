// Reading the watcher's sequencer client: incoming MIDI becomes _MIDIMessage records for
// the fan-out, client starts and exits add and remove candidates, and the synthesizer's
// own client start links the watcher's sending port to it.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "NuvLog"
#include "NuvMIDIHandles.h"
#include "NuvMIDIWatcher.h"
#include "NuvMIDIWatcherNames.h"

void NuvMIDIWatcher::m_MIDIProcess() {
    snd_seq_t* seq = m_seqSynth != nullptr ? m_seqSynth->Seq() : nullptr;
    if (seq == nullptr || !m_DecidePendingStarts())
        return;

    // One record serves every event of this call; note events leave the bytes after
    // duration as the previous event left them.
    _MIDIMessage message;
    memset(&message, 0, sizeof(message));

    for (bool first = true;; first = false) {
        // Once the events that the last read brought in are handled the pass ends: poll()
        // tells of more in the kernel, and a read that finds nothing is a system call per
        // event when they come one at a time.
        if (!first && snd_seq_event_input_pending(seq, 0) == 0)
            return;
        snd_seq_event_t* ev = nullptr;
        // Non-blocking: a negative result means that nothing is waiting, or that the input
        // pool overflowed and the kernel dropped what was waiting, which the host is told.
        const int got = snd_seq_event_input(seq, &ev);
        if (got == -ENOSPC)
            print_dlog(NUV_LOG_INFO, "\n[NuvMIDIWatcher::m_MIDIProcess] input overflowed: the "
                                     "sequencer dropped the events waiting to be read\n");
        if (got <= 0 || ev == nullptr)
            return;

        // Any client may write to the watcher's ports, but only the kernel's system client
        // announces client starts and exits: a forged announcement would add a made-up
        // candidate or drop a connected keyboard, so it falls through to the unhandled line.
        const bool forgedAnnouncement =
            (ev->type == SND_SEQ_EVENT_CLIENT_START || ev->type == SND_SEQ_EVENT_CLIENT_EXIT) &&
            ev->source.client != SND_SEQ_CLIENT_SYSTEM;
        switch (forgedAnnouncement ? static_cast<int>(SND_SEQ_EVENT_NONE)
                                   : static_cast<int>(ev->type)) {
        case SND_SEQ_EVENT_NOTEON:
        case SND_SEQ_EVENT_NOTEOFF:
            message.channel = ev->data.note.channel;
            message.param = ev->data.note.note;
            message.value = ev->data.note.velocity;
            message.duration = static_cast<int32_t>(ev->data.note.duration);
            OnMIDIEvent(ev->source.client, MIDIEventCode(ev->type), message);
            break;
        case SND_SEQ_EVENT_CONTROLLER:
        case SND_SEQ_EVENT_PGMCHANGE:
        case SND_SEQ_EVENT_CHANPRESS:
        case SND_SEQ_EVENT_PITCHBEND:
            print_dlog(NUV_LOG_TRACE,
                       "\n[NuvMIDIWatcher::m_MIDIProcess] [%d] EventType: [%d] Parameter: [%d] "
                       "Channel [%d] Value [%d]\n",
                       static_cast<int>(ev->time.tick), static_cast<int>(ev->type),
                       static_cast<int>(ev->data.control.param),
                       static_cast<int>(ev->data.control.channel), ev->data.control.value);
            message.channel = ev->data.control.channel;
            message.param = static_cast<int32_t>(ev->data.control.param);
            message.value = ev->data.control.value;
            memset(message.text, 0, sizeof(message.text));
            OnMIDIEvent(ev->source.client, MIDIEventCode(ev->type), message);
            break;
        case SND_SEQ_EVENT_CLIENT_START:
            if (!m_OnClientStart(ev->data.addr.client, ev->data.addr.port, true))
                return;
            break;
        case SND_SEQ_EVENT_CLIENT_EXIT:
            m_OnClientExit(ev);
            break;
        default:
            print_dlog(NUV_LOG_INFO,
                       "\n[NuvMIDIWatcher::m_MIDIProcess] unhandled event [%d] received\n",
                       static_cast<int>(ev->type));
            break;
        }
    }
}

// Set-aside client starts whose grace has run out are decided now, in the order they were
// read; one that still carries the sequencer's placeholder "Client-<number>" (a busy
// machine can keep a client from naming itself for a while) or has no port yet gets up to
// kNamingLimit.
// False when one of them ends the reading of this pass.
bool NuvMIDIWatcher::m_DecidePendingStarts() {
    if (m_pendingStarts.empty())
        return true; // without a clock read: in an emulated machine that is a system call
    const auto now = std::chrono::steady_clock::now();
    for (size_t i = 0; i < m_pendingStarts.size();) {
        const PendingStart start = m_pendingStarts[i];
        const auto age = now - start.readAt;
        const bool unready =
            m_HasPlaceholderName(start.client) || !m_HasPort(start.client, start.port);
        if (age < kNamingGrace || (age < kNamingLimit && unready)) {
            ++i;
            continue;
        }
        m_pendingStarts.erase(m_pendingStarts.begin() + static_cast<long>(i));
        if (!m_OnClientStart(start.client, start.port, false))
            return false;
    }
    return true;
}

// Nothing but input wakes the watcher, except a client start set aside: the next pass
// comes when the first of them is due, and while one waits for its name (the sequencer
// announces no renaming) once per grace period until its limit. A pass that left events
// in the input buffer (a recorder's start ends the reading) has the next one come at
// once: poll() sees only what is still in the kernel.
unsigned long NuvMIDIWatcher::m_NextPassMs() const {
    snd_seq_t* seq = m_seqSynth != nullptr ? m_seqSynth->Seq() : nullptr;
    if (seq != nullptr && snd_seq_event_input_pending(seq, 0) > 0)
        return 1;
    if (m_pendingStarts.empty())
        return 0;
    using namespace std::chrono;
    const auto now = steady_clock::now();
    nanoseconds next = kNamingGrace;
    for (const PendingStart& start : m_pendingStarts) {
        const nanoseconds due = start.readAt + kNamingGrace - now;
        if (due.count() > 0)
            next = std::min(next, due);
    }
    return static_cast<unsigned long>(ceil<milliseconds>(next).count());
}

bool NuvMIDIWatcher::m_HasPlaceholderName(int client) {
    NuvSeqClientInfo clientInfo = NuvNewClientInfo();
    if (!clientInfo || snd_seq_get_any_client_info(m_seqSynth->Seq(), client, clientInfo.get()) < 0)
        return false;
    const std::string placeholder = "Client-" + std::to_string(client);
    return placeholder == snd_seq_client_info_get_name(clientInfo.get());
}

bool NuvMIDIWatcher::m_HasPort(int client, int port) {
    NuvSeqPortInfo portInfo = NuvNewPortInfo();
    return portInfo &&
           snd_seq_get_any_port_info(m_seqSynth->Seq(), client, port, portInfo.get()) == 0;
}

bool NuvMIDIWatcher::m_OnClientStart(int client, int port, bool mayWait) {
    // A client that cannot be read keeps the empty name of a fresh information object.
    NuvSeqClientInfo clientInfo = NuvNewClientInfo();
    const char* name = "";
    if (clientInfo) {
        snd_seq_get_any_client_info(m_seqSynth->Seq(), client, clientInfo.get());
        name = snd_seq_client_info_get_name(clientInfo.get());
    }
    // Probably not named yet, or without its port yet: decided later, as if read then (see
    // PendingStart).
    const bool unnamed = strstr(name, "Client") != nullptr && strstr(name, "Recorder") == nullptr;
    if (mayWait && (unnamed || !m_HasPort(client, port))) {
        m_pendingStarts.push_back({client, port, std::chrono::steady_clock::now()});
        return true;
    }

    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_MIDIProcess] Client connect Event\n");
    print_dlog(NUV_LOG_TRACE,
               "\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [%d], port [%d], name "
               "[%s] connected\n",
               client, port, name);

    // Recording clients, and user clients that have not named themselves yet (the
    // sequencer calls them "Client-<number>"), are not devices.
    if (strstr(name, "Recorder") != nullptr || strstr(name, "Client") != nullptr) {
        print_dlog(NUV_LOG_TRACE, "%s\n",
                   "\n[NuvMIDIWatcher::m_MIDIProcess] MIDIRecorder, so nothing to do\n");
        return false;
    }

    _MIDIClientInfo info{};
    info.client = client;
    info.port = port;
    if (strstr(name, kSynthNamePart) != nullptr) {
        print_dlog(NUV_LOG_TRACE, "%s\n",
                   "\n[NuvMIDIWatcher::m_MIDIProcess] Connect watcher and synthesizer\n");
        info.isSynth = 1;
        m_synthClient = client;
        m_flagSynthConnected = 1;
        m_synthPort = port;
        // What connectors send reaches the synthesizer through this subscription; a failed
        // link is not reported: the synthesizer then hears nothing from the sending port.
        m_seqSynth->Feed(client, port);
    }
    m_AddDevice(info);
    return true;
}

void NuvMIDIWatcher::m_OnClientExit(const snd_seq_event_t* ev) {
    print_dlog(NUV_LOG_TRACE, "%s\n",
               "\n[NuvMIDIWatcher::m_MIDIProcess] Sequencer Disconnect Event\n");
    print_dlog(NUV_LOG_TRACE,
               "\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [%d], port number [%d] "
               "disconnected\n",
               ev->data.addr.client, ev->data.addr.port);
    // A client that leaves before its start was decided never becomes a candidate.
    const int client = ev->data.addr.client;
    m_pendingStarts.erase(
        std::remove_if(m_pendingStarts.begin(), m_pendingStarts.end(),
                       [client](const PendingStart& start) { return start.client == client; }),
        m_pendingStarts.end());
    char key[8];
    snprintf(key, sizeof(key), "%d", ev->data.addr.client);
    t_DeleteCandidate(key);
}
