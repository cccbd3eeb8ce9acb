// -tune file millions: reads training records, trains the float net with
// Adam on shuffled mini-batches, and writes it as a net file, which the
// engine then loads to check that its integer evaluation agrees.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numbers>
#include <string>

#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "eval/network.h"
#include "net_trainer.h"
#include "position/notation.h"
#include "search/search.h"
#include "splitmix.h"
#include "train_data.h"

namespace fs = std::filesystem;

// The record files of `name`: itself, or the .bin files of a folder in
// name order, so that a run reads them alike every time.  "default" is the
// self-play generator's own data folder.
static std::vector<std::string> record_files(const char *name) {
    std::vector<std::string> files;
    std::error_code ec;
    char folder[400];
    if (!std::strcmp(name, "default")) {
        data_folder(name, folder, sizeof folder);
        name = folder;
    }
    if (fs::is_directory(name, ec)) {
        for (const auto &e : fs::directory_iterator(name, ec))
            if (e.path().extension() == ".bin") files.push_back(e.path());
        std::sort(files.begin(), files.end());
    } else {
        files.push_back(name);
    }
    return files;
}

struct SampleSets {
    std::vector<TrainSample> train, valid;
    std::vector<TrainRecord> valid_records;
};

static void read_samples(const char *name, const TrainerConfig &c,
                         SampleSets &sets) {
    u64 index = 0;
    TrainRecord buffer[4096];
    for (const std::string &file : record_files(name)) {
        FILE *in = std::fopen(file.c_str(), "rb");
        if (!in) {
            std::string line = "can't read " + file;
            print_line(line.c_str());
            continue;
        }
        size_t got;
        while ((got = std::fread(buffer, sizeof(TrainRecord), 4096, in)) > 0)
            for (size_t i = 0; i < got; i++, index++) {
                TrainSample s;
                if (!make_sample(buffer[i], c, s)) continue;
                if (index % c.validate_every == 0) {
                    sets.valid.push_back(s);
                    sets.valid_records.push_back(buffer[i]);
                } else {
                    sets.train.push_back(s);
                }
            }
        std::fclose(in);
    }
}

// "cosine" or "step"; a misspelt name is told, so that a run meant to be
// cosine doesn't pass for one.
static void read_schedule(const char *name, TrainerConfig &c) {
    c.cosine = !std::strcmp(name, "cosine");
    if (c.cosine || !std::strcmp(name, "step")) return;
    char line[200];
    std::snprintf(line, sizeof line,
                  "unknown schedule %.100s: the stepped one is used", name);
    print_line(line);
}

// The tuner's own switches, which the engine's reader passes over.
static void read_trainer_switches(int argc, char **argv, TrainerConfig &c) {
    for (int i = 1; i + 1 < argc; i++) {
        const char *a = argv[i], *v = argv[i + 1];
        if (!std::strcmp(a, "-hidden")) c.hidden = std::atoi(v);
        if (!std::strcmp(a, "-lambda")) c.lambda = std::strtof(v, nullptr);
        if (!std::strcmp(a, "-seed")) c.seed = std::strtoull(v, nullptr, 10);
        if (!std::strcmp(a, "-scale")) c.scale = std::strtof(v, nullptr);
        if (!std::strcmp(a, "-target")) c.hand_target = !std::strcmp(v, "hce");
        if (!std::strcmp(a, "-epochs")) c.sitting = std::atoi(v);
        if (!std::strcmp(a, "-sum_bound")) c.sum_bound = std::atoi(v);
        if (!std::strcmp(a, "-quiet")) c.quiet_only = !std::strcmp(v, "yes");
        if (!std::strcmp(a, "-wings"))
            c.shared_wings = !std::strcmp(v, "shared");
        if (!std::strcmp(a, "-schedule")) read_schedule(v, c);
    }
    c.hidden = std::clamp(c.hidden / 8 * 8, 8, 4096);
    c.lambda = std::clamp(c.lambda, 0.0f, 1.0f);
    c.scale = std::clamp(c.scale, 50.0f, 2000.0f);
    c.sum_bound = std::clamp(c.sum_bound, 0, 32767);
}

static void say(const char *format, double a, double b = 0, double c = 0,
                double d = 0, double e = 0) {
    char line[300];
    std::snprintf(line, sizeof line, format, a, b, c, d, e);
    print_line(line);
}

static double seconds_since(std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t)
        .count();
}

// Fisher-Yates, the same order for the same seed.
static void shuffle(std::vector<TrainSample> &v, u64 &state) {
    for (size_t i = v.size(); i > 1; i--)
        std::swap(v[i - 1], v[next_random(state) % i]);
}

float step_size(float lr, double progress, bool cosine) {
    if (!cosine)
        return progress < 0.6 ? lr : progress < 0.85 ? lr * 0.3f : lr * 0.1f;
    double p = std::clamp(progress, 0.0, 1.0);
    double fall = 0.5 * (1.0 + std::cos(std::numbers::pi * p));
    return static_cast<float>(lr *
                              (COSINE_FLOOR + (1.0 - COSINE_FLOOR) * fall));
}

// The engine's own evaluation of the written net against the float model
// on the held-out positions: the mean and the largest difference in
// centipawns.
// False when the engine can't load the file just written.
static bool check_with_engine(const NetModel &m, const char *file,
                              const SampleSets &sets) {
    load_network(file);
    if (!network_ready()) {
        print_line("the engine can't load the net");
        return false;
    }
    double sum = 0;
    int worst = 0, n = 0;
    for (size_t i = 0; i < sets.valid.size() && i < 20000; i++, n++) {
        set_record_position(front_worker->position, sets.valid_records[i]);
        front_worker->eval.eval_ply = 0;  // start over: no patching
        int engine = network_evaluate(front_worker);
        int model = logit_score(model_logit(m, sets.valid[i]));
        sum += std::abs(engine - model);
        worst = std::max(worst, std::abs(engine - model));
    }
    say("engine vs model on %.0f positions: mean difference %.2f cp, "
        "largest %.0f cp",
        n, n ? sum / n : 0.0, worst);
    return true;
}

static CheckpointRun run_of(const TrainerConfig &c, size_t train_size) {
    CheckpointRun r{};
    r.visits = c.visits;
    r.seed = c.seed;
    r.train_size = train_size;
    r.hidden = c.hidden;
    r.batch = c.batch;
    r.lambda = c.lambda;
    r.lr = c.lr;
    r.scale = c.scale;
    r.hand_target = c.hand_target;
    r.shared_wings = c.shared_wings;
    r.sum_bound = c.sum_bound;
    r.quiet_only = c.quiet_only;
    r.cosine = c.cosine;
    return r;
}

bool tune_network(int argc, char **argv) {
    TrainerConfig c = default_trainer();
    read_trainer_switches(argc, argv, c);
    c.lr = settings.learn_rate > 0 ? settings.learn_rate : c.lr;
    c.batch = std::clamp(settings.mini_batch, 64, 1 << 22);
    c.visits = static_cast<u64>(settings.tune_positions);
    c.threads = std::max(1, static_cast<int>(settings.threads));
    const char *out =
        settings.output_file[0] ? settings.output_file : "quillon.nnue";
    auto started = std::chrono::steady_clock::now();
    SampleSets sets;
    read_samples(settings.input_file, c, sets);
    if (sets.train.empty()) {
        print_line("no training positions");
        return false;
    }
    say("read %.0f training and %.0f validation positions in %.1f s",
        static_cast<double>(sets.train.size()),
        static_cast<double>(sets.valid.size()), seconds_since(started));
    NetModel m;
    init_model(m, c.hidden, c.seed, c.shared_wings);
    AdamState adam{};
    u64 order = c.seed ^ 0x5DEECE66DULL, done = 0;
    say("hidden %.0f, lambda %.2f, lr %.4f, batch %.0f, threads %.0f", c.hidden,
        c.lambda, c.lr, c.batch, c.threads);
    if (c.shared_wings) print_line("wing cases share common rows");
    if (c.quiet_only) print_line("positions that win material passed over");
    if (c.cosine) print_line("the step falls along a cosine");
    if (c.sum_bound > 0) say("first-layer sums held within %.0f", c.sum_bound);
    CheckpointRun run = run_of(c, sets.train.size());
    std::string checkpoint = checkpoint_name(out);
    CheckpointProgress at{};
    if (load_checkpoint(checkpoint.c_str(), run, at, m, adam)) {
        // The set is shuffled afresh every epoch: replaying the finished
        // epochs' shuffles puts it in the order the run had reached.
        for (int e = 0; e < at.epochs; e++) shuffle(sets.train, order);
        done = at.done;
        say("resumed after epoch %.0f, %.1f M positions", at.epochs,
            done / 1e6);
    }
    const int start_epoch = at.epochs;
    for (int epoch = at.epochs + 1; done < c.visits; epoch++) {
        shuffle(sets.train, order);
        double loss = 0;
        u64 seen = 0;
        for (size_t i = 0; i < sets.train.size() && done < c.visits;) {
            int n =
                static_cast<int>(std::min<u64>(c.batch, sets.train.size() - i));
            float lr =
                step_size(c.lr, static_cast<double>(done) / c.visits, c.cosine);
            loss += train_step(m, adam, &sets.train[i], n, lr, c.scale,
                               c.threads, c.sum_bound / NET_SCALE);
            i += n, done += n, seen += n;
        }
        say("epoch %.0f: train %.6f, valid %.6f, %.1f M positions, %.0f s",
            epoch, loss / std::max<u64>(seen, 1),
            model_loss(m, sets.valid, c.scale), done / 1e6,
            seconds_since(started));
        at = CheckpointProgress{done, adam.steps, epoch, 0};
        if (!save_checkpoint(checkpoint.c_str(), run, at, m, adam))
            print_line("can't write the checkpoint");
        if (c.sitting > 0 && done < c.visits &&
            epoch - start_epoch >= c.sitting) {
            print_line("stopped; the same command goes on");
            return true;
        }
    }
    const NetModel net = folded_model(m);
    if (!write_net(net, out)) {
        print_line("can't write the net");
        return false;
    }
    std::remove(checkpoint.c_str());
    char line[300];
    std::snprintf(line, sizeof line, "wrote %s", out);
    print_line(line);
    if (!check_with_engine(net, out, sets)) return false;
    i32 largest = 0;
    u64 past = saturating_samples(net, sets.valid, largest);
    say("first-layer sums past 16 bits in %.0f of %.0f validation positions, "
        "the largest %.0f",
        static_cast<double>(past), static_cast<double>(sets.valid.size()),
        static_cast<double>(largest));
    return true;
}
