#include "MidiFileWriter.h"

#include <algorithm>
#include <cmath>
#include <fstream>

namespace {

void PutVarLen(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 28; shift > 0; shift -= 7)
        if (value >> shift != 0)
            out.push_back(uint8_t(0x80 | ((value >> shift) & 0x7F)));
    out.push_back(uint8_t(value & 0x7F));
}

// `size` bytes of `value`, big-endian as in the file's headers.
void PutBigEndian(std::vector<uint8_t>& out, uint32_t value, int size) {
    for (int i = size - 1; i >= 0; --i)
        out.push_back(uint8_t(value >> (8 * i)));
}

} // namespace

MidiFileWriter::MidiFileWriter(int format, int ticksPerQuarter)
    : m_format(format), m_ticksPerQuarter(ticksPerQuarter), m_tempo(500000), m_length(0) {}

uint32_t MidiFileWriter::m_Ticks(double seconds) const {
    return uint32_t(std::lround(seconds * 1e6 / m_tempo * m_ticksPerQuarter));
}

void MidiFileWriter::AddProgramChange(int channel, int program, double atSeconds) {
    m_events.push_back(
        {m_Ticks(atSeconds), 0, {uint8_t(0xC0 | (channel & 15)), uint8_t(program & 127)}});
}

void MidiFileWriter::AddNote(int channel, int note, int velocity, double startSeconds,
                             double lengthSeconds) {
    const uint8_t ch = uint8_t(channel & 15);
    m_events.push_back(
        {m_Ticks(startSeconds), 1, {uint8_t(0x90 | ch), uint8_t(note), uint8_t(velocity)}});
    m_events.push_back(
        {m_Ticks(startSeconds + lengthSeconds), 0, {uint8_t(0x80 | ch), uint8_t(note), 0}});
}

void MidiFileWriter::m_PutTrack(std::vector<uint8_t>& out, std::vector<Event> events,
                                bool withTempo) const {
    std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
        return a.tick != b.tick ? a.tick < b.tick : a.order < b.order;
    });
    std::vector<uint8_t> body;
    if (withTempo) {
        body = {0x00, 0xFF, 0x51, 0x03};
        PutBigEndian(body, uint32_t(m_tempo), 3);
    }
    uint32_t now = 0;
    for (const Event& e : events) {
        PutVarLen(body, e.tick - now);
        now = e.tick;
        body.insert(body.end(), e.bytes.begin(), e.bytes.end());
    }
    PutVarLen(body, std::max(now, m_Ticks(m_length)) - now);
    body.insert(body.end(), {0xFF, 0x2F, 0x00});
    out.insert(out.end(), {'M', 'T', 'r', 'k'});
    PutBigEndian(out, uint32_t(body.size()), 4);
    out.insert(out.end(), body.begin(), body.end());
}

std::vector<uint8_t> MidiFileWriter::Bytes() const {
    std::vector<uint8_t> out = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, uint8_t(m_format), 0};
    out.push_back(m_format == 0 ? 1 : 2); // tracks
    PutBigEndian(out, uint32_t(m_ticksPerQuarter), 2);
    m_PutTrack(out, m_format == 0 ? m_events : std::vector<Event>{}, true);
    if (m_format != 0)
        m_PutTrack(out, m_events, false);
    return out;
}

bool MidiFileWriter::Write(const std::string& path) const {
    const std::vector<uint8_t> bytes = Bytes();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(file);
}
