#include "BenchSupport.h"

#include <dirent.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "NuvResult"
#include "WaitFor.h"

double Timings::Quantile(double q) const {
    if (ms.empty())
        return std::nan("");
    std::vector<double> sorted = ms;
    std::sort(sorted.begin(), sorted.end());
    const size_t index = std::min(sorted.size() - 1, size_t(q * double(sorted.size())));
    return sorted[index];
}

double Timings::P99() const {
    return ms.size() >= 100 ? Quantile(0.99) : std::nan("");
}

void Runs::Add(const std::string& figure, double value) {
    std::vector<double>& values = m_values[figure];
    if (!std::isnan(value))
        values.push_back(value);
}

std::string Runs::Spread(const std::string& figure, int decimals) const {
    const auto found = m_values.find(figure);
    if (found == m_values.end() || found->second.empty())
        return "-";
    std::vector<double> sorted = found->second;
    std::sort(sorted.begin(), sorted.end());
    return Fixed(sorted.front(), decimals) + " / " + Fixed(sorted[sorted.size() / 2], decimals) +
           " / " + Fixed(sorted.back(), decimals);
}

double Runs::Median(const std::string& figure) const {
    const auto found = m_values.find(figure);
    if (found == m_values.end() || found->second.empty())
        return std::nan("");
    std::vector<double> sorted = found->second;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
}

std::string UniqueName(const std::string& prefix) {
    static std::atomic<int> serial{0};
    char number[16];
    std::snprintf(number, sizeof number, " %05d", serial.fetch_add(1));
    return prefix + number;
}

void PinToSecondCpu() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(1, &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
}

// From the scheduler's own run time of every thread (schedstat, in nanoseconds): the
// tick-sampled utime and stime charge a whole tick to a thread that merely wakes at one,
// which on an emulated machine overstates a thread that wakes often.
std::map<std::string, ThreadUse> ThreadCpuSeconds(pid_t pid) {
    std::map<std::string, ThreadUse> threads;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(tasks.c_str());
    if (dir == nullptr)
        return threads;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        const std::string task = tasks + "/" + entry->d_name;
        std::ifstream schedstat(task + "/schedstat");
        unsigned long long runNs = 0, waitNs = 0, runs = 0;
        schedstat >> runNs >> waitNs >> runs;
        std::string name;
        std::getline(std::ifstream(task + "/comm"), name);
        threads[name + " (" + entry->d_name + ")"] = {double(runNs) / 1e9, runs};
    }
    closedir(dir);
    return threads;
}

long ResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    }
    return 0;
}

std::string Fixed(double value, int decimals) {
    if (std::isnan(value))
        return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

void PrintTable(const std::string& title, const std::vector<Row>& rows) {
    std::printf("\n%s\n\n| figure | libNuvMIDI | anchor | ratio | goal |\n|---|---|---|---|---|\n",
                title.c_str());
    for (const Row& row : rows)
        std::printf("| %s | %s | %s | %s | %s |\n", row.what.c_str(), row.value.c_str(),
                    row.anchor.c_str(), row.ratio.c_str(), row.goal.c_str());
    std::fflush(stdout);
}

bool Host::Create() {
    if (NuvMIDI_Create() != 1)
        return false;
    m_manager = NuvMIDI_GetDeviceManager();
    return m_manager != nullptr && m_manager->RegisterCallback(this) == 0;
}

void Host::Destroy() {
    if (m_manager != nullptr)
        m_manager->UnregisterCallback(this);
    m_manager = nullptr;
    NuvMIDI_Destroy();
}

INuvMIDIDevice* Host::Take(const std::string& prefix) {
    return m_Take(prefix, false);
}

INuvMIDIDevice* Host::TakeSynthesizer() {
    return m_Take("", true);
}

INuvMIDIDevice* Host::m_Take(const std::string& prefix, bool synthesizer) {
    std::string name;
    ::WaitFor(
        [&] {
            _NuvDevInfo info{};
            bool created = false;
            for (int i = 0; m_manager->GetConnectedDeviceInfo(info, created, i) == 0; ++i) {
                const bool match =
                    synthesizer ? info.isSynth != 0
                                : std::strncmp(info.deviceName, prefix.c_str(), prefix.size()) == 0;
                if (match) {
                    name = info.deviceName;
                    return true;
                }
            }
            return false;
        },
        std::chrono::seconds(10));
    return name.empty() ? nullptr : m_manager->CreateDevice(name.c_str());
}

bool Host::WaitForDevices(long attached, long detached, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_lock);
    return m_changed.wait_for(lock, timeout,
                              [&] { return m_attached >= attached && m_detached >= detached; });
}

void Host::DeviceCounts(long& attached, long& detached) {
    std::lock_guard<std::mutex> lock(m_lock);
    attached = m_attached;
    detached = m_detached;
}

int Host::t_OnCallback(int event, void*, void*, void*) {
    std::lock_guard<std::mutex> lock(m_lock);
    if (event == NUV_EVENT_DEVICE_ATTACHED)
        ++m_attached;
    else if (event == NUV_EVENT_DEVICE_DETACHED)
        ++m_detached;
    m_changed.notify_all();
    return 0;
}

int ArrivalStamps::t_OnCallback(int code, void*, void* arg2, void*) {
    const BenchClock::time_point now = BenchClock::now();
    INuvMIDIDevice* forward = m_forward.load();
    if (forward != nullptr && arg2 != nullptr)
        forward->SendMessage(static_cast<MIDIEventType>(code - 10),
                             *static_cast<_MIDIMessage*>(arg2));
    Stamp(now);
    return 0;
}

void ArrivalStamps::Stamp(BenchClock::time_point at) {
    std::lock_guard<std::mutex> lock(m_lock);
    m_stamps.push_back(at);
    m_arrived.notify_all();
}

bool ArrivalStamps::WaitFor(size_t count, BenchClock::time_point& at,
                            std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_lock);
    if (!m_arrived.wait_for(lock, timeout, [&] { return m_stamps.size() > count; }))
        return false;
    at = m_stamps[count];
    return true;
}

size_t ArrivalStamps::Count() {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_stamps.size();
}
