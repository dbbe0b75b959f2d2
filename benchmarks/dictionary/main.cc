// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A dictionary of 1,000 entries as a whole D-Bus message: from the program's own kind of dictionary
// to bytes, and back. On the other side a GVariant, which GDBus makes a message of and back.

#include <benchmark/benchmark.h>
#include <gio/gio.h>

#include <memory>
#include <stdexcept>

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/xpc/Values.h"

namespace {

using namespace hoist;

constexpr int kEntries = 1000;

// Texts, numbers and truths in turn, as parameters have them.
Value valueOf(int index) {
  switch (index % 3) {
    case 0:
      return "value " + std::to_string(index);
    case 1:
      return index;
    default:
      return index % 2 == 0;
  }
}

std::string keyOf(int index) {
  return "key " + std::to_string(index);
}

Dictionary makeDictionary() {
  Dictionary dictionary;
  for (int i = 0; i < kEntries; ++i) dictionary.emplace(keyOf(i), valueOf(i));
  return dictionary;
}

dbus::Bytes encode(const Dictionary& dictionary) {
  dbus::MessageWriter writer(dbus::methodCall("/", "bench.Dictionary", "take", "a{sv}"));
  xpc::writeDictionary(writer, dictionary);
  return writer.finish(1).bytes;
}

void HoistEncode(benchmark::State& state) {
  const Dictionary dictionary = makeDictionary();
  for (auto _ : state) benchmark::DoNotOptimize(encode(dictionary));
}
BENCHMARK(HoistEncode);

void HoistDecode(benchmark::State& state) {
  const dbus::Bytes bytes = encode(makeDictionary());
  for (auto _ : state) {
    dbus::Message message = dbus::Message::parse(bytes);
    dbus::MessageReader reader(message);
    Dictionary dictionary = xpc::readDictionary(reader, propertyListClasses());
    if (dictionary.size() != kEntries) state.SkipWithError("an entry is lost");
  }
}
BENCHMARK(HoistDecode);

using Table = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;
using MessageHandle = std::unique_ptr<GDBusMessage, decltype(&g_object_unref)>;
using Blob = std::unique_ptr<guchar, decltype(&g_free)>;

GVariant* variantOf(int index) {
  switch (index % 3) {
    case 0:
      return g_variant_new_take_string(g_strdup_printf("value %d", index));
    case 1:
      return g_variant_new_int64(index);
    default:
      return g_variant_new_boolean(index % 2 == 0);
  }
}

Table newTable() {
  return {g_hash_table_new_full(g_str_hash, g_str_equal, g_free,
                                reinterpret_cast<GDestroyNotify>(g_variant_unref)),
          g_hash_table_unref};
}

Blob encode(GHashTable* table, gsize& size) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  GHashTableIter entries;
  gpointer key, value;
  g_hash_table_iter_init(&entries, table);
  while (g_hash_table_iter_next(&entries, &key, &value))
    g_variant_builder_add(&builder, "{sv}", key, value);
  MessageHandle message(g_dbus_message_new_method_call(nullptr, "/", "bench.Dictionary", "take"),
                        g_object_unref);
  g_dbus_message_set_body(message.get(), g_variant_new("(a{sv})", &builder));
  g_dbus_message_set_serial(message.get(), 1);
  return {g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr),
          g_free};
}

Table makeTable() {
  Table table = newTable();
  for (int i = 0; i < kEntries; ++i)
    g_hash_table_insert(table.get(), g_strdup(keyOf(i).c_str()), g_variant_ref_sink(variantOf(i)));
  return table;
}

void GVariantEncode(benchmark::State& state) {
  const Table table = makeTable();
  gsize size = 0;
  for (auto _ : state) benchmark::DoNotOptimize(encode(table.get(), size));
}
BENCHMARK(GVariantEncode);

void GVariantDecode(benchmark::State& state) {
  gsize size = 0;
  const Blob blob = encode(makeTable().get(), size);
  for (auto _ : state) {
    MessageHandle message(
        g_dbus_message_new_from_blob(blob.get(), size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr),
        g_object_unref);
    Table table = newTable();
    GVariantIter* entries = nullptr;
    g_variant_get(g_dbus_message_get_body(message.get()), "(a{sv})", &entries);
    gchar* key;
    GVariant* value;
    while (g_variant_iter_next(entries, "{sv}", &key, &value))
      g_hash_table_insert(table.get(), key, value);
    g_variant_iter_free(entries);
    if (g_hash_table_size(table.get()) != kEntries) state.SkipWithError("an entry is lost");
  }
}
BENCHMARK(GVariantDecode);

}  // namespace
