// The library's sequencer client as peers see it, the devices it finds at start and later,
// its link to the synthesizer, how fast a key press reaches the host, and the default font
// present, absent or unreadable.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "ManagerVmFixture.h"
#include "SequencerView.h"

namespace {

using Clock = std::chrono::steady_clock;

// Clients that exist before the library: an exact recorder name and a name only like it, a
// client calling itself "MIDI Watcher", and one so that the library's is not client 128.
TEST(Discovery, TheLibrarysClientFindsTheDevicesThereAreAndLinksToTheSynthesizer) {
    UserSpaceClient recorder("MIDIRecorder"), recorder2("MIDIRecorder2"), impostor("MIDI Watcher"),
        early("Early Keyboard");
    LibraryGoesFirst library;
    ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    ASSERT_TRUE(WaitFor([&] { return manager->IsConnected("Early Keyboard") == 1; }));

    const SequencerView view = SequencerView::Read();
    const SeqClientView* own = nullptr;
    for (const auto& entry : view.Clients())
        if (entry.second.name == "MIDI Watcher" && entry.first != impostor.Client())
            own = &entry.second;
    ASSERT_NE(nullptr, own);
    std::map<int, std::string> ports;
    for (const auto& port : own->ports)
        ports[port.first] = port.second.name + " " + port.second.flags;
    ASSERT_EQ((std::map<int, std::string>{
                  {0, "listen:1 -We-"}, {1, "listen:2 -We-"}, {2, "anounce:1 R-e-"}}),
              ports);
    EXPECT_TRUE(own->ports.at(0).HearsFrom({0, 1})) << "the system's announcements";
    const SeqClientView* synth = view.FindContaining("FLUID");
    ASSERT_NE(nullptr, synth);
    EXPECT_TRUE(own->ports.at(2).SendsTo({synth->number, synth->ports.begin()->first}));

    ASSERT_TRUE(WaitFor([&] { return Listed(manager).count(synth->name) == 1; }));
    const auto listed = Listed(manager);
    EXPECT_EQ(1, listed.at(synth->name).isSynth);
    EXPECT_EQ(std::to_string(synth->number), listed.at(synth->name).UID);
    for (const VirtualKeyboard& keyboard : VirtualKeyboard::FindAll()) {
        ASSERT_EQ(1u, listed.count(keyboard.ClientName()));
        const _NuvDevInfo& info = listed.at(keyboard.ClientName());
        EXPECT_EQ(std::to_string(keyboard.Client()), info.UID);
        EXPECT_EQ(NUV_DEVICE_TYPE_MIDI, info.type);
        EXPECT_EQ(0, info.isSynth);
    }
    EXPECT_EQ(1u, listed.count("Midi Through"));
    EXPECT_EQ(1u, listed.count("MIDIRecorder2")) << "only the exact recorder name is skipped";
    for (const char* skipped : {"System", "MIDIRecorder", "MIDI Watcher"})
        EXPECT_EQ(0u, listed.count(skipped)) << skipped;

    // Clients that come later: a recorder and a client that never names itself stay
    // unlisted; the keyboard opened after them shows that their announcements were read.
    UserSpaceClient lateRecorder("Late MIDIRecorder");
    snd_seq_t* unnamed = nullptr;
    ASSERT_EQ(0, snd_seq_open(&unnamed, "default", SND_SEQ_OPEN_DUPLEX, 0));
    UserSpaceClient late("Late Keyboard");
    EXPECT_TRUE(WaitFor([&] { return manager->IsConnected("Late Keyboard") == 1; }));
    EXPECT_EQ(0, manager->IsConnected("Late MIDIRecorder"));
    const std::string placeholder = "Client-" + std::to_string(snd_seq_client_id(unnamed));
    EXPECT_EQ(0u, Listed(manager).count(placeholder));
    snd_seq_close(unnamed);

    // What a device sends goes out of the watcher's sending port, whatever its client
    // number, and reaches the synthesizer.
    INuvMIDIDevice* device = manager->CreateDevice("Early Keyboard");
    ASSERT_NE(nullptr, device);
    EXPECT_TRUE(SendVolumeAndReadItBack(device, 33));
}

class KeyPress : public ManagerVmTest {};

// The sequencer's input wakes the watcher, which waits on no timer: the time from a
// keyboard's raw node to the host's callback is that of the wake-up and the delivery.
TEST_F(KeyPress, ReachesTheHostWithinMilliseconds) {
    struct Arrival : NuvCallback {
        int t_OnCallback(int, void*, void*, void*) override {
            at = Clock::now().time_since_epoch().count();
            return 0;
        }
        std::atomic<Clock::rep> at{0};
    } host;
    INuvMIDIDevice* device = CreateKeyboard(0);
    ASSERT_NE(nullptr, device);
    ASSERT_EQ(1, device->RegisterCallback(&host));
    std::vector<double> latencies;
    std::mt19937 random(12345);
    for (int i = 0; i < 100; ++i) {
        // A key press comes at any moment, not just after the last one was delivered.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
        host.at = 0;
        const auto sent = Clock::now();
        ASSERT_TRUE(m_keyboards[0].Write({0x90, uint8_t(i % 128), 64}));
        ASSERT_TRUE(WaitFor([&] { return host.at != 0; }));
        latencies.push_back(std::chrono::duration<double, std::milli>(Clock::duration(host.at) -
                                                                      sent.time_since_epoch())
                                .count());
    }
    EXPECT_EQ(1, device->UnregisterCallback(&host));
    std::sort(latencies.begin(), latencies.end());
    std::printf("raw node to callback: median %.2f ms, 90%% %.2f ms\n", latencies[50],
                latencies[90]);
    EXPECT_LT(latencies[90], 10.0);
}

TEST(DefaultFont, MissingIsNoFailureAndUnreadableFailsCreationLeavingNothing) {
    {
        DefaultFontSwap missing;
        LibraryGoesFirst library;
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_TRUE(WaitFor([&] { return manager->IsConnected("Midi Through") == 1; }));
        INuvMIDIDevice* device = manager->CreateDevice("Midi Through");
        ASSERT_NE(nullptr, device);
        EXPECT_EQ("", device->GetSoundFontIntruments(1, 0, 1)) << "no font was loaded";
        EXPECT_EQ(-1, device->LoadSoundFontFile("Default"));
    }
    DefaultFontSwap unreadable("RIFF, but not a sound font");
    EXPECT_EQ(nullptr, NuvMIDIEntry::GetInstance());
    const SequencerView view = SequencerView::Read();
    EXPECT_EQ(nullptr, view.Find("MIDI Watcher"));
    EXPECT_EQ(nullptr, view.FindContaining("FLUID"));
}

} // namespace
