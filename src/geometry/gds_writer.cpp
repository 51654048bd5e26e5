#include "geometry/gds_writer.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace {

// Record types of the stream format.
enum Record : char {
    HEADER = 0,
    BGNLIB = 1,
    LIBNAME = 2,
    UNITS = 3,
    ENDLIB = 4,
    BGNSTR = 5,
    STRNAME = 6,
    ENDSTR = 7,
    BOUNDARY = 8,
    SREF = 10,
    TEXT = 12,
    LAYER = 13,
    DATATYPE = 14,
    XY = 16,
    ENDEL = 17,
    SNAME = 18,
    TEXTTYPE = 22,
    PRESENTATION = 23,
    STRING = 25,
    PROPATTR = 43,
    PROPVALUE = 44,
};

// Data types of the stream format.
enum Data : char { NO_DATA = 0, BIT_ARRAY = 1, INT16 = 2, INT32 = 3, REAL8 = 5, ASCII = 6 };

constexpr size_t kMaxRecord = 65535;

// The record head's length field is 16 bits; the writer passes the bit pattern through a short.
short recordLength(size_t length) {
    return static_cast<short>(static_cast<uint16_t>(length));
}

}  // namespace

void GdsWriter::openFile(const std::string& path) {
    open(path, std::ios::out | std::ios::binary | std::ios::trunc);
}

void GdsWriter::writeShort(short value) {
    const auto v = static_cast<uint16_t>(value);
    put(static_cast<char>(v >> 8));
    put(static_cast<char>(v & 0xff));
}

void GdsWriter::writeInt(int value) {
    const auto v = static_cast<uint32_t>(value);
    for (int shift = 24; shift >= 0; shift -= 8) put(static_cast<char>((v >> shift) & 0xff));
}

void GdsWriter::writeDouble(double value) {
    unsigned char bytes[8] = {};
    if (value != 0.0) {
        if (value < 0) {
            bytes[0] = 0x80;
            value = -value;
        }
        int e = static_cast<int>(std::log(value) / 2.772588722239781);
        double m = value / std::pow(16.0, e);
        // One step corrects the truncated logarithm; the loops also keep the fraction
        // normalised, in [1/16, 1), should the quotient round across an integer.
        while (m < 0.0625) {
            m *= 16;
            e -= 1;
        }
        while (m >= 1.0) {
            m *= 0.0625;
            e += 1;
        }
        bytes[0] |= static_cast<unsigned char>((e + 64) & 0x7f);
        double bit = 1.0;
        for (int k = 1; k <= 56; ++k) {
            bit *= 0.5;
            if (m >= bit) {
                bytes[1 + (k - 1) / 8] |= static_cast<unsigned char>(0x80 >> ((k - 1) % 8));
                m -= bit;
            }
        }
    }
    write(reinterpret_cast<const char*>(bytes), 8);
}

void GdsWriter::writeRecHead(short length, char record_type, char data_type) {
    writeShort(length);
    put(record_type);
    put(data_type);
}

void GdsWriter::writeTimeStamp() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const short fields[6] = {
        static_cast<short>(local.tm_year + 1900), static_cast<short>(local.tm_mon + 1),
        static_cast<short>(local.tm_mday),        static_cast<short>(local.tm_hour),
        static_cast<short>(local.tm_min),         static_cast<short>(local.tm_sec)};
    // Modification time, then access time: both are now.
    for (int twice = 0; twice < 2; ++twice)
        for (short f : fields) writeShort(f);
}

void GdsWriter::writeStringRecord(char record_type, const std::string& text) {
    // A record's length must be even, so a string of odd length gets a trailing NUL; readers
    // drop it. (A record of odd length is rejected by conforming readers.)
    const size_t padded = text.size() + text.size() % 2;
    if (padded + 4 > kMaxRecord)
        throw std::length_error("GdsWriter: a string of " + std::to_string(text.size()) +
                                " bytes does not fit one record");
    writeRecHead(recordLength(padded + 4), record_type, ASCII);
    write(text.data(), static_cast<std::streamsize>(text.size()));
    if (padded != text.size()) put('\0');
}

void GdsWriter::writeStructureHead(const std::string& structure_name) {
    writeRecHead(28, BGNSTR, INT16);
    writeTimeStamp();
    writeStringRecord(STRNAME, structure_name);
}

void GdsWriter::writeGdsHead(const std::string& structure_name, double user_unit, double db_unit) {
    writeRecHead(6, HEADER, INT16);
    writeShort(600);
    writeRecHead(28, BGNLIB, INT16);
    writeTimeStamp();
    writeStringRecord(LIBNAME, "lvs.db");
    writeRecHead(20, UNITS, REAL8);
    writeDouble(user_unit);
    writeDouble(db_unit);
    writeStructureHead(structure_name);
}

void GdsWriter::writeNextStructure(const std::string& structure_name) {
    writeRecHead(4, ENDSTR, NO_DATA);
    writeStructureHead(structure_name);
}

void GdsWriter::writeText(int layer, int text_type, Point2D position, const std::string& text) {
    if (text.size() + 4 > kMaxRecord)
        throw std::length_error("GdsWriter: a text of " + std::to_string(text.size()) +
                                " bytes does not fit one record");
    writeRecHead(4, TEXT, NO_DATA);
    writeRecHead(6, LAYER, INT16);
    writeShort(static_cast<short>(layer));
    writeRecHead(6, TEXTTYPE, INT16);
    writeShort(static_cast<short>(text_type));
    writeRecHead(6, PRESENTATION, BIT_ARRAY);
    writeShort(8);
    writeRecHead(12, XY, INT32);
    writeInt(position.first);
    writeInt(position.second);
    writeStringRecord(STRING, text);
    writeRecHead(4, ENDEL, NO_DATA);
}

void GdsWriter::writeBoundaryRecords(int layer, const std::vector<Point2D>& points, int data_type) {
    if (points.size() > kMaxPoints)
        throw std::length_error("GdsWriter: a boundary of " + std::to_string(points.size()) +
                                " points exceeds the " + std::to_string(kMaxPoints) +
                                " of one record");
    writeRecHead(4, BOUNDARY, NO_DATA);
    writeRecHead(6, LAYER, INT16);
    writeShort(static_cast<short>(layer));
    writeRecHead(6, DATATYPE, INT16);
    writeShort(static_cast<short>(data_type));
    writeRecHead(recordLength(8 * points.size() + 4), XY, INT32);
    for (const Point2D& p : points) {
        writeInt(p.first);
        writeInt(p.second);
    }
}

void GdsWriter::writeBoundary(int layer, const std::vector<Point2D>& points, int data_type) {
    writeBoundaryRecords(layer, points, data_type);
    writeRecHead(4, ENDEL, NO_DATA);
}

std::string GdsWriter::propertyValue(double value) {
    if (value > 10.0) value -= 10.0 * std::trunc(value / 10.0);
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%1.7f", value);
    std::string text(buffer);
    text.resize(9, '\0');
    text.push_back('\0');
    return text;
}

void GdsWriter::writeBoundaryWithThickness(int layer, std::vector<Point2D> points, double a,
                                           double b, double c, int data_type) {
    writeBoundaryRecords(layer, points, data_type);
    const double values[3] = {a, b, c};
    for (int i = 0; i < 3; ++i) {
        writeRecHead(6, PROPATTR, INT16);
        writeShort(static_cast<short>(100 + i));
        writeRecHead(14, PROPVALUE, ASCII);
        const std::string text = propertyValue(values[i]);
        write(text.data(), 10);
    }
    writeRecHead(4, ENDEL, NO_DATA);
}

void GdsWriter::writeReference(const std::string& name, Point2D position) {
    writeRecHead(4, SREF, NO_DATA);
    writeStringRecord(SNAME, name);
    writeRecHead(12, XY, INT32);
    writeInt(position.first);
    writeInt(position.second);
    writeRecHead(4, ENDEL, NO_DATA);
}

void GdsWriter::writeGdsTail() {
    writeRecHead(4, ENDSTR, NO_DATA);
    writeRecHead(4, ENDLIB, NO_DATA);
    close();
}
