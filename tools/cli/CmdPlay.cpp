#include <string.h>
#include <unistd.h>

#include "Commands.h"
#include "ExitCodes.h"
#include "FileChecks.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"
#include "Waiter.h"

namespace nuvcli {
namespace {

const int kFilePlaying = 2; // GetFilePlayStatus: 1 idle, 2 playing
const int kBarWidth = 30;
// The library marks a started file as playing; a status that never says so for this long
// means the file ended at once.
const double kStartGrace = 2.0;

void FillEnd(_MIDIDeviceInfo& end, const std::string& name, int id, MIDIDeviceType type) {
    memset(&end, 0, sizeof(end));
    strncpy(end.name, name.c_str(), sizeof(end.name) - 1);
    end.id = id;
    end.type = type;
}

} // namespace

int RunPlay(Session& session, const Action& action) {
    const std::string& path = action.path;
    MidiFileInfo info; // checked before the run; read again for its length
    if (int code = CheckMidiFile(path, info))
        return code;
    INuvMIDIDevice* synth = session.TakeSynth();
    if (synth == nullptr)
        return EXIT_NO_SEQUENCER;
    _MIDIDeviceInfo file, synthEnd;
    FillEnd(file, path, 0, MIDI_DEVICE_TYPE_FILE);
    FillEnd(synthEnd, "", synth->GetID(), MIDI_DEVICE_TYPE_DESTINATION);
    INuvMIDIDeviceManager& manager = session.Manager();
    Waiter& waiter = session.GetWaiter();
    if (manager.StartStream(&file, &synthEnd) != 1)
        return Fail(EXIT_FAILED, "the library did not start playing '%s' (-v shows why)",
                    path.c_str());

    const auto start = Waiter::Clock::now();
    auto elapsed = [&] {
        return std::chrono::duration<double>(Waiter::Clock::now() - start).count();
    };
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    if (!terminal)
        Print("Playing " + path + " (" + FormatMinutes(info.seconds) + ")\n");
    bool seenPlaying = false;
    bool stopped = false;
    for (;;) {
        const bool playing = manager.GetFilePlayStatus() == kFilePlaying;
        seenPlaying = seenPlaying || playing;
        if (!playing && (seenPlaying || elapsed() > kStartGrace))
            break;
        if (terminal)
            Print("\r" + FormatProgress(elapsed(), info.seconds, kBarWidth));
        // The library tells the end only through its status: look again every tick.
        if (waiter.WaitFor(std::chrono::milliseconds(terminal ? 100 : 50)) == Waiter::SIGNALLED) {
            manager.StopStream(&file, &synthEnd);
            stopped = true;
            break;
        }
    }
    const double played = elapsed();
    if (terminal)
        Print("\r" + FormatProgress(stopped ? played : info.seconds, info.seconds, kBarWidth) +
              "\n");
    if (stopped)
        Print("Stopped at " + FormatMinutes(played) + " of " + FormatMinutes(info.seconds) + "\n");
    return EXIT_OK;
}

} // namespace nuvcli
