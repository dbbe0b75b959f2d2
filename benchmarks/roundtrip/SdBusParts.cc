// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "roundtrip/SdBusParts.h"

#include <system_error>

namespace hoist::bench {
namespace {

int answer(sd_bus_message* call, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(call, nullptr);
}

const sd_bus_vtable kBarrier[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Call", nullptr, nullptr, answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int check(int result) {
  if (result < 0) throw std::system_error(-result, std::system_category(), "sd-bus");
  return result;
}

Bus newBus() {
  sd_bus* bus = nullptr;
  check(sd_bus_new(&bus));
  return {bus, sd_bus_flush_close_unref};
}

void serveBarrier(sd_bus* bus) {
  check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kBarrier, nullptr));
  // A peer that goes shows as an error of one of the two.
  for (int result = 0; result >= 0;) {
    result = sd_bus_process(bus, nullptr);
    if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
  }
}

void callBarrier(sd_bus* bus, const char* destination) {
  sd_bus_message* reply = nullptr;
  check(sd_bus_call_method(bus, destination, kPath, kInterface, kMethod, nullptr, &reply, nullptr));
  sd_bus_message_unref(reply);
}

}  // namespace hoist::bench
