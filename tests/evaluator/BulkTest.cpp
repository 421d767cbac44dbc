// Bulk calls against their loop: random texts from the grammar over random columns, and the
// edges a host meets: strides, stride 0, in-place output, refused arguments, failures.
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "BulkDifferential.h"
#include "TestSupport.h"

TEST(Bulk, AgreesWithItsLoop) {
    texts::Grammar grammar(20261125);
    diff::BulkDifferential d(77);
    for (int i = 0; i < 1500; ++i) {
        d.Change(grammar.Next());
        const diff::BulkCase c = diff::DrawBulkCase(grammar);
        ASSERT_EQ(d.Run(c), "");
    }
}

// The formulas hosts run over their elements, each by blocks, with faults placed at the first,
// a middle and the last element of a block and of the call.
TEST(Bulk, FormulasAgreeWithTheLoopAtEveryFault) {
    const char* const formulas[] = {"x + a",
                                    "(a + x / a) * (x - a / x)",
                                    "(5.5 + x) + (2 * x - 2 / 3 * a) * (x / 3 + a / 4) + (a + 7.7)",
                                    "sin(2 * x) + cos(pi() / a)",
                                    "sqrt(x) * 2 - log(x + 1)",
                                    "(x < a) @@ (x >= 0.5) || !(x == a) - -x",
                                    "max(x, b, 1 / x) + eval(x > 1, x, a)",
                                    "x",
                                    "a * 2",
                                    "7"};
    const std::size_t faults[] = {0, 1, 100, 255, 256, 511, 8999};
    diff::BulkDifferential d(3);
    for (const char* formula : formulas) {
        for (const std::size_t fault : faults) {
            for (const double bad : {0.0, -1.0}) {
                for (unsigned int threads : {1u, 3u}) {
                    diff::BulkCase c;
                    c.Text = formula;
                    c.ErrorText = " [row]";
                    c.Columns = {{"x", 8}};
                    c.Count = 9000;
                    c.Threads = threads;
                    c.InPlace = threads == 3;
                    c.Values = static_cast<std::uint32_t>(fault);
                    c.Placed = {{fault, bad}, {fault + 300, bad}};
                    SCOPED_TRACE(std::string(formula) + " fault at " + std::to_string(fault));
                    ASSERT_EQ(d.Run(c), "");
                }
            }
        }
    }
}

// What the host's memory looks like to a bulk call: a stride in bytes reads members of packed
// structs, stride 0 repeats one value, and the output may be exactly a column.
TEST(Bulk, ReadsStridesAndWritesInPlace) {
#pragma pack(push, 1)
    struct Particle {
        char Tag;
        double Mass;
        double Speed;
    };
#pragma pack(pop)
    Particle particles[300];
    for (int i = 0; i < 300; ++i) particles[i] = {'p', 1.0 + i, 0.5 * i};
    double g = 9.81;
    std::vector<double> out(300);
    Kalvos k;
    const Kalvos::CompiledExpr energy = k.CompileExpr("m * v * v / 2 + m * g");
    const auto* base = reinterpret_cast<const char*>(particles);
    k.ComputeCompiled(energy, 300,
                      {{"m", reinterpret_cast<const double*>(base + 1), sizeof(Particle)},
                       {"v", reinterpret_cast<const double*>(base + 9), sizeof(Particle)},
                       {"g", &g, 0}},
                      out.data());
    for (int i = 0; i < 300; ++i) {
        const double m = 1.0 + i, v = 0.5 * i;
        EXPECT_EQ(BitsOf(out[static_cast<std::size_t>(i)]), BitsOf(m * v * v / 2 + m * g)) << i;
    }
    EXPECT_EQ(k.GetVars().GetVarNum("m", ""), 300.0);  // the last element's values stay
    std::vector<double> xs = {1, 2, 3};
    k.ComputeCompiled(k.CompileExpr("x * x"), 3, {{"x", xs.data()}}, xs.data());
    EXPECT_EQ(xs, (std::vector<double>{1, 4, 9}));
}

// Count 0 is the empty loop: nothing is checked, set or raised. Anything else is checked before
// anything is set or written.
TEST(Bulk, RefusesWhatTheLoopCouldNotDo) {
    Kalvos k;
    k.GetVars().SetVarStr("x", "a text");
    const Kalvos::CompiledExpr handle = k.CompileExpr("x + 1", " [h]");
    k.ComputeCompiled(handle, 0, {{"x", nullptr}, {"x", nullptr}}, nullptr);
    k.ComputeCompiled(Kalvos().CompileExpr("1"), 0, {}, nullptr);
    EXPECT_FALSE(k.GetVars().VarIsNum(k.GetVars().GetVarIdx("x")));
    EXPECT_EQ(k.GetFailedElement(), Kalvos::kNoElement);

    std::vector<double> data(10, 1.0), memory(12, -1.0);
    const double* d = data.data();
    double* const out = memory.data() + 1;
    const std::string prefix = "Bulk evaluation of [x + 1]: ";
    const std::pair<std::vector<Kalvos::Column>, std::string> refused[] = {
        {{{"x", nullptr}}, "Column 'x' has no data."},
        {{{"x", d}, {"y", d}, {"x", d + 1}}, "Two columns are named 'x'."},
        {{{"x", out + 9, 0}}, "The output overlaps column 'x'."},
        {{{"x", out - 1}}, "The output overlaps column 'x'."},
        {{{"y", d}, {"x", out, 16}}, "The output overlaps column 'x'."},
        {{{"x", d, std::size_t{1} << 62}}, "Column 'x' reaches past the end of memory."},
    };
    for (const auto& [columns, message] : refused) {
        EXPECT_RAISES(k.ComputeCompiled(handle, 10, columns, out), "ComputeCompiled",
                      prefix + message + " [h]");
        EXPECT_EQ(k.GetFailedElement(), Kalvos::kNoElement);
    }
    EXPECT_RAISES(k.ComputeCompiled(handle, 10, {{"x", d}}, nullptr), "ComputeCompiled",
                  prefix + "The output is a null pointer. [h]");
    EXPECT_RAISES(k.ComputeCompiled(handle, std::size_t{1} << 62, {{"x", d}}, out),
                  "ComputeCompiled", prefix + "The output reaches past the end of memory. [h]");
    EXPECT_EQ(memory, std::vector<double>(12, -1.0));
    EXPECT_FALSE(k.GetVars().VarIsNum(k.GetVars().GetVarIdx("x")));
    EXPECT_EQ(k.GetExprText(), "");

    // A handle of another object fails in the first element, after its columns are set.
    Kalvos other;
    EXPECT_RAISES(other.ComputeCompiled(handle, 10, {{"x", d}}, out), "ComputeCompiled",
                  "The compiled expression [x + 1] belongs to another evaluator or was made "
                  "before Reset. [h]");
    EXPECT_EQ(other.GetFailedElement(), 0u);
    EXPECT_EQ(other.GetVars().GetVarNum("x", ""), 1.0);
}

TEST(Bulk, ThreadCounts) {
    Kalvos k;
    EXPECT_EQ(k.GetThreads(), 1u);
    EXPECT_RAISES(k.SetThreads(0), "SetThreads", "The thread count 0 is not within 1 to 256.");
    EXPECT_RAISES(k.SetThreads(Kalvos::kMaxThreads + 1), "SetThreads",
                  "The thread count 257 is not within 1 to 256.");
    k.SetThreads(3);
    k.Reset();  // keeps the threads, as it keeps the cache's limits
    EXPECT_EQ(k.GetThreads(), 3u);
}

// Of two NaN operands, which one a product or a sum gives depends on the order of the operands
// in the instruction, which the compiler chooses loop by loop: every way of computing must give
// the left one, whatever the operands' shapes.
TEST(Bulk, TwoNaNOperandsGiveTheLeftOne) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    diff::BulkDifferential d(9);
    for (const char* text : {"x * nan", "nan * x", "x + nan - x", "nan / x", "x / nan", "x * x",
                             "(x - nan) * (nan + x)", "-x * nan"}) {
        diff::BulkCase c;
        c.Text = text;
        c.Columns = {{"x", 8}};
        c.Count = 300;
        for (std::size_t i = 0; i < c.Count; i += 3) c.Placed.push_back({i, i % 2 ? nan : -nan});
        ASSERT_EQ(d.Run(c), "");
    }
}
