// What the host holds for one MIDI device: forwards every request to its connector and
// hands the device's incoming MIDI to the host's callbacks.
#ifndef NUV_MIDI_DEVICE_H
#define NUV_MIDI_DEVICE_H

#include <string>

#include "INuvMIDIDevice.h"
#include "NuvDevice"
#include "NuvMIDICallback.h"

class NuvMIDIConnector;

class NuvMIDIDevice : public INuvMIDIDevice, public NuvDevice, public NuvMIDICallback {
public:
    NuvMIDIDevice(NuvConnector* connector, int id);
    virtual ~NuvMIDIDevice();

    // INuvMIDIDevice, in its slot order.
    virtual int GetType();
    virtual int GetID();
    virtual void GetDevInfo(_NuvDevInfo& info);
    virtual int RegisterCallback(NuvCallback* callback);
    virtual int UnregisterCallback(NuvCallback* callback);
    virtual int GetInformation(MIDIEventType type, _MIDIMessage* msg);
    virtual int SendMessage(MIDIEventType type, _MIDIMessage& msg);
    virtual int LoadSoundFontFile(const std::string& path);
    virtual int UnloadSoundFontFile(unsigned int fontId);
    virtual std::string GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                               unsigned int count);

    // NuvDevice.
    virtual int Create();
    virtual void Destroy();

    // NuvMIDICallback: the connector relays this device's incoming MIDI here.
    virtual int OnMIDIEvent(int client, int code, _MIDIMessage& msg);

private:
    NuvMIDIConnector* m_pConnector;
};

#endif
