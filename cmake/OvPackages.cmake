# The Debian packages that cpack makes (see scripts/packages): `ovattribute` with the libraries and the
# tool, `ovattribute-dev` with what is needed to build against them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "ovattribute")
set(CPACK_PACKAGE_CONTACT "The ovattribute developers <developers@ovattribute.invalid>")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared libraries, and the command-line tool ovattr.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ovattribute)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# The libraries of the package need each other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")

set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers, CMake package and pkg-config file.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ovattribute-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "ovattribute (= ${PROJECT_VERSION})")
if(NOT BUILD_SHARED_LIBS)
  string(APPEND CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    ", libssl-dev, liburiparser-dev, libxxhash-dev, pkgconf")
endif()

include(CPack)
