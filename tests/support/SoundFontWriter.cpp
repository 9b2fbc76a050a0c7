#include "SoundFontWriter.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

// Little-endian chunk writer for RIFF.
class Bytes {
public:
    void U8(uint8_t v) { m_data.push_back(v); }
    void U16(uint16_t v) {
        U8(v & 0xff);
        U8(v >> 8);
    }
    void U32(uint32_t v) {
        U16(v & 0xffff);
        U16(v >> 16);
    }
    void Id(const char* fourcc) { Text(fourcc, 4); }
    // Exactly `width` bytes: the text, cut or padded with zeros.
    void Text(const std::string& text, size_t width) {
        for (size_t i = 0; i < width; ++i)
            U8(i < text.size() ? static_cast<uint8_t>(text[i]) : 0);
    }
    void Append(const Bytes& other) {
        m_data.insert(m_data.end(), other.m_data.begin(), other.m_data.end());
    }
    size_t Size() const { return m_data.size(); }
    const std::vector<uint8_t>& Data() const { return m_data; }

private:
    std::vector<uint8_t> m_data;
};

Bytes Chunk(const char* id, const Bytes& body) {
    Bytes chunk;
    chunk.Id(id);
    chunk.U32(static_cast<uint32_t>(body.Size()));
    chunk.Append(body);
    if (body.Size() % 2 != 0)
        chunk.U8(0); // RIFF pads chunks to even sizes
    return chunk;
}

Bytes List(const char* type, const Bytes& chunks) {
    Bytes body;
    body.Id(type);
    body.Append(chunks);
    return Chunk("LIST", body);
}

// One sample of 10 periods of 100 points (441 Hz at 44100 Hz), looped on its middle 8
// periods, followed by the 46 zero points that every SoundFont sample must carry.
const uint32_t kSamplePoints = 1000;
const uint32_t kSampleRate = 44100;
const uint32_t kLoopStart = 100;
const uint32_t kLoopEnd = 900;
const int kSamplePadding = 46;

// Generator numbers of the SoundFont 2 format.
const uint16_t kGenInstrument = 41;
const uint16_t kGenSampleModes = 54;
const uint16_t kGenSampleId = 53;

Bytes Info() {
    Bytes version;
    version.U16(2);
    version.U16(1);
    Bytes engine;
    engine.Text("EMU8000", 8);
    Bytes name;
    name.Text("Test Font", 10);
    Bytes chunks;
    chunks.Append(Chunk("ifil", version));
    chunks.Append(Chunk("isng", engine));
    chunks.Append(Chunk("INAM", name));
    return List("INFO", chunks);
}

Bytes Samples() {
    Bytes points;
    for (uint32_t i = 0; i < kSamplePoints; ++i)
        points.U16(static_cast<uint16_t>(static_cast<int16_t>(16000 * sin(2 * M_PI * i / 100.0))));
    for (int i = 0; i < kSamplePadding; ++i)
        points.U16(0);
    return List("sdta", Chunk("smpl", points));
}

// A generator (operator, amount) or a bag (generator index, modulator index).
Bytes Pair(uint16_t first, uint16_t second) {
    Bytes pair;
    pair.U16(first);
    pair.U16(second);
    return pair;
}

Bytes TerminalModulator() {
    Bytes mod;
    mod.Text("", 10);
    return mod;
}

// Presets, each with one zone that selects the one instrument; the instrument has one
// zone that loops the one sample.
Bytes Hydra(const std::vector<SoundFontPreset>& presets) {
    const uint16_t count = static_cast<uint16_t>(presets.size());
    Bytes phdr, pbag, pgen;
    auto header = [&](const std::string& name, int program, int bank, uint16_t bag) {
        phdr.Text(name, 20);
        phdr.U16(static_cast<uint16_t>(program));
        phdr.U16(static_cast<uint16_t>(bank));
        phdr.U16(bag);
        phdr.Text("", 12); // library, genre, morphology
    };
    for (uint16_t i = 0; i < count; ++i) {
        header(presets[i].name, presets[i].program, presets[i].bank, i);
        pbag.Append(Pair(i, 0));
        pgen.Append(Pair(kGenInstrument, 0));
    }
    header("EOP", 0, 0, count);
    pbag.Append(Pair(count, 0));
    pgen.Append(Pair(0, 0));

    Bytes inst;
    inst.Text("Sine", 20);
    inst.U16(0);
    inst.Text("EOI", 20);
    inst.U16(1);
    Bytes ibag;
    ibag.Append(Pair(0, 0));
    ibag.Append(Pair(2, 0));
    Bytes igen;
    igen.Append(Pair(kGenSampleModes, 1)); // loop continuously
    igen.Append(Pair(kGenSampleId, 0));    // must close the zone
    igen.Append(Pair(0, 0));

    Bytes shdr;
    shdr.Text("Sine", 20);
    shdr.U32(0);
    shdr.U32(kSamplePoints);
    shdr.U32(kLoopStart);
    shdr.U32(kLoopEnd);
    shdr.U32(kSampleRate);
    shdr.U8(69); // original pitch: A4
    shdr.U8(0);  // pitch correction
    shdr.U16(0); // link
    shdr.U16(1); // mono
    shdr.Text("EOS", 46);

    Bytes chunks;
    chunks.Append(Chunk("phdr", phdr));
    chunks.Append(Chunk("pbag", pbag));
    chunks.Append(Chunk("pmod", TerminalModulator()));
    chunks.Append(Chunk("pgen", pgen));
    chunks.Append(Chunk("inst", inst));
    chunks.Append(Chunk("ibag", ibag));
    chunks.Append(Chunk("imod", TerminalModulator()));
    chunks.Append(Chunk("igen", igen));
    chunks.Append(Chunk("shdr", shdr));
    return List("pdta", chunks);
}

} // namespace

std::vector<uint8_t> BuildSoundFont(const std::vector<SoundFontPreset>& presets) {
    Bytes body;
    body.Id("sfbk");
    body.Append(Info());
    body.Append(Samples());
    body.Append(Hydra(presets));
    return Chunk("RIFF", body).Data();
}

TempFile::TempFile(const std::string& suffix) {
    const char* dir = getenv("TMPDIR");
    std::string pattern = std::string(dir != nullptr ? dir : "/tmp") + "/nuv-test-XXXXXX" + suffix;
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemps(name.data(), static_cast<int>(suffix.size()));
    if (fd >= 0) {
        close(fd);
        m_path = name.data();
    }
}

TempFile::~TempFile() {
    if (!m_path.empty())
        unlink(m_path.c_str());
}

bool TempFile::Write(const std::vector<uint8_t>& bytes) const {
    FILE* file = fopen(m_path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const bool written = fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return fclose(file) == 0 && written;
}
