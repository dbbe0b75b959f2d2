// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "preferences/PXUserPreferences.h"

namespace hoist {

// Preferences that are read from the store once: what other processes change later is not seen.
// Writing changes the cache of this instance only and answers false, because what is to be written
// is already found there; this is so on purpose. Safe from any thread.
class PXCachedPreferences : public PXUserPreferences {
 public:
  // Another instance than that of PXUserPreferences.
  static const Ref<PXCachedPreferences>& sharedPreferences();
  static Ref<PXCachedPreferences> init(
      platform::PreferenceStore& store = platform::PreferenceStore::shared());

  // cacheValuesForKeys:inDomain:
  void cacheValuesForKeys(std::span<const std::string> keys, std::string_view domain);

  using PXUserPreferences::valueForKey;
  std::optional<Value> valueForKey(std::string_view key, std::string_view domain) override;
  bool setValue(const std::optional<Value>& value, std::string_view key,
                std::string_view domain) override;

 private:
  explicit PXCachedPreferences(platform::PreferenceStore& store);

  // By domain and key; the null marker for a key that is known to have no value.
  std::map<std::string, Dictionary, std::less<>> cache_ GUARDED_BY(syncLock_);
};

}  // namespace hoist
