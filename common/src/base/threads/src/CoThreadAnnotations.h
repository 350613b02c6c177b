#pragma once

/// What the compiler knows of locks. Clang's thread-safety analysis checks it (-Wthread-safety); other
/// compilers see nothing. A member that a mutex protects says CO_GUARDED_BY, a function that wants the mutex
/// held CO_REQUIRES, one that takes it itself and must not be called under it CO_EXCLUDES.

#if defined(__clang__)
#define CO_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define CO_THREAD_ANNOTATION(attribute)
#endif

#define CO_CAPABILITY(name) CO_THREAD_ANNOTATION(capability(name))
#define CO_SCOPED_CAPABILITY CO_THREAD_ANNOTATION(scoped_lockable)

#define CO_GUARDED_BY(mutex) CO_THREAD_ANNOTATION(guarded_by(mutex))
/// For pointers: what they point at is guarded, they themselves are not.
#define CO_PT_GUARDED_BY(mutex) CO_THREAD_ANNOTATION(pt_guarded_by(mutex))

#define CO_REQUIRES(...) CO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define CO_EXCLUDES(...) CO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

/// The order of two mutexes of which one thread may hold both.
#define CO_ACQUIRED_BEFORE(...) CO_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define CO_ACQUIRED_AFTER(...) CO_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))

#define CO_ACQUIRE(...) CO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define CO_RELEASE(...) CO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define CO_TRY_ACQUIRE(...) CO_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define CO_ASSERT_HELD(...) CO_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
#define CO_RETURN_MUTEX(mutex) CO_THREAD_ANNOTATION(lock_returned(mutex))

/// Switches the analysis off in one function. Each use says why.
#define CO_NO_THREAD_SAFETY_ANALYSIS CO_THREAD_ANNOTATION(no_thread_safety_analysis)
