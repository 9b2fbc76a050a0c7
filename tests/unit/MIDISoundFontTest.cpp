// Listing sound fonts through a connector, on a synthesizer of the test's own: the entries'
// format and order, paging (huge starts and counts included), and listing while another
// thread unloads the font.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "RendererRig.h"
#include "SoundFontWriter.h"
#include "WaitFor.h"

namespace {

class MIDISoundFontTest : public ::testing::Test {
protected:
    // Writes a font with these presets and loads it; the font's id.
    int LoadFont(const std::vector<SoundFontPreset>& presets) {
        m_fonts.emplace_back(new TempFile(".sf2"));
        EXPECT_TRUE(m_fonts.back()->Write(BuildSoundFont(presets)));
        return m_connector.LoadSoundFontFile(m_fonts.back()->Path());
    }
    static std::vector<SoundFontPreset> Numbered(int count) {
        std::vector<SoundFontPreset> presets;
        for (int i = 0; i < count; ++i)
            presets.push_back({"P" + std::to_string(i), 0, i});
        return presets;
    }

    RendererRig m_rig; // its synthesizer, without the renderer
    TestCandidate m_candidate{20, "Keyboard", m_rig.synth};
    NuvMIDIConnector m_connector{&m_candidate.info, nullptr, &m_rig.owner};
    std::vector<std::unique_ptr<TempFile>> m_fonts;
};

TEST_F(MIDISoundFontTest, ListsEachPresetAsTwentyOneCharactersInBankAndProgramOrder) {
    const int id = LoadFont({{"Twelve Chars", 0, 5},
                             {"Piano", 0, 0},
                             {"Thirteen Char", 1, 7},
                             {"Twenty Characters Xy", 12, 99},
                             {"Wide", 128, 1000},
                             {"Deep", 1000, 1}});
    ASSERT_EQ(1, id);
    // A name past 12 characters, and a number past three digits, push the comma out.
    EXPECT_EQ("000:000 Piano       ,"
              "000:005 Twelve Chars,"
              "001:007 Thirteen Char"
              "012:099 Twenty Charac"
              "128:1000 Wide        "
              "1000:001 Deep        ",
              m_connector.GetSoundFontIntruments(id, 0, 6));
    EXPECT_EQ("001:007 Thirteen Char012:099 Twenty Charac",
              m_connector.GetSoundFontIntruments(id, 2, 2));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(id, 0, 0));

    const int large = LoadFont(Numbered(128)); // at most 45 entries at a time
    const std::string first = m_connector.GetSoundFontIntruments(large, 0, 100);
    ASSERT_EQ(945u, first.size());
    EXPECT_EQ("000:044 P44         ,", first.substr(44 * 21));
    EXPECT_EQ("000:120 P120        ,",
              m_connector.GetSoundFontIntruments(large, 120, 45).substr(0, 21));
    // A start and a count that overflow their sum keep the listing in its buffer.
    EXPECT_EQ(945u, m_connector.GetSoundFontIntruments(large, 0, UINT_MAX).size());
    EXPECT_EQ(21u, m_connector.GetSoundFontIntruments(large, 127, UINT_MAX).size());
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(large, UINT_MAX, 1));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(large, 128, UINT_MAX));
    EXPECT_EQ(1, m_connector.UnloadSoundFontFile(large));
    EXPECT_EQ(0, m_connector.UnloadSoundFontFile(large));
}

// Under ASan a listing that walked a font while it was being unloaded would read freed
// memory; under TSan two walks of one font would race on its iteration cursor.
TEST_F(MIDISoundFontTest, ListingWhileAnotherThreadUnloadsTheFontIsSafe) {
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont(Numbered(128))));
    LogCapture quiet(NUV_LOG_CRITICAL);
    std::atomic<int> currentId{0};
    std::atomic<bool> stop{false};
    std::atomic<int> fullListings{0};
    auto lister = [&] {
        while (!stop.load()) {
            const std::string listing = m_connector.GetSoundFontIntruments(currentId.load(), 0, 45);
            if (listing.size() == 945)
                ++fullListings;
            else
                EXPECT_EQ("", listing);
        }
    };
    std::thread first(lister), second(lister);
    for (int round = 0; round < 30; ++round) {
        const int id = m_connector.LoadSoundFontFile(font.Path());
        EXPECT_GT(id, 0);
        const int listedBefore = fullListings.load();
        currentId.store(id);
        // Unload while the listers are walking this very font.
        EXPECT_TRUE(WaitFor([&] { return fullListings.load() > listedBefore; }));
        EXPECT_EQ(1, m_connector.UnloadSoundFontFile(id));
    }
    stop.store(true);
    first.join();
    second.join();
}

} // namespace
