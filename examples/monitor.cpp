// Lists the connected devices, then prints the MIDI that every keyboard (every device
// that is not the synthesizer) sends, including keyboards plugged in later.
//   nuv-monitor [SECONDS [EVENTS]]    stops after SECONDS (default 10) or EVENTS events
#include <stdio.h>
#include <stdlib.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "NuvMIDI.h"

// Both callbacks run on the library's watcher thread and only note what happened; the
// main thread creates the devices.
class Monitor : public NuvCallback {
public:
    explicit Monitor(long eventLimit) : m_eventLimit(eventLimit) {}

    // Device arrivals and departures from the manager, MIDI from the devices.
    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        std::lock_guard<std::mutex> lock(m_lock);
        if (event == NUV_EVENT_DEVICE_ATTACHED || event == NUV_EVENT_DEVICE_DETACHED) {
            const auto* info = static_cast<const _NuvDevInfo*>(arg1);
            if (event == NUV_EVENT_DEVICE_DETACHED) // the library deletes its device now
                m_taken.erase(info->deviceName);
            m_news = true;
            m_wake.notify_all();
            return 0;
        }
        const int id = *static_cast<const int*>(arg1);
        const auto* msg = static_cast<const _MIDIMessage*>(arg2);
        printf("%-24s event %d  channel %2d  param %3d  value %5d\n", m_names[id].c_str(), event,
               msg->channel, msg->param, msg->value);
        fflush(stdout);
        if (++m_events == m_eventLimit)
            m_wake.notify_all();
        return 0;
    }

    // Takes every keyboard not taken yet and listens to it.
    void TakeKeyboards(INuvMIDIDeviceManager* manager) {
        _NuvDevInfo info;
        bool created;
        for (int i = 0; manager->GetConnectedDeviceInfo(info, created, i) == 0; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_lock);
                if (info.isSynth || !m_taken.insert(info.deviceName).second)
                    continue;
            }
            INuvMIDIDevice* device = manager->CreateDevice(info.deviceName);
            if (device == nullptr)
                continue;
            {
                std::lock_guard<std::mutex> lock(m_lock);
                m_names[device->GetID()] = info.deviceName;
            }
            device->RegisterCallback(this);
            printf("listening to %s (client %s)\n", info.deviceName, info.UID);
            fflush(stdout);
        }
    }

    // False once the time or the events are used up.
    bool Wait(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(m_lock);
        m_wake.wait_until(lock, deadline, [this] { return m_news || m_events == m_eventLimit; });
        m_news = false;
        return std::chrono::steady_clock::now() < deadline && m_events != m_eventLimit;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_wake;
    std::set<std::string> m_taken;      // device names listened to
    std::map<int, std::string> m_names; // device id to name
    bool m_news = false;                // a device arrived or left
    long m_events = 0;
    const long m_eventLimit;
};

int main(int argc, char** argv) {
    const long seconds = argc > 1 ? atol(argv[1]) : 10;
    const long events = argc > 2 ? atol(argv[2]) : -1;
    if (!NuvMIDI_Create()) {
        fprintf(stderr, "the MIDI library could not start (is there an ALSA sequencer?)\n");
        return 1;
    }
    INuvMIDIDeviceManager* manager = NuvMIDI_GetDeviceManager();
    Monitor monitor(events);
    manager->RegisterCallback(&monitor);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    do
        monitor.TakeKeyboards(manager);
    while (monitor.Wait(deadline));
    manager->UnregisterCallback(&monitor);
    NuvMIDI_Destroy(); // deletes the devices, which stop calling first
    return 0;
}
