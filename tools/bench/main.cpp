// The benchmark table: how fast and how light the library is, each figure beside an anchor
// measured in the same run, three runs, each figure as min / median / max. Runs where the
// kernel has a sequencer with virtual keyboards and a loopback sound card (the test VM with
// two processors: tools/bench/run-bench.sh).
//   nuv_bench [--runs N] [--notes N] [--song SECONDS] [--memory ARRIVALS CYCLES] [--quick]
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "EchoAnchor.h"
#include "FanOut.h"
#include "Latency.h"
#include "Load.h"
#include "NuvLog"
#include "SequencerView.h"
#include "StallWatch.h"
#include "WaitFor.h"
#include "nuv_audio_out.h"

namespace {

const char kFont[] = "/usr/share/tallowin/DefaultSF.sf2";
const char kFluidsynth[] = "/usr/bin/fluidsynth";

struct Options {
    int runs = 3;
    int inputEvents = 1000;
    int notes = 100; // of each kind: renderer running, after a rest
    int burstEvents = 10000;
    int fanEvents = 5000;
    double idleSeconds = 5;
    double songSeconds = 60;
    int arrivals = 1000;
    int cycles = 100;

    void Quick() {
        runs = 1;
        inputEvents = 200;
        notes = 20;
        burstEvents = 2000;
        fanEvents = 1000;
        idleSeconds = 2;
        songSeconds = 10;
        arrivals = 80;
        cycles = 10;
    }
};

const int kSenders[] = {1, 8, 32};
const int kCallbacks[] = {1, 16, 128};
constexpr int kCallbackRate = 10000; // events per second

nuv_audio_out_stats_s AudioStats() {
    nuv_audio_out_stats_s stats{};
    nuv_audio_out_get_stats(&stats);
    return stats;
}

// Each processor of the emulated machine is a thread of the host, which may stop one while
// the other runs on: a stall shows only to a watch on the processor that stalled. Either
// one's stall can run an output dry (the loopback card's clock runs on whichever processor
// armed it, and plays what a stall held back at once).
class MachineStalls {
public:
    double LongestMs() const { return std::max(m_each[0].LongestMs(), m_each[1].LongestMs()); }
    void Reset() {
        for (StallWatch& watch : m_each)
            watch.Reset();
    }

private:
    StallWatch m_each[2]{StallWatch(0), StallWatch(1)};
};

// A sound row's underruns, and why the output ran dry where the audio layer can tell.
void AddUnderruns(Runs& runs, const std::string& row, const nuv_audio_out_stats_s& before) {
    const nuv_audio_out_stats_s after = AudioStats();
    const double all = double(after.underruns - before.underruns);
    const double late = double(after.underruns_woken_late - before.underruns_woken_late);
    const double rendering = double(after.underruns_rendering - before.underruns_rendering);
    runs.Add(row + " underruns", all);
    runs.Add(row + " woken late", late);
    runs.Add(row + " rendering", rendering);
    runs.Add(row + " dry otherwise", all - late - rendering);
    runs.Add(row + " widenings",
             double(after.fill_target_widenings - before.fill_target_widenings));
    runs.Add(row + " narrowings",
             double(after.fill_target_narrowings - before.fill_target_narrowings));
}

// The renderer rests once nothing has been written for a while: it has stopped its output.
bool WaitForRendererRest() {
    return WaitFor(
        [] {
            const uint64_t frames = AudioStats().frames_written;
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            return AudioStats().frames_written == frames;
        },
        std::chrono::seconds(5));
}

void AddTimings(Runs& runs, const std::string& figure, const Timings& times) {
    runs.Add(figure + " median", times.Median());
    runs.Add(figure + " p99", times.P99());
    runs.Add(figure + " missed", double(times.missed));
}

// The fluidsynth program: its own ALSA sequencer input and ALSA audio output, the same font,
// rate, gain and polyphony as the library's synthesizer; `extra` options beside.
bool StartFluidsynth(ChildProcess& program, const std::vector<std::string>& extra,
                     const std::string& file = "") {
    // The program starts SDL's audio as well, whose ALSA backend keeps a thread of its own
    // looking for new sound cards (~2% of a core in the emulated machine): no part of the
    // job, and not counted as the anchor's.
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    std::vector<std::string> argv = {
        kFluidsynth, "-a", "alsa", "-r", "48000", "-g", "1.0", "-o", "synth.polyphony=64", "-i"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back(kFont);
    if (!file.empty())
        argv.push_back(file);
    else
        argv.insert(argv.end() - 1, {"-m", "alsa_seq", "-s"});
    return program.Start(argv);
}

// Connects the keyboard to the fluidsynth program's sequencer input.
bool ConnectToFluidsynth(const VirtualKeyboard& keyboard) {
    int client = -1;
    WaitFor(
        [&] {
            const SequencerView view = SequencerView::Read();
            const SeqClientView* synthesizer = view.FindContaining("FLUID");
            client = synthesizer != nullptr ? synthesizer->number : -1;
            return client >= 0;
        },
        std::chrono::seconds(20));
    const std::string from = std::to_string(keyboard.Client()) + ":0";
    return client >= 0 &&
           RunProgram({"/usr/bin/aconnect", from, std::to_string(client) + ":0"}).status == 0;
}

void Stop(ChildProcess& program) {
    program.Signal(SIGTERM);
    program.Wait(std::chrono::seconds(5));
}

// Every thread but the benchmark's own: its main thread, the poll() anchor and the stall
// watch. A thread the library starts without a name still counts, under the program's name.
bool IsLibraryThread(const std::string& nameAndTid) {
    static const std::string mainThread = " (" + std::to_string(getpid()) + ")";
    const bool main = nameAndTid.size() > mainThread.size() &&
                      nameAndTid.compare(nameAndTid.size() - mainThread.size(), mainThread.size(),
                                         mainThread) == 0;
    return !main && nameAndTid.rfind("poll anchor", 0) != 0 &&
           nameAndTid.rfind("stall watch", 0) != 0;
}

// One run of every figure.
bool RunOnce(const Options& o, VirtualKeyboard& keyboard, Runs& runs,
             std::vector<std::string>& notes) {
    std::fprintf(stderr, "input latency, the poll() anchor alone...\n");
    {
        PollingListener anchor(keyboard);
        AddTimings(runs, "input anchor", TimeInput(keyboard, anchor.Arrivals(), o.inputEvents));
    }

    Host host;
    if (!host.Create()) {
        std::fprintf(stderr, "nuv_bench: the library could not be created\n");
        return false;
    }
    const long rssStart = ResidentKiB();
    runs.Add("rss start", double(rssStart) / 1024);
    INuvMIDIDevice* keys = host.Take(keyboard.ClientName());
    INuvMIDIDevice* synth = host.TakeSynthesizer();
    if (keys == nullptr || synth == nullptr) {
        std::fprintf(stderr, "nuv_bench: no keyboard or synthesizer listed\n");
        return false;
    }
    std::fprintf(stderr, "input latency, the library alone...\n");
    ArrivalStamps libraryArrivals;
    keys->RegisterCallback(&libraryArrivals);
    AddTimings(runs, "input library", TimeInput(keyboard, libraryArrivals, o.inputEvents));

    std::fprintf(stderr, "idle...\n");
    host.Manager()->GetDevice(synth->GetID()); // starts the renderer
    WaitForRendererRest();
    {
        PollingListener anchor(keyboard); // waits for input as the library does
        const auto before = ThreadCpuSeconds(getpid());
        std::this_thread::sleep_for(std::chrono::duration<double>(o.idleSeconds));
        const auto after = ThreadCpuSeconds(getpid());
        const CpuReading library = CpuBetween(before, after, o.idleSeconds, IsLibraryThread);
        const CpuReading poller =
            CpuBetween(before, after, o.idleSeconds,
                       [](const std::string& n) { return n.rfind("poll anchor", 0) == 0; });
        runs.Add("idle cpu", library.percent);
        runs.Add("idle wakeups", library.wakeupsPerSecond);
        runs.Add("idle anchor cpu", poller.percent);
        runs.Add("idle anchor wakeups", poller.wakeupsPerSecond);
        notes.push_back(
            "Idle by thread: " + (library.byThread.empty() ? "none" : library.byThread) + ".");
    }

    std::fprintf(stderr, "key to sound...\n");
    libraryArrivals.ForwardTo(synth);
    {
        LoopbackCapture capture;
        if (capture.Start()) {
            // A quiet organ on channel 2, far below the onset level, keeps the renderer running.
            _MIDIMessage program = {1, 19, 0, {0}}, volume = {1, 7, 64, {0}},
                         background = {1, 48, 100, {0}};
            synth->SendMessage(MIDI_EVENT_PROGRAM_CHANGE, program);
            synth->SendMessage(MIDI_EVENT_CONTROL_CHANGE, volume);
            synth->SendMessage(MIDI_EVENT_NOTE_ON, background);
            WaitFor([&] { return capture.RecentRms(20) > 0.0003; });
            MachineStalls stalls;
            nuv_audio_out_stats_s before = AudioStats();
            AddTimings(runs, "sound running", TimeKeyToSound(keyboard, capture, o.notes, 0.01));
            synth->SendMessage(MIDI_EVENT_NOTE_OFF, background);
            AddUnderruns(runs, "sound running", before);
            runs.Add("sound running stall", stalls.LongestMs());
            runs.Add("sound running target ms", double(AudioStats().fill_target_frames) / 48);

            stalls.Reset();
            before = AudioStats();
            AddTimings(runs, "sound rest",
                       TimeKeyToSound(keyboard, capture, o.notes, 0.001, WaitForRendererRest));
            AddUnderruns(runs, "sound rest", before);
            runs.Add("sound rest stall", stalls.LongestMs());
        }
    }
    libraryArrivals.ForwardTo(nullptr);
    keys->UnregisterCallback(&libraryArrivals);

    std::fprintf(stderr, "burst...\n");
    const BurstResult burst = RunBurst(host, o.burstEvents);
    runs.Add("burst delivered", double(burst.delivered));
    runs.Add("burst lost", double(burst.sent - burst.delivered));
    runs.Add("burst refusals", double(burst.refusals));
    runs.Add("burst seconds", burst.seconds);

    std::fprintf(stderr, "fan-out...\n");
    for (int senders : kSenders) {
        const FanOutResult r = RunSenders(host, senders, o.fanEvents);
        const std::string figure = "senders " + std::to_string(senders);
        runs.Add(figure + " events/s", r.eventsPerSecond);
        runs.Add(figure + " us/event", r.watcherUsPerEvent);
        runs.Add(figure + " lost", double(r.expected - r.deliveries));
        runs.Add(figure + " refusals", double(r.refusals));
    }
    for (int callbacks : kCallbacks) {
        const FanOutResult r = RunCallbacks(host, callbacks, kCallbackRate, kCallbackRate);
        const std::string figure = "callbacks " + std::to_string(callbacks);
        runs.Add(figure + " events/s", r.eventsPerSecond);
        runs.Add(figure + " us/event", r.watcherUsPerEvent);
        runs.Add(figure + " calls per expected",
                 r.expected > 0 ? double(r.deliveries) / double(r.expected) : std::nan(""));
        runs.Add(figure + " refusals", double(r.refusals));
        runs.Add(figure + " p99", r.latency.P99());
        runs.Add(figure + " median", r.latency.Median());
    }

    std::fprintf(stderr, "playing a file...\n");
    const std::string song = WriteSong(o.songSeconds);
    {
        const nuv_audio_out_stats_s before = AudioStats();
        MachineStalls stalls;
        const CpuReading playing =
            CpuWhilePlaying(host, synth, song, o.songSeconds, IsLibraryThread);
        runs.Add("file stall", stalls.LongestMs());
        runs.Add("file cpu", playing.percent);
        AddUnderruns(runs, "file", before);
        notes.push_back("Playing a file by thread: " + playing.byThread + ".");
    }

    std::fprintf(stderr, "arrivals...\n");
    // Memory is read half-way too: growth that goes on shows between the two readings,
    // a one-off warm-up only before the first.
    bool arrivalsSeen = RunArrivals(host, o.arrivals / 2);
    runs.Add("rss half arrivals", double(ResidentKiB()) / 1024);
    arrivalsSeen = RunArrivals(host, o.arrivals / 2) && arrivalsSeen;
    runs.Add("rss arrivals", double(ResidentKiB()) / 1024);
    if (!arrivalsSeen)
        notes.push_back("NOT every arrival and departure was announced.");
    host.Destroy();

    std::fprintf(stderr, "create/destroy cycles...\n");
    auto cycleThenMeasure = [](int cycles) {
        for (int i = 0; i < cycles; ++i) {
            NuvMIDI_Create();
            NuvMIDI_Destroy();
        }
        NuvMIDI_Create();
        const long rss = ResidentKiB();
        NuvMIDI_Destroy();
        return double(rss) / 1024;
    };
    runs.Add("rss half cycles", cycleThenMeasure(o.cycles / 2));
    runs.Add("rss cycles", cycleThenMeasure(o.cycles / 2 - 1));

    std::fprintf(stderr, "the echo anchor...\n");
    {
        LoopbackCapture capture;
        EchoAnchor echo(keyboard);
        if (echo.IsRunning() && capture.Start())
            AddTimings(runs, "sound echo", TimeKeyToSound(keyboard, capture, o.notes, 0.001));
        else
            notes.push_back("The echo anchor did not start: no floor of key to sound.");
        capture.Stop();
    }

    std::fprintf(stderr, "the fluidsynth program...\n");
    {
        ChildProcess fluidsynth; // at its default period settings
        LoopbackCapture capture;
        if (StartFluidsynth(fluidsynth, {}) && ConnectToFluidsynth(keyboard) && capture.Start())
            AddTimings(runs, "sound fluidsynth", TimeKeyToSound(keyboard, capture, o.notes, 0.001));
        else
            notes.push_back("The fluidsynth program did not start: no key-to-sound anchor.");
        capture.Stop();
        Stop(fluidsynth);
    }
    // The same file to the same output, with the library's output buffer; the stall watch
    // runs as it did beside the library. Once as the program plays a file by default, on
    // the clock of the samples it renders, and once on the system clock as the library's
    // player does.
    for (const char* timing : {"sample", "system"}) {
        const std::string figure = std::string("file fluidsynth ") + timing;
        ChildProcess fluidsynth;
        MachineStalls stalls;
        if (StartFluidsynth(fluidsynth,
                            {"-o", "audio.period-size=192", "-o", "audio.periods=8", "-o",
                             std::string("player.timing-source=") + timing},
                            song)) {
            const CpuReading playing = MeasureCpu(fluidsynth.Pid(), o.songSeconds);
            runs.Add(figure + " cpu", playing.percent);
            runs.Add(figure + " stall", stalls.LongestMs());
            notes.push_back(std::string("The fluidsynth program playing the file on the ") +
                            timing + " clock, by thread: " + playing.byThread + ".");
            fluidsynth.Wait(std::chrono::seconds(20));
        }
        Stop(fluidsynth);
    }
    return true;
}

// Rows of figures over the runs; a ratio is that of the two medians.
class Table {
public:
    explicit Table(const Runs& runs) : m_runs(runs) {}
    Row Figure(const std::string& what, const std::string& value, int decimals,
               const std::string& anchor = "", const std::string& goal = "") const {
        Row row{what, m_runs.Spread(value, decimals), "-", "-", goal.empty() ? "-" : goal};
        if (!anchor.empty()) {
            row.anchor = m_runs.Spread(anchor, decimals);
            row.ratio = Fixed(m_runs.Median(value) / m_runs.Median(anchor), 2) + " x";
        }
        return row;
    }

private:
    const Runs& m_runs;
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0)
            options.Quick();
        else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
            options.runs = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--notes") == 0 && i + 1 < argc)
            options.notes = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--song") == 0 && i + 1 < argc)
            options.songSeconds = std::atof(argv[++i]);
        else if (std::strcmp(argv[i], "--memory") == 0 && i + 2 < argc) {
            options.arrivals = std::atoi(argv[++i]);
            options.cycles = std::atoi(argv[++i]);
        }
    }
    // Hosts that stream many messages keep the per-message lines off their console.
    NuvLog_SetThreshold(NUV_LOG_CRITICAL);
    auto keyboards = VirtualKeyboard::FindAll();
    if (keyboards.empty() || SequencerView::Read().Clients().empty()) {
        std::fprintf(stderr, "nuv_bench: needs a sequencer with virtual keyboards\n");
        return 1;
    }
    Runs runs;
    std::vector<std::string> notes;
    for (int run = 1; run <= options.runs; ++run) {
        std::fprintf(stderr, "=== run %d of %d ===\n", run, options.runs);
        nuv_audio_out_reset_stats();
        if (!RunOnce(options, keyboards.front(), runs, notes))
            return 1;
    }

    const Table t(runs);
    const std::string notesEach = std::to_string(options.notes) + " notes";
    PrintTable(
        "Goals (" + std::to_string(options.runs) + " runs, min / median / max; ratio of medians)",
        {
            t.Figure("Key to sound median (ms), renderer running", "sound running median", 1,
                     "sound fluidsynth median", "<= 15 ms and <= 0.5 x fluidsynth"),
            t.Figure("Key to sound median (ms), after a rest", "sound rest median", 1,
                     "sound fluidsynth median", "<= 15 ms and <= 0.5 x fluidsynth"),
            t.Figure("Key to sound median (ms), floor: a client answering at once, 2 x 4 ms",
                     "sound echo median", 1, "sound fluidsynth median"),
            t.Figure("Key to sound p99 (ms), renderer running", "sound running p99", 1,
                     "sound fluidsynth p99"),
            t.Figure("Key to sound p99 (ms), after a rest", "sound rest p99", 1,
                     "sound fluidsynth p99"),
            t.Figure("Underruns over " + notesEach + ", renderer running",
                     "sound running underruns", 0, "", "0"),
            t.Figure("Underruns over " + notesEach + ", after a rest", "sound rest underruns", 0,
                     "", "0"),
            t.Figure("Underruns over the " + Fixed(options.songSeconds, 0) + " s file",
                     "file underruns", 0, "", "0"),
            t.Figure("CPU playing a file (% of a core)", "file cpu", 1,
                     "file fluidsynth sample cpu", "<= 1.0 x fluidsynth"),
            t.Figure("... anchor playing on the system clock, as the library", "file cpu", 1,
                     "file fluidsynth system cpu"),
            t.Figure("Idle CPU, nothing sounding, output stopped (% of a core)", "idle cpu", 2,
                     "idle anchor cpu", "< 0.3 %"),
            t.Figure("Idle wake-ups per second, nothing sounding, output stopped", "idle wakeups",
                     1, "idle anchor wakeups", "0 periodic"),
            t.Figure("Watcher CPU per event (us), 1 sending client", "senders 1 us/event", 1),
            t.Figure("Watcher CPU per event (us), 32 sending clients", "senders 32 us/event", 1,
                     "senders 1 us/event", "<= 1.2 x (32 vs 1)"),
            t.Figure("128 callbacks at 10 000 events/s: calls per expected call",
                     "callbacks 128 calls per expected", 2, "", "1.00"),
            t.Figure("128 callbacks at 10 000 events/s: refused", "callbacks 128 refusals", 0, "",
                     "0"),
            t.Figure("128 callbacks at 10 000 events/s: p99 (ms)", "callbacks 128 p99", 2, "",
                     "< 2 ms"),
            t.Figure("Input latency median (ms)", "input library median", 2, "input anchor median",
                     "<= 1.0 x poll() alone"),
            t.Figure("Input latency p99 (ms)", "input library p99", 2, "input anchor p99",
                     "<= 1.0 x poll() alone"),
        });

    std::vector<Row> more;
    for (int senders : kSenders) {
        const std::string f = "senders " + std::to_string(senders);
        more.push_back(
            t.Figure(std::to_string(senders) + " sending clients: events/s", f + " events/s", 0));
        more.push_back(t.Figure(std::to_string(senders) + " sending clients: watcher us/event",
                                f + " us/event", 1, "senders 1 us/event"));
        more.push_back(t.Figure(std::to_string(senders) + " sending clients: lost / refused",
                                f + " lost", 0, f + " refusals"));
    }
    for (int callbacks : kCallbacks) {
        const std::string f = "callbacks " + std::to_string(callbacks);
        const std::string what = std::to_string(callbacks) + " callbacks on one device";
        more.push_back(t.Figure(what + ": events/s", f + " events/s", 0));
        more.push_back(t.Figure(what + ": watcher us/event", f + " us/event", 1));
        more.push_back(t.Figure(what + ": calls per expected", f + " calls per expected", 2));
        more.push_back(
            t.Figure(what + ": median / p99 latency (ms)", f + " median", 2, f + " p99"));
        more.push_back(t.Figure(what + ": refused", f + " refusals", 0));
    }
    more.push_back(t.Figure("Longest machine stall playing the file (ms): library / fluidsynth",
                            "file stall", 1, "file fluidsynth sample stall"));
    more.push_back(t.Figure("Key to sound, never heard: running / fluidsynth",
                            "sound running missed", 0, "sound fluidsynth missed"));
    more.push_back(t.Figure("Key to sound, never heard after a rest", "sound rest missed", 0));
    more.push_back(t.Figure("Key to sound floor: p99 (ms) / never heard", "sound echo p99", 1,
                            "sound echo missed"));
    more.push_back(t.Figure("Fill target widenings, renderer running / after a rest",
                            "sound running widenings", 0, "sound rest widenings"));
    more.push_back(t.Figure("Fill target narrowings (trials), renderer running / after a rest",
                            "sound running narrowings", 0, "sound rest narrowings"));
    more.push_back(t.Figure("Fill target widenings / narrowings playing the file", "file widenings",
                            0, "file narrowings"));
    more.push_back(
        t.Figure("Fill target after the running notes (ms)", "sound running target ms", 1));
    for (const char* row : {"sound running", "sound rest", "file"}) {
        const std::string r = row;
        const std::string what = r == "file"         ? "playing the file"
                                 : r == "sound rest" ? "key to sound after a rest"
                                                     : "key to sound, renderer running";
        more.push_back(t.Figure("Underruns " + what +
                                    ": the writer woke after its queue ran out / "
                                    "it rendered longer than its queue lasted",
                                r + " woken late", 0, r + " rendering"));
        more.push_back(t.Figure("Underruns " + what + ": dry otherwise", r + " dry otherwise", 0));
        if (r != "file")
            more.push_back(t.Figure("Longest machine stall, " + what + " (ms)", r + " stall", 1));
    }
    more.push_back(t.Figure("Input events never arrived: library / anchor", "input library missed",
                            0, "input anchor missed"));
    more.push_back(t.Figure("Burst: delivered of " + std::to_string(options.burstEvents),
                            "burst delivered", 0));
    more.push_back(t.Figure("Burst: lost / refused", "burst lost", 0, "burst refusals"));
    more.push_back(t.Figure("Burst: seconds to deliver", "burst seconds", 2));
    more.push_back(t.Figure("Resident memory after start (MiB)", "rss start", 1));
    more.push_back(t.Figure("... after " + std::to_string(options.arrivals / 2) +
                                " device arrivals and departures",
                            "rss half arrivals", 1, "rss start"));
    more.push_back(
        t.Figure("... after " + std::to_string(options.arrivals), "rss arrivals", 1, "rss start"));
    more.push_back(t.Figure("... after " + std::to_string(options.cycles / 2) +
                                " create/destroy cycles, created again",
                            "rss half cycles", 1, "rss start"));
    more.push_back(
        t.Figure("... after " + std::to_string(options.cycles), "rss cycles", 1, "rss start"));
    PrintTable("More figures", more);

    std::printf(
        "\n- Input latency: %d raw note-ons 2-7 ms apart written to a virtual keyboard, until "
        "the host's callback; anchor: a sequencer client of its own blocking in poll() on a "
        "port subscribed to the same keyboard, timed in a pass of its own before the library "
        "exists, at the watcher's priority (SCHED_FIFO 50).\n"
        "- Key to sound: raw note-ons until their onset (2%% of full scale) in the loopback "
        "capture, through callback, SendMessage, synthesizer, renderer and output; %d with the "
        "renderer running (a quiet organ far below the onset level holds a voice), %d after "
        "the renderer has rested (its output stopped). Anchor: the fluidsynth program at its "
        "default period settings, same font, rate, gain and polyphony, always running; its "
        "underruns are not counted. Floor: a sequencer client of its own, subscribed to the "
        "keyboard, that answers a note-on with full-scale sound in the next period it writes "
        "to the library's output buffer (8 x 192 frames) kept at most two periods full, at the "
        "renderer's priority; nothing is synthesized, "
        "so what it takes is the way there and back that every player pays.\n"
        "- CPU playing a file: the library playing a %.0f s two-voice file through its file "
        "player, the whole process; anchor: the fluidsynth program playing the same file to "
        "the same ALSA output with the library's output buffer (8 x 192 frames), on its "
        "default sample clock and, as the library's player, on the system clock.\n"
        "- Idle: the library with its renderer resting (nothing sounding, output stopped), "
        "its threads over %.0f s; anchor: the poll() client waiting for input meanwhile. A "
        "wake-up is the scheduler putting a thread on a processor.\n"
        "- Fan-out: %d note-ons at full speed spread over 1, 8, 32 sending clients, each a "
        "device of the host with one callback; and %d at %d/s from one client whose device has "
        "1, 16, 128 callbacks (latency: send to the last callback's call). Senders run on the "
        "second processor; the watcher's CPU time is divided by the events sent.\n"
        "- Machine stall: the longest a thread at the highest real-time priority overslept a "
        "1 ms sleep on either processor (that processor of the emulated machine not running).\n"
        "- Why an output ran dry, as the audio layer tells it: the renderer woke from its wait "
        "for the queue to fall to its level after what was queued had run out (the machine did "
        "not run it in time), or it woke in time and rendering and writing its batch took "
        "longer than what was queued at its wake.\n",
        options.inputEvents, options.notes, options.notes, options.songSeconds, options.idleSeconds,
        options.fanEvents, kCallbackRate, kCallbackRate);
    for (const std::string& note : notes)
        std::printf("- %s\n", note.c_str());
    std::fflush(stdout);
    return 0;
}
