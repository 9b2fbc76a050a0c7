// Names and fixed texts that the watcher's files share: the sequencer names it answers to
// or looks for, and the fixed fields of a MIDI candidate.
#ifndef NUV_MIDI_WATCHER_NAMES_H
#define NUV_MIDI_WATCHER_NAMES_H

// The watcher's own sequencer client.
const char kWatcherClientName[] = "MIDI Watcher";
// A recording client of the platform, never offered as a device.
const char kRecorderClientName[] = "MIDIRecorder";
// FluidSynth's ALSA sequencer MIDI driver names its client with this text.
const char kSynthNamePart[] = "FLUID";

// Fixed fields of every MIDI candidate record.
const char kDeviceHandlePath[] = "MIDIDeviceHandle";
const char kDeviceIdText[] = "0123456";
static_assert(sizeof(kDeviceIdText) == 8, "vendor and product ids fill their 8 bytes");

#endif
