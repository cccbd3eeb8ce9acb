// Reading the command line.  The switches are tested in a fixed order on
// one string per round; a value taken by a switch replaces that string for
// the tests left in the round, which is how a value that spells a switch
// tested later in the round comes to act as that switch.
#include "switches.h"

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "search/strength.h"

// The training records -prune_nn reads when the line names none.
constexpr const char *PRUNE_RECORDS = "tune/recent.bin";
// The tuner's tablebase folders, named as on the machine it was made for.
static constexpr const char *TUNE_SYZYGY_PATH =
    "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece";
static constexpr const char *TBX_SYZYGY_PATH =
    "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece;C:\\Chess\\Syzygy\\7-Piece";

// One round of reading: the index of the argument, and the string the
// tests compare, which a taken value replaces.
struct SwitchRound {
    int argc;
    const char *const *argv;
    int index;
    const char *text;
    SwitchOutcome out;
};

static const char *arg_at(const SwitchRound &r, int i) {
    if (i < 0 || i >= r.argc || !r.argv[i]) return "";
    return r.argv[i];
}

static bool is(const SwitchRound &r, const char *word) {
    return std::strcmp(r.text, word) == 0;
}

static const char *take_value(SwitchRound &r) {
    if (r.index < r.argc) r.index++;
    r.text = arg_at(r, r.index);
    return r.text;
}

// atoi: leading blanks, a sign, digits; anything else is 0.  Out-of-range
// values saturate instead of wrapping.
static int64_t read_i64(const char *text) {
    return static_cast<int64_t>(std::strtoll(text, nullptr, 10));
}

static i32 read_int(const char *text) {
    int64_t v = read_i64(text);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<i32>(v);
}

// atof, but "nan" is a bad number like any other and reads as 0.
static double read_double(const char *text) {
    double v = std::strtod(text, nullptr);
    return std::isnan(v) ? 0.0 : v;
}

static f32 read_float(const char *text) {
    double v = read_double(text);
    if (v > FLT_MAX) return HUGE_VALF;
    if (v < -FLT_MAX) return -HUGE_VALF;
    return static_cast<f32>(v);
}

static i32 truncate_to_i32(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(INT32_MAX)) return INT32_MAX;
    if (v <= static_cast<double>(INT32_MIN)) return INT32_MIN;
    return static_cast<i32>(v);
}

// Copies at most `limit` characters and always ends the text.
template <u32 N>
static void copy_text(char (&dst)[N], u32 limit, const char *src) {
    if (limit > N - 1) limit = N - 1;
    u32 n = 0;
    while (n < limit && src[n]) {
        dst[n] = src[n];
        n++;
    }
    dst[n] = 0;
}

static void read_dialect_switches(SwitchRound &r) {
    if (is(r, "-uci")) settings.uci_mode = 1;
    if (is(r, "-c")) settings.uci_mode = 0;
    if (is(r, "-log")) settings.log = 1;
    if (is(r, "-numa")) settings.numa = 1;
    if (is(r, "-noise")) settings.noise = read_float(take_value(r));
    if (is(r, "-quiet")) {
        settings.noise = 9999.0f;
        settings.log = 0;
    }
    if (is(r, "-cfg")) copy_text(settings.config_path, 143, take_value(r));
}

static void read_depth(const char *text) {
    settings.level_moves = 1;
    settings.level_time = 10000.0f;
    // The number is stored as a signed byte first and then capped, so 336
    // becomes 80 and 200 becomes -56.
    settings.max_depth = static_cast<i8>(read_int(text));
    if (settings.max_depth > 80) settings.max_depth = 80;
}

static void read_threads(const char *text) {
    i32 n = read_int(text);
    if (n <= 0) n = 1;
    if (n > 160) n = 160;
    settings.threads = static_cast<i16>(n);
}

static void read_limit_switches(SwitchRound &r) {
    if (is(r, "-d")) read_depth(take_value(r));
    if (is(r, "-t")) {
        settings.level_moves = 1;
        settings.level_time = read_float(take_value(r));
    }
    if (is(r, "-n")) {
        settings.level_moves = 1;
        settings.level_time = 1000.0f;
        settings.max_nodes = static_cast<u64>(read_i64(take_value(r)));
    }
    if (is(r, "-nps")) {
        limit_to_speed(read_float(take_value(r)));
        std::printf("Elo= %d\n", settings.elo);
    }
    if (is(r, "-hash")) {
        i32 mb = read_int(take_value(r));
        settings.hash_mb = mb < 0 ? 0 : mb > 32768 ? 32768 : mb;
    }
    if (is(r, "-threads")) read_threads(take_value(r));
}

static void read_file_switches(SwitchRound &r) {
    if (is(r, "-book")) copy_text(settings.book_file, 143, take_value(r));
    if (is(r, "-tbpath")) copy_text(settings.syzygy_path, 143, take_value(r));
    if (is(r, "-tbx")) copy_text(settings.syzygy_path, 143, TBX_SYZYGY_PATH);
    if (is(r, "-use_hce")) settings.use_nn = 0;
    if (is(r, "-use_nn")) settings.use_nn = 1;
    if (is(r, "-o")) copy_text(settings.output_file, 139, take_value(r));
    // A byte with no clamp: 300 gives 44.
    if (is(r, "-mpv"))
        settings.multi_pv = static_cast<u8>(read_int(take_value(r)));
}

// The word need only occur in the string; a digit 1 .. 4 right behind it
// picks the scan.  Without one the mode stays as it is.
static void read_scan_pgn(SwitchRound &r) {
    const char *word = std::strstr(r.text, "-scan_pgn");
    if (!word) return;
    char digit = word[9];
    if (digit >= '1' && digit <= '4') r.out.mode = MODE_SCAN_PGN1 + digit - '1';
    copy_text(settings.input_file2, 139, take_value(r));
}

static void read_analysis_switches(SwitchRound &r) {
    if (is(r, "-anepd")) {
        r.out.mode = MODE_ANALYSE_EPD;
        copy_text(settings.input_file, 139, take_value(r));
        settings.noise = 9999.0f;
    }
    read_scan_pgn(r);
    if (is(r, "-bench")) r.out.mode = MODE_BENCH;
    if (is(r, "-pbench")) {
        r.out.mode = MODE_BENCH;
        r.out.bench_inline = 1;
    }
    if (is(r, "-mkconfig")) r.out.mode = MODE_CONFIG_ONLY;
}

// Returns false when the line is to end the process with result 1.
static bool read_book_switches(SwitchRound &r) {
    if (is(r, "-mkbook")) {
        r.out.mode = MODE_MAKE_BOOK;
        copy_text(settings.input_file2, 140, take_value(r));
    }
    if (is(r, "-mkbook2")) {
        if (r.argc == 2) return false;
        r.out.mode = MODE_MULTI_PASS_EPD;
        copy_text(settings.input_file, 140, take_value(r));
    }
    return true;
}

static void read_training_switches(SwitchRound &r) {
    if (is(r, "-mktune1") || is(r, "-mktune2")) {
        r.out.mode =
            is(r, "-mktune1") ? MODE_TRAIN_POSITIONS1 : MODE_TRAIN_POSITIONS2;
        copy_text(settings.input_file, 140, take_value(r));
    }
    if (is(r, "-epd2bin")) {
        r.out.mode = MODE_EPD_TO_BIN;
        copy_text(settings.input_file, 140, take_value(r));
    }
    // The records' file is a fixed path of the original set-up; here it
    // may follow the switch, and is "tune/recent.bin" otherwise.
    if (is(r, "-prune_nn")) {
        r.out.mode = MODE_PRUNE_NN;
        const char *next = arg_at(r, r.index + 1);
        copy_text(settings.input_file, 140,
                  next[0] && next[0] != '-' ? take_value(r) : PRUNE_RECORDS);
    }
}

// Returns false when the line is to end the process with result 1.
static bool read_make_train_data(SwitchRound &r) {
    if (!is(r, "-mktraindata")) return true;
    if (r.argc == 2) return false;
    r.out.mode = MODE_MAKE_TRAIN_DATA;
    copy_text(settings.input_file, 140, take_value(r));
    i32 n = truncate_to_i32(read_double(take_value(r)) * 1000000.0);
    settings.tune_positions = n > 100000000 ? 100000000 : n;
    return true;
}

// -tune file millions [0 or 1]: the tuner is not part of this build, but
// its arguments are read and kept.  Leaves the index on the last argument
// it used.  Returns false when the line is to end with result 1.
static bool read_tune(SwitchRound &r) {
    bool second = is(r, "-tune2");
    if (!second && !is(r, "-tune")) return true;
    if (r.argc <= 3 || r.index + 2 >= r.argc) return false;
    copy_text(settings.input_file, 140, arg_at(r, r.index + 1));
    double count = read_double(arg_at(r, r.index + 2)) * 1000000.0;
    settings.tune_positions = truncate_to_i32(count);
    if (settings.tune_positions < 1000000) return false;
    r.index += 2;
    r.text = arg_at(r, r.index);
    // An optional flag is consumed only when it looks like one; anything
    // else is left to be read as the next switch.
    const char *flag = arg_at(r, r.index + 1);
    if (flag[0] == '0' || flag[0] == '1') {
        r.index++;
        r.text = flag;
    }
    r.out.mode = second ? MODE_TUNE2 : MODE_TUNE;
    settings.hash_mb = 0;
    copy_text(settings.syzygy_path, 143, TUNE_SYZYGY_PATH);
    return true;
}

// These two come after the round's step, so their value is the argument
// the index now stands on, and the next round reads it once more.
static void read_after_step(SwitchRound &r) {
    if (is(r, "-lr"))
        settings.learn_rate = read_float(arg_at(r, r.index));
    else if (is(r, "-mbatch"))
        settings.mini_batch = read_int(arg_at(r, r.index));
}

// One round; returns false when the line is to end with result 1.
static bool read_round(SwitchRound &r) {
    r.text = arg_at(r, r.index);
    read_dialect_switches(r);
    read_limit_switches(r);
    read_file_switches(r);
    read_analysis_switches(r);
    if (!read_book_switches(r)) return false;
    read_training_switches(r);
    if (!read_make_train_data(r)) return false;
    if (!read_tune(r)) return false;
    r.index++;
    read_after_step(r);
    return true;
}

// "quillon bench": the benchmark as testing frameworks call it.  The word
// itself matches no switch, so the rounds pass over it; switches after it
// (-d, -threads, -use_hce, ...) apply as to -bench, and a later mode switch
// wins as always.
static bool bench_word_first(int argc, const char *const *argv) {
    return argc > 1 && argv[1] && std::strcmp(argv[1], "bench") == 0;
}

SwitchOutcome read_switches(int argc, const char *const *argv) {
    SwitchRound r{argc, argv, 1, "", {MODE_THINK, 0, -1, 0}};
    bool bench_word = bench_word_first(argc, argv);
    if (bench_word) r.out.mode = MODE_BENCH;
    while (r.index < argc) {
        if (!read_round(r)) {
            r.out.exit_code = 1;
            break;
        }
    }
    if (bench_word && r.out.mode == MODE_BENCH) {
        r.out.bench_summary = 1;
        // As with -bench, a -d up to 50 stands and anything above is the
        // default.
        if (settings.max_depth > 50) settings.max_depth = BENCH_WORD_DEPTH;
    }
    return r.out;
}

i32 hash_shrink_candidate(i32 max_depth, u64 max_nodes) {
    i32 mb = 0;
    if (max_depth <= 7)
        mb = 1;
    else if (max_depth <= 12)
        mb = 1 << (max_depth - 7);
    if (max_nodes != 0) {
        // 1 MB up to 32,000 nodes, doubling with the node count to 64 MB.
        mb = 1;
        u64 bound = 32000;
        for (int i = 0; i < 6 && max_nodes > bound; i++) {
            mb *= 2;
            bound *= 2;
        }
    }
    return mb;
}

void shrink_hash_for_small_search() {
    i32 mb = hash_shrink_candidate(settings.max_depth, settings.max_nodes);
    if (mb != 0 && mb < settings.hash_mb)
        settings.hash_mb = mb;
    else if (mb == 0 && settings.hash_mb == 0)
        status.use_hash = 0;
}
