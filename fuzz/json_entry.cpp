#include "fuzz/json_entry.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tools/runner/base/json_scan.h"

namespace fv2fuzz {

namespace {

using preview::JsonNode;

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

const char* KindName(JsonNode::Kind kind) {
    switch (kind) {
        case JsonNode::Kind::kObject:
            return "object";
        case JsonNode::Kind::kArray:
            return "array";
        case JsonNode::Kind::kString:
            return "string";
        case JsonNode::Kind::kNumber:
            return "number";
        case JsonNode::Kind::kLiteral:
            return "literal";
    }
    return "?";
}

// The scanner's kind of a cJSON item, and for the literals the word that stands for it.
JsonNode::Kind KindOf(const cJSON* item, const char*& word) {
    word = nullptr;
    switch (item->type & 0xFF) {
        case cJSON_Object:
            return JsonNode::Kind::kObject;
        case cJSON_Array:
            return JsonNode::Kind::kArray;
        case cJSON_String:
            return JsonNode::Kind::kString;
        case cJSON_Number:
            return JsonNode::Kind::kNumber;
        case cJSON_NULL:
            word = "null";
            break;
        case cJSON_True:
            word = "true";
            break;
        case cJSON_False:
            word = "false";
            break;
        default:
            Fail(__FILE__, __LINE__, "cJSON item of type " + std::to_string(item->type));
    }
    return JsonNode::Kind::kLiteral;
}

// The node's bytes lie in the text and are its value: a bracket or quote on each side, or the
// number or word itself.
void CheckSpan(const std::string& text, const JsonNode& node, const std::string& at) {
    FV2_FUZZ_CHECK(node.begin < node.end && node.end <= text.size(),
                   at + ": span " + std::to_string(node.begin) + ".." + std::to_string(node.end) +
                       " in " + std::to_string(text.size()) + " bytes");
    const char first = text[node.begin];
    const char last = text[node.end - 1];
    const std::string span = text.substr(node.begin, node.end - node.begin);
    switch (node.kind) {
        case JsonNode::Kind::kObject:
            FV2_FUZZ_CHECK(first == '{' && last == '}', at + ": object span " + span);
            break;
        case JsonNode::Kind::kArray:
            FV2_FUZZ_CHECK(first == '[' && last == ']', at + ": array span " + span);
            break;
        case JsonNode::Kind::kString:
            FV2_FUZZ_CHECK(span.size() >= 2 && first == '"' && last == '"',
                           at + ": string span " + span);
            break;
        case JsonNode::Kind::kNumber:
        case JsonNode::Kind::kLiteral:
            FV2_FUZZ_CHECK(span == node.raw, at + ": span " + span + " holds no " + node.raw);
            break;
    }
}

// The scanner's node against cJSON's item, and below: kinds, keys in order, texts byte for
// byte, numbers as cJSON's double, lengths, every span inside its parent's, in order, and the
// members Member finds.
void Compare(const std::string& text, const cJSON* item, const JsonNode& node,
             const std::string& at) {
    CheckSpan(text, node, at);
    const char* word = nullptr;
    const JsonNode::Kind kind = KindOf(item, word);
    FV2_FUZZ_CHECK(node.kind == kind, at + ": the scanner has a " + KindName(node.kind) +
                                          ", cJSON a " + KindName(kind));
    switch (kind) {
        case JsonNode::Kind::kString:
            FV2_FUZZ_CHECK(node.raw == item->valuestring,
                           at + ": text \"" + node.raw + "\", cJSON \"" + item->valuestring + "\"");
            return;
        case JsonNode::Kind::kNumber: {
            const double value = std::strtod(node.raw.c_str(), nullptr);
            FV2_FUZZ_CHECK(value == item->valuedouble, at + ": number " + node.raw + ", cJSON " +
                                                           std::to_string(item->valuedouble));
            return;
        }
        case JsonNode::Kind::kLiteral:
            FV2_FUZZ_CHECK(node.raw == word, at + ": literal " + node.raw + ", cJSON " + word);
            return;
        case JsonNode::Kind::kObject:
        case JsonNode::Kind::kArray:
            break;
    }
    const bool object = kind == JsonNode::Kind::kObject;
    size_t after = node.begin + 1;  // where the next member may start
    size_t i = 0;
    for (const cJSON* child = item->child; child != nullptr; child = child->next, ++i) {
        const std::string where = at + "/" + std::to_string(i);
        FV2_FUZZ_CHECK(i < node.members.size(), where + ": missing in the scanner's tree");
        const JsonNode& member = node.members[i];
        if (object) {
            FV2_FUZZ_CHECK(child->string != nullptr && member.key == child->string,
                           where + ": key \"" + member.key + "\", cJSON \"" +
                               (child->string != nullptr ? child->string : "(none)") + "\"");
            FV2_FUZZ_CHECK(after <= member.keyBegin && member.keyBegin < member.begin &&
                               text[member.keyBegin] == '"',
                           where + ": key placed at " + std::to_string(member.keyBegin));
        } else {
            FV2_FUZZ_CHECK(member.key.empty(), where + ": an element with a key");
        }
        FV2_FUZZ_CHECK(after <= member.begin, where + ": placed before the member before it");
        Compare(text, child, member, where);
        after = member.end;
    }
    FV2_FUZZ_CHECK(i == node.members.size(), at + ": the scanner has " +
                                                 std::to_string(node.members.size()) +
                                                 " members, cJSON " + std::to_string(i));
    FV2_FUZZ_CHECK(after < node.end, at + ": the last member runs past the closing bracket");
    if (!object) return;
    // Member finds by a key what cJSON_GetObjectItem finds (letter case ignored, the first of
    // equal keys); the first members' keys are asked, enough for the few a text has.
    i = 0;
    for (const cJSON* child = item->child; child != nullptr && i < 16; child = child->next, ++i) {
        const cJSON* found = cJSON_GetObjectItem(item, child->string);
        size_t index = 0;
        for (const cJSON* c = item->child; c != found; c = c->next) ++index;
        FV2_FUZZ_CHECK(preview::Member(&node, child->string) == &node.members[index],
                       at + ": Member(\"" + child->string + "\") is not cJSON's member " +
                           std::to_string(index));
    }
}

// The scanner's verdict and tree against cJSON's reading of text, which stopped at offset end.
void Agree(const std::string& text, const preview::JsonScan& scan, const cJSON* root, size_t end,
           const char* reader) {
    if (root == nullptr) {
        FV2_FUZZ_CHECK(!scan.root,
                       std::string("the scanner accepts a text that ") + reader + " refuses");
        return;
    }
    FV2_FUZZ_CHECK(scan.root, std::string("the scanner refuses a text that ") + reader +
                                  " accepts: " + std::to_string(scan.error->offset) + ": " +
                                  scan.error->message);
    Compare(text, root, *scan.root, reader);
    FV2_FUZZ_CHECK(scan.root->end == end, std::string("the top-level value ends at ") +
                                              std::to_string(scan.root->end) + ", " + reader +
                                              " stops at " + std::to_string(end));
}

}  // namespace

void RunJsonInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const preview::JsonScan scan = preview::ScanJson(bytes);
    FV2_FUZZ_CHECK(scan.root.has_value() != scan.error.has_value(),
                   "a scan needs a tree or an error, not both");

    // The module reads the file into a zeroed buffer one byte longer than the file and hands
    // cJSON_Parse's reader the text up to its first NUL.
    const std::string text = bytes.c_str();
    if (scan.error) {
        FV2_FUZZ_CHECK(scan.error->offset <= text.size(),
                       "error placed at " + std::to_string(scan.error->offset) + " of " +
                           std::to_string(text.size()) + " bytes");
    }
    const char* end = nullptr;
    const JsonPtr module(cJSON_ParseWithOpts(text.c_str(), &end, 0));
    Agree(text, scan, module.get(), module ? static_cast<size_t>(end - text.c_str()) : 0,
          "cJSON_Parse");

    // The bytes as they are, not terminated: read the same wherever they hold no NUL, but for
    // a byte order mark, which cJSON_ParseWithLength skips only before two bytes or more.
    const bool shortBom = size < 5 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
    if (size == text.size() && !shortBom) {
        const auto* unterminated = reinterpret_cast<const char*>(data);
        const char* stop = nullptr;
        const JsonPtr exact(cJSON_ParseWithLengthOpts(unterminated, size, &stop, 0));
        Agree(text, scan, exact.get(), exact ? static_cast<size_t>(stop - unterminated) : 0,
              "cJSON_ParseWithLength");
    }
}

}  // namespace fv2fuzz
