// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "values/Object.h"

namespace hoist {

struct Notification {
  std::string name;
  Ref<Object> object;  // whom it is about; may be null
};

// Tells whoever asked to know that something happened. Safe to use from any thread; observers run
// on the poster's thread, outside of every lock of the center.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;
  // An observer is told as long as somebody holds its handle; one that is being told when the
  // handle goes finishes that call.
  class Observer;

  static NotificationCenter& defaultCenter();

  // Observes one name, from one object (borrowed, compared by identity) or from all (null).
  [[nodiscard]] Ref<Observer> addObserver(std::string name, const Object* object, Handler handler);
  // What an observer throws is reported; the others are told all the same.
  void postNotification(const Notification& notification);

 private:
  Mutex mutex_;
  std::vector<WeakRef<Observer>> observers_ GUARDED_BY(mutex_);
};

}  // namespace hoist
