// The host's device manager: devices on the framework's device manager, the shared
// reference-counted renderer, streams between sequencer ports and MIDI-file playback.
#ifndef NUV_MIDI_DEVICE_MANAGER_H
#define NUV_MIDI_DEVICE_MANAGER_H

#include <alsa/asoundlib.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

#include "INuvMIDIDeviceManager.h"
#include "NuvDeviceManager"
#include "NuvMIDIFilePlayback.h"

class NuvMIDIRenderer;
class NuvMIDISeqSynth;

class NuvMIDIDeviceManager : public INuvMIDIDeviceManager, public NuvDeviceManager {
public:
    NuvMIDIDeviceManager();
    virtual ~NuvMIDIDeviceManager();

    // INuvMIDIDeviceManager, in its slot order.
    virtual int IsConnected(const char* name);
    virtual int GetConnectedDeviceInfo(_NuvDevInfo& info, bool& created, int index);
    virtual int RegisterCallback(NuvCallback* callback);
    virtual int UnregisterCallback(NuvCallback* callback);
    virtual INuvMIDIDevice* CreateDevice(const char* name);
    virtual INuvMIDIDevice* GetDevice(int id);
    virtual int DestroyDevice(int id);
    virtual int StartStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst);
    virtual int StopStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst);
    virtual int PauseStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst);
    virtual int GetFilePlayStatus();
    virtual int SetAppInfo(int appInfo1, int appInfo2, std::string text);

    // The framework's device factory.
    virtual NuvDevice* t_NewDevice(NuvConnector* connector, int id);
    // The framework's connector events: a departing client also ends the streams from and to
    // it (the kernel dropped their subscriptions with the client).
    virtual int t_OnCallback(int event, void* arg1, void* arg2, void* arg3);

private:
    friend struct NuvMIDIDeviceManagerProbe; // tests read the renderer count

    // What streams and the renderer need of a device, copied under the manager's mutex: the
    // watcher's thread may destroy the device (its client left) as soon as the mutex is
    // released, while the sequencer client and synthesizer named here belong to the watcher
    // and outlive every device.
    struct DeviceEnd {
        _MIDIClientInfo client;
        NuvMIDISeqSynth* seqSynth;
    };
    // False, with `out` untouched, when no device of this library has this id.
    bool m_ReadDevice(int id, DeviceEnd* out);

    // The renderer plays while it has users: the first device taken, each started stream
    // and each started file. m_CreateRenderer adds a user and starts the renderer for the
    // first; m_DestroyRenderer removes one and stops it with the last.
    void m_CreateRenderer(const DeviceEnd& device);
    void m_DestroyRenderer();
    // True, after a line naming `operation`, when either end is null.
    static bool m_RefuseNullEnd(const char* operation, const _MIDIDeviceInfo* src,
                                const _MIDIDeviceInfo* dst);
    int m_ConnectDevice(NuvMIDISeqSynth& seqSynth, snd_seq_addr_t sender, snd_seq_addr_t dest,
                        bool connect);

    // A device-to-device stream as the sequencer knows it: sender client and port, then
    // destination client and port. Each started stream is one user of the renderer.
    using Route = std::tuple<int, int, int, int>;
    void m_AddStream(const Route& route, int srcId, int dstId, const DeviceEnd& destination);
    void m_EndStream(const Route& route);
    void m_EndStreamsOf(int client);

    int m_StartFile(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst);
    int m_StopFile(_MIDIDeviceInfo* dst);

    // Stops the renderer before releasing it; the manager's end stops it whatever users
    // remain.
    struct RendererStop {
        void operator()(NuvMIDIRenderer* renderer) const;
    };
    int m_rendererRefCount;
    std::unique_ptr<NuvMIDIRenderer, RendererStop> m_pRenderer;
    int m_appInfo1;
    int m_appInfo2;
    std::string m_appInfoText;
    std::multiset<Route> m_streams; // under m_rendererMutex

    // The count, the renderer and the streams, for any host thread. Where it is taken with
    // the framework's m_mutex, m_mutex comes first.
    std::recursive_mutex m_rendererMutex;
    // Declared last, so that a playing file ends before the renderer it is heard through.
    NuvMIDIFilePlayback m_playFile;
};

#endif
