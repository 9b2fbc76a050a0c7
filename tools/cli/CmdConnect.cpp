#include <string.h>

#include "Commands.h"
#include "ExitCodes.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {
namespace {

// What the library answers when a route is there already, or missing.
const int kAlreadyConnected = 2;
const int kStarted = 1;
const int kStopped = 0;
const int kNoSuchRoute = NUV_ERR_GENERAL;

std::string Describe(const DeviceEntry& device) {
    return "'" + device.name + "' (" + std::to_string(device.client) + ")";
}

void FillEnd(_MIDIDeviceInfo& end, const DeviceEntry& device, MIDIDeviceType type) {
    memset(&end, 0, sizeof(end));
    strncpy(end.name, device.name.c_str(), sizeof(end.name) - 1);
    end.id = device.id;
    end.type = type;
}

} // namespace

int RunConnect(Session& session, const Action& action) {
    DeviceEntry source, destination;
    if (int code = session.Find(action.devices[0], source))
        return code;
    if (int code = session.Find(action.devices[1], destination))
        return code;
    // A port routed to itself would send every event round for ever.
    if (action.command == Command::Connect && source.client == destination.client)
        return Fail(EXIT_USAGE, "cannot connect %s to itself", Describe(source).c_str());
    if (session.Take(source) == nullptr || session.Take(destination) == nullptr)
        return EXIT_FAILED;
    _MIDIDeviceInfo from, to;
    FillEnd(from, source, MIDI_DEVICE_TYPE_SOURCE);
    FillEnd(to, destination, MIDI_DEVICE_TYPE_DESTINATION);
    const std::string sourceText = Describe(source), destinationText = Describe(destination);
    if (action.command == Command::Connect) {
        const int result = session.Manager().StartStream(&from, &to);
        if (result == kAlreadyConnected)
            return Fail(EXIT_FAILED, "%s is connected to %s already", sourceText.c_str(),
                        destinationText.c_str());
        if (result != kStarted)
            return Fail(EXIT_FAILED, "the sequencer refused to connect %s to %s",
                        sourceText.c_str(), destinationText.c_str());
        return EXIT_OK;
    }
    const int result = session.Manager().StopStream(&from, &to);
    if (result == kNoSuchRoute)
        return Fail(EXIT_FAILED, "%s is not connected to %s", sourceText.c_str(),
                    destinationText.c_str());
    if (result != kStopped)
        return Fail(EXIT_FAILED, "the library cannot disconnect %s from %s (result %d)",
                    sourceText.c_str(), destinationText.c_str(), result);
    return EXIT_OK;
}

} // namespace nuvcli
