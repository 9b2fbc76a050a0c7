#include "NuvMIDIDeviceChecker.h"

#include "NuvLog"
#include "NuvResult"

// Every MIDI client the watcher offers is usable: "not implemented" is the framework's
// way of accepting a candidate without looking at it.
int NuvMIDIDeviceChecker::t_CheckDevice(_NuvDetailDevInfo*) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "INFO: NOT IMPLEMENTED!");
    return NUV_ERR_NOT_IMPLEMENTED;
}
