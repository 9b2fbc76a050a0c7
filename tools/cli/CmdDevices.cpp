#include "Commands.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {

int RunDevices(Session& session, const Action& action) {
    const Waiter::Clock::time_point start = Waiter::Clock::now();
    session.TakeNews(); // what arrived before is in the list
    const std::vector<DeviceEntry> devices = session.Devices();
    Print(action.json ? FormatDeviceJson(devices) : FormatDeviceTable(devices));
    if (!action.watch)
        return 0;
    Print("Watching for devices arriving and leaving. Press Ctrl+C to end.\n");
    while (session.GetWaiter().WaitForever() != Waiter::SIGNALLED)
        for (const DeviceNews& news : session.TakeNews())
            PrintNews(news, start);
    return 0;
}

} // namespace nuvcli
