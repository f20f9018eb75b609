# Installation and packages. Components follow the packages: Runtime (libovrmail1), Development
# (libovrmail-dev) and Tools (ovrmail-tools).
#
# The directories under /var/opt and /etc/opt are made by the scripts of libovrmail1, not by
# "cmake --install": they belong to the machine and not to a prefix.
include(CMakePackageConfigHelpers)

set(OVRMAIL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ovrmail)
set(OVRMAIL_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/ovrmail)

install(TARGETS ovrmail EXPORT ovrmailTargets
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development)
install(EXPORT ovrmailTargets NAMESPACE ovrmail:: DESTINATION ${OVRMAIL_CMAKE_DIR}
  COMPONENT Development)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ovrmail
  COMPONENT Development FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

configure_package_config_file(cmake/ovrmailConfig.cmake.in ovrmailConfig.cmake
  INSTALL_DESTINATION ${OVRMAIL_CMAKE_DIR}
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(ovrmailConfigVersion.cmake COMPATIBILITY SameMajorVersion)
# The prefix is known only when installing: "cmake --install --prefix" may name another one.
install(CODE "
  set(version \"${PROJECT_VERSION}\")
  set(description \"${PROJECT_DESCRIPTION}\")
  set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
  set(includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/ovrmail.pc.in\"
                 \"${PROJECT_BINARY_DIR}/ovrmail.pc\" @ONLY)"
  COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/ovrmailConfig.cmake
              ${PROJECT_BINARY_DIR}/ovrmailConfigVersion.cmake
  DESTINATION ${OVRMAIL_CMAKE_DIR} COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/ovrmail.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# Manual pages: section 3 for programmers, the others for operators. Compressed where gzip is.
find_program(OVRMAIL_GZIP gzip)
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-9])
foreach(page ${pages})
  get_filename_component(name ${page} NAME)
  string(REGEX MATCH "[1-9]$" section ${name})
  set(installed ${page})
  if(OVRMAIL_GZIP)
    set(installed ${PROJECT_BINARY_DIR}/man/${name}.gz)
    add_custom_command(OUTPUT ${installed} DEPENDS ${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${OVRMAIL_GZIP} -9nc ${page} > ${installed})
    list(APPEND compressed ${installed})
  endif()
  set(component Tools)
  if(section EQUAL 3)
    set(component Development)
  endif()
  install(FILES ${installed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT ${component})
endforeach()
add_custom_target(man_pages ALL DEPENDS ${compressed})

if(OVRMAIL_BUILD_TOOLS)
  get_property(tools DIRECTORY tools PROPERTY BUILDSYSTEM_TARGETS)
  list(FILTER tools INCLUDE REGEX "^ovrm-")
  install(TARGETS ${tools} RUNTIME COMPONENT Tools)
  install(FILES completions/ovrm-send.bash RENAME ovrm-send
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT Tools)
endif()

file(GLOB examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.c
     ${PROJECT_SOURCE_DIR}/examples/*.cpp ${PROJECT_SOURCE_DIR}/examples/*.py)
install(FILES ${examples} DESTINATION ${OVRMAIL_DOC_DIR}/examples COMPONENT Development)
install(DIRECTORY examples/relay DESTINATION ${OVRMAIL_DOC_DIR}/examples COMPONENT Tools)
file(GLOB documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${documents} README.md DESTINATION ${OVRMAIL_DOC_DIR} COMPONENT Development)

include(${PROJECT_SOURCE_DIR}/packaging/packages.cmake)
