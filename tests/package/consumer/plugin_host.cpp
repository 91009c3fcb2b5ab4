// SPDX-License-Identifier: Apache-2.0

// Loads the plug-in, lets go of it, and loads it again: the library's threads stay at work.
#include <dlfcn.h>

#include <cstdio>

int main(int, char** arguments) {
  for (int round = 0; round < 3; ++round) {
    void* const plugin = dlopen(arguments[1], RTLD_NOW);
    if (!plugin) {
      std::printf("%s\n", dlerror());
      return 1;
    }
    const auto run = reinterpret_cast<int (*)()>(dlsym(plugin, "runPlugin"));
    if (!run || run() != 0) return 2;
    dlclose(plugin);
  }
  return 0;
}
