// The first layer's row work on eight 16-bit lanes at a time: saturating
// adds and subtracts, the leaky rectifier, and the multiply-and-add dot
// product.  Lanes beyond the last multiple of eight are done one by one
// with the same saturation, so any layer width gives the same sums.
//
// A build for a processor with AVX2 or AVX-512BW does the same work on 16
// or 32 lanes at a time.  Each lane is saturated on its own and in the same
// order of rows, and 32-bit sums wrap the same whatever their grouping, so
// every path gives the 128-bit path's results bit for bit.
#include <emmintrin.h>
#if defined(__AVX2__) || defined(__AVX512BW__)
#include <immintrin.h>
#endif

#include <algorithm>

#include "network.h"

static i16 saturate(i32 v) {
    return static_cast<i16>(std::clamp(v, -32768, 32767));
}

// A negative x becomes x / 32 truncated toward zero: add 31, then shift
// arithmetically, as the vector form does under a mask.
static i16 leaky(i16 x) { return x >= 0 ? x : static_cast<i16>((x + 31) >> 5); }

// Products summed modulo 2^32, as the 32-bit vector lanes do.
static u32 product(i16 a, i16 b) {
    return static_cast<u32>(static_cast<i32>(a) * static_cast<i32>(b));
}

static __m128i load8(const i16 *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

static void store8(i16 *p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

void add_row_128(i16 *acc, const i16 *row, int n) {
    int i = 0;
    for (; i + 8 <= n; i += 8)
        store8(acc + i, _mm_adds_epi16(load8(acc + i), load8(row + i)));
    for (; i < n; i++) acc[i] = saturate(acc[i] + row[i]);
}

void sub_row_128(i16 *acc, const i16 *row, int n) {
    int i = 0;
    for (; i + 8 <= n; i += 8)
        store8(acc + i, _mm_subs_epi16(load8(acc + i), load8(row + i)));
    for (; i < n; i++) acc[i] = saturate(acc[i] - row[i]);
}

// The leaky rectifier on 8 lanes.
static __m128i leaky8(__m128i x) {
    __m128i negative = _mm_cmplt_epi16(x, _mm_setzero_si128());
    x = _mm_add_epi16(x, _mm_and_si128(negative, _mm_set1_epi16(31)));
    // A non-negative x shifted by 5 would lose bits: keep it as it is.
    __m128i shifted = _mm_srai_epi16(x, 5);
    return _mm_or_si128(_mm_and_si128(negative, shifted),
                        _mm_andnot_si128(negative, x));
}

void leaky_rectify_128(i16 *acc, int n) {
    int i = 0;
    for (; i + 8 <= n; i += 8) store8(acc + i, leaky8(load8(acc + i)));
    for (; i < n; i++) acc[i] = leaky(acc[i]);
}

static u32 lane_total_128(__m128i v) {
    alignas(16) u32 lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes), v);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}

i32 dot_product_128(const i16 *a, const i16 *b, int n) {
    __m128i sum = _mm_setzero_si128();
    int i = 0;
    for (; i + 8 <= n; i += 8)
        sum = _mm_add_epi32(sum, _mm_madd_epi16(load8(a + i), load8(b + i)));
    u32 total = lane_total_128(sum);
    for (; i < n; i++) total += product(a[i], b[i]);
    return static_cast<i32>(total);
}

// Lanes `start` to `n` of an update, eight at a time, then one by one;
// returns the activations' products with `output_row` summed.  The
// activations are stored only where `active` is given.
static u32 update_rows_from(const RowUpdate &u, i16 *active, i16 *sums,
                            int start, int n, const i16 *output_row) {
    __m128i dot = _mm_setzero_si128();
    int i = start;
    for (; i + 8 <= n; i += 8) {
        __m128i v = u.from ? load8(u.from + i) : _mm_set1_epi16(u.bias);
        for (int k = 0; k < u.gone_count; k++)
            v = _mm_subs_epi16(v, load8(u.gone[k] + i));
        for (int k = 0; k < u.came_count; k++)
            v = _mm_adds_epi16(v, load8(u.came[k] + i));
        store8(sums + i, v);
        __m128i a = leaky8(v);
        if (active) store8(active + i, a);
        if (output_row)
            dot = _mm_add_epi32(dot, _mm_madd_epi16(a, load8(output_row + i)));
    }
    u32 total = output_row ? lane_total_128(dot) : 0;
    for (; i < n; i++) {
        i16 v = u.from ? u.from[i] : u.bias;
        for (int k = 0; k < u.gone_count; k++) v = saturate(v - u.gone[k][i]);
        for (int k = 0; k < u.came_count; k++) v = saturate(v + u.came[k][i]);
        sums[i] = v;
        if (active) active[i] = leaky(v);
        if (output_row) total += product(leaky(v), output_row[i]);
    }
    return total;
}

i32 update_rows_128(const RowUpdate &u, i16 *active, i16 *sums, int n,
                    const i16 *output_row) {
    return static_cast<i32>(
        update_rows_from(u, active, sums, 0, n, output_row));
}

#if defined(__AVX512BW__)

static __m512i load32(const i16 *p) { return _mm512_loadu_si512(p); }

// dot + the pairwise products of a and b, in 32-bit lanes that wrap: one
// instruction with VNNI, a multiply-add and an add without it.  Wrapping
// sums are the same in any grouping, so both give the same lanes.
#if defined(__AVX512VNNI__)
const char *const NETWORK_VECTOR_PATH = "AVX-512BW VNNI";
static __m512i multiply_add(__m512i dot, __m512i a, __m512i b) {
    return _mm512_dpwssd_epi32(dot, a, b);
}
#else
const char *const NETWORK_VECTOR_PATH = "AVX-512BW";
static __m512i multiply_add(__m512i dot, __m512i a, __m512i b) {
    return _mm512_add_epi32(dot, _mm512_madd_epi16(a, b));
}
#endif

// The leaky rectifier on 32 lanes: add 31 to the negative ones and shift
// them arithmetically by 5.
static __m512i leaky32(__m512i x) {
    __mmask32 negative = _mm512_cmplt_epi16_mask(x, _mm512_setzero_si512());
    x = _mm512_mask_add_epi16(x, negative, x, _mm512_set1_epi16(31));
    return _mm512_mask_srai_epi16(x, negative, x, 5);
}

static u32 lane_total(__m512i v) {
    alignas(64) u32 lanes[16];
    _mm512_store_si512(lanes, v);
    u32 total = 0;
    for (u32 x : lanes) total += x;
    return total;
}

void leaky_rectify(i16 *acc, int n) {
    int i = 0;
    for (; i + 32 <= n; i += 32)
        _mm512_storeu_si512(acc + i, leaky32(load32(acc + i)));
    leaky_rectify_128(acc + i, n - i);
}

// `R` vectors of lanes from `base` on, held in registers while every row
// goes by: the rows stream through once and the R sums are independent,
// where one vector at a time would wait on each add of a long chain.  The
// sums are then stored, rectified and multiplied into `dot` while still in
// registers.
template <int R>
static void update_block(const RowUpdate &u, i16 *active, i16 *sums, int base,
                         const i16 *output_row, __m512i &dot) {
    __m512i v[R];
    for (int r = 0; r < R; r++)
        v[r] =
            u.from ? load32(u.from + base + 32 * r) : _mm512_set1_epi16(u.bias);
    for (int k = 0; k < u.gone_count; k++) {
        const i16 *row = u.gone[k] + base;
        for (int r = 0; r < R; r++)
            v[r] = _mm512_subs_epi16(v[r], load32(row + 32 * r));
    }
    for (int k = 0; k < u.came_count; k++) {
        const i16 *row = u.came[k] + base;
        for (int r = 0; r < R; r++)
            v[r] = _mm512_adds_epi16(v[r], load32(row + 32 * r));
    }
    for (int r = 0; r < R; r++) {
        _mm512_storeu_si512(sums + base + 32 * r, v[r]);
        __m512i a = leaky32(v[r]);
        if (active) _mm512_storeu_si512(active + base + 32 * r, a);
        if (output_row)
            dot = multiply_add(dot, a, load32(output_row + base + 32 * r));
    }
}

// Blocks of 512 lanes use 16 of the 32 vector registers.
i32 update_rows(const RowUpdate &u, i16 *active, i16 *sums, int n,
                const i16 *output_row) {
    __m512i dot = _mm512_setzero_si512();
    int i = 0;
    for (; i + 512 <= n; i += 512)
        update_block<16>(u, active, sums, i, output_row, dot);
    for (; i + 128 <= n; i += 128)
        update_block<4>(u, active, sums, i, output_row, dot);
    for (; i + 32 <= n; i += 32)
        update_block<1>(u, active, sums, i, output_row, dot);
    u32 total = output_row ? lane_total(dot) : 0;
    return static_cast<i32>(
        total + update_rows_from(u, active, sums, i, n, output_row));
}

i32 dot_product(const i16 *a, const i16 *b, int n) {
    __m512i sum = _mm512_setzero_si512();
    int i = 0;
    for (; i + 32 <= n; i += 32)
        sum = multiply_add(sum, load32(a + i), load32(b + i));
    return static_cast<i32>(lane_total(sum) + static_cast<u32>(dot_product_128(
                                                  a + i, b + i, n - i)));
}

#elif defined(__AVX2__)

const char *const NETWORK_VECTOR_PATH = "AVX2";

static __m256i load16(const i16 *p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

static void store16(i16 *p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v);
}

// The leaky rectifier on 16 lanes, as on 8.
static __m256i leaky16(__m256i x) {
    __m256i negative = _mm256_cmpgt_epi16(_mm256_setzero_si256(), x);
    x = _mm256_add_epi16(x, _mm256_and_si256(negative, _mm256_set1_epi16(31)));
    return _mm256_blendv_epi8(x, _mm256_srai_epi16(x, 5), negative);
}

static u32 lane_total(__m256i v) {
    alignas(32) u32 lanes[8];
    _mm256_store_si256(reinterpret_cast<__m256i *>(lanes), v);
    u32 total = 0;
    for (u32 x : lanes) total += x;
    return total;
}

void leaky_rectify(i16 *acc, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16) store16(acc + i, leaky16(load16(acc + i)));
    leaky_rectify_128(acc + i, n - i);
}

// As on AVX-512: R vectors of sums held while the rows go by, then
// stored, rectified and multiplied into `dot`.
template <int R>
static void update_block(const RowUpdate &u, i16 *active, i16 *sums, int base,
                         const i16 *output_row, __m256i &dot) {
    __m256i v[R];
    for (int r = 0; r < R; r++)
        v[r] =
            u.from ? load16(u.from + base + 16 * r) : _mm256_set1_epi16(u.bias);
    for (int k = 0; k < u.gone_count; k++) {
        const i16 *row = u.gone[k] + base;
        for (int r = 0; r < R; r++)
            v[r] = _mm256_subs_epi16(v[r], load16(row + 16 * r));
    }
    for (int k = 0; k < u.came_count; k++) {
        const i16 *row = u.came[k] + base;
        for (int r = 0; r < R; r++)
            v[r] = _mm256_adds_epi16(v[r], load16(row + 16 * r));
    }
    for (int r = 0; r < R; r++) {
        store16(sums + base + 16 * r, v[r]);
        __m256i a = leaky16(v[r]);
        if (active) store16(active + base + 16 * r, a);
        if (output_row)
            dot = _mm256_add_epi32(
                dot, _mm256_madd_epi16(a, load16(output_row + base + 16 * r)));
    }
}

// Blocks of 128 lanes use 8 of the 16 vector registers.
i32 update_rows(const RowUpdate &u, i16 *active, i16 *sums, int n,
                const i16 *output_row) {
    __m256i dot = _mm256_setzero_si256();
    int i = 0;
    for (; i + 128 <= n; i += 128)
        update_block<8>(u, active, sums, i, output_row, dot);
    for (; i + 16 <= n; i += 16)
        update_block<1>(u, active, sums, i, output_row, dot);
    u32 total = output_row ? lane_total(dot) : 0;
    return static_cast<i32>(
        total + update_rows_from(u, active, sums, i, n, output_row));
}

i32 dot_product(const i16 *a, const i16 *b, int n) {
    __m256i sum = _mm256_setzero_si256();
    int i = 0;
    for (; i + 16 <= n; i += 16)
        sum = _mm256_add_epi32(sum,
                               _mm256_madd_epi16(load16(a + i), load16(b + i)));
    return static_cast<i32>(lane_total(sum) + static_cast<u32>(dot_product_128(
                                                  a + i, b + i, n - i)));
}

#else

const char *const NETWORK_VECTOR_PATH = "SSE2";

void leaky_rectify(i16 *acc, int n) { leaky_rectify_128(acc, n); }
i32 dot_product(const i16 *a, const i16 *b, int n) {
    return dot_product_128(a, b, n);
}
i32 update_rows(const RowUpdate &u, i16 *active, i16 *sums, int n,
                const i16 *output_row) {
    return update_rows_128(u, active, sums, n, output_row);
}

#endif
