// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// GDBus peer to peer. Its connections have a worker thread by themselves.

#include <gio/gio.h>
#include <gio/gunixsocketaddress.h>

#include <memory>
#include <stdexcept>

#include "roundtrip/Contender.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using GObjectRef = std::unique_ptr<T, Unref>;

constexpr const char* kInterface = "bench.Barrier";

[[noreturn]] void fail(GError* error) {
  std::string text = error == nullptr ? "GDBus" : error->message;
  g_clear_error(&error);
  throw std::runtime_error(text);
}

std::string address(const std::string& path) {
  return "unix:path=" + path;
}

void answer(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
            GDBusMethodInvocation* invocation, gpointer) {
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

gboolean exportBarrier(GDBusServer*, GDBusConnection* connection, gpointer interface) {
  static const GDBusInterfaceVTable table = {answer, nullptr, nullptr, {}};
  g_dbus_connection_register_object(connection, "/", static_cast<GDBusInterfaceInfo*>(interface),
                                    &table, nullptr, nullptr, nullptr);
  g_object_ref(connection);
  return TRUE;
}

void serve(const std::string& path) {
  GError* error = nullptr;
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(
      "<node><interface name='bench.Barrier'><method name='Call'/></interface></node>", &error);
  if (node == nullptr) fail(error);
  gchar* guid = g_dbus_generate_guid();
  const GObjectRef<GDBusServer> server(g_dbus_server_new_sync(
      address(path).c_str(), G_DBUS_SERVER_FLAGS_NONE, guid, nullptr, nullptr, &error));
  g_free(guid);
  if (!server) fail(error);
  g_signal_connect(server.get(), "new-connection", G_CALLBACK(exportBarrier), node->interfaces[0]);
  g_dbus_server_start(server.get());
  PeerProcess::sayReady();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

class GDBusCaller : public Caller {
 public:
  explicit GDBusCaller(const std::string& path) {
    GError* error = nullptr;
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address(path).c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr,
        &error));
    if (!connection_) fail(error);
  }
  void call() override {
    GError* error = nullptr;
    GVariant* result =
        g_dbus_connection_call_sync(connection_.get(), nullptr, "/", kInterface, "Call", nullptr,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (result == nullptr) fail(error);
    g_variant_unref(result);
  }

 private:
  GObjectRef<GDBusConnection> connection_;
};

}  // namespace

Contender gdbus() {
  return {"GDBus", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<GDBusCaller>(path);
          }};
}

}  // namespace hoist::bench
