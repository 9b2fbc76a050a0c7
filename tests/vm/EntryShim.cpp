// Interposes the core's exported creation, start and destroy operations (the executable's
// definitions come before libNuvCore.so's) and reaches the real ones with RTLD_NEXT.
#include "EntryShim.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>

#include "NuvConnectionManager"
#include "NuvDeviceChecker"
#include "NuvDeviceManager"
#include "NuvResult"
#include "NuvWatcher"

namespace {

std::mutex g_mutex;
bool g_armed = false;
EntryStep g_failing = EntryStep::None;
std::vector<std::string> g_calls;

// Records the call; true when this step is to fail.
bool Record(const char* call, EntryStep step) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_armed)
        return false;
    g_calls.push_back(call);
    return step != EntryStep::None && step == g_failing;
}

template <typename Function> Function Real(const char* symbol) {
    void* address = dlsym(RTLD_NEXT, symbol);
    if (address == nullptr) {
        fprintf(stderr, "EntryShim: %s not found in the core\n", symbol);
        abort();
    }
    return reinterpret_cast<Function>(address);
}

} // namespace

void EntryShim::Arm(EntryStep failing) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_armed = true;
    g_failing = failing;
    g_calls.clear();
}

void EntryShim::Disarm() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_armed = false;
    g_failing = EntryStep::None;
}

std::vector<std::string> EntryShim::Calls() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls;
}

int NuvWatcher::Create() {
    static auto real = Real<int (*)(NuvWatcher*)>("_ZN10NuvWatcher6CreateEv");
    if (Record("create watcher", EntryStep::Watcher))
        return NUV_ERR_GENERAL;
    return real(this);
}

int NuvWatcher::Start() {
    static auto real = Real<int (*)(NuvWatcher*)>("_ZN10NuvWatcher5StartEv");
    Record("start watcher", EntryStep::None);
    return real(this);
}

int NuvWatcher::Destroy() {
    static auto real = Real<int (*)(NuvWatcher*)>("_ZN10NuvWatcher7DestroyEv");
    Record("destroy watcher", EntryStep::None);
    return real(this);
}

int NuvDeviceChecker::Create() {
    static auto real = Real<int (*)(NuvDeviceChecker*)>("_ZN16NuvDeviceChecker6CreateEv");
    if (Record("create checker", EntryStep::Checker))
        return NUV_ERR_GENERAL;
    return real(this);
}

void NuvDeviceChecker::Destroy() {
    static auto real = Real<void (*)(NuvDeviceChecker*)>("_ZN16NuvDeviceChecker7DestroyEv");
    Record("destroy checker", EntryStep::None);
    real(this);
}

int NuvConnectionManager::Create(NuvDeviceChecker* checker, NuvWatcher* watcher) {
    static auto real = Real<int (*)(NuvConnectionManager*, NuvDeviceChecker*, NuvWatcher*)>(
        "_ZN20NuvConnectionManager6CreateEP16NuvDeviceCheckerP10NuvWatcher");
    if (Record("create connection manager", EntryStep::ConnectionManager))
        return NUV_ERR_GENERAL;
    return real(this, checker, watcher);
}

int NuvConnectionManager::Destroy() {
    static auto real = Real<int (*)(NuvConnectionManager*)>("_ZN20NuvConnectionManager7DestroyEv");
    Record("destroy connection manager", EntryStep::None);
    return real(this);
}

int NuvDeviceManager::Create(NuvConnectionManager* connectionManager) {
    static auto real = Real<int (*)(NuvDeviceManager*, NuvConnectionManager*)>(
        "_ZN16NuvDeviceManager6CreateEP20NuvConnectionManager");
    if (Record("create device manager", EntryStep::DeviceManager))
        return NUV_ERR_GENERAL;
    return real(this, connectionManager);
}

int NuvDeviceManager::Destroy() {
    static auto real = Real<int (*)(NuvDeviceManager*)>("_ZN16NuvDeviceManager7DestroyEv");
    Record("destroy device manager", EntryStep::None);
    return real(this);
}
