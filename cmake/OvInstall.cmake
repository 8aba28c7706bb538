# What an installation holds: the libraries (component `runtime`; `registry` for the one that all
# versions have in common), the tool (`tool`), headers as <library>/<header>, the CMake package, the
# pkg-config file `ovattribute`, pages and examples (`dev`).

include(CMakePackageConfigHelpers)

set(ov_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/ovattribute")

# ov_install_library(name component headers...)
function(ov_install_library name component)
  if(NOT OVATTRIBUTE_INSTALL)
    return()
  endif()
  # An object library has nothing to install; it is exported for the sake of those who link it.
  install(TARGETS ${name} EXPORT ovattribute-targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component} NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
  foreach(header IN LISTS ARGN)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${name}/${folder}"
      COMPONENT dev)
  endforeach()
endfunction()

# ov_install_package(): to be called once, after all libraries.
function(ov_install_package)
  if(NOT OVATTRIBUTE_INSTALL)
    return()
  endif()
  install(EXPORT ovattribute-targets NAMESPACE ovattribute:: DESTINATION "${ov_package_dir}"
    COMPONENT dev)
  configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/ovattribute-config.cmake.in"
    "${PROJECT_BINARY_DIR}/ovattribute-config.cmake"
    INSTALL_DESTINATION "${ov_package_dir}")
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/ovattribute-config-version.cmake"
    COMPATIBILITY SameMinorVersion)
  install(FILES
    "${PROJECT_BINARY_DIR}/ovattribute-config.cmake"
    "${PROJECT_BINARY_DIR}/ovattribute-config-version.cmake"
    DESTINATION "${ov_package_dir}" COMPONENT dev)

  install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT dev)
  install(DIRECTORY docs examples DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT dev
    REGEX "/docs/(site|Doxyfile)$|/examples/CMakeLists.txt$" EXCLUDE)

  # Where gdb looks for what belongs to a library, given the path of its own installation, /usr.
  if(BUILD_SHARED_LIBS)
    install(FILES "${PROJECT_SOURCE_DIR}/tools/gdb/printers.py"
      DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}"
      RENAME "libovattribute.so.${PROJECT_VERSION}-gdb.py" COMPONENT runtime)
  endif()

  # The path to the prefix is relative, so that an installation can be moved.
  file(RELATIVE_PATH pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig/" "/")
  string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
  # In the order in which a static link needs them.
  set(pc_libs "")
  foreach(library IN ITEMS ovattribute ovuri ovserialize ovmoduleregistry ovcore)
    if(TARGET ${library})
      string(APPEND pc_libs " -l${library}")
    endif()
  endforeach()
  set(pc_requires "")
  if(NOT BUILD_SHARED_LIBS)
    set(pc_requires "libcrypto liburiparser libxxhash")
    string(APPEND pc_libs " -pthread")
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/ovattribute.pc.in"
    "${PROJECT_BINARY_DIR}/ovattribute.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/ovattribute.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
endfunction()
