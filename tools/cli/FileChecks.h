// The files a run will use, checked before the library starts: a missing MIDI file or a
// WAV file that cannot be written is then reported at once, not after seconds of start-up.
#ifndef NUVMIDI_CLI_FILE_CHECKS_H
#define NUVMIDI_CLI_FILE_CHECKS_H

#include <string>
#include <vector>

#include "CommandLine.h"
#include "MidiFileInfo.h"

namespace nuvcli {

// 0, or EXIT_BAD_FILE with the message printed.
int CheckMidiFile(const std::string& path, MidiFileInfo& info);
// Every file that the options and the commands name.
int CheckFiles(const GlobalOptions& options, const std::vector<Action>& actions);

} // namespace nuvcli

#endif
