// A spin lock on one word: an exchange with 0 takes it, a non-zero value
// means free.  Waiters spin on plain (relaxed) reads.
#pragma once

#include <atomic>
#include <cstdint>

struct SpinLock {
    std::atomic<int32_t> word{1};
};

inline void spin_init(SpinLock &lock) {
    lock.word.store(1, std::memory_order_relaxed);
}

inline void spin_take(SpinLock &lock) {
    while (lock.word.exchange(0, std::memory_order_acquire) == 0)
        while (lock.word.load(std::memory_order_relaxed) == 0) {
        }
}

inline void spin_release(SpinLock &lock) {
    lock.word.store(1, std::memory_order_release);
}

// Guards the standard library's rand(), which the search threads and the
// net's noise share.
extern SpinLock random_lock;
