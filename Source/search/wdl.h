// The chances of a win, a draw and a loss that a search score stands for,
// as UCI_ShowWDL prints them after the score of each info line.
#pragma once

#include "position/position.h"

// Shares in per mille, from the side to move's view; they sum to 1000.
struct WdlShares {
    int win;
    int draw;
    int loss;
};

// The material the model reads: pawns, 3 a minor piece, 5 a rook, 10 a
// queen, both sides together (80 at the start).
int wdl_material(const Position &pos);

// The fitted model alone: a logistic in the score whose offset and scale
// depend on the material (docs/wdl.md gives the fit and its data).
WdlShares wdl_from_model(int score, int material);

// What a line of the search shows for `score` at the root `root`: a root
// the tables know (`tb_result`, 0 loss .. 4 win, -1 none) shows their
// verdict, with cursed wins and blessed losses as draws; a proven score (a
// mate, or a tablebase result in the tree) is certain; men too few to mate
// are a sure draw; the model judges everything else.
WdlShares root_wdl(const Position &root, int score, int tb_result);
