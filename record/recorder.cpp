#include "record/recorder.h"

#include <cjson/cJSON.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <vector>

namespace formatv2::record {
namespace {

// The writer wakes for this much queued, or after kLinger, whichever comes first: the card
// sees few large appends rather than one small write per run.
constexpr uint64_t kBatchBytes = 64 * 1024;
constexpr auto kLinger = std::chrono::milliseconds(500);
constexpr uint64_t kMaxQueueBytes = 1024 * 1024;

uint64_t NowMicros() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u +
           static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

// Makes folder and every missing folder above it.
bool MakeFolders(const std::string& folder) {
    for (size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        const std::string part = folder.substr(0, slash);
        if (!part.empty() && mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) return true;
    }
}

struct FileOnDisk {
    std::string name;
    uint64_t size;
};

// The recording's files in folder, oldest first.
std::vector<FileOnDisk> RecordFiles(const std::string& folder) {
    std::vector<FileOnDisk> files;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return files;
    const std::string suffix = kFileSuffix;
    while (const dirent* e = readdir(dir)) {
        const std::string name = e->d_name;
        if (name.size() <= suffix.size() ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            continue;
        struct stat st {};
        if (stat((folder + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode))
            files.push_back({name, static_cast<uint64_t>(st.st_size)});
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](const FileOnDisk& a, const FileOnDisk& b) { return a.name < b.name; });
    return files;
}

// Every live recorder, so that unloading the library can stop their threads.
struct Registry {
    std::mutex mutex;
    std::set<Recorder*> live;
    ~Registry() { Recorder::StopAll(); }
};
Registry& Recorders() {
    static Registry registry;
    return registry;
}

unsigned NextInstance() {
    static std::mutex mutex;
    static unsigned next = 0;
    std::lock_guard<std::mutex> lock(mutex);
    return next++;
}

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

}  // namespace

MonotonicCondition::MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&cond_, &attributes);
    pthread_condattr_destroy(&attributes);
}

MonotonicCondition::~MonotonicCondition() {
    pthread_cond_destroy(&cond_);
}

timespec MonotonicCondition::Deadline(std::chrono::milliseconds timeout) {
    timespec at{};
    clock_gettime(CLOCK_MONOTONIC, &at);
    const long long nanos = at.tv_nsec + static_cast<long long>(timeout.count() % 1000) * 1000000;
    at.tv_sec += static_cast<time_t>(timeout.count() / 1000 + nanos / 1000000000);
    at.tv_nsec = static_cast<long>(nanos % 1000000000);
    return at;
}

bool ReadSettings(const std::string& text, Settings& out, std::string& why) {
    std::unique_ptr<cJSON, JsonDeleter> json(cJSON_Parse(text.c_str()));
    if (!json || !cJSON_IsObject(json.get())) {
        why = "not a JSON object";
        return false;
    }
    Settings read;
    for (const cJSON* item = json->child; item != nullptr; item = item->next) {
        const std::string key = item->string != nullptr ? item->string : "";
        if (key == "dir") {
            if (!cJSON_IsString(item) || item->valuestring[0] == '\0') {
                why = "\"dir\" must be a folder's path";
                return false;
            }
            read.dir = item->valuestring;
        } else if (key == "max_bytes") {
            const double v = cJSON_IsNumber(item) ? item->valuedouble : -1;
            // Whole numbers told apart without libm, which the module does not link otherwise.
            if (v < static_cast<double>(kMinMaxBytes) || v > 1e15 ||
                static_cast<double>(static_cast<long long>(v)) != v) {
                why = "\"max_bytes\" must be a whole number of at least " +
                      std::to_string(kMinMaxBytes);
                return false;
            }
            read.maxBytes = static_cast<uint64_t>(v);
        } else if (key == "runs") {
            const std::string runs = cJSON_IsString(item) ? item->valuestring : "";
            if (runs != "all" && runs != "failed") {
                why = "\"runs\" must be \"all\" or \"failed\"";
                return false;
            }
            read.failedOnly = runs == "failed";
        } else {
            why = "unknown key \"" + key + "\" (known: \"dir\", \"max_bytes\", \"runs\")";
            return false;
        }
    }
    out = read;
    return true;
}

Recorder::Recorder(std::string folder, uint64_t maxBytes, Header header)
    : folder_(std::move(folder)),
      maxBytes_(maxBytes),
      fileBytes_(std::max<uint64_t>(maxBytes / 8, 16 * 1024)),
      queueBytes_(std::min<uint64_t>(kMaxQueueBytes, maxBytes / 2)),
      header_(std::move(header)),
      instance_(NextInstance()) {
    Registry& registry = Recorders();
    std::lock_guard<std::mutex> lock(registry.mutex);
    started_ = pthread_create(&thread_, nullptr, &Recorder::Main, this) == 0;
    if (started_) registry.live.insert(this);
}

Recorder::~Recorder() {
    Stop();
    Registry& registry = Recorders();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.live.erase(this);
}

void Recorder::StopAll() {
    Registry& registry = Recorders();
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (Recorder* recorder : registry.live) recorder->Stop();
}

void Recorder::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return;
        stopping_ = true;
    }
    wake_.NotifyAll();
    if (started_) pthread_join(thread_, nullptr);
}

void Recorder::SetConfig(uint64_t hash, const std::string& text) {
    std::string record;
    EncodeConfig(hash, text, record);
    std::lock_guard<std::mutex> lock(mutex_);
    configs_[hash] = std::move(record);
    // Older texts are kept only while queued runs may still refer to them.
    while (configs_.size() > 4) configs_.erase(configs_.begin());
}

bool Recorder::Submit(uint64_t configHash, std::string record) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_ || !started_ || queued_ + record.size() > queueBytes_) {
            ++dropped_;
            return false;
        }
        queued_ += record.size();
        queue_.push_back({configHash, std::move(record)});
        if (queued_ < kBatchBytes) return true;
    }
    wake_.NotifyOne();
    return true;
}

uint64_t Recorder::Dropped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
}

void Recorder::Flush() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++flushes_;
    wake_.NotifyOne();
    idle_.Wait(lock, [&] { return stopping_ || (queue_.empty() && !writing_); });
}

void* Recorder::Main(void* self) {
    static_cast<Recorder*>(self)->Write();
    return nullptr;
}

void Recorder::Write() {
    std::unique_lock<std::mutex> lock(mutex_);
    uint64_t served = 0;  // the flushes asked for that this loop has answered
    for (;;) {
        wake_.WaitFor(lock, kLinger,
                      [&] { return stopping_ || queued_ >= kBatchBytes || flushes_ != served; });
        served = flushes_;
        if (queue_.empty()) {
            idle_.NotifyAll();
            if (stopping_) break;
            continue;
        }
        std::deque<Queued> batch;
        batch.swap(queue_);
        queued_ = 0;
        writing_ = true;
        const std::map<uint64_t, std::string> configs = configs_;
        lock.unlock();
        const uint64_t lost = WriteBatch(batch, configs);
        lock.lock();
        dropped_ += lost;
        writing_ = false;
        idle_.NotifyAll();
    }
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

uint64_t Recorder::WriteBatch(std::deque<Queued>& batch,
                              const std::map<uint64_t, std::string>& configs) {
    uint64_t lost = 0;
    for (Queued& run : batch) {
        Seal(run.record);
        auto config = configs.find(run.configHash);
        const bool needsConfig = config != configs.end() && !fileConfigs_.count(run.configHash);
        uint64_t size = run.record.size() + (needsConfig ? config->second.size() : 0);
        const bool holdsRuns = chunkRuns_ > 0 || fileSize_ > headerBytes_;
        if (fd_ < 0 || (holdsRuns && fileSize_ + chunk_.size() + size > fileBytes_)) {
            lost += FlushChunk();
            if (!OpenNext()) {
                ++lost;
                continue;
            }
            size = run.record.size() + (config != configs.end() ? config->second.size() : 0);
        }
        if (headerBytes_ + size > maxBytes_) {
            ++lost;  // a run larger than the whole recording may be
            continue;
        }
        if (config != configs.end() && !fileConfigs_.count(run.configHash)) {
            chunk_ += config->second;
            fileConfigs_.insert(run.configHash);
        }
        chunk_ += run.record;
        ++chunkRuns_;
    }
    return lost + FlushChunk();
}

bool Recorder::OpenNext() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    chunk_.clear();
    chunkRuns_ = 0;
    fileConfigs_.clear();
    if (!MakeFolders(folder_)) return false;
    header_.startMicros = NowMicros();
    fileName_ =
        RecordFileName(header_.startMicros, static_cast<long>(getpid()), instance_, fileNumber_++);
    fd_ = open((folder_ + "/" + fileName_).c_str(),
               O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) return false;
    EncodeHeader(header_, chunk_);
    headerBytes_ = chunk_.size();
    fileSize_ = 0;
    return true;
}

uint64_t Recorder::FlushChunk() {
    if (fd_ < 0 || chunk_.empty()) {
        chunk_.clear();
        const uint64_t lost = chunkRuns_;
        chunkRuns_ = 0;
        return lost;
    }
    Trim(chunk_.size());
    size_t done = 0;
    while (done < chunk_.size()) {
        const ssize_t n = write(fd_, chunk_.data() + done, chunk_.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    fileSize_ += done;
    uint64_t lost = 0;
    if (done < chunk_.size()) {
        // A full card, or an error: what reached the file ends it as a torn record, which
        // readers skip. The next run begins a new file.
        lost = chunkRuns_;
        close(fd_);
        fd_ = -1;
    }
    chunk_.clear();
    chunkRuns_ = 0;
    return lost;
}

void Recorder::Trim(uint64_t incoming) {
    std::vector<FileOnDisk> files = RecordFiles(folder_);
    uint64_t total = 0;
    for (const FileOnDisk& f : files) total += f.size;
    for (const FileOnDisk& f : files) {
        if (total + incoming <= maxBytes_) break;
        if (f.name == fileName_) continue;
        if (unlink((folder_ + "/" + f.name).c_str()) == 0) total -= f.size;
    }
}

}  // namespace formatv2::record
