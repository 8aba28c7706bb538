// SPDX-License-Identifier: Apache-2.0
// The texts of URIs, UUIDs and times: what parses prints the same value again, and the parts of a
// URI are those of its text.
#include <algorithm>

#include "fuzz/fuzzing.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

using namespace ovfuzz;
using ovuri::UriReference;

namespace {

std::string together(const UriReference& uri) {
  const auto part = [](const char* before, const auto& text, const char* behind) {
    return text ? before + std::string(*text) + behind : std::string();
  };
  std::string authority;
  if (uri.authority()) {
    authority =
        "//" + part("", uri.userinfo(), "@") + std::string(*uri.host()) + part(":", uri.port(), "");
  }
  return part("", uri.scheme(), ":") + authority + std::string(uri.path()) +
         part("?", uri.query(), "") + part("#", uri.fragment(), "");
}

/// `text` is in two parts: a reference and a base.
void check_uri(std::string_view text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  UriReference uri;
  const std::string failure =
      failure_of([&] { uri = UriReference(ovcore::SourceString(text.substr(0, end))); });
  const auto tried = UriReference::try_parse(ovcore::SourceString(text.substr(0, end)));
  require(tried.has_value() == failure.empty(), "both ways to parse agree");
  if (!failure.empty()) return;
  require(uri.text() == text.substr(0, end) && *tried == uri, "a URI keeps its text");
  require(together(uri) == uri.text(), "the parts of a URI are its text");

  const auto base =
      UriReference::try_parse(ovcore::SourceString(text.substr(end).substr(end < text.size())));
  if (!base || !base->scheme()) return;
  const UriReference whole = uri.resolve(*base);
  require(UriReference::try_parse(ovcore::SourceString(whole.text())) == whole,
          "what is resolved is a URI");
  // An empty path is that of the base, as it stands there.
  if (!uri.path().empty()) require(whole.resolve(*base) == whole, "what is resolved stays so");
}

template <class T>
void check(std::string_view text) {
  T value;
  if (!failure_of([&] { value = T::parse(ovcore::SourceString(text)); }).empty()) return;
  require(T::parse(value.as_string()) == value, "what is printed parses again");
  require(T::parse(value.as_string()).as_string() == value.as_string(), "and prints the same");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check_uri(text);
  check<ovcore::Uuid>(text);
  check<ovcore::AbsoluteTime>(text);
  check<ovcore::RelativeTime>(text);
  check<ovcore::SimpleDateTime>(text);
  return 0;
}
