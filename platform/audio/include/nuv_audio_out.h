/* Our own additions to the audio-output stand-in: choosing the sink of the streams
 * created afterwards, and counters for tests and measurements. Safe from any thread. */
#ifndef NUV_PLATFORM_NUV_AUDIO_OUT_H
#define NUV_PLATFORM_NUV_AUDIO_OUT_H

#include <stdint.h>

#include "audio_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The ALSA PCM of later streams; null restores "default". AUDIO_IO_ERROR_NONE. */
int nuv_audio_out_set_device(const char* pcm_name);
/* Later streams write a WAV file at `path` instead of ALSA (created or truncated when the
 * stream is created); null returns to ALSA. AUDIO_IO_ERROR_NONE. */
int nuv_audio_out_set_wav_file(const char* path);

/* Low-latency writing, instead of keeping the whole buffer full: blocks until the queue of
 * a prepared stream has fallen a period below the stream's fill target, then sets *frames
 * to how many frames bring it back up to the target (the whole target when the stream is
 * not playing yet). The target starts at the fewest periods that leave 8 ms queued when the
 * writer wakes (12 ms on ALSA, 21.3 ms into a WAV file, at 48 000 Hz), widens by a period
 * each time the stream runs dry anyway (logged and counted), narrows again by a period
 * after ten seconds of sound without running dry (twice as long each time a narrowed target
 * runs dry, up to 160 s), and is kept across unprepare and prepare.
 * AUDIO_IO_ERROR_NONE, or an error. */
int nuv_audio_out_wait_for_room(audio_out_h output, unsigned int* frames);

/* 64-bit on every target: a 32-bit frame count runs over after 25 days at 48 kHz. */
typedef struct {
    /* Times a sink ran dry between two writes and was restarted. A writer that pauses
     * (silence is not written) causes one per pause; each is recovered without noise. */
    uint64_t underruns;
    uint64_t writes;                /* successful audio_out_write calls */
    uint64_t frames_written;        /* frames handed to the sinks */
    uint64_t fill_target_widenings; /* a stream's fill target widened after running dry */
    uint64_t fill_target_frames;    /* the fill target of the stream that last waited for room */
    /* Why a low-latency writer's output ran dry, where the sink can tell: it woke from its
     * wait later than the queue it left at its deadline lasted (the machine did not run it
     * in time), or it woke in time but rendering and writing took longer than what was
     * queued at its wake. Underruns counted in neither ran dry some other way. */
    uint64_t underruns_woken_late;
    uint64_t underruns_rendering;
    uint64_t fill_target_narrowings; /* a stream's fill target narrowed after a calm while */
} nuv_audio_out_stats_s;

/* Counters of every stream of the process since the start or the last reset. */
void nuv_audio_out_get_stats(nuv_audio_out_stats_s* stats);
uint64_t nuv_audio_out_get_underrun_count(void);
void nuv_audio_out_reset_stats(void);

#ifdef __cplusplus
}
#endif

#endif
