// The staged move picker.  A node's list is built in pieces at the ply's
// list_start: the hash move, then the tactical moves, then quiet checks or
// the quiet moves behind what is left of them.  Selection is lazy: one
// pass for each move handed out, the best score swapped to the front.
#include "move_picker.h"

// Victim bonus by captured piece code, both colours alike.  A king victim
// (only in a broken position) ranks below everything.
constexpr i16 CAPTURE_ORDER[16] = {210, 220, 230, 230, 240, 250, 0, 0,
                                   210, 220, 230, 230, 240, 250, 0, 0};

// A capture whose exchange loses less than half a pawn still counts as good.
constexpr int GOOD_EXCHANGE = -49;
// Below these the tactical selection gives way to the quiet moves, and the
// quiet selection to plain list order.
constexpr int GOOD_TACTICAL_ABOVE = 150;
constexpr int GOOD_QUIET_ABOVE = 2;

// A list holds at most 16 men's moves, none with more than 27, two
// castlings, the hash move and the terminator; quiet checks in a capture
// search only repeat moves of that count.
static_assert(16 * 27 + 2 + 2 <= MAX_LIST_LENGTH);

static void set_stage(PlyRecord &record, u16 stage) {
    record.pick_state =
        static_cast<u16>((record.pick_state & ~PICK_STAGE_MASK) | stage);
}

// Ends a list and packs the next two plies' lists behind it; a child that
// makes no list (a null move) thus still leaves its own child room.
static void end_list(Worker *w, int ply, MoveEntry *end) {
    end->move = END_OF_LIST;
    if (ply + 1 < PLY_RECORDS) w->plies[ply + 1].list_start = end + 1;
    if (ply + 2 < PLY_RECORDS) w->plies[ply + 2].list_start = end + 2;
}

// The highest signed score from `at` to the terminator, the earliest among
// equals, swapped to `at`; null when nothing is left.
static MoveEntry *select_best(MoveEntry *at) {
    if (at->move == END_OF_LIST) return nullptr;
    MoveEntry *best = at;
    for (MoveEntry *e = at + 1; e->move != END_OF_LIST; e++)
        if (e->score > best->score) best = e;
    MoveEntry chosen = *best;
    *best = *at;
    *at = chosen;
    return at;
}

static i16 victim_score(const MoveEntry &e) {
    return static_cast<i16>(CAPTURE_ORDER[e.captured & 15] - (e.moved & 7));
}

// Losing exchanges drop below every good one, ordered by the victim alone.
static i16 exchange_score(const Position &pos, const MoveEntry &e) {
    int see = see_move(pos, pos.side, move_from(e.move), move_to(e.move));
    if (see >= GOOD_EXCHANGE) return victim_score(e);
    return static_cast<i16>((e.captured & 7) * 4);
}

// A corrupted checker square must not reach the generators' bit shifts.
static int check_target(const PlyRecord &record) {
    return record.checker_sq < 64 ? record.checker_sq : NO_SQUARE;
}

// Stage 0: the hash move alone in the list, or straight on to generation.
static MoveEntry *start_node(const Position &pos, Worker *w, int ply,
                             MoveEntry *&at) {
    PlyRecord &record = w->plies[ply];
    record.current = record.list_start;
    at = record.list_start;
    set_stage(record, STAGE_GENERATE_TACTICAL);
    Move m = record.hash_move;
    // 65535 would read as the list's end; it is no move either.
    if (m == NO_MOVE || m == END_OF_LIST) return nullptr;
    if (!(record.pick_state & PICK_HASH_FIRST)) return nullptr;
    at->move = m;
    at->score = HASH_MOVE_SCORE;
    at->moved = pos.board[move_from(m)];
    at->captured = pos.board[move_to(m)];
    end_list(w, ply, at + 1);
    return at;
}

// Stage 1: captures, promotions and pushes to the seventh rank, written
// over the hash move's terminator if there is one.
static void generate_tactical(const Position &pos, Worker *w, int ply,
                              MoveEntry *at) {
    PlyRecord &record = w->plies[ply];
    bool full = record.pick_state & PICK_FULL;
    // 1. Captures and promotions
    MoveEntry *end = generate_captures(pos, pos.side, at, check_target(record));
    end = generate_promotions(pos, pos.side, full, end);
    // 2. Pawn pushes to the seventh rank
    end = generate_seventh_pushes(pos, pos.side, end);
    // 3. End the list
    end_list(w, ply, end);
    // 4. and 5.  An empty list passes on through the selection stage.
    for (MoveEntry *e = at; e != end; e++)
        e->score = full ? exchange_score(pos, *e) : victim_score(*e);
    set_stage(record, full ? STAGE_SELECT_EXCHANGE : STAGE_SELECT_TACTICAL);
}

// Stage 3: the tactical moves are spent; a capture search near the horizon
// goes on with quiet checks, in list order.
static void add_quiet_checks(const Position &pos, Worker *w, int ply,
                             MoveEntry *at) {
    PlyRecord &record = w->plies[ply];
    if (!(record.pick_state & PICK_QUIET_CHECKS)) {
        set_stage(record, STAGE_SPENT);
        return;
    }
    MoveEntry *end = generate_quiet_checks(pos, pos.side, at);
    for (MoveEntry *e = at; e != end; e++) e->score = QUIET_CHECK_SCORE;
    end_list(w, ply, end);
    set_stage(record, STAGE_LIST_ORDER);
}

// The moves that earn a bonus on top of their history, best first.
struct QuietBonuses {
    Move move[5];
    i16 bonus[5];
    int count;
};

static QuietBonuses quiet_bonuses(const Worker *w, int ply) {
    const PlyRecord &record = w->plies[ply];
    // The replies stored for the last two moves; after a null move there
    // are none.
    const MoveEntry &m1 = *w->plies[ply - 1].current;
    Move counter = 0, counter2 = 0, followup = 0;
    if (m1.move != NO_MOVE) {
        counter = w->counter_move[m1.moved & 15][move_to(m1.move)];
        counter2 = w->counter_move2[m1.moved & 15][move_to(m1.move)];
        // The root has no move two plies before it.
        const MoveEntry *m2 = ply >= 2 ? w->plies[ply - 2].current : nullptr;
        if (m2 && m2->move != NO_MOVE)
            followup = w->followup_move[m2->moved & 15][move_to(m2->move)];
    }
    if (record.in_check)
        return {{record.evasion_killer, counter, counter2}, {60, 55, 50}, 3};
    return {{record.killer[0], record.killer[1], counter, counter2, followup},
            {60, 55, 50, 45, 40},
            5};
}

// A quiet move's score: its history in 256ths of the range, 0 to 64, plus
// the first bonus that matches.
static i16 quiet_score(const Worker *w, const QuietBonuses &bonuses,
                       const MoveEntry &e) {
    int score = w->history[e.moved & 15][move_to(e.move)] / 256;
    for (int i = 0; i < bonuses.count; i++)
        if (e.move == bonuses.move[i]) {
            score += bonuses.bonus[i];
            break;
        }
    return static_cast<i16>(score);
}

static void score_quiets(const Worker *w, int ply, MoveEntry *begin,
                         MoveEntry *end) {
    QuietBonuses bonuses = quiet_bonuses(w, ply);
    for (MoveEntry *e = begin; e != end; e++)
        e->score = quiet_score(w, bonuses, *e);
}

// Stage 5: the quiet moves behind whatever the tactical selection left.
// The root orders its moves by itself, so they stay unscored there.
static void add_quiets(const Position &pos, Worker *w, int ply, MoveEntry *at) {
    PlyRecord &record = w->plies[ply];
    MoveEntry *begin = at;
    while (begin->move != END_OF_LIST) begin++;
    MoveEntry *end =
        generate_quiets(pos, pos.side, begin, check_target(record));
    end_list(w, ply, end);
    if (end != begin && ply > 1) score_quiets(w, ply, begin, end);
    set_stage(record, STAGE_SELECT_REST);
}

// Selection against a threshold: the entry goes out only above it;
// otherwise it stays at the front, unspent, and the picker moves on.
static MoveEntry *select_above(PlyRecord &record, MoveEntry *at, int threshold,
                               u16 next_stage) {
    MoveEntry *e = select_best(at);
    if (e && e->score > threshold) return e;
    set_stage(record, next_stage);
    return nullptr;
}

// One step of the stage machine: an entry to hand out, or null with the
// stage moved on.  Stages only rise, apart from 8 to 9, so a call ends.
static MoveEntry *run_stage(const Position &pos, Worker *w, int ply,
                            MoveEntry *&at) {
    PlyRecord &record = w->plies[ply];
    MoveEntry *e = nullptr;
    switch (record.pick_state & PICK_STAGE_MASK) {
        case STAGE_START:  // 0
            return start_node(pos, w, ply, at);
        case STAGE_GENERATE_TACTICAL:  // 1
            generate_tactical(pos, w, ply, at);
            return nullptr;
        case STAGE_SELECT_TACTICAL:  // 2
            if ((e = select_best(at))) return e;
            set_stage(record, STAGE_QUIET_CHECKS);
            return nullptr;
        case STAGE_QUIET_CHECKS:  // 3
            add_quiet_checks(pos, w, ply, at);
            return nullptr;
        case STAGE_SELECT_EXCHANGE:  // 4
            return select_above(record, at, GOOD_TACTICAL_ABOVE,
                                STAGE_GENERATE_QUIETS);
        case STAGE_GENERATE_QUIETS:  // 5
            add_quiets(pos, w, ply, at);
            return nullptr;
        case STAGE_SELECT_REST:  // 6
            return select_above(record, at, GOOD_QUIET_ABOVE, STAGE_LIST_ORDER);
        case STAGE_LIST_ORDER:  // 7
            if (at->move != END_OF_LIST) return at;
            set_stage(record, STAGE_SPENT);
            return nullptr;
        case STAGE_RESTART:  // 8
            at = record.list_start;
            set_stage(record, STAGE_SELECT_AGAIN);
            return nullptr;
        case STAGE_SELECT_AGAIN:  // 9
            if ((e = select_best(at))) return e;
            set_stage(record, STAGE_SPENT);
            return nullptr;
        default:
            return nullptr;
    }
}

MoveEntry *next_move(const Position &pos) {
    Worker *w = worker_of(pos);
    int ply = w->ply;
    if (ply < 0 || ply >= PLY_RECORDS) return nullptr;
    PlyRecord &record = w->plies[ply];
    // Each call begins behind the entry handed out last; stage 0 resets.
    MoveEntry *at = record.current + 1;
    while ((record.pick_state & PICK_STAGE_MASK) <= STAGE_SELECT_AGAIN) {
        MoveEntry *e = run_stage(pos, w, ply, at);
        if (e) {
            record.current = e;
            return e;
        }
    }
    return nullptr;
}

void order_root_moves(const Position &pos, Worker *w) {
    // Every memory is empty when the root is ordered, so quiet moves start
    // from their history alone; the bonuses are read all the same.
    QuietBonuses bonuses = quiet_bonuses(w, 1);
    Move hash_move = w->plies[1].hash_move;
    for (MoveEntry *e = w->plies[1].list_start; e->move != END_OF_LIST; e++) {
        if (e->move == hash_move) {
            e->score = HASH_MOVE_SCORE;
        } else if (e->captured != 0) {
            e->score = exchange_score(pos, *e);
        } else {
            e->score = quiet_score(w, bonuses, *e);
        }
    }
}
