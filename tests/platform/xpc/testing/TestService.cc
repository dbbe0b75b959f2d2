// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/testing/TestService.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "platform/xpc/ServiceSocket.h"

namespace hoist::xpc {

const Protocol& greetingProtocol() {
  static const auto& protocol =
      *new Protocol(Protocol("Greeting")
                        .method<&Greeting::barrierWithCompletion>("barrierWithCompletion:")
                        .optionalMethod<&Greeting::didGreet>("didGreet")
                        .optionalMethod<&Greeting::willPart>("willPart:", {"word"}));
  return protocol;
}

const Protocol& servingProtocol() {
  static const auto& protocol = *new Protocol(Protocol("Serving").adopts(greetingProtocol()));
  return protocol;
}

const Protocol& talkingProtocol() {
  static const auto& protocol = *new Protocol(
      Protocol("Talking")
          .adopts(servingProtocol())
          .method<&Talking::echoNumbers>(
              "echoBool:i:u:q:x:t:d:reply:", {"truth", "i", "u", "q", "x", "t", "d"},
              {"truth", "i", "u", "q", "x", "t", "d"})
          .method<&Talking::echoText>(
              "echoText:strings:data:processes:reply:", {"text", "strings", "data", "processes"},
              {"text", "strings", "data", "processes"})
          .method<&Talking::echoDictionary>("echoDictionary:date:reply:", {"dictionary", "date"},
                                            {"dictionary", "date"})
          .method<&Talking::echoHandle>("echoHandle:endpoint:reply:", {"file", "endpoint"},
                                        {"file", "endpoint"})
          .method<&Talking::echoObject>("echoObject:reply:", {{"object", "NSError"}},
                                        {{"object", "NSError"}})
          .method<&Talking::echoNilable>(
              "echoText:data:file:object:reply:", {"text", "data", "file", {"object", "NSError"}},
              {"text", "data", "file", {"object", "NSError"}})
          .method<&Talking::note>("note:", {"text"})
          .method<&Talking::readNotes>("readNotesWithReply:", {}, {"notes"})
          .method<&Talking::keep>("keep:reply:", {"text"}, {"text"})
          .method<&Talking::fail>("fail:reply:", {"text"}, {"text"})
          .method<&Talking::failQuietly>("failQuietly")
          .method<&Talking::wait>("waitWithReply:")
          .method<&Talking::makeText>("makeTextOfSize:reply:", {"size"}, {"text"})
          .method<&Talking::makeDescriptor>("makeDescriptorWithReply:", {}, {"descriptor"})
          .method<&Talking::askWhoCalls>("askWhoCallsWithReply:", {}, {"user", "process"}));
  return protocol;
}

void Talker::note(std::string text) {
  std::lock_guard lock(mutex_);
  notes_.push_back(std::move(text));
  changed_.notify_all();
}

std::vector<std::string> Talker::notes() const {
  std::lock_guard lock(mutex_);
  return notes_;
}

void Talker::keep(std::string, Reply<std::string> reply) {
  std::lock_guard lock(mutex_);
  kept_.push_back(std::move(reply));
  changed_.notify_all();
}

Reply<std::string> Talker::takeKept() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !kept_.empty(); });
  auto reply = std::move(kept_.front());
  kept_.pop_front();
  return reply;
}

std::size_t Talker::keptCount() const {
  std::lock_guard lock(mutex_);
  return kept_.size();
}

void Talker::fail(std::string text, Reply<std::string>) {
  throw std::runtime_error(text);
}

void Talker::failQuietly() {
  throw std::runtime_error("quietly");
}

void Talker::wait(Reply<> reply) {
  std::unique_lock lock(mutex_);
  ++waiters_;
  changed_.notify_all();
  changed_.wait(lock, [this] { return gateOpen_; });
  lock.unlock();
  reply();
}

void Talker::openGate() {
  std::lock_guard lock(mutex_);
  gateOpen_ = true;
  changed_.notify_all();
}

void Talker::awaitWaiter() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return waiters_ > 0; });
}

void Talker::askWhoCalls(Reply<std::uint32_t, std::int32_t> reply) {
  auto connection = Connection::currentConnection();
  reply(connection->effectiveUserIdentifier(), connection->processIdentifier());
}

TestService::TestService(Limits limits) : folder_(std::make_unique<TemporaryFolder>()) {
  setRuntimeDirectory(folder_->path());
  // Other users connect in some tests.
  std::filesystem::permissions(folder_->path(), std::filesystem::perms(0755));
  start(kName, limits);
}

TestService::TestService(const std::string& name) {
  start(name, {});
}

void TestService::start(const std::string& name, Limits limits) {
  // For the listener's weak reference: nothing is freed through it.
  self_ = Ref<ListenerDelegate>(this, [](auto*) {});
  Error::registerClass();
  listener_ = Listener::initWithMachServiceName(name, limits);
  listener_->setDelegate(self_);
  listener_->resume();
}

TestService::~TestService() {
  talker_->openGate();
  listener_->invalidate();
  // The listener's thread may be asking just now.
  WeakRef<ListenerDelegate> gone = self_;
  self_.reset();
  eventually([&] { return gone.expired(); });
}

bool TestService::shouldAcceptNewConnection(Listener&, const Ref<Connection>& connection) {
  if (refuses_) return false;
  connection->setExportedInterface(makeInterface());
  connection->setExportedObject(talker_);
  connection->setRemoteObjectInterface(makeInterface());
  // Before it is resumed, and with the lock: once its first call has come, it has been counted and
  // is the one that was accepted last.
  ++accepted_;
  std::lock_guard lock(mutex_);
  connection->resume();
  last_ = connection;
  changed_.notify_all();
  return true;
}

Ref<Interface> TestService::makeInterface() {
  auto interface = Interface::interfaceWithProtocol(talkingProtocol());
  std::lock_guard lock(mutex_);
  if (customise_) customise_(*interface);
  return interface;
}

void TestService::setCustomise(std::function<void(Interface&)> customise) {
  std::lock_guard lock(mutex_);
  customise_ = std::move(customise);
}

Ref<Connection> TestService::lastAccepted() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return last_ != nullptr; });
  return std::exchange(last_, nullptr);
}

Ref<Connection> TestService::connect() {
  auto connection = Connection::initWithMachServiceName(kName);
  connection->setRemoteObjectInterface(makeInterface());
  connection->resume();
  return connection;
}

Ref<Connection> TestService::connectToEndpoint() {
  auto connection = Connection::initWithListenerEndpoint(listener_->endpoint());
  connection->setRemoteObjectInterface(makeInterface());
  connection->resume();
  return connection;
}

bool eventually(const std::function<bool()>& condition, std::chrono::seconds patience) {
  auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

namespace {

std::size_t countEntries(const char* folder) {
  std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::size_t countDescriptors() {
  return countEntries("/proc/self/fd");
}

std::size_t countThreads() {
  return countEntries("/proc/self/task");
}

std::size_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0, resident = 0;
  file >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace hoist::xpc
