#include "evaluator/Kalvos.h"
#include "support/RandomMersenne.h"

void Kalvos::RandomInit(int seed) const { RandGen->RandomInit(seed); }

double Kalvos::Random() const { return RandGen->Random(); }

double Kalvos::Random(double low, double high) const {
    const double r = RandGen->Random();
    // Subtraction, then product, then sum: equal bounds give back the bound exactly.
    double d = high - low;
    d = d * r;
    return d + low;
}

int Kalvos::RandomInt(int min, int max) const { return RandGen->IRandomX(min, max); }
