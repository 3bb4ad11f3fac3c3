// The output item model: one configured item (DataSection), the fields of an array item
// (DataField), their kinds and value types, and the type-erased value holder Any in which an
// item carries its values from assembly to publishing.
#pragma once

#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "host/algo.h"

enum FORMAT_V2_DATA_TYPE : int32_t {
    FORMAT_V2_DATA_SUBSCRIBE = 1,
    FORMAT_V2_DATA_SYMBOL = 2,
    FORMAT_V2_DATA_ARRAY = 3,
    FORMAT_V2_DATA_CUSTOM = 4,
};

enum FORMAT_V2_VARIATE_TYPE : int32_t {
    FORMAT_V2_VARIATE_INT = 1,
    FORMAT_V2_VARIATE_FLOAT = 2,
    FORMAT_V2_VARIATE_STRING = 3,
};

// "int", "float", "string", or "unknown" for any other value.
std::string GetVariateTypeStr(FORMAT_V2_VARIATE_TYPE type);

// Owning holder of one value of any copyable type; copies are deep.
class Any {
  public:
    struct Base {
        virtual ~Base() = default;
        virtual std::unique_ptr<Base> Clone() const = 0;
    };

    template <typename T>
    struct Derived : Base {
        template <typename U>
        explicit Derived(U&& v) : value(std::forward<U>(v)) {}
        std::unique_ptr<Base> Clone() const override { return std::make_unique<Derived<T>>(value); }
        T value;
    };

    Any() : typeIndex(typeid(void)) {}

    template <typename U, typename T = std::decay_t<U>,
              typename = std::enable_if_t<!std::is_same<T, Any>::value>>
    Any(U&& value)  // NOLINT(google-explicit-constructor): holds any value, like std::any
        : holder(std::make_unique<Derived<T>>(std::forward<U>(value))), typeIndex(typeid(T)) {}

    Any(const Any& other)
        : holder(other.holder ? other.holder->Clone() : nullptr), typeIndex(other.typeIndex) {}
    // A moved-from Any is empty: its type goes with the holder, so a later cast fails
    // cleanly instead of reaching a missing holder.
    Any(Any&& other) noexcept : holder(std::move(other.holder)), typeIndex(other.typeIndex) {
        other.typeIndex = typeid(void);
    }

    Any& operator=(const Any& other) {
        if (this != &other) *this = Any(other);
        return *this;
    }
    Any& operator=(Any&& other) noexcept {
        if (this != &other) {  // moved into itself, it keeps its value
            holder = std::move(other.holder);
            typeIndex = other.typeIndex;
            other.typeIndex = typeid(void);
        }
        return *this;
    }

    void reset() {
        holder.reset();
        typeIndex = typeid(void);
    }

    template <typename T>
    bool Is() const {
        return typeIndex == std::type_index(typeid(T));
    }

    // The held T, unchecked: for a caller that has already asked Is<T>(), where a type check
    // per access would cost (an array reads every cell this way).
    template <typename T>
    const T& Held() const {
        return static_cast<const Derived<T>*>(holder.get())->value;
    }

    // The held T, or null when the Any holds anything else (never prints, never throws).
    template <typename T>
    const T* Find() const {
        return Is<T>() ? &Held<T>() : nullptr;
    }

    // The held T. A mismatch prints a line on standard output and throws "bad cast".
    template <typename T>
    T& AnyCast() {
        if (!Is<T>()) {
            std::cout << "can not cast " << typeid(T).name() << " to " << typeIndex.name()
                      << std::endl;
            throw std::logic_error("bad cast");
        }
        return static_cast<Derived<T>*>(holder.get())->value;
    }

    std::unique_ptr<Base> holder;
    std::type_index typeIndex;
};

using IntList = std::vector<int32_t>;
using FloatList = std::vector<float>;
using StringList = std::vector<std::string>;

// The number of values in an item's or field's list; 0 when it holds none of the three lists.
inline size_t ListLength(const Any& values) {
    if (const IntList* ints = values.Find<IntList>()) return ints->size();
    if (const FloatList* floats = values.Find<FloatList>()) return floats->size();
    if (const StringList* texts = values.Find<StringList>()) return texts->size();
    return 0;
}

struct DataField {
    std::string SubParamStr;
    CAlgoUtils::SubParam SubParam;
    std::string Separator;
    std::string ShowValue_CN;
    std::string ShowValue_EN;
};

struct DataSection {
    std::string ParamName;
    FORMAT_V2_DATA_TYPE DataType = static_cast<FORMAT_V2_DATA_TYPE>(0);
    std::string SubParamStr;
    CAlgoUtils::SubParam SubParam;
    Any Value;
    std::string ShowValue_CN;
    std::string ShowValue_EN;
    std::vector<DataField> Array;
    FORMAT_V2_VARIATE_TYPE ConvertType = static_cast<FORMAT_V2_VARIATE_TYPE>(0);
    int32_t StrTruncEnable = 0;
    int32_t StrTruncStart = 0;
    int32_t StrTruncLen = 0;
    std::string StrPrefix;
    std::string StrSuffix;
    std::string StrDelete;
};

// The dynamic subscription table: entry N feeds the module's input "input" + N.
struct DYNAMIC_SUBSCRIBE_PARAM_LIST {
    int32_t nNum;
    DYNAMIC_SUBSCRIBE_PARAM params[kDynamicParamMax];
};
