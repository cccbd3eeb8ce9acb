// What the console shows a person at a terminal, and the small command
// language (switch -c) in which that person plays, analyses, loads and saves
// games, edits positions and looks inside the evaluation.
#pragma once

#include "position/position.h"

// Set by `mv`: the finish of a search makes the engine's move on the game,
// and stays set, so the next search in the console plays its move too.
extern u8 engine_moves;
// Set by `self`: the engine plays both sides until the game ends.
extern u8 self_play;

// The longest game the console keeps: the search needs its own records
// above the game's in the undo stack.
constexpr int CONSOLE_GAME_LIMIT = 700;

// Prints the FEN with its counters, the board from rank 8 down (White's
// men in capitals, Black's in lower case with pawns as 'o', empty squares
// as '-' or '+' by square colour), and the side to move.
void print_board(const Position &pos);
// The last move of the game, if any, then the evaluation trace (mode 1).
void show_eval();

// One non-empty console line; `line` may be written to.
void console_command(char *line);

// The game: the front Worker's position and its undo records, whose moves
// above the current ply form the redo chain.
//
// Makes `move` on the game.  A move that differs from the one the redo
// chain holds at this ply cuts the chain there.  False (nothing made) when
// the game is as long as the console keeps.
bool play_game_move(Move move);
// Takes the last move back; false at ply 0.
bool undo_game_move();
// The move the redo chain holds at this ply, if it is legal here; else 0.
Move redo_move();
// Unmakes all, then remakes the chain up to `ply` or its end.
void jump_to_ply(int ply);

// The commands with files and tables of their own.
void set_command(const char *word, const char *value, const char *arg3,
                 const char *arg4);
void load_command(const char *file, const char *tag);
void save_command();
void edit_command();
void get_command(const char *id);
void pv_command();
void perft_command(int depth);
void swap_command();

// Numbers typed at the console read as atoi and atof do, but out-of-range
// values saturate and "nan" or "inf" read as 0.
int console_int(const char *text);
double console_real(const char *text);
