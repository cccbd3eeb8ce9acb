// The first layer's row work on eight 16-bit lanes at a time: saturating
// adds and subtracts, the leaky rectifier, and the multiply-and-add dot
// product.  Lanes beyond the last multiple of eight are done one by one
// with the same saturation, so any layer width gives the same sums.
#include <emmintrin.h>

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

void leaky_rectify_128(i16 *acc, int n) {
    const __m128i bias = _mm_set1_epi16(31);
    const __m128i zero = _mm_setzero_si128();
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i x = load8(acc + i);
        __m128i negative = _mm_cmplt_epi16(x, zero);
        x = _mm_add_epi16(x, _mm_and_si128(negative, bias));
        // A non-negative x shifted by 5 would lose bits: keep it as it is.
        __m128i shifted = _mm_srai_epi16(x, 5);
        x = _mm_or_si128(_mm_and_si128(negative, shifted),
                         _mm_andnot_si128(negative, x));
        store8(acc + i, x);
    }
    for (; i < n; i++) acc[i] = leaky(acc[i]);
}

i32 dot_product_128(const i16 *a, const i16 *b, int n) {
    __m128i sum = _mm_setzero_si128();
    int i = 0;
    for (; i + 8 <= n; i += 8)
        sum = _mm_add_epi32(sum, _mm_madd_epi16(load8(a + i), load8(b + i)));
    alignas(16) u32 lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes), sum);
    u32 total = lanes[0] + lanes[1] + lanes[2] + lanes[3];
    for (; i < n; i++) total += product(a[i], b[i]);
    return static_cast<i32>(total);
}

void add_row(i16 *acc, const i16 *row, int n) { add_row_128(acc, row, n); }
void sub_row(i16 *acc, const i16 *row, int n) { sub_row_128(acc, row, n); }
void leaky_rectify(i16 *acc, int n) { leaky_rectify_128(acc, n); }
i32 dot_product(const i16 *a, const i16 *b, int n) {
    return dot_product_128(a, b, n);
}
