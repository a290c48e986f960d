// The timed benchmarks: each engine case right behind its yardstick, and the
// procedures through the host at one and two threads. The report adds two
// derived counters, both measured in the same run:
//   x_yardstick   the engine's time over its yardstick's (same statistic)
//   x_one_thread  calls per second at two threads over those at one
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <utility>

#include "bench/cases.h"
#include "bench/procedures.h"

namespace {

using Run = benchmark::BenchmarkReporter::Run;

constexpr char kYardstickSuffix[] = "/yardstick";
constexpr int64_t kBatch = 16;

void Loop(benchmark::State& state, void (*calls)(int64_t)) {
    while (state.KeepRunningBatch(kBatch)) calls(kBatch);
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> extended = runs;
        for (Run& run : extended) AddRatios(run);
        ConsoleReporter::ReportRuns(extended);
    }

private:
    // One statistic of one benchmark: the aggregate's name, "" for a plain run.
    using Key = std::pair<std::string, std::string>;

    void AddRatios(Run& run) {
        if (run.error_occurred || run.aggregate_name == "stddev" || run.aggregate_name == "cv") return;
        const std::string& name = run.run_name.function_name;
        if (name.ends_with(kYardstickSuffix)) {
            yardstickTime_[{name.substr(0, name.size() - sizeof kYardstickSuffix + 1), run.aggregate_name}] =
                run.GetAdjustedCPUTime();
            return;
        }
        if (const auto it = yardstickTime_.find({name, run.aggregate_name}); it != yardstickTime_.end()) {
            run.counters["x_yardstick"] = benchmark::Counter(run.GetAdjustedCPUTime() / it->second);
        }
        const auto rate = run.counters.find("items_per_second");
        if (rate == run.counters.end()) return;
        if (run.threads == 1) {
            oneThreadRate_[{name, run.aggregate_name}] = rate->second.value;
        } else if (const auto one = oneThreadRate_.find({name, run.aggregate_name}); one != oneThreadRate_.end()) {
            run.counters["x_one_thread"] = benchmark::Counter(rate->second.value / one->second);
        }
    }

    std::map<Key, double> yardstickTime_;
    std::map<Key, double> oneThreadRate_;
};

}  // namespace

int main(int argc, char** argv) {
    vrn::bench::PrepareCases();
    for (const vrn::bench::Case& c : vrn::bench::Cases()) {
        if (c.yardstick != nullptr) {
            benchmark::RegisterBenchmark((std::string(c.name) + kYardstickSuffix).c_str(), Loop, c.yardstick);
        }
        benchmark::RegisterBenchmark(c.name, Loop, c.engine);
    }
    vrn::bench::RegisterProcedureBenchmarks();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
