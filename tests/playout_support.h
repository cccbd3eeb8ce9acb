// Random games for the tests: start points with castling, en passant,
// promotions and bare kings, and a playout that shows every position.
#pragma once

#include <iterator>
#include <random>

#include "test_support.h"

inline const char *const START_POINTS[] = {
    START_FEN,
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1",
    "r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1",
    "8/PPP1k3/8/8/8/8/ppp1K3/8 w - - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3",
    "4k3/8/8/8/8/8/8/4K3 w - - 0 1",
    "3k4/8/8/8/8/8/4P3/4K3 b - - 0 1",
};

struct MoveKinds {
    int castles = 0, en_passant = 0, promotions = 0, king_crossings = 0;
};

inline void note_kind(const Position &pos, Move m, MoveKinds &kinds) {
    int from = move_from(m), to = move_to(m);
    int type = pos.board[from] & 7;
    if (type == KING && (m & FLAG_MASK)) kinds.castles++;
    if (type == PAWN && file_of(from) != file_of(to) && pos.board[to] == 0)
        kinds.en_passant++;
    if (type == PAWN && (m & FLAG_MASK)) kinds.promotions++;
    if (type == KING && !(m & FLAG_MASK) && file_of(from) >= 3 &&
        file_of(from) <= 4 && file_of(to) >= 3 && file_of(to) <= 4 &&
        file_of(from) != file_of(to))
        kinds.king_crossings++;
}

// Random playouts from the start points: `visit` sees every position.
template <class Visit>
MoveKinds play_out(u32 seed, int games, int plies, Visit visit) {
    std::mt19937 rng(seed);
    MoveKinds kinds;
    for (int g = 0; g < games; g++) {
        Position &pos =
            test_position(START_POINTS[g % std::size(START_POINTS)]);
        visit(pos);
        for (int ply = 0; ply < plies; ply++) {
            Move moves[MAX_MOVES];
            int n = legal_moves(pos, moves);
            if (n == 0 || front_worker->hist_index >= STATE_STACK_SIZE - 2)
                break;
            Move m = moves[rng() % n];
            note_kind(pos, m, kinds);
            make_move(pos, m);
            visit(pos);
        }
    }
    return kinds;
}
