# The Debian packages that cpack makes (see scripts/packages): `libovattribute0.2` with the libraries of
# a series, `libovmoduleregistry0` with the one that all series have in common, `ovattr` with the
# tool, `libovattribute-dev` with what is needed to build against the libraries.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "ovattribute")
set(CPACK_PACKAGE_CONTACT "The ovattribute developers <developers@ovattribute.invalid>")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What is linked with the libraries by other packages needs a version as new as this one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The libraries need each other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")

# ov_package(component name section depends description)
macro(ov_package component name section depends description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
  install(FILES "${PROJECT_SOURCE_DIR}/cmake/copyright" COMPONENT ${component} EXCLUDE_FROM_ALL
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}")
endmacro()

set(CPACK_COMPONENTS_ALL "")
set(runtime libovattribute${ov_series})
set(registry libovmoduleregistry0)
set(needs_runtime "${runtime} (>= ${PROJECT_VERSION}), ${registry} (>= ${PROJECT_VERSION})")
set(needs_dev "${runtime} (= ${PROJECT_VERSION}), ${registry} (>= ${PROJECT_VERSION})")
if(BUILD_SHARED_LIBS)
  ov_package(registry ${registry} libs ""
    "The table of a process's modules, where versions of ovattribute meet.")
  ov_package(runtime ${runtime} libs "${registry} (>= ${PROJECT_VERSION})"
    "The shared libraries of ovattribute: typed, named data.")
else()
  set(needs_runtime "")
  set(needs_dev "libssl-dev, liburiparser-dev, libxxhash-dev, pkgconf")
endif()
ov_package(dev libovattribute-dev libdevel "${needs_dev}"
  "Headers, CMake package and pkg-config file of ovattribute.")
ov_package(tool ovattr utils "${needs_runtime}"
  "Converts, shows, queries, compares and seals files of typed, named data.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_REGISTRY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)

include(CPack)
