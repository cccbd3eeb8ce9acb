// Bit operations, attack tables, sliding attacks, the attack test of a
// square and the search's attacker finders, each against a slow but
// obviously right walk over the board.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

#include "test_support.h"

namespace {

int slow_count(u64 b) {
    int n = 0;
    for (int s = 0; s < 64; s++) n += (b >> s) & 1;
    return n;
}

int slow_first(u64 b) {
    for (int s = 0; s < 64; s++)
        if ((b >> s) & 1) return s;
    return -1;
}

int slow_last(u64 b) {
    for (int s = 63; s >= 0; s--)
        if ((b >> s) & 1) return s;
    return 0;  // an empty board reads as a1, which the slider code relies on
}

// Words of every density: sparse ones have few bits, like a side's pieces,
// dense ones many, like the empty squares.
std::vector<u64> random_words(int count, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::vector<u64> words;
    for (int i = 0; i < count; i++) {
        u64 a = rng(), b = rng(), c = rng();
        switch (i % 5) {
            case 0:
                words.push_back(a);
                break;
            case 1:
                words.push_back(a & b);
                break;
            case 2:
                words.push_back(a & b & c);
                break;
            case 3:
                words.push_back(a | b);
                break;
            default:
                words.push_back(1ULL << (a & 63));
                break;
        }
    }
    return words;
}

bool on_board(int f, int r) { return f >= 0 && f < 8 && r >= 0 && r < 8; }

// Walks from sq in direction (df, dr) to the edge or the first occupied
// square, which is included.
u64 slow_ray(int sq, int df, int dr, u64 occupied) {
    u64 squares = 0;
    int f = sq % 8 + df, r = sq / 8 + dr;
    while (on_board(f, r)) {
        squares |= 1ULL << (f + 8 * r);
        if ((occupied >> (f + 8 * r)) & 1) break;
        f += df;
        r += dr;
    }
    return squares;
}

const int DIAGONALS[4][2] = {{1, 1}, {-1, 1}, {1, -1}, {-1, -1}};
const int STRAIGHTS[4][2] = {{0, 1}, {0, -1}, {1, 0}, {-1, 0}};

u64 slow_bishop(int sq, u64 occupied) {
    u64 a = 0;
    for (auto &d : DIAGONALS) a |= slow_ray(sq, d[0], d[1], occupied);
    return a;
}

u64 slow_rook(int sq, u64 occupied) {
    u64 a = 0;
    for (auto &d : STRAIGHTS) a |= slow_ray(sq, d[0], d[1], occupied);
    return a;
}

u64 slow_steps(int sq, std::initializer_list<std::pair<int, int>> steps) {
    u64 a = 0;
    for (auto [df, dr] : steps)
        if (on_board(sq % 8 + df, sq / 8 + dr)) a |= 1ULL << (sq + df + 8 * dr);
    return a;
}

u64 slow_knight(int sq) {
    return slow_steps(sq, {{1, 2},
                           {2, 1},
                           {2, -1},
                           {1, -2},
                           {-1, -2},
                           {-2, -1},
                           {-2, 1},
                           {-1, 2}});
}

u64 slow_king(int sq) {
    return slow_steps(
        sq,
        {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}});
}

u64 slow_pawn(int colour, int sq) {
    int dr = colour == WHITE ? 1 : -1;
    return slow_steps(sq, {{-1, dr}, {1, dr}});
}

// Squares strictly between a and b on a shared line, found by stepping.
u64 slow_between(int a, int b) {
    for (auto &d : DIAGONALS)
        if ((slow_ray(a, d[0], d[1], 0) >> b) & 1)
            return slow_ray(a, d[0], d[1], 1ULL << b) & ~(1ULL << b);
    for (auto &d : STRAIGHTS)
        if ((slow_ray(a, d[0], d[1], 0) >> b) & 1)
            return slow_ray(a, d[0], d[1], 1ULL << b) & ~(1ULL << b);
    return 0;
}

// What a piece of the given code on sq attacks with this occupancy.
u64 slow_attacks(int code, int sq, u64 occupied) {
    switch (piece_type(code)) {
        case PAWN:
            return slow_pawn(piece_colour(code), sq);
        case KNIGHT:
            return slow_knight(sq);
        case BISHOP:
            return slow_bishop(sq, occupied);
        case ROOK:
            return slow_rook(sq, occupied);
        case QUEEN:
            return slow_bishop(sq, occupied) | slow_rook(sq, occupied);
        case KING:
            return slow_king(sq);
    }
    return 0;
}

// A bare board record with pieces placed, enough for the attack tests,
// which read only the bitboards.
Position board_with(const std::vector<std::pair<int, int>> &pieces) {
    Position pos;
    std::memset(&pos, 0, sizeof pos);
    pos.king_sq[0] = pos.king_sq[1] = NO_SQUARE;
    pos.ep_sq = NO_SQUARE;
    for (auto [code, sq] : pieces) {
        pos.board[sq] = static_cast<u8>(code);
        pos.bitboards[piece_colour(code)][0] |= bit(sq);
        pos.bitboards[piece_colour(code)][piece_type(code)] |= bit(sq);
        if (piece_type(code) == KING) pos.king_sq[piece_colour(code)] = sq;
    }
    return pos;
}

TEST(BitOps, FirstBitTableEnds) {
    const u8 head[] = {63, 30, 3, 32, 25, 41, 22, 33};
    const u8 tail[] = {37, 17, 36, 8};
    for (int i = 0; i < 8; i++) EXPECT_EQ(first_bit_table[i], head[i]) << i;
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(first_bit_table[60 + i], tail[i]) << i;
    // Every square appears once: the folded multiply is a perfect hash of
    // the 64 isolated bits.
    u64 seen = 0;
    for (u8 s : first_bit_table) seen |= 1ULL << s;
    EXPECT_EQ(seen, ~0ULL);
}

TEST(BitOps, FirstBitIndexIsTheFoldedMultiply) {
    for (int s = 0; s < 64; s++) {
        u64 x = (1ULL << s) ^ ((1ULL << s) - 1);
        u32 folded = static_cast<u32>(x ^ (x >> 32));
        u32 index = static_cast<u32>(folded * 2017106723u) >> 26;
        EXPECT_EQ(first_bit_table[index], s);
    }
}

TEST(BitOps, SingleBits) {
    for (int s = 0; s < 64; s++) {
        EXPECT_EQ(first_bit(1ULL << s), s);
        EXPECT_EQ(last_bit(1ULL << s), s);
        EXPECT_EQ(count_bits(1ULL << s), 1);
    }
}

TEST(BitOps, AgainstLoopsOnRandomWords) {
    for (u64 w : random_words(20000, 11)) {
        EXPECT_EQ(count_bits(w), slow_count(w)) << std::hex << w;
        EXPECT_EQ(last_bit(w), slow_last(w)) << std::hex << w;
        if (w) {
            EXPECT_EQ(first_bit(w), slow_first(w)) << std::hex << w;
        }
    }
}

// The instruction path of a native build and the table path of the
// portable one must answer alike, an empty board included; in a portable
// build both sides are the table path and the loops above are the check.
TEST(BitOps, InstructionPathEqualsPortablePath) {
    std::vector<u64> words = random_words(20000, 12);
    for (int s = 0; s < 64; s++) {
        words.push_back(1ULL << s);
        words.push_back(~0ULL << s);
        words.push_back(~0ULL >> s);
    }
    words.push_back(0);
    for (u64 w : words) {
        EXPECT_EQ(first_bit(w), first_bit_portable(w)) << std::hex << w;
        EXPECT_EQ(last_bit(w), last_bit_portable(w)) << std::hex << w;
        EXPECT_EQ(count_bits(w), count_bits_portable(w)) << std::hex << w;
    }
}

TEST(BitOps, ExtractBitsPacksInMaskOrder) {
    EXPECT_EQ(extract_bits(0, 0), 0u);
    EXPECT_EQ(extract_bits(~0ULL, 0), 0u);
    EXPECT_EQ(extract_bits(~0ULL, 0xF0F0ULL), 0xFFu);
    EXPECT_EQ(extract_bits(0x5000ULL, 0xF000ULL), 0x5u);
    EXPECT_EQ(extract_bits(0x8000000000000001ULL, 0x8000000000000001ULL), 3u);
    for (u64 w : random_words(2000, 13)) {
        u64 mask = w >> 7, packed = 0;
        int out = 0;
        for (int s = 0; s < 64; s++)
            if (mask & (1ULL << s)) {
                if (w & (1ULL << s)) packed |= 1ULL << out;
                out++;
            }
        EXPECT_EQ(extract_bits(w, mask), packed) << std::hex << w;
    }
}

TEST(BitOps, EmptyAndFullWords) {
    // The negative rays of the sliders take an empty board as square 0.
    EXPECT_EQ(last_bit(0), 0);
    EXPECT_EQ(count_bits(0), 0);
    EXPECT_EQ(count_bits(~0ULL), 64);
    EXPECT_EQ(first_bit(~0ULL), 0);
    EXPECT_EQ(last_bit(~0ULL), 63);
    // Only one half set: the skipped half must add nothing.
    EXPECT_EQ(count_bits(0xFFFFFFFF00000000ULL), 32);
    EXPECT_EQ(count_bits(0x00000000FFFFFFFFULL), 32);
    EXPECT_EQ(last_bit(0x00000000FFFFFFFFULL), 31);
    EXPECT_EQ(first_bit(0xFFFFFFFF00000000ULL), 32);
}

TEST(BitOps, Log2Byte) {
    EXPECT_EQ(log2_byte[0], 0u);
    EXPECT_EQ(log2_byte[1], 0u);
    for (int i = 2; i < 256; i++) {
        u32 expected = 0;
        while ((2u << expected) <= static_cast<u32>(i)) expected++;
        EXPECT_EQ(log2_byte[i], expected) << i;
    }
}

TEST(AttackTables, LeapersAgainstSteps) {
    for (int s = 0; s < 64; s++) {
        EXPECT_EQ(knight_attacks[s], slow_knight(s)) << s;
        EXPECT_EQ(king_attacks[s], slow_king(s)) << s;
        EXPECT_EQ(pawn_attacks[WHITE][s], slow_pawn(WHITE, s)) << s;
        EXPECT_EQ(pawn_attacks[BLACK][s], slow_pawn(BLACK, s)) << s;
        EXPECT_EQ(side_squares[s], slow_steps(s, {{-1, 0}, {1, 0}})) << s;
    }
}

TEST(AttackTables, PawnsOnTheirLastRankAttackNothing) {
    for (int f = 0; f < 8; f++) {
        EXPECT_EQ(pawn_attacks[WHITE][56 + f], 0u);
        EXPECT_EQ(pawn_attacks[BLACK][f], 0u);
    }
    // Edge files do not wrap round to the far side of the board.
    EXPECT_EQ(pawn_attacks[WHITE][sq_of("a2")], bit(sq_of("b3")));
    EXPECT_EQ(pawn_attacks[WHITE][sq_of("h2")], bit(sq_of("g3")));
    EXPECT_EQ(pawn_attacks[BLACK][sq_of("a7")], bit(sq_of("b6")));
    EXPECT_EQ(pawn_attacks[BLACK][sq_of("h7")], bit(sq_of("g6")));
}

TEST(AttackTables, RaysAgainstSteps) {
    for (int s = 0; s < 64; s++) {
        EXPECT_EQ(ray_north[s], slow_ray(s, 0, 1, 0)) << s;
        EXPECT_EQ(ray_south[s], slow_ray(s, 0, -1, 0)) << s;
        EXPECT_EQ(ray_east[s], slow_ray(s, 1, 0, 0)) << s;
        EXPECT_EQ(ray_west[s], slow_ray(s, -1, 0, 0)) << s;
        EXPECT_EQ(ray_north_east[s], slow_ray(s, 1, 1, 0)) << s;
        EXPECT_EQ(ray_north_west[s], slow_ray(s, -1, 1, 0)) << s;
        EXPECT_EQ(ray_south_east[s], slow_ray(s, 1, -1, 0)) << s;
        EXPECT_EQ(ray_south_west[s], slow_ray(s, -1, -1, 0)) << s;
        EXPECT_EQ(bishop_rays[s], slow_bishop(s, 0)) << s;
        EXPECT_EQ(rook_rays[s], slow_rook(s, 0)) << s;
    }
}

TEST(AttackTables, SentinelSquaresHaveEmptyRays) {
    // h8 ends every positive ray and a1 every negative one; the sliders
    // look up these squares when a ray has no blocker.
    EXPECT_EQ(ray_north[63], 0u);
    EXPECT_EQ(ray_east[63], 0u);
    EXPECT_EQ(ray_north_east[63], 0u);
    EXPECT_EQ(ray_north_west[63], 0u);
    EXPECT_EQ(ray_south[0], 0u);
    EXPECT_EQ(ray_west[0], 0u);
    EXPECT_EQ(ray_south_east[0], 0u);
    EXPECT_EQ(ray_south_west[0], 0u);
}

TEST(AttackTables, NoSquareEntriesAreEmpty) {
    // A board without a king probes square 64; every table answers nothing.
    EXPECT_EQ(pawn_attacks[WHITE][64], 0u);
    EXPECT_EQ(pawn_attacks[BLACK][64], 0u);
    EXPECT_EQ(knight_attacks[64], 0u);
    EXPECT_EQ(king_attacks[64], 0u);
    EXPECT_EQ(side_squares[64], 0u);
    EXPECT_EQ(bishop_rays[64], 0u);
    EXPECT_EQ(rook_rays[64], 0u);
    EXPECT_EQ(ray_north[64] | ray_south[64] | ray_east[64] | ray_west[64], 0u);
    EXPECT_EQ(ray_north_east[64] | ray_north_west[64] | ray_south_east[64] |
                  ray_south_west[64],
              0u);
    for (int s = 0; s <= 64; s++) {
        EXPECT_EQ(between[64][s], 0u);
        EXPECT_EQ(between[s][64], 0u);
    }
}

TEST(Between, AgainstStepping) {
    for (int a = 0; a < 64; a++)
        for (int b = 0; b < 64; b++)
            ASSERT_EQ(between[a][b], slow_between(a, b)) << a << " " << b;
}

TEST(Between, Symmetric) {
    for (int a = 0; a < 64; a++)
        for (int b = 0; b < 64; b++) ASSERT_EQ(between[a][b], between[b][a]);
}

TEST(Between, SameNeighbourAndUnaligned) {
    for (int a = 0; a < 64; a++) {
        EXPECT_EQ(between[a][a], 0u);
        for (u64 n = king_attacks[a]; n; n &= n - 1)
            EXPECT_EQ(between[a][first_bit(n)], 0u);
        // A knight's move shares no line, close as the squares are.
        for (u64 n = knight_attacks[a]; n; n &= n - 1)
            EXPECT_EQ(between[a][first_bit(n)], 0u);
    }
    EXPECT_EQ(between[sq_of("a1")][sq_of("h8")], 0x0040201008040200ULL);
    EXPECT_EQ(between[sq_of("a1")][sq_of("a8")], 0x0001010101010100ULL);
    EXPECT_EQ(between[sq_of("h1")][sq_of("a8")], 0x0002040810204000ULL);
    EXPECT_EQ(between[sq_of("b1")][sq_of("g1")], 0x3CULL);
    // Not aligned, and not a knight's move either.
    EXPECT_EQ(between[sq_of("a1")][sq_of("c4")], 0u);
    EXPECT_EQ(between[sq_of("a1")][sq_of("h7")], 0u);
}

TEST(Sliders, AgainstRayWalkOnRandomOccupancies) {
    std::vector<u64> occupancies = random_words(600, 5);
    occupancies.push_back(0);
    occupancies.push_back(~0ULL);
    for (u64 occ : occupancies)
        for (int s = 0; s < 64; s++) {
            // The slider's own square may or may not be in the occupancy.
            for (u64 o : {occ, occ | bit(s), occ & ~bit(s)}) {
                ASSERT_EQ(bishop_attacks(s, o), slow_bishop(s, o))
                    << s << " " << std::hex << o;
                ASSERT_EQ(rook_attacks(s, o), slow_rook(s, o))
                    << s << " " << std::hex << o;
            }
        }
}

// The looked-up answers, used where the processor has a bit-extract
// instruction, equal the ray arithmetic for every square and occupancy,
// random ones and sparse ones that stop on the edges, and NO_SQUARE.
TEST(Sliders, LookupEqualsRayArithmetic) {
    std::vector<u64> occupancies = random_words(400, 6);
    for (u64 w : random_words(400, 7))
        occupancies.push_back(w & w >> 9 & w >> 23);
    occupancies.push_back(0);
    occupancies.push_back(~0ULL);
    for (u64 occ : occupancies)
        for (int s = 0; s <= 64; s++) {
            ASSERT_EQ(slider_lookup(bishop_lookup[s], occ),
                      bishop_attacks_by_rays(s, occ))
                << s << " " << std::hex << occ;
            ASSERT_EQ(slider_lookup(rook_lookup[s], occ),
                      rook_attacks_by_rays(s, occ))
                << s << " " << std::hex << occ;
        }
    EXPECT_EQ(bishop_attacks(NO_SQUARE, ~0ULL), 0u);
    EXPECT_EQ(rook_attacks(NO_SQUARE, ~0ULL), 0u);
}

TEST(Sliders, LookupTableIsFilledExactly) {
    EXPECT_EQ(rook_lookup[64].offset + 1u, u32(ROOK_TABLE_SIZE));
    EXPECT_EQ(bishop_lookup[64].offset + 1u,
              u32(ROOK_TABLE_SIZE + BISHOP_TABLE_SIZE));
    EXPECT_EQ(count_bits(rook_lookup[sq_of("a1")].mask), 12);
    EXPECT_EQ(count_bits(rook_lookup[sq_of("e4")].mask), 10);
    EXPECT_EQ(count_bits(bishop_lookup[sq_of("e4")].mask), 9);
    EXPECT_EQ(count_bits(bishop_lookup[sq_of("a1")].mask), 6);
}

TEST(Sliders, CornerDiagonalsOnEmptyBoard) {
    // The sentinels h8 and a1 must add nothing of their own.
    const u64 long_diagonal = 0x8040201008040201ULL;
    EXPECT_EQ(bishop_attacks(63, 0), long_diagonal & ~bit(63));
    EXPECT_EQ(bishop_attacks(0, 0), long_diagonal & ~bit(0));
    EXPECT_EQ(rook_attacks(0, 0), 0x01010101010101FEULL);
    EXPECT_EQ(rook_attacks(63, 0), 0x7F80808080808080ULL);
}

TEST(Sliders, BlockerOnTheLastSquareLeavesTheRayWhole) {
    // A piece on the edge square is attacked, and nothing lies beyond it.
    EXPECT_EQ(bishop_attacks(0, bit(63)), bishop_attacks(0, 0));
    EXPECT_EQ(bishop_attacks(63, bit(0)), bishop_attacks(63, 0));
    EXPECT_EQ(
        rook_attacks(sq_of("d4"), bit(sq_of("d8")) | bit(sq_of("d1")) |
                                      bit(sq_of("a4")) | bit(sq_of("h4"))),
        rook_attacks(sq_of("d4"), 0));
    EXPECT_EQ(
        bishop_attacks(sq_of("d4"), bit(sq_of("a7")) | bit(sq_of("h8")) |
                                        bit(sq_of("a1")) | bit(sq_of("g1"))),
        bishop_attacks(sq_of("d4"), 0));
}

TEST(Sliders, BlockerIsAttackedWhateverItsColour) {
    u64 occ = bit(sq_of("d6")) | bit(sq_of("f4"));
    u64 a = rook_attacks(sq_of("d4"), occ);
    EXPECT_TRUE(a & bit(sq_of("d6")));
    EXPECT_FALSE(a & bit(sq_of("d7")));
    EXPECT_TRUE(a & bit(sq_of("f4")));
    EXPECT_FALSE(a & bit(sq_of("g4")));
}

// A random legal-looking scattering of pieces: a few of each kind and
// colour on distinct squares.
Position random_board(std::mt19937_64 &rng) {
    std::vector<std::pair<int, int>> pieces;
    u64 used = 0;
    int count = 2 + static_cast<int>(rng() % 24);
    for (int i = 0; i < count; i++) {
        int sq = static_cast<int>(rng() % 64);
        if (used & bit(sq)) continue;
        used |= bit(sq);
        int type = 1 + static_cast<int>(rng() % 6);
        int colour = static_cast<int>(rng() % 2);
        pieces.push_back({make_piece(type, colour), sq});
    }
    return board_with(pieces);
}

u64 slow_attacked_by(const Position &pos, int colour) {
    u64 occ = occupied_squares(pos), a = 0;
    for (int s = 0; s < 64; s++)
        if (pos.board[s] && piece_colour(pos.board[s]) == colour)
            a |= slow_attacks(pos.board[s], s, occ);
    return a;
}

TEST(SquareAttacked, AgainstAttackSetsOfRandomBoards) {
    std::mt19937_64 rng(17);
    for (int n = 0; n < 3000; n++) {
        Position pos = random_board(rng);
        for (int colour = 0; colour < 2; colour++) {
            u64 attacked = slow_attacked_by(pos, colour);
            for (int s = 0; s < 64; s++)
                ASSERT_EQ(square_attacked(pos, s, colour),
                          static_cast<int>((attacked >> s) & 1))
                    << "square " << s << " colour " << colour;
        }
    }
}

TEST(SquareAttacked, EmptyOrOccupiedTargetIsTheSame) {
    // Castling asks about empty path squares, the king check about the
    // king's own square; what stands there must not matter.
    std::mt19937_64 rng(23);
    for (int n = 0; n < 500; n++) {
        Position pos = random_board(rng);
        for (int s = 0; s < 64; s++) {
            if (pos.board[s]) continue;
            int empty_white = square_attacked(pos, s, WHITE);
            int empty_black = square_attacked(pos, s, BLACK);
            for (int code : {make_piece(KING, WHITE), make_piece(PAWN, BLACK),
                             make_piece(QUEEN, WHITE)}) {
                Position with = pos;
                with.board[s] = static_cast<u8>(code);
                with.bitboards[piece_colour(code)][0] |= bit(s);
                with.bitboards[piece_colour(code)][piece_type(code)] |= bit(s);
                ASSERT_EQ(square_attacked(with, s, WHITE), empty_white);
                ASSERT_EQ(square_attacked(with, s, BLACK), empty_black);
            }
        }
    }
}

TEST(SquareAttacked, PawnDirectionsAndBlockedSliders) {
    Position pos = board_with({{make_piece(PAWN, WHITE), sq_of("e4")},
                               {make_piece(PAWN, BLACK), sq_of("e5")},
                               {make_piece(ROOK, BLACK), sq_of("a1")},
                               {make_piece(BISHOP, WHITE), sq_of("c1")}});
    // White pawns take upwards, black pawns downwards.
    EXPECT_TRUE(square_attacked(pos, sq_of("d5"), WHITE));
    EXPECT_FALSE(square_attacked(pos, sq_of("d3"), WHITE));
    EXPECT_TRUE(square_attacked(pos, sq_of("f4"), BLACK));
    EXPECT_FALSE(square_attacked(pos, sq_of("f6"), BLACK));
    // The bishop on c1 shields d1 and beyond from the rook.
    EXPECT_TRUE(square_attacked(pos, sq_of("c1"), BLACK));
    EXPECT_FALSE(square_attacked(pos, sq_of("d1"), BLACK));
    EXPECT_TRUE(square_attacked(pos, sq_of("a8"), BLACK));
}

// Attackers of d4 of every kind for White, with lines that open as pieces
// leave the occupancy: a queen hides behind a bishop and another behind the
// king.
const char *ATTACKERS_FEN = "3R3Q/B5B1/7k/1N3N2/R3K2Q/2P1P3/8/3Q4 w - - 0 1";

TEST(FindAttacker, LeastAttackerOrderWithXRays) {
    Position &pos = test_position(ATTACKERS_FEN);
    const int d4 = sq_of("d4");
    // Kind before square: pawns, knights, bishops, rooks, queens, king;
    // the lowest square first within a kind.  The queen on h8 appears once
    // the bishop on g7 has left, the one on h4 only after the king.
    const char *order[] = {"c3", "e3", "b5", "f5", "a7", "g7",
                           "a4", "d8", "d1", "h8", "e4", "h4"};
    u64 occ = occupied_squares(pos);
    for (const char *name : order) {
        int a = find_least_attacker(pos, d4, WHITE, occ);
        ASSERT_EQ(a, sq_of(name)) << name;
        occ &= ~bit(a);
    }
    EXPECT_EQ(find_least_attacker(pos, d4, WHITE, occ), NO_SQUARE);
    EXPECT_EQ(find_least_attacker(pos, d4, BLACK, occupied_squares(pos)),
              NO_SQUARE);
}

TEST(FindAttacker, PiecesOutsideTheOccupancyStillAttack) {
    Position &pos = test_position(ATTACKERS_FEN);
    const int d4 = sq_of("d4");
    u64 occ = occupied_squares(pos);
    EXPECT_EQ(find_attacker(pos, d4, WHITE, occ), sq_of("c3"));
    // Only the least-attacker form forgets pieces taken out of the
    // occupancy; the plain form still sees them.
    u64 without_pawns = occ & ~bit(sq_of("c3")) & ~bit(sq_of("e3"));
    EXPECT_EQ(find_attacker(pos, d4, WHITE, without_pawns), sq_of("c3"));
    EXPECT_EQ(find_least_attacker(pos, d4, WHITE, without_pawns), sq_of("b5"));
}

TEST(FindAttacker, OccupancyBlocksLinesForBoth) {
    Position &pos = test_position("3r3k/8/3n4/8/8/8/8/K7 b - - 0 1");
    const int d2 = sq_of("d2");
    u64 occ = occupied_squares(pos);
    // The knight on d6 shields d2 from the rook: the knight itself does not
    // reach d2.
    EXPECT_EQ(find_attacker(pos, d2, BLACK, occ), NO_SQUARE);
    EXPECT_EQ(find_least_attacker(pos, d2, BLACK, occ), NO_SQUARE);
    u64 open = occ & ~bit(sq_of("d6"));
    EXPECT_EQ(find_attacker(pos, d2, BLACK, open), sq_of("d8"));
    EXPECT_EQ(find_least_attacker(pos, d2, BLACK, open), sq_of("d8"));
    // A blocker that is not on the board but in the occupancy blocks too.
    u64 blocked = open | bit(sq_of("d4"));
    EXPECT_EQ(find_attacker(pos, d2, BLACK, blocked), NO_SQUARE);
}

TEST(FindAttacker, CheckerOrderIsByKindNotSquare) {
    // Knight on d3 and rook on e8 both check the king on e1: the knight is
    // reported, the kind coming before the square number.
    Position &pos = test_position("4r2k/8/8/8/8/3n4/8/4KB2 w - - 0 1");
    EXPECT_EQ(
        find_attacker(pos, pos.king_sq[WHITE], BLACK, occupied_squares(pos)),
        sq_of("d3"));
    // A queen on a1 and a rook on h1 both check along the first rank: the
    // rook is reported though its square is the higher one.
    Position &pos2 = test_position("7k/8/8/8/8/8/8/q3K2r w - - 0 1");
    EXPECT_EQ(
        find_attacker(pos2, pos2.king_sq[WHITE], BLACK, occupied_squares(pos2)),
        sq_of("h1"));
    // Black pawns attack downwards: e5 attacks d4, a black pawn on e3 not.
    Position &pos3 = test_position("7k/8/8/4p3/8/4p3/8/K7 w - - 0 1");
    EXPECT_EQ(find_attacker(pos3, sq_of("d4"), BLACK, occupied_squares(pos3)),
              sq_of("e5"));
    EXPECT_EQ(find_attacker(pos3, sq_of("d4"), WHITE, occupied_squares(pos3)),
              NO_SQUARE);
}

TEST(FindAttacker, NoSquareProbeFindsNothing) {
    // A side without a king is probed at square 64.
    Position &pos = test_position(ATTACKERS_FEN);
    u64 occ = occupied_squares(pos);
    EXPECT_EQ(find_attacker(pos, NO_SQUARE, WHITE, occ), NO_SQUARE);
    EXPECT_EQ(find_least_attacker(pos, NO_SQUARE, WHITE, occ), NO_SQUARE);
    EXPECT_EQ(square_attacked(pos, NO_SQUARE, WHITE), 0);
}

}  // namespace
