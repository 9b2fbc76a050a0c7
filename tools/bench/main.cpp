// The benchmark table: how fast and how light the library is, each figure beside an anchor
// measured in the same run. Runs where the kernel has a sequencer with virtual keyboards and
// a loopback sound card (the test VM: tools/bench/run-bench.sh).
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "ChildProcess.h"
#include "Latency.h"
#include "Load.h"
#include "NuvLog"
#include "SequencerView.h"
#include "WaitFor.h"

namespace {

const char kFont[] = "/usr/share/tallowin/DefaultSF.sf2";
constexpr int kInputEvents = 1000;
constexpr int kSoundNotes = 30;
constexpr int kBurstEvents = 10000;
constexpr double kCpuSeconds = 5;
constexpr int kArrivals = 1000;
constexpr int kCycles = 100;

std::string Kib(long kib) {
    return Fixed(double(kib) / 1024.0, 1) + " MiB";
}

void AddTimings(std::vector<Row>& rows, const std::string& what, const Timings& value,
                const Timings& anchor) {
    rows.push_back({what + ", median (ms)", Fixed(value.Median(), 2), Fixed(anchor.Median(), 2),
                    Ratio(value.Median(), anchor.Median())});
    rows.push_back({what + ", p99 (ms)", Fixed(value.P99(), 2), Fixed(anchor.P99(), 2),
                    Ratio(value.P99(), anchor.P99())});
    rows.push_back({what + ", worst (ms)", Fixed(value.Worst(), 2), Fixed(anchor.Worst(), 2),
                    Ratio(value.Worst(), anchor.Worst())});
    if (value.missed + anchor.missed > 0)
        rows.push_back({what + ", never arrived", std::to_string(value.missed),
                        std::to_string(anchor.missed), "-"});
}

// The fluidsynth program as a player of the keyboard: its own ALSA sequencer input and ALSA
// audio output with the library's output buffer (4 periods of 512 frames at 48 000 Hz).
bool StartFluidsynth(ChildProcess& program, const VirtualKeyboard& keyboard) {
    if (!program.Start({"/usr/bin/fluidsynth", "-a", "alsa", "-m", "alsa_seq", "-i", "-s", "-r",
                        "48000", "-o", "audio.period-size=512", "-o", "audio.periods=4", kFont}))
        return false;
    int client = -1;
    WaitFor(
        [&] {
            const SequencerView view = SequencerView::Read();
            const SeqClientView* synthesizer = view.FindContaining("FLUID");
            client = synthesizer != nullptr ? synthesizer->number : -1;
            return client >= 0;
        },
        std::chrono::seconds(20));
    if (client < 0)
        return false;
    const std::string from = std::to_string(keyboard.Client()) + ":0";
    return RunProgram({"/usr/bin/aconnect", from, std::to_string(client) + ":0"}).status == 0;
}

} // namespace

int main() {
    // Hosts that stream many messages keep the per-message lines off their console.
    NuvLog_SetThreshold(NUV_LOG_CRITICAL);
    auto keyboards = VirtualKeyboard::FindAll();
    if (keyboards.empty() || SequencerView::Read().Clients().empty()) {
        std::fprintf(stderr, "nuv_bench: needs a sequencer with virtual keyboards\n");
        return 1;
    }
    VirtualKeyboard& keyboard = keyboards.front();
    std::vector<Row> rows;
    std::vector<std::string> notes;

    Host host;
    if (!host.Create()) {
        std::fprintf(stderr, "nuv_bench: the library could not be created\n");
        return 1;
    }
    const long rssStart = ResidentKiB();
    INuvMIDIDevice* keys = host.Take(keyboard.ClientName());
    INuvMIDIDevice* synth = host.TakeSynthesizer();
    if (keys == nullptr || synth == nullptr) {
        std::fprintf(stderr, "nuv_bench: no keyboard or synthesizer listed\n");
        return 1;
    }

    std::fprintf(stderr, "input latency...\n");
    ArrivalStamps libraryArrivals;
    keys->RegisterCallback(&libraryArrivals);
    Timings input, inputAnchor;
    {
        PollingListener anchor(keyboard);
        TimeInput(keyboard, libraryArrivals, anchor.Arrivals(), kInputEvents, input, inputAnchor);
    }
    AddTimings(rows, "Input latency, key to host callback", input, inputAnchor);

    std::fprintf(stderr, "key to sound...\n");
    // Using the synthesizer's device starts the renderer.
    host.Manager()->GetDevice(synth->GetID());

    // Idle is measured before anything has sounded: after a piece, the release of its last
    // notes and the reverb keep the synthesizer rendering for a few seconds more. The
    // renderer renders half a second of quiet before it rests; the window starts after it.
    std::fprintf(stderr, "idle CPU...\n");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::string idleThreads;
    const double idleCpu = CpuPercent(getpid(), kCpuSeconds, &idleThreads);
    notes.push_back("Idle CPU by thread (% of a core): " + idleThreads + ".");
    libraryArrivals.ForwardTo(synth);
    Timings sound;
    {
        LoopbackCapture capture;
        if (capture.Start())
            sound = TimeKeyToSound(keyboard, capture, kSoundNotes);
    }
    libraryArrivals.ForwardTo(nullptr);

    std::fprintf(stderr, "burst...\n");
    const BurstResult burst = RunBurst(host, kBurstEvents);
    rows.push_back({"Burst: note events delivered to the callback / sent",
                    std::to_string(burst.delivered) + " / " + std::to_string(burst.sent), "-",
                    "-"});
    rows.push_back({"Burst: events lost", std::to_string(burst.sent - burst.delivered), "-", "-"});
    notes.push_back("Burst: delivered in " + Fixed(burst.seconds, 2) + " s; the sequencer " +
                    "refused an event " + std::to_string(burst.refusals) +
                    " times while the watcher's input pool was full (the sender offered it "
                    "again 0.2 ms later).");

    std::fprintf(stderr, "CPU...\n");
    const double playingCpu = CpuWhilePlaying(host, synth, kCpuSeconds);

    std::fprintf(stderr, "arrivals...\n");
    // Memory is read half-way too: growth that goes on shows between the two readings,
    // a one-off warm-up only before the first.
    bool arrivalsSeen = RunArrivals(host, kArrivals / 2);
    const long rssHalfArrivals = ResidentKiB();
    arrivalsSeen = RunArrivals(host, kArrivals / 2) && arrivalsSeen;
    const long rssArrivals = ResidentKiB();
    keys->UnregisterCallback(&libraryArrivals);
    host.Destroy();

    std::fprintf(stderr, "create/destroy cycles...\n");
    const BenchClock::time_point cyclesStart = BenchClock::now();
    auto cycleThenMeasure = [](int cycles) {
        for (int i = 0; i < cycles; ++i) {
            NuvMIDI_Create();
            NuvMIDI_Destroy();
        }
        NuvMIDI_Create();
        const long rss = ResidentKiB();
        NuvMIDI_Destroy();
        return rss;
    };
    const long rssHalfCycles = cycleThenMeasure(kCycles / 2);
    const long rssCycles = cycleThenMeasure(kCycles / 2 - 1);
    const double cycleSeconds =
        std::chrono::duration<double>(BenchClock::now() - cyclesStart).count() / (kCycles + 1);

    std::fprintf(stderr, "the fluidsynth program...\n");
    Timings soundAnchor;
    double anchorIdleCpu = 0;
    {
        ChildProcess fluidsynth;
        if (StartFluidsynth(fluidsynth, keyboard)) {
            LoopbackCapture capture;
            if (capture.Start())
                soundAnchor = TimeKeyToSound(keyboard, capture, kSoundNotes);
            capture.Stop();
            anchorIdleCpu = CpuPercent(fluidsynth.Pid(), kCpuSeconds);
        } else {
            notes.push_back("The fluidsynth program did not start: no anchor for sound and CPU.");
        }
        fluidsynth.Signal(SIGTERM);
        fluidsynth.Wait(std::chrono::seconds(5));
    }
    AddTimings(rows, "Key to sound, raw note-on to onset at the output", sound, soundAnchor);
    rows.push_back({"CPU, renderer running, nothing sounding (% of a core)", Fixed(idleCpu, 1),
                    Fixed(anchorIdleCpu, 1), Ratio(idleCpu, anchorIdleCpu)});
    rows.push_back({"CPU, playing a MIDI file (% of a core)", Fixed(playingCpu, 1),
                    Fixed(anchorIdleCpu, 1) + " (idle)", Ratio(playingCpu, anchorIdleCpu)});
    rows.push_back({"Resident memory after start", Kib(rssStart), "-", "-"});
    auto memoryRow = [&](const std::string& after, long rss) {
        rows.push_back(
            {"... after " + after, Kib(rss), Kib(rssStart) + " (start)", Ratio(rss, rssStart)});
    };
    const std::string arrivals = " device arrivals and departures";
    memoryRow(std::to_string(kArrivals / 2) + arrivals, rssHalfArrivals);
    memoryRow(std::to_string(kArrivals) + arrivals + (arrivalsSeen ? "" : " (NOT all announced)"),
              rssArrivals);
    memoryRow(std::to_string(kCycles / 2) + " create/destroy cycles, created again", rssHalfCycles);
    memoryRow(std::to_string(kCycles) + " create/destroy cycles, created again", rssCycles);

    notes.push_back("Input anchor: a sequencer client of its own blocking in poll() on a port "
                    "subscribed to the same keyboard; " +
                    std::to_string(kInputEvents) + " raw note-ons 2-7 ms apart.");
    notes.push_back("Sound anchor: the fluidsynth program (ALSA sequencer in, ALSA audio out, "
                    "4 periods of 512 frames at 48 000 Hz, the same font); " +
                    std::to_string(kSoundNotes) +
                    " notes; onset = first sample above 2% of "
                    "full scale in the loopback capture.");
    notes.push_back("CPU anchor: the fluidsynth program idle, its audio output running; "
                    "windows of " +
                    Fixed(kCpuSeconds, 0) + " s.");
    notes.push_back("One create/destroy cycle took " + Fixed(cycleSeconds * 1000, 0) + " ms.");
    notes.push_back(
        "Log threshold 2 (critical lines only), as a host streaming MIDI would set it.");
    PrintTable(rows, notes);
    return 0;
}
