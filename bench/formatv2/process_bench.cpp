// One run of the module on a representative configuration: ten subscribed items of all three
// element types (prefixes, suffixes, deletion, truncation), one custom text, one line-break
// symbol and one array of 250 rows x 4 fields. Info lines are dropped by threshold, as on a
// device in production.
//
// The floor it is compared with: the same values formatted straight into the same output
// tables (list tables, "DynamicPub" records, "SINGLE_" entries, display texts) by hand-written
// code with the format texts parsed in advance, reading the source lists directly. Both must
// leave identical output frames; that is checked before anything is timed.
//
// Heap allocations are counted by the tests' replacement of the global operator new.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "formatv2/formatv2.h"
#include "host/standin/standin.h"
#include "log/log.h"
#include "publish/dynamic_pub.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/config_text.h"

namespace {

enum Elem { kInt, kFloat, kText };

// One configured item as both the module and the floor see it.
struct ItemPlan {
    const char* name;
    int kind;          // 1 subscribed value, 2 symbol, 3 array, 4 custom text
    const char* text;  // subscription text ("1:algo:param:index:type"), symbol or custom text
    int convert;       // 1 int, 2 float, 3 text
    int truncStart = 0, truncLen = -1;  // truncation enabled when truncLen >= 0
    const char* prefix = "";
    const char* suffix = "";
    const char* del = "";
};

const std::vector<ItemPlan> kItemPlans = {
    {"count", 1, "1:blob:count:*:%d", 1},
    {"width", 1, "1:blob:width:0:%5d", 3, 0, -1, "W=", "px"},
    {"scores", 1, "1:blob:score:*:%f", 2},
    {"angle", 1, "1:blob:angle:1:%8.3f", 3, 0, 9, "a:", "deg"},
    {"labels", 1, "1:ocr:labels:*:%s", 3, 0, -1, "[", "]", "-"},
    {"code", 1, "1:ocr:code:0:%s", 1},
    {"flags", 1, "1:io:flags:2:%x", 2},
    {"areas", 1, "1:blob:area:*:%.2f", 1},
    {"serial", 1, "1:ocr:serial:0:%s", 3, 2, 5, "", "#"},
    {"ids", 1, "1:blob:id:*:%3d", 3, 0, -1, "", ";"},
    {"title", 4, "Result:", 3},
    {"crlf", 2, "\\r\\n", 3},
    {"points", 3, "", 3, 0, -1, "{", "}"},
};

struct Field {
    const char* text;
    const char* separator;
};
const std::vector<Field> kFields = {{"1:blob:x:*:%5d", ","},
                                    {"1:blob:y:*:%5d", ";"},
                                    {"1:blob:s:*:%8.3f", ","},
                                    {"1:blob:tag:*:%s", "|"}};
constexpr int kRows = 250;

// The conversion text of a subscription: everything after the fourth colon.
std::string TypeOf(const char* sub) {
    const char* p = sub;
    for (int i = 0; i < 4; ++i) p = std::strchr(p, ':') + 1;
    return p;
}
std::string IndexOf(const char* sub) {
    const char* p = sub;
    for (int i = 0; i < 3; ++i) p = std::strchr(p, ':') + 1;
    return std::string(p, std::strchr(p, ':'));
}
Elem ElemOf(const std::string& type) {
    const char c = type.back();
    return c == 'f' ? kFloat : c == 's' ? kText : kInt;
}

// The source values of every input, in subscription order (subscribed items, then fields).
struct Sources {
    std::vector<std::shared_ptr<CScFrame>> frames;
    void Add(Elem e, int n, int seed) {
        auto f = std::make_shared<CScFrame>();
        for (int i = 0; i < n; ++i) {
            const int v = (seed * 7919 + i * 104729) % 20011 - 5000;
            if (e == kInt) f->IntListTable["v"].push_back(v);
            if (e == kFloat) f->FloatListTable["v"].push_back(static_cast<float>(v) / 7.0f);
            if (e == kText) f->StringListTable["v"].push_back(std::to_string(v) + "-id-x");
        }
        frames.push_back(f);
    }
};

std::string Json() {
    std::vector<std::string> rows;
    for (const ItemPlan& s : kItemPlans) {
        const std::string extra =
            (s.truncLen >= 0
                 ? "\"StrTruncEnable\":1,\"StrTruncStart\":" + std::to_string(s.truncStart) +
                       ",\"StrTruncLen\":" + std::to_string(s.truncLen) + ","
                 : std::string()) +
            "\"StrPrefix\":" + fv2test::Str(s.prefix) + ",\"StrSuffix\":" + fv2test::Str(s.suffix) +
            ",\"StrDelete\":" + fv2test::Str(s.del) + ",";
        if (s.kind == 3) {
            std::vector<std::pair<std::string, std::string>> fields;
            for (const Field& f : kFields) fields.emplace_back(f.text, f.separator);
            std::string row = fv2test::ArrayRow(s.name, fields);
            rows.push_back("{" + extra + row.substr(1));
        } else {
            rows.push_back(fv2test::Row(s.name, s.text, s.convert, s.kind == 4, extra));
        }
    }
    return fv2test::Config(rows);
}

// ---- the floor -------------------------------------------------------------------------

struct Format {
    int width = 0, precision = 0;
};
Format ParseFormat(const std::string& type, Elem e) {
    Format f;
    std::sscanf(type.c_str(), e == kInt ? "%%%dd" : "%%%d.%d", &f.width, &f.precision);
    if (f.precision < 0 || f.precision > 6) std::abort();  // beyond what the floor handles
    return f;
}

// Sign, zeros up to the width, digits: printf's "%0*d".
void AppendInt(std::string& out, int v, const Format& f) {
    char buf[16];
    const auto end = std::to_chars(buf, buf + sizeof buf, v).ptr;
    const char* digits = buf + (v < 0);
    if (v < 0) out += '-';
    const int len = static_cast<int>(end - digits);
    if (f.width - (v < 0) > len) out.append(static_cast<size_t>(f.width - (v < 0) - len), '0');
    out.append(digits, static_cast<size_t>(end - digits));
}

// Zero-padded whole digits, then the fraction rounded on its own (a carry reaches the whole
// part), the point always present. The fraction of a float times 10^P (P <= 6) is exact in a
// double, so rounding it to an integer (ties to even, as printf) gives printf's digits.
void AppendFloat(std::string& out, float v, const Format& f) {
    static const long long kPow10[] = {1, 10, 100, 1000, 10000, 100000, 1000000};
    const float x = std::fabs(v);
    long long whole = static_cast<long long>(x);
    const int p = f.precision;
    const float frac = x - static_cast<float>(whole);
    long long digits = std::llrint(static_cast<double>(frac) * static_cast<double>(kPow10[p]));
    if (digits == kPow10[p]) ++whole, digits = 0;
    char buf[24];
    const auto end = std::to_chars(buf, buf + sizeof buf, whole).ptr;
    if (v < 0) out += '-';
    if (f.width > end - buf) out.append(static_cast<size_t>(f.width - (end - buf)), '0');
    out.append(buf, static_cast<size_t>(end - buf)).append(1, '.');
    if (p > 0) {
        char fd[8];
        for (int i = p - 1; i >= 0; --i, digits /= 10) fd[i] = static_cast<char>('0' + digits % 10);
        out.append(fd, static_cast<size_t>(p));
    }
}

struct Plan {  // one item, resolved once
    const ItemPlan* plan;
    Elem elem;
    int index;  // -1: all elements
    Format format;
    std::vector<const CScFrame*> sources;  // one per subscribed value or field
    std::vector<Elem> fieldElems;
    std::vector<Format> fieldFormats;
};

std::vector<Plan> MakePlans(const Sources& src) {
    std::vector<Plan> plans;
    size_t input = 0;
    for (const ItemPlan& s : kItemPlans) {
        Plan p{&s, kText, -1, {}, {}, {}, {}};
        if (s.kind == 1) {
            const std::string type = TypeOf(s.text), index = IndexOf(s.text);
            p.elem = ElemOf(type);
            p.index = index == "*" ? -1 : std::atoi(index.c_str());
            p.format = ParseFormat(type, p.elem);
            p.sources.push_back(src.frames[input++].get());
        } else if (s.kind == 3) {
            for (const Field& f : kFields) {
                const Elem e = ElemOf(TypeOf(f.text));
                p.fieldElems.push_back(e);
                p.fieldFormats.push_back(ParseFormat(TypeOf(f.text), e));
                p.sources.push_back(src.frames[input++].get());
            }
        }
        plans.push_back(std::move(p));
    }
    return plans;
}

std::string Decorate(const ItemPlan& s, std::string text) {
    if (s.truncLen >= 0) {
        text = s.truncStart < static_cast<int>(text.size())
                   ? text.substr(static_cast<size_t>(s.truncStart), static_cast<size_t>(s.truncLen))
                   : std::string();
    }
    text.insert(0, s.prefix).append(s.suffix);
    if (*s.del) {
        const size_t n = std::strlen(s.del);
        for (size_t at = text.find(s.del); at != std::string::npos; at = text.find(s.del, at)) {
            text.erase(at, n);
        }
    }
    return text;
}

void Floor(const std::vector<Plan>& plans, CScFrame& out) {
    std::string shown;
    auto* pubs = out.getData<DynamicPubRecords>("DynamicPub", true);
    std::string text;
    for (const Plan& p : plans) {
        const ItemPlan& s = *p.plan;
        shown.append("\n").append(s.name).append(":");
        // Each value as int, float or text, sent to the item's list and the display text.
        auto send = [&](Elem e, int i, float f, const std::string* t) {
            if (s.convert == 1) {
                const int v = e == kInt     ? i
                              : e == kFloat ? static_cast<int>(f)
                                            : std::atoi(t->c_str());
                out.IntListTable[s.name].push_back(v);
                shown.append(std::to_string(v)).append(" ");
            } else if (s.convert == 2) {
                const float v = e == kInt     ? static_cast<float>(i)
                                : e == kFloat ? f
                                              : std::strtof(t->c_str(), nullptr);
                out.FloatListTable[s.name].push_back(v);
                char buf[32];
                const auto end = std::to_chars(buf, buf + sizeof buf, static_cast<double>(v),
                                               std::chars_format::general, 6)
                                     .ptr;
                shown.append(buf, end).append(1, ' ');
            } else {
                text.clear();
                if (e == kInt) AppendInt(text, i, p.format);
                if (e == kFloat) AppendFloat(text, f, p.format);
                if (e == kText) text = *t;
                text = Decorate(s, std::move(text));
                out.StringListTable[s.name].push_back(text);
                if (text != "\r") shown.append(text).append(" ");
            }
        };
        if (s.kind == 1) {
            const CScFrame& src = *p.sources[0];
            auto each = [&](size_t n, auto one) {
                if (p.index < 0) {
                    for (size_t k = 0; k < n; ++k) one(k);
                } else {
                    one(static_cast<size_t>(p.index));
                }
            };
            if (p.elem == kInt) {
                const auto& l = src.IntListTable.at("v");
                each(l.size(), [&](size_t k) { send(kInt, l[k], 0, nullptr); });
            } else if (p.elem == kFloat) {
                const auto& l = src.FloatListTable.at("v");
                each(l.size(), [&](size_t k) { send(kFloat, 0, l[k], nullptr); });
            } else {
                const auto& l = src.StringListTable.at("v");
                each(l.size(), [&](size_t k) { send(kText, 0, 0, &l[k]); });
            }
        } else if (s.kind == 3) {
            std::string cells;
            cells.reserve(kRows * 40);
            const size_t nf = p.sources.size();
            std::vector<const void*> lists(nf);
            for (size_t j = 0; j < nf; ++j) {
                const CScFrame& src = *p.sources[j];
                lists[j] = p.fieldElems[j] == kInt
                               ? static_cast<const void*>(&src.IntListTable.at("v"))
                           : p.fieldElems[j] == kFloat
                               ? static_cast<const void*>(&src.FloatListTable.at("v"))
                               : &src.StringListTable.at("v");
            }
            for (size_t r = 0; r < kRows; ++r) {
                for (size_t j = 0; j < nf; ++j) {
                    if (p.fieldElems[j] == kInt) {
                        AppendInt(cells, (*static_cast<const IntList*>(lists[j]))[r],
                                  p.fieldFormats[j]);
                    } else if (p.fieldElems[j] == kFloat) {
                        AppendFloat(cells, (*static_cast<const FloatList*>(lists[j]))[r],
                                    p.fieldFormats[j]);
                    } else {
                        cells += (*static_cast<const StringList*>(lists[j]))[r];
                    }
                    if (r + 1 < kRows || j + 1 < nf) cells += kFields[j].separator;
                }
            }
            send(kText, 0, 0, &cells);
        } else {
            const std::string t = s.kind == 2 ? "\r\n" : s.text;
            send(kText, 0, 0, &t);
        }
        DynamicPub pub{};
        std::snprintf(pub.param_name, sizeof pub.param_name, "%s", s.name);
        std::snprintf(pub.type, sizeof pub.type, "%s",
                      s.convert == 1   ? "int"
                      : s.convert == 2 ? "float"
                                       : "string");
        pubs->push_back(pub);
    }
    out.IntTable["SINGLE_status"] = 1;
    out.FloatTable["SINGLE_show_text_x"] = 0.0f;
    out.FloatTable["SINGLE_show_text_y"] = 0.0f;
    out.FloatTable["SINGLE_show_text_ang"] = 0.0f;
    out.StringTable["SINGLE_show_text_cn"] = shown;
    out.StringTable["SINGLE_show_text_en"] = std::move(shown);
    out.StringTable["SINGLE_param_status_string"] = "OK";
    out.IntTable["SINGLE_param_status"] = 1;
}

// ---- the workload ----------------------------------------------------------------------

struct Workload {
    Sources sources;
    standin::InputHandle in;
    std::string dir;
    CAbstractUserModule* module = nullptr;
    std::vector<Plan> plans;
    int values = 0;  // values published per run

    Workload() {
        log_prt_init(0, 0, nullptr);
        log_set_priority(-1, LOG_LEVEL_WARN);
        const int counts[] = {8, 2, 4, 2, 3, 1, 3, 4, 1, 5};
        int seed = 1;
        for (const ItemPlan& s : kItemPlans) {
            if (s.kind == 1) sources.Add(ElemOf(TypeOf(s.text)), counts[seed - 1], seed), ++seed;
        }
        for (const Field& f : kFields) sources.Add(ElemOf(TypeOf(f.text)), kRows, seed++);
        for (size_t i = 0; i < sources.frames.size(); ++i) {
            in.Bind("input" + std::to_string(i), sources.frames[i], "v");
        }
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;

        char tmpl[] = "/tmp/fv2benchXXXXXX";
        dir = mkdtemp(tmpl);
        std::FILE* f = std::fopen((dir + "/algo_private.json").c_str(), "w");
        std::fputs(Json().c_str(), f);
        std::fclose(f);
        module = CreateModule();
        module->SetPwd(dir.c_str());
        if (module->InitAlgoPrivate() != 0) std::abort();
        plans = MakePlans(sources);
    }
    ~Workload() {
        DestroyModule(nullptr, module);
        std::remove((dir + "/algo_private.json").c_str());
        std::remove(dir.c_str());
    }
};

Workload& TheWorkload() {
    static Workload w;
    return w;
}

bool SameFrame(CScFrame& a, CScFrame& b) {
    auto* pa = a.getData<DynamicPubRecords>("DynamicPub", true);
    auto* pb = b.getData<DynamicPubRecords>("DynamicPub", true);
    bool pubs = pa->size() == pb->size();
    for (auto i = pa->begin(), j = pb->begin(); pubs && i != pa->end(); ++i, ++j) {
        pubs = std::strcmp(i->param_name, j->param_name) == 0 && std::strcmp(i->type, j->type) == 0;
    }
    return pubs && a.IntTable == b.IntTable && a.IntListTable == b.IntListTable &&
           a.FloatTable == b.FloatTable && a.FloatListTable == b.FloatListTable &&
           a.StringTable == b.StringTable && a.StringListTable == b.StringListTable;
}

int CountValues(CScFrame& f) {
    size_t n = 0;
    for (auto& e : f.IntListTable) n += e.second.size();
    for (auto& e : f.FloatListTable) n += e.second.size();
    for (auto& e : f.StringListTable) n += e.second.size();
    return static_cast<int>(n);
}

// Runs body once per iteration on a fresh output frame (made and released untimed).
template <typename Body>
void Measure(benchmark::State& state, Body body) {
    Workload& w = TheWorkload();
    standin::OutputHandle out;
    long long allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        out.frame = std::make_shared<CScFrame>();
        standin::Reset();  // drops the frames the stand-in's result manager keeps
        const long long before = fv2test::AllocationCount();
        state.ResumeTiming();
        body(w, out);
        allocations += fv2test::AllocationCount() - before;
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["allocs/run"] = static_cast<double>(allocations) / runs;
    state.counters["values"] = w.values;
    state.counters["ns/value"] =
        benchmark::Counter(static_cast<double>(w.values) * runs,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Process(benchmark::State& state) {
    Measure(state, [](Workload& w, standin::OutputHandle& out) {
        benchmark::DoNotOptimize(w.module->Process(w.in.handle(), out.handle()));
    });
}

// The same runs recording what they did, as the preview runner has them: what telling every
// byte's row costs beside the plain run.
void BM_ProcessRecorded(benchmark::State& state) {
    FormatV2RecordRuns(TheWorkload().module, 1);
    Measure(state, [](Workload& w, standin::OutputHandle& out) {
        benchmark::DoNotOptimize(w.module->Process(w.in.handle(), out.handle()));
    });
    FormatV2RecordRuns(TheWorkload().module, 0);
}

// The same runs recorded to disk, as formatv2_record.json asks on a device: each run's inputs and
// outputs copied, encoded and queued for the writer thread. Runs the writer cannot keep up with
// are dropped after they were encoded, so each run pays the whole cost either way.
void BM_ProcessRecording(benchmark::State& state) {
    Workload& w = TheWorkload();
    auto* module = static_cast<CFormatV2Module*>(w.module);
    const std::string settings = w.dir + "/formatv2_record.json";
    std::FILE* f = std::fopen(settings.c_str(), "w");
    std::fputs("{\"dir\": \"records\", \"max_bytes\": 8388608}", f);
    std::fclose(f);
    if (module->GetSubParamList() != 0) std::abort();
    Measure(state, [](Workload& w, standin::OutputHandle& out) {
        benchmark::DoNotOptimize(w.module->Process(w.in.handle(), out.handle()));
    });
    std::remove(settings.c_str());
    module->GetSubParamList();  // recording off: the recorder writes what it holds and stops
    std::filesystem::remove_all(w.dir + "/records");
}

void BM_Floor(benchmark::State& state) {
    Measure(state, [](Workload& w, standin::OutputHandle& out) {
        Floor(w.plans, *out.frame);
        benchmark::ClobberMemory();
    });
}

}  // namespace

int main(int argc, char** argv) {
    Workload& w = TheWorkload();
    standin::OutputHandle a, b;
    if (w.module->Process(w.in.handle(), a.handle()) != 0) {
        std::fprintf(stderr, "the module's run failed\n");
        return 1;
    }
    Floor(w.plans, *b.frame);
    if (!SameFrame(*a.frame, *b.frame)) {
        std::fprintf(stderr, "the floor's output frame differs from the module's\n");
        return 1;
    }
    w.values = CountValues(*a.frame);
    standin::Reset();

    // "profile N": N plain runs of each, for instruction counts under callgrind.
    if (argc == 3 && std::strcmp(argv[1], "profile") == 0) {
        for (int i = std::atoi(argv[2]); i > 0; --i) {
            standin::OutputHandle p, f;
            w.module->Process(w.in.handle(), p.handle());
            Floor(w.plans, *f.frame);
            standin::Reset();
        }
        return 0;
    }

    benchmark::RegisterBenchmark("Process", BM_Process)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Process/recorded", BM_ProcessRecorded)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("ProcessRecording", BM_ProcessRecording)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Floor", BM_Floor)->Unit(benchmark::kMicrosecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
