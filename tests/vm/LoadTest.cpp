// The library under load, as hosts drive it: keyboard applications coming and going by the
// thousand, the library made and torn down while its devices are busy, and host threads
// calling everything at once.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <shared_mutex>
#include <thread>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "MidiFileWriter.h"
#include "SoundFontWriter.h"

namespace {

using std::chrono::seconds;

std::string WriteLoadSong(const std::string& path, double seconds) {
    MidiFileWriter song;
    for (double t = 0; t + 0.5 <= seconds; t += 0.5)
        song.AddNote(0, 60, 100, t, 0.25);
    song.SetLength(seconds);
    EXPECT_TRUE(song.Write(path));
    return path;
}

// The host of the churn: creates the device of every user-space client that arrives, listens
// and sends to it, and records, per client, the devices created and named at departure.
class ChurnHost : public NuvCallback {
public:
    explicit ChurnHost(INuvMIDIDeviceManager* manager) : m_manager(manager) {}
    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        const _NuvDevInfo* info = static_cast<const _NuvDevInfo*>(arg1);
        const int client = std::atoi(info->UID);
        if (client < 128 || info->isSynth) // kernel clients and the synthesizer stay
            return 0;
        int id = arg2 != nullptr ? *static_cast<int*>(arg2) : -1;
        if (event == NUV_EVENT_DEVICE_ATTACHED) {
            INuvMIDIDevice* device = m_manager->CreateDevice(info->deviceName);
            id = device != nullptr ? device->GetID() : -1;
            if (device != nullptr && device->RegisterCallback(&m_listener) == 1) {
                _MIDIMessage note = Message(0, 60, 100);
                device->SendMessage(MIDI_EVENT_NOTE_ON, note);
                device->SendMessage(MIDI_EVENT_NOTE_OFF, note);
            }
        }
        std::lock_guard<std::mutex> lock(m_lock);
        m_ids[event][client].push_back(id);
        return 0;
    }
    // Takes the records so far: per event, per client, the device ids.
    std::map<int, std::map<int, std::vector<int>>> Take() {
        std::lock_guard<std::mutex> lock(m_lock);
        return std::move(m_ids);
    }
    size_t Count(int event) {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_ids[event].size();
    }

private:
    INuvMIDIDeviceManager* m_manager;
    CountingHostCallback m_listener;
    std::mutex m_lock;
    std::map<int, std::map<int, std::vector<int>>> m_ids;
};

// Every arrival becomes a device, also those whose announcement the watcher reads before
// the client has named itself; each departure names the device, which goes with it.
TEST(Load, AThousandClientsComeAndGoWhileTheHostUsesTheirDevices) {
    LogCapture quiet(NUV_LOG_CRITICAL);
    constexpr size_t kBatches = 50, kBatch = 20;
    ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    ChurnHost host(manager);
    LibraryGoesFirst library;
    ASSERT_EQ(0, manager->RegisterCallback(&host));
    std::set<int> created;
    for (size_t batch = 0; batch < kBatches; ++batch) {
        std::vector<std::unique_ptr<UserSpaceClient>> clients;
        for (size_t i = 0; i < kBatch; ++i)
            clients.emplace_back(
                new UserSpaceClient("Churn " + std::to_string(batch * kBatch + i)));
        ASSERT_TRUE(WaitFor([&] { return host.Count(NUV_EVENT_DEVICE_ATTACHED) == kBatch; }))
            << "batch " << batch;
        clients.clear();
        ASSERT_TRUE(WaitFor([&] { return host.Count(NUV_EVENT_DEVICE_DETACHED) == kBatch; }))
            << "batch " << batch;
        auto ids = host.Take();
        for (const auto& entry : ids[NUV_EVENT_DEVICE_ATTACHED]) {
            ASSERT_EQ(1u, entry.second.size()) << "client " << entry.first;
            EXPECT_NE(-1, entry.second[0]) << "client " << entry.first;
            EXPECT_EQ(entry.second, ids[NUV_EVENT_DEVICE_DETACHED][entry.first]);
            created.insert(entry.second[0]);
        }
    }
    EXPECT_EQ(kBatches * kBatch, created.size()) << "every device id is new";
    for (int id : created)
        EXPECT_EQ(nullptr, manager->GetDevice(id)) << "device " << id << " outlived its client";
    for (const _NuvDevInfo& info : ConnectedDevices(manager))
        EXPECT_TRUE(std::atoi(info.UID) < 128 || info.isSynth) << "left: " << info.deviceName;
    EXPECT_EQ(0, manager->UnregisterCallback(&host));
}

// The 6 MB default font, which the emulated VM reads slowly, is swapped for a small one.
TEST(Load, TheLibraryIsMadeAndDestroyedAHundredTimesWhileItsDevicesAreBusy) {
    LogCapture quiet(NUV_LOG_CRITICAL);
    const std::vector<uint8_t> small = BuildSoundFont({{"Load Piano", 0, 0}});
    DefaultFontSwap font(std::string(small.begin(), small.end()));
    auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_GE(keyboards.size(), 2u);
    const std::string song = WriteLoadSong(::testing::TempDir() + "nuv_load_song.mid", 10);
    std::vector<std::unique_ptr<CountingHostCallback>> listeners; // outlive every library
    LibraryGoesFirst library;
    // The keyboards play about as fast as a player on a real MIDI cable (31250 baud: some
    // 1000 messages a second).
    Player player(
        [&](uint8_t note) {
            for (VirtualKeyboard& keyboard : keyboards)
                keyboard.Write({0x90, note, 100, 0x80, note, 0});
            return true;
        },
        std::chrono::milliseconds(4));
    for (int cycle = 0; cycle < 100; ++cycle) {
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance()) << "cycle " << cycle;
        INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
        INuvMIDIDevice* devices[2] = {};
        for (int k = 0; k < 2; ++k) {
            const std::string name = keyboards[size_t(k)].ClientName();
            ASSERT_TRUE(WaitFor([&] { return manager->IsConnected(name.c_str()) == 1; }));
            devices[k] = manager->CreateDevice(name.c_str());
            ASSERT_NE(nullptr, devices[k]);
        }
        ASSERT_EQ(devices[0], manager->GetDevice(devices[0]->GetID()));
        listeners.emplace_back(new CountingHostCallback);
        ASSERT_EQ(1, devices[0]->RegisterCallback(listeners.back().get()));
        _MIDIDeviceInfo src =
            cycle % 2 == 0 ? End(devices[0]->GetID(), MIDI_DEVICE_TYPE_SOURCE) : FileEnd(song);
        _MIDIDeviceInfo dst = End(devices[1]->GetID(), MIDI_DEVICE_TYPE_DESTINATION);
        ASSERT_EQ(1, manager->StartStream(&src, &dst));
        ASSERT_TRUE(WaitFor([&] { return listeners.back()->calls > 0; }))
            << "cycle " << cycle << ": no key press reached the host";
        NuvMIDIEntry::DeleteInstance();
        DisconnectPorts(keyboards[0].Client(), keyboards[1].Client()); // the stream's, if any
    }
}

// Four host threads call the library at random for a while; every call returns one of its
// own results. Devices are used under a host-side lock per keyboard, as a host must never
// use a device it is destroying.
TEST(Load, FourHostThreadsCallEverythingAtRandom) {
    LogCapture quiet(NUV_LOG_CRITICAL);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const auto kDuration = seconds(10); // to keep the sanitizer builds' VM runs short
#else
    const auto kDuration = seconds(20);
#endif
    const char* given = std::getenv("NUV_LOAD_SEED");
    const unsigned seed = given != nullptr ? unsigned(std::atoi(given)) : std::random_device()();
    std::printf("NUV_LOAD_SEED=%u\n", seed);
    auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_GE(keyboards.size(), 2u);
    ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    const std::string names[2] = {keyboards[0].ClientName(), keyboards[1].ClientName()};
    for (const std::string& name : names)
        ASSERT_TRUE(WaitFor([&] { return manager->IsConnected(name.c_str()) == 1; }));
    const std::string song = WriteLoadSong(::testing::TempDir() + "nuv_load_threads.mid", 2);
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont({{"Load Piano", 0, 0}, {"Load Organ", 0, 20}})));
    struct Slot {
        std::shared_timed_mutex lock;
        INuvMIDIDevice* device = nullptr;
        std::atomic<int> id{-1}; // streams name the other keyboard's device by id
    } slots[2];
    CountingHostCallback listeners[4];
    LibraryGoesFirst library;
    std::mutex playLock; // one writer per raw node at a time
    std::atomic<int> calls{0};
    std::mutex failuresLock;
    std::vector<std::string> failures;
    auto expectIn = [&](std::initializer_list<int> allowed, int result, const char* call) {
        ++calls;
        if (std::find(allowed.begin(), allowed.end(), result) != allowed.end())
            return;
        std::lock_guard<std::mutex> lock(failuresLock);
        failures.push_back(std::string(call) + " returned " + std::to_string(result));
    };

    const auto deadline = std::chrono::steady_clock::now() + kDuration;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(seed + t);
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
                // Streams and files name devices by id, whatever their state.
                _MIDIDeviceInfo src = End(slots[0].id, MIDI_DEVICE_TYPE_SOURCE);
                _MIDIDeviceInfo dst = End(slots[1].id, MIDI_DEVICE_TYPE_DESTINATION);
                _MIDIDeviceInfo file = FileEnd(song);
                _MIDIDeviceInfo to = End(slot.id, MIDI_DEVICE_TYPE_DESTINATION);
                _NuvDevInfo devInfo{};
                bool taken = false;
                _MIDIMessage msg = Message(0, int(random() % 128), 100);
                if (op == 1) {
                    expectIn({0, 1, 2}, manager->StartStream(&src, &dst), "StartStream");
                } else if (op == 2) {
                    expectIn({0, 9999}, manager->StopStream(&src, &dst), "StopStream");
                } else if (op == 3) {
                    expectIn({0, 1}, manager->StartStream(&file, &to), "StartStream(file)");
                } else if (op == 4) {
                    expectIn({0, 1, 9999}, manager->StopStream(&file, &to), "StopStream(file)");
                } else if (op == 5) {
                    expectIn({1, 2}, manager->GetFilePlayStatus(), "GetFilePlayStatus");
                    expectIn({0, 1}, manager->IsConnected(name), "IsConnected");
                    expectIn({0, 9999}, manager->GetConnectedDeviceInfo(devInfo, taken, k),
                             "GetConnectedDeviceInfo");
                    expectIn({1}, manager->GetDevice(slot.id) == device, "GetDevice");
                } else if (op == 6) {
                    std::lock_guard<std::mutex> playing(playLock);
                    keyboards[size_t(k)].Write({0x90, uint8_t(msg.param), 100});
                }
                if (device == nullptr || op < 6) {
                    continue;
                } else if (op == 6) {
                    expectIn({1}, device->RegisterCallback(&listeners[t]), "RegisterCallback");
                } else if (op == 7) {
                    expectIn({1}, device->UnregisterCallback(&listeners[t]), "UnregisterCallback");
                } else if (op == 8) {
                    expectIn({0}, device->SendMessage(MIDI_EVENT_NOTE_ON, msg), "SendMessage");
                    expectIn({0}, device->GetInformation(MIDI_EVENT_PROGRAM_CHANGE, &msg),
                             "GetInformation");
                } else {
                    const int fontId = device->LoadSoundFontFile(font.Path());
                    expectIn({1}, fontId > 0, "LoadSoundFontFile");
                    device->GetSoundFontIntruments(unsigned(fontId), 0, 2);
                    expectIn({0, 1}, device->UnloadSoundFontFile(unsigned(fontId)),
                             "UnloadSoundFontFile");
                }
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::printf("%d calls\n", calls.load());
    EXPECT_TRUE(failures.empty()) << failures.size() << " unexpected, first: " << failures[0];
    NuvMIDIEntry::DeleteInstance();
    DisconnectPorts(keyboards[0].Client(), keyboards[1].Client());
}

} // namespace
