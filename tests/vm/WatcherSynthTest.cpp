// The synthesizer that the watcher creates: its settings, and the default sound font
// present, absent or unreadable. The font's path is fixed, so these tests move the
// installed file aside (the test VM runs them as root) and put it back afterwards.
#include <stdio.h>
#include <unistd.h>

#include <fstream>

#include "WatcherFixture.h"

namespace {

const std::string kFont = NuvMIDISeqSynth::kDefaultSoundFont;
const std::string kSaved = kFont + ".saved-by-test";

// Moves the installed default font aside for the scope of a test.
class FontAside {
public:
    FontAside() : m_moved(rename(kFont.c_str(), kSaved.c_str()) == 0) {}
    ~FontAside() {
        if (m_moved) {
            unlink(kFont.c_str());
            rename(kSaved.c_str(), kFont.c_str());
        }
    }
    bool Moved() const { return m_moved; }

private:
    bool m_moved;
};

const std::string kFontLine = "\n[NuvMIDIWatcher::m_CreateSynthesizer] Font file id [";

class MIDIWatcherSynth : public ::testing::Test {
protected:
    void SetUp() override {
        if (SequencerView::Read().Clients().empty())
            GTEST_SKIP() << "no kernel sequencer";
        if (access(kFont.c_str(), R_OK) != 0)
            GTEST_SKIP() << "no default sound font installed";
    }
};

TEST_F(MIDIWatcherSynth, DefaultFontIsLoadedAndTheSettingsHold) {
    LogCapture log;
    NuvMIDIWatcher watcher;
    ASSERT_EQ(0, watcher.Create());

    EXPECT_EQ(1, log.Count(kFontLine + "1]\n", NUV_LOG_TRACE));
    fluid_synth_t* synth = Access::Synth(watcher);
    fluid_settings_t* settings = Access::Settings(watcher);
    EXPECT_EQ(1, fluid_synth_sfcount(synth));
    EXPECT_EQ(64, fluid_synth_get_polyphony(synth));
    EXPECT_FLOAT_EQ(1.0f, fluid_synth_get_gain(synth));
    double number = 0;
    int integer = 0;
    EXPECT_EQ(FLUID_OK, fluid_settings_getnum(settings, "synth.sample-rate", &number));
    EXPECT_EQ(48000.0, number);
    EXPECT_EQ(FLUID_OK, fluid_settings_getint(settings, "audio.periods", &integer));
    EXPECT_EQ(8, integer);
    EXPECT_EQ(FLUID_OK, fluid_settings_getint(settings, "synth.min-note-length", &integer));
    EXPECT_EQ(10, integer);
    EXPECT_EQ(1, fluid_settings_str_equal(settings, "audio.driver", "file"));
    EXPECT_EQ(1, fluid_settings_str_equal(settings, "midi.driver", "alsa_seq"));
    EXPECT_NE(nullptr, SequencerView::Read().FindContaining("FLUID"));

    EXPECT_EQ(0, watcher.Destroy());
    EXPECT_EQ(nullptr, SequencerView::Read().FindContaining("FLUID"));
    EXPECT_EQ(nullptr, SequencerView::Read().Find("MIDI Watcher"));
}

TEST_F(MIDIWatcherSynth, MissingFontIsNoFailure) {
    FontAside aside;
    ASSERT_TRUE(aside.Moved());
    LogCapture log;
    NuvMIDIWatcher watcher;

    ASSERT_EQ(0, watcher.Create());

    EXPECT_EQ(0, fluid_synth_sfcount(Access::Synth(watcher)));
    EXPECT_EQ(0, log.CountContaining(kFontLine));
    EXPECT_EQ(0, log.CountContaining("failed"));
    EXPECT_EQ(0, watcher.Destroy());
}

TEST_F(MIDIWatcherSynth, UnreadableFontFailsCreateAndLeavesNothing) {
    FontAside aside;
    ASSERT_TRUE(aside.Moved());
    std::ofstream(kFont) << "RIFF, but not a sound font";
    LogCapture log;
    auto* watcher = new NuvMIDIWatcher();

    EXPECT_EQ(9999, watcher->Create());
    delete watcher; // as its owner does after a failed Create

    EXPECT_EQ(1, log.Count("\n[NuvMIDIWatcher::m_CreateSynthesizer] Unable to load default sound "
                           "font file\n \n",
                           NUV_LOG_INFO));
    EXPECT_EQ(
        1, log.Count("\n[NuvMIDIWatcher::Create] Synthesizer creation failed\n\n", NUV_LOG_INFO));
    EXPECT_EQ(0, log.CountContaining("ASSERT:"));
    const SequencerView view = SequencerView::Read();
    EXPECT_EQ(nullptr, view.Find("MIDI Watcher"));
    EXPECT_EQ(nullptr, view.FindContaining("FLUID"));
}

} // namespace
