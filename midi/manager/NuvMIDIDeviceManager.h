// The host's device manager: devices on the framework's device manager, the shared
// reference-counted renderer, streams between sequencer ports and MIDI-file playback.
#ifndef NUV_MIDI_DEVICE_MANAGER_H
#define NUV_MIDI_DEVICE_MANAGER_H

#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <pthread.h>

#include <atomic>
#include <mutex>
#include <string>

#include "INuvMIDIDeviceManager.h"
#include "NuvDeviceManager"

class NuvMIDIRenderer;

// The file-playback block; its address is the play thread's argument.
struct _PlayFileInfo {
    fluid_synth_t* synth;
    fluid_player_t* player;   // owned by the manager
    std::atomic<int> status;  // 1: no file playing, 2: playing
    char fileName[256];
};

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

private:
    int m_CreateRenderer(fluid_synth_t* synth);
    void m_DestroyRenderer();
    int m_ConnectDevice(snd_seq_t* seq, snd_seq_addr_t sender, snd_seq_addr_t dest,
                        bool connect);

    _PlayFileInfo m_playFile;
    pthread_attr_t m_threadAttr;
    pthread_t m_playThread;
    int m_rendererRefCount;
    NuvMIDIRenderer* m_pRenderer;
    int m_appInfo1;
    int m_appInfo2;
    std::string m_appInfoText;
};

#endif
