// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/version.h"

#include <string_view>

#include "ovmoduleregistry/module_registry.h"

namespace ovattr {
namespace {

/// The text of one item of the module information.
std::string_view item(std::string_view data, const std::string& name) {
  const std::string head = "<Item name=\"" + name + "\">";
  const std::size_t found = data.find(head);
  if (found == std::string_view::npos) return "unknown";
  const std::size_t begin = found + head.size();
  return data.substr(begin, data.find('<', begin) - begin);
}

}  // namespace

std::string version_text() {
  ovmoduleregistry::ModuleInfo info;
  if (!ovmoduleregistry::query_module_info("ovattribute", &info)) return "ovattr, not registered";
  std::string text("ovattr ");
  text.append(item(info.data, "FileVersion")).append("\nbuild id ");
  text.append(item(info.data, "KORVGCCBuildId")).append("\n").append(info.data);
  return text;
}

}  // namespace ovattr
