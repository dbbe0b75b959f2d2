// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/Mutex.h"
#include "platform/PreferenceStore.h"
#include "values/Ref.h"
#include "values/Value.h"

namespace hoist {

// Settings by key and domain: typed reads with defaults, writes of real changes only, and one
// synchronisation on the main queue for all that is written within two seconds. Values are property
// lists. Safe from any thread; the synchronisation needs a running main run loop.
class PXUserPreferences : public std::enable_shared_from_this<PXUserPreferences> {
 public:
  static const Ref<PXUserPreferences>& sharedPreferences();
  // The store is borrowed. It outlives every synchronisation, for which the instance is kept.
  static Ref<PXUserPreferences> init(
      platform::PreferenceStore& store = platform::PreferenceStore::shared());
  virtual ~PXUserPreferences();
  PXUserPreferences(const PXUserPreferences&) = delete;
  PXUserPreferences& operator=(const PXUserPreferences&) = delete;

  // valueForKey:inDomain:, valueForKey:inDomain:withDefault:
  virtual std::optional<Value> valueForKey(std::string_view key, std::string_view domain);
  std::optional<Value> valueForKey(std::string_view key, std::string_view domain,
                                   const std::optional<Value>& defaultValue);
  // setValue:forKey:inDomain: no value removes the key. Answers whether something was written,
  // which is not the case for a value of the same class that is equal to the present one. Raises
  // hoist::Exception kInvalidArgumentException as PreferenceStore does.
  virtual bool setValue(const std::optional<Value>& value, std::string_view key,
                        std::string_view domain);

  // boolForKey:inDomain:withDefault: and the like. The default is also the answer for a value that
  // is neither a number nor a string.
  bool boolForKey(std::string_view key, std::string_view domain, bool defaultValue = false);
  std::int64_t integerForKey(std::string_view key, std::string_view domain,
                             std::int64_t defaultValue = 0);
  double doubleForKey(std::string_view key, std::string_view domain, double defaultValue = 0.0);
  // integerForKey:inDomain:withDefault:clampedToMin:max: the default is clamped too. A minimum
  // above the maximum wins only over what is below it.
  std::int64_t integerForKey(std::string_view key, std::string_view domain,
                             std::int64_t defaultValue, std::int64_t min, std::int64_t max);
  // The same; NaN is no number to clamp and passes through.
  double doubleForKey(std::string_view key, std::string_view domain, double defaultValue,
                      double min, double max);

  bool setBool(bool value, std::string_view key, std::string_view domain);
  bool setInteger(std::int64_t value, std::string_view key, std::string_view domain);
  bool setDouble(double value, std::string_view key, std::string_view domain);

  // Records the domain for the next synchronisation, and schedules that if none is pending.
  void domainNeedsSynchronization(std::string_view domain);
  // Synchronises every recorded domain now.
  void synchronize();

 protected:
  explicit PXUserPreferences(platform::PreferenceStore& store);

  Mutex syncLock_;

 private:
  platform::PreferenceStore& store_;
  // None when no synchronisation is pending.
  std::optional<std::set<std::string>> modifiedDomains_ GUARDED_BY(syncLock_);
};

}  // namespace hoist
