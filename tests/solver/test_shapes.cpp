// Shapes, the settings record and the fatal-error channel of the solver.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "runtime/failure.h"
#include "solver/shapes.h"

namespace karven_test {

// Runs fn in a child process with standard output captured; returns {exit status or -signal,
// output}. A FatalError ends the child with status 1, as the tool's main does. Shared with the
// other solver test files.
std::pair<int, std::string> run_in_child(const std::function<void()>& fn) {
    int fds[2];
    if (pipe(fds) != 0) return {-1000, ""};
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(fds[1], STDOUT_FILENO);
        try {
            fn();
        } catch (const KARVEN::FatalError&) {
            std::fflush(stdout);
            _exit(1);
        }
        std::fflush(stdout);
        _exit(77);  // fn was expected not to return
    }
    close(fds[1]);
    std::string out;
    char buf[256];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<std::size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) return {WEXITSTATUS(status), out};
    return {-WTERMSIG(status), out};
}

}  // namespace karven_test

using namespace RW2D;
using karven_test::run_in_child;

namespace {

// Staircase of three slices narrowing upward: [0,6]x[0,1], [1,5]x[1,2], [2,4]x[2,3].
Trapezoid staircase() {
    Trapezoid t;
    t.add_slice(new Rectangle(0, 6, 1, 0));
    t.add_slice(new Rectangle(1, 5, 2, 1));
    t.add_slice(new Rectangle(2, 4, 3, 2));
    return t;
}

}  // namespace

TEST(SolverShapes, RectangleDistancesAreSignedAndClassified) {
    const Rectangle r(0, 4, 2, 0);  // left, right, top, bottom
    // {point, Chebyshev distance, class, Euclidean distance}. Inside, both give minus the nearest
    // side; outside diagonally the larger axis gap (3 up, 2 right) against the corner's 3.6.
    struct Case {
        Vector2D p;
        double cheb;
        int side;
        double eu;
    };
    for (const Case& c :
         {Case{{2, 1}, -1.0, SIDE_INSIDE, -1.0}, Case{{0.5, 1}, -0.5, SIDE_INSIDE, -0.5},
          Case{{6, 5}, 3.0, SIDE_OUTSIDE, std::sqrt(13.0)}, Case{{7, 6}, 4.0, SIDE_OUTSIDE, 5.0},
          Case{{2, -3}, 3.0, SIDE_OUTSIDE, 3.0}, Case{{4, 1}, 0.0, SIDE_BOUNDARY, 0.0},
          Case{{4, 2}, 0.0, SIDE_BOUNDARY, 0.0}}) {
        SCOPED_TRACE(testing::Message() << c.p.x << "," << c.p.y);
        EXPECT_DOUBLE_EQ(r.distance(c.p), c.cheb);
        EXPECT_DOUBLE_EQ(r.distance_eu(c.p), c.eu);
        double d = -7, e = -7;
        EXPECT_EQ(r.distance(c.p, d), c.side);
        EXPECT_EQ(r.distance_eu(c.p, e), c.side);
        EXPECT_DOUBLE_EQ(d, std::fabs(c.cheb));  // the classifying forms give the magnitude
        EXPECT_DOUBLE_EQ(e, std::fabs(c.eu));
    }
    // The boundary is 1e-8 thick on either side.
    double d;
    EXPECT_EQ(r.distance(Vector2D{4 + 5e-9, 1}, d), SIDE_BOUNDARY);
    EXPECT_EQ(r.distance(Vector2D{4 - 5e-9, 1}, d), SIDE_BOUNDARY);
    EXPECT_EQ(r.distance(Vector2D{4 + 2e-8, 1}, d), SIDE_OUTSIDE);
    EXPECT_NEAR(d, 2e-8, 1e-15);
}

TEST(SolverShapes, TrapezoidDistancesAreNeverNegative) {
    const Trapezoid t = staircase();
    EXPECT_EQ(t.kind, Shape::KIND_TRAPEZOID);
    EXPECT_EQ(std::vector<double>({t.box_left, t.box_bottom, t.box_right, t.box_top}),
              std::vector<double>({0, 0, 6, 3}));
    EXPECT_EQ(t.distance(Vector2D{3, 0.5}), 0.0);  // deep inside: 0, not -0.5
    EXPECT_EQ(t.distance(Vector2D{3, 2.5}), 0.0);
    // Beside the top step (x = 0.5, y = 2.5): the bottom slice is 1.5 below, the middle 0.5
    // left-right and 0.5 up, the top slice 1.5 to the side; the nearest is 0.5.
    EXPECT_DOUBLE_EQ(t.distance(Vector2D{0.5, 2.5}), 0.5);
    EXPECT_DOUBLE_EQ(t.distance(Vector2D{3, 4}), 1.0);

    double d;
    EXPECT_EQ(t.distance(Vector2D{3, 0.5}, d), SIDE_INSIDE);
    EXPECT_DOUBLE_EQ(d, 0.5);
    EXPECT_EQ(t.distance(Vector2D{4.5, 1.5}, d), SIDE_INSIDE);  // only in the middle slice
    EXPECT_DOUBLE_EQ(d, 0.5);
    EXPECT_EQ(t.distance(Vector2D{5, 1.5}, d), SIDE_BOUNDARY);  // right side of the middle slice
    EXPECT_EQ(t.distance(Vector2D{0.5, 2.5}, d), SIDE_OUTSIDE);
    EXPECT_DOUBLE_EQ(d, 0.5);
}

TEST(SolverShapes, FatalErrorsPrintRedLineAndFail) {
    EXPECT_EQ(run_in_child([] {
                  double d;
                  Trapezoid().distance(Vector2D{0, 0}, d);
              }),
              std::make_pair(1, std::string("\033[31m[ERROR]trapezoid empty\033[0m\n")));
    EXPECT_EQ(run_in_child([] {
                  staircase().distance_eu(Vector2D{0, 0});
              }),
              std::make_pair(1, std::string("\033[31m[ERROR]not implemented\033[0m\n")));
}
