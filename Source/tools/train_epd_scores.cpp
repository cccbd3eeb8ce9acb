// -mktune1 and -mktune2: a short search of every position of an EPD file,
// written out with its score, for tuning the evaluation.  Positions whose
// score contradicts the game's result are left out.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "epd.h"
#include "frontend/protocol.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"
#include "tablebase/tb_probe.h"
#include "train_epd.h"

// The tuner's tablebase folders, named as on the machine it was made for.
static constexpr const char *TUNE_SYZYGY_PATH =
    "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece";

bool contradicts_result(double g, double p) {
    return (g == 1.0 && p < 0.25) || (g == 0.0 && p > 0.75) ||
           (g == 0.5 && (p < 0.1 || p > 0.9));
}

// 10.  One search of the game position, waited for here; the clock and
// the input are looked at once every 256 positions.
static void search_one(int count) {
    launch_tool_search();
    int pause = settings.max_depth >= 2 ? 1 : 0;
    while (!(load_state() & STATE_FINISHED)) sleep_milliseconds(pause);
    store_state(0);
    if ((count & 255) == 255) {
        check_time();
        poll_input();
    }
}

// 11.  The root's tablebase class overrides the search.
static int corrected_score(int score) {
    switch (status.tb_result) {
        case 4:
            return score < MATE_BORDER ? MATE_BORDER : score;
        case 0:
            return score > -MATE_BORDER ? -MATE_BORDER : score;
        case 2:
            return 0;
        default:
            return score;
    }
}

// 13.  The position at the end of the search's line, with the line's
// values turned to the side to move there.
static void write_leaf(FILE *out, const EpdFields &f, int ce, int score,
                       double g) {
    Position &pos = front_worker->position;
    int made = 0;
    for (int i = 1; i < PV_LENGTH && status.pv[i] != NO_MOVE; i++) {
        if (!legal_move(pos, pos.side, status.pv[i])) break;
        make_move(pos, status.pv[i]);
        made++;
    }
    char fen[FEN_BUFFER_SIZE];
    get_fen(pos, fen, 0);
    if (made & 1) {
        ce = -ce;
        score = -score;
        g = 1.0 - g;
    }
    if (f.gr[0])
        std::fprintf(out, "%s ce %d; gr %0.1f;\n", fen, ce, g);
    else if (f.ce[0])
        // No line end: the next record runs on behind this one.
        std::fprintf(out, "%s ce %d;", fen, ce);
    else
        std::fprintf(out, "%s %d;\n", fen, score);
}

// 14.  Quiet positions only, as the line gave them.
static bool write_quiet(FILE *out, const EpdFields &f, int ce, int score,
                        double g) {
    const Position &pos = front_worker->position;
    Move best = status.pv[1];
    if (best != NO_MOVE && pos.board[move_to(best)] != 0) return false;
    if (std::abs(status.root_eval - status.last_eval) > 100) return false;
    if (f.gr[0])
        std::fprintf(out, "%s ce %d; sc %d; gr %0.1f;\n", f.fen, ce, score, g);
    else
        std::fprintf(out, "%s sc %d;\n", f.fen, score);
    return true;
}

// 6. - 15. for one line; returns whether a line was written.
static bool tune_line(const char *line, FILE *out, int selector, int &count) {
    if (line[0] == ' ' || line[0] == '#' || line[0] == ';') return false;
    static EpdFields f;
    epd_parse(line, f);
    // 7. - 8. Skip a score that contradicts the result
    int ce = f.ce[0] ? std::atoi(f.ce) : -9999;
    double p = win_probability(ce);
    double g = f.gr[0] ? std::atof(f.gr) : p;
    if (f.ce[0] && f.gr[0] && contradicts_result(g, p)) return false;
    // 9. Skip a position in check
    Position &pos = front_worker->position;
    set_fen(pos, f.fen);
    if (find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                      occupied_squares(pos)) != NO_SQUARE)
        return false;
    // 10. - 12. Search; skip a score that contradicts the result
    if (status.use_hash) hash_clear();
    search_one(count++);
    int score = corrected_score(status.score);
    if (f.gr[0] && contradicts_result(g, win_probability(score))) return false;
    // 13. - 14. Write the leaf, or the quiet root
    if (selector == 1) {
        write_leaf(out, f, ce, score, g);
        return true;
    }
    return write_quiet(out, f, ce, score, g);
}

bool tune_make(int selector) {
    // 1. Writing over the input would destroy it.
    if (!settings.output_file[0])
        std::strcpy(settings.output_file, "tune_new.epd");
    if (std::strcmp(settings.output_file, settings.input_file) == 0)
        return false;
    // 2. Open the files
    FILE *in = std::fopen(settings.input_file, "r");
    if (!in) return false;
    FILE *out = std::fopen(settings.output_file, "w");
    if (!out) {
        std::fclose(in);
        return false;
    }
    // 3. Announce; quiet output; no hash below depth 3
    char text[200];
    std::snprintf(text, sizeof text, "Creating file %s", settings.output_file);
    print_line(text);
    settings.noise = 99999.0f;
    if (settings.max_depth < 3) status.use_hash = 0;
    // 4. The root then scores table positions by their tables.
    if (selector == 2) {
        std::snprintf(settings.syzygy_path, 144, "%s", TUNE_SYZYGY_PATH);
        tb_init();
    }
    // 5. Full speed
    settings.calib_nps = 10000000.0f;
    settings.calib_elo = 4000.0f;
    // 6. - 16. Every line of the file
    end_of_input_quits = false;
    char line[256];
    int searched = 0, written = 0;
    while (!settings.quit && std::fgets(line, 255, in)) {
        if (!tune_line(line, out, selector, searched)) continue;
        std::fflush(out);
        if (written++ % 4096 == 0) std::printf(" n= %d\n", written - 1);
    }
    bool ok = !std::ferror(in) && !std::ferror(out);
    std::fclose(in);
    return std::fclose(out) == 0 && ok;
}
