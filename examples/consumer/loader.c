/* Loads the consumer built as a plugin with dlopen, after the program has
   started, and runs it: the libraries' thread-local data must find room then. */
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s plugin\n", argv[0]);
    return 2;
  }
  void* plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!plugin) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  int (*run)(void) = (int (*)(void))dlsym(plugin, "corvane_consumer_main");
  if (!run) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  return run();
}
