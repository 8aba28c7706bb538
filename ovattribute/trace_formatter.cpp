// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/trace_formatter.h"

#include <utility>

#include "ovattribute/impl/module_anchor.h"
#include "ovcore/impl/at_load.h"
#include "ovcore/static_instance.h"

namespace ovattribute {

struct TraceFormatter::Settings final : ovcore::RefCounted {
  struct Values {
#define OV_NUMBER(type, name, value) type name = value;
#define OV_TEXT(name, value) std::string name = value;
#define OV_LIST(name, prefix, separator, suffix) ListParams name{prefix, separator, suffix, true};
    OV_TRACE_SETTINGS(OV_NUMBER, OV_TEXT, OV_LIST)
#undef OV_NUMBER
#undef OV_TEXT
#undef OV_LIST
  };

  Settings() = default;
  explicit Settings(Values v) : values(std::move(v)) {}

  Values values;
};

TraceFormatter::TraceFormatter(ovcore::RefCountPtr<const Settings> settings) noexcept
    : m_settings(std::move(settings)) {}

TraceFormatter::TraceFormatter(const TraceFormatter&) noexcept = default;
TraceFormatter& TraceFormatter::operator=(const TraceFormatter&) noexcept = default;
TraceFormatter::~TraceFormatter() = default;

TraceFormatter::TraceFormatter() {
  static const ovcore::StaticInstance<ovcore::RefCountPtr<const Settings>> defaults(
      ovcore::make_ref_counted<const Settings>());
  m_settings = *defaults;
}

namespace {

[[maybe_unused]] const bool g_formatter_ready = ovcore::impl::at_load([] { TraceFormatter(); });

}  // namespace

#define OV_NUMBER(type, name, value)                                                \
  type TraceFormatter::name() const noexcept {                                      \
    return m_settings->values.name;                                                 \
  }                                                                                 \
  TraceFormatter::Composer& TraceFormatter::Composer::name(type setting) noexcept { \
    m_settings->values.name = setting;                                              \
    return *this;                                                                   \
  }
#define OV_TEXT(name, value)                                                               \
  const std::string& TraceFormatter::name() const noexcept {                               \
    return m_settings->values.name;                                                        \
  }                                                                                        \
  TraceFormatter::Composer& TraceFormatter::Composer::name(ovcore::SourceString setting) { \
    m_settings->values.name = setting.view();                                              \
    return *this;                                                                          \
  }
#define OV_LIST(name, prefix, separator, suffix)                                        \
  const TraceFormatter::ListParams& TraceFormatter::name() const noexcept {             \
    return m_settings->values.name;                                                     \
  }                                                                                     \
  TraceFormatter::Composer& TraceFormatter::Composer::name(const ListParams& setting) { \
    m_settings->values.name = setting;                                                  \
    return *this;                                                                       \
  }
OV_TRACE_SETTINGS(OV_NUMBER, OV_TEXT, OV_LIST)
#undef OV_NUMBER
#undef OV_TEXT
#undef OV_LIST

std::ostream& TraceFormatter::indented(std::ostream& out, unsigned level) const {
  out << ovcore::SourceString(line_prefix());
  for (unsigned i = 0; i < level; ++i)
    out << ovcore::SourceString(indent());
  return out;
}

std::ostream& TraceFormatter::render_indented(std::ostream& out, unsigned level,
                                              ovcore::SourceString text) const {
  std::string_view rest = text.view();
  for (std::size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
    std::string_view piece = rest.substr(0, end);
    if (piece.ends_with('\r')) piece.remove_suffix(1);
    out << ovcore::SourceString(piece);
    indented(out, level);
  }
  return out << ovcore::SourceString(rest);
}

TraceFormatter::Composer::Composer() : Composer(TraceFormatter()) {}
TraceFormatter::Composer::Composer(const TraceFormatter& formatter)
    : m_settings(ovcore::make_ref_counted<Settings>(formatter.m_settings->values)) {}
TraceFormatter::Composer::Composer(const Composer& other)
    : m_settings(ovcore::make_ref_counted<Settings>(other.m_settings->values)) {}
TraceFormatter::Composer& TraceFormatter::Composer::operator=(const Composer& other) {
  m_settings = Composer(other).m_settings;
  return *this;
}
TraceFormatter::Composer::~Composer() = default;

TraceFormatter TraceFormatter::Composer::compose() const {
  return TraceFormatter(ovcore::make_ref_counted<const Settings>(m_settings->values));
}

}  // namespace ovattribute
