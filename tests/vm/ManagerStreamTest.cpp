// Device-to-device streams on the VM's virtual keyboards (refused stream ends are in the
// bad-input tests).
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "SequencerView.h"

namespace {

int ClientOf(INuvMIDIDevice* device) {
    _NuvDevInfo info{};
    device->GetDevInfo(info);
    return std::atoi(info.UID);
}

// Whether the sequencer lists port 0 of `from` as connected to port 0 of `to`.
bool Connected(INuvMIDIDevice* from, INuvMIDIDevice* to) {
    const SequencerView view = SequencerView::Read();
    const auto client = view.Clients().find(ClientOf(from));
    return client != view.Clients().end() && client->second.ports.count(0) == 1 &&
           client->second.ports.at(0).SendsTo({ClientOf(to), 0});
}

class ManagerStreams : public ManagerVmTest {};

TEST_F(ManagerStreams, StartSubscribesTheSourcePortToTheDestinationAndBytesFlow) {
    INuvMIDIDevice* a = TakeKeyboard(0);
    INuvMIDIDevice* b = TakeKeyboard(1);
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);

    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    EXPECT_TRUE(Connected(a, b));

    const int out = open(KeyboardNode(0).c_str(), O_WRONLY);
    const int in = open(KeyboardNode(1).c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(out, 0) << KeyboardNode(0);
    ASSERT_GE(in, 0) << KeyboardNode(1);
    unsigned char none[1];
    EXPECT_EQ(-1, read(in, none, 1)) << "a virtual keyboard's input starts with its first read";
    const unsigned char noteOn[] = {0x90, 0x3C, 0x64};
    ASSERT_EQ(3, write(out, noteOn, sizeof noteOn));
    std::string received;
    EXPECT_TRUE(WaitFor([&] {
        unsigned char buffer[16];
        const ssize_t n = read(in, buffer, sizeof buffer);
        if (n > 0)
            received.append(reinterpret_cast<char*>(buffer), size_t(n));
        return received.size() >= 3;
    }));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(noteOn), 3), received);
    const unsigned char noteOff[] = {0x80, 0x3C, 0x00};
    write(out, noteOff, sizeof noteOff);
    close(out);
    close(in);

    EXPECT_EQ(0, m_manager->StopStream(&src, &dst));
    EXPECT_FALSE(Connected(a, b));
}

TEST_F(ManagerStreams, SecondStartOfTheSamePairIsBusyAndAddsNoRendererUser) {
    INuvMIDIDevice* a = TakeKeyboard(0);
    INuvMIDIDevice* b = TakeKeyboard(1);
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(2, RendererUsers());
    LogCapture log;
    EXPECT_EQ(2, m_manager->StartStream(&src, &dst));
    EXPECT_TRUE(
        log.Has("\n[NuvMIDIDeviceManager::StartStream] Subscription failed \n\n", NUV_LOG_INFO));
    EXPECT_EQ(2, RendererUsers());
    EXPECT_EQ(0, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, RendererUsers());
}

TEST_F(ManagerStreams, StoppingAPairNeverConnectedFailsAndKeepsTheRenderer) {
    INuvMIDIDevice* a = TakeKeyboard(0);
    INuvMIDIDevice* b = TakeKeyboard(1);
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    LogCapture log;
    EXPECT_EQ(9999, m_manager->StopStream(&src, &dst));
    EXPECT_TRUE(log.Has("\n There was no connection\n \n", NUV_LOG_INFO));
    EXPECT_TRUE(
        log.Has("\n[NuvMIDIDeviceManager::StopStream] Unsubscription failed \n\n", NUV_LOG_INFO));
    EXPECT_EQ(1, RendererUsers());
}

} // namespace
