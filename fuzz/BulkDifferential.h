#pragma once

// A bulk call must be exactly its loop: "for each element i, SetVarNum(name, value i) for every
// column, then out[i] = ComputeCompiled(handle)". Two objects in the same state run one case,
// one by the loop and one by the bulk call, and must agree on the results' bits, the failing
// element and the six arguments of its failure, ExprText and ErrorText, every variable of the
// store afterwards and the next rand() draw. With one thread, what follows the failing element
// must be untouched; with more, only what precedes it is compared. Shared by the unit test,
// which draws cases from a seed, and by the fuzz target.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Differential.h"
#include "Grammar.h"
#include "evaluator/Kalvos.h"
#include "support/Functions.h"
#include "support/KalvosVars.h"

namespace diff {

struct BulkColumn {
    std::string Name;
    std::size_t Stride = sizeof(double);  // in bytes
};

struct BulkCase {
    std::string Text;
    std::string ErrorText;
    std::vector<BulkColumn> Columns;
    std::size_t Count = 0;
    unsigned int Threads = 1;
    bool InPlace = false;      // out is the first column's data, when its stride allows
    std::uint32_t Values = 0;  // seeds the columns' values
    bool Special = false;      // every value from the pool of Value(); else mostly plain
    std::vector<std::pair<std::size_t, double>> Placed;  // values set in the first column
};

// The host's memory: columns laid out with their strides, and the output.
class BulkMemory {
public:
    BulkMemory(const BulkCase& c, std::uint32_t seed) {
        std::uint32_t state = seed;
        const auto next = [&state] { return state = state * 1664525u + 1013904223u; };
        Offsets.push_back(0);
        for (const BulkColumn& column : c.Columns) {
            const std::size_t bytes = c.Count == 0 ? 8 : (c.Count - 1) * column.Stride + 8;
            Offsets.push_back(Offsets.back() + (bytes + 15) / 8);  // a gap after each column
        }
        Words.assign(Offsets.back() + c.Count + 1, 0.0);
        for (std::size_t col = 0; col < c.Columns.size(); ++col) {
            for (std::size_t i = 0; i < c.Count; ++i) {
                const std::uint32_t r = next();
                const double value =
                    c.Special || r % 500 == 0 ? Value(r >> 8) : 0.5 + (r >> 8) % 1000 / 400.0;
                std::memcpy(Bytes(col) + i * c.Columns[col].Stride, &value, sizeof value);
            }
        }
        for (const auto& [i, value] : c.Placed) {
            if (!c.Columns.empty() && i < c.Count) {
                std::memcpy(Bytes(0) + i * c.Columns[0].Stride, &value, sizeof value);
            }
        }
        const bool inPlace = c.InPlace && !c.Columns.empty() && c.Columns[0].Stride == 8;
        Out = inPlace ? reinterpret_cast<double*>(Bytes(0)) : Words.data() + Offsets.back();
        if (!inPlace) {
            for (std::size_t i = 0; i < c.Count; ++i) Out[i] = kSentinel;
        }
    }

    char* Bytes(std::size_t column) {
        return reinterpret_cast<char*>(Words.data() + Offsets[column]);
    }
    double Read(const BulkCase& c, std::size_t column, std::size_t i) {
        double value = 0.0;
        std::memcpy(&value, Bytes(column) + i * c.Columns[column].Stride, sizeof value);
        return value;
    }

    static constexpr double kSentinel = -123456.75;
    std::vector<double> Words;
    std::vector<std::size_t> Offsets;
    double* Out = nullptr;
};

inline std::string StoreOf(const KalvosVars& vars) {
    std::string text;
    for (unsigned int i = 0; i < vars.GetCount(); ++i) {
        text += vars.GetVarName(i) +
                (vars.VarIsNum(i) ? fun::PrintStr("=%016llx;", static_cast<unsigned long long>(
                                                                   BitsOf(vars.GetVarNum(i, ""))))
                                  : "=$" + vars.GetVarStr(i, "") + ";");
    }
    return text;
}

// The grammar's names that a text reads.
inline std::vector<std::string> NamesIn(const std::string& text) {
    std::vector<std::string> names;
    for (const char* name : kNames) {
        const std::size_t at = text.find(name);
        const std::size_t end = at + std::string(name).size();
        const auto inName = [&](std::size_t pos) {
            return pos < text.size() && KalvosVars::CharValid(text[pos]);
        };
        if (at != std::string::npos && (at == 0 || !inName(at - 1)) && !inName(end)) {
            names.emplace_back(name);
        }
    }
    return names;
}

// A case drawn from the grammar: mostly a text that can run by blocks (no random draws, no
// computed index), up to three columns named mostly as variables the text reads, strides in
// bytes, and counts at the edges of a block (128 elements) and past the least a call shares
// among threads (16,384).
inline BulkCase DrawBulkCase(texts::Grammar& grammar) {
    BulkCase c;
    c.Text = grammar.Text();
    for (int retry = 0; retry < 5 && grammar.Chance(80); ++retry) {
        if (c.Text.find("rand") == std::string::npos && c.Text.find('[') == std::string::npos) {
            break;
        }
        c.Text = grammar.Text();
    }
    c.ErrorText = grammar.Of(texts::kErrorTexts);
    const std::vector<std::string> read = NamesIn(c.Text);
    const std::size_t strides[] = {8, 8, 8, 16, 24, 12, 0};
    for (unsigned int n = grammar.Pick(4); n > 0; --n) {
        const std::string name = !read.empty() && grammar.Chance(80)
                                     ? read[grammar.Pick(read.size())]
                                     : std::string(grammar.Of(kNames));
        bool taken = false;
        for (const BulkColumn& column : c.Columns) taken = taken || column.Name == name;
        if (!taken) c.Columns.push_back({name, grammar.Of(strides)});
    }
    const std::size_t counts[] = {0, 1, 2, 127, 128, 129, 255, 257, 1000, 17000};
    c.Count = grammar.Of(counts);
    c.Threads = 1 + grammar.Pick(4);
    c.InPlace = grammar.Chance(30);
    c.Values = grammar.Next();
    c.Special = grammar.Chance(30);
    return c;
}

class BulkDifferential {
public:
    explicit BulkDifferential(int seed) : Seed(seed) {
        for (Kalvos* k : {&Loop, &Bulk}) DefineHostFunctions(*k);
        Restart();
    }

    // Runs the case both ways; "" when they agree, else what differs.
    std::string Run(const BulkCase& c) {
        BulkMemory loopMemory(c, c.Values);
        BulkMemory bulkMemory(c, c.Values);
        const Kalvos::CompiledExpr loopHandle = Loop.CompileExpr(c.Text, c.ErrorText);
        const Kalvos::CompiledExpr bulkHandle = Bulk.CompileExpr(c.Text, c.ErrorText);

        std::size_t loopFailed = Kalvos::kNoElement;
        const Outcome loop = Capture(Loop, [&] {
            for (std::size_t i = 0; i < c.Count; ++i) {
                for (std::size_t col = 0; col < c.Columns.size(); ++col) {
                    Loop.GetVars().SetVarNum(c.Columns[col].Name, loopMemory.Read(c, col, i));
                }
                loopFailed = i;
                loopMemory.Out[i] = Loop.ComputeCompiled(loopHandle);
            }
            loopFailed = Kalvos::kNoElement;
            return 0.0;
        });

        std::vector<Kalvos::Column> columns;
        for (std::size_t col = 0; col < c.Columns.size(); ++col) {
            columns.push_back({c.Columns[col].Name,
                               reinterpret_cast<const double*>(bulkMemory.Bytes(col)),
                               c.Columns[col].Stride});
        }
        Bulk.SetThreads(c.Threads);
        const Outcome bulk = Capture(Bulk, [&] {
            Bulk.ComputeCompiled(bulkHandle, c.Count, columns, bulkMemory.Out);
            return 0.0;
        });
        const std::size_t bulkFailed = Bulk.GetFailedElement();

        std::string differs;
        if (!(loop == bulk))
            differs = "outcome\n  loop: " + Describe(loop) + "\n  bulk: " + Describe(bulk);
        if (differs.empty() && loopFailed != bulkFailed) {
            differs = fun::PrintStr("failing element: loop %zu, bulk %zu", loopFailed, bulkFailed);
        }
        const std::size_t compared =
            loopFailed == Kalvos::kNoElement || c.Threads == 1 ? c.Count : loopFailed;
        for (std::size_t i = 0; differs.empty() && i < compared; ++i) {
            if (BitsOf(loopMemory.Out[i]) != BitsOf(bulkMemory.Out[i])) {
                differs = fun::PrintStr("element %zu: loop %a, bulk %a", i, loopMemory.Out[i],
                                        bulkMemory.Out[i]);
            }
        }
        if (differs.empty() && StoreOf(Loop.GetVars()) != StoreOf(Bulk.GetVars())) {
            differs = "store afterwards\n  loop: " + StoreOf(Loop.GetVars()) +
                      "\n  bulk: " + StoreOf(Bulk.GetVars());
        }
        if (differs.empty()) return "";
        return fun::PrintStr(
                   "bulk call of [%s] (error text [%s], %zu elements, %u threads%s) "
                   "differs in ",
                   c.Text.c_str(), c.ErrorText.c_str(), c.Count, c.Threads,
                   c.InPlace ? ", in place" : "") +
               differs;
    }

    // The same store change on both objects; now and then both start afresh.
    void Change(std::uint32_t code) {
        const char* name = kNames[(code >> 4) % kNameCount];
        for (Kalvos* k : {&Loop, &Bulk}) {
            KalvosVars& vars = k->GetVars();
            switch (code % 16) {
                case 0:
                    vars.SetVarNum(name, Value(code >> 12));
                    break;
                case 1:
                    (void)vars.DelVar(name);
                    break;
                case 2:
                    vars.SetVarStr(name, "[a]");
                    break;
                case 3:
                    DefineGone(*k, (code >> 8 & 1u) != 0);
                    break;
                default:
                    break;
            }
        }
        if (code % 64 == 3) Restart();
    }

    Kalvos Loop, Bulk;

private:
    void Restart() {
        for (Kalvos* k : {&Loop, &Bulk}) {
            k->Reset();
            reference::FillStore(k->GetVars());
            (void)k->ComputeExpr(fun::PrintStr("randinit(%d)", Seed));
        }
    }

    int Seed;
};

}  // namespace diff
