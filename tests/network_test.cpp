// The network: the file loader, the features, the accumulators with their
// patches, and the whole forward pass against a plain scalar reference
// written here from the rules, apart from the engine's own code.
#include "eval/network.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "core/output.h"
#include "frontend/options.h"
#include "net_files.h"
#include "playout_support.h"
#include "test_support.h"

namespace {

std::string temp_path(const std::string &name) {
    return testing::TempDir() + "quillon_net_" + std::to_string(getpid()) +
           "_" + name;
}

// Loads a file with standard output silenced; returns what it printed.
std::string load_quietly(const std::string &path) {
    testing::internal::CaptureStdout();
    load_network(path.c_str());
    return testing::internal::GetCapturedStdout();
}

// --- The scalar reference -------------------------------------------

struct ReferenceNet {
    Shape s;
    std::vector<int> w;  // working weights
    int l2_at, out_at, bias_at;
};

ReferenceNet reference_of(const Shape &s, const std::vector<i16> &stored) {
    ReferenceNet r;
    r.s = s;
    for (i16 v : stored)
        r.w.push_back(static_cast<int>(v * 0.18000000000000002));
    int inputs = s.inputs_piece + s.inputs_extra;
    r.l2_at = inputs * s.layer1;
    r.out_at = r.l2_at + std::max(s.layer2, 8) * s.layer1;
    r.bias_at = r.out_at + std::max(s.outputs, 8) * s.layer2;
    return r;
}

// Features read square by square from the board array.
std::vector<int> reference_features(const Position &pos, const Shape &s) {
    int stm = pos.side;
    int king[2] = {-1, -1};
    for (int sq = 0; sq < 64; sq++) {
        if (pos.board[sq] == 6) king[0] = sq;
        if (pos.board[sq] == 14) king[1] = sq;
    }
    int mirror[2], block[2];
    for (int c = 0; c < 2; c++) {
        bool right = king[c] % 8 >= 4;
        mirror[c] = stm == 0 ? (right ? 0 : 7) : (right ? 56 : 63);
        block[c] = c == stm ? 0 : s.inputs_piece / 4;
    }
    if (mirror[0] != mirror[1])
        for (int c = 0; c < 2; c++) block[c] += s.inputs_piece / 2;
    std::vector<int> f;
    int material[2] = {0, 0};
    const int points[7] = {0, 1, 3, 3, 5, 10, 0};
    for (int c = 0; c < 2; c++) {
        f.push_back((king[c] ^ mirror[c]) + block[c]);
        for (int t = 1; t <= 5; t++)
            for (int sq = 0; sq < 64; sq++)
                if (pos.board[sq] == t + 8 * c) {
                    f.push_back((sq ^ mirror[c]) + block[c] + 64 * t);
                    material[c] += points[t];
                }
    }
    if (s.inputs_extra == 36) {
        int d = std::clamp(material[stm] - material[stm ^ 1], -16, 16);
        f.push_back(s.inputs_piece + d + 18);
    }
    return f;
}

// The first layer before the rectifier, started over.
std::vector<int> reference_layer1(const ReferenceNet &r,
                                  const std::vector<int> &features) {
    std::vector<int> acc(r.s.layer1, r.w[r.bias_at + 1]);
    for (int f : features)
        for (int n = 0; n < r.s.layer1; n++)
            acc[n] =
                std::clamp(acc[n] + r.w[f * r.s.layer1 + n], -32768, 32767);
    return acc;
}

i32 wrapped_dot(const int *a, const std::vector<int> &b, int n) {
    u32 sum = 0;
    for (int i = 0; i < n; i++) sum += static_cast<u32>(a[i] * b[i]);
    return static_cast<i32>(sum);
}

int reference_bucket(const Position &pos) {
    int points[2] = {0, 0};
    const int value[7] = {0, 0, 3, 3, 5, 10, 0};
    for (int sq = 0; sq < 64; sq++)
        if (pos.board[sq])
            points[pos.board[sq] >> 3] += value[pos.board[sq] & 7];
    int m = std::max(points[0], points[1]);
    const int floors[6] = {25, 20, 15, 10, 5, 0};
    for (int b = 0; b < 6; b++)
        if (m > floors[b]) return b;
    return 6;
}

int reference_score(const ReferenceNet &r, const Position &pos) {
    std::vector<int> act = reference_layer1(r, reference_features(pos, r.s));
    for (int &x : act) x = x < 0 ? x / 32 : x;
    int bucket = reference_bucket(pos);
    i32 dot;
    int width;
    if (r.s.layer2 > 0) {
        float t = static_cast<float>(r.w[r.bias_at + 2]);
        std::vector<int> hidden(r.s.layer2);
        for (int node = 0; node < r.s.layer2; node++) {
            t += static_cast<float>(wrapped_dot(
                &r.w[r.l2_at + node * r.s.layer1], act, r.s.layer1));
            if (t >= -54000000.0f) {
                t = std::min(t * 0.00055555557f, 30000.0f);
                int v = static_cast<int>(t);
                hidden[node] = v < 0 ? v / 32 : v;
            } else {
                t = -30000.0f;
                hidden[node] = -937;
            }
        }
        width = r.s.layer2;
        dot = wrapped_dot(&r.w[r.out_at + bucket * width], hidden, width);
    } else {
        width = r.s.layer1;
        dot = wrapped_dot(&r.w[r.l2_at + bucket * width], act, width);
    }
    float p = 0.5f;
    if (width >= 1) {
        float x = static_cast<float>(
            static_cast<double>(static_cast<float>(dot)) * 3.08641975308642e-7);
        float u = 1.0f - x / 256.0f;
        for (int i = 0; i < 8; i++) u = u * u;
        p = 1.0f / (1.0f + u);
    }
    if (p < 1e-5) return -1919;
    if (p > 0.99999) return 1919;
    return static_cast<int>(std::log(1.0 / p - 1.0) * -166.6666717529297);
}

i32 evaluate_net(int ply) {
    front_worker->eval.eval_ply = static_cast<u8>(ply);
    return network_evaluate(front_worker);
}

struct NetworkTest : testing::Test {
    void SetUp() override {
        settings.noise = 0.0f;
        release_network_state(front_worker);
    }
    void TearDown() override {
        release_network_state(front_worker);
        free_network();
        std::snprintf(settings.nn_file, sizeof settings.nn_file, "embedded");
        settings.use_nn = 1;
        test_position(START_FEN);
    }
    // Writes and loads a net; returns its reference.
    ReferenceNet load_random(const Shape &s, u32 seed, int a1, int a2, int ab,
                             const std::string &name = "net.bin") {
        std::vector<i16> stored = random_stored(s, seed, a1, a2, ab);
        std::string path = temp_path(name);
        write_bytes(path, net_bytes(s, stored));
        std::string out = load_quietly(path);
        EXPECT_EQ(out, "info string loaded " + path + "\n");
        EXPECT_TRUE(network_ready());
        std::remove(path.c_str());
        return reference_of(s, stored);
    }
};

// --- The forward pass --------------------------------------------------

// Every position of the playouts, evaluated from scratch and patched
// from the last one, against the reference.
void expect_reference_scores(const ReferenceNet &r, u32 seed, int games) {
    int checked = 0, differing = 0;
    play_out(seed, games, 60, [&](Position &pos) {
        int want = reference_score(r, pos);
        int ply = checked % 3 == 0 ? 1 : 5;
        if (evaluate_net(ply) != want) differing++;
        checked++;
    });
    EXPECT_EQ(differing, 0) << "of " << checked;
    EXPECT_GT(checked, 1000);
}

TEST_F(NetworkTest, BuiltInShapeMatchesTheReference) {
    // Weights small enough that the sums never saturate: a patch then
    // equals a fresh start, whatever the order.
    ReferenceNet r = load_random(Shape{}, 1, 4000, 300, 3000);
    expect_reference_scores(r, 11, 24);
}

TEST_F(NetworkTest, SaturatingNetMatchesTheReferenceFromScratch) {
    // Large first-layer weights saturate the 16-bit sums: only a fresh
    // start is compared, since a patch may then differ by design.
    ReferenceNet r = load_random(Shape{}, 2, 30000, 40, 30000);
    int checked = 0, differing = 0, saturated = 0;
    play_out(12, 12, 60, [&](Position &pos) {
        if (evaluate_net(1) != reference_score(r, pos)) differing++;
        const i16 *v = front_worker->nn.accumulators[pos.side]->values;
        for (int i = 0; i < 1536; i++)
            if (v[i] == 32767 || v[i] == -32768) saturated++;
        checked++;
    });
    EXPECT_EQ(differing, 0) << "of " << checked;
    EXPECT_GT(saturated, 0);
}

TEST_F(NetworkTest, NarrowNetsMatchTheReference) {
    for (int width : {8, 64, 100, 13}) {
        Shape s;
        s.layer1 = width;
        ReferenceNet r = load_random(s, 3 + width, 3000, 2000, 2000);
        expect_reference_scores(r, 13 + width, 20);
    }
}

TEST_F(NetworkTest, SecondLayerNetsMatchTheReference) {
    Shape s;
    s.layer1 = 256;
    s.layer2 = 32;
    ReferenceNet r = load_random(s, 4, 4000, 400, 3000);
    expect_reference_scores(r, 14, 20);
    s.layer1 = 64;
    s.layer2 = 5;
    s.inputs_extra = 0;
    r = load_random(s, 5, 4000, 3000, 30000);
    expect_reference_scores(r, 15, 20);
}

// The playouts met every kind of move that changes features unusually.
void expect_every_move_kind(const MoveKinds &kinds) {
    EXPECT_GT(kinds.castles, 0);
    EXPECT_GT(kinds.en_passant, 0);
    EXPECT_GT(kinds.promotions, 0);
    EXPECT_GT(kinds.king_crossings, 0);
}

// After every move the stored sums of the side to move equal a fresh
// computation, whatever kind of move led there.
TEST_F(NetworkTest, PatchedAccumulatorsEqualAFreshStart) {
    ReferenceNet r = load_random(Shape{}, 6, 4000, 300, 3000);
    int checked = 0, differing = 0, patched = 0;
    MoveKinds kinds = play_out(16, 90, 50, [&](Position &pos) {
        u64 before = front_worker->nn.accumulators[0]
                         ? front_worker->nn.accumulators[pos.side]->occupied
                         : 0;
        evaluate_net(checked == 0 ? 1 : 7);
        if (count_bits(before ^ occupied_squares(pos)) <= 8) patched++;
        std::vector<int> want =
            reference_layer1(r, reference_features(pos, r.s));
        const i16 *v = front_worker->nn.accumulators[pos.side]->values;
        for (int i = 0; i < r.s.layer1; i++)
            if (v[i] != want[i]) {
                differing++;
                break;
            }
        checked++;
    });
    EXPECT_EQ(differing, 0) << "of " << checked;
    EXPECT_GT(patched, checked / 2);
    expect_every_move_kind(kinds);
}

// The sums as the rules leave them, patch after patch, for one side to
// move: the reference keeps its own lists and sums and follows the rules'
// tests and orders, saturating at every step.
struct ReferenceSums {
    std::vector<int> features, values;
    u64 occupied = 0;
    int wing = 0;
};

int reference_wing(const Position &pos) {
    int king[2] = {-1, -1};
    for (int sq = 0; sq < 64; sq++) {
        if (pos.board[sq] == 6) king[0] = sq;
        if (pos.board[sq] == 14) king[1] = sq;
    }
    return (king[0] % 8 >= 4) != (king[1] % 8 >= 4);
}

void reference_patch(const ReferenceNet &r, const Position &pos, int ply,
                     ReferenceSums &sums) {
    std::vector<int> now = reference_features(pos, r.s);
    u64 occupied = 0;
    for (int sq = 0; sq < 64; sq++)
        if (pos.board[sq]) occupied |= u64{1} << sq;
    int wing = reference_wing(pos);
    auto step = [&](int f, int sign) {
        for (int n = 0; n < r.s.layer1; n++)
            sums.values[n] = std::clamp(
                sums.values[n] + sign * r.w[f * r.s.layer1 + n], -32768, 32767);
    };
    bool patch = sums.wing == wing && ply >= 3 &&
                 count_bits(occupied ^ sums.occupied) <= 8;
    if (patch) {
        auto has = [](const std::vector<int> &v, int f) {
            return std::find(v.begin(), v.end(), f) != v.end();
        };
        for (int f : sums.features)
            if (!has(now, f)) step(f, -1);
        for (int f : now)
            if (!has(sums.features, f)) step(f, +1);
    } else {
        sums.values = reference_layer1(r, now);
    }
    sums.features = now;
    sums.occupied = occupied;
    sums.wing = wing;
}

// On a net whose sums saturate, a patch may differ from a fresh start, so
// the engine must take the rules' own path: the same tests, the same rows
// in the same order.  King crossings, castling, captures and promotions
// all come by.
TEST_F(NetworkTest, SaturatingPatchesFollowTheRulesStepByStep) {
    ReferenceNet r = load_random(Shape{}, 21, 30000, 40, 30000);
    ReferenceSums sums[2];
    for (ReferenceSums &side : sums) side.values.assign(r.s.layer1, 0);
    int checked = 0, differing = 0, patched_and_saturated = 0;
    std::mt19937 plies(5);
    MoveKinds kinds = play_out(22, 40, 70, [&](Position &pos) {
        int ply = plies() % 8 == 0 ? 1 : 6;
        ReferenceSums &want = sums[pos.side];
        bool patch = want.wing == reference_wing(pos) && ply >= 3;
        evaluate_net(ply);
        reference_patch(r, pos, ply, want);
        const i16 *v = front_worker->nn.accumulators[pos.side]->values;
        bool saturated = false;
        for (int n = 0; n < r.s.layer1; n++) {
            if (v[n] == 32767 || v[n] == -32768) saturated = true;
            if (v[n] != want.values[n]) {
                differing++;
                break;
            }
        }
        if (patch && saturated) patched_and_saturated++;
        checked++;
    });
    EXPECT_EQ(differing, 0) << "of " << checked;
    EXPECT_GT(patched_and_saturated, checked / 4);
    expect_every_move_kind(kinds);
}

// The changes read from two boards are the changes of their lists: the
// same features in the same order, for every pair of positions with the
// same side to move whose kings kept their wings.
TEST_F(NetworkTest, BoardChangesEqualTheListDifference) {
    std::vector<NetBoard> seen[2];
    int compared = 0, differing = 0;
    play_out(23, 60, 60, [&](Position &pos) {
        NetBoard now;
        net_board_of(pos, NET_PIECE_INPUTS, 36, now);
        u16 now_list[NET_MAX_FEATURES];
        int now_count = net_board_features(now, now_list);
        std::vector<NetBoard> &mine = seen[pos.side];
        // The last few boards with this side to move, as a search meets them.
        for (size_t back = 1; back <= 3 && back <= mine.size(); back++) {
            const NetBoard &old = mine[mine.size() - back];
            if (old.mirror[0] != now.mirror[0] ||
                old.mirror[1] != now.mirror[1])
                continue;
            u16 old_list[NET_MAX_FEATURES];
            int old_count = net_board_features(old, old_list);
            std::vector<u16> gone, came;
            for (int i = 0; i < old_count; i++)
                if (std::find(now_list, now_list + now_count, old_list[i]) ==
                    now_list + now_count)
                    gone.push_back(old_list[i]);
            for (int i = 0; i < now_count; i++)
                if (std::find(old_list, old_list + old_count, now_list[i]) ==
                    old_list + old_count)
                    came.push_back(now_list[i]);
            FeatureChanges changes;
            net_board_changes(old, now, changes);
            if (std::vector<u16>(changes.gone,
                                 changes.gone + changes.gone_count) != gone ||
                std::vector<u16>(changes.came,
                                 changes.came + changes.came_count) != came)
                differing++;
            compared++;
        }
        mine.push_back(now);
        EXPECT_EQ(now_count,
                  static_cast<int>(reference_features(pos, Shape{}).size()));
    });
    EXPECT_EQ(differing, 0) << "of " << compared;
    EXPECT_GT(compared, 3000);
}

// --- Features and buckets -----------------------------------------------

std::vector<u16> features_of(const char *fen, u16 &wing) {
    Position &pos = test_position(fen);
    u16 f[NET_MAX_FEATURES];
    int n = network_features(pos, 1536, 36, f, wing);
    return std::vector<u16>(f, f + n);
}

TEST_F(NetworkTest, ColourSwappedStartGivesTheSameFeaturesBlockForBlock) {
    u16 wing_w, wing_b;
    std::vector<u16> w = features_of(START_FEN, wing_w);
    std::vector<u16> b = features_of(
        "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq - 0 1", wing_b);
    ASSERT_EQ(w.size(), 33u);
    ASSERT_EQ(b.size(), 33u);
    EXPECT_EQ(wing_w, 0);
    EXPECT_EQ(wing_b, 0);
    // White lists its own block first; black to move lists the other
    // colour (white) first, so the two blocks trade places.
    std::vector<u16> own_w(w.begin(), w.begin() + 16),
        other_w(w.begin() + 16, w.begin() + 32);
    std::vector<u16> other_b(b.begin(), b.begin() + 16),
        own_b(b.begin() + 16, b.begin() + 32);
    EXPECT_EQ(own_w, own_b);
    EXPECT_EQ(other_w, other_b);
    EXPECT_EQ(w[32], b[32]);
    EXPECT_EQ(w[0], 4);          // the king on e1, own block
    EXPECT_EQ(w[16], 60 + 384);  // the other king e8, block 384
    EXPECT_EQ(w[32], 1536 + 18);
}

TEST_F(NetworkTest, LeftRightFlipGivesTheSameFeatures) {
    const char *pairs[][2] = {
        {"r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w - - 0 1",
         "r2k3r/1bpqpp1p/1pnp2nb/3NP3/3P2p1/p1Q2N2/PPPBBPPP/R2K3R w - - 0 1"},
        {"8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 b - - 0 1",
         "8/5p2/4p3/r5PK/k1p3R1/8/1P1P4/8 b - - 0 1"},
    };
    for (auto &pair : pairs) {
        u16 wa, wb;
        std::vector<u16> a = features_of(pair[0], wa);
        std::vector<u16> b = features_of(pair[1], wb);
        std::sort(a.begin(), a.end());
        std::sort(b.begin(), b.end());
        EXPECT_EQ(a, b) << pair[0];
        EXPECT_EQ(wa, wb);
    }
}

TEST_F(NetworkTest, KingFromE1ToD1FlipsWhitesFeaturesAndTheWing) {
    u16 we, wd;
    std::vector<u16> e = features_of("4k3/8/8/8/8/8/1P6/4K3 w - - 0 1", we);
    std::vector<u16> d = features_of("4k3/8/8/8/8/8/1P6/3K4 w - - 0 1", wd);
    EXPECT_EQ(we, 0);
    EXPECT_EQ(wd, 1);
    // King e1 = 4; on d1 flipped to 3 ^ 7 = 4, plus the wing block 768.
    EXPECT_EQ(e[0], 4);
    EXPECT_EQ(d[0], 4 + 768);
    // The pawn on b2 (9) is read as g2 (14) once the king is on d1.
    EXPECT_EQ(e[1], 9 + 64);
    EXPECT_EQ(d[1], 14 + 64 + 768);
    EXPECT_EQ(e[2], (60 ^ 0) + 384);
    EXPECT_EQ(d[2], 60 + 384 + 768);
}

TEST_F(NetworkTest, OutputBucketsByTheLargerNonPawnMaterial) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/4K3 w - - 0 1");
    Position copy = pos;
    auto bucket = [&](int white, int black) {
        copy.piece_points[WHITE] = static_cast<i16>(white);
        copy.piece_points[BLACK] = static_cast<i16>(black);
        return output_bucket_of(copy);
    };
    EXPECT_EQ(bucket(25, 0), 1);
    EXPECT_EQ(bucket(26, 3), 0);
    EXPECT_EQ(bucket(0, 1), 5);
    EXPECT_EQ(bucket(0, 0), 6);
    EXPECT_EQ(bucket(20, 21), 1);
    EXPECT_EQ(bucket(16, 5), 2);
    EXPECT_EQ(bucket(11, 0), 3);
    EXPECT_EQ(bucket(6, 0), 4);
    EXPECT_EQ(bucket(5, 5), 5);
    // Kings and pawns alone: the last row.
    EXPECT_EQ(output_bucket_of(test_position("4k3/pp6/8/8/8/8/PP6/4K3 w - -")),
              6);
}

// --- The output stage ---------------------------------------------------

TEST_F(NetworkTest, ZeroDotProductIsAnEvenGame) {
    f32 p = 0;
    EXPECT_EQ(network_score(0, 1536, 0, false, p), 0);
    EXPECT_EQ(p, 0.5f);
    // No width at all: the same even game.
    EXPECT_EQ(network_score(123456789, 0, 0, false, p), 0);
    EXPECT_EQ(p, 0.5f);
}

TEST_F(NetworkTest, ScoresStayWithin1919) {
    std::mt19937 rng(7);
    f32 p;
    for (i32 dot : {INT_MIN, INT_MAX, -1, 1, 100000000, -100000000})
        EXPECT_LE(std::abs(network_score(dot, 8, 0, false, p)), 1919);
    // x = 20: as good as won, and as good as lost.
    EXPECT_EQ(network_score(64800000, 8, 0, false, p), 1919);
    EXPECT_EQ(network_score(-64800000, 8, 0, false, p), -1919);
    // Past x = 256 the power's base turns negative and its 256th power
    // overflows: the stand-in for e^-x then reads as a lost game.
    EXPECT_EQ(network_score(INT_MAX, 8, 0, false, p), -1919);
    for (int i = 0; i < 100000; i++) {
        i32 dot = static_cast<i32>(rng());
        int s = network_score(dot, 8, rng(), i % 2 == 0, p);
        ASSERT_LE(std::abs(s), 1919) << dot;
        ASSERT_GE(p, 0.0f);
        ASSERT_LE(p, 1.0f);
    }
}

TEST_F(NetworkTest, NoiseMovesTheProbabilityByItsLowByte) {
    f32 quiet, noisy;
    int base = network_score(1000000, 8, 0, false, quiet);
    network_score(1000000, 8, 255, true, noisy);
    EXPECT_NEAR(noisy - quiet, 128 * 0.0001, 1e-6);
    network_score(1000000, 8, 127, true, noisy);
    EXPECT_EQ(noisy, quiet);
    // Near certainty the noise pushes past 1: stored as 1, the full score.
    EXPECT_EQ(network_score(64800000, 8, 255, true, noisy), 1919);
    EXPECT_EQ(noisy, 1.0f);
    EXPECT_EQ(network_score(-64800000, 8, 0, true, noisy), -1919);
    EXPECT_EQ(noisy, 0.0f);
    EXPECT_GT(base, 0);
}

// --- Vector paths -------------------------------------------------------

TEST_F(NetworkTest, RowOperationsMatchPlainSaturatingArithmetic) {
    std::mt19937 rng(8);
    for (int n : {0, 1, 7, 8, 9, 16, 31, 64, 100, 1536}) {
        std::vector<i16> acc(n), row(n), a128(n), a(n);
        for (int round = 0; round < 20; round++) {
            for (int i = 0; i < n; i++) {
                acc[i] = static_cast<i16>(rng());
                row[i] = static_cast<i16>(rng());
            }
            std::vector<i16> want(n);
            for (int i = 0; i < n; i++)
                want[i] = static_cast<i16>(
                    std::clamp(acc[i] + row[i], -32768, 32767));
            a128 = acc;
            add_row_128(a128.data(), row.data(), n);
            EXPECT_EQ(a128, want);
            for (int i = 0; i < n; i++)
                want[i] = static_cast<i16>(
                    std::clamp(acc[i] - row[i], -32768, 32767));
            a128 = acc;
            sub_row_128(a128.data(), row.data(), n);
            EXPECT_EQ(a128, want);
            for (int i = 0; i < n; i++)
                want[i] = static_cast<i16>(acc[i] < 0 ? acc[i] / 32 : acc[i]);
            a = acc;
            a128 = acc;
            leaky_rectify(a.data(), n);
            leaky_rectify_128(a128.data(), n);
            EXPECT_EQ(a, want);
            EXPECT_EQ(a128, want);
            std::vector<int> wide(row.begin(), row.end());
            std::vector<int> accw(acc.begin(), acc.end());
            i32 dot = wrapped_dot(accw.data(), wide, n);
            EXPECT_EQ(dot_product(acc.data(), row.data(), n), dot);
            EXPECT_EQ(dot_product_128(acc.data(), row.data(), n), dot);
        }
    }
    // The one pair whose two products overflow a 32-bit lane together.
    std::vector<i16> low(8, -32768);
    EXPECT_EQ(dot_product(low.data(), low.data(), 8),
              static_cast<i32>(u32{4} * 1073741824u * 2u));
    // 33 such pairs, most of them in the widest vectors: 33 times 2^31
    // wraps to -2^31 however the lanes are grouped.
    std::vector<i16> lows(66, -32768);
    EXPECT_EQ(dot_product(lows.data(), lows.data(), 66), INT32_MIN);
    EXPECT_EQ(dot_product_128(lows.data(), lows.data(), 66), INT32_MIN);
}

TEST_F(NetworkTest, OnePassUpdateMatchesRowByRowOnEveryPath) {
    std::mt19937 rng(9);
    for (int n :
         {0, 1, 7, 8, 9, 16, 31, 33, 64, 100, 128, 161, 512, 680, 1024, 1536}) {
        std::vector<std::vector<i16>> rows(2 * NET_MAX_FEATURES,
                                           std::vector<i16>(n));
        for (int round = 0; round < 12; round++) {
            // Large and small values alike, so that sums saturate midway.
            int spread = round % 2 ? 65536 : 4096;
            auto draw = [&] {
                return static_cast<i16>(static_cast<int>(rng() % spread) -
                                        spread / 2);
            };
            for (auto &row : rows)
                for (i16 &v : row) v = draw();
            std::vector<i16> from(n);
            for (i16 &v : from) v = draw();
            RowUpdate u{};
            u.from = round % 3 == 0 ? nullptr : from.data();
            u.bias = draw();
            u.gone_count = static_cast<int>(rng() % (NET_MAX_FEATURES + 1));
            u.came_count = static_cast<int>(rng() % (NET_MAX_FEATURES + 1));
            for (int k = 0; k < u.gone_count; k++) u.gone[k] = rows[k].data();
            for (int k = 0; k < u.came_count; k++)
                u.came[k] = rows[NET_MAX_FEATURES + k].data();

            std::vector<i16> want = u.from ? from : std::vector<i16>(n, u.bias);
            for (int k = 0; k < u.gone_count; k++)
                sub_row_128(want.data(), u.gone[k], n);
            for (int k = 0; k < u.came_count; k++)
                add_row_128(want.data(), u.came[k], n);

            // The activation and the output's dot product, as the
            // separate passes give them.
            std::vector<i16> want_active = want;
            leaky_rectify_128(want_active.data(), n);
            std::vector<i16> output_row(n);
            for (i16 &v : output_row) v = draw();
            i32 want_dot =
                dot_product_128(want_active.data(), output_row.data(), n);
            const i16 *row = round % 4 == 1 ? nullptr : output_row.data();
            if (!row) want_dot = 0;

            std::vector<i16> active(n, 1), sums(n, 2), active128(n, 3),
                sums128(n);
            EXPECT_EQ(update_rows(u, active.data(), sums.data(), n, row),
                      want_dot)
                << NETWORK_VECTOR_PATH << " n " << n;
            EXPECT_EQ(
                update_rows_128(u, active128.data(), sums128.data(), n, row),
                want_dot)
                << "n " << n;
            EXPECT_EQ(sums, want) << NETWORK_VECTOR_PATH << " n " << n;
            EXPECT_EQ(active, want_active);
            EXPECT_EQ(sums128, want) << "n " << n;
            EXPECT_EQ(active128, want_active);
            // Without a place for the activations: the same sums and dot.
            std::vector<i16> bare(n), bare128(n);
            EXPECT_EQ(update_rows(u, nullptr, bare.data(), n, row), want_dot);
            EXPECT_EQ(update_rows_128(u, nullptr, bare128.data(), n, row),
                      want_dot);
            EXPECT_EQ(bare, want);
            EXPECT_EQ(bare128, want);
            // In place, as the accumulator is patched.
            if (u.from) {
                std::vector<i16> own = from;
                u.from = own.data();
                update_rows(u, active.data(), own.data(), n, row);
                EXPECT_EQ(own, want);
                EXPECT_EQ(active, want_active);
            }
        }
    }
}

// A tool asks for the activations of the last evaluation; a net without a
// second layer never writes them out during the search.
TEST_F(NetworkTest, ActivationsOfTheLastEvaluation) {
    ReferenceNet r = load_random(Shape{}, 33, 4000, 300, 3000);
    int checked = 0, differing = 0;
    play_out(34, 6, 40, [&](Position &pos) {
        evaluate_net(checked % 2 ? 6 : 1);
        std::vector<int> want =
            reference_layer1(r, reference_features(pos, r.s));
        for (int &x : want) x = x < 0 ? x / 32 : x;
        std::vector<i16> got(r.s.layer1);
        network_activations(front_worker, got.data());
        if (!std::equal(got.begin(), got.end(), want.begin())) differing++;
        checked++;
    });
    EXPECT_EQ(differing, 0) << "of " << checked;
    EXPECT_GT(checked, 100);
}

// Rows and sums start on a cache line, so that a wide load never
// straddles two; a block of any length comes back zeroed.
TEST_F(NetworkTest, RowsAndSumsStartOnACacheLine) {
    auto on_a_line = [](const void *p) {
        return reinterpret_cast<uintptr_t>(p) % NET_LINE_BYTES == 0;
    };
    load_random(Shape{}, 31, 3000, 300, 3000);
    evaluate_net(1);
    EXPECT_TRUE(on_a_line(network.layer1_weights));
    EXPECT_TRUE(on_a_line(network.layer2_weights));
    EXPECT_TRUE(on_a_line(front_worker->nn.working_accumulator));
    for (Accumulator *acc : front_worker->nn.accumulators)
        EXPECT_TRUE(on_a_line(acc->values));
    for (int64_t count : {0, 1, 31, 32, 33, 1000}) {
        i16 *lanes = zeroed_lanes(count);
        ASSERT_NE(lanes, nullptr);
        EXPECT_TRUE(on_a_line(lanes));
        EXPECT_EQ(std::count(lanes, lanes + count, 0), count);
        std::free(lanes);
    }
}

// --- Loading ------------------------------------------------------------

TEST_F(NetworkTest, LoadFactorTruncatesTowardZero) {
    Shape s;
    s.layer1 = 8;
    std::vector<i16> stored(s.weight_count(), 0);
    stored[0] = 30010;
    stored[1] = -30010;
    stored[2] = 5;
    stored[3] = -6;
    stored[4] = 32767;
    stored[5] = -32768;
    std::string path = temp_path("factor.bin");
    write_bytes(path, net_bytes(s, stored));
    load_quietly(path);
    std::remove(path.c_str());
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.storage[0], 5401);
    EXPECT_EQ(network.storage[1], -5401);
    EXPECT_EQ(network.storage[2], 0);
    EXPECT_EQ(network.storage[3], -1);
    EXPECT_EQ(network.storage[4], 5898);
    EXPECT_EQ(network.storage[5], -5898);
}

// The built-in block goes through the same loading with one more check:
// a stored weight beyond 30010 in size says "error!" and the load goes on.
TEST_F(NetworkTest, EmbeddedBlockSaysErrorForEachWeightBeyondTheLimit) {
    Shape s;
    s.layer1 = 8;
    std::vector<i16> stored(s.weight_count(), 0);
    stored[0] = 30010;
    stored[1] = -30010;
    stored[2] = 30011;
    stored[3] = -32768;
    std::string bytes = net_bytes(s, stored);
    testing::internal::CaptureStdout();
    load_network_block(reinterpret_cast<const unsigned char *>(bytes.data()),
                       bytes.size());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "error!\nerror!\ninfo string loaded embedded network\n");
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.storage[0], 5401);
    EXPECT_EQ(network.storage[1], -5401);
    EXPECT_EQ(network.storage[2], 5401);
    EXPECT_EQ(network.storage[3], -5898);
    // A block shorter than its header is no net at all.
    testing::internal::CaptureStdout();
    load_network_block(reinterpret_cast<const unsigned char *>(bytes.data()),
                       NET_HEADER_BYTES - 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// The build carries the net file that EVALFILE named, byte for byte, and
// "embedded" loads it without a word of error; a build without one
// carries nothing and leaves the hand-written evaluation in charge.
TEST_F(NetworkTest, BuiltInBlockIsTheNetFileOfTheBuild) {
    const std::string file = QUILLON_EVALFILE;
    testing::internal::CaptureStdout();
    load_network("embedded");
    std::string out = testing::internal::GetCapturedStdout();
    if (file.empty()) {
        EXPECT_EQ(embedded_network_size, 0u);
        EXPECT_FALSE(network_ready());
        EXPECT_EQ(out, "");
        return;
    }
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)),
                      std::istreambuf_iterator<char>());
    ASSERT_EQ(embedded_network_size, bytes.size());
    EXPECT_EQ(0,
              std::memcmp(embedded_network_data, bytes.data(), bytes.size()));
    EXPECT_EQ(out, "info string loaded embedded network\n");
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.inputs, 1572);
    EXPECT_EQ(network.outputs, 7);
    EXPECT_EQ(network.layer2_size, 0);
    EXPECT_EQ(network.layer1_size % 8, 0);
}

TEST_F(NetworkTest, DescriptorSizesAndPointers) {
    Shape s;
    s.layer1 = 16;
    s.layer2 = 3;
    load_random(s, 9, 10, 10, 10);
    EXPECT_EQ(network.inputs, 1572);
    EXPECT_EQ(network.layer1_weights_count, 1572 * 16);
    EXPECT_EQ(network.layer2_weights_count, 8 * 16);
    EXPECT_EQ(network.output_weights_count, 8 * 3);
    EXPECT_EQ(network.weight_count, 1572 * 16 + 8 * 16 + 8 * 3 + 8);
    EXPECT_EQ(network.layer1_weights, network.storage);
    EXPECT_EQ(network.layer2_weights, network.storage + 1572 * 16);
    EXPECT_EQ(network.output_weights, network.layer2_weights + 8 * 16);
    EXPECT_EQ(network.biases, network.output_weights + 8 * 3);
    EXPECT_EQ(network.net_serial, 657);
    EXPECT_EQ(network.net_kind, 1);
}

TEST_F(NetworkTest, NewNetIsSizedAndEvaluatesEven) {
    testing::internal::CaptureStdout();
    load_network("new");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "creating new net...\n");
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.layer1_size, 1024);
    EXPECT_EQ(network.weight_count, 1617928);
    EXPECT_EQ(network.net_serial, 661);
    test_position(START_FEN);
    EXPECT_EQ(evaluate_net(1), 0);
    EXPECT_EQ(front_worker->nn.net_probability, 0.5f);
}

TEST_F(NetworkTest, MissingFileEndsTheProcessWithZero) {
    std::string path = temp_path("absent.bin");
    EXPECT_EXIT(
        {
            load_network(path.c_str());
            std::_Exit(3);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(NetworkTest, EmbeddedWithMoreCharactersIsAFileName) {
    EXPECT_EXIT(
        {
            load_network("embedded.nnue");
            std::_Exit(3);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(NetworkTest, TruncatedHeaderLeavesNoNetAndTheHandEvaluationServes) {
    load_random(Shape{}, 10, 100, 100, 100);
    std::string path = temp_path("short.bin");
    std::string bytes = net_bytes(Shape{}, std::vector<i16>(4));
    for (std::size_t cut = 0; cut < NET_HEADER_BYTES; cut++) {
        write_bytes(path, bytes.substr(0, cut));
        EXPECT_EQ(load_quietly(path),
                  "info string " + path + ": its header is cut short, " +
                      std::to_string(cut) + " of 18 bytes; no net is loaded\n");
        EXPECT_FALSE(network_ready());
    }
    std::remove(path.c_str());
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    std::memset(front_worker->eval_cache, 0, sizeof front_worker->eval_cache);
    settings.use_nn = 1;
    i32 with_nn = evaluate(front_worker, pos.side, 1, 0);
    std::memset(front_worker->eval_cache, 0, sizeof front_worker->eval_cache);
    EXPECT_EQ(with_nn, hand_evaluate(front_worker));
}

// A small net's file: eight first-layer nodes, every stored weight 1000.
Shape small_shape() {
    Shape s;
    s.layer1 = 8;
    return s;
}
std::vector<i16> small_stored() {
    return std::vector<i16>(small_shape().weight_count(), 1000);
}

TEST_F(NetworkTest, TruncatedWeightsLoadWithTheRestZeroAndAWarning) {
    Shape s = small_shape();
    std::string bytes = net_bytes(s, small_stored());
    std::string path = temp_path("cut.bin");
    write_bytes(path, bytes.substr(0, NET_HEADER_BYTES + 2 * 100 + 1));
    // No "loaded" line: the load stops where the file does.
    EXPECT_EQ(load_quietly(path),
              "info string " + path + " is cut short: it holds 100 of the " +
                  "net's " + std::to_string(s.weight_count()) +
                  " weights; the rest are 0\n");
    std::remove(path.c_str());
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.storage[99], 180);
    EXPECT_EQ(network.storage[100], 0);
    EXPECT_EQ(network.storage[network.weight_count - 1], 0);
    test_position(START_FEN);
    EXPECT_LE(std::abs(evaluate_net(1)), 1919);
}

// The header's count is read and not used: a wrong one loads the net the
// shape describes, and says what is wrong.
TEST_F(NetworkTest, HeaderCountThatDisagreesWithTheLengthIsReported) {
    Shape s = small_shape();
    std::vector<i16> stored = small_stored();
    std::string bytes = net_bytes(s, stored);
    std::string path = temp_path("count.bin");
    const std::string count = std::to_string(s.weight_count());
    // A count too large, then too small, for a file of the right length.
    for (u32 wrong : {static_cast<u32>(s.weight_count()) + 5, 7u}) {
        std::string b = bytes;
        for (int i = 0; i < 4; i++)
            b[14 + i] = static_cast<char>((wrong >> (8 * i)) & 255);
        write_bytes(path, b);
        EXPECT_EQ(load_quietly(path),
                  "info string " + path + ": its header gives " +
                      std::to_string(wrong) + " weights, but it holds " +
                      count + "\ninfo string loaded " + path + "\n");
        ASSERT_TRUE(network_ready());
        EXPECT_EQ(network.storage[s.weight_count() - 1], 180);
    }
    // Weights past the shape's, with a header that counts them.
    std::vector<i16> more = stored;
    more.resize(stored.size() + 3, 1000);
    write_bytes(path, net_bytes(s, more));
    EXPECT_EQ(load_quietly(path),
              "info string " + path + ": the net's shape uses " + count +
                  " of its " + std::to_string(more.size()) +
                  " weights\ninfo string loaded " + path + "\n");
    EXPECT_TRUE(network_ready());
    // A whole file with a true count says nothing but that it loaded.
    write_bytes(path, bytes);
    EXPECT_EQ(load_quietly(path), "info string loaded " + path + "\n");
    std::remove(path.c_str());
}

TEST_F(NetworkTest, AbsurdSizesAreRefusedWithoutAllocating) {
    std::string path = temp_path("huge.bin");
    Shape shapes[3];
    shapes[0].layer1 = 65535;  // 1572 * 65535 words: over 200 megabytes
    shapes[1].inputs_piece = 65535;
    shapes[1].inputs_extra = 65535;
    shapes[2].inputs_piece = 100;  // too few inputs for the features
    for (const Shape &s : shapes) {
        std::string bytes = net_bytes(s, {});
        write_bytes(path, bytes);
        EXPECT_EQ(
            load_quietly(path),
            "info string " + path + ": a net of this shape can't be used\n");
        EXPECT_FALSE(network_ready());
    }
    std::remove(path.c_str());
}

// Random files, random headers over short bodies, and every cut of a small
// valid net: no crash, and whatever loads evaluates within bounds.
TEST_F(NetworkTest, RandomAndTruncatedFilesNeverCrash) {
    std::mt19937 rng(99);
    std::string path = temp_path("fuzz.bin");
    Shape small;
    small.layer1 = 16;
    small.layer2 = 4;
    std::string valid =
        net_bytes(small, random_stored(small, 1, 30000, 30000, 30000));
    int loaded = 0;
    for (int round = 0; round < 400; round++) {
        std::string bytes;
        if (round % 3 == 0) {
            bytes = valid.substr(0, rng() % valid.size());
        } else if (round % 3 == 1) {
            int n = static_cast<int>(rng() % 64);
            for (int i = 0; i < n; i++)
                bytes.push_back(static_cast<char>(rng()));
        } else {
            Shape s;
            s.inputs_piece = 1536 + static_cast<int>(rng() % 3) * 4;
            s.inputs_extra = rng() % 2 ? 36 : static_cast<int>(rng() % 40);
            s.layer1 = static_cast<int>(rng() % 40);
            s.layer2 = static_cast<int>(rng() % 12);
            s.outputs = static_cast<int>(rng() % 12);
            std::vector<i16> w = random_stored(s, rng(), 30000, 30000, 30000);
            w.resize(rng() % (w.size() + 1));
            bytes = net_bytes(s, w);
        }
        write_bytes(path, bytes);
        load_quietly(path);
        if (!network_ready()) continue;
        loaded++;
        play_out(rng(), 1, 12, [&](Position &) {
            ASSERT_LE(std::abs(evaluate_net(5)), 1919);
        });
    }
    std::remove(path.c_str());
    EXPECT_GT(loaded, 100);
}

// --- The front and the options ---------------------------------------

TEST_F(NetworkTest, EvaluateUsesTheNetAndCachesItsScore) {
    ReferenceNet r = load_random(Shape{}, 17, 4000, 300, 3000);
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    std::memset(front_worker->eval_cache, 0, sizeof front_worker->eval_cache);
    settings.use_nn = 1;
    int want = reference_score(r, pos);
    // The position's fifty-move counter is 0: no damping.
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), want);
    EvalCacheEntry &e = front_worker->eval_cache[(pos.key & 0x7FFE) + pos.side];
    EXPECT_EQ(e.nn_score, want);
    EXPECT_EQ(evaluate(front_worker, pos.side, 2, 0), want);
    settings.use_nn = 0;
    std::memset(front_worker->eval_cache, 0, sizeof front_worker->eval_cache);
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0),
              hand_evaluate(front_worker));
}

TEST_F(NetworkTest, TraceShowsTheNetScore) {
    ReferenceNet r = load_random(Shape{}, 18, 4000, 300, 3000);
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R b KQkq - 0 1");
    int want = reference_score(r, pos);
    testing::internal::CaptureStdout();
    evaluation_trace(front_worker, 1);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("nne= " + std::to_string(want) + ", hce= "),
              std::string::npos)
        << out;
}

TEST_F(NetworkTest, NetFileOptionLoadsAtOnceOrAfterTheSearch) {
    Shape s;
    s.layer1 = 32;
    std::vector<i16> stored = random_stored(s, 19, 4000, 3000, 3000);
    std::string path = temp_path("option.bin");
    write_bytes(path, net_bytes(s, stored));
    testing::internal::CaptureStdout();
    set_option("NN_File", path.c_str());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "info string NN_File set to '" + path +
                       "'\ninfo string loaded " + path + "\n");
    EXPECT_EQ(network.layer1_size, 32);
    // During a search the net in use stays until the search is over.
    store_state(STATE_THINKING);
    testing::internal::CaptureStdout();
    set_option("NN_File", "new");
    out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "info string NN_File set to 'new'\n");
    EXPECT_EQ(network.layer1_size, 32);
    store_state(0);
    testing::internal::CaptureStdout();
    apply_network_reload(settings.nn_file);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "creating new net...\n");
    EXPECT_EQ(network.layer1_size, 1024);
    std::remove(path.c_str());
}

}  // namespace
