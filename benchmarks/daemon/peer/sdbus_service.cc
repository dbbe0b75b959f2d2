// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A minimal sd-bus service: takes the passed socket, serves each connection on the one event loop,
// answers the version.

#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cstdint>

namespace {

int answerVersion(sd_bus_message* call, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(call, "s", "Hoisting-2.2.5.12");
}

const sd_bus_vtable kService[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("queryComponentVersionWithReply_", nullptr, "s", answerVersion,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int acceptConnection(sd_event_source* source, int fd, std::uint32_t, void*) {
  const int connection = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (connection < 0) return 0;
  sd_bus* bus = nullptr;
  sd_id128_t id;
  sd_id128_randomize(&id);
  // Kept for as long as the process lives; the peers of the benchmark are few.
  if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, connection, connection) < 0 ||
      sd_bus_set_server(bus, 1, id) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, "/", "com.kelvo.KLComponentInstalling", kService,
                               nullptr) < 0 ||
      sd_bus_start(bus) < 0) {
    return 0;
  }
  return sd_bus_attach_event(bus, sd_event_source_get_event(source), 0);
}

}  // namespace

int main() {
  sd_event* loop = nullptr;
  if (sd_listen_fds(1) != 1 || sd_event_new(&loop) < 0) return 1;
  sd_event_add_io(loop, nullptr, SD_LISTEN_FDS_START, EPOLLIN, acceptConnection, nullptr);
  sd_notify(0, "READY=1");
  return sd_event_loop(loop);
}
