#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kalvos_export.h"
#include "support/JObject.h"

/// The variable store of an evaluator: named variables holding either a number or a text.
///
/// Names are case-sensitive and may be any text, the empty text and names with blanks
/// included (a string-expression marker can reach names an expression cannot spell).
/// Setting a variable that exists replaces its value and its kind. An index returned by
/// GetVarIdx stays valid until the store changes (a new name, DelVar, Reset).
class KALVOS_EXPORT KalvosVars : public JObject {
public:
    /// The index that designates no variable.
    static constexpr unsigned int kNoVar = 0xFFFFFFFFu;

    /// A numeric variable held for a host that sets or reads it often: Set and Get look no name
    /// up and allocate nothing. The reference follows its variable while other variables come
    /// and go; it goes stale when its variable is deleted (DelVar, Reset) or turns into a text,
    /// and stays stale after that, also when a variable of the same name is defined again.
    /// Using a stale or default-constructed reference raises a JException (method "NumRef").
    /// Like an iterator and its container, a reference must not outlive its store.
    class KALVOS_EXPORT NumRef {
    public:
        NumRef() = default;
        void Set(double value) { *Address() = value; }
        double Get() const { return *Address(); }
        /// The name of the variable; empty for a default-constructed reference.
        const std::string& GetName() const { return Name; }

    private:
        friend class KalvosVars;
        NumRef(KalvosVars* store, unsigned int idx);
        // Where the number lives: kept while the store's version holds, found again by name
        // (and checked to be the same variable) when it has changed.
        double* Address() const {
            return Store != nullptr && Store->Version == Version ? Num : Find();
        }
        double* Find() const;

        KalvosVars* Store = nullptr;
        mutable double* Num = nullptr;
        mutable std::uint64_t Version = 0;
        std::uint64_t Id = 0;
        std::string Name;
    };

    KalvosVars();
    ~KalvosVars();

    /// Removes every variable.
    void Reset();
    void SetVarNum(const std::string& name, double value);
    void SetVarStr(const std::string& name, const std::string& value);
    /// False when there was no variable of that name.
    bool DelVar(const std::string& name);

    unsigned int GetCount() const;
    /// kNoVar when no variable has the name.
    unsigned int GetVarIdx(const std::string& name) const;
    /// The same lookup on any run of characters; allocates nothing.
    unsigned int FindVar(std::string_view name) const;
    /// The name of the variable at an index (the store's order is the order of definition,
    /// until DelVar). Raises for an index that designates no variable.
    const std::string& GetVarName(unsigned int idx) const;

    /// Changes whenever an index or a variable's kind may have changed: a new name, DelVar,
    /// Reset, or a variable turned from number to text or back. A new value alone keeps it.
    std::uint64_t GetVersion() const { return Version; }
    /// Where the number of a numeric variable lives; valid while GetVersion() is unchanged,
    /// and reads every new value the host sets. The index must designate a variable.
    const double* GetNumAddress(unsigned int idx) const { return &Items[idx].Num; }

    bool VarIsNum(unsigned int idx) const { return idx < Items.size() && Items[idx].IsNum; }
    /// The number of a variable; 0 for a text variable. Raises for an index out of range.
    // NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface says
    double GetVarNum(unsigned int idx, std::string errortext) const {
        return idx < Items.size()
                   ? Items[idx].Num
                   : RaiseOutOfRange(idx, MessageId::StoreIndexOutOfRange, errortext);
    }
    /// The text of a variable; empty for a numeric variable. Raises for an index out of range.
    std::string GetVarStr(unsigned int idx, std::string errortext) const;
    /// The text of a variable without copying it; valid until the store changes.
    std::string_view GetVarStrView(unsigned int idx) const;
    /// Raises when no variable has the name or when it holds a text; the error text is
    /// appended to the message.
    double GetVarNum(const std::string& name, std::string errortext) const;
    /// A reference to the numeric variable of that name; raises as GetVarNum does when there is
    /// none or when it holds a text.
    NumRef GetNumRef(const std::string& name);

    /// ASCII letters, digits and '_': what may follow the first character of a name.
    static bool CharValid(char c) { return FirstCharValid(c) || IsDigit(c); }
    /// '0' to '9'.
    static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
    /// ASCII letters and '_': what may begin a name (never a digit, so numbers stay readable).
    static bool FirstCharValid(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    }

    KalvosVars(const KalvosVars&) = delete;
    KalvosVars& operator=(const KalvosVars&) = delete;

private:
    // The evaluator's bulk calls set their columns' variables as SetVarNum does, and then write
    // each element's values where the numbers live.
    friend class Kalvos;

    struct Var {
        std::string Name;
        bool IsNum;
        double Num;
        std::string Str;
        // Tells a variable apart from one defined later under the same name, and a number from
        // what it was before it last turned into a text; what a NumRef holds on to.
        std::uint64_t Id;
    };

    /// SetVarNum, giving the variable's index.
    unsigned int SetNum(std::string_view name, double value);
    double* NumAddress(unsigned int idx) { return &Items[idx].Num; }
    unsigned int Define(std::string_view name);
    void RebuildSlots(std::size_t slotCount);
    void Place(std::size_t idx);
    const Var& At(unsigned int idx, MessageId id, const std::string& errortext) const;
    [[noreturn]] double RaiseOutOfRange(unsigned int idx, MessageId id,
                                        const std::string& errortext) const;

    std::vector<Var> Items;
    // Open addressing over Items: each slot holds an index + 1 in its low half (0 for an empty
    // slot) and the high half of the name's hash, so that a probe compares names only when the
    // hashes agree. The table is kept at most half full so that a probe ends quickly.
    std::vector<std::uint64_t> Slots;
    std::uint64_t Version = 1;
    std::uint64_t LastId = 0;
};
