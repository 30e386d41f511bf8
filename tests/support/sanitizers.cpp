// LevelDB comes uninstrumented, so the thread sanitizer sees the memory that it hands from thread
// to thread but not the atomics that order this. Other programs never call the function.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:libleveldb.so\n";
}
