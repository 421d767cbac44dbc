#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "evaluator/Kalvos.h"

namespace {

// Eight bytes a step: the hash of every known text is taken on each call.
std::uint64_t Mix(std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ull;
    return hash ^ (hash >> 32);
}

// The lowest bit set in a byte that is not 0.
constexpr auto kFirstBit = [] {
    std::array<std::uint8_t, 256> first{};
    for (unsigned int byte = 1; byte < 256; ++byte) {
        while ((byte >> first[byte] & 1u) == 0) ++first[byte];
    }
    return first;
}();

}  // namespace

// Never 0, which stands for no hash.
std::uint64_t Kalvos::HashText(std::string_view text) {
    std::uint64_t hash = Mix(0, text.size());
    std::size_t pos = 0;
    for (; pos + 8 <= text.size(); pos += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + pos, 8);
        hash = Mix(hash, word);
    }
    // The last bytes: the text's last eight, overlapping the words before; a text
    // shorter than a word byte by byte. The length, mixed in first, tells the cases apart.
    std::uint64_t tail = 0;
    if (text.size() >= 8) {
        if (pos < text.size()) std::memcpy(&tail, text.data() + text.size() - 8, 8);
    } else {
        for (const char c : text) tail = tail << 8 | static_cast<unsigned char>(c);
    }
    hash = Mix(hash, tail);
    return hash != 0 ? hash : 1;
}

Kalvos::ProgramRef::ProgramRef(const ProgramRef& other) : Ptr(other.Ptr) {
    if (Ptr != nullptr) Ptr->Refs.fetch_add(1, std::memory_order_relaxed);
}

Kalvos::ProgramRef& Kalvos::ProgramRef::operator=(ProgramRef other) noexcept {
    std::swap(Ptr, other.Ptr);
    return *this;
}

Kalvos::ProgramRef::~ProgramRef() {
    if (Ptr == nullptr || Ptr->Refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    Ptr->~Program();
    ::operator delete(Ptr);
}

Kalvos::ProgramRef Kalvos::ProgramRef::Share(Program* program) {
    program->Refs.fetch_add(1, std::memory_order_relaxed);
    return ProgramRef(program);
}

bool Kalvos::Cacheable(std::string_view raw) const {
    return CacheMaxEntries > 0 && raw.size() <= kMaxCachedTextLength;
}

void Kalvos::SetCacheLimits(std::size_t entries, std::size_t bytes) {
    CheckNotInHost("SetCacheLimits");
    ClearCache();
    Current = ProgramRef();
    CacheMaxEntries = entries;
    CacheMaxBytes = bytes;
    CacheSlots.clear();
    CacheOrder.clear();
    Seen.clear();
}

// A text is kept from its second sight on: the hashes of texts seen lately. A hash met again
// is (but for a 64-bit collision, which only keeps a text early) a text met again. Each hash
// may stand in any of the four slots of two buckets that it chooses, so that texts a host
// evaluates in turn do not push each other out as they would with one slot a text. The table
// has four slots for each entry of the cache and is emptied when half of them are taken: below
// half, all eight slots of a hash are hardly ever taken, so that up to twice as many texts as
// the cache holds, evaluated in turn, are all recognised. Looking up and placing a hash costs
// no chain of dependent loads, which every new text would pay.
bool Kalvos::SeenBefore(std::uint64_t hash) {
    constexpr std::size_t kWays = 4;
    if (Seen.empty()) {
        std::size_t size = 2 * kWays;
        while (size < 4 * CacheMaxEntries) size *= 2;
        Seen.assign(size, 0);
        SeenCount = 0;
    }
    const std::size_t buckets = Seen.size() / kWays;
    std::uint64_t* const one = Seen.data() + kWays * (hash & (buckets - 1));
    std::uint64_t* const two = Seen.data() + kWays * ((hash >> 32) & (buckets - 1));
    bool found = false;
    for (std::size_t i = 0; i < kWays; ++i) found |= one[i] == hash || two[i] == hash;
    if (found) return true;
    if (2 * SeenCount >= Seen.size()) {
        std::fill(Seen.begin(), Seen.end(), 0);
        SeenCount = 0;
    }
    // Branch-free, since whether a slot is free is as good as random: the first free one of
    // the eight, or when all are taken one of the first bucket's, which gives way.
    unsigned int empty = 0;
    for (std::size_t i = 0; i < kWays; ++i) {
        empty |= (one[i] == 0 ? 1u : 0u) << i | (two[i] == 0 ? 1u : 0u) << (i + kWays);
    }
    const unsigned int way = empty != 0 ? kFirstBit[empty] : static_cast<unsigned int>(hash >> 62);
    *(way < kWays ? one + way : two + (way - kWays)) = hash;
    SeenCount += empty != 0 ? 1 : 0;
    return false;
}

std::size_t Kalvos::GetCacheCount() const { return CacheCount; }

std::size_t Kalvos::GetCacheBytes() const { return CacheBytes; }

// Compiles the text as ComputeExpr reads it into a program of its own, kept by the cache when
// the text may be kept and the program fits.
Kalvos::ProgramRef Kalvos::CompileKept(std::string_view raw, std::uint64_t hash) {
    Compile(raw, Mode::Entry);
    ProgramRef program = Freeze(raw, hash);
    if (Cacheable(raw) && program.Get()->Bytes <= CacheMaxBytes) Insert(program);
    return program;
}

// Open addressing with linear probing; the table is at least twice the number of entries.
Kalvos::Program* Kalvos::FindCached(std::string_view raw, std::uint64_t hash) const {
    if (CacheSlots.empty()) return nullptr;
    const std::size_t mask = CacheSlots.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        Program* program = CacheSlots[slot];
        if (program == nullptr) return nullptr;
        if (program->Hash == hash && program->Key() == raw) {
            return program;
        }
    }
}

// The oldest programs leave first, until the new one fits both limits.
void Kalvos::Insert(const ProgramRef& kept) {
    if (CacheSlots.empty()) {
        std::size_t size = 2;
        while (size < 2 * CacheMaxEntries) size *= 2;
        CacheSlots.assign(size, nullptr);
        CacheOrder.assign(CacheMaxEntries, nullptr);
    }
    Program* program = ProgramRef::Share(kept.Get()).Release();
    while (CacheCount == CacheMaxEntries || CacheBytes + program->Bytes > CacheMaxBytes) {
        EvictOldest();
    }
    const std::size_t mask = CacheSlots.size() - 1;
    std::size_t slot = program->Hash & mask;
    while (CacheSlots[slot] != nullptr) slot = (slot + 1) & mask;
    CacheSlots[slot] = program;
    CacheOrder[(CacheOldest + CacheCount) % CacheMaxEntries] = program;
    ++CacheCount;
    CacheBytes += program->Bytes;
}

// Removes the oldest program, moving back every later entry of its probe run that would
// otherwise no longer be found.
void Kalvos::EvictOldest() {
    Program* program = CacheOrder[CacheOldest];
    CacheOrder[CacheOldest] = nullptr;
    CacheOldest = (CacheOldest + 1) % CacheMaxEntries;
    --CacheCount;
    CacheBytes -= program->Bytes;
    const std::size_t mask = CacheSlots.size() - 1;
    std::size_t hole = program->Hash & mask;
    while (CacheSlots[hole] != program) hole = (hole + 1) & mask;
    CacheSlots[hole] = nullptr;
    for (std::size_t slot = (hole + 1) & mask; CacheSlots[slot] != nullptr;
         slot = (slot + 1) & mask) {
        const std::size_t home = CacheSlots[slot]->Hash & mask;
        // The entry may move into the hole unless its home lies cyclically in (hole, slot].
        const bool stays =
            hole <= slot ? (hole < home && home <= slot) : (hole < home || home <= slot);
        if (!stays) {
            CacheSlots[hole] = CacheSlots[slot];
            CacheSlots[slot] = nullptr;
            hole = slot;
        }
    }
    ProgramRef released(program);
}

void Kalvos::ClearCache() {
    while (CacheCount > 0) EvictOldest();
    CacheOldest = 0;
    std::fill(Seen.begin(), Seen.end(), 0);
    SeenCount = 0;
}
