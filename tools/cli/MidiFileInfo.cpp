#include "MidiFileInfo.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <map>

namespace nuvcli {
namespace {

const uint32_t kDefaultTempo = 500000; // microseconds per quarter note

uint32_t ReadBigEndian(const uint8_t* p, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | p[i];
    return value;
}

// Walks the events of one track chunk.
class TrackReader {
public:
    TrackReader(const uint8_t* data, size_t size) : m_p(data), m_end(data + size) {}

    // Adds the track's tempo changes to `tempos` (tick -> tempo) and returns its end tick.
    bool Read(std::multimap<uint32_t, uint32_t>& tempos, uint32_t& endTick, std::string& error) {
        uint32_t tick = 0;
        uint8_t running = 0;
        while (m_p < m_end) {
            uint32_t delta = 0;
            if (!m_VarLen(delta))
                return m_Fail("an event time runs past the end of its track", error);
            tick += delta;
            if (m_p >= m_end)
                return m_Fail("a track ends inside an event", error);
            uint8_t status = *m_p;
            if (status & 0x80) {
                ++m_p;
            } else if (running != 0) {
                status = running; // running status: the byte is already data
            } else {
                return m_Fail("a track starts with data but no status", error);
            }
            if (status == 0xFF) {
                running = 0;
                if (m_p >= m_end)
                    return m_Fail("a meta event is cut short", error);
                const uint8_t type = *m_p++;
                uint32_t length = 0;
                if (!m_VarLen(length) || length > static_cast<size_t>(m_end - m_p))
                    return m_Fail("a meta event is cut short", error);
                if (type == 0x51 && length == 3)
                    tempos.emplace(tick, ReadBigEndian(m_p, 3));
                m_p += length;
                if (type == 0x2F) {
                    endTick = tick;
                    return true;
                }
            } else if (status == 0xF0 || status == 0xF7) {
                running = 0;
                uint32_t length = 0;
                if (!m_VarLen(length) || length > static_cast<size_t>(m_end - m_p))
                    return m_Fail("a system exclusive message is cut short", error);
                m_p += length;
            } else if (status >= 0xF1) {
                return m_Fail("a track holds a system common or real-time message", error);
            } else {
                running = status;
                const size_t length = (status & 0xF0) == 0xC0 || (status & 0xF0) == 0xD0 ? 1 : 2;
                if (length > static_cast<size_t>(m_end - m_p))
                    return m_Fail("a channel message is cut short", error);
                m_p += length;
            }
        }
        endTick = tick; // a track without its end-of-track event ends with its last event
        return true;
    }

private:
    bool m_VarLen(uint32_t& value) {
        value = 0;
        for (int i = 0; i < 4; ++i) {
            if (m_p >= m_end)
                return false;
            const uint8_t byte = *m_p++;
            value = (value << 7) | (byte & 0x7F);
            if (!(byte & 0x80))
                return true;
        }
        return false;
    }
    static bool m_Fail(const char* message, std::string& error) {
        error = message;
        return false;
    }

    const uint8_t* m_p;
    const uint8_t* m_end;
};

double TicksToSeconds(uint32_t endTick, uint16_t division,
                      const std::multimap<uint32_t, uint32_t>& tempos) {
    if (division & 0x8000) {
        // SMPTE: frames per second in the high byte (negative), ticks per frame in the low.
        int fps = -static_cast<int8_t>(division >> 8);
        const double rate = fps == 29 ? 29.97 : fps;
        return endTick / (rate * (division & 0xFF));
    }
    double seconds = 0;
    uint32_t tick = 0;
    uint32_t tempo = kDefaultTempo;
    for (const auto& change : tempos) {
        if (change.first >= endTick)
            break;
        seconds += (change.first - tick) * (tempo / 1e6) / division;
        tick = change.first;
        tempo = change.second;
    }
    return seconds + (endTick - tick) * (tempo / 1e6) / division;
}

} // namespace

bool ReadMidiFileInfo(const uint8_t* data, size_t size, MidiFileInfo& info, std::string& error) {
    info = MidiFileInfo();
    if (size < 14 || memcmp(data, "MThd", 4) != 0) {
        error = "not a standard MIDI file";
        return false;
    }
    const uint32_t headerLength = ReadBigEndian(data + 4, 4);
    if (headerLength < 6 || headerLength > size - 8) {
        error = "not a standard MIDI file (bad header)";
        return false;
    }
    info.format = static_cast<int>(ReadBigEndian(data + 8, 2));
    const uint32_t declaredTracks = ReadBigEndian(data + 10, 2);
    const uint16_t division = static_cast<uint16_t>(ReadBigEndian(data + 12, 2));
    if (info.format > 2 || declaredTracks == 0 || (division & 0x7FFF) == 0 ||
        ((division & 0x8000) && (division & 0xFF) == 0)) {
        error = "not a standard MIDI file (bad header)";
        return false;
    }
    std::multimap<uint32_t, uint32_t> tempos;
    size_t offset = 8 + headerLength;
    while (offset + 8 <= size && static_cast<uint32_t>(info.tracks) < declaredTracks) {
        const uint32_t length = ReadBigEndian(data + offset + 4, 4);
        if (length > size - offset - 8) {
            error = "the file is cut short inside a track";
            return false;
        }
        if (memcmp(data + offset, "MTrk", 4) == 0) { // other chunks are skipped, as players do
            uint32_t endTick = 0;
            if (!TrackReader(data + offset + 8, length).Read(tempos, endTick, error))
                return false;
            info.endTick = std::max(info.endTick, endTick);
            ++info.tracks;
        }
        offset += 8 + length;
    }
    if (static_cast<uint32_t>(info.tracks) != declaredTracks) {
        error = "the file holds fewer tracks than its header declares";
        return false;
    }
    info.seconds = TicksToSeconds(info.endTick, division, tempos);
    return true;
}

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) {
        error = strerror(errno);
        return false;
    }
    bytes.clear();
    uint8_t buffer[65536];
    size_t n = 0;
    while ((n = fread(buffer, 1, sizeof(buffer), file)) > 0)
        bytes.insert(bytes.end(), buffer, buffer + n);
    const bool failed = ferror(file) != 0;
    if (failed)
        error = strerror(errno);
    fclose(file);
    return !failed;
}

} // namespace nuvcli
