#include <memory>

#include "Commands.h"
#include "ExitCodes.h"
#include "MidiListener.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {

int RunThru(Session& session, const Action& action) {
    session.TakeNews();
    DeviceEntry keyboard;
    if (int code = session.Find(action.devices[0], keyboard))
        return code;
    INuvMIDIDevice* synth = session.TakeSynth();
    if (synth == nullptr)
        return EXIT_NO_SEQUENCER;
    session.StartSound(synth);
    auto owned = std::make_unique<MidiListener>(session.GetWaiter(), 0, true);
    MidiListener& listener = *owned;
    session.Keep(std::move(owned));
    if (int code = listener.Listen(session, keyboard))
        return code;
    _NuvDevInfo synthInfo{};
    synth->GetDevInfo(synthInfo);
    Print("Playing what " + keyboard.name + " (" + std::to_string(keyboard.client) + ") plays on " +
          synthInfo.deviceName + ". Press Ctrl+C to end.\n" + EventHeader());
    return listener.Run(session, {keyboard.name}, false);
}

} // namespace nuvcli
