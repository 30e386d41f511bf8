#pragma once

// Names for clang's thread-safety attributes; empty for other compilers.
//
// They are read where the program is built with clang and its warnings are errors: data that is
// GUARDED_BY a lock can't be touched without it, and a routine that REQUIRES a lock can't be called
// without it. A routine named ...Locked has REQUIRES.
//
// NO_THREAD_SAFETY_ANALYSIS is for what the analysis can't follow, with a comment why it is right.
#if defined(__clang__)
#define ZEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZEL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) ZEL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY ZEL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) ZEL_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) ZEL_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) ZEL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) ZEL_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...) ZEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) ZEL_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) ZEL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) ZEL_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) ZEL_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define EXCLUDES(...) ZEL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ZEL_THREAD_ANNOTATION(no_thread_safety_analysis)
