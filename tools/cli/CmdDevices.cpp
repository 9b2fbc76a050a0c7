#include "Commands.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {

int RunDevices(Session& session, const Action& action) {
    const std::vector<DeviceEntry> devices = session.Devices();
    Print(action.json ? FormatDeviceJson(devices) : FormatDeviceTable(devices));
    return 0;
}

} // namespace nuvcli
