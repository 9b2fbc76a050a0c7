// The plug-in's three exported entry functions; everything else of the library is hidden.
#include "NuvMIDI.h"
#include "NuvMIDIEntry.h"

#define NUV_EXPORT __attribute__((visibility("default")))

extern "C" {

NUV_EXPORT int NuvMIDI_Create(void) { return NuvMIDIEntry::GetInstance() != nullptr ? 1 : 0; }

NUV_EXPORT INuvMIDIDeviceManager* NuvMIDI_GetDeviceManager(void) {
    return NuvMIDIEntry::GetDeviceManagerInstance();
}

NUV_EXPORT void NuvMIDI_Destroy(void) { NuvMIDIEntry::DeleteInstance(); }
}
