// The GDSII writer, byte by byte: the 8-byte real against a hand-encoded value and an independent
// decoder, the record sequence and lengths of a small library, padding and the record limits.
// Coordinates and layers are read back by KLayout in the tool tests.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include "geometry/gds_writer.h"

namespace {

using Bytes = std::vector<unsigned char>;

// The bytes `write` puts into a fresh file.
Bytes written(const std::function<void(GdsWriter&)>& write) {
    const std::string path = testing::TempDir() + "gds_writer_" + std::to_string(getpid());
    GdsWriter gds;
    gds.openFile(path);
    write(gds);
    gds.close();
    std::ifstream in(path, std::ios::binary);
    Bytes b(std::istreambuf_iterator<char>(in), {});
    std::filesystem::remove(path);
    return b;
}

// Splits a file into records: {length, record type, data type, body...}.
std::vector<Bytes> records(const Bytes& b) {
    std::vector<Bytes> out;
    size_t pos = 0;
    for (unsigned n; pos + 4 <= b.size() && (n = b[pos] << 8 | b[pos + 1]) >= 4; pos += n)
        out.push_back(Bytes(b.begin() + pos, b.begin() + std::min(pos + n, b.size())));
    EXPECT_EQ(pos, b.size()) << "records do not tile the file";
    return out;
}

// The format's real, decoded from its definition: (-1)^s x 0.fraction x 16^(e - 64).
double decodeReal(const Bytes& b, size_t at = 0) {
    double fraction = 0;
    for (size_t i = at + 7; i > at; --i) fraction = (fraction + b[i]) / 256.0;
    const double v = fraction * std::pow(16.0, (b[at] & 0x7f) - 64);
    return b[at] & 0x80 ? -v : v;
}

TEST(GdsWriter, RealsDecodeToTheValueTruncatedToFiftySixBits) {
    // 16 = 0x0.1 x 16^2 puts the quotient of logarithms on the edge.
    const double values[] = {1.0,     0.001,  -1.0,   0.5,        16.0,  1e-9,  0.1,
                             1.0 / 3, 15.999, 4096.0, 123456.789, -7.25, 1e-30, 3e20};
    const size_t n = std::size(values);
    const Bytes all = written([&](GdsWriter& gds) {
        for (double v : values) gds.writeDouble(v);
        gds.writeDouble(0.0);
        gds.writeShort(-2);
        gds.writeInt(0x01020304);
    });
    ASSERT_EQ(all.size(), 8 * n + 14);
    EXPECT_EQ(Bytes(all.begin(), all.begin() + 8), (Bytes{0x41, 0x10, 0, 0, 0, 0, 0, 0}));  // 1.0
    // Zero is eight zero bytes; integers are big-endian.
    EXPECT_EQ(Bytes(all.begin() + 8 * n, all.end()),
              (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFE, 1, 2, 3, 4}));
    for (size_t i = 0; i < n; ++i) {
        const double v = values[i], decoded = decodeReal(all, 8 * i);
        EXPECT_GE(all[8 * i + 1], 0x10) << v << ": fraction not normalised";
        // Truncation drops less than one unit of the 56th fraction bit and never rounds up.
        const double unit = std::ldexp(std::pow(16.0, (all[8 * i] & 0x7f) - 64), -56);
        EXPECT_LE(std::abs(decoded), std::abs(v)) << v;
        EXPECT_LT(std::abs(v - decoded), 2 * unit) << v;
    }
}

TEST(GdsWriter, LibraryRecordsInOrderWithEvenLengths) {
    const std::vector<Bytes> r = records(written([](GdsWriter& gds) {
        gds.writeGdsHead("abc", 0.001, 1e-9);
        gds.writeBoundary(5, {{0, 0}, {10, 0}, {10, -20}, {0, 0}}, 3);
        gds.writeText(7, 2, {-100, 2000000}, "odd");
        gds.writeGdsTail();
        EXPECT_FALSE(gds.is_open());
    }));
    // (length, type, data type) of each record, from the stream format's tables.
    const Bytes heads[] = {{0, 6, 0, 2},  {0, 28, 1, 2},  {0, 10, 2, 6}, {0, 20, 3, 5},
                           {0, 28, 5, 2}, {0, 8, 6, 6},   {0, 4, 8, 0},  {0, 6, 13, 2},
                           {0, 6, 14, 2}, {0, 36, 16, 3}, {0, 4, 17, 0}, {0, 4, 12, 0},
                           {0, 6, 13, 2}, {0, 6, 22, 2},  {0, 6, 23, 1}, {0, 12, 16, 3},
                           {0, 8, 25, 6}, {0, 4, 17, 0},  {0, 4, 7, 0},  {0, 4, 4, 0}};
    ASSERT_EQ(r.size(), std::size(heads));
    for (size_t i = 0; i < r.size(); ++i)
        EXPECT_EQ(Bytes(r[i].begin(), r[i].begin() + 4), heads[i]) << "record " << i;
    EXPECT_EQ(r[0], (Bytes{0, 6, 0, 2, 0x02, 0x58}));  // version 600
    EXPECT_DOUBLE_EQ(decodeReal(r[3], 4), 0.001);
    EXPECT_DOUBLE_EQ(decodeReal(r[3], 12), 1e-9);
    EXPECT_EQ(r[5], (Bytes{0, 8, 6, 6, 'a', 'b', 'c', 0}));   // odd name padded with a NUL
    EXPECT_EQ(r[7].back() + 256 * r[8].back(), 5 + 256 * 3);  // layer and data type
    EXPECT_EQ(r[16], (Bytes{0, 8, 25, 6, 'o', 'd', 'd', 0}));
}

TEST(GdsWriter, BoundaryOfTooManyPointsIsRefusedBeforeWriting) {
    std::vector<Point2D> points(GdsWriter::kMaxPoints);
    for (size_t i = 0; i < points.size(); ++i) points[i] = {int(i), int(i % 2)};
    const std::vector<Bytes> r = records(written([&](GdsWriter& gds) {
        gds.writeBoundary(1, points, 0);
        points.emplace_back(0, 0);
        EXPECT_THROW(gds.writeBoundary(1, points, 0), std::length_error);
        EXPECT_THROW(gds.writeBoundaryWithThickness(1, points, 1, 2, 3, 0), std::length_error);
    }));
    ASSERT_EQ(r.size(), 5u);  // nothing of the refused ones
    // The largest record the 16-bit length allows: 8 x 8191 + 4.
    EXPECT_EQ(r[3].size(), 65532u);
    EXPECT_EQ(Bytes(r[3].end() - 8, r[3].end() - 4), (Bytes{0, 0, 0x1F, 0xFE}));  // x = 8190
}

}  // namespace
