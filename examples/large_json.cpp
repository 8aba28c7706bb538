// SPDX-License-Identifier: Apache-2.0
// JSON of any length, read value by value: no more of it is in memory than one order and a buffer.
#include <algorithm>
#include <cstring>
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/typed_attribute.h"
#include "ovjson/reader.h"

// A document that is made as it is read: an array of orders.
class OrdersStream final : public ovcore::IReadStream {
 public:
  explicit OrdersStream(int count) : m_count(count) {}
  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t done = 0;
    while (done < size && (m_used < m_text.size() || next_piece())) {
      const std::size_t piece = std::min(size - done, m_text.size() - m_used);
      std::memcpy(static_cast<char*>(buffer) + done, m_text.data() + m_used, piece);
      done += piece;
      m_used += piece;
    }
    return done;
  }
  std::size_t read_some(void* buffer, std::size_t size) override { return read(buffer, size); }
  std::uint64_t remaining() const override { return unknown; }

 private:
  bool next_piece() {
    if (m_made > m_count) return false;
    m_text = m_made == 0 ? "[" : ",";
    if (m_made == m_count) {
      m_text = "]";
    } else {
      m_text += R"({"article": "cable", "count": )" + std::to_string(m_made % 10) + "}\n";
    }
    m_used = 0;
    ++m_made;
    return true;
  }

  const int m_count;
  int m_made = 0;
  std::string m_text;
  std::size_t m_used = 0;
};

int main() {
  OrdersStream source(50'000);
  // [walk]
  const ovattribute::TypedAttribute<int> count{"count"};
  ovjson::Reader reader(source, "orders.json");
  const auto orders = reader.next_child(reader.current_value());  // the array
  long long sum = 0;
  while (reader.next_child(orders)) {
    const ovattribute::AttributeValue order = ovattribute::read_attribute_value(reader);
    sum += count.get(order.get<ovattribute::AttributeMap>());
  }
  std::cout << sum << " pieces, up to " << reader.position().line << " lines read\n";
  // [walk]
}
