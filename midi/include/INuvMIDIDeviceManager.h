// The host's view of the MIDI device manager, from NuvMIDI_GetDeviceManager(). The slot
// order is fixed: hosts are built against it. Every call may come from any host thread;
// results of 0 mean success unless said otherwise (codes in NuvResult).
//
// Discovery is asynchronous: right after NuvMIDI_Create the device list may be empty. The
// synthesizer and the clients already present arrive within a second or so, later ones
// when they appear; each arrival and departure reaches the callbacks registered here
// (RegisterCallback, inherited from INuvDeviceManager) with
//   event NUV_EVENT_DEVICE_ATTACHED or NUV_EVENT_DEVICE_DETACHED (NuvResult),
//   arg1  const _NuvDevInfo* of the device (isSynth 1 for the synthesizer),
//   arg2  const int* of its device id when the host created it, else null,
//   arg3  null;
// both pointers are valid only during the call, which runs on the library's watcher thread.
#ifndef NUV_INUVMIDIDEVICEMANAGER_H
#define NUV_INUVMIDIDEVICEMANAGER_H

#include <string>

#include "INuvDeviceManager"
#include "INuvMIDIDevice.h"
#include "NuvMIDITypes.h"

class INuvMIDIDeviceManager : public INuvDeviceManager {
public:
    virtual ~INuvMIDIDeviceManager() {}
    // The device object for the first connected device of that name, or, when no device has
    // that name, for the device whose UID is that text (devices of one product share a name:
    // see NuvMIDI.h); an existing one is returned again; null when there is none. It stays
    // valid until DestroyDevice or the device's departure.
    virtual INuvMIDIDevice* CreateDevice(const char* name) = 0;
    // The device of that id, or null. The first call that finds a device starts the
    // renderer, which writes the synthesizer's sound to the audio output from then on.
    virtual INuvMIDIDevice* GetDevice(int id) = 0;
    // Deletes the device object: 0, or 9999 for an unknown id.
    virtual int DestroyDevice(int id) = 0;
    // Routes device src's MIDI to device dst in the sequencer (ends of type
    // MIDI_DEVICE_TYPE_SOURCE and _DESTINATION, by id), or plays the standard MIDI file whose
    // path is the name of a src of type MIDI_DEVICE_TYPE_FILE on the synthesizer dst, on a
    // thread of its own. 1 when started (also while another file plays: that one goes on),
    // 2 when the route exists already, 0 when refused. A route ends with either device's
    // departure.
    virtual int StartStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    // Removes that route, or stops the file: 0; 1 when no file plays; 9901 for ends of the
    // wrong type; 9999 when a device is unknown or there was no such route.
    virtual int StopStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    // Not implemented: always 9900.
    virtual int PauseStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    // 2 while a file plays; 1 before any, after StopStream, and from the file's last event
    // on (its last notes may still ring out; a next start cuts them).
    virtual int GetFilePlayStatus() = 0;
    // Kept for the next renderer that starts; the library interprets none of it. Returns 1.
    virtual int SetAppInfo(int appInfo1, int appInfo2, std::string text) = 0;
};

#endif
