// What is made at its first use and stays for good, without the guard of a local static.
//
// The language's runtime makes some of the calls that are taken over while it holds the lock that
// such a guard takes: the first of them on a thread's start or end would wait for itself.
#pragma once

#include <atomic>

namespace test_host {

template <typename Value>
class MadeOnce {
 public:
  Value& operator()() {
    Value* made = value_.load(std::memory_order_acquire);
    if (made) return *made;
    auto* const fresh = new Value;
    if (value_.compare_exchange_strong(made, fresh, std::memory_order_acq_rel)) return *fresh;
    delete fresh;
    return *made;
  }

 private:
  std::atomic<Value*> value_ = nullptr;
};

}  // namespace test_host
