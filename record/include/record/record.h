// What a recording holds, and its format on disk. A recording is a folder of files written
// by the module on the device; each file is a sequence of framed records:
//
//   "FV2R" (4 bytes)  payload length (u32)  CRC-32 of the payload (u32)  payload
//
// all integers little-endian, floats as their IEEE-754 bits, texts as a u32 length and their
// bytes, so a file written by the armhf module reads the same on any machine. A payload's
// first byte is its kind: a file header, a configuration text (kept once per distinct text,
// named by its hash) or a run. A record that is cut short or fails its checksum ends the
// readable part of its file: it is a torn write (a power cut, a full card) and is skipped,
// never misread, together with anything behind it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace formatv2::record {

// The file in the working directory, beside algo_private.json, that switches recording on.
inline constexpr char kSettingsFileName[] = "formatv2_record.json";
inline constexpr char kDefaultDir[] = "records";
inline constexpr uint64_t kDefaultMaxBytes = 8388608;
// A cap below this leaves no room for a configuration text and a run or two.
inline constexpr uint64_t kMinMaxBytes = 65536;
inline constexpr char kFileSuffix[] = ".fv2rec";
inline constexpr uint16_t kFormatVersion = 1;
inline constexpr size_t kFrameBytes = 12;  // magic, length, checksum

// One table entry of a frame, as the host keeps it: a scalar table's value is a list of one.
enum class Table : uint8_t { kInt, kIntList, kFloat, kFloatList, kString, kStringList };
struct Entry {
    Table table = Table::kInt;
    std::vector<int32_t> ints;
    std::vector<float> floats;
    std::vector<std::string> texts;
};
bool IsList(Table table);

// How the module asked the host for an input, and what came.
enum class Read : uint8_t {
    kInts = 1,  // ZR_M_GetInt_Dynamic and its float and text siblings
    kFloats,
    kStrings,
    kMap,  // ZR_M_Get_By_Map, then the resolved frame's tables under its key
};
struct Delivery {
    std::string input;   // "input" + N
    std::string source;  // "publisher:output", as the subscription names it
    Read read = Read::kInts;
    // A getter's result (0: delivered), or for kMap 1 when the input resolved, 0 when not.
    int32_t result = 0;
    int32_t count = 0;           // a getter's element count, as the host reported it
    bool frame = false;          // kMap: whether the resolution gave a frame
    std::vector<Entry> entries;  // a getter's list (one list entry); kMap: every table's entry
};

struct Output {
    std::string name;
    Entry value;
};

struct Run {
    uint64_t timeMicros = 0;  // wall clock, microseconds since 1970 (UTC)
    uint64_t index = 0;       // the run's number in its module instance, from 0
    uint64_t configHash = 0;  // the configuration in force
    std::string name;         // given by a tool that names its runs; "" on the device
    bool inputFrame = false;
    bool imgModeSet = false;
    int32_t imgMode = 0;
    std::vector<Delivery> inputs;  // in the order the run read them
    int32_t status = 0;
    std::string verdict;
    std::string showTextCn;
    std::string showTextEn;
    std::vector<Output> outputs;  // every table entry under the names the run publishes
    uint64_t dropped = 0;         // runs of this instance dropped before this one
};

struct Header {
    uint16_t version = kFormatVersion;
    std::string producer;  // "formatv2 2.0.0"
    std::string machine;   // the architecture the module was built for
    int32_t moduleId = 0;
    int32_t algoId = 0;
    uint64_t startMicros = 0;  // when the file was begun
};

uint32_t Crc32(const void* data, size_t size);
// FNV-1a, 64 bits: names a configuration text within a recording.
uint64_t ConfigHash(const std::string& text);

// Each appends one framed record to out.
void EncodeHeader(const Header& header, std::string& out);
void EncodeConfig(uint64_t hash, const std::string& text, std::string& out);
// A run is encoded on the run's thread unsealed by default: its checksum is left for the
// writer thread to add with Seal.
void EncodeRun(const Run& run, std::string& out, bool sealed = false);
// Adds the checksum of every framed record in records.
void Seal(std::string& records);

// Everything readable in a recording's files, runs in the order they were written.
struct Recording {
    std::vector<Header> headers;
    std::map<uint64_t, std::string> configs;
    std::vector<Run> runs;
    // What could not be read and was skipped: "FILE: byte N: REASON".
    std::vector<std::string> skipped;
};
// Adds one file's records. False, with why, when its first record is no header of a version
// this reader knows: the file is not a recording; nothing is added then.
bool ReadRecordFile(const std::string& bytes, const std::string& name, Recording& into,
                    std::string& why);
// Every recording file in dir, oldest first (by name). False, with why, when dir cannot be
// listed or holds no recording file.
bool ReadRecordingDir(const std::string& dir, Recording& out, std::string& why);

// "FILE_NAME" of a recording file begun at micros by process pid, instance and file number:
// names sort by time.
std::string RecordFileName(uint64_t micros, long pid, unsigned instance, unsigned number);

}  // namespace formatv2::record
