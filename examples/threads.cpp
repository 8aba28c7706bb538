// SPDX-License-Identifier: Apache-2.0
// One map, read and changed by several threads without a lock: each has a handle of its own.
#include <iostream>
#include <thread>
#include <vector>

#include "ovattribute/attribute_map.h"

using ovattribute::AttributeMap;
using ovattribute::MutableAttributeMap;

// [share]
long long work(AttributeMap settings, int number) {  // by value: this thread's own handle
  MutableAttributeMap own(settings);
  own.add("worker", number);  // copies the entries, which the others still see as they were
  return own.query("base").get<long long>() + own.query("worker").get<long long>();
}

int main() {
  const AttributeMap settings{{"base", 100}, {"worker", 0}};
  std::vector<long long> results(4);
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([settings, i, &results] { results[i] = work(settings, i); });
  threads.clear();  // joins
  // [share]

  for (const long long result : results)
    std::cout << result << "\n";
  std::cout << "still " << settings.query("worker").get<int>() << "\n";
}
