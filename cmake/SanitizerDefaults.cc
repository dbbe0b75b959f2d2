// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The sanitizers' settings, built in: the hoist starts its helpers with an environment of one
// variable, so settings in the environment would not reach them. The first report ends the program,
// with symbols.

#define COMMON_OPTIONS \
  "halt_on_error=1:abort_on_error=0:symbolize=1:external_symbolizer_path=" HOIST_SYMBOLIZER

extern "C" {

const char* __asan_default_options() {
  return COMMON_OPTIONS ":strict_string_checks=1:check_initialization_order=1:strict_init_order=1";
}

const char* __ubsan_default_options() {
  return COMMON_OPTIONS ":print_stacktrace=1";
}

const char* __tsan_default_options() {
  return COMMON_OPTIONS ":second_deadlock_stack=1:history_size=4";
}

// Libraries are built without it, so it sees what they do to their memory but not their own locks:
// GLib's, and the one around the C library's copy of TZ, which every tzset makes anew.
const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so\n"
         "race:tzset_internal\n";
}

}  // extern "C"
