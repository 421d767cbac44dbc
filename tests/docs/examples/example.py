# [embedding]
import kalvos

k = kalvos.Kalvos()
k.vars["a"] = 5
k.vars["case"] = "run"
print(k.compute("2 * max(a, 3) + 1"))    # 11.0
print(k.compute_str("$[case]_[a].dat"))  # run_5.dat
h = k.compile("a * a")
print(h())                               # 25.0
try:
    k.compute("1 / (a - 5)", " in line 4")
except kalvos.Error as e:
    print(e.method, e)  # ComputExpr Evaluating [1/(a-5)]: Division by zero. in line 4
# [embedding-end]
