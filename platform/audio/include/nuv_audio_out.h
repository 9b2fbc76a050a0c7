/* Our own additions to the audio-output stand-in: choosing the sink of the streams
 * created afterwards, and counters for tests and measurements. Safe from any thread. */
#ifndef NUV_PLATFORM_NUV_AUDIO_OUT_H
#define NUV_PLATFORM_NUV_AUDIO_OUT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The ALSA PCM of later streams; null restores "default". AUDIO_IO_ERROR_NONE. */
int nuv_audio_out_set_device(const char* pcm_name);
/* Later streams write a WAV file at `path` instead of ALSA (created or truncated when the
 * stream is created); null returns to ALSA. AUDIO_IO_ERROR_NONE. */
int nuv_audio_out_set_wav_file(const char* path);

/* 64-bit on every target: a 32-bit frame count runs over after 25 days at 48 kHz. */
typedef struct {
    /* Times a sink ran dry between two writes and was restarted. A writer that pauses
     * (silence is not written) causes one per pause; each is recovered without noise. */
    uint64_t underruns;
    uint64_t writes;         /* successful audio_out_write calls */
    uint64_t frames_written; /* frames handed to the sinks */
} nuv_audio_out_stats_s;

/* Counters of every stream of the process since the start or the last reset. */
void nuv_audio_out_get_stats(nuv_audio_out_stats_s* stats);
uint64_t nuv_audio_out_get_underrun_count(void);
void nuv_audio_out_reset_stats(void);

#ifdef __cplusplus
}
#endif

#endif
