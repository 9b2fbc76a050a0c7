// The playing time nuvmidi shows for a MIDI file comes from the file's tempo map.
#include <gtest/gtest.h>

#include "MidiFileInfo.h"

using namespace nuvcli;

namespace {

typedef std::vector<uint8_t> Bytes;

void Append(Bytes& to, const Bytes& more) {
    for (const uint8_t byte : more)
        to.push_back(byte);
}

Bytes Chunk(const char* type, const Bytes& body) {
    const uint32_t n = static_cast<uint32_t>(body.size());
    Bytes chunk = {uint8_t(type[0]), uint8_t(type[1]), uint8_t(type[2]), uint8_t(type[3]),
                   uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8),  uint8_t(n)};
    Append(chunk, body);
    return chunk;
}

Bytes File(uint16_t format, uint16_t division, const std::vector<Bytes>& tracks) {
    const uint16_t n = static_cast<uint16_t>(tracks.size());
    Bytes file = Chunk("MThd", {uint8_t(format >> 8), uint8_t(format), uint8_t(n >> 8), uint8_t(n),
                                uint8_t(division >> 8), uint8_t(division)});
    for (const Bytes& track : tracks)
        Append(file, Chunk("MTrk", track));
    return file;
}

Bytes Tempo(uint32_t microsecondsPerQuarter) {
    return {0xFF,
            0x51,
            0x03,
            uint8_t(microsecondsPerQuarter >> 16),
            uint8_t(microsecondsPerQuarter >> 8),
            uint8_t(microsecondsPerQuarter)};
}

const Bytes kEndOfTrack = {0xFF, 0x2F, 0x00};

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        Append(all, part);
    return all;
}

bool Read(const Bytes& file, MidiFileInfo& info, std::string& error) {
    return ReadMidiFileInfo(file.data(), file.size(), info, error);
}

} // namespace

TEST(CliMidiFileInfo, TempoChangesInTheFirstTrackTimeTheOthers) {
    // 480 ticks a quarter: 960 ticks at 120 bpm (1 s), then 960 at 240 bpm (0.5 s).
    const Bytes tempoMap =
        Join({{0x00}, Tempo(500000), {0x87, 0x40}, Tempo(250000), {0x00}, kEndOfTrack});
    const Bytes notes =
        Join({{0x00, 0x90, 60, 100}, {0x8F, 0x00, 0x80, 60, 0}, {0x00}, kEndOfTrack});
    MidiFileInfo info;
    std::string error;
    ASSERT_TRUE(Read(File(1, 480, {tempoMap, notes}), info, error)) << error;
    EXPECT_EQ(1, info.format);
    EXPECT_EQ(2, info.tracks);
    EXPECT_EQ(1920u, info.endTick);
    EXPECT_DOUBLE_EQ(1.5, info.seconds);
}

TEST(CliMidiFileInfo, RunningStatusSystemExclusiveAndUnknownChunksAreFollowed) {
    const Bytes track = Join({{0x00, 0xF0, 0x03, 0x7E, 0x7F, 0xF7}, // sysex
                              {0x00, 0x90, 60, 100},
                              {0x60, 64, 100}, // running status
                              {0x60, 0xC0, 5},
                              {0x60, 0xE0, 0x00, 0x40},           // one-byte program
                              {0x60, 0xFF, 0x01, 0x02, 'h', 'i'}, // text
                              {0x00},
                              kEndOfTrack});
    // A chunk of an unknown kind between the header and the track.
    const Bytes header = File(0, 96, {});
    Bytes file = Join({header, Chunk("XFIH", {1, 2, 3}), Chunk("MTrk", track)});
    file[11] = 1;
    MidiFileInfo info;
    std::string error;
    ASSERT_TRUE(Read(file, info, error)) << error;
    EXPECT_EQ(4u * 96, info.endTick);
    EXPECT_DOUBLE_EQ(2.0, info.seconds); // four quarters at the default 120 bpm
}

TEST(CliMidiFileInfo, SmpteDivisionCountsFrames) {
    // 25 frames a second, 40 ticks a frame: 1000 ticks a second, whatever the tempo.
    const Bytes track =
        Join({{0x00}, Tempo(1000000), {0x93, 0x44, 0x90, 60, 100}, {0x00}, kEndOfTrack});
    MidiFileInfo info;
    std::string error;
    ASSERT_TRUE(Read(File(0, uint16_t(0xE7 << 8 | 40), {track}), info, error)) << error;
    EXPECT_DOUBLE_EQ(2.5, info.seconds);
}

TEST(CliMidiFileInfo, ATrackWithoutItsEndEndsWithItsLastEvent) {
    MidiFileInfo info;
    std::string error;
    ASSERT_TRUE(Read(File(0, 480, {{0x83, 0x60, 0x90, 60, 100}}), info, error)) << error;
    EXPECT_EQ(480u, info.endTick);
}

TEST(CliMidiFileInfo, WhatIsNotACompleteMidiFileIsRefused) {
    const Bytes good = Join({{0x00, 0x90, 60, 100}, {0x00}, kEndOfTrack});
    Bytes cutShort = File(0, 480, {good});
    cutShort.resize(cutShort.size() - 2);
    Bytes twoDeclared = File(0, 480, {good});
    twoDeclared[11] = 2;
    const struct {
        const char* what;
        Bytes file;
        const char* error;
    } cases[] = {
        {"wave file", Bytes{'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 0, 0},
         "not a standard MIDI file"},
        {"empty", Bytes{}, "not a standard MIDI file"},
        {"zero division", File(0, 0, {good}), "bad header"},
        {"cut short", cutShort, "cut short inside a track"},
        {"missing track", twoDeclared, "fewer tracks than its header declares"},
        {"data before status", File(0, 480, {{0x00, 60, 100}}), "data but no status"},
        {"open meta event", File(0, 480, {{0x00, 0xFF, 0x51, 0x03, 0x07}}), "meta event"},
    };
    for (const auto& c : cases) {
        MidiFileInfo info;
        std::string error;
        EXPECT_FALSE(Read(c.file, info, error)) << c.what;
        EXPECT_NE(std::string::npos, error.find(c.error)) << c.what << ": " << error;
    }
}
