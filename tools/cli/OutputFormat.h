// Texts that nuvmidi prints: device tables, JSON, incoming events, times.
#ifndef NUVMIDI_CLI_OUTPUT_FORMAT_H
#define NUVMIDI_CLI_OUTPUT_FORMAT_H

#include <string>
#include <vector>

#include "DeviceMatch.h"
#include "NuvMIDITypes.h"

namespace nuvcli {

// Columns ID (or "-"), CLIENT, NAME, SYNTH, aligned to the widest entry, with a header.
std::string FormatDeviceTable(const std::vector<DeviceEntry>& devices);
// [{"id": 1 or null, "client": 20, "name": "...", "synth": false}, ...]
std::string FormatDeviceJson(const std::vector<DeviceEntry>& devices);

// The column header matching FormatEventLine.
std::string EventHeader();
// One incoming event, as aseqdump prints them: seconds, device, event, channel, values.
// `code` is the event code the library hands over (sequencer event type + 10).
std::string FormatEventLine(double seconds, const std::string& device, int code,
                            const _MIDIMessage& message);

// A device arriving or leaving, in the columns of the event lines.
std::string FormatDeviceNewsLine(double seconds, const std::string& device, bool arrived,
                                 int client);

// "1:05.3" for 65.3 s.
std::string FormatMinutes(double seconds);

// "[#####.....]  0:02.0 / 0:04.0" in `width` characters of bar.
std::string FormatProgress(double elapsed, double total, int width);

} // namespace nuvcli

#endif
