#pragma once

// Export and lock annotations shared by the three libraries.

// Makes a class visible outside its shared library; everything else is compiled hidden.
#if defined(__GNUC__)
#define KEL_EXPORT __attribute__((visibility("default")))
#else
#define KEL_EXPORT
#endif

// Lock annotations: clang checks them with -Wthread-safety, other compilers see nothing.
#if defined(__clang__)
#define KEL_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define KEL_THREAD_ANNOTATION(annotation)
#endif

#define KEL_CAPABILITY(name) KEL_THREAD_ANNOTATION(capability(name))
#define KEL_SCOPED_CAPABILITY KEL_THREAD_ANNOTATION(scoped_lockable)
#define KEL_GUARDED_BY(mutex) KEL_THREAD_ANNOTATION(guarded_by(mutex))
#define KEL_ACQUIRE(...) KEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KEL_RELEASE(...) KEL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KEL_TRY_ACQUIRE(...) KEL_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define KEL_REQUIRES(...) KEL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KEL_NO_LOCK_ANALYSIS KEL_THREAD_ANNOTATION(no_thread_safety_analysis)
