// The library under load, as hosts drive it: keyboard applications coming and going by the
// thousand, the library made and torn down while its devices are busy, and host threads
// calling everything at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <shared_mutex>
#include <thread>

#include "LogCapture.h"
#include "MidiFileWriter.h"
#include "NuvLog"
#include "NuvMIDI.h"
#include "NuvMIDIEntry.h"
#include "SoundFontWriter.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"

namespace {

using std::chrono::seconds;

// The library's three entry functions, as the shared library exports them.
INuvMIDIDeviceManager* CreateLibrary() {
    return NuvMIDIEntry::GetInstance() != nullptr ? NuvMIDIEntry::GetDeviceManagerInstance()
                                                  : nullptr;
}
void DestroyLibrary() {
    NuvMIDIEntry::DeleteInstance();
}
// Destroys the library when the test ends, however it ends: declared after the host
// callbacks, it goes before them.
struct LibraryGuard {
    ~LibraryGuard() { DestroyLibrary(); }
};

// Counts the MIDI events that reach it; lives longer than any library it is given to.
struct CountingCallback : NuvCallback {
    int t_OnCallback(int, void*, void*, void*) override { return ++events, 0; }
    std::atomic<int> events{0};
};

_MIDIDeviceInfo End(int id, int type, const std::string& name = "") {
    _MIDIDeviceInfo info{};
    std::snprintf(info.name, sizeof info.name, "%s", name.c_str());
    info.id = id;
    info.type = type;
    return info;
}

_MIDIMessage Note(int note) {
    _MIDIMessage msg{};
    msg.param = note;
    msg.value = 100;
    return msg;
}

std::string WriteSong(const std::string& path, double seconds) {
    MidiFileWriter song;
    for (double t = 0; t + 0.5 <= seconds; t += 0.5)
        song.AddNote(0, 60, 100, t, 0.25);
    song.SetLength(seconds);
    EXPECT_TRUE(song.Write(path));
    return path;
}

// Thousands of devices and events would flood the console with notices: only failures of
// vital parts are logged while a load test runs.
struct QuietLog {
    QuietLog() : previous(NuvLog_SetThreshold(NUV_LOG_CRITICAL)) {}
    ~QuietLog() { NuvLog_SetThreshold(previous); }
    int previous;
};

unsigned SeedFrom(const char* variable) {
    const char* given = std::getenv(variable);
    const unsigned seed =
        given != nullptr ? unsigned(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::printf("%s=%u\n", variable, seed);
    return seed;
}

// The host of the churn: creates the device of every user-space client that arrives,
// listens and sends to it, and forgets it when it leaves.
class ChurnHost : public NuvCallback {
public:
    struct Arrival {
        int attached = 0, detached = 0;
        int createdId = -1, detachedId = -1;
    };
    explicit ChurnHost(INuvMIDIDeviceManager* manager) : m_manager(manager) {}

    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        const _NuvDevInfo* info = static_cast<const _NuvDevInfo*>(arg1);
        const int client = std::atoi(info->UID);
        if (client < 128 || info->isSynth) // kernel clients and the synthesizer stay
            return 0;
        if (event == NUV_EVENT_DEVICE_ATTACHED) {
            INuvMIDIDevice* device = m_manager->CreateDevice(info->deviceName);
            if (device != nullptr) {
                device->RegisterCallback(&m_listener);
                for (int note = 60; note < 63; ++note) {
                    _MIDIMessage msg = Note(note);
                    device->SendMessage(MIDI_EVENT_NOTE_ON, msg);
                    device->SendMessage(MIDI_EVENT_NOTE_OFF, msg);
                }
            }
            std::lock_guard<std::mutex> lock(m_lock);
            ++m_arrivals[client].attached;
            m_arrivals[client].createdId = device != nullptr ? device->GetID() : -1;
        } else if (event == NUV_EVENT_DEVICE_DETACHED) {
            std::lock_guard<std::mutex> lock(m_lock);
            ++m_arrivals[client].detached;
            m_arrivals[client].detachedId = arg2 != nullptr ? *static_cast<int*>(arg2) : -1;
        }
        return 0;
    }
    // Takes the records of the arrivals so far, leaving none.
    std::map<int, Arrival> Take() {
        std::lock_guard<std::mutex> lock(m_lock);
        return std::move(m_arrivals);
    }
    int Count(bool detached) {
        std::lock_guard<std::mutex> lock(m_lock);
        int count = 0;
        for (auto& entry : m_arrivals)
            count += detached ? entry.second.detached : entry.second.attached;
        return count;
    }

private:
    INuvMIDIDeviceManager* m_manager;
    CountingCallback m_listener;
    std::mutex m_lock;
    std::map<int, Arrival> m_arrivals;
};

// Every arrival becomes a device, also those whose announcement the watcher reads before
// the client has named itself.
TEST(Load, AThousandClientsComeAndGoWhileTheHostUsesTheirDevices) {
    LogCapture log; // also keeps the console quiet
    constexpr int kBatches = 50, kBatch = 20;
    INuvMIDIDeviceManager* manager = CreateLibrary();
    ASSERT_NE(nullptr, manager);
    ChurnHost host(manager);
    LibraryGuard library; // goes before the host callback
    ASSERT_EQ(0, manager->RegisterCallback(&host));
    std::set<int> created;
    for (int batch = 0; batch < kBatches; ++batch) {
        std::vector<std::unique_ptr<UserSpaceClient>> clients;
        for (int i = 0; i < kBatch; ++i) {
            clients.emplace_back(
                new UserSpaceClient("Churn " + std::to_string(batch * kBatch + i)));
            ASSERT_TRUE(clients.back()->IsOpen());
        }
        ASSERT_TRUE(WaitFor([&] { return host.Count(false) == kBatch; }, seconds(10)))
            << "batch " << batch << ": " << host.Count(false) << " arrivals";
        clients.clear();
        const int arrived = host.Count(false);
        ASSERT_TRUE(WaitFor([&] { return host.Count(true) == arrived; }, seconds(10)))
            << "batch " << batch << ": " << host.Count(true) << " departures of " << arrived;
        for (const auto& entry : host.Take()) {
            const ChurnHost::Arrival& arrival = entry.second;
            EXPECT_EQ(1, arrival.attached) << "client " << entry.first << ", batch " << batch;
            EXPECT_EQ(1, arrival.detached) << "client " << entry.first << ", batch " << batch;
            EXPECT_NE(-1, arrival.createdId) << "client " << entry.first << ", batch " << batch;
            EXPECT_EQ(arrival.createdId, arrival.detachedId) << "client " << entry.first;
            created.insert(arrival.createdId);
        }
    }
    EXPECT_EQ(size_t(kBatches * kBatch), created.size()) << "every device id is new";
    for (int id : created)
        EXPECT_EQ(nullptr, manager->GetDevice(id)) << "device " << id << " outlived its client";
    _NuvDevInfo info{};
    bool taken = false;
    for (int index = 0; manager->GetConnectedDeviceInfo(info, taken, index) == 0; ++index)
        EXPECT_TRUE(std::atoi(info.UID) < 128 || info.isSynth)
            << "left behind: " << info.deviceName;
    EXPECT_EQ(0, manager->UnregisterCallback(&host));
}

// Keeps the two virtual keyboards playing until it goes, about as fast as a player on a
// real MIDI cable (31250 baud: some 1000 messages a second).
class Player {
public:
    explicit Player(std::vector<VirtualKeyboard>& keyboards)
        : m_thread([this, &keyboards] {
              for (uint8_t note = 0; !m_stop; note = uint8_t((note + 1) % 128)) {
                  for (VirtualKeyboard& keyboard : keyboards)
                      keyboard.Write({0x90, note, 100, 0x80, note, 0});
                  std::this_thread::sleep_for(std::chrono::milliseconds(4));
              }
          }) {}
    ~Player() {
        m_stop = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Every library loads the 6 MB default font, which the emulated VM reads slowly (half of a
// cycle under the sanitizers): in the throwaway test VM the cycles run with a small font in
// its place, and the real one is put back afterwards.
class SmallDefaultFont {
public:
    SmallDefaultFont() {
        if (std::getenv("NUV_VM") != nullptr && std::rename(kPath, kSaved) == 0) {
            m_swapped = true;
            EXPECT_TRUE(WriteSoundFont(kPath, {{"Load Piano", 0, 0}}));
        }
    }
    ~SmallDefaultFont() {
        if (m_swapped)
            std::rename(kSaved, kPath);
    }

private:
    static constexpr const char* kPath = "/usr/share/tallowin/DefaultSF.sf2";
    static constexpr const char* kSaved = "/usr/share/tallowin/DefaultSF.sf2.load";
    bool m_swapped = false;
};

TEST(Load, TheLibraryIsMadeAndDestroyedAHundredTimesWhileItsDevicesAreBusy) {
    QuietLog quiet;
    SmallDefaultFont font;
    constexpr int kCycles = 100;
    auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_GE(keyboards.size(), 2u);
    const std::string song = WriteSong(::testing::TempDir() + "nuv_load_song.mid", 10);
    std::vector<std::unique_ptr<CountingCallback>> listeners; // outlive every library
    LibraryGuard library;
    Player player(keyboards);
    const auto start = std::chrono::steady_clock::now();
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        INuvMIDIDeviceManager* manager = CreateLibrary();
        ASSERT_NE(nullptr, manager) << "cycle " << cycle;
        INuvMIDIDevice* devices[2] = {};
        for (int k = 0; k < 2; ++k) {
            const std::string name = keyboards[size_t(k)].ClientName();
            ASSERT_TRUE(WaitFor([&] { return manager->IsConnected(name.c_str()) == 1; }));
            devices[k] = manager->CreateDevice(name.c_str());
            ASSERT_NE(nullptr, devices[k]);
        }
        ASSERT_EQ(devices[0], manager->GetDevice(devices[0]->GetID()));
        listeners.emplace_back(new CountingCallback);
        ASSERT_EQ(1, devices[0]->RegisterCallback(listeners.back().get()));
        _MIDIDeviceInfo src = End(devices[0]->GetID(), MIDI_DEVICE_TYPE_SOURCE);
        _MIDIDeviceInfo dst = End(devices[1]->GetID(), MIDI_DEVICE_TYPE_DESTINATION);
        if (cycle % 2 == 0) {
            ASSERT_EQ(1, manager->StartStream(&src, &dst));
        } else {
            _MIDIDeviceInfo file = End(-1, MIDI_DEVICE_TYPE_FILE, song);
            ASSERT_EQ(1, manager->StartStream(&file, &dst));
        }
        ASSERT_TRUE(WaitFor([&] { return listeners.back()->events > 0; }))
            << "cycle " << cycle << ": no key press reached the host";
        DestroyLibrary();
        DisconnectPorts(keyboards[0].Client(), keyboards[1].Client()); // the stream's, if any
        if (cycle == 0)
            std::printf(
                "one cycle: %.2f s\n",
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
}

// Four host threads calling the library at random for a while; every call returns one of its
// own results. Devices are used under a host-side lock per keyboard, as a host must never
// use a device it is destroying.
TEST(Load, FourHostThreadsCallEverythingAtRandom) {
    QuietLog quiet;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const auto kDuration = seconds(10); // a third, to keep the three builds' VM runs short
#else
    const auto kDuration = seconds(30);
#endif
    const unsigned seed = SeedFrom("NUV_LOAD_SEED");
    auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_GE(keyboards.size(), 2u);
    INuvMIDIDeviceManager* manager = CreateLibrary();
    ASSERT_NE(nullptr, manager);
    const std::string names[2] = {keyboards[0].ClientName(), keyboards[1].ClientName()};
    for (const std::string& name : names)
        ASSERT_TRUE(WaitFor([&] { return manager->IsConnected(name.c_str()) == 1; }));
    const std::string song = WriteSong(::testing::TempDir() + "nuv_load_threads.mid", 2);
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont({{"Load Piano", 0, 0}, {"Load Organ", 0, 20}})));

    struct Slot {
        std::shared_timed_mutex lock;
        INuvMIDIDevice* device = nullptr;
        std::atomic<int> id{-1}; // streams name the other keyboard's device by id
    } slots[2];
    std::vector<std::unique_ptr<CountingCallback>> listeners;
    for (int t = 0; t < 4; ++t)
        listeners.emplace_back(new CountingCallback);
    LibraryGuard library;
    std::mutex playLock; // one writer per raw node at a time
    std::atomic<int> calls{0};
    std::mutex failuresLock;
    std::vector<std::string> failures;
    auto expectIn = [&](std::initializer_list<int> allowed, int result, const char* call) {
        ++calls;
        for (int value : allowed)
            if (value == result)
                return;
        std::lock_guard<std::mutex> lock(failuresLock);
        failures.push_back(std::string(call) + " returned " + std::to_string(result));
    };

    const auto deadline = std::chrono::steady_clock::now() + kDuration;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(seed + unsigned(t));
            CountingCallback* listener = listeners[size_t(t)].get();
            while (std::chrono::steady_clock::now() < deadline) {
                const int k = int(random() % 2);
                Slot& slot = slots[k];
                const char* name = names[k].c_str();
                const int op = int(random() % 10);
                if (op == 0) { // create the device, or destroy it
                    std::unique_lock<std::shared_timed_mutex> lock(slot.lock);
                    if (slot.device == nullptr) {
                        slot.device = manager->CreateDevice(name);
                        slot.id = slot.device != nullptr ? slot.device->GetID() : -1;
                        expectIn({1}, slot.device != nullptr, "CreateDevice");
                    } else {
                        expectIn({0}, manager->DestroyDevice(slot.id), "DestroyDevice");
                        slot.device = nullptr;
                    }
                    continue;
                }
                std::shared_lock<std::shared_timed_mutex> lock(slot.lock);
                INuvMIDIDevice* device = slot.device;
                _MIDIDeviceInfo src = End(slots[0].id, MIDI_DEVICE_TYPE_SOURCE);
                _MIDIDeviceInfo dst = End(slots[1].id, MIDI_DEVICE_TYPE_DESTINATION);
                _MIDIDeviceInfo file = End(-1, MIDI_DEVICE_TYPE_FILE, song);
                _MIDIDeviceInfo info{};
                _NuvDevInfo devInfo{};
                bool taken = false;
                _MIDIMessage msg = Note(int(random() % 128));
                switch (op) {
                case 1: // streams and files name devices by id, whatever their state
                    expectIn({0, 1, 2}, manager->StartStream(&src, &dst), "StartStream");
                    break;
                case 2:
                    expectIn({0, 9999}, manager->StopStream(&src, &dst), "StopStream");
                    break;
                case 3:
                    info = End(slot.id, MIDI_DEVICE_TYPE_DESTINATION);
                    expectIn({0, 1}, manager->StartStream(&file, &info), "StartStream(file)");
                    break;
                case 4:
                    info = End(slot.id, MIDI_DEVICE_TYPE_DESTINATION);
                    expectIn({0, 1, 9999}, manager->StopStream(&file, &info), "StopStream(file)");
                    break;
                case 5:
                    expectIn({1, 2}, manager->GetFilePlayStatus(), "GetFilePlayStatus");
                    expectIn({0, 1}, manager->IsConnected(name), "IsConnected");
                    expectIn({0, 9999}, manager->GetConnectedDeviceInfo(devInfo, taken, k),
                             "GetConnectedDeviceInfo");
                    expectIn({1}, manager->GetDevice(slot.id) == device, "GetDevice");
                    break;
                case 6: {
                    std::lock_guard<std::mutex> playing(playLock);
                    keyboards[size_t(k)].Write({0x90, uint8_t(msg.param), 100});
                }
                    if (device != nullptr)
                        expectIn({1}, device->RegisterCallback(listener), "RegisterCallback");
                    break;
                case 7:
                    if (device != nullptr)
                        expectIn({1}, device->UnregisterCallback(listener), "UnregisterCallback");
                    break;
                case 8:
                    if (device != nullptr) {
                        expectIn({0}, device->SendMessage(MIDI_EVENT_NOTE_ON, msg), "SendMessage");
                        expectIn({0}, device->GetInformation(MIDI_EVENT_PROGRAM_CHANGE, &msg),
                                 "GetInformation");
                    }
                    break;
                case 9:
                    if (device != nullptr) {
                        const int fontId = device->LoadSoundFontFile(font.Path());
                        expectIn({1}, fontId > 0, "LoadSoundFontFile");
                        device->GetSoundFontIntruments(unsigned(fontId), 0, 2);
                        expectIn({0, 1}, device->UnloadSoundFontFile(unsigned(fontId)),
                                 "UnloadSoundFontFile");
                    }
                    break;
                }
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::printf("%d calls\n", calls.load());
    EXPECT_TRUE(failures.empty()) << failures.size()
                                  << " unexpected results, first: " << failures.front();
    DestroyLibrary();
    DisconnectPorts(keyboards[0].Client(), keyboards[1].Client());
}

} // namespace
