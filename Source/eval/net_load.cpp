// Reading a net: from the block built into the executable, from a file,
// or a fresh block for a trainer to fill.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/status.h"
#include "network.h"

NetworkDescriptor network;

static bool reload_pending = false;

// The header words, in the order they stand in the file.
struct NetHeader {
    u16 net_serial, net_kind, inputs_piece, inputs_extra;
    u16 layer1_size, layer2_size, outputs;
    u32 weight_count;
};

static void say(const char *format, const char *name) {
    char line[256];
    std::snprintf(line, sizeof line, format, name);
    print_line(line);
}

// A damaged file still loads as far as it goes, but never in silence.
[[gnu::format(printf, 1, 2)]] static void warn(const char *format, ...) {
    char line[400];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    print_line(line);
}

void free_network() {
    std::free(network.storage);
    network.storage = nullptr;
    network.layer1_weights = nullptr;
    network.layer2_weights = nullptr;
    network.output_weights = nullptr;
    network.biases = nullptr;
}

bool network_ready() { return network.storage != nullptr; }

static int64_t pad(int64_t n) { return n >= 8 ? n : 8; }

// The derived sizes.  False for a shape the feature scheme can't index or
// a block too large to hold; the header's own weight count is not used.
static bool size_network(const NetHeader &h) {
    NetworkDescriptor &n = network;
    n.net_kind = h.net_kind;
    n.net_serial = h.net_serial;
    n.inputs_piece = h.inputs_piece;
    n.inputs_extra = h.inputs_extra;
    n.inputs = n.inputs_piece + n.inputs_extra;
    n.outputs = h.outputs;
    n.layer1_size = h.layer1_size;
    n.layer2_size = h.layer2_size;
    int64_t l1 = int64_t{n.inputs} * n.layer1_size;
    int64_t l2 = pad(n.layer2_size) * n.layer1_size;
    int64_t out = pad(n.outputs) * n.layer2_size;
    int64_t total = l1 + l2 + out + 8;
    if (n.inputs_piece < NET_PIECE_INPUTS || total > NET_MAX_WORDS)
        return false;
    n.layer1_weights_count = static_cast<i32>(l1);
    n.layer2_weights_count = static_cast<i32>(l2);
    n.output_weights_count = static_cast<i32>(out);
    n.weight_count = static_cast<i32>(total);
    return true;
}

i16 *zeroed_lanes(int64_t count) {
    int64_t bytes = std::max<int64_t>(count, 1) * int64_t{sizeof(i16)};
    bytes = (bytes + NET_LINE_BYTES - 1) / NET_LINE_BYTES * NET_LINE_BYTES;
    void *block =
        std::aligned_alloc(NET_LINE_BYTES, static_cast<size_t>(bytes));
    if (block) std::memset(block, 0, static_cast<size_t>(bytes));
    return static_cast<i16 *>(block);
}

// The block is zeroed, so that weights a short file never supplies read
// as 0 rather than as leftovers.
static bool allocate_network() {
    NetworkDescriptor &n = network;
    n.storage = zeroed_lanes(n.weight_count);
    if (!n.storage) return false;
    n.layer1_weights = n.storage;
    n.layer2_weights = n.layer1_weights + n.layer1_weights_count;
    n.output_weights = n.layer2_weights + n.layer2_weights_count;
    n.biases = n.output_weights + n.output_weights_count;
    return true;
}

static i16 working_weight(i16 stored) {
    return static_cast<i16>(std::trunc(stored * NET_LOAD_FACTOR));
}

i16 stored_weight_for(int working) {
    working = std::clamp(working, -NET_WORKING_MAX, NET_WORKING_MAX);
    int guess = static_cast<int>(std::lround(working / NET_LOAD_FACTOR));
    // Truncation toward zero: search outward from the rounded guess.
    for (int d = 0; d < 8; d++)
        for (int s : {guess - d, guess + d})
            if (s >= -32768 && s <= 32767 &&
                working_weight(static_cast<i16>(s)) == working)
                return static_cast<i16>(s);
    return 0;  // unreachable: every working value in range has one
}

static u16 word_at(const unsigned char *p) {
    return static_cast<u16>(p[0] | (p[1] << 8));
}

static NetHeader header_of(const unsigned char *p) {
    NetHeader h;
    h.net_serial = word_at(p);
    h.net_kind = word_at(p + 2);
    h.inputs_piece = word_at(p + 4);
    h.inputs_extra = word_at(p + 6);
    h.layer1_size = word_at(p + 8);
    h.layer2_size = word_at(p + 10);
    h.outputs = word_at(p + 12);
    h.weight_count = word_at(p + 14) | (u32{word_at(p + 16)} << 16);
    return h;
}

static void refuse(const char *name) {
    say("info string %s: a net of this shape can't be used", name);
    free_network();
}

// A trainer's starting block.  Its weights are zero rather than left
// uninitialised, so that evaluating it gives 0 instead of garbage.
static void create_new_network() {
    print_line("creating new net...");
    NetHeader h{661, 1, 1536, 36, 1024, 0, 7, 0};
    size_network(h);
    if (!allocate_network()) {
        print_line("allocating memory for net failed!");
        std::exit(1);
    }
}

// The built-in block, or any block laid out alike.  A build that carries
// none, or one too short for its header, leaves no net: the hand-written
// evaluation then serves.
void load_network_block(const unsigned char *block, u64 size) {
    if (size < NET_HEADER_BYTES) return;
    if (!size_network(header_of(block))) return refuse("embedded");
    if (!allocate_network()) {
        print_line("allocating memory for net failed!");
        std::exit(1);
    }
    // The weights start at word 9; a short block leaves the rest 0.
    u64 available = (size - NET_HEADER_BYTES) / 2;
    u64 count = std::min<u64>(available, network.weight_count);
    for (u64 i = 0; i < count; i++) {
        i16 stored =
            static_cast<i16>(word_at(block + NET_HEADER_BYTES + 2 * i));
        if (std::abs(stored) > NET_STORED_LIMIT) print_line("error!");
        network.storage[i] = working_weight(stored);
    }
    print_line("info string loaded embedded network");
    std::rand();
}

// The number of whole weights behind the header, when the file is one
// whose length can be known (not a pipe, say).
static bool weights_in_file(FILE *file, u64 &words) {
    struct stat st;
    if (fstat(fileno(file), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    const u64 bytes = static_cast<u64>(st.st_size);
    const u64 head = NET_HEADER_BYTES;
    words = bytes > head ? (bytes - head) / 2 : 0;
    return true;
}

// What the file's length says against its header and its shape.  True
// when a warning about a file cut short was given.
static bool warn_about_length(const char *name, u32 header_count, u64 words) {
    const u64 needed = static_cast<u64>(network.weight_count);
    if (words < needed) {
        warn(
            "info string %s is cut short: it holds %llu of the net's %llu "
            "weights; the rest are 0",
            name, static_cast<unsigned long long>(words),
            static_cast<unsigned long long>(needed));
        return true;
    }
    if (header_count != words)
        warn("info string %s: its header gives %u weights, but it holds %llu",
             name, header_count, static_cast<unsigned long long>(words));
    else if (words > needed)
        warn("info string %s: the net's shape uses %llu of its %llu weights",
             name, static_cast<unsigned long long>(needed),
             static_cast<unsigned long long>(words));
    return false;
}

// A file: the header, then the weights.  A short header leaves no net; a
// short block of weights leaves the rest 0.  Either is reported, as is a
// header whose weight count disagrees with the file's length.
static void load_network_file(const char *name) {
    FILE *file = std::fopen(name, "rb");
    if (!file) {
        say("info string can't open %s", name);
        std::exit(0);
    }
    unsigned char head[NET_HEADER_BYTES];
    std::size_t head_bytes = std::fread(head, 1, sizeof head, file);
    if (head_bytes != sizeof head) {
        warn(
            "info string %s: its header is cut short, %zu of %d bytes; no "
            "net is loaded",
            name, head_bytes, NET_HEADER_BYTES);
        std::fclose(file);
        return;
    }
    NetHeader header = header_of(head);
    if (!size_network(header)) {
        std::fclose(file);
        return refuse(name);
    }
    if (!allocate_network()) {
        print_line("allocating memory for net failed!");
        std::exit(1);
    }
    u64 words = 0;
    bool told_short = weights_in_file(file, words) &&
                      warn_about_length(name, header.weight_count, words);
    constexpr int CHUNK = 4096;
    unsigned char buffer[2 * CHUNK];
    for (i32 done = 0; done < network.weight_count;) {
        i32 want = std::min(CHUNK, network.weight_count - done);
        std::size_t got = std::fread(buffer, 2, want, file);
        for (std::size_t i = 0; i < got; i++)
            network.storage[done + i] =
                working_weight(static_cast<i16>(word_at(buffer + 2 * i)));
        if (static_cast<i32>(got) < want) {
            if (!told_short)
                warn(
                    "info string %s is cut short: it holds %d of the net's "
                    "%d weights; the rest are 0",
                    name, done + static_cast<i32>(got), network.weight_count);
            std::fclose(file);
            return;
        }
        done += want;
    }
    std::fclose(file);
    say("info string loaded %s", name);
    std::rand();
}

void load_network(const char *name) {
    free_network();
    if (!std::strcmp(name, "new"))
        create_new_network();
    else if (!std::strcmp(name, "embedded"))
        load_network_block(embedded_network_data, embedded_network_size);
    else
        load_network_file(name);
}

void request_network_reload() { reload_pending = true; }

void apply_network_reload(const char *name) {
    if (!reload_pending) return;
    reload_pending = false;
    load_network(name);
}

void forget_network_reload() { reload_pending = false; }
