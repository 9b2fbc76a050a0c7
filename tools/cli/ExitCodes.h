// Exit statuses of nuvmidi, one per kind of failure, so that scripts can tell them apart.
// The help text and README list them; keep the three in step.
#ifndef NUVMIDI_CLI_EXIT_CODES_H
#define NUVMIDI_CLI_EXIT_CODES_H

namespace nuvcli {

enum ExitCode {
    EXIT_OK = 0,
    EXIT_FAILED = 1,         // the library refused or could not do the operation
    EXIT_USAGE = 2,          // bad arguments, as getopt tools answer them
    EXIT_NO_SEQUENCER = 3,   // the library could not be created (no ALSA sequencer)
    EXIT_UNKNOWN_DEVICE = 4, // no device, or more than one, matches a name
    EXIT_BAD_FILE = 5,       // a file is missing, unreadable or of the wrong kind
    EXIT_NO_LIBRARY = 6,     // libNuvMIDI.so could not be loaded
    EXIT_DEVICE_GONE = 7,    // the device that monitor or thru listened to has gone
};

} // namespace nuvcli

#endif
