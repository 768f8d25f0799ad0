// The I/O floor: read the whole file and write it back unchanged.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s input output section key value\n", argv[0]);
    return 2;
  }
  int in = ::open(argv[1], O_RDONLY);
  struct stat st{};
  if (in < 0 || ::fstat(in, &st) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  std::string bytes(static_cast<std::size_t>(st.st_size), '\0');
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::read(in, bytes.data() + done, bytes.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(in);
  bytes.resize(done);
  int out = ::open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (out < 0) {
    std::perror(argv[2]);
    return 1;
  }
  for (std::size_t written = 0; written < bytes.size();) {
    ssize_t n = ::write(out, bytes.data() + written, bytes.size() - written);
    if (n <= 0) {
      std::perror(argv[2]);
      return 1;
    }
    written += static_cast<std::size_t>(n);
  }
  return ::close(out) == 0 ? 0 : 1;
}
