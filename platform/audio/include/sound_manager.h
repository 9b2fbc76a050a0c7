/* Our stand-in for the device's sound manager: the volume level of each sound type.
 *
 * Every sound type has the levels 0 to 15. The level of a stream's sound type is applied
 * as a gain to what the stream writes (see audio_io.h): level 15 passes samples unchanged,
 * each step below it takes 3 dB off (level 14 is -3 dB, level 1 is -42 dB), and level 0
 * is silence. Every level starts at 15. All functions are safe from any thread. */
#ifndef NUV_PLATFORM_SOUND_MANAGER_H
#define NUV_PLATFORM_SOUND_MANAGER_H

#include <errno.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NUV_TIZEN_ERROR_NOT_SUPPORTED (-0x40000000 + 2)
#define NUV_TIZEN_ERROR_SOUND_MANAGER (-0x01850000)

typedef enum {
    SOUND_MANAGER_ERROR_NONE = 0,
    SOUND_MANAGER_ERROR_OUT_OF_MEMORY = -ENOMEM,
    SOUND_MANAGER_ERROR_INVALID_PARAMETER = -EINVAL,
    SOUND_MANAGER_ERROR_INVALID_OPERATION = -ENOSYS,
    SOUND_MANAGER_ERROR_PERMISSION_DENIED = -EACCES,
    SOUND_MANAGER_ERROR_NOT_SUPPORTED = NUV_TIZEN_ERROR_NOT_SUPPORTED,
    SOUND_MANAGER_ERROR_NO_DATA = -ENODATA,
    SOUND_MANAGER_ERROR_INTERNAL = NUV_TIZEN_ERROR_SOUND_MANAGER | 0x01,
    SOUND_MANAGER_ERROR_POLICY = NUV_TIZEN_ERROR_SOUND_MANAGER | 0x02,
    SOUND_MANAGER_ERROR_NO_PLAYING_SOUND = NUV_TIZEN_ERROR_SOUND_MANAGER | 0x03,
    SOUND_MANAGER_ERROR_INVALID_STATE = NUV_TIZEN_ERROR_SOUND_MANAGER | 0x04,
} sound_manager_error_e;

typedef enum {
    SOUND_TYPE_SYSTEM = 0,
    SOUND_TYPE_NOTIFICATION,
    SOUND_TYPE_ALARM,
    SOUND_TYPE_RINGTONE,
    SOUND_TYPE_MEDIA,
    SOUND_TYPE_CALL,
    SOUND_TYPE_VOIP,
    SOUND_TYPE_VOICE,
} sound_type_e;

int sound_manager_get_max_volume(sound_type_e type, int* max);
int sound_manager_set_volume(sound_type_e type, int volume);
int sound_manager_get_volume(sound_type_e type, int* volume);

#ifdef __cplusplus
}
#endif

#endif
