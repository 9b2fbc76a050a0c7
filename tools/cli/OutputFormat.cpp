#include "OutputFormat.h"

#include <stdio.h>

#include <algorithm>

namespace nuvcli {
namespace {

std::string Padded(const std::string& text, size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char escape[8];
            snprintf(escape, sizeof(escape), "\\u%04x", u);
            out += escape;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

const size_t kDeviceColumn = 22;

} // namespace

std::string FormatDeviceTable(const std::vector<DeviceEntry>& devices) {
    size_t nameWidth = 4;
    for (const DeviceEntry& device : devices)
        nameWidth = std::max(nameWidth, device.name.size());
    char line[512];
    snprintf(line, sizeof(line), "%3s  %6s  %s  %s\n", "ID", "CLIENT",
             Padded("NAME", nameWidth).c_str(), "SYNTH");
    std::string text = line;
    for (const DeviceEntry& device : devices) {
        const std::string id = device.id >= 0 ? std::to_string(device.id) : "-";
        snprintf(line, sizeof(line), "%3s  %6d  %s  %s\n", id.c_str(), device.client,
                 Padded(device.name, nameWidth).c_str(), device.isSynth ? "yes" : "no");
        text += line;
    }
    return text;
}

std::string FormatDeviceJson(const std::vector<DeviceEntry>& devices) {
    std::string text = "[";
    for (size_t i = 0; i < devices.size(); ++i) {
        const DeviceEntry& device = devices[i];
        text += i == 0 ? "\n" : ",\n";
        text += "  {\"id\": " + (device.id >= 0 ? std::to_string(device.id) : "null") +
                ", \"client\": " + std::to_string(device.client) +
                ", \"name\": " + JsonString(device.name) +
                ", \"synth\": " + (device.isSynth ? "true" : "false") + "}";
    }
    return text + (devices.empty() ? "]\n" : "\n]\n");
}

std::string EventHeader() {
    char line[128];
    snprintf(line, sizeof(line), "%9s  %s  %-18s %2s  %s\n", "Time",
             Padded("Device", kDeviceColumn).c_str(), "Event", "Ch", "Data");
    return line;
}

std::string FormatEventLine(double seconds, const std::string& device, int code,
                            const _MIDIMessage& message) {
    const char* event = nullptr;
    char data[96];
    switch (code - 10) {
    case MIDI_EVENT_NOTE_ON:
    case MIDI_EVENT_NOTE_OFF:
        event = code - 10 == MIDI_EVENT_NOTE_ON ? "Note on" : "Note off";
        snprintf(data, sizeof(data), "note %d, velocity %d", message.param, message.value);
        break;
    case MIDI_EVENT_CONTROL_CHANGE:
        event = "Control change";
        snprintf(data, sizeof(data), "controller %d, value %d", message.param, message.value);
        break;
    case MIDI_EVENT_PROGRAM_CHANGE:
        event = "Program change";
        snprintf(data, sizeof(data), "program %d", message.value);
        break;
    case MIDI_EVENT_CHANNEL_PRESSURE:
        event = "Channel pressure";
        snprintf(data, sizeof(data), "value %d", message.value);
        break;
    case MIDI_EVENT_PITCH_BEND:
        event = "Pitch bend";
        snprintf(data, sizeof(data), "value %d", message.value);
        break;
    default:
        event = "Event";
        snprintf(data, sizeof(data), "code %d, param %d, value %d", code, message.param,
                 message.value);
        break;
    }
    char line[512];
    snprintf(line, sizeof(line), "%9.3f  %s  %-18s %2d  %s\n", seconds,
             Padded(device, kDeviceColumn).c_str(), event, message.channel, data);
    return line;
}

std::string FormatDeviceNewsLine(double seconds, const std::string& device, bool arrived,
                                 int client) {
    char line[512];
    snprintf(line, sizeof(line), "%9.3f  %s  %-18s %2s  client %d\n", seconds,
             Padded(device, kDeviceColumn).c_str(), arrived ? "Device arrived" : "Device left", "",
             client);
    return line;
}

std::string FormatMinutes(double seconds) {
    if (seconds < 0)
        seconds = 0;
    const long tenths = static_cast<long>(seconds * 10 + 0.5);
    char text[32];
    snprintf(text, sizeof(text), "%ld:%02ld.%ld", tenths / 600, tenths / 10 % 60, tenths % 10);
    return text;
}

std::string FormatProgress(double elapsed, double total, int width) {
    const double fraction = total > 0 ? std::min(1.0, std::max(0.0, elapsed / total)) : 1.0;
    const int filled = static_cast<int>(fraction * width + 0.5);
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "] " +
           FormatMinutes(elapsed) + " / " + FormatMinutes(total);
}

} // namespace nuvcli
