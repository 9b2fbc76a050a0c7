#include <stdlib.h>

#include <algorithm>

#include "Commands.h"
#include "ExitCodes.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {
namespace {

// The library lists instruments as entries of 21 characters, "BBB:PPP NAME_________,",
// at most 45 at a time; a name of 13 or more characters fills the entry to its end.
const size_t kEntryWidth = 21;
const unsigned kMostPerCall = 45;

std::string EntryLine(const std::string& entry) {
    const size_t nameStart = entry.find(' ');
    std::string name = nameStart == std::string::npos ? std::string() : entry.substr(nameStart + 1);
    while (!name.empty() && (name.back() == ',' || name.back() == ' '))
        name.pop_back();
    const int bank = atoi(entry.c_str());
    const size_t colon = entry.find(':');
    const int program = colon == std::string::npos ? 0 : atoi(entry.c_str() + colon + 1);
    char prefix[32];
    snprintf(prefix, sizeof(prefix), "%03d:%03d  ", bank, program);
    return prefix + name + "\n";
}

int ListFont(INuvMIDIDevice& synth, const Action& action) {
    unsigned index = action.start;
    unsigned left = action.count; // 0: all of them
    size_t listed = 0;
    for (;;) {
        const unsigned ask = left == 0 ? kMostPerCall : std::min(left, kMostPerCall);
        const std::string text = synth.GetSoundFontIntruments(action.fontId, index, ask);
        const size_t entries = (text.size() + kEntryWidth - 1) / kEntryWidth;
        std::string lines;
        for (size_t i = 0; i < entries; ++i)
            lines += EntryLine(text.substr(i * kEntryWidth, kEntryWidth));
        Print(lines);
        listed += entries;
        index += static_cast<unsigned>(entries);
        if (left != 0)
            left -= static_cast<unsigned>(std::min<size_t>(entries, left));
        if (entries < ask || (action.count != 0 && left == 0))
            break;
    }
    if (listed == 0 && action.start == 0)
        return Fail(EXIT_FAILED, "no font with ID %u is loaded", action.fontId);
    return EXIT_OK;
}

} // namespace

int RunFonts(Session& session, const Action& action) {
    if (action.fontsAction == FontsAction::Load) {
        int fontId = 0;
        if (int code = session.LoadFont(action.path, fontId))
            return code;
        Print("Loaded " + action.path + " as font " + std::to_string(fontId) + "\n");
        return EXIT_OK;
    }
    INuvMIDIDevice* synth = session.TakeSynth();
    if (synth == nullptr)
        return EXIT_NO_SEQUENCER;
    if (action.fontsAction == FontsAction::List)
        return ListFont(*synth, action);
    if (synth->UnloadSoundFontFile(action.fontId) != 1)
        return Fail(EXIT_FAILED, "no font with ID %u is loaded", action.fontId);
    Print("Unloaded font " + std::to_string(action.fontId) + "\n");
    return EXIT_OK;
}

} // namespace nuvcli
