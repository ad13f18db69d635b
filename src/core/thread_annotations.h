// Clang's thread-safety annotations: which lock guards which data, and which functions take or
// need which lock. A Clang build with -Wthread-safety checks them at compile time; other
// compilers see nothing.
#pragma once

#if defined(__clang__)
#define OSTREL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define OSTREL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(name) OSTREL_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY OSTREL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) OSTREL_THREAD_ANNOTATION(guarded_by(lock))
#define ACQUIRED_BEFORE(...) OSTREL_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRE(...) OSTREL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) OSTREL_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) OSTREL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) OSTREL_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) OSTREL_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define REQUIRES(...) OSTREL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) OSTREL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ASSERT_CAPABILITY(lock) OSTREL_THREAD_ANNOTATION(assert_capability(lock))
#define NO_THREAD_SAFETY_ANALYSIS OSTREL_THREAD_ANNOTATION(no_thread_safety_analysis)
