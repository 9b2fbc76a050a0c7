// Sound fonts of the one synthesizer, loaded, unloaded and listed through any connector.
#include <fluidsynth.h>
#include <stdio.h>
#include <sys/stat.h>

#include <mutex>
#include <string>
#include <vector>

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDISynthSettings.h"

namespace {
const char* const kDefaultSoundFontPath = kNuvMIDIDefaultSoundFont;
const char kDefaultSoundFontKeyword[] = "Default";

// The listing: fixed-width entries in a fixed buffer. An entry that formats longer than
// its width is cut by the next one (see GetSoundFontIntruments).
const int kEntryWidth = 21;
const int kEntryBound = kEntryWidth + 1;
const unsigned int kMaxEntries = 45;
const int kListingSize = 1024;
static_assert(kMaxEntries * kEntryWidth < kListingSize, "the listing fits its buffer");

// One synthesizer serves every connector, so one lock serves every font operation: a
// listing never walks a font that an unload is freeing, and two listings never share the
// font's single iteration cursor.
std::mutex g_soundFontMutex;

struct _PresetType {
    int bank;
    int program;
    std::string name;
};

// Every preset of the font in the font's own iteration order, bank offset applied.
std::vector<_PresetType> CollectPresets(fluid_synth_t* synth, fluid_sfont_t* font, int fontId) {
    std::vector<_PresetType> presets;
    const int offset = fluid_synth_get_bank_offset(synth, fontId);
    fluid_sfont_iteration_start(font);
    while (fluid_preset_t* preset = fluid_sfont_iteration_next(font))
        presets.push_back({fluid_preset_get_banknum(preset) + offset, fluid_preset_get_num(preset),
                           fluid_preset_get_name(preset)});
    return presets;
}
} // namespace

int NuvMIDIConnector::LoadSoundFontFile(const std::string& path) {
    std::string file = path;
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::LoadSoundFontFile]\n");
    const _MIDIClientInfo* info = m_RequireClientInfo("LoadSoundFontFile");
    if (info == nullptr)
        return -1;

    if (file == kDefaultSoundFontKeyword) {
        struct stat status;
        if (lstat(kDefaultSoundFontPath, &status) != 0) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIConnector::LoadSoundFontFile] Unable to find default sound "
                       "font file\n ");
            return -1;
        }
        file = kDefaultSoundFontPath;
    }

    int fontId;
    {
        std::lock_guard<std::mutex> lock(g_soundFontMutex);
        // Reset 1: every channel re-selects its preset, now from the new font on top.
        fontId = fluid_synth_sfload(info->synth, file.c_str(), 1);
    }
    if (fontId == FLUID_FAILED) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n");
        return -1;
    }
    return fontId;
}

int NuvMIDIConnector::UnloadSoundFontFile(unsigned int fontId) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::UnloadSoundFontFile]\n");
    const _MIDIClientInfo* info = m_RequireClientInfo("UnloadSoundFontFile");
    if (info == nullptr)
        return 0;

    int result;
    {
        std::lock_guard<std::mutex> lock(g_soundFontMutex);
        result = fluid_synth_sfunload(info->synth, static_cast<int>(fontId), 1);
    }
    if (result != FLUID_OK) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n");
        return 0;
    }
    return 1;
}

std::string NuvMIDIConnector::GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                                     unsigned int count) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIConnector::GetSoundFontIntruments]\n");
    char listing[kListingSize] = {};
    const _MIDIClientInfo* info = m_RequireClientInfo("GetSoundFontIntruments");
    if (info == nullptr)
        return listing;

    std::vector<_PresetType> presets;
    {
        std::lock_guard<std::mutex> lock(g_soundFontMutex);
        const int id = static_cast<int>(fontId);
        fluid_sfont_t* font = fluid_synth_get_sfont_by_id(info->synth, id);
        if (font == nullptr) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIConnector::GetSoundFontIntruments] invalid font file\n");
            return listing;
        }
        presets = CollectPresets(info->synth, font, id);
    }

    // Entry i starts at 21 * i; its terminator is overwritten by entry i + 1, so a longer
    // entry loses its tail (a name of 13 characters or more keeps 13 and no comma).
    const size_t n = presets.size();
    if (start >= n || count == 0)
        return listing;
    for (unsigned int i = 0;; ++i) {
        const _PresetType& preset = presets[start + i];
        snprintf(listing + kEntryWidth * i, kEntryBound, "%03d:%03d %-12s,", preset.bank,
                 preset.program, preset.name.c_str());
        if (start + i + 1 == n || i + 1 == count || i + 1 == kMaxEntries)
            break;
    }
    return listing;
}
