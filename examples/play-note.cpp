// The smallest host: waits for the library's synthesizer and plays middle C on it.
#include <stdio.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "NuvMIDI.h"

// Devices arrive after NuvMIDI_Create, on the library's watcher thread: the callback only
// wakes the host's thread, which then looks at the device list again.
class Arrivals : public NuvCallback {
public:
    int t_OnCallback(int event, void*, void*, void*) override {
        if (event == NUV_EVENT_DEVICE_ATTACHED) {
            std::lock_guard<std::mutex> lock(m_lock);
            m_news = true;
            m_arrived.notify_all();
        }
        return 0;
    }
    // False when nothing arrived before the deadline.
    bool WaitUntil(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(m_lock);
        const bool news = m_arrived.wait_until(lock, deadline, [this] { return m_news; });
        m_news = false;
        return news;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_arrived;
    bool m_news = false;
};

bool FindSynth(INuvMIDIDeviceManager* manager, _NuvDevInfo& info) {
    bool created;
    for (int i = 0; manager->GetConnectedDeviceInfo(info, created, i) == 0; ++i)
        if (info.isSynth)
            return true;
    return false;
}

int main() {
    if (!NuvMIDI_Create()) {
        fprintf(stderr, "the MIDI library could not start (is there an ALSA sequencer?)\n");
        return 1;
    }
    INuvMIDIDeviceManager* manager = NuvMIDI_GetDeviceManager();
    Arrivals arrivals;
    manager->RegisterCallback(&arrivals);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    _NuvDevInfo info;
    bool found = FindSynth(manager, info);
    while (!found && arrivals.WaitUntil(deadline))
        found = FindSynth(manager, info);
    manager->UnregisterCallback(&arrivals);

    if (found) {
        INuvMIDIDevice* synth = manager->CreateDevice(info.deviceName);
        manager->GetDevice(synth->GetID());    // starts the renderer: sound is heard
        _MIDIMessage note = {0, 60, 100, {0}}; // channel 0, middle C, velocity 100
        synth->SendMessage(MIDI_EVENT_NOTE_ON, note);
        std::this_thread::sleep_for(std::chrono::seconds(1));
        synth->SendMessage(MIDI_EVENT_NOTE_OFF, note);
        printf("played middle C on %s\n", info.deviceName);
    } else {
        fprintf(stderr, "no synthesizer arrived\n");
    }
    NuvMIDI_Destroy();
    return found ? 0 : 1;
}
