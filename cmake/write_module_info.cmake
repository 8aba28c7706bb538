# Run by the build (see OvModuleInfo.cmake): writes FOLDER/module_info.inc from TEMPLATE, and the
# option by which the linker takes the same id.
cmake_minimum_required(VERSION 3.25)

# The same for the same version, settings and sources, wherever they lie.
file(STRINGS "${SOURCES}" sources)
set(text "${VERSION}\n${SETTINGS}\n")
set(timestamp "")
foreach(source IN LISTS sources)
  file(SHA256 "${ROOT}/${source}" hash)
  string(APPEND text "${source} ${hash}\n")
  file(TIMESTAMP "${ROOT}/${source}" changed "%Y-%m-%dT%H:%M:%SZ" UTC)
  if(changed STRGREATER timestamp)
    set(timestamp "${changed}")
  endif()
endforeach()
string(SHA1 build_id "${text}")

# The day of the newest source, unless the builder names one.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP timestamp "%Y-%m-%dT%H:%M:%SZ" UTC)
endif()

foreach(value IN ITEMS VERSION FILE_NAME MACHINE NAME CHANGELIST NUMBER)
  string(REPLACE "&" "&amp;" ${value} "${${value}}")
  string(REPLACE "<" "&lt;" ${value} "${${value}}")
  string(REPLACE ">" "&gt;" ${value} "${${value}}")
  string(REPLACE "\"" "&quot;" ${value} "${${value}}")
endforeach()
configure_file("${TEMPLATE}" "${FOLDER}/module_info.inc" @ONLY)
file(CONFIGURE OUTPUT "${FOLDER}/build_id.options" CONTENT "--build-id=0x@build_id@\n" @ONLY)
