"""The Python module: the mapping of variables, the entry points, compiled expressions,
set-ups, failures, and the same values and messages as C++ on random texts."""

import os
import random
import struct
import subprocess

import pytest

import kalvos


@pytest.fixture
def k():
    k = kalvos.Kalvos()
    k.vars["a"] = 5
    k.vars["case"] = "run"
    return k


def test_vars_mapping(k):
    k.vars["b"] = 2.5
    assert k.vars["a"] == 5.0 and isinstance(k.vars["a"], float)
    assert k.vars["case"] == "run"
    assert "b" in k.vars and "zz" not in k.vars and 3 not in k.vars
    assert list(k.vars) == ["a", "case", "b"] and len(k.vars) == 3
    assert k.vars.items() == [("a", 5.0), ("case", "run"), ("b", 2.5)]
    assert k.vars.get("zz", 7) == 7
    del k.vars["a"]
    assert "a" not in k.vars
    with pytest.raises(KeyError):
        del k.vars["a"]
    with pytest.raises(KeyError):
        k.vars["a"]
    with pytest.raises(TypeError):
        k.vars["c"] = [1]
    k.vars["é"] = "ü\udcff"  # not UTF-8 in the store: the same bytes come back
    assert k.compute_str("[é]") == "ü\udcff"


@pytest.mark.parametrize("call, expected", [
    (lambda k: k.compute("2 * max(a, 3) + 1"), 11.0),
    (lambda k: k.compute_bool("a >= 5 @@ !0"), True),
    (lambda k: k.compute_bool("false"), False),
    (lambda k: k.compute_str("$[case]_[a].dat"), "run_5.dat"),
])
def test_entry_points(k, call, expected):
    assert call(k) == expected


@pytest.mark.parametrize("call, method, message", [
    (lambda k: k.compute("1 / (a - 5)", " in line 4"), "ComputExpr",
     "Evaluating [1/(a-5)]: Division by zero. in line 4"),
    (lambda k: k.compute(""), "ComputeExpr", "Expression is empty."),
    (lambda k: k.compute_str("[nope]"), "ComputExprStr",
     "Evaluating [[nope]]: The variable 'nope' does not exist."),
    (lambda k: k.compile("a +* 1")(), "ComputExpr",
     "Evaluating [a+*1]: Operator at position 3 is invalid."),
])
def test_failures(k, call, method, message):
    with pytest.raises(kalvos.Error) as raised:
        call(k)
    assert isinstance(raised.value, ValueError)
    assert (raised.value.method, raised.value.message, str(raised.value)) == (
        method, message, message)


def test_compiled(k):
    h = k.compile("a * a", " (h)")
    assert (h(), h.expr_text, h.error_text) == (25.0, "a * a", " (h)")
    k.vars["a"] = 3
    assert h() == 9.0
    k.reset()
    assert len(k.vars) == 0
    with pytest.raises(kalvos.Error) as raised:
        h()
    assert raised.value.method == "ComputeCompiled"
    del k
    assert pytest.raises(kalvos.Error, h)  # the handle keeps its evaluator alive


def test_run_setup(k):
    seen = []
    setup = "\ufeffdepth = 0.8 // m\r\nx[1 + 1] = depth * 2\ncase = $run_[depth]\nx2\n$[case]\n"
    assert k.run_setup(setup, "flume.cfg", on_value=lambda line, value: seen.append((line, value))) == []
    assert seen == [(4, 1.6), (5, "run_0.8")]
    assert (k.vars["x2"], k.vars["case"]) == (1.6, "run_0.8")
    with pytest.raises(kalvos.Error) as raised:
        k.run_setup("b = 1\nc = 1 / 0\nd = 1", source="s")
    assert (raised.value.method, raised.value.message) == (
        "ComputExpr", "Evaluating [1/0]: Division by zero. (s line 2)")
    assert "b" in k.vars and "d" not in k.vars


def test_run_setup_keeps_going(k):
    failures = k.run_setup("e = 1/0\nf = 2\ng = e\n", keep_going=True)
    assert [(f.line, f.text, f.target, f.method, f.message) for f in failures] == [
        (1, "e = 1/0", "e", "ComputExpr", "Evaluating [1/0]: Division by zero. (line 1)"),
        (3, "g = e", "g", "ComputExpr", "Evaluating [e]: The variable 'e' does not exist. (line 3)")]
    assert k.vars["f"] == 2.0

    def stop(line, value):
        raise RuntimeError("enough")
    with pytest.raises(RuntimeError):  # the callback's exception ends the reading
        k.run_setup("1\nh = 1", keep_going=True, on_value=stop)
    assert "h" not in k.vars


def random_text(rng):
    atoms = ["1", "2.5", "0", "a", "b", "x[1]", "x[a-4]", "s", "nope", "pi()", "1e3", ".5"]
    functions = ["sin", "max", "min", "sqrt", "abs", "pow", "log", "int"]
    operators = ["+", "-", "*", "/", "<", ">=", "==", "!=", "@@", "||"]

    def expr(depth):
        roll = rng.random()
        if depth > 3 or roll < 0.35:
            return rng.choice(atoms)
        if roll < 0.5:
            return "(" + expr(depth + 1) + ")"
        if roll < 0.6:
            return "!" + expr(depth + 1)
        if roll < 0.75:
            args = ",".join(expr(depth + 1) for _ in range(rng.randint(1, 3)))
            return rng.choice(functions) + "(" + args + ")"
        return expr(depth + 1) + rng.choice(operators) + expr(depth + 1)

    text = expr(0)
    if rng.random() < 0.15:  # a fault of the text itself
        cut = rng.randrange(len(text) + 1)
        text = text[:cut] + rng.choice(["(", ")", "]", "$", "[", ",", "#"]) + text[cut:]
    mode = rng.choice("nnnnbs")
    if mode == "s":
        text = "$" + text.replace("a", "[a]").replace("s", "[s]")
    return mode + text


def test_same_as_cpp():
    rng = random.Random(15)
    texts = [random_text(rng) for _ in range(200)]
    reference = os.environ["KALVOS_REFERENCE"]
    cpp = subprocess.run([reference], input="\n".join(texts) + "\n", capture_output=True,
                         text=True, check=True).stdout.splitlines()
    k = kalvos.Kalvos()
    k.vars["a"], k.vars["b"], k.vars["x1"], k.vars["s"] = 5, -2.5, 3, "run"
    py = []
    for line in texts:
        mode, text = line[0], line[1:]
        try:
            if mode == "n":
                bits = struct.unpack("<Q", struct.pack("<d", k.compute(text, " (py)")))[0]
                py.append(f"= {bits:016x}")
            elif mode == "b":
                py.append(f"= {int(k.compute_bool(text, ' (py)'))}")
            else:
                py.append(f"= {k.compute_str(text, ' (py)')}")
        except kalvos.Error as e:
            py.append(f"! {e.method} | {e.message}")
    assert py == cpp
    assert sum(line.startswith("!") for line in py) > 20  # the failures are compared too
