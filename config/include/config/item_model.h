// The output item model: one configured item (DataSection), the fields of an array item
// (DataField), their kinds and value types, and the type-erased value holder Any in which an
// item carries its values from assembly to publishing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "format/formatter.h"
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
//
// A value that fits (the three lists do) is held in the Any's own storage rather than on the
// heap: every item replaces its value in every run, and an array reads a list per field, so a
// heap block per value was a fifth of a run's allocations. holder then points into that
// storage, and its deleter only destroys the value there; a moved Any moves the value itself.
class Any {
  public:
    struct Base {
        virtual ~Base() = default;
        virtual std::unique_ptr<Base> Clone() const = 0;
        // Moves the value into a new holder made at place (another Any's storage).
        virtual Base* MoveTo(void* place) noexcept = 0;
    };

    template <typename T>
    struct Derived : Base {
        template <typename U>
        explicit Derived(U&& v) : value(std::forward<U>(v)) {}
        std::unique_ptr<Base> Clone() const override { return std::make_unique<Derived<T>>(value); }
        Base* MoveTo(void* place) noexcept override {
            return ::new (place) Derived<T>(std::move(value));
        }
        T value;
    };

    // Deletes a holder from the heap; one in its Any's storage is only destroyed.
    struct Release {
        bool inPlace;  // false in a value-initialised (empty or heap) holder
        void operator()(Base* base) const noexcept {
            if (inPlace) {
                base->~Base();
            } else {
                delete base;
            }
        }
    };
    using Holder = std::unique_ptr<Base, Release>;

    Any() : typeIndex(typeid(void)) {}

    template <typename U, typename T = std::decay_t<U>,
              typename = std::enable_if_t<!std::is_same<T, Any>::value>>
    Any(U&& value)  // NOLINT(google-explicit-constructor): holds any value, like std::any
        : holder(Make<T>(std::forward<U>(value))), typeIndex(typeid(T)) {}

    Any(const Any& other)
        : holder(other.holder ? Holder(other.holder->Clone().release()) : Holder()),
          typeIndex(other.typeIndex) {}
    // A moved-from Any is empty: its type goes with the holder, so a later cast fails
    // cleanly instead of reaching a missing holder.
    Any(Any&& other) noexcept : typeIndex(typeid(void)) { Take(other); }
    ~Any() { holder.reset(); }  // before the storage it may live in

    Any& operator=(const Any& other) {
        if (this != &other) *this = Any(other);
        return *this;
    }
    Any& operator=(Any&& other) noexcept {
        if (this != &other) {  // moved into itself, it keeps its value
            holder.reset();
            Take(other);
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

    Holder holder;
    std::type_index typeIndex;

  private:
    // Room for a holder of a vector (its table pointer and the vector's three pointers).
    static constexpr size_t kStorage = 4 * sizeof(void*);

    template <typename T>
    static constexpr bool kFitsInPlace = sizeof(Derived<T>) <= kStorage &&
                                         alignof(Derived<T>) <= alignof(std::max_align_t) &&
                                         std::is_nothrow_move_constructible<T>::value;

    template <typename T, typename U>
    Holder Make(U&& value) {
        if constexpr (kFitsInPlace<T>) {
            return Holder(::new (storage_) Derived<T>(std::forward<U>(value)), Release{true});
        } else {
            return Holder(new Derived<T>(std::forward<U>(value)));
        }
    }

    // other's value and type, other left empty; this holds nothing before.
    void Take(Any& other) noexcept {
        if (other.holder && other.holder.get_deleter().inPlace) {
            holder = Holder(other.holder->MoveTo(storage_), Release{true});
            other.holder.reset();
        } else {
            holder = std::move(other.holder);
        }
        typeIndex = other.typeIndex;
        other.typeIndex = typeid(void);
    }

    alignas(std::max_align_t) unsigned char storage_[kStorage];
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
    ParsedFormat Format;  // SubParam.type, read once by the configuration read
    std::string Separator;
    std::string ShowValue_CN;
    std::string ShowValue_EN;
};

struct DataSection {
    std::string ParamName;
    FORMAT_V2_DATA_TYPE DataType = static_cast<FORMAT_V2_DATA_TYPE>(0);
    std::string SubParamStr;
    CAlgoUtils::SubParam SubParam;
    ParsedFormat Format;  // SubParam.type, read once by the configuration read
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
