// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the protocol itself costs in a round trip: encoding and decoding, no system call.
#include <benchmark/benchmark.h>

#include <cstring>

#include "platform/dbus/FrameReader.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/dbus/Sasl.h"

namespace {

using namespace hoist::dbus;

Header barrier() {
  return methodCall("/", "com.kelvo.KLComponentMessaging", "barrierWithCompletion_");
}

Header launch() {
  return methodCall("/", "com.kelvo.TesselHoisting",
                    "launchPrivilegedHelper_commandName_flags_reply_", "ssas");
}

OutgoingMessage encodeLaunch() {
  MessageWriter writer(launch());
  writer.appendString("/home/user/Applications/KelvoHelper.app");
  writer.appendString("capture");
  writer.openArray();
  writer.appendString("verbose");
  writer.appendString("dry-run");
  writer.close();
  return writer.finish();
}

// Puts the bytes into the reader as one read would and takes the message out.
Message passThrough(FrameReader& reader, const Bytes& bytes) {
  auto space = reader.space();
  std::memcpy(space.data(), bytes.data(), bytes.size());
  reader.received(bytes.size());
  return std::move(*reader.next());
}

void EncodeEmptyCall(benchmark::State& state) {
  for (auto _ : state) {
    MessageWriter writer(barrier());
    benchmark::DoNotOptimize(writer.finish(7));
  }
}
BENCHMARK(EncodeEmptyCall);

void DecodeEmptyCall(benchmark::State& state) {
  FrameReader reader;
  const Bytes bytes = MessageWriter(barrier()).finish().bytes;
  for (auto _ : state) benchmark::DoNotOptimize(passThrough(reader, bytes));
}
BENCHMARK(DecodeEmptyCall);

// All four steps of an empty call's round trip.
void EmptyRoundTrip(benchmark::State& state) {
  FrameReader server;
  FrameReader client;
  for (auto _ : state) {
    MessageWriter caller(barrier());
    Message call = passThrough(server, caller.finish(7).bytes);
    MessageWriter answerer(methodReturn(call));
    benchmark::DoNotOptimize(passThrough(client, answerer.finish(9).bytes));
  }
}
BENCHMARK(EmptyRoundTrip);

void EncodeLaunch(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(encodeLaunch());
}
BENCHMARK(EncodeLaunch);

void DecodeAndReadLaunch(benchmark::State& state) {
  FrameReader reader;
  const Bytes bytes = encodeLaunch().bytes;
  for (auto _ : state) {
    Message message = passThrough(reader, bytes);
    MessageReader values(message);
    benchmark::DoNotOptimize(values.readString());
    benchmark::DoNotOptimize(values.readString());
    values.enterArray();
    while (values.hasMore()) benchmark::DoNotOptimize(values.readString());
    values.leave();
    values.finish();
  }
}
BENCHMARK(DecodeAndReadLaunch);

void DecodeOneMegabyteOfBytes(benchmark::State& state) {
  MessageWriter writer(methodCall("/", "a.b", "M", "ay"));
  writer.appendBytes(Bytes(1'000'000));
  const Bytes bytes = writer.finish().bytes;
  for (auto _ : state) {
    Message message = Message::parse(bytes);
    MessageReader reader(message);
    benchmark::DoNotOptimize(reader.readBytes());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(DecodeOneMegabyteOfBytes);

void Authentication(benchmark::State& state) {
  const std::string guid(32, 'a');
  for (auto _ : state) {
    SaslClient client;
    SaslServer server(1000, guid);
    SaslStep answer = server.receive(client.exchange());
    benchmark::DoNotOptimize(client.receive(answer.reply));
  }
}
BENCHMARK(Authentication);

}  // namespace
