// The Python module `kalvos`: the C++ evaluator itself, so that a script gets exactly the
// values and messages a C++ host gets.
//
// Texts cross as UTF-8; bytes that are not UTF-8 come back as lone surrogates
// ("surrogateescape") and go back as the same bytes, so no text is ever refused or changed.
//
// The GIL is held during evaluation: a call takes nanoseconds to microseconds, and an
// evaluator serves one thread at a time anyway, so releasing it would cost more than it gives.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace py = pybind11;

namespace {

std::string FromPy(const py::handle& text) {
    if (!PyUnicode_Check(text.ptr())) throw py::type_error("a str was expected");
    py::object bytes = py::reinterpret_steal<py::object>(
        PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    char* data = nullptr;
    Py_ssize_t size = 0;
    PyBytes_AsStringAndSize(bytes.ptr(), &data, &size);
    return std::string(data, static_cast<std::size_t>(size));
}

py::str ToPy(const std::string& text) {
    PyObject* result =
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (result == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(result);
}

// The store of one evaluator, seen as a mapping of names to numbers and texts.
class Vars {
public:
    explicit Vars(Kalvos& owner) : Owner(owner) {}

    py::object Get(const py::str& name) const {
        const KalvosVars& vars = Owner.GetVars();
        const unsigned int idx = vars.GetVarIdx(FromPy(name));
        if (idx == KalvosVars::kNoVar) throw py::key_error(std::string(py::repr(name)));
        if (vars.VarIsNum(idx)) return py::float_(vars.GetVarNum(idx, ""));
        return ToPy(std::string(vars.GetVarStrView(idx)));
    }
    void Set(const py::str& name, const py::object& value) {
        KalvosVars& vars = Owner.GetVars();
        if (PyUnicode_Check(value.ptr())) {
            vars.SetVarStr(FromPy(name), FromPy(value));
        } else if (PyBool_Check(value.ptr()) || PyLong_Check(value.ptr()) ||
                   PyFloat_Check(value.ptr())) {
            vars.SetVarNum(FromPy(name), value.cast<double>());
        } else {
            throw py::type_error("a variable holds a number or a str");
        }
    }
    void Del(const py::str& name) {
        if (!Owner.GetVars().DelVar(FromPy(name))) {
            throw py::key_error(std::string(py::repr(name)));
        }
    }
    bool Contains(const py::object& name) const {
        return PyUnicode_Check(name.ptr()) &&
               Owner.GetVars().GetVarIdx(FromPy(name)) != KalvosVars::kNoVar;
    }
    unsigned int Count() const { return Owner.GetVars().GetCount(); }
    // A list of the names in the store's order, so that changing the store while iterating
    // is safe.
    py::list Names() const {
        const KalvosVars& vars = Owner.GetVars();
        py::list names;
        for (unsigned int i = 0; i < vars.GetCount(); ++i) names.append(ToPy(vars.GetVarName(i)));
        return names;
    }

private:
    Kalvos& Owner;
};

// A set-up's values for the host's callback: a float for an expression line, a str for a "$"
// line. An exception the callback raises ends the reading and reaches the caller.
Kalvos::SetupOptions SetupOptions(bool keepGoing, const py::object& onValue) {
    Kalvos::SetupOptions options;
    options.KeepGoing = keepGoing;
    if (onValue.is_none()) return options;
    options.OnResult = [onValue](const Kalvos::SetupResult& result) {
        if (result.Kind == Kalvos::SetupLineKind::Expression) {
            onValue(result.Line, result.Num);
        } else if (result.Kind == Kalvos::SetupLineKind::Text) {
            onValue(result.Line, ToPy(result.Str));
        }
    };
    return options;
}

// A compiled expression, bound to the evaluator that made it.
struct Compiled {
    Kalvos* Owner;
    Kalvos::CompiledExpr Expr;
};

}  // namespace

PYBIND11_MODULE(kalvos, m) {
    m.doc() = "Kalvos: evaluates expressions written as text, with a store of variables.";

    static py::exception<JException> error(m, "Error", PyExc_ValueError);
    error.doc() =
        "A failure of the evaluator (a ValueError): str(e) and e.message are the message, "
        "e.method the step that raised it.";
    py::register_exception_translator([](std::exception_ptr raised) {
        try {
            if (raised) std::rethrow_exception(raised);
        } catch (const JException& e) {
            py::object instance = py::handle(error.ptr())(ToPy(e.GetText()));
            instance.attr("message") = ToPy(e.GetText());
            instance.attr("method") = ToPy(e.GetMethod());
            PyErr_SetObject(error.ptr(), instance.ptr());
        }
    });

    py::class_<Vars>(m, "Vars",
                     "The variable store of an evaluator: a mapping of names to numbers "
                     "(float) and texts (str).")
        .def("__getitem__", &Vars::Get, py::arg("name"))
        .def("__setitem__", &Vars::Set, py::arg("name"), py::arg("value"))
        .def("__delitem__", &Vars::Del, py::arg("name"))
        .def("__contains__", &Vars::Contains, py::arg("name"))
        .def("__len__", &Vars::Count)
        .def(
            "__iter__", [](const Vars& vars) { return py::iter(vars.Names()); },
            "The names, in the store's order.")
        .def("keys", &Vars::Names, "The names, in the store's order.")
        .def(
            "items",
            [](const Vars& vars) {
                py::list items;
                for (const py::handle name : vars.Names()) {
                    items.append(
                        py::make_tuple(name, vars.Get(py::reinterpret_borrow<py::str>(name))));
                }
                return items;
            },
            "(name, value) pairs, in the store's order.")
        .def(
            "get",
            [](const Vars& vars, const py::str& name, const py::object& fallback) {
                return vars.Contains(name) ? vars.Get(name) : fallback;
            },
            py::arg("name"), py::arg("default") = py::none(),
            "The value of a variable, or default when there is none.");

    py::class_<Compiled>(m, "Compiled",
                         "An expression compiled by Kalvos.compile; call it to compute it.")
        .def(
            "__call__", [](const Compiled& c) { return c.Owner->ComputeCompiled(c.Expr); },
            "The value of the expression with the store as it is now; raises kalvos.Error as "
            "Kalvos.compute would, or when the evaluator was reset since.")
        .def_property_readonly(
            "expr_text", [](const Compiled& c) { return ToPy(c.Expr.GetExprText()); },
            "The expression as given to compile.")
        .def_property_readonly(
            "error_text", [](const Compiled& c) { return ToPy(c.Expr.GetErrorText()); },
            "The error text given to compile.");

    py::class_<Kalvos::SetupFailure>(
        m, "SetupFailure",
        "A line of a set-up that failed, as run_setup(keep_going=True) "
        "collects it.")
        .def_readonly("line", &Kalvos::SetupFailure::Line, "Its number, from 1.")
        .def_property_readonly(
            "text", [](const Kalvos::SetupFailure& f) { return ToPy(f.Text); },
            "The line as written.")
        .def_property_readonly(
            "target", [](const Kalvos::SetupFailure& f) { return ToPy(f.Target); },
            "The variable it was to store, or '' when that is not known.")
        .def_property_readonly(
            "method", [](const Kalvos::SetupFailure& f) { return ToPy(f.Method); },
            "The step that raised, as kalvos.Error.method.")
        .def_property_readonly(
            "message", [](const Kalvos::SetupFailure& f) { return ToPy(f.Message); },
            "The message, ending in ' (SOURCE line N)'.")
        .def("__repr__", [](const Kalvos::SetupFailure& f) {
            return py::str("SetupFailure(line={}, message={!r})").format(f.Line, ToPy(f.Message));
        });

    py::class_<Kalvos>(m, "Kalvos",
                       "An evaluator with its own variable store. One object serves one "
                       "thread at a time; the GIL is held while it evaluates.")
        .def(py::init<>())
        .def_property_readonly(
            "vars", [](Kalvos& k) { return Vars(k); }, py::keep_alive<0, 1>(),
            "The variable store, a mapping: k.vars['a'] = 5, del k.vars['a'], 'a' in k.vars.")
        .def(
            "compute",
            [](Kalvos& k, const py::str& expr, const py::str& errortext) {
                return k.ComputeExpr(FromPy(expr), FromPy(errortext));
            },
            py::arg("expr"), py::arg("errortext") = "",
            "The value of a numeric expression; errortext is appended to the message of a "
            "failure. Raises kalvos.Error.")
        .def(
            "compute_bool",
            [](Kalvos& k, const py::str& expr, const py::str& errortext) {
                return k.ComputeExprBool(FromPy(expr), FromPy(errortext));
            },
            py::arg("expr"), py::arg("errortext") = "",
            "The expression as a condition. Raises kalvos.Error.")
        .def(
            "compute_str",
            [](Kalvos& k, const py::str& text, const py::str& errortext) {
                return ToPy(k.ComputeExprStr(FromPy(text), FromPy(errortext)));
            },
            py::arg("text"), py::arg("errortext") = "",
            "The text with every [name] marker replaced by the variable's value. Raises "
            "kalvos.Error.")
        .def(
            "compile",
            [](Kalvos& k, const py::str& expr, const py::str& errortext) {
                return Compiled{&k, k.CompileExpr(FromPy(expr), FromPy(errortext))};
            },
            py::arg("expr"), py::arg("errortext") = "", py::keep_alive<0, 1>(),
            "A callable that computes the expression; a faulty text raises when called.")
        .def(
            "run_setup",
            [](Kalvos& k, const py::str& text, const py::str& source, bool keepGoing,
               const py::object& onValue) {
                return k.RunSetup(FromPy(text), FromPy(source), SetupOptions(keepGoing, onValue));
            },
            py::arg("text"), py::arg("source") = "", py::arg("keep_going") = false,
            py::arg("on_value") = py::none(),
            "Applies a set-up: lines NAME = EXPR, NAME = $TEXT, EXPR, $TEXT and // comments, in "
            "order. on_value(line, value) receives the value of each expression line (float) "
            "and \"$\" line (str). A failing line raises kalvos.Error, its message ending in "
            "' (SOURCE line N)'; with keep_going every line is read and the failures are "
            "returned.")
        .def("reset", &Kalvos::Reset,
             "Back to the fresh state: empty store, reseeded generator; compiled expressions "
             "stop working.")
        .def("set_cache_limits", &Kalvos::SetCacheLimits, py::arg("entries"), py::arg("bytes"),
             "The cache of compiled texts: entries and bytes at most; 0 entries turns it off.")
        .def_property_readonly(
            "expr_text", [](const Kalvos& k) { return ToPy(k.GetExprText()); },
            "The text of the last compute or compute_str call.")
        .def_property_readonly(
            "error_text", [](const Kalvos& k) { return ToPy(k.GetErrorText()); },
            "The error text of the last compute or compute_str call.");
}
