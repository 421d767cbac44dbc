// Functions a host defines: called as built-ins are, seen by texts compiled before, their
// failures raised with the call's texts, and held to their loop in bulk calls.
#include <cmath>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

double Sum(const double* p, unsigned int n) {
    double sum = 0.0;
    for (unsigned int i = 0; i < n; ++i) sum += p[i];
    return sum;
}

const char* const kNotFound =
    "Evaluating function [f(1,2)]: Function not found or invalid for 2 parameters.";

}  // namespace

TEST(HostFunctions, CalledAsBuiltinsAreAndSeenByTextsCompiledBefore) {
    Kalvos k;
    const Kalvos::CompiledExpr early = k.CompileExpr("f(1, 2) * 10");
    EXPECT_RAISES(k.ComputeExpr("f(1,2)"), "ComputFunc", kNotFound);
    EXPECT_RAISES(k.ComputeCompiled(early), "ComputFunc", kNotFound);
    k.DefineFunction("f", 1, 3, Sum);
    EXPECT_EQ(k.ComputeExpr("f(1,2)"), 3);
    EXPECT_EQ(k.ComputeCompiled(early), 30);
    EXPECT_EQ(k.ComputeExpr("f(4) + f(1, 1, 1)"), 7);
    EXPECT_RAISES(k.ComputeExpr("f()"), "ComputFunc",
                  "Evaluating function [f()]: Function not found or invalid for 0 parameters.");
    k.DefineFunction("f", 2, 2, [](const double* p, unsigned int) { return p[0] - p[1]; });
    EXPECT_EQ(k.ComputeCompiled(early), -10);  // defined anew
    k.Reset();                                 // keeps the host's functions
    EXPECT_EQ(k.ComputeExpr("f(5, 1)"), 4);
    EXPECT_TRUE(k.RemoveFunction("f"));
    EXPECT_FALSE(k.RemoveFunction("f"));
    EXPECT_RAISES(k.ComputeExpr("f(1,2)"), "ComputFunc", kNotFound);
}

// Parameters are evaluated first, in order, and an error among them comes before the call.
TEST(HostFunctions, ParametersFirstAndInOrder) {
    Kalvos k;
    std::vector<double> seen;
    k.DefineFunction("note", 1, 1, [&](const double* p, unsigned int) {
        seen.push_back(p[0]);
        return p[0];
    });
    k.DefineFunction("f", 0, 10, Sum);
    EXPECT_EQ(k.ComputeExpr("f(note(1), note(2) * 2, note(3))"), 8);
    EXPECT_EQ(seen, (std::vector<double>{1, 2, 3}));
    EXPECT_RAISES(k.ComputeExpr("f(note(4), 1/0)"), "ComputExpr",
                  "Evaluating [1/0]: Division by zero.");
    EXPECT_EQ(seen.back(), 4);
}

TEST(HostFunctions, FailuresAreTheCallsOwn) {
    Kalvos k;
    k.DefineFunction("nan", 1, 1, [](const double*, unsigned int) { return std::nan(""); });
    k.DefineFunction("own", 0, 0, [&k](const double*, unsigned int) -> double {
        return k.GetVars().GetVarNum("missing", " [own]");
    });
    k.DefineFunction("std", 1, 1, [](const double*, unsigned int) -> double {
        throw std::out_of_range("no table entry");
    });
    k.DefineFunction("other", 1, 1, [](const double*, unsigned int) -> double { throw 7; });
    k.DefineFunction("again", 0, 0,
                     [&k](const double*, unsigned int) { return k.ComputeExpr("1"); });
    k.DefineFunction("grow", 0, 0, [&k](const double*, unsigned int) {
        k.GetVars().SetVarNum("new", 1);
        return 1.0;
    });
    EXPECT_RAISES(k.ComputeExpr("nan(2)", " [t]"), "ComputFunc",
                  "Evaluating function [nan(2)]: The result nan is an invalid value (NaN). [t]");
    EXPECT_RAISES(k.ComputeExpr("1 + own()", " [t]"), "GetVarNum",
                  "The variable 'missing' does not exist. [own]");
    EXPECT_RAISES(k.ComputeExpr("std(1 + 1)", " [t]"), "ComputFunc",
                  "Evaluating function [std(1+1)]: The host function raised: no table entry [t]");
    EXPECT_RAISES(k.ComputeExpr("other(1)"), "ComputFunc",
                  "Evaluating function [other(1)]: The host function raised: an exception that "
                  "is no std::exception");
    EXPECT_RAISES(k.ComputeExpr("again()"), "HostFunction",
                  "The host function 'again' called ComputeExpr of the evaluator that runs it.");
    EXPECT_RAISES(k.ComputeExpr("grow() + 1"), "ComputFunc",
                  "Evaluating function [grow()]: The host function added or removed variables.");
    EXPECT_EQ(k.ComputeExpr("grow() + 1"), 2);  // the variable is there now: nothing moves
}

TEST(HostFunctions, DefinitionsTheTextsCanCall) {
    Kalvos k;
    const std::pair<std::string, std::string> refused[] = {
        {"", "The name '' cannot be called in an expression."},
        {"2f", "The name '2f' cannot be called in an expression."},
        {"a b", "The name 'a b' cannot be called in an expression."},
        {"sin", "'sin' is the name of a built-in function."},
        {"rand", "'rand' is the name of a built-in function."},
    };
    for (const auto& [name, message] : refused) {
        EXPECT_RAISES(k.DefineFunction(name, 1, 1, Sum), "DefineFunction", message);
    }
    EXPECT_RAISES(k.DefineFunction("f", 2, 1, Sum), "DefineFunction",
                  "The parameter counts 2 to 1 of 'f' are not within 0 to 10.");
    EXPECT_RAISES(k.DefineFunction("f", 0, 11, Sum), "DefineFunction",
                  "The parameter counts 0 to 11 of 'f' are not within 0 to 10.");
    EXPECT_RAISES(k.DefineFunction("f", 1, 1, nullptr), "DefineFunction",
                  "The function 'f' has no computation.");
    EXPECT_RAISES(
        k.ComputeExpr("sin(1,2)"), "ComputFunc",
        "Evaluating function [sin(1,2)]: Function not found or invalid for 2 parameters.");
}

// A pure function of constant parameters is computed once for each of its definitions.
TEST(HostFunctions, PureConstantCallsAreComputedOnce) {
    Kalvos k;
    int calls = 0;
    const auto counted = [&calls](const double* p, unsigned int) { return ++calls + p[0]; };
    k.DefineFunction("p", 1, 1, counted, true);
    k.GetVars().SetVarNum("x", 1);
    const Kalvos::CompiledExpr constant = k.CompileExpr("p(10)");
    const Kalvos::CompiledExpr variable = k.CompileExpr("p(x)");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(k.ComputeCompiled(constant), 11);
    for (int i = 0; i < 3; ++i) k.ComputeCompiled(variable);
    EXPECT_EQ(calls, 4);
    k.DefineFunction("p", 1, 1, counted, true);
    EXPECT_EQ(k.ComputeCompiled(constant), 15);
    k.DefineFunction("q", 0, 0, Sum);  // any definition: the kept value may be stale
    EXPECT_EQ(k.ComputeCompiled(constant), 16);
}

// A bulk call is its loop: an impure function is called for each element in turn, between the
// element's other calls; a pure one may run by blocks, on several threads only when it says so.
TEST(HostFunctions, BulkCallsCallThemAsTheLoopDoes) {
    std::vector<double> xs(20000);
    for (std::size_t i = 0; i < xs.size(); ++i) xs[i] = 1.5 + static_cast<double>(i % 97);
    xs[15000] = 0.0;  // a division by zero late in the call
    for (const bool pure : {false, true}) {
        for (const bool threadSafe : {false, true}) {
            Kalvos loop, bulk;
            std::vector<double> loopSeen, bulkSeen;
            std::vector<std::thread::id> threads;
            const auto define = [&](Kalvos& k, std::vector<double>& seen) {
                k.DefineFunction(
                    "h", 1, 1,
                    [&, pure](const double* p, unsigned int) {
                        if (!pure) seen.push_back(p[0]);
                        if (pure && !threadSafe && &seen == &bulkSeen) {
                            threads.push_back(std::this_thread::get_id());
                        }
                        return std::sqrt(p[0]) + 1;
                    },
                    pure, threadSafe);
                k.DefineFunction(
                    "g", 1, 1,
                    [&seen, pure](const double* p, unsigned int) {
                        if (!pure) seen.push_back(-p[0]);
                        return p[0] * 2;
                    },
                    pure, threadSafe);
            };
            define(loop, loopSeen);
            define(bulk, bulkSeen);
            bulk.SetThreads(2);
            const Kalvos::CompiledExpr l = loop.CompileExpr("g(h(x)) / x");
            std::vector<double> expected(xs.size()), out(xs.size());
            std::size_t failed = xs.size();
            for (std::size_t i = 0; i < xs.size() && failed == xs.size(); ++i) {
                loop.GetVars().SetVarNum("x", xs[i]);
                try {
                    expected[i] = loop.ComputeCompiled(l);
                } catch (const JException&) {
                    failed = i;
                }
            }
            EXPECT_RAISES(bulk.ComputeCompiled(bulk.CompileExpr("g(h(x)) / x"), xs.size(),
                                               {{"x", xs.data()}}, out.data()),
                          "ComputExpr", "Evaluating [g(h(x))/x]: Division by zero.");
            ASSERT_EQ(bulk.GetFailedElement(), failed);
            for (std::size_t i = 0; i < failed; ++i) ASSERT_EQ(BitsOf(out[i]), BitsOf(expected[i]));
            EXPECT_EQ(bulkSeen, loopSeen);
            for (const std::thread::id& id : threads) ASSERT_EQ(id, threads.front());
        }
    }
}

// A built-in defined again under another name is called the same way: the same bits, and the
// same messages but for the name.
TEST(HostFunctions, ABuiltinAsAHostFunctionGivesTheSame) {
    Kalvos k;
    k.DefineFunction(
        "hpow", 2, 2, [](const double* p, unsigned int) { return std::pow(p[0], p[1]); }, true,
        true);
    k.DefineFunction("hsqrt", 1, 1, [](const double* p, unsigned int) { return std::sqrt(p[0]); });
    const std::pair<const char*, const char*> pairs[] = {
        {"pow(x, 2.5) - x", "hpow(x, 2.5) - x"},
        {"sqrt(x) + pow(2, x)", "hsqrt(x) + hpow(2, x)"},
        {"sqrt(-x)", "hsqrt(-x)"},
        {"pow(x, 1000)", "hpow(x, 1000)"},
    };
    const double values[] = {0.0, -0.0, 1.5, 7.25, 1e-310, 1e300, -3.0};
    for (const auto& pair : pairs) {
        const char* builtin = pair.first;  // a lambda may not capture a structured binding
        const char* host = pair.second;
        for (const double x : values) {
            k.GetVars().SetVarNum("x", x);
            const diff::Outcome a = diff::Capture(
                k, [&] { return k.ComputeExpr(builtin); }, false);
            diff::Outcome b = diff::Capture(
                k, [&] { return k.ComputeExpr(host); }, false);
            for (std::string* text : {&b.Text, &b.ExprText}) {
                for (const char* name : {"hpow", "hsqrt"}) {
                    for (std::size_t at; (at = text->find(name)) != std::string::npos;) {
                        text->erase(at, 1);
                    }
                }
            }
            b.SrcLine = a.SrcLine;
            EXPECT_EQ(diff::Describe(b), diff::Describe(a)) << builtin << " with x = " << x;
        }
    }
}
