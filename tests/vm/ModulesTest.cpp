// Waiting for a kernel module and running the commands that load the others. These
// operations pause one second between reads by design, so the suite takes about 12 s.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "NuvMIDIEntry.h"

using Clock = std::chrono::steady_clock;

namespace {

const char* const kCheckingFormat = "INFO: --- NUV MODULE CHECKING... ---[%d]";

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string Checking(int attempt) {
    char text[64];
    snprintf(text, sizeof(text), kCheckingFormat, attempt);
    return text;
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

TEST(Modules, ALoadedModuleIsFoundOnTheFirstReadAndTheCommandsRunInOrder) {
    const std::string out = "/tmp/nuv_modules_order";
    unlink(out.c_str());
    const std::string first = "echo first >> " + out;
    const std::string second = "echo second >> " + out;
    const char* commands[] = {first.c_str(), "exit 3", "/nonexistent/insmod", second.c_str(),
                              nullptr};
    LogCapture log(NUV_LOG_INFO);

    const auto start = Clock::now();
    NuvMIDIEntry::m_InsertModules("snd_seq", commands);
    const double seconds = SecondsSince(start);

    EXPECT_EQ(ReadFile(out), "first\nsecond\n");
    std::vector<std::string> texts;
    for (const auto& line : log.Lines())
        texts.push_back(line.text);
    const std::vector<std::string> expected = {
        "INFO: _nuv_InsertModule().\n",          "INFO: _nuv_ReadProcModules().\n",
        "INFO: --- NUV MODULE CHECKED!! ---\n",  "INFO: Insert module - " + first + ".",
        "INFO: Insert module - exit 3.",         "INFO: Insert module - /nonexistent/insmod.",
        "INFO: Insert module - " + second + ".", "INFO: D/D Modules for NUV is loaded complete!\n"};
    EXPECT_EQ(texts, expected); // a failing command is not an error of the operation
    EXPECT_GE(seconds, 0.9);
    EXPECT_LT(seconds, 3.0);
    unlink(out.c_str());
}

TEST(Modules, AModuleNeverListedTakesElevenReadsAndStillRunsTheCommands) {
    const std::string marker = "/tmp/nuv_modules_late";
    unlink(marker.c_str());
    const std::string touch = "touch " + marker;
    const char* commands[] = {touch.c_str(), nullptr};
    LogCapture log(NUV_LOG_INFO);

    const auto start = Clock::now();
    NuvMIDIEntry::m_InsertModules("nuv_no_such_module", commands);
    const double seconds = SecondsSince(start);

    EXPECT_EQ(access(marker.c_str(), F_OK), 0);
    EXPECT_EQ(log.Count("INFO: _nuv_ReadProcModules().\n"), 11);
    std::vector<std::string> checking;
    for (const auto& line : log.Lines())
        if (line.text.rfind("INFO: --- NUV MODULE CHECKING", 0) == 0)
            checking.push_back(line.text);
    std::vector<std::string> expected;
    for (int attempt = 1; attempt <= 10; ++attempt)
        expected.push_back(Checking(attempt));
    EXPECT_EQ(checking, expected);
    EXPECT_EQ(log.CountContaining("CHECKED"), 0);
    EXPECT_EQ(log.CountContaining("ERROR"), 0);
    EXPECT_TRUE(log.Has("INFO: Insert module - " + touch + "."));
    EXPECT_EQ(log.Lines().back().text, "INFO: D/D Modules for NUV is loaded complete!\n");
    EXPECT_GE(seconds, 9.9);
    EXPECT_LT(seconds, 13.0);
    unlink(marker.c_str());
}
