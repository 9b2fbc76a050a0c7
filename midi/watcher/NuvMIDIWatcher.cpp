// The watcher's life cycle and its share of every enumeration pass.
#include "NuvMIDIWatcher.h"

#include <string.h>

#include "NuvLog"
#include "NuvMIDILogRouting.h"
#include "NuvMIDIRealtime.h"
#include "NuvMIDIRecordLayout.h"
#include "NuvResult"

namespace {
// The MIDI watcher and connector carry the bit position of the MIDI device-type code.
const int kMIDIWatcherType = 9;

// Incoming MIDI is read at real-time priority where the system allows it: the kernel drops
// everything waiting for the watcher when its input pool overflows, so the watcher must run
// as soon as input waits, not when a busy sender leaves it the processor.
void RaiseToRealtime() {
    const int err = NuvMIDIRaiseToRealtime(kNuvMIDIInputPriority);
    if (err != 0)
        print_dlog(NUV_LOG_INFO,
                   "\n[NuvMIDIWatcher] no real-time priority (%s): input is read at normal "
                   "priority\n",
                   strerror(err));
}
} // namespace

NuvMIDIWatcher::NuvMIDIWatcher()
    : m_flagSynthConnected(0), m_synthClient(0), m_synthPort(0), m_nWalkDepth(0),
      m_bRemovedDuringWalk(false), m_bRealtimeTried(false) {
    m_nWatcherType = kMIDIWatcherType;
}

// The sequencer client and the synthesizer are Destroy's to release; a watcher whose
// Create failed holds neither.
NuvMIDIWatcher::~NuvMIDIWatcher() {}

int NuvMIDIWatcher::Create() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::Create] \n");
    NuvMIDIRouteLibraryLogs();
    m_seqSynth.reset(new NuvMIDISeqSynth());
    if (m_CreateSequencer() != 0) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIWatcher::Create] Sequencer creation failed\n");
        m_Release();
        return NUV_ERR_GENERAL;
    }
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_CreateSynthesizer]\n");
    if (m_seqSynth->CreateSynthesizer() != 0) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIWatcher::Create] Synthesizer creation failed\n");
        m_Release();
        return NUV_ERR_GENERAL;
    }
    // Passes run when the sequencer has input waiting, with no timer (see m_NextPassMs).
    SetPeriod(0);
    const int result = NuvWatcher::Create();
    if (result != 0)
        m_Release(); // a failed Create leaves nothing for its owner to release
    return result;
}

int NuvMIDIWatcher::Destroy() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::Destroy] \n");
    // The framework thread must be gone before the handles that its passes use: Stop
    // lets a pass in progress finish and starts no other.
    NuvWatcher::Stop();
    m_Release();
    return NuvWatcher::Destroy();
}

void NuvMIDIWatcher::m_Release() {
    t_SetWakeDescriptors(nullptr, 0);
    m_seqSynth.reset();
}

void NuvMIDIWatcher::t_ExtraEnumerate() {
    if (!m_bRealtimeTried) {
        m_bRealtimeTried = true;
        RaiseToRealtime();
    }
    m_MIDIProcess();
    if (m_flagSynthConnected != 0) {
        // The synthesizer's client has just started: its number and port are known now,
        // so the clients that were there before go in with them.
        m_AddExistingDevices();
        m_flagSynthConnected = 0;
        if (snd_seq_nonblock(m_seqSynth->Seq(), 1) < 0) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIWatcher::m_CreateSequencer] Could not block sequencer\n");
            return;
        }
    }
    m_CheckDevices();
    SetPeriod(m_NextPassMs());
}

// Only the watcher thread changes the candidate map while it runs, so its own pass may
// walk the map without the map's lock.
void NuvMIDIWatcher::m_CheckDevices() {
    for (m_itCandidate = m_mapCandidate.begin(); m_itCandidate != m_mapCandidate.end();
         ++m_itCandidate) {
        if (m_itCandidate->second != nullptr)
            m_itCandidate->second->alive = 1;
    }
}

void NuvMIDIWatcher::t_DeleteExtraInfo(_NuvDetailDevInfo* info) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n [NuvMIDIWatcher::t_DeleteExtraInfo]\n");
    if (info == nullptr || info->pExtraInfo == nullptr)
        return;
    delete static_cast<_MIDIClientInfo*>(info->pExtraInfo);
    info->pExtraInfo = nullptr;
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIWatcher::t_DeleteExtraInfo] pExtraInfo deleted\n");
}
