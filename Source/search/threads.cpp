// The threads of one search: the main search thread, which starts the
// helpers, searches, and joins them; and the helpers, which search the same
// root on their own Workers and meet the others only in the hash table.
#include <pthread.h>
#include <sched.h>

#include <cstdlib>

#include "core/relaxed.h"
#include "search.h"
#include "time_control.h"

void *start_search(void *arg) {
    if (*static_cast<int *>(arg) == 0) {
        if (init_worker(0) != 0) std::exit(-1);
        run_helpers();
    }
    return nullptr;
}

void run_helpers() {
    int threads = settings.threads;
    if (threads > MAX_THREADS) threads = MAX_THREADS;
    // 1. Start the helpers
    int slots[MAX_THREADS];
    pthread_t helpers[MAX_THREADS];
    for (int slot = 1; slot < threads; slot++) {
        slots[slot] = slot;
        if (pthread_create(&helpers[slot], nullptr, helper_main,
                           &slots[slot]) != 0)
            std::exit(-1);
    }
    // 2. The main search
    if (threads > 0 && !load_stop()) search_root(0);
    // 3. Gather the counters once more
    spin_take(info_lock);
    aggregate_counters();
    spin_release(info_lock);
    // 4. The time check may be reading a slot; it does so under the lock.
    for (int slot = 1; slot < threads; slot++) {
        if (pthread_join(helpers[slot], nullptr) != 0) std::exit(-1);
        spin_take(worker_slots_lock);
        Worker *w = worker_at(slot);
        publish_worker(slot, nullptr);
        spin_release(worker_slots_lock);
        free_worker(w);
    }
    // 5. A ponder search waits for the think cycle to take its result.
    while ((load_state() & STATE_PONDERING) &&
           !(load_state() & STATE_STOP_RECEIVED))
        sleep_milliseconds(1);
    add_state_bits(STATE_FINISHED);
}

void *helper_main(void *arg) {
    int slot = *static_cast<int *>(arg);
    // 1. A helper without memory takes no part.
    if (init_worker(slot) != 0) return nullptr;
    // 2. Helpers begin once the main search has finished depth 1.
    while (load_depth() < 2 && !load_stop()) sched_yield();
    // 3. Search, unless stopped or the thread count fell
    if (slot < settings.threads && !load_stop()) search_root(slot);
    return nullptr;
}

void launch_search() {
    static int main_slot = 0;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, start_search, &main_slot) != 0)
        std::exit(-1);
    pthread_attr_destroy(&attributes);
}
