#include "Latency.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "WaitFor.h"

namespace {

double Milliseconds(BenchClock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// A sample above this (2% of full scale) is sound; FluidSynth's dither stays at one step.
constexpr int kOnsetLevel = 655;
constexpr int kRate = 48000;

} // namespace

snd_seq_t* OpenListener(const VirtualKeyboard& keyboard, const char* name) {
    snd_seq_t* seq = nullptr;
    if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_INPUT, SND_SEQ_NONBLOCK) < 0)
        return nullptr;
    snd_seq_set_client_name(seq, name);
    const int port =
        snd_seq_create_simple_port(seq, "in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                   SND_SEQ_PORT_TYPE_APPLICATION);
    if (port < 0 || snd_seq_connect_from(seq, port, keyboard.Client(), keyboard.Port()) < 0) {
        snd_seq_close(seq);
        return nullptr;
    }
    return seq;
}

PollingListener::PollingListener(const VirtualKeyboard& keyboard)
    : m_seq(OpenListener(keyboard, "Latency Anchor")) {
    if (m_seq == nullptr)
        return;
    if (pipe(m_stopPipe) != 0) {
        snd_seq_close(m_seq);
        m_seq = nullptr;
        return;
    }
    m_thread = std::thread(&PollingListener::m_Run, this);
}

PollingListener::~PollingListener() {
    if (m_thread.joinable()) {
        const char stop = 1;
        (void)!write(m_stopPipe[1], &stop, 1);
        m_thread.join();
    }
    for (int fd : m_stopPipe)
        if (fd >= 0)
            close(fd);
    if (m_seq != nullptr)
        snd_seq_close(m_seq);
}

void PollingListener::m_Run() {
    // The priority the library's watcher reads its input at, and FluidSynth its MIDI.
    sched_param param{};
    param.sched_priority = 50;
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
    pthread_setname_np(pthread_self(), "poll anchor");
    struct pollfd fds[2];
    snd_seq_poll_descriptors(m_seq, &fds[0], 1, POLLIN);
    fds[1] = {m_stopPipe[0], POLLIN, 0};
    while (poll(fds, 2, -1) >= 0 && fds[1].revents == 0) {
        snd_seq_event_t* ev = nullptr;
        while (snd_seq_event_input(m_seq, &ev) >= 0 && ev != nullptr) {
            if (ev->type == SND_SEQ_EVENT_NOTEON)
                m_arrivals.Stamp(BenchClock::now());
        }
    }
}

Timings TimeInput(VirtualKeyboard& keyboard, ArrivalStamps& listener, int events) {
    Timings times;
    const size_t base = listener.Count();
    // A key press comes at any moment, not in step with the listener's passes.
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> gapUs(2000, 7000);
    for (int i = 0; i < events; ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(gapUs(random)));
        const BenchClock::time_point written = BenchClock::now();
        keyboard.Write({0x90, uint8_t(36 + i % 60), 64});
        BenchClock::time_point at;
        if (listener.WaitFor(base + size_t(i) - times.missed, at, std::chrono::seconds(1)))
            times.ms.push_back(Milliseconds(at - written));
        else
            ++times.missed;
    }
    return times;
}

Timings TimeKeyToSound(VirtualKeyboard& keyboard, LoopbackCapture& capture, int notes,
                       double quietRms, const std::function<void()>& beforeEach) {
    Timings times;
    const size_t window = kRate / 4; // far more than any onset takes
    for (int i = 0; i < notes; ++i) {
        // The previous note's tail has died away below the onset level.
        capture.Clear();
        WaitFor([&] { return capture.Frames() >= kRate / 20 && capture.RecentRms(50) < quietRms; },
                std::chrono::seconds(3));
        if (beforeEach)
            beforeEach();
        const size_t before = capture.Frames();
        const BenchClock::time_point written = BenchClock::now();
        keyboard.Write({0x90, 69, 100});
        WaitFor([&] { return capture.Frames() >= before + window; });
        keyboard.Write({0x80, 69, 0});
        const Pcm pcm = capture.Recorded();
        size_t onset = 0;
        for (size_t s = before * 2; s < pcm.samples.size() && onset == 0; ++s)
            if (std::abs(pcm.samples[s]) > kOnsetLevel)
                onset = s / 2;
        if (onset == 0)
            ++times.missed;
        else
            times.ms.push_back(Milliseconds(capture.CapturedAt(onset) - written));
    }
    // The last note-off has reached whatever plays before the caller changes the route.
    WaitFor([&] { return capture.RecentRms(50) < quietRms; }, std::chrono::seconds(3));
    return times;
}
