// Shared test support: a module placed in a private file tree of its own (the stand-in host
// resolves every absolute path below it), configuration files built from cJSON rows, and the
// module's log lines caught through the logging library's callback.
#pragma once

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "formatv2/formatv2.h"
#include "host/standin/standin.h"
#include "log/log.h"

namespace fv2test {

struct LogLine {
    int level;
    std::string line;     // as the library finished it, prefix and colour codes included
    std::string message;  // the text after "formatv2.cpp:NNNN: ", line end kept, colour reset cut
};

inline std::vector<LogLine>& Logged() {
    static std::vector<LogLine> lines;
    return lines;
}

inline int CatchLine(int, int level, int, const char* line, int len) {
    LogLine caught{level, std::string(line, static_cast<size_t>(len)), {}};
    const std::string tag = "formatv2.cpp:";
    const size_t at = caught.line.find(tag);
    caught.message =
        at == std::string::npos ? caught.line : caught.line.substr(at + tag.size() + 6);
    const std::string reset = "\033[0m";
    if (caught.message.size() >= reset.size() &&
        caught.message.compare(caught.message.size() - reset.size(), reset.size(), reset) == 0) {
        caught.message.resize(caught.message.size() - reset.size());
    }
    Logged().push_back(caught);
    return 0;
}

// The messages logged at level (0: every level), in order.
inline std::vector<std::string> Messages(int level = 0) {
    std::vector<std::string> out;
    for (const LogLine& l : Logged()) {
        if (level == 0 || l.level == level) out.push_back(l.message);
    }
    return out;
}

// The four-digit line number that caught line i carries.
inline std::string LineNo(size_t i) {
    const std::string& line = Logged().at(i).line;
    return line.substr(line.find(".cpp:") + 5, 4);
}

// A row of kind 1, 2 or 4 (by sub and custom) with every key present.
inline cJSON* Row(const std::string& name, const std::string& sub = "7:cam:width:0:%d",
                  int custom = 0, int convert = 3) {
    cJSON* row = cJSON_CreateObject();
    cJSON_AddStringToObject(row, "SubParamStr", sub.c_str());
    cJSON_AddNumberToObject(row, "IsCustomEdit", custom);
    cJSON_AddStringToObject(row, "ShowValue_CN", "cn");
    cJSON_AddStringToObject(row, "ShowValue_EN", "en");
    cJSON_AddStringToObject(row, "ParamName", name.c_str());
    cJSON_AddNumberToObject(row, "ConvertType", convert);
    for (const char* key : {"StrTruncEnable", "StrTruncStart", "StrTruncLen"}) {
        cJSON_AddNumberToObject(row, key, 0);
    }
    for (const char* key : {"StrPrefix", "StrSuffix", "StrDelete"}) {
        cJSON_AddStringToObject(row, key, "");
    }
    return row;
}

// An array row (kind 3) with one field per subscription text.
inline cJSON* ArrayRow(const std::string& name, const std::vector<std::string>& subs) {
    cJSON* row = Row(name);
    for (const char* key : {"SubParamStr", "IsCustomEdit", "ShowValue_CN", "ShowValue_EN"}) {
        cJSON_DeleteItemFromObject(row, key);
    }
    cJSON* array = cJSON_AddArrayToObject(row, "Array");
    for (const std::string& sub : subs) {
        cJSON* field = cJSON_CreateObject();
        cJSON_AddStringToObject(field, "SubParamStr", sub.c_str());
        cJSON_AddStringToObject(field, "Separator", ",");
        cJSON_AddStringToObject(field, "ShowValue_CN", "");
        cJSON_AddStringToObject(field, "ShowValue_EN", "");
        cJSON_AddItemToArray(array, field);
    }
    return row;
}

// The text of a configuration file; takes the rows over.
inline std::string Config(const std::vector<cJSON*>& rows, int concat = 0,
                          const std::string& paramName = "all",
                          const std::string& moduleName = "cfg") {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "ModuleName", moduleName.c_str());
    cJSON_AddNumberToObject(root, "StrConcateEnable", concat);
    cJSON_AddStringToObject(root, "ParamName", paramName.c_str());
    cJSON* list = cJSON_AddArrayToObject(root, "SubParamList");
    for (cJSON* row : rows) cJSON_AddItemToArray(list, row);
    char* printed = cJSON_PrintUnformatted(root);
    std::string text(printed);
    cJSON_free(printed);
    cJSON_Delete(root);
    return text;
}

// A module whose working directory is "/wd" below a fresh temporary root, with the log lines
// of each test caught (and kept off standard output).
class ModuleFixture : public ::testing::Test {
  protected:
    static constexpr const char* kConfig = "/wd/algo_private.json";
    static constexpr const char* kDefault = "/mnt/app/zrs_so/so/formatv2/json/algo_private.json";

    void SetUp() override {
        standin::Reset();
        char dir[] = "/tmp/fv2test.XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        root = dir;
        standin::SetFsRoot(root);
        std::filesystem::create_directories(root + "/wd");
        Logged().clear();
        log_set_priority(-1, LOG_LEVEL_OFF);
        log_set_callbacker(0, CatchLine);
        ASSERT_EQ(module.SetPwd("/wd"), 0);
    }
    void TearDown() override {
        log_set_callbacker(0, nullptr);
        standin::Reset();
        std::filesystem::remove_all(root);
    }

    // Files by their device path (below the root).
    void Write(const std::string& text, const std::string& path = kConfig) {
        std::filesystem::create_directories(std::filesystem::path(root + path).parent_path());
        std::ofstream(root + path, std::ios::binary) << text;
    }
    std::string Read(const std::string& path = kConfig) {
        std::ifstream in(root + path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    bool Exists(const std::string& path) { return std::filesystem::exists(root + path); }
    // The item names in list order, each followed by ";".
    std::string Names() const {
        std::string names;
        for (const DataSection& item : module.SubParamList) names += item.ParamName + ";";
        return names;
    }

    std::string root;
    CFormatV2Module module;
};

}  // namespace fv2test
