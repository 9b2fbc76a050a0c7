// The library's watcher: the ALSA sequencer client "MIDI Watcher", discovery of the other
// sequencer clients as device candidates, the per-pass reading of sequencer events, the
// FluidSynth synthesizer and the fan-out of incoming MIDI to registered callbacks.
//
// Threads: Create and Destroy run on the entry's thread; t_ExtraEnumerate and everything
// it calls run on the framework's watcher thread, which also calls every MIDI callback.
// Destroy stops that thread before it releases the sequencer client and the synthesizer
// (NuvMIDISeqSynth.h says who else may use them, and how).
#ifndef NUV_MIDI_WATCHER_H
#define NUV_MIDI_WATCHER_H

#include <alsa/asoundlib.h>

#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "NuvMIDICallback.h"
#include "NuvMIDISeqSynth.h"
#include "NuvMIDITypes.h"
#include "NuvWatcher"

class NuvMIDIWatcher : public NuvWatcher, public NuvMIDICallback {
public:
    NuvMIDIWatcher();
    virtual ~NuvMIDIWatcher();

    virtual int Destroy();
    virtual int Create();
    virtual void t_ExtraEnumerate();
    virtual void t_DeleteExtraInfo(_NuvDetailDevInfo* info);
    virtual int OnMIDIEvent(int client, int code, _MIDIMessage& msg);

    // Fan-out of incoming MIDI, safe from any thread and from inside a callback. A
    // callback is registered for one sending client and receives that client's events
    // only, once each however often it was registered. Registration refuses null (and
    // still answers 1). UnregisterMIDICallback answers 0 when the callback was not
    // registered for that client. Once it has returned on another thread, that callback
    // is not called again; from inside a callback it takes effect for the rest of the
    // walk in progress.
    // A callback runs with FanOutLock() held: it must not wait for a thread that may be
    // registering or unregistering at that moment.
    int RegisterMIDICallback(int client, NuvMIDICallback* callback);
    int UnregisterMIDICallback(int client, NuvMIDICallback* callback);
    // Held while the lists change and during a whole walk; recursive, so a callback may
    // take it again. A connector and its device hold it to change what they relay to
    // without racing a walk.
    std::recursive_mutex& FanOutLock() { return m_fanOutLock; }

    // The sequencer client and the synthesizer, from a successful Create until Destroy.
    NuvMIDISeqSynth* SeqSynth() const { return m_seqSynth.get(); }

private:
    int m_CreateSequencer();
    void m_Release();
    void m_AddExistingDevices();
    int m_AddDevice(_MIDIClientInfo info);
    void m_CheckDevices();
    void m_MIDIProcess();

    // Event processing helpers. m_OnClientStart answers false when the rest of the
    // waiting events are left for the next pass; with mayWait it may set the start aside
    // instead (see PendingStart).
    bool m_OnClientStart(int client, int port, bool mayWait);
    bool m_DecidePendingStarts();
    unsigned long m_NextPassMs() const;
    bool m_HasPlaceholderName(int client);
    bool m_HasPort(int client, int port);
    void m_OnClientExit(const snd_seq_event_t* ev);
    void m_EndWalk();

    int m_flagSynthConnected;
    int m_synthClient;
    int m_synthPort;
    std::unique_ptr<NuvMIDISeqSynth> m_seqSynth;

    // A client start read while the client was still unnamed (the sequencer's placeholder)
    // or had not made its announced port yet. Passes start as soon as input waits, so the
    // announcement of a new client is often read before the client has named itself, and
    // a kernel client (a USB keyboard's) announces itself before its port exists: a device
    // offered then could not be subscribed to. It is decided by a pass kNamingGrace later
    // (the one timer the watcher sets, see m_NextPassMs), and waits for the name and the
    // port up to kNamingLimit. Only the watcher thread uses the list.
    struct PendingStart {
        int client;
        int port;
        std::chrono::steady_clock::time_point readAt;
    };
    static constexpr std::chrono::milliseconds kNamingGrace{25};
    static constexpr std::chrono::milliseconds kNamingLimit{1000};
    std::vector<PendingStart> m_pendingStarts;
    // The callbacks of each sending client, in registration order: an event is handed to
    // its own client's callbacks only, whatever the number of devices. A null entry is a
    // callback removed during a walk: the walk skips it and the outermost walk erases it
    // when it ends.
    std::unordered_map<int, std::list<NuvMIDICallback*>> m_callbacksByClient;

    std::recursive_mutex m_fanOutLock; // guards m_callbacksByClient and the two fields below
    int m_nWalkDepth;                  // nesting depth of the walk in progress
    bool m_bRemovedDuringWalk;
    bool m_bRealtimeTried; // the watcher thread's own: its priority is raised once
};

#endif
