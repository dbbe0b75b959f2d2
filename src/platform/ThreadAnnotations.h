// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Clang's thread-safety attributes, under the names of its documentation; nothing under other
// compilers.
#if defined(__clang__)
#define HOIST_ATTRIBUTE(x) __attribute__((x))
#else
#define HOIST_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) HOIST_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY HOIST_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) HOIST_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) HOIST_ATTRIBUTE(pt_guarded_by(x))
#define REQUIRES(...) HOIST_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) HOIST_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) HOIST_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) HOIST_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) HOIST_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS HOIST_ATTRIBUTE(no_thread_safety_analysis)
