#include "MidiFileWriter.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

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

void MidiFileWriter::SetLength(double seconds) {
    m_length = seconds;
}

void MidiFileWriter::m_PutVarLen(std::vector<uint8_t>& out, uint32_t value) {
    uint8_t groups[5];
    int n = 0;
    do {
        groups[n++] = uint8_t(value & 0x7F);
        value >>= 7;
    } while (value != 0);
    while (n > 0) {
        --n;
        out.push_back(uint8_t(groups[n] | (n > 0 ? 0x80 : 0)));
    }
}

std::vector<uint8_t> MidiFileWriter::m_Track(const std::vector<Event>& events,
                                             bool withTempo) const {
    std::vector<Event> sorted = events;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Event& a, const Event& b) {
        return a.tick != b.tick ? a.tick < b.tick : a.order < b.order;
    });
    std::vector<uint8_t> body;
    if (withTempo) {
        body.insert(body.end(), {0x00, 0xFF, 0x51, 0x03, uint8_t(m_tempo >> 16),
                                 uint8_t(m_tempo >> 8), uint8_t(m_tempo)});
    }
    uint32_t now = 0;
    for (const Event& e : sorted) {
        m_PutVarLen(body, e.tick - now);
        now = e.tick;
        body.insert(body.end(), e.bytes.begin(), e.bytes.end());
    }
    const uint32_t end = std::max(now, m_Ticks(m_length));
    m_PutVarLen(body, end - now);
    body.insert(body.end(), {0xFF, 0x2F, 0x00});

    std::vector<uint8_t> track = {'M', 'T', 'r', 'k'};
    const uint32_t size = uint32_t(body.size());
    track.insert(track.end(),
                 {uint8_t(size >> 24), uint8_t(size >> 16), uint8_t(size >> 8), uint8_t(size)});
    track.insert(track.end(), body.begin(), body.end());
    return track;
}

std::vector<uint8_t> MidiFileWriter::Bytes() const {
    const uint8_t tracks = m_format == 0 ? 1 : 2;
    const uint8_t ticks[] = {uint8_t(m_ticksPerQuarter >> 8), uint8_t(m_ticksPerQuarter)};
    std::vector<uint8_t> out = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, uint8_t(m_format), 0, tracks};
    out.insert(out.end(), std::begin(ticks), std::end(ticks));
    std::vector<uint8_t> first = m_Track(m_format == 0 ? m_events : std::vector<Event>{}, true);
    out.insert(out.end(), first.begin(), first.end());
    if (m_format != 0) {
        std::vector<uint8_t> notes = m_Track(m_events, false);
        out.insert(out.end(), notes.begin(), notes.end());
    }
    return out;
}

bool MidiFileWriter::Write(const std::string& path) const {
    const std::vector<uint8_t> bytes = Bytes();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(file);
}
