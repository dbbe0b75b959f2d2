// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PreferenceStore.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "platform/Exception.h"
#include "platform/PreferenceFile.h"
#include "platform/PropertyList.h"
#include "platform/PropertyListCheck.h"
#include "platform/SystemCall.h"
#include "platform/Trouble.h"

// Changes stay in memory beside what the files say until they are synchronised, each with a number:
// a synchronisation works on a copy, without the lock, and afterwards drops only the changes that
// nobody has changed again meanwhile.

namespace hoist::platform {

class PreferenceDomain {
 public:
  struct Change {
    std::optional<Value> value;
    std::uint64_t number;
  };

  PreferenceDomain(std::string userFile, std::string machineFile)
      : user(std::move(userFile)), machine(std::move(machineFile)) {}

  // Held by the synchronisation that is under way; taken before the store's own.
  Mutex writing;

  // Guarded by the store's mutex.
  PreferenceFile user;
  PreferenceFile machine;
  std::map<std::string, Change, std::less<>> changes;
  std::uint64_t lastNumber = 0;
  bool failureReported = false;
};

namespace {

constexpr const char* kMachineFolder = "/etc/xdg";
constexpr std::string_view kEnding = ".plist";
constexpr std::size_t kLongestDomain = 200;  // leaves room for what is put around it in names

std::optional<std::string> homeOfUser(uid_t user) {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(1024);
  int error;
  while ((error = getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (error != 0 || !found || !found->pw_dir || found->pw_dir[0] != '/') return std::nullopt;
  return found->pw_dir;
}

bool isFileName(std::string_view domain) {
  return !domain.empty() && domain.size() <= kLongestDomain && domain != "." && domain != ".." &&
         domain.find('/') == std::string_view::npos && domain.find('\0') == std::string_view::npos;
}

[[noreturn]] void refuse(const std::string& why) {
  Exception(Exception::kInvalidArgumentException, why).raise();
}

bool isPropertyList(const Value& value, unsigned depth) {
  if (depth > kMaximumPropertyListDepth) return false;
  if (const Array* array = value.array()) {
    for (const Value& element : *array) {
      if (!isPropertyList(element, depth + 1)) return false;
    }
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    for (const auto& entry : *dictionary) {
      if (!isPropertyList(entry.second, depth + 1)) return false;
    }
  }
  return !value.isNull() && !value.object();
}

std::optional<Value> valueIn(const Dictionary& entries, std::string_view key) {
  auto found = entries.find(key);
  return found == entries.end() ? std::nullopt : std::optional(found->second);
}

using Changes = std::map<std::string, PreferenceDomain::Change, std::less<>>;

// The entries with the changes in them.
Dictionary merged(Dictionary entries, const Changes& changes) {
  for (const auto& [key, change] : changes) {
    if (change.value) {
      entries.insert_or_assign(key, *change.value);
    } else {
      entries.erase(key);
    }
  }
  return entries;
}

// Makes the folder and those above it that are missing, for the user alone.
void makeFolder(const std::filesystem::path& folder) {
  if (std::filesystem::is_directory(folder)) return;
  if (folder.has_relative_path()) makeFolder(folder.parent_path());
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throwSystemCallError("mkdir", folder.native());
  }
}

// Makes the file say what the changes say. Throws what the calls throw.
void write(PreferenceFile& file, const Changes& changes) {
  makeFolder(std::filesystem::path(file.path()).parent_path());
  PreferenceFileLock lock(file.path());
  file.reload();
  if (file.state() == PreferenceFile::State::Unreadable) {
    throw PropertyListError("what is there cannot be read");
  }
  Dictionary entries = merged(file.entries(), changes);
  if (entries != file.entries()) file.replace(entries);
}

void report(const std::optional<std::string>& message) {
  if (message) reportTrouble(Severity::Caution, *message);
}

}  // namespace

PreferenceStore::PreferenceStore() = default;
PreferenceStore::PreferenceStore(Folders folders) : fixed_(std::move(folders)) {}
PreferenceStore::~PreferenceStore() = default;

PreferenceStore& PreferenceStore::shared() {
  static auto& store = *new PreferenceStore;
  return store;
}

std::optional<std::string> PreferenceStore::userFolder() {
  const char* configured = secure_getenv("XDG_CONFIG_HOME");
  if (configured && configured[0] == '/') return configured;
  if (user_ != geteuid() || !home_) {
    user_ = geteuid();
    home_ = homeOfUser(*user_);
  }
  return home_ ? std::optional(*home_ + "/.config") : std::nullopt;
}

PreferenceStore::Folders PreferenceStore::folders() {
  return fixed_ ? *fixed_ : Folders{userFolder(), kMachineFolder};
}

PreferenceDomain& PreferenceStore::domain(std::string_view name) {
  Folders where = folders();
  std::string file = "/" + std::string(name).append(kEnding);
  std::string userFile = where.user ? *where.user + file : std::string();
  auto [found, isNew] = domains_.try_emplace(userFile.empty() ? file : userFile);
  if (isNew) found->second = std::make_unique<PreferenceDomain>(userFile, where.machine + file);
  return *found->second;
}

std::optional<Value> PreferenceStore::copyAppValue(std::string_view key, std::string_view name) {
  if (!isFileName(name)) return std::nullopt;
  MutexLock lock(mutex_);
  PreferenceDomain& domain = this->domain(name);
  auto change = domain.changes.find(key);
  if (change != domain.changes.end() && change->second.value) return change->second.value;
  std::optional<Value> value;
  if (change == domain.changes.end() && !domain.user.path().empty()) {
    domain.user.refresh();
    value = valueIn(domain.user.entries(), key);
  }
  if (!value) {
    domain.machine.refresh();
    value = valueIn(domain.machine.entries(), key);
  }
  auto userReport = domain.user.takeReport();
  auto machineReport = domain.machine.takeReport();
  lock.unlock();
  report(userReport);
  report(machineReport);
  return value;
}

void PreferenceStore::setAppValue(std::string_view key, std::optional<Value> value,
                                  std::string_view name) {
  if (!isFileName(name)) refuse("no domain of preferences: " + std::string(name));
  if (value && !isPropertyList(*value, 0)) refuse("no property list: " + value->className());
  MutexLock lock(mutex_);
  PreferenceDomain& domain = this->domain(name);
  domain.changes.insert_or_assign(std::string(key),
                                  PreferenceDomain::Change{std::move(value), ++domain.lastNumber});
}

bool PreferenceStore::appSynchronize(std::string_view name) {
  if (!isFileName(name)) return false;
  MutexLock lock(mutex_);
  PreferenceDomain& domain = this->domain(name);
  // One at a time: a slower synchronisation would put its older changes over newer ones.
  lock.unlock();
  MutexLock writing(domain.writing);
  lock.lock();
  if (domain.changes.empty()) return true;
  Changes changes = domain.changes;
  PreferenceFile file = domain.user;
  lock.unlock();

  std::optional<std::string> failure;
  try {
    if (file.path().empty()) throw PropertyListError("the user has no home");
    write(file, changes);
  } catch (const std::exception& error) {
    failure = "the preferences of " + std::string(name) + " could not be written: " + error.what();
  }

  lock.lock();
  auto fileReport = file.takeReport();
  domain.user = std::move(file);
  bool tell = failure && !std::exchange(domain.failureReported, failure.has_value());
  if (!failure) {
    domain.failureReported = false;
    for (const auto& [key, change] : changes) {
      auto found = domain.changes.find(key);
      if (found != domain.changes.end() && found->second.number == change.number) {
        domain.changes.erase(found);
      }
    }
  }
  lock.unlock();
  report(fileReport);
  if (tell) report(failure);
  return !failure;
}

}  // namespace hoist::platform
