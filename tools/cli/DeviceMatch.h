// Devices named as people see them: by sequencer client name, a unique prefix of it in any
// case, or the client number.
#ifndef NUVMIDI_CLI_DEVICE_MATCH_H
#define NUVMIDI_CLI_DEVICE_MATCH_H

#include <stddef.h>

#include <string>
#include <vector>

namespace nuvcli {

// One connected device, as the library lists it.
struct DeviceEntry {
    int client = -1; // sequencer client number
    std::string name;
    bool isSynth = false;
    int id = -1; // the device id once this run created the device
};

struct DeviceMatch {
    enum Status { FOUND, AMBIGUOUS, UNKNOWN };
    Status status = UNKNOWN;
    size_t index = 0;               // FOUND: the device
    std::vector<size_t> candidates; // AMBIGUOUS: every device the prefix fits
};

// In order: a client number ("20", or "20:0" as aconnect writes ports), the exact name,
// the name in any case, then a prefix in any case. Two devices of one name give the
// first, as the library's lookup by name does.
DeviceMatch MatchDevice(const std::vector<DeviceEntry>& devices, const std::string& query);

// The one-line message for a match that is not FOUND, naming the candidates or the
// devices there are.
std::string DescribeFailedMatch(const std::vector<DeviceEntry>& devices, const std::string& query,
                                const DeviceMatch& match);

} // namespace nuvcli

#endif
