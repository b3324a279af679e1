// The one instance of a class the process has one of (the logs, the
// settings store, the managers), made on first use, safely from any thread.
#pragma once

#include <memory>
#include <mutex>

namespace dravix::base {

// Makes the instance with `make` the first time and keeps it in `slot`,
// which owns it until the program ends; later calls return it. One call
// site per class: the call site's lambda type gives each its own flag. The
// constructor must not ask for its own instance again.
template <typename T, typename Make>
T* SingleInstance(std::unique_ptr<T>& slot, Make make) {
  static std::once_flag once;
  std::call_once(once, [&] { slot.reset(make()); });
  return slot.get();
}

// The same for a class with no slot of its own: the instance lives in a
// static made on first use, so it is destroyed before the statics made
// earlier.
template <typename T, typename Make>
T* SingleInstance(Make make) {
  static const std::unique_ptr<T> instance(make());
  return instance.get();
}

}  // namespace dravix::base
