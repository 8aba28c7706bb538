// SPDX-License-Identifier: Apache-2.0
// What the programs of the module test do, told by their arguments; the test reads what they print.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Called with each library that was loaded; null where there is nothing to look at.
typedef void (*loaded_library)(void* handle, const char* path);

// +PATH loads a library, -PATH unloads it, ?PATH tells whether it is mapped, ! forks. Returns 0, or
// 1 at the first step that fails.
int run_steps(int argc, char** argv, loaded_library look);

#ifdef __cplusplus
}
#endif
