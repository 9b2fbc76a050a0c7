// The host's view of the MIDI device manager. The slot order is fixed: hosts are built
// against it.
#ifndef NUV_INUVMIDIDEVICEMANAGER_H
#define NUV_INUVMIDIDEVICEMANAGER_H

#include <string>

#include "INuvDeviceManager"
#include "INuvMIDIDevice.h"
#include "NuvMIDITypes.h"

class INuvMIDIDeviceManager : public INuvDeviceManager {
public:
    virtual ~INuvMIDIDeviceManager() {}
    virtual INuvMIDIDevice* CreateDevice(const char* name) = 0;
    virtual INuvMIDIDevice* GetDevice(int id) = 0;
    virtual int DestroyDevice(int id) = 0;
    virtual int StartStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    virtual int StopStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    virtual int PauseStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) = 0;
    virtual int GetFilePlayStatus() = 0;
    virtual int SetAppInfo(int appInfo1, int appInfo2, std::string text) = 0;
};

#endif
