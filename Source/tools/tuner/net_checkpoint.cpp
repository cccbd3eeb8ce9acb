// Checkpoints of a training run.  After every epoch the float model,
// Adam's moments and the progress go to one file, written aside and then
// renamed over the old one, so that a run killed at any moment leaves the
// last finished epoch whole.  A run started again with the same settings
// on the same data goes on from there and ends with the same net.
#include <cstdio>
#include <cstring>
#include <string>

#include "eval/network.h"
#include "net_trainer.h"

namespace {

constexpr char CHECKPOINT_MAGIC[8] = {'Q', 'L', 'N', 'C', 'K', 'P', 'T', '1'};

// The run a checkpoint belongs to, then where it stood.
struct CheckpointHeader {
    char magic[8];
    CheckpointRun run;
    CheckpointProgress progress;
};

bool write_floats(FILE *out, const std::vector<float> &v) {
    return std::fwrite(v.data(), sizeof(float), v.size(), out) == v.size();
}

// Exactly `count` floats, or false: the sizes come from the run in hand,
// never from the file.
bool read_floats(FILE *in, std::vector<float> &v, size_t count) {
    v.assign(count, 0.0f);
    return std::fread(v.data(), sizeof(float), count, in) == count;
}

}  // namespace

std::string checkpoint_name(const char *net_file) {
    return std::string(net_file) + ".ckpt";
}

bool save_checkpoint(const char *file, const CheckpointRun &run,
                     const CheckpointProgress &progress, const NetModel &m,
                     const AdamState &adam) {
    std::string aside = std::string(file) + ".part";
    FILE *out = std::fopen(aside.c_str(), "wb");
    if (!out) return false;
    CheckpointHeader h{};
    std::memcpy(h.magic, CHECKPOINT_MAGIC, sizeof h.magic);
    h.run = run;
    h.progress = progress;
    bool ok = std::fwrite(&h, sizeof h, 1, out) == 1 &&
              write_floats(out, m.w1) && write_floats(out, m.out) &&
              write_floats(out, adam.m1) && write_floats(out, adam.v1) &&
              write_floats(out, adam.mo) && write_floats(out, adam.vo);
    ok = std::fclose(out) == 0 && ok;
    if (ok) ok = std::rename(aside.c_str(), file) == 0;
    if (!ok) std::remove(aside.c_str());
    return ok;
}

bool load_checkpoint(const char *file, const CheckpointRun &run,
                     CheckpointProgress &progress, NetModel &m,
                     AdamState &adam) {
    FILE *in = std::fopen(file, "rb");
    if (!in) return false;
    CheckpointHeader h;
    bool ok = std::fread(&h, sizeof h, 1, in) == 1 &&
              !std::memcmp(h.magic, CHECKPOINT_MAGIC, sizeof h.magic) &&
              !std::memcmp(&h.run, &run, sizeof run) &&
              h.progress.done <= run.visits && run.hidden > 0;
    size_t first = model_input_rows(run.shared_wings != 0) * run.hidden;
    size_t output = static_cast<size_t>(NET_BUCKETS) * run.hidden;
    NetModel read;
    AdamState moments{};
    read.hidden = run.hidden;
    read.shared_wings = run.shared_wings != 0;
    ok = ok && read_floats(in, read.w1, first) &&
         read_floats(in, read.out, output) &&
         read_floats(in, moments.m1, first) &&
         read_floats(in, moments.v1, first) &&
         read_floats(in, moments.mo, output) &&
         read_floats(in, moments.vo, output) && std::fgetc(in) == EOF;
    std::fclose(in);
    if (!ok) return false;
    moments.steps = h.progress.adam_steps;
    progress = h.progress;
    m = std::move(read);
    adam = std::move(moments);
    return true;
}
