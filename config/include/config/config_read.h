// Reading the text of "algo_private.json" into the top-level settings and the item list. The
// module reads through it (stopping at the first refusal, with its Err lines); a tool may link
// it too and ask for every refusal as a record (rule, row, element, key, row code), so that it
// never has to guess from log text.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "config/item_model.h"
#include "contract/contract.h"
#include "contract/findings.h"
#include "contract/messages.h"

struct cJSON;

// The line breaks as a user types them into a configuration item: backslash-r-backslash-n
// and backslash-r. Built when the library is loaded.
extern const std::string EscapedCrLf;
extern const std::string EscapedCr;

// What a read fills: the module's own members, or a caller's.
struct ConfigTarget {
    std::string& ModuleName;
    int& StrConcateEnable;
    std::string& ParamName;
    std::vector<DataSection>& SubParamList;
};

// One rule of the reader broken, and where.
struct ConfigRefusal {
    formatv2::Rule rule = formatv2::Rule::kJsonSyntax;  // a refusal's rule
    int code = 0;               // the row code (kRow...), 0 for the top level or the text
    int row = -1;               // position in "SubParamList"; -1 for the top level
    int element = -1;           // position in the row's "Array"; -1 when none
    const char* key = nullptr;  // the key concerned; null for the whole text
    int hostCode = 0;           // ParseSubscribeItem's result, for a refused subscription
    size_t offset = 0;          // kNotJson: the byte at which the parse stopped
};

// Told every refusal of a read, in reading order; the first is the one the module stops at.
class ConfigRefusalSink {
  public:
    virtual void Refused(const ConfigRefusal& refusal) = 0;

  protected:
    ~ConfigRefusalSink() = default;
};

// The host's reader of subscription texts (CAlgoUtils::ParseSubscribeItem): 0 with out filled,
// or the host's code for a text it refuses.
using SubscriptionParser = int (*)(const std::string& text, CAlgoUtils::SubParam& out);

class ConfigReader {
  public:
    // log: where the Err lines go (a Logger without a function for none). parse: the host's
    // subscription reader. sink: null to stop at the first refusal as the module does;
    // otherwise the read goes on past each refusal to the next key, row and element, and tells
    // the sink of each.
    ConfigReader(const formatv2::Logger& log, SubscriptionParser parse,
                 ConfigRefusalSink* sink = nullptr)
        : m_log(log), m_parse(parse), m_sink(sink) {}

    // 0, kStatusMissing (no text) or kStatusConfigRefused.
    int Parse(const char* text, const ConfigTarget& target);
    // 0 or the first row code.
    int ParseList(cJSON* list, const ConfigTarget& target);
    // 0, or -1 (logged) with def stored when the key is missing or of another JSON type.
    int Fill(cJSON* object, const char* key, int& out, const int& def);
    int Fill(cJSON* object, const char* key, float& out, const float& def);
    int Fill(cJSON* object, const char* key, std::string& out, const std::string& def);

  private:
    // Records a refusal; true when the read stops there.
    bool Stop(ConfigRefusal refusal);
    bool StopRow(RowCode code, int row, int element, int hostCode = 0);
    int Elements(cJSON* array, int row, DataSection& item);
    int Single(cJSON* row, int position, DataSection& item);
    int Named(cJSON* row, int position, DataSection& item, const ConfigTarget& target,
              std::set<std::string>& names);

    formatv2::Logger m_log;
    SubscriptionParser m_parse;
    ConfigRefusalSink* m_sink;
    int m_firstCode = 0;
};

// The number of dynamic subscriptions the items need: one per subscribed item, one per field
// of an array item.
size_t SubscriptionCount(const std::vector<DataSection>& items);

namespace formatv2 {

// The dynamic subscription table of the items: entry N feeds input "input" + N, in item order.
// 0, or kStatusBadArgument (logged) with an empty table for more than kMaxSubscriptions.
int BuildSubscriptionTable(const std::vector<DataSection>& items, int algoId,
                           DYNAMIC_SUBSCRIBE_PARAM_LIST& table, const Logger& log);
// The input name of table entry position, or "" past the table's count.
std::string InputName(const DYNAMIC_SUBSCRIBE_PARAM_LIST& table, int position);

}  // namespace formatv2
