#include "drive/scenario.h"

#include <cjson/cJSON.h>

#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "base/diag.h"
#include "base/files.h"
#include "base/json_scan.h"
#include "base/rules.h"
#include "contract/contract.h"
#include "drive/texts.h"

namespace preview {
namespace {

// The value types of scenario values and parameters, in the order of Value::Kind.
const char* const kTypeNames[] = {"int", "float", "string"};

// Thrown inside this file only, caught by LoadScenario: the offending item (placed at its key,
// or at its value), the path of its key and what is wrong with it.
struct Bad {
    const cJSON* item;
    std::string path;
    std::string message;
    bool atKey = false;
};

const char* const kScenarioKeys[] = {"config", "module_id",   "algo_id",    "params",
                                     "runs",   "expect_init", "description"};
const char* const kRunKeys[] = {"name",   "description",    "img_mode",  "input_frame",
                                "values", "replace_config", "set_param", "expect"};
const char* const kParamKeys[] = {"name", "type", "accepted", "initial"};
const char* const kSetParamKeys[] = {"name", "value"};
const char* const kExpectKeys[] = {"status",       "verdict", "show_text_en",
                                   "show_text_cn", "outputs", "log"};
const char* const kExpectInitKeys[] = {"status", "log"};

std::string Join(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + "." + key;
}

template <size_t N>
void CheckKeys(const cJSON* object, const std::string& path, const char* const (&known)[N]) {
    if (!cJSON_IsObject(object)) {
        throw Bad{object, path, "must be an object"};
    }
    for (const cJSON* k = object->child; k != nullptr; k = k->next) {
        bool found = false;
        for (const char* name : known) found = found || std::string(name) == k->string;
        if (found) continue;
        throw Bad{k, Join(path, k->string),
                  "unknown key" + DidYouMean(ClosestWord(k->string, known, N)), true};
    }
}

std::string Dirname(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// Where the scenario stands, and the folder its files must stay in ("" for anywhere).
struct Source {
    const std::string& path;
    const std::string& confineTo;
};

// The configuration: inline (an object, printed back to text) or the path of a file,
// relative to the scenario's folder.
ConfigSource ReadConfig(const cJSON* config, const Source& source, const std::string& path) {
    const std::string& scenarioPath = source.path;
    ConfigSource out;
    if (cJSON_IsString(config)) {
        out.name = config->valuestring;
        if (!out.name.empty() && out.name[0] != '/')
            out.name = Dirname(scenarioPath) + "/" + out.name;
        std::string reason;
        const bool read = source.confineTo.empty()
                              ? ReadInput(out.name, out.text, reason)
                              : ReadInside(source.confineTo, out.name, out.text, reason);
        if (!read) throw Bad{config, path, out.name + ": " + reason};
        return out;
    }
    if (cJSON_IsObject(config)) {
        std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(config), &cJSON_free);
        if (!text) throw Bad{config, path, "cannot print the inline configuration"};
        out.name = scenarioPath + ": " + path;
        out.text = text.get();
        return out;
    }
    throw Bad{config, path, "must be an object or the path of a configuration file"};
}

// Whether item is a whole number from low to high (a number too large for a double is read
// as infinity, and fails).
bool Whole(const cJSON* item, double low, double high) {
    const double d = item->valuedouble;
    return cJSON_IsNumber(item) && d >= low && d <= high && d == std::floor(d);
}

constexpr double kIntMin = -2147483648.0;
constexpr double kIntMax = 2147483647.0;

// A number for an int in the host's tables: img_mode, algo_id.
int Int(const cJSON* item, const std::string& path) {
    if (!cJSON_IsNumber(item)) throw Bad{item, path, "must be a number"};
    if (!Whole(item, kIntMin, kIntMax)) {
        throw Bad{item, path, "must be a whole number from -2147483648 to 2147483647"};
    }
    return static_cast<int>(item->valuedouble);
}

void ReadNumber(const cJSON* item, Value& value, const std::string& path) {
    if (!cJSON_IsNumber(item)) throw Bad{item, path, "expected a number"};
    if (value.kind == Value::Kind::kInt) {
        if (!Whole(item, kIntMin, kIntMax)) throw Bad{item, path, "expected a 32-bit integer"};
        value.ints.push_back(static_cast<int>(item->valuedouble));
        return;
    }
    if (!(std::fabs(item->valuedouble) <= FLT_MAX)) {
        char range[80];
        std::snprintf(range, sizeof range, "expected a 32-bit float, from %.9g to %.9g",
                      -static_cast<double>(FLT_MAX), static_cast<double>(FLT_MAX));
        throw Bad{item, path, range};
    }
    value.floats.push_back(static_cast<float>(item->valuedouble));
}

void ReadElement(const cJSON* item, Value& value, const std::string& path) {
    if (value.kind != Value::Kind::kString) return ReadNumber(item, value, path);
    if (!cJSON_IsString(item)) throw Bad{item, path, "expected a text"};
    value.texts.emplace_back(item->valuestring);
}

// {"int": 5}, {"float": [1.5, 2]}, {"string": "abc"} ...
Value ReadValue(const cJSON* given, const std::string& path) {
    if (!cJSON_IsObject(given) || given->child == nullptr || given->child->next != nullptr) {
        throw Bad{given, path,
                  "a value is an object with one key: \"int\", \"float\" or \"string\""};
    }
    const cJSON* data = given->child;
    Value value;
    size_t kind = std::size(kTypeNames);
    for (size_t i = 0; i < std::size(kTypeNames); ++i) {
        if (std::string(data->string) == kTypeNames[i]) kind = i;
    }
    if (kind == std::size(kTypeNames)) {
        throw Bad{data, Join(path, data->string),
                  "unknown value type" +
                      DidYouMean(ClosestWord(data->string, kTypeNames, std::size(kTypeNames))),
                  true};
    }
    value.kind = static_cast<Value::Kind>(kind);
    value.list = cJSON_IsArray(data);
    const std::string at = Join(path, data->string);
    if (!value.list) {
        ReadElement(data, value, at);
        return value;
    }
    int index = 0;
    for (const cJSON* e = data->child; e != nullptr; e = e->next, ++index) {
        ReadElement(e, value, at + "[" + std::to_string(index) + "]");
    }
    return value;
}

// parent: where a missing item is placed.
std::string Text(const cJSON* item, const std::string& path, const cJSON* parent = nullptr) {
    if (!cJSON_IsString(item)) throw Bad{item != nullptr ? item : parent, path, "must be a text"};
    return item->valuestring;
}

// A status: a number, or its text in hexadecimal or decimal (as Hex writes it, or "-1"); from
// -2147483648 to 0xFFFFFFFF, as an int or as its bits.
int Status(const cJSON* item, const std::string& path) {
    if (cJSON_IsNumber(item)) {
        if (!Whole(item, kIntMin, 4294967295.0)) {
            throw Bad{item, path,
                      "must be a status: a whole number from -2147483648 to 4294967295"};
        }
        return static_cast<int>(static_cast<unsigned>(static_cast<long long>(item->valuedouble)));
    }
    if (cJSON_IsString(item)) {
        errno = 0;
        char* end = nullptr;
        const long long n = std::strtoll(item->valuestring, &end, 0);
        if (end != item->valuestring && *end == '\0' && errno == 0 && n >= -2147483648LL &&
            n <= 4294967295LL) {
            return static_cast<int>(static_cast<unsigned>(n));
        }
    }
    throw Bad{item, path,
              "must be a status: a number or a text such as \"" + Hex(kStatusNotDelivered) + "\""};
}

std::vector<std::string> Texts(const cJSON* list, const std::string& path) {
    if (!cJSON_IsArray(list)) throw Bad{list, path, "must be a list of texts"};
    std::vector<std::string> out;
    int index = 0;
    for (const cJSON* e = list->child; e != nullptr; e = e->next, ++index) {
        out.push_back(Text(e, path + "[" + std::to_string(index) + "]"));
    }
    return out;
}

Expectation ReadExpectation(const cJSON* given, const std::string& path, bool init) {
    if (init) {
        CheckKeys(given, path, kExpectInitKeys);
    } else {
        CheckKeys(given, path, kExpectKeys);
    }
    Expectation e;
    auto field = [&](const char* key) { return cJSON_GetObjectItemCaseSensitive(given, key); };
    if (const cJSON* s = field("status")) e.status = Status(s, Join(path, "status"));
    if (const cJSON* v = field("verdict")) e.verdict = Text(v, Join(path, "verdict"));
    if (const cJSON* t = field("show_text_en")) e.showTextEn = Text(t, Join(path, "show_text_en"));
    if (const cJSON* t = field("show_text_cn")) e.showTextCn = Text(t, Join(path, "show_text_cn"));
    if (const cJSON* log = field("log")) e.log = Texts(log, Join(path, "log"));
    if (const cJSON* outputs = field("outputs")) {
        const std::string at = Join(path, "outputs");
        if (!cJSON_IsObject(outputs))
            throw Bad{outputs, at, "must be an object keyed by output name"};
        for (const cJSON* o = outputs->child; o != nullptr; o = o->next) {
            std::optional<Value> value;
            if (!cJSON_IsNull(o)) value = ReadValue(o, Join(at, o->string));
            e.outputs.emplace_back(o->string, value);
        }
    }
    return e;
}

RunSpec ReadRun(const cJSON* run, const Source& source, const std::string& path) {
    CheckKeys(run, path, kRunKeys);
    RunSpec out;
    auto field = [&](const char* key) { return cJSON_GetObjectItemCaseSensitive(run, key); };
    if (const cJSON* name = field("name")) out.name = Text(name, Join(path, "name"));
    if (const cJSON* frame = field("input_frame")) {
        if (!cJSON_IsBool(frame))
            throw Bad{frame, Join(path, "input_frame"), "must be true or false"};
        out.inputFrame = cJSON_IsTrue(frame);
    }
    if (const cJSON* mode = field("img_mode")) out.imgMode = Int(mode, Join(path, "img_mode"));
    if (const cJSON* values = field("values")) {
        const std::string at = Join(path, "values");
        if (!cJSON_IsObject(values)) {
            throw Bad{values, at, "must be an object keyed \"publisher:output\""};
        }
        for (const cJSON* v = values->child; v != nullptr; v = v->next) {
            out.values[v->string] = ReadValue(v, Join(at, v->string));
        }
    }
    if (const cJSON* config = field("replace_config")) {
        out.newConfig = ReadConfig(config, source, Join(path, "replace_config"));
    }
    if (const cJSON* param = field("set_param")) {
        const std::string at = Join(path, "set_param");
        CheckKeys(param, at, kSetParamKeys);
        out.paramName =
            Text(cJSON_GetObjectItemCaseSensitive(param, "name"), Join(at, "name"), param);
        out.paramValue =
            Text(cJSON_GetObjectItemCaseSensitive(param, "value"), Join(at, "value"), param);
    }
    if (const cJSON* expect = field("expect")) {
        out.expect = ReadExpectation(expect, Join(path, "expect"), false);
    }
    return out;
}

ParamDecl ReadParam(const cJSON* p, const std::string& path) {
    CheckKeys(p, path, kParamKeys);
    ParamDecl decl;
    decl.name = Text(cJSON_GetObjectItemCaseSensitive(p, "name"), Join(path, "name"), p);
    if (const cJSON* type = cJSON_GetObjectItemCaseSensitive(p, "type")) {
        const std::string text = Text(type, Join(path, "type"));
        decl.type = 0;
        for (int t = 0; t < 3; ++t) {
            if (text == kTypeNames[t]) decl.type = t + 1;
        }
        if (decl.type == 0) {
            throw Bad{type, Join(path, "type"), "must be \"int\", \"float\" or \"string\""};
        }
    }
    if (const cJSON* init = cJSON_GetObjectItemCaseSensitive(p, "initial")) {
        decl.initial = Text(init, Join(path, "initial"));
    }
    if (const cJSON* accepted = cJSON_GetObjectItemCaseSensitive(p, "accepted")) {
        decl.accepted = Texts(accepted, Join(path, "accepted"));
    }
    return decl;
}

FileKind KindOfRoot(const cJSON* root) {
    if (!cJSON_IsObject(root)) return FileKind::kNeither;
    const bool rows = cJSON_GetObjectItem(root, key::kSubParamList) != nullptr;
    const bool runs = cJSON_GetObjectItemCaseSensitive(root, "runs") != nullptr ||
                      cJSON_GetObjectItemCaseSensitive(root, "config") != nullptr;
    if (rows == runs) return FileKind::kNeither;
    return rows ? FileKind::kConfiguration : FileKind::kScenario;
}

void ReadScenario(const cJSON* root, const Source& source, Scenario& out) {
    if (KindOfRoot(root) == FileKind::kConfiguration) {
        throw Bad{root, "", WrongKind(FileKind::kConfiguration, DisplayName(source.path))};
    }
    CheckKeys(root, "", kScenarioKeys);
    auto field = [&](const char* key) { return cJSON_GetObjectItemCaseSensitive(root, key); };
    const cJSON* config = field("config");
    if (config == nullptr) throw Bad{root, "config", "is missing"};
    out.config = ReadConfig(config, source, "config");
    if (const cJSON* id = field("module_id")) {
        if (!Whole(id, 0, 299)) throw Bad{id, "module_id", "must be a whole number from 0 to 299"};
        out.moduleId = static_cast<int>(id->valuedouble);
    }
    if (const cJSON* id = field("algo_id")) out.algoId = Int(id, "algo_id");
    if (const cJSON* params = field("params")) {
        if (!cJSON_IsArray(params)) throw Bad{params, "params", "must be a list"};
        int index = 0;
        for (const cJSON* p = params->child; p != nullptr; p = p->next, ++index) {
            out.params.push_back(ReadParam(p, "params[" + std::to_string(index) + "]"));
        }
    }
    if (const cJSON* expect = field("expect_init")) {
        out.expectInit = ReadExpectation(expect, "expect_init", true);
    }
    const cJSON* runs = field("runs");
    if (runs != nullptr && !cJSON_IsArray(runs)) throw Bad{runs, "runs", "must be a list"};
    int index = 0;
    for (const cJSON* run = runs ? runs->child : nullptr; run != nullptr; run = run->next) {
        out.runs.push_back(ReadRun(run, source, "runs[" + std::to_string(index++) + "]"));
    }
}

// The child indexes from "from" down to item in cJSON's tree; false when item is not below it.
bool Trail(const cJSON* from, const cJSON* item, std::vector<size_t>& trail) {
    if (from == item) return true;
    size_t index = 0;
    for (const cJSON* c = from->child; c != nullptr; c = c->next, ++index) {
        trail.push_back(index);
        if (Trail(c, item, trail)) return true;
        trail.pop_back();
    }
    return false;
}

// The offset in the text as written of an offset in the text as read, where each byte escape
// (\udcHH, six characters) is one byte of 80 to FF, which never stands for itself there.
size_t WrittenOffset(const std::string& written, const std::string& read, size_t offset) {
    size_t at = 0;
    for (size_t i = 0; i < offset && i < read.size() && at < written.size(); ++i) {
        at += written[at] == read[i] ? 1 : 6;
    }
    return at;
}

// ":LINE:COL" of the offending item in the text as written, found by following its trail
// through the scanner's tree of the text as read, which holds the members as cJSON does, in
// the order written; "" when it cannot be placed.
std::string PlaceOfBad(const std::string& written, const std::string& read, const cJSON* root,
                       const Bad& bad) {
    std::vector<size_t> trail;
    if (bad.item == nullptr || !Trail(root, bad.item, trail)) return "";
    const JsonScan scan = ScanJson(read);
    if (!scan.root) return "";
    const JsonNode* node = &*scan.root;
    for (size_t index : trail) {
        if (index >= node->members.size()) return "";
        node = &node->members[index];
    }
    const size_t offset = WrittenOffset(written, read, bad.atKey ? node->keyBegin : node->begin);
    const TextPlace place = PlaceOf(written, offset);
    return ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

// The place in the text as written of offsets in the text as read, met mostly in increasing
// order: each step goes on from the last, so placing every value of a scenario of ten
// thousand runs is one pass over the text instead of one per value.
class Placer {
  public:
    Placer(const std::string& written, const std::string& read) : written_(written), read_(read) {}
    TextPlace At(size_t offset) {
        if (offset < read_at_) {
            read_at_ = written_at_ = 0;
            place_ = TextPlace{};
        }
        const size_t bom = written_.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
        for (; read_at_ < offset && read_at_ < read_.size() && written_at_ < written_.size();
             ++read_at_) {
            const size_t step = written_[written_at_] == read_[read_at_] ? 1 : 6;
            for (size_t i = 0; i < step && written_at_ < written_.size(); ++i, ++written_at_) {
                const auto c = static_cast<unsigned char>(written_[written_at_]);
                if (written_at_ < bom) continue;
                if (c == '\n') {
                    ++place_.line;
                    place_.column = 1;
                } else if ((c & 0xC0) != 0x80) {
                    ++place_.column;
                }
            }
        }
        return place_;
    }

  private:
    const std::string& written_;
    const std::string& read_;
    size_t read_at_ = 0;
    size_t written_at_ = 0;
    TextPlace place_;
};

// The position of child among parent's children.
size_t ChildIndex(const cJSON* parent, const cJSON* child) {
    size_t index = 0;
    for (const cJSON* c = parent->child; c != nullptr && c != child; c = c->next) ++index;
    return index;
}

// Each inline configuration's text becomes its bytes as they stand in the scenario (cJSON reads
// them as it read them there), and its findings are placed there.
void Embed(const cJSON* root, const Embedding& scenario, Scenario& out) {
    const JsonScan scan = ScanJson(scenario.read);
    const auto embed = [&](const cJSON* item, ConfigSource& config) {
        std::vector<size_t> trail;
        if (!cJSON_IsObject(item) || !scan.root || !Trail(root, item, trail)) return;
        const JsonNode* node = &*scan.root;
        for (size_t index : trail) {
            if (index >= node->members.size()) return;
            node = &node->members[index];
        }
        config.text = scenario.read.substr(node->begin, node->end - node->begin);
        config.embedding = scenario;
        config.embedding->begin = node->begin;
    };
    embed(cJSON_GetObjectItemCaseSensitive(root, "config"), out.config);
    const cJSON* runs = cJSON_GetObjectItemCaseSensitive(root, "runs");
    Placer placer(scenario.written, scenario.read);
    const JsonNode* runNodes = nullptr;  // the runs in the scan
    if (runs != nullptr && scan.root) {
        const size_t at = ChildIndex(root, runs);
        if (at < scan.root->members.size()) runNodes = &scan.root->members[at];
    }
    size_t index = 0;
    for (const cJSON* run = runs ? runs->child : nullptr; run; run = run->next, ++index) {
        if (index >= out.runs.size()) break;
        if (out.runs[index].newConfig) {
            embed(cJSON_GetObjectItemCaseSensitive(run, "replace_config"),
                  *out.runs[index].newConfig);
        }
        // Where each value stands, for explanations of the runs that read it.
        const cJSON* values = cJSON_GetObjectItemCaseSensitive(run, "values");
        if (!cJSON_IsObject(values) || runNodes == nullptr || index >= runNodes->members.size())
            continue;
        const JsonNode& runNode = runNodes->members[index];
        const size_t at = ChildIndex(run, values);
        if (at >= runNode.members.size()) continue;
        for (const JsonNode& value : runNode.members[at].members) {
            const TextPlace place = placer.At(value.keyBegin);
            out.runs[index].valuePlaces[value.key] = scenario.file + ":" +
                                                     std::to_string(place.line) + ":" +
                                                     std::to_string(place.column);
        }
    }
}

}  // namespace

size_t WrittenOffsetOf(const Embedding& embedding, size_t offset) {
    return WrittenOffset(embedding.written, embedding.read, embedding.begin + offset);
}

bool operator==(const Value& a, const Value& b) {
    return a.kind == b.kind && a.list == b.list && a.ints == b.ints && a.floats == b.floats &&
           a.texts == b.texts;
}

FileKind KindOf(const std::string& text) {
    const JsonPtr root(cJSON_Parse(text.c_str()));
    return KindOfRoot(root.get());
}

std::string WrongKind(FileKind kind, const std::string& name) {
    if (kind == FileKind::kConfiguration) {
        return std::string("this is a configuration (it has \"") + key::kSubParamList +
               "\"), not a scenario: run and test read a scenario file, whose \"config\" names "
               "the configuration; check reads a configuration (formatv2_preview check " +
               name + ")";
    }
    return "this is a scenario file (it has \"runs\" or \"config\"), not a configuration: "
           "check reads a configuration, such as the file its \"config\" names; run and test "
           "read a scenario (formatv2_preview test " +
           name + ")";
}

bool LoadScenario(const std::string& path, Scenario& out, FileError& error,
                  const std::string& confineTo) {
    std::string text;
    std::string reason;
    if (!ReadInput(path, text, reason)) {
        error.where = DisplayName(path);
        error.message = reason;
        return false;
    }
    return LoadScenarioText(path, text, out, error, confineTo);
}

bool LoadScenarioText(const std::string& path, std::string text, Scenario& out, FileError& error,
                      const std::string& confineTo) {
    error.where = DisplayName(path);
    // Bytes of no UTF-8 character come as \udcHH, as the reports write them.
    const std::string written = text;
    text = ReadByteEscapes(text);
    JsonPtr root(cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
    if (!root) {
        const JsonSyntax syntax = DescribeJsonError(text, cJSON_GetErrorPtr());
        error.where += ":" + std::to_string(syntax.line) + ":" + std::to_string(syntax.column);
        error.message = syntax.reason;
        return false;
    }
    try {
        ReadScenario(root.get(), Source{path, confineTo}, out);
        Embed(root.get(), Embedding{DisplayName(path), written, text, 0}, out);
    } catch (const Bad& bad) {
        error.where += PlaceOfBad(written, text, root.get(), bad);
        error.message = bad.path.empty() ? bad.message : bad.path + ": " + bad.message;
        return false;
    }
    return true;
}

}  // namespace preview
