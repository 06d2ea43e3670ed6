# `cpack -G DEB`, in the build directory: one Debian package per component.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Lumtar developers <lumtar@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development)
if(LUMTAR_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/FinishPackages.cmake)
set(CPACK_LUMTAR_CHANGELOG ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_LUMTAR_COPYRIGHT ${PROJECT_SOURCE_DIR}/cmake/copyright)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE lumtar)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -f -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

get_target_property(soversion lumtar SOVERSION)
set(library_package liblumtar${soversion})
set(same_library "${library_package} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(qt_development_6 qt6-base-dev)
set(qt_development_5 qtbase5-dev)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers)
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "engine of an IEC 61850 relay test set
Lumtar drives the signal-generation board of a relay test set: it loads a test
configuration of sampled-value and GOOSE streams, plays a sequence of states
and reads the board's status, over an acknowledged UDP link.
.
This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liblumtar-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${same_library}, ${qt_development_${QT_MAJOR_VERSION}} (>= ${lumtar_qt_version})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "engine of an IEC 61850 relay test set - development files
Lumtar drives the signal-generation board of a relay test set over UDP.
.
This package contains what a program needs to be built with Lumtar: headers,
CMake package and pkg-config file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME lumtar-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# Pictures are drawn without a display, by a plugin of Qt, and with a font.
set(qt_offscreen_6 "qt6-qpa-plugins, ")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "${same_library}, ${qt_offscreen_${QT_MAJOR_VERSION}}fonts-dejavu-core | fonts-liberation")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "wireshark | tshark")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "relay test set on the command line, and a board made of software
Lumtar drives the signal-generation board of a relay test set over UDP.
.
This package contains lumtarctl, which runs tests on a board, checks test
configurations and draws captures, lumtar-board, which stands in for a board
and plays the tests, a Wireshark dissector of the link between them, the manual
and examples.")

include(CPack)
