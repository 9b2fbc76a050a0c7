// Device-to-device streams on the VM's virtual keyboards, and the renderer's users that
// taking devices and streams add (refused stream ends are in the bad-input tests).
#include <cstdlib>

#include "ManagerVmFixture.h"

namespace {

class ManagerStreams : public ManagerVmTest {};

// The library is destroyed at the end with the renderer's three users.
TEST_F(ManagerStreams, EachStreamSubscribesItsPortsAndIsOneUserOfTheRenderer) {
    INuvMIDIDevice* a = CreateKeyboard(0);
    INuvMIDIDevice* b = CreateKeyboard(1);
    ASSERT_TRUE(a != nullptr && b != nullptr);
    EXPECT_EQ(0, RendererUsers()) << "creating a device does not start the renderer";
    EXPECT_EQ(a, m_manager->GetDevice(a->GetID()));
    EXPECT_EQ(b, m_manager->GetDevice(b->GetID()));
    EXPECT_EQ(1, RendererUsers()) << "the first device taken starts it, the next adds nothing";
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    _MIDIDeviceInfo back = End(b, MIDI_DEVICE_TYPE_SOURCE),
                    to = End(a, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(9999, m_manager->StopStream(&src, &dst)) << "never connected";
    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    EXPECT_TRUE(Connected(a, b));
    EXPECT_EQ(2, m_manager->StartStream(&src, &dst)) << "the pair is busy";
    ASSERT_EQ(1, m_manager->StartStream(&back, &to));
    EXPECT_EQ(3, RendererUsers());
    EXPECT_EQ(0, m_manager->StopStream(&src, &dst));
    EXPECT_FALSE(Connected(a, b));
    EXPECT_EQ(2, RendererUsers());
    EXPECT_EQ(0, m_manager->DestroyDevice(a->GetID()));
    EXPECT_EQ(2, RendererUsers()) << "destroying a device removes no user";
}

TEST_F(ManagerStreams, AStopWithoutAStartNeverTakesTheCountBelowZero) {
    INuvMIDIDevice* a = CreateKeyboard(0);
    INuvMIDIDevice* b = CreateKeyboard(1);
    // Someone else connected the pair; the manager's stop removes it all the same.
    const std::string connect = "aconnect " + std::to_string(m_keyboards[0].Client()) + ":0 " +
                                std::to_string(m_keyboards[1].Client()) + ":0";
    ASSERT_EQ(0, std::system(connect.c_str()));
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(0, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(0, RendererUsers());
    EXPECT_FALSE(HasRenderer()) << "the last user's stop ends the renderer";
    EXPECT_EQ(a, m_manager->GetDevice(a->GetID()));
    EXPECT_EQ(1, RendererUsers()) << "a later first user still starts the renderer";
    EXPECT_TRUE(HasRenderer());
}

} // namespace
