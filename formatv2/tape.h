// What a recorded run took from the host and gave back, taken as the run goes: the inputs
// exactly as the host delivered them, and the outputs as the output frame holds them.
#pragma once

#include <string>
#include <vector>

#include "assembly/assembly.h"
#include "record/record.h"

namespace formatv2 {

// The run's inputs, passed through to inner, each delivery noted once in tape (an input read
// again to explain a failure is not noted twice).
class TapedInputs final : public RunInputs {
  public:
    TapedInputs(RunInputs& inner, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                std::vector<record::Delivery>& tape)
        : inner_(inner), table_(table), tape_(tape) {}
    int GetInts(const std::string& input, int& count, std::vector<int>& list) override;
    int GetFloats(const std::string& input, int& count, std::vector<float>& list) override;
    int GetStrings(const std::string& input, int& count, std::vector<std::string>& list) override;
    bool Resolve(const std::string& input, std::shared_ptr<CScFrame>& frame,
                 std::string& key) override;

  private:
    // A new delivery for input, or null when it is noted already.
    record::Delivery* Note(const std::string& input, record::Read read);
    // A getter's delivery noted: its result (passed on), count and list.
    template <typename T>
    int Noted(const std::string& input, record::Read read, record::Table table, int result,
              int count, const std::vector<T>& list);

    RunInputs& inner_;
    const DYNAMIC_SUBSCRIBE_PARAM_LIST& table_;
    std::vector<record::Delivery>& tape_;
};

// Every table entry frame holds under each of names, in the order of names.
void TapeOutputs(const CScFrame& frame, const std::vector<std::string>& names,
                 std::vector<record::Output>& out);

}  // namespace formatv2
