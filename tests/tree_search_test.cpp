// The recursive search node by node: what a node does before its first move
// (draws, the ply cap, mate distance, the hash, check extensions, static
// null pruning and the null move), the pruning of the move loop, the
// capture search below the horizon, and a few whole searches for mates.
//
// Most tests drive search_node or search_quiesce directly on Worker 0: the
// game position is set, one move is made from the root's own list the way
// the root hands it out, and the node below is called at ply 2.  The
// Worker's counters then tell what the node did.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "search/hash.h"
#include "search/search_params.h"
#include "test_support.h"

namespace {

constexpr int INF = INFINITE_SCORE;

// Piece codes of the white men, as MoveEntry::moved carries them.
constexpr int W_PAWN = PAWN, W_KNIGHT = KNIGHT, W_QUEEN = QUEEN;

struct Counters {
    u64 nodes, probes, hits, evals;
};

class TreeSearch : public testing::Test {
protected:
    void SetUp() override {
        saved_ = settings;
        // The default pruning limits, whatever a test before this one left.
        settings.selectivity = 100;
        settings.sep_depth = 3;
        settings.nmp_depth = 3;
        settings.fp_depth = 3;
        settings.lmp_depth = 6;
        settings.lmr_depth = 3;
        settings.max_nodes = 0;
        settings.threads = 1;
        if (!hash_table) hash_allocate();
        ASSERT_NE(hash_table, nullptr);
        status.use_hash = 1;
        update_margins();
        // No speed limit: the tree must never wait on the clock here.
        status.throttle = 0;
        store_stop(0);
        store_depth(0);
    }

    void TearDown() override {
        store_stop(0);
        settings = saved_;
        update_margins();
        test_position(START_FEN);
    }

    // Worker 0 on `fen` at the root, as a search finds it: fresh memories,
    // empty caches and an empty table.
    Worker *prepare(const char *fen) {
        test_position(fen);
        EXPECT_EQ(init_worker(0), 0);
        w_ = workers[0];
        for (PlyRecord &r : w_->plies) {
            r = PlyRecord{};
            r.checker_sq = NO_SQUARE;
            r.tb_result = -1;
        }
        reset_move_lists(w_);
        for (auto &row : w_->history)
            std::fill(std::begin(row), std::end(row), 1024);
        std::memset(w_->counter_move, 0, sizeof w_->counter_move);
        std::memset(w_->counter_move2, 0, sizeof w_->counter_move2);
        std::memset(w_->followup_move, 0, sizeof w_->followup_move);
        std::memset(w_->eval_cache, 0, sizeof w_->eval_cache);
        std::memset(w_->pawn_cache, 0, sizeof w_->pawn_cache);
        w_->node_limit = 1000000000000000ULL;
        w_->best_depth = 0;
        hash_clear();
        std::fill(std::begin(line_), std::end(line_), NO_MOVE);
        return w_;
    }

    // Makes `text` at the Worker's ply from that ply's own list, as a parent
    // hands a move out, so that the child finds the entry in `current`.
    bool play(const char *text) {
        Position &pos = w_->position;
        int ply = w_->ply;
        generate_all(pos);
        Move m = coord_move(text);
        MoveEntry *found = nullptr;
        for (MoveEntry *e = w_->plies[ply].list_start; e->move != END_OF_LIST;
             e++)
            if (e->move == m) {
                found = e;
                break;
            }
        EXPECT_NE(found, nullptr) << text << " is not generated";
        if (!found) return false;
        EXPECT_TRUE(legal_move(pos, pos.side, m)) << text;
        w_->plies[ply].current = found;
        w_->plies[ply].move_flags =
            static_cast<u16>(classify_move(pos, pos.side, *found) & 255);
        make_move(pos, m);
        return true;
    }

    int node(int depth, int alpha, int beta, int type) {
        Position &pos = w_->position;
        return search_node(pos, pos.side, w_->ply, depth, alpha, beta, type,
                           line_);
    }

    // The capture search of the current ply with `e` as its stand-pat value,
    // placed where search_node would have put it.
    int quiesce(int e, int depth, int alpha, int beta, int type = NODE_PV) {
        Position &pos = w_->position;
        PlyRecord &r = w_->plies[w_->ply];
        r.static_eval = static_cast<i16>(e);
        r.checker_sq = NO_SQUARE;
        r.in_check = 0;
        return search_quiesce(pos, pos.side, w_->ply, depth, alpha, beta, type,
                              line_);
    }

    // The static value the node at the current ply will see.
    int static_value() {
        Position &pos = w_->position;
        return evaluate(w_, pos.side, w_->ply, 0);
    }

    void store(int ply, int depth, const char *move, int score, int alpha,
               int beta) {
        hash_store(w_->position, ply, depth, move ? coord_move(move) : NO_MOVE,
                   score, alpha, beta);
    }

    HashEntry probe() {
        HashEntry e{};
        e.depth = HASH_NOT_FOUND;
        hash_probe(w_->position, e);
        return e;
    }

    Counters counters() const {
        return {w_->node_count, w_->hash_probe_count, w_->hash_hit_count,
                w_->eval_count};
    }

    int legal_count() {
        Move moves[MAX_MOVES];
        return legal_moves(w_->position, moves);
    }

    // How many of the white men's quiet moves have had their history
    // touched: each quiet move searched at depth above 0 moves its entry
    // away from the fresh 1024.
    int white_history_touched() const {
        int n = 0;
        for (int code = W_PAWN; code <= KING; code++)
            for (int sq = 0; sq < 64; sq++)
                if (w_->history[code][sq] != 1024) n++;
        return n;
    }

    Worker *w_ = nullptr;
    u16 line_[LINE_LENGTH]{};
    EngineSettings saved_{};
};

// ---------------------------------------------------------------------
// Before any move: stop, mate distance, draws, the ply cap.

TEST_F(TreeSearch, StopReturnsZeroAtOnce) {
    prepare("6k1/5ppp/8/8/8/8/5PPP/3R2K1 b - - 0 1");
    ASSERT_TRUE(play("g8h8"));
    store_stop(1);
    Counters before = counters();
    EXPECT_EQ(node(4, -INF, INF, NODE_PV), 0);
    store_stop(0);
    // The node is counted, nothing else is done.
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->eval_count, before.evals);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
}

TEST_F(TreeSearch, MateDistanceClosesTheWindow) {
    prepare("6k1/5ppp/8/8/8/8/5PPP/3R2K1 b - - 0 1");
    ASSERT_TRUE(play("g8h8"));
    Counters before = counters();
    // At ply 2 no score above 9997 can come back: a window from 9998 up is
    // empty and alpha returns as it is.
    EXPECT_EQ(node(5, 9998, INF, NODE_PV), 9998);
    // Nor can the side be mated before ply 2: alpha rises to -9998.
    EXPECT_EQ(node(5, -INF, -9999, NODE_CUT), -9998);
    EXPECT_EQ(w_->eval_count, before.evals);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    EXPECT_EQ(w_->node_count, before.nodes + 2);
}

TEST_F(TreeSearch, RepetitionInTreeIsZeroBeforeProbeOrEvaluation) {
    // Black has no queen, so the position is far from equal.
    prepare("rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    ASSERT_TRUE(play("g1f3"));
    ASSERT_TRUE(play("g8f6"));
    ASSERT_TRUE(play("f3g1"));
    ASSERT_TRUE(play("f6g8"));
    ASSERT_EQ(w_->ply, 5);
    // Four reversible plies: the clock stands at 4, enough for the test,
    // and one repetition inside the tree is a draw.
    ASSERT_EQ(w_->position.cnt50, 4);
    // An exact entry that would decide the node if it were read.
    store(5, 20, nullptr, 500, -INF, INF);
    Counters before = counters();
    EXPECT_EQ(node(6, -INF, INF, NODE_CUT), 0);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    EXPECT_EQ(w_->hash_hit_count, before.hits);
    EXPECT_EQ(w_->eval_count, before.evals);
}

TEST_F(TreeSearch, NoRepetitionAfterDifferentMoves) {
    // The same four plies without returning: the entry decides the node.
    prepare("rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    ASSERT_TRUE(play("g1f3"));
    ASSERT_TRUE(play("g8f6"));
    ASSERT_TRUE(play("b1c3"));
    ASSERT_TRUE(play("b8c6"));
    store(5, 20, nullptr, 500, -INF, INF);
    Counters before = counters();
    EXPECT_EQ(node(6, -INF, INF, NODE_CUT), 500);
    EXPECT_EQ(w_->hash_probe_count, before.probes + 1);
}

TEST_F(TreeSearch, DeepestPlyOnlyEvaluates) {
    prepare("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 0 1");
    Position &pos = w_->position;
    // A node at ply 80 is the end of every line: one evaluation, no probe,
    // no move.  (The Worker's ply follows the node's, as in a real line.)
    w_->ply = 80;
    Counters before = counters();
    int v = search_node(pos, pos.side, 80, 6, -INF, INF, NODE_PV, line_);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->eval_count, before.evals + 1);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    EXPECT_EQ(v, evaluate(w_, pos.side, 80, 0));
    EXPECT_EQ(w_->plies[80].move_count, 0);
    // One ply higher the node is still searched and probes the table.
    w_->ply = 79;
    before = counters();
    search_node(pos, pos.side, 79, 0, -INF, INF, NODE_PV, line_);
    EXPECT_EQ(w_->hash_probe_count, before.probes + 1);
    EXPECT_EQ(w_->ply, 79);
    w_->ply = 1;
}

TEST_F(TreeSearch, DeepestPlyInCheckIsZero) {
    prepare("4k3/8/8/8/8/8/8/r3K3 w - - 0 1");
    Position &pos = w_->position;
    w_->ply = 80;
    Counters before = counters();
    EXPECT_EQ(search_node(pos, pos.side, 80, 6, -INF, INF, NODE_PV, line_), 0);
    EXPECT_EQ(w_->eval_count, before.evals);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    w_->ply = 1;
}

// ---------------------------------------------------------------------
// In check below the horizon.

TEST_F(TreeSearch, InCheckBelowHorizonSearchesAllEvasionsWithoutProbe) {
    prepare("4k3/r7/8/8/8/8/8/4K3 b - - 0 1");
    ASSERT_TRUE(play("a7a1"));    // check along the first rank
    ASSERT_EQ(legal_count(), 3);  // Kd2, Ke2, Kf2
    Counters before = counters();
    int v = node(-3, -INF, INF, NODE_PV);
    // One more ply for the check still leaves depth -2: no probe anywhere
    // below, but the node walks every evasion, quiet king moves included.
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    EXPECT_EQ(w_->plies[2].move_count, 3);
    EXPECT_GE(w_->node_count, before.nodes + 4);
    // The king escapes: no mate score.
    EXPECT_GT(v, 2 - MATE_SCORE + 100);
    EXPECT_EQ(w_->plies[2].depth, -2);
    EXPECT_EQ(w_->plies[2].in_check, 1);
}

TEST_F(TreeSearch, InCheckEntryIsReadOnlyFromDepthZero) {
    prepare("4k3/r7/8/8/8/8/8/4K3 b - - 0 1");
    ASSERT_TRUE(play("a7a1"));
    // An exact entry that would end the node if it were probed.
    store(2, 10, nullptr, 777, -INF, INF);
    Counters before = counters();
    int v = node(-3, -INF, INF, NODE_CUT);
    EXPECT_NE(v, 777);
    EXPECT_EQ(w_->hash_probe_count, before.probes);
    // At depth -1 the check extension brings the node to 0: it probes and
    // the entry decides, before any evaluation.
    before = counters();
    EXPECT_EQ(node(-1, -INF, INF, NODE_CUT), 777);
    EXPECT_EQ(w_->hash_probe_count, before.probes + 1);
    EXPECT_EQ(w_->hash_hit_count, before.hits + 1);
    EXPECT_EQ(w_->eval_count, before.evals);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
}

// ---------------------------------------------------------------------
// No legal move.

TEST_F(TreeSearch, MateInTreeScoresPlyAndStoresExact) {
    prepare("6k1/r7/8/8/8/8/5PPP/6K1 b - - 0 1");
    ASSERT_TRUE(play("a7a1"));  // back-rank mate
    ASSERT_EQ(legal_count(), 0);
    EXPECT_EQ(node(1, -INF, INF, NODE_PV), 2 - MATE_SCORE);
    HashEntry e = probe();
    ASSERT_GE(e.depth, 0);
    EXPECT_EQ(e.type, HASH_EXACT);
    EXPECT_EQ(e.move, NO_MOVE);
    // Stored relative to the node: mated right here.
    EXPECT_EQ(e.score, -MATE_SCORE);
}

TEST_F(TreeSearch, StalemateInTreeIsZeroAndExact) {
    prepare("k7/8/8/1Q6/8/8/8/7K w - - 0 1");
    ASSERT_TRUE(play("b5b6"));  // the black king has no square and no check
    ASSERT_EQ(legal_count(), 0);
    EXPECT_EQ(node(2, -500, 500, NODE_PV), 0);
    HashEntry e = probe();
    ASSERT_GE(e.depth, 0);
    EXPECT_EQ(e.type, HASH_EXACT);
    EXPECT_EQ(e.score, 0);
}

// ---------------------------------------------------------------------
// The hash probe.

TEST_F(TreeSearch, MateEntryStoredAtPlyFourReadsFromPlySix) {
    prepare(START_FEN);
    for (const char *m : {"g1f3", "g8f6", "b1c3", "b8c6", "e2e4"})
        ASSERT_TRUE(play(m));
    ASSERT_EQ(w_->ply, 6);
    // The same position met at ply 4 mated the other side at ply 9, five
    // plies below that node; the table keeps the five.
    store(4, 20, nullptr, MATE_SCORE - 9, -INF, INF);
    HashEntry e = probe();
    ASSERT_GE(e.depth, 0);
    EXPECT_EQ(e.score, MATE_SCORE - 5);
    // Read at ply 6 the mate stands five plies further: at ply 11.
    EXPECT_EQ(node(3, -INF, INF, NODE_CUT), MATE_SCORE - 11);

    hash_clear();
    store(4, 20, nullptr, 9 - MATE_SCORE, -INF, INF);
    e = probe();
    ASSERT_GE(e.depth, 0);
    EXPECT_EQ(e.score, 5 - MATE_SCORE);
    EXPECT_EQ(node(3, -INF, INF, NODE_CUT), 11 - MATE_SCORE);
}

TEST_F(TreeSearch, MateBoundFromPlyFourCutsAtPlySix) {
    prepare(START_FEN);
    for (const char *m : {"g1f3", "g8f6", "b1c3", "b8c6", "e2e4"})
        ASSERT_TRUE(play(m));
    // A lower bound of "mate at ply 9" seen from ply 4 is "mate at ply 11"
    // from here: above a beta of 9988, below one of 9990.
    store(4, 20, nullptr, MATE_SCORE - 9, -INF, 9000);
    Counters before = counters();
    EXPECT_EQ(node(3, 9987, 9988, NODE_CUT), 9988);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    before = counters();
    node(3, 9989, 9990, NODE_CUT);
    // No cut-off there: the node goes on to its evaluation.
    EXPECT_GT(w_->eval_count, before.evals);
}

TEST_F(TreeSearch, BoundsCutWithTheWindowEdge) {
    prepare("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 0 1");
    ASSERT_TRUE(play("g8f6"));
    store(2, 8, "f3e5", 500, -INF, 400);  // lower bound 500
    HashEntry e = probe();
    ASSERT_EQ(e.type, HASH_LOWER);
    EXPECT_EQ(node(4, 0, 100, NODE_CUT), 100);
    EXPECT_EQ(node(4, 0, 100, NODE_ALL), 100);
    EXPECT_EQ(w_->plies[2].hash_move, coord_move("f3e5"));

    hash_clear();
    store(2, 8, "f3e5", -500, -400, INF);  // upper bound -500
    ASSERT_EQ(probe().type, HASH_UPPER);
    EXPECT_EQ(node(4, -100, 0, NODE_CUT), -100);

    hash_clear();
    store(2, 8, "f3e5", 37, -INF, INF);  // exact
    ASSERT_EQ(probe().type, HASH_EXACT);
    Counters before = counters();
    EXPECT_EQ(node(4, -100, 100, NODE_ALL), 37);
    EXPECT_EQ(w_->eval_count, before.evals);
}

TEST_F(TreeSearch, PvNodeAndShallowEntryDoNotCut) {
    prepare("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 0 1");
    ASSERT_TRUE(play("g8f6"));
    store(2, 8, "f3e5", 37, -INF, INF);
    Counters before = counters();
    node(2, -100, 100, NODE_PV);
    EXPECT_GT(w_->node_count, before.nodes + 1);
    EXPECT_GT(w_->eval_count, before.evals);
    EXPECT_EQ(w_->plies[2].hash_move, coord_move("f3e5"));

    // An entry shallower than the node lends its move and nothing more.
    prepare("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 0 1");
    ASSERT_TRUE(play("g8f6"));
    store(2, 1, "a2a3", 37, -INF, INF);
    before = counters();
    node(3, -100, 100, NODE_ALL);
    EXPECT_GT(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->plies[2].hash_move, coord_move("a2a3"));
}

TEST_F(TreeSearch, OrdinaryScoreFadesWithTheFiftyMoveClock) {
    prepare("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 0 1");
    w_->position.cnt50 = 60;  // a FEN always starts the clock at 0
    ASSERT_TRUE(play("g8f6"));
    ASSERT_EQ(w_->position.cnt50, 61);
    // Stored when the clock stood ten moves lower.
    Position &pos = w_->position;
    pos.cnt50 = 51;
    store(2, 8, nullptr, 300, -INF, INF);
    pos.cnt50 = 61;
    // 300 - 10 * 300 / 256, the quotient cut toward zero.
    EXPECT_EQ(node(2, -INF, INF, NODE_CUT), 289);

    hash_clear();
    pos.cnt50 = 51;
    store(2, 8, nullptr, -300, -INF, INF);
    pos.cnt50 = 61;
    EXPECT_EQ(node(2, -INF, INF, NODE_CUT), -289);

    // Mate scores keep their value.
    hash_clear();
    pos.cnt50 = 51;
    store(2, 8, nullptr, MATE_SCORE - 7, -INF, INF);
    pos.cnt50 = 61;
    EXPECT_EQ(node(2, -INF, INF, NODE_CUT), MATE_SCORE - 7);
}

// With the clock at 90 an entry 12 plies deep might not survive the rule:
// it does not cut, but its move still goes first.
TEST_F(TreeSearch, FiftyMoveClockKeepsDeepEntryFromCutting) {
    prepare("4k3/8/8/5p2/8/8/PP3R2/4K3 b - - 0 1");
    w_->position.cnt50 = 89;
    ASSERT_TRUE(play("e8e7"));
    ASSERT_EQ(w_->position.cnt50, 90);
    store(2, 12, "a2a3", 500, -INF, 400);  // lower bound 500
    ASSERT_EQ(probe().type, HASH_LOWER);
    Counters before = counters();
    int v = node(1, -1000, -999, NODE_ALL);
    EXPECT_EQ(w_->hash_hit_count, before.hits + 1);
    EXPECT_GT(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->plies[2].hash_move, coord_move("a2a3"));
    // The quiet hash move was searched first and failed high on its own,
    // ahead of the capture Rxf5.
    EXPECT_EQ(line_[2], coord_move("a2a3"));
    EXPECT_EQ(w_->plies[2].move_count, 1);
    EXPECT_GT(v, -999);  // fail-soft: the move's own value, not beta
}

TEST_F(TreeSearch, TenMovesLessOnTheClockTheSameEntryCuts) {
    prepare("4k3/8/8/5p2/8/8/PP3R2/4K3 b - - 0 1");
    w_->position.cnt50 = 79;
    ASSERT_TRUE(play("e8e7"));
    ASSERT_EQ(w_->position.cnt50, 80);
    store(2, 12, "a2a3", 500, -INF, 400);
    Counters before = counters();
    EXPECT_EQ(node(1, -1000, -999, NODE_ALL), -999);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->eval_count, before.evals);
}

TEST_F(TreeSearch, FiftyMoveGuardSparesAZeroScore) {
    prepare("4k3/8/8/5p2/8/8/PP3R2/4K3 b - - 0 1");
    w_->position.cnt50 = 89;
    ASSERT_TRUE(play("e8e7"));
    store(2, 12, "a2a3", 0, -INF, -100);  // lower bound 0
    ASSERT_EQ(probe().type, HASH_LOWER);
    Counters before = counters();
    // A draw score survives the rule: the bound cuts.
    EXPECT_EQ(node(1, -1, 0, NODE_ALL), 0);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
    EXPECT_EQ(w_->eval_count, before.evals);
}

// ---------------------------------------------------------------------
// Static null pruning and the null move.

// White has a rook and pawns; the node lies 200 above beta.
constexpr const char *ROOK_AND_PAWNS = "6k1/5ppp/8/8/8/8/5PPP/3R2K1 b - - 0 1";
// The same without White's pawns.
constexpr const char *ROOK_NO_PAWNS = "6k1/5ppp/8/8/8/8/8/3R2K1 b - - 0 1";
// Pawns without a piece.
constexpr const char *PAWNS_NO_PIECE = "6k1/6pp/8/8/8/8/5PPP/6K1 b - - 0 1";

TEST_F(TreeSearch, StaticNullCutsWithPiecesAndPawns) {
    prepare(ROOK_AND_PAWNS);
    ASSERT_TRUE(play("g8h8"));
    int beta = static_value() - 200;
    Counters before = counters();
    EXPECT_EQ(node(2, beta - 1, beta, NODE_CUT), beta);
    EXPECT_EQ(w_->node_count, before.nodes + 1);
}

TEST_F(TreeSearch, NoStaticNullWithoutOwnPawns) {
    prepare(ROOK_NO_PAWNS);
    ASSERT_TRUE(play("g8h8"));
    int beta = static_value() - 200;
    Counters before = counters();
    node(2, beta - 1, beta, NODE_CUT);
    // The moves are searched instead.
    EXPECT_GT(w_->node_count, before.nodes + 1);
    EXPECT_GE(w_->plies[2].move_count, 1);
}

TEST_F(TreeSearch, NoStaticNullWithoutPiecePoints) {
    prepare(PAWNS_NO_PIECE);
    ASSERT_TRUE(play("g8h8"));
    int beta = static_value() - 200;
    Counters before = counters();
    node(2, beta - 1, beta, NODE_CUT);
    EXPECT_GT(w_->node_count, before.nodes + 1);
    EXPECT_GE(w_->plies[2].move_count, 1);
}

TEST_F(TreeSearch, NullMoveCutsWithPiecesAndPawns) {
    prepare(ROOK_AND_PAWNS);
    ASSERT_TRUE(play("g8h8"));
    int beta = static_value() - 200;
    EXPECT_EQ(node(4, beta - 1, beta, NODE_CUT), beta);
    // The null move was made in place at the head of this ply's list.
    const PlyRecord &r = w_->plies[2];
    EXPECT_EQ(r.current, r.list_start);
    EXPECT_EQ(r.list_start[0].move, NO_MOVE);
    EXPECT_EQ(r.list_start[1].move, END_OF_LIST);
    EXPECT_EQ(r.reduction, 0);
    // Its child searched Black to move at depth 4 - 3 - 1.
    EXPECT_EQ(w_->plies[3].depth, 0);
}

// Searches `fen` after `reply` at ply 2, 200 above beta in a cut node,
// once as it is and once with static null pruning and the null move
// switched off; gives both node counts and scores.
struct PairResult {
    u64 nodes_on, nodes_off;
    int score_on, score_off;
};

class NullPair : public TreeSearch {
protected:
    PairResult run_pair(const char *fen, const char *reply, int depth) {
        PairResult p{};
        for (int off = 0; off < 2; off++) {
            update_margins();
            status.throttle = 0;
            if (off) {
                SEP_depth = 0;
                NMP_depth = 100;
            }
            prepare(fen);
            EXPECT_TRUE(play(reply));
            int beta = static_value() - 200;
            u64 before = w_->node_count;
            int v = node(depth, beta - 1, beta, NODE_CUT);
            (off ? p.nodes_off : p.nodes_on) = w_->node_count - before;
            (off ? p.score_off : p.score_on) = v;
        }
        update_margins();
        status.throttle = 0;
        return p;
    }
};

TEST_F(NullPair, PiecesAndPawnsOnBothSidesArePruned) {
    // The control: here the two prunings do change the tree.
    PairResult p =
        run_pair("r5k1/5ppp/8/8/8/8/5PPP/2RR2K1 b - - 0 1", "g8h8", 4);
    EXPECT_LT(p.nodes_on, p.nodes_off);
}

TEST_F(NullPair, NeitherSideWithPawnsIsNeverPruned) {
    // Pieces only: no node of the tree may try either pruning.
    PairResult p = run_pair("6k1/5r2/8/8/8/8/8/3R1NK1 b - - 0 1", "g8h8", 4);
    EXPECT_EQ(p.nodes_on, p.nodes_off);
    EXPECT_EQ(p.score_on, p.score_off);
    PairResult q = run_pair("6k1/5r2/8/8/8/8/8/3R1NK1 b - - 0 1", "g8h8", 2);
    EXPECT_EQ(q.nodes_on, q.nodes_off);
    EXPECT_EQ(q.score_on, q.score_off);
}

TEST_F(NullPair, PawnEndingIsNeverPruned) {
    // Kings and pawns only: no side has piece points in the whole tree.
    PairResult p = run_pair("6k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1", "g8h8", 4);
    EXPECT_EQ(p.nodes_on, p.nodes_off);
    EXPECT_EQ(p.score_on, p.score_off);
    PairResult q = run_pair("6k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1", "g8h8", 2);
    EXPECT_EQ(q.nodes_on, q.nodes_off);
    EXPECT_EQ(q.score_on, q.score_off);
}

// ---------------------------------------------------------------------
// Pruning in the move loop.

// White to move after ...Kh8 with many quiet moves and no capture or
// check; Qa6, Qe6 and Qe8 walk into an attack.
constexpr const char *QUIET_QUEEN =
    "5rk1/ppp2ppp/8/8/8/8/PPP1QPPP/6K1 b - - 0 1";

TEST_F(TreeSearch, FirstMoveIsSearchedEvenWhenUnsafe) {
    prepare(QUIET_QUEEN);
    ASSERT_TRUE(play("g8h8"));
    w_->plies[0].static_eval = 9000;  // not improving
    // A shallow lower bound above beta: no razoring, and its move first.
    store(2, 0, "e2a6", 5000, -INF, 4000);
    node(1, 3000, 3001, NODE_ALL);
    // Nothing is pruned before a move has been searched: Qa6 was, and
    // failed low at depth 1.
    EXPECT_EQ(w_->history[W_QUEEN][sq_of("a6")], 1024 - 1024 * 7 / 1024);
}

TEST_F(TreeSearch, FailLowFirstMoveOpensLateMovePruning) {
    prepare(QUIET_QUEEN);
    ASSERT_TRUE(play("g8h8"));
    w_->plies[0].static_eval = 9000;
    int legal = legal_count();
    store(2, 0, "h2h3", 5000, -INF, 4000);
    node(1, 3000, 3001, NODE_ALL);
    // The first move failed low and still counts as searched: from then on
    // quiet moves stop at 2 * depth + 2 * depth (not a reduced try) plus
    // score / 8 = 0, and unsafe ones are dropped.
    EXPECT_EQ(w_->history[W_PAWN][sq_of("h3")], 1017);
    EXPECT_EQ(w_->plies[2].move_count, 4);
    EXPECT_LT(w_->plies[2].move_count, legal);
    EXPECT_EQ(w_->history[W_QUEEN][sq_of("a6")], 1024);
    EXPECT_EQ(w_->history[W_QUEEN][sq_of("e6")], 1024);
    EXPECT_EQ(w_->history[W_QUEEN][sq_of("e8")], 1024);
}

TEST_F(TreeSearch, PvNodeSearchesEveryMove) {
    prepare(QUIET_QUEEN);
    ASSERT_TRUE(play("g8h8"));
    int legal = legal_count();
    store(2, 0, "h2h3", 5000, -INF, 4000);
    node(1, 3000, 3001, NODE_PV);
    EXPECT_EQ(w_->plies[2].move_count, legal);
    EXPECT_EQ(w_->history[W_QUEEN][sq_of("a6")], 1017);
}

// White to move after ...Kg8: the knight's captures and steps.  Na6 and
// Nc6 land on squares the b7 pawn attacks, Nxd5 loses the knight to exd5;
// the king moves and Na2, Nc2, Nd3 are safe.
constexpr const char *KNIGHT_STEPS = "7k/1p6/4p3/3p4/1N6/8/8/7K b - - 0 1";

TEST_F(TreeSearch, DepthTwoKeepsUnsafeCaptureButDropsUnsafeQuiets) {
    prepare(KNIGHT_STEPS);
    ASSERT_TRUE(play("h8g8"));
    w_->plies[0].static_eval = 9000;
    ASSERT_EQ(legal_count(), 9);
    store(2, 0, "h1g1", 5000, -INF, 4000);
    node(2, 3000, 3001, NODE_ALL);
    int quiets = white_history_touched();
    EXPECT_EQ(w_->history[W_KNIGHT][sq_of("a6")], 1024);
    EXPECT_EQ(w_->history[W_KNIGHT][sq_of("c6")], 1024);
    EXPECT_EQ(w_->history[W_KNIGHT][sq_of("d3")], 1024 - 1024 * 10 / 1024);
    EXPECT_EQ(quiets, 6);
    // The one capture, unsafe as it is, was searched as well.
    EXPECT_EQ(w_->plies[2].move_count - quiets, 1);
}

TEST_F(TreeSearch, DepthOneDropsUnsafeCaptureToo) {
    prepare(KNIGHT_STEPS);
    ASSERT_TRUE(play("h8g8"));
    w_->plies[0].static_eval = 9000;
    store(2, 0, "h1g1", 5000, -INF, 4000);
    node(1, 3000, 3001, NODE_ALL);
    int quiets = white_history_touched();
    EXPECT_GE(quiets, 1);
    EXPECT_EQ(w_->history[W_KNIGHT][sq_of("a6")], 1024);
    EXPECT_EQ(w_->history[W_KNIGHT][sq_of("c6")], 1024);
    EXPECT_EQ(w_->plies[2].move_count - quiets, 0);
}

// ---------------------------------------------------------------------
// The capture search.

TEST_F(TreeSearch, StandPatAtOrAboveBetaReturnsBeta) {
    prepare("4k3/8/8/8/q7/8/8/R3K3 b - - 0 1");
    ASSERT_TRUE(play("e8d7"));
    Counters before = counters();
    EXPECT_EQ(quiesce(300, 0, -INF, 100), 100);
    EXPECT_EQ(quiesce(100, 0, -INF, 100), 100);
    // Not even the free queen is looked at, and nothing is stored.
    EXPECT_EQ(w_->node_count, before.nodes);
    EXPECT_EQ(probe().depth, HASH_NOT_FOUND);
}

TEST_F(TreeSearch, NoMoveReturnsStandPatBelowAlpha) {
    prepare("4k3/8/8/8/8/8/P7/4K3 b - - 0 1");
    ASSERT_TRUE(play("e8d7"));
    Counters before = counters();
    EXPECT_EQ(quiesce(-500, 0, 0, 100), -500);
    EXPECT_EQ(w_->node_count, before.nodes);
    EXPECT_EQ(w_->plies[2].move_count, 0);
    EXPECT_EQ(probe().depth, HASH_NOT_FOUND);
}

TEST_F(TreeSearch, CaptureSearchStoresOnlyFailHighFromDepthZero) {
    prepare("4k3/8/8/8/q7/8/8/R3K3 b - - 0 1");
    ASSERT_TRUE(play("e8d7"));
    int v = quiesce(0, -1, -50, 50);
    EXPECT_GE(v, 50);
    EXPECT_EQ(line_[2], coord_move("a1a4"));
    // Below depth 0 nothing enters the table.
    EXPECT_EQ(probe().depth, HASH_NOT_FOUND);

    v = quiesce(0, 0, -50, 50);
    EXPECT_GE(v, 50);
    HashEntry e = probe();
    ASSERT_EQ(e.depth, 0);
    EXPECT_EQ(e.type, HASH_LOWER);
    EXPECT_EQ(e.move, coord_move("a1a4"));
    EXPECT_EQ(e.score, v);

    // A result inside the window is not stored either.
    hash_clear();
    v = quiesce(0, 0, -50, 5000);
    EXPECT_GT(v, 0);
    EXPECT_LT(v, 5000);
    EXPECT_EQ(probe().depth, HASH_NOT_FOUND);
}

TEST_F(TreeSearch, CheckingCaptureEscapesDeltaPruning) {
    // Rxb7 checks along the seventh rank; Nxe5 is a plain pawn capture.
    prepare("7k/pp6/8/4p3/8/5N2/8/1R4K1 b - - 0 1");
    ASSERT_TRUE(play("h8h7"));
    EXPECT_GT(quiesce(-1000, -1, 0, 100), -1000);
    EXPECT_EQ(w_->plies[2].move_count, 1);
    EXPECT_EQ(line_[2], coord_move("b1b7"));
    // Stand pat nearer the bound: the pawn capture is tried too.
    quiesce(-200, -1, 0, INF);
    EXPECT_EQ(w_->plies[2].move_count, 2);
}

TEST_F(TreeSearch, CheckingCaptureStillNeedsSafeExchange) {
    // The bishop on a8 guards b7: Rxb7+ loses the rook for a pawn.
    prepare("b6k/pp6/8/8/8/8/8/1R4K1 b - - 0 1");
    ASSERT_TRUE(play("h8h7"));
    EXPECT_EQ(quiesce(0, -1, 0, 100), 0);
    EXPECT_EQ(w_->plies[2].move_count, 0);
    EXPECT_EQ(line_[2], NO_MOVE);
}

TEST_F(TreeSearch, LastPawnOfLoneMinorEscapesDeltaPruning) {
    // After Rxe5 Black keeps a lone knight or bishop: too little to win.
    for (const char *fen : {"1n5k/8/8/4p3/8/8/8/4R1K1 b - - 0 1",
                            "b6k/8/8/4p3/8/8/8/4R1K1 b - - 0 1"}) {
        prepare(fen);
        ASSERT_TRUE(play("h8h7"));
        quiesce(-1000, -1, 0, 100);
        EXPECT_EQ(w_->plies[2].move_count, 1) << fen;
        EXPECT_EQ(line_[2], coord_move("e1e5")) << fen;
    }
}

TEST_F(TreeSearch, PawnCaptureIsDeltaPrunedWhenMaterialRemains) {
    for (const char *fen : {// a second pawn stays
                            "1n5k/p7/8/4p3/8/8/8/4R1K1 b - - 0 1",
                            // a rook stays
                            "1r5k/8/8/4p3/8/8/8/4R1K1 b - - 0 1"}) {
        prepare(fen);
        ASSERT_TRUE(play("h8h7"));
        EXPECT_EQ(quiesce(-1000, -1, 0, 100), -1000) << fen;
        EXPECT_EQ(w_->plies[2].move_count, 0) << fen;
    }
}

TEST_F(TreeSearch, DeltaMarginWidensForRazoring) {
    // A pawn capture 150 short of the bound: dropped in the plain capture
    // search, tried when razoring calls it with a positive depth.
    prepare("7k/p7/8/4p3/8/8/8/4R1K1 b - - 0 1");
    ASSERT_TRUE(play("h8h7"));
    quiesce(-250, 0, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 0);
    quiesce(-250, -1, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 0);
    quiesce(-250, 1, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 1);
    quiesce(-249, 0, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 1);
}

TEST_F(TreeSearch, QuietChecksOnlyFromDepthZero) {
    // Rb7+ is the one check, and there is no capture.
    prepare("7k/8/8/8/8/8/8/1R4K1 b - - 0 1");
    ASSERT_TRUE(play("h8h7"));
    quiesce(-1000, 0, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 1);
    EXPECT_EQ(line_[2], coord_move("b1b7"));
    quiesce(-1000, -1, 0, 100);
    EXPECT_EQ(w_->plies[2].move_count, 0);
}

TEST_F(TreeSearch, CaptureChainRunsDepthFarBelowZero) {
    // Pieces crowd around d5 and e4: the exchanges run many plies below
    // the horizon, each a capture search one ply deeper.
    prepare("3r2k1/1b1r4/2n1q3/3p4/4P3/2N2N2/1B1R4/3R2K1 b - - 0 1");
    ASSERT_TRUE(play("b7c8"));
    w_->seldepth = 0;
    node(0, -INF, INF, NODE_PV);
    int deepest = w_->seldepth;
    EXPECT_GE(deepest, 9);
    int lowest = 0;
    for (int p = 2; p <= deepest; p++)
        lowest = std::min<int>(lowest, w_->plies[p].depth);
    // Quiet checks stop at depth 0; what went on below is captures alone.
    EXPECT_LE(lowest, -5);
}

TEST_F(TreeSearch, NoDepthFloorBelowTheHorizon) {
    // Far below zero a node still takes a hanging queen.  The knight on h8
    // keeps Black's piece points, so the capture is no step into a pawn
    // ending and the child simply lies one ply deeper.
    prepare("4k2n/8/8/8/q7/8/8/R3K3 b - - 0 1");
    ASSERT_TRUE(play("e8d7"));
    int stand_pat = static_value();  // a queen against a rook: far behind
    int v = node(-50, -INF, INF, NODE_PV);
    EXPECT_GT(v, stand_pat + 300);
    EXPECT_EQ(line_[2], coord_move("a1a4"));
    EXPECT_EQ(w_->plies[2].depth, -50);
    EXPECT_EQ(w_->plies[3].depth, -51);
    EXPECT_EQ(w_->hash_probe_count, 0u);
}

TEST_F(TreeSearch, TakingTheLastPieceExtends) {
    // Rxa4 leaves Black a bare king: the step into a pawn ending earns the
    // child one ply, even below the horizon.
    prepare("4k3/8/8/8/q7/8/8/R3K3 b - - 0 1");
    ASSERT_TRUE(play("e8d7"));
    node(-50, -INF, INF, NODE_PV);
    EXPECT_EQ(line_[2], coord_move("a1a4"));
    EXPECT_EQ(w_->plies[3].depth, -50);
}

// ---------------------------------------------------------------------
// Whole searches.

TEST(TreeSearchWhole, MateInTwoScoresMateAtPlyFour) {
    SearchOutcome r = run_search(
        "r2qkb1r/pp2nppp/3p4/2pNN1B1/2BnP3/3P4/PPP2PPP/R2bK2R w KQkq - 1 1", 6);
    EXPECT_EQ(r.best_move, coord_move("d5f6"));
    EXPECT_EQ(r.score, MATE_SCORE - 4);
}

TEST(TreeSearchWhole, QueenSacrificeMateInTwo) {
    SearchOutcome r =
        run_search("1r6/4b2k/1q1pNrpp/p2Pp3/4P3/1P1R3Q/5PPP/5RK1 w - - 0 1", 6);
    EXPECT_EQ(r.best_move, coord_move("h3h6"));
    EXPECT_EQ(r.score, MATE_SCORE - 4);
}

TEST(TreeSearchWhole, MateInThreeScoresMateAtPlySix) {
    SearchOutcome r = run_search("r5rk/5p1p/5R2/4B3/8/8/7P/7K w - - 0 1", 8);
    EXPECT_EQ(r.best_move, coord_move("f6a6"));
    EXPECT_EQ(r.score, MATE_SCORE - 6);
}

TEST(TreeSearchWhole, FixedDepthSearchRepeatsExactly) {
    const char *fen =
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3";
    // Each run on a fresh main Worker: its evaluation cache keeps values
    // without the fifty-move damping, which would steer a second run.
    auto fresh_run = [&] {
        free_worker(workers[0]);
        workers[0] = nullptr;
        return run_search(fen, 7);
    };
    SearchOutcome a = fresh_run();
    SearchOutcome b = fresh_run();
    EXPECT_GT(a.nodes, 1000u);
    EXPECT_EQ(a.nodes, b.nodes);
    EXPECT_EQ(a.best_move, b.best_move);
    EXPECT_EQ(a.score, b.score);
    EXPECT_NE(a.best_move, NO_MOVE);
}

}  // namespace
