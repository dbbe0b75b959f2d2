// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// A library that a target loads while it runs.
extern "C" [[gnu::noinline]] unsigned garnish(unsigned plate) {
  for (int i = 0; i < 1000; ++i) plate = plate * 1664525u + 1013904223u;
  return plate;
}

extern "C" void serve() {
  for (unsigned plate = 1;;) {
    plate = garnish(plate);
    asm volatile("" : "+r"(plate));
  }
}
