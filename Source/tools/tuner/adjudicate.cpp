// When a self-play game is over: the rules, the tables, and the scores of
// the search, which end games whose outcome is no longer in doubt.
#include <cstdlib>

#include "search/search.h"
#include "tablebase/tb_probe.h"
#include "train_data.h"

int adjudicate(Adjudicator &a, const SelfPlaySettings &s, int side, int score,
               int ply) {
    // Both sides must agree: the side ahead keeps its large score, and the
    // side behind its large deficit, ply after ply.
    int ahead = score >= 0 ? side : side ^ 1;
    if (std::abs(score) >= s.win_score) {
        a.win_run = a.win_run > 0 && a.win_side == ahead ? a.win_run + 1 : 1;
        a.win_side = ahead;
    } else {
        a.win_run = 0;
    }
    if (a.win_run >= s.win_plies)
        return a.win_side == WHITE ? RESULT_WHITE_WINS : RESULT_BLACK_WINS;
    a.draw_run = std::abs(score) <= s.draw_score ? a.draw_run + 1 : 0;
    if (ply >= s.draw_from_ply && a.draw_run >= s.draw_plies)
        return RESULT_DRAW;
    return RESULT_NONE;
}

// No pawns and at most a minor piece a side: nobody can be mated.
static bool no_mating_material(const Position &pos) {
    if (pos.bitboards[WHITE][PAWN] | pos.bitboards[BLACK][PAWN]) return false;
    return pos.piece_points[WHITE] <= 3 && pos.piece_points[BLACK] <= 3;
}

int tablebase_verdict(const Position &pos) {
    // Tables know nothing of castling, and the fifty-move count must be
    // fresh for their win to be a win in the game.
    if (TB_LARGEST == 0 || pos.castle_rights || pos.cnt50 != 0)
        return RESULT_NONE;
    if (count_bits(occupied_squares(pos)) > TB_LARGEST) return RESULT_NONE;
    int r = tb_probe_search(pos, 2);
    if (r < 0 || r > 4) return RESULT_NONE;
    if (r == 4)
        return pos.side == WHITE ? RESULT_WHITE_WINS : RESULT_BLACK_WINS;
    if (r == 0)
        return pos.side == WHITE ? RESULT_BLACK_WINS : RESULT_WHITE_WINS;
    // Cursed wins and blessed losses are draws under the fifty-move rule.
    return RESULT_DRAW;
}

int game_verdict(Position &pos, GameEnd &end) {
    Move moves[MAX_MOVES];
    if (legal_moves(pos, moves) == 0) {
        int checker = find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                                    occupied_squares(pos));
        if (checker == NO_SQUARE) {
            end = END_STALEMATE;
            return RESULT_DRAW;
        }
        end = END_MATE;
        return pos.side == WHITE ? RESULT_BLACK_WINS : RESULT_WHITE_WINS;
    }
    end = END_RULE_DRAW;
    if (pos.cnt50 >= 100 || is_draw(pos, 0) || no_mating_material(pos))
        return RESULT_DRAW;
    end = END_TABLEBASE;
    return tablebase_verdict(pos);
}
