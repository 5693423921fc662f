// Lock rules the compiler checks: clang's thread-safety analysis attributes, as macros.
//
// With clang and -Wthread-safety (the clang-tsa preset, CMake option JOURNAL_THREAD_SAFETY) the
// compiler checks, function by function, that a member marked GUARDED_BY(m) is read and written only
// with m held, that a function marked REQUIRES(m) is called only with m held, that what a scope
// takes it gives back, and (with -Wthread-safety-beta) that locks declared ACQUIRED_AFTER another
// are not taken before it. On other compilers the macros are empty.
//
// The capabilities (lockable types) are Semaphore used as a mutex, with CriticalSection
// (framework/Semaphore.h), and fw::Mutex, fw::SharedMutex with their scoped guards (framework/Mutex.h).
// The analysis sees through neither a lambda run under a lock by another function nor a lock chosen
// at run time: give such code a small helper that names the lock (REQUIRES, RETURN_CAPABILITY), and
// use NO_THREAD_SAFETY_ANALYSIS only with a comment saying why the analysis cannot follow.
#pragma once

#if defined(__clang__)
#define FW_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define FW_THREAD_ANNOTATION(x)
#endif

// A type whose objects are locks (the string names the kind in warnings).
#define CAPABILITY(x) FW_THREAD_ANNOTATION(capability(x))
// A scoped guard: takes its lock(s) in the constructor, gives them in the destructor.
#define SCOPED_CAPABILITY FW_THREAD_ANNOTATION(scoped_lockable)

// A member read and written only with the lock held.
#define GUARDED_BY(x) FW_THREAD_ANNOTATION(guarded_by(x))
// A pointer whose pointee is read and written only with the lock held.
#define PT_GUARDED_BY(x) FW_THREAD_ANNOTATION(pt_guarded_by(x))

// Lock order: this lock is taken after / before the named ones (checked with -Wthread-safety-beta).
#define ACQUIRED_AFTER(...) FW_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) FW_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))

// The caller holds the lock(s) (exclusively, or at least shared).
#define REQUIRES(...) FW_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) FW_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))

// The function takes / gives the lock(s); with no argument, the object it is called on.
#define ACQUIRE(...) FW_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) FW_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) FW_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) FW_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
// Takes the lock when it returns the given value.
#define TRY_ACQUIRE(...) FW_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE_SHARED(...) FW_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))

// The caller must not hold the lock(s): the function takes them itself.
#define EXCLUDES(...) FW_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// From here on the analysis assumes the lock held (checked at run time by the function, if at all).
#define ASSERT_CAPABILITY(x) FW_THREAD_ANNOTATION(assert_capability(x))

// The function returns (a reference to) this lock: lets the analysis follow a lock that is looked
// up through a function, e.g. a list's lock chosen by a traits class.
#define RETURN_CAPABILITY(x) FW_THREAD_ANNOTATION(lock_returned(x))

// Turns the analysis off for one function; always with a comment saying why it cannot follow.
#define NO_THREAD_SAFETY_ANALYSIS FW_THREAD_ANNOTATION(no_thread_safety_analysis)
