// FluidSynth and the OpenMP runtime it loads sound fonts with are not built with
// ThreadSanitizer, so the synchronisation inside them is invisible to it: the atomics with
// which FluidSynth hands a file added to its player over to the player's timer thread, and
// the barriers after which libgomp's worker threads hand back the samples they loaded. The
// C library calls those libraries make look like races; they are ignored.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libfluidsynth.so.3\n"
           "called_from_lib:libgomp.so.1\n";
}
#endif
