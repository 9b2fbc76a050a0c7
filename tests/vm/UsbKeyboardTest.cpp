// Real USB MIDI keyboards through the host API: they arrive as devices named after their
// product, their keys reach the host, streams reach them, and a replugged keyboard is a new
// device. Two keyboards of one product are told apart by their UID.
#include <cstdlib>

#include "SequencerView.h"
#include "UsbKeyboardFixture.h"
#include "VirtualKeyboard.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST_F(UsbKeyboardTest, EveryChannelMessageArrivesWithItsFieldsAndSysExDisturbsNothing) {
    UsbKeyboard& keyboard = m_keyboards[0];
    INuvMIDIDevice* device = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, device);
    ASSERT_EQ(1, device->RegisterCallback(&m_host));
    const int id = device->GetID();

    const int kAny = -1; // one-byte messages keep the parser's last controller number
    struct Case {
        std::vector<uint8_t> bytes;
        int code, channel, param, value;
    } cases[] = {
        {{0x90, 60, 100}, 16, 0, 60, 100},
        {{0x8F, 61, 64}, 17, 15, 61, 64},
        {{0xB3, 7, 100}, 20, 3, 7, 100},
        {{0xC1, 5}, 21, 1, kAny, 5},
        {{0xD2, 64}, 22, 2, kAny, 64},
        {{0xE2, 0x7F, 0x7F}, 23, 2, kAny, 8191},
        {{0xE0, 0x00, 0x40}, 23, 0, kAny, 0},
        {{0xEF, 0x00, 0x00}, 23, 15, kAny, -8192},
        // SysEx travels as several USB MIDI packets and is no channel message: the host is
        // not told, and the note after it arrives whole.
        {{0xF0, 0x7E, 0x7F, 0x06, 0x01, 0xF7, 0x91, 62, 90}, 16, 1, 62, 90},
    };
    for (const Case& c : cases) {
        const size_t before = m_host.Midi(id);
        ASSERT_TRUE(keyboard.Play(c.bytes));
        ASSERT_TRUE(WaitFor([&] { return m_host.Midi(id) > before; })) << c.code;
        const HostLog::Entry entry = m_host.LastMidi(id);
        EXPECT_EQ(c.code, entry.event);
        EXPECT_EQ(c.channel, entry.message.channel) << c.code;
        if (c.param != kAny) {
            EXPECT_EQ(c.param, entry.message.param) << c.code;
        }
        EXPECT_EQ(c.value, entry.message.value) << c.code;
        if (c.code >= 20) {
            EXPECT_EQ(std::string(256, '\0'), std::string(entry.message.text, 256)) << c.code;
        }
    }
    EXPECT_EQ(std::size(cases), m_host.Midi(id));
}

TEST_F(UsbKeyboardTest, AThousandNotesArriveCompleteAndInOrder) {
    UsbKeyboard& keyboard = m_keyboards[0];
    INuvMIDIDevice* device = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, device);
    ASSERT_EQ(1, device->RegisterCallback(&m_host));
    constexpr int kNotes = 1000;
    std::vector<uint8_t> burst;
    for (int i = 0; i < kNotes; ++i) // (note, velocity) is different for every i
        burst.insert(burst.end(), {0x90, uint8_t(i % 128), uint8_t(1 + i / 128)});
    ASSERT_TRUE(keyboard.Play(burst));

    const int id = device->GetID();
    ASSERT_TRUE(WaitFor([&] { return m_host.Midi(id) >= kNotes; }, seconds(20)))
        << m_host.Midi(id) << " of " << kNotes;
    int i = 0;
    for (const HostLog::Entry& entry : m_host.Entries()) {
        if (entry.id != id || !HostLog::IsMidi(entry))
            continue;
        ASSERT_EQ(i % 128, entry.message.param) << "note " << i;
        ASSERT_EQ(1 + i / 128, entry.message.value) << "note " << i;
        ++i;
    }
    EXPECT_EQ(kNotes, i);
}

TEST_F(UsbKeyboardTest, AStreamToTheKeyboardReachesItsGadgetSideUntilStopped) {
    UsbKeyboard& keyboard = m_keyboards[0];
    INuvMIDIDevice* usb = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, usb);
    std::vector<VirtualKeyboard> virtuals = VirtualKeyboard::FindAll();
    ASSERT_FALSE(virtuals.empty());
    ASSERT_TRUE(WaitFor([&] { return m_manager->IsConnected(virtuals[0].ClientName().c_str()); }));
    INuvMIDIDevice* source = m_manager->CreateDevice(virtuals[0].ClientName().c_str());
    ASSERT_NE(nullptr, source);
    _MIDIDeviceInfo src = ManagerVmTest::End(source, MIDI_DEVICE_TYPE_SOURCE);
    _MIDIDeviceInfo dst = ManagerVmTest::End(usb, MIDI_DEVICE_TYPE_DESTINATION);

    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    ASSERT_TRUE(virtuals[0].Write({0x90, 60, 100, 0xB0, 64, 127}));
    EXPECT_EQ((std::vector<uint8_t>{0x90, 60, 100, 0xB0, 64, 127}), keyboard.Listen(6, seconds(5)));

    ASSERT_EQ(0, m_manager->StopStream(&src, &dst));
    const SequencerView view = SequencerView::Read();
    EXPECT_FALSE(
        view.Clients().at(virtuals[0].Client()).ports.at(0).SendsTo({keyboard.Client(), 0}));
    ASSERT_TRUE(virtuals[0].Write({0x80, 60, 0}));
    EXPECT_TRUE(keyboard.Listen(1, milliseconds(300)).empty());
}

TEST_F(UsbKeyboardTest, APluggedKeyboardIsListedByItsProductAndAReplugIsANewDevice) {
    UsbKeyboard& keyboard = m_keyboards[0];
    ASSERT_TRUE(keyboard.Plug());
    const std::string firstUid = Uid(keyboard);
    ASSERT_TRUE(WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_ATTACHED, firstUid) == 1; }));
    _NuvDevInfo info{};
    bool created = true;
    for (int index = 0; m_manager->GetConnectedDeviceInfo(info, created, index) == 0; ++index)
        if (firstUid == info.UID)
            break;
    ASSERT_EQ(firstUid, info.UID);
    EXPECT_EQ(keyboard.Product(), info.deviceName);
    EXPECT_EQ(NUV_DEVICE_TYPE_MIDI, info.type);
    EXPECT_EQ(0, info.isSynth);
    EXPECT_FALSE(created);
    INuvMIDIDevice* first = m_manager->CreateDevice(keyboard.Product().c_str());
    ASSERT_NE(nullptr, first);
    const int firstId = first->GetID();
    // Taken before the unplug, as a host does (and ThreadSanitizer then sees the read of the
    // device above ordered before the watcher deletes it).
    ASSERT_EQ(first, m_manager->GetDevice(firstId));
    ASSERT_TRUE(keyboard.Unplug());
    ASSERT_TRUE(WaitForDeparture(firstUid));
    EXPECT_EQ(nullptr, m_manager->GetDevice(firstId));
    EXPECT_EQ(0, m_manager->IsConnected(keyboard.Product().c_str()));

    INuvMIDIDevice* second = PlugAndCreate(keyboard);
    ASSERT_NE(nullptr, second);
    EXPECT_NE(firstId, second->GetID());
    EXPECT_EQ(nullptr, m_manager->GetDevice(firstId));
    ASSERT_EQ(1, second->RegisterCallback(&m_host));
    ASSERT_TRUE(keyboard.Play({0x90, 64, 80}));
    ASSERT_TRUE(WaitFor([&] { return m_host.Midi(second->GetID()) == 1; }));
    EXPECT_EQ(64, m_host.LastMidi(second->GetID()).message.param);
    EXPECT_EQ(0u, m_host.Midi(firstId));
}

// The sequencer names both clients after the product; a name reaches the first, the UID
// reaches each.
TEST_F(UsbKeyboardTest, TwoKeyboardsOfOneProductAreBothListedCreatedAndHeard) {
    for (int k = 0; k < 2; ++k) {
        ASSERT_TRUE(m_keyboards[size_t(k)].SetProduct("Twin Keys"));
        ASSERT_TRUE(m_keyboards[size_t(k)].Plug());
    }
    const std::string uids[2] = {Uid(m_keyboards[0]), Uid(m_keyboards[1])};
    ASSERT_NE(uids[0], uids[1]);
    for (const std::string& uid : uids)
        ASSERT_TRUE(WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_ATTACHED, uid) == 1; }));

    std::vector<std::string> listed;
    _NuvDevInfo info{};
    bool created = false;
    for (int index = 0; m_manager->GetConnectedDeviceInfo(info, created, index) == 0; ++index)
        if (std::string("Twin Keys") == info.deviceName)
            listed.push_back(info.UID);
    EXPECT_EQ(2u, listed.size());

    INuvMIDIDevice* byName = m_manager->CreateDevice("Twin Keys");
    ASSERT_NE(nullptr, byName);
    _NuvDevInfo named{};
    byName->GetDevInfo(named);
    EXPECT_EQ(listed.at(0), named.UID) << "a name reaches the first listed device";
    INuvMIDIDevice* devices[2] = {m_manager->CreateDevice(uids[0].c_str()),
                                  m_manager->CreateDevice(uids[1].c_str())};
    ASSERT_NE(nullptr, devices[0]);
    ASSERT_NE(nullptr, devices[1]);
    EXPECT_NE(devices[0]->GetID(), devices[1]->GetID());
    EXPECT_TRUE(byName == devices[0] || byName == devices[1]) << "one device per keyboard";
    for (int k = 0; k < 2; ++k) {
        ASSERT_EQ(1, devices[k]->RegisterCallback(&m_host));
        ASSERT_TRUE(m_keyboards[size_t(k)].Play({0x90, uint8_t(70 + k), 100}));
    }
    for (int k = 0; k < 2; ++k) {
        const int id = devices[k]->GetID();
        ASSERT_TRUE(WaitFor([&] { return m_host.Midi(id) == 1; })) << "keyboard " << k;
        EXPECT_EQ(1u, m_host.Count([&](const HostLog::Entry& e) {
            return e.id == id && e.event == 16 && e.message.param == 70 + k;
        }));
    }
}

} // namespace
