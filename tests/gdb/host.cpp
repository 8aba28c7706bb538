// SPDX-License-Identifier: Apache-2.0
// What printers_test.py looks at from gdb, which stops in `look`.
#include <string>
#include <utility>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

using ovattribute::AttributeMap;
using ovattribute::AttributeName;
using ovattribute::AttributeValue;

// Not inlined and not left out: what is passed must be there.
[[gnu::noinline]] void look(const void* first, const void* last) {
  asm volatile("" : : "r"(first), "r"(last) : "memory");
}

int main() {
  const ovcore::Uuid uuid = ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff");
  const AttributeName name("a name that is too long for the token");
  const AttributeName no_name;
  const AttributeValue null;
  const AttributeValue one(true);
  const AttributeValue number(-123456789012);
  const AttributeValue text("say \"hello\"");
  const AttributeValue id(uuid);
  const AttributeValue time(ovcore::AbsoluteTime::from_microseconds(1'500'000));
  const AttributeValue span(ovcore::RelativeTime::from_microseconds(-1'500'000));
  const AttributeValue date(
      ovcore::SimpleDateTime::from_absolute_time(ovcore::AbsoluteTime::from_seconds(86399)));
  const AttributeValue uri(ovuri::UriReference("urn:x"));
  ovattribute::BinaryValue bytes(2);
  bytes.data()[0] = 1;
  bytes.data()[1] = 0xFE;
  const AttributeValue block(bytes);
  AttributeValue numbers(1);
  numbers.append(2);
  AttributeValue ids(uuid);
  ids.append(ovcore::Uuid());
  AttributeValue texts("a");
  texts.append("b");

  ovattribute::MutableAttributeMap inner;
  inner.add("first", 1);
  inner.add("second", 0.5);
  const AttributeMap empty;
  const AttributeMap map(inner);
  const AttributeValue map_value(map);
  const ovattribute::Attribute attribute("key", 7);

  ovcore::RefCountPtr<const ovcore::ErrorInfo> no_error;
  ovcore::RefCountPtr<const ovcore::ErrorInfo> error;
  try {
    ovcore::ErrorComposer("Attribute '{@name}' not found")
        .add("name", "x")
        .throw_error(ovattribute::error::ovattribute_map_attributeNotFound, {"host", "main()", 0});
  } catch (const ovcore::Exception& e) {
    error = e.info();
  }
  const AttributeValue error_value(error);
  // No object of ours lies there.
  const char stray[] = "12345678";
  look(&uuid, stray);
}
