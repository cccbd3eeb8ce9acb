// The position core: squares, pieces, moves, the board record and the
// attack tables every other part of the engine reads.
#pragma once

#include <cstdint>

#include "bits.h"
#include "core/types.h"

// Squares run a1 = 0 .. h8 = 63; 64 means "no square" and indexes an
// always-empty slot in every square table, so it never needs a test.
constexpr int NO_SQUARE = 64;
constexpr int WHITE = 0;
constexpr int BLACK = 1;

constexpr int PAWN = 1;
constexpr int KNIGHT = 2;
constexpr int BISHOP = 3;
constexpr int ROOK = 4;
constexpr int QUEEN = 5;
constexpr int KING = 6;

constexpr int file_of(int sq) { return sq & 7; }
constexpr int rank_of(int sq) { return sq >> 3; }
constexpr u64 bit(int sq) { return 1ULL << sq; }
constexpr int piece_type(int code) { return code & 7; }
constexpr int piece_colour(int code) { return (code >> 3) & 1; }
constexpr int make_piece(int type, int colour) { return type + 8 * colour; }

constexpr i8 PAWN_DIRECTION[2] = {8, -8};

// Non-pawn material in points, and the nibble counters of material_sig.
constexpr i16 PIECE_POINTS[8] = {0, 0, 3, 3, 5, 10, 0, 0};
constexpr u32 MATERIAL_SIG_STEP[8] = {0, 1, 16, 256, 4096, 65536, 0, 0};

// A move: to in bits 0-5, from in bits 8-13, four flag bits.  A flagged
// king move castles, a flagged pawn move promotes.
using Move = u16;
constexpr Move NO_MOVE = 0;
constexpr Move END_OF_LIST = 0xFFFF;
constexpr u16 FLAG_SHORT = 0x0040;  // castling short, or promotion to queen
constexpr u16 FLAG_LONG = 0x0080;   // castling long, or promotion to knight
constexpr u16 FLAG_QUEEN = 0x0040;
constexpr u16 FLAG_KNIGHT = 0x0080;
constexpr u16 FLAG_BISHOP = 0x4000;
constexpr u16 FLAG_ROOK = 0x8000;
constexpr u16 FLAG_MASK = 0xC0C0;

constexpr int move_to(Move m) { return m & 63; }
constexpr int move_from(Move m) { return (m >> 8) & 63; }
constexpr Move make_move_code(int from, int to, u16 flags = 0) {
    return static_cast<Move>((from << 8) | to | flags);
}

struct MoveEntry {
    u16 move;
    i16 score;    // ordering score, the picker's business
    u8 moved;     // piece code on the from square
    u8 captured;  // piece code on the to square; 0 for en passant
};
static_assert(sizeof(MoveEntry) == 6);

struct BoardHistory;

// Castling right index: 0 white short, 1 white long, 2 black short,
// 3 black long; the bit value in castle_rights is 1 << index.
struct Position {
    BoardHistory *history;  // where make_move keeps its undo records
    u8 board[65];           // entry 64 stays 0
    u64 bitboards[2][8];
    u64 touched;
    u64 castle_mask[4];
    u64 castle_path[4];
    u64 key;
    u64 pawn_key;
    u32 material_sig[2];
    i16 piece_points[2];
    u8 castle_rook[4];
    u8 king_sq[2];
    u8 side;
    u8 ep_sq;
    u8 castle_rights;
    u8 cnt50;
};

inline u64 occupied_squares(const Position &pos) {
    return pos.bitboards[0][0] | pos.bitboards[1][0];
}

// One undo record: what a move changes that cannot be recomputed cheaply.
struct StateRecord {
    u64 key;
    u64 pawn_key;
    u16 move;
    u8 captured_type;
    u8 ep_sq;
    u64 touched;
    u8 cnt50;
    u8 castle_rights;
};

constexpr int STATE_STACK_SIZE = 900;

// The moves made on a board, game and search alike, as undo records:
// entry hist_index is the next free one.  `ply` counts the moves made
// since the search's root (1 there) and `last_move` is the move that led
// here, 0 after a null move.  A search thread's Worker is one of these, so
// the board reaches its history without knowing the search.
struct BoardHistory {
    StateRecord states[STATE_STACK_SIZE];
    i16 hist_index;
    i16 ply;
    u16 last_move;
};

// A thread's own board: the position and the history of the moves made on
// it.  Position.history points back at the history.
struct ThreadBoard : BoardHistory {
    Position position;
};

// The game's board, which the front end keeps for the whole run: other
// layers read the length of the game from it.  Null until the entry point
// sets it.
extern ThreadBoard *game_board;

// Attack tables, filled once by init_attack_tables.  Every square-indexed
// table has a 65th entry for NO_SQUARE, kept 0, so that a board without a
// king can be probed without reading past a table.
extern u64 pawn_attacks[2][65];
extern u64 knight_attacks[65];
extern u64 king_attacks[65];
extern u64 side_squares[65];
extern u64 ray_north[65], ray_south[65], ray_east[65], ray_west[65];
extern u64 ray_north_east[65], ray_north_west[65];
extern u64 ray_south_east[65], ray_south_west[65];
extern u64 bishop_rays[65];
extern u64 rook_rays[65];
extern u64 between[65][65];

void init_attack_tables();

// Ray-difference slider attacks: beyond the first blocker of each ray the
// blocker's own ray is cut away; squares 63 and 0 serve as sentinels since
// the rays that could run from them are empty.
inline u64 bishop_attacks_by_rays(int sq, u64 occupied) {
    int nw = first_bit((ray_north_west[sq] & occupied) | (1ULL << 63));
    int ne = first_bit((ray_north_east[sq] & occupied) | (1ULL << 63));
    int sw = last_bit(ray_south_west[sq] & occupied);
    int se = last_bit(ray_south_east[sq] & occupied);
    return bishop_rays[sq] ^ ray_north_west[nw] ^ ray_north_east[ne] ^
           ray_south_west[sw] ^ ray_south_east[se];
}

inline u64 rook_attacks_by_rays(int sq, u64 occupied) {
    int n = first_bit((ray_north[sq] & occupied) | (1ULL << 63));
    int e = first_bit((ray_east[sq] & occupied) | (1ULL << 63));
    int s = last_bit(ray_south[sq] & occupied);
    int w = last_bit(ray_west[sq] & occupied);
    return rook_rays[sq] ^ ray_north[n] ^ ray_east[e] ^ ray_south[s] ^
           ray_west[w];
}

// Where a square's attack sets start in slider_table, and which occupied
// squares choose among them: the lines without their far ends, whose
// occupancy never changes what the slider reaches.
struct SliderLookup {
    u64 mask;
    u32 offset;
};

constexpr int ROOK_TABLE_SIZE = 102400 + 1;  // one entry for NO_SQUARE
constexpr int BISHOP_TABLE_SIZE = 5248 + 1;
extern SliderLookup bishop_lookup[65], rook_lookup[65];
extern u64 slider_table[ROOK_TABLE_SIZE + BISHOP_TABLE_SIZE];

// Fills the lookup from the ray-difference answers; the attack tables must
// be filled first.
void init_slider_tables();

inline u64 slider_lookup(const SliderLookup &l, u64 occupied) {
    return slider_table[l.offset + extract_bits(occupied, l.mask)];
}

// With a bit-extract instruction one lookup replaces the ray arithmetic;
// the answers are the same for every board.
inline u64 bishop_attacks(int sq, u64 occupied) {
    if constexpr (HAVE_PEXT)
        return slider_lookup(bishop_lookup[sq], occupied);
    else
        return bishop_attacks_by_rays(sq, occupied);
}

inline u64 rook_attacks(int sq, u64 occupied) {
    if constexpr (HAVE_PEXT)
        return slider_lookup(rook_lookup[sq], occupied);
    else
        return rook_attacks_by_rays(sq, occupied);
}

// Squares a knight, bishop, rook or queen on `sq` attacks.
inline u64 piece_attacks(int type, int sq, u64 occupied) {
    switch (type) {
        case KNIGHT:
            return knight_attacks[sq];
        case BISHOP:
            return bishop_attacks(sq, occupied);
        case ROOK:
            return rook_attacks(sq, occupied);
        default:
            return bishop_attacks(sq, occupied) | rook_attacks(sq, occupied);
    }
}

int square_attacked(const Position &pos, int sq, int by_colour);

// Who attacks a square: the first piece by kind (pawn, knight, bishop,
// rook, queen, king) and square.  The occupancy blocks lines; the "least"
// form also ignores pieces missing from it.
int find_attacker(const Position &pos, int sq, int side, u64 occupancy);
int find_least_attacker(const Position &pos, int sq, int side, u64 occupancy);

// Move generation (pseudo-legal); each returns the end of what it wrote.
MoveEntry *generate_captures(const Position &pos, int side, MoveEntry *list,
                             int target);
MoveEntry *generate_promotions(const Position &pos, int side,
                               int with_underpromotions, MoveEntry *list);
MoveEntry *generate_seventh_pushes(const Position &pos, int side,
                                   MoveEntry *list);
MoveEntry *generate_quiets(const Position &pos, int side, MoveEntry *list,
                           int target);
// No list of one position is longer: a side has at most 16 men.
constexpr int MAX_MOVES = 448;
// Every pseudo-legal move of the side to move, in the order of the full
// list: captures, promotions (under-promotions too), pushes to the seventh
// rank, quiet moves.  Returns the end of what it wrote, unterminated.
MoveEntry *generate_full_list(const Position &pos, MoveEntry *list);
// The legal moves of the side to move, in generation order, written to
// `out` (room for MAX_MOVES); the Worker's lists are left alone.
int legal_moves(Position &pos, Move *out);
int legal_move(Position &pos, int side, Move move);

// Making and unmaking moves, hash keys, castling set-up.
extern u64 hash_keys[1024];
constexpr u64 SIDE_BIT[2] = {0, 0x100000000ULL};
// The key part of piece `code` standing on `sq`.
inline u64 piece_key(int code, int sq) { return hash_keys[code * 64 + sq]; }

void init_hash_keys();
void compute_keys(Position &pos);
void make_move(Position &pos, Move move);
void unmake_move(Position &pos);
void make_null_move(Position &pos);
void unmake_null_move(Position &pos);
void set_castling(Position &pos, const char *text);

// 1 if the position is drawn by the fifty-move rule or by repetition.  `ply`
// is the search ply (1 at the root); 0 or less asks for the front end's
// reading.
int is_draw(Position &pos, int ply);
