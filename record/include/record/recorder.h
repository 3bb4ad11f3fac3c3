// The module's recorder: runs are encoded on the run's thread and handed to a writer thread of
// the recorder's own, which appends them to the recording's files in large writes. The run
// never waits on storage: when the writer falls behind (a slow or full card), a run's record
// is dropped and counted. The files are never rewritten in place; the oldest file goes when
// the recording would grow past its cap.
#pragma once

#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "record/record.h"

namespace formatv2::record {

// A condition variable on the monotonic clock, made of the thread library's own calls: the
// standard one's timed wait asks for pthread_cond_clockwait, which devices' C libraries before
// 2.30 do not have, and a wall clock that is set back would stretch the wait.
class MonotonicCondition {
  public:
    MonotonicCondition();
    ~MonotonicCondition();
    MonotonicCondition(const MonotonicCondition&) = delete;
    MonotonicCondition& operator=(const MonotonicCondition&) = delete;
    void NotifyOne() { pthread_cond_signal(&cond_); }
    void NotifyAll() { pthread_cond_broadcast(&cond_); }
    // Until done() holds, or for at most timeout; lock (held) is released while waiting.
    template <typename Done>
    void WaitFor(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds timeout, Done done) {
        const timespec deadline = Deadline(timeout);
        while (!done() &&
               pthread_cond_timedwait(&cond_, lock.mutex()->native_handle(), &deadline) == 0) {
        }
    }
    template <typename Done>
    void Wait(std::unique_lock<std::mutex>& lock, Done done) {
        while (!done()) pthread_cond_wait(&cond_, lock.mutex()->native_handle());
    }

  private:
    static timespec Deadline(std::chrono::milliseconds timeout);
    pthread_cond_t cond_;
};

// What formatv2_record.json asks for.
struct Settings {
    std::string dir = kDefaultDir;  // relative to the working directory
    uint64_t maxBytes = kDefaultMaxBytes;
    bool failedOnly = false;  // "runs": "failed"
};
// Reads the settings file's text. False, with why, for anything but a JSON object with at most
// the keys "dir" (a text that is not empty), "max_bytes" (a whole number, at least
// kMinMaxBytes) and "runs" ("all" or "failed").
bool ReadSettings(const std::string& text, Settings& out, std::string& why);

class Recorder {
  public:
    // Records into folder (made when missing) with header in front of every file.
    Recorder(std::string folder, uint64_t maxBytes, Header header);
    ~Recorder();  // writes what is queued, then stops the writer
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // The configuration in force: written at the front of every file, so each file can be
    // replayed without the others.
    void SetConfig(uint64_t hash, const std::string& text);
    // Queues one encoded run made under the configuration of configHash; false (the run
    // dropped and counted) when the queue is full or the writer has stopped.
    bool Submit(uint64_t configHash, std::string record);
    uint64_t Dropped() const;
    // Waits until everything queued so far has been written or dropped (tools and tests).
    void Flush();
    const std::string& Folder() const { return folder_; }

    // Every recorder of the library stops when the library is unloaded, also one whose
    // module was never destroyed: its thread must not outlive the code it runs.
    static void StopAll();

  private:
    struct Queued {
        uint64_t configHash;
        std::string record;
    };
    static void* Main(void* self);
    void Write();
    // The writer's side; each gives the number of runs it lost.
    uint64_t WriteBatch(std::deque<Queued>& batch, const std::map<uint64_t, std::string>& configs);
    uint64_t FlushChunk();
    bool OpenNext();
    // Removes the oldest files until incoming more bytes fit under the cap.
    void Trim(uint64_t incoming);
    void Stop();

    const std::string folder_;
    const uint64_t maxBytes_;
    const uint64_t fileBytes_;   // a file is closed once it would grow past this
    const uint64_t queueBytes_;  // runs that would queue beyond this are dropped

    mutable std::mutex mutex_;
    MonotonicCondition wake_;
    MonotonicCondition idle_;
    std::deque<Queued> queue_;
    uint64_t queued_ = 0;
    uint64_t dropped_ = 0;
    uint64_t flushes_ = 0;
    bool stopping_ = false;
    bool writing_ = false;
    std::map<uint64_t, std::string> configs_;  // encoded configuration records by hash
    pthread_t thread_{};
    bool started_ = false;

    // The writer thread's own.
    Header header_;
    const unsigned instance_;
    int fd_ = -1;
    std::string fileName_;
    uint64_t fileSize_ = 0;  // bytes written to the open file
    uint64_t headerBytes_ = 0;
    unsigned fileNumber_ = 0;
    std::set<uint64_t> fileConfigs_;  // configurations the open file holds
    std::string chunk_;               // the next append
    uint64_t chunkRuns_ = 0;
};

}  // namespace formatv2::record
