// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

#include "platform/Export.hpp"

// Clang's thread-safety analysis (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html); nothing under other
// compilers.
#if defined(__clang__)
#define TOLVA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TOLVA_THREAD_ATTRIBUTE(x)
#endif

// These are the names of clang's own documentation; a program that has them already keeps its own.
#ifndef CAPABILITY
#define CAPABILITY(name) TOLVA_THREAD_ATTRIBUTE(capability(name))
#endif
#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY TOLVA_THREAD_ATTRIBUTE(scoped_lockable)
#endif
#ifndef GUARDED_BY
#define GUARDED_BY(lock) TOLVA_THREAD_ATTRIBUTE(guarded_by(lock))
#endif
#ifndef REQUIRES
#define REQUIRES(...) TOLVA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#endif
#ifndef ACQUIRE
#define ACQUIRE(...) TOLVA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) TOLVA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#endif
#ifndef NO_THREAD_SAFETY_ANALYSIS
#define NO_THREAD_SAFETY_ANALYSIS TOLVA_THREAD_ATTRIBUTE(no_thread_safety_analysis)
#endif

namespace tolva {

/// A plain lock: held for a few instructions, never under another.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a `Mutex` for a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(MutexLock const&) = delete;
  MutexLock& operator=(MutexLock const&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace tolva
