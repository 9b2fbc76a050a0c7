// Everything a host needs to use the MIDI plug-in libNuvMIDI.so.
//
//   if (NuvMIDI_Create()) {
//       INuvMIDIDeviceManager* manager = NuvMIDI_GetDeviceManager();
//       ...
//       NuvMIDI_Destroy();
//   }
//
// Discovery is asynchronous: right after NuvMIDI_Create the device list may be empty; the
// synthesizer and the devices arrive through the manager's callbacks (see
// INuvMIDIDeviceManager.h), usually within a second. examples/play-note.cpp waits for the
// synthesizer that way.
//
// Callbacks: device arrivals and departures and every incoming MIDI message reach the host
// on the library's watcher thread, which asks for real-time priority (SCHED_FIFO 50) so
// that a burst of input is read before the kernel's pool for it fills up. A callback should
// return quickly and never wait for long: while it runs, no other input is read, and a
// callback that spins keeps normal threads of the process from running.
//
// A callback may call DestroyDevice and NuvMIDI_Destroy, also on what is calling it. Both
// return at once; no callback of what they destroyed runs after they return, and its memory
// is released by a thread of the library as soon as the callback has returned. NuvMIDI_Create
// and NuvMIDI_Destroy called outside a callback first wait for that release: call
// NuvMIDI_Destroy once more from the host's own thread before the process exits.
//
// Logging: the library's lines, FluidSynth's and ALSA's messages among them, go to standard
// error through the core's print_dlog (NuvLog). By default only failures that leave the
// library without a synthesizer are written. NUV_LOG_LEVEL in the environment raises or
// lowers that: 0 or none (nothing), 1 or assert, 2 or critical (the default), 3 or info
// (errors, lifecycle notices, every host call), 4 or trace (every event). A host may also
// call NuvLog_SetThreshold or install its own sink with NuvLog_SetSink.
//
// Devices: CreateDevice takes a name as GetConnectedDeviceInfo reports it and reaches the
// first connected device of that name. Keyboards of one product share a name (a USB keyboard
// is named after its product string), so CreateDevice also takes the UID text that
// GetConnectedDeviceInfo reports, whenever no device has that text as its name: that reaches
// any one of them. A UID is the keyboard's sequencer client number, which a keyboard plugged
// in again may get again; its device id is new every time. A departing device ends the
// streams from and to it.
#ifndef NUV_MIDI_H
#define NUV_MIDI_H

#include "INuvMIDIDevice.h"
#include "INuvMIDIDeviceManager.h"
#include "NuvCallback"
#include "NuvMIDITypes.h"

extern "C" {
// Creates the library once: 1 when it exists afterwards, 0 when it could not be created.
int NuvMIDI_Create(void);
// The device manager, or null before NuvMIDI_Create and after NuvMIDI_Destroy.
INuvMIDIDeviceManager* NuvMIDI_GetDeviceManager(void);
// Tears everything down; devices and the manager are invalid afterwards.
void NuvMIDI_Destroy(void);
}

#endif
