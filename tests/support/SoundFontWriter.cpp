#include "SoundFontWriter.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <initializer_list>
#include <utility>

namespace {

using Bytes = std::vector<uint8_t>;

// `size` bytes of `value`, little-endian as RIFF wants.
void Put(Bytes& out, uint32_t value, int size) {
    for (int i = 0; i < size; ++i)
        out.push_back(uint8_t(value >> (8 * i)));
}

Bytes Words(std::initializer_list<uint16_t> words) {
    Bytes out;
    for (uint16_t word : words)
        Put(out, word, 2);
    return out;
}

// Exactly `width` bytes: the text, cut or padded with zeros.
void Text(Bytes& out, const std::string& text, size_t width) {
    for (size_t i = 0; i < width; ++i)
        out.push_back(i < text.size() ? uint8_t(text[i]) : 0);
}

Bytes Chunk(const char* id, const Bytes& body) {
    Bytes chunk;
    Text(chunk, id, 4);
    Put(chunk, uint32_t(body.size()), 4);
    chunk.insert(chunk.end(), body.begin(), body.end());
    if (body.size() % 2 != 0)
        chunk.push_back(0); // RIFF pads chunks to even sizes
    return chunk;
}

// A LIST chunk of `type` holding these (id, body) chunks.
Bytes List(const char* type, std::initializer_list<std::pair<const char*, Bytes>> chunks) {
    Bytes body;
    Text(body, type, 4);
    for (const auto& [id, data] : chunks) {
        const Bytes chunk = Chunk(id, data);
        body.insert(body.end(), chunk.begin(), chunk.end());
    }
    return Chunk("LIST", body);
}

} // namespace

// Presets, each with one zone that selects the one instrument; the instrument has one zone
// that loops the one sample: 10 periods of 100 points (441 Hz at 44100 Hz), looped on its
// middle 8 periods, followed by the 46 zero points that every SoundFont sample must carry.
std::vector<uint8_t> BuildSoundFont(const std::vector<SoundFontPreset>& presets) {
    Bytes engine, name, points, phdr, pbag, pgen, inst, shdr;
    Text(engine, "EMU8000", 8);
    Text(name, "Test Font", 10);
    for (int i = 0; i < 1000; ++i)
        Put(points, uint16_t(int16_t(16000 * sin(2 * M_PI * i / 100.0))), 2);
    points.resize(points.size() + 2 * 46, 0);

    auto header = [&](const std::string& preset, int program, int bank, uint16_t bag) {
        Text(phdr, preset, 20);
        Put(phdr, uint16_t(program), 2);
        Put(phdr, uint16_t(bank), 2);
        Put(phdr, bag, 2);
        Text(phdr, "", 12); // library, genre, morphology
    };
    const uint16_t count = uint16_t(presets.size());
    for (uint16_t i = 0; i < count; ++i) {
        header(presets[i].name, presets[i].program, presets[i].bank, i);
        Put(pbag, i, 4);  // (first generator, first modulator)
        Put(pgen, 41, 4); // instrument 0
    }
    header("EOP", 0, 0, count);
    Put(pbag, count, 4);
    Put(pgen, 0, 4);
    Text(inst, "Sine", 20);
    Put(inst, 0, 2);
    Text(inst, "EOI", 20);
    Put(inst, 1, 2);
    Text(shdr, "Sine", 20);
    for (uint32_t value : {0, 1000, 100, 900, 44100}) // start, end, loop start, loop end, rate
        Put(shdr, value, 4);
    Put(shdr, 69, 1); // original pitch: A4; no pitch correction, no link
    Put(shdr, 0, 3);
    Put(shdr, 1, 2); // mono
    Text(shdr, "EOS", 46);
    const Bytes noModulator(10, 0);

    Bytes body;
    Text(body, "sfbk", 4);
    for (const Bytes& list :
         {List("INFO", {{"ifil", Words({2, 1})}, {"isng", engine}, {"INAM", name}}),
          List("sdta", {{"smpl", points}}),
          // The instrument's generators: loop continuously (54), the sample (53) closes the zone.
          List("pdta", {{"phdr", phdr},
                        {"pbag", pbag},
                        {"pmod", noModulator},
                        {"pgen", pgen},
                        {"inst", inst},
                        {"ibag", Words({0, 0, 2, 0})},
                        {"imod", noModulator},
                        {"igen", Words({54, 1, 53, 0, 0, 0})},
                        {"shdr", shdr}})})
        body.insert(body.end(), list.begin(), list.end());
    return Chunk("RIFF", body);
}

TempFile::TempFile(const std::string& suffix) {
    std::string name = ::testing::TempDir() + "nuv-test-XXXXXX" + suffix;
    const int fd = mkstemps(name.data(), static_cast<int>(suffix.size()));
    if (fd >= 0 && close(fd) == 0)
        m_path = name;
}

TempFile::~TempFile() {
    if (!m_path.empty())
        unlink(m_path.c_str());
}

bool TempFile::Write(const std::vector<uint8_t>& bytes) const {
    std::ofstream file(m_path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(file.flush());
}
