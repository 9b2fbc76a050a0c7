#include <memory>

#include "Commands.h"
#include "MidiListener.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {

int RunMonitor(Session& session, const Action& action) {
    session.TakeNews(); // what arrived before is in the list below
    std::vector<DeviceEntry> devices;
    const bool everyKeyboard = action.devices.empty();
    if (everyKeyboard) {
        for (const DeviceEntry& device : session.Devices())
            if (!device.isSynth)
                devices.push_back(device);
    }
    for (const std::string& query : action.devices) {
        DeviceEntry device;
        if (int code = session.Find(query, device))
            return code;
        devices.push_back(device);
    }
    auto owned = std::make_unique<MidiListener>(session.GetWaiter(), action.eventLimit, false);
    MidiListener& listener = *owned;
    session.Keep(std::move(owned));
    std::vector<std::string> names;
    std::string from;
    for (DeviceEntry& device : devices) {
        if (int code = listener.Listen(session, device))
            return code;
        names.push_back(device.name);
        from += (from.empty() ? " from " : ", ") + device.name + " (" +
                std::to_string(device.client) + ")";
    }
    // Printed once every device is subscribed: from here on nothing sent is missed.
    Print("Waiting for data" + from + ". Press Ctrl+C to end.\n" + EventHeader());
    return listener.Run(session, names, everyKeyboard);
}

} // namespace nuvcli
