// The recording format: encoding in the module, decoding in tools. Both sides go byte by byte,
// never through a struct's memory, so neither the machine's byte order nor its padding
// reaches the file.
#include "record/record.h"

#include <dirent.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

namespace formatv2::record {
namespace {

constexpr char kMagic[4] = {'F', 'V', '2', 'R'};
enum Kind : uint8_t { kHeader = 'H', kConfig = 'C', kRun = 'R' };
// A record longer than this is no record of ours: a misread length, never an allocation.
constexpr uint32_t kMaxPayload = 256u << 20;

class Writer {
  public:
    explicit Writer(std::string& out) : out_(out) {}
    void U8(uint8_t v) { out_.push_back(static_cast<char>(v)); }
    void U32(uint32_t v) {
        const char bytes[4] = {static_cast<char>(v), static_cast<char>(v >> 8),
                               static_cast<char>(v >> 16), static_cast<char>(v >> 24)};
        out_.append(bytes, 4);
    }
    void U64(uint64_t v) {
        for (int i = 0; i < 8; ++i) U8(static_cast<uint8_t>(v >> (8 * i)));
    }
    void I32(int32_t v) { U32(static_cast<uint32_t>(v)); }
    void Text(const std::string& text) {
        U32(static_cast<uint32_t>(text.size()));
        out_.append(text);
    }
    // A list of 4-byte numbers: on a little-endian machine (both ARM and x86 as built here)
    // their memory is already the file's bytes.
    template <typename T>
    void Numbers(const std::vector<T>& list) {
        static_assert(sizeof(T) == 4, "numbers are 4 bytes on file");
        U32(static_cast<uint32_t>(list.size()));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        out_.append(reinterpret_cast<const char*>(list.data()), list.size() * 4);
#else
        for (T v : list) {
            uint32_t bits = 0;
            std::memcpy(&bits, &v, sizeof bits);
            U32(bits);
        }
#endif
    }
    void Value(const Entry& entry) {
        U8(static_cast<uint8_t>(entry.table));
        switch (entry.table) {
            case Table::kInt:
            case Table::kIntList:
                Numbers(entry.ints);
                break;
            case Table::kFloat:
            case Table::kFloatList:
                Numbers(entry.floats);
                break;
            case Table::kString:
            case Table::kStringList:
                U32(static_cast<uint32_t>(entry.texts.size()));
                for (const std::string& v : entry.texts) Text(v);
                break;
        }
    }

  private:
    std::string& out_;
};

// Frames the payload that fill appends: magic, length and checksum go in front of it; the
// checksum only when sealed, else Seal adds it later.
template <typename Fill>
void Framed(std::string& out, Fill&& fill, bool sealed = true) {
    const size_t start = out.size();
    out.append(kFrameBytes, '\0');
    Writer payload(out);
    fill(payload);
    const size_t length = out.size() - start - kFrameBytes;
    std::string frame;
    Writer head(frame);
    for (char c : kMagic) head.U8(static_cast<uint8_t>(c));
    head.U32(static_cast<uint32_t>(length));
    head.U32(sealed ? Crc32(out.data() + start + kFrameBytes, length) : 0);
    out.replace(start, kFrameBytes, frame);
}

// Reads a payload; every read past its end sets failed and gives zeros, so a record that
// does not hold what its kind promises is refused as a whole.
class Reader {
  public:
    Reader(const char* data, size_t size) : p_(data), end_(data + size) {}
    bool failed = false;
    bool AtEnd() const { return p_ == end_; }

    uint8_t U8() {
        if (!Need(1)) return 0;
        return static_cast<uint8_t>(*p_++);
    }
    uint32_t U32() {
        uint32_t v = 0;
        if (!Need(4)) return 0;
        for (int i = 0; i < 4; ++i)
            v |= static_cast<uint32_t>(static_cast<uint8_t>(*p_++)) << (8 * i);
        return v;
    }
    uint64_t U64() {
        const uint64_t low = U32();
        return low | (static_cast<uint64_t>(U32()) << 32);
    }
    int32_t I32() { return static_cast<int32_t>(U32()); }
    float F32() {
        const uint32_t bits = U32();
        float v = 0;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }
    std::string Text() {
        const uint32_t size = U32();
        if (!Need(size)) return {};
        std::string text(p_, size);
        p_ += size;
        return text;
    }
    // A count of items each at least min bytes long: never more than the payload can hold.
    uint32_t Count(size_t min) {
        const uint32_t n = U32();
        if (!Need(static_cast<size_t>(n) * min)) return 0;
        return n;
    }
    Entry Value() {
        Entry entry;
        const uint8_t table = U8();
        if (table > static_cast<uint8_t>(Table::kStringList)) {
            failed = true;
            return entry;
        }
        entry.table = static_cast<Table>(table);
        switch (entry.table) {
            case Table::kInt:
            case Table::kIntList:
                entry.ints.resize(Count(4));
                for (int32_t& v : entry.ints) v = I32();
                break;
            case Table::kFloat:
            case Table::kFloatList:
                entry.floats.resize(Count(4));
                for (float& v : entry.floats) v = F32();
                break;
            case Table::kString:
            case Table::kStringList:
                entry.texts.resize(Count(4));
                for (std::string& v : entry.texts) v = Text();
                break;
        }
        if (!IsList(entry.table) &&
            entry.ints.size() + entry.floats.size() + entry.texts.size() != 1)
            failed = true;
        return entry;
    }

  private:
    // Whether n more bytes are there; they are consumed by the caller.
    bool Need(size_t n) {
        if (failed || static_cast<size_t>(end_ - p_) < n) {
            failed = true;
            return false;
        }
        return true;
    }
    const char* p_;
    const char* end_;
};

bool ReadHeader(Reader& in, Header& header) {
    header.version = static_cast<uint16_t>(in.U32());
    header.producer = in.Text();
    header.machine = in.Text();
    header.moduleId = in.I32();
    header.algoId = in.I32();
    header.startMicros = in.U64();
    return !in.failed;
}

Run ReadRun(Reader& in) {
    Run run;
    run.timeMicros = in.U64();
    run.index = in.U64();
    run.configHash = in.U64();
    run.name = in.Text();
    const uint8_t flags = in.U8();
    run.inputFrame = (flags & 1) != 0;
    run.imgModeSet = (flags & 2) != 0;
    run.imgMode = in.I32();
    run.inputs.resize(in.Count(16));
    for (Delivery& d : run.inputs) {
        d.input = in.Text();
        d.source = in.Text();
        const uint8_t read = in.U8();
        if (read < static_cast<uint8_t>(Read::kInts) || read > static_cast<uint8_t>(Read::kMap))
            in.failed = true;
        d.read = static_cast<Read>(read);
        d.result = in.I32();
        d.count = in.I32();
        d.frame = in.U8() != 0;
        d.entries.resize(in.Count(5));
        for (Entry& e : d.entries) e = in.Value();
    }
    run.status = in.I32();
    run.verdict = in.Text();
    run.showTextCn = in.Text();
    run.showTextEn = in.Text();
    run.outputs.resize(in.Count(9));
    for (Output& o : run.outputs) {
        o.name = in.Text();
        o.value = in.Value();
    }
    run.dropped = in.U64();
    return run;
}

std::string Where(const std::string& name, size_t offset, const char* why) {
    return name + ": byte " + std::to_string(offset) + ": " + why;
}

}  // namespace

bool IsList(Table table) {
    return table == Table::kIntList || table == Table::kFloatList || table == Table::kStringList;
}

uint32_t Crc32(const void* data, size_t size) {
    // The CRC-32 of zlib and PNG (reflected, polynomial 0xEDB88320), eight bytes a step
    // ("slicing by 8"): a run's record is tens of kilobytes, checked on the run's thread.
    static const auto tables = [] {
        std::array<std::array<uint32_t, 256>, 8> t{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[0][i] = c;
        }
        for (uint32_t i = 0; i < 256; ++i) {
            for (size_t k = 1; k < 8; ++k) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
        }
        return t;
    }();
    uint32_t crc = 0xFFFFFFFFu;
    const auto* p = static_cast<const uint8_t*>(data);
    for (; size >= 8; size -= 8, p += 8) {
        const uint32_t low =
            crc ^ (static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                   static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24);
        crc = tables[7][low & 0xFF] ^ tables[6][(low >> 8) & 0xFF] ^ tables[5][(low >> 16) & 0xFF] ^
              tables[4][low >> 24] ^ tables[3][p[4]] ^ tables[2][p[5]] ^ tables[1][p[6]] ^
              tables[0][p[7]];
    }
    for (; size > 0; --size, ++p) crc = tables[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

uint64_t ConfigHash(const std::string& text) {
    uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 0x100000001b3ull;
    }
    return hash;
}

void EncodeHeader(const Header& header, std::string& out) {
    Framed(out, [&](Writer& w) {
        w.U8(kHeader);
        w.U32(header.version);
        w.Text(header.producer);
        w.Text(header.machine);
        w.I32(header.moduleId);
        w.I32(header.algoId);
        w.U64(header.startMicros);
    });
}

void EncodeConfig(uint64_t hash, const std::string& text, std::string& out) {
    Framed(out, [&](Writer& w) {
        w.U8(kConfig);
        w.U64(hash);
        w.Text(text);
    });
}

// Bytes an entry takes on file, near enough to reserve them in one go.
size_t SizeOf(const Entry& e) {
    size_t n = 5 + 4 * (e.ints.size() + e.floats.size());
    for (const std::string& t : e.texts) n += 4 + t.size();
    return n;
}

void EncodeRun(const Run& run, std::string& out, bool sealed) {
    size_t size =
        128 + run.name.size() + run.verdict.size() + run.showTextCn.size() + run.showTextEn.size();
    for (const Delivery& d : run.inputs) {
        size += 32 + d.input.size() + d.source.size();
        for (const Entry& e : d.entries) size += SizeOf(e);
    }
    for (const Output& o : run.outputs) size += 4 + o.name.size() + SizeOf(o.value);
    out.reserve(out.size() + size);
    Framed(
        out,
        [&](Writer& w) {
            w.U8(kRun);
            w.U64(run.timeMicros);
            w.U64(run.index);
            w.U64(run.configHash);
            w.Text(run.name);
            w.U8(static_cast<uint8_t>((run.inputFrame ? 1 : 0) | (run.imgModeSet ? 2 : 0)));
            w.I32(run.imgMode);
            w.U32(static_cast<uint32_t>(run.inputs.size()));
            for (const Delivery& d : run.inputs) {
                w.Text(d.input);
                w.Text(d.source);
                w.U8(static_cast<uint8_t>(d.read));
                w.I32(d.result);
                w.I32(d.count);
                w.U8(d.frame ? 1 : 0);
                w.U32(static_cast<uint32_t>(d.entries.size()));
                for (const Entry& e : d.entries) w.Value(e);
            }
            w.I32(run.status);
            w.Text(run.verdict);
            w.Text(run.showTextCn);
            w.Text(run.showTextEn);
            w.U32(static_cast<uint32_t>(run.outputs.size()));
            for (const Output& o : run.outputs) {
                w.Text(o.name);
                w.Value(o.value);
            }
            w.U64(run.dropped);
        },
        sealed);
}

void Seal(std::string& records) {
    for (size_t at = 0; at + kFrameBytes <= records.size();) {
        Reader frame(records.data() + at + 4, 4);
        const uint32_t length = frame.U32();
        if (records.size() - at - kFrameBytes < length) return;
        const uint32_t crc = Crc32(records.data() + at + kFrameBytes, length);
        std::string bytes;
        Writer(bytes).U32(crc);
        records.replace(at + 8, 4, bytes);
        at += kFrameBytes + length;
    }
}

bool ReadRecordFile(const std::string& bytes, const std::string& name, Recording& into,
                    std::string& why) {
    Recording found;
    size_t at = 0;
    bool first = true;
    while (at < bytes.size()) {
        const char* why_skipped = nullptr;
        uint32_t length = 0;
        if (bytes.size() - at < kFrameBytes) {
            why_skipped = "a record cut short (a torn write); skipped";
        } else if (std::memcmp(bytes.data() + at, kMagic, sizeof kMagic) != 0) {
            why_skipped = "no record starts here; the rest of the file is skipped";
        } else {
            Reader frame(bytes.data() + at + 4, 8);
            length = frame.U32();
            const uint32_t crc = frame.U32();
            if (length > kMaxPayload || bytes.size() - at - kFrameBytes < length) {
                why_skipped = "a record cut short (a torn write); skipped";
            } else if (Crc32(bytes.data() + at + kFrameBytes, length) != crc) {
                why_skipped =
                    "a record whose checksum fails (a torn write); skipped with the rest of the "
                    "file";
            }
        }
        if (why_skipped == nullptr) {
            Reader in(bytes.data() + at + kFrameBytes, length);
            const uint8_t kind = in.U8();
            if (first) {
                Header header;
                if (kind != kHeader || !ReadHeader(in, header)) {
                    why = name + ": not a formatv2 recording";
                    return false;
                }
                if (header.version != kFormatVersion) {
                    why = name + ": a recording of format version " +
                          std::to_string(header.version) + "; this reader knows version " +
                          std::to_string(kFormatVersion);
                    return false;
                }
                found.headers.push_back(header);
            } else if (kind == kConfig) {
                const uint64_t hash = in.U64();
                std::string text = in.Text();
                if (!in.failed) found.configs.emplace(hash, std::move(text));
            } else if (kind == kRun) {
                Run run = ReadRun(in);
                if (!in.failed && in.AtEnd()) found.runs.push_back(std::move(run));
            } else if (kind != kHeader) {
                in.failed = true;
            }
            if (!first && (in.failed)) {
                found.skipped.push_back(
                    Where(name, at, "a record this reader cannot read; skipped"));
            }
        }
        if (why_skipped != nullptr) {
            if (first) {
                why = name + ": not a formatv2 recording";
                return false;
            }
            found.skipped.push_back(Where(name, at, why_skipped));
            break;
        }
        first = false;
        at += kFrameBytes + length;
    }
    if (first) {
        why = name + ": empty, not a formatv2 recording";
        return false;
    }
    into.headers.insert(into.headers.end(), found.headers.begin(), found.headers.end());
    into.configs.insert(found.configs.begin(), found.configs.end());
    std::move(found.runs.begin(), found.runs.end(), std::back_inserter(into.runs));
    into.skipped.insert(into.skipped.end(), found.skipped.begin(), found.skipped.end());
    return true;
}

bool ReadRecordingDir(const std::string& dir, Recording& out, std::string& why) {
    DIR* folder = opendir(dir.c_str());
    if (folder == nullptr) {
        why = dir + ": " + std::strerror(errno);
        return false;
    }
    std::vector<std::string> names;
    const size_t suffix = std::strlen(kFileSuffix);
    while (const dirent* e = readdir(folder)) {
        const std::string n = e->d_name;
        if (n.size() > suffix && n.compare(n.size() - suffix, suffix, kFileSuffix) == 0)
            names.push_back(n);
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    if (names.empty()) {
        why = dir + ": no recording files (*" + std::string(kFileSuffix) + ") in it";
        return false;
    }
    for (const std::string& n : names) {
        std::ifstream file(dir + "/" + n, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (!file.good() && !file.eof()) {
            why = dir + "/" + n + ": cannot be read";
            return false;
        }
        if (!ReadRecordFile(bytes, dir + "/" + n, out, why)) return false;
    }
    return true;
}

std::string RecordFileName(uint64_t micros, long pid, unsigned instance, unsigned number) {
    const time_t seconds = static_cast<time_t>(micros / 1000000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char name[96];
    std::snprintf(name, sizeof name, "%04d%02d%02d-%02d%02d%02d-%06u-%ld-%u-%06u%s",
                  utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                  utc.tm_sec, static_cast<unsigned>(micros % 1000000), pid, instance, number,
                  kFileSuffix);
    return name;
}

}  // namespace formatv2::record
