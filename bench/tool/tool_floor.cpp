// The floor under `corvane set` on a small file: a process that reads the
// file and replaces it with its bytes the way the tool does (a temporary
// file in the same folder, renamed over it), with the file and its folder
// flushed to disk ("durable") or not ("plain"). No INI work at all.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[2], "durable") != 0 && std::strcmp(argv[2], "plain") != 0)) {
    std::fprintf(stderr, "usage: %s FILE durable|plain\n", argv[0]);
    return 2;
  }
  const bool durable = std::strcmp(argv[2], "durable") == 0;
  const std::string path = argv[1], temp = path + ".floor-tmp";
  std::string bytes;
  char buffer[65536];
  const int in = ::open(path.c_str(), O_RDONLY);
  if (in < 0) return 1;
  for (ssize_t n; (n = ::read(in, buffer, sizeof buffer)) > 0;) bytes.append(buffer, static_cast<std::size_t>(n));
  ::close(in);
  const int out = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (out < 0 || ::write(out, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) return 1;
  if (durable && ::fsync(out) != 0) return 1;
  ::close(out);
  if (::rename(temp.c_str(), path.c_str()) != 0) return 1;
  if (durable) {
    const std::size_t slash = path.rfind('/');
    const int dir = ::open(slash == std::string::npos ? "." : path.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY);
    if (dir < 0 || ::fsync(dir) != 0) return 1;
    ::close(dir);
  }
  return 0;
}
