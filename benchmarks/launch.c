// SPDX-License-Identifier: Apache-2.0
// Runs a program and tells what it cost: `launch OUTPUT PROGRAM [ARGUMENT...]` sends the program's output to the file
// OUTPUT and prints its nanoseconds from start to end, its peak memory in KiB and its exit status.
//
// A small program of its own does this because a child's peak as the kernel counts it begins with the memory of the
// process that started it: started from a script, every small program would seem as large as the interpreter.
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

extern char** environ;

int main(int argc, char** argv) {
  if (argc < 3) {
    fputs("usage: launch OUTPUT PROGRAM [ARGUMENT...]\n", stderr);
    return 2;
  }
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, argv[1], O_WRONLY | O_CREAT | O_TRUNC, 0644);

  struct timespec began, ended;
  struct rusage used;
  pid_t child;
  int status = 0;
  clock_gettime(CLOCK_MONOTONIC, &began);
  int const failed = posix_spawn(&child, argv[2], &files, 0, argv + 2, environ);
  if (failed) {
    fprintf(stderr, "launch: %s: %s\n", argv[2], strerror(failed));
    return 1;
  }
  wait4(child, &status, 0, &used);
  clock_gettime(CLOCK_MONOTONIC, &ended);

  printf("%lld %ld %d\n", (ended.tv_sec - began.tv_sec) * 1000000000LL + (ended.tv_nsec - began.tv_nsec),
         used.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}
