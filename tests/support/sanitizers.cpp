// LevelDB and the regex library come uninstrumented, so the thread sanitizer sees the memory that
// they hand from thread to thread but not the atomics that order this: in the latter's case the
// blocks that a match works in. The C library, too, takes the memory of an ended thread's variables
// for the next thread. Other programs never call the function.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:libleveldb.so\nrace:boost::re_detail\nrace:_dl_deallocate_tls\n";
}
