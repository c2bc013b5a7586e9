// SPDX-License-Identifier: Apache-2.0
// The libc calls that change files or read them, defined by the test executable itself: the dynamic linker binds every
// library of the process to them, SQLite and the C++ library included. Each asks the plan, then goes on to the next
// definition.

// The headers must neither rename the calls nor replace them by inline functions.
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE

#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/FaultPlan.hpp"

namespace {

using tolva::faultPlan::strikes;
using tolva::faultPlan::strikesRead;
using tolva::faultPlan::strikesRemoval;

bool changesFiles(int flags) { return (flags & (O_CREAT | O_TRUNC)) != 0 || (flags & O_ACCMODE) != O_RDONLY; }

bool takesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

/// The definition of `name` behind ours: a sanitizer's or libc's. Looked up once, by whichever thread comes first.
void* next(std::atomic<void*>& known, char const* name) noexcept {
  void* call = known.load(std::memory_order_relaxed);
  if (!call) {
    call = ::dlsym(RTLD_NEXT, name);
    if (!call) ::abort();
    known.store(call, std::memory_order_relaxed);
  }
  return call;
}

}  // namespace

#define NEXT(name)                                      \
  reinterpret_cast<decltype(&::name)>([]() noexcept {   \
    static constinit std::atomic<void*> known{nullptr}; \
    return next(known, #name);                          \
  }())

#define MODE_AFTER(flags)        \
  mode_t mode = 0;               \
  if (takesMode(flags)) {        \
    va_list rest;                \
    va_start(rest, flags);       \
    mode = va_arg(rest, mode_t); \
    va_end(rest);                \
  }

#pragma GCC visibility push(default)
extern "C" {

// Opening -----------------------------------------------------------------------------------------

int open(char const* path, int flags, ...) {
  MODE_AFTER(flags)
  if (changesFiles(flags) && strikes("open", {AT_FDCWD, path})) return -1;
  return NEXT(open)(path, flags, mode);
}

int open64(char const* path, int flags, ...) {
  MODE_AFTER(flags)
  if (changesFiles(flags) && strikes("open", {AT_FDCWD, path})) return -1;
  return NEXT(open64)(path, flags, mode);
}

int openat(int folder, char const* path, int flags, ...) {
  MODE_AFTER(flags)
  if (changesFiles(flags) && strikes("openat", {folder, path})) return -1;
  return NEXT(openat)(folder, path, flags, mode);
}

int openat64(int folder, char const* path, int flags, ...) {
  MODE_AFTER(flags)
  if (changesFiles(flags) && strikes("openat", {folder, path})) return -1;
  return NEXT(openat64)(folder, path, flags, mode);
}

// Content -----------------------------------------------------------------------------------------

ssize_t write(int descriptor, void const* bytes, size_t size) {
  return strikes("write", descriptor) ? tolva::faultPlan::resultOfWrite() : NEXT(write)(descriptor, bytes, size);
}

ssize_t writev(int descriptor, iovec const* parts, int count) {
  return strikes("writev", descriptor) ? -1 : NEXT(writev)(descriptor, parts, count);
}

ssize_t pwrite(int descriptor, void const* bytes, size_t size, off_t offset) {
  return strikes("pwrite", descriptor) ? -1 : NEXT(pwrite)(descriptor, bytes, size, offset);
}

ssize_t pwrite64(int descriptor, void const* bytes, size_t size, off64_t offset) {
  return strikes("pwrite", descriptor) ? -1 : NEXT(pwrite64)(descriptor, bytes, size, offset);
}

int ftruncate(int descriptor, off_t size) noexcept {
  return strikes("ftruncate", descriptor) ? -1 : NEXT(ftruncate)(descriptor, size);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
  return strikes("ftruncate", descriptor) ? -1 : NEXT(ftruncate64)(descriptor, size);
}

int fallocate(int descriptor, int mode, off_t offset, off_t size) {
  return strikes("fallocate", descriptor) ? -1 : NEXT(fallocate)(descriptor, mode, offset, size);
}

int fallocate64(int descriptor, int mode, off64_t offset, off64_t size) {
  return strikes("fallocate", descriptor) ? -1 : NEXT(fallocate64)(descriptor, mode, offset, size);
}

ssize_t read(int descriptor, void* bytes, size_t size) {
  return strikesRead("read", descriptor) ? -1 : NEXT(read)(descriptor, bytes, size);
}

ssize_t pread(int descriptor, void* bytes, size_t size, off_t offset) {
  return strikesRead("pread", descriptor) ? -1 : NEXT(pread)(descriptor, bytes, size, offset);
}

ssize_t pread64(int descriptor, void* bytes, size_t size, off64_t offset) {
  return strikesRead("pread", descriptor) ? -1 : NEXT(pread64)(descriptor, bytes, size, offset);
}

// These two return the reason.
int posix_fallocate(int descriptor, off_t offset, off_t size) {
  return strikes("posix_fallocate", descriptor) ? errno : NEXT(posix_fallocate)(descriptor, offset, size);
}

int posix_fallocate64(int descriptor, off64_t offset, off64_t size) {
  return strikes("posix_fallocate", descriptor) ? errno : NEXT(posix_fallocate64)(descriptor, offset, size);
}

int fsync(int descriptor) { return strikes("fsync", descriptor) ? -1 : NEXT(fsync)(descriptor); }

int fdatasync(int descriptor) { return strikes("fdatasync", descriptor) ? -1 : NEXT(fdatasync)(descriptor); }

// Names -------------------------------------------------------------------------------------------

int rename(char const* from, char const* to) noexcept {
  return strikes("rename", {AT_FDCWD, from}, {AT_FDCWD, to}) ? -1 : NEXT(rename)(from, to);
}

int renameat(int fromFolder, char const* from, int toFolder, char const* to) noexcept {
  if (strikes("renameat", {fromFolder, from}, {toFolder, to})) return -1;
  return NEXT(renameat)(fromFolder, from, toFolder, to);
}

int renameat2(int fromFolder, char const* from, int toFolder, char const* to, unsigned flags) noexcept {
  if (strikes("renameat2", {fromFolder, from}, {toFolder, to})) return -1;
  return NEXT(renameat2)(fromFolder, from, toFolder, to, flags);
}

int link(char const* from, char const* to) noexcept {
  return strikes("link", {AT_FDCWD, from}, {AT_FDCWD, to}) ? -1 : NEXT(link)(from, to);
}

int linkat(int fromFolder, char const* from, int toFolder, char const* to, int flags) noexcept {
  if (strikes("linkat", {fromFolder, from}, {toFolder, to})) return -1;
  return NEXT(linkat)(fromFolder, from, toFolder, to, flags);
}

int unlink(char const* path) noexcept { return strikesRemoval("unlink", {AT_FDCWD, path}) ? -1 : NEXT(unlink)(path); }

int unlinkat(int folder, char const* path, int flags) noexcept {
  return strikesRemoval("unlinkat", {folder, path}) ? -1 : NEXT(unlinkat)(folder, path, flags);
}

int rmdir(char const* path) noexcept { return strikesRemoval("rmdir", {AT_FDCWD, path}) ? -1 : NEXT(rmdir)(path); }

int remove(char const* path) noexcept { return strikesRemoval("remove", {AT_FDCWD, path}) ? -1 : NEXT(remove)(path); }

int mkdir(char const* path, mode_t mode) noexcept {
  return strikes("mkdir", {AT_FDCWD, path}) ? -1 : NEXT(mkdir)(path, mode);
}

int mkdirat(int folder, char const* path, mode_t mode) noexcept {
  return strikes("mkdirat", {folder, path}) ? -1 : NEXT(mkdirat)(folder, path, mode);
}

// Permissions -------------------------------------------------------------------------------------

int chmod(char const* path, mode_t mode) noexcept {
  return strikes("chmod", {AT_FDCWD, path}) ? -1 : NEXT(chmod)(path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  return strikes("fchmod", descriptor) ? -1 : NEXT(fchmod)(descriptor, mode);
}

int fchmodat(int folder, char const* path, mode_t mode, int flags) noexcept {
  return strikes("fchmodat", {folder, path}) ? -1 : NEXT(fchmodat)(folder, path, mode, flags);
}

}  // extern "C"
#pragma GCC visibility pop
