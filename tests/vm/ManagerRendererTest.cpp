// The shared renderer: who adds and removes its users, and what destroying the library
// does to it.
#include <cstdlib>

#include "LogCapture.h"
#include "ManagerVmFixture.h"

namespace {

class ManagerRenderer : public ManagerVmTest {};

TEST_F(ManagerRenderer, TakingADeviceAddsAUserOnlyWhenThereIsNoneAndEachStreamAddsOne) {
    INuvMIDIDevice* a = CreateKeyboard(0);
    INuvMIDIDevice* b = CreateKeyboard(1);
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(0, RendererUsers()) << "creating a device does not start the renderer";
    EXPECT_EQ(a, m_manager->GetDevice(a->GetID()));
    EXPECT_EQ(1, RendererUsers());
    EXPECT_TRUE(HasRenderer());
    EXPECT_EQ(a, m_manager->GetDevice(a->GetID()));
    EXPECT_EQ(b, m_manager->GetDevice(b->GetID()));
    EXPECT_EQ(1, RendererUsers()) << "a device taken while the renderer runs adds nothing";
    EXPECT_EQ(0, m_manager->DestroyDevice(a->GetID()));
    EXPECT_EQ(1, RendererUsers()) << "destroying a device removes no user";

    a = CreateKeyboard(0);
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(2, RendererUsers());
    EXPECT_EQ(0, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, RendererUsers());
}

TEST_F(ManagerRenderer, AStopWithoutAStartNeverTakesTheCountBelowZero) {
    INuvMIDIDevice* a = CreateKeyboard(0);
    INuvMIDIDevice* b = CreateKeyboard(1);
    _NuvDevInfo ia{}, ib{};
    a->GetDevInfo(ia);
    b->GetDevInfo(ib);
    // Someone else connected the pair; the manager's stop removes it all the same.
    const std::string connect = "aconnect " + std::string(ia.UID) + ":0 " + ib.UID + ":0";
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

TEST_F(ManagerRenderer, DestroyingTheLibraryStopsARendererWithSeveralUsers) {
    INuvMIDIDevice* a = TakeKeyboard(0);
    INuvMIDIDevice* b = TakeKeyboard(1);
    _MIDIDeviceInfo src = End(a, MIDI_DEVICE_TYPE_SOURCE),
                    dst = End(b, MIDI_DEVICE_TYPE_DESTINATION);
    ASSERT_EQ(1, m_manager->StartStream(&src, &dst));
    _MIDIDeviceInfo back = End(b, MIDI_DEVICE_TYPE_SOURCE),
                    to = End(a, MIDI_DEVICE_TYPE_DESTINATION);
    ASSERT_EQ(1, m_manager->StartStream(&back, &to));
    EXPECT_EQ(3, RendererUsers());
    LogCapture log;
    NuvMIDIEntry::DeleteInstance();
    EXPECT_EQ(1, log.Count("[NuvMIDIRenderer::StopRenderer] END! \n\n"));
}

} // namespace
