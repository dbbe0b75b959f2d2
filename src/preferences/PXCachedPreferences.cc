// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "preferences/PXCachedPreferences.h"

namespace hoist {

PXCachedPreferences::PXCachedPreferences(platform::PreferenceStore& store)
    : PXUserPreferences(store) {}

const Ref<PXCachedPreferences>& PXCachedPreferences::sharedPreferences() {
  static auto& shared = *new Ref<PXCachedPreferences>(init());
  return shared;
}

Ref<PXCachedPreferences> PXCachedPreferences::init(platform::PreferenceStore& store) {
  return Ref<PXCachedPreferences>(new PXCachedPreferences(store));
}

void PXCachedPreferences::cacheValuesForKeys(std::span<const std::string> keys,
                                             std::string_view domain) {
  for (const std::string& key : keys) valueForKey(key, domain);
}

std::optional<Value> PXCachedPreferences::valueForKey(std::string_view key,
                                                      std::string_view domain) {
  MutexLock lock(syncLock_);
  Dictionary& known = cache_.try_emplace(std::string(domain)).first->second;
  auto found = known.find(key);
  if (found == known.end()) {
    auto read = PXUserPreferences::valueForKey(key, domain);
    found = known.emplace(key, read.value_or(Value())).first;
  }
  return found->second.isNull() ? std::nullopt : std::optional(found->second);
}

bool PXCachedPreferences::setValue(const std::optional<Value>& value, std::string_view key,
                                   std::string_view domain) {
  MutexLock lock(syncLock_);
  Dictionary& known = cache_.try_emplace(std::string(domain)).first->second;
  known.insert_or_assign(std::string(key), value.value_or(Value()));
  lock.unlock();
  return PXUserPreferences::setValue(value, key, domain);
}

}  // namespace hoist
