// Random source of one walker: a 32-bit Mersenne twister with a uniform distribution over it.
// The table fitter and samplers draw through it; its draw order is part of a walk's result.
#pragma once

#include <cstdint>
#include <random>

namespace RW2D {

class RandGen {
public:
  std::mt19937 engine;
  std::uniform_real_distribution<double> dist;

  // Seeds the engine by the standard recurrence; uniform() then lies in [a, b).
  explicit RandGen(std::uint32_t seed, double a = 0.0, double b = 1.0) : engine(seed), dist(a, b) {}

  // Returns a + (b - a) * canonical.
  double uniform() { return dist(engine); }
  // Returns the low bit of the engine's next output.
  int bit() { return static_cast<int>(engine() & 1u); }
};

}  // namespace RW2D
