// Pruning margins and reduction tables.  Selectivity scales the reductions
// in percent: 100 is neutral, 200 doubles them, small values make the
// search nearly full-width and 0 turns every kind of pruning off.
#include "search_params.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/output.h"
#include "core/relaxed.h"
#include "core/settings.h"
#include "core/spinlock.h"
#include "core/status.h"

i16 FP_depth;
i16 SEP_depth;
i16 NMP_depth;
i16 LMP_depth;
i16 LMR_depth;
i16 BP_margin;
i16 FP_margin[MARGIN_DEPTHS];
i16 SEP_margin[MARGIN_DEPTHS];
i16 LMP_count[MARGIN_DEPTHS];
i8 LMR_table_pv[LMR_SIZE][LMR_SIZE];
i8 LMR_table_nonpv[LMR_SIZE][LMR_SIZE];

// Selectivity of the last table build; -1 so that the first call builds.
static i16 built_selectivity = -1;

// Enough for the header lines and both tables of single-digit entries.
static constexpr int MARGINS_TEXT_SIZE = 8192;

void disable_pruning() {
    SEP_depth = 0;
    LMR_depth = 100;
    NMP_depth = 100;
    LMP_depth = 0;
    FP_depth = 0;
    BP_margin = 5000;
}

static void set_throttle() {
    // A target within 5% of this machine's own speed is not held.
    f32 limit = static_cast<f32>(std::trunc(settings.calib_nps * 0.95));
    status.throttle = limit > status.target_nps ? 1 : 0;
}

static void load_margins() {
    for (int d = 0; d < MARGIN_DEPTHS; d++) {
        FP_margin[d] = static_cast<i16>(25 + 100 * d);
        SEP_margin[d] = static_cast<i16>(75 * d);
        LMP_count[d] = static_cast<i16>(3 * d);
    }
    BP_margin = 15;
    FP_depth = settings.fp_depth;
    SEP_depth = settings.sep_depth;
    NMP_depth = settings.nmp_depth;
    LMP_depth = settings.lmp_depth;
    LMR_depth = settings.lmr_depth;
}

// Gives the scale of the reduction tables in percent.  Below 100 the
// static value must also stand further above beta before the null move
// and static null pruning are tried.
static int apply_selectivity(int selectivity) {
    if (selectivity <= 0) {
        disable_pruning();
        return 0;
    }
    if (selectivity < 100) {
        BP_margin = static_cast<i16>((100 - selectivity) / 2 + 15);
        return selectivity;
    }
    return std::min(selectivity, 200);
}

// One table entry: the linear form of x is rounded to a float before it is
// scaled, and the result is capped at `cap` plies.
static i8 reduction(double x, double factor, double offset, int scale,
                    int cap) {
    f32 y = static_cast<f32>(x * factor + offset) * static_cast<f32>(scale);
    if (y * 0.01 < 0) return 0;
    if (y > cap * 100) return static_cast<i8>(cap);
    return static_cast<i8>(std::round(y * 0.01));
}

static void fill_tables(int scale) {
    for (int d = 0; d < LMR_SIZE; d++)
        for (int m = 0; m < LMR_SIZE; m++) {
            // The first move and the shallowest depths are never reduced.
            if (m == 0 || d <= 2) {
                LMR_table_pv[d][m] = 0;
                LMR_table_nonpv[d][m] = 0;
                continue;
            }
            f32 product = static_cast<f32>((m - 0.5) * (d - 0.5));
            double x = std::sqrt(static_cast<double>(product));
            LMR_table_pv[d][m] = reduction(x, 0.21, -0.4, scale, 3);
            LMR_table_nonpv[d][m] = reduction(x, 0.25, 0.6, scale, 5);
        }
}

// The tables are built at each search's start on its thread, and may be
// printed from the main thread at that moment: both hold this lock.
static SpinLock margins_lock;

static void build_margins() {
    // 1. The speed limit holds only a target clearly below our own speed.
    set_throttle();
    // 2. Margins and depth limits from their fixed values and the settings.
    load_margins();
    // 3. Selectivity may move the limits and gives the reduction scale.
    int selectivity = relaxed_load(settings.selectivity);
    int scale = apply_selectivity(selectivity);
    // 4. The tables depend on Selectivity alone.
    if (selectivity == built_selectivity) return;
    built_selectivity = static_cast<i16>(selectivity);
    // 5. Both reduction tables.
    fill_tables(scale);
}

void update_margins() {
    spin_take(margins_lock);
    build_margins();
    spin_release(margins_lock);
}

// Appends to a fixed buffer, counting what would not fit so that the
// caller learns the full length.
struct MarginsOut {
    char *data;
    std::size_t size;
    int length;
};

static void put_text(MarginsOut &out, const char *text) {
    for (; *text; text++, out.length++)
        if (static_cast<std::size_t>(out.length) + 1 < out.size)
            out.data[out.length] = *text;
}

static void put(MarginsOut &out, const char *format, int value) {
    char piece[32];
    std::snprintf(piece, sizeof piece, format, value);
    put_text(out, piece);
}

// Shows the margins of depths 1 .. depth, as far as the table reaches: the
// console may set a depth limit beyond it.
static void put_margins(MarginsOut &out, const char *head, int depth,
                        const i16 *margins) {
    put(out, head, depth);
    int last = std::min(depth, MARGIN_DEPTHS - 1);
    for (int d = 1; d <= last; d++) put(out, " %d", margins[d]);
    put_text(out, "\n");
}

static void put_lmr_rows(MarginsOut &out, const i8 (*table)[LMR_SIZE]) {
    for (int d = 3; d < LMR_SIZE; d++) {
        put(out, "%2d  ", d);
        for (int m = 0; m < LMR_SIZE; m++) put(out, "%d ", table[d][m]);
        put_text(out, "\n");
    }
}

int margins_text(char *buffer, std::size_t size) {
    MarginsOut out{buffer, size, 0};
    put(out, "BP_margin= %d\n", BP_margin);
    put_margins(out, "FP_depth= %d, margins=", FP_depth, FP_margin);
    put_margins(out, "SEP_depth= %d, margins=", SEP_depth, SEP_margin);
    put(out, "NMP_depth= %d\n", NMP_depth);
    put_margins(out, "LMP_depth= %d, count=", LMP_depth, LMP_count);
    put(out, "LMR_depth= %d\n", LMR_depth);
    put_text(out, "LMR table:\n");
    put_lmr_rows(out, LMR_table_pv);
    put_text(out, "\n\n");
    put_lmr_rows(out, LMR_table_nonpv);
    if (size > 0)
        buffer[std::min(static_cast<std::size_t>(out.length), size - 1)] = 0;
    return out.length;
}

void show_margins() {
    update_margins();
    print_margins();
}

void print_margins() {
    char text[MARGINS_TEXT_SIZE];
    spin_take(margins_lock);
    int length = margins_text(text, sizeof text);
    spin_release(margins_lock);
    // print_line ends the line itself.
    if (length > 0 && text[length - 1] == '\n') text[length - 1] = 0;
    print_line(text);
}
