#include "process_effects/clip_box.h"

#include "process_effects/polygon_store.h"

using process_effects::PolygonStore;

ClipBox::ClipBox(int64_t x_low, int64_t x_high, int64_t y_low, int64_t y_high)
    : x_low(x_low), x_high(x_high), y_low(y_low), y_high(y_high) {}

ClipBox::~ClipBox() = default;
ClipBox::ClipBox(ClipBox&&) noexcept = default;
ClipBox& ClipBox::operator=(ClipBox&&) noexcept = default;

ClipBox::ClipBox(const ClipBox& other)
    : x_low(other.x_low), x_high(other.x_high), y_low(other.y_low), y_high(other.y_high) {}

ClipBox& ClipBox::operator=(const ClipBox& other) {
    x_low = other.x_low, x_high = other.x_high, y_low = other.y_low, y_high = other.y_high;
    scanner_.reset();
    return *this;
}

void ClipBox::addPolygon(const LayoutPolygon& ring) {
    if (!scanner_) scanner_ = std::make_unique<PolygonStore>();
    scanner_->add(ring);
}

void ClipBox::addPolygonWithHoles(const LayoutPolygonSet& rings) {
    if (!scanner_) scanner_ = std::make_unique<PolygonStore>();
    scanner_->add(rings);
}

double ClipBox::polygonArea() const {
    if (!scanner_) return 0.0;
    return static_cast<double>(scanner_->coveredArea2({x_low, x_high, y_low, y_high})) / 2.0;
}

size_t ClipBox::polygonCount() const {
    return scanner_ ? scanner_->size() : 0;
}

void ClipBox::releasePolygons() {
    scanner_.reset();
}

double ClipBox::boxArea() const {
    if (x_high <= x_low || y_high <= y_low) return 0.0;
    return static_cast<double>(x_high - x_low) * static_cast<double>(y_high - y_low);
}
