#include "patterns/parameters.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "runtime/failure.h"

namespace KARVEN {

bool nestingWithin(const json& value, size_t limit) {
    std::vector<std::pair<const json*, size_t>> open{{&value, 0}};
    while (!open.empty()) {
        const auto [v, depth] = open.back();
        open.pop_back();
        if (!v->is_structured()) continue;
        if (depth >= limit) return false;
        for (const json& element : *v) open.emplace_back(&element, depth + 1);
    }
    return true;
}

std::string shortJson(const json& value) {
    if (value.is_structured()) {
        for (const json& element : value)
            if (element.is_structured()) return std::string("a nested ") + value.type_name();
    }
    const std::string text = value.dump();
    return text.size() > 80 ? text.substr(0, 77) + "..." : text;
}

std::string closestName(const std::string& name, const std::vector<std::string>& known) {
    std::string best;
    size_t best_distance = std::string::npos;
    for (const std::string& candidate : known) {
        // Levenshtein distance, one row at a time.
        std::vector<size_t> row(candidate.size() + 1);
        for (size_t j = 0; j < row.size(); ++j) row[j] = j;
        for (size_t i = 1; i <= name.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i;
            for (size_t j = 1; j <= candidate.size(); ++j) {
                const size_t above = row[j];
                const size_t substitute = diagonal + (name[i - 1] == candidate[j - 1] ? 0 : 1);
                row[j] = std::min({above + 1, row[j - 1] + 1, substitute});
                diagonal = above;
            }
        }
        if (row.back() < best_distance) {
            best_distance = row.back();
            best = candidate;
        }
    }
    return best;
}

namespace {

// A bound as a user writes it: whole numbers without a decimal point.
std::string number(double d) {
    if (d == std::trunc(d) && std::fabs(d) < 1e15) return std::to_string(static_cast<long long>(d));
    return json(d).dump();
}

[[noreturn]] void rejectValue(const std::string& key, const json& value,
                              const std::string& allowed) {
    throw FatalError("Error: parameter \"" + key + "\" = " + shortJson(value) +
                     " in \"Random\": must be " + allowed);
}

bool isWhole(const json& v) {
    if (v.is_number_integer()) return true;
    if (!v.is_number_float()) return false;
    const double d = v.get<double>();
    return std::isfinite(d) && d == std::trunc(d);
}

bool isFinite(const json& v) {
    return v.is_number() && std::isfinite(v.get<double>());
}

void wholeInRange(const std::string& key, const json& v, double lo, double hi) {
    if (!isWhole(v) || v.get<double>() < lo || v.get<double>() > hi) {
        rejectValue(key, v, "a whole number from " + number(lo) + " to " + number(hi));
    }
}

void numberInRange(const std::string& key, const json& v, double lo, double hi) {
    if (!isFinite(v) || v.get<double>() < lo || v.get<double>() > hi)
        rejectValue(key, v, "a number from " + number(lo) + " to " + number(hi));
}

// A width that is either negative (worked out by the generator) or positive and bounded.
void widthOrAutomatic(const std::string& key, const json& v, const std::string& negative) {
    if (!isFinite(v) || v.get<double>() == 0.0 || v.get<double>() > kMaxWindow) {
        rejectValue(key, v,
                    "a negative number (" + negative + ") or a width above 0 and at most " +
                        number(kMaxWindow));
    }
}

}  // namespace

void checkParameterFile(const json& params, const std::string& path) {
    if (!params.is_object()) {
        throw FatalError("Error: parameter file " + path +
                         " must hold a JSON object such as {\"Random\": {\"nsamples\": 10}}, not "
                         "a value of type " +
                         params.type_name());
    }
    const std::vector<std::string> families = PatternFactory::names();
    for (const auto& [key, value] : params.items()) {
        if (std::find(families.begin(), families.end(), key) == families.end()) {
            std::cerr << "Warning: unknown key \"" << key << "\" in parameter file " << path
                      << "; did you mean \"" << closestName(key, families) << "\"?" << std::endl;
        }
        if (!value.is_object()) {
            throw FatalError("Error: parameter file " + path + ": the value of \"" + key +
                             "\" must be a JSON object, not a value of type " + value.type_name());
        }
    }
}

void checkRandomParameters(const json& params) {
    static const std::vector<std::string> known = {
        "structure_input", "nsamples", "nlayers",          "poisson_lambda", "exponent_base",
        "fixed_layers",    "window",   "conductor_window", "window_layer",   "solve_plate_row"};
    if (!params.is_object()) {
        throw FatalError(std::string("Error: the \"Random\" parameters must be a JSON object, not "
                                     "a value of type ") +
                         params.type_name());
    }
    for (const auto& [key, value] : params.items()) {
        if (key == "structure_input" || key == "window_layer") {
            if (!value.is_string()) rejectValue(key, value, "a string");
        } else if (key == "solve_plate_row") {
            if (!value.is_boolean()) rejectValue(key, value, "true or false");
        } else if (key == "nsamples") {
            wholeInRange(key, value, 0, kMaxSamples);
        } else if (key == "nlayers") {
            wholeInRange(key, value, 1, 1000);
        } else if (key == "poisson_lambda") {
            numberInRange(key, value, 0, 50);
        } else if (key == "exponent_base") {
            numberInRange(key, value, 0, 1);
        } else if (key == "fixed_layers") {
            if (!value.is_array()) rejectValue(key, value, "an array of usable layer indices");
            for (const json& entry : value) {
                if (!isWhole(entry) || entry.get<double>() < 0 || entry.get<double>() > 1e6)
                    rejectValue(key, value, "an array of usable layer indices (0 and up)");
            }
        } else if (key == "window") {
            widthOrAutomatic(key, value, "twice the conductor window");
        } else if (key == "conductor_window") {
            widthOrAutomatic(key, value, "found automatically");
        } else {
            std::cerr << "Warning: unknown key \"" << key
                      << "\" in \"Random\" of the parameter file; did you mean \""
                      << closestName(key, known) << "\"?" << std::endl;
        }
    }
}

}  // namespace KARVEN
