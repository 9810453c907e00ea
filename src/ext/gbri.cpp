// gbri: gradient-based threshold-free green, then minimized-Laplacian residual
// interpolation of red and blue. The extended library's own method.
//
//   Green:  I. Pekkucuksen, Y. Altunbasak, "Gradient based threshold free color filter
//           array interpolation", Proc. IEEE ICIP 2010. Hamilton-Adams colour differences
//           along the four sides of a red or blue site are fused with weights that are
//           inverse cubes of the colour-difference gradients over a 5x5 window on that
//           side: no threshold, and a side across an edge gets almost no weight.
//   Chroma: D. Kiku, Y. Monno, M. Tanaka, M. Okutomi, "Minimized-Laplacian residual
//           interpolation for color image demosaicking", Proc. SPIE 9023, 2014. The local
//           model C = a G + b (slope from the Laplacians, offset from the means) is
//           fitted on the red (blue) sample lattice itself, averaged over 3x3 lattice
//           windows, and brought to every pixel bilinearly with the model's residual.
//
// Arithmetic: IEEE single precision, every expression in the order written, no fused
// multiply-add, only + - * / and absolute values, so a vector lane computes exactly what
// the reference computes. Samples of both depths are mapped to one internal scale (8-bit:
// v, 16-bit: v / 257), and the result rounds half up from the value clamped to the
// sample range.
//
// The frame is read at reflected coordinates beyond its edges (x = -1 reads x = 1, x =
// width reads width - 2, with period 2 (width - 1)); reflection keeps the Bayer phase,
// so the border is computed like the interior. Smallest frame: 2 x 2.
//
// Passes, as stages of one sweep over the rows. Each computes its row r from rows of
// earlier stages (kReads lists every read, with the rows and columns it reaches):
//
//   M    samples                                  raw row reflect(r)
//   DV   vertical colour difference               M rows r-2..r+2
//   DVd  |DV(r-1) - DV(r+1)|                      DV rows r-1, r+1
//   DH   horizontal colour difference, and DHd    M row r
//   SV   5x5 sum of DVd                           DVd rows r-2..r+2
//   SH   5x5 sum of DHd                           DHd rows r-2..r+2
//   G    fused green at red/blue sites            SH r, SV r-2 and r+2, DH r, DV r-3..r+3
//   PQ   Laplacian products at lattice sites      M, G rows r-2, r, r+2
//   AB   slope a and offset b of the chroma model PQ, M, G rows r-2, r, r+2
//   ABS  3x3 lattice means of a, b; residual      AB rows r-2, r, r+2; G, M row r
//   Out  bilinear a, b, residual; B, G, R         ABS rows y-1, y, y+1; G row y
//
// From those reads the sweep's geometry follows (derive()): how far ahead of the output
// row each stage runs, how many of its rows a rolling buffer keeps, and how many
// columns beyond the frame it computes.
//
// Lattice quantities (P, Q, a, b, their means, the residual) are kept in full rows and
// computed at every column: at the lattice sites their values are the method's, the
// other columns are never read. So every pass is the same element-wise work at every
// column, which the kernel sets' vectors take as it is. Any band of output rows can be
// computed alone with the same bytes: a band runs every pass from its own lead.
#include "ext/gbri.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "kernels/bayer.h"
#include "driver/tasks.h"
#include "kernels/kernels.h"

namespace qzrcfa::ext {
namespace {

using detail::GbriRow;

constexpr float kEpsWeight = 1.0f;   // added to each 5x5 gradient sum
constexpr float kEpsSlope = 100.0f;  // regularises the model's slope
constexpr float kF0 = 0.4f, kF1 = 0.3f, kF2 = 0.2f, kF3 = 0.1f;  // one-sided low-pass, nearest first
constexpr float kNinth = 1.0f / 9.0f;

constexpr int kPad = 16;  // columns of padding on each side of every row buffer

// The passes, as stages of one sweep; Out is the output pixels. DH computes the
// horizontal difference and, in the same pass, DHd from it.
enum Stage : int { M, DV, DVd, DH, DHd, SV, SH, G, PQ, AB, ABS, Out, kStages };

// Stage `by`, computing its row r, reads rows r + first .. r + last of stage `from`, at
// up to `columns` columns either side of the column it computes.
struct Read {
    Stage from, by;
    int first, last, columns;
};

constexpr Read kReads[] = {
    {M, DV, -2, 2, 0},    {DV, DVd, -1, 1, 0},  {M, DH, 0, 0, 2},     {DH, DHd, 0, 0, 1},   {DVd, SV, -2, 2, 2},
    {DHd, SH, -2, 2, 2},  {M, G, 0, 0, 0},      {DH, G, 0, 0, 3},     {DV, G, -3, 3, 0},    {SH, G, 0, 0, 2},
    {SV, G, -2, 2, 0},    {M, PQ, -2, 2, 2},    {G, PQ, -2, 2, 2},    {PQ, AB, -2, 2, 2},   {M, AB, -2, 2, 2},
    {G, AB, -2, 2, 2},    {AB, ABS, -2, 2, 2},  {M, ABS, 0, 0, 0},    {G, ABS, 0, 0, 0},    {G, Out, 0, 0, 0},
    {ABS, Out, -1, 1, 1},
};

// What the reads make of each stage: its lead (at step t it computes row t + lead, far
// enough ahead of every stage that reads it), the rows its rolling buffer holds (from its
// newest row back to the oldest any reader still needs) and the columns it computes
// beyond the frame on each side (as many as its readers reach for).
struct Geometry {
    int lead[kStages] = {}, rows[kStages] = {}, columns[kStages] = {};
};

constexpr Geometry derive() {
    Geometry g;
    // Readers come after what they read in the stage order, so one walk back from the
    // output settles every lead and column count.
    for (int s = kStages - 1; s >= 0; --s)
        for (const Read& r : kReads)
            if (r.from == s) {
                g.lead[s] = std::max(g.lead[s], g.lead[r.by] + r.last);
                g.columns[s] = std::max(g.columns[s], g.columns[r.by] + r.columns);
            }
    for (int s = 0; s < kStages; ++s) {
        int oldest = g.lead[s];
        for (const Read& r : kReads)
            if (r.from == s) oldest = std::min(oldest, g.lead[r.by] + r.first);
        g.rows[s] = g.lead[s] - oldest + 1;
    }
    return g;
}

constexpr Geometry kGeometry = derive();

constexpr bool consistent() {
    for (const Read& r : kReads) {
        if (r.from >= r.by) return false;                                            // a stage reads earlier stages
        if (kGeometry.lead[r.from] < kGeometry.lead[r.by] + r.last) return false;    // computed before it is read
        if (kGeometry.lead[r.from] - kGeometry.rows[r.from] + 1 > kGeometry.lead[r.by] + r.first) return false;  // still held
        if (kGeometry.columns[r.from] < kGeometry.columns[r.by] + r.columns) return false;
        if (kGeometry.columns[r.by] + r.columns > kPad) return false;                // reads within the padding
    }
    for (int s = 0; s < kStages; ++s)
        if (kGeometry.rows[s] < 1) return false;
    return kGeometry.lead[Out] == 0 && kGeometry.columns[Out] == 0;
}
static_assert(consistent(), "every stage is computed, held and padded for what reads it");
static_assert(kGeometry.lead[DH] == kGeometry.lead[DHd], "DH and DHd are one pass");

// Reflection about the edge pixels, period 2 (n - 1); keeps the parity of i (n >= 2).
int reflect(int i, int n) {
    const int period = 2 * (n - 1);
    i %= period;
    if (i < 0) i += period;
    return i < n ? i : period - i;
}

float internal(std::uint8_t v) { return float(v); }
float internal(std::uint16_t v) { return float(v) / 257.0f; }

// Hamilton-Adams colour difference (green less the other colour) from the centre c0,
// the samples c1a, c1b at distance 1 and c2a, c2b at distance 2.
float difference(float c0, float c1a, float c1b, float c2a, float c2b, bool green) {
    const float v = (0.5f * c0 - 0.5f * (c1a + c1b)) + 0.25f * (c2a + c2b);
    return green ? v : -v;
}

bool green_site(const GbriRow& row, int x) { return (x & 1) != row.parity; }

// Sum over a 3x3 lattice window of full rows: columns x - 2, x, x + 2 of rows u, c, d.
float lattice_sum(const float* u, const float* c, const float* d, int x) {
    const float su = (u[x - 2] + u[x]) + u[x + 2];
    const float sc = (c[x - 2] + c[x]) + c[x + 2];
    const float sd = (d[x - 2] + d[x]) + d[x + 2];
    return (su + sc) + sd;
}

template <class T>
T to_sample(float v);
template <>
std::uint8_t to_sample(float v) {
    float c = v < 0.0f ? 0.0f : v;
    c = c > 255.0f ? 255.0f : c;
    return std::uint8_t(int(c + 0.5f));
}
template <>
std::uint16_t to_sample(float v) {
    float c = v * 257.0f;
    c = c < 0.0f ? 0.0f : c;
    c = c > 65535.0f ? 65535.0f : c;
    return std::uint16_t(int(c + 0.5f));
}

// The references, one per pass: columns x .. x_last.
template <class T>
int samples(const GbriRow& row, int x) {
    const T* s = static_cast<const T*>(row.samples);
    for (; x <= row.x_last; ++x) row.out[0][x] = internal(s[x]);
    return x;
}

int vertical(const GbriRow& row, int x) {
    const float* const* m = row.in;
    for (; x <= row.x_last; ++x) row.out[0][x] = difference(m[2][x], m[1][x], m[3][x], m[0][x], m[4][x], green_site(row, x));
    return x;
}

int horizontal(const GbriRow& row, int x) {
    const float* m = row.in[0];
    for (; x <= row.x_last; ++x) row.out[0][x] = difference(m[x], m[x - 1], m[x + 1], m[x - 2], m[x + 2], green_site(row, x));
    return x;
}

int across(const GbriRow& row, int x) {
    for (; x <= row.x_last; ++x) row.out[0][x] = std::fabs(row.in[0][x] - row.in[1][x]);
    return x;
}

int along(const GbriRow& row, int x) {
    for (; x <= row.x_last; ++x) row.out[0][x] = std::fabs(row.in[0][x - 1] - row.in[0][x + 1]);
    return x;
}

int columns5(const GbriRow& row, int x) {
    const float* const* r = row.in;
    for (; x <= row.x_last; ++x) row.out[0][x] = (((r[0][x] + r[1][x]) + r[2][x]) + r[3][x]) + r[4][x];
    return x;
}

int row5(const GbriRow& row, int x) {
    const float* c = row.in[0];
    for (; x <= row.x_last; ++x) row.out[0][x] = (((c[x - 2] + c[x - 1]) + c[x]) + c[x + 1]) + c[x + 2];
    return x;
}

int green(const GbriRow& row, int x) {
    const float *m = row.in[0], *dh = row.in[1], *dv0 = row.in[2], *dvu1 = row.in[3], *dvu2 = row.in[4],
                *dvu3 = row.in[5], *dvd1 = row.in[6], *dvd2 = row.in[7], *dvd3 = row.in[8], *sh = row.in[9],
                *svn = row.in[10], *svs = row.in[11];
    for (; x <= row.x_last; ++x) {
        if (green_site(row, x)) {
            row.out[0][x] = m[x];
            continue;
        }
        const float sn = svn[x] + kEpsWeight, ss = svs[x] + kEpsWeight;
        const float sw = sh[x - 2] + kEpsWeight, se = sh[x + 2] + kEpsWeight;
        const float wn = 1.0f / ((sn * sn) * sn), ws = 1.0f / ((ss * ss) * ss);
        const float ww = 1.0f / ((sw * sw) * sw), we = 1.0f / ((se * se) * se);
        const float en = ((kF0 * dv0[x] + kF1 * dvu1[x]) + kF2 * dvu2[x]) + kF3 * dvu3[x];
        const float es = ((kF0 * dv0[x] + kF1 * dvd1[x]) + kF2 * dvd2[x]) + kF3 * dvd3[x];
        const float ew = ((kF0 * dh[x] + kF1 * dh[x - 1]) + kF2 * dh[x - 2]) + kF3 * dh[x - 3];
        const float ee = ((kF0 * dh[x] + kF1 * dh[x + 1]) + kF2 * dh[x + 2]) + kF3 * dh[x + 3];
        const float num = ((wn * en + ws * es) + ww * ew) + we * ee;
        const float den = ((wn + ws) + ww) + we;
        row.out[0][x] = m[x] + num / den;
    }
    return x;
}

// Laplacians (4 centre less the four lattice neighbours) of the site's colour C and
// of the green G, and their products.
int laplacians(const GbriRow& row, int x) {
    const float *m0 = row.in[0], *mu = row.in[1], *md = row.in[2], *g0 = row.in[3], *gu = row.in[4], *gd = row.in[5];
    for (; x <= row.x_last; ++x) {
        const float lc = 4.0f * m0[x] - ((m0[x - 2] + m0[x + 2]) + (mu[x] + md[x]));
        const float lg = 4.0f * g0[x] - ((g0[x - 2] + g0[x + 2]) + (gu[x] + gd[x]));
        row.out[0][x] = lg * lc;
        row.out[1][x] = lg * lg;
    }
    return x;
}

// The model C = a G + b on the window: the slope minimises the Laplacian residual,
// a = sum(LG LC) / (sum(LG^2) + eps), the offset matches the means.
int model(const GbriRow& row, int x) {
    const float* const* i = row.in;
    for (; x <= row.x_last; ++x) {
        const float a = lattice_sum(i[0], i[1], i[2], x) / (lattice_sum(i[3], i[4], i[5], x) + kEpsSlope);
        row.out[0][x] = a;
        row.out[1][x] = (lattice_sum(i[6], i[7], i[8], x) - a * lattice_sum(i[9], i[10], i[11], x)) * kNinth;
    }
    return x;
}

// Window means of a and b, and the residual of the model at the site.
int means(const GbriRow& row, int x) {
    const float* const* i = row.in;
    for (; x <= row.x_last; ++x) {
        const float am = lattice_sum(i[0], i[1], i[2], x) * kNinth;
        const float bm = lattice_sum(i[3], i[4], i[5], x) * kNinth;
        row.out[0][x] = am;
        row.out[1][x] = bm;
        row.out[2][x] = i[6][x] - (am * i[7][x] + bm);
    }
    return x;
}

// Output pixels: the row's own colour C1 (its lattice in this row) and the other C2
// (lattice in the rows above and below) as a G + b + residual, each of a, b and the
// residual interpolated from the nearest lattice sites; measured samples are copied.
template <class T>
int pixels(const GbriRow& row, int x) {
    const float *g = row.in[0], *a1 = row.in[1], *b1 = row.in[2], *e1 = row.in[3];
    const float *a2u = row.in[4], *b2u = row.in[5], *e2u = row.in[6], *a2d = row.in[7], *b2d = row.in[8], *e2d = row.in[9];
    const T* src = static_cast<const T*>(row.samples);
    T* out = static_cast<T*>(row.pixels);
    for (; x <= row.x_last; ++x) {
        T c1, c2, green;
        const float gv = g[x];
        if ((x & 1) == row.parity) {  // the row's red or blue site
            const float a = ((a2u[x - 1] + a2u[x + 1]) + (a2d[x - 1] + a2d[x + 1])) * 0.25f;
            const float b = ((b2u[x - 1] + b2u[x + 1]) + (b2d[x - 1] + b2d[x + 1])) * 0.25f;
            const float e = ((e2u[x - 1] + e2u[x + 1]) + (e2d[x - 1] + e2d[x + 1])) * 0.25f;
            c1 = src[x];
            green = to_sample<T>(gv);
            c2 = to_sample<T>((a * gv + b) + e);
        } else {
            const float a = (a1[x - 1] + a1[x + 1]) * 0.5f, b = (b1[x - 1] + b1[x + 1]) * 0.5f;
            const float e = (e1[x - 1] + e1[x + 1]) * 0.5f;
            const float av = (a2u[x] + a2d[x]) * 0.5f, bv = (b2u[x] + b2d[x]) * 0.5f, ev = (e2u[x] + e2d[x]) * 0.5f;
            green = src[x];
            c1 = to_sample<T>((a * gv + b) + e);
            c2 = to_sample<T>((av * gv + bv) + ev);
        }
        T* px = out + std::ptrdiff_t(x) * row.stride;
        px[row.colour] = c1;
        px[detail::kGreen] = green;
        px[2 - row.colour] = c2;
        if (row.stride == 4) px[3] = T(~T(0));
    }
    return x;
}

// A rolling buffer of full rows: row r in slot r mod rows, columns [-kPad, width + kPad).
struct Ring {
    float* base = nullptr;
    int rows = 0, stride = 0;
    float* row(int r) const { return base + std::size_t((r % rows + rows) % rows) * std::size_t(stride) + kPad; }
};

template <class T>
class Pipeline {
  public:
    Pipeline(const T* raw, int width, int height, detail::Pattern pattern, const detail::KernelSet& kernels,
             detail::Pitches pitches, std::vector<float>& memory)
        : raw_(raw), w_(width), h_(height), pattern_(pattern), kernels_(kernels), pitches_(pitches) {
        Ring* rings[] = {&m_, &dv_, &dvd_, &dh_, &dhd_, &sv_, &sh_, &g_, &p_, &q_, &a_, &b_, &am_, &bm_, &res_};
        const Stage stage_of[] = {M, DV, DVd, DH, DHd, SV, SH, G, PQ, PQ, AB, AB, ABS, ABS, ABS};
        int rows[std::size(stage_of)];
        for (std::size_t i = 0; i < std::size(stage_of); ++i) rows[i] = kGeometry.rows[stage_of[i]];
        const int stride = width + 2 * kPad;
        std::size_t total = std::size_t(stride);  // one row of column sums
        for (int r : rows) total += std::size_t(r) * std::size_t(stride);
        memory.assign(total, 0.0f);
        float* at = memory.data();
        for (int i = 0; i < 15; ++i) {
            *rings[i] = Ring{at, rows[i], stride};
            at += std::size_t(rows[i]) * std::size_t(stride);
        }
        columns_ = at + kPad;
    }

    // Output rows y0 .. y1 - 1 (raw rows; bottom_up stores row y at height - 1 - y).
    void run(int y0, int y1, T* out, int stride, bool bottom_up) {
        struct Pass {
            int lead;
            void (Pipeline::*pass)(int);
        };
        static constexpr Pass kPasses[] = {
            {kGeometry.lead[M], &Pipeline::pass_m},   {kGeometry.lead[DV], &Pipeline::pass_dv},
            {kGeometry.lead[DVd], &Pipeline::pass_dvd}, {kGeometry.lead[DH], &Pipeline::pass_dh},
            {kGeometry.lead[SV], &Pipeline::pass_sv}, {kGeometry.lead[SH], &Pipeline::pass_sh},
            {kGeometry.lead[G], &Pipeline::pass_g},   {kGeometry.lead[PQ], &Pipeline::pass_pq},
            {kGeometry.lead[AB], &Pipeline::pass_ab}, {kGeometry.lead[ABS], &Pipeline::pass_abs},
        };
        // At step t every pass computes its row t + lead, so each ring holds exactly the
        // rows its consumers still read; a pass starts at the first row the band needs.
        for (int t = y0 - 2 * kGeometry.lead[M]; t < y1; ++t) {
            for (const Pass& s : kPasses)
                if (t + s.lead >= y0 - s.lead) (this->*s.pass)(t + s.lead);
            if (t >= y0) pass_out(t, out + std::ptrdiff_t(bottom_up ? h_ - 1 - t : t) * pitches_.dst, stride);
        }
    }

  private:
    // Column parity of the red or blue sites of row r (reflection keeps the phase, so
    // rows beyond the frame have the phase of their index).
    int parity(int r) const { return detail::row_phase(pattern_, r).green_even ? 1 : 0; }

    // Columns [first, last] of one pass on `row`: the kernel set's column kernel, then
    // the reference.
    void compute(detail::GbriPass pass, GbriRow row, int first, int last) const {
        row.x_last = last;
        detail::kGbriReferences[pass](row, kernels_.gbri[pass](row, first));
    }

    GbriRow row_of(int r) const {
        GbriRow row{};
        row.parity = parity(r);
        return row;
    }

    void pass_m(int r) {
        float* o = m_.row(r);
        const T* src = raw_ + std::ptrdiff_t(reflect(r, h_)) * pitches_.src;
        for (int x = -kGeometry.columns[M]; x < 0; ++x) o[x] = internal(src[reflect(x, w_)]);
        GbriRow row = row_of(r);
        row.samples = src;
        row.out[0] = o;
        compute(sizeof(T) == 1 ? detail::kGbriSamples8 : detail::kGbriSamples16, row, 0, w_ - 1);
        for (int x = w_; x < w_ + kGeometry.columns[M]; ++x) o[x] = internal(src[reflect(x, w_)]);
    }
    void pass_dv(int r) {
        GbriRow row = row_of(r);
        for (int i = 0; i < 5; ++i) row.in[i] = m_.row(r - 2 + i);
        row.out[0] = dv_.row(r);
        compute(detail::kGbriVertical, row, -kGeometry.columns[DV], w_ + kGeometry.columns[DV] - 1);
    }
    void pass_dvd(int r) {
        GbriRow row = row_of(r);
        row.in[0] = dv_.row(r - 1), row.in[1] = dv_.row(r + 1);
        row.out[0] = dvd_.row(r);
        compute(detail::kGbriAcross, row, -kGeometry.columns[DVd], w_ + kGeometry.columns[DVd] - 1);
    }
    void pass_dh(int r) {
        GbriRow row = row_of(r);
        row.in[0] = m_.row(r);
        row.out[0] = dh_.row(r);
        compute(detail::kGbriHorizontal, row, -kGeometry.columns[DH], w_ + kGeometry.columns[DH] - 1);
        row.in[0] = dh_.row(r);
        row.out[0] = dhd_.row(r);
        compute(detail::kGbriAlong, row, -kGeometry.columns[DHd], w_ + kGeometry.columns[DHd] - 1);
    }
    // 5x5 box sum: the five rows added top to bottom per column, then five columns.
    void box5(const Ring& src, int r, float* o, int c) {
        GbriRow row = row_of(r);
        for (int i = 0; i < 5; ++i) row.in[i] = src.row(r - 2 + i);
        row.out[0] = columns_;
        compute(detail::kGbriColumns5, row, -c - 2, w_ + c + 1);
        row.in[0] = columns_;
        row.out[0] = o;
        compute(detail::kGbriRow5, row, -c, w_ + c - 1);
    }
    void pass_sv(int r) { box5(dvd_, r, sv_.row(r), kGeometry.columns[SV]); }
    void pass_sh(int r) { box5(dhd_, r, sh_.row(r), kGeometry.columns[SH]); }
    void pass_g(int r) {
        GbriRow row = row_of(r);
        const float* in[12] = {m_.row(r),      dh_.row(r),     dv_.row(r),     dv_.row(r - 1),
                               dv_.row(r - 2), dv_.row(r - 3), dv_.row(r + 1), dv_.row(r + 2),
                               dv_.row(r + 3), sh_.row(r),     sv_.row(r - 2), sv_.row(r + 2)};
        std::copy(in, in + 12, row.in);
        row.out[0] = g_.row(r);
        compute(detail::kGbriGreen, row, -kGeometry.columns[G], w_ + kGeometry.columns[G] - 1);
    }
    void pass_pq(int r) {
        GbriRow row = row_of(r);
        const float* in[6] = {m_.row(r), m_.row(r - 2), m_.row(r + 2), g_.row(r), g_.row(r - 2), g_.row(r + 2)};
        std::copy(in, in + 6, row.in);
        row.out[0] = p_.row(r), row.out[1] = q_.row(r);
        compute(detail::kGbriLaplacians, row, -kGeometry.columns[PQ], w_ + kGeometry.columns[PQ] - 1);
    }
    void pass_ab(int r) {
        GbriRow row = row_of(r);
        const Ring* rings[4] = {&p_, &q_, &m_, &g_};
        for (int i = 0; i < 4; ++i) {
            row.in[3 * i] = rings[i]->row(r - 2);
            row.in[3 * i + 1] = rings[i]->row(r);
            row.in[3 * i + 2] = rings[i]->row(r + 2);
        }
        row.out[0] = a_.row(r), row.out[1] = b_.row(r);
        compute(detail::kGbriModel, row, -kGeometry.columns[AB], w_ + kGeometry.columns[AB] - 1);
    }
    void pass_abs(int r) {
        GbriRow row = row_of(r);
        const float* in[8] = {a_.row(r - 2), a_.row(r), a_.row(r + 2), b_.row(r - 2), b_.row(r), b_.row(r + 2), m_.row(r), g_.row(r)};
        std::copy(in, in + 8, row.in);
        row.out[0] = am_.row(r), row.out[1] = bm_.row(r), row.out[2] = res_.row(r);
        compute(detail::kGbriMeans, row, -kGeometry.columns[ABS], w_ + kGeometry.columns[ABS] - 1);
    }
    void pass_out(int y, T* out, int stride) {
        GbriRow row = row_of(y);
        const float* in[10] = {g_.row(y),      am_.row(y),     bm_.row(y),      res_.row(y),     am_.row(y - 1),
                               bm_.row(y - 1), res_.row(y - 1), am_.row(y + 1), bm_.row(y + 1), res_.row(y + 1)};
        std::copy(in, in + 10, row.in);
        row.samples = raw_ + std::ptrdiff_t(y) * pitches_.src;
        row.pixels = out;
        row.stride = stride;
        row.colour = detail::row_phase(pattern_, y).colour;
        compute(sizeof(T) == 1 ? detail::kGbriPixels8 : detail::kGbriPixels16, row, 0, w_ - 1);
    }

    const T* raw_;
    int w_, h_;
    detail::Pattern pattern_;
    const detail::KernelSet& kernels_;
    detail::Pitches pitches_;
    float* columns_ = nullptr;
    Ring m_, dv_, dvd_, dh_, dhd_, sv_, sh_, g_, p_, q_, a_, b_, am_, bm_, res_;
};

}  // namespace
}  // namespace qzrcfa::ext

namespace qzrcfa::detail {

const GbriKernel kGbriReferences[kGbriPasses] = {
    ext::samples<std::uint8_t>, ext::samples<std::uint16_t>, ext::vertical, ext::horizontal, ext::across,
    ext::along, ext::columns5, ext::row5, ext::green, ext::laplacians, ext::model, ext::means,
    ext::pixels<std::uint8_t>, ext::pixels<std::uint16_t>,
};

}  // namespace qzrcfa::detail

namespace qzrcfa::ext {

template <class T>
void gbri(const T* raw, int width, int height, detail::Pattern pattern, T* out, int stride, bool bottom_up,
          const detail::Tasks* tasks, detail::Pitches pitches, detail::Isa isa) {
    const detail::KernelSet& kernels = detail::kernel_set(isa);
    const int threads = tasks != nullptr ? tasks->threads() : 1;
    const detail::Bands bands{0, height, std::max(1, std::min(threads, height / 32))};
    auto band = [&](int i) {
        std::vector<float> memory;
        Pipeline<T>(raw, width, height, pattern, kernels, pitches, memory)
            .run(bands.first(i), bands.first(i + 1), out, stride, bottom_up);
    };
    if (bands.count > 1) tasks->for_each(bands.count, band);
    else band(0);
}

template void gbri(const std::uint8_t*, int, int, detail::Pattern, std::uint8_t*, int, bool, const detail::Tasks*,
                   detail::Pitches, detail::Isa);
template void gbri(const std::uint16_t*, int, int, detail::Pattern, std::uint16_t*, int, bool, const detail::Tasks*,
                   detail::Pitches, detail::Isa);

}  // namespace qzrcfa::ext
