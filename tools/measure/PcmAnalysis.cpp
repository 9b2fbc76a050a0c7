#include "PcmAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>

namespace {

// A little-endian field of the header (both machines the tests run on are little-endian).
template <typename T> uint32_t LE(const unsigned char* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

bool Fail(std::string* problem, const char* text) {
    if (problem != nullptr)
        *problem = text;
    return false;
}

} // namespace

Pcm Pcm::Slice(size_t firstFrame, size_t frameCount) const {
    const size_t first = std::min(firstFrame, Frames());
    const size_t count = std::min(frameCount, Frames() - first);
    const auto from = samples.begin() + long(first * channels);
    return {rate, channels, std::vector<int16_t>(from, from + long(count * channels))};
}

bool ReadWav(const std::string& path, Pcm& out, std::string* problem) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)),
                                           std::istreambuf_iterator<char>());
    if (bytes.size() < 44)
        return Fail(problem, "shorter than a WAV header");
    const unsigned char* h = bytes.data();
    if (std::memcmp(h, "RIFF", 4) != 0 || std::memcmp(h + 8, "WAVE", 4) != 0 ||
        std::memcmp(h + 12, "fmt ", 4) != 0 || std::memcmp(h + 36, "data", 4) != 0)
        return Fail(problem, "not a canonical RIFF/WAVE file");
    if (LE<uint16_t>(h + 20) != 1 || LE<uint16_t>(h + 34) != 16)
        return Fail(problem, "not 16-bit PCM");
    const uint32_t data = LE<uint32_t>(h + 40);
    if (LE<uint32_t>(h + 4) != 36 + data || bytes.size() != 44 + size_t(data))
        return Fail(problem, "RIFF or data size does not match the file");
    out.channels = int(LE<uint16_t>(h + 22));
    out.rate = int(LE<uint32_t>(h + 24));
    if (LE<uint16_t>(h + 32) != uint32_t(out.channels * 2) ||
        LE<uint32_t>(h + 28) != uint32_t(out.rate * out.channels * 2))
        return Fail(problem, "inconsistent block align or byte rate");
    out.samples.resize(data / 2);
    std::memcpy(out.samples.data(), h + 44, out.samples.size() * 2);
    return true;
}

double Rms(const Pcm& pcm) {
    const auto& s = pcm.samples;
    const double sum = std::inner_product(s.begin(), s.end(), s.begin(), 0.0);
    return s.empty() ? 0 : std::sqrt(sum / double(s.size())) / 32768.0;
}

std::vector<double> RmsWindows(const Pcm& pcm, int windowMs) {
    std::vector<double> levels;
    const size_t window = size_t(pcm.rate) * size_t(windowMs) / 1000;
    for (size_t first = 0; window > 0 && first + window <= pcm.Frames(); first += window)
        levels.push_back(Rms(pcm.Slice(first, window)));
    return levels;
}

double Fundamental(const Pcm& pcm, double minHz, double maxHz) {
    const size_t frames = pcm.Frames();
    std::vector<double> mono(frames);
    for (size_t i = 0; i < frames; ++i) {
        const auto frame = pcm.samples.begin() + long(i * pcm.channels);
        mono[i] = std::accumulate(frame, frame + pcm.channels, 0.0) / pcm.channels;
    }
    const size_t minLag = size_t(pcm.rate / maxHz);
    const size_t maxLag = size_t(pcm.rate / minHz);
    if (frames < 2 * maxLag)
        return 0;
    const size_t span = frames - maxLag;
    const auto correlation = [&](size_t lag) {
        return std::inner_product(mono.begin(), mono.begin() + long(span), mono.begin() + long(lag),
                                  0.0);
    };
    const double energy = correlation(0);
    if (energy <= 0)
        return 0;
    std::vector<double> r(maxLag + 1, 0);
    double best = 0;
    for (size_t lag = minLag; lag <= maxLag; ++lag) {
        r[lag] = correlation(lag) / energy;
        best = std::max(best, r[lag]);
    }
    if (best < 0.3)
        return 0;
    // The first peak close to the best one is the period; later ones are its multiples.
    for (size_t lag = minLag + 1; lag < maxLag; ++lag)
        if (r[lag] >= 0.9 * best && r[lag] >= r[lag - 1] && r[lag] >= r[lag + 1]) {
            // Parabolic interpolation between the neighbouring lags.
            const double a = r[lag - 1], b = r[lag], c = r[lag + 1];
            const double denom = a - 2 * b + c;
            const double offset = denom != 0 ? 0.5 * (a - c) / denom : 0;
            return pcm.rate / (double(lag) + offset);
        }
    return 0;
}

std::vector<double> Onsets(const Pcm& pcm, double threshold, double quietSeconds) {
    const int windowMs = 5;
    const std::vector<double> levels = RmsWindows(pcm, windowMs);
    const size_t quietWindows = size_t(quietSeconds * 1000 / windowMs);
    std::vector<double> onsets;
    size_t quiet = quietWindows; // the start counts as after a quiet stretch
    for (size_t i = 0; i < levels.size(); ++i) {
        if (levels[i] <= threshold) {
            ++quiet;
            continue;
        }
        if (quiet >= quietWindows)
            onsets.push_back(double(i) * windowMs / 1000.0);
        quiet = 0;
    }
    return onsets;
}
