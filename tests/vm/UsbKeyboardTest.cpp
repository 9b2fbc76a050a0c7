// Real USB MIDI keyboards (vm-run --usb-keyboards) plugged in and pulled out under the host
// API: they arrive as devices named after their product, their keys reach the host whole and
// in order, streams reach them until stopped; pulled out while the host uses them, the host
// is told once, their callbacks stop, their streams let go of the renderer and nothing hangs;
// a replugged keyboard is a new device, and plug cycles leave memory flat. Every test starts
// and ends with the keyboards unplugged, named "USB Keys 0", "USB Keys 1".
#include <malloc.h>

#include <cstdio>
#include <memory>
#include <set>
#include <shared_mutex>

#include "ManagerVmFixture.h"
#include "NuvMIDI.h"
#include "UsbKeyboard.h"

namespace {

using std::chrono::seconds;

// The USB keyboards are m_usb; the virtual keyboards are the other ends of streams.
class UsbKeyboards : public ManagerVmTest {
protected:
    void SetUp() override {
        const std::string unavailable = UsbKeyboard::Unavailable();
        if (!unavailable.empty())
            GTEST_SKIP() << unavailable;
        m_usb = UsbKeyboard::FindAll();
        ASSERT_GE(m_usb.size(), 2u) << "these tests plug two USB keyboards";
        for (UsbKeyboard& keyboard : m_usb) {
            ASSERT_TRUE(!keyboard.IsPlugged() || keyboard.Unplug());
            ASSERT_TRUE(keyboard.SetProduct("USB Keys " + std::to_string(keyboard.Index())));
        }
        ASSERT_NO_FATAL_FAILURE(ManagerVmTest::SetUp());
        ASSERT_EQ(0, m_manager->RegisterCallback(&m_host));
    }
    void TearDown() override {
        ManagerVmTest::TearDown();
        for (UsbKeyboard& keyboard : m_usb)
            EXPECT_TRUE(!keyboard.IsPlugged() || keyboard.Unplug());
    }

    // The UID the library gives a plugged keyboard: its client number.
    static std::string Uid(const UsbKeyboard& keyboard) {
        return std::to_string(keyboard.Client());
    }
    // Plugs the keyboard in and creates its device by its name once the host has been told
    // of it. A replugged keyboard often gets its old client number, and so its old UID.
    INuvMIDIDevice* PlugAndCreate(UsbKeyboard& keyboard) {
        const bool told = keyboard.Plug() && WaitFor([&] {
                              return m_host.Told(NUV_EVENT_DEVICE_ATTACHED, Uid(keyboard)) >
                                     m_host.Told(NUV_EVENT_DEVICE_DETACHED, Uid(keyboard));
                          });
        return told ? m_manager->CreateDevice(keyboard.Product().c_str()) : nullptr;
    }
    // The emulated ARM guest, with host threads calling in, takes longer than the default.
    bool WaitForDeparture(const std::string& uid, size_t count = 1) {
        const auto deadline = std::chrono::milliseconds(long(5000 * TimeScale()));
        return WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_DETACHED, uid) == count; },
                       deadline);
    }

    std::vector<UsbKeyboard> m_usb;
    HostLog m_host; // outlives the library: TearDown destroys it first
};

TEST_F(UsbKeyboards, APluggedKeyboardIsADeviceWhoseMessagesArriveWholeAndInOrder) {
    UsbKeyboard& keyboard = m_usb[0];
    INuvMIDIDevice* device = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, device);
    const _NuvDevInfo info = Listed(m_manager)[keyboard.Product()]; // named after its product
    ASSERT_EQ(Uid(keyboard), info.UID);
    EXPECT_EQ(NUV_DEVICE_TYPE_MIDI, info.type);
    EXPECT_EQ(0, info.isSynth);
    ASSERT_EQ(1, device->RegisterCallback(&m_host));
    const int id = device->GetID();

    const int kAny = -1; // one-byte messages keep the parser's last controller number
    const struct {
        std::vector<uint8_t> bytes;
        int code, channel, param, value;
    } cases[] = {
        {{0x90, 60, 100}, 16, 0, 60, 100},
        {{0x8F, 61, 64}, 17, 15, 61, 64},
        {{0xB3, 7, 100}, 20, 3, 7, 100},
        {{0xC1, 5}, 21, 1, kAny, 5},
        {{0xD2, 64}, 22, 2, kAny, 64},
        {{0xE2, 0x7F, 0x7F}, 23, 2, kAny, 8191},
        {{0xEF, 0x00, 0x00}, 23, 15, kAny, -8192},
        // SysEx travels as several USB MIDI packets and is no channel message: the host is
        // not told, and the note after it arrives whole.
        {{0xF0, 0x7E, 0x7F, 0x06, 0x01, 0xF7, 0x91, 62, 90}, 16, 1, 62, 90},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(c.code);
        ASSERT_TRUE(keyboard.Play(c.bytes));
        ASSERT_TRUE(WaitFor([&] { return m_host.Of(id).size() > i; }));
        const _MIDIMessage msg = m_host.Of(id)[i].message;
        EXPECT_EQ(c.code, m_host.Of(id)[i].event);
        EXPECT_EQ(c.channel, msg.channel);
        EXPECT_TRUE(c.param == kAny || c.param == msg.param);
        EXPECT_EQ(c.value, msg.value);
        if (c.code >= 20) {
            EXPECT_EQ(std::string(256, '\0'), std::string(msg.text, 256));
        }
    }

    constexpr int kNotes = 1000;
    std::vector<uint8_t> burst;
    for (int i = 0; i < kNotes; ++i) // (note, velocity) is different for every i
        burst.insert(burst.end(), {0x90, uint8_t(i % 128), uint8_t(1 + i / 128)});
    ASSERT_TRUE(keyboard.Play(burst));
    const size_t first = std::size(cases);
    ASSERT_TRUE(WaitFor([&] { return m_host.Of(id).size() >= first + kNotes; }, seconds(20)));
    const std::vector<HostLog::Entry> notes = m_host.Of(id);
    ASSERT_EQ(first + kNotes, notes.size());
    for (int i = 0; i < kNotes; ++i) {
        ASSERT_EQ(i % 128, notes[first + size_t(i)].message.param) << "note " << i;
        ASSERT_EQ(1 + i / 128, notes[first + size_t(i)].message.value) << "note " << i;
    }
}

// A stream to the keyboard reaches its gadget side until it is stopped; started again, it
// and a stream from the keyboard run when the keyboard is pulled out.
TEST_F(UsbKeyboards, PulledOutWhileKeysFlowAndStreamsRunThenPluggedInAsANewDevice) {
    UsbKeyboard& keyboard = m_usb[0];
    INuvMIDIDevice* usb = PlugAndCreate(keyboard);
    INuvMIDIDevice* other = CreateKeyboard(0);
    ASSERT_TRUE(usb != nullptr && other != nullptr);
    const int id = usb->GetID();
    const std::string uid = Uid(keyboard);
    ASSERT_EQ(usb, m_manager->GetDevice(id));
    ASSERT_EQ(1, usb->RegisterCallback(&m_host));
    _MIDIDeviceInfo toUsb[2] = {End(other, MIDI_DEVICE_TYPE_SOURCE),
                                End(usb, MIDI_DEVICE_TYPE_DESTINATION)};
    _MIDIDeviceInfo fromUsb[2] = {End(usb, MIDI_DEVICE_TYPE_SOURCE),
                                  End(other, MIDI_DEVICE_TYPE_DESTINATION)};
    ASSERT_EQ(1, m_manager->StartStream(&toUsb[0], &toUsb[1]));
    ASSERT_TRUE(m_keyboards[0].Write({0x90, 60, 100, 0xB0, 64, 127}));
    EXPECT_EQ((std::vector<uint8_t>{0x90, 60, 100, 0xB0, 64, 127}), keyboard.Listen(6, seconds(5)))
        << "the stream reaches the keyboard";
    ASSERT_EQ(0, m_manager->StopStream(&toUsb[0], &toUsb[1]));
    EXPECT_FALSE(Connected(other, usb));
    ASSERT_TRUE(m_keyboards[0].Write({0x80, 60, 0}));
    EXPECT_TRUE(keyboard.Listen(1, std::chrono::milliseconds(300)).empty()) << "nor after a stop";
    ASSERT_EQ(1, m_manager->StartStream(&toUsb[0], &toUsb[1]));
    ASSERT_EQ(1, m_manager->StartStream(&fromUsb[0], &fromUsb[1]));
    ASSERT_EQ(3, RendererUsers()) << "the device taken and two streams";

    Player player(
        [&](uint8_t note) {
            return keyboard.Play({0x90, note, 100, 0x80, note, 0});
        },
        std::chrono::milliseconds(1));
    ASSERT_TRUE(WaitFor([&] { return m_host.Of(id).size() >= 50; })) << "keys flow";
    ASSERT_TRUE(keyboard.Unplug());
    ASSERT_TRUE(WaitForDeparture(uid));
    player.Stop();
    bool departed = false;
    for (const HostLog::Entry& entry : m_host.Entries()) {
        departed = departed || (entry.event == NUV_EVENT_DEVICE_DETACHED && entry.id == id);
        EXPECT_FALSE(departed && entry.IsMidi() && entry.id == id)
            << "a callback after the departure";
    }
    EXPECT_TRUE(departed) << "the departure names the device";
    EXPECT_EQ(nullptr, m_manager->GetDevice(id));
    EXPECT_EQ(0, m_manager->IsConnected(keyboard.Product().c_str()));
    EXPECT_EQ(1, RendererUsers()) << "the streams' users went with the keyboard";
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->StopStream(&toUsb[0], &toUsb[1]));
    EXPECT_EQ(1, RendererUsers());

    INuvMIDIDevice* second = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, second);
    EXPECT_NE(id, second->GetID());
    ASSERT_EQ(1, second->RegisterCallback(&m_host));
    ASSERT_TRUE(keyboard.Play({0x90, 64, 80}));
    ASSERT_TRUE(WaitFor([&] { return m_host.Of(second->GetID()).size() == 1; }));
    EXPECT_EQ(64, m_host.Of(second->GetID())[0].message.param);
    EXPECT_EQ(1u, m_host.Told(NUV_EVENT_DEVICE_DETACHED, uid)) << "told once";
}

// The sequencer names both clients after the product; a name reaches the first, the UID
// reaches each.
TEST_F(UsbKeyboards, TwoKeyboardsOfOneProductAreBothListedCreatedAndHeard) {
    std::string uids[2];
    for (int k = 0; k < 2; ++k) {
        ASSERT_TRUE(m_usb[size_t(k)].SetProduct("Twin Keys"));
        ASSERT_TRUE(m_usb[size_t(k)].Plug());
        uids[k] = Uid(m_usb[size_t(k)]);
        ASSERT_TRUE(WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_ATTACHED, uids[k]); }));
    }
    ASSERT_NE(uids[0], uids[1]);
    std::vector<std::string> listed;
    for (const _NuvDevInfo& info : ConnectedDevices(m_manager))
        if (std::string("Twin Keys") == info.deviceName)
            listed.push_back(info.UID);
    ASSERT_EQ(2u, listed.size());
    INuvMIDIDevice* byName = m_manager->CreateDevice("Twin Keys");
    ASSERT_NE(nullptr, byName);
    _NuvDevInfo info{};
    byName->GetDevInfo(info);
    EXPECT_EQ(listed[0], info.UID) << "a name reaches the first listed device";
    for (int k = 0; k < 2; ++k) {
        INuvMIDIDevice* device = m_manager->CreateDevice(uids[k].c_str());
        ASSERT_NE(nullptr, device);
        EXPECT_EQ(listed[0] == uids[k], device == byName) << "one device per keyboard";
        ASSERT_EQ(1, device->RegisterCallback(&m_host));
        ASSERT_TRUE(m_usb[size_t(k)].Play({0x90, uint8_t(70 + k), 100}));
        ASSERT_TRUE(WaitFor([&] { return m_host.Of(device->GetID()).size() == 1; }));
        EXPECT_EQ(70 + k, m_host.Of(device->GetID())[0].message.param);
    }
}

// A host stops using a device when told of its departure: its calls on the device object
// hold a host-side lock that the departure callback takes. Calls by name and id need none.
// The departure first says that the device is leaving, so that no new call starts: a
// reader-preferring lock under four calling threads would otherwise keep the departure
// callback (and with it the library's thread) waiting for as long as they call.
class CallingHost : public NuvCallback {
public:
    int t_OnCallback(int event, void*, void* arg2, void*) override {
        if (event == NUV_EVENT_DEVICE_DETACHED && arg2 != nullptr &&
            *static_cast<int*>(arg2) == id) {
            leaving = true;
            std::unique_lock<std::shared_timed_mutex> lock(deviceLock);
            device = nullptr;
        }
        return 0;
    }
    bool Gone() {
        std::shared_lock<std::shared_timed_mutex> lock(deviceLock);
        return device == nullptr;
    }
    std::atomic<bool> leaving{false};
    std::shared_timed_mutex deviceLock;
    INuvMIDIDevice* device = nullptr;
    int id = -1;
};

TEST_F(UsbKeyboards, PulledOutWhileHostThreadsCallIntoItsDevice) {
    UsbKeyboard& keyboard = m_usb[0];
    const std::string name = keyboard.Product();
    // On the heap: ThreadSanitizer keeps the identity of a mutex that lived at a stack
    // address before (a std::mutex says nothing when it goes).
    auto owned = std::make_unique<CallingHost>();
    CallingHost& host = *owned;
    CountingHostCallback listener;
    LibraryGoesFirst library;
    host.device = PlugAndCreate(keyboard);
    INuvMIDIDevice* other = CreateKeyboard(0);
    ASSERT_TRUE(host.device != nullptr && other != nullptr);
    host.id = host.device->GetID();
    const std::string uid = Uid(keyboard);
    ASSERT_EQ(0, m_manager->RegisterCallback(&host));

    std::atomic<int> calls{0};
    HostThreads threads(4, [&](int t, const std::atomic<bool>& stop) {
        _MIDIDeviceInfo src = End(other, MIDI_DEVICE_TYPE_SOURCE);
        _MIDIDeviceInfo dst = End(host.id, MIDI_DEVICE_TYPE_DESTINATION);
        for (int i = t; !stop; ++i, ++calls) {
            if (i % 5 == 0) {
                m_manager->CreateDevice(name.c_str());
            } else if (i % 5 == 1) {
                m_manager->GetDevice(host.id);
            } else if (i % 5 == 2) {
                if (m_manager->StartStream(&src, &dst) == 1)
                    m_manager->StopStream(&src, &dst);
            } else if (!host.leaving) {
                std::shared_lock<std::shared_timed_mutex> lock(host.deviceLock);
                if (host.device == nullptr)
                    continue;
                _MIDIMessage note = Message(0, 60, 100);
                host.device->SendMessage(MIDI_EVENT_NOTE_ON, note);
                host.device->RegisterCallback(&listener);
                host.device->UnregisterCallback(&listener);
            }
        }
    });
    ASSERT_TRUE(WaitFor([&] { return calls > 400; }, seconds(10)));
    ASSERT_TRUE(keyboard.Unplug());
    ASSERT_TRUE(WaitForDeparture(uid));
    const int atDeparture = calls;
    EXPECT_TRUE(WaitFor([&] { return calls > atDeparture + 400; }, seconds(10)))
        << "host calls go on after the departure";
    threads.Stop();

    EXPECT_TRUE(WaitFor([&] { return host.Gone(); })) << "the departure names the device";
    EXPECT_EQ(nullptr, m_manager->GetDevice(host.id));
    EXPECT_EQ(nullptr, m_manager->CreateDevice(name.c_str()));
    // A stop at one user ends the renderer, which the next GetDevice starts again: what is
    // left is that one user at most, none of a stream cut by the departure.
    EXPECT_LE(RendererUsers(), 1);
    EXPECT_EQ(1u, m_host.Told(NUV_EVENT_DEVICE_DETACHED, uid));
    EXPECT_EQ(0, m_manager->UnregisterCallback(&host));
}

// What the process still holds from the allocator: a leak grows it. (Resident memory also
// counts pages the allocator keeps after frees, and varied by hundreds of KiB from run to run.)
long HeapInUseKiB() {
    const struct mallinfo2 heap = mallinfo2();
    return long((heap.uordblks + heap.hblkhd) / 1024);
}

// The host follows the keyboard as an application does: it creates the device of every
// arrival by its UID and listens to it.
TEST_F(UsbKeyboards, SixtyPlugCyclesLeaveMemoryFlatAndNoDeviceBehind) {
    constexpr int kCycles = 60;
    UsbKeyboard& keyboard = m_usb[0];
    std::set<int> ids;
    CountingHostCallback listener;
    long heap[2] = {};
    for (int cycle = 1; cycle <= kCycles; ++cycle) {
        SCOPED_TRACE(cycle);
        INuvMIDIDevice* device = PlugAndCreate(keyboard);
        ASSERT_NE(nullptr, device);
        ASSERT_TRUE(ids.insert(device->GetID()).second) << "every device id is new";
        ASSERT_EQ(1, device->RegisterCallback(&listener));
        ASSERT_TRUE(keyboard.Play({0x90, 60, 100}));
        ASSERT_TRUE(WaitFor([&] { return listener.calls == cycle; }));
        const std::string uid = Uid(keyboard);
        const size_t gone = m_host.Told(NUV_EVENT_DEVICE_DETACHED, uid);
        ASSERT_TRUE(keyboard.Unplug());
        ASSERT_TRUE(WaitForDeparture(uid, gone + 1));
        if (cycle == kCycles / 2 || cycle == kCycles)
            heap[cycle / kCycles] = HeapInUseKiB();
    }
    std::printf("heap in use after cycle %d and %d: %ld, %ld KiB\n", kCycles / 2, kCycles, heap[0],
                heap[1]);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // (The sanitizers keep freed memory aside for a while: their figures are only shown.)
    EXPECT_LE(heap[1] - heap[0], 256) << "memory grew in the second half";
#endif
    for (int id : ids)
        EXPECT_EQ(nullptr, m_manager->GetDevice(id)) << "device " << id << " outlived its keyboard";
    EXPECT_EQ(0, m_manager->IsConnected(keyboard.Product().c_str()));
}

} // namespace
