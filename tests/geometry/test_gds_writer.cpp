// The GDSII writer, byte by byte: the 8-byte real against hand-encoded values and an independent
// decoder, the record sequence and lengths of a small library, padding and the record limits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "geometry/gds_writer.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;

class GdsWriterTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::path(testing::TempDir()) /
               ("gds_" + std::string(info->name()) + "_" + std::to_string(getpid()));
        fs::create_directories(dir_);
        path_ = (dir_ / "out.gds").string();
        gds_.openFile(path_);
        ASSERT_TRUE(gds_.is_open());
    }
    void TearDown() override { fs::remove_all(dir_); }

    Bytes bytes() {
        if (gds_.is_open()) gds_.close();
        std::ifstream in(path_, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }

    fs::path dir_;
    std::string path_;
    GdsWriter gds_;
};

// One record as a reader sees it.
struct Record {
    unsigned length;
    int type;
    int data_type;
    Bytes body;
};

std::vector<Record> records(const Bytes& b) {
    std::vector<Record> out;
    size_t pos = 0;
    while (pos + 4 <= b.size()) {
        const unsigned length = b[pos] << 8 | b[pos + 1];
        if (length < 4 || pos + length > b.size()) break;
        out.push_back(
            {length, b[pos + 2], b[pos + 3], Bytes(b.begin() + pos + 4, b.begin() + pos + length)});
        pos += length;
    }
    EXPECT_EQ(pos, b.size()) << "records do not tile the file";
    return out;
}

int int16(const Bytes& b, size_t at) {
    return static_cast<int16_t>(b[at] << 8 | b[at + 1]);
}
int int32(const Bytes& b, size_t at) {
    return static_cast<int32_t>(uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 |
                                uint32_t(b[at + 2]) << 8 | uint32_t(b[at + 3]));
}

// The format's real, decoded from its definition: (-1)^s x 0.fraction x 16^(e - 64).
double decodeReal(const Bytes& b) {
    double fraction = 0;
    for (int i = 7; i >= 1; --i) fraction = (fraction + b[i]) / 256.0;
    const double v = fraction * std::pow(16.0, (b[0] & 0x7f) - 64);
    return b[0] & 0x80 ? -v : v;
}

std::string text(const Bytes& b) {
    return std::string(b.begin(), b.end());
}

}  // namespace

TEST_F(GdsWriterTest, RealsOfTheHandEncodedValues) {
    const struct {
        double value;
        Bytes expected;
    } cases[] = {
        {1.0, {0x41, 0x10, 0, 0, 0, 0, 0, 0}},
        {0.001, {0x3E, 0x41, 0x89, 0x37, 0x4B, 0xC6, 0xA7, 0xF0}},
        {-1.0, {0xC1, 0x10, 0, 0, 0, 0, 0, 0}},
        {0.0, {0, 0, 0, 0, 0, 0, 0, 0}},
        // 0.5 = 0x0.8 x 16^0; 16 = 0x0.1 x 16^2 (the quotient of logarithms sits on the edge).
        {0.5, {0x40, 0x80, 0, 0, 0, 0, 0, 0}},
        {16.0, {0x42, 0x10, 0, 0, 0, 0, 0, 0}},
        {256.0, {0x43, 0x10, 0, 0, 0, 0, 0, 0}},
        {0.0625, {0x40, 0x10, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) gds_.writeDouble(c.value);
    const Bytes all = bytes();
    ASSERT_EQ(all.size(), 8 * std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(Bytes(all.begin() + 8 * i, all.begin() + 8 * i + 8), cases[i].expected)
            << cases[i].value;
}

TEST_F(GdsWriterTest, RealsDecodeToTheValueTruncatedToFiftySixBits) {
    const double values[] = {1e-9,   1e-3,       0.1,   1.0 / 3.0, 2.5, 15.999,
                             4096.0, 123456.789, -7.25, 1e-30,     3e20};
    for (double v : values) gds_.writeDouble(v);
    const Bytes all = bytes();
    ASSERT_EQ(all.size(), 8 * std::size(values));
    for (size_t i = 0; i < std::size(values); ++i) {
        const Bytes b(all.begin() + 8 * i, all.begin() + 8 * i + 8);
        const double v = values[i];
        EXPECT_GE(b[1], 0x10) << v << ": fraction not normalised";
        const double decoded = decodeReal(b);
        // Truncation drops less than one unit of the 56th fraction bit and never rounds up.
        const double unit = std::ldexp(std::pow(16.0, (b[0] & 0x7f) - 64), -56);
        EXPECT_LE(std::abs(decoded), std::abs(v)) << v;
        EXPECT_LT(std::abs(v - decoded), 2 * unit) << v;
        EXPECT_EQ(std::signbit(decoded), std::signbit(v)) << v;
    }
}

TEST_F(GdsWriterTest, IntegersAreBigEndian) {
    gds_.writeShort(600);
    gds_.writeShort(-2);
    gds_.writeInt(0x01020304);
    gds_.writeInt(-2);
    EXPECT_EQ(bytes(), (Bytes{0x02, 0x58, 0xFF, 0xFE, 1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFE}));
}

TEST_F(GdsWriterTest, LibraryRecordsInOrderWithEvenLengths) {
    gds_.writeGdsHead("abc", 0.001, 1e-9);
    gds_.writeBoundary(5, {{0, 0}, {10, 0}, {10, -20}, {0, 0}}, 3);
    gds_.writeText(7, 2, {-100, 2000000}, "odd");
    gds_.writeText(7, 2, {1, 2}, "even");
    gds_.writeGdsTail();
    EXPECT_FALSE(gds_.is_open());
    const std::vector<Record> r = records(bytes());

    // (type, data type, length) of each record, from the stream format's tables.
    const int expected[][3] = {
        {0, 2, 6},  {1, 2, 28}, {2, 6, 10}, {3, 5, 20},  {5, 2, 28},  {6, 6, 8},
        {8, 0, 4},  {13, 2, 6}, {14, 2, 6}, {16, 3, 36}, {17, 0, 4},  // boundary
        {12, 0, 4}, {13, 2, 6}, {22, 2, 6}, {23, 1, 6},  {16, 3, 12}, {25, 6, 8},
        {17, 0, 4}, {12, 0, 4}, {13, 2, 6}, {22, 2, 6},  {23, 1, 6},  {16, 3, 12},
        {25, 6, 8}, {17, 0, 4}, {7, 0, 4},  {4, 0, 4},
    };
    ASSERT_EQ(r.size(), std::size(expected));
    for (size_t i = 0; i < r.size(); ++i) {
        EXPECT_EQ(r[i].type, expected[i][0]) << "record " << i;
        EXPECT_EQ(r[i].data_type, expected[i][1]) << "record " << i;
        EXPECT_EQ(r[i].length, unsigned(expected[i][2])) << "record " << i;
    }

    EXPECT_EQ(int16(r[0].body, 0), 600);
    // Both time stamps of the library and the structure: this year, month 1 to 12, twice.
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    for (size_t i : {1, 4}) {
        EXPECT_NEAR(int16(r[i].body, 0), local.tm_year + 1900, 1);
        EXPECT_GE(int16(r[i].body, 2), 1);
        EXPECT_LE(int16(r[i].body, 2), 12);
        EXPECT_EQ(int16(r[i].body, 0), int16(r[i].body, 12));
    }
    EXPECT_EQ(text(r[2].body), "lvs.db");
    EXPECT_EQ(Bytes(r[3].body.begin(), r[3].body.begin() + 8),
              (Bytes{0x3E, 0x41, 0x89, 0x37, 0x4B, 0xC6, 0xA7, 0xF0}));
    EXPECT_DOUBLE_EQ(decodeReal(Bytes(r[3].body.begin() + 8, r[3].body.end())), 1e-9);
    EXPECT_EQ(r[5].body, (Bytes{'a', 'b', 'c', 0}));  // odd name padded with a NUL

    EXPECT_EQ(int16(r[7].body, 0), 5);
    EXPECT_EQ(int16(r[8].body, 0), 3);
    const int xy[] = {0, 0, 10, 0, 10, -20, 0, 0};
    for (int k = 0; k < 8; ++k) EXPECT_EQ(int32(r[9].body, 4 * k), xy[k]) << k;

    EXPECT_EQ(int16(r[12].body, 0), 7);
    EXPECT_EQ(int16(r[13].body, 0), 2);
    EXPECT_EQ(int16(r[14].body, 0), 8);
    EXPECT_EQ(int32(r[15].body, 0), -100);
    EXPECT_EQ(int32(r[15].body, 4), 2000000);
    EXPECT_EQ(r[16].body, (Bytes{'o', 'd', 'd', 0}));  // a conforming record: padded too
    EXPECT_EQ(text(r[23].body), "even");
}

// Property values keep the last digit before the point of a value above 10 (KLayout reads the
// records back in the tool tests).
TEST(GdsPropertyValue, TableOfValues) {
    const struct {
        double value;
        const char* text;
    } cases[] = {{10.5, "0.5000000"}, {10.0, "10.000000"},  {123.0, "3.0000000"},
                 {12.5, "2.5000000"}, {99.99, "9.9900000"}, {-1.5, "-1.500000"},
                 {0.25, "0.2500000"}, {0.0, "0.0000000"}};
    for (const auto& c : cases) {
        const std::string v = GdsWriter::propertyValue(c.value);
        ASSERT_EQ(v.size(), 10u) << c.value;
        EXPECT_EQ(v, std::string(c.text) + '\0') << c.value;
    }
}

TEST_F(GdsWriterTest, BoundaryOfTooManyPointsIsRefusedBeforeWriting) {
    std::vector<Point2D> points(GdsWriter::kMaxPoints);
    for (size_t i = 0; i < points.size(); ++i) points[i] = {int(i), int(i % 2)};
    gds_.writeBoundary(1, points, 0);
    gds_.flush();
    const auto written = fs::file_size(path_);
    points.emplace_back(0, 0);
    EXPECT_THROW(gds_.writeBoundary(1, points, 0), std::length_error);
    EXPECT_THROW(gds_.writeBoundaryWithThickness(1, points, 1, 2, 3, 0), std::length_error);

    const std::vector<Record> r = records(bytes());
    EXPECT_EQ(fs::file_size(path_), written);
    ASSERT_EQ(r.size(), 5u);
    // The largest record the 16-bit length allows: 8 x 8191 + 4.
    EXPECT_EQ(r[3].length, 65532u);
    EXPECT_EQ(int32(r[3].body, 8 * 8190), 8190);
}
