// The audio-output stand-in with its WAV sink: what is written, how the writer is paced,
// the volume's gain and the counting of underruns.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "PcmAnalysis.h"
#include "audio_io.h"
#include "nuv_audio_out.h"

namespace {

constexpr int kRate = 48000;
constexpr unsigned kBlockFrames = 64;

class WavSink : public ::testing::Test {
protected:
    void SetUp() override {
        m_path = ::testing::TempDir() + "nuv_wav_sink_" + std::to_string(getpid()) + ".wav";
        nuv_audio_out_set_wav_file(m_path.c_str());
        sound_manager_get_volume(SOUND_TYPE_MEDIA, &m_savedVolume);
        sound_manager_set_volume(SOUND_TYPE_MEDIA, 15);
    }
    void TearDown() override {
        if (m_out != nullptr)
            audio_out_destroy(m_out);
        nuv_audio_out_set_wav_file(nullptr);
        sound_manager_set_volume(SOUND_TYPE_MEDIA, m_savedVolume);
        unlink(m_path.c_str());
    }

    void OpenPrepared() {
        ASSERT_EQ(AUDIO_IO_ERROR_NONE,
                  audio_out_create(kRate, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                                   SOUND_TYPE_MEDIA, &m_out));
        ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_prepare(m_out));
    }

    // Writes `blocks` stereo blocks whose every sample is `value`.
    void WriteBlocks(int blocks, int16_t value) {
        std::vector<int16_t> block(kBlockFrames * 2, value);
        for (int i = 0; i < blocks; ++i)
            ASSERT_EQ(int(block.size() * 2),
                      audio_out_write(m_out, block.data(), unsigned(block.size() * 2)));
    }

    Pcm Recorded() {
        Pcm pcm;
        std::string problem;
        EXPECT_TRUE(ReadWav(m_path, pcm, &problem)) << problem;
        return pcm;
    }

    std::string m_path;
    audio_out_h m_out = nullptr;
    int m_savedVolume = 15;
};

TEST_F(WavSink, RecordsExactlyWhatWasWrittenWithAMatchingHeader) {
    OpenPrepared();
    int size = 0;
    EXPECT_EQ(AUDIO_IO_ERROR_NONE, audio_out_get_buffer_size(m_out, &size));
    EXPECT_EQ(2048 * 4, size) << "four 512-frame periods of 4 bytes";
    WriteBlocks(10, 1234);
    ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_unprepare(m_out));

    Pcm pcm = Recorded();
    EXPECT_EQ(kRate, pcm.rate);
    EXPECT_EQ(2, pcm.channels);
    ASSERT_EQ(10 * kBlockFrames, pcm.Frames());
    for (int16_t s : pcm.samples)
        ASSERT_EQ(1234, s);

    // A stream prepared again goes on in the same file; destroying it fixes the header.
    ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_prepare(m_out));
    WriteBlocks(5, -7);
    audio_out_destroy(m_out);
    m_out = nullptr;
    pcm = Recorded();
    ASSERT_EQ(15 * kBlockFrames, pcm.Frames());
    EXPECT_EQ(-7, pcm.samples.back());
}

TEST_F(WavSink, WriterIsPacedAtRealTimeOnceTheBufferIsFull) {
    OpenPrepared();
    const auto start = std::chrono::steady_clock::now();
    WriteBlocks(kRate / 4 / kBlockFrames, 100); // a quarter of a second
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // All but the last buffer's worth (42.7 ms) must have been played before the last write.
    EXPECT_GE(elapsed, 0.25 - 0.0427 - 0.002);
}

TEST_F(WavSink, SystemVolumeLevelScalesTheSamples) {
    struct Case {
        int level;
        double gainDb;
    } cases[] = {{15, 0.0}, {14, -3.0}, {7, -24.0}, {1, -42.0}};
    for (const Case& c : cases) {
        sound_manager_set_volume(SOUND_TYPE_MEDIA, c.level);
        OpenPrepared();
        WriteBlocks(1, 20000);
        audio_out_destroy(m_out);
        m_out = nullptr;
        const Pcm pcm = Recorded();
        ASSERT_FALSE(pcm.samples.empty());
        const double expected = 20000 * std::pow(10.0, c.gainDb / 20.0);
        EXPECT_NEAR(expected, pcm.samples[0], 1.0 + expected * 0.001) << "level " << c.level;
    }
    sound_manager_set_volume(SOUND_TYPE_MEDIA, 0);
    OpenPrepared();
    WriteBlocks(1, -20000);
    audio_out_destroy(m_out);
    m_out = nullptr;
    EXPECT_EQ(0.0, Rms(Recorded()));
}

TEST_F(WavSink, NegativeSamplesKeepTheirSignUnderGain) {
    sound_manager_set_volume(SOUND_TYPE_MEDIA, 9); // -18 dB
    OpenPrepared();
    WriteBlocks(1, -32768);
    audio_out_destroy(m_out);
    m_out = nullptr;
    const Pcm pcm = Recorded();
    EXPECT_NEAR(-32768 * std::pow(10.0, -18.0 / 20.0), pcm.samples[0], 2.0);
}

TEST_F(WavSink, APauseLongerThanTheBufferIsOneUnderrunAndContinuousWritingNone) {
    OpenPrepared();
    const unsigned long before = nuv_audio_out_get_underrun_count();
    WriteBlocks(100, 1);
    EXPECT_EQ(before, nuv_audio_out_get_underrun_count());
    // The writer pauses (silence is not written) for longer than the buffer lasts.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    WriteBlocks(10, 1);
    EXPECT_EQ(before + 1, nuv_audio_out_get_underrun_count());
}

TEST(AudioOut, RefusesWhatItCannotPlay) {
    audio_out_h out = nullptr;
    EXPECT_EQ(AUDIO_IO_ERROR_INVALID_PARAMETER,
              audio_out_create(kRate, audio_channel_e(3), AUDIO_SAMPLE_TYPE_S16_LE,
                               SOUND_TYPE_SYSTEM, &out));
    EXPECT_EQ(AUDIO_IO_ERROR_INVALID_PARAMETER,
              audio_out_create(kRate, AUDIO_CHANNEL_STEREO, audio_sample_type_e(0x72),
                               SOUND_TYPE_SYSTEM, &out));
    EXPECT_EQ(AUDIO_IO_ERROR_INVALID_PARAMETER,
              audio_out_create(1000, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                               SOUND_TYPE_SYSTEM, &out));
    EXPECT_EQ(nullptr, out);
}

TEST(AudioOut, WriteBeforePrepareIsAnInvalidState) {
    const std::string path = ::testing::TempDir() + "nuv_unprepared.wav";
    nuv_audio_out_set_wav_file(path.c_str());
    audio_out_h out = nullptr;
    ASSERT_EQ(AUDIO_IO_ERROR_NONE, audio_out_create(kRate, AUDIO_CHANNEL_MONO, AUDIO_SAMPLE_TYPE_U8,
                                                    SOUND_TYPE_SYSTEM, &out));
    unsigned char block[64] = {};
    EXPECT_EQ(AUDIO_IO_ERROR_INVALID_STATE, audio_out_write(out, block, sizeof block));
    audio_out_destroy(out);
    nuv_audio_out_set_wav_file(nullptr);
    unlink(path.c_str());
}

TEST(AudioOut, SinksThatCannotBeOpenedFailTheCreate) {
    audio_out_h out = nullptr;
    nuv_audio_out_set_device("nuv_no_such_pcm");
    EXPECT_EQ(AUDIO_IO_ERROR_DEVICE_NOT_OPENED,
              audio_out_create(kRate, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                               SOUND_TYPE_SYSTEM, &out));
    nuv_audio_out_set_device(nullptr);
    nuv_audio_out_set_wav_file("/nonexistent-dir/out.wav");
    EXPECT_EQ(AUDIO_IO_ERROR_DEVICE_NOT_OPENED,
              audio_out_create(kRate, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                               SOUND_TYPE_SYSTEM, &out));
    nuv_audio_out_set_wav_file(nullptr);
    EXPECT_EQ(nullptr, out);
}

} // namespace
