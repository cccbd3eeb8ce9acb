// The EPD analysis run: search, test, write, and the closing summary.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/relaxed.h"
#include "epd.h"
#include "frontend/console.h"
#include "frontend/protocol.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"

constexpr f32 NEVER_PRINT = 9999.0f;

struct EpdTotals {
    int positions = 0;
    int correct = 0;
    u64 total_nodes = 0;
    f32 total_time = 0.0f;
    f32 depth_sum = 0.0f;
    f32 bf_sum = 0.0f;
    int points = 0;
    int points_max = 0;
};

struct EpdFiles {
    FILE *in;
    FILE *out;
    FILE *children;
};

static void print_text(const char *format, ...)
    __attribute__((format(printf, 1, 2)));
static void print_text(const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    print_line(text);
}

// Whether a written move names `best` in the game position.
static bool reads_as(const char *text, Move best) {
    char buffer[EPD_LINE_SIZE + 2];
    std::snprintf(buffer, EPD_LINE_SIZE, "%s", text);
    Move move = 0;
    return parse_move(buffer, &move) && move == best;
}

// 9.  Best-move list, else avoid-move, and the point test.
static void score_answer(const EpdFields &f, Move best, EpdTotals &t) {
    char work[EPD_LINE_SIZE];
    if (f.bm[0]) {
        std::strcpy(work, f.bm);
        for (char *tok = std::strtok(work, " ,;\"\n"); tok;
             tok = std::strtok(nullptr, " ,;\"\n"))
            if (reads_as(tok, best)) t.correct++;
    } else if (f.am[0]) {
        char buffer[EPD_LINE_SIZE + 2];
        std::strcpy(buffer, f.am);
        Move move = 0;
        if (parse_move(buffer, &move) && move != best) t.correct++;
    }
    if (!f.c0[0] || !std::strchr(f.c0, '=')) return;
    const char *start = f.c0;
    while (*start == ' ' || *start == '"') start++;
    std::strcpy(work, start);
    int max_in_line = 0;
    bool first = true;
    for (char *tok = std::strtok(work, ", \"\n"); tok;
         tok = std::strtok(nullptr, ", \"\n")) {
        char *equals = std::strchr(tok, '=');
        if (!equals) continue;
        *equals = 0;
        int value = std::atoi(equals + 1);
        if (first || value > max_in_line) max_in_line = value;
        first = false;
        if (reads_as(tok, best)) t.points += value;
    }
    t.points_max += max_in_line;
}

void launch_tool_search() {
    prepare_search();
    status.pv[1] = status.pv[2] = NO_MOVE;
    status.book_move = NO_MOVE;
    store_depth(0);
    store_state(STATE_BENCH);
    store_stop(0);
    launch_search();
}

// 5.  One search of the game position, waited for here.
static void search_position() {
    for (int i = 0; i < 256; i++) {
        status.multipv_move[i] = NO_MOVE;
        status.multipv_score[i] = 0;
    }
    launch_tool_search();
    // Small searches end within a millisecond: only yield for them.
    int pause = settings.max_depth > 2 ? 1 : 0;
    while (!(load_state() & STATE_FINISHED)) {
        sleep_milliseconds(pause);
        check_time();
        poll_input();
    }
}

// 10.  The answer for a person reading along.
static void print_answer(Move best, f32 elapsed) {
    if (settings.noise == NEVER_PRINT) return;
    bool due = load_stop() || !(settings.noise > elapsed);
    if (due && status.best_depth != 0 && best != NO_MOVE)
        print_search_line(0, 0, status.best_depth, status.score, status.pv);
    char move[MOVE_TEXT_SIZE];
    const Position &pos = front_worker->position;
    move_text(pos, pos.side, best, move);
    double nodes = static_cast<double>(status.nodes);
    print_text("move= %s, time= %0.3f, score= %d, nodes= %0.0f, %0.0fK nps",
               move, static_cast<double>(elapsed), status.score, nodes,
               nodes / (elapsed + 0.001) * 0.001);
}

// 11.  The answer into the new EPD file.
static void write_answer(FILE *out, const char *line, const EpdFields &f,
                         Move best) {
    if (f.gr[0]) {
        int length = static_cast<int>(std::strlen(line));
        std::fprintf(out, "%.*s sc %d;\n", length > 0 ? length - 1 : 0, line,
                     status.score);
        return;
    }
    std::fprintf(out, "%s bm %s%s; ce %d;\n", f.fen,
                 SQUARE_NAMES[move_from(best)], SQUARE_NAMES[move_to(best)],
                 status.score);
}

// 12.  The positions after every line within 30 points of the best.
static void write_children(FILE *children) {
    if (settings.multi_pv == 0) return;
    Position &pos = front_worker->position;
    Move legal[MAX_MOVES];
    int count = legal_moves(pos, legal);
    int threshold = status.multipv_score[0] - 30;
    for (int i = 0; i < settings.multi_pv; i++) {
        Move move = status.multipv_move[i];
        if (status.multipv_score[i] < threshold) continue;
        // A line the search never reached holds no move.
        bool found = false;
        for (int k = 0; k < count && !found; k++) found = legal[k] == move;
        if (!found) continue;
        print_text("%s%s  %d", SQUARE_NAMES[move_from(move)],
                   SQUARE_NAMES[move_to(move)], status.multipv_score[i]);
        make_move(pos, move);
        char fen[FEN_BUFFER_SIZE];
        get_fen(pos, fen, 0);
        std::fprintf(children, "%s\n", fen);
        unmake_move(pos);
    }
}

// 6.  One line of the file; returns false once quit was asked for.
static bool analyze_line(const char *line, const EpdFiles &files, int children,
                         EpdTotals &t) {
    // 1. Skip comments, indented and short lines
    if (line[0] == ' ' || line[0] == '#' || line[0] == ';') return true;
    if (std::strlen(line) <= 9) return true;
    // 2. Read the record and set up its position
    EpdFields f;
    epd_parse(line, f);
    Position &pos = front_worker->position;
    set_fen(pos, f.fen);
    t.positions++;
    // 3. Show the position
    if (settings.noise != NEVER_PRINT) {
        print_text("pos= %d", t.positions);
        print_text("%.*s", static_cast<int>(std::strcspn(line, "\r\n")), line);
        print_board(pos);
    }
    // 4. - 6. Search it, the hash table cleared first
    if (status.use_hash) hash_clear();
    search_position();
    store_state(0);
    bool quit = settings.quit != 0;
    read_elapsed();
    f32 elapsed = relaxed_load(status.elapsed);
    // 7. - 8. Add to the totals
    t.total_nodes += status.nodes;
    t.total_time += elapsed;
    t.depth_sum += status.best_depth;
    t.bf_sum += static_cast<f32>(branching_factor(status.best_depth));
    // 9. - 12. Judge, print and write the answer
    Move best = status.pv[1];
    score_answer(f, best, t);
    print_answer(best, elapsed);
    if (best != NO_MOVE) write_answer(files.out, line, f, best);
    if (children) write_children(files.children);
    // 13. Go on unless quit was asked for
    return !quit;
}

// 7. The summary of the whole file
static void print_summary(const EpdTotals &t) {
    double positions = t.positions;
    double nodes = static_cast<double>(t.total_nodes);
    double avg_depth = t.positions ? t.depth_sum / positions : 0.0;
    double avg_nodes =
        t.positions ? static_cast<double>(t.total_nodes / t.positions) : 0.0;
    double avg_bf = t.positions ? t.bf_sum / positions : 0.0;
    print_text("%d / %d correct best moves", t.correct, t.positions);
    print_text("total nodes= %0.0f", nodes);
    print_text("total time= %0.2f seconds", static_cast<double>(t.total_time));
    print_text("avg depth= %0.1f", avg_depth);
    print_text("avg nodes= %0.1f", avg_nodes);
    print_text("node_rate= %0.0f", nodes / (0.001 + t.total_time));
    print_text("avg bf= %0.2f", avg_bf);
    print_text("score= %d / %d", t.points, t.points_max);
    print_line("");
}

// False when a file failed: a read error on the input (a folder opens but
// reads nothing) or a write that did not reach the disk.
static bool close_all(EpdFiles &files) {
    bool ok = !(files.in && std::ferror(files.in));
    for (FILE *f : {files.out, files.children}) {
        if (!f) continue;
        bool failed = std::ferror(f) != 0;
        if (std::fclose(f) != 0 || failed) ok = false;
    }
    if (files.in) std::fclose(files.in);
    return ok;
}

bool epd_analyze(const char *path, int write_children) {
    // 1. The output file's default name
    if (!settings.output_file[0])
        std::strcpy(settings.output_file, "analysis.epd");
    // 2. Open the files
    EpdFiles files{std::fopen(path, "r"), std::fopen(settings.output_file, "w"),
                   std::fopen("tmp_0.epd", "w")};
    if (!files.in || !files.out || !files.children) {
        close_all(files);
        return false;
    }
    // 3. - 5. Announce; no hash below depth 4; full speed
    print_text("Analyzing %s...", path);
    if (settings.max_depth < 4) status.use_hash = 0;
    settings.calib_nps = 10000000.0f;
    settings.calib_elo = 4000.0f;
    // 6. Every line of the file
    EpdTotals totals;
    char line[EPD_LINE_SIZE];
    while (std::fgets(line, sizeof line, files.in))
        if (!analyze_line(line, files, write_children, totals)) break;
    // 7. The summary
    print_summary(totals);
    return close_all(files);
}
