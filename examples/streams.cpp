// SPDX-License-Identifier: Apache-2.0
// A log of maps in a file: written one after the other, read until the end, shown as text; and an
// answer that fails.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovcore/exception.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/stream_writer.h"
#include "ovserialize/text_writer.h"

using ovattribute::AttributeMap;

int main() {
  char path[] = "/tmp/streams-XXXXXX";
  const int file = mkstemp(path);
  if (file < 0) return 1;

  // [write]
  ovcore::FileWriteStream target(file);
  ovserialize::StreamWriter writer(target);
  for (int i = 0; i < 3; ++i)
    writer << AttributeMap{{"event", "opened"}, {"door", i}};
  writer.flush();  // what is not flushed is lost
  // [write]
  close(file);

  // [read]
  ovcore::FileReadStream source{std::string(path)};
  ovserialize::StreamReader reader(source);
  int doors = 0;
  while (!reader.at_end()) {
    const AttributeMap event(reader);
    doors += event.query("door").get<int>();
  }
  // [read]
  std::cout << "doors add up to " << doors << "\n";
  std::remove(path);

  // [text]
  std::string text;
  ovserialize::StringTextTarget text_target(text);
  ovserialize::TextWriter text_writer(text_target);
  text_writer << AttributeMap{{"event", "closed"}};
  text_writer.close();
  std::cout << text << "\n";
  // [text]

  const std::string pixels(17 << 20, '\0');
  const ovattribute::BinaryValue picture(reinterpret_cast<const unsigned char*>(pixels.data()),
                                         pixels.size());
  // [failure]
  ovserialize::MemoryWriter reply;
  try {
    reply << AttributeMap{{"door", 1}, {"picture", picture}};  // a picture of 17 MiB
  } catch (const ovcore::Exception& failure) {
    reply << AttributeMap{{"failure", failure.info()}};
  }
  ovserialize::MemoryReader received(reply.memory_list());
  const AttributeMap answer(received);
  const auto why = answer.query("failure").get<ovcore::RefCountPtr<const ovcore::ErrorInfo>>();
  std::cout << answer.size() << " attribute: " << why->message() << "\n";
  // [failure]
}
