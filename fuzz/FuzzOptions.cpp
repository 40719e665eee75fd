// Sanitizer defaults of every fuzz target; ASAN_OPTIONS in the environment still overrides each.
// A quarantine of 64 MB (instead of 256 MB) still holds every block freed during an input, and
// thousands of inputs' worth more, while the resident set stays a quarter of the size. Ten frames
// of allocation and free stacks (instead of 30) name the library's own frames; the rest would be
// libFuzzer's driver, and unwinding it at every allocation is a sizeable share of an input's
// time. A crash input reproduces with ASAN_OPTIONS=malloc_context_size=30 for the full stacks.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=64:malloc_context_size=10";
}
