#include "render/report.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "base/diag.h"
#include "contract/messages.h"

namespace preview {
namespace {

// The tag the module's line carries, and "Bytes" for a byte dump.
const char* LevelName(int level) {
    if (const char* tag = formatv2::LevelTag(level)) return tag;
    return level == LOG_LEVEL_BYTES ? "Bytes" : "Other";
}

}  // namespace

cJSON* TablesJson(const Tables& tables) {
    cJSON* obj = cJSON_CreateObject();
    cJSON* subs = cJSON_AddArrayToObject(obj, "subscriptions");
    for (const auto& e : tables.subscriptions) {
        cJSON* s = cJSON_CreateObject();
        cJSON_AddStringToObject(s, "input", e.sub.param_name);
        cJSON_AddNumberToObject(s, "pub_algo_id", e.pub.algo_id);
        cJSON_AddStringToObject(s, "pub_algo_name", e.pub.algo_name);
        cJSON_AddStringToObject(s, "pub_param_name", e.pub.param_name);
        cJSON_AddNumberToObject(s, "sub_algo_id", e.sub.algo_id);
        cJSON_AddStringToObject(s, "sub_algo_name", e.sub.algo_name);
        cJSON_AddItemToArray(subs, s);
    }
    cJSON* pubs = cJSON_AddArrayToObject(obj, "publications");
    for (const auto& e : tables.publications) {
        cJSON* p = cJSON_CreateObject();
        cJSON_AddStringToObject(p, "param_name", e.param_name);
        cJSON_AddStringToObject(p, "type", e.type);
        cJSON_AddNumberToObject(p, "valid", e.valid);
        cJSON_AddNumberToObject(p, "enable", e.enable);
        cJSON_AddNumberToObject(p, "flags", e.flags);
        cJSON_AddItemToArray(pubs, p);
    }
    return obj;
}

namespace {

cJSON* LogJson(const std::vector<LogLine>& log) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& line : log) {
        cJSON* l = cJSON_CreateObject();
        cJSON_AddStringToObject(l, "level", LevelName(line.level));
        cJSON_AddStringToObject(l, "text", StripColour(line.text).c_str());
        cJSON_AddItemToArray(array, l);
    }
    return array;
}

void AddStatus(cJSON* obj, const char* key, int status) {
    cJSON_AddNumberToObject(obj, key, status);
    cJSON_AddStringToObject(obj, (std::string(key) + "_hex").c_str(), Hex(status).c_str());
    cJSON_AddStringToObject(obj, (std::string(key) + "_meaning").c_str(),
                            StatusMeaning(status).c_str());
}

}  // namespace

namespace {

void AddNumberOrNull(cJSON* obj, const char* key, bool present, double value) {
    if (present)
        cJSON_AddNumberToObject(obj, key, value);
    else
        cJSON_AddNullToObject(obj, key);
}

void AddTextOrNull(cJSON* obj, const char* key, const std::optional<std::string>& text) {
    if (text)
        cJSON_AddStringToObject(obj, key, text->c_str());
    else
        cJSON_AddNullToObject(obj, key);
}

// Where a finding stands: row, element, param_name and key, null where they do not apply.
void AddLocation(cJSON* obj, const Location& at) {
    AddNumberOrNull(obj, "row", at.row >= 0, at.row);
    AddNumberOrNull(obj, "element", at.element >= 0, at.element);
    AddTextOrNull(obj, "param_name", at.paramName);
    AddTextOrNull(obj, "key", at.key.empty() ? std::nullopt : std::optional<std::string>(at.key));
}

// The line and column of a finding, null when it could not be placed.
void AddPlace(cJSON* obj, const Place& place) {
    AddNumberOrNull(obj, "line", place.line != 0, static_cast<double>(place.line));
    AddNumberOrNull(obj, "column", place.line != 0, static_cast<double>(place.column));
}

}  // namespace

cJSON* RefusalJson(const Refusal& r) {
    cJSON* obj = cJSON_CreateObject();
    cJSON_AddNumberToObject(obj, "status", r.status);
    cJSON_AddStringToObject(obj, "status_hex", Hex(r.status).c_str());
    AddNumberOrNull(obj, "code", r.code.has_value(), r.code.value_or(0));
    AddLocation(obj, r.at);
    cJSON_AddStringToObject(obj, "rule", RuleOf(r.rule).id);
    AddTextOrNull(obj, "value", r.value);
    AddPlace(obj, r.place);
    cJSON_AddStringToObject(obj, "message", r.message.c_str());
    AddTextOrNull(obj, "fix", r.fix.empty() ? std::nullopt : std::optional<std::string>(r.fix));
    cJSON_AddBoolToObject(obj, "stops", r.stops);
    return obj;
}

cJSON* WarningsJson(const std::vector<Warning>& warnings) {
    cJSON* array = cJSON_CreateArray();
    for (const Warning& w : warnings) {
        cJSON* obj = cJSON_CreateObject();
        AddLocation(obj, w.at);
        AddPlace(obj, w.place);
        cJSON_AddStringToObject(obj, "rule", RuleOf(w.rule).id);
        const bool fails = Fails(w);
        cJSON_AddStringToObject(obj, "level", fails ? "error" : "warning");
        AddNumberOrNull(obj, "status", fails, w.status);
        AddTextOrNull(obj, "status_hex",
                      fails ? std::optional<std::string>(Hex(w.status)) : std::nullopt);
        cJSON_AddStringToObject(obj, "message", w.message.c_str());
        cJSON_AddStringToObject(obj, "fix", w.fix.c_str());
        cJSON_AddItemToArray(array, obj);
    }
    return array;
}

void PrintTables(const Tables& tables) {
    Print("subscriptions (%zu):\n", tables.subscriptions.size());
    for (const auto& e : tables.subscriptions) {
        Print("  %-8s <- %s:%s (algo_id %d)\n", e.sub.param_name, e.pub.algo_name, e.pub.param_name,
              e.pub.algo_id);
    }
    Print("publications (%zu):\n", tables.publications.size());
    for (const auto& e : tables.publications) {
        Print("  %-24s %-7s valid %d enable %d\n", e.param_name, e.type, e.valid, e.enable);
    }
}

void PrintJson(cJSON* root, bool compact) {
    char* text = compact ? cJSON_PrintUnformatted(root) : cJSON_Print(root);
    if (text != nullptr) {
        // cJSON copies a string's bytes as they are; only its strings can hold bytes >= 0x80,
        // so escaping the printed text escapes exactly those.
        WriteOutput(EscapeInvalidUtf8(text, Escape::kJson) + "\n");
    }
    cJSON_free(text);
    cJSON_Delete(root);
}

namespace {

cJSON* OutputsJson(const std::vector<Output>& outputs) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& o : outputs) {
        cJSON* out = cJSON_CreateObject();
        cJSON_AddStringToObject(out, "name", o.name.c_str());
        cJSON_AddStringToObject(out, "type", KindName(o.value.kind));
        cJSON_AddBoolToObject(out, "list", o.value.list);
        cJSON_AddItemToObject(out, "values", ValuesJson(o.value));
        cJSON_AddItemToArray(array, out);
    }
    return array;
}

cJSON* DynamicPubJson(const std::vector<DynamicPub>& records) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& p : records) {
        cJSON* rec = cJSON_CreateObject();
        cJSON_AddStringToObject(rec, "param_name", p.param_name);
        cJSON_AddStringToObject(rec, "type", p.type);
        cJSON_AddItemToArray(array, rec);
    }
    return array;
}

cJSON* ResultCallsJson(const std::vector<standin::ResultCall>& calls) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& c : calls) {
        cJSON* call = cJSON_CreateObject();
        cJSON_AddStringToObject(call, "op", c.op.c_str());
        cJSON_AddNumberToObject(call, "a", c.a);
        cJSON_AddNumberToObject(call, "b", c.b);
        if (c.op == "SendResultInfoExist") {
            cJSON_AddStringToObject(call, "text_cn", c.textCn.c_str());
            cJSON_AddStringToObject(call, "text_en", c.textEn.c_str());
        }
        cJSON_AddItemToArray(array, call);
    }
    return array;
}

// What the parameter step of a run did: its status, and after a re-read the refusal,
// warnings and tables.
void AddReread(cJSON* obj, const RunReport& run, const std::optional<Refusal>& refusal,
               const std::vector<Warning>& warnings) {
    if (run.paramStatus) AddStatus(obj, "param_status", *run.paramStatus);
    if (refusal) cJSON_AddItemToObject(obj, "refusal", RefusalJson(*refusal));
    if (run.tables) {
        cJSON_AddItemToObject(obj, "warnings", WarningsJson(warnings));
        cJSON_AddItemToObject(obj, "tables", TablesJson(*run.tables));
    }
    if (!run.skippedValues.empty()) {
        cJSON* skipped = cJSON_AddArrayToObject(obj, "skipped_values");
        for (const auto& key : run.skippedValues) {
            cJSON_AddItemToArray(skipped, cJSON_CreateString(key.c_str()));
        }
    }
}

cJSON* RunJson(size_t index, const RunReport& run, const std::optional<Refusal>& refusal,
               const std::vector<Warning>& warnings) {
    cJSON* obj = cJSON_CreateObject();
    cJSON_AddNumberToObject(obj, "index", static_cast<double>(index));
    cJSON_AddStringToObject(obj, "name", run.name.c_str());
    AddReread(obj, run, refusal, warnings);
    AddStatus(obj, "status", run.status);
    cJSON_AddStringToObject(obj, "verdict", run.verdict.c_str());
    cJSON_AddStringToObject(obj, "show_text_cn", run.showTextCn.c_str());
    cJSON_AddStringToObject(obj, "show_text_en", run.showTextEn.c_str());
    cJSON_AddItemToObject(obj, "outputs", OutputsJson(run.outputs));
    cJSON_AddItemToObject(obj, "dynamic_pub", DynamicPubJson(run.dynamicPub));
    cJSON_AddItemToObject(obj, "result_calls", ResultCallsJson(run.resultCalls));
    cJSON_AddItemToObject(obj, "log", LogJson(run.log));
    cJSON_AddItemToObject(obj, "rows",
                          run.result ? RowOutcomesJson(*run.result) : cJSON_CreateNull());
    cJSON_AddItemToObject(obj, "provenance",
                          run.result ? ProvenanceJson(*run.result) : cJSON_CreateNull());
    const Explanation& why = run.explanation;
    if (why.message.empty()) {
        cJSON_AddNullToObject(obj, "failure");
    } else {
        cJSON* failure = cJSON_AddObjectToObject(obj, "failure");
        cJSON_AddStringToObject(failure, "where", why.where.c_str());
        cJSON_AddStringToObject(failure, "message", why.message.c_str());
        AddTextOrNull(failure, "fix",
                      why.fix.empty() ? std::nullopt : std::optional<std::string>(why.fix));
    }
    return obj;
}

void PrintLog(const std::vector<LogLine>& log, const char* indent, bool colour) {
    for (const auto& line : log) {
        Print("%s%s", indent, colour ? line.text.c_str() : StripColour(line.text).c_str());
    }
}

// The heading of a run and what its parameter step did.
void PrintRunStart(size_t index, const RunReport& run) {
    Print("\n%s\n", RunLabel(index, run.name).c_str());
    if (run.paramStatus) Print("  set parameter: %s\n", StatusText(*run.paramStatus).c_str());
    if (run.tables) {
        Print("  tables re-read: %zu subscriptions, %zu publications\n",
              run.tables->subscriptions.size(), run.tables->publications.size());
    }
    if (!run.skippedValues.empty()) {
        Print("  values not delivered (the configuration in force was refused):");
        for (const auto& key : run.skippedValues) Print(" %s", key.c_str());
        Print("\n");
    }
}

void PrintRunResult(const RunReport& run, bool colour) {
    const char* on = colour ? (run.status == 0 ? "\033[32m" : "\033[31m") : "";
    const char* off = colour ? "\033[0m" : "";
    Print("  status   %s\n", StatusText(run.status).c_str());
    if (!run.explanation.message.empty()) {
        Print("  why      %s: %s\n", run.explanation.where.c_str(),
              run.explanation.message.c_str());
        if (!run.explanation.fix.empty()) Print("  fix      %s\n", run.explanation.fix.c_str());
    }
    Print("  verdict  %s%s%s\n", on, run.verdict.empty() ? "-" : run.verdict.c_str(), off);
    Print("  show en  \"%s\"\n", Visible(run.showTextEn).c_str());
    Print("  show cn  \"%s\"\n", Visible(run.showTextCn).c_str());
    Print("  outputs:\n");
    for (const auto& o : run.outputs) {
        Print("    %-24s %-6s %s\n", o.name.c_str(), KindName(o.value.kind),
              ValuesText(o.value).c_str());
    }
    Print("  DynamicPub:");
    for (const auto& p : run.dynamicPub) Print(" %s(%s)", p.param_name, p.type);
    Print("\n  result manager:\n");
    for (const auto& c : run.resultCalls) {
        if (c.op == "SendResultInfoExist") {
            Print("    %s(%d, %d, \"%s\", \"%s\")\n", c.op.c_str(), c.a, c.b, c.textCn.c_str(),
                  c.textEn.c_str());
        } else {
            Print("    %s(%d, %d)\n", c.op.c_str(), c.a, c.b);
        }
    }
}

}  // namespace

struct Report::Json {
    cJSON* root = cJSON_CreateObject();
    cJSON* runs = nullptr;
    ~Json() { cJSON_Delete(root); }
};

Report::Report(Printer printer) : m_printer(printer), m_json(std::make_unique<Json>()) {}

Report::~Report() = default;

void Report::Init(const InitReport& init, const std::optional<Refusal>& refusal,
                  const std::vector<Warning>& warnings) {
    if (m_printer.json) {
        cJSON* obj = cJSON_AddObjectToObject(m_json->root, "init");
        AddStatus(obj, "status", init.status);
        if (refusal) cJSON_AddItemToObject(obj, "refusal", RefusalJson(*refusal));
        cJSON_AddItemToObject(obj, "warnings", WarningsJson(warnings));
        cJSON_AddItemToObject(obj, "tables", TablesJson(init.tables));
        cJSON_AddItemToObject(obj, "log", LogJson(init.log));
        m_json->runs = cJSON_AddArrayToObject(m_json->root, "runs");
        return;
    }
    Print("init: %s\n", StatusText(init.status).c_str());
    PrintTables(init.tables);
    PrintLog(init.log, "  log ", m_printer.colour);
}

void Report::Run(size_t index, const RunReport& run, const std::optional<Refusal>& refusal,
                 const std::vector<Warning>& warnings) {
    if (m_printer.json) {
        cJSON_AddItemToArray(m_json->runs, RunJson(index, run, refusal, warnings));
        return;
    }
    PrintRunStart(index, run);
    PrintRunResult(run, m_printer.colour);
    if (!run.log.empty()) Print("  log:\n");
    PrintLog(run.log, "    ", m_printer.colour);
}

void Report::Finish() {
    if (!m_printer.json) return;
    PrintJson(Take());
}

cJSON* Report::Take() {
    cJSON* root = m_json->root;
    m_json->root = nullptr;
    return root;
}

}  // namespace preview
