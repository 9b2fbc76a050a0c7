// MIDI records and event types that pass between the host, the framework core and the
// plug-in. Plain records with a fixed layout (see NuvMIDIRecordLayout.h).
#ifndef NUV_MIDI_TYPES_H
#define NUV_MIDI_TYPES_H

#include <stdint.h>

#include "NuvDevInfo"
#include "NuvResult"

// The library's own handles, as ALSA and FluidSynth declare them.
typedef struct _snd_seq snd_seq_t;
typedef struct _fluid_synth_t fluid_synth_t;

// Values are ALSA sequencer event types. Incoming MIDI carries the event code type + 10.
enum MIDIEventType : int32_t {
    MIDI_EVENT_NOTE_ON = 6,
    MIDI_EVENT_NOTE_OFF = 7,
    MIDI_EVENT_CONTROL_CHANGE = 10,
    MIDI_EVENT_PROGRAM_CHANGE = 11,
    MIDI_EVENT_CHANNEL_PRESSURE = 12,
    MIDI_EVENT_PITCH_BEND = 13,
};

// The event code that callbacks receive for an incoming sequencer event type.
inline int MIDIEventCode(int sequencerType) { return sequencerType + 10; }

// One MIDI message, 268 bytes. A note message uses duration; the answers of
// GetInformation and received control-type messages use text.
struct _MIDIMessage {
    int32_t channel; // 0
    int32_t param;   // 4: note, or controller number
    int32_t value;   // 8: velocity, controller value, program, pressure or bend
    union {
        int32_t duration; // 12: note events only
        char text[256];   // 12
    };
};

// The sequencer identity of one device with the watcher's shared handles.
struct _MIDIClientInfo {
    snd_seq_t* seq;        // the watcher's sequencer handle
    fluid_synth_t* synth;  // the watcher's synthesizer
    int32_t synthClient;   // the synthesizer's sequencer client, 0 until learnt
    int32_t synthPort;
    int32_t client;        // the device's sequencer client
    int32_t port;
    int32_t isSynth;       // 1 when the device is the software synthesizer itself
};

// The kind of a stream end.
enum MIDIDeviceType : int32_t {
    MIDI_DEVICE_TYPE_SOURCE = 0,
    MIDI_DEVICE_TYPE_DESTINATION = 1,
    MIDI_DEVICE_TYPE_FILE = 2,
};

// One end of a stream, supplied by the host.
struct _MIDIDeviceInfo {
    char name[256];         // 0: device name, or the path of a MIDI file
    uint8_t hostReserved[4]; // 256: the host's
    int32_t id;             // 260: the device id
    int32_t type;           // 264: a MIDIDeviceType
};

#endif
