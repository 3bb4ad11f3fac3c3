#include "drive/told.h"

#include <cjson/cJSON.h>

#include <memory>

#include "base/diag.h"
#include "base/json_scan.h"
#include "base/rules.h"
#include "config/element_kind.h"

namespace preview {
namespace {

void AddIndex(cJSON* object, const char* key, long long value) {
    if (value < 0) {
        cJSON_AddNullToObject(object, key);
    } else {
        cJSON_AddNumberToObject(object, key, static_cast<double>(value));
    }
}

const char* OutcomeName(formatv2::RowOutcome outcome) {
    switch (outcome) {
        case formatv2::RowOutcome::kGave:
            return "gave";
        case formatv2::RowOutcome::kKept:
            return "kept";
        case formatv2::RowOutcome::kFailed:
            return "failed";
        case formatv2::RowOutcome::kNotReached:
            break;
    }
    return "not reached";
}

// Where the row's key stands (field >= 0: the key in that field of its "Array"), as FILE:LINE:COL
// of the file the user wrote it in; the file alone when it cannot be found.
std::string RowPlace(const ConfigSource& config, int row, int field, const char* key) {
    const std::string file = config.embedding ? config.embedding->file : config.name;
    const JsonScan scan = ScanJson(config.text);
    const JsonNode* node = scan.root ? Member(&*scan.root, key::kSubParamList) : nullptr;
    const auto at = [](const JsonNode* list, int k) -> const JsonNode* {
        if (list == nullptr || k < 0 || static_cast<size_t>(k) >= list->members.size()) {
            return nullptr;
        }
        return &list->members[static_cast<size_t>(k)];
    };
    node = at(node, row);
    if (field >= 0) node = at(node != nullptr ? Member(node, key::kArray) : nullptr, field);
    const JsonNode* found = node != nullptr ? Member(node, key) : nullptr;
    if (found != nullptr) node = found;
    if (node == nullptr) return file;
    size_t offset = node->begin;
    const std::string* text = &config.text;
    if (config.embedding) {
        offset = WrittenOffsetOf(*config.embedding, offset);
        text = &config.embedding->written;
    }
    const TextPlace place = PlaceOf(*text, offset);
    return file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string RowLabel(int row, const formatv2::RowFailure& why) {
    return "row " + std::to_string(row) + " (\"" + why.name + "\")";
}

}  // namespace

// Written straight as text and handed to cJSON whole: a run of a few thousand values has tens of
// thousands of spans, and as cJSON objects they would cost ten times the run itself.
cJSON* ProvenanceJson(const formatv2::RunResult& result) {
    std::string out = "[";
    const auto index = [&out](const char* key, long long value) {
        out.append(",\"").append(key).append("\":");
        out.append(value < 0 ? "null" : std::to_string(value));
    };
    std::string name;  // the last output's name as JSON, made again only when it changes
    const std::string* named = nullptr;
    for (const formatv2::TextProvenance& text : result.texts) {
        if (named == nullptr || *named != text.output) {
            const JsonPtr item(cJSON_CreateString(text.output.c_str()));
            std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(item.get()),
                                                                 &cJSON_free);
            name = printed ? printed.get() : "\"\"";
            named = &text.output;
        }
        if (out.size() > 1) out += ',';
        out.append("{\"output\":").append(name);
        out.append(",\"value\":").append(std::to_string(text.value)).append(",\"spans\":[");
        for (size_t k = 0; k < text.spans.size(); ++k) {
            const formatv2::Span& span = text.spans[k];
            out.append(k == 0 ? "{\"begin\":" : ",{\"begin\":").append(std::to_string(span.begin));
            out.append(",\"end\":").append(std::to_string(span.end));
            index("row", span.owner.row);
            index("field", span.owner.field);
            index("element", span.owner.element);
            out += '}';
        }
        out += "]}";
    }
    out += ']';
    return cJSON_CreateRaw(out.c_str());
}

cJSON* RowOutcomesJson(const formatv2::RunResult& result) {
    cJSON* list = cJSON_CreateArray();
    for (const formatv2::RowResult& row : result.rows) {
        cJSON* entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "outcome", OutcomeName(row.outcome));
        if (row.outcome != formatv2::RowOutcome::kFailed) {
            cJSON_AddNullToObject(entry, "failure");
        } else {
            const formatv2::RowFailure& why = row.failure;
            cJSON* failure = cJSON_AddObjectToObject(entry, "failure");
            cJSON_AddStringToObject(failure, "step", why.step.c_str());
            cJSON_AddStringToObject(failure, "input", why.input.c_str());
            cJSON_AddStringToObject(failure, "source", why.source.c_str());
            cJSON_AddStringToObject(failure, "subscription", why.subscription.c_str());
            AddIndex(failure, "field", why.field);
            cJSON_AddStringToObject(failure, "index", why.index.c_str());
            cJSON_AddStringToObject(failure, "expected", why.expected.c_str());
            cJSON_AddStringToObject(failure, "came", why.came.c_str());
            AddIndex(failure, "length", why.length);
            cJSON_AddStringToObject(failure, "value", why.value.c_str());
        }
        cJSON_AddItemToArray(list, entry);
    }
    return list;
}

Explanation ExplainRun(const formatv2::RunResult& result, const ConfigSource& config,
                       const RunSpec& plan) {
    for (size_t k = 0; k < result.rows.size(); ++k) {
        if (result.rows[k].outcome != formatv2::RowOutcome::kFailed) continue;
        const int row = static_cast<int>(k);
        const formatv2::RowFailure& why = result.rows[k].failure;
        Explanation out;
        const std::string label = RowLabel(row, why);
        if (why.step == "convert") {
            out.where = RowPlace(config, row, -1, key::kConvertType);
            out.message = label + " converts \"" + why.value + "\" to " + why.expected +
                          ", but it does not start with a number";
            out.fix = std::string("publish the row as a string (\"") + key::kConvertType +
                      "\": 3), or give a value that starts with a number";
            return out;
        }
        if (why.step == "value") {
            out.where = RowPlace(config, row, -1, key::kSubParamStr);
            out.message = label + " has no value type, and no earlier run gave it a value";
            out.fix = std::string("end \"") + key::kSubParamStr + "\" with %d, %f or %s";
            return out;
        }
        out.where = RowPlace(config, row, why.field, key::kSubParamStr);
        const std::string field =
            why.field >= 0 ? ", field " + std::to_string(why.field) + "," : "";
        auto place = plan.valuePlaces.find(why.source);
        const std::string given =
            place != plan.valuePlaces.end() ? place->second + " gives" : "the run gives";
        int number = 0;
        if (why.index != "*" && !why.index.empty() && !ParseElementNumber(why.index, number)) {
            out.message = label + field + " reads element \"" + why.index + "\" of " + why.source +
                          ", which is no number";
            out.fix = "give the element's number, or * for all of them";
        } else if (why.length >= 0) {
            out.message =
                label + field + " reads element " + why.index + " of " + why.source + "; " + given +
                " a list of " + std::to_string(why.length) +
                (why.length > 0 ? " (elements 0 to " + std::to_string(why.length - 1) + ")" : "");
            out.fix = why.length > 0 ? "read an element from 0 to " +
                                           std::to_string(why.length - 1) + ", or * for all"
                                     : "";
        } else if (why.source.empty()) {
            out.message = label + field + " reads " + (why.input.empty() ? "a value" : why.input) +
                          " as " + why.expected +
                          ", but no subscription of the configuration in force feeds it";
        } else if (why.came == "nothing") {
            out.message = label + field + " reads " + why.source + " as " + why.expected +
                          "; the run gives no value for it";
            // A recorded run's values are what the device delivered: nothing to give there.
            if (plan.recorded == nullptr) {
                out.fix = "give \"" + why.source + "\" in the run's \"values\"";
            }
        } else {
            const bool list = why.came.find(" list of ") != std::string::npos;
            out.message = label + field + " reads " + why.source + " as " + why.expected + "; " +
                          given + (list ? " a " : " it as ") + why.came;
            out.fix = "read it as " + why.came.substr(0, why.came.find(' ')) +
                      " (%d, %f or %s at the end of \"" + key::kSubParamStr +
                      "\"), or give it as " + why.expected;
        }
        return out;
    }
    return {};
}

}  // namespace preview
