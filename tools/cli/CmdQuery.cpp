#include <stdio.h>

#include "Commands.h"
#include "ExitCodes.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {
namespace {

// The synthesizer answers 0 to 16383; nuvmidi shows every bend as send and monitor do,
// -8192 to 8191 around 0.
const int kPitchCentre = 8192;

// The answer line, or empty when the library left the message as it was.
std::string Answer(int type, const _MIDIMessage& message) {
    if (message.text[0] == '\0')
        return std::string();
    char line[160];
    switch (type) {
    case MIDI_EVENT_CONTROL_CHANGE:
        snprintf(line, sizeof(line), "channel %d controller %d: %d\n", message.channel,
                 message.param, message.value);
        return line;
    case MIDI_EVENT_PROGRAM_CHANGE: {
        int font = 0, bank = 0, program = 0;
        if (sscanf(message.text, "%d:%d:%d", &font, &bank, &program) != 3)
            return std::string();
        snprintf(line, sizeof(line), "channel %d program %d (font %d, bank %d)\n", message.channel,
                 program, font, bank);
        return line;
    }
    case MIDI_EVENT_PITCH_BEND:
        snprintf(line, sizeof(line), "channel %d pitch bend %d\n", message.channel,
                 message.value - kPitchCentre);
        return line;
    default:
        snprintf(line, sizeof(line), "channel %d: %d\n", message.channel, message.value);
        return line;
    }
}

} // namespace

int RunQuery(Session& session, const Action& action) {
    DeviceEntry device;
    if (int code = session.Find(action.devices[0], device))
        return code;
    INuvMIDIDevice* object = session.Take(device);
    if (object == nullptr)
        return EXIT_FAILED;
    _MIDIMessage message{};
    message.channel = action.channel;
    message.param = action.param;
    // The device answers 0 even when it could not answer; an untouched text tells that.
    object->GetInformation(static_cast<MIDIEventType>(action.eventType), &message);
    const std::string answer = Answer(action.eventType, message);
    if (answer.empty())
        return Fail(EXIT_FAILED, "the synthesizer does not report %s",
                    action.eventType == MIDI_EVENT_CHANNEL_PRESSURE ? "channel pressure"
                                                                    : "this value");
    Print(answer);
    return EXIT_OK;
}

} // namespace nuvcli
