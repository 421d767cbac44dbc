// A host that evaluates its texts over and over, moving each text in, must see no heap
// allocation once the object has evaluated each of them twice (a text is kept from its second
// evaluation on): a known text is found in the cache, and with the cache off the compiler's
// working arrays have grown to what it needs.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

std::atomic<long> gAllocations{0};

void* Allocate(std::size_t size) {
    ++gAllocations;
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}

}  // namespace

// The array forms of the standard library forward to these.
void* operator new(std::size_t size) { return Allocate(size); }
void operator delete(void* pointer) noexcept { std::free(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { std::free(pointer); }

// Literals, operators, variables (also indexed), conditions and calls of built-ins with one,
// two and many parameters; each is evaluated by ComputeExpr and by ComputeExprBool.
TEST(NoAllocation, EvaluatingKnownTexts) {
    const char* const expressions[] = {
        "2.5*(3.75-1.25)/0.5+7+1e+3*0.001+1.5E-2",
        "x[1]+x[2]*x[3]-x[10]+x[i+1]*k[x[0]]+m[1][2]+m[2][1]",
        "((a+b)*(c-(d+e)))/((f+1)*(g+2))",
        "(a<b)@@(c>=d)||!(e==f)+-a*-b+!0",
        "sin(a)+cos(b)*sqrt(c)+pow(a,2)+atan2(b,c)-fmod(g,3)",
        "max(a,b,c,d,e,f,g,x[1],x[2],x[3])",
        "min(max(a,b),max(c,d))+abs(e-f)+eval(a>b,c+1,d*2)",
        "pi()*r*r+e()+floor(a/b)*ceil(c/d)+round(x[2])",
        "true@@a>0||FALSE",
        "#FALSE",
        "k[1]*w+k[2]*t-(r/2)+x[0]+sindg(30)+log10(100)+int(7.9)+tanh(1)"};
    for (const bool cached : {true, false}) {
        Kalvos kalvos;
        if (!cached) kalvos.SetCacheLimits(0, 0);
        KalvosVars& vars = kalvos.GetVars();
        for (const char* name :
             {"a", "b", "c", "d", "e", "f", "g", "r", "t", "w", "i", "m12", "m21"})
            vars.SetVarNum(name, 1.25 + vars.GetCount());
        for (int n = 0; n < 20; ++n) {
            vars.SetVarNum("x" + std::to_string(n), 0.5 * n + 1);
            vars.SetVarNum("k" + std::to_string(n), 1.5 * n + 0.25);
        }
        for (int warm = 0; warm < 2; ++warm) {
            for (const char* expression : expressions) kalvos.ComputeExpr(expression, "short");
        }
        long before = gAllocations;
        delete new std::string(100, 'x');
        ASSERT_EQ(gAllocations - before, 2);  // the counter sees allocations
        for (int round = 0; round < 2; ++round) {
            for (const char* expression : expressions) {
                std::string first = expression, second = expression;
                before = gAllocations;
                kalvos.ComputeExpr(std::move(first));
                kalvos.ComputeExprBool(std::move(second), "short");
                EXPECT_EQ(gAllocations - before, 0) << expression << (cached ? " cached" : "");
            }
        }
    }
}
