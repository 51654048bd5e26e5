#include "solver/online_table.h"

#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

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

inline int byte_at(const std::string& key, size_t i) {
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
void write_store(const std::string& path, const online_table_database<T>& store) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        std::cerr << "Failed to open file for writing." << std::endl;
        return;
    }
    const uint64_t count = store.map.size();
    out.write(reinterpret_cast<const char*>(&count), sizeof count);
    for (const auto& [key, table] : store.map) {
        const uint64_t len = key.size();
        out.write(reinterpret_cast<const char*>(&len), sizeof len);
        out.write(key.data(), static_cast<std::streamsize>(len));
        write_tail(out, table);
    }
}

// The loop trusts the count: a truncated file reads as zero-filled records.
template <class T>
void read_store(const std::string& path, online_table_database<T>& store) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return;
    uint64_t count = 0;
    in.read(reinterpret_cast<char*>(&count), sizeof count);
    store.map.reserve(store.map.size() + count);
    std::string key;
    for (uint64_t r = 0; r < count; ++r) {
        uint64_t len = 0;
        in.read(reinterpret_cast<char*>(&len), sizeof len);
        key.assign(len, '\0');
        in.read(key.data(), static_cast<std::streamsize>(len));
        T table;
        read_tail(in, table);
        store.map.try_emplace(key, table);
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Shared stores

template <class T>
online_table_database<T>& online_table_database<T>::instance() {
    static online_table_database store;
    return store;
}

template <class T>
online_table_lock& online_table_database<T>::lock_instance() {
    static online_table_lock lock;
    return lock;
}

template <class T>
void online_table_database<T>::merge_into_global() {
    merge_into(instance(), lock_instance());
}

template <class T>
void online_table_database<T>::merge_into(online_table_database& shared, online_table_lock& lock) {
    if (map.empty() && query_count == 0) return;
    if (shared.is_frozen()) return;
    while (lock.writer.exchange(1, std::memory_order_acquire) != 0) sched_yield();
    while (lock.readers.load(std::memory_order_acquire) != 0) sched_yield();
    if (shared.frozen.load(std::memory_order_relaxed)) {
        lock.writer.store(0, std::memory_order_release);
        return;
    }
    for (const auto& entry : map) shared.map.insert(entry);  // an entry already there stays
    shared.query_count += query_count;
    const double size = static_cast<double>(shared.map.size());
    if (shared.query_count > 10000000 && size / static_cast<double>(shared.query_count) < 1e-5) {
        shared.frozen.store(true, std::memory_order_release);
        std::printf("[DEBUG] %s shared table shutdown, size: %zu, query count: %lld\n",
                    typeid(T).name(), shared.map.size(),
                    static_cast<long long>(shared.query_count));
        std::fflush(stdout);
    }
    lock.writer.store(0, std::memory_order_release);
    map.clear();
    query_count = 0;
}

template class online_table_database<PDFGFT>;
template class online_table_database<PDFWVTz>;
template class online_table_database<PDFWVTx>;

// ---------------------------------------------------------------------------------------------
// Keys

void online_table_manager::pack(const std::vector<double>& heights, const std::vector<double>& eps,
                                double size, double step, std::string& key) {
    key.clear();
    const double emax = max_of(eps);
    const double cell = size / kNodes;
    const size_t n = heights.size();
    // Each height is divided and rounded once: the division is the costliest step of a hop's key.
    size_t i = 0;
    long k = n > 0 ? round_half_away(heights[0] / cell) : 0;
    while (i < n && k <= kNodes - 1) {
        size_t t = i;
        long next = k;
        while (t + 1 < n && (next = round_half_away(heights[t + 1] / cell)) == k) ++t;
        const int q = quantise(eps[t], emax, step);
        if (key.empty() || byte_at(key, key.size() - 1) != q)
            append_pair(key, static_cast<int>(k), q);
        i = t + 1;
        k = next;  // the node of heights[i] when i < n
    }
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
                                            const std::vector<double>& eps, const std::string& key,
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
    for (size_t p = 1; p < key_.size(); p += 2) mx = std::max(mx, byte_at(key_, p));
    const int full = static_cast<int>(std::lround(1.0 / gft_step));
    if (mx == full || mx == 0) return;
    for (size_t p = 1; p < key_.size(); p += 2)
        key_[p] = static_cast<char>(
            round_half_away(byte_at(key_, p) / static_cast<double>(mx) / gft_step));
}

void online_table_manager::unpack_key() {
    itf_.clear();
    eps_.clear();
    eps_.push_back(byte_at(key_, 1) * gft_step);
    for (size_t p = 2; p + 1 < key_.size(); p += 2) {
        itf_.push_back(byte_at(key_, p));
        eps_.push_back(byte_at(key_, p + 1) * gft_step);
    }
}

// ---------------------------------------------------------------------------------------------
// Lookups

online_table_manager::online_table_manager(online_table_manager&& o) noexcept
    : single_gft(o.single_gft),
      single_wvtz(o.single_wvtz),
      single_wvtx(o.single_wvtx),
      gft_tables(std::move(o.gft_tables)),
      wvtz_tables(std::move(o.wvtz_tables)),
      wvtx_tables(std::move(o.wvtx_tables)),
      solver(std::move(o.solver)),
      wvt_step(o.wvt_step),
      gft_step(o.gft_step) {
    o.single_gft = nullptr;
    o.single_wvtz = nullptr;
    o.single_wvtx = nullptr;
}

online_table_manager::~online_table_manager() {
    delete single_gft;
    delete single_wvtz;
    delete single_wvtx;
}

void online_table_manager::make_singles() {
    solver.solve_single();
    single_gft = new PDFGFT(solver.gft);
    single_wvtz = new PDFWVTz(solver.wvtz);
    single_wvtx = new PDFWVTx(solver.wvtx);
}

const PDFGFT* online_table_manager::get_single_gft() {
    if (!single_gft) make_singles();
    return single_gft;
}

const PDFWVTz* online_table_manager::get_single_wvtz() {
    if (!single_wvtz) make_singles();
    return single_wvtz;
}

const PDFWVTx* online_table_manager::get_single_wvtx() {
    if (!single_wvtx) make_singles();
    return single_wvtx;
}

template <class T>
const T* online_table_manager::lookup(online_table_database<T>& store,
                                      gft_solver::solver_code code) {
    const online_table_database<T>& shared = online_table_database<T>::instance();
    if (shared.is_frozen())
        if (const T* hit = shared.find(key_)) return hit;
    if (const T* hit = store.find(key_)) return hit;
    unpack_key();
    solver.solve_pack(code, itf_, eps_);
    const T* solved;
    if constexpr (std::is_same_v<T, PDFGFT>)
        solved = &solver.gft;
    else if constexpr (std::is_same_v<T, PDFWVTz>)
        solved = &solver.wvtz;
    else
        solved = &solver.wvtx;
    return &store.map.try_emplace(key_, *solved).first->second;
}

const PDFGFT* online_table_manager::get_GFT(const std::vector<double>& heights,
                                            const std::vector<double>& eps, double size, RandGen*) {
    ++gft_tables.query_count;
    if (eps.size() <= 1) return get_single_gft();
    pack(heights, eps, size, gft_step, key_);
    if (key_.size() < 3) return get_single_gft();
    // The stack maximum may lie outside the box; the table must not depend on it.
    renormalise_key();
    return lookup(gft_tables, gft_solver::SOLVE_GFT);
}

const PDFWVTz* online_table_manager::get_WVTz(const std::vector<double>& heights,
                                              const std::vector<double>& eps, double size,
                                              double& middle_eps) {
    ++wvtz_tables.query_count;
    if (eps.size() <= 1) {
        middle_eps = eps.empty() ? 1.0 : eps[0];
        return get_single_wvtz();
    }
    pack_avg(heights, eps, size, wvt_step, 1, key_);
    middle_eps = get_middle_eps(heights, eps, key_, size, wvt_step);
    if (key_.size() < 3) return get_single_wvtz();
    return lookup(wvtz_tables, gft_solver::SOLVE_WVTZ);
}

const PDFWVTx* online_table_manager::get_WVTx(const std::vector<double>& heights,
                                              const std::vector<double>& eps, double size,
                                              double& middle_eps) {
    ++wvtx_tables.query_count;
    if (eps.size() <= 1) {
        middle_eps = eps.empty() ? 1.0 : eps[0];
        return get_single_wvtx();
    }
    pack(heights, eps, size, wvt_step, key_);
    middle_eps = get_middle_eps(heights, eps, key_, size, wvt_step);
    if (key_.size() < 3) return get_single_wvtx();
    return lookup(wvtx_tables, gft_solver::SOLVE_WVTX);
}

void online_table_manager::merge_all_into_global() {
    gft_tables.merge_into_global();
    wvtx_tables.merge_into_global();
    wvtz_tables.merge_into_global();
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
        write_store(table_path(dir, id, 'X'), gft_tables);
        write_store(table_path(dir, id, 'Y'), wvtz_tables);
        write_store(table_path(dir, id, 'Z'), wvtx_tables);
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
    }
}

void online_table_manager::load(unsigned long id, const std::string& dir) {
    if (!is_directory(dir)) return;
    try {
        read_store(table_path(dir, id, 'X'), gft_tables);
        read_store(table_path(dir, id, 'Y'), wvtz_tables);
        read_store(table_path(dir, id, 'Z'), wvtx_tables);
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
    }
}

}  // namespace RW2D
