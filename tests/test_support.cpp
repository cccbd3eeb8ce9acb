#include "test_support.h"

#include <string>

void init_engine_for_tests() {
    init_attack_tables();
    init_hash_keys();
    kp_table_build();
    init_eval_params();
    set_default_settings();
    take_settings_snapshot();
    set_default_status();
    if (!front_worker) front_worker = allocate_worker();
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->ply = 1;
    front_worker->position.worker = front_worker;
    reset_move_lists(front_worker);
    set_fen(front_worker->position, START_FEN);
}

Position &test_position(const char *fen) {
    set_fen(front_worker->position, fen);
    return front_worker->position;
}

const char *shared_path(const char *relative) {
    static thread_local std::string path;
    path = std::string(QUILLON_SHARED_DIR) + "/" + relative;
    return path.c_str();
}
