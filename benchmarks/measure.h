// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the C and C++ programs of a question that times itself share.

#include <pthread.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

static inline struct timespec timeNow(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

/// Writes the line that the benchmark script reads: the nanoseconds since `began`, then what was done. All sides of a
/// question must have done the same, so `done` is worded from what was counted on the way and not from what was asked.
static inline void report(struct timespec began, char const* done) {
  struct timespec const ended = timeNow();
  printf("%lld %s\n", (ended.tv_sec - began.tv_sec) * 1000000000LL + (ended.tv_nsec - began.tv_nsec), done);
}

static inline void* sleepForEver(void* nothing) {
  for (;;) pause();
  return nothing;
}

/// Starts a thread that does nothing. A program with an interface has threads, and with one thread alone libc takes
/// short cuts in its locks and its allocator that such a program never sees.
static inline void keepSecondThread(void) {
  pthread_t thread;
  pthread_create(&thread, 0, sleepForEver, 0);
}
