// SPDX-License-Identifier: Apache-2.0
// What sealing and opening leave in memory. This program puts itself before the C library's `free`,
// so it sees every block that the library, libcrypto and the C++ runtime give back, and runs each
// operation on a stack of its own, which it reads afterwards.
#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/aes.h>
#include <openssl/crypto.h>
#include <ucontext.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <unordered_map>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovcrypto/aes.h"
#include "ovcrypto/error_codes.h"
#include "ovuri/uri_reference.h"
#include "tests/ovattribute/sealing.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

extern "C" void __libc_free(void* memory) noexcept;
extern "C" void* __libc_malloc(std::size_t size) noexcept;

namespace {

/// Runs of this many bytes give a secret away.
constexpr std::size_t run = 8;

std::uint64_t run_at(const void* memory) noexcept {
  std::uint64_t bytes;
  static_assert(sizeof bytes == run);
  std::memcpy(&bytes, memory, run);
  return bytes;
}

/// The runs of secrets, and what they are of.
using Needles = std::unordered_map<std::uint64_t, const char*>;

thread_local const Needles* t_watched = nullptr;
thread_local std::string* t_found = nullptr;
thread_local bool t_looking = false;

void look_at(const void* memory, std::size_t size, const char* where) {
  if (t_watched == nullptr || t_looking || size < run) return;
  t_looking = true;  // what the look itself frees is not looked at
  const auto* const bytes = static_cast<const unsigned char*>(memory);
  for (std::size_t at = 0; at + run <= size; ++at) {
    const auto needle = t_watched->find(run_at(bytes + at));
    if (needle == t_watched->end()) continue;
    *t_found += std::string(needle->second) + " in " + where + " of " + std::to_string(size) +
                " at " + std::to_string(at) + "; ";
    if (t_found->size() > 1000) break;
  }
  t_looking = false;
}

}  // namespace

#define OV_INTERPOSED extern "C" __attribute__((visibility("default")))

OV_INTERPOSED void free(void* memory) noexcept {
  if (memory != nullptr) {
    const std::size_t size = ::malloc_usable_size(memory);
    if (t_watched != nullptr) {
      look_at(memory, size, "a freed block");
    } else {
      std::memset(memory, 0xdd, size);  // not for an operation to find that is watched later
    }
  }
  __libc_free(memory);
}

// Never in place: a block that grows is given back, and seen.
OV_INTERPOSED void* realloc(void* memory, std::size_t size) noexcept {
  void* const larger = __libc_malloc(size);
  if (larger == nullptr || memory == nullptr) return larger;
  std::memcpy(larger, memory, std::min(size, ::malloc_usable_size(memory)));
  ::free(memory);
  return larger;
}

namespace ovattribute {
namespace {

void add_needles(Needles& needles, std::string_view secret, const char* what,
                 std::size_t step = 1) {
  for (std::size_t at = 0; at + run <= secret.size(); at += step)
    needles.emplace(run_at(secret.data() + at), what);
}

/// All that no trace may be left of: the key, the words of its schedule in either byte order, and
/// the plaintext.
Needles needles_of(const ovcrypto::Key& key, std::string_view plaintext) {
  Needles needles;
  add_needles(needles, {reinterpret_cast<const char*>(key.data()), key.size()}, "key");
  add_needles(needles, plaintext, "plaintext");
  if (key.size() != 16 && key.size() != 32) return needles;
  AES_KEY schedule;
  AES_set_encrypt_key(key.data(), static_cast<int>(8 * key.size()), &schedule);
  std::string words(reinterpret_cast<const char*>(schedule.rd_key),
                    16 * static_cast<std::size_t>(schedule.rounds + 1));
  add_needles(needles, words, "key schedule", 4);
  for (std::size_t i = 0; i < words.size(); i += 4)
    std::reverse(words.begin() + static_cast<std::ptrdiff_t>(i),
                 words.begin() + static_cast<std::ptrdiff_t>(i + 4));
  add_needles(needles, words, "key schedule", 4);
  return needles;
}

std::string omac(const ovcrypto::Key& key, unsigned char tweak, const std::string& text) {
  const std::string message = std::string(15, '\0') + static_cast<char>(tweak) + text;
  std::string code(16, '\0');
  ovcrypto::AesCmacContext context(key);
  context.update(message.data(), message.size());
  context.finish(reinterpret_cast<unsigned char*>(code.data()));
  return code;
}

std::string xor_of(std::string a, std::string_view b) {
  for (std::size_t i = 0; i < a.size(); ++i)
    a[i] = static_cast<char>(a[i] ^ b[i]);
  return a;
}

/// What the key and the nonce of a sealed text give: the block that the subkeys of CMAC come from,
/// N', H', the seed of the tag, and the keystream.
Needles derived_needles(const ovcrypto::Key& key, const std::string& plaintext,
                        const std::string& header, const std::string& sealed) {
  Needles needles;
  std::string zero(16, '\0');
  auto* const block = reinterpret_cast<unsigned char*>(zero.data());
  ovcrypto::AesEncryptContext(key).encrypt(block, block);
  add_needles(needles, zero, "root of the subkeys");
  const std::string n = omac(key, 0, sealed.substr(0, 16));
  const std::string h = omac(key, 1, header);
  add_needles(needles, n, "N'");
  add_needles(needles, h, "H'");
  // As the processor's numbers, too.
  add_needles(needles, std::string(zero.rbegin(), zero.rend()), "root of the subkeys", run);
  add_needles(needles, std::string(n.rbegin(), n.rend()), "N'", run);
  add_needles(needles, xor_of(n, h), "seed");
  add_needles(needles, xor_of(plaintext, sealed.substr(16, plaintext.size())), "keystream");
  return needles;
}

constexpr std::size_t stack_size = std::size_t{256} << 10;
alignas(64) unsigned char own_stack[stack_size];
ucontext_t here;
ucontext_t there;
const std::function<void()>* running = nullptr;

void run_there() {
  (*running)();
}

/// Takes what copies of secrets have left in the registers out of them: who saves all registers,
/// as the dynamic linker does, would put it on the stack that is looked at.
void overwrite_registers() {
  std::string from(512, 'x');
  std::string to(512, 'y');
  for (std::size_t size = 0; size <= from.size(); ++size) {
    std::memcpy(to.data(), from.data(), size);
    asm volatile("" : : "r"(to.data()) : "memory");
  }
}

/// Runs `f` on a stack of its own and names every trace of the needles in what was freed meanwhile
/// and on that stack; "" for none. `f` raises nothing.
std::string traces_of(const Needles& needles, const std::function<void()>& f) {
  const ovcore::impl::SmallMemory::Pause all_freed;  // nothing is kept from the look
  std::string found;
  found.reserve(4096);
  std::memset(own_stack, 0xcc, stack_size);
  ::getcontext(&there);
  there.uc_stack.ss_sp = own_stack;
  there.uc_stack.ss_size = stack_size;
  there.uc_link = &here;
  running = &f;
  ::makecontext(&there, run_there, 0);
  t_found = &found;
  t_watched = &needles;
  overwrite_registers();
  ::swapcontext(&here, &there);
  look_at(own_stack, stack_size, "a stack");
  t_watched = nullptr;
  OPENSSL_cleanse(own_stack, stack_size);
  return found;
}

/// Bytes that occur nowhere else.
std::string secret_bytes(std::size_t size, std::uint32_t seed) {
  std::string bytes(size, '\0');
  for (char& c : bytes) {
    seed = seed * 1664525 + 1013904223;
    c = static_cast<char>(seed >> 24);
  }
  return bytes;
}

struct Secrets {
  Secrets(const char* cipher_id, std::size_t size)
      : cipher(cipher_of(cipher_id)),
        key(key_of(secret_bytes(cipher->key_size(), 1))),
        plaintext(secret_bytes(size, 2)),
        inner_key(key_of(plaintext)),
        needles(needles_of(key, plaintext)) {}

  const ovcore::InterfacePtr<const ICipher> cipher;
  const ovcrypto::Key key;
  const std::string plaintext;
  const ovcrypto::Key inner_key;  // the plaintext as a key
  const Needles needles;
};

constexpr std::size_t sizes[] = {8, 16, 31, 32, 33, 64, 200, 256, 300, 1000, 5000, 100'000};
constexpr const char* ids[] = {"EAX_AES128", "EAX_AES256"};

template <class F>
void for_each_secret(F&& f) {
  for (const char* const id : ids) {
    for (const std::size_t size : sizes) {
      SCOPED_TRACE(std::string(id) + ", " + std::to_string(size));
      const Secrets secrets(id, size);
      f(secrets);
    }
  }
}

TEST(Wiping, TheWatchSeesWhatIsLeft) {
  const Secrets s("EAX_AES128", 64);
  EXPECT_NE(traces_of(s.needles, [&] { const std::string copy(s.plaintext); }), "");
  EXPECT_NE(traces_of(s.needles,
                      [&] {
                        void* const memory = OPENSSL_malloc(16);
                        std::memcpy(memory, s.key.data(), 16);
                        OPENSSL_free(memory);
                      }),
            "");
  const auto use_stack = [&] {
    [[maybe_unused]] volatile unsigned char copy[16];
    for (std::size_t i = 0; i < 16; ++i)
      copy[i] = s.key.data()[i];
  };
  EXPECT_NE(traces_of(s.needles, use_stack), "");
  const auto use_schedule = [&] {
    AES_KEY schedule;
    AES_set_encrypt_key(s.key.data(), 128, &schedule);
    unsigned char block[16] = {};
    AES_encrypt(block, block, &schedule);
  };
  EXPECT_NE(traces_of(s.needles, use_schedule), "");
  EXPECT_EQ(traces_of(s.needles, [] { const std::string other(100, 'x'); }), "");
}

TEST(Wiping, CiphersLeaveNothing) {
  for_each_secret([](const Secrets& s) {
    FixedRandom random("a nonce of sixteen");
    const auto expected = s.cipher->encrypt(list_of(s.plaintext), "header", s.key, random);
    Needles needles = derived_needles(s.key, s.plaintext, "header", text_of(*expected));
    needles.insert(s.needles.begin(), s.needles.end());
    // What would be the tag under another header: with it one could forge.
    const auto other = text_of(*s.cipher->encrypt(list_of(s.plaintext), "Header", s.key, random));
    add_needles(needles, std::string_view(other).substr(other.size() - 16), "tag of a forgery");
    for (const std::size_t segment_size : {0, 5, 100}) {
      const auto plaintext = list_of(s.plaintext, segment_size);
      MemoryListPtr sealed;
      EXPECT_EQ(traces_of(needles,
                          [&] { sealed = s.cipher->encrypt(plaintext, "header", s.key, random); }),
                "");
      const auto cut = list_of(text_of(*sealed), segment_size);
      EXPECT_EQ(traces_of(needles,
                          [&] { static_cast<void>(s.cipher->authenticate(s.key, "header", cut)); }),
                "");
      EXPECT_EQ(traces_of(needles, [&] { s.cipher->decrypt(s.key, "header", cut).reset(); }), "");
      EXPECT_EQ(traces_of(needles,
                          [&] { static_cast<void>(s.cipher->authenticate(s.key, "Header", cut)); }),
                "");
    }
  });
}

TEST(Wiping, SealedKeysLeaveNothing) {
  for_each_secret([](const Secrets& s) {
    SecuredValue value;
    EXPECT_EQ(
        traces_of(s.needles, [&] { value.set(s.inner_key, "annotation", {}, s.key, *s.cipher); }),
        "");
    bool same = false;
    EXPECT_EQ(
        traces_of(s.needles, [&] { same = value.extract_binary_as_key(s.key) == s.inner_key; }),
        "");
    EXPECT_TRUE(same);
    EXPECT_EQ(traces_of(s.needles, [&] { same = value.authenticate(s.key); }), "");
    EXPECT_EQ(traces_of(s.needles, [&] { value.clear(); }), "");
  });
}

/// A value of each type, and a list of two, of which every text, number and name is secret.
std::vector<AttributeValue> secret_values(std::size_t size) {
  std::uint32_t seed = 100;
  const auto text = [&](std::size_t n) {
    std::string letters = secret_bytes(n, ++seed);
    for (char& c : letters)
      c = static_cast<char>('a' + (c & 15));
    return letters;
  };
  const auto number = [&] {
    const std::string bytes = secret_bytes(8, ++seed);
    return static_cast<std::int64_t>(run_at(bytes.data()) >> 9);  // within the range of all types
  };
  const auto uuid = [&] {
    const std::string bytes = secret_bytes(16, ++seed);
    ovcore::Uuid::BinaryData data;
    std::copy(bytes.begin(), bytes.end(), data.begin());
    return ovcore::Uuid(data);
  };
  const auto bytes = [&] {
    const std::string secret = secret_bytes(size, ++seed);
    return BinaryValue(reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
  };
  const auto map = [&] {
    return AttributeMap{{text(size).c_str(), text(size)}, {text(size).c_str(), bytes()}};
  };
  const auto error = [&] {
    return ovcore::ErrorComposer(text(size))
        .add(text(size), text(size))
        .compose(ovcore::ErrorCode(ovcore::SourceString(text(size))), {text(size), text(size), 1});
  };
  const auto serialized = [&] { return SerializedValue(text(size), list_of(text(size))); };
  const auto secured = [&] {
    return SecuredValue(text(size), text(size), {text(size), uuid()}, ovcrypto::Key(16),
                        *cipher_of("EAX_AES128"));
  };
  const auto uri = [&] { return ovuri::UriReference(text(size)); };
  const auto absolute = [&] { return ovcore::AbsoluteTime::from_microseconds(number()); };
  const auto relative = [&] { return ovcore::RelativeTime::from_microseconds(number()); };
  const auto date = [&] { return ovcore::SimpleDateTime(1987, 11, 23, 17, 48, 39, 123'456); };
  std::vector<AttributeValue> values{
      AttributeValue(), AttributeValue(true),
      AttributeValue{true, false, true, true, false, false, true, false, true}};
  const auto add = [&](const auto& make) {
    values.emplace_back(make());
    values.push_back({make(), make()});
  };
  add(number), add([&] { return static_cast<double>(number()) / 3; });
  add([&] { return text(size); });
  add(uuid), add(uri), add(absolute), add(relative), add(date), add(bytes);
  add(serialized), add(map), add(secured), add(error);
  return values;
}

TEST(Wiping, SealedValuesOfEachTypeLeaveNothing) {
  const auto cipher = cipher_of("EAX_AES256");
  const ovcrypto::Key key = key_of(secret_bytes(32, 1));
  for (const std::size_t size : {12, 40, 300}) {
    for (const AttributeValue& value : secret_values(size)) {
      Needles needles = needles_of(key, bytes_of([&](ovserialize::Writer& writer) {
                                     write_attribute_value(writer, value);
                                   }));
      SCOPED_TRACE(value.type().name() + ", " + std::to_string(value.size()) + " of " +
                   std::to_string(size));
      SecuredValue sealed;
      EXPECT_EQ(traces_of(needles, [&] { sealed.set(value, "", {}, key, *cipher); }), "");
      AttributeValue opened;
      EXPECT_EQ(traces_of(needles, [&] { opened = sealed.extract(key); }), "");
      EXPECT_EQ(opened, value);
      SecuredValue::ErrorInfoPtr error;
      const auto refuse = [&] { static_cast<void>(sealed.extract(ovcrypto::Key(32), &error)); };
      EXPECT_EQ(traces_of(needles, refuse), "");
      EXPECT_TRUE(error);
    }
  }
}

TEST(Wiping, ErrorsLeaveNothing) {
  for_each_secret([](const Secrets& s) {
    SecuredValue::ErrorInfoPtr error;
    const auto expect = [&error](const ovcore::ErrorCode& code) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->code(), code);
    };
    // A text is no key.
    const SecuredValue text(AttributeValue(s.plaintext), "", {}, s.key, *s.cipher);
    EXPECT_EQ(traces_of(s.needles, [&] { text.extract_binary_as_key(s.key, &error).clear(); }), "");
    expect(error::ovattribute_value_type_mismatch);
    // Nor is a list of blocks.
    const SecuredValue list(AttributeValue{BinaryValue(), BinaryValue()}, "", {}, s.key, *s.cipher);
    EXPECT_EQ(traces_of(s.needles, [&] { list.extract_binary_as_key(s.key, &error).clear(); }), "");
    expect(error::ovattribute_value_type_mismatch);
    // A forged body.
    FixedRandom random("a nonce of sixteen");
    std::string forged = text_of(*s.cipher->encrypt(list_of(s.plaintext), "header", s.key, random));
    forged[16] = static_cast<char>(forged[16] ^ 1);
    const auto forged_list = list_of(forged);
    EXPECT_EQ(traces_of(s.needles,
                        [&] {
                          try {
                            s.cipher->decrypt(s.key, "header", forged_list).reset();
                          } catch (const ovcore::Exception& e) {
                            error = e.info();
                          }
                        }),
              "");
    expect(error::ovattribute_value_secured_authentication);
    // No random bytes.
    class NoRandom final : public ovcrypto::IRandomProvider {
     public:
      void generate_random(void*, std::int64_t) override {
        ovcore::throw_error(ovcrypto::error::ovcrypto_randomProvider_failed, "no luck", {});
      }
    };
    NoRandom no_random;
    EXPECT_EQ(traces_of(s.needles,
                        [&] {
                          try {
                            SecuredValue().set(s.inner_key, "", {}, s.key, *s.cipher, no_random);
                          } catch (const ovcore::Exception& e) {
                            error = e.info();
                          }
                        }),
              "");
    expect(ovcrypto::error::ovcrypto_randomProvider_failed);
  });
}

TEST(Wiping, FailedAllocationsLeaveNothing) {
  for_each_secret([](const Secrets& s) {
    FixedRandom random("a nonce of sixteen");
    const SecuredValue value(s.inner_key, "", {}, s.key, *s.cipher);
    int failures = 0;
    for (std::uint64_t n = 0;; ++n) {
      bool failed = false;
      EXPECT_EQ(traces_of(s.needles,
                          [&] {
                            try {
                              const ovtest::FailAllocations fail(n);
                              SecuredValue().set(s.inner_key, "", {}, s.key, *s.cipher, random);
                              value.extract_binary_as_key(s.key).clear();
                            } catch (const std::bad_alloc&) {
                              failed = true;
                            }
                          }),
                "");
      if (!failed) break;
      ++failures;
    }
    EXPECT_GE(failures, 6);
  });
}

TEST(Wiping, KeysLeaveNothing) {
  const Secrets s("EAX_AES256", 100);
  const auto use = [&] {
    ovcrypto::Key key = s.inner_key.clone();
    key.resize(200);
    key.resize(50);
    ovcrypto::Key moved = std::move(key);
    ovcore::MemoryReadStream stream(s.plaintext);
    moved.read(stream);
    key = moved.clone();
    static_cast<void>(key == s.inner_key);
    ovcrypto::AesEncryptContext aes(s.key);
    unsigned char block[16] = {};
    aes.encrypt(block, block);
    aes.rekey(ovcrypto::Key(16));
    aes.rekey(s.key);
    aes.encrypt(block, block);
  };
  EXPECT_EQ(traces_of(s.needles, use), "");
}

// libcrypto without memory: AES_encrypt does what EVP would have done, or the operation fails.
std::atomic<int> allowed_of_libcrypto{-1};

void* malloc_of_libcrypto(std::size_t size, const char*, int) {
  if (allowed_of_libcrypto == 0) return nullptr;
  if (allowed_of_libcrypto > 0) --allowed_of_libcrypto;
  return std::malloc(size);
}

void* realloc_of_libcrypto(void* memory, std::size_t size, const char*, int) {
  return ::realloc(memory, size);
}

void free_of_libcrypto(void* memory, const char*, int) {
  std::free(memory);
}

// Before libcrypto allocates anything.
const bool hooked =
    CRYPTO_set_mem_functions(malloc_of_libcrypto, realloc_of_libcrypto, free_of_libcrypto) == 1;

TEST(Wiping, LibcryptoWithoutMemoryChangesNothing) {
  ASSERT_TRUE(hooked);
  for_each_secret([](const Secrets& s) {
    FixedRandom random("a nonce of sixteen");
    const auto plaintext = list_of(s.plaintext);
    const auto expected = s.cipher->encrypt(plaintext, "header", s.key, random);
    for (int n = 0; n < 12; ++n) {
      MemoryListPtr sealed;
      EXPECT_EQ(traces_of(s.needles,
                          [&] {
                            allowed_of_libcrypto = n;
                            sealed = s.cipher->encrypt(plaintext, "header", s.key, random);
                            allowed_of_libcrypto = -1;
                          }),
                "");
      ASSERT_TRUE(sealed);
      EXPECT_EQ(*sealed, *expected) << n;
    }
  });
}

}  // namespace
}  // namespace ovattribute
