// Everything a host needs to use the MIDI plug-in libNuvMIDI.so.
//
//   if (NuvMIDI_Create()) {
//       INuvMIDIDeviceManager* manager = NuvMIDI_GetDeviceManager();
//       ...
//       NuvMIDI_Destroy();
//   }
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
