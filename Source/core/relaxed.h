// Plain fields that one thread writes while others read them without a
// lock: each access is a relaxed atomic one, so a reader may see an old
// value for a moment but never a torn one, and the program has no data
// race.  On x86-64 these are ordinary loads and stores.
#pragma once

#include <atomic>

template <class T>
inline T relaxed_load(const T &field) {
    return std::atomic_ref<T>(const_cast<T &>(field))
        .load(std::memory_order_relaxed);
}

template <class T, class V>
inline void relaxed_store(T &field, V value) {
    std::atomic_ref<T>(field).store(static_cast<T>(value),
                                    std::memory_order_relaxed);
}

// One writer, any readers: a counter the owning thread steps while the
// reporting thread sums it.
template <class T>
inline void relaxed_increment(T &field) {
    relaxed_store(field, relaxed_load(field) + 1);
}
