// Runs a command and prints "<wall seconds> <peak RSS in KiB> <exit status>"
// of that child alone (wait4's resource usage). The child's stdout is
// discarded; its stderr passes through.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s command [args...]\n", argv[0]);
    return 2;
  }
  auto start = std::chrono::steady_clock::now();
  pid_t child = ::fork();
  if (child < 0) {
    std::perror("fork");
    return 2;
  }
  if (child == 0) {
    int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) ::dup2(null, STDOUT_FILENO);
    ::execvp(argv[1], argv + 1);
    std::perror(argv[1]);
    ::_exit(127);
  }
  int status = 0;
  rusage usage{};
  if (::wait4(child, &status, 0, &usage) < 0) {
    std::perror("wait4");
    return 2;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  std::printf("%.4f %ld %d\n", seconds, usage.ru_maxrss, code);
  return 0;
}
