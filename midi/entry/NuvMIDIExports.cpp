// The plug-in's three exported entry functions; beside them only the entry's three module
// operations are visible (NuvMIDI.map).
#include "NuvMIDI.h"
#include "NuvMIDIEntry.h"

extern "C" {

NUV_MIDI_EXPORT int NuvMIDI_Create(void) {
    return NuvMIDIEntry::GetInstance() != nullptr ? 1 : 0;
}

NUV_MIDI_EXPORT INuvMIDIDeviceManager* NuvMIDI_GetDeviceManager(void) {
    return NuvMIDIEntry::GetDeviceManagerInstance();
}

NUV_MIDI_EXPORT void NuvMIDI_Destroy(void) {
    NuvMIDIEntry::DeleteInstance();
}
}
