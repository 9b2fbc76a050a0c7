// The host's device manager: devices on the framework's device manager, the shared
// reference-counted renderer, streams between sequencer ports and MIDI-file playback.
#ifndef NUV_MIDI_DEVICE_MANAGER_H
#define NUV_MIDI_DEVICE_MANAGER_H

#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

#include "INuvMIDIDeviceManager.h"
#include "NuvDeviceManager"

class NuvMIDIRenderer;
class NuvMIDISynthActivity;

// The file-playback block; its address is the play thread's argument.
struct _PlayFileInfo {
    fluid_synth_t* synth;
    fluid_player_t* player;  // the file's; its play thread deletes it when it ends
    std::atomic<int> status; // 1: no file playing, 2: playing
    char fileName[256];

    // The play thread is detached; the manager waits on `ended` for `threadRunning` to
    // fall before it replaces or frees the player, the name or itself.
    std::mutex lock;
    std::condition_variable ended;
    bool threadRunning;
    bool stopRequested; // set by a stop that may come before the thread starts the player
};

// The play thread of one file; `arg` is the manager's _PlayFileInfo.
void* PlayFile(void* arg);

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
    // released, while the sequencer, the synthesizer and its activity named here belong to
    // the watcher and outlive every device.
    struct DeviceEnd {
        _MIDIClientInfo client;
        NuvMIDISynthActivity* activity;
    };
    // False, with `out` untouched, when no device has this id.
    bool m_ReadDevice(int id, DeviceEnd* out);

    int m_CreateRenderer(const DeviceEnd& device);
    void m_DestroyRenderer();
    // True, after a line naming `operation`, when either end is null.
    static bool m_RefuseNullEnd(const char* operation, const _MIDIDeviceInfo* src,
                                const _MIDIDeviceInfo* dst);
    int m_ConnectDevice(snd_seq_t* seq, snd_seq_addr_t sender, snd_seq_addr_t dest, bool connect);

    // A device-to-device stream as the sequencer knows it: sender client and port, then
    // destination client and port. Each started stream is one user of the renderer.
    using Route = std::tuple<int, int, int, int>;
    void m_AddStream(const Route& route, int srcId, int dstId, const DeviceEnd& destination);
    void m_EndStream(const Route& route);
    void m_EndStreamsOf(int client);

    int m_StartFile(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst);
    int m_StopFile(_MIDIDeviceInfo* dst);
    // Stops a playing file and waits for its thread; then deletes the player.
    void m_EndFilePlayback();

    _PlayFileInfo m_playFile;
    pthread_attr_t m_threadAttr;
    pthread_t m_playThread;
    int m_rendererRefCount;
    NuvMIDIRenderer* m_pRenderer;
    int m_appInfo1;
    int m_appInfo2;
    std::string m_appInfoText;
    std::multiset<Route> m_streams; // under m_rendererMutex

    // The count, the renderer and the streams, for any host thread. Where it is taken with
    // the framework's m_mutex, m_mutex comes first.
    std::recursive_mutex m_rendererMutex;
    std::mutex m_fileMutex; // one file start or stop at a time
};

#endif
