# What `cmake --install` puts where, in the components `library`, `development` and `tools`.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS lumtar EXPORT LumtarTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumtar)

# The public headers, and no other: what lumtarengine.h and Protocal.h include, and what an
# application needs besides. A public header includes no header that is missing here.
install(FILES
  ${PROJECT_BINARY_DIR}/include/lumtar_export.h
  engine/lumtarengine.h
  configuration/testconfiguration.h
  protocol/Protocal.h
  protocol/boardsetup.h
  protocol/controlcommands.h
  protocol/ft3frame.h
  protocol/gooseframe.h
  protocol/gooseoffsets.h
  protocol/goosesignals.h
  protocol/statusreply.h
  protocol/stepcommands.h
  protocol/streamdescriptions.h
  protocol/subscription.h
  protocol/svchannels.h
  protocol/svframe.h
  protocol/textcodec.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumtar COMPONENT development)

# A program built with one minor version of Qt runs with later ones, not with earlier ones.
string(REGEX MATCH "^[0-9]+\\.[0-9]+" lumtar_qt_version "${${Qt}Core_VERSION}")

# Who links to a static library links to all that it uses.
set(lumtar_dependencies ${lumtar_qt_public})
set(pc_definitions "")
if(NOT BUILD_SHARED_LIBS)
  list(APPEND lumtar_dependencies ${lumtar_qt_private})
  set(pc_definitions -DLUMTAR_STATIC_DEFINE)
endif()

# find_package(Lumtar)
list(JOIN lumtar_dependencies " " package_components)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Lumtar)
configure_package_config_file(cmake/LumtarConfig.cmake.in ${PROJECT_BINARY_DIR}/LumtarConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LumtarConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/LumtarConfig.cmake
  ${PROJECT_BINARY_DIR}/LumtarConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)
install(EXPORT LumtarTargets NAMESPACE Lumtar:: DESTINATION ${package_dir} COMPONENT development)

# pkg-config lumtar. Its paths start from the place of the file itself, so the tree can be moved.
# Qt insists on -fPIC, which its own pkg-config files leave out.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
set(pc_includedir "\${prefix}")
cmake_path(APPEND pc_includedir ${CMAKE_INSTALL_INCLUDEDIR}) # which may be absolute
set(pc_libdir "\${prefix}")
cmake_path(APPEND pc_libdir ${CMAKE_INSTALL_LIBDIR})
list(TRANSFORM lumtar_dependencies PREPEND ${Qt})
list(TRANSFORM lumtar_dependencies APPEND " >= ${lumtar_qt_version}")
list(JOIN lumtar_dependencies ", " pc_requires)
configure_file(cmake/lumtar.pc.in ${PROJECT_BINARY_DIR}/lumtar.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lumtar.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

if(LUMTAR_BUILD_TOOLS)
  file(RELATIVE_PATH libdir_from_bindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(lumtarctl PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir_from_bindir}")
  install(TARGETS lumtarctl lumtar-board
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # Where Wireshark looks for dissectors of all users.
  install(FILES tools/wireshark/lumtar.lua
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)
  foreach(program IN ITEMS lumtarctl lumtar-board)
    install(FILES tools/man/${program}.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES tools/completion/lumtar.bash
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program}
      COMPONENT tools)
  endforeach()
  install(FILES tools/completion/lumtar.zsh
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions RENAME _lumtar COMPONENT tools)
  install(DIRECTORY schemas DESTINATION ${CMAKE_INSTALL_DATADIR}/lumtar COMPONENT tools
    FILES_MATCHING PATTERN *.schema.json)
  install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumtar COMPONENT tools)
  install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumtar COMPONENT tools
    FILES_MATCHING PATTERN *.md)
endif()
