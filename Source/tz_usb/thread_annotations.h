// SPDX-License-Identifier: Apache-2.0
// Which lock guards what, for clang's -Wthread-safety; nothing under other compilers.
#pragma once

#if defined(__clang__)
#define TZ_ANNOTATION(x) __attribute__((x))
#else
#define TZ_ANNOTATION(x)
#endif

#define TZ_CAPABILITY(name) TZ_ANNOTATION(capability(name))
#define TZ_SCOPED_CAPABILITY TZ_ANNOTATION(scoped_lockable)
#define TZ_GUARDED_BY(mutex) TZ_ANNOTATION(guarded_by(mutex))
#define TZ_REQUIRES(mutex) TZ_ANNOTATION(requires_capability(mutex))
#define TZ_ACQUIRE(...) TZ_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TZ_RELEASE(...) TZ_ANNOTATION(release_capability(__VA_ARGS__))
#define TZ_NO_ANALYSIS TZ_ANNOTATION(no_thread_safety_analysis)
