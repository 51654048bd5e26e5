#include "solver/online_table.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <type_traits>

#include "runtime/pargument.h"
#include "solver/online_table_random.h"
#include "solver/rounding.h"

namespace RW2D {

namespace {

constexpr int kNodes = gft_solver::NGRID;

inline int quantise(double v, double emax, double step) {
    return static_cast<int>(round_half_away(v / emax / step));
}

inline double max_of(const std::vector<double>& v) {
    double m = v.empty() ? 1.0 : v[0];
    for (double x : v) m = std::max(m, x);
    return m;
}

inline void append_pair(std::string& key, int pos, int q) {
    key.push_back(static_cast<char>(pos));
    key.push_back(static_cast<char>(q));
}

// CPU seconds of the calling thread: the walkers' share of a busy machine is what they cost.
double thread_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

inline int byte_at(std::string_view key, size_t i) {
    return static_cast<unsigned char>(key[i]);
}

bool is_directory(const std::string& dir) {
    struct stat st;
    return ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates dir and its parents, one "/"-separated component at a time.
void make_directories(const std::string& dir) {
    if (dir.empty() || is_directory(dir)) return;
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos != dir.size() && dir[pos] != '/') continue;
        const std::string part = dir.substr(0, pos);
        if (is_directory(part)) continue;
        if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            throw std::runtime_error("Failed to create directory: " + dir);
    }
}

// Record layout on disk: what follows the key, field by field, without padding.
template <class W>
void write_tail(W& out, const PDFGFT& t) {
    out.write(reinterpret_cast<const char*>(t.face_cdf), sizeof t.face_cdf);
    out.write(reinterpret_cast<const char*>(t.lower_cdf), sizeof t.lower_cdf);
    out.write(reinterpret_cast<const char*>(t.upper_cdf), sizeof t.upper_cdf);
    out.write(reinterpret_cast<const char*>(t.side_cdf), sizeof t.side_cdf);
}
template <class W>
void write_tail(W& out, const PDFWVTz& t) {
    out.write(reinterpret_cast<const char*>(t.face_cdf), sizeof t.face_cdf);
    out.write(reinterpret_cast<const char*>(&t.total_weight), sizeof t.total_weight);
    unsigned char sign[kNodes];
    for (int j = 0; j < kNodes; ++j) sign[j] = t.side_sign[j] ? 1 : 0;
    out.write(reinterpret_cast<const char*>(sign), sizeof sign);
    out.write(reinterpret_cast<const char*>(t.lower_cdf), sizeof t.lower_cdf);
    out.write(reinterpret_cast<const char*>(t.upper_cdf), sizeof t.upper_cdf);
    out.write(reinterpret_cast<const char*>(t.side_cdf), sizeof t.side_cdf);
}
template <class W>
void write_tail(W& out, const PDFWVTx& t) {
    out.write(reinterpret_cast<const char*>(t.face_cdf), sizeof t.face_cdf);
    out.write(reinterpret_cast<const char*>(&t.total_weight), sizeof t.total_weight);
    out.write(reinterpret_cast<const char*>(t.lower_cdf), sizeof t.lower_cdf);
    out.write(reinterpret_cast<const char*>(t.upper_cdf), sizeof t.upper_cdf);
    out.write(reinterpret_cast<const char*>(t.side_cdf), sizeof t.side_cdf);
}

template <class R>
void read_tail(R& in, PDFGFT& t) {
    in.read(reinterpret_cast<char*>(t.face_cdf), sizeof t.face_cdf);
    in.read(reinterpret_cast<char*>(t.lower_cdf), sizeof t.lower_cdf);
    in.read(reinterpret_cast<char*>(t.upper_cdf), sizeof t.upper_cdf);
    in.read(reinterpret_cast<char*>(t.side_cdf), sizeof t.side_cdf);
}
template <class R>
void read_tail(R& in, PDFWVTz& t) {
    in.read(reinterpret_cast<char*>(t.face_cdf), sizeof t.face_cdf);
    in.read(reinterpret_cast<char*>(&t.total_weight), sizeof t.total_weight);
    unsigned char sign[kNodes] = {};
    in.read(reinterpret_cast<char*>(sign), sizeof sign);
    for (int j = 0; j < kNodes; ++j) t.side_sign[j] = sign[j] != 0;
    in.read(reinterpret_cast<char*>(t.lower_cdf), sizeof t.lower_cdf);
    in.read(reinterpret_cast<char*>(t.upper_cdf), sizeof t.upper_cdf);
    in.read(reinterpret_cast<char*>(t.side_cdf), sizeof t.side_cdf);
    t.derive_moments();
}
template <class R>
void read_tail(R& in, PDFWVTx& t) {
    in.read(reinterpret_cast<char*>(t.face_cdf), sizeof t.face_cdf);
    in.read(reinterpret_cast<char*>(&t.total_weight), sizeof t.total_weight);
    in.read(reinterpret_cast<char*>(t.lower_cdf), sizeof t.lower_cdf);
    in.read(reinterpret_cast<char*>(t.upper_cdf), sizeof t.upper_cdf);
    in.read(reinterpret_cast<char*>(t.side_cdf), sizeof t.side_cdf);
}

template <class T>
void write_store(const std::string& path, const table_store<T>& store) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        std::cerr << "Failed to open file for writing." << std::endl;
        return;
    }
    const uint64_t count = store.size();
    out.write(reinterpret_cast<const char*>(&count), sizeof count);
    store.for_each([&out](const std::string& key, const T& table) {
        const uint64_t len = key.size();
        out.write(reinterpret_cast<const char*>(&len), sizeof len);
        out.write(key.data(), static_cast<std::streamsize>(len));
        write_tail(out, table);
    });
}

// The loop trusts the count: a truncated file reads as zero-filled records.
template <class T>
void read_store(const std::string& path, table_store<T>& store) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return;
    uint64_t count = 0;
    in.read(reinterpret_cast<char*>(&count), sizeof count);
    std::string key;
    for (uint64_t r = 0; r < count; ++r) {
        uint64_t len = 0;
        in.read(reinterpret_cast<char*>(&len), sizeof len);
        key.assign(len, '\0');
        in.read(key.data(), static_cast<std::streamsize>(len));
        T table;
        read_tail(in, table);
        store.insert(key, table);
    }
}

// A table cache: magic, grid and key step, then the Green's function, z-weight and x-weight
// sections (a count, then key length, key and table per record), then an FNV-1a hash of all that.
// The last magic byte is the table version: it changes whenever the same key solves to other
// tables, so that no cache brings back tables of an older solver.
constexpr char kCacheMagic[8] = {'K', 'R', 'V', 'T', 'A', 'B', 'L', '3'};
constexpr uint64_t kMaxKey = 2 * kNodes + 2;

uint64_t fnv1a(const char* p, size_t n) {
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < n; ++i) h = (h ^ static_cast<unsigned char>(p[i])) * 1099511628211ull;
    return h;
}

struct buffer_writer {
    std::string& bytes;
    void write(const char* p, std::streamsize n) { bytes.append(p, static_cast<size_t>(n)); }
    template <class V>
    void put(const V& v) {
        write(reinterpret_cast<const char*>(&v), sizeof v);
    }
};

// Reads past the end as zeros and remembers that it did.
struct buffer_reader {
    const std::string& bytes;
    size_t pos = 0;
    bool overrun = false;
    void read(char* p, std::streamsize n) {
        const size_t k = static_cast<size_t>(n);
        if (pos + k > bytes.size()) {
            std::memset(p, 0, k);
            overrun = true;
            pos = bytes.size();
            return;
        }
        std::memcpy(p, bytes.data() + pos, k);
        pos += k;
    }
    template <class V>
    V get() {
        V v{};
        read(reinterpret_cast<char*>(&v), sizeof v);
        return v;
    }
};

template <class T>
void put_section(buffer_writer& out, const table_store<T>& store) {
    out.put(static_cast<uint64_t>(store.size()));
    store.for_each([&out](const std::string& key, const T& table) {
        out.put(static_cast<uint64_t>(key.size()));
        out.write(key.data(), static_cast<std::streamsize>(key.size()));
        write_tail(out, table);
    });
}

// Reads one section into records; false when the section does not hold together.
template <class T>
bool get_section(buffer_reader& in, std::vector<std::pair<std::string, T>>& records) {
    const uint64_t count = in.get<uint64_t>();
    if (count > in.bytes.size()) return false;
    records.reserve(count);
    for (uint64_t r = 0; r < count && !in.overrun; ++r) {
        const uint64_t len = in.get<uint64_t>();
        if (len == 0 || len > kMaxKey) return false;
        std::string key(len, '\0');
        in.read(key.data(), static_cast<std::streamsize>(len));
        T table;
        read_tail(in, table);
        records.emplace_back(std::move(key), table);
    }
    return !in.overrun;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Shared stores

table_stores& table_stores::process() {
    static table_stores stores;
    return stores;
}

const table_stores::singles& table_stores::homogeneous() {
    std::call_once(singles_once_, [this] {
        gft_solver solver;
        solver.solve_single();
        singles_ = {solver.gft, solver.wvtz, solver.wvtx};
    });
    return singles_;
}

const PDFGFT* table_stores::single_gft() {
    return &homogeneous().gft;
}
const PDFWVTz* table_stores::single_wvtz() {
    return &homogeneous().wvtz;
}
const PDFWVTx* table_stores::single_wvtx() {
    return &homogeneous().wvtx;
}

bool table_stores::first_load(unsigned long id, const std::string& dir) {
    std::lock_guard<std::mutex> guard(loaded_mutex_);
    return loaded_.emplace(id, dir).second;
}

table_counts& table_counts::operator+=(const table_counts& o) {
    gft_queries += o.gft_queries;
    wvtz_queries += o.wvtz_queries;
    wvtx_queries += o.wvtx_queries;
    solved += o.solved;
    solve_seconds += o.solve_seconds;
    return *this;
}

// ---------------------------------------------------------------------------------------------
// Keys

double online_table_manager::eps_step() {
    static const double step = [] {
        const double v = PARG::get("RW2D_EPS_STEP", 1.0 / 250);
        return v > 0 ? std::clamp(v, 1.0 / 250, 0.01) : 1.0 / 250;  // junk or NaN: the default
    }();
    return step;
}

bool online_table_manager::round_to_nearest() {
    static const bool nearest = PARG::get("RW2D_ROUND_NEAREST", 0) != 0;
    return nearest;
}

bool online_table_manager::rounds_at_random(const RandGen* rng) {
    return rng != nullptr && !round_to_nearest();
}

double online_table_manager::node_shift(RandGen* rng) {
    return rounds_at_random(rng) ? rng->uniform() : kNearest;
}

namespace {

// The stack as the fitter hands it over: heights and permittivities in two vectors.
struct vector_stack {
    const std::vector<double>& heights;
    const std::vector<double>& eps;
    std::size_t size() const { return heights.size(); }
    double height(std::size_t j) const { return heights[j]; }
    double permittivity(std::size_t j) const { return eps[j]; }
};

// The largest permittivity of a stack; 1 for an empty one.
template <class Stack>
double largest(const Stack& stack) {
    double m = stack.size() > 0 ? stack.permittivity(0) : 1.0;
    for (std::size_t j = 1; j < stack.size(); ++j) m = std::max(m, stack.permittivity(j));
    return m;
}

// Key building over either kind of stack: the same arithmetic on the same values, so both give
// the same key byte for byte.
template <class Stack>
std::size_t pack_stack(const Stack& stack, double size, double step, char* key, double shift) {
    const double cell = size / kNodes, per_cell = kNodes / size;
    const size_t n = stack.size();
    const bool nearest = shift < 0;
    // kNearest rounds to the nearest node; a uniform shift in [0, 1) rounds up with a chance
    // equal to the fraction, so that the node is the height in the mean. The random path, the
    // walker's, multiplies by the reciprocal: a hop waits on this value, and a division after
    // the one of the box size lengthened that wait.
    auto node = [cell, per_cell, shift, nearest](double h) {
        return nearest ? round_half_away(h / cell)
                       : static_cast<std::int64_t>(std::floor(h * per_cell + shift));
    };
    // Nodes rise strictly, so a key holds at most one layer per node: the topmost of the heights
    // that round to it. Each height is scaled and rounded once, the costliest step of a key.
    char pos[kNodes];
    double kept[kNodes];
    int m = 0;
    size_t i = 0;
    long k = n > 0 ? node(stack.height(0)) : 0;
    while (i < n && k <= kNodes - 1) {
        size_t t = i;
        long next = k;
        while (t + 1 < n && (next = node(stack.height(t + 1))) == k) ++t;
        pos[m] = static_cast<char>(k);
        kept[m++] = stack.permittivity(t);
        i = t + 1;
        k = next;
    }
    // Nearest: permittivities to the nearest step of the stack maximum. At random: with the same
    // shift, against the largest one the key keeps (which becomes the full byte exactly, so no
    // second rounding follows), so that a permittivity between two steps holds its ratio to the
    // others in the mean. Nearest steps left the low-k layer against a thin film 0.44% off in
    // every box, which biased the plate-as-master rows by 0.15% (docs/accuracy.md, E14).
    double emax = nearest ? largest(stack) : (m > 0 ? kept[0] : 1.0);
    if (!nearest)
        for (int j = 1; j < m; ++j) emax = std::max(emax, kept[j]);
    const double scale = nearest ? 0 : static_cast<double>(round_half_away(1 / step)) / emax;
    std::size_t len = 0;
    for (int j = 0; j < m; ++j) {
        const char q =
            static_cast<char>(nearest ? quantise(kept[j], emax, step)
                                      : static_cast<int>(std::floor(kept[j] * scale + shift)));
        if (len > 0 && key[len - 1] == q) continue;  // equal neighbours merge
        key[len++] = pos[j];
        key[len++] = q;
    }
    return len;
}

}  // namespace

std::size_t online_table_manager::pack(const std::vector<double>& heights,
                                       const std::vector<double>& eps, double size, double step,
                                       char* key, double shift) {
    return pack_stack(vector_stack{heights, eps}, size, step, key, shift);
}

void online_table_manager::pack(const std::vector<double>& heights, const std::vector<double>& eps,
                                double size, double step, std::string& key, double shift) {
    key.resize(kKeyBytes);
    key.resize(pack(heights, eps, size, step, key.data(), shift));
}

std::string online_table_manager::pack(const std::vector<double>& heights,
                                       const std::vector<double>& eps, double size, double step) {
    std::string key;
    pack(heights, eps, size, step, key);
    return key;
}

void online_table_manager::pack_avg(const std::vector<double>& heights,
                                    const std::vector<double>& eps, double size, double step,
                                    int width, std::string& key) {
    key.clear();
    if (heights.empty() || eps.size() < heights.size()) return;
    const double emax = max_of(eps);
    const double cell = size / kNodes * width;
    auto position = [cell](double h) { return static_cast<long>(std::trunc(h / cell)); };
    auto last_pos = [&key]() { return byte_at(key, key.size() - 2); };
    const size_t n = heights.size();
    size_t t = 0;
    size_t i = 1;
    while (i < n) {
        const long k = position(heights[i]);
        if (key.empty() && k != 0) append_pair(key, 0, quantise(eps[i - 1], emax, step));
        if (!key.empty() && k != last_pos() + 1)
            append_pair(key, last_pos() + 1, quantise(eps[i - 1], emax, step));
        // Series average over the cell, the layers in it taken in order.
        double lo = k * cell, acc = 0;
        size_t j = i;
        for (; j < n && position(heights[j]) == k; ++j) {
            acc += (heights[j] - lo) / eps[j - 1];
            lo = heights[j];
        }
        t = j - 1;
        const double v = cell / (((k + 1) * cell - lo) / eps[t] + acc);
        append_pair(key, static_cast<int>(k), quantise(v, emax, step));
        i = t + 1;
    }
    append_pair(key, key.empty() ? 0 : last_pos() + 1, quantise(eps[t], emax, step));

    // Merge equal neighbours, scale positions to grid nodes, drop what starts above the box.
    size_t out = 2;
    for (size_t p = 2; p < key.size(); p += 2) {
        if (key[p + 1] == key[out - 1]) continue;
        key[out] = key[p];
        key[out + 1] = key[p + 1];
        out += 2;
    }
    key.resize(out);
    for (size_t p = 0; p < key.size(); p += 2) {
        const int pos = byte_at(key, p) * width;
        if (pos > kNodes - 1) {
            key.resize(p);
            break;
        }
        key[p] = static_cast<char>(pos);
    }
}

std::string online_table_manager::pack_avg(const std::vector<double>& heights,
                                           const std::vector<double>& eps, double size, double step,
                                           int width) {
    std::string key;
    pack_avg(heights, eps, size, step, width, key);
    return key;
}

double online_table_manager::get_middle_eps(const std::vector<double>& heights,
                                            const std::vector<double>& eps, std::string_view key,
                                            double size, double step) {
    if (key.size() < 2) return eps.empty() ? 1.0 : eps[0];
    size_t pair = key.size() - 2;
    for (size_t p = 0; p < key.size(); p += 2) {
        if (byte_at(key, p) >= 12) {
            pair = p == 0 ? 0 : p - 2;
            break;
        }
    }
    const int pos = byte_at(key, pair);
    const int q = byte_at(key, pair + 1);
    const double emax = max_of(eps);
    double result = q * emax * step;
    long best = kNodes;
    const double cell = size / kNodes;
    for (size_t i = 0; i < eps.size() && i < heights.size(); ++i) {
        if (quantise(eps[i], emax, step) != q) continue;
        const long d = std::labs(pos - round_half_away(heights[i] / cell));
        if (d == 0) return eps[i];
        if (d < best) {
            result = eps[i];
            best = d;
        }
    }
    return result;
}

void online_table_manager::renormalise_key() {
    int mx = 0;
    for (size_t p = 1; p < key_.size; p += 2) mx = std::max(mx, key_.at(p));
    const double step = eps_step();
    const int full = static_cast<int>(std::lround(1.0 / step));
    if (mx == full || mx == 0) return;
    for (size_t p = 1; p < key_.size; p += 2)
        key_.bytes[p] =
            static_cast<char>(round_half_away(key_.at(p) / static_cast<double>(mx) / step));
}

void online_table_manager::unpack_key() {
    itf_.clear();
    eps_.clear();
    const double step = eps_step();
    eps_.push_back(key_.at(1) * step);
    for (size_t p = 2; p + 1 < key_.size; p += 2) {
        itf_.push_back(key_.at(p));
        eps_.push_back(key_.at(p + 1) * step);
    }
}

// ---------------------------------------------------------------------------------------------
// Lookups

template <class T>
const T* online_table_manager::lookup(table_store<T>& store, gft_solver::solver_code code) {
    if (const T* hit = store.find(key_.view())) return hit;
    const double t0 = thread_seconds();
    unpack_key();
    solver_.solve_pack(code, itf_, eps_);
    const T* solved;
    if constexpr (std::is_same_v<T, PDFGFT>)
        solved = &solver_.gft;
    else if constexpr (std::is_same_v<T, PDFWVTz>)
        solved = &solver_.wvtz;
    else
        solved = &solver_.wvtx;
    const T* stored = store.insert(key_.view(), *solved);
    ++counts.solved;
    counts.solve_seconds += thread_seconds() - t0;
    return stored;
}

template <class Stack>
const PDFGFT* online_table_manager::gft_of(const Stack& stack, double size, RandGen* rng) {
    ++counts.gft_queries;
    if (stack.size() <= 1) return get_single_gft();
    const double shift = node_shift(rng);
    key_.size = pack_stack(stack, size, eps_step(), key_.bytes, shift);
    if (key_.size < 3) return get_single_gft();
    // The stack maximum may lie outside the box; the table must not depend on it. (Random
    // rounding already counts from the largest permittivity in the box.)
    if (shift < 0) renormalise_key();
    return lookup(stores_->gft, gft_solver::SOLVE_GFT);
}

const PDFGFT* online_table_manager::get_GFT(const std::vector<double>& heights,
                                            const std::vector<double>& eps, double size,
                                            RandGen* rng) {
    return gft_of(vector_stack{heights, eps}, size, rng);
}

const PDFGFT* online_table_manager::get_GFT(const layer_stack& stack, double size, RandGen* rng) {
    return gft_of(stack, size, rng);
}

const PDFWVTz* online_table_manager::get_WVTz(const std::vector<double>& heights,
                                              const std::vector<double>& eps, double size,
                                              double& middle_eps, RandGen* rng) {
    ++counts.wvtz_queries;
    if (eps.size() <= 1) {
        middle_eps = eps.empty() ? 1.0 : eps[0];
        return get_single_wvtz();
    }
    // With the walker's generator the key rounds interfaces at random like the others; the cell
    // averages of pack_avg hold a thin film at a fixed place in its cell, which biased the first
    // hop of wires above thin films (docs/accuracy.md, E12).
    const double shift = node_shift(rng);
    if (shift != kNearest) {
        key_.size = pack(heights, eps, size, eps_step(), key_.bytes, shift);
    } else {
        pack_avg(heights, eps, size, eps_step(), 1, avg_key_);
        key_.size = avg_key_.copy(key_.bytes, sizeof key_.bytes);
    }
    const PDFWVTz* t =
        key_.size < 3 ? get_single_wvtz() : lookup(stores_->wvtz, gft_solver::SOLVE_WVTZ);
    middle_eps = unit_flux_scale(*t, heights, eps, size);
    if (!(middle_eps > 0 && std::isfinite(middle_eps)))  // a degenerate table: the old guess
        middle_eps = get_middle_eps(heights, eps, key_.view(), size, eps_step());
    return t;
}

double online_table_manager::unit_flux_scale(const PDFWVTz& t, const std::vector<double>& heights,
                                             const std::vector<double>& eps, double size) {
    // Expected weight times phi - phi(centre) at the landing point, as online_sampling draws them,
    // with phi(z) = integral of dz/eps from the box bottom: linear within a layer, so each layer's
    // side panels weigh it through the table's running sums (centres at (j + 1/2) cells).
    const size_t n = std::min(heights.size(), eps.size());
    const double cell = size / kNodes, half = 0.5 * size;
    auto first_panel_at_or_above = [cell](double z) {
        return static_cast<int>(std::clamp(std::ceil(z / cell - 0.5), 0.0, double{kNodes}));
    };
    double side = 0, phi = 0, centre = 0, top = 0;
    int lo = 0;
    for (size_t l = 0; l < n; ++l) {
        const double a = l == 0 ? 0.0 : heights[l];
        const double b = l + 1 < n ? std::min(heights[l + 1], size) : size;
        const double inv = 1 / eps[l];
        const int hi = l + 1 < n ? first_panel_at_or_above(b) : kNodes;
        const double w0 = t.side_w0[hi] - t.side_w0[lo], w1 = t.side_w1[hi] - t.side_w1[lo];
        side += phi * w0 + inv * (cell * w1 - a * w0);
        if (a <= half && half <= b) centre = phi + (half - a) * inv;
        phi += (b - a) * inv;
        top = phi;
        lo = hi;
        if (b >= size) break;
    }
    const double lower = t.face_cdf[0], upper = t.face_cdf[1] - t.face_cdf[0];
    const double sum = side - centre * t.side_w0[kNodes] + upper * (top - centre) + lower * centre;
    return half / (t.total_weight * sum);
}

const PDFWVTx* online_table_manager::get_WVTx(const std::vector<double>& heights,
                                              const std::vector<double>& eps, double size,
                                              double& middle_eps, RandGen* rng) {
    ++counts.wvtx_queries;
    if (eps.size() <= 1) {
        middle_eps = eps.empty() ? 1.0 : eps[0];
        return get_single_wvtx();
    }
    key_.size = pack(heights, eps, size, eps_step(), key_.bytes, node_shift(rng));
    // The derivative along the layers is continuous across them, so the flux takes the walker's
    // own permittivity, even where the key rounds a nearby interface onto the centre node.
    middle_eps = eps[0];
    for (size_t i = 1; i < heights.size() && i < eps.size() && heights[i] <= 0.5 * size; ++i)
        middle_eps = eps[i];
    if (key_.size < 3) return get_single_wvtx();
    return lookup(stores_->wvtx, gft_solver::SOLVE_WVTX);
}

// ---------------------------------------------------------------------------------------------
// Files

std::string online_table_manager::table_path(const std::string& dir, unsigned long id,
                                             char letter) {
    std::string path = dir;
    if (!path.empty() && path.back() != '/') path += '/';
    path += std::to_string(id);
    path += letter;
    path += std::to_string(kNodes);
    return path;
}

void online_table_manager::dump(unsigned long id, const std::string& dir) const {
    try {
        make_directories(dir);
        write_store(table_path(dir, id, 'X'), stores_->gft);
        write_store(table_path(dir, id, 'Y'), stores_->wvtz);
        write_store(table_path(dir, id, 'Z'), stores_->wvtx);
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
    }
}

void online_table_manager::load(unsigned long id, const std::string& dir) {
    if (!is_directory(dir) || !stores_->first_load(id, dir)) return;
    try {
        read_store(table_path(dir, id, 'X'), stores_->gft);
        read_store(table_path(dir, id, 'Y'), stores_->wvtz);
        read_store(table_path(dir, id, 'Z'), stores_->wvtx);
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
    }
}

}  // namespace RW2D

namespace RW2D {

std::size_t table_stores::load_cache(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return 0;
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    auto ignore = [&path](const char* why) {
        std::cerr << "Warning: table cache " << path << " ignored: " << why << std::endl;
        return std::size_t{0};
    };
    constexpr size_t head = sizeof kCacheMagic + 2 * sizeof(uint32_t) + sizeof(double);
    if (bytes.size() < head + sizeof(uint64_t) ||
        std::memcmp(bytes.data(), kCacheMagic, sizeof kCacheMagic) != 0)
        return ignore("not a table cache");
    const size_t body = bytes.size() - sizeof(uint64_t);
    uint64_t sum = 0;
    std::memcpy(&sum, bytes.data() + body, sizeof sum);
    if (sum != fnv1a(bytes.data(), body)) return ignore("checksum mismatch (truncated or damaged)");

    buffer_reader in{bytes, sizeof kCacheMagic};
    const auto nodes = in.get<uint32_t>();
    const auto half = in.get<uint32_t>();
    const auto step = in.get<double>();
    if (nodes != kNodes || half != gft_solver::NHALF || step != online_table_manager::eps_step())
        return ignore("made with another table grid or key step");
    std::vector<std::pair<std::string, PDFGFT>> g;
    std::vector<std::pair<std::string, PDFWVTz>> z;
    std::vector<std::pair<std::string, PDFWVTx>> x;
    if (!get_section(in, g) || !get_section(in, z) || !get_section(in, x) || in.pos != body)
        return ignore("malformed records");
    for (const auto& [key, t] : g) gft.insert(key, t);
    for (const auto& [key, t] : z) wvtz.insert(key, t);
    for (const auto& [key, t] : x) wvtx.insert(key, t);
    return g.size() + z.size() + x.size();
}

bool table_stores::save_cache(const std::string& path) const {
    std::string bytes;
    buffer_writer out{bytes};
    out.write(kCacheMagic, sizeof kCacheMagic);
    out.put(static_cast<uint32_t>(kNodes));
    out.put(static_cast<uint32_t>(gft_solver::NHALF));
    out.put(online_table_manager::eps_step());
    put_section(out, gft);
    put_section(out, wvtz);
    put_section(out, wvtx);
    out.put(fnv1a(bytes.data(), bytes.size()));

    const std::string tmp = path + ".tmp." + std::to_string(::getpid());
    try {
        const size_t slash = path.find_last_of('/');
        if (slash != std::string::npos && slash > 0) make_directories(path.substr(0, slash));
        {
            std::ofstream file(tmp, std::ios::binary | std::ios::trunc);
            file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
            file.flush();
            if (!file) throw std::runtime_error("cannot write " + tmp);
        }
        if (std::rename(tmp.c_str(), path.c_str()) != 0)
            throw std::runtime_error("cannot rename " + tmp + ": " + std::strerror(errno));
    } catch (const std::exception& e) {
        std::remove(tmp.c_str());
        std::cerr << "Warning: table cache " << path << " not saved: " << e.what() << std::endl;
        return false;
    }
    return true;
}

}  // namespace RW2D
