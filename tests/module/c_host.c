// SPDX-License-Identifier: Apache-2.0
// A program in C that is linked to none of the libraries.
#include "tests/module/steps.h"

int main(int argc, char** argv) {
  return run_steps(argc, argv, 0);
}
