// SPDX-License-Identifier: MIT
// Lock-free code under the model checker Relacy: the test includes the source with std::atomic replaced by
// ModelAtomic, and the checker tries the schedules of its threads, and the values that each load may return.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <new>
#include <ostream>
#include <streambuf>
#include <string>
#include <type_traits>

// Not relacy.hpp, which replaces the C library by macros.
#include <relacy/atomic.hpp>
#include <relacy/atomic_fence.hpp>
#include <relacy/base.hpp>
#include <relacy/context.hpp>
#include <relacy/context_base_impl.hpp>
#include <relacy/dyn_thread.hpp>
#include <relacy/stdlib/condition_variable.hpp>
#include <relacy/stdlib/event.hpp>
#include <relacy/stdlib/mutex.hpp>
#include <relacy/stdlib/semaphore.hpp>
#include <relacy/test_suite.hpp>
#include <relacy/thread_local.hpp>
#include <relacy/var.hpp>

namespace devsupport::test {

/// The words of one run of a model, which begins and ends with them. (No heap: the checker has one of its own.)
class ModelWords {
 public:
  using Word = rl::atomic<std::uint64_t>;

  void Begin() { count_ = 0; }  // those of a run that failed are lost
  Word *Make() { return ::new (room_[count_++]) Word; }
  void End() {
    while (count_ > 0) reinterpret_cast<Word *>(room_[--count_])->~Word();
  }

 private:
  alignas(Word) unsigned char room_[64][sizeof(Word)];
  std::size_t count_ = 0;
};
inline ModelWords g_modelWords;

/// How often a thread of the model has exchanged a word.
inline int g_exchanges[8];

/// An atomic word of the model, used as std::atomic is. One that is constant-initialised begins each run with Begin().
template <typename T>
class ModelAtomic {
 public:
  static constexpr bool is_always_lock_free = true;

  constexpr ModelAtomic(T value = {}) : initial_(value) {
    if (!std::is_constant_evaluated()) Begin();
  }
  void Begin() {
    word_ = g_modelWords.Make();
    store(initial_, std::memory_order_seq_cst);
  }

  T load(std::memory_order order = std::memory_order_seq_cst) const { return Value(word_->load(Order(order), $)); }
  void store(T value, std::memory_order order = std::memory_order_seq_cst) {
    word_->store(Bits(value), Order(order), $);
  }
  T exchange(T value, std::memory_order order = std::memory_order_seq_cst) {
    ++g_exchanges[rl::thread_index()];
    return Value(word_->exchange(Bits(value), Order(order), $));
  }
  bool compare_exchange_weak(T &expected, T value) {
    return Swapped(expected, [&](std::uint64_t &bits) {
      return word_->compare_exchange_weak(bits, Bits(value), rl::mo_seq_cst, $);
    });
  }
  bool compare_exchange_strong(T &expected, T value, std::memory_order order = std::memory_order_seq_cst,
                               std::memory_order /*failure*/ = std::memory_order_seq_cst) {
    return Swapped(expected, [&](std::uint64_t &bits) {
      return word_->compare_exchange_strong(bits, Bits(value), Order(order), $);
    });
  }
  operator T() const { return load(); }
  T operator=(T value) {
    store(value);
    return value;
  }

 private:
  template <typename Swap>
  static bool Swapped(T &expected, const Swap &swap) {
    std::uint64_t bits = Bits(expected);
    const bool done = swap(bits);
    expected = Value(bits);
    return done;
  }
  static std::uint64_t Bits(T value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return bits;
  }
  static T Value(std::uint64_t bits) {
    T value{};
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  static rl::memory_order Order(std::memory_order order) {
    switch (order) {
      case std::memory_order_relaxed:
        return rl::mo_relaxed;
      case std::memory_order_acquire:
        return rl::mo_acquire;
      case std::memory_order_release:
        return rl::mo_release;
      case std::memory_order_acq_rel:
        return rl::mo_acq_rel;
      default:
        return rl::mo_seq_cst;
    }
  }

  T initial_;
  ModelWords::Word *word_ = nullptr;
};

/// The checker's output; it has no heap while it runs.
class ModelReport : private std::streambuf, public std::ostream {
 public:
  ModelReport() : std::ostream(this) { setp(text_, text_ + sizeof text_); }
  std::string Text() const { return {pbase(), pptr()}; }

 private:
  char text_[1 << 16];
};

/// Tries the schedules of a model: all those with at most so many preemptions.
/// The model has before(), thread(i) and after(), which the checker wants to be called so.
template <typename Model>
void ExpectNoWrongSchedule(unsigned stops) {
  static ModelReport report;
  rl::test_params params;
  params.output_stream = params.progress_stream = &report;
  params.search_type = rl::sched_bound;
  params.context_bound = stops;
  params.iteration_count = 1'000'000'000;  // it ends after the last schedule
  EXPECT_TRUE(rl::simulate<Model>(params)) << report.Text();
  std::cout << params.stop_iteration << " schedules\n";
}

}  // namespace devsupport::test

namespace std {
using devsupport::test::ModelAtomic;
}  // namespace std
