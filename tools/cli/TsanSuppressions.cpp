// nuvmidi hosts FluidSynth, which is not built with ThreadSanitizer: the atomics with which
// it hands a file added to its player over to the player's timer thread are invisible to
// it, so the C library calls made from there look like races. In a ThreadSanitizer build,
// accesses that FluidSynth's own code makes through intercepted calls are ignored.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libfluidsynth.so.3\n"
           "called_from_lib:libgomp.so.1\n";
}
#endif
