// The one operation through which incoming MIDI leaves the watcher, a connector and a
// device: the sending sequencer client, the event code (sequencer type + 10) and the
// message, which is valid only during the call.
#ifndef NUV_MIDI_CALLBACK_H
#define NUV_MIDI_CALLBACK_H

#include "NuvMIDITypes.h"

class NuvMIDICallback {
public:
    virtual ~NuvMIDICallback() {}
    virtual int OnMIDIEvent(int client, int code, _MIDIMessage& msg) = 0;
};

#endif
