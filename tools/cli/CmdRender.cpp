// render: a MIDI file into a WAV file offline, faster than real time, with FluidSynth's own
// player and file renderer on a synthesizer set up as the library's is, so that the file
// sounds as the device would play it. Needs no sequencer, sound card or library.
#include <fluidsynth.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>

#include "Commands.h"
#include "ExitCodes.h"
#include "FileChecks.h"
#include "NuvMIDISynthSettings.h"
#include "OutputFormat.h"
#include "Report.h"

namespace nuvcli {
namespace {

template <typename T, void (*Release)(T*)> struct Releaser {
    void operator()(T* object) const { Release(object); }
};
using Settings =
    std::unique_ptr<fluid_settings_t, Releaser<fluid_settings_t, delete_fluid_settings>>;
using Synth = std::unique_ptr<fluid_synth_t, Releaser<fluid_synth_t, delete_fluid_synth>>;
using Player = std::unique_ptr<fluid_player_t, Releaser<fluid_player_t, delete_fluid_player>>;
using FileRenderer = std::unique_ptr<fluid_file_renderer_t,
                                     Releaser<fluid_file_renderer_t, delete_fluid_file_renderer>>;

} // namespace

int RunRender(const GlobalOptions& options, const Action& action) {
    MidiFileInfo info;
    if (int code = CheckMidiFile(action.path, info))
        return code;
    // FluidSynth's notes go to standard error only with -v, as the library's do.
    if (!options.verbose)
        for (int level = FLUID_PANIC; level <= FLUID_DBG; ++level)
            fluid_set_log_function(level, nullptr, nullptr);

    const auto start = std::chrono::steady_clock::now();
    Settings settings(new_fluid_settings());
    if (!settings)
        return Fail(EXIT_FAILED, "cannot set up a synthesizer");
    NuvMIDIApplySynthSettings(settings.get());
    fluid_settings_setstr(settings.get(), "audio.file.name", action.output.c_str());
    fluid_settings_setstr(settings.get(), "audio.file.type", "wav");
    fluid_settings_setstr(settings.get(), "audio.file.format", "s16");
    // Events are timed by the samples rendered, not by the clock: as fast as it renders.
    fluid_settings_setstr(settings.get(), "player.timing-source", "sample");
    Synth synth(new_fluid_synth(settings.get()));
    if (!synth)
        return Fail(EXIT_FAILED, "cannot set up a synthesizer");
    struct stat status;
    if (stat(kNuvMIDIDefaultSoundFont, &status) == 0 &&
        fluid_synth_sfload(synth.get(), kNuvMIDIDefaultSoundFont, 1) < 0)
        return Fail(EXIT_BAD_FILE, "cannot load the default sound font %s",
                    kNuvMIDIDefaultSoundFont);
    if (!options.font.empty() && fluid_synth_sfload(synth.get(), options.font.c_str(), 1) < 0)
        return Fail(EXIT_BAD_FILE, "cannot load the sound font '%s'", options.font.c_str());
    if (fluid_synth_sfcount(synth.get()) == 0)
        return Fail(EXIT_BAD_FILE, "no sound font: %s is missing and no --font was given",
                    kNuvMIDIDefaultSoundFont);

    Player player(new_fluid_player(synth.get()));
    if (!player || fluid_player_add(player.get(), action.path.c_str()) != FLUID_OK ||
        fluid_player_play(player.get()) != FLUID_OK)
        return Fail(EXIT_FAILED, "FluidSynth cannot play '%s'", action.path.c_str());
    FileRenderer renderer(new_fluid_file_renderer(synth.get()));
    if (!renderer)
        return Fail(EXIT_BAD_FILE, "cannot write '%s' (-v shows why)", action.output.c_str());
    // The player ends once every event is played and every note has faded.
    while (fluid_player_get_status(player.get()) == FLUID_PLAYER_PLAYING)
        if (fluid_file_renderer_process_block(renderer.get()) != FLUID_OK)
            return Fail(EXIT_FAILED, "writing '%s' failed", action.output.c_str());
    renderer.reset(); // completes the file
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    char line[64];
    snprintf(line, sizeof line, " in %.2f s\n", took);
    Print("Rendered " + action.path + " (" + FormatMinutes(info.seconds) + ") to " + action.output +
          line);
    return EXIT_OK;
}

} // namespace nuvcli
