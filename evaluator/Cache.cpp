#include <algorithm>
#include <cstring>
#include <utility>

#include "evaluator/Kalvos.h"

namespace {

// Eight bytes a step: the hash of every known text is taken on each call.
std::uint64_t Mix(std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ull;
    return hash ^ (hash >> 32);
}

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
    ClearCache();
    Current = ProgramRef();
    CacheMaxEntries = entries;
    CacheMaxBytes = bytes;
    CacheSlots.clear();
    CacheOrder.clear();
    Seen.clear();
}

// A text is kept from its second sight on: the hashes of texts seen lately, each in one of two
// slots its hash chooses. A hash met again is (but for a 64-bit collision, which only keeps a
// text early) a text met again. With one slot a text, two texts a host evaluates in turn that
// share it would push each other out for ever and never be kept; here a newcomer takes its
// first slot when free, else its second, moving the occupant on to that hash's other slot,
// and that one's occupant once more, as cuckoo hashing does. The table is at least twice the
// cache, so only a far older text drops out. More moves would keep a little more of a full
// table, at a cost to every new text: the moves are a chain of dependent loads.
bool Kalvos::SeenBefore(std::uint64_t hash) {
    if (Seen.empty()) {
        std::size_t size = 2;
        while (size < 2 * CacheMaxEntries) size *= 2;
        Seen.assign(size, 0);
    }
    const std::size_t mask = Seen.size() - 1;
    const auto slots = [mask](std::uint64_t h) {
        return std::pair<std::size_t, std::size_t>(h & mask, (h >> 32) & mask);
    };
    const auto [first, second] = slots(hash);
    if (Seen[first] == hash || Seen[second] == hash) return true;
    std::size_t slot = Seen[first] == 0 ? first : second;
    std::uint64_t moving = hash;
    for (int move = 0; move < 2 && moving != 0; ++move) {
        std::swap(moving, Seen[slot]);
        const auto [one, other] = slots(moving);
        slot = one != slot ? one : other;
    }
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
}
