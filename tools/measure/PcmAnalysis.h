// Reading what the audio output wrote (WAV files, captured PCM) and measuring it: level,
// fundamental frequency, and where the sound starts and ends.
#ifndef NUV_MEASURE_PCM_ANALYSIS_H
#define NUV_MEASURE_PCM_ANALYSIS_H

#include <cstdint>
#include <string>
#include <vector>

// Interleaved signed 16-bit PCM.
struct Pcm {
    int rate = 48000;
    int channels = 2;
    std::vector<int16_t> samples;

    size_t Frames() const { return channels > 0 ? samples.size() / channels : 0; }
    // Frames [first, first + count) as a Pcm of their own.
    Pcm Slice(size_t firstFrame, size_t frameCount) const;
};

// Reads a 16-bit PCM WAV file; also checks that its RIFF and data sizes match the file.
bool ReadWav(const std::string& path, Pcm& out, std::string* problem = nullptr);

// Root mean square of all samples, as a fraction of full scale.
double Rms(const Pcm& pcm);
// Level of each window of `windowMs` milliseconds.
std::vector<double> RmsWindows(const Pcm& pcm, int windowMs);
// The strongest periodicity between minHz and maxHz (autocorrelation of the channel mix);
// 0 when there is none.
double Fundamental(const Pcm& pcm, double minHz = 60, double maxHz = 2000);
// Seconds from the start at which the level rises above `threshold` after at least
// `quietSeconds` below it (5 ms windows).
std::vector<double> Onsets(const Pcm& pcm, double threshold, double quietSeconds);

#endif
