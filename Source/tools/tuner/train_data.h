// -mktraindata: self-play games of the engine against itself, in this
// process, written as training records.
#pragma once

#include <vector>

#include "tools/train_record.h"

// What a generator run is asked for.
struct SelfPlaySettings {
    u64 seed;              // -seed; with the thread count it fixes every game
    u64 nodes;             // soft node limit of a move's search (-n)
    int random_plies;      // random moves before the game proper
    int opening_margin;    // a start searched beyond this is lopsided
    int win_score;         // adjudication: this score or more ...
    int win_plies;         // ... for this many plies in a row wins
    int draw_score;        // adjudication: this score or less ...
    int draw_plies;        // ... for this many plies in a row ...
    int draw_from_ply;     // ... from this game ply on draws
    int max_game_plies;    // a game this long is a draw
    const char *openings;  // EPD file of start positions, or null
    u32 net_tag;           // the labelling net's checksum, 0 hand-written
};

SelfPlaySettings default_self_play();

// Results from White's view.
constexpr int RESULT_BLACK_WINS = 0;
constexpr int RESULT_DRAW = 1;
constexpr int RESULT_WHITE_WINS = 2;
constexpr int RESULT_NONE = -1;

// Why a game ended.
enum GameEnd : int {
    END_MATE,
    END_STALEMATE,
    END_RULE_DRAW,  // fifty moves, repetition, no mating material
    END_TABLEBASE,
    END_WIN_ADJUDICATED,
    END_DRAW_ADJUDICATED,
    END_LENGTH,
    END_RUNAWAY,  // a search ran past the hard cap: the game is dropped
};

// The adjudicator's memory of the scores so far.
struct Adjudicator {
    int win_run;   // plies in a row with one side far ahead
    int win_side;  // that side, 0 White, 1 Black
    int draw_run;  // plies in a row near 0
};

// Adds the search score `score` (for `side` to move, at game ply `ply`)
// and gives RESULT_WHITE_WINS, RESULT_BLACK_WINS, RESULT_DRAW or
// RESULT_NONE.
int adjudicate(Adjudicator &a, const SelfPlaySettings &s, int side, int score,
               int ply);

// The verdict of the rules and the tables on the game position before a
// move is searched, or RESULT_NONE; `end` says which rule spoke.
int game_verdict(Position &pos, GameEnd &end);

// The tablebases' verdict for the side to move, as a result from White's
// view, or RESULT_NONE while no table covers the position.
int tablebase_verdict(const Position &pos);

struct GameOutcome {
    int result;  // from White's view
    GameEnd end;
    int plies;
};

// Plays game number `index` of the run `s` on the front Worker's position,
// and appends its records to `out`.  The game depends on nothing but `s`
// and `index`: hash, caches and the random numbers start afresh.
struct SearchAnswer {
    Move move;
    int score;
};

// One silent search of the front Worker's position under the soft node
// limit settings.max_nodes; `runaway` turns true when it passed the hard
// cap (runaway_cap) and was stopped, and the answer is then worthless.
SearchAnswer search_game_position(bool &runaway);

GameOutcome play_game(const SelfPlaySettings &s, u64 index,
                      std::vector<TrainRecord> &out);

// The data folder: `name`, or with "default" the user's cache folder
// ($XDG_CACHE_HOME/quillon/data or ~/.cache/quillon/data).
void data_folder(const char *name, char *out, int size);

// The whole mode: reads the tuner switches, forks one game process per
// thread, resumes what the folder holds and prints the progress.  False
// when the folder could not be made or a game process failed.
bool make_train_data(int argc, char **argv);
