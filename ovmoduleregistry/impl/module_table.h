// SPDX-License-Identifier: Apache-2.0
// The table behind the registry; a test can make one of its own.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "ovmoduleregistry/module_registry.h"

namespace ovmoduleregistry::impl {

class ModuleTable {
 public:
  [[nodiscard]] bool add(std::string_view name, std::string_view data) {
    const std::lock_guard guard(m_mutex);
    return m_modules.try_emplace(std::string(name), ModuleInfo{std::string(data)}).second;
  }

  [[nodiscard]] bool query(std::string_view name, ModuleInfo* info) const {
    const std::lock_guard guard(m_mutex);
    const auto it = m_modules.find(name);
    if (it == m_modules.end()) return false;
    *info = it->second;
    return true;
  }

  bool remove(std::string_view name) noexcept {
    const std::lock_guard guard(m_mutex);
    const auto it = m_modules.find(name);
    if (it == m_modules.end()) return false;
    m_modules.erase(it);
    return true;
  }

  /// Keep other threads out during a fork: the child has no thread that would release their lock.
  void lock() noexcept { m_mutex.lock(); }
  void unlock() noexcept { m_mutex.unlock(); }

 private:
  mutable std::mutex m_mutex;
  std::map<std::string, ModuleInfo, std::less<>> m_modules;
};

}  // namespace ovmoduleregistry::impl
