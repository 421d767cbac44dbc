#include <algorithm>
#include <exception>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

void Kalvos::DefineFunction(const std::string& name, unsigned int minParams, unsigned int maxParams,
                            std::function<double(const double* params, unsigned int count)> fn,
                            bool pure, bool threadSafe) {
    CheckNotInHost("DefineFunction");
    const bool callable = !name.empty() && KalvosVars::FirstCharValid(name[0]) &&
                          std::all_of(name.begin(), name.end(), KalvosVars::CharValid);
    if (!callable) Raise<MessageId::HostBadName>(__LINE__, "", name);
    if (HasBuiltin(name)) Raise<MessageId::HostBuiltinName>(__LINE__, "", name);
    if (minParams > maxParams || maxParams > kMaxParameters) {
        Raise<MessageId::HostBadCounts>(__LINE__, "", minParams, maxParams, name, kMaxParameters);
    }
    if (!fn) Raise<MessageId::HostNoComputation>(__LINE__, "", name);
    auto function = std::make_unique<HostFunction>(
        HostFunction{name, minParams, maxParams, std::move(fn), pure, threadSafe});
    const auto same =
        std::find_if(Hosts.begin(), Hosts.end(), [&](const auto& h) { return h->Name == name; });
    if (same != Hosts.end()) {
        *same = std::move(function);
    } else {
        Hosts.push_back(std::move(function));
    }
    ++HostVersion;
}

bool Kalvos::RemoveFunction(const std::string& name) {
    CheckNotInHost("RemoveFunction");
    const auto same =
        std::find_if(Hosts.begin(), Hosts.end(), [&](const auto& h) { return h->Name == name; });
    if (same == Hosts.end()) return false;
    Hosts.erase(same);
    ++HostVersion;
    return true;
}

// The host's code runs here: a JException it throws passes unchanged, any other exception is
// a failure of the call, which the run raises with its site's texts. While it runs, the object
// refuses to be used (CheckNotInHost): the run it interrupted holds its program and scratch.
// No handle is active meanwhile, so that computing one again goes the way that checks.
inline MessageId Kalvos::Invoke(const HostFunction& function, const double* values,
                                unsigned int count, double& value) {
    const HostScope scope(*this, &function);
    try {
        value = function.Compute(values, count);
        return MessageId::Count;
    } catch (const JException&) {
        throw;
    } catch (const std::exception& error) {
        HostError = error.what();
    } catch (...) {
        HostError = "an exception that is no std::exception";
    }
    return MessageId::HostRaised;
}

Kalvos::HostScope::HostScope(Kalvos& k, const HostFunction* function)
    : K(k), Function(function), Active(k.Active) {
    if (Function == nullptr) return;
    k.InHost = Function;
    k.Active = nullptr;
}

Kalvos::HostScope::~HostScope() {
    if (Function == nullptr) return;
    K.InHost = nullptr;
    K.Active = Active;
}

// A pure function of constant parameters is called once for each version of the host's
// functions: a definition or removal forgets the value.
MessageId Kalvos::CallHost(const Code& code, HostLink& link, const double* values, double& value) {
    if (link.Version != HostVersion) ResolveHost(code, link);
    if (link.Kept) {  // only ever with a function
        value = link.Value;
        return MessageId::Count;
    }
    if (link.Function == nullptr) return MessageId::FunctionNotFound;
    // The run reads variables where the store keeps them: a function that added or removed one
    // may have moved them.
    const std::uint64_t store = Vars->GetVersion();
    const MessageId failure = Invoke(*link.Function, values, link.Count, value);
    if (failure != MessageId::Count) return failure;
    if (Vars->GetVersion() != store) return MessageId::HostChangedStore;
    if (link.Constant && link.Function->Pure) {
        link.Kept = true;
        link.Value = value;
    }
    return MessageId::Count;
}

void Kalvos::ResolveHost(const Code& code, HostLink& link) const {
    const std::string_view name(code.Text + link.NameBegin, link.NameLength);
    const auto function = std::find_if(Hosts.begin(), Hosts.end(), [&](const auto& h) {
        return h->Name == name && link.Count >= h->MinParams && link.Count <= h->MaxParams;
    });
    link.Function = function != Hosts.end() ? function->get() : nullptr;
    link.Kept = false;
    link.Version = HostVersion;
}

void Kalvos::RaiseInHost(const char* method) const {
    Raise<MessageId::HostCalledBack>(__LINE__, "", InHost->Name, method);
}
