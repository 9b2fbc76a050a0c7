// The system volume levels and the gain they put on what a stream writes.
#include <gtest/gtest.h>

#include <cmath>

#include "sound_manager.h"

namespace {

class VolumeCurve : public ::testing::Test {
protected:
    void SetUp() override { sound_manager_get_volume(SOUND_TYPE_SYSTEM, &m_saved); }
    void TearDown() override { sound_manager_set_volume(SOUND_TYPE_SYSTEM, m_saved); }
    int m_saved = 15;
};

TEST_F(VolumeCurve, EverySoundTypeHasFifteenLevels) {
    for (int type = SOUND_TYPE_SYSTEM; type <= SOUND_TYPE_VOICE; ++type) {
        int max = 0;
        EXPECT_EQ(SOUND_MANAGER_ERROR_NONE, sound_manager_get_max_volume(sound_type_e(type), &max));
        EXPECT_EQ(15, max);
    }
}

TEST_F(VolumeCurve, LevelsOutsideTheRangeAreRefusedAndChangeNothing) {
    ASSERT_EQ(SOUND_MANAGER_ERROR_NONE, sound_manager_set_volume(SOUND_TYPE_SYSTEM, 9));
    EXPECT_EQ(SOUND_MANAGER_ERROR_INVALID_PARAMETER,
              sound_manager_set_volume(SOUND_TYPE_SYSTEM, 16));
    EXPECT_EQ(SOUND_MANAGER_ERROR_INVALID_PARAMETER,
              sound_manager_set_volume(SOUND_TYPE_SYSTEM, -1));
    EXPECT_EQ(SOUND_MANAGER_ERROR_INVALID_PARAMETER,
              sound_manager_set_volume(sound_type_e(SOUND_TYPE_VOICE + 1), 3));
    int level = 0;
    EXPECT_EQ(SOUND_MANAGER_ERROR_NONE, sound_manager_get_volume(SOUND_TYPE_SYSTEM, &level));
    EXPECT_EQ(9, level);
}

} // namespace
