// Round trip through GLib's GKeyFile, keeping comments and blank lines; with
// "load" as a sixth argument the file is only loaded.
#include <glib.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 6 && argc != 7) {
    std::fprintf(stderr, "usage: %s input output section key value\n", argv[0]);
    return 2;
  }
  GKeyFile* file = g_key_file_new();
  GError* error = nullptr;
  if (!g_key_file_load_from_file(file, argv[1], G_KEY_FILE_KEEP_COMMENTS, &error)) {
    std::fprintf(stderr, "%s\n", error->message);
    return 1;
  }
  if (argc == 7) {
    g_key_file_free(file);
    return 0;
  }
  g_key_file_set_value(file, argv[3], argv[4], argv[5]);
  gsize length = 0;
  gchar* data = g_key_file_to_data(file, &length, nullptr);
  // A plain write, like the other programs (g_file_set_contents would add a
  // rename and possibly an fsync).
  std::FILE* out = std::fopen(argv[2], "wb");
  bool ok = out && std::fwrite(data, 1, length, out) == length;
  if (out && std::fclose(out) != 0) ok = false;
  g_free(data);
  g_key_file_free(file);
  if (!ok) std::perror(argv[2]);
  return ok ? 0 : 1;
}
