// Stands between the plug-in and the framework core in the VM test binary: records the
// order in which the entry creates, starts and destroys its objects, and can make one
// creation fail. Unarmed, every call goes straight to the core.
#ifndef NUV_TEST_ENTRY_SHIM_H
#define NUV_TEST_ENTRY_SHIM_H

#include <string>
#include <vector>

enum class EntryStep { None, Watcher, Checker, ConnectionManager, DeviceManager };

namespace EntryShim {
// Starts recording; `failing` makes that step's framework creation return a failure
// without reaching the core.
void Arm(EntryStep failing = EntryStep::None);
void Disarm();
// "create watcher", "create checker", "create connection manager", "create device
// manager", "start watcher", "destroy ..." in the order they happened while armed.
std::vector<std::string> Calls();
} // namespace EntryShim

#endif
