// -prune_nn: keeps the 1536 first-layer neurons of the loaded net that
// contribute most to its output over a file of training records, and
// writes them as "pruned.bin".  A neuron's contribution in one position is
// its activation times its weight in the output row that position uses.
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "eval/eval.h"
#include "eval/network.h"
#include "position/notation.h"
#include "search/search.h"
#include "train_epd.h"
#include "train_record.h"

constexpr int PRUNED_SIZE = 1536;

// The records of `file`, read with one read into the one allocation;
// `ok` is false when the file could not be opened or read.
static u64 read_records(const char *file, TrainRecord *records, bool &ok) {
    FILE *in = std::fopen(file, "rb");
    ok = in != nullptr;
    if (!in) return 0;
    u64 count = std::fread(records, sizeof(TrainRecord), TRAIN_CAPACITY, in);
    if (std::ferror(in)) ok = false;
    std::fclose(in);
    return count;
}

// 3. The record's position on the front Worker; false without both kings.
static bool set_record(const TrainRecord &r) {
    if (!record_has_kings(r)) return false;
    set_record_position(front_worker->position, r);
    return true;
}

// 5. Each neuron's share of the output in the position now set.  The row
// is the output row of the position's bucket: the second block's row of
// that number (for a net with a second hidden layer, the row of its first
// nodes that the number names, within the block).
static void add_stats(std::vector<float> &totals) {
    Worker *w = front_worker;
    w->eval.eval_ply = 0;  // start over: the sums are this position's own
    network_evaluate(w);
    const int n = network.layer1_size;
    int rows = std::max(network.layer2_size, 8);
    int bucket = std::min<int>(w->nn.output_bucket, rows - 1);
    const i16 *row = network.layer2_weights + int64_t{bucket} * n;
    std::vector<i16> active(static_cast<size_t>(n));
    network_activations(w, active.data());
    for (int j = 0; j < n; j++) {
        float a = active[j];
        totals[j] += std::fabs(a * row[j]) * 1e-7f;
    }
}

// 7. The neurons to keep, in order of their totals (first of equals).
static std::vector<int> choose_neurons(std::vector<float> totals) {
    std::vector<int> kept;
    for (int k = 0; k < PRUNED_SIZE; k++) {
        int best = 0;
        float best_total = 0.0f;
        for (int j = 0; j < static_cast<int>(totals.size()); j++)
            if (totals[j] > best_total) {
                best = j;
                best_total = totals[j];
            }
        totals[best] = 0.0f;
        kept.push_back(best);
    }
    return kept;
}

// 8. The chosen columns of the first and second blocks, the output block
// and the bias words as they were, in the file layout.
static bool write_pruned(const std::vector<int> &kept) {
    FILE *f = std::fopen("pruned.bin", "wb");
    if (!f) return false;
    const int n = network.layer1_size, rows2 = std::max(network.layer2_size, 8);
    put_net_header(f, {network.net_serial, network.net_kind,
                       network.inputs_piece, network.inputs_extra, PRUNED_SIZE,
                       network.layer2_size, network.outputs});
    auto put = [&](i16 working) { put_net_weight(f, working); };
    for (int i = 0; i < network.inputs; i++)
        for (int j : kept) put(network.layer1_weights[int64_t{i} * n + j]);
    for (int r = 0; r < rows2; r++)
        for (int j : kept) put(network.layer2_weights[int64_t{r} * n + j]);
    for (int i = 0; i < network.output_weights_count; i++)
        put(network.output_weights[i]);
    for (int i = 0; i < 8; i++) put(network.biases[i]);
    bool failed = std::ferror(f) != 0;
    return std::fclose(f) == 0 && !failed;
}

bool prune_network() {
    // 1. Room for the records; seed the generator
    size_t bytes = TRAIN_CAPACITY * sizeof(TrainRecord);
    void *block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED) return false;
    TrainRecord *records = static_cast<TrainRecord *>(block);
    std::printf("allocated %.0f Mbytes for training data.\n", 9600.0);
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    // 2. Read the records
    const char *file = settings.input_file;
    bool read_ok = false;
    u64 count = read_records(file, records, read_ok);
    std::printf("read %d positions from %s.\n\n", static_cast<int>(count),
                file);
    std::printf("total positions= %d\n", static_cast<int>(count));
    print_line("Collecting stats ...\n");
    // 3. - 5. Sum each neuron's share over the records
    std::vector<float> totals;
    for (u64 i = 0; i < count && network_ready(); i++) {
        if (!set_record(records[i])) continue;
        // 4. Sized once, on the first usable record.
        if (totals.empty()) totals.assign(network.layer1_size, 0.0f);
        add_stats(totals);
    }
    munmap(block, bytes);
    // 6. Write, unless there is nothing to prune
    std::printf("Writing pruned net to pruned.bin ...\n");
    std::fflush(stdout);
    // No usable record, or no net, is nothing to prune by; a net already
    // of the pruned size has nothing to lose.
    bool ok = read_ok && !totals.empty() && network_ready();
    if (!network_ready() || network.layer1_size <= PRUNED_SIZE) return ok;
    if (totals.empty()) totals.assign(network.layer1_size, 0.0f);
    // 7., 8. Keep the strongest neurons and write them
    return write_pruned(choose_neurons(totals)) && ok;
}
