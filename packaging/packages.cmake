# The Debian packages, one per component, made by "cpack -G DEB" in a tree configured with the
# prefix /usr (packaging/build_packages.sh does it all).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ovrmail)
# Each package has a synopsis of its own; CPack would put a common one before it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_VENDOR "ovrmail")
set(CPACK_PACKAGE_CONTACT "ovrmail maintainers <maintainers@ovrmail.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libovrmail1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "mail submission library
One call composes and sends one e-mail through an SMTP server: text in
Japanese or ASCII, file attachments, SMTP AUTH or POP before SMTP, and large
mails in pieces. The package makes the directories for working files, logs
and traces below /var/opt/Quorvin.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/postrm
  ${CMAKE_CURRENT_LIST_DIR}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libovrmail-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libovrmail1 (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "mail submission library (development files)
Headers, pkg-config and CMake files, manual pages of the functions, and
example programs of libovrmail.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ovrmail-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "libovrmail1 (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
# For ovrm-send --utf8 and --html, which load it.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "libgmime-3.0-0")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "mail submission library (command-line tools)
ovrm-send sends one mail by hand or shows what would be sent, and checks the
configuration; further tools read the library's trace files.")

# What a Debian package must carry besides; not part of a plain "cmake --install".
foreach(pair Runtime:libovrmail1 Development:libovrmail-dev Tools:ovrmail-tools)
  string(REGEX MATCH "^[^:]+" component ${pair})
  string(REGEX MATCH "[^:]+$" package ${pair})
  install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(OVRMAIL_GZIP)
    install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
      COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()
if(OVRMAIL_GZIP)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog
    COMMAND ${OVRMAIL_GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog
            > ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
  add_custom_target(package_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
endif()
include(CPack)
