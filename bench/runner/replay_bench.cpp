// Replaying 10,000 recorded runs (read from disk, every input delivered as recorded, every
// result compared) against its peer: playing the same 10,000 runs from scenario values through
// the same session code, without reading or comparing anything. Both load the module with
// dlopen, as the host does. The recording is made once, by the module, before anything is timed.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>

#include "tests/support/config_text.h"
#include "tools/runner/commands/replay.h"
#include "tools/runner/drive/session.h"

namespace {

using namespace preview;
constexpr int kRuns = 10000;

struct Workload {
    std::string dir;
    Scenario scenario;
    Options options;

    Workload() {
        char tmpl[] = "/tmp/fv2replayXXXXXX";
        dir = mkdtemp(tmpl);
        options.module = FORMATV2_MODULE_PATH;
        using fv2test::Config;
        using fv2test::Row;
        scenario.config.text =
            Config({Row("count", "1:blob:count:*:%d", 1), Row("width", "1:gauge:width:0:%1.2f", 3),
                    Row("lot", "1:ocr:lot:0:%s", 3),
                    fv2test::ArrayRow("xy", {{"1:blob:x:*:%.1f", ","}, {"1:blob:y:*:%d", ";"}})},
                   1, "telegram");
        for (int i = 0; i < kRuns; ++i) {
            RunSpec run;
            run.name = "part " + std::to_string(i);
            run.imgMode = 0;
            run.values["blob:count"] = {Value::Kind::kInt, true, {i, i + 1}, {}, {}};
            run.values["gauge:width"] = {Value::Kind::kFloat, false, {}, {12.0f + i / 1000.0f}, {}};
            run.values["ocr:lot"] = {Value::Kind::kString, false, {}, {}, {"A" + std::to_string(i)}};
            run.values["blob:x"] = {Value::Kind::kFloat, true, {}, {1.5f, 2.5f, 3.5f}, {}};
            run.values["blob:y"] = {Value::Kind::kInt, true, {7, 8, 9}, {}, {}};
            scenario.runs.push_back(std::move(run));
        }
        Session session;
        session.RecordAs("{\"dir\": \"" + dir + "/rec\", \"max_bytes\": 1000000000}");
        if (!Play(session)) std::abort();
    }
    ~Workload() { std::filesystem::remove_all(dir); }

    bool Play(Session& session) const {
        std::string error;
        InitReport init;
        if (!session.Open(options.module, error) || !session.Init(scenario, init, error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return false;
        }
        for (const RunSpec& run : scenario.runs) {
            RunReport report;
            if (!session.Run(run, report, error)) return false;
            benchmark::DoNotOptimize(report.status);
        }
        return true;
    }
};

Workload& TheWorkload() {
    static Workload w;
    return w;
}

void BM_Replay(benchmark::State& state) {
    Workload& w = TheWorkload();
    for (auto _ : state) {
        formatv2::record::Recording rec;
        std::string why;
        if (!formatv2::record::ReadRecordingDir(w.dir + "/rec", rec, why)) std::abort();
        Outcome o;
        if (!Replay(rec, std::nullopt, w.options, o) || rec.runs.size() != kRuns ||
            !o.found.empty()) {
            state.SkipWithError("the replay did not give every run the same");
            break;
        }
    }
    state.counters["runs/s"] = benchmark::Counter(static_cast<double>(kRuns) * state.iterations(),
                                                  benchmark::Counter::kIsRate);
}

void BM_PlayScenario(benchmark::State& state) {
    Workload& w = TheWorkload();
    for (auto _ : state) {
        Session session;
        if (!w.Play(session)) std::abort();
    }
    state.counters["runs/s"] = benchmark::Counter(static_cast<double>(kRuns) * state.iterations(),
                                                  benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_Replay)->Name("Replay10000")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlayScenario)->Name("PlayScenario10000")->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
