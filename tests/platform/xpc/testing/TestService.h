// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "platform/ConditionLock.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/TemporaryFolder.h"
#include "values/Error.h"

// A service to talk to: a protocol with every type that can cross, an object that answers it, and a
// listener in a folder of its own.
namespace hoist::xpc {

class Greeting : public virtual Exportable {
 public:
  virtual void barrierWithCompletion(Reply<> reply) = 0;
  virtual void didGreet() {}
  virtual void willPart(std::string) {}
};
const Protocol& greetingProtocol();

// Without an operation of its own.
class Serving : public virtual Greeting {};
const Protocol& servingProtocol();

class Talking : public virtual Serving {
 public:
  virtual void echoNumbers(
      bool truth, std::int32_t i, std::uint32_t u, std::uint16_t q, std::int64_t x, std::uint64_t t,
      double d,
      Reply<bool, std::int32_t, std::uint32_t, std::uint16_t, std::int64_t, std::uint64_t, double>
          reply) = 0;
  virtual void echoText(
      std::string text, std::vector<std::string> strings, Data data,
      std::vector<std::int32_t> processes,
      Reply<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> reply) = 0;
  virtual void echoDictionary(Dictionary dictionary, Date date, Reply<Dictionary, Date> reply) = 0;
  virtual void echoHandle(FileDescriptor file, Endpoint endpoint,
                          Reply<FileDescriptor, Endpoint> reply) = 0;
  virtual void echoObject(Ref<Error> object, Reply<Ref<Error>> reply) = 0;
  virtual void echoNilable(std::optional<std::string> text, std::optional<Data> data,
                           std::optional<FileDescriptor> file, std::optional<Ref<Error>> object,
                           Reply<std::optional<std::string>, std::optional<Data>,
                                 std::optional<FileDescriptor>, std::optional<Ref<Error>>>
                               reply) = 0;
  // Remembers the text.
  virtual void note(std::string text) = 0;
  virtual void readNotes(Reply<std::vector<std::string>> reply) = 0;
  // Keeps the reply for the test to call.
  virtual void keep(std::string text, Reply<std::string> reply) = 0;
  virtual void fail(std::string text, Reply<std::string> reply) = 0;
  virtual void failQuietly() = 0;
  // Waits until the test opens the gate.
  virtual void wait(Reply<> reply) = 0;
  virtual void makeText(std::uint32_t size, Reply<std::string> reply) = 0;
  virtual void makeDescriptor(Reply<FileDescriptor> reply) = 0;
  // The user and process of the connection that the call came over.
  virtual void askWhoCalls(Reply<std::uint32_t, std::int32_t> reply) = 0;
};
const Protocol& talkingProtocol();

class Talker : public Object, public virtual Talking {
 public:
  std::string className() const override { return "Talker"; }
  bool respondsToSelector(std::string_view selector) const override {
    return selector == "didGreet";
  }

  void barrierWithCompletion(Reply<> reply) override { reply(); }
  void didGreet() override { note("greeted"); }
  void echoNumbers(
      bool truth, std::int32_t i, std::uint32_t u, std::uint16_t q, std::int64_t x, std::uint64_t t,
      double d,
      Reply<bool, std::int32_t, std::uint32_t, std::uint16_t, std::int64_t, std::uint64_t, double>
          reply) override {
    reply(truth, i, u, q, x, t, d);
  }
  void echoText(std::string text, std::vector<std::string> strings, Data data,
                std::vector<std::int32_t> processes,
                Reply<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> reply)
      override {
    reply(text, strings, data, processes);
  }
  void echoDictionary(Dictionary dictionary, Date date, Reply<Dictionary, Date> reply) override {
    reply(dictionary, date);
  }
  void echoHandle(FileDescriptor file, Endpoint endpoint,
                  Reply<FileDescriptor, Endpoint> reply) override {
    reply(std::move(file), endpoint);
  }
  void echoObject(Ref<Error> object, Reply<Ref<Error>> reply) override { reply(object); }
  void echoNilable(std::optional<std::string> text, std::optional<Data> data,
                   std::optional<FileDescriptor> file, std::optional<Ref<Error>> object,
                   Reply<std::optional<std::string>, std::optional<Data>,
                         std::optional<FileDescriptor>, std::optional<Ref<Error>>>
                       reply) override {
    reply(text, data, std::move(file), object);
  }
  void note(std::string text) override;
  void readNotes(Reply<std::vector<std::string>> reply) override { reply(notes()); }
  void keep(std::string text, Reply<std::string> reply) override;
  void fail(std::string text, Reply<std::string> reply) override;
  void failQuietly() override;
  void wait(Reply<> reply) override;
  void makeText(std::uint32_t size, Reply<std::string> reply) override {
    reply(std::string(size, 'x'));
  }
  void makeDescriptor(Reply<FileDescriptor> reply) override { reply(FileDescriptor::duplicate(0)); }
  void askWhoCalls(Reply<std::uint32_t, std::int32_t> reply) override;

  std::vector<std::string> notes() const;
  // Waits until a call of keep: has come.
  Reply<std::string> takeKept();
  std::size_t keptCount() const;
  void openGate();
  // Waits until a call of wait: has come.
  void awaitWaiter();

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> notes_;
  std::deque<Reply<std::string>> kept_;
  int waiters_ = 0;
  bool gateOpen_ = false;
};

// Exports one object to whoever connects.
class TestService : public ListenerDelegate {
 public:
  static constexpr const char* kName = "com.kelvo.test";

  // In a folder of its own.
  explicit TestService(Limits limits = {});
  // In the runtime directory.
  explicit TestService(const std::string& name);
  ~TestService() override;

  bool shouldAcceptNewConnection(Listener& listener, const Ref<Connection>& connection) override;

  // A client that is resumed.
  Ref<Connection> connect();
  Ref<Connection> connectToEndpoint();
  std::string socketPath() const { return socketPathForServiceName(kName); }
  std::string address() const { return "unix:path=" + socketPath(); }

  const Ref<Listener>& listener() const { return listener_; }
  const Ref<Talker>& talker() const { return talker_; }
  std::size_t accepted() const { return accepted_; }
  // The connection that was accepted last; waits for it.
  Ref<Connection> lastAccepted();
  void setRefuses(bool refuses) { refuses_ = refuses; }
  // Applied to the interfaces of later connections, on both sides.
  void setCustomise(std::function<void(Interface&)> customise);

 private:
  void start(const std::string& name, Limits limits);
  Ref<Interface> makeInterface();

  std::unique_ptr<TemporaryFolder> folder_;
  Ref<Talker> talker_ = make<Talker>();
  Ref<ListenerDelegate> self_;  // for the listener's weak reference
  Ref<Listener> listener_;
  std::atomic<bool> refuses_ = false;
  std::atomic<std::size_t> accepted_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  Ref<Connection> last_;
  std::function<void(Interface&)> customise_;
};

// What came of one message: waits for the values of the reply, or the error.
template <class... Values>
class Outcome {
 public:
  auto reply() {
    return [state = state_](Values... values) {
      state->values.set_value(Result{std::tuple<Values...>(std::move(values)...), nullptr});
      ++state->calls;
    };
  }
  ErrorHandler errorHandler() {
    return [state = state_](const Ref<Error>& error) {
      state->values.set_value(Result{std::nullopt, error});
      ++state->calls;
    };
  }

  // Each may be asked again. values() throws when there was an error.
  std::tuple<Values...>& values() {
    if (error()) throw std::runtime_error(error()->description());
    return *result().values;
  }
  Ref<Error> error() { return result().error; }
  bool isThere() const {
    return state_->future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

 private:
  struct Result {
    std::optional<std::tuple<Values...>> values;
    Ref<Error> error;
  };
  struct State {
    std::promise<Result> values;
    std::shared_future<Result> future = values.get_future().share();
    std::atomic<int> calls = 0;
  };
  Result& result() { return const_cast<Result&>(state_->future.get()); }
  Ref<State> state_ = std::make_shared<State>();
};

// Sends a message; its outcome takes the reply and the error.
template <auto Function, class... Values, class... Arguments>
void ask(const Ref<Connection>& connection, Outcome<Values...>& outcome, Arguments&&... arguments) {
  connection->remoteObjectProxyWithErrorHandler(outcome.errorHandler())
      ->template send<Function>(std::forward<Arguments>(arguments)..., outcome.reply());
}

// Waits until the condition holds, which something under way makes true; answers whether it does
// after the given time at most.
bool eventually(const std::function<bool()>& condition,
                std::chrono::seconds patience = std::chrono::seconds(60));

// What this process holds.
std::size_t countDescriptors();
std::size_t countThreads();
std::size_t residentBytes();

}  // namespace hoist::xpc
