# Finds everything that is used but not part of the project, once and before any target is made.
# What is missing is reported in one message, with the Debian package that has it.

set(ov_missing "")

# ov_need(found packages what): `found` names the variable that a search has set.
macro(ov_need found packages what)
  if(NOT ${found})
    string(APPEND ov_missing "\n  ${packages}: ${what}")
  endif()
endmacro()

find_package(Threads REQUIRED)

# OpenSSL::Crypto
find_package(OpenSSL 3.0 QUIET COMPONENTS Crypto)
ov_need(OPENSSL_FOUND libssl-dev "OpenSSL 3, libcrypto")

# PkgConfig::liburiparser, PkgConfig::libxxhash
find_package(PkgConfig QUIET)
ov_need(PKG_CONFIG_FOUND pkgconf "pkg-config, to find the next two")
if(PKG_CONFIG_FOUND)
  pkg_check_modules(liburiparser QUIET IMPORTED_TARGET liburiparser>=0.9)
  pkg_check_modules(libxxhash QUIET IMPORTED_TARGET libxxhash>=0.8)
endif()
ov_need(liburiparser_FOUND liburiparser-dev "uriparser 0.9")
ov_need(libxxhash_FOUND libxxhash-dev "xxHash 0.8")

# CLI11::CLI11
if(OVATTRIBUTE_BUILD_TOOLS)
  find_package(CLI11 2.1 CONFIG QUIET)
  ov_need(CLI11_FOUND libcli11-dev "CLI11 2.1, unless OVATTRIBUTE_BUILD_TOOLS is OFF")
endif()

# GTest::gmock, GTest::gtest_main, Python3::Interpreter
if(OVATTRIBUTE_BUILD_TESTS)
  find_package(GTest 1.12 CONFIG QUIET)
  ov_need(GTest_FOUND "libgtest-dev libgmock-dev" "GoogleTest 1.12, unless OVATTRIBUTE_BUILD_TESTS is OFF")
  find_package(Python3 3.9 QUIET COMPONENTS Interpreter)
  ov_need(Python3_FOUND python3 "Python 3.9, unless OVATTRIBUTE_BUILD_TESTS is OFF")
endif()

# benchmark::benchmark
if(OVATTRIBUTE_BUILD_BENCHMARKS)
  find_package(benchmark 1.7 CONFIG QUIET)
  ov_need(benchmark_FOUND libbenchmark-dev "Google Benchmark 1.7, unless OVATTRIBUTE_BUILD_BENCHMARKS is OFF")
endif()

if(ov_missing)
  message(FATAL_ERROR "Missing packages (scripts/test installs them on Debian):${ov_missing}")
endif()
