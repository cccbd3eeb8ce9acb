// Making and unmaking moves, the hash keys and the castling set-up: every
// incremental field is compared with a from-scratch recount, and every
// unmake must give back the board record byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

Move parse(const char *text) { return coord_move(text); }

Move castle(const char *from, const char *to, bool is_short) {
    return make_move_code(sq_of(from), sq_of(to),
                          is_short ? FLAG_SHORT : FLAG_LONG);
}

// The pseudo-legal list in the order of generate_all, written to a local
// buffer so that deep playouts do not depend on the per-ply records.
std::vector<MoveEntry> pseudo_legal(const Position &pos) {
    MoveEntry buffer[1024];
    MoveEntry *end = generate_captures(pos, pos.side, buffer, NO_SQUARE);
    end = generate_promotions(pos, pos.side, 1, end);
    end = generate_seventh_pushes(pos, pos.side, end);
    end = generate_quiets(pos, pos.side, end, NO_SQUARE);
    return std::vector<MoveEntry>(buffer, end);
}

bool is_castling(const Position &pos, Move m) {
    return (m & FLAG_MASK) && piece_type(pos.board[move_from(m)]) == KING;
}

// Everything make_move keeps incrementally, recounted from the board.
// Returns an empty text when all agrees, else what does not.
std::string recount_errors(const Position &pos) {
    std::string err;
    if (pos.board[64] != 0) err += "board[64] not empty; ";
    u64 boards[2][8] = {};
    u32 sig[2] = {};
    int points[2] = {};
    int kings[2] = {}, king_at[2] = {NO_SQUARE, NO_SQUARE};
    for (int s = 0; s < 64; s++) {
        int code = pos.board[s];
        if (!code) continue;
        int c = piece_colour(code), t = piece_type(code);
        if (t < PAWN || t > KING || code > 14) {
            err += "bad code on " + std::to_string(s) + "; ";
            continue;
        }
        boards[c][0] |= bit(s);
        boards[c][t] |= bit(s);
        sig[c] += MATERIAL_SIG_STEP[t];
        points[c] += PIECE_POINTS[t];
        if (t == KING) kings[c]++, king_at[c] = s;
    }
    for (int c = 0; c < 2; c++) {
        for (int t = 0; t < 8; t++)
            if (pos.bitboards[c][t] != boards[c][t])
                err += "bitboards[" + std::to_string(c) + "][" +
                       std::to_string(t) + "]; ";
        if (pos.material_sig[c] != sig[c]) err += "material_sig; ";
        if (pos.piece_points[c] != points[c]) err += "piece_points; ";
        if (kings[c] == 1 && pos.king_sq[c] != king_at[c]) err += "king_sq; ";
    }
    Position copy = pos;
    compute_keys(copy);
    if (copy.key != pos.key) err += "key; ";
    if (copy.pawn_key != pos.pawn_key) err += "pawn_key; ";
    if (((pos.key >> 32) & 1) != pos.side) err += "side bit; ";
    for (int i = 0; i < 4; i++)
        if (((pos.castle_rights >> i) & 1) &&
            (pos.touched & pos.castle_mask[i]))
            err += "right kept after its king or rook moved; ";
    if (pos.ep_sq != NO_SQUARE &&
        rank_of(pos.ep_sq) != (pos.side == WHITE ? 5 : 2))
        err += "ep square on a wrong rank; ";
    return err;
}

struct Snapshot {
    unsigned char bytes[sizeof(Position)];
    i16 hist_index, ply;
    u16 last_move;
};

Snapshot snap(const Position &pos) {
    Snapshot s;
    std::memcpy(s.bytes, &pos, sizeof pos);
    s.hist_index = pos.history->hist_index;
    s.ply = pos.history->ply;
    s.last_move = pos.history->last_move;
    return s;
}

::testing::AssertionResult same_as(const Position &pos, const Snapshot &s) {
    if (std::memcmp(s.bytes, &pos, sizeof pos) != 0) {
        Position before;
        std::memcpy(&before, s.bytes, sizeof before);
        std::string diff;
        for (int i = 0; i < 65; i++)
            if (before.board[i] != pos.board[i]) diff += "board ";
        if (before.key != pos.key) diff += "key ";
        if (before.pawn_key != pos.pawn_key) diff += "pawn_key ";
        if (before.touched != pos.touched) diff += "touched ";
        if (before.castle_rights != pos.castle_rights) diff += "rights ";
        if (before.ep_sq != pos.ep_sq) diff += "ep ";
        if (before.cnt50 != pos.cnt50) diff += "cnt50 ";
        if (before.side != pos.side) diff += "side ";
        if (std::memcmp(before.king_sq, pos.king_sq, 2)) diff += "king_sq ";
        if (std::memcmp(before.bitboards, pos.bitboards, sizeof pos.bitboards))
            diff += "bitboards ";
        if (std::memcmp(before.material_sig, pos.material_sig, 8) ||
            std::memcmp(before.piece_points, pos.piece_points, 4))
            diff += "material ";
        return ::testing::AssertionFailure() << "position differs: " << diff;
    }
    const Worker *w = worker_of(pos);
    if (w->hist_index != s.hist_index || w->ply != s.ply ||
        w->last_move != s.last_move)
        return ::testing::AssertionFailure() << "worker counters differ";
    return ::testing::AssertionSuccess();
}

// The king's walk of a castling move, from its square to its destination,
// with no square attacked: the whole of the castling legality rule.
bool castling_walk_safe(const Position &pos, Move m) {
    int from = move_from(m), to = move_to(m), them = pos.side ^ 1;
    int step = to > from ? 1 : -1;
    for (int s = from;; s += step) {
        if (square_attacked(pos, s, them)) return false;
        if (s == to) return true;
    }
}

// Makes one move and checks what make_move promises; unmakes it and
// checks the record is back.  Returns whether the mover's king is attacked
// after the move.
bool check_make_unmake(Position &pos, Move m) {
    Worker *w = worker_of(pos);
    Snapshot before = snap(pos);
    Position old;
    std::memcpy(&old, &pos, sizeof pos);
    int us = pos.side, from = move_from(m), to = move_to(m);
    int moved = pos.board[from];
    bool castling = is_castling(pos, m);
    bool ep_capture = piece_type(moved) == PAWN && to == pos.ep_sq;

    make_move(pos, m);
    std::string err = recount_errors(pos);
    EXPECT_EQ(err, "") << "after " << std::hex << m;
    EXPECT_EQ(w->hist_index, before.hist_index + 1);
    EXPECT_EQ(w->ply, before.ply + 1);
    EXPECT_EQ(pos.side, us ^ 1);
    const StateRecord &r = w->states[before.hist_index];
    EXPECT_EQ(r.move, m);
    EXPECT_EQ(w->last_move, m);
    EXPECT_EQ(r.key, old.key);
    EXPECT_EQ(r.pawn_key, old.pawn_key);
    EXPECT_EQ(r.ep_sq, old.ep_sq);
    EXPECT_EQ(r.cnt50, old.cnt50);
    EXPECT_EQ(r.castle_rights, old.castle_rights);
    EXPECT_EQ(r.touched, old.touched);
    EXPECT_EQ(r.captured_type, castling ? 0 : old.board[to] & 7);
    EXPECT_EQ(pos.touched, old.touched | bit(from) | bit(to));
    bool resets =
        castling || old.board[to] || ep_capture || piece_type(moved) == PAWN;
    // The counter is a byte; long shuffling games run it past 255.
    EXPECT_EQ(pos.cnt50, resets ? 0 : static_cast<u8>(old.cnt50 + 1));
    bool double_push =
        piece_type(moved) == PAWN && to == from + 2 * PAWN_DIRECTION[us];
    EXPECT_EQ(pos.ep_sq, double_push ? from + PAWN_DIRECTION[us] : NO_SQUARE);
    if (castling) {
        bool is_short = (m & FLAG_MASK) == FLAG_SHORT;
        EXPECT_EQ(pos.board[to], make_piece(KING, us));
        EXPECT_EQ(pos.board[is_short ? to - 1 : to + 1], make_piece(ROOK, us));
    }
    bool attacked = pos.king_sq[us] != NO_SQUARE &&
                    square_attacked(pos, pos.king_sq[us], us ^ 1);

    unmake_move(pos);
    EXPECT_TRUE(same_as(pos, before)) << "unmake of " << std::hex << m;
    return attacked;
}

void check_null_move(Position &pos) {
    Worker *w = worker_of(pos);
    Snapshot before = snap(pos);
    Position old = pos;
    make_null_move(pos);
    EXPECT_EQ(recount_errors(pos), "");
    EXPECT_EQ(pos.side, old.side ^ 1);
    EXPECT_EQ(pos.ep_sq, NO_SQUARE);
    EXPECT_EQ(pos.cnt50, old.cnt50);
    EXPECT_EQ(pos.pawn_key, old.pawn_key);
    EXPECT_EQ(pos.castle_rights, old.castle_rights);
    EXPECT_EQ(w->last_move, 0);
    EXPECT_EQ(w->hist_index, before.hist_index + 1);
    EXPECT_EQ(w->ply, before.ply + 1);
    EXPECT_EQ(w->states[before.hist_index].move, 0);
    unmake_null_move(pos);
    EXPECT_TRUE(same_as(pos, before)) << "null move";
}

// ---------------------------------------------------------------- keys

// The multiply-with-carry recipe of the key table, written out again.
std::vector<u64> recipe_keys() {
    u32 z = 1, w = 1;
    auto step = [&](u32 &hi_z, u32 &hi_w) {
        z = 36969 * (z & 0xFFFF) + (z >> 16);
        w = 18000 * (w & 0xFFFF) + (w >> 16);
        hi_z = z;
        hi_w = w;
    };
    auto bits = [](u64 x) {
        int n = 0;
        for (; x; x >>= 1) n += x & 1;
        return n;
    };
    std::vector<u64> keys;
    while (keys.size() < 1024) {
        u32 z1, w1, z2, w2;
        step(z1, w1);
        step(z2, w2);
        u64 high = static_cast<u32>((z1 << 16) + w1);
        u64 low = static_cast<u32>((z2 << 16) + w2);
        u64 key = (high << 32) | low;
        if (bits(key) >= 24) keys.push_back(key);
    }
    return keys;
}

TEST(HashKeys, WholeTableFollowsTheRecipe) {
    std::vector<u64> keys = recipe_keys();
    for (int i = 0; i < 1024; i++) ASSERT_EQ(hash_keys[i], keys[i]) << i;
    // The first keys spelt out.  The very first candidate,
    // 0x906946505e60d900, has only 23 bits set and is drawn again.
    EXPECT_EQ(hash_keys[0], 0xe708e34f294dde49ULL);
    EXPECT_EQ(hash_keys[1], 0x6338ab3e8b29b46dULL);
    EXPECT_EQ(hash_keys[2], 0xa09f5f186c0f790eULL);
    EXPECT_EQ(hash_keys[3], 0x8bbfc27e12245c9fULL);
}

TEST(HashKeys, NoTwoKeysTooClose) {
    // The start-up check reports "bad hashcode" for a pair differing in
    // fewer than 6 bits; the default table has none.
    int closest = 64;
    for (int i = 0; i < 1024; i++) {
        EXPECT_GE(count_bits(hash_keys[i]), 24) << i;
        for (int j = 0; j < i; j++) {
            int d = count_bits(hash_keys[i] ^ hash_keys[j]);
            if (d < closest) closest = d;
        }
    }
    EXPECT_GE(closest, 6);
}

TEST(HashKeys, ComputeKeysFormula) {
    // Castling state 0 still enters the key: an empty board's key is the
    // entry of rights 0, with bit 32 for the side.
    Position &empty = test_position("8/8/8/8/8/8/8/8 w - - 0 1");
    EXPECT_EQ(empty.key, hash_keys[0] & ~SIDE_BIT[1]);
    EXPECT_EQ(empty.pawn_key, 0u);
    Position &empty_b = test_position("8/8/8/8/8/8/8/8 b - - 0 1");
    EXPECT_EQ(empty_b.key, (hash_keys[0] & ~SIDE_BIT[1]) | SIDE_BIT[1]);

    Position &pos = test_position(
        "rnbqkbnr/ppp1pppp/8/8/3pP3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    u64 key = 0, pawn_key = 0;
    for (int s = 0; s < 64; s++) {
        int code = pos.board[s];
        if (!code) continue;
        key ^= hash_keys[code * 64 + s];
        if (piece_type(code) == PAWN) pawn_key ^= hash_keys[code * 64 + s];
    }
    key ^= hash_keys[sq_of("e3")] ^ hash_keys[15];
    key = (key & ~SIDE_BIT[1]) | SIDE_BIT[1];
    EXPECT_EQ(pos.key, key);
    EXPECT_EQ(pos.pawn_key, pawn_key);
}

// ---------------------------------------------------- single moves

TEST(MakeMove, DoublePushSetsEpSquareAndKeyWithoutCapturer) {
    Position &pos = test_position(START_FEN);
    make_move(pos, parse("e2e4"));
    // No black pawn can take on e3, and yet the square is set and keyed.
    EXPECT_EQ(pos.ep_sq, sq_of("e3"));
    EXPECT_EQ(recount_errors(pos), "");
    u64 with_ep = pos.key, pawns = pos.pawn_key;
    Position &no_ep = test_position(
        "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1");
    EXPECT_NE(no_ep.key, with_ep);
    EXPECT_EQ(no_ep.key ^ with_ep, hash_keys[sq_of("e3")]);
    EXPECT_EQ(no_ep.pawn_key, pawns);
    Position &from_fen = test_position(
        "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(from_fen.key, with_ep);
}

TEST(MakeMove, CastlingResetsTheFiftyMoveCounter) {
    Position &pos = test_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    pos.cnt50 = 37;
    make_move(pos, castle("e1", "g1", true));
    // Unlike the usual reading of the rule, castling restarts the count.
    EXPECT_EQ(pos.cnt50, 0);
    unmake_move(pos);
    EXPECT_EQ(pos.cnt50, 37);
    make_move(pos, parse("e1f1"));
    EXPECT_EQ(pos.cnt50, 38);
}

TEST(MakeMove, NullMoveKeepsTheFiftyMoveCounter) {
    Position &pos = test_position(START_FEN);
    Worker *w = worker_of(pos);
    make_move(pos, parse("e2e4"));
    pos.cnt50 = 12;
    u64 pawn_key = pos.pawn_key;
    Snapshot before = snap(pos);
    make_null_move(pos);
    EXPECT_EQ(pos.cnt50, 12);
    EXPECT_EQ(pos.side, WHITE);
    // The en-passant chance is gone after a pass, and so is its key.
    EXPECT_EQ(pos.ep_sq, NO_SQUARE);
    EXPECT_EQ(recount_errors(pos), "");
    EXPECT_EQ(pos.pawn_key, pawn_key);
    EXPECT_EQ(w->last_move, 0);
    EXPECT_EQ(w->hist_index, 2);
    EXPECT_EQ(w->ply, 3);
    unmake_null_move(pos);
    EXPECT_TRUE(same_as(pos, before));
    EXPECT_EQ(w->last_move, parse("e2e4"));
}

TEST(MakeMove, LastMoveFollowsTheStack) {
    Position &pos = test_position(START_FEN);
    Worker *w = worker_of(pos);
    make_move(pos, parse("e2e4"));
    make_move(pos, parse("e7e5"));
    EXPECT_EQ(w->last_move, parse("e7e5"));
    EXPECT_EQ(w->hist_index, 2);
    EXPECT_EQ(w->ply, 3);
    unmake_move(pos);
    EXPECT_EQ(w->last_move, parse("e2e4"));
    unmake_move(pos);
    EXPECT_EQ(w->last_move, 0);
    EXPECT_EQ(w->hist_index, 0);
    EXPECT_EQ(w->ply, 1);
}

TEST(MakeMove, Chess960CastlingWithKingStayingPut) {
    // King g1, rook h1: short castling moves only the rook, to f1.
    Position &pos = test_position("4k3/8/8/8/8/8/8/6KR w H - 0 1");
    Move m = castle("g1", "g1", true);
    bool listed = false;
    for (const MoveEntry &e : pseudo_legal(pos)) listed |= e.move == m;
    ASSERT_TRUE(listed);
    Snapshot before = snap(pos);
    make_move(pos, m);
    EXPECT_EQ(pos.board[sq_of("g1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos.board[sq_of("f1")], make_piece(ROOK, WHITE));
    EXPECT_EQ(pos.board[sq_of("h1")], 0);
    EXPECT_EQ(pos.king_sq[WHITE], sq_of("g1"));
    EXPECT_EQ(pos.castle_rights, 0);
    EXPECT_EQ(recount_errors(pos), "");
    unmake_move(pos);
    EXPECT_TRUE(same_as(pos, before));

    // King c1, rook a1: long castling, the king again stays.
    Position &pos2 = test_position("4k3/8/8/8/8/8/8/R1K5 w A - 0 1");
    Snapshot before2 = snap(pos2);
    make_move(pos2, castle("c1", "c1", false));
    EXPECT_EQ(pos2.board[sq_of("c1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos2.board[sq_of("d1")], make_piece(ROOK, WHITE));
    EXPECT_EQ(pos2.board[sq_of("a1")], 0);
    EXPECT_EQ(recount_errors(pos2), "");
    unmake_move(pos2);
    EXPECT_TRUE(same_as(pos2, before2));
}

TEST(MakeMove, Chess960KingAndRookSwapSquares) {
    // King f1, rook g1: the king lands on the rook's square and the rook on
    // the king's.
    Position &pos = test_position("4k3/8/8/8/8/8/8/5KR1 w G - 0 1");
    EXPECT_FALSE(check_make_unmake(pos, castle("f1", "g1", true)));
    make_move(pos, castle("f1", "g1", true));
    EXPECT_EQ(pos.board[sq_of("g1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos.board[sq_of("f1")], make_piece(ROOK, WHITE));
    // King d1, rook c1: the same on the long side.
    Position &pos2 = test_position("4k3/8/8/8/8/8/8/2RK4 w C - 0 1");
    EXPECT_FALSE(check_make_unmake(pos2, castle("d1", "c1", false)));
    make_move(pos2, castle("d1", "c1", false));
    EXPECT_EQ(pos2.board[sq_of("c1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos2.board[sq_of("d1")], make_piece(ROOK, WHITE));
    // Black, king b8 and rook a8: long castling to c8 and d8.
    Position &pos3 = test_position("rk6/8/8/8/8/8/8/4K3 b a - 0 1");
    EXPECT_FALSE(check_make_unmake(pos3, castle("b8", "c8", false)));
    make_move(pos3, castle("b8", "c8", false));
    EXPECT_EQ(pos3.board[sq_of("c8")], make_piece(KING, BLACK));
    EXPECT_EQ(pos3.board[sq_of("d8")], make_piece(ROOK, BLACK));
    EXPECT_EQ(recount_errors(pos3), "");
}

TEST(MakeMove, CastlingIsStoredWithTheKingsDestination) {
    // Given in the king-takes-rook form, the move is kept as e1g1.
    Position &pos = test_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    Worker *w = worker_of(pos);
    make_move(pos, make_move_code(sq_of("e1"), sq_of("h1"), FLAG_SHORT));
    EXPECT_EQ(w->states[0].move, castle("e1", "g1", true));
    EXPECT_EQ(w->last_move, castle("e1", "g1", true));
    EXPECT_EQ(w->states[0].captured_type, 0);
    EXPECT_EQ(pos.board[sq_of("g1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos.board[sq_of("f1")], make_piece(ROOK, WHITE));
    EXPECT_EQ(recount_errors(pos), "");
    unmake_move(pos);
    // Chess960: king b1 and rook a1, long castling lands on c1.
    Position &p2 = test_position("4k3/8/8/8/8/8/8/RK5R w HA - 0 1");
    make_move(p2, make_move_code(sq_of("b1"), sq_of("a1"), FLAG_LONG));
    EXPECT_EQ(p2.history->states[0].move, castle("b1", "c1", false));
    EXPECT_EQ(p2.board[sq_of("c1")], make_piece(KING, WHITE));
    EXPECT_EQ(p2.board[sq_of("d1")], make_piece(ROOK, WHITE));
    EXPECT_EQ(p2.castle_rights, 0);
    EXPECT_EQ(recount_errors(p2), "");
}

TEST(MakeMove, Promotions) {
    const char *moves[] = {"b7b8q", "b7b8n", "b7b8b", "b7b8r"};
    const int types[] = {QUEEN, KNIGHT, BISHOP, ROOK};
    for (int i = 0; i < 4; i++) {
        Position &pos = test_position("r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1");
        Snapshot before = snap(pos);
        make_move(pos, parse(moves[i]));
        EXPECT_EQ(pos.board[sq_of("b8")], make_piece(types[i], WHITE));
        EXPECT_EQ(pos.material_sig[WHITE], MATERIAL_SIG_STEP[types[i]]);
        EXPECT_EQ(pos.piece_points[WHITE], PIECE_POINTS[types[i]]);
        EXPECT_EQ(pos.pawn_key, 0u);
        EXPECT_EQ(pos.cnt50, 0);
        EXPECT_EQ(recount_errors(pos), "");
        unmake_move(pos);
        EXPECT_TRUE(same_as(pos, before)) << moves[i];
    }
    // Taking the rook while promoting: both sides' counts change.
    Position &pos = test_position("r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1");
    Snapshot before = snap(pos);
    make_move(pos, parse("b7a8n"));
    EXPECT_EQ(pos.board[sq_of("a8")], make_piece(KNIGHT, WHITE));
    EXPECT_EQ(pos.material_sig[BLACK], 0u);
    EXPECT_EQ(pos.piece_points[BLACK], 0);
    EXPECT_EQ(pos.history->states[0].captured_type, ROOK);
    EXPECT_EQ(recount_errors(pos), "");
    unmake_move(pos);
    EXPECT_TRUE(same_as(pos, before));
}

TEST(MakeMove, EnPassant) {
    Position &pos = test_position("4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1");
    Snapshot before = snap(pos);
    make_move(pos, parse("e5d6"));
    EXPECT_EQ(pos.board[sq_of("d5")], 0);
    EXPECT_EQ(pos.board[sq_of("d6")], make_piece(PAWN, WHITE));
    EXPECT_EQ(pos.material_sig[BLACK], 0u);
    // The undo record knows the capture only through the en-passant square.
    EXPECT_EQ(pos.history->states[0].captured_type, 0);
    EXPECT_EQ(recount_errors(pos), "");
    unmake_move(pos);
    EXPECT_TRUE(same_as(pos, before));
}

// ------------------------------------------------------- castling rights

TEST(CastlingRights, StandardMasksAndPaths) {
    Position &pos = test_position(START_FEN);
    EXPECT_EQ(pos.castle_rights, 15);
    const char *rooks[] = {"h1", "a1", "h8", "a8"};
    const char *kings[] = {"e1", "e1", "e8", "e8"};
    const u64 paths[] = {bit(5) | bit(6), bit(1) | bit(2) | bit(3),
                         bit(61) | bit(62), bit(57) | bit(58) | bit(59)};
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(pos.castle_rook[i], sq_of(rooks[i])) << i;
        EXPECT_EQ(pos.castle_mask[i],
                  bit(sq_of(rooks[i])) | bit(sq_of(kings[i])));
        EXPECT_EQ(pos.castle_path[i], paths[i]) << i;
    }
}

TEST(CastlingRights, Chess960MasksAndPaths) {
    Position &pos = test_position("rk5r/8/8/8/8/8/8/RK5R w HAha - 0 1");
    EXPECT_EQ(pos.castle_rights, 15);
    EXPECT_EQ(pos.castle_rook[0], sq_of("h1"));
    EXPECT_EQ(pos.castle_rook[1], sq_of("a1"));
    EXPECT_EQ(pos.castle_mask[0], bit(sq_of("b1")) | bit(sq_of("h1")));
    EXPECT_EQ(pos.castle_mask[1], bit(sq_of("b1")) | bit(sq_of("a1")));
    // Short: the king crosses c1..g1, the rook g1 to f1.  Long: the king
    // goes to c1, the rook passes b1 (the king's own square) to d1.
    EXPECT_EQ(pos.castle_path[0], 0x7CULL);
    EXPECT_EQ(pos.castle_path[1], 0x0CULL);
    EXPECT_EQ(pos.castle_path[2], 0x7CULL << 56);
    EXPECT_EQ(pos.castle_path[3], 0x0CULL << 56);
}

TEST(CastlingRights, TwoRooksOnOneSideGiveNoRight) {
    // Rooks on f1 and h1: which of them would castle is not known, so
    // there is no short castling at all.
    Position &pos = test_position("4k3/8/8/8/8/8/8/4KR1R w K - 0 1");
    EXPECT_EQ(pos.castle_rights, 0);
    EXPECT_EQ(pos.castle_rook[0], NO_SQUARE);
    EXPECT_EQ(pos.castle_mask[0], 0u);
    EXPECT_EQ(pos.castle_path[0], 0u);
    for (const MoveEntry &e : pseudo_legal(pos))
        EXPECT_FALSE(is_castling(pos, e.move));
    // A file letter cannot pick one of the two either.
    Position &p2 = test_position("4k3/8/8/8/8/8/8/4KR1R w H - 0 1");
    EXPECT_EQ(p2.castle_rights, 0);
    // The other side is not affected.
    Position &p3 = test_position("4k3/8/8/8/8/8/8/RR2K2R w KQ - 0 1");
    EXPECT_EQ(p3.castle_rights, 1);
}

TEST(CastlingRights, RequestsThatCannotBeGranted) {
    // King off its first rank, no rook on the requested side.
    EXPECT_EQ(test_position("4k3/8/8/8/8/8/4K3/R6R w KQ - 0 1").castle_rights,
              0);
    EXPECT_EQ(test_position("r6r/4k3/8/8/8/8/8/4K3 w kq - 0 1").castle_rights,
              0);
    EXPECT_EQ(test_position("4k3/8/8/8/8/8/8/4K2R w Q - 0 1").castle_rights, 0);
    // An enemy rook on the king's side is no castling partner.
    EXPECT_EQ(test_position("4k3/8/8/8/8/8/8/4K2r w K - 0 1").castle_rights, 0);
}

TEST(CastlingRights, SetCastlingReadsLettersAndSkipsTheRest) {
    Position &pos = test_position(START_FEN);
    pos.castle_rights = 0;
    set_castling(pos, "K-xq");
    EXPECT_EQ(pos.castle_rights, 1 | 8);
    EXPECT_EQ(pos.castle_rook[1], NO_SQUARE);
    EXPECT_EQ(pos.castle_rook[2], NO_SQUARE);
    EXPECT_EQ(pos.castle_mask[1], 0u);
    // File letters: to the right of the king short, to the left long.
    pos.castle_rights = 0;
    set_castling(pos, "Ha");
    EXPECT_EQ(pos.castle_rights, 1 | 8);
    pos.castle_rights = 0;
    set_castling(pos, "");
    EXPECT_EQ(pos.castle_rights, 0);
}

TEST(CastlingRights, RookThatLeavesAndReturnsHasNoRight) {
    Position &pos = test_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    for (const char *m : {"h1h2", "a8a7", "h2h1", "a7a8"}) {
        make_move(pos, parse(m));
        EXPECT_EQ(recount_errors(pos), "") << m;
    }
    // White keeps the long right, Black the short one.
    EXPECT_EQ(pos.castle_rights, 2 | 4);
    int castles = 0;
    for (const MoveEntry &e : pseudo_legal(pos))
        if (is_castling(pos, e.move)) {
            castles++;
            EXPECT_EQ(e.move, castle("e1", "c1", false));
        }
    EXPECT_EQ(castles, 1);
    // The key is that of the same board with those rights.
    u64 key = pos.key;
    EXPECT_EQ(test_position("r3k2r/8/8/8/8/8/8/R3K2R w Qk - 0 1").key, key);
}

TEST(CastlingRights, CapturedRookRightNeverReturns) {
    Position &pos = test_position("r3k2r/r7/8/8/8/1N6/8/R3K2R w KQkq - 0 1");
    ASSERT_EQ(pos.castle_rights, 15);
    // Ra1xa8, Ra7xa8, then a knight move: a black rook stands on a8 again.
    for (const char *m : {"a1a8", "a7a8", "b3c5"}) make_move(pos, parse(m));
    EXPECT_EQ(pos.board[sq_of("a8")], make_piece(ROOK, BLACK));
    EXPECT_EQ(pos.castle_rights, 1 | 4);
    for (const MoveEntry &e : pseudo_legal(pos))
        if (is_castling(pos, e.move)) {
            EXPECT_EQ(e.move, castle("e8", "g8", true));
        }
    EXPECT_EQ(recount_errors(pos), "");
}

// ------------------------------------------------------------ playouts

std::vector<std::string> epd_fens(const char *file) {
    std::vector<std::string> fens;
    FILE *f = std::fopen(data_path(file), "r");
    if (!f) return fens;
    char line[512];
    while (std::fgets(line, sizeof line, f)) {
        char *cut = std::strchr(line, ';');
        if (cut) {
            *cut = 0;
            fens.push_back(line);
        }
    }
    std::fclose(f);
    return fens;
}

// Start position, the standard suite and every sixteenth Chess960 line.
std::vector<std::string> playout_starts() {
    std::vector<std::string> starts = {START_FEN};
    for (const std::string &f : epd_fens("perft_standard.epd"))
        starts.push_back(f);
    std::vector<std::string> c960 = epd_fens("perft_chess960.epd");
    for (size_t i = 0; i < c960.size(); i += 16) starts.push_back(c960[i]);
    return starts;
}

struct PlayoutStats {
    long moves_checked = 0, castles = 0, promotions = 0, ep_captures = 0,
         nulls = 0, shielded_castles = 0;
};

// One playout: at every ply each pseudo-legal move is tested for the
// legality rule and made and unmade with all checks; then a random legal
// move (or now and then a null move) is played on.  At the end the whole
// line is taken back and the start position must reappear.
void playout(const std::string &fen, std::mt19937 &rng, PlayoutStats &stats) {
    Position &pos = test_position(fen.c_str());
    ASSERT_EQ(recount_errors(pos), "") << fen;
    Snapshot start = snap(pos);
    std::vector<bool> line;  // true for a null move
    for (int ply = 0; ply < 300; ply++) {
        int us = pos.side;
        bool in_check = pos.king_sq[us] != NO_SQUARE &&
                        square_attacked(pos, pos.king_sq[us], us ^ 1);
        std::vector<Move> playable;
        for (const MoveEntry &e : pseudo_legal(pos)) {
            Move m = e.move;
            bool castling = is_castling(pos, m);
            bool walk_safe = castling && castling_walk_safe(pos, m);
            Snapshot before = snap(pos);
            int legal = legal_move(pos, us, m);
            ASSERT_TRUE(same_as(pos, before)) << "legal_move changed " << fen;
            bool attacked = check_make_unmake(pos, m);
            if (::testing::Test::HasFailure()) {
                ADD_FAILURE() << "in playout from " << fen << " at ply " << ply
                              << ", move " << std::hex << m;
                return;
            }
            stats.moves_checked++;
            if (castling) stats.castles++;
            if ((m & FLAG_MASK) && !castling) stats.promotions++;
            if (piece_type(e.moved) == PAWN && move_to(m) == pos.ep_sq)
                stats.ep_captures++;
            if (castling) {
                // Castling is judged along the king's walk only.
                ASSERT_EQ(legal, walk_safe ? 1 : 0) << fen;
                if (legal && attacked) stats.shielded_castles++;
            } else {
                ASSERT_EQ(legal, attacked ? 0 : 1)
                    << fen << " move " << std::hex << m;
            }
            // Play on only in real chess: a castling that the walk allows
            // but that leaves the king attacked is not chosen.
            if (legal && !attacked) playable.push_back(m);
        }
        if (!in_check) check_null_move(pos);
        if (playable.empty()) break;
        if (!in_check && rng() % 20 == 0) {
            make_null_move(pos);
            stats.nulls++;
            line.push_back(true);
            continue;
        }
        make_move(pos, playable[rng() % playable.size()]);
        line.push_back(false);
    }
    while (!line.empty()) {
        if (line.back())
            unmake_null_move(pos);
        else
            unmake_move(pos);
        line.pop_back();
    }
    EXPECT_TRUE(same_as(pos, start)) << "after taking back the line " << fen;
}

TEST(Playouts, IncrementalFieldsAndLegalityAlongRandomGames) {
    std::vector<std::string> starts = playout_starts();
    ASSERT_GT(starts.size(), 150u);
    std::mt19937 rng(20240611);
    PlayoutStats stats;
    for (int i = 0; i < 200; i++) {
        playout(starts[i % starts.size()], rng, stats);
        if (HasFailure()) break;
    }
    // The games must have gone through castlings, promotions and en-passant
    // captures for the test to mean something.
    EXPECT_GT(stats.moves_checked, 500000);
    EXPECT_GT(stats.castles, 200);
    EXPECT_GT(stats.promotions, 1000);
    EXPECT_GT(stats.ep_captures, 10);
    EXPECT_GT(stats.nulls, 1000);
    std::printf(
        "  %ld moves made and unmade (%ld castlings, %ld promotions, %ld en "
        "passant), %ld null moves played, %ld castlings past a shielded "
        "slider\n",
        stats.moves_checked, stats.castles, stats.promotions, stats.ep_captures,
        stats.nulls, stats.shielded_castles);
}

// ------------------------------------------------------------ bad input

// Every board entry a real piece code, every square field on the board or
// 64: nothing a later table lookup could overrun.
::testing::AssertionResult in_range(const Position &pos) {
    for (int s = 0; s < 65; s++) {
        int code = pos.board[s];
        if (code == 7 || code == 8 || code > 14 || (s == 64 && code))
            return ::testing::AssertionFailure()
                   << "code " << code << " on " << s;
    }
    if (pos.king_sq[0] > 64 || pos.king_sq[1] > 64 || pos.ep_sq > 64 ||
        pos.side > 1)
        return ::testing::AssertionFailure() << "square field off the board";
    for (int c = 0; c < 2; c++)
        if (pos.bitboards[c][7]) return ::testing::AssertionFailure();
    return ::testing::AssertionSuccess();
}

// Walks the full pseudo-legal tree, legal or not, through generate_all,
// legal_move, make_move and unmake_move.  With `exact`, every unmake must
// restore the record byte for byte.
void walk_all(Position &pos, int depth, bool exact, long &nodes) {
    Worker *w = worker_of(pos);
    generate_all(pos);
    std::vector<Move> moves;
    for (MoveEntry *e = w->plies[w->ply].list_start; e->move != END_OF_LIST;
         e++)
        moves.push_back(e->move);
    for (Move m : moves) {
        Snapshot before = snap(pos);
        legal_move(pos, pos.side, m);
        ASSERT_TRUE(same_as(pos, before));
        make_move(pos, m);
        nodes++;
        ASSERT_TRUE(in_range(pos));
        if (depth > 1) walk_all(pos, depth - 1, exact, nodes);
        unmake_move(pos);
        ASSERT_TRUE(in_range(pos));
        if (exact) {
            ASSERT_TRUE(same_as(pos, before)) << std::hex << m;
        }
    }
    Snapshot before = snap(pos);
    make_null_move(pos);
    unmake_null_move(pos);
    ASSERT_TRUE(same_as(pos, before));
}

TEST(BadInput, MissingKingsAndPawnsOnTheBackRanks) {
    // None of these can arise in a game, but a FEN text can say them; the
    // engine must neither crash nor leave its tables.  Without a king the
    // legality probe is square 64, so every move counts as legal, and a
    // king that is taken stays recorded on its last square.
    const char *fens[] = {
        "8/8/8/8/8/8/8/8 w - - 0 1",
        "8/8/3q4/8/2N5/8/PP6/R7 w - - 0 1",
        "8/8/3q4/8/2N5/8/PP6/R7 b - - 0 1",
        "4k3/8/8/8/8/8/PPPPPPPP/RNBQ1BNR w KQ - 0 1",
        "rnbq1bnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq - 0 1",
        "rnbq1bnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
        "P3k2P/8/8/8/8/8/8/p3K2p w - - 0 1",
        "P3k2P/8/8/8/8/8/8/p3K2p b - - 0 1",
        "4k3/8/8/8/8/8/1n6/P3K2P w - - 0 1",
        "p3k2p/1N6/8/8/8/8/8/4K3 b - - 0 1",
        // Kings that can be taken at once.
        "8/8/8/3k4/3K4/8/8/8 w - - 0 1",
        "4k3/4Q3/8/8/8/8/8/4K3 w - - 0 1",
    };
    for (const char *fen : fens) {
        Position &pos = test_position(fen);
        ASSERT_TRUE(in_range(pos)) << fen;
        long nodes = 0;
        walk_all(pos, 3, true, nodes);
        ASSERT_FALSE(HasFailure()) << fen;
        if (occupied_squares(pos)) {
            EXPECT_GT(nodes, 0) << fen;
        }
    }
}

TEST(BadInput, SideWithoutKingHasEveryMoveLegal) {
    // The legality probe of a missing king is square 64, which nothing
    // attacks.
    for (const char *fen : {"8/8/3q4/8/2N5/8/PP6/R7 w - - 0 1",
                            "4k3/8/8/8/8/8/PPPPPPPP/RNBQ1BNR w KQ - 0 1"}) {
        Position &pos = test_position(fen);
        ASSERT_EQ(pos.king_sq[WHITE], NO_SQUARE);
        // Castling needs a king on its first rank.
        EXPECT_EQ(pos.castle_rights, 0);
        std::vector<MoveEntry> moves = pseudo_legal(pos);
        EXPECT_FALSE(moves.empty());
        for (const MoveEntry &e : moves)
            EXPECT_EQ(legal_move(pos, WHITE, e.move), 1) << fen;
    }
}

TEST(BadInput, TakenKingStaysRecordedOnItsSquare) {
    // Qxe8 takes the king: its square stays on record, now under the
    // queen, and the game goes on without a crash.
    Position &pos = test_position("4k3/4Q3/8/8/8/8/8/4K3 w - - 0 1");
    Snapshot before = snap(pos);
    make_move(pos, parse("e7e8"));
    EXPECT_EQ(pos.king_sq[BLACK], sq_of("e8"));
    EXPECT_EQ(pos.board[sq_of("e8")], make_piece(QUEEN, WHITE));
    EXPECT_EQ(pos.bitboards[BLACK][KING], 0u);
    EXPECT_EQ(recount_errors(pos), "");
    long nodes = 0;
    walk_all(pos, 2, true, nodes);
    unmake_move(pos);
    EXPECT_TRUE(same_as(pos, before));
}

TEST(BadInput, TwoKingsOfOneSide) {
    // The king square records one of the two kings; after the other one
    // moves and comes back it names that one instead.  Nothing else drifts
    // and nothing leaves the board.
    for (const char *fen :
         {"4k3/8/8/8/8/8/8/K3K3 w - - 0 1", "4k3/8/8/8/8/8/8/K3K3 b - - 0 1",
          "k3k3/8/8/8/8/8/8/4K2R b - - 0 1"}) {
        Position &pos = test_position(fen);
        long nodes = 0;
        walk_all(pos, 3, false, nodes);
        ASSERT_FALSE(HasFailure()) << fen;
        EXPECT_GT(nodes, 0);
        // Every move but those of the unrecorded king is undone exactly.
        Position &p = test_position(fen);
        int recorded = p.king_sq[p.side];
        for (const MoveEntry &e : pseudo_legal(p)) {
            bool other_king =
                piece_type(e.moved) == KING && move_from(e.move) != recorded;
            Snapshot before = snap(p);
            make_move(p, e.move);
            ASSERT_TRUE(in_range(p));
            unmake_move(p);
            if (other_king) {
                EXPECT_EQ(p.king_sq[p.side], move_from(e.move)) << fen;
                p.king_sq[p.side] = static_cast<u8>(recorded);
            }
            EXPECT_TRUE(same_as(p, before)) << fen;
        }
    }
}

TEST(BadInput, EnPassantSquaresThatCannotBe) {
    // An en-passant square on the wrong rank, or on a corner.  A pawn that
    // moves onto it takes away whatever stands behind it, as on a real
    // en-passant capture; the board may then hold nonsense, but every
    // field stays on the board.  Moves that do not reach the square are
    // unmade exactly.
    const char *fens[] = {
        "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq e4 0 1",
        "4k3/8/8/3p4/8/3P1P2/8/4K3 w - e4 0 1",
        "4k3/8/8/3pNp2/8/8/8/4K3 b - e4 0 1",
        "4k3/8/8/8/8/8/1p6/N3K3 b - a1 0 1",
        "4k3/8/8/8/8/8/8/4K3 w - a1 0 1",
        "r3k3/1P6/8/8/8/8/8/4K3 w - a8 0 1",
        "4k3/1P6/8/8/8/8/8/4K3 w - b8 0 1",
        "4k3/8/8/8/8/8/4P3/4K3 w - e3 0 1",
        "4k3/8/8/8/8/8/8/4K3 w - h8 0 1",
    };
    // As on a real en-passant capture, what stands behind the square goes:
    // here a knight.
    Position &knight = test_position("4k3/8/8/3pNp2/8/8/8/4K3 b - e4 0 1");
    make_move(knight, parse("f5e4"));
    EXPECT_EQ(knight.board[sq_of("e5")], 0);
    EXPECT_EQ(knight.bitboards[WHITE][KNIGHT], 0u);
    EXPECT_TRUE(in_range(knight));
    unmake_move(knight);
    EXPECT_TRUE(in_range(knight));

    for (const char *fen : fens) {
        Position &pos = test_position(fen);
        ASSERT_TRUE(in_range(pos)) << fen;
        ASSERT_NE(pos.ep_sq, NO_SQUARE) << fen;
        int ep = pos.ep_sq;
        generate_all(pos);
        std::vector<Move> moves;
        for (MoveEntry *e = worker_of(pos)->plies[pos.history->ply].list_start;
             e->move != END_OF_LIST; e++)
            moves.push_back(e->move);
        for (Move m : moves) {
            Snapshot before = snap(pos);
            bool onto_ep =
                piece_type(pos.board[move_from(m)]) == PAWN && move_to(m) == ep;
            make_move(pos, m);
            ASSERT_TRUE(in_range(pos)) << fen;
            long nodes = 0;
            walk_all(pos, 2, false, nodes);
            ASSERT_FALSE(HasFailure()) << fen;
            unmake_move(pos);
            ASSERT_TRUE(in_range(pos)) << fen;
            if (onto_ep)
                test_position(fen);  // start clean for the next move
            else
                EXPECT_TRUE(same_as(pos, before)) << fen;
        }
    }
}

}  // namespace
