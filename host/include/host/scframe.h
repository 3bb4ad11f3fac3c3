// The host's frame of one run: six keyed value tables, plus a keyed container of typed
// sub-objects that modules attach to the frame (Infra::CDataContainer).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host_types.h"

namespace Infra {

class HOST_API CDataContainer {
  public:
    class _IObj {
      public:
        virtual ~_IObj() = default;
    };

    template <typename T>
    class _SubObject : public _IObj {
      public:
        explicit _SubObject(std::unique_ptr<T> obj) : m_obj(std::move(obj)) {}
        T* get() const { return m_obj.get(); }

      private:
        std::unique_ptr<T> m_obj;
    };

    virtual ~CDataContainer() = default;

    // The sub-object stored under key, created empty when absent and create is true.
    // The caller vouches that an existing entry holds a T.
    template <typename T>
    T* getData(const std::string& key, bool create) {
        if (key.empty()) return nullptr;
        auto it = m_objects.find(key);
        if (it != m_objects.end()) return static_cast<_SubObject<T>*>(it->second.get())->get();
        if (!create) return nullptr;
        auto sub = std::make_unique<_SubObject<T>>(std::make_unique<T>());
        T* data = sub->get();
        m_objects.emplace(key, std::move(sub));
        return data;
    }

    size_t objectCount() const { return m_objects.size(); }

  private:
    std::map<std::string, std::unique_ptr<_IObj>> m_objects;
};

}  // namespace Infra

class HOST_API CScFrame : public Infra::CDataContainer {
  public:
    std::unordered_map<std::string, int> IntTable;
    std::unordered_map<std::string, std::vector<int>> IntListTable;
    std::unordered_map<std::string, float> FloatTable;
    std::unordered_map<std::string, std::vector<float>> FloatListTable;
    std::unordered_map<std::string, std::string> StringTable;
    std::unordered_map<std::string, std::vector<std::string>> StringListTable;
};
