// Measures the CPU that the library uses with the renderer running and nothing sounding,
// and while a MIDI file plays, with the underruns the audio output counted meanwhile.
// Not a test: run it by hand, in the VM for the whole library,
//   tools/vm/vm-run --add build/tests/nuv_renderer_bench -- <path>/nuv_renderer_bench [seconds]
// or natively (--native) for the renderer alone on a synthesizer of its own, writing to a
// WAV file.
#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "MidiFileWriter.h"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDIEntry.h"
#include "NuvMIDIRenderer.h"
#include "WaitFor.h"
#include "nuv_audio_out.h"

namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds of each thread of the process, by thread name.
std::map<std::string, double> ThreadCpu() {
    std::map<std::string, double> byName;
    const double tick = double(sysconf(_SC_CLK_TCK));
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr)
        return byName;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream stat(std::string("/proc/self/task/") + entry->d_name + "/stat");
        std::string line;
        std::getline(stat, line);
        const size_t open = line.find('('), close = line.rfind(')');
        if (open == std::string::npos || close == std::string::npos)
            continue;
        const std::string name = line.substr(open + 1, close - open - 1);
        // Fields after the name: state is the 3rd field; utime and stime the 14th and 15th.
        unsigned long utime = 0, stime = 0;
        std::sscanf(line.c_str() + close + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu",
                    &utime, &stime);
        byName[name] += double(utime + stime) / tick;
    }
    closedir(tasks);
    return byName;
}

struct Sample {
    double wall, cpu;
    std::map<std::string, double> threads;
    nuv_audio_out_stats_s audio;
};

Sample Take() {
    Sample s{std::chrono::duration<double>(Clock::now().time_since_epoch()).count(),
             CpuSeconds(),
             ThreadCpu(),
             {}};
    nuv_audio_out_get_stats(&s.audio);
    return s;
}

void Report(const char* what, const Sample& a, const Sample& b) {
    const double wall = b.wall - a.wall;
    std::printf(
        "%s: %.2f s, process CPU %.1f%% of one core, underruns %lu, writes %lu, frames %lu\n", what,
        wall, 100.0 * (b.cpu - a.cpu) / wall, b.audio.underruns - a.audio.underruns,
        b.audio.writes - a.audio.writes, b.audio.frames_written - a.audio.frames_written);
    for (const auto& [name, seconds] : b.threads) {
        const auto before = a.threads.find(name);
        const double used = seconds - (before != a.threads.end() ? before->second : 0);
        if (used > 0)
            std::printf("    thread %-16s %.1f%%\n", name.c_str(), 100.0 * used / wall);
    }
}

// A plain two-voice piece for the playback measurement: a reed-organ melody in eighth
// notes over a held bass.
std::string WriteSong(double seconds) {
    MidiFileWriter song(1);
    song.AddProgramChange(0, 20, 0);
    const int melody[8] = {60, 62, 64, 65, 67, 65, 64, 62};
    int i = 0;
    for (double t = 0; t + 0.25 <= seconds; t += 0.25, ++i) {
        song.AddNote(0, melody[i % 8], 90, t, 0.25);
        if (i % 8 == 0)
            song.AddNote(0, 48, 80, t, std::min(2.0, seconds - t));
    }
    song.SetLength(seconds);
    const std::string path = "/tmp/nuv_bench_song.mid";
    song.Write(path);
    return path;
}

int RunLibrary(double seconds) {
    if (NuvMIDIEntry::GetInstance() == nullptr) {
        std::fprintf(stderr, "the library could not be created\n");
        return 1;
    }
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    std::string keyboard;
    WaitFor(
        [&] {
            _NuvDevInfo info{};
            bool created = false;
            for (int index = 0; manager->GetConnectedDeviceInfo(info, created, index) == 0; ++index)
                if (std::strncmp(info.deviceName, "Virtual Raw MIDI", 16) == 0)
                    keyboard = info.deviceName;
            return !keyboard.empty();
        },
        std::chrono::seconds(10));
    INuvMIDIDevice* device = manager->CreateDevice(keyboard.c_str());
    if (device == nullptr || manager->GetDevice(device->GetID()) == nullptr) {
        std::fprintf(stderr, "no virtual keyboard to take\n");
        NuvMIDIEntry::DeleteInstance();
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // let the renderer settle
    const Sample idleStart = Take();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    Report("renderer running, nothing sounding", idleStart, Take());

    _MIDIDeviceInfo src{}, dst{};
    std::snprintf(src.name, sizeof src.name, "%s", WriteSong(seconds).c_str());
    src.type = MIDI_DEVICE_TYPE_FILE;
    dst.id = device->GetID();
    dst.type = MIDI_DEVICE_TYPE_DESTINATION;
    const Sample playStart = Take();
    if (manager->StartStream(&src, &dst) != 1) {
        std::fprintf(stderr, "the file did not start\n");
        NuvMIDIEntry::DeleteInstance();
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const Sample songEnd = Take();
    Report("playing a file (its length)", playStart, songEnd);
    WaitFor([&] { return manager->GetFilePlayStatus() == 1; }, std::chrono::seconds(20));
    Report("after its end, until the status is 1", songEnd, Take());
    NuvMIDIEntry::DeleteInstance();
    return 0;
}

int RunNative(double seconds) {
    fluid_settings_t* settings = new_fluid_settings();
    fluid_settings_setnum(settings, "synth.sample-rate", 48000);
    fluid_settings_setstr(settings, "player.timing-source", "system");
    fluid_synth_t* synth = new_fluid_synth(settings);
    fluid_synth_sfload(synth, "/usr/share/sounds/sf2/TimGM6mb.sf2", 1);
    nuv_audio_out_set_wav_file("/tmp/nuv_bench.wav");
    NuvMIDIRenderer renderer;
    renderer.Create(synth, -1, -1, "");
    renderer.StartRenderer();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const Sample idleStart = Take();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    Report("renderer running, nothing sounding", idleStart, Take());

    fluid_player_t* player = new_fluid_player(synth);
    fluid_player_add(player, WriteSong(seconds).c_str());
    const Sample playStart = Take();
    fluid_player_play(player);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    Report("playing a file (its length)", playStart, Take());
    fluid_player_join(player);
    delete_fluid_player(player);
    renderer.StopRenderer();
    renderer.Destroy();
    delete_fluid_synth(synth);
    delete_fluid_settings(settings);
    nuv_audio_out_set_wav_file(nullptr);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    bool native = false;
    double seconds = 5;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--native") == 0)
            native = true;
        else
            seconds = std::atof(argv[i]);
    }
    return native ? RunNative(seconds) : RunLibrary(seconds);
}
