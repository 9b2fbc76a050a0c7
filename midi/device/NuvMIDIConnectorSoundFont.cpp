// Sound fonts of the one synthesizer, loaded, unloaded and listed through any connector.
#include <fluidsynth.h>
#include <stdio.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDISeqSynth.h"

namespace {
const char kDefaultSoundFontKeyword[] = "Default";

// The listing: fixed-width entries in a fixed buffer. An entry that formats longer than
// its width is cut by the next one (see GetSoundFontIntruments).
const int kEntryWidth = 21;
const int kEntryBound = kEntryWidth + 1;
const unsigned int kMaxEntries = 45;
const int kListingSize = 1024;
static_assert(kMaxEntries * kEntryWidth < kListingSize, "the listing fits its buffer");
} // namespace

int NuvMIDIConnector::LoadSoundFontFile(const std::string& path) {
    std::string file = path;
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::LoadSoundFontFile]\n");
    if (m_RequireClientInfo("LoadSoundFontFile") == nullptr || m_pSeqSynth == nullptr)
        return -1;

    if (file == kDefaultSoundFontKeyword) {
        struct stat status;
        if (lstat(NuvMIDISeqSynth::kDefaultSoundFont, &status) != 0) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIConnector::LoadSoundFontFile] Unable to find default sound "
                       "font file\n ");
            return -1;
        }
        file = NuvMIDISeqSynth::kDefaultSoundFont;
    }

    const int fontId = m_pSeqSynth->LoadFont(file.c_str());
    if (fontId == FLUID_FAILED) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n");
        return -1;
    }
    return fontId;
}

int NuvMIDIConnector::UnloadSoundFontFile(unsigned int fontId) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::UnloadSoundFontFile]\n");
    if (m_RequireClientInfo("UnloadSoundFontFile") == nullptr || m_pSeqSynth == nullptr)
        return 0;
    if (m_pSeqSynth->UnloadFont(static_cast<int>(fontId)) != FLUID_OK) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n");
        return 0;
    }
    return 1;
}

std::string NuvMIDIConnector::GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                                     unsigned int count) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::GetSoundFontIntruments]\n");
    char listing[kListingSize] = {};
    if (m_RequireClientInfo("GetSoundFontIntruments") == nullptr || m_pSeqSynth == nullptr)
        return listing;

    std::vector<NuvMIDISeqSynth::Preset> presets;
    if (!m_pSeqSynth->ListPresets(static_cast<int>(fontId), &presets)) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIConnector::GetSoundFontIntruments] invalid font file\n");
        return listing;
    }

    // Entry i starts at 21 * i; its terminator is overwritten by entry i + 1, so a longer
    // entry loses its tail (a name of 13 characters or more keeps 13 and no comma).
    const size_t n = presets.size();
    if (start >= n || count == 0)
        return listing;
    for (unsigned int i = 0;; ++i) {
        const NuvMIDISeqSynth::Preset& preset = presets[start + i];
        snprintf(listing + kEntryWidth * i, kEntryBound, "%03d:%03d %-12s,", preset.bank,
                 preset.program, preset.name.c_str());
        if (start + i + 1 == n || i + 1 == count || i + 1 == kMaxEntries)
            break;
    }
    return listing;
}
