// The shared fixture: a module made by CreateModule, placed in the working directory "/wd" of
// a private file tree (the stand-in host resolves absolute paths below it), run handles of
// the stand-in host, and the module's log lines as the logging callback receives them.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "formatv2/formatv2.h"
#include "host/standin/standin.h"
#include "log/log.h"
#include "record/record.h"
#include "support/config_text.h"

namespace fv2test {

using Ints = std::vector<int>;
using Floats = std::vector<float>;
using Strings = std::vector<std::string>;
constexpr int kInfo = LOG_LEVEL_INFO, kWarn = LOG_LEVEL_WARN, kErr = LOG_LEVEL_ERR;

// Every line the module logged, with its level, as the library finished it.
inline std::vector<std::pair<int, std::string>> g_logs;

// FORMATV2_TEST_RECORDING=1: each test runs with the module recording its runs to disk
// (formatv2_record.json in a real working directory), which must change nothing the test sees
// but the one line at each configuration read saying where the runs go; that line is left out.
inline bool RecordingEverything() {
    const char* on = std::getenv("FORMATV2_TEST_RECORDING");
    return on != nullptr && std::string(on) == "1";
}
inline constexpr char kRecordingLine[] = "formatv2.cpp:1001: ";

// The lines of level (0: all) as "NNNN: message" (numbered) or "message", colour reset cut.
inline Strings Log(int level = 0, bool numbered = false) {
    Strings out;
    for (const auto& [lineLevel, line] : g_logs) {
        const size_t from = line.find(".cpp:") + (numbered ? 5 : 11), reset = line.rfind("\033[0m");
        if (level == 0 || lineLevel == level) out.push_back(line.substr(from, reset - from));
    }
    return out;
}

// Lines of level holding text; a text may start with the line number ("0490: ...").
inline int Count(int level, const std::string& text) {
    int n = 0;
    for (const std::string& line : Log(level, true)) n += line.find(text) != std::string::npos;
    return n;
}

// The lines logged under the given line numbers, in order: "NNNN: message" or just "NNNN ".
inline std::string Fixed(std::initializer_list<int> numbers, bool messages = true) {
    std::string all;
    for (const std::string& l : Log(0, true)) {
        for (int n : numbers) all += std::stoi(l) != n ? "" : messages ? l : l.substr(0, 4) + " ";
    }
    return all;
}

// A Value as "i:1,2", "f:1.5", "s:a,b", or "-" when empty.
inline std::string Describe(const Any& value) {
    Any v(value);
    std::ostringstream out;
    auto join = [&out](const char* tag, const auto& list) {
        out << tag;
        for (size_t i = 0; i < list.size(); ++i) out << (i ? "," : "") << list[i];
    };
    if (v.Is<IntList>()) join("i:", v.AnyCast<IntList>());
    if (v.Is<FloatList>()) join("f:", v.AnyCast<FloatList>());
    if (v.Is<StringList>()) join("s:", v.AnyCast<StringList>());
    return v.holder ? out.str() : "-";
}

class Fixture : public ::testing::Test {
  protected:
    static constexpr const char* kConfig = "/wd/algo_private.json";
    static constexpr const char* kDefault = "/mnt/app/zrs_so/so/formatv2/json/algo_private.json";

    void SetUp() override {
        char dir[] = "/tmp/fv2test.XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        root = dir;
        standin::Reset();
        standin::SetFsRoot(root);
        std::filesystem::create_directories(root + "/wd");
        log_set_priority(-1, LOG_LEVEL_OFF);  // nothing printed; the callback sees every line
        log_set_callbacker(0, [](int, int level, int, const char* line, int len) {
            std::string text(line, static_cast<size_t>(len));
            if (!RecordingEverything() || text.find(kRecordingLine) == std::string::npos)
                g_logs.emplace_back(level, std::move(text));
            return 0;
        });
        m = static_cast<CFormatV2Module*>(CreateModule());
        m->SetModuleId(5);
        if (RecordingEverything()) {
            Write("{\"max_bytes\": 1048576}", "/wd/formatv2_record.json");
            ASSERT_EQ(m->SetPwd((root + "/wd").c_str()), 0);
        } else {
            ASSERT_EQ(m->SetPwd("/wd"), 0);
        }
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;
        g_logs.clear();
    }
    void TearDown() override {
        if (RecordingEverything()) {
            m->FlushRecording();
            std::error_code none;  // no folder: no run was recorded
            for (const auto& file :
                 std::filesystem::directory_iterator(root + "/wd/records", none)) {
                std::ifstream in(file.path(), std::ios::binary);
                const std::string bytes{std::istreambuf_iterator<char>(in), {}};
                formatv2::record::Recording rec;
                std::string why;
                EXPECT_TRUE(formatv2::record::ReadRecordFile(bytes, file.path(), rec, why)) << why;
                EXPECT_TRUE(rec.skipped.empty()) << file.path();
            }
        }
        DestroyModule(nullptr, m);
        log_set_callbacker(0, nullptr);
        standin::Reset();
        std::filesystem::remove_all(root);
    }

    // Files by their device path (below the root).
    void Write(const std::string& text, const std::string& path = kConfig) {
        std::filesystem::create_directories(std::filesystem::path(root + path).parent_path());
        std::ofstream(root + path, std::ios::binary) << text;
    }
    int Load(const std::string& text) {
        Write(text);
        return m->GetSubParamList();
    }
    // The item names in list order, each followed by ";".
    std::string Names() const {
        std::string names;
        for (const DataSection& item : m->SubParamList) names += item.ParamName + ";";
        return names;
    }

    // Binds input "input<n>" to a source frame holding the values as a list under "k".
    std::shared_ptr<CScFrame> Bind(int n) {
        auto source = std::make_shared<CScFrame>();
        in.Bind("input" + std::to_string(n), source, "k");
        return source;
    }
    void Feed(int n, const Ints& v) { Bind(n)->IntListTable["k"] = v; }
    void Feed(int n, const Floats& v) { Bind(n)->FloatListTable["k"] = v; }
    void Feed(int n, const Strings& v) { Bind(n)->StringListTable["k"] = v; }
    // Feeds inputs 0, 1, ... in turn.
    template <typename... Lists>
    void FeedAll(const Lists&... lists) {
        int n = 0;
        (Feed(n++, lists), ...);
    }
    int Run() { return m->Process(in.handle(), out.handle()); }
    std::string Shown() { return out.frame->StringTable["SINGLE_show_text_en"]; }

    std::string root;
    CFormatV2Module* m = nullptr;
    standin::InputHandle in;
    standin::OutputHandle out;
};

}  // namespace fv2test
