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

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "SoundFontWriter.h"

namespace {

using std::chrono::seconds;

// The host of the churn: creates the device of every user-space client that arrives, listens
// and sends to it. Its log holds the device it created at each arrival and the device each
// departure named; kernel clients and the synthesizer stay, and are left out.
class ChurnHost : public HostLog {
public:
    explicit ChurnHost(INuvMIDIDeviceManager* manager) : m_manager(manager) {}
    int t_OnCallback(int event, void* arg1, void* arg2, void* arg3) override {
        const _NuvDevInfo* info = static_cast<const _NuvDevInfo*>(arg1);
        if (std::atoi(info->UID) < 128 || info->isSynth)
            return 0;
        int id = -1;
        if (event == NUV_EVENT_DEVICE_ATTACHED) {
            INuvMIDIDevice* device = m_manager->CreateDevice(info->deviceName);
            id = device != nullptr ? device->GetID() : -1;
            if (device != nullptr && device->RegisterCallback(&m_listener) == 1) {
                _MIDIMessage note = Message(0, 60, 100);
                device->SendMessage(MIDI_EVENT_NOTE_ON, note);
                device->SendMessage(MIDI_EVENT_NOTE_OFF, note);
            }
            arg2 = &id;
        }
        return HostLog::t_OnCallback(event, arg1, arg2, arg3);
    }

private:
    INuvMIDIDeviceManager* m_manager;
    CountingHostCallback m_listener;
};

class Load : public ManagerVmTest {};

// Every arrival becomes a device, also those whose announcement the watcher reads before
// the client has named itself; each departure names the device, which goes with it.
TEST_F(Load, AThousandClientsComeAndGoWhileTheHostUsesTheirDevices) {
    LogCapture quiet(NUV_LOG_CRITICAL);
    constexpr size_t kBatches = 50, kBatch = 20;
    ChurnHost host(m_manager);
    LibraryGoesFirst library;
    ASSERT_EQ(0, m_manager->RegisterCallback(&host));
    std::set<int> created;
    for (size_t batch = 0; batch < kBatches; ++batch) {
        SCOPED_TRACE(batch);
        std::vector<std::unique_ptr<UserSpaceClient>> clients;
        for (size_t i = 0; i < kBatch; ++i)
            clients.emplace_back(
                new UserSpaceClient("Churn " + std::to_string(batch * kBatch + i)));
        ASSERT_TRUE(WaitFor([&] { return host.Entries().size() == (2 * batch + 1) * kBatch; }));
        clients.clear();
        ASSERT_TRUE(WaitFor([&] { return host.Entries().size() == (2 * batch + 2) * kBatch; }));
        std::map<std::string, std::vector<int>> ids[2]; // per client: at arrival, at departure
        const std::vector<HostLog::Entry> entries = host.Entries();
        for (size_t i = 2 * batch * kBatch; i < entries.size(); ++i)
            ids[entries[i].event == NUV_EVENT_DEVICE_DETACHED][entries[i].uid].push_back(
                entries[i].id);
        for (const auto& arrival : ids[0]) {
            ASSERT_EQ(1u, arrival.second.size()) << "client " << arrival.first;
            EXPECT_NE(-1, arrival.second[0]) << "client " << arrival.first;
            EXPECT_EQ(arrival.second, ids[1][arrival.first]);
            created.insert(arrival.second[0]);
        }
    }
    EXPECT_EQ(kBatches * kBatch, created.size()) << "every device id is new";
    for (int id : created)
        EXPECT_EQ(nullptr, m_manager->GetDevice(id)) << "device " << id << " outlived its client";
    for (const _NuvDevInfo& info : ConnectedDevices(m_manager))
        EXPECT_TRUE(std::atoi(info.UID) < 128 || info.isSynth) << "left: " << info.deviceName;
    EXPECT_EQ(0, m_manager->UnregisterCallback(&host));
}

// The 6 MB default font, which the emulated VM reads slowly, is swapped for a small one.
TEST_F(Load, TheLibraryIsMadeAndDestroyedAHundredTimesWhileItsDevicesAreBusy) {
    LogCapture quiet(NUV_LOG_CRITICAL);
    NuvMIDIEntry::DeleteInstance(); // made again below, with the small font
    const std::vector<uint8_t> small = BuildSoundFont({{"Load Piano", 0, 0}});
    DefaultFontSwap font(std::string(small.begin(), small.end()));
    const std::string song = ::testing::TempDir() + "nuv_load_song.mid";
    ASSERT_TRUE(WriteSong(song, 10));
    std::vector<std::unique_ptr<CountingHostCallback>> listeners; // outlive every library
    LibraryGoesFirst library;
    // The keyboards play about as fast as a player on a real MIDI cable (31250 baud: some
    // 1000 messages a second).
    Player player(
        [&](uint8_t note) {
            for (VirtualKeyboard& keyboard : m_keyboards)
                keyboard.Write({0x90, note, 100, 0x80, note, 0});
            return true;
        },
        std::chrono::milliseconds(4));
    for (int cycle = 0; cycle < 100; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_TRUE(KeyboardsListed());
        INuvMIDIDevice* devices[2] = {CreateKeyboard(0), CreateKeyboard(1)};
        ASSERT_TRUE(devices[0] != nullptr && devices[1] != nullptr);
        ASSERT_EQ(devices[0], m_manager->GetDevice(devices[0]->GetID()));
        listeners.emplace_back(new CountingHostCallback);
        ASSERT_EQ(1, devices[0]->RegisterCallback(listeners.back().get()));
        _MIDIDeviceInfo src =
            cycle % 2 == 0 ? End(devices[0], MIDI_DEVICE_TYPE_SOURCE) : FileEnd(song);
        _MIDIDeviceInfo dst = End(devices[1], MIDI_DEVICE_TYPE_DESTINATION);
        ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
        ASSERT_TRUE(WaitFor([&] { return listeners.back()->calls > 0; }))
            << "no key press reached the host";
        NuvMIDIEntry::DeleteInstance();
        DisconnectPorts(m_keyboards[0].Client(), m_keyboards[1].Client()); // the stream's, if any
    }
}

// Four host threads call the library at random for a while; every call returns one of its
// own results. Devices are used under a host-side lock per keyboard, as a host must never
// use a device it is destroying.
TEST_F(Load, FourHostThreadsCallEverythingAtRandom) {
    LogCapture quiet(NUV_LOG_CRITICAL);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const auto kDuration = seconds(10); // to keep the sanitizer builds' VM runs short
#else
    const auto kDuration = seconds(20);
#endif
    const unsigned seed = Seed("NUV_LOAD_SEED");
    const std::string song = ::testing::TempDir() + "nuv_load_threads.mid";
    ASSERT_TRUE(WriteSong(song, 2));
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
    HostThreads threads(4, [&](int t, const std::atomic<bool>&) {
        std::mt19937 random(seed + unsigned(t));
        while (std::chrono::steady_clock::now() < deadline) {
            const int k = int(random() % 2);
            Slot& slot = slots[k];
            const std::string name = m_keyboards[size_t(k)].ClientName();
            const int op = int(random() % 10);
            if (op == 0) { // create the device, or destroy it
                std::unique_lock<std::shared_timed_mutex> lock(slot.lock);
                if (slot.device == nullptr) {
                    slot.device = m_manager->CreateDevice(name.c_str());
                    slot.id = slot.device != nullptr ? slot.device->GetID() : -1;
                    expectIn({1}, slot.device != nullptr, "CreateDevice");
                } else {
                    expectIn({0}, m_manager->DestroyDevice(slot.id), "DestroyDevice");
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
                expectIn({0, 1, 2}, m_manager->StartStream(&src, &dst), "StartStream");
            } else if (op == 2) {
                expectIn({0, 9999}, m_manager->StopStream(&src, &dst), "StopStream");
            } else if (op == 3) {
                expectIn({0, 1}, m_manager->StartStream(&file, &to), "StartStream(file)");
            } else if (op == 4) {
                expectIn({0, 1, 9999}, m_manager->StopStream(&file, &to), "StopStream(file)");
            } else if (op == 5) {
                expectIn({1, 2}, m_manager->GetFilePlayStatus(), "GetFilePlayStatus");
                expectIn({0, 1}, m_manager->IsConnected(name.c_str()), "IsConnected");
                expectIn({0, 9999}, m_manager->GetConnectedDeviceInfo(devInfo, taken, k),
                         "GetConnectedDeviceInfo");
                expectIn({1}, m_manager->GetDevice(slot.id) == device, "GetDevice");
            } else if (op == 6) {
                std::lock_guard<std::mutex> playing(playLock);
                m_keyboards[size_t(k)].Write({0x90, uint8_t(msg.param), 100});
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
    threads.Stop(); // joins them at the deadline
    std::printf("%d calls\n", calls.load());
    EXPECT_TRUE(failures.empty()) << failures.size() << " unexpected, first: " << failures[0];
}

} // namespace
