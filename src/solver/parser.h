#pragma once
// Text forms of a structure: the structure file read by the file route, the ref text that the
// reference solver reads, and the scan of that solver's output.

#include <array>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "solver/shapes.h"

namespace RW2D {

// One object of a structure text.
struct Object {
    enum Type : std::uint32_t { MEDIUM = 0, CONFIGURATION = 1, CONDUCTOR = 2, WINDOW = 3 };
    std::uint32_t type = MEDIUM;
    std::string name;
    double value = 0.0;  // relative permittivity of a medium, potential of a conductor
    std::array<Vector2D, 4> points{};  // p0 bottom-left, p1 bottom-right, p2 top-right, p3 top-left
    double radius = 0.0;
    bool is_circle = false;
};

// "(Object)" kind, name, value and the four points.
std::ostream& operator<<(std::ostream& os, const Object& o);

// Reads a quad: a count c >= 1, then c pairs x y. Collapses the polygon to the trapezoid between
// its lowest and highest y (keyed on a 1e-6 grid), with the extreme x at each. Returns a new
// object owned by the caller, or nullptr when the count or a number cannot be read.
Object* parse_quad(std::istream& in);

// Reads a structure file: master, conductors, dielectrics, window. Returns owned objects in the
// order master (value 1), other conductors (value 0), window, background copy of the window
// (medium, value -1), dielectrics. An unreadable file prints "Error: Failed to open <path>" on
// standard error and ends the process with status 0; a malformed one raises a solver error.
std::vector<Object*> parse_structure_text(const std::string& path);

// ref text of one object: a BOX when the object is an axis-parallel rectangle, else a POLY.
std::string format_ref(const Object* o, const std::string& name, const std::string& suffix);

// Writes the ref text of a structure file to out_path (grid size left as a placeholder). An
// output that cannot be opened prints "Dump to ref file parser" on standard error and goes on.
void parse_to_ref(const std::string& in_path, const std::string& out_path);

// ref text of an in-memory structure: window, layer bands, dielectrics, wires (cond0 at 1 V),
// the grid options and the tolerance |precision*100|. Never fails.
std::string ref_text(const std::vector<Rectangle>& wires,
                     const std::vector<std::array<double, 2>>& layers,
                     const std::vector<std::pair<double, Rectangle>>& dielectrics,
                     const Rectangle& window, double precision);

// Charges of the reference solver's output, in fF per unit length, one slot per wire (0.0 where
// no "Charge on cond<i> ... = <q>" line names it). Throws std::invalid_argument or
// std::out_of_range on an unreadable number or an index of no wire.
std::vector<double> scan_ref_charges(const std::string& output, std::size_t wires);

}  // namespace RW2D
