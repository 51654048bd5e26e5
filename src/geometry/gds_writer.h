#pragma once
// A GDSII stream writer: polygons and text labels, written record by record straight through
// the file stream, for looking at what the tool built in a layout viewer.

#include <fstream>
#include <string>
#include <utility>
#include <vector>

// x then y, in database units.
using Point2D = std::pair<int, int>;

class GdsWriter : public std::ofstream {
public:
    // The most points one XY record holds: 8 bytes a point plus the 4-byte head must fit the
    // 16-bit record length (8 x 8191 + 4 = 65532).
    static constexpr size_t kMaxPoints = 8191;

    // Opens `path` for binary output; failure leaves the stream in its fail state.
    void openFile(const std::string& path);

    // Write a big-endian 16-bit and 32-bit integer.
    void writeShort(short value);
    void writeInt(int value);
    // Writes the format's 8-byte real: sign bit, excess-64 exponent to base 16, 56-bit fraction
    // truncated (not rounded). Zero is eight zero bytes.
    void writeDouble(double value);
    // Writes a record head; `length` counts the head's own 4 bytes.
    void writeRecHead(short length, char record_type, char data_type);

    // Writes the library head (HEADER, BGNLIB, LIBNAME "lvs.db", UNITS) and opens the first
    // structure. `user_unit` is the database unit in user units, `db_unit` in metres. Throws
    // std::length_error when the name does not fit one record.
    void writeGdsHead(const std::string& structure_name, double user_unit, double db_unit);
    // Closes the current structure and opens another in the same library; throws as
    // writeGdsHead for the name.
    void writeNextStructure(const std::string& structure_name);
    // Writes a text label. Throws std::length_error when the text does not fit one record.
    void writeText(int layer, int text_type, Point2D position, const std::string& text);
    // Writes a polygon; `points` go out as given, so the caller closes the contour. Throws
    // std::length_error, before writing anything, for more than kMaxPoints points.
    void writeBoundary(int layer, const std::vector<Point2D>& points, int data_type);
    // As writeBoundary, with the properties 100, 101, 102 holding a, b, c as text (a value above
    // 10 keeps only its last digit before the point).
    void writeBoundaryWithThickness(int layer, std::vector<Point2D> points, double a, double b,
                                    double c, int data_type);
    // Places structure `name` with its origin at `position` (an SREF element).
    void writeReference(const std::string& name, Point2D position);
    // Closes the structure and the library, then the stream; a failed close sets the fail state.
    void writeGdsTail();

    // Returns the 10 bytes of a property value of writeBoundaryWithThickness.
    static std::string propertyValue(double value);

private:
    void writeBoundaryRecords(int layer, const std::vector<Point2D>& points, int data_type);
    void writeTimeStamp();
    // Writes a record holding `text`, padded with a NUL to even length.
    void writeStringRecord(char record_type, const std::string& text);
    void writeStructureHead(const std::string& structure_name);
};
