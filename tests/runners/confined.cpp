// SPDX-License-Identifier: Apache-2.0
// usage: confined none|fonts|late DEED
//
// Confines itself as the helpers do, with threads and no files or with the fonts to read and no threads, then tries one
// deed and tells what came of it: "done", or "refused" and why. Of a deed that ends the process nothing is told.
// With "late" there is a second thread already, and nothing but the confinement is tried.

#include <fcntl.h>
#include <linux/bpf.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "preview/helpers/Confinement.hpp"

namespace {

int leaked = -1;
char scratch[4096];

long openReading(char const* path) { return ::open(path, O_RDONLY); }

long workAsADecoderDoes() {
  std::vector<char> memory(100 << 20, 'x');
  long sum = 0;
  std::thread([&] {
    for (char const c : memory) sum += c;
  }).join();
  return sum > 0 ? 0 : -1;
}

long spin() {
  std::atomic<unsigned> turns = 0;
  while (++turns != 0 || turns == 0) {
  }
  return 0;
}

long mapped(std::size_t size, int protection) {
  void* const at = ::mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return at == MAP_FAILED ? -1 : 0;
}

long makeExecutable() {
  void* const at = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return ::mprotect(at, 4096, PROT_READ | PROT_EXEC);
}

long execute() {
  char name[] = "true";
  char* const arguments[] = {name, nullptr};
  return ::execve("/bin/true", arguments, nullptr);
}

long raiseLimit() {
  rlimit const more{1u << 30, 1u << 30};
  return ::setrlimit(RLIMIT_FSIZE, &more);
}

constexpr char one[] = "/tmp/tolva-confined";
constexpr char other[] = "/tmp/tolva-confined-2";

long pollForNothing() {
  timespec const now{};
  return ::ppoll(nullptr, 0, &now, nullptr);
}

long startThread() {
  pthread_t thread;
  errno = ::pthread_create(
      &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
  return errno == 0 ? 0 : -1;
}

struct Deed {
  char const* name;
  long (*attempt)();
};

constexpr Deed deeds[] = {
    {"work", workAsADecoderDoes},
    {"spin", spin},
    {"map-1-gib", [] { return mapped(1u << 30, PROT_READ | PROT_WRITE); }},
    {"open-passwd", [] { return openReading("/etc/passwd"); }},
    {"open-fonts", [] { return openReading("/etc/fonts/fonts.conf"); }},
    {"open-fonts-writing", [] { return long{::open("/etc/fonts/fonts.conf", O_RDWR)}; }},
    {"create-file", [] { return long{::open(one, O_WRONLY | O_CREAT, 0600)}; }},
    {"openat2", [] { return ::syscall(SYS_openat2, AT_FDCWD, "/etc/passwd", nullptr, 0); }},
    {"chmod", [] { return long{::chmod(one, 0600)}; }},
    {"chmod-at", [] { return long{::fchmodat(AT_FDCWD, one, 0600, 0)}; }},
    {"link", [] { return long{::link(one, other)}; }},
    {"link-at", [] { return long{::linkat(AT_FDCWD, one, AT_FDCWD, other, 0)}; }},
    {"make-folder", [] { return long{::mkdir(one, 0700)}; }},
    {"make-folder-at", [] { return long{::mkdirat(AT_FDCWD, one, 0700)}; }},
    {"rename", [] { return long{::rename(one, other)}; }},
    {"rename-at", [] { return long{::renameat(AT_FDCWD, one, AT_FDCWD, other)}; }},
    {"rename-at-2", [] { return long{::renameat2(AT_FDCWD, one, AT_FDCWD, other, 0)}; }},
    {"symlink", [] { return long{::symlink(one, other)}; }},
    {"symlink-at", [] { return long{::symlinkat(one, AT_FDCWD, other)}; }},
    {"unlink", [] { return long{::unlink(one)}; }},
    {"unlink-at", [] { return long{::unlinkat(AT_FDCWD, one, 0)}; }},
    {"poll", [] { return long{::poll(nullptr, 0, 0)}; }},
    {"poll-with-signals", pollForNothing},
    {"sleep", [] { return long{::sleep(60)}; }},
    {"read-leaked-descriptor", [] { return ::read(leaked, scratch, sizeof scratch); }},
    {"socket", [] { return long{::socket(AF_INET, SOCK_STREAM, 0)}; }},
    {"socketpair", [] { return long{::socketpair(AF_UNIX, SOCK_STREAM, 0, reinterpret_cast<int*>(scratch))}; }},
    {"fork", [] { return long{::fork()}; }},
    {"vfork", [] { return long{::vfork()}; }},
    {"clone3", [] { return ::syscall(SYS_clone3, nullptr, 0); }},
    {"exec", execute},
    {"ptrace", [] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }},
    {"read-parents-memory",
     [] {
       iovec const here{scratch, 1};
       return long{::process_vm_readv(::getppid(), &here, 1, &here, 1, 0)};
     }},
    {"kill", [] { return long{::kill(::getppid(), 0)}; }},
    {"signal-another", [] { return ::syscall(SYS_tgkill, 1, 1, 0); }},
    {"signal-by-descriptor", [] { return long{::fcntl(0, F_SETOWN, ::getppid())}; }},
    {"map-executable", [] { return mapped(4096, PROT_READ | PROT_WRITE | PROT_EXEC); }},
    {"make-executable", makeExecutable},
    {"memfd", [] { return long{::memfd_create("x", 0)}; }},
    {"io-uring", [] { return ::syscall(SYS_io_uring_setup, 1, scratch); }},
    {"unshare", [] { return long{::unshare(CLONE_NEWUSER)}; }},
    {"mount", [] { return long{::mount("none", "/tmp", "tmpfs", 0, nullptr)}; }},
    {"chroot", [] { return long{::chroot("/tmp")}; }},
    {"become-root", [] { return long{::setuid(0)}; }},
    {"bpf", [] { return ::syscall(SYS_bpf, BPF_MAP_CREATE, scratch, sizeof(bpf_attr)); }},
    {"raise-limit", raiseLimit},
    {"thread", startThread},
    {"time-out", [] { return long{::raise(SIGALRM)}; }},
    {"ioctl", [] { return ::syscall(SYS_ioctl, 0, 0x5412 /* TIOCSTI */, scratch); }},
#if defined(__x86_64__)
    {"other-abi", [] { return ::syscall(0x40000000 | SYS_getpid); }},
#endif
};

int say(std::string const& text) { return ::write(STDOUT_FILENO, text.data(), text.size()) > 0 ? 0 : 1; }

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  leaked = ::open("/etc/passwd", O_RDONLY);
  if (arguments[1] == std::string("late")) {
    std::thread(::pause).detach();
    return tolva::confine({}) ? 0 : 70;
  }
  constexpr char const* fonts[] = {"/etc/fonts", "/nonexistent"};
  bool const confined =
      arguments[1] == std::string("fonts") ? tolva::confine({.readable = fonts}) : tolva::confine({.threads = true});
  if (!confined) return 70;
  for (Deed const& deed : deeds) {
    if (arguments[2] != std::string(deed.name)) continue;
    long const result = deed.attempt();
    _exit(say(result >= 0 ? "done" : std::string("refused ") + strerrorname_np(errno)));
  }
  return 2;
}
