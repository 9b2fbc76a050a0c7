// One detected MIDI device: sends messages through the watcher's sending port, queries
// the synthesizer, loads sound fonts, and relays the device's incoming MIDI to one
// callback (its device object).
#ifndef NUV_MIDI_CONNECTOR_H
#define NUV_MIDI_CONNECTOR_H

#include <atomic>
#include <mutex>
#include <string>

#include "NuvConnector"
#include "NuvMIDICallback.h"
#include "NuvMIDITypes.h"

class NuvMIDIWatcher;
class NuvMIDISeqSynth;

class NuvMIDIConnector : public NuvConnector, public NuvMIDICallback {
public:
    // Incoming MIDI comes through the watcher's fan-out; everything else goes through the
    // watcher's sequencer client and synthesizer. Either may be null in tests.
    NuvMIDIConnector(_NuvDetailDevInfo* info, NuvMIDIWatcher* watcher, NuvMIDISeqSynth* seqSynth);
    virtual ~NuvMIDIConnector();

    virtual int Create();
    virtual void Destroy();
    virtual int Open();
    virtual void Close();
    virtual int OnMIDIEvent(int client, int code, _MIDIMessage& msg);

    int SendMessage(MIDIEventType type, _MIDIMessage& msg);
    int GetInformation(MIDIEventType type, _MIDIMessage* msg);
    // Relays the device's incoming MIDI to `callback`; registers the connector with the
    // watcher for its client once, and subscribes the watcher to the device's port. 1.
    int RegisterMIDICallback(NuvMIDICallback* callback);
    // Stops relaying if `callback` is the one relayed to: 1; otherwise 0, nothing changes.
    int UnregisterMIDICallback(NuvMIDICallback* callback);
    // Held while relaying and while the relay changes (the watcher's fan-out lock):
    // recursive, and held by the event thread when it calls into the device.
    std::recursive_mutex& RelayLock();
    void GetClientInformation(_MIDIClientInfo* out);
    NuvMIDISeqSynth* SeqSynth() const { return m_pSeqSynth; }

    int LoadSoundFontFile(const std::string& path);
    int UnloadSoundFontFile(unsigned int fontId);
    std::string GetSoundFontIntruments(unsigned int fontId, unsigned int start, unsigned int count);

private:
    _MIDIClientInfo* m_ClientInfo() const { return static_cast<_MIDIClientInfo*>(m_pExtraInfo); }
    // The client information, or null after logging that `operation` has none to work on
    // (a candidate that another plug-in's watcher made).
    _MIDIClientInfo* m_RequireClientInfo(const char* operation) const;

    NuvMIDIWatcher* m_pWatcher;
    NuvMIDISeqSynth* m_pSeqSynth;
    std::atomic<NuvMIDICallback*> m_pMIDICallback;
    std::recursive_mutex m_relayLock; // stands in for the fan-out lock without a watcher
};

#endif
