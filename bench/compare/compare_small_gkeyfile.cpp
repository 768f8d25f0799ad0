// The small-file round trip through GKeyFile, in process, for comparison
// with compare_small_corvane (same arguments and output).
#include <glib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s file section key iterations\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  const std::string text = bytes.str();
  const long iterations = std::atol(argv[4]);
  std::size_t total = 0;
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < iterations; ++i) {
    GKeyFile* file = g_key_file_new();
    if (!g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_KEEP_COMMENTS, nullptr)) return 1;
    g_key_file_set_value(file, argv[2], argv[3], "edited");
    gsize length = 0;
    gchar* data = g_key_file_to_data(file, &length, nullptr);
    total += length;
    g_free(data);
    g_key_file_free(file);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%.9f %zu\n", seconds / static_cast<double>(iterations), total);
  return 0;
}
