#pragma once

// Attributes with which clang checks at compile time what may be touched while the mutex is held.
// Other compilers see nothing.
#if defined(__clang__)
#define VORTAN_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define VORTAN_THREAD_ATTRIBUTE(attribute)
#endif

#define VORTAN_CAPABILITY(name) VORTAN_THREAD_ATTRIBUTE(capability(name))
#define VORTAN_SCOPED_CAPABILITY VORTAN_THREAD_ATTRIBUTE(scoped_lockable)
#define VORTAN_GUARDED_BY(role) VORTAN_THREAD_ATTRIBUTE(guarded_by(role))
#define VORTAN_REQUIRES(role) VORTAN_THREAD_ATTRIBUTE(requires_capability(role))
#define VORTAN_ACQUIRE(...) VORTAN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VORTAN_RELEASE(...) VORTAN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VORTAN_ASSERT_HELD(role) VORTAN_THREAD_ATTRIBUTE(assert_capability(role))
#define VORTAN_NO_THREAD_ANALYSIS VORTAN_THREAD_ATTRIBUTE(no_thread_safety_analysis)
