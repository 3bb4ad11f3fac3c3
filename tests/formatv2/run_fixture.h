// A module created through CreateModule on a configuration written to a fresh working
// directory, run handles of the stand-in host, and the module's log lines as delivered to
// the logging callback.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "formatv2/formatv2.h"
#include "host/standin/standin.h"
#include "log/log.h"
#include "publish/dynamic_pub.h"
#include "tests/formatv2/config_text.h"

namespace fv2test {

struct LogLine {
    int level;
    std::string text;
};

inline std::vector<LogLine>& Logs() {
    static std::vector<LogLine> lines;
    return lines;
}

inline int CaptureLog(int, int level, int, const char* line, int len) {
    Logs().push_back({level, std::string(line, static_cast<size_t>(len))});
    return 0;
}

constexpr int kModuleId = 5;

// An item's Value as "i:1,2", "f:1.5", "s:a,b", or "-" when empty.
inline std::string Describe(const Any& value) {
    std::string out;
    auto join = [&out](const auto& list) {
        for (const auto& v : list) out += (out.size() > 2 ? "," : "") + ::testing::PrintToString(v);
    };
    Any copy(value);
    if (copy.Is<IntList>()) out = "i:", join(copy.AnyCast<IntList>());
    if (copy.Is<FloatList>()) out = "f:", join(copy.AnyCast<FloatList>());
    if (copy.Is<StringList>()) {
        out = "s:";
        for (const auto& v : copy.AnyCast<StringList>()) out += (out.size() > 2 ? "," : "") + v;
    }
    return copy.holder ? out : "-";
}

class RunTest : public ::testing::Test {
  protected:
    void SetUp() override {
        standin::Reset();
        log_prt_init(0, 0, nullptr);  // nothing printed; the callback still sees Info and up
        log_set_callbacker(LOG_LEVEL_INFO, CaptureLog);
        Logs().clear();
        char tmpl[] = "/tmp/fv2runXXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;
    }
    void TearDown() override {
        if (module_ != nullptr) DestroyModule(nullptr, module_);
        std::remove((dir_ + "/algo_private.json").c_str());
        rmdir(dir_.c_str());
    }

    // Writes the configuration and (re)reads it; the first call creates the module.
    int Load(const std::string& json) {
        std::ofstream(dir_ + "/algo_private.json") << json;
        if (module_ == nullptr) {
            module_ = CreateModule();
            module_->SetModuleId(kModuleId);
            module_->SetPwd(dir_.c_str());
            return module_->InitAlgoPrivate();
        }
        return M().GetSubParamList();
    }
    CFormatV2Module& M() { return *static_cast<CFormatV2Module*>(module_); }
    DataSection& Item(size_t i) { return M().SubParamList.at(i); }
    int Run() { return module_->Process(in.handle(), out.handle()); }

    // Binds input "input<n>" to the list tables of a source frame.
    void Feed(int n, const std::vector<int>& v) { Bind(n)->IntListTable["k"] = v; }
    void Feed(int n, const std::vector<float>& v) { Bind(n)->FloatListTable["k"] = v; }
    void Feed(int n, const std::vector<std::string>& v) { Bind(n)->StringListTable["k"] = v; }
    std::shared_ptr<CScFrame> Bind(int n) {
        auto source = std::make_shared<CScFrame>();
        in.Bind("input" + std::to_string(n), source, "k");
        return source;
    }

    // Log lines of level holding text; with line > 0 they must also name that source line.
    int Count(int level, const std::string& text, int line = 0) const {
        char at[32] = "";
        if (line > 0) std::snprintf(at, sizeof at, "formatv2.cpp:%04d: ", line);
        int n = 0;
        for (const LogLine& l : Logs()) {
            n += l.level == level && l.text.find(text) != std::string::npos &&
                 l.text.find(at) != std::string::npos;
        }
        return n;
    }
    // The output frame's "DynamicPub" records as "name:type".
    std::vector<std::string> Pubs() {
        std::vector<std::string> names;
        auto* list = out.frame->getData<DynamicPubRecords>("DynamicPub", false);
        if (list != nullptr) {
            for (const DynamicPub& p : *list)
                names.push_back(std::string(p.param_name) + ":" + p.type);
        }
        return names;
    }
    std::string Shown() { return out.frame->StringTable["SINGLE_show_text_en"]; }

    standin::InputHandle in;
    standin::OutputHandle out;

  private:
    std::string dir_;
    CAbstractUserModule* module_ = nullptr;
};

}  // namespace fv2test
