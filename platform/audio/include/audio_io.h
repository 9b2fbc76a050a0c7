/* Our stand-in for the device's audio output (audio-io): 8- or 16-bit PCM streams that
 * play through an ALSA PCM or into a WAV file (see nuv_audio_out.h for choosing the sink).
 *
 * A stream is created, prepared, written and unprepared from one thread at a time.
 * audio_out_write blocks while the sink's buffer is full, so a writer is paced at real
 * time; the stream's sound-type volume (sound_manager.h) is applied to what it writes.
 * A writer that pauses lets the sink run dry; the next write restarts it quietly. */
#ifndef NUV_PLATFORM_AUDIO_IO_H
#define NUV_PLATFORM_AUDIO_IO_H

#include <errno.h>

#include "sound_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

#define NUV_TIZEN_ERROR_AUDIO_IO (-0x01900000)

typedef struct audio_io_s* audio_out_h;

typedef enum {
    AUDIO_IO_ERROR_NONE = 0,
    AUDIO_IO_ERROR_OUT_OF_MEMORY = -ENOMEM,
    AUDIO_IO_ERROR_INVALID_PARAMETER = -EINVAL,
    AUDIO_IO_ERROR_INVALID_OPERATION = -ENOSYS,
    AUDIO_IO_ERROR_PERMISSION_DENIED = -EACCES,
    AUDIO_IO_ERROR_NOT_SUPPORTED = NUV_TIZEN_ERROR_NOT_SUPPORTED,
    AUDIO_IO_ERROR_DEVICE_NOT_OPENED = NUV_TIZEN_ERROR_AUDIO_IO | 0x01,
    AUDIO_IO_ERROR_DEVICE_NOT_CLOSED = NUV_TIZEN_ERROR_AUDIO_IO | 0x02,
    AUDIO_IO_ERROR_INVALID_BUFFER = NUV_TIZEN_ERROR_AUDIO_IO | 0x03,
    AUDIO_IO_ERROR_SOUND_POLICY = NUV_TIZEN_ERROR_AUDIO_IO | 0x04,
    AUDIO_IO_ERROR_INVALID_STATE = NUV_TIZEN_ERROR_AUDIO_IO | 0x05,
    AUDIO_IO_ERROR_NOT_SUPPORTED_TYPE = NUV_TIZEN_ERROR_AUDIO_IO | 0x06,
} audio_io_error_e;

typedef enum {
    AUDIO_CHANNEL_MONO = 0x80,
    AUDIO_CHANNEL_STEREO = 0x81,
} audio_channel_e;

typedef enum {
    AUDIO_SAMPLE_TYPE_U8 = 0x70,
    AUDIO_SAMPLE_TYPE_S16_LE = 0x71,
} audio_sample_type_e;

/* Rates from 8000 to 192000 Hz. The sink is the one chosen when the stream is created. */
int audio_out_create(int sample_rate, audio_channel_e channel, audio_sample_type_e type,
                     sound_type_e sound_type, audio_out_h* output);
int audio_out_destroy(audio_out_h output);
int audio_out_prepare(audio_out_h output);
int audio_out_unprepare(audio_out_h output);
/* The sink's whole buffer in bytes: the most that can wait to be played. */
int audio_out_get_buffer_size(audio_out_h output, int* size);
/* Plays `length` bytes (whole frames) of a prepared stream; the bytes written, or a
 * negative error. The caller's buffer is not changed. */
int audio_out_write(audio_out_h output, void* buffer, unsigned int length);

#ifdef __cplusplus
}
#endif

#endif
