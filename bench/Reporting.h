#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Shows the runs as the console reporter does and keeps the time of each, by name, for the
// summary printed after the run: the median when repetitions were asked for, otherwise the
// fastest run. CPU time by default, since most calls are single-threaded and it is what other
// processes on the machine disturb least; wall-clock time for runs that use more threads.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal, as the library's own reporter does by default.
    explicit CollectingReporter(bool realTime = false)
        : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular), RealTime(realTime) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            benchmark::BenchmarkName key = run.run_name;
            key.time_type.clear();  // "real_time" is how a row is timed, not part of its name
            const std::string name = key.str();
            const double time = RealTime ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") Medians[name] = time;
            } else if (Fastest.count(name) == 0 || time < Fastest[name]) {
                Fastest[name] = time;
            }
        }
    }
    std::map<std::string, double> Times() const {
        std::map<std::string, double> times = Fastest;
        for (const auto& [name, time] : Medians) times[name] = time;
        return times;
    }

private:
    bool RealTime;
    std::map<std::string, double> Fastest;
    std::map<std::string, double> Medians;
};

}  // namespace bench
