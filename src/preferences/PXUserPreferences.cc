// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "preferences/PXUserPreferences.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "platform/Dispatch.h"

namespace hoist {
namespace {

constexpr std::chrono::seconds kSynchronizationDelay{2};

std::string classOf(const std::optional<Value>& value) {
  return value ? value->className() : std::string();
}

bool isNaN(const Value& value) {
  return value.real() && std::isnan(*value.real());
}

// Two values of one class that need not be written over each other. NaN is equal to nothing, but it
// is the same value.
bool areSame(const std::optional<Value>& a, const std::optional<Value>& b) {
  if (classOf(a) != classOf(b)) return false;
  return a == b || (isNaN(*a) && isNaN(*b));
}

}  // namespace

PXUserPreferences::PXUserPreferences(platform::PreferenceStore& store) : store_(store) {}
PXUserPreferences::~PXUserPreferences() = default;

const Ref<PXUserPreferences>& PXUserPreferences::sharedPreferences() {
  static auto& shared = *new Ref<PXUserPreferences>(init());
  return shared;
}

Ref<PXUserPreferences> PXUserPreferences::init(platform::PreferenceStore& store) {
  return Ref<PXUserPreferences>(new PXUserPreferences(store));
}

std::optional<Value> PXUserPreferences::valueForKey(std::string_view key, std::string_view domain) {
  return store_.copyAppValue(key, domain);
}

std::optional<Value> PXUserPreferences::valueForKey(std::string_view key, std::string_view domain,
                                                    const std::optional<Value>& defaultValue) {
  auto value = valueForKey(key, domain);
  return value ? value : defaultValue;
}

bool PXUserPreferences::setValue(const std::optional<Value>& value, std::string_view key,
                                 std::string_view domain) {
  if (areSame(valueForKey(key, domain), value)) return false;
  store_.setAppValue(key, value, domain);
  domainNeedsSynchronization(domain);
  return true;
}

bool PXUserPreferences::boolForKey(std::string_view key, std::string_view domain,
                                   bool defaultValue) {
  auto value = valueForKey(key, domain);
  return value ? value->boolValue().value_or(defaultValue) : defaultValue;
}

std::int64_t PXUserPreferences::integerForKey(std::string_view key, std::string_view domain,
                                              std::int64_t defaultValue) {
  auto value = valueForKey(key, domain);
  return value ? value->integerValue().value_or(defaultValue) : defaultValue;
}

double PXUserPreferences::doubleForKey(std::string_view key, std::string_view domain,
                                       double defaultValue) {
  auto value = valueForKey(key, domain);
  return value ? value->doubleValue().value_or(defaultValue) : defaultValue;
}

std::int64_t PXUserPreferences::integerForKey(std::string_view key, std::string_view domain,
                                              std::int64_t defaultValue, std::int64_t min,
                                              std::int64_t max) {
  std::int64_t value = integerForKey(key, domain, defaultValue);
  if (value < min) return min;
  return value < max ? value : max;
}

double PXUserPreferences::doubleForKey(std::string_view key, std::string_view domain,
                                       double defaultValue, double min, double max) {
  double value = doubleForKey(key, domain, defaultValue);
  if (value < min) return min;
  return max < value ? max : value;
}

bool PXUserPreferences::setBool(bool value, std::string_view key, std::string_view domain) {
  return setValue(Value(value), key, domain);
}

bool PXUserPreferences::setInteger(std::int64_t value, std::string_view key,
                                   std::string_view domain) {
  return setValue(Value(value), key, domain);
}

bool PXUserPreferences::setDouble(double value, std::string_view key, std::string_view domain) {
  return setValue(Value(value), key, domain);
}

void PXUserPreferences::domainNeedsSynchronization(std::string_view domain) {
  MutexLock lock(syncLock_);
  if (!modifiedDomains_) {
    dispatch::mainQueue().after(kSynchronizationDelay,
                                [self = shared_from_this()] { self->synchronize(); });
    modifiedDomains_.emplace();
  }
  modifiedDomains_->emplace(domain);
}

void PXUserPreferences::synchronize() {
  MutexLock lock(syncLock_);
  auto domains = std::exchange(modifiedDomains_, std::nullopt);
  lock.unlock();
  if (!domains) return;
  for (const std::string& domain : *domains) store_.appSynchronize(domain);
}

}  // namespace hoist
