#include "HelpText.h"

namespace nuvcli {

std::string ProgramHelp() {
    return R"(Usage: nuvmidi [OPTION...] COMMAND [ARG...] [--then COMMAND [ARG...]]...

Shows, plays and scripts the MIDI devices of the ALSA sequencer through libNuvMIDI.so:
its software synthesizer, keyboards and other sequencer clients.

Commands:
  devices [--json] [--watch]     list the connected devices (and their comings and goings)
  monitor [--count N] [DEVICE...]
                                 print the MIDI that devices send, until Ctrl+C
  thru DEVICE                    play what DEVICE sends on the synthesizer
  play FILE.mid...               play standard MIDI files on the synthesizer, in turn
  render FILE.mid -o OUT.wav     render a MIDI file into a WAV file offline, as the
                                 synthesizer would play it (needs no sequencer)
  send DEVICE EVENT ARG...       send one message (noteon, noteoff, cc, pgm, pitch,
                                 pressure); the synthesizer plays it
  query DEVICE EVENT CH [PARAM]  read the synthesizer's state (cc, pgm, pitch, pressure)
  fonts load FILE | unload ID | list [ID]
                                 sound fonts of the synthesizer
  connect SRC DST                route SRC's MIDI to DST in the sequencer
  disconnect SRC DST             remove that route
  wait MS                        pause between chained commands
  script [FILE]                  run the commands of FILE (or standard input), one a line

Options (anywhere on the command line):
  --lib PATH     the MIDI library to load (default libNuvMIDI.so.1)
  --font SF2     load this sound font on top of the default one
  --audio PCM    play through this ALSA PCM (default "default")
  --wav FILE     record what is played into FILE instead of playing it
  -v, --verbose  print the library's trace log on standard error (without it only
                 nuvmidi's own lines are printed; NUV_LOG_LEVEL=0..4 picks another level)
  -h, --help     this help; after a command, that command's help
  --version      the version of nuvmidi

A DEVICE is a sequencer client's name, a unique prefix of it (any case), or its client
number, as 'nuvmidi devices' or 'aconnect -l' list them; "fluid" names the synthesizer.
Channels are 0 to 15. Each run starts the library afresh, so what one command changes
(a sent program, a loaded font) is gone in the next run: chain commands with --then or
use a script to keep one library, e.g.
  nuvmidi send fluid pgm 0 5 --then query fluid pgm 0

Exit status:
  0  success
  1  the library refused or failed the operation
  2  bad arguments
  3  no sequencer: the library could not be created or found no synthesizer
  4  unknown or ambiguous device
  5  bad file: missing, unreadable, or not a MIDI file, sound font or script
  6  the library could not be loaded
  7  the device that monitor or thru listened to has gone
)";
}

std::string CommandHelp(Command command) {
    switch (command) {
    case Command::Devices:
        return R"(Usage: nuvmidi devices [--json] [--watch]

Lists the devices the library has found: the device id when one was created in this
run, the sequencer client number, the client name, and whether it is the synthesizer.

  --json    print a JSON array of {"id", "client", "name", "synth"} instead
  --watch   then print each device arriving and leaving, one a line (seconds since the
            start, device, what happened, client), until Ctrl+C or SIGTERM
)";
    case Command::Monitor:
        return R"(Usage: nuvmidi monitor [--count N] [DEVICE...]

Prints the MIDI that the named devices send, one event a line (seconds since the start,
device, event, channel, values), until Ctrl+C or SIGTERM. Without DEVICE it listens to
every device that is not a synthesizer, including those that arrive later. Devices
arriving and leaving are announced as they come and go, with their time. When the named
devices have all gone it ends with status 7. The line "Waiting for data" tells that it
listens. The library delivers channel messages only: note on and off, control change,
program change, channel pressure and pitch bend (-8192 to 8191); clock, SysEx, active
sensing and other sequencer events never arrive.

  --count N   stop after N delivered events
)";
    case Command::Thru:
        return R"(Usage: nuvmidi thru DEVICE

Sends what DEVICE (a keyboard) plays on to the synthesizer, so that it is heard, and
prints each event as monitor does, until Ctrl+C or SIGTERM, or until DEVICE goes
(status 7).
)";
    case Command::Play:
        return R"(Usage: nuvmidi play FILE.mid...

Plays standard MIDI files on the synthesizer, one after the other, each to its end. On a terminal a
progress bar shows the elapsed and total time; otherwise one line tells the total time.
Ctrl+C stops the playback cleanly. With --wav FILE the sound is recorded instead.
)";
    case Command::Render:
        return R"(Usage: nuvmidi render FILE.mid -o OUT.wav

Renders a standard MIDI file into a 48 000 Hz 16-bit stereo WAV file as fast as the
processor allows, with FluidSynth's own player on a synthesizer set up as the library's
(the default sound font, and --font on top), to hear what the device would play. It
needs no sequencer, sound card or library, so it runs only with other renders.

  -o, --output OUT.wav   the file to write
)";
    case Command::Send:
        return R"(Usage: nuvmidi send DEVICE EVENT ARG...

Sends one MIDI message through DEVICE; the library sends it on to the synthesizer.
  noteon CH NOTE VEL [DUR]   note on; with DUR (milliseconds) wait and release it
  noteoff CH NOTE [VEL]      note off
  cc CH CTRL VAL             control change
  pgm CH PROG                program change
  pitch CH VAL               pitch bend, -8192 to 8191, 0 the centre
  pressure CH VAL            channel pressure
Channels are 0 to 15, the other values 0 to 127.
)";
    case Command::Query:
        return R"(Usage: nuvmidi query DEVICE EVENT CH [PARAM]

Reads back the synthesizer's state of one channel:
  cc CH CTRL    a controller's value
  pgm CH        the program, with its sound font and bank
  pitch CH      the pitch bend, -8192 to 8191, 0 the centre (as send and monitor)
  pressure CH   the channel pressure (the synthesizer does not report it)
The synthesizer of a fresh run is in its initial state; send first in the same run:
  nuvmidi send fluid cc 0 7 90 --then query fluid cc 0 7
)";
    case Command::Fonts:
        return R"(Usage: nuvmidi fonts load FILE | unload ID | list [ID] [--start N] [--count N]

  load FILE   load a SoundFont 2 file on top of the others and print its ID
  unload ID   unload the font with that ID
  list [ID]   list the instruments (bank:program name) of a font; ID 1, the font loaded
              first, by default; --start skips instruments, --count limits them
Fonts live as long as the run: chain with --then to use a loaded font.
)";
    case Command::Connect:
        return R"(Usage: nuvmidi connect SRC DST

Subscribes DST to SRC in the sequencer, so that SRC's MIDI reaches DST directly; the
route stays after nuvmidi has ended (see 'aconnect -l').
)";
    case Command::Disconnect:
        return R"(Usage: nuvmidi disconnect SRC DST

Removes the route from SRC to DST that connect made.
)";
    case Command::Wait:
        return R"(Usage: nuvmidi wait MS

Waits MS milliseconds (Ctrl+C ends the wait and the run), e.g. to hear a chord:
  nuvmidi send fluid noteon 0 60 100 --then send fluid noteon 0 64 100 --then wait 1000
)";
    case Command::Script:
        return R"(Usage: nuvmidi script [FILE]

Runs the commands of FILE ("-" or none: standard input) on one library, one command a
line, written as on the command line without "nuvmidi"; '#' starts a comment. Every
line is checked before the first runs; the run stops at the first command that fails.
)";
    }
    return ProgramHelp();
}

} // namespace nuvcli
