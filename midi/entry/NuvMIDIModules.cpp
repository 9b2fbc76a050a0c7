// NuvMIDIEntry's kernel-module operations, for the host: wait for one module to be listed
// in /proc/modules, then run the shell commands that load the others.
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "NuvLog"
#include "NuvMIDIEntry.h"

namespace {

// The size of one read of the module list; a longer list is cut there.
const size_t kModulesBufferSize = 5120;
const int kModuleAttempts = 11;

} // namespace

int NuvMIDIEntry::m_ReadProcModules(char* buffer) {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: _nuv_ReadProcModules().");
    if (buffer == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "ERROR: no buffer for the modules proc file.");
        return 0;
    }
    FILE* file = fopen("/proc/modules", "r");
    if (file == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "ERROR: Can't open modules proc file.");
        return 0;
    }
    const size_t read = fread(buffer, 1, kModulesBufferSize, file);
    if (read == 0) {
        print_dlog(NUV_LOG_INFO, "%s\n", "ERROR: cannot read modules proc file.");
        fclose(file);
        return 0;
    }
    fclose(file);
    return buffer[0] != '\0' ? 1 : 0;
}

// posix_spawn starts the child without copying the host's address space (as vfork does),
// so a large process with many threads can still run a command.
int NuvMIDIEntry::m_ExecShell(const char* command) {
    if (command == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "ERROR: m_ExecShell(null).");
        return -1;
    }
    char* const argv[] = {const_cast<char*>("/bin/sh"), const_cast<char*>("-c"),
                          const_cast<char*>(command), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1;
    return status;
}

void NuvMIDIEntry::m_InsertModules(const char* moduleName, const char** commands) {
    char buffer[kModulesBufferSize];
    memset(buffer, 0, sizeof(buffer));
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: _nuv_InsertModule().");

    // Without a name there is nothing to wait for: the commands run at once.
    if (moduleName == nullptr)
        print_dlog(NUV_LOG_INFO, "%s\n", "ERROR: no module name to wait for.");
    for (int attempt = 1; moduleName != nullptr; ++attempt) {
        if (m_ReadProcModules(buffer) == 1) {
            buffer[kModulesBufferSize - 1] = '\0';
            if (strstr(buffer, moduleName) != nullptr) {
                print_dlog(NUV_LOG_INFO, "%s\n", "INFO: --- NUV MODULE CHECKED!! ---");
                sleep(1);
                break;
            }
        }
        if (attempt == kModuleAttempts)
            break;
        print_dlog(NUV_LOG_INFO, "INFO: --- NUV MODULE CHECKING... ---[%d]", attempt);
        sleep(1);
    }

    for (const char** command = commands; command != nullptr && *command != nullptr; ++command) {
        print_dlog(NUV_LOG_INFO, "INFO: Insert module - %s.", *command);
        if (m_ExecShell(*command) == -1)
            print_dlog(NUV_LOG_INFO, "ERROR: m_ExecShell(%s).", *command);
    }
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: D/D Modules for NUV is loaded complete!");
}
