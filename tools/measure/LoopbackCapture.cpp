#include "LoopbackCapture.h"

namespace {
constexpr unsigned kRate = 48000;
constexpr snd_pcm_uframes_t kPeriod = 1024;
} // namespace

LoopbackCapture::LoopbackCapture(std::string pcmName) : m_pcmName(std::move(pcmName)) {}

LoopbackCapture::~LoopbackCapture() {
    Stop();
}

bool LoopbackCapture::Start(std::string* problem) {
    int err = snd_pcm_open(&m_pcm, m_pcmName.c_str(), SND_PCM_STREAM_CAPTURE, 0);
    if (err >= 0)
        err = snd_pcm_set_params(m_pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2,
                                 kRate, 0, 100000);
    if (err >= 0)
        err = snd_pcm_start(m_pcm);
    if (err < 0) {
        if (problem != nullptr)
            *problem = m_pcmName + ": " + snd_strerror(err);
        if (m_pcm != nullptr)
            snd_pcm_close(m_pcm);
        m_pcm = nullptr;
        return false;
    }
    m_stop = false;
    m_thread = std::thread(&LoopbackCapture::m_Run, this);
    return true;
}

void LoopbackCapture::Stop() {
    if (!m_thread.joinable())
        return;
    m_stop = true;
    m_thread.join(); // a read returns within one period
    snd_pcm_close(m_pcm);
    m_pcm = nullptr;
}

void LoopbackCapture::m_Run() {
    std::vector<int16_t> period(kPeriod * 2);
    while (!m_stop) {
        const snd_pcm_sframes_t got = snd_pcm_readi(m_pcm, period.data(), kPeriod);
        if (got < 0) {
            if (snd_pcm_recover(m_pcm, int(got), 1) < 0)
                return;
            snd_pcm_start(m_pcm);
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_recorded.samples.insert(m_recorded.samples.end(), period.begin(),
                                  period.begin() + got * 2);
        m_reads.emplace_back(now, m_recorded.Frames());
    }
}

Pcm LoopbackCapture::Recorded() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_recorded;
}

size_t LoopbackCapture::Frames() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_recorded.Frames();
}

double LoopbackCapture::RecentRms(int ms) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const size_t frames = size_t(kRate) * size_t(ms) / 1000;
    if (m_recorded.Frames() < frames)
        return 0;
    return Rms(m_recorded.Slice(m_recorded.Frames() - frames, frames));
}

void LoopbackCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_recorded.samples.clear();
    m_reads.clear();
}

std::chrono::steady_clock::time_point LoopbackCapture::CapturedAt(size_t frame) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [returned, frames] : m_reads) {
        if (frames > frame)
            return returned - std::chrono::microseconds((frames - frame) * 1000000 / kRate);
    }
    return std::chrono::steady_clock::time_point::max();
}
