// The particle example of README.md, which the documentation test keeps identical to it.
#include <cstdio>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

// [embedding]
struct Particle {
    double Height, Speed, Mass;
};

// The energy of every particle in one call; g comes from the store, the rest from the structs.
void Energies(Kalvos& kalvos, const std::vector<Particle>& particles, double* energy) {
    const auto formula = kalvos.CompileExpr("m * (g * h + v * v / 2)", " in model.cfg");
    const std::size_t stride = sizeof(Particle);
    kalvos.ComputeCompiled(formula, particles.size(),
                           {{"h", &particles[0].Height, stride},
                            {"v", &particles[0].Speed, stride},
                            {"m", &particles[0].Mass, stride}},
                           energy);
}
// [embedding-end]

int main() {
    std::vector<Particle> particles = {{10, 2, 1}, {5, -1, 2}, {0, 8, 0.5}};
    std::vector<double> energy(particles.size());
    Kalvos kalvos;
    kalvos.GetVars().SetVarNum("g", 9.81);
    Energies(kalvos, particles, energy.data());
    for (double e : energy) std::printf("%g\n", e);
    // A failure is the first failing element's, as the loop of single calls would raise it.
    particles[1].Mass = 0;
    try {
        kalvos.ComputeCompiled(
            kalvos.CompileExpr("energy / m", " in model.cfg"), particles.size(),
            {{"energy", energy.data()}, {"m", &particles[0].Mass, sizeof(Particle)}},
            energy.data());
    } catch (const JException& e) {
        std::printf("element %zu: %s\n", kalvos.GetFailedElement(), e.GetText().c_str());
    }
}
