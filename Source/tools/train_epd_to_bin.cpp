// -epd2bin: EPD lines with scores and results packed into the 40-byte
// training records, held in one allocation and written at once.
#include <sys/mman.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "search/search.h"
#include "tablebase/tb_probe.h"
#include "train_epd.h"

constexpr int ABSENT = -10000;

static int opcode_value(const char *text) {
    if (!text[0]) return ABSENT;
    long v = std::strtol(text, nullptr, 10);
    // Beyond the 16 bits of the record a value stands at their end.
    return static_cast<int>(v < SHRT_MIN   ? SHRT_MIN
                            : v > SHRT_MAX ? SHRT_MAX
                                           : v);
}

static int clamp_score(int v, int limit) {
    return v < -limit ? -limit : v > limit ? limit : v;
}

bool epd_line_record(const char *line, TrainRecord &out) {
    // 3. Skip comments, indented and short lines; parse the rest
    if (line[0] == ' ' || line[0] == '#' || line[0] == ';') return false;
    if (std::strlen(line) <= 19) return false;
    static EpdFields f;
    epd_parse(line, f);
    // 4. The scores and the result, filled in from each other
    int ce = opcode_value(f.ce), sc = opcode_value(f.sc);
    if (ce == ABSENT && sc == ABSENT) return false;
    if (ce == ABSENT) ce = sc;
    if (sc == ABSENT) sc = ce;
    double g = f.gr[0] ? std::atof(f.gr) : -1.0;
    if (g < 0) g = win_probability(ce);
    // 5. The board reader takes any text; a board without both kings is
    // the one it could not set up.
    Position &pos = front_worker->position;
    set_fen(pos, f.fen);
    if (pos.king_sq[WHITE] >= 64 || pos.king_sq[BLACK] >= 64) return false;
    sc = clamp_score(sc, SEARCH_SCORE_CLAMP);
    // 6. A table's verdict stands above the game's result.
    int r = tb_probe_search(pos, 2);
    if (r == 2) g = 0.5;
    // 7. The result as a logit; a table's win or loss is certain
    i16 logit = result_logit(g);
    if (r == 4) logit = RESULT_LOGIT_WIN;
    if (r == 0) logit = -RESULT_LOGIT_WIN;
    // 8. Pack the record
    out = pack_position(pos);
    out.result_logit = logit;
    out.ce = static_cast<i16>(ce);
    out.sc = static_cast<i16>(sc);
    return true;
}

// The output name: the input's up to its ".epd", then ".bin"; empty when
// the name has no ".epd".
static bool bin_name(const char *input, char *out, size_t size) {
    const char *at = std::strstr(input, ".epd");
    if (!at) return false;
    int n = std::snprintf(out, size, "%.*s.bin", static_cast<int>(at - input),
                          input);
    return n > 0 && static_cast<size_t>(n) < size;
}

bool epd_to_bin() {
    // 1. The tables' verdicts stand above the games' results.
    tb_init();
    if (!bin_name(settings.input_file, settings.output_file,
                  sizeof settings.output_file))
        return false;
    // 2. One allocation for all records; its pages are taken only as
    // records fill them.
    FILE *in = std::fopen(settings.input_file, "r");
    if (!in) return false;
    size_t bytes = TRAIN_CAPACITY * sizeof(TrainRecord);
    void *block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED) {
        std::fclose(in);
        return false;
    }
    TrainRecord *records = static_cast<TrainRecord *>(block);
    std::printf("allocated %.0f Mbytes for training data.\n", 9600.0);
    std::printf("reading positions from file %s.\n", settings.input_file);
    // 3. - 8. A record for every usable line
    u64 count = 0;
    char line[256];
    while (count < TRAIN_CAPACITY && std::fgets(line, 255, in))
        if (epd_line_record(line, records[count])) count++;
    // 9. Write the records
    std::printf("read %.0f positions.\n\n", static_cast<double>(count));
    bool ok = !std::ferror(in);
    std::fclose(in);
    bool stored = false;
    if (FILE *out = std::fopen(settings.output_file, "wb")) {
        size_t written = std::fwrite(records, sizeof(TrainRecord), count, out);
        stored = std::fclose(out) == 0 && written == count;
        if (written == count)
            std::printf("stored %d positions in %s.\n\n",
                        static_cast<int>(count), settings.output_file);
    }
    munmap(block, bytes);
    return ok && stored;
}
