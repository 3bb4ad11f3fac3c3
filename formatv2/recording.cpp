// Recording runs to disk: switched on at each configuration read by formatv2_record.json in the
// working directory, and fed at the end of every run. Nothing here changes what the host
// sees of a run; the one trace is the log line at the configuration read saying where the
// runs go (or, for a settings file that cannot be used, why recording is off).
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "contract/guard.h"
#include "formatv2/formatv2.h"
#include "record/recorder.h"
#include "tape.h"

using formatv2::Msg;
namespace record = formatv2::record;

namespace formatv2 {
namespace {

// The source a subscription names for input: "publisher:output".
std::string SourceOf(const DYNAMIC_SUBSCRIBE_PARAM_LIST& table, const std::string& input) {
    const int count = std::min(table.nNum, static_cast<int32_t>(std::size(table.params)));
    for (int i = 0; i < count; ++i) {
        const DYNAMIC_SUBSCRIBE_PARAM& entry = table.params[i];
        if (input == entry.sub.param_name)
            return std::string(entry.pub.algo_name) + ":" + entry.pub.param_name;
    }
    return "";
}

template <typename T>
record::Entry ListEntry(record::Table table, const std::vector<T>& list);
template <>
record::Entry ListEntry(record::Table table, const std::vector<int>& list) {
    record::Entry e{table, {list.begin(), list.end()}, {}, {}};
    return e;
}
template <>
record::Entry ListEntry(record::Table table, const std::vector<float>& list) {
    return {table, {}, list, {}};
}
template <>
record::Entry ListEntry(record::Table table, const std::vector<std::string>& list) {
    return {table, {}, {}, list};
}

// The entries frame holds under key, one per table that has it.
void AddEntries(const CScFrame& frame, const std::string& key, std::vector<record::Entry>& out) {
    using record::Table;
    if (auto it = frame.IntTable.find(key); it != frame.IntTable.end())
        out.push_back(ListEntry(Table::kInt, std::vector<int>{it->second}));
    if (auto it = frame.IntListTable.find(key); it != frame.IntListTable.end())
        out.push_back(ListEntry(Table::kIntList, it->second));
    if (auto it = frame.FloatTable.find(key); it != frame.FloatTable.end())
        out.push_back(ListEntry(Table::kFloat, std::vector<float>{it->second}));
    if (auto it = frame.FloatListTable.find(key); it != frame.FloatListTable.end())
        out.push_back(ListEntry(Table::kFloatList, it->second));
    if (auto it = frame.StringTable.find(key); it != frame.StringTable.end())
        out.push_back(ListEntry(Table::kString, std::vector<std::string>{it->second}));
    if (auto it = frame.StringListTable.find(key); it != frame.StringListTable.end())
        out.push_back(ListEntry(Table::kStringList, it->second));
}

// The settings file's text; false with errno's reason, "" when there is no such file.
bool ReadSmallFile(const std::string& path, std::string& text, std::string& why) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        why = errno == ENOENT ? "" : std::strerror(errno);
        return false;
    }
    char buffer[4096];
    ssize_t n = 0;
    // A settings file is a few lines; anything past 64 KiB is no settings file.
    while ((n = read(fd, buffer, sizeof buffer)) > 0 && text.size() < 65536) {
        text.append(buffer, static_cast<size_t>(n));
    }
    const int error = errno;
    close(fd);
    if (n < 0) {
        why = std::strerror(error);
        return false;
    }
    return true;
}

const char* Machine() {
#if defined(__arm__)
    return "armhf";
#elif defined(__aarch64__)
    return "arm64";
#elif defined(__x86_64__)
    return "x86_64";
#elif defined(__i386__)
    return "i386";
#else
    return "unknown";
#endif
}

uint64_t NowMicros() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u +
           static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

}  // namespace

record::Delivery* TapedInputs::Note(const std::string& input, record::Read read) {
    for (const record::Delivery& d : tape_) {
        if (d.input == input) return nullptr;
    }
    tape_.push_back({input, SourceOf(table_, input), read, 0, 0, false, {}});
    return &tape_.back();
}

template <typename T>
int TapedInputs::Noted(const std::string& input, record::Read read, record::Table table, int result,
                       int count, const std::vector<T>& list) {
    if (record::Delivery* d = Note(input, read)) {
        d->result = result;
        d->count = count;
        if (result == 0) d->entries.push_back(ListEntry(table, list));
    }
    return result;
}

int TapedInputs::GetInts(const std::string& input, int& count, std::vector<int>& list) {
    const int result = inner_.GetInts(input, count, list);
    return Noted(input, record::Read::kInts, record::Table::kIntList, result, count, list);
}

int TapedInputs::GetFloats(const std::string& input, int& count, std::vector<float>& list) {
    const int result = inner_.GetFloats(input, count, list);
    return Noted(input, record::Read::kFloats, record::Table::kFloatList, result, count, list);
}

int TapedInputs::GetStrings(const std::string& input, int& count, std::vector<std::string>& list) {
    const int result = inner_.GetStrings(input, count, list);
    return Noted(input, record::Read::kStrings, record::Table::kStringList, result, count, list);
}

bool TapedInputs::Resolve(const std::string& input, std::shared_ptr<CScFrame>& frame,
                          std::string& key) {
    const bool resolved = inner_.Resolve(input, frame, key);
    if (record::Delivery* d = Note(input, record::Read::kMap)) {
        d->result = resolved ? 1 : 0;
        d->frame = resolved && frame != nullptr;
        if (d->frame) AddEntries(*frame, key, d->entries);
    }
    return resolved;
}

void TapeOutputs(const CScFrame& frame, const std::vector<std::string>& names,
                 std::vector<record::Output>& out) {
    std::vector<record::Entry> entries;
    for (const std::string& name : names) {
        bool seen = false;
        for (const record::Output& o : out) seen = seen || o.name == name;
        if (seen) continue;
        entries.clear();
        AddEntries(frame, name, entries);
        for (record::Entry& e : entries) out.push_back({name, std::move(e)});
    }
}

}  // namespace formatv2

void CFormatV2Module::ConfigureRecording(const std::string& configText) {
    const std::string path = WorkDir + "/" + record::kSettingsFileName;
    std::string text;
    std::string why;
    record::Settings settings;
    // No settings file: recording is off, silently.
    if (!formatv2::ReadSmallFile(path, text, why) || !record::ReadSettings(text, settings, why)) {
        if (!why.empty()) Log().Say<Msg::kRecordingRefused>(path.c_str(), why.c_str());
        m_recorder.reset();
        m_recordSettings.clear();
        return;
    }
    const std::string folder = settings.dir[0] == '/' ? settings.dir : WorkDir + "/" + settings.dir;
    if (!m_recorder || text != m_recordSettings) {
        m_recorder.reset();
        record::Header header;
        header.producer = std::string(kModuleName) + " " + FORMATV2_VERSION;
        header.machine = formatv2::Machine();
        header.moduleId = ModuleId;
        header.algoId = AlgoId;
        m_recorder = std::make_unique<record::Recorder>(folder, settings.maxBytes, header);
    }
    m_recordSettings = text;
    m_recordFailedOnly = settings.failedOnly;
    m_configHash = record::ConfigHash(configText);
    m_recorder->SetConfig(m_configHash, configText);
    Log().Say<Msg::kRecordingOn>(folder.c_str(), static_cast<long long>(settings.maxBytes),
                                 settings.failedOnly ? "failed" : "all");
}

void CFormatV2Module::BeginRecordedRun() {
    if (!m_recorder) return;
    m_tape = std::make_unique<record::Run>();
    m_tape->timeMicros = formatv2::NowMicros();
    m_tape->index = m_runIndex;
    m_tape->configHash = m_configHash;
    m_tape->name = std::move(m_nextRunName);
    m_nextRunName.clear();
}

void CFormatV2Module::RecordRun(int status) {
    if (!m_tape) return;
    std::unique_ptr<record::Run> run = std::move(m_tape);
    if (!m_recorder || (m_recordFailedOnly && status == 0)) return;
    run->status = status;
    run->verdict = VerdictOf(status);
    run->showTextCn = ShowTextCN;
    run->showTextEn = ShowTextEN;
    run->dropped = m_recorder->Dropped();
    std::string bytes;
    record::EncodeRun(*run, bytes);
    m_recorder->Submit(run->configHash, std::move(bytes));
}

void CFormatV2Module::FlushRecording() {
    if (m_recorder) m_recorder->Flush();
}
