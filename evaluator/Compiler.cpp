#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <new>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

std::uint32_t Size32(std::size_t size) { return static_cast<std::uint32_t>(size); }

// What the instruction of each Op reads and writes, and whether it calls out of the run.
constexpr std::uint8_t kReadsA = 1, kReadsB = 2, kWrites = 4, kCallsOut = 8;
constexpr std::uint8_t kPrefixUses = kReadsB | kWrites;
constexpr std::uint8_t kInfixUses = kReadsA | kReadsB | kWrites;
// clang-format off
constexpr std::uint8_t kOperands[] = {
    kPrefixUses, kPrefixUses, kPrefixUses, kPrefixUses,                        // Neg Not
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // Mul Div
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // Add Sub
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // Eq Neq
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // Lt Gt
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // Le Ge
    kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses, kInfixUses,    // And Or
    kWrites | kCallsOut,                                                       // Call
    kReadsA | kWrites | kCallsOut,                                             // CallUnary
    kWrites | kCallsOut,                                                       // CallHost
    kReadsA | kCallsOut,                                                       // CheckIndex
    kWrites | kCallsOut,                                                       // LoadIndexed
    0,                                                                         // Raise
};
// clang-format on

}  // namespace

// Compiles `raw` into the builder: as ComputeExpr reads it (Entry), as the reducer reads it
// (Expr), or as the argument text of a call of `name` (Func).
void Kalvos::Compile(std::string_view raw, Mode mode, std::string_view name) {
    Builder& w = Work;
    w.Frames.clear();
    w.Elems.clear();
    w.Operands.clear();
    w.Params.clear();
    w.Drafts.clear();
    w.Sites.clear();
    w.Links.clear();
    w.ArgRefs.clear();
    w.Aux.clear();
    w.Hosts.clear();
    w.Called.clear();
    w.Slots.clear();
    w.Names.clear();
    w.Result = 0;
    w.FirstFault = kNone;
    w.AccSlot = kNone;
    w.Done = false;
    w.Requested = false;
    w.Matched = false;
    if (mode == Mode::Entry) {
        CompileEntry(raw);
    } else if (mode == Mode::Expr) {
        w.Text.assign(raw);
        OpenLevel(0, Size32(raw.size()), 0);
    } else {
        // The call's name, then its argument text, in one working text; a level that holds
        // only the call's value stands below it.
        w.Text.assign(name).append(raw);
        const std::uint32_t nameEnd = Size32(name.size());
        const std::uint32_t end = Size32(w.Text.size());
        Frame root{};
        root.Begin = root.End = root.Pos = end;
        w.Frames.push_back(root);
        OpenCall(w.Frames.back(), 0, nameEnd, nameEnd, end, end);
    }
    CompileLevels();
}

// Blanks go wherever they stand and one leading "#" after them; an empty text and unbalanced
// parentheses are refused before any reading. Square brackets are checked later, by the
// reader, from the spans matched here.
void Kalvos::CompileEntry(std::string_view raw) {
    Builder& w = Work;
    std::size_t from = raw.find_first_not_of(' ');
    if (from != std::string_view::npos && raw[from] == '#') ++from;
    raw.remove_prefix(std::min(from, raw.size()));
    w.Text.assign(raw);
    w.Text.erase(std::remove(w.Text.begin(), w.Text.end(), ' '), w.Text.end());
    const auto length = Size32(w.Text.size());
    const bool balanced = MatchSpans(w.Text, w.Match, w.OpenParens, w.OpenBrackets);
    w.Matched = true;
    if (length == 0) return Fail(MessageId::ExpressionEmpty, __LINE__, 0, 0);
    if (!balanced) return Fail(MessageId::ParenthesesWrong, __LINE__, 0, length);
    OpenLevel(0, length, 0);
}

// Reads the levels as the reducer would recurse into them, with the levels on a stack of its
// own rather than the machine's, so that the depth of a text costs no stack. The many small
// steps of reading are inlined into this one loop (flatten), which keeps their state in
// registers: a fifth of the time a new text takes. Rare paths stay out of it (noinline).
[[gnu::flatten]] void Kalvos::CompileLevels() {
    Builder& w = Work;
    while (!w.Done) {
        if (w.Requested) {
            w.Requested = false;
            const std::uint32_t depth = w.Request[2];
            if (depth > kMaxNesting) {
                Fail(MessageId::NestingTooDeep, __LINE__, w.Request[0], w.Request[1]);
                break;
            }
            Operand single{};
            if (depth > 0 && ReadSingleToken(w.Request[0], w.Request[1], single)) {
                Deliver(w.Frames.back(), single);
                continue;
            }
            Frame level{};
            level.Begin = level.Pos = w.Request[0];
            level.End = w.Request[1];
            level.Depth = depth;
            level.ElemStart = Size32(w.Elems.size());
            w.Frames.push_back(level);
        }
        if (!ScanLevel(w.Frames.back())) continue;
        const Operand value = ReduceLevel(w.Frames.back());
        if (w.Done) break;
        w.Elems.resize(w.Frames.back().ElemStart);
        w.Frames.pop_back();
        if (w.Frames.empty()) {
            w.Result = RefOf(value);
            break;
        }
        Deliver(w.Frames.back(), value);
    }
}

// The level is opened by the loop above, once the caller is done with its own frame.
void Kalvos::OpenLevel(std::uint32_t begin, std::uint32_t end, std::uint32_t depth) {
    Work.Request[0] = begin;
    Work.Request[1] = end;
    Work.Request[2] = depth;
    Work.Requested = true;
}

// A level that is one name or one number, as most parameters and indices are, has that value:
// reading it as a level of its own would give the same, at the cost of a frame.
bool Kalvos::ReadSingleToken(std::uint32_t begin, std::uint32_t end, Operand& value) {
    const std::string_view text(Work.Text.data() + begin, end - begin);
    if (text.empty()) return false;
    if (KalvosVars::FirstCharValid(text[0])) {
        if (ScanName(text) != text.size()) return false;
        value = LinkVariable(begin, end, begin, text);
        return true;
    }
    value = Operand{};
    value.Constant = true;
    return text[0] >= '0' && text[0] <= '9' && ScanNumber(text, value.Value) == text.size();
}

// The value of the level just read goes to the construct its frame was waiting for.
void Kalvos::Deliver(Frame& frame, const Operand& value) {
    switch (frame.Waiting) {
        case Wait::Group:
            frame.Waiting = Wait::None;
            frame.Pos = frame.Resume;
            PushNumber(value);
            break;
        case Wait::Index: {
            const std::uint32_t begin = frame.Pos + 1;
            const std::uint32_t end = frame.Resume - 1;
            if (!value.Constant) {
                AddSite(MessageId::NegativeIndex, __LINE__, frame.Begin, frame.End, begin, end);
                Emit({Op::CheckIndex, 0, 0, 0, value.Where, 0, 0}, false);
            } else if (TruncToInt(value.Value) < 0) {
                return Fail(MessageId::NegativeIndex, __LINE__, frame.Begin, frame.End, begin, end);
            }
            Work.Operands.push_back(value);
            frame.Pos = frame.Resume;
            if (frame.Pos < frame.End && Work.Text[frame.Pos] == '[') return OpenIndex(frame);
            return FinishVariable(frame);
        }
        case Wait::Param: {
            Work.Operands.push_back(value);
            const std::uint32_t next = Size32(Work.Operands.size()) - frame.OperandStart;
            if (next == frame.ParamCount) return FinishCall(frame);
            const std::uint32_t* param =
                Work.Params.data() + frame.ParamStart + 2 * std::size_t{next};
            OpenLevel(param[0], param[1], frame.Depth + 1);
            break;
        }
        case Wait::None:
            break;
    }
}

void Kalvos::OpenIndex(Frame& frame) {
    const std::uint32_t close = SpanEndAt(frame, frame.Pos, MessageId::NoEndOfBrackets, __LINE__);
    if (Work.Done) return;
    frame.Waiting = Wait::Index;
    frame.Resume = close + 1;
    OpenLevel(frame.Pos + 1, close, frame.Depth + 1);
}

// Each index, truncated, is appended in decimal to the name: with constant indices the name
// is known now; otherwise it is built and looked up when the run reaches it.
[[gnu::noinline]] void Kalvos::FinishVariable(Frame& frame) {
    Builder& w = Work;
    const auto first = w.Operands.begin() + frame.OperandStart;
    const bool constant =
        std::all_of(first, w.Operands.end(), [](const Operand& o) { return o.Constant; });
    Operand value{};
    if (constant) {
        std::string& name = NameBuf;
        name.assign(w.Text, frame.NameBegin, frame.NameEnd - frame.NameBegin);
        for (auto index = first; index != w.Operands.end(); ++index) {
            name += std::to_string(TruncToInt(index->Value));
        }
        value = LinkVariable(frame.Begin, frame.End, kNone, name, frame.NameBegin);
    } else {
        const std::uint32_t aux = Size32(w.Aux.size());
        w.Aux.push_back(frame.NameBegin);
        w.Aux.push_back(frame.NameEnd - frame.NameBegin);
        w.Aux.push_back(Size32(w.ArgRefs.size()));
        for (auto index = first; index != w.Operands.end(); ++index) {
            w.ArgRefs.push_back(RefOf(*index));
        }
        const auto count = static_cast<std::uint8_t>(w.Operands.end() - first);
        value = {0.0, NewTemporary(), false, true};
        AddSite(MessageId::NoVariable, __LINE__, frame.Begin, frame.End);
        Emit({Op::LoadIndexed, count, 0, aux, 0, 0, value.Where}, true);
    }
    w.Operands.resize(frame.OperandStart);
    frame.Waiting = Wait::None;
    PushNumber(value);
}

// A call: its parameters are split before any is read, then read one level deeper each, in
// order, and only then is the function chosen.
void Kalvos::OpenCall(Frame& frame, std::uint32_t nameBegin, std::uint32_t nameEnd,
                      std::uint32_t argsBegin, std::uint32_t argsEnd, std::uint32_t resume) {
    frame.NameBegin = nameBegin;
    frame.NameEnd = nameEnd;
    Work.Called.push_back(nameBegin);
    Work.Called.push_back(nameEnd - nameBegin);
    frame.ArgsBegin = argsBegin;
    frame.ArgsEnd = argsEnd;
    frame.Resume = resume;
    const std::string_view args(Work.Text.data() + argsBegin, argsEnd - argsBegin);
    std::uint32_t begins[kMaxParameters];
    std::uint32_t ends[kMaxParameters];
    const unsigned int count = SplitParameters(args, begins, ends);
    Work.Called.push_back(count);
    if (count > kMaxParameters) {
        return Fail(MessageId::TooManyParameters, __LINE__, nameBegin, nameEnd, argsBegin, argsEnd);
    }
    frame.ParamStart = Size32(Work.Params.size());
    for (unsigned int i = 0; i < count; ++i) {
        Work.Params.push_back(argsBegin + begins[i]);
        Work.Params.push_back(argsBegin + ends[i]);
    }
    frame.ParamCount = count;
    frame.OperandStart = Size32(Work.Operands.size());
    frame.Waiting = Wait::Param;
    if (count == 0) return FinishCall(frame);
    OpenLevel(Work.Params[frame.ParamStart], Work.Params[frame.ParamStart + 1], frame.Depth + 1);
}

// The catalogue first; a name it does not have is the host's to define, now or later. A pure
// built-in function of constant parameters is computed now, unless its result would raise: the
// run then computes it and raises in its place.
void Kalvos::FinishCall(Frame& frame) {
    Builder& w = Work;
    const std::string_view name(w.Text.data() + frame.NameBegin, frame.NameEnd - frame.NameBegin);
    const CatalogueEntry* entry = FindBuiltin(name, frame.ParamCount);
    if (entry == nullptr && HasBuiltin(name)) {
        return Fail(MessageId::FunctionNotFound, __LINE__, frame.NameBegin, frame.NameEnd,
                    frame.ArgsBegin, frame.ArgsEnd, static_cast<int>(frame.ParamCount));
    }
    const Operand value = entry != nullptr ? BuiltinCall(frame, *entry) : HostCall(frame);
    w.Operands.resize(frame.OperandStart);
    w.Params.resize(frame.ParamStart);
    frame.Waiting = Wait::None;
    frame.Pos = frame.Resume;
    PushNumber(value);
}

Kalvos::Operand Kalvos::BuiltinCall(const Frame& frame, const CatalogueEntry& entry) {
    Builder& w = Work;
    const Operand* params = w.Operands.data() + frame.OperandStart;
    const bool constant = IsPure(entry) && std::all_of(params, params + frame.ParamCount,
                                                       [](const Operand& o) { return o.Constant; });
    Operand value{};
    double values[kMaxParameters];
    for (std::uint32_t i = 0; constant && i < frame.ParamCount; ++i) values[i] = params[i].Value;
    if (constant) value.Value = CallBuiltin(entry, values, frame.ParamCount);
    if (constant && CheckNumberValue(value.Value) == 0) {
        value.Constant = true;
        return value;
    }
    const std::uint32_t args = PushArgs(params, frame.ParamCount);
    value = {0.0, NewTemporary(), false, true};
    AddSite(MessageId::InvalidResult, __LINE__, frame.NameBegin, frame.NameEnd, frame.ArgsBegin,
            frame.ArgsEnd);
    Emit({Op::Call, static_cast<std::uint8_t>(frame.ParamCount),
          static_cast<std::uint16_t>(CatalogueIndex(entry)), args, 0, 0, value.Where},
         true);
    return value;
}

// A call of a name the catalogue lacks finds the host's function when the run reaches it, so
// that it sees functions defined and removed after the text was compiled; without one of that
// name and count, it raises the catalogue's not-found error there.
Kalvos::Operand Kalvos::HostCall(const Frame& frame) {
    Builder& w = Work;
    const Operand* params = w.Operands.data() + frame.OperandStart;
    const bool constant =
        std::all_of(params, params + frame.ParamCount, [](const Operand& o) { return o.Constant; });
    const std::uint32_t args = PushArgs(params, frame.ParamCount);
    const auto count = static_cast<std::uint8_t>(frame.ParamCount);
    const auto host = Size32(w.Hosts.size());
    w.Hosts.push_back({frame.NameBegin, frame.NameEnd - frame.NameBegin, count, constant, false, 0,
                       nullptr, 0.0});
    const Operand value = {0.0, NewTemporary(), false, true};
    AddSite(MessageId::FunctionNotFound, __LINE__, frame.NameBegin, frame.NameEnd, frame.ArgsBegin,
            frame.ArgsEnd, static_cast<int>(frame.ParamCount));
    Emit({Op::CallHost, count, 0, args, host, 0, value.Where}, true);
    return value;
}

// A call's parameters, where the run reads them: gives the first.
std::uint32_t Kalvos::PushArgs(const Operand* params, std::uint32_t count) {
    const std::uint32_t first = Size32(Work.ArgRefs.size());
    for (std::uint32_t i = 0; i < count; ++i) Work.ArgRefs.push_back(RefOf(params[i]));
    return first;
}

// A variable named by the text: resolved against the store now and again whenever the store
// has changed before a run, so that the run reads its number in place; the first one that
// does not resolve raises where it is read. A name the text spells is kept as a range of the text
// (from nameBegin); one built from constant indices (nameBegin kNone) after the text, in Names,
// with `at` where the text writes it.
Kalvos::Operand Kalvos::LinkVariable(std::uint32_t levelBegin, std::uint32_t levelEnd,
                                     std::uint32_t nameBegin, std::string_view name,
                                     std::uint32_t at) {
    Builder& w = Work;
    if (nameBegin != kNone) at = nameBegin;
    if (nameBegin == kNone) {
        nameBegin = Size32(w.Text.size() + w.Names.size());
        w.Names.append(name);
    }
    Link& link = w.Links.emplace_back();
    link.NameBegin = nameBegin;
    link.NameLength = Size32(name.size());
    link.At = at;
    link.LevelBegin = levelBegin;
    link.LevelLength = levelEnd - levelBegin;
    link.Pc = Size32(w.Drafts.size());
    link.Line = __LINE__;
    Resolve(link, name);
    if (link.Fault != MessageId::Count && w.FirstFault == kNone) {
        w.FirstFault = Size32(w.Links.size() - 1);
    }
    return {0.0, kLinkRef | Size32(w.Links.size() - 1), false, false};
}

// The site of the instruction emitted next.
void Kalvos::AddSite(MessageId id, int line, std::uint32_t begin1, std::uint32_t end1,
                     std::uint32_t begin2, std::uint32_t end2, int number) {
    Work.Sites.push_back({Size32(Work.Drafts.size()), id, line, begin1, end1 - begin1, begin2,
                          end2 - begin2, number});
}

// A fault found while reading: the run raises it where the reading met it, after everything
// read before it was evaluated. Nothing after it is compiled.
[[gnu::noinline]] void Kalvos::Fail(MessageId id, int line, std::uint32_t begin1,
                                    std::uint32_t end1, std::uint32_t begin2, std::uint32_t end2,
                                    int number) {
    AddSite(id, line, begin1, end1, begin2, end2, number);
    Emit({Op::Raise, 0, 0, 0, 0, 0, 0}, false);
    Work.Done = true;
}

// The closing delimiter of the span that opens at `open`, within the frame's text; a span
// that does not close there raises with the text from its opening to the frame's end. The
// spans of the whole text are matched once, when the first is needed, so that a deeply
// nested text is read in linear time.
std::uint32_t Kalvos::SpanEndAt(const Frame& frame, std::uint32_t open, MessageId missing,
                                int line) {
    Builder& w = Work;
    if (!w.Matched) {
        MatchSpans(w.Text, w.Match, w.OpenParens, w.OpenBrackets);
        w.Matched = true;
    }
    const std::uint32_t close = w.Match[open];
    if (close != kNone && close < frame.End) return close;
    Fail(missing, line, open, frame.End);
    return open;
}

// The program in the builder's arrays, for a run while nothing is compiled.
Kalvos::Code Kalvos::BuiltCode() {
    Builder& w = Work;
    // Grown, never shrunk: Lower writes every entry it uses, and filling new ones with zeros at
    // each text would cost a tenth of a compilation.
    const auto grow = [](auto& vector, std::size_t size) {
        if (vector.size() < size) vector.resize(size);
    };
    grow(w.Instrs, w.Drafts.size());
    grow(w.Args, w.ArgRefs.size());
    grow(w.Patches, 2 * w.Drafts.size() + w.ArgRefs.size() + 1);
    Code code;
    code.Instrs = w.Instrs.data();
    code.Sites = w.Sites.data();
    code.Links = w.Links.data();
    code.Args = w.Args.data();
    code.Aux = w.Aux.data();
    code.Hosts = w.Hosts.data();
    code.Called = w.Called.data();
    code.Slots = w.Slots.data();
    code.Text = w.Text.data();
    code.Names = w.Names.data();
    code.InstrCount = Size32(w.Drafts.size());
    code.SiteCount = Size32(w.Sites.size());
    code.LinkCount = Size32(w.Links.size());
    code.ArgCount = Size32(w.ArgRefs.size());
    code.AuxCount = Size32(w.Aux.size());
    code.HostCount = Size32(w.Hosts.size());
    code.CalledCount = Size32(w.Called.size() / 3);
    code.SlotCount = Size32(w.Slots.size());
    code.TextLength = Size32(w.Text.size());
    code.NamesLength = Size32(w.Names.size());
    code.LinkedVersion = Vars->GetVersion();
    code.FirstFault = w.FirstFault == kNone ? code.LinkCount : w.FirstFault;
    Lower(code, w.Patches.data());
    code.Patches = w.Patches.data();
    return code;
}

// The drafts become instructions that hold the addresses of their operands: slots of the
// code, or the numbers of its links, each of which leaves a patch for when it is resolved
// again. Operands an instruction does not read are left null.
void Kalvos::Lower(Code& code, Patch* patches) {
    const Builder& w = Work;
    static_assert(std::size(kOperands) == static_cast<unsigned int>(Op::Raise) + 1,
                  "one entry for each Op");
    Patch* const first = patches;
    bool calls = false;
    for (std::uint32_t pc = 0; pc < code.InstrCount; ++pc) {
        const Draft& d = w.Drafts[pc];
        const std::uint8_t uses = kOperands[static_cast<unsigned int>(d.Code)];
        Instr& in = code.Instrs[pc];
        in = {d.Code, d.Count, d.Extra, nullptr, {nullptr}, nullptr};
        if ((uses & kReadsA) != 0) in.A = Address(code, d.A, pc, Field::A, patches);
        if ((uses & kReadsB) != 0) in.B = Address(code, d.B, pc, Field::B, patches);
        if ((uses & kWrites) != 0) in.Dst = code.Slots + d.Dst;
        if (d.Code == Op::Call) in.Function = BuiltinAt(d.Fn);
        if (d.Code == Op::CallHost) in.Host = code.Hosts + d.A;
        if (d.Code == Op::Call && d.Count == 1 && UnaryAt(d.Fn) != nullptr) {
            // Its parameter read where it lives, its plain function called directly.
            in.Code = Op::CallUnary;
            in.A = Address(code, w.ArgRefs[d.Extra], pc, Field::A, patches);
            in.Plain = UnaryAt(d.Fn);
        }
        calls = calls || (uses & kCallsOut) != 0;
    }
    code.Calls = calls;
    for (std::uint32_t i = 0; i < code.ArgCount; ++i) {
        code.Args[i] = Address(code, w.ArgRefs[i], i, Field::Arg, patches);
    }
    code.Result = Address(code, w.Result, 0, Field::Result, patches);
    code.PatchCount = Size32(static_cast<std::size_t>(patches - first));
}

const double* Kalvos::Address(const Code& code, Ref ref, std::uint32_t at, Field where,
                              Patch*& patches) {
    if ((ref & kLinkRef) == 0) return code.Slots + ref;
    *patches++ = {ref & ~kLinkRef, at, where};
    return code.Links[ref & ~kLinkRef].Value;
}

namespace {

template <typename T>
T* Place(char* block, std::size_t& offset, const T* from, std::size_t count) {
    T* to = reinterpret_cast<T*>(block + offset);
    if (count > 0 && from != nullptr) std::memcpy(static_cast<void*>(to), from, count * sizeof(T));
    offset += count * sizeof(T);
    return to;
}

}  // namespace

// The builder's program in one block: the arrays of 8-byte alignment first, then those of 4,
// then the characters. Its instructions are lowered again, to the block's own slots.
Kalvos::ProgramRef Kalvos::Freeze(std::string_view raw, std::uint64_t hash) {
    const Code built = BuiltCode();
    const std::size_t bytes = (sizeof(Program) + 7) / 8 * 8 + built.SlotCount * sizeof(double) +
                              built.LinkCount * sizeof(Link) + built.HostCount * sizeof(HostLink) +
                              built.InstrCount * sizeof(Instr) +
                              built.ArgCount * sizeof(const double*) +
                              built.SiteCount * sizeof(Site) + built.PatchCount * sizeof(Patch) +
                              (built.AuxCount + 3 * built.CalledCount) * sizeof(std::uint32_t) +
                              raw.size() + built.TextLength + built.NamesLength;
    char* block = static_cast<char*>(::operator new(bytes));
    auto* program = new (block) Program();
    std::size_t offset = (sizeof(Program) + 7) / 8 * 8;
    Code& code = program->Body;
    code = built;
    code.Slots = Place(block, offset, built.Slots, built.SlotCount);
    code.Links = Place(block, offset, built.Links, built.LinkCount);
    code.Hosts = Place(block, offset, built.Hosts, built.HostCount);
    code.Instrs = Place<Instr>(block, offset, nullptr, built.InstrCount);
    code.Args = Place<const double*>(block, offset, nullptr, built.ArgCount);
    code.Sites = Place(block, offset, built.Sites, built.SiteCount);
    Patch* const patches = Place<Patch>(block, offset, nullptr, built.PatchCount);
    code.Aux = Place(block, offset, built.Aux, built.AuxCount);
    code.Called = Place(block, offset, built.Called, 3 * std::size_t{built.CalledCount});
    program->Raw = Place(block, offset, raw.data(), raw.size());
    code.Text = Place(block, offset, built.Text, built.TextLength);
    code.Names = Place(block, offset, built.Names, built.NamesLength);
    Lower(code, patches);
    code.Patches = patches;
    program->RawLength = raw.size();
    program->Hash = hash;
    program->Bytes = bytes;
    return ProgramRef(program);
}
