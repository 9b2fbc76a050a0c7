// Any client may write anything to the watcher's listening ports: a storm of random events
// of every type leaves the library working, and announcements of client starts and exits
// that do not come from the system client change no device.
#include <algorithm>
#include <random>
#include <set>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "SequencerView.h"

namespace {

std::set<std::string> Devices(INuvMIDIDeviceManager* manager) {
    std::set<std::string> devices;
    for (const _NuvDevInfo& info : ConnectedDevices(manager))
        devices.insert(std::string(info.UID) + " " + info.deviceName);
    return devices;
}

class EventStorm : public ManagerVmTest {};

TEST_F(EventStorm, RandomEventsOfEveryTypeLeaveTheLibraryWorking) {
    constexpr int kRounds = 12; // every type this many times, in random order
    std::mt19937 random(Seed("NUV_STORM_SEED"));
    LogCapture quiet(NUV_LOG_CRITICAL);
    VirtualKeyboard& keyboard = m_keyboards[0];
    INuvMIDIDevice* device = CreateKeyboard(0);
    ASSERT_NE(nullptr, device);
    CountingHostCallback host;
    LibraryGoesFirst library;
    ASSERT_EQ(1, device->RegisterCallback(&host));

    const SequencerView view = SequencerView::Read();
    const SeqClientView* watcherView = view.Find("MIDI Watcher");
    ASSERT_NE(nullptr, watcherView);
    const int watcher = watcherView->number;
    UserSpaceClient stormer("Stormer");
    ASSERT_TRUE(stormer.IsOpen());
    snd_seq_nonblock(stormer.Handle(), 1); // a full queue drops the event, never blocks us
    ASSERT_TRUE(WaitFor([&] { return m_manager->IsConnected("Stormer") == 1; }));
    const std::set<std::string> before = Devices(m_manager);

    std::vector<int> types;
    for (int round = 0; round < kRounds; ++round)
        for (int type = 0; type < 256; ++type)
            types.push_back(type);
    std::shuffle(types.begin(), types.end(), random);
    const int madeUpClient = 99; // no client has this number
    int sent = 0, count = 0;
    std::vector<unsigned char> payload;
    for (int type : types) {
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        auto* raw = reinterpret_cast<unsigned char*>(&ev.data);
        for (size_t i = 0; i < sizeof ev.data; ++i)
            raw[i] = static_cast<unsigned char>(random());
        ev.type = static_cast<snd_seq_event_type_t>(type);
        snd_seq_ev_set_source(&ev, 0);
        snd_seq_ev_set_dest(&ev, watcher, int(random() % 2));
        snd_seq_ev_set_direct(&ev);
        if (type >= SND_SEQ_EVENT_CLIENT_START && type <= SND_SEQ_EVENT_PORT_UNSUBSCRIBED) {
            // A forged announcement about a client that does not exist or about the keyboard.
            ev.data.addr.client =
                static_cast<unsigned char>(random() % 2 ? madeUpClient : keyboard.Client());
            ev.data.addr.port = 0;
        }
        if (snd_seq_ev_is_variable_type(&ev)) {
            payload.resize(1 + 2 * (random() % 200)); // odd lengths, up to 399 bytes
            for (auto& byte : payload)
                byte = static_cast<unsigned char>(random());
            if (type == SND_SEQ_EVENT_SYSEX && random() % 2) {
                payload.front() = 0xF0;
                payload.back() = 0xF7;
            }
            snd_seq_ev_set_variable(&ev, payload.size(), payload.data());
        }
        if (snd_seq_event_output_direct(stormer.Handle(), &ev) >= 0)
            ++sent;
        // Now and then a real key press, which the host gets once the watcher has read
        // everything sent before it: the library stays alive, and most of the storm lands.
        if (++count % 32 == 0) {
            const int notes = host.calls;
            ASSERT_TRUE(keyboard.Write({0x90, 60, 100}));
            ASSERT_TRUE(WaitFor([&] { return host.calls > notes; }, std::chrono::seconds(10)))
                << "a key press no longer reaches the host, " << count << " events into the storm";
        }
    }
    std::printf("%d of %zu events accepted by the sequencer\n", sent, types.size());
    EXPECT_GT(sent, int(types.size()) / 2);

    EXPECT_EQ(before, Devices(m_manager)) << "forged announcements changed the devices";
    EXPECT_EQ(device, m_manager->GetDevice(device->GetID()));
    EXPECT_NE(nullptr, SequencerView::Read().Find("MIDI Watcher"));

    // The system client's own announcements still count.
    stormer.Close();
    EXPECT_TRUE(WaitFor([&] { return m_manager->IsConnected("Stormer") == 0; }));
}

} // namespace
