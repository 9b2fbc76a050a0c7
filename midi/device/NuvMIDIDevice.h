// What the host holds for one MIDI device: forwards every request to its connector and
// hands the device's incoming MIDI to the host's callbacks.
#ifndef NUV_MIDI_DEVICE_H
#define NUV_MIDI_DEVICE_H

#include <condition_variable>
#include <mutex>
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
    friend struct NuvMIDIDeviceProbe; // tests wait for a host call to be under way

    // Counts a host call in progress for as long as it uses the connector; false once the
    // device is being destroyed (the call then does nothing).
    class HostCall {
    public:
        explicit HostCall(NuvMIDIDevice& device);
        ~HostCall();
        explicit operator bool() const { return m_bEntered; }

    private:
        NuvMIDIDevice& m_device;
        bool m_bEntered;
    };

    NuvMIDIConnector* m_pConnector;
    // A device may be destroyed on the watcher's thread (its keyboard was unplugged) while a
    // host thread is inside one of its calls: Destroy waits for those calls to finish
    // before the connector and the device's client information go away.
    std::mutex m_callMutex;
    std::condition_variable m_callsDone;
    int m_nHostCalls;
    bool m_bDestroying;
};

#endif
