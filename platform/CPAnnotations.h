#pragma once

/// What guards what, in the words that clang's thread-safety analysis understands. Other compilers see nothing.

#if defined(__clang__)
#define CDS_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define CDS_THREAD_ATTRIBUTE(x)
#endif

#define CDS_CAPABILITY(x) CDS_THREAD_ATTRIBUTE(capability(x))
#define CDS_SCOPED_CAPABILITY CDS_THREAD_ATTRIBUTE(scoped_lockable)
#define CDS_GUARDED_BY(x) CDS_THREAD_ATTRIBUTE(guarded_by(x))
#define CDS_REQUIRES(...) CDS_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define CDS_ACQUIRE(...) CDS_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define CDS_RELEASE(...) CDS_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
