// Running a shell command for the host and reading the kernel's module list.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "LogCapture.h"
#include "NuvMIDIEntry.h"

TEST(ModulesShell, ReturnsTheWaitStatusOfTheCommand) {
    EXPECT_EQ(NuvMIDIEntry::m_ExecShell("true"), 0);
    const int status = NuvMIDIEntry::m_ExecShell("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    // A program that cannot be run is the shell's ordinary failure, not -1.
    const int missing = NuvMIDIEntry::m_ExecShell("/nonexistent/insmod");
    ASSERT_TRUE(WIFEXITED(missing));
    EXPECT_EQ(WEXITSTATUS(missing), 127);
}

TEST(ModulesShell, ReadingTheModuleListLogsItsEntry) {
    LogCapture log(NUV_LOG_INFO);
    char buffer[5120] = {};
    const int result = NuvMIDIEntry::m_ReadProcModules(buffer);
    EXPECT_TRUE(log.Has("INFO: _nuv_ReadProcModules().\n", NUV_LOG_INFO));
    if (result == 1)
        EXPECT_NE(buffer[0], '\0');
    else
        EXPECT_EQ(log.CountContaining("ERROR:"), 1); // no list here: said once, not fatal
}
