// The audio-output stand-in on a real ALSA PCM: the VM's default PCM, recorded from the
// loopback card's other side.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "LoopbackCapture.h"
#include "WaitFor.h"
#include "audio_io.h"
#include "nuv_audio_out.h"

namespace {

constexpr int kRate = 48000;

class AlsaSink : public ::testing::Test {
protected:
    void SetUp() override {
        std::string problem;
        ASSERT_TRUE(m_capture.Start(&problem)) << problem;
        ASSERT_EQ(AUDIO_IO_ERROR_NONE,
                  audio_out_create(kRate, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                                   SOUND_TYPE_MEDIA, &m_out));
        ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_prepare(m_out));
    }
    void TearDown() override {
        if (m_out != nullptr)
            audio_out_destroy(m_out);
        m_capture.Stop();
    }

    // Plays `seconds` of a 1 kHz sine at a quarter of full scale, 64 frames per write.
    void PlayTone(double seconds) {
        std::vector<int16_t> block(128);
        const long frames = long(seconds * kRate);
        for (long done = 0; done < frames; done += 64) {
            for (int i = 0; i < 64; ++i) {
                const double t = double(m_phase++) / kRate;
                block[2 * i] = block[2 * i + 1] = int16_t(8192 * std::sin(2 * M_PI * 1000 * t));
            }
            ASSERT_EQ(256, audio_out_write(m_out, block.data(), 256));
        }
    }

    LoopbackCapture m_capture;
    audio_out_h m_out = nullptr;
    long m_phase = 0;
};

TEST_F(AlsaSink, WhatIsWrittenIsPlayedAtItsPitchAndLevel) {
    int size = 0;
    ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_get_buffer_size(m_out, &size));
    EXPECT_EQ(192 * 8 * 4, size) << "eight 192-frame periods";
    const size_t from = m_capture.Frames();
    PlayTone(0.5);
    ASSERT_TRUE(WaitFor([&] { return m_capture.Frames() >= from + kRate / 2; }));
    const Pcm played = m_capture.Recorded().Slice(from, kRate / 2);
    const std::vector<double> levels = RmsWindows(played, 50);
    const double loudest = *std::max_element(levels.begin(), levels.end());
    EXPECT_NEAR(8192 / 32768.0 / std::sqrt(2.0), loudest, 0.01);
    size_t loudFrom = 0;
    while (loudFrom < levels.size() && levels[loudFrom] < loudest / 2)
        ++loudFrom;
    EXPECT_NEAR(1000.0, Fundamental(played.Slice(loudFrom * kRate / 20, kRate / 10)), 10.0);
}

TEST_F(AlsaSink, APauseRunsThePcmDryAndTheNextWriteRestartsItQuietly) {
    PlayTone(0.2);
    const uint64_t before = nuv_audio_out_get_underrun_count();
    // The writer has nothing to play for a while (its silence is not written).
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    m_capture.Clear();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const Pcm pause = m_capture.Recorded();
    EXPECT_LT(Rms(pause), 0.0005) << "a dry PCM plays silence, not its old samples";
    PlayTone(0.2);
    EXPECT_EQ(before + 1, nuv_audio_out_get_underrun_count());
    EXPECT_TRUE(WaitFor([&] { return m_capture.RecentRms(50) > 0.1; }));
}

} // namespace
