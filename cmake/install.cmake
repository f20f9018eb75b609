# Installation. Components follow the packages: Runtime (libovrmail1), Development (libovrmail-dev),
# Tools (ovrmail-tools) and Python (python3-ovrmail). No file is in two of them, so that packages
# made of them go together: manual pages of section 3 are Development (that of the Python module is
# Python), all others Tools, which the development package depends on.
#
# The directories below /etc/opt and /var/opt belong to the machine and not to a prefix: the scripts
# of the packages make them, and after "cmake --install" make-directories does, once.
include(CMakePackageConfigHelpers)

set(OVRMAIL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ovrmail)
set(OVRMAIL_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/ovrmail)
if(NOT DEFINED OVRMAIL_PYTHON_DIR)  # where Python looks below the prefix, if it does at all
  set(place "${CMAKE_INSTALL_PREFIX}/lib")
  execute_process(COMMAND python3 -c
    "import site; print([d for d in site.getsitepackages() if d.startswith('${place}')][0])"
    OUTPUT_VARIABLE found ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  set(OVRMAIL_PYTHON_DIR lib/python3/dist-packages)
  if(NOT failed)
    file(RELATIVE_PATH OVRMAIL_PYTHON_DIR ${CMAKE_INSTALL_PREFIX} ${found})
  endif()
endif()

install(TARGETS ovrmail EXPORT ovrmailTargets
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development)
install(PROGRAMS packaging/make_directories.sh RENAME make-directories
  DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/libovrmail1 COMPONENT Runtime)
install(FILES debian/copyright RENAME LICENSE
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/licenses/libovrmail1 COMPONENT Runtime)
install(FILES packaging/tmpfiles.conf RENAME libovrmail1.conf
  DESTINATION lib/tmpfiles.d COMPONENT Runtime)

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

# Manual pages, compressed where gzip is. A directory below docs/man holds a translation.
find_program(OVRMAIL_GZIP gzip)
file(GLOB_RECURSE pages CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/docs/man
  ${PROJECT_SOURCE_DIR}/docs/man/*.[1-9])
foreach(page ${pages})
  get_filename_component(language ${page} DIRECTORY)
  string(REGEX MATCH "[1-9]$" section ${page})
  set(installed ${PROJECT_SOURCE_DIR}/docs/man/${page})
  if(OVRMAIL_GZIP)
    set(installed ${PROJECT_BINARY_DIR}/man/${page}.gz)
    add_custom_command(OUTPUT ${installed} DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man/${language}
      COMMAND ${OVRMAIL_GZIP} -9nc ${PROJECT_SOURCE_DIR}/docs/man/${page} > ${installed})
    list(APPEND compressed ${installed})
  endif()
  set(component Tools)
  if(page MATCHES "python")
    set(component Python)
  elseif(section EQUAL 3)
    set(component Development)
  endif()
  install(FILES ${installed} DESTINATION ${CMAKE_INSTALL_MANDIR}/${language}/man${section}
    COMPONENT ${component})
endforeach()
add_custom_target(man_pages ALL DEPENDS ${compressed})

# Each function has a page of its own name, a link to the page that describes it: the pages of
# section 3 name their functions. The links have a section of their own, which man(1) finds with the
# others of section 3, because other packages have pages of the same names: libmd-dev has MD5Init.3.
set(ending "")
if(OVRMAIL_GZIP)
  set(ending ".gz")
endif()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man/links)
list(FILTER pages INCLUDE REGEX "^[^/]+[.]3$")
foreach(page ${pages})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/man/${page})
  get_filename_component(family ${page} NAME_WLE)
  file(STRINGS docs/man/${page} names REGEX "^[.]Nm [A-Za-z0-9_]+( ,)?$")
  foreach(name ${names})
    string(REGEX REPLACE "^[.]Nm ([A-Za-z0-9_]+).*" "\\1" name ${name})
    set(link ${PROJECT_BINARY_DIR}/man/links/${name}.3ovrmail${ending})
    file(CREATE_LINK ${family}.3${ending} ${link} SYMBOLIC)
    install(FILES ${link} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT Development)
  endforeach()
endforeach()

if(OVRMAIL_BUILD_TOOLS)
  get_property(tools DIRECTORY tools PROPERTY BUILDSYSTEM_TARGETS)
  list(FILTER tools INCLUDE REGEX "^ovrm-")
  install(TARGETS ${tools} RUNTIME COMPONENT Tools)
  install(FILES completions/ovrm-send.bash RENAME ovrm-send
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT Tools)
endif()

file(GLOB python_files CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/python/ovrmail/*.py ${PROJECT_SOURCE_DIR}/python/ovrmail/py.typed)
install(FILES ${python_files} DESTINATION ${OVRMAIL_PYTHON_DIR}/ovrmail COMPONENT Python)

# Documents keep their places to each other, so that links between them lead somewhere. Examples in
# a directory of their own are for operators.
file(GLOB documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/*.md)
install(FILES ${documents} DESTINATION ${OVRMAIL_DOC_DIR} COMPONENT Development)
install(DIRECTORY docs/ DESTINATION ${OVRMAIL_DOC_DIR}/docs COMPONENT Development
  PATTERN man EXCLUDE)
install(FILES debian/copyright RENAME LICENSE
  DESTINATION ${OVRMAIL_DOC_DIR} COMPONENT Development)
file(GLOB examples LIST_DIRECTORIES true CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*)
foreach(example ${examples})
  if(IS_DIRECTORY ${example})
    install(DIRECTORY ${example} DESTINATION ${OVRMAIL_DOC_DIR}/examples COMPONENT Tools)
  elseif(NOT example MATCHES "CMakeLists.txt$")
    install(FILES ${example} DESTINATION ${OVRMAIL_DOC_DIR}/examples COMPONENT Development)
  endif()
endforeach()

# Last, what is left to do by hand; a package does it in its scripts.
install(CODE "
  set(libdir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
  set(libexecdir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}\")
  set(pythondir \"\${CMAKE_INSTALL_PREFIX}/${OVRMAIL_PYTHON_DIR}\")
  include(\"${CMAKE_CURRENT_LIST_DIR}/install_words.cmake\")" COMPONENT Runtime)

include(${PROJECT_SOURCE_DIR}/packaging/rpm.cmake)
