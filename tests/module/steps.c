// SPDX-License-Identifier: Apache-2.0
#include "tests/module/steps.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum { most_libraries = 8 };

static struct {
  const char* path;
  void* handle;
} libraries[most_libraries];

static int load(const char* path, loaded_library look) {
  void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle == NULL) {
    printf("cannot load: %s\n", dlerror());
    return 1;
  }
  for (int i = 0; i < most_libraries; ++i) {
    if (libraries[i].path != NULL) continue;
    libraries[i].path = path;
    libraries[i].handle = handle;
    printf("loaded\n");
    if (look != NULL) look(handle, path);
    return 0;
  }
  printf("too many libraries\n");
  return 1;
}

static int unload(const char* path) {
  for (int i = 0; i < most_libraries; ++i) {
    if (libraries[i].path == NULL || strcmp(libraries[i].path, path) != 0) continue;
    libraries[i].path = NULL;
    if (dlclose(libraries[i].handle) != 0) return 1;
    printf("unloaded\n");
    return 0;
  }
  printf("not loaded: %s\n", path);
  return 1;
}

static int tell_mapped(const char* path) {
  FILE* maps = fopen("/proc/self/maps", "r");
  if (maps == NULL) return 1;
  char line[4096];
  int mapped = 0;
  while (fgets(line, sizeof line, maps) != NULL) {
    if (strstr(line, path) != NULL) mapped = 1;
  }
  fclose(maps);
  printf(mapped ? "mapped\n" : "not mapped\n");
  return 0;
}

static int fork_child(void) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = 1;
  if (waitpid(child, &status, 0) != child || status != 0) return 1;
  printf("forked\n");
  return 0;
}

int run_steps(int argc, char** argv, loaded_library look) {
  for (int i = 1; i < argc; ++i) {
    const char* path = argv[i] + 1;
    int failed = 1;
    if (argv[i][0] == '+') failed = load(path, look);
    if (argv[i][0] == '-') failed = unload(path);
    if (argv[i][0] == '?') failed = tell_mapped(path);
    if (argv[i][0] == '!') failed = fork_child();
    fflush(stdout);
    if (failed) return 1;
  }
  return 0;
}
