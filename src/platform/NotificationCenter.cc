// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NotificationCenter.h"

#include "platform/Trouble.h"

namespace hoist {

class NotificationCenter::Observer {
 public:
  Observer(std::string name, const Object* object, Handler handler)
      : handler_(std::move(handler)), name_(std::move(name)), object_(object) {}

  bool wants(const Notification& notification) const {
    return name_ == notification.name && (!object_ || object_ == notification.object.get());
  }
  void tell(const Notification& notification) const {
    platform::contain("a notification's observer", [&] { handler_(notification); });
  }

 private:
  const Handler handler_;
  const std::string name_;
  const Object* const object_;
};

NotificationCenter& NotificationCenter::defaultCenter() {
  static auto& center = *new NotificationCenter;
  return center;
}

Ref<NotificationCenter::Observer> NotificationCenter::addObserver(std::string name,
                                                                  const Object* object,
                                                                  Handler handler) {
  auto observer = make<Observer>(std::move(name), object, std::move(handler));
  MutexLock lock(mutex_);
  std::erase_if(observers_, [](const auto& old) { return old.expired(); });
  observers_.push_back(observer);
  return observer;
}

void NotificationCenter::postNotification(const Notification& notification) {
  std::vector<Ref<Observer>> observers;
  {
    MutexLock lock(mutex_);
    for (const auto& weak : observers_) {
      if (auto observer = weak.lock()) observers.push_back(std::move(observer));
    }
  }
  for (const auto& observer : observers) {
    if (observer->wants(notification)) observer->tell(notification);
  }
}

}  // namespace hoist
