// Relaxed<T>: a byte or word that several threads share without a lock.
//
// The service thread, the host-link thread and the status thread exchange
// single bytes and aligned words, each written whole by one side and read by
// the other. Relaxed atomics say exactly that: no ordering is promised, and on
// the board a read and a store each stay one plain instruction.
#pragma once

#include <atomic>

template <class T>
class Relaxed {
 public:
  constexpr Relaxed() noexcept = default;
  constexpr Relaxed(T initial) noexcept : value_(initial) {}
  Relaxed(const Relaxed&) = delete;
  Relaxed& operator=(const Relaxed&) = delete;

  T load() const noexcept { return value_.load(std::memory_order_relaxed); }
  operator T() const noexcept { return load(); }

  // Returns the stored value, so that an assignment can be read on.
  T operator=(T value) noexcept {
    value_.store(value, std::memory_order_relaxed);
    return value;
  }

  // Adds one in a single step, for a counter that several threads move. Returns
  // the new value.
  T increment() noexcept { return value_.fetch_add(1, std::memory_order_relaxed) + 1; }

 private:
  std::atomic<T> value_{};
};
