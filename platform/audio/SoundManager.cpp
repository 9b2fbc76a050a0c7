// The volume levels of the sound types, and the gain curve that makes them audible.
#include <array>
#include <atomic>
#include <cmath>

#include "SoundVolume.h"

#define NUV_AUDIO_API extern "C" __attribute__((visibility("default")))

namespace {

constexpr int kSoundTypes = SOUND_TYPE_VOICE + 1;
// 3 dB per level below the maximum: 15 levels span 42 dB, a range in which every step
// is clearly heard and level 1 is still audible; level 0 mutes.
constexpr double kStepDb = 3.0;

static_assert(kSoundTypes == 8, "one starting level per sound type");
std::atomic<int> g_level[kSoundTypes] = {kNuvSoundMaxVolume, kNuvSoundMaxVolume, kNuvSoundMaxVolume,
                                         kNuvSoundMaxVolume, kNuvSoundMaxVolume, kNuvSoundMaxVolume,
                                         kNuvSoundMaxVolume, kNuvSoundMaxVolume};

const std::array<int32_t, kNuvSoundMaxVolume + 1>& GainTable() {
    static const auto table = [] {
        std::array<int32_t, kNuvSoundMaxVolume + 1> gains{};
        for (int level = 1; level <= kNuvSoundMaxVolume; ++level) {
            const double db = -kStepDb * (kNuvSoundMaxVolume - level);
            gains[level] = int32_t(std::lround(65536.0 * std::pow(10.0, db / 20.0)));
        }
        return gains;
    }();
    return table;
}

bool ValidType(sound_type_e type) {
    return int(type) >= 0 && int(type) < kSoundTypes;
}

} // namespace

int32_t NuvSoundVolume_GainQ16(sound_type_e type) {
    if (!ValidType(type))
        return 65536;
    return GainTable()[g_level[type].load(std::memory_order_relaxed)];
}

NUV_AUDIO_API int sound_manager_get_max_volume(sound_type_e type, int* max) {
    if (!ValidType(type) || max == nullptr)
        return SOUND_MANAGER_ERROR_INVALID_PARAMETER;
    *max = kNuvSoundMaxVolume;
    return SOUND_MANAGER_ERROR_NONE;
}

NUV_AUDIO_API int sound_manager_set_volume(sound_type_e type, int volume) {
    if (!ValidType(type) || volume < 0 || volume > kNuvSoundMaxVolume)
        return SOUND_MANAGER_ERROR_INVALID_PARAMETER;
    g_level[type].store(volume, std::memory_order_relaxed);
    return SOUND_MANAGER_ERROR_NONE;
}

NUV_AUDIO_API int sound_manager_get_volume(sound_type_e type, int* volume) {
    if (!ValidType(type) || volume == nullptr)
        return SOUND_MANAGER_ERROR_INVALID_PARAMETER;
    *volume = g_level[type].load(std::memory_order_relaxed);
    return SOUND_MANAGER_ERROR_NONE;
}
