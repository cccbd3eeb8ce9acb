// The option setter and the configuration file.  Every option is one row
// of a table: its name, its range and a short function that stores it and
// does what the new value calls for.
#include "options.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/relaxed.h"
#include "core/settings.h"
#include "core/status.h"
#include "eval/network.h"
#include "search/hash.h"
#include "tablebase/tb_probe.h"

// Any state bit, a request included, means a search is on or about to
// start: options that touch the hash table, the thread count or the whole
// configuration must then wait.
static bool searching() { return load_state() != 0; }

// atoi: leading blanks, a sign, digits, anything else 0.  A number beyond
// the int range saturates, so that a huge Hash still reads as the maximum.
static i32 read_number(const char *text) {
    long long v = std::strtoll(text, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<i32>(v);
}

// Case-sensitive on purpose: "TRUE" is false, "untrue" is true.
static u8 read_check(const char *text) {
    return std::strstr(text, "true") != nullptr ? 1 : 0;
}

static void print_number(const char *name, int value) {
    char line[160];
    std::snprintf(line, sizeof line, "info string %s set to %d", name, value);
    print_line(line);
}

// Copies within the setting's buffer, whatever the length of the text.
template <std::size_t N>
static void store_text(const char *name, char (&field)[N], const char *text) {
    std::size_t n = std::min(std::strlen(text), N - 1);
    std::memcpy(field, text, n);
    field[n] = 0;
    char line[N + 64];
    std::snprintf(line, sizeof line, "info string %s set to '%s'", name, field);
    print_line(line);
}

struct OptionRow {
    const char *name;
    i32 low;
    i32 high;
    void (*apply)(const OptionRow &row, const char *value);
};

// Reads, clamps and reports a spin value; the caller stores it.
static i32 spin(const OptionRow &row, const char *text) {
    i32 v = std::clamp(read_number(text), row.low, row.high);
    print_number(row.name, v);
    return v;
}

static u8 check(const OptionRow &row, const char *text) {
    u8 v = read_check(text);
    print_number(row.name, v);
    return v;
}

static void set_config_path(const OptionRow &row, const char *value) {
    if (searching()) return;
    store_text(row.name, settings.config_path, value);
    load_config();
}

static void set_hash(const OptionRow &row, const char *value) {
    if (searching()) return;
    settings.hash_mb = spin(row, value);
    // Without a table no search can run: out of memory during play ends
    // the process.
    if (!hash_allocate()) std::exit(-1);
}

// 0 is let through: then no thread searches at all.
static void set_threads(const OptionRow &row, const char *value) {
    if (searching()) return;
    settings.threads = static_cast<i16>(spin(row, value));
}

static void set_move_overhead(const OptionRow &row, const char *value) {
    relaxed_store(settings.move_overhead, spin(row, value));
}

static void set_ponder(const OptionRow &row, const char *value) {
    settings.ponder = check(row, value);
}

static void set_contempt(const OptionRow &row, const char *value) {
    relaxed_store(settings.contempt, spin(row, value));
}

// The margins and reduction tables are rebuilt from it when the next
// search starts; the running one keeps its own.
static void set_selectivity(const OptionRow &row, const char *value) {
    relaxed_store(settings.selectivity, spin(row, value));
}

static void set_multi_pv(const OptionRow &row, const char *value) {
    relaxed_store(settings.multi_pv, spin(row, value));
}

// The net is written only while no search runs: during one, the reload
// waits for its end.
static void set_nn_file(const OptionRow &row, const char *value) {
    store_text(row.name, settings.nn_file, value);
    if (searching())
        request_network_reload();
    else
        load_network(settings.nn_file);
}

static void set_use_nn(const OptionRow &row, const char *value) {
    relaxed_store(settings.use_nn, check(row, value));
}

static void set_own_book(const OptionRow &row, const char *value) {
    settings.own_book = check(row, value);
}

static void set_book_file(const OptionRow &row, const char *value) {
    store_text(row.name, settings.book_file, value);
}

static void set_book2_file(const OptionRow &row, const char *value) {
    store_text(row.name, settings.book2_file, value);
}

static void set_book_variety(const OptionRow &row, const char *value) {
    settings.book_variety = static_cast<u8>(spin(row, value));
}

static void set_book_depth(const OptionRow &row, const char *value) {
    settings.book_depth = static_cast<i8>(spin(row, value));
}

static void set_book2_depth(const OptionRow &row, const char *value) {
    settings.book2_depth = static_cast<i8>(spin(row, value));
}

// The line is printed before the flag changes, so that turning the log
// off still records it there.  Turning it off leaves the file open; it
// just receives nothing until the log is turned on again.
static void set_log(const OptionRow &row, const char *value) {
    set_logging(check(row, value) != 0);
}

static void clear_hash(const OptionRow &, const char *) {
    if (searching()) return;
    hash_clear();
    print_line("info string Hash table cleared");
}

// The folders are scanned again at once, unless a search is reading the
// tables: then the new path waits for the next search to start.
static void set_syzygy_path(const OptionRow &row, const char *value) {
    store_text(row.name, settings.syzygy_path, value);
    if (searching())
        tb_init_pending.store(true);
    else
        tb_init();
}

// Seven-man tables are probed three plies further from the leaves than
// six-man ones.
static void set_probe_depth6(const OptionRow &row, const char *value) {
    int depth6 = spin(row, value);
    relaxed_store(settings.tb_probe_depth6, depth6);
    relaxed_store(settings.tb_probe_depth7, depth6 + 3);
}

static void set_limit_strength(const OptionRow &row, const char *value) {
    settings.limit_strength = check(row, value);
}

// The bounds are fixed here, whereas uci shows the calibrated Elo as the
// maximum: a configuration file may ask for more than this machine can
// play, and the strength limit then turns itself off at the next search.
static void set_elo(const OptionRow &row, const char *value) {
    settings.elo = static_cast<i16>(spin(row, value));
}

static void set_chess960(const OptionRow &row, const char *value) {
    relaxed_store(settings.chess960, check(row, value));
}

// Read by the search's lines as they print, so it may change mid-search.
static void set_show_wdl(const OptionRow &row, const char *value) {
    relaxed_store(settings.show_wdl, check(row, value));
}

// Texts, checks and the button carry no range.
static constexpr OptionRow OPTIONS[] = {
    {"ConfigFilePath", 0, 0, set_config_path},
    {"Hash", 0, 32768, set_hash},
    {"Threads", 0, 160, set_threads},
    {"MoveOverhead", 0, 5000, set_move_overhead},
    {"Ponder", 0, 1, set_ponder},
    {"Contempt", -150, 150, set_contempt},
    {"Selectivity", 0, 200, set_selectivity},
    {"MultiPV", 1, 255, set_multi_pv},
    {"NN_File", 0, 0, set_nn_file},
    {"Use_NN_eval", 0, 1, set_use_nn},
    {"OwnBook", 0, 1, set_own_book},
    {"OwnBook_File", 0, 0, set_book_file},
    {"OwnBook2_File", 0, 0, set_book2_file},
    {"OwnBook_Variety", 0, 100, set_book_variety},
    {"OwnBook_Depth", 0, 60, set_book_depth},
    {"OwnBook2_Depth", 0, 60, set_book2_depth},
    {"Log", 0, 1, set_log},
    {"Clear Hash", 0, 0, clear_hash},
    {"SyzygyPath", 0, 0, set_syzygy_path},
    {"SyzygyProbeDepth6", -5, 100, set_probe_depth6},
    {"UCI_LimitStrength", 0, 1, set_limit_strength},
    {"UCI_Elo", 1500, 3300, set_elo},
    {"UCI_Chess960", 0, 1, set_chess960},
    {"UCI_ShowWDL", 0, 1, set_show_wdl},
};

void set_option(const char *name, const char *value) {
    if (!name) return;
    if (!value) value = "";
    for (const OptionRow &row : OPTIONS) {
        if (std::strcmp(name, row.name) != 0) continue;
        row.apply(row, value);
        return;
    }
}

// The configuration file.  Lines hold at most 255 characters; a longer
// one is read on as a line of its own.
constexpr int CONFIG_LINE = 256;
constexpr std::size_t CONFIG_NAME = 100;
constexpr std::size_t CONFIG_VALUE = 200;

// A file may name another through ConfigFilePath.  The files being read
// are remembered, so that a file naming itself, or a ring of files, ends
// instead of recursing without end; the depth of the chain is bounded too,
// since two spellings of one path look like two files.
constexpr int CONFIG_CHAIN = 8;
static char config_chain[CONFIG_CHAIN][sizeof settings.config_path];
static int config_chain_length = 0;

static bool config_in_chain(const char *path) {
    for (int i = 0; i < config_chain_length; i++)
        if (!std::strcmp(config_chain[i], path)) return true;
    return false;
}

static bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Cuts the line end and a comment.  A file written on Windows ends its
// lines with a carriage return as well, which is no part of a value.
static void cut_line(char *line) {
    line[std::strcspn(line, "\n")] = 0;
    std::size_t n = std::strlen(line);
    if (n && line[n - 1] == '\r') line[n - 1] = 0;
    line[std::strcspn(line, "#")] = 0;
}

static void copy_span(char *dst, const char *src, std::size_t n,
                      std::size_t limit) {
    n = std::min(n, limit);
    std::memcpy(dst, src, n);
    dst[n] = 0;
}

// "Name = value": blanks around the "=" are dropped, the value's own
// trailing blanks are kept (a number reads the same with them).
static void config_line(char *line) {
    if (std::strlen(line) <= 3) return;
    cut_line(line);
    char *equals = std::strchr(line, '=');
    if (!equals) return;
    char *name_end = equals;
    while (name_end > line && is_blank(name_end[-1])) name_end--;
    const char *value = equals + 1;
    while (is_blank(*value)) value++;
    char name[CONFIG_NAME + 1];
    char text[CONFIG_VALUE + 1];
    copy_span(name, line, static_cast<std::size_t>(name_end - line),
              CONFIG_NAME);
    copy_span(text, value, std::strlen(value), CONFIG_VALUE);
    set_option(name, text);
}

void load_config() {
    if (config_chain_length == CONFIG_CHAIN) return;
    if (config_in_chain(settings.config_path)) return;
    FILE *file = std::fopen(settings.config_path, "r");
    if (!file) return;
    std::memcpy(config_chain[config_chain_length++], settings.config_path,
                sizeof settings.config_path);
    char line[CONFIG_LINE];
    std::snprintf(line, sizeof line, "info string loading parameters from %s",
                  settings.config_path);
    print_line(line);
    while (std::fgets(line, sizeof line, file)) config_line(line);
    std::fclose(file);
    config_chain_length--;
    take_settings_snapshot();
}
