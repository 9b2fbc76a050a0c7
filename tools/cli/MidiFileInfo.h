// What nuvmidi needs to know of a standard MIDI file before it is played: whether it is
// one, and how long it lasts, from its tempo map.
#ifndef NUVMIDI_CLI_MIDI_FILE_INFO_H
#define NUVMIDI_CLI_MIDI_FILE_INFO_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace nuvcli {

struct MidiFileInfo {
    int format = 0;
    int tracks = 0;       // track chunks read
    uint32_t endTick = 0; // the latest end of track, in ticks
    double seconds = 0;   // playing time up to that end
};

// Reads the header and every track, following running status, system exclusive and meta
// events, and integrates the tempo changes of all tracks (500 000 us per quarter note
// until the first; SMPTE divisions count frames). False with `error` for anything that
// is not a complete standard MIDI file.
bool ReadMidiFileInfo(const uint8_t* data, size_t size, MidiFileInfo& info, std::string& error);

// Reads a whole file. False with `error` (the system's reason) when it cannot be read.
bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error);

} // namespace nuvcli

#endif
