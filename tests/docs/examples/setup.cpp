// [embedding]
#include <fstream>
#include <iostream>

#include "evaluator/Kalvos.h"

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "setup.kalvos";
    std::ifstream file(path);
    if (!file) return 2;
    Kalvos kalvos;
    try {
        kalvos.RunSetup(file, "setup.kalvos");  // raises the first failing line
    } catch (const JException& e) {
        std::cerr << e.GetText() << '\n';  // ... (setup.kalvos line 12)
        return 1;
    }
    std::cout << kalvos.ComputeExprStr("$[output]") << '\n';  // /data/flume/run_2.5s_B.csv

    // Keep going: every failing line is collected, and the checks' values reach a callback.
    Kalvos::SetupOptions options;
    options.KeepGoing = true;
    options.OnResult = [](const Kalvos::SetupResult& result) {
        if (result.Kind == Kalvos::SetupLineKind::Expression) {
            std::cout << "line " << result.Line << ": " << result.Num << '\n';  // line 2: 0.75
        }
    };
    const std::string more = "ratio = height / depth\nratio * 5\nw = 1 / (n - 4)\n";
    for (const Kalvos::SetupFailure& failure : kalvos.RunSetup(more, "more", options)) {
        std::cout << failure.Message << '\n';  // ... Division by zero. (more line 3)
    }
}
// [embedding-end]
