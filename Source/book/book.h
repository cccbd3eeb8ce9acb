// Opening books in the Polyglot layout: the book key of a position, the
// lookup that picks a weighted move from a book file, the think cycle's
// choice between the main and the second book, and the book builder that
// turns a PGN collection into a book file.
#pragma once

#include <cstdio>

#include "position/position.h"

// One 16-byte record of a book file, all fields big-endian on disk.  The
// move field is not a Move: to square in bits 0-5, from square in bits
// 6-11, promotion (0 none, 1 knight, 2 bishop, 3 rook, 4 queen) in 12-14.
// Castling is written as the king taking its own rook.
struct BookEntry {
    u64 key;
    u16 move;
    u16 weight;  // 0: never played nor listed
    u32 learn;   // read and ignored
};

constexpr int BOOK_RECORD_SIZE = 16;
// The longest run of one position's records a lookup holds.
constexpr int BOOK_MAX_CANDIDATES = 127;

// The published key table: piece-square numbers from 0, castling from 768,
// en passant from 772, side to move at 780.
constexpr int RANDOM64_SIZE = 781;
constexpr int RANDOM64_CASTLING = 768;
constexpr int RANDOM64_EN_PASSANT = 772;
constexpr int RANDOM64_WHITE_TO_MOVE = 780;
extern const u64 RANDOM64[RANDOM64_SIZE];

// The state of the weighted draw, set once from the clock at the first
// lookup that opens a file, then kept for the life of the process.
extern u32 book_seed;
extern u8 book_seed_set;

// The book key of `pos`, computed from the board at each call (it is not
// the search's hash key).
u64 book_key(const Position &pos);

// Reads one record, most significant byte first: 0 on success, 1 when the
// file ends anywhere inside the record.
int read_book_entry(FILE *file, BookEntry &entry);

// The Move a record's move field stands for in `pos`: castling as king
// takes rook on e1 or e8 becomes the king's g- or c-file move, and the
// promotion field sets the promotion flag.
Move book_move_from_record(u16 record_move);

// Looks `pos` up in the book file `file_name` and draws one of its moves
// by weight; 0 when the book has nothing (no name, no file, shorter than a
// record, larger than 2 GiB, position missing, total weight 0, or a drawn
// move the position does not allow).  Prints the candidates: in UCI mode
// one "info string ( book moves are: ... )" line; in console mode a line
// per candidate and the "selecting" line, unless noise silences it.  The
// position is left as it was.
Move book_probe(Position &pos, const char *file_name);

// The think cycle's book move for the front Worker's game position under
// a plain go: the main book within OwnBook_Depth plies, the second book
// when the main one has none or its depth is used up and OwnBook2_Depth
// still allows it.  A move that would repeat the position is dropped.  A
// move found is announced with "book move is"; 0 means search.
Move think_book_move();

// The console's `book` command: both books' candidates, each followed by
// an empty line.  No move is played.
void show_book_moves();

// -mkbook: reads the PGN collection `pgn_file` and writes "tmp_book.bin"
// in the working directory, keyed in ascending order.  False when the
// input could not be read, memory ran out or the book was not written.
bool make_book(const char *pgn_file);
