// Writes small SoundFont 2 files for tests: every preset plays one looped sine instrument.
#ifndef NUV_TEST_SOUND_FONT_WRITER_H
#define NUV_TEST_SOUND_FONT_WRITER_H

#include <stdint.h>

#include <string>
#include <vector>

struct SoundFontPreset {
    std::string name; // at most 20 characters are stored, without a terminator at 20
    int bank;
    int program;
};

// The bytes of a complete font with these presets, in this order.
std::vector<uint8_t> BuildSoundFont(const std::vector<SoundFontPreset>& presets);

// A temporary file that is removed when the object goes.
class TempFile {
public:
    explicit TempFile(const std::string& suffix);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& Path() const { return m_path; }
    bool Write(const std::vector<uint8_t>& bytes) const;

private:
    std::string m_path;
};

#endif
