// Writes small standard MIDI files for the tests and benchmarks: format 0 or 1, one
// tempo, notes given in seconds, and an end of track at a chosen length.
#ifndef NUV_MEASURE_MIDI_FILE_WRITER_H
#define NUV_MEASURE_MIDI_FILE_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

class MidiFileWriter {
public:
    // Format 1 keeps the tempo in a track of its own and the notes in a second one.
    explicit MidiFileWriter(int format = 0, int ticksPerQuarter = 480);

    void AddProgramChange(int channel, int program, double atSeconds);
    void AddNote(int channel, int note, int velocity, double startSeconds, double lengthSeconds);
    // The file lasts at least this long (its end of track), whatever its notes.
    void SetLength(double seconds) { m_length = seconds; }

    std::vector<uint8_t> Bytes() const;
    bool Write(const std::string& path) const;

private:
    struct Event {
        uint32_t tick;
        int order; // note-offs before note-ons at the same tick
        std::vector<uint8_t> bytes;
    };

    uint32_t m_Ticks(double seconds) const;
    // Appends a track of these events, after the tempo when `withTempo`.
    void m_PutTrack(std::vector<uint8_t>& out, std::vector<Event> events, bool withTempo) const;

    int m_format;
    int m_ticksPerQuarter;
    int m_tempo;
    double m_length;
    std::vector<Event> m_events;
};

#endif
