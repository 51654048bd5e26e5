#include "patterns/digest.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace KARVEN {

namespace {

constexpr std::array<uint32_t, 64> kRound = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t rotr(uint32_t x, int n) {
    return (x >> n) | (x << (32 - n));
}

// The running state of one digest, fed in 64-byte blocks.
class Sha256 {
public:
    void update(const char* data, size_t size) {
        for (size_t i = 0; i < size; ++i) {
            block_[fill_++] = static_cast<uint8_t>(data[i]);
            if (fill_ == 64) compress();
        }
        length_ += size;
    }

    std::string hex() {
        const uint64_t bits = length_ * 8;
        const char one = static_cast<char>(0x80), zero = 0;
        update(&one, 1);
        while (fill_ != 56) update(&zero, 1);
        for (int i = 7; i >= 0; --i) {
            const char byte = static_cast<char>((bits >> (8 * i)) & 0xff);
            update(&byte, 1);
        }
        static const char digits[] = "0123456789abcdef";
        std::string out;
        for (uint32_t word : state_)
            for (int shift = 28; shift >= 0; shift -= 4) out += digits[(word >> shift) & 0xf];
        return out;
    }

private:
    void compress() {
        std::array<uint32_t, 64> w{};
        for (int t = 0; t < 16; ++t) {
            w[t] = uint32_t{block_[4 * t]} << 24 | uint32_t{block_[4 * t + 1]} << 16 |
                   uint32_t{block_[4 * t + 2]} << 8 | uint32_t{block_[4 * t + 3]};
        }
        for (int t = 16; t < 64; ++t) {
            const uint32_t s0 = rotr(w[t - 15], 7) ^ rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
            const uint32_t s1 = rotr(w[t - 2], 17) ^ rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
            w[t] = w[t - 16] + s0 + w[t - 7] + s1;
        }
        auto [a, b, c, d, e, f, g, h] = state_;
        for (int t = 0; t < 64; ++t) {
            const uint32_t t1 = h + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + kRound[t] + w[t];
            const uint32_t t2 =
                (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
            h = g;
            g = f;
            f = e;
            e = d + t1;
            d = c;
            c = b;
            b = a;
            a = t1 + t2;
        }
        const std::array<uint32_t, 8> add = {a, b, c, d, e, f, g, h};
        for (int i = 0; i < 8; ++i) state_[i] += add[i];
        fill_ = 0;
    }

    std::array<uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<uint8_t, 64> block_{};
    size_t fill_ = 0;
    uint64_t length_ = 0;
};

}  // namespace

std::string sha256Hex(const std::string& bytes) {
    Sha256 digest;
    digest.update(bytes.data(), bytes.size());
    return digest.hex();
}

std::string sha256File(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("Unable to open file " + path);
    Sha256 digest;
    char buffer[1 << 16];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        digest.update(buffer, static_cast<size_t>(in.gcount()));
        if (!in) break;
    }
    if (in.bad()) throw std::runtime_error("Unable to read file " + path);
    return digest.hex();
}

}  // namespace KARVEN
