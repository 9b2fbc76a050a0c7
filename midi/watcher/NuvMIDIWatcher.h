// The library's watcher: the ALSA sequencer client "MIDI Watcher", discovery of the other
// sequencer clients as device candidates, the per-pass reading of sequencer events, the
// FluidSynth synthesizer and the fan-out of incoming MIDI to registered callbacks.
#ifndef NUV_MIDI_WATCHER_H
#define NUV_MIDI_WATCHER_H

#include <alsa/asoundlib.h>
#include <fluidsynth.h>

#include <list>
#include <mutex>

#include "NuvMIDICallback.h"
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

    // Fan-out of incoming MIDI (safe from any thread, and from inside a callback).
    int RegisterMIDICallback(NuvMIDICallback* callback);
    int UnregisterMIDICallback(NuvMIDICallback* callback);

private:
    int m_CreateSequencer();
    void m_DestroySequencer();
    int m_CreateSynthesizer();
    void m_DestroySythesizer();
    void m_AddExistingDevices();
    int m_AddDevice(_MIDIClientInfo info);
    void m_CheckDevices();
    void m_MIDIProcess();

    int m_flagSynthConnected;
    int m_synthClient;
    int m_synthPort;
    fluid_settings_t* m_pSettings;
    fluid_synth_t* m_pSynthHandle;
    snd_seq_t* m_pSeqHandle;
    fluid_midi_driver_t* m_pMIDIDriver;
    std::list<NuvMIDICallback*> m_callbackList;
};

#endif
