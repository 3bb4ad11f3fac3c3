// Recording runs on the device: switched on by formatv2_record.json at each configuration read,
// it changes nothing the host sees but one log line, and keeps each run's inputs as delivered
// and its outputs as published.
#include <thread>

#include "record/record.h"
#include "support/fixture.h"

using namespace fv2test;
namespace record = formatv2::record;

namespace {

// The working directory is a real folder here: the recorder writes with the system's calls.
class Recording : public Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        standin::SetFsRoot("");
        ASSERT_EQ(m->SetPwd((root + "/wd").c_str()), 0);
    }
    void Settings(const std::string& text) { Write(text, "/wd/formatv2_record.json"); }
    record::Recording Recorded() {
        m->FlushRecording();
        record::Recording rec;
        std::string why;
        EXPECT_TRUE(record::ReadRecordingDir(root + "/wd/records", rec, why)) << why;
        return rec;
    }
    // Three runs through a subscribed value, an array and a custom text; the last one fails.
    // What the host saw of each: status, every output and display text, every log line.
    std::vector<std::string> ThreeRuns() {
        const std::string config =
            Config({Row("count", "1:blob:count:*:%d", 1),
                    ArrayRow("xy", {{"1:blob:x:*:%.1f", ","}, {"1:blob:y:*:%s", ";"}}),
                    Row("mark", "ok", 3, 1)});
        Load(config);
        std::vector<std::string> seen;
        for (int run = 0; run < 3; ++run) {
            out = standin::OutputHandle{};
            in.inputs.clear();
            if (run < 2) Feed(0, Ints{run, 7});
            Feed(1, Floats{1.5f, -2.25f});
            Feed(2, Strings{"a", std::string("b\0\xff", 3)});
            g_logs.clear();
            const int status = Run();
            shown.push_back(Shown());
            std::string s = std::to_string(status) + "|" + Shown() + "|";
            for (const auto& [name, list] : out.frame->StringListTable)
                s += name + "=" + list.at(0) + ";";
            for (const auto& [name, list] : out.frame->IntListTable)
                s += name + "=" + std::to_string(list.at(0)) + ";";
            for (const std::string& line : Log(0, true)) s += line;
            seen.push_back(s);
        }
        return seen;
    }
    std::vector<std::string> shown;  // each run's English display text
};

}  // namespace

// The host sees the same runs with recording on; the recording holds each of them, its inputs
// exactly as delivered (a list, floats, texts with any byte) and its outputs as published.
TEST_F(Recording, ChangesNothingTheHostSeesAndKeepsEveryRun) {
    const std::vector<std::string> off = ThreeRuns();
    Settings(R"({"max_bytes": 100000})");
    const std::vector<std::string> on = ThreeRuns();
    EXPECT_EQ(on, off);
    EXPECT_EQ(Count(kInfo, "1001: recording runs into [" + root +
                               "/wd/records], max_bytes 100000, runs all"),
              0)
        << "said at the read, not in a run";
    g_logs.clear();
    Load(Config({Row("mark", "ok", 3, 1)}));
    EXPECT_EQ(Count(kInfo, "recording runs into"), 1);

    const record::Recording rec = Recorded();
    ASSERT_EQ(rec.runs.size(), 3u);
    EXPECT_EQ(rec.headers.at(0).moduleId, 5);
    const record::Run& last = rec.runs[2];
    EXPECT_EQ(last.index, 5u) << "numbered among all runs of the module";
    EXPECT_EQ(last.status, static_cast<int32_t>(kStatusNotDelivered));
    EXPECT_EQ(last.verdict, "NG");
    ASSERT_EQ(last.inputs.size(), 1u) << "the run ended at its first row";
    EXPECT_NE(last.inputs[0].result, 0);
    const record::Run& first = rec.runs[0];
    EXPECT_TRUE(first.inputFrame && first.imgModeSet);
    ASSERT_EQ(first.inputs.size(), 3u);
    EXPECT_EQ(first.inputs[0].source, "blob:count");
    EXPECT_EQ(first.inputs[0].entries.at(0).ints, (std::vector<int32_t>{0, 7}));
    EXPECT_EQ(first.inputs[1].read, record::Read::kMap);
    EXPECT_EQ(first.inputs[1].entries.at(0).floats, (Floats{1.5f, -2.25f}));
    EXPECT_EQ(first.inputs[2].entries.at(0).texts.at(1), std::string("b\0\xff", 3));
    EXPECT_EQ(first.showTextEn, shown.at(3));
    ASSERT_EQ(first.outputs.size(), 3u);
    EXPECT_EQ(first.outputs[1].name, "xy");
    EXPECT_NE(shown.at(3).find("xy:" + first.outputs[1].value.texts.at(0) + " "),
              std::string::npos);
    EXPECT_EQ(rec.configs.count(first.configHash), 1u);
}

TEST_F(Recording, FailedOnlyKeepsTheRunsThatFailed) {
    Settings(R"({"runs": "failed", "dir": "records"})");
    ThreeRuns();
    const record::Recording rec = Recorded();
    ASSERT_EQ(rec.runs.size(), 1u);
    EXPECT_EQ(rec.runs[0].status, static_cast<int32_t>(kStatusNotDelivered));
}

// A settings file that cannot be used leaves recording off, said in one Warn line at the read;
// taking the file away switches recording off at the next read, silently.
TEST_F(Recording, ABadSettingsFileLeavesRecordingOff) {
    Settings(R"({"runs": "some"})");
    const std::vector<std::string> runs = ThreeRuns();
    EXPECT_EQ(
        Count(kWarn, "1002: recording off: " + root + "/wd/formatv2_record.json: \"runs\" must be"),
        0);
    EXPECT_FALSE(std::filesystem::exists(root + "/wd/records"));
    g_logs.clear();
    Load(Config({Row("mark", "ok", 3, 1)}));
    EXPECT_EQ(Log(kWarn).size(), 1u);
    Settings("{}");
    Load(Config({Row("mark", "ok", 3, 1)}));
    std::filesystem::remove(root + "/wd/formatv2_record.json");
    g_logs.clear();
    Load(Config({Row("mark", "ok", 3, 1)}));
    EXPECT_TRUE(Log(kWarn).empty());
    EXPECT_EQ(Count(kInfo, "recording"), 0);
}

// Four modules on four threads, one folder each: every recording holds all of its own runs.
TEST_F(Recording, FourInstancesOnFourThreadsEachKeepTheirOwn) {
    log_set_callbacker(0, nullptr);  // the fixture's collector is for one thread
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            const std::string wd = root + "/wd" + std::to_string(t);
            std::filesystem::create_directories(wd);
            std::ofstream(wd + "/algo_private.json") << Config({Row("n", "1:blob:n:*:%d", 1)});
            std::ofstream(wd + "/formatv2_record.json") << "{}";
            auto* module = static_cast<CFormatV2Module*>(CreateModule());
            module->SetPwd(wd.c_str());
            module->InitAlgoPrivate();
            for (int i = 0; i < 300; ++i) {
                standin::InputHandle input;
                input.frame = std::make_shared<CScFrame>();
                input.frame->IntTable["SINGLE_img_mode"] = 0;
                auto source = std::make_shared<CScFrame>();
                source->IntListTable["k"] = {t, i};
                input.Bind("input0", source, "k");
                standin::OutputHandle output;
                module->Process(input.handle(), output.handle());
            }
            DestroyModule(nullptr, module);
        });
    }
    for (std::thread& t : threads) t.join();
    for (int t = 0; t < 4; ++t) {
        record::Recording rec;
        std::string why;
        ASSERT_TRUE(
            record::ReadRecordingDir(root + "/wd" + std::to_string(t) + "/records", rec, why))
            << why;
        ASSERT_EQ(rec.runs.size(), 300u) << t;
        for (size_t i = 0; i < rec.runs.size(); ++i) {
            EXPECT_EQ(rec.runs[i].inputs.at(0).entries.at(0).ints,
                      (std::vector<int32_t>{t, static_cast<int32_t>(i)}));
        }
    }
}
