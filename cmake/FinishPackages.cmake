# CPack runs this on the files of all packages before it packs them: adds what every Debian package
# has, and removes the search path of programs, which have their library in a system directory here.

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC) # SOURCE_DATE_EPOCH, where that is set
string(CONCAT debian_changelog
  "lumtar (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
  "  * Package of the project's own build; see changelog.gz for its changes.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(doc ${root}/share/doc/${package})

  file(MAKE_DIRECTORY ${doc})
  configure_file(${CPACK_LUMTAR_COPYRIGHT} ${doc}/copyright COPYONLY)
  configure_file(${CPACK_LUMTAR_CHANGELOG} ${doc}/changelog COPYONLY)
  file(WRITE ${doc}/changelog.Debian "${debian_changelog}")
  execute_process(COMMAND gzip -9n changelog changelog.Debian
    WORKING_DIRECTORY ${doc} COMMAND_ERROR_IS_FATAL ANY)

  if(component STREQUAL development)
    # Qt needs the flag and leaves it out of its own pkg-config files.
    file(WRITE ${root}/share/lintian/overrides/${package}
      "${package}: pkg-config-bad-directive -fPIC [*lumtar.pc]\n")
  endif()

  file(GLOB man_pages ${root}/share/man/man1/*)
  if(man_pages)
    execute_process(COMMAND gzip -9n ${man_pages} COMMAND_ERROR_IS_FATAL ANY)
  endif()

  file(GLOB programs ${root}/bin/*)
  foreach(program IN LISTS programs)
    file(RPATH_REMOVE FILE ${program})
  endforeach()

  # Whatever the umask of the build.
  execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY}/${component}
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
