// nuvmidi as its users run it, against the VM's sequencer: the devices it lists, a file
// played into a WAV file, a virtual keyboard's notes on its monitor, and the exit status
// and message of each failure; and the README's example host. Each run is a process of its
// own with a library of its own.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "ChildProcess.h"
#include "LoopbackCapture.h"
#include "MidiFileWriter.h"
#include "PcmAnalysis.h"
#include "UsbKeyboard.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"

#ifdef NUV_CLI_PATH

namespace {

using ::testing::IsNotSubstring;
using ::testing::IsSubstring;

// Under software emulation the library needs seconds to start its synthesizer.
const auto kRunLimit = std::chrono::seconds(90);

// nuvmidi with the build tree's library, as its run path finds it outside the VM.
ProgramResult Nuvmidi(std::vector<std::string> args) {
    args.insert(args.begin(), {NUV_CLI_PATH, "--lib", NUV_CLI_LIBRARY});
    return RunProgram(args, kRunLimit);
}

// One event line's columns after the device: event, channel, values.
std::string EventColumns(const char* event, int channel, const std::string& values) {
    char text[128];
    snprintf(text, sizeof(text), "%-18s %2d  %s", event, channel, values.c_str());
    return text;
}

class CliVm : public ::testing::Test {
protected:
    void SetUp() override {
        if (access("/dev/snd/seq", F_OK) != 0)
            GTEST_SKIP() << "no ALSA sequencer here";
        ASSERT_EQ(0, access(NUV_CLI_PATH, X_OK)) << NUV_CLI_PATH << " was not brought into the VM";
        m_keyboards = VirtualKeyboard::FindAll();
        ASSERT_GE(m_keyboards.size(), 2u) << "the VM has two virtual keyboards";
    }

    std::vector<VirtualKeyboard> m_keyboards;
};

} // namespace

TEST_F(CliVm, DevicesListsTheKeyboardsAndTheSynthesizer) {
    const ProgramResult table = Nuvmidi({"devices"});
    ASSERT_EQ(0, table.status) << table.err;
    EXPECT_EQ(0u, table.out.find(" ID  CLIENT  NAME")) << table.out;
    for (const VirtualKeyboard& keyboard : m_keyboards)
        EXPECT_PRED_FORMAT2(IsSubstring,
                            std::to_string(keyboard.Client()) + "  " + keyboard.ClientName(),
                            table.out);
    EXPECT_PRED_FORMAT2(IsSubstring, "Midi Through", table.out);
    EXPECT_PRED_FORMAT2(IsNotSubstring, "MIDI Watcher", table.out) << "the library's own client";

    const ProgramResult json = Nuvmidi({"devices", "--json"});
    ASSERT_EQ(0, json.status) << json.err;
    const VirtualKeyboard& first = m_keyboards[0];
    for (const std::string& part :
         {"\"client\": " + std::to_string(first.Client()) + ", \"name\": \"" + first.ClientName() +
              "\", \"synth\": false}",
          std::string("\"name\": \"FLUID"), std::string("\"synth\": true}")})
        EXPECT_PRED_FORMAT2(IsSubstring, part, json.out);
}

// Onsets of the sounds in a WAV that nuvmidi recorded, after at least half a second of quiet.
std::vector<double> WavOnsets(const std::string& wav) {
    Pcm pcm;
    std::string problem;
    EXPECT_TRUE(ReadWav(wav, pcm, &problem)) << problem;
    unlink(wav.c_str());
    return Onsets(pcm, 0.005, 0.5);
}

// What the device played into a WAV file and what render writes offline hold the same
// notes at the same times; the live WAV holds the rests on the wall clock's timeline.
TEST_F(CliVm, PlayAndRenderRecordTheSameFile) {
    const std::string song = "/tmp/cli-play.mid", wav = "/tmp/cli-play.wav";
    MidiFileWriter writer;
    writer.AddProgramChange(0, 19, 0); // a church organ sounds until it is released
    writer.AddNote(0, 60, 110, 0, 0.5);
    writer.AddNote(0, 67, 110, 3.0, 0.5);
    writer.AddNote(0, 64, 110, 4.5, 0.5);
    ASSERT_TRUE(writer.Write(song));

    const ProgramResult played = Nuvmidi({"--wav", wav, "play", song});
    ASSERT_EQ(0, played.status) << played.err;
    EXPECT_EQ("Playing " + song + " (0:05.0)\n", played.out);
    const std::vector<double> live = WavOnsets(wav);
    const ProgramResult rendered = Nuvmidi({"render", song, "-o", wav});
    ASSERT_EQ(0, rendered.status) << rendered.err;
    EXPECT_EQ(0u, rendered.out.find("Rendered " + song + " (0:05.0) to " + wav + " in "))
        << rendered.out;
    const std::vector<double> offline = WavOnsets(wav);
    ASSERT_EQ(3u, live.size());
    ASSERT_EQ(3u, offline.size());
    EXPECT_NEAR(0.0, offline[0], 0.01);
    // Live, FluidSynth's player sends the events of the file's first tick once it has loaded
    // the file, 20 to 90 ms after its clock started in the VM (more under the sanitizers);
    // from there on the notes keep to the clock in both (within what a busy machine's
    // scheduling delays a thread by); a rest lost or counted twice is seconds.
    EXPECT_NEAR(offline[2] - offline[1], live[2] - live[1], 0.05 * TimeScale());
    EXPECT_NEAR(3.0, live[1] - live[0], 0.2 * TimeScale());
    unlink(song.c_str());
}

// A USB keyboard plugged in, played and pulled out under `devices --watch` and `monitor`.
TEST_F(CliVm, WatchAndMonitorFollowAUsbKeyboardComingAndGoing) {
    if (!UsbKeyboard::Unavailable().empty())
        GTEST_SKIP() << UsbKeyboard::Unavailable();
    UsbKeyboard keyboard(0);
    ASSERT_TRUE(keyboard.SetProduct("CLI Keys"));
    ChildProcess watch;
    ASSERT_TRUE(watch.Start({NUV_CLI_PATH, "--lib", NUV_CLI_LIBRARY, "devices", "--watch"}));
    ASSERT_TRUE(watch.WaitForOutput("Press Ctrl+C to end.\n", kRunLimit)) << watch.Err();

    ASSERT_TRUE(keyboard.Plug());
    const std::string news = "  client " + std::to_string(keyboard.Client()) + "\n";
    ASSERT_TRUE(watch.WaitForOutput(news, std::chrono::seconds(10))) << watch.Out();
    const std::string out = watch.Out();
    const std::string line = out.substr(out.rfind('\n', out.find(news)) + 1);
    EXPECT_EQ(11u, line.find("CLI Keys")) << "after its time stamp: " << line; // "%9.3f  "
    EXPECT_PRED_FORMAT2(IsSubstring, "Device arrived", line);
    ChildProcess monitor;
    ASSERT_TRUE(monitor.Start({NUV_CLI_PATH, "--lib", NUV_CLI_LIBRARY, "monitor", "CLI Keys"}));
    ASSERT_TRUE(monitor.WaitForOutput("Waiting for data from CLI Keys", kRunLimit))
        << monitor.Err();
    ASSERT_TRUE(keyboard.Play({0x90, 60, 100, 0xB2, 7, 101, 0xE0, 0x00, 0x60}));
    EXPECT_TRUE(monitor.WaitForOutput(EventColumns("Pitch bend", 0, "value 4096"),
                                      std::chrono::seconds(10)))
        << monitor.Out();
    // The device column is 22 characters wide.
    EXPECT_PRED_FORMAT2(IsSubstring,
                        "CLI Keys" + std::string(16, ' ') +
                            EventColumns("Note on", 0, "note 60, velocity 100"),
                        monitor.Out());
    EXPECT_PRED_FORMAT2(IsSubstring, EventColumns("Control change", 2, "controller 7, value 101"),
                        monitor.Out());

    const int client = keyboard.Client();
    ASSERT_TRUE(keyboard.Unplug());
    ASSERT_TRUE(monitor.Wait(std::chrono::seconds(20))) << "the monitor ends with its device";
    EXPECT_EQ(7, monitor.Status());
    EXPECT_PRED_FORMAT2(IsSubstring, "Device left", monitor.Out());
    EXPECT_EQ("nuvmidi: 'CLI Keys' (" + std::to_string(client) + ") has gone\n", monitor.Err());
    EXPECT_TRUE(watch.WaitForOutput("Device left", std::chrono::seconds(10))) << watch.Out();
    watch.Signal(SIGINT);
    ASSERT_TRUE(watch.Wait(std::chrono::seconds(20)));
    EXPECT_EQ(0, watch.Status()) << watch.Err();
}

TEST_F(CliVm, EachFailureHasItsExitStatusAndOneMessage) {
    const std::string text = "/tmp/cli-not-midi.txt";
    std::ofstream(text) << "not MIDI\n";
    const struct {
        std::vector<std::string> args;
        int status;
        const char* message;
        bool hideSequencer = false; // its node, for one run, as on a kernel without it
    } cases[] = {
        {{"send", "fluid", "noteon", "0", "60"}, 2, "send: noteon needs CH NOTE VEL [DUR]"},
        {{"monitor", "Launchpad"}, 4, "unknown device 'Launchpad'; connected: "},
        {{"send", "virtual", "pgm", "0", "1"}, 4, "device 'virtual' is ambiguous: it may be "},
        {{"play", text}, 5, "'/tmp/cli-not-midi.txt': not a standard MIDI file"},
        {{"play", "/tmp/cli-missing.mid"}, 5, "cannot read '/tmp/cli-missing.mid': No such file"},
        {{"fonts", "load", text}, 5, "'/tmp/cli-not-midi.txt': not a SoundFont file"},
        {{"query", "fluid", "pressure", "0"},
         1,
         "the synthesizer does not report channel pressure"},
        {{"--lib", "/tmp/no/libNuvMIDI.so", "devices"}, 6, "cannot load the MIDI library: "},
        // FluidSynth's own complaint goes to the library's log, which is quiet here.
        {{"fonts", "unload", "7"}, 1, "no font with ID 7 is loaded"},
        {{"--audio", "nosuchpcm", "send", "fluid", "pgm", "0", "1"},
         1,
         "cannot open the ALSA PCM 'nosuchpcm': "},
        {{"connect", "14", "14"}, 2, "cannot connect 'Midi Through' (14) to itself"},
        {{"devices"},
         3,
         "cannot start the MIDI library: this system has no ALSA sequencer (/dev/snd/seq)",
         true},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(!c.hideSequencer || rename("/dev/snd/seq", "/dev/snd/seq.hidden") == 0);
        const ProgramResult result = Nuvmidi(c.args);
        ASSERT_TRUE(!c.hideSequencer || rename("/dev/snd/seq.hidden", "/dev/snd/seq") == 0);
        EXPECT_EQ(c.status, result.status) << c.message;
        EXPECT_EQ(0u, result.err.find(std::string("nuvmidi: ") + c.message)) << result.err;
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
        EXPECT_EQ("", result.out) << c.message;
    }
    unlink(text.c_str());
}

TEST_F(CliVm, TheLibrarysLogIncludingFluidSynthsAppearsOnRequest) {
    const char* const fluidLine = "fluidsynth: No SoundFont with id = 7";
    EXPECT_PRED_FORMAT2(IsSubstring, fluidLine, Nuvmidi({"-v", "fonts", "unload", "7"}).err);
    setenv("NUV_LOG_LEVEL", "info", 1);
    const ProgramResult asked = Nuvmidi({"fonts", "unload", "7"});
    unsetenv("NUV_LOG_LEVEL");
    EXPECT_PRED_FORMAT2(IsSubstring, fluidLine, asked.err);
    EXPECT_PRED_FORMAT2(IsNotSubstring, "[NuvMIDIWatcher::Create]", asked.err) << "a trace line";
}

#endif // NUV_CLI_PATH

#ifdef NUV_EXAMPLES_DIR

// It must find the synthesizer and be heard, and find no line of the library's log on its
// standard error (the installed-package test runs both examples against the installed
// packages).
TEST(ExamplesVm, TheReadmeHostFindsTheSynthesizerAndIsHeard) {
    LoopbackCapture capture;
    std::string problem;
    ASSERT_TRUE(capture.Start(&problem)) << problem;
    const ProgramResult run =
        RunProgram({NUV_EXAMPLES_DIR "/nuv-play-note"}, std::chrono::seconds(90));
    capture.Stop();
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_EQ(0u, run.out.find("played middle C on FLUID")) << run.out;
    EXPECT_EQ("", run.err);
    EXPECT_NEAR(261.6, Fundamental(capture.Recorded()), 5.0);
}

#endif // NUV_EXAMPLES_DIR
