// Random source of one walker: a 32-bit Mersenne twister with a uniform distribution over it.
// The table fitter and samplers draw through it; its draw order is part of a walk's result.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace RW2D {

// The standard 32-bit Mersenne twister, output for output the same as std::mt19937, held in
// 32-bit words (the library's keeps 64-bit ones) and refilled without branches: a hop makes five
// to seven draws, and the library engine was a quarter of a hop's instructions.
class mt19937_32 {
public:
    using result_type = std::uint32_t;
    static constexpr int N = 624;
    static constexpr int M = 397;

    static constexpr result_type min() { return 0u; }
    static constexpr result_type max() { return 0xffffffffu; }

    // Seeds by the standard recurrence.
    explicit mt19937_32(result_type seed = 5489u) {
        x_[0] = seed;
        for (int i = 1; i < N; ++i)
            x_[i] = 1812433253u * (x_[i - 1] ^ (x_[i - 1] >> 30)) + static_cast<result_type>(i);
        p_ = N;
    }

    // Returns the next 32-bit output.
    result_type operator()() {
        if (p_ >= N) refill();
        result_type z = x_[p_++];
        z ^= z >> 11;
        z ^= (z << 7) & 0x9d2c5680u;
        z ^= (z << 15) & 0xefc60000u;
        z ^= z >> 18;
        return z;
    }

    // Equal states give equal futures.
    bool operator==(const mt19937_32& o) const {
        return p_ == o.p_ && std::equal(x_, x_ + N, o.x_);
    }

private:
    result_type x_[N];
    int p_;

    static result_type twist(result_type hi, result_type lo, result_type far) {
        const result_type y = (hi & 0x80000000u) | (lo & 0x7fffffffu);
        return far ^ (y >> 1) ^ ((0u - (y & 1u)) & 0x9908b0dfu);
    }
    void refill() {
        for (int k = 0; k < N - M; ++k) x_[k] = twist(x_[k], x_[k + 1], x_[k + M]);
        for (int k = N - M; k < N - 1; ++k) x_[k] = twist(x_[k], x_[k + 1], x_[k + M - N]);
        x_[N - 1] = twist(x_[N - 1], x_[0], x_[M - 1]);
        p_ = 0;
    }
};

class RandGen {
public:
    mt19937_32 engine;
    double a, b;

    // Seeds the engine by the standard recurrence; uniform() then lies in [a, b).
    explicit RandGen(std::uint32_t seed, double lo = 0.0, double hi = 1.0)
        : engine(seed), a(lo), b(hi) {}

    // Returns a + (b - a) * canonical, where canonical takes two outputs, low word first, as the
    // standard generate_canonical<double, 53> does on a 32-bit engine.
    double uniform() {
        double sum = static_cast<double>(engine());
        sum += static_cast<double>(engine()) * 4294967296.0;
        double c = sum / 18446744073709551616.0;
        if (c >= 1.0) c = std::nextafter(1.0, 0.0);
        return c * (b - a) + a;
    }
    // Returns the low bit of the engine's next output.
    int bit() { return static_cast<int>(engine() & 1u); }
};

}  // namespace RW2D
