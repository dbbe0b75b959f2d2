// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A peer-to-peer service made with sd-bus that answers three operations of the test protocol to one
// client: sd_bus_test_service SOCKET.
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

static int answer(sd_bus_message* call, void* data, sd_bus_error* error) {
  sd_bus_message* reply = NULL;
  (void)data;
  (void)error;
  int result = sd_bus_message_new_method_return(call, &reply);
  if (result >= 0) result = sd_bus_message_copy(reply, call, 1);
  if (result >= 0) result = sd_bus_send(NULL, reply, NULL);
  sd_bus_message_unref(reply);
  return result < 0 ? result : 1;
}

static const sd_bus_vtable kGreeting[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("barrierWithCompletion_", "", "", answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};
static const sd_bus_vtable kTalking[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("echoText_strings_data_processes_reply_", "sasayai", "sasayai", answer,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("echoHandle_endpoint_reply_", "hh", "hh", answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

int main(int count, char** arguments) {
  if (count != 2) return 2;
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  strncpy(address.sun_path, arguments[1], sizeof address.sun_path - 1);
  int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(listener, (struct sockaddr*)&address, sizeof address) < 0 || listen(listener, 1) < 0)
    return 1;
  puts("ready");
  fflush(stdout);
  int client = accept4(listener, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
  sd_id128_t identifier;
  sd_bus* bus = NULL;
  if (client < 0 || sd_id128_randomize(&identifier) < 0 || sd_bus_new(&bus) < 0 ||
      sd_bus_set_fd(bus, client, client) < 0 || sd_bus_set_server(bus, 1, identifier) < 0 ||
      sd_bus_negotiate_fds(bus, 1) < 0 ||
      sd_bus_add_object_vtable(bus, NULL, "/", "com.kelvo.Greeting", kGreeting, NULL) < 0 ||
      sd_bus_add_object_vtable(bus, NULL, "/", "com.kelvo.Talking", kTalking, NULL) < 0 ||
      sd_bus_start(bus) < 0)
    return 1;
  for (;;) {
    int result = sd_bus_process(bus, NULL);
    if (result < 0) return 0;
    if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return 0;
  }
}
