# What the library says of its build: see ovattribute/module_info.inc.in.

set(OVATTRIBUTE_BUILD_MACHINE "${CMAKE_SYSTEM_NAME} ${CMAKE_SYSTEM_PROCESSOR}" CACHE STRING
  "Module information: where the library is built")
set(OVATTRIBUTE_BUILD_NAME "${PROJECT_NAME} ${PROJECT_VERSION}" CACHE STRING
  "Module information: what this build is called")
set(OVATTRIBUTE_BUILD_CHANGELIST "0" CACHE STRING "Module information: the revision of the sources")
set(OVATTRIBUTE_BUILD_NUM "0" CACHE STRING "Module information: the number of the build")

# ov_add_module_info(library): writes <library>/module_info.inc whenever a source of the project's
# libraries changes, with an id of version, sources and settings that becomes the build id too.
# The file is read by <library>/module.cpp.
function(ov_add_module_info library)
  set(folder "${PROJECT_BINARY_DIR}/${library}")
  set(script "${PROJECT_SOURCE_DIR}/cmake/write_module_info.cmake")
  set(template "${PROJECT_SOURCE_DIR}/${library}/module_info.inc.in")

  # Headers of the libraries below are compiled into this one.
  set(sources "")
  foreach(part IN ITEMS ovcore ovmoduleregistry ovserialize ovuri ovcrypto ovjson ${library})
    get_target_property(names ${part} SOURCES)
    list(FILTER names EXCLUDE REGEX "[$]<")
    list(TRANSFORM names PREPEND "${part}/")
    list(APPEND sources ${names})
  endforeach()
  list(SORT sources)
  string(REPLACE ";" "\n" list "${sources}")
  file(CONFIGURE OUTPUT "${folder}/module_sources.txt" CONTENT "${list}\n" @ONLY)
  list(TRANSFORM sources PREPEND "${PROJECT_SOURCE_DIR}/")

  string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
  set(settings "${CMAKE_SYSTEM_NAME} ${CMAKE_SYSTEM_PROCESSOR} ${CMAKE_CXX_COMPILER_ID} \
${CMAKE_CXX_COMPILER_VERSION} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${type}} \
shared=${BUILD_SHARED_LIBS} sanitize=${OVATTRIBUTE_SANITIZE} coverage=${OVATTRIBUTE_COVERAGE}")
  # The same in whatever folder it is built.
  string(REPLACE "${PROJECT_BINARY_DIR}" "build" settings "${settings}")
  string(REPLACE "${PROJECT_SOURCE_DIR}" "." settings "${settings}")

  get_target_property(target_type ${library} TYPE)
  if(target_type STREQUAL "SHARED_LIBRARY")
    set(file_name "${CMAKE_SHARED_LIBRARY_PREFIX}${library}${CMAKE_SHARED_LIBRARY_SUFFIX}")
    set(file_name "${file_name}.${PROJECT_VERSION}")
    target_link_options(${library} PRIVATE "LINKER:@${folder}/build_id.options")
    set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS "${folder}/build_id.options")
  else()
    set(file_name "${CMAKE_STATIC_LIBRARY_PREFIX}${library}${CMAKE_STATIC_LIBRARY_SUFFIX}")
  endif()

  add_custom_command(
    OUTPUT "${folder}/module_info.inc" "${folder}/build_id.options"
    COMMAND ${CMAKE_COMMAND}
      -D ROOT=${PROJECT_SOURCE_DIR} -D SOURCES=${folder}/module_sources.txt
      -D TEMPLATE=${template} -D FOLDER=${folder} -D SETTINGS=${settings}
      -D VERSION=${PROJECT_VERSION} -D FILE_NAME=${file_name}
      -D MACHINE=${OVATTRIBUTE_BUILD_MACHINE} -D NAME=${OVATTRIBUTE_BUILD_NAME}
      -D CHANGELIST=${OVATTRIBUTE_BUILD_CHANGELIST} -D NUMBER=${OVATTRIBUTE_BUILD_NUM}
      -P ${script}
    DEPENDS ${script} ${template} "${folder}/module_sources.txt" ${sources}
    COMMENT "Writing ${library}/module_info.inc"
    VERBATIM)
  # A target of its own: writing the file needs no library built before.
  add_custom_target(${library}_module_info
    DEPENDS "${folder}/module_info.inc" "${folder}/build_id.options")
  add_dependencies(${library} ${library}_module_info)
  target_sources(${library} PRIVATE "${folder}/module_info.inc")
  set_source_files_properties(module.cpp PROPERTIES INCLUDE_DIRECTORIES "${PROJECT_BINARY_DIR}")
endfunction()
