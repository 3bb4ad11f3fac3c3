// The recording format and the recorder: what is written reads back the same on any machine, a
// torn or damaged record is skipped and never misread, the cap holds on disk, and a full card
// or a writer that falls behind drops runs without stopping anything.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "record/recorder.h"

namespace fs = std::filesystem;
using namespace formatv2::record;
using RecordedRun = formatv2::record::Run;  // gtest's Test has a Run of its own

namespace {

RecordedRun SampleRun(uint64_t index, size_t textBytes = 8) {
    RecordedRun run;
    run.timeMicros = 1795655433487266ull + index;
    run.index = index;
    run.configHash = ConfigHash("{}");
    run.name = index % 2 ? "" : "run " + std::to_string(index);
    run.inputFrame = true;
    run.imgModeSet = true;
    run.imgMode = -7;
    const float nan = std::nanf("0x7ab");
    run.inputs.push_back({"input0",
                          "blob:count",
                          Read::kInts,
                          0,
                          3,
                          false,
                          {{Table::kIntList, {1, -2, 2147483647}, {}, {}}}});
    run.inputs.push_back({"input1",
                          "blob:x",
                          Read::kMap,
                          1,
                          0,
                          true,
                          {{Table::kFloat, {}, {nan}, {}},
                           {Table::kStringList, {}, {}, {std::string("a\0b\xff", 4), ""}}}});
    run.inputs.push_back({"input2", "ocr:lot", Read::kStrings, -536870401, 0, false, {}});
    run.status = static_cast<int32_t>(0xC0000004);
    run.verdict = "NG";
    run.showTextEn = std::string(textBytes, 'x');
    run.showTextCn = "\xe6\x89\xb9";
    run.outputs.push_back({"lot", {Table::kStringList, {}, {}, {"A1234;"}}});
    run.dropped = 2;
    return run;
}

// Bitwise, so that a NaN's payload counts.
std::string Bytes(const RecordedRun& run, bool sealed = true) {
    std::string out;
    EncodeRun(run, out, sealed);
    return out;
}

std::string File(const std::vector<RecordedRun>& runs) {
    std::string out;
    EncodeHeader({kFormatVersion, "formatv2 2.0.0", "armhf", 5, 3, 1}, out);
    EncodeConfig(ConfigHash("{}"), "{}", out);
    for (const RecordedRun& r : runs) EncodeRun(r, out, true);
    return out;
}

std::string Slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class RecorderOnDisk : public ::testing::Test {
  protected:
    void SetUp() override {
        char dir[] = "/tmp/fv2record.XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        root = dir;
    }
    void TearDown() override { fs::remove_all(root); }
    uint64_t OnDisk() const {
        uint64_t total = 0;
        for (const auto& e : fs::directory_iterator(root + "/rec")) total += e.file_size();
        return total;
    }
    std::string root;
};

}  // namespace

// Every field comes back as written, bytes of texts (NUL, invalid UTF-8) and float bits too;
// the encoding has no byte of the machine's own order or padding.
TEST(RecordFormat, ARunReadsBackAsWritten) {
    const std::vector<RecordedRun> runs = {SampleRun(0), SampleRun(1, 70000)};
    Recording rec;
    std::string why;
    ASSERT_TRUE(ReadRecordFile(File(runs), "f", rec, why)) << why;
    ASSERT_EQ(rec.runs.size(), 2u);
    EXPECT_TRUE(rec.skipped.empty());
    EXPECT_EQ(rec.configs.at(ConfigHash("{}")), "{}");
    EXPECT_EQ(rec.headers.at(0).machine, "armhf");
    EXPECT_EQ(rec.headers.at(0).algoId, 3);
    for (size_t i = 0; i < runs.size(); ++i) EXPECT_EQ(Bytes(rec.runs[i]), Bytes(runs[i]));
    // Little-endian on every machine: the payload length of a known record.
    std::string config;
    EncodeConfig(1, "ab", config);
    EXPECT_EQ(config.substr(0, 8), std::string("FV2R\x0f\x00\x00\x00", 8));
    EXPECT_EQ(Crc32("123456789", 9), 0xCBF43926u);  // CRC-32's check value
    std::string unsealed = Bytes(runs[0], false);
    EXPECT_NE(unsealed, Bytes(runs[0]));
    Seal(unsealed);
    EXPECT_EQ(unsealed, Bytes(runs[0]));
}

// Cut at every byte (a power cut mid-write) or with any byte of the last record flipped, a
// file gives exactly the runs before the damage, and says what it skipped.
TEST(RecordFormat, ATornOrDamagedRecordIsSkippedNeverMisread) {
    const std::vector<RecordedRun> runs = {SampleRun(0), SampleRun(1), SampleRun(2)};
    const std::string whole = File(runs);
    const size_t lastStart = whole.size() - Bytes(runs[2]).size();
    for (size_t cut = lastStart; cut < whole.size(); ++cut) {
        Recording rec;
        std::string why;
        ASSERT_TRUE(ReadRecordFile(whole.substr(0, cut), "f", rec, why)) << cut;
        ASSERT_EQ(rec.runs.size(), 2u) << cut;
        EXPECT_EQ(rec.skipped.size(), cut == lastStart ? 0u : 1u) << cut;
    }
    for (size_t at = lastStart; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
        Recording rec;
        std::string why;
        ASSERT_TRUE(ReadRecordFile(damaged, "f", rec, why)) << at;
        EXPECT_EQ(rec.runs.size(), 2u) << at;
        ASSERT_EQ(rec.skipped.size(), 1u) << at;
    }
}

TEST(RecordFormat, AFileThatIsNoRecordingIsRefused) {
    std::string newer = File({});
    Recording rec;
    std::string why;
    for (const std::string& bytes : {std::string(), std::string("{}"), newer.substr(0, 10)}) {
        EXPECT_FALSE(ReadRecordFile(bytes, "f", rec, why));
    }
    std::string future;
    EncodeHeader({kFormatVersion + 1, "", "", 0, 0, 0}, future);
    EXPECT_FALSE(ReadRecordFile(future, "f", rec, why));
    EXPECT_NE(why.find("version"), std::string::npos) << why;
    EXPECT_TRUE(rec.runs.empty() && rec.headers.empty());
}

TEST(RecordSettings, OnlyAWellFormedFileIsTaken) {
    const struct {
        const char* text;
        bool taken;
    } cases[] = {
        {"{}", true},
        {R"({"dir": "/var/rec", "max_bytes": 65536, "runs": "failed"})", true},
        {R"({"runs": "all", "max_bytes": 8388608.0})", true},
        {"", false},
        {"[]", false},
        {R"({"dir": ""})", false},
        {R"({"max_bytes": 65535})", false},
        {R"({"max_bytes": 1e6})", true},
        {R"({"max_bytes": 100000.5})", false},
        {R"({"max_bytes": "1000000"})", false},
        {R"({"runs": "some"})", false},
        {R"({"Dir": "x"})", false},
    };
    for (const auto& c : cases) {
        Settings s;
        std::string why;
        EXPECT_EQ(ReadSettings(c.text, s, why), c.taken) << c.text;
        EXPECT_EQ(why.empty(), c.taken) << c.text;
    }
    Settings s;
    std::string why;
    ASSERT_TRUE(
        ReadSettings(R"({"dir": "/var/rec", "max_bytes": 65536, "runs": "failed"})", s, why));
    EXPECT_EQ(s.dir, "/var/rec");
    EXPECT_EQ(s.maxBytes, 65536u);
    EXPECT_TRUE(s.failedOnly);
}

// Far more runs than the cap holds: the files on disk never pass the cap, the oldest go first,
// the newest runs are all there, and every file reads on its own with its configuration.
TEST_F(RecorderOnDisk, TheCapHoldsOnDiskTheOldestRunsGoFirst) {
    constexpr uint64_t kCap = 65536;
    uint64_t dropped = 0;
    std::vector<uint64_t> accepted;
    {
        Recorder recorder(root + "/rec", kCap, {});
        recorder.SetConfig(ConfigHash("{}"), "{}");
        for (uint64_t i = 0; i < 2000; ++i) {
            RecordedRun run = SampleRun(i, 100);
            if (recorder.Submit(run.configHash, Bytes(run, false))) {
                accepted.push_back(i);
            } else {
                ++dropped;
            }
            if (i % 100 == 99) {
                recorder.Flush();
                EXPECT_LE(OnDisk(), kCap);
            }
        }
        recorder.Flush();
        EXPECT_EQ(recorder.Dropped(), dropped);
    }
    EXPECT_LE(OnDisk(), kCap);
    Recording all;
    std::string why;
    ASSERT_TRUE(ReadRecordingDir(root + "/rec", all, why)) << why;
    EXPECT_TRUE(all.skipped.empty());
    ASSERT_GT(all.runs.size(), 100u);
    EXPECT_LT(all.runs.size(), 2000u);
    // Exactly the newest of the runs taken, in order.
    const std::vector<uint64_t> newest(accepted.end() - static_cast<ptrdiff_t>(all.runs.size()),
                                       accepted.end());
    std::vector<uint64_t> kept;
    for (const RecordedRun& r : all.runs) kept.push_back(r.index);
    EXPECT_EQ(kept, newest);
    for (const auto& e : fs::directory_iterator(root + "/rec")) {
        Recording one;
        ASSERT_TRUE(ReadRecordFile(Slurp(e.path()), e.path(), one, why)) << why;
        EXPECT_EQ(one.configs.count(ConfigHash("{}")), 1u) << e.path();
    }
}

// A full card (a file size limit in a child process): runs are dropped and counted, the run's
// side never blocks or fails, and what reached the card reads with the torn end skipped.
TEST_F(RecorderOnDisk, AFullCardDropsRunsAndLeavesAReadableRecording) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{5000, 5000};
        setrlimit(RLIMIT_FSIZE, &limit);
        uint64_t refused = 0;
        {
            Recorder recorder(root + "/rec", 1 << 20, {});
            recorder.SetConfig(ConfigHash("{}"), "{}");
            for (uint64_t i = 0; i < 200; ++i) {
                RecordedRun run = SampleRun(i, 100);
                refused += recorder.Submit(run.configHash, Bytes(run, false)) ? 0 : 1;
                if (i % 20 == 19) recorder.Flush();
            }
            recorder.Flush();
            _exit(recorder.Dropped() > refused ? 0 : 1);
        }
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "no run was counted as dropped";
    Recording rec;
    std::string why;
    ASSERT_TRUE(ReadRecordingDir(root + "/rec", rec, why)) << why;
    EXPECT_GT(rec.runs.size(), 0u);
    for (const auto& e : fs::directory_iterator(root + "/rec")) EXPECT_LE(e.file_size(), 5000u);
}

// A writer that falls behind: the queue is bounded, and what does not fit is dropped at once.
TEST_F(RecorderOnDisk, ARunThatDoesNotFitTheQueueIsDroppedAtOnce) {
    Recorder recorder(root + "/rec", 65536, {});
    const RecordedRun big = SampleRun(0, 40000);  // more than the queue (half the cap) holds
    EXPECT_FALSE(recorder.Submit(big.configHash, Bytes(big)));
    EXPECT_EQ(recorder.Dropped(), 1u);
    const RecordedRun small = SampleRun(1);
    EXPECT_TRUE(recorder.Submit(small.configHash, Bytes(small)));
}
