#include "Commands.h"
#include "ExitCodes.h"
#include "Session.h"
#include "Waiter.h"

namespace nuvcli {

int RunSend(Session& session, const Action& action) {
    DeviceEntry device;
    if (int code = session.Find(action.devices[0], device))
        return code;
    INuvMIDIDevice* object = session.Take(device);
    if (object == nullptr)
        return EXIT_FAILED;
    session.StartSound(object);
    _MIDIMessage message{};
    message.channel = action.channel;
    message.param = action.param;
    message.value = action.value;
    const bool heldNote = action.eventType == MIDI_EVENT_NOTE_ON && action.holdMs >= 0;
    if (heldNote)
        message.duration = static_cast<int32_t>(action.holdMs);
    // The library answers 0 whatever happens below it; there is nothing to check.
    object->SendMessage(static_cast<MIDIEventType>(action.eventType), message);
    if (!heldNote)
        return EXIT_OK;
    // The library schedules no note-off: hold the note here, then release it, also when
    // Ctrl+C cuts the wait short.
    session.GetWaiter().WaitFor(std::chrono::milliseconds(action.holdMs));
    _MIDIMessage release{};
    release.channel = action.channel;
    release.param = action.param;
    object->SendMessage(MIDI_EVENT_NOTE_OFF, release);
    return EXIT_OK;
}

} // namespace nuvcli
