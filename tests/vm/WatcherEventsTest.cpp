// MIDI bytes from a keyboard, as the sequencer delivers them to the watcher's input port,
// become messages for the registered callbacks.
#include <cstring>

#include "WatcherFixture.h"

namespace {

class MIDIWatcherEvents : public CreatedWatcherTest {
protected:
    void SetUp() override {
        CreatedWatcherTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        auto keyboards = VirtualKeyboard::FindAll();
        ASSERT_FALSE(keyboards.empty());
        keyboard.reset(new VirtualKeyboard(std::move(keyboards.front())));
        Pass();
        // What a connector does for its device: the keyboard's port feeds port 1.
        ASSERT_EQ(0, snd_seq_connect_from(Access::Seq(*watcher), 1, keyboard->Client(),
                                          keyboard->Port()));
        watcher->RegisterMIDICallback(&callback);
    }
    void TearDown() override {
        if (watcher)
            watcher->UnregisterMIDICallback(&callback);
        CreatedWatcherTest::TearDown();
    }

    std::unique_ptr<VirtualKeyboard> keyboard;
    RecordingCallback callback;
};

bool AllZero(const char* bytes, size_t size) {
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != 0)
            return false;
    return true;
}

TEST_F(MIDIWatcherEvents, ChannelMessagesReachTheCallbackWithTheirFields) {
    LogCapture log;
    ASSERT_TRUE(keyboard->Write({0x90, 60, 100})); // note on, channel 0
    ASSERT_TRUE(keyboard->Write({0x83, 61, 0}));   // note off, channel 3
    ASSERT_TRUE(keyboard->Write({0xB3, 7, 100}));  // control change, channel 3
    ASSERT_TRUE(keyboard->Write({0xC5, 9}));       // program change, channel 5
    ASSERT_TRUE(keyboard->Write({0xD2, 77}));      // channel pressure, channel 2
    ASSERT_TRUE(keyboard->Write({0xE1, 0x00, 0x00, 0xE1, 0x7F, 0x7F, 0xE1, 0x00, 0x40}));

    ASSERT_TRUE(PassUntil([&] { return callback.Count() >= 8; }));

    const auto received = callback.All();
    ASSERT_EQ(8u, received.size());
    // The parameter of the other control-type events is whatever the device's event carried
    // (the virtual keyboard reuses one event record), so it is not checked (-1).
    struct Expected {
        int code, channel, param, value;
    };
    const Expected expected[] = {{16, 0, 60, 100},  {17, 3, 61, 0},  {20, 3, 7, 100},
                                 {21, 5, -1, 9},    {22, 2, -1, 77}, {23, 1, -1, -8192},
                                 {23, 1, -1, 8191}, {23, 1, -1, 0}};
    for (size_t i = 0; i < received.size(); ++i) {
        SCOPED_TRACE(i);
        const Received& r = received[i];
        EXPECT_EQ(keyboard->Client(), r.client);
        EXPECT_EQ(expected[i].code, r.code);
        EXPECT_EQ(expected[i].channel, r.message.channel);
        if (expected[i].param >= 0) {
            EXPECT_EQ(expected[i].param, r.message.param);
        }
        EXPECT_EQ(expected[i].value, r.message.value);
        if (r.code >= 20) {
            EXPECT_TRUE(AllZero(r.message.text, sizeof(r.message.text)));
        } else {
            EXPECT_EQ(0, r.message.duration);
        }
    }
    // Control-type events are logged with the sequencer's type, notes are not.
    EXPECT_EQ(1, log.Count("\n[NuvMIDIWatcher::m_MIDIProcess] [0] EventType: [10] Parameter: [7] "
                           "Channel [3] Value [100]\n",
                           NUV_LOG_TRACE));
    EXPECT_EQ(6, log.CountContaining("EventType: ["));
}

TEST_F(MIDIWatcherEvents, UnhandledTypesAreLoggedAndDropped) {
    LogCapture log;
    ASSERT_TRUE(keyboard->Write({0xA0, 60, 50})); // polyphonic key pressure
    ASSERT_TRUE(keyboard->Write({0x90, 62, 1}));  // a note after it, to know when it went by

    ASSERT_TRUE(PassUntil([&] { return callback.Count() >= 1; }));

    EXPECT_EQ(1, log.Count("\n[NuvMIDIWatcher::m_MIDIProcess] unhandled event [8] received\n",
                           NUV_LOG_INFO));
    const auto received = callback.All();
    ASSERT_EQ(1u, received.size());
    EXPECT_EQ(16, received[0].code);
    EXPECT_EQ(62, received[0].message.param);
}

} // namespace
