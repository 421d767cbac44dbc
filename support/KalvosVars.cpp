#include "support/KalvosVars.h"

#include "support/Functions.h"

namespace {

constexpr std::size_t kFirstSlotCount = 64;

std::uint64_t HashName(std::string_view name) {
    std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const char c : name) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    return hash;
}

// Names are short: compared in place, without the cost of a call to memcmp.
bool SameName(const std::string& stored, std::string_view name) {
    if (stored.size() != name.size()) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (stored[i] != name[i]) return false;
    }
    return true;
}

}  // namespace

KalvosVars::KalvosVars() {
    ClassName = "KalvosVars";
    RebuildSlots(kFirstSlotCount);
}

KalvosVars::~KalvosVars() { Destroying = true; }

void KalvosVars::Reset() {
    ++Version;
    Items.clear();
    RebuildSlots(kFirstSlotCount);
}

void KalvosVars::SetVarNum(const std::string& name, double value) { (void)SetNum(name, value); }

unsigned int KalvosVars::SetNum(std::string_view name, double value) {
    const unsigned int idx = Define(name);
    Var& var = Items[idx];
    if (!var.IsNum) ++Version;
    var.IsNum = true;
    var.Num = value;
    var.Str.clear();
    return idx;
}

void KalvosVars::SetVarStr(const std::string& name, const std::string& value) {
    Var& var = Items[Define(name)];
    if (var.IsNum) {
        ++Version;
        var.Id = ++LastId;  // references to the number go stale
    }
    var.IsNum = false;
    var.Num = 0.0;
    var.Str = value;
}

bool KalvosVars::DelVar(const std::string& name) {
    const unsigned int idx = FindVar(name);
    if (idx == kNoVar) return false;
    ++Version;
    Items.erase(Items.begin() + idx);
    RebuildSlots(Slots.size());
    return true;
}

unsigned int KalvosVars::GetCount() const { return static_cast<unsigned int>(Items.size()); }

unsigned int KalvosVars::GetVarIdx(const std::string& name) const { return FindVar(name); }

unsigned int KalvosVars::FindVar(std::string_view name) const {
    const std::uint64_t hash = HashName(name);
    const std::size_t mask = Slots.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const std::uint64_t entry = Slots[slot];
        if (entry == 0) return kNoVar;
        const auto idx = static_cast<std::uint32_t>(entry) - 1;
        if ((entry >> 32) == (hash >> 32) && SameName(Items[idx].Name, name)) return idx;
    }
}

const std::string& KalvosVars::GetVarName(unsigned int idx) const {
    return At(idx, MessageId::NameIndexOutOfRange, "").Name;
}

// The error texts of the value readers are taken by value: the store's interface says so.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string KalvosVars::GetVarStr(unsigned int idx, std::string errortext) const {
    return At(idx, MessageId::StrIndexOutOfRange, errortext).Str;
}

std::string_view KalvosVars::GetVarStrView(unsigned int idx) const {
    return At(idx, MessageId::StrIndexOutOfRange, "").Str;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface says
double KalvosVars::GetVarNum(const std::string& name, std::string errortext) const {
    const unsigned int idx = FindVar(name);
    if (idx == kNoVar) Raise<MessageId::StoreNoVariable>(__LINE__, errortext, name);
    if (!Items[idx].IsNum) Raise<MessageId::StoreNotNumeric>(__LINE__, errortext, name);
    return Items[idx].Num;
}

KalvosVars::NumRef KalvosVars::GetNumRef(const std::string& name) {
    const unsigned int idx = FindVar(name);
    if (idx == kNoVar) Raise<MessageId::RefNoVariable>(__LINE__, "", name);
    if (!Items[idx].IsNum) Raise<MessageId::RefNotNumeric>(__LINE__, "", name);
    return NumRef(this, idx);
}

KalvosVars::NumRef::NumRef(KalvosVars* store, unsigned int idx)
    : Store(store),
      Num(&store->Items[idx].Num),
      Version(store->Version),
      Id(store->Items[idx].Id),
      Name(store->Items[idx].Name) {}

double* KalvosVars::NumRef::Find() const {
    if (Store == nullptr) {
        const MessageReport report = Describe<MessageId::RefEmpty>(__LINE__, "");
        throw JException(report.Module, report.Line, "KalvosVars", report.Method, report.Text, "");
    }
    const unsigned int idx = Store->FindVar(Name);
    if (idx == kNoVar || Store->Items[idx].Id != Id) {
        Store->Raise<MessageId::RefStale>(__LINE__, "", Name);
    }
    Num = &Store->Items[idx].Num;
    Version = Store->Version;
    return Num;
}

unsigned int KalvosVars::Define(std::string_view name) {
    const unsigned int found = FindVar(name);
    if (found != kNoVar) return found;
    ++Version;
    Items.push_back(Var{std::string(name), true, 0.0, std::string(), ++LastId});
    if (Items.size() * 2 > Slots.size()) {
        RebuildSlots(Slots.size() * 2);
    } else {
        Place(Items.size() - 1);
    }
    return static_cast<unsigned int>(Items.size() - 1);
}

void KalvosVars::RebuildSlots(std::size_t slotCount) {
    Slots.assign(slotCount, 0);
    for (std::size_t i = 0; i < Items.size(); ++i) Place(i);
}

void KalvosVars::Place(std::size_t idx) {
    const std::uint64_t hash = HashName(Items[idx].Name);
    const std::size_t mask = Slots.size() - 1;
    std::size_t slot = hash & mask;
    while (Slots[slot] != 0) slot = (slot + 1) & mask;
    Slots[slot] = (hash & 0xFFFFFFFF00000000ull) | (idx + 1);
}

const KalvosVars::Var& KalvosVars::At(unsigned int idx, MessageId id,
                                      const std::string& errortext) const {
    if (idx >= Items.size()) RaiseOutOfRange(idx, id, errortext);
    return Items[idx];
}

double KalvosVars::RaiseOutOfRange(unsigned int idx, MessageId id,
                                   const std::string& errortext) const {
    switch (id) {
        case MessageId::StoreIndexOutOfRange:
            Raise<MessageId::StoreIndexOutOfRange>(__LINE__, errortext, idx);
        case MessageId::StrIndexOutOfRange:
            Raise<MessageId::StrIndexOutOfRange>(__LINE__, errortext, idx);
        default:
            Raise<MessageId::NameIndexOutOfRange>(__LINE__, errortext, idx);
    }
}
