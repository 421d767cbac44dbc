#include "capi/kalvos_c.h"

#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

struct kalvos {
    Kalvos Eval;
    std::string Message;
    std::string Method;
    std::string Result;                          // the text kalvos_compute_str hands out
    std::vector<Kalvos::SetupFailure> Failures;  // of the last kalvos_run_setup_all
};

struct kalvos_compiled {
    Kalvos::CompiledExpr Expr;
};

namespace {

// Raised inside a call for a NULL argument, so that every check is one line.
struct NullArgument {};

void Require() {}
template <typename First, typename... Rest>
void Require(const First* pointer, const Rest*... rest) {
    if (pointer == nullptr) throw NullArgument{};
    Require(rest...);
}

// A text given with its length. The length is checked before it is used, so that a length
// no string can hold fails without pointing past the caller's memory.
std::string Bytes(const char* text, size_t length) {
    if (length > std::string().max_size()) throw std::length_error("text too long");
    return std::string(text, length);
}

// A NULL error text is the empty one.
const char* Text(const char* text) { return text != nullptr ? text : ""; }

// Recording a failure must not throw in its turn: an exception that reached the C caller
// would end the process. A message that cannot be copied is left empty.
int Fail(kalvos* k, int status, const char* message, const char* method) noexcept {
    try {
        k->Message = message;
        k->Method = method;
    } catch (...) {
        k->Message.clear();
        k->Method.clear();
    }
    return status;
}

// Runs one call: clears the last failure, and turns whatever the call raises into a status
// with its message and method kept in the object.
template <typename Action>
int Guard(kalvos* k, const char* function, Action&& action) noexcept {
    if (k == nullptr) return KALVOS_NULL_ARGUMENT;
    k->Message.clear();
    k->Method.clear();
    try {
        action();
        return KALVOS_OK;
    } catch (const JException& raised) {
        return Fail(k, KALVOS_FAILED, raised.GetText().c_str(), raised.GetMethod().c_str());
    } catch (const NullArgument&) {
        return Fail(k, KALVOS_NULL_ARGUMENT, "A required pointer argument is NULL.", function);
    } catch (const std::bad_alloc&) {
        return Fail(k, KALVOS_NO_MEMORY, "Out of memory.", function);
    } catch (const std::length_error&) {
        return Fail(k, KALVOS_NO_MEMORY, "A text is longer than a string can be.", function);
    } catch (const std::exception& raised) {
        return Fail(k, KALVOS_INTERNAL, raised.what(), function);
    } catch (...) {
        return Fail(k, KALVOS_INTERNAL, "Unknown failure.", function);
    }
}

}  // namespace

kalvos* kalvos_create(void) {
    try {
        return new kalvos;
    } catch (...) {
        return nullptr;
    }
}

void kalvos_destroy(kalvos* k) { delete k; }

int kalvos_reset(kalvos* k) {
    return Guard(k, __func__, [&] { k->Eval.Reset(); });
}

const char* kalvos_message(const kalvos* k) { return k != nullptr ? k->Message.c_str() : ""; }

const char* kalvos_method(const kalvos* k) { return k != nullptr ? k->Method.c_str() : ""; }

int kalvos_set_num(kalvos* k, const char* name, double value) {
    return Guard(k, __func__, [&] {
        Require(name);
        k->Eval.GetVars().SetVarNum(name, value);
    });
}

int kalvos_set_str(kalvos* k, const char* name, const char* value) {
    return Guard(k, __func__, [&] {
        Require(name, value);
        k->Eval.GetVars().SetVarStr(name, value);
    });
}

int kalvos_set_str_n(kalvos* k, const char* name, size_t name_length, const char* value,
                     size_t value_length) {
    return Guard(k, __func__, [&] {
        Require(name, value);
        k->Eval.GetVars().SetVarStr(Bytes(name, name_length), Bytes(value, value_length));
    });
}

int kalvos_delete(kalvos* k, const char* name, int* existed) {
    return Guard(k, __func__, [&] {
        Require(name);
        const bool found = k->Eval.GetVars().DelVar(name);
        if (existed != nullptr) *existed = found ? 1 : 0;
    });
}

int kalvos_get_num(kalvos* k, const char* name, double* value) {
    return Guard(k, __func__, [&] {
        Require(name, value);
        *value = k->Eval.GetVars().GetVarNum(std::string(name), "");
    });
}

int kalvos_has(kalvos* k, const char* name, int* exists) {
    return Guard(k, __func__, [&] {
        Require(name, exists);
        *exists = k->Eval.GetVars().FindVar(name) != KalvosVars::kNoVar ? 1 : 0;
    });
}

int kalvos_compute(kalvos* k, const char* expr, const char* errortext, double* value) {
    return Guard(k, __func__, [&] {
        Require(expr, value);
        *value = k->Eval.ComputeExpr(expr, Text(errortext));
    });
}

int kalvos_compute_bool(kalvos* k, const char* expr, const char* errortext, int* value) {
    return Guard(k, __func__, [&] {
        Require(expr, value);
        *value = k->Eval.ComputeExprBool(expr, Text(errortext)) ? 1 : 0;
    });
}

int kalvos_compute_str(kalvos* k, const char* text, const char* errortext, const char** result) {
    return Guard(k, __func__, [&] {
        Require(text, result);
        k->Result = k->Eval.ComputeExprStr(text, Text(errortext));
        *result = k->Result.c_str();
    });
}

int kalvos_compute_str_n(kalvos* k, const char* text, size_t text_length, const char* errortext,
                         const char** result, size_t* result_length) {
    return Guard(k, __func__, [&] {
        Require(text, result);
        k->Result = k->Eval.ComputeExprStr(Bytes(text, text_length), Text(errortext));
        *result = k->Result.c_str();
        if (result_length != nullptr) *result_length = k->Result.size();
    });
}

int kalvos_compile(kalvos* k, const char* expr, const char* errortext, kalvos_compiled** handle) {
    return Guard(k, __func__, [&] {
        Require(expr, handle);
        *handle = nullptr;
        *handle = new kalvos_compiled{k->Eval.CompileExpr(expr, Text(errortext))};
    });
}

int kalvos_compute_compiled(kalvos* k, const kalvos_compiled* handle, double* value) {
    return Guard(k, __func__, [&] {
        Require(handle, value);
        *value = k->Eval.ComputeCompiled(handle->Expr);
    });
}

void kalvos_compiled_destroy(kalvos_compiled* handle) { delete handle; }

int kalvos_set_cache_limits(kalvos* k, size_t entries, size_t bytes) {
    return Guard(k, __func__, [&] { k->Eval.SetCacheLimits(entries, bytes); });
}

namespace {

// A set-up's values, handed to the host's callback as C can take them.
Kalvos::SetupOptions SetupOptions(bool keepGoing, kalvos_setup_callback onValue, void* context) {
    Kalvos::SetupOptions options;
    options.KeepGoing = keepGoing;
    if (onValue == nullptr) return options;
    options.OnResult = [onValue, context](const Kalvos::SetupResult& result) {
        if (result.Kind == Kalvos::SetupLineKind::Expression) {
            onValue(context, result.Line, 0, result.Num, "");
        } else if (result.Kind == Kalvos::SetupLineKind::Text) {
            onValue(context, result.Line, 1, 0.0, result.Str.c_str());
        }
    };
    return options;
}

}  // namespace

int kalvos_run_setup(kalvos* k, const char* text, const char* source,
                     kalvos_setup_callback on_value, void* context) {
    return Guard(k, __func__, [&] {
        Require(text);
        k->Failures.clear();
        k->Eval.RunSetup(text, Text(source), SetupOptions(false, on_value, context));
    });
}

// The status and the message are those of the first failing line, as if it had raised.
int kalvos_run_setup_all(kalvos* k, const char* text, const char* source,
                         kalvos_setup_callback on_value, void* context, size_t* failures) {
    if (failures != nullptr) *failures = 0;
    const int status = Guard(k, __func__, [&] {
        Require(text);
        k->Failures.clear();
        k->Failures = k->Eval.RunSetup(text, Text(source), SetupOptions(true, on_value, context));
        if (failures != nullptr) *failures = k->Failures.size();
    });
    if (status != KALVOS_OK || k->Failures.empty()) return status;
    const Kalvos::SetupFailure& first = k->Failures.front();
    return Fail(k, KALVOS_FAILED, first.Message.c_str(), first.Method.c_str());
}

int kalvos_setup_failure(const kalvos* k, size_t index, unsigned long* line, const char** message) {
    if (k == nullptr || line == nullptr || message == nullptr) return KALVOS_NULL_ARGUMENT;
    if (index >= k->Failures.size()) return KALVOS_FAILED;
    *line = k->Failures[index].Line;
    *message = k->Failures[index].Message.c_str();
    return KALVOS_OK;
}
