#include "process_effects/density_map.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "process_effects/polygon_store.h"

using process_effects::Area2;
using process_effects::Box64;
using process_effects::PolygonStore;

DensityMap::DensityMap() = default;
DensityMap::~DensityMap() = default;
DensityMap::DensityMap(DensityMap&&) noexcept = default;
DensityMap& DensityMap::operator=(DensityMap&&) noexcept = default;

DensityMap::DensityMap(int32_t grid, int32_t win, int32_t left, int32_t bottom, int32_t right,
                       int32_t top, int32_t extend)
    : frame_left(left), frame_bottom(bottom), frame_right(right), frame_top(top) {
    const int64_t w = int64_t{right} - left + 1, h = int64_t{top} - bottom + 1;
    if (grid <= 0 || w <= 0 || h <= 0) return;
    const int64_t rx = (w + grid - 1) / grid, ry = (h + grid - 1) / grid;
    const double s = std::max(static_cast<double>(w) / static_cast<double>(rx),
                              static_cast<double>(h) / static_cast<double>(ry));
    const double whole = std::trunc(s);
    grid_size = static_cast<int32_t>(whole) + (s - whole < 1e-10 ? 0 : 1);
    win_size = std::max(win, grid_size);
    range_x = static_cast<int32_t>(rx);
    range_y = static_cast<int32_t>(ry);
    grid_area = static_cast<double>(grid_size) * grid_size;
    densities.assign(static_cast<size_t>(rx * ry), 0.0);
    buildWindows(extend);
}

void DensityMap::buildWindows(int32_t extend) {
    const int64_t ext = std::max(extend, 0);
    const int64_t g = grid_size, m = (int64_t{win_size} - g) / 2, r = int64_t{win_size} - g - m;
    x_spans_.resize(range_x);
    for (int64_t i = 0; i < range_x; ++i) {
        const int64_t x0 = frame_left + g * i;
        x_spans_[i] = {std::max(frame_left - ext, x0 - m), std::min(frame_right + ext, x0 + g + r)};
    }
    y_spans_.resize(range_y);
    for (int64_t j = 0; j < range_y; ++j) {
        const int64_t y0 = frame_bottom + g * j;
        y_spans_[j] = {std::max(frame_bottom - ext, y0 - m), std::min(frame_top + ext, y0 + g + r)};
    }
}

bool DensityMap::reach(int64_t& x_low, int64_t& x_high, int64_t& y_low, int64_t& y_high) const {
    if (grid_size == 0 || x_spans_.empty() || y_spans_.empty()) return false;
    // Window edges grow with the cell index, so the first and last windows bound them all.
    x_low = x_spans_.front().low, x_high = x_spans_.back().high;
    y_low = y_spans_.front().low, y_high = y_spans_.back().high;
    return true;
}

namespace {

// Grows the bounding box {x low, x high, y low, y high} by the ring's points.
void growBox(const LayoutPolygon& ring, std::array<int64_t, 4>& b) {
    for (const LayoutPoint& p : ring) {
        b[0] = std::min<int64_t>(b[0], p.x), b[1] = std::max<int64_t>(b[1], p.x);
        b[2] = std::min<int64_t>(b[2], p.y), b[3] = std::max<int64_t>(b[3], p.y);
    }
}

constexpr std::array<int64_t, 4> kNoBox{INT64_MAX, INT64_MIN, INT64_MAX, INT64_MIN};

}  // namespace

bool DensityMap::reaches(const std::array<int64_t, 4>& b) const {
    int64_t xl, xh, yl, yh;
    if (!reach(xl, xh, yl, yh)) return false;
    return b[0] < xh && b[1] > xl && b[2] < yh && b[3] > yl;
}

void DensityMap::addOverlappedPoly(const LayoutPolygon& points) {
    std::array<int64_t, 4> b = kNoBox;
    growBox(points, b);
    if (!reaches(b)) return;
    if (!pending_) pending_ = std::make_unique<PolygonStore>();
    pending_->add(points);
}

void DensityMap::addOverlappedPolyWithHoles(const LayoutPolygonSet& rings) {
    std::array<int64_t, 4> b = kNoBox;
    for (const LayoutPolygon& ring : rings) growBox(ring, b);
    if (!reaches(b)) return;
    if (!pending_) pending_ = std::make_unique<PolygonStore>();
    pending_->add(rings);
}

void DensityMap::calculateDensity(const LayoutPolygonSet& pieces) {
    if (grid_size == 0 || densities.empty()) return;
    for (const LayoutPolygon& p : pieces) addOverlappedPoly(p);
    calculateDensity();
}

// The windows overlap when the window is wider than a cell, so the covered area is measured once
// per tile of the partition made by all window edges, and each window sums its tiles. A polygon
// costs only the tiles its bounding box meets, and each tile runs the clipper on few polygons.
void DensityMap::calculateDensity() {
    if (grid_size == 0 || densities.empty()) return;
    std::vector<int64_t> xs, ys;
    for (const Span& s : x_spans_) xs.push_back(s.low), xs.push_back(s.high);
    for (const Span& s : y_spans_) ys.push_back(s.low), ys.push_back(s.high);
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    std::sort(ys.begin(), ys.end());
    ys.erase(std::unique(ys.begin(), ys.end()), ys.end());
    const size_t nx = xs.size() - 1, ny = ys.size() - 1;

    // Tiles strictly overlapped by [low, high] on one axis: [first, last).
    auto tileRange = [](const std::vector<int64_t>& edges, int64_t low, int64_t high) {
        size_t first = std::upper_bound(edges.begin(), edges.end(), low) - edges.begin();
        first = first > 0 ? first - 1 : 0;
        const size_t last = std::lower_bound(edges.begin(), edges.end(), high) - edges.begin();
        return std::pair<size_t, size_t>(first, std::min(last, edges.size() - 1));
    };

    // Twice the covered area of tile (r, c) at (r + 1) * (nx + 1) + c + 1, then summed in place.
    std::vector<Area2> area2((nx + 1) * (ny + 1), 0);
    if (pending_ && !pending_->empty()) {
        const PolygonStore& store = *pending_;
        const size_t items = store.size();
        std::vector<uint64_t> start(nx * ny + 1, 0);
        for (int pass = 0; pass < 2; ++pass) {
            std::vector<uint32_t> refs;
            if (pass == 1) {
                for (size_t t = 0; t < nx * ny; ++t) start[t + 1] += start[t];
                refs.resize(start.back());
            }
            std::vector<uint64_t> cursor;
            if (pass == 1) cursor.assign(start.begin(), start.end() - 1);
            for (size_t k = 0; k < items; ++k) {
                const uint32_t id = store.idAt(k);
                const Box64 b = store.bbox(id);
                const auto [c0, c1] = tileRange(xs, b.x_low, b.x_high);
                const auto [r0, r1] = tileRange(ys, b.y_low, b.y_high);
                for (size_t r = r0; r < r1; ++r)
                    for (size_t c = c0; c < c1; ++c) {
                        if (pass == 0)
                            ++start[r * nx + c + 1];
                        else
                            refs[cursor[r * nx + c]++] = id;
                    }
            }
            if (pass == 0) continue;
            cursor.clear();
            cursor.shrink_to_fit();
#pragma omp parallel
            {
                auto ws = process_effects::makeAreaWorkspace();
#pragma omp for schedule(dynamic, 4)
                for (size_t r = 0; r < ny; ++r)
                    for (size_t c = 0; c < nx; ++c) {
                        const size_t t = r * nx + c;
                        if (start[t] == start[t + 1]) continue;
                        const Box64 tile{xs[c], xs[c + 1], ys[r], ys[r + 1]};
                        area2[(r + 1) * (nx + 1) + c + 1] = store.coveredArea2(
                            refs.data() + start[t], start[t + 1] - start[t], tile, *ws);
                    }
            }
        }
        pending_.reset();  // the polygons are spent
    }
    for (size_t r = 1; r <= ny; ++r)
        for (size_t c = 1; c <= nx; ++c)
            area2[r * (nx + 1) + c] += area2[(r - 1) * (nx + 1) + c] + area2[r * (nx + 1) + c - 1] -
                                       area2[(r - 1) * (nx + 1) + c - 1];

    auto edgeIndex = [](const std::vector<int64_t>& edges, int64_t v) {
        return static_cast<size_t>(std::lower_bound(edges.begin(), edges.end(), v) - edges.begin());
    };
    std::vector<std::pair<size_t, size_t>> cols(range_x), rows(range_y);
    for (int32_t i = 0; i < range_x; ++i)
        cols[i] = {edgeIndex(xs, x_spans_[i].low), edgeIndex(xs, x_spans_[i].high)};
    for (int32_t j = 0; j < range_y; ++j)
        rows[j] = {edgeIndex(ys, y_spans_[j].low), edgeIndex(ys, y_spans_[j].high)};
    for (int32_t j = 0; j < range_y; ++j) {
        const auto [r0, r1] = rows[j];
        for (int32_t i = 0; i < range_x; ++i) {
            const auto [c0, c1] = cols[i];
            const Area2 a2 = area2[r1 * (nx + 1) + c1] - area2[r0 * (nx + 1) + c1] -
                             area2[r1 * (nx + 1) + c0] + area2[r0 * (nx + 1) + c0];
            const double area = static_cast<double>(a2) / 2.0;
            const double box = static_cast<double>(x_spans_[i].high - x_spans_[i].low) *
                               static_cast<double>(y_spans_[j].high - y_spans_[j].low);
            double& d = densities[static_cast<size_t>(j) * range_x + i];
            d = (d + area) / box;
        }
    }
}

double DensityMap::getGridDensity(int32_t i, int32_t j) const {
    if (i < 0 || j < 0 || i >= range_x || j >= range_y) return -1.0;
    return densities[static_cast<size_t>(j) * range_x + i];
}

double DensityMap::getDensity(int32_t x, int32_t y, int32_t box) const {
    if (grid_size == 0 || densities.empty()) return 0.0;
    const int64_t h = box / 2;
    const int64_t wl = std::max<int64_t>(frame_left, int64_t{x} - h);
    const int64_t wr = std::min<int64_t>(int64_t{x} - h + box, frame_right);
    const int64_t wb = std::max<int64_t>(frame_bottom, int64_t{y} - h);
    const int64_t wt = std::min<int64_t>(int64_t{y} - h + box, frame_top);
    if (wr <= wl || wt <= wb) return 0.0;  // the window misses the frame
    const int64_t g = grid_size;
    const int64_t i0 = (wl - frame_left) / g,
                  i1 = std::min<int64_t>((wr - frame_left) / g, range_x - 1);
    const int64_t j0 = (wb - frame_bottom) / g,
                  j1 = std::min<int64_t>((wt - frame_bottom) / g, range_y - 1);
    double sum = 0.0;
    for (int64_t i = i0; i <= i1; ++i) {
        const Span& sx = x_spans_[i];
        const int64_t cw = std::min(wr, sx.high) - std::max(wl, sx.low);
        if (cw <= 0) continue;
        for (int64_t j = j0; j <= j1; ++j) {
            const Span& sy = y_spans_[j];
            const int64_t ch = std::min(wt, sy.high) - std::max(wb, sy.low);
            if (ch <= 0) continue;
            sum += static_cast<double>(cw * ch) * densities[j * range_x + i];
        }
    }
    return sum / (static_cast<double>(wr - wl) * static_cast<double>(wt - wb));
}

void DensityMap::clearDensity() {
    std::fill(densities.begin(), densities.end(), 0.0);
}

ClipBox DensityMap::getClipBox(int32_t i, int32_t j) const {
    if (i < 0 || j < 0 || i >= range_x || j >= range_y) return ClipBox();
    return ClipBox(x_spans_[i].low, x_spans_[i].high, y_spans_[j].low, y_spans_[j].high);
}

size_t DensityMap::pendingPolygons() const {
    return pending_ ? pending_->size() : 0;
}

size_t DensityMap::memoryBytes() const {
    return densities.capacity() * sizeof(double) +
           (x_spans_.capacity() + y_spans_.capacity()) * sizeof(Span) +
           (pending_ ? pending_->memoryBytes() : 0);
}

// ---------------------------------------------------------------------------------------------
// Density file

namespace {

void appendNumber(std::string& out, double v) {
    char buf[64];
    const auto res = std::to_chars(buf, buf + sizeof buf, v);  // shortest text that reads back
    out.append(buf, res.ptr);
}

std::string rowLabel(int32_t j, int32_t range_x) {
    return "\t[grid(" + std::to_string(j) + ", 0) - grid(" + std::to_string(j) + ", " +
           std::to_string(range_x) + ")]:";
}

// Lines of a text that must each end with a line feed.
class LineReader {
public:
    explicit LineReader(std::string_view text) : text_(text) {}
    bool next(std::string_view& line) {
        const size_t end = text_.find('\n', pos_);
        if (end == std::string_view::npos) return false;
        line = text_.substr(pos_, end - pos_);
        pos_ = end + 1;
        return true;
    }
    bool atEnd() const { return pos_ == text_.size(); }

private:
    std::string_view text_;
    size_t pos_ = 0;
};

// "WORD value": the value as a 32-bit integer; what follows it must be empty unless allowed.
bool readHeader(LineReader& lines, std::string_view word, int32_t& value, bool rest_allowed) {
    std::string_view line;
    if (!lines.next(line)) return false;
    if (line.size() <= word.size() || line.substr(0, word.size()) != word ||
        line[word.size()] != ' ')
        return false;
    const char* begin = line.data() + word.size() + 1;
    const char* end = line.data() + line.size();
    const auto res = std::from_chars(begin, end, value);
    if (res.ec != std::errc() || res.ptr == begin) return false;
    return rest_allowed || res.ptr == end;
}

}  // namespace

int DensityMap::saveToFile(const std::string& path) const {
    std::string out;
    out.reserve(densities.size() * 12 + 256);
    auto header = [&out](const char* word, int64_t v) {
        out += word;
        out += std::to_string(v);
        out += '\n';
    };
    header("FRAME_LEFT ", frame_left);
    header("FRAME_BOTTOM ", frame_bottom);
    header("FRAME_RIGNT ", frame_right);
    header("FRAME_TOP ", frame_top);
    header("GRID_SIZE ", grid_size);
    header("WIN_SIZE ", win_size);
    out += "GRID_RANGE_X " + std::to_string(range_x) + "(" + std::to_string(frame_left) + " - " +
           std::to_string(frame_right) + ")\n";
    out += "GRID_RANGE_Y " + std::to_string(range_y) + "(" + std::to_string(frame_bottom) + " - " +
           std::to_string(frame_top) + ")\n";
    out += "DENSITIES\n";
    for (int32_t j = 0; j < range_y; ++j) {
        out += rowLabel(j, range_x);
        out += "\n\t";
        for (int32_t i = 0; i < range_x; ++i) {
            appendNumber(out, densities[static_cast<size_t>(j) * range_x + i]);
            out += "  ";
        }
        out += '\n';
    }
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    if (!f) return 0;
    f.write(out.data(), static_cast<std::streamsize>(out.size()));
    f.close();
    return f ? 1 : 0;
}

int DensityMap::loadFromFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return 0;
    std::ostringstream buffer;
    buffer << f.rdbuf();
    const std::string text = buffer.str();
    LineReader lines(text);

    DensityMap m;
    if (!readHeader(lines, "FRAME_LEFT", m.frame_left, false) ||
        !readHeader(lines, "FRAME_BOTTOM", m.frame_bottom, false) ||
        !readHeader(lines, "FRAME_RIGNT", m.frame_right, false) ||
        !readHeader(lines, "FRAME_TOP", m.frame_top, false) ||
        !readHeader(lines, "GRID_SIZE", m.grid_size, false) ||
        !readHeader(lines, "WIN_SIZE", m.win_size, false) ||
        !readHeader(lines, "GRID_RANGE_X", m.range_x, true) ||
        !readHeader(lines, "GRID_RANGE_Y", m.range_y, true))
        return 0;
    std::string_view line;
    if (!lines.next(line) || line != "DENSITIES") return 0;

    // The header must describe a grid the constructor can make, and the file must be long enough
    // for its cells (three characters at least per value) before anything is allocated.
    const int64_t w = int64_t{m.frame_right} - m.frame_left + 1;
    const int64_t h = int64_t{m.frame_top} - m.frame_bottom + 1;
    const int64_t g = m.grid_size, rx = m.range_x, ry = m.range_y;
    if (g == 0) {
        if (rx != 0 || ry != 0) return 0;
    } else {
        const bool fits = g > 0 && m.win_size >= g && w > 0 && h > 0 && rx > 0 && ry > 0 &&
                          rx * g >= w && (rx - 1) * g < w && ry * g >= h && (ry - 1) * g < h;
        if (!fits || rx * ry > static_cast<int64_t>(text.size() / 3)) return 0;
    }

    m.densities.reserve(static_cast<size_t>(rx * ry));
    for (int32_t j = 0; j < ry; ++j) {
        if (!lines.next(line) || line != rowLabel(j, m.range_x)) return 0;
        if (!lines.next(line) || line.empty() || line[0] != '\t') return 0;
        const char* p = line.data() + 1;
        const char* end = line.data() + line.size();
        for (int32_t i = 0; i < rx; ++i) {
            double v = 0.0;
            const auto res = std::from_chars(p, end, v);
            if (res.ec != std::errc() || res.ptr == p || !std::isfinite(v)) return 0;
            p = res.ptr;
            if (end - p < 2 || p[0] != ' ' || p[1] != ' ') return 0;
            p += 2;
            m.densities.push_back(v);
        }
        if (p != end) return 0;
    }
    if (!lines.atEnd()) return 0;

    if (g > 0) {
        m.grid_area = static_cast<double>(g) * g;
        m.buildWindows(0);
    }
    *this = std::move(m);
    return 1;
}
