// The library as a host sees it inside the test VM: created through its entry, with the
// VM's two virtual keyboards ("Virtual Raw MIDI C-D") found as devices; and what tests of
// the library as a whole share.
#ifndef NUV_TEST_MANAGER_VM_FIXTURE_H
#define NUV_TEST_MANAGER_VM_FIXTURE_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "MIDITestDevices.h"
#include "MidiFileWriter.h"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDIEntry.h"
#include "SequencerView.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"

struct NuvMIDIDeviceManagerProbe {
    static int RendererUsers(NuvMIDIDeviceManager* manager) {
        std::lock_guard<std::recursive_mutex> lock(manager->m_rendererMutex);
        return manager->m_rendererRefCount;
    }
    static bool HasRenderer(NuvMIDIDeviceManager* manager) {
        std::lock_guard<std::recursive_mutex> lock(manager->m_rendererMutex);
        return manager->m_pRenderer != nullptr;
    }
};

// Destroys the library when it goes: declared after a test's own host callbacks, it ends the
// library before them however the test ends.
struct LibraryGoesFirst {
    ~LibraryGoesFirst() { NuvMIDIEntry::DeleteInstance(); }
};

// Puts other bytes, or nothing at all, in the default sound font's place for its scope (the test
// VM runs as root); the installed font is put back afterwards.
class DefaultFontSwap {
public:
    DefaultFontSwap() : m_moved(std::rename(kPath, kSaved) == 0) {}
    explicit DefaultFontSwap(const std::string& contents) : DefaultFontSwap() {
        std::ofstream(kPath, std::ios::binary) << contents;
    }
    ~DefaultFontSwap() {
        std::remove(kPath);
        if (m_moved)
            std::rename(kSaved, kPath);
    }

private:
    static constexpr const char* kPath = "/usr/share/tallowin/DefaultSF.sf2";
    static constexpr const char* kSaved = "/usr/share/tallowin/DefaultSF.sf2.saved-by-test";
    bool m_moved;
};

// Host threads running `body(t, stop)` for t = 0 .. count - 1 until `stop` is set; stopped
// and joined however the test ends (a joinable thread destroyed would end the test binary).
class HostThreads {
public:
    HostThreads(int count, std::function<void(int t, const std::atomic<bool>& stop)> body) {
        for (int t = 0; t < count; ++t)
            m_threads.emplace_back(body, t, std::cref(m_stop));
    }
    ~HostThreads() { Stop(); }
    void Stop() {
        m_stop = true;
        for (std::thread& thread : m_threads)
            if (thread.joinable())
                thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::vector<std::thread> m_threads;
};

// Plays note after note through `play`, `every` so often, until stopped or `play` fails.
struct Player : HostThreads {
    Player(std::function<bool(uint8_t note)> play, std::chrono::milliseconds every)
        : HostThreads(1, [play, every](int, const std::atomic<bool>& stop) {
              for (uint8_t note = 0; !stop && play(note); note = uint8_t((note + 1) % 128))
                  std::this_thread::sleep_for(every);
          }) {}
};

// Everything the host is told, in order: arrivals and departures, and incoming MIDI.
class HostLog : public NuvCallback {
public:
    struct Entry {
        int event;
        std::string uid; // arrivals and departures
        int id;          // the device: departures of a created device, and MIDI
        _MIDIMessage message;
        bool IsMidi() const {
            return event != NUV_EVENT_DEVICE_ATTACHED && event != NUV_EVENT_DEVICE_DETACHED;
        }
    };
    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        Entry entry{event, "", -1, {}};
        if (!entry.IsMidi()) {
            entry.uid = static_cast<const _NuvDevInfo*>(arg1)->UID;
            entry.id = arg2 != nullptr ? *static_cast<const int*>(arg2) : -1;
        } else {
            entry.id = *static_cast<const int*>(arg1);
            entry.message = *static_cast<const _MIDIMessage*>(arg2);
        }
        std::lock_guard<std::mutex> lock(m_lock);
        m_entries.push_back(entry);
        return 0;
    }
    std::vector<Entry> Entries() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_entries;
    }
    // The MIDI entries of device `id`.
    std::vector<Entry> Of(int id) const {
        std::vector<Entry> found;
        for (const Entry& e : Entries())
            if (e.IsMidi() && e.id == id)
                found.push_back(e);
        return found;
    }
    // The note (or controller) of every MIDI message it was given, whichever the device.
    std::vector<int> Params() const {
        std::vector<int> params;
        for (const Entry& e : Entries())
            if (e.IsMidi())
                params.push_back(e.message.param);
        return params;
    }
    // How often the host was told of `event` for `uid`.
    size_t Told(int event, const std::string& uid) const {
        size_t count = 0;
        for (const Entry& e : Entries())
            count += e.event == event && e.uid == uid;
        return count;
    }

private:
    mutable std::mutex m_lock;
    std::vector<Entry> m_entries;
};

// The seed in the environment variable `name`, else a new one; printed, so that a failed
// run can be repeated.
inline unsigned Seed(const char* name) {
    const char* given = std::getenv(name);
    const unsigned seed =
        given != nullptr ? unsigned(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::printf("%s=%u\n", name, seed);
    return seed;
}

// Sends `device` a volume (controller 7 on channel 0) and waits until the synthesizer reads
// it back.
inline bool SendVolumeAndReadItBack(INuvMIDIDevice* device, int volume) {
    _MIDIMessage sent = Message(0, 7, volume);
    return device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, sent) == 0 && WaitFor([&] {
               _MIDIMessage answer = Message(0, 7, -1);
               device->GetInformation(MIDI_EVENT_CONTROL_CHANGE, &answer);
               return answer.value == volume;
           });
}

// The devices the manager lists, in its order.
inline std::vector<_NuvDevInfo> ConnectedDevices(INuvMIDIDeviceManager* manager) {
    std::vector<_NuvDevInfo> devices(1);
    bool taken = false;
    while (manager->GetConnectedDeviceInfo(devices.back(), taken, int(devices.size()) - 1) == 0)
        devices.emplace_back();
    devices.pop_back();
    return devices;
}

// Every device the manager lists, by name.
inline std::map<std::string, _NuvDevInfo> Listed(INuvMIDIDeviceManager* manager) {
    std::map<std::string, _NuvDevInfo> devices;
    for (const _NuvDevInfo& info : ConnectedDevices(manager))
        devices[info.deviceName] = info;
    return devices;
}

// Whether the sequencer lists port 0 of the client of device `from` as connected to port 0
// of that of `to`.
inline bool Connected(INuvMIDIDevice* from, INuvMIDIDevice* to) {
    _NuvDevInfo ends[2] = {};
    from->GetDevInfo(ends[0]);
    to->GetDevInfo(ends[1]);
    const SequencerView view = SequencerView::Read();
    const auto client = view.Clients().find(std::atoi(ends[0].UID));
    return client != view.Clients().end() && client->second.ports.count(0) == 1 &&
           client->second.ports.at(0).SendsTo({std::atoi(ends[1].UID), 0});
}

// Stream ends: device `id` whatever its state, a device, a file.
inline _MIDIDeviceInfo End(int id, int type) {
    _MIDIDeviceInfo info{};
    info.id = id;
    std::snprintf(info.name, sizeof info.name, "device %d", id);
    info.type = type;
    return info;
}
inline _MIDIDeviceInfo End(INuvMIDIDevice* device, int type) {
    return End(device != nullptr ? device->GetID() : -1, type);
}
inline _MIDIDeviceInfo FileEnd(const std::string& path) {
    _MIDIDeviceInfo info{};
    std::snprintf(info.name, sizeof info.name, "%s", path.c_str());
    info.type = MIDI_DEVICE_TYPE_FILE;
    return info;
}

// Writes a MIDI file of `program` chords (20, a reed organ: steady while held) that sounds
// for `seconds`.
inline bool WriteSong(const std::string& path, double seconds, int program = 20) {
    MidiFileWriter song;
    song.AddProgramChange(0, program, 0);
    for (double t = 0; t + 0.25 <= seconds; t += 0.25) {
        song.AddNote(0, 60, 110, t, 0.25);
        song.AddNote(0, 64, 110, t, 0.25);
    }
    song.SetLength(seconds);
    return song.Write(path);
}

class ManagerVmTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_keyboards = VirtualKeyboard::FindAll();
        ASSERT_GE(m_keyboards.size(), 2u) << "the VM has two virtual keyboards";
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_TRUE(KeyboardsListed());
    }
    void TearDown() override {
        NuvMIDIEntry::DeleteInstance();
        // Subscriptions between the keyboards outlive the library: leave none behind.
        for (const VirtualKeyboard& from : m_keyboards)
            for (const VirtualKeyboard& to : m_keyboards)
                DisconnectPorts(from.Client(), to.Client());
    }

    NuvMIDIDeviceManager* Impl() const { return static_cast<NuvMIDIDeviceManager*>(m_manager); }
    int RendererUsers() const { return NuvMIDIDeviceManagerProbe::RendererUsers(Impl()); }
    bool HasRenderer() const { return NuvMIDIDeviceManagerProbe::HasRenderer(Impl()); }

    // Waits until the library lists both keyboards.
    bool KeyboardsListed() const {
        return WaitFor([&] {
            return m_manager->IsConnected(m_keyboards[0].ClientName().c_str()) == 1 &&
                   m_manager->IsConnected(m_keyboards[1].ClientName().c_str()) == 1;
        });
    }
    // Creates the device of keyboard `index` (0 or 1) without taking it.
    INuvMIDIDevice* CreateKeyboard(int index) {
        return m_manager->CreateDevice(m_keyboards.at(size_t(index)).ClientName().c_str());
    }
    // Creates and takes it, as a host does before using it.
    INuvMIDIDevice* TakeKeyboard(int index) {
        INuvMIDIDevice* created = CreateKeyboard(index);
        return created != nullptr ? m_manager->GetDevice(created->GetID()) : nullptr;
    }

    std::vector<VirtualKeyboard> m_keyboards;
    INuvMIDIDeviceManager* m_manager = nullptr;
};

#endif
