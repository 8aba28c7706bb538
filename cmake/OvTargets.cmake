# How every target of the project is made: one helper for libraries, one for programs.

function(ov_compile_settings target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow)
  if(OVATTRIBUTE_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  # Binding a function on its first call would save all registers on the stack, with whatever of a
  # key is still in them.
  target_link_options(${target} PRIVATE -Wl,-z,now)
  # Inline statics must stay inside the copy of the library that owns them, or a second copy
  # loaded into the process could never be unloaded.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
  if(OVATTRIBUTE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${OVATTRIBUTE_SANITIZE}
      -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${OVATTRIBUTE_SANITIZE})
  endif()
  if(OVATTRIBUTE_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

# What an interface stays the same within: a major version, before 1.0 a minor one.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(ov_series ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(ov_series ${PROJECT_VERSION_MAJOR})
endif()

# ov_add_library(name [BUILTIN] [SERIES series]
#   SOURCES ... HEADERS ... [DEPENDS ...] [PRIVATE_DEPENDS ...])
#
# BUILTIN makes an object library whose code goes into another library of the project.
# The soname and the versions of symbols carry SERIES, by default that of the project.
# HEADERS are installed as <library>/<header>; headers that users never see stand under SOURCES.
function(ov_add_library name)
  cmake_parse_arguments(arg "BUILTIN" "SERIES" "SOURCES;HEADERS;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  set(component runtime)
  if(DEFINED arg_SERIES)
    set(component registry)
  endif()
  if(arg_BUILTIN)
    add_library(${name} OBJECT ${arg_SOURCES} ${arg_HEADERS})
  else()
    if(NOT DEFINED arg_SERIES)
      set(arg_SERIES ${ov_series})
    endif()
    add_library(${name} ${arg_SOURCES} ${arg_HEADERS})
    set_target_properties(${name} PROPERTIES
      VERSION ${PROJECT_VERSION}
      SOVERSION ${arg_SERIES}
      DEFINE_SYMBOL ""  # objects of shared and static libraries are the same
      INSTALL_RPATH "$ORIGIN")
    get_target_property(type ${name} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
      string(TOUPPER ${name}_${arg_SERIES} ov_symbol_version)
      set(exports ${CMAKE_CURRENT_BINARY_DIR}/exports.map)
      configure_file(${PROJECT_SOURCE_DIR}/cmake/exports.map.in ${exports} @ONLY)
      target_link_options(${name} PRIVATE -Wl,-Bsymbolic -Wl,--version-script=${exports})
      set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${exports})
      if(NOT OVATTRIBUTE_SANITIZE)
        target_link_options(${name} PRIVATE -Wl,--no-undefined)
      endif()
    endif()
  endif()
  add_library(ovattribute::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE ${arg_PRIVATE_DEPENDS})
  ov_compile_settings(${name})
  ov_install_library(${name} ${component} ${arg_HEADERS})
endfunction()

# ov_add_program(name SOURCES ... [DEPENDS ...])
function(ov_add_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  ov_compile_settings(${name})
endfunction()
