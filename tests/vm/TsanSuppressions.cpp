// FluidSynth is not built with ThreadSanitizer, so the atomics with which it hands a file
// added to its player over to the player's timer thread are invisible to it, and the C
// library calls made from there (fopen of the name fluid_player_add copied) look like
// races. Accesses that FluidSynth's own code makes through intercepted calls are ignored.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libfluidsynth.so.3\n";
}
#endif
