#include "FileChecks.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "ExitCodes.h"
#include "NuvMIDITypes.h"
#include "Report.h"

namespace nuvcli {
namespace {

int CheckReadable(const std::string& path) {
    // "Default" is the library's name for its own default font, not a file.
    if (path == "Default" || access(path.c_str(), R_OK) == 0)
        return EXIT_OK;
    return Fail(EXIT_BAD_FILE, "cannot read '%s': %s", path.c_str(), strerror(errno));
}

// A SoundFont 2 (or DLS) file is a RIFF file of that form. Checked here because the
// synthesizer reports a wrong file on standard error in lines of its own.
int CheckSoundFont(const std::string& path) {
    if (path == "Default")
        return EXIT_OK;
    if (int code = CheckReadable(path))
        return code;
    unsigned char head[12] = {};
    FILE* file = fopen(path.c_str(), "rb");
    const size_t got = file != nullptr ? fread(head, 1, sizeof(head), file) : 0;
    if (file != nullptr)
        fclose(file);
    const bool riff = got == sizeof(head) && memcmp(head, "RIFF", 4) == 0 &&
                      (memcmp(head + 8, "sfbk", 4) == 0 || memcmp(head + 8, "DLS ", 4) == 0);
    if (!riff)
        return Fail(EXIT_BAD_FILE, "'%s': not a SoundFont file", path.c_str());
    return EXIT_OK;
}

// The audio output opens the file only when sound starts.
int CheckWritable(const std::string& path) {
    bool writable;
    if (access(path.c_str(), F_OK) == 0) {
        writable = access(path.c_str(), W_OK) == 0;
    } else {
        const size_t slash = path.rfind('/');
        const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        writable = access(directory.c_str(), W_OK) == 0;
    }
    if (writable)
        return EXIT_OK;
    return Fail(EXIT_BAD_FILE, "cannot write '%s': %s", path.c_str(), strerror(errno));
}

} // namespace

int CheckMidiFile(const std::string& path, MidiFileInfo& info) {
    std::vector<uint8_t> bytes;
    std::string error;
    if (!ReadWholeFile(path, bytes, error))
        return Fail(EXIT_BAD_FILE, "cannot read '%s': %s", path.c_str(), error.c_str());
    if (!ReadMidiFileInfo(bytes.data(), bytes.size(), info, error))
        return Fail(EXIT_BAD_FILE, "'%s': %s", path.c_str(), error.c_str());
    const size_t most = sizeof(_MIDIDeviceInfo::name) - 1;
    if (path.size() > most)
        return Fail(EXIT_BAD_FILE, "'%s': the library takes paths of at most %zu characters",
                    path.c_str(), most);
    return EXIT_OK;
}

int CheckFiles(const GlobalOptions& options, const std::vector<Action>& actions) {
    if (!options.wavFile.empty())
        if (int code = CheckWritable(options.wavFile))
            return code;
    if (!options.font.empty())
        if (int code = CheckSoundFont(options.font))
            return code;
    for (const Action& action : actions) {
        MidiFileInfo info;
        int code = EXIT_OK;
        if (action.command == Command::Play || action.command == Command::Render)
            code = CheckMidiFile(action.path, info);
        if (code == EXIT_OK && action.command == Command::Render)
            code = CheckWritable(action.output);
        else if (action.command == Command::Fonts && action.fontsAction == FontsAction::Load)
            code = CheckSoundFont(action.path);
        if (code != EXIT_OK)
            return code;
    }
    return EXIT_OK;
}

} // namespace nuvcli
