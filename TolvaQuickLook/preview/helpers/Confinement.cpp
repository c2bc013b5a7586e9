// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/Confinement.hpp"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <memory>

namespace tolva {
namespace {

// What the filter lets through ----------------------------------------------------------------------

// A call that the processor's kernel does not have is left out of the filter: some have the calls that take a folder
// alone, so the lists name both.

/// Memory, time, what threads that were started take, and the descriptors that are there.
constexpr int allowed[] = {
    SCMP_SYS(brk),
    SCMP_SYS(clock_getres),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(close),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(fadvise64),
    SCMP_SYS(fstat),
    SCMP_SYS(futex),
    SCMP_SYS(getcpu),
    SCMP_SYS(getegid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getpid),
    SCMP_SYS(getrandom),
    SCMP_SYS(getrusage),
    SCMP_SYS(gettid),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(getuid),
    SCMP_SYS(lseek),
    SCMP_SYS(madvise),
    SCMP_SYS(membarrier),
    SCMP_SYS(mremap),
    SCMP_SYS(munmap),
    SCMP_SYS(nanosleep),
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    SCMP_SYS(pread64),
    SCMP_SYS(read),
    SCMP_SYS(restart_syscall),
    SCMP_SYS(rseq),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(sched_yield),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(sysinfo),
    SCMP_SYS(uname),
    SCMP_SYS(write),
    SCMP_SYS(writev),
};

/// What finding and reading a font takes, beside `openat`. Without files to read it fails.
constexpr int allowedWithFiles[] = {
    SCMP_SYS(access),     SCMP_SYS(faccessat), SCMP_SYS(faccessat2), SCMP_SYS(fstatfs),  SCMP_SYS(getcwd),
    SCMP_SYS(getdents64), SCMP_SYS(lstat),     SCMP_SYS(newfstatat), SCMP_SYS(readlink), SCMP_SYS(readlinkat),
    SCMP_SYS(stat),       SCMP_SYS(statfs),    SCMP_SYS(statx),
};

/// What libraries try in passing: they live with a refusal.
constexpr int refused[] = {
    SCMP_SYS(chmod),    SCMP_SYS(connect),   SCMP_SYS(fchmod),  SCMP_SYS(fchmodat),  SCMP_SYS(ioctl),
    SCMP_SYS(link),     SCMP_SYS(linkat),    SCMP_SYS(mkdir),   SCMP_SYS(mkdirat),   SCMP_SYS(open),
    SCMP_SYS(prctl),    SCMP_SYS(prlimit64), SCMP_SYS(rename),  SCMP_SYS(renameat),  SCMP_SYS(renameat2),
    SCMP_SYS(rmdir),    SCMP_SYS(socket),    SCMP_SYS(symlink), SCMP_SYS(symlinkat), SCMP_SYS(unlink),
    SCMP_SYS(unlinkat), SCMP_SYS(utimensat),
};

constexpr unsigned refuse = SCMP_ACT_ERRNO(EACCES);

/// Rules are added until one cannot be; then none of them counts.
class Filter {
 public:
  Filter() : context_(seccomp_init(SCMP_ACT_KILL_PROCESS), seccomp_release) {
    failed_ = !context_ || seccomp_attr_set(context_.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS) != 0;
  }

  template <class... Conditions>
  void add(unsigned action, int call, Conditions... conditions) {
    failed_ = failed_ || seccomp_rule_add(context_.get(), action, call, sizeof...(conditions), conditions...) != 0;
  }

  void addAll(unsigned action, std::span<int const> calls) {
    for (int const call : calls) add(action, call);
  }

  /// One action where `bit` is not set in an argument, another where it is.
  void choose(int call, unsigned argument, std::uint64_t bit, unsigned unset, unsigned set) {
    add(unset, call, scmp_arg_cmp{argument, SCMP_CMP_MASKED_EQ, bit, 0});
    add(set, call, scmp_arg_cmp{argument, SCMP_CMP_MASKED_EQ, bit, bit});
  }

  bool load() { return !failed_ && seccomp_load(context_.get()) == 0; }

 private:
  std::unique_ptr<void, void (*)(scmp_filter_ctx)> const context_;
  bool failed_ = false;
};

bool filterCalls(bool withFiles, bool withThreads) {
  unsigned const files = withFiles ? SCMP_ACT_ALLOW : refuse;
  Filter filter;
  filter.addAll(SCMP_ACT_ALLOW, allowed);
  filter.addAll(files, allowedWithFiles);
  filter.addAll(refuse, refused);

  // Opening, for reading alone.
  if (withFiles) {
    constexpr std::uint64_t writing[] = {O_WRONLY, O_RDWR, O_CREAT, O_TRUNC};
    filter.add(SCMP_ACT_ALLOW, SCMP_SYS(openat),
               scmp_arg_cmp{2, SCMP_CMP_MASKED_EQ, O_WRONLY | O_RDWR | O_CREAT | O_TRUNC, 0});
    for (std::uint64_t const bit : writing) {
      filter.add(refuse, SCMP_SYS(openat), scmp_arg_cmp{2, SCMP_CMP_MASKED_EQ, bit, bit});
    }
  } else {
    filter.add(refuse, SCMP_SYS(openat));
  }

  // Not F_SETOWN, which has signals sent to a process of one's choice.
  for (scmp_datum_t const command : {scmp_datum_t{F_GETFD}, scmp_datum_t{F_SETFD}, scmp_datum_t{F_GETFL}}) {
    filter.add(files, SCMP_SYS(fcntl), scmp_arg_cmp{1, SCMP_CMP_EQ, command, 0});
  }

  // No memory that could become code.
  filter.choose(SCMP_SYS(mmap), 2, PROT_EXEC, SCMP_ACT_ALLOW, refuse);
  filter.choose(SCMP_SYS(mprotect), 2, PROT_EXEC, SCMP_ACT_ALLOW, refuse);

  // Threads, no processes. The flags of clone3 lie in memory, where no filter sees them; without it libc uses clone.
  constexpr std::uint64_t thread = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD;
  unsigned const threads = withThreads ? SCMP_ACT_ALLOW : SCMP_ACT_ERRNO(EAGAIN);
  filter.add(threads, SCMP_SYS(clone), scmp_arg_cmp{0, SCMP_CMP_MASKED_EQ, thread, thread});
  filter.add(SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3));

  // Signals to itself, which is how `abort` ends it.
  filter.add(SCMP_ACT_ALLOW, SCMP_SYS(tgkill), scmp_arg_cmp{0, SCMP_CMP_EQ, static_cast<scmp_datum_t>(::getpid()), 0});
  return filter.load();
}

// Files -------------------------------------------------------------------------------------------

/// Every right that this version of Landlock can take away: each version knows more, from bit 0 on.
std::uint64_t rightsOf(long version) {
  constexpr unsigned bits[] = {0, 13, 14, 15, 15, 16};
  constexpr long newest = std::size(bits) - 1;
  return (std::uint64_t{1} << bits[version < newest ? version : newest]) - 1;
}

bool letRead(int rules, char const* folder) {
  int const open = ::open(folder, O_PATH | O_CLOEXEC);
  if (open < 0) return errno == ENOENT;  // there is nothing to read
  landlock_path_beneath_attr const rule{LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR, open};
  bool const added = ::syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
  ::close(open);
  return added;
}

enum class Landlock { absent, armed, failed };

Landlock closeFiles(std::span<char const* const> readable) {
  long const version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 0) return errno == ENOSYS || errno == EOPNOTSUPP ? Landlock::absent : Landlock::failed;
  landlock_ruleset_attr attributes{};
  attributes.handled_access_fs = rightsOf(version);
  int const rules = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
  if (rules < 0) return Landlock::failed;
  bool closed = true;
  for (char const* folder : readable) closed = closed && letRead(rules, folder);
  closed = closed && ::syscall(SYS_landlock_restrict_self, rules, 0) == 0;
  ::close(rules);
  return closed ? Landlock::armed : Landlock::failed;
}

// The process -------------------------------------------------------------------------------------

/// Never raises what the host has set lower, which only root could.
bool limit(decltype(RLIMIT_CPU) resource, rlim_t most) {
  rlimit both{};
  if (::getrlimit(resource, &both) != 0) return false;
  both.rlim_max = std::min(both.rlim_max, most);
  both.rlim_cur = std::min(both.rlim_cur, both.rlim_max);
  return ::setrlimit(resource, &both) == 0;
}

bool limitResources() {
  return limit(RLIMIT_CPU, 3) && limit(RLIMIT_AS, 768u << 20) && limit(RLIMIT_CORE, 0) && limit(RLIMIT_FSIZE, 0) &&
         limit(RLIMIT_MEMLOCK, 0) && limit(RLIMIT_MSGQUEUE, 0);
}

bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct const none[_LINUX_CAPABILITY_U32S_3] = {};
  return ::syscall(SYS_capset, &header, none) == 0;
}

bool hasOneThread() {
  struct stat tasks {};
  return ::stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;  // itself, its parent, and one
}

}  // namespace

bool confine(ConfinementNeeds const& needs) {
  // Landlock holds for the calling thread and those that it starts.
  if (!hasOneThread() || ::close_range(STDERR_FILENO + 1, ~0u, 0) != 0) return false;
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::prctl(PR_SET_DUMPABLE, 0) != 0) return false;
  ::alarm(30);  // its parent may have died before it asked for the signal; far beyond what any parent waits
  if (!limitResources() || !dropCapabilities() || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  Landlock const landlock = closeFiles(needs.readable);
  return landlock != Landlock::failed &&
         filterCalls(landlock == Landlock::armed && !needs.readable.empty(), needs.threads);
}

}  // namespace tolva
