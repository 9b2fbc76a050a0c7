// Loading, unloading and listing sound fonts through a connector, on a synthesizer of the
// test's own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "SoundFontWriter.h"
#include "WaitFor.h"

namespace {

const char* const kDefaultSoundFontPath = NuvMIDISeqSynth::kDefaultSoundFont;
const std::string kLoadFailed = "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n\n";
const std::string kNoDefault =
    "\n[NuvMIDIConnector::LoadSoundFontFile] Unable to find default sound font file\n \n";
const std::string kInvalidFont =
    "\n[NuvMIDIConnector::GetSoundFontIntruments] invalid font file\n\n";

std::vector<SoundFontPreset> NumberedPresets(int count) {
    std::vector<SoundFontPreset> presets;
    for (int i = 0; i < count; ++i)
        presets.push_back({"P" + std::to_string(i), 0, i});
    return presets;
}

class MIDISoundFontTest : public ::testing::Test {
protected:
    // Writes a font with these presets and loads it; the font's id.
    int LoadFont(const std::vector<SoundFontPreset>& presets) {
        m_fonts.emplace_back(new TempFile(".sf2"));
        EXPECT_TRUE(m_fonts.back()->Write(BuildSoundFont(presets)));
        return m_connector.LoadSoundFontFile(m_fonts.back()->Path());
    }

    TestSynthesizer m_synth;
    TestCandidate m_candidate{20, "Keyboard", m_synth.Get()};
    NuvMIDIConnector m_connector{&m_candidate.info, nullptr, m_synth.Owner()};
    std::vector<std::unique_ptr<TempFile>> m_fonts;
};

TEST_F(MIDISoundFontTest, ListsEachPresetAsTwentyOneCharacters) {
    const int id = LoadFont({{"Piano", 0, 0},
                             {"Twelve Chars", 0, 5},
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
    EXPECT_EQ("000:000 Piano       ,", m_connector.GetSoundFontIntruments(id, 0, 1));
    EXPECT_EQ("001:007 Thirteen Char012:099 Twenty Charac",
              m_connector.GetSoundFontIntruments(id, 2, 2));

    // Listed in the order of bank and program, whatever the order in the file.
    const int second = LoadFont({{"Strings", 1, 0}, {"Organ", 0, 19}, {"Piano", 0, 0}});
    EXPECT_EQ(2, second);
    EXPECT_EQ("000:000 Piano       ,000:019 Organ       ,001:000 Strings     ,",
              m_connector.GetSoundFontIntruments(second, 0, 3));
}

TEST_F(MIDISoundFontTest, PagesThroughALargeFontAtMostFortyFiveEntriesAtATime) {
    const int id = LoadFont(NumberedPresets(128));

    const std::string first = m_connector.GetSoundFontIntruments(id, 0, 100);
    ASSERT_EQ(945u, first.size());
    EXPECT_EQ("000:000 P0          ,", first.substr(0, 21));
    EXPECT_EQ("000:044 P44         ,", first.substr(44 * 21));

    const std::string last = m_connector.GetSoundFontIntruments(id, 120, 45);
    ASSERT_EQ(8u * 21, last.size());
    EXPECT_EQ("000:120 P120        ,", last.substr(0, 21));
    EXPECT_EQ("000:127 P127        ,", last.substr(7 * 21));
}

TEST_F(MIDISoundFontTest, NothingToListOrAnUnknownFontGivesTheEmptyText) {
    const int id = LoadFont(NumberedPresets(3));
    LogCapture log;
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(id, 0, 0));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(id, 3, 1));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(id, 4000000000u, 1));
    EXPECT_EQ("000:002 P2          ,", m_connector.GetSoundFontIntruments(id, 2, 45));
    EXPECT_EQ(0, log.Count(kInvalidFont));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(7, 0, 10));
    EXPECT_EQ(1, log.Count(kInvalidFont, NUV_LOG_INFO));
}

TEST_F(MIDISoundFontTest, UnloadingSucceedsOnceAndTheFontIsGone) {
    const int id = LoadFont(NumberedPresets(2));
    LogCapture log;
    EXPECT_EQ(1, m_connector.UnloadSoundFontFile(id));
    EXPECT_EQ(0, m_connector.UnloadSoundFontFile(id));
    EXPECT_EQ(0, m_connector.UnloadSoundFontFile(99));
    EXPECT_EQ(2, log.Count("\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n\n", NUV_LOG_INFO));
    EXPECT_EQ("", m_connector.GetSoundFontIntruments(id, 0, 1));
}

TEST_F(MIDISoundFontTest, FilesThatAreNotFontsFailToLoad) {
    TempFile corrupt(".sf2");
    std::vector<uint8_t> bytes = BuildSoundFont(NumberedPresets(1));
    bytes.resize(bytes.size() / 2);
    ASSERT_TRUE(corrupt.Write(bytes));
    LogCapture log;

    EXPECT_EQ(-1, m_connector.LoadSoundFontFile("/nonexistent/font.sf2"));
    EXPECT_EQ(-1, m_connector.LoadSoundFontFile(corrupt.Path()));
    // Only the exact keyword selects the default font; anything else is a path.
    EXPECT_EQ(-1, m_connector.LoadSoundFontFile("default"));

    EXPECT_EQ(3, log.Count(kLoadFailed, NUV_LOG_INFO));
    EXPECT_EQ(0, log.Count(kNoDefault));
}

TEST_F(MIDISoundFontTest, DefaultKeywordWithoutTheDefaultFontFails) {
    struct stat status;
    if (lstat(kDefaultSoundFontPath, &status) == 0)
        GTEST_SKIP() << "this machine has the default sound font";
    LogCapture log;

    EXPECT_EQ(-1, m_connector.LoadSoundFontFile("Default"));
    EXPECT_EQ(1, log.Count(kNoDefault, NUV_LOG_INFO));
    EXPECT_EQ(0, log.Count(kLoadFailed));
}

// Under ASan a listing that walked a font while it was being unloaded would read freed
// memory; under TSan two walks of one font would race on its iteration cursor.
TEST_F(MIDISoundFontTest, ListingWhileAnotherThreadUnloadsTheFontIsSafe) {
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont(NumberedPresets(128))));
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
