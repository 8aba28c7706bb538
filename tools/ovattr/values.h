// SPDX-License-Identifier: Apache-2.0
// Streams of values in any form, read and written one value at a time, in memory that depends on
// the largest value only.
#pragma once

#include <memory>
#include <string>

#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value.h"
#include "ovcore/ref_count.h"
#include "ovcore/write_stream.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/input.h"
#include "tools/ovattr/output.h"

namespace ovattr {

using PackageSetPtr = ovattribute::AttributeNamePackageSet::Ptr;

/// Errors of all operations name the file.
class ValueSource {
 public:
  ValueSource(const ValueSource&) = delete;
  ValueSource& operator=(const ValueSource&) = delete;
  virtual ~ValueSource() = default;

  /// Reads the next value; false at the end.
  bool next(ovattribute::AttributeValue& value);
  /// See `Input::feed`.
  void feed(Output& output) { m_input->feed(output); }

 protected:
  explicit ValueSource(const Reading& reading);
  [[nodiscard]] const ovcore::RefCountPtr<Input>& input() const noexcept { return m_input; }

 private:
  virtual bool read_next(ovattribute::AttributeValue& value) = 0;

  const std::string m_name;
  const ovcore::RefCountPtr<Input> m_input;
};

/// `packages`: those known to the reader of binary and text, not null.
[[nodiscard]] std::unique_ptr<ValueSource> open_source(const Reading& reading,
                                                       const PackageSetPtr& packages);

/// Errors of all operations name the file.
class ValueSink {
 public:
  ValueSink(const ValueSink&) = delete;
  ValueSink& operator=(const ValueSink&) = delete;
  virtual ~ValueSink() = default;

  void write(const ovattribute::AttributeValue& value);
  /// Ends the stream. Without it a file is left as it was; all else gets the values before.
  void finish();
  [[nodiscard]] Output& output() noexcept { return m_output; }

 protected:
  explicit ValueSink(const Writing& writing);
  [[nodiscard]] const std::string& name() const noexcept { return m_name; }

 private:
  /// Hands a whole value to the output, which is told to keep it.
  virtual void put(const ovattribute::AttributeValue& value) = 0;
  /// Writes what belongs behind the last value.
  virtual void end() = 0;

  const std::string m_name;
  Output m_output;
};

/// `packages`: whose names are written as numbers in binary and text, not null.
[[nodiscard]] std::unique_ptr<ValueSink> open_sink(const Writing& writing,
                                                   const PackageSetPtr& packages);

/// Copies all that is left, and passes it on before the source has to be waited for.
void copy_values(ValueSource& source, ValueSink& sink);

}  // namespace ovattr
