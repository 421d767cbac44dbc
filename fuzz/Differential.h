#pragma once

// Three ways of evaluating one text must agree bit for bit: an object without a cache, an
// object with a cache (half the time warmed by CompileExpr, so that it answers from its cache
// at once), and a compiled handle. Shared by the unit test, which feeds it texts from a
// grammar, and by the fuzz target.
//
// Each compared call records the value bits or all six arguments of the raise and the object's
// ExprText and ErrorText afterwards. The last call of a text also records the next rand()
// draw, so that a way that drew more or fewer numbers, or drew them in another order, shows;
// the calls before it are evaluated one after the other with nothing between them but store
// changes, so that the text of the last call and the handle of the last call are met again.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "Reference.h"
#include "evaluator/Kalvos.h"
#include "support/Functions.h"
#include "support/JObject.h"
#include "support/KalvosVars.h"

namespace diff {

// The names a store change touches; the grammar draws its names from here too, so that texts
// meet variables that come and go, change kind and hide the keywords.
inline const char* const kNames[] = {
    "a",        "b",        "x",        "x0",  "x1",  "x2",   "x3",   "m12",   "m1", "Dp",
    "PosMin_x", "PosMin_y", "PosMin_z", "nan", "inf", "true", "TRUE", "false", "zz", "s"};
constexpr unsigned kNameCount = sizeof kNames / sizeof kNames[0];

// Host functions every object of a comparison defines alike: pure and impure, one that raises a
// JException and one that throws something else, and "hgone", which Change defines and removes.
inline const char* const kHostFunctions[] = {"hpure", "hcount", "hraise", "hthrow", "hgone"};

inline void DefineHostFunctions(Kalvos& k) {
    k.DefineFunction(
        "hpure", 1, 2,
        [](const double* p, unsigned int n) { return n == 1 ? p[0] * 2 : p[0] / p[1]; }, true,
        true);
    // Impure: its own count of calls, which each object keeps in step by making the same calls.
    k.DefineFunction("hcount", 0, 1, [calls = 0.0](const double* p, unsigned int n) mutable {
        calls += 1;
        return n == 0 ? calls : p[0] + calls;
    });
    // Pure, so that bulk calls run them by blocks, on several threads, and meet their throws.
    k.DefineFunction(
        "hraise", 0, 1,
        [](const double* p, unsigned int n) -> double {
            if (n == 0 || p[0] < 0)
                throw JException("Table", 12, "Table", "Lookup", "no entry", "");
            return p[0];
        },
        true, true);
    k.DefineFunction(
        "hthrow", 1, 1,
        [](const double* p, unsigned int) -> double {
            if (p[0] > 1) throw std::range_error("beyond the table");
            return p[0];
        },
        true, true);
}

inline void DefineGone(Kalvos& k, bool defined) {
    if (!defined) {
        (void)k.RemoveFunction("hgone");
        return;
    }
    k.DefineFunction(
        "hgone", 1, 1, [](const double* p, unsigned int) { return p[0] - 1; }, true);
}

inline double Value(std::uint32_t k) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    const double values[] = {0.0,      -0.0, 1.0,   -2.5, 0.25,  2.9,          -1.0, 1e308,
                             4.9e-324, kInf, -kInf, kNaN, -kNaN, 2147483648.0, 12.0, 7.0};
    return values[k % (sizeof values / sizeof values[0])];
}

struct Outcome {
    bool Raised = false;
    std::uint64_t Bits = 0;
    std::string SrcFile, ClassName, Method, Text, File;
    int SrcLine = 0;
    std::string ExprText, ErrorText;
    std::uint64_t NextRand = 0;
};

inline std::uint64_t BitsOf(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline std::string Describe(const Outcome& o) {
    std::string text =
        o.Raised
            ? fun::PrintStr("raised %s:%d %s::%s [%s] [%s]", o.SrcFile.c_str(), o.SrcLine,
                            o.ClassName.c_str(), o.Method.c_str(), o.Text.c_str(), o.File.c_str())
            : fun::PrintStr("value %016llx", static_cast<unsigned long long>(o.Bits));
    return text + fun::PrintStr("; ExprText [%s] ErrorText [%s]; next rand %016llx",
                                o.ExprText.c_str(), o.ErrorText.c_str(),
                                static_cast<unsigned long long>(o.NextRand));
}

inline bool operator==(const Outcome& a, const Outcome& b) {
    return a.Raised == b.Raised && a.Bits == b.Bits && a.SrcFile == b.SrcFile &&
           a.SrcLine == b.SrcLine && a.ClassName == b.ClassName && a.Method == b.Method &&
           a.Text == b.Text && a.File == b.File && a.ExprText == b.ExprText &&
           a.ErrorText == b.ErrorText && a.NextRand == b.NextRand;
}

// Runs `call` on `k` and records what it did, then, if asked, draws the next number.
template <typename Call>
Outcome Capture(Kalvos& k, Call call, bool drawNext = true) {
    Outcome o;
    try {
        o.Bits = BitsOf(call());
    } catch (const JException& e) {
        o.Raised = true;
        o.SrcFile = e.GetSrcFile();
        o.SrcLine = e.GetSrcLine();
        o.ClassName = e.GetClassName();
        o.Method = e.GetMethod();
        o.Text = e.GetText();
        o.File = e.GetFile();
    }
    o.ExprText = k.GetExprText();
    o.ErrorText = k.GetErrorText();
    if (drawNext) o.NextRand = BitsOf(k.ComputeExpr("rand()"));
    return o;
}

class Differential {
public:
    // Small enough that a long run evicts by count and by size.
    static constexpr std::size_t kWarmEntries = 512;
    static constexpr std::size_t kWarmBytes = std::size_t{256} << 10;

    explicit Differential(int seed) : Seed(seed) {
        Ref.SetCacheLimits(0, 0);
        Warm.SetCacheLimits(kWarmEntries, kWarmBytes);
        for (Kalvos* k : {&Ref, &Warm, &Handle}) DefineHostFunctions(*k);
        Restart();
    }

    // Evaluates `text` `times` times the three ways, ComputeExprBool instead of ComputeExpr
    // when `asBool` (the handle object then calls ComputeExprBool too, to stay in step), with
    // a store change derived from `changes` before each evaluation. Returns ""
    // when everything agreed, else what differed.
    std::string Run(const std::string& text, const std::string& errortext, bool asBool,
                    unsigned times, std::uint32_t changes) {
        const std::string before = Handle.GetExprText();
        Compiled = Handle.CompileExpr(text, errortext);
        if (Handle.GetExprText() != before || Compiled.GetExprText() != text ||
            Compiled.GetErrorText() != errortext) {
            return "CompileExpr changed ExprText or kept other texts: " + text;
        }
        if ((changes >> 7 & 1u) != 0) {
            const std::string errorBefore = Warm.GetErrorText();
            (void)Warm.CompileExpr(text, errortext);
            if (Warm.GetErrorText() != errorBefore) return "CompileExpr changed ErrorText";
        }
        for (unsigned i = 0; i < times; ++i) {
            Change(changes = changes * 1664525u + 1013904223u);
            const bool last = i + 1 == times;
            const Outcome ref = Capture(
                Ref, [&] { return Compute(Ref, text, errortext, asBool); }, last);
            const Outcome warm = Capture(
                Warm, [&] { return Compute(Warm, text, errortext, asBool); }, last);
            const Outcome handle = Capture(
                Handle,
                [&] {
                    return asBool ? Compute(Handle, text, errortext, true)
                                  : Handle.ComputeCompiled(Compiled);
                },
                last);
            const char* differs = !(warm == ref) ? "cached" : !(handle == ref) ? "handle" : "";
            if (*differs != '\0') {
                return fun::PrintStr(
                    "%s evaluation %u of [%s] (error text [%s], %s) differs:\n"
                    "  no cache: %s\n  %s: %s",
                    differs, i + 1, text.c_str(), errortext.c_str(), asBool ? "bool" : "number",
                    Describe(ref).c_str(), differs,
                    Describe(*differs == 'c' ? warm : handle).c_str());
            }
            if (Ref.GetCacheCount() != 0 || Ref.GetCacheBytes() != 0 ||
                Warm.GetCacheCount() > kWarmEntries || Warm.GetCacheBytes() > kWarmBytes) {
                return "cache beyond its limits after [" + text + "]";
            }
        }
        return "";
    }

    // One store change, the same on the three objects; `code` selects what and where.
    void Change(std::uint32_t code) {
        const char* name = kNames[(code >> 4) % kNameCount];
        const double value = Value(code >> 12);
        for (Kalvos* k : {&Ref, &Warm, &Handle}) {
            KalvosVars& vars = k->GetVars();
            switch (code % 16) {
                case 0:
                case 1:
                case 2:
                case 3:
                    vars.SetVarNum(name, value);
                    break;
                case 4:
                case 5:
                    (void)vars.DelVar(name);
                    break;
                case 6:
                    vars.SetVarStr(name, "[a]");
                    break;
                case 7:
                    vars.Reset();
                    reference::FillStore(vars);
                    break;
                case 8:
                    DefineGone(*k, (code >> 8 & 1u) != 0);
                    break;
                default:
                    break;  // most evaluations see the store unchanged
            }
        }
        if (code % 64 == 8) Restart();
    }

    Kalvos Ref, Warm, Handle;

private:
    static double Compute(Kalvos& k, const std::string& text, const std::string& errortext,
                          bool asBool) {
        return asBool ? (k.ComputeExprBool(text, errortext) ? 1.0 : 0.0)
                      : k.ComputeExpr(text, errortext);
    }

    // Kalvos::Reset on all three: fresh stores, the same seed, and the handle made again,
    // since Reset retires the handles made before it.
    void Restart() {
        for (Kalvos* k : {&Ref, &Warm, &Handle}) {
            k->Reset();
            reference::FillStore(k->GetVars());
            (void)k->ComputeExpr(fun::PrintStr("randinit(%d)", Seed));
        }
        Compiled = Handle.CompileExpr(Compiled.GetExprText(), Compiled.GetErrorText());
    }

    int Seed;
    Kalvos::CompiledExpr Compiled;
};

}  // namespace diff
