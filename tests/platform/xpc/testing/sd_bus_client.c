// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A peer-to-peer client made with sd-bus: sd_bus_test_client ADDRESS. Calls the test service with
// texts, descriptors and wrong arguments, says what each call has come to, and ends with 0 if all
// came to what they should.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

static const char* const kTalking = "com.kelvo.Talking";

static int failed(const char* what, int result) {
  printf("%s: %s\n", what, strerror(-result));
  return 0;
}

static int callsWithTexts(sd_bus* bus) {
  sd_bus_message* answer = NULL;
  const char *text = NULL, *first = NULL, *second = NULL;
  const void* data = NULL;
  size_t size = 0;
  int32_t process = 0;
  int result =
      sd_bus_call_method(bus, NULL, "/", kTalking, "echoText_strings_data_processes_reply_", NULL,
                         &answer, "sasayai", "Grüße", 2, "a", "b", 3, 0, 1, 255, 1, -7);
  if (result >= 0) result = sd_bus_message_read(answer, "sas", &text, 2, &first, &second);
  if (result >= 0) result = sd_bus_message_read_array(answer, 'y', &data, &size);
  if (result >= 0) result = sd_bus_message_read(answer, "ai", 1, &process);
  int right = result >= 0 && strcmp(text, "Grüße") == 0 && strcmp(second, "b") == 0 && size == 3 &&
              ((const unsigned char*)data)[2] == 255 && process == -7;
  sd_bus_message_unref(answer);
  return right || failed("texts", result);
}

static int callsWithADescriptor(sd_bus* bus) {
  int ends[2], back = -1;
  char byte = 0;
  sd_bus_message* answer = NULL;
  if (pipe2(ends, O_CLOEXEC) < 0) return 0;
  int result = sd_bus_call_method(bus, NULL, "/", kTalking, "echoText_data_file_object_reply_",
                                  NULL, &answer, "asaayaha(sa{sv})", 0, 0, 1, ends[1], 0);
  if (result >= 0) result = sd_bus_message_skip(answer, "asaay");
  if (result >= 0) result = sd_bus_message_read(answer, "ah", 1, &back);
  int right = result >= 0 && write(back, "x", 1) == 1 && read(ends[0], &byte, 1) == 1;
  sd_bus_message_unref(answer);
  close(ends[0]);
  close(ends[1]);
  return right || failed("descriptor", result);
}

static int isToldWhatWasWrong(sd_bus* bus) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  int result = sd_bus_call_method(bus, NULL, "/", kTalking, "note_", &error, NULL, "u", 1);
  int right = result < 0 && sd_bus_error_has_name(&error, SD_BUS_ERROR_INVALID_ARGS);
  printf("%s\n", error.message ? error.message : "no error");
  sd_bus_error_free(&error);
  return right;
}

static int knowsWhoCalls(sd_bus* bus) {
  sd_bus_message* answer = NULL;
  uint32_t user = 0;
  int32_t process = 0;
  int result =
      sd_bus_call_method(bus, NULL, "/", kTalking, "askWhoCallsWithReply_", NULL, &answer, NULL);
  if (result >= 0) result = sd_bus_message_read(answer, "ui", &user, &process);
  sd_bus_message_unref(answer);
  return (result >= 0 && user == geteuid() && process == getpid()) || failed("who calls", result);
}

int main(int count, char** arguments) {
  sd_bus* bus = NULL;
  if (count != 2 || sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, arguments[1]) < 0 ||
      sd_bus_negotiate_fds(bus, 1) < 0 || sd_bus_start(bus) < 0)
    return 2;
  int right = callsWithTexts(bus) && callsWithADescriptor(bus) && isToldWhatWasWrong(bus) &&
              knowsWhoCalls(bus);
  sd_bus_flush_close_unref(bus);
  return right ? 0 : 1;
}
