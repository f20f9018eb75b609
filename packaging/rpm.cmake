# The RPM packages, one per component, made by "cpack -G RPM" in a tree configured with the prefix
# /usr (packaging/build_rpms.sh does it all). Debian's packages are made by debian/.
set(CPACK_GENERATOR RPM)
set(CPACK_PACKAGE_NAME ovrmail)
set(CPACK_PACKAGE_VENDOR "ovrmail maintainers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tools Python)
file(STRINGS debian/copyright licence REGEX "^License: ")
string(REPLACE "License: " "" CPACK_RPM_PACKAGE_LICENSE "${licence}")
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
# The same bytes from the same sources: no time, no name of the machine that builds.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
# Directories that others have as well are in none of these packages.
set(common lib lib/python3 libexec ${OVRMAIL_PYTHON_DIR} ${CMAKE_INSTALL_LIBDIR} share/licenses
  ${CMAKE_INSTALL_LIBDIR}/cmake ${CMAKE_INSTALL_LIBDIR}/pkgconfig lib/tmpfiles.d
  share/bash-completion share/bash-completion/completions share/man share/man/ja)
foreach(section 1 3 5 7)
  list(APPEND common share/man/man${section} share/man/ja/man${section})
endforeach()
list(TRANSFORM common PREPEND /usr/ OUTPUT_VARIABLE CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION)

set(same "= ${PROJECT_VERSION}-${CPACK_RPM_PACKAGE_RELEASE}")
set(CPACK_RPM_RUNTIME_PACKAGE_NAME libovrmail1)
set(CPACK_RPM_RUNTIME_PACKAGE_SUMMARY "Mail submission library")
set(CPACK_RPM_RUNTIME_PACKAGE_DESCRIPTION
"One call composes and sends one e-mail through an SMTP server: text in Japanese or ASCII, file
attachments, SMTP AUTH or POP before SMTP, and large mails in pieces.")
set(CPACK_RPM_RUNTIME_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_LIST_DIR}/rpm_postinstall.sh)
set(CPACK_RPM_RUNTIME_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_LIST_DIR}/rpm_postuninstall.sh)

set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME libovrmail-devel)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_SUMMARY "Development files of the mail submission library")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_DESCRIPTION
"Headers, pkg-config and CMake files, manual pages of the functions, guides and examples.")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES "libovrmail1 ${same}, ovrmail-tools ${same}")

set(CPACK_RPM_TOOLS_PACKAGE_NAME ovrmail-tools)
set(CPACK_RPM_TOOLS_PACKAGE_SUMMARY "Command-line tools of the mail submission library")
set(CPACK_RPM_TOOLS_PACKAGE_DESCRIPTION
"ovrm-send sends one mail by hand and checks the configuration, ovrm-trace says what
became of a mail, from traces and logs.")
set(CPACK_RPM_TOOLS_PACKAGE_REQUIRES "libovrmail1 ${same}")
# For ovrm-send --utf8 and --html, which load it.
set(CPACK_RPM_TOOLS_PACKAGE_SUGGESTS "libgmime-3.0.so.0()(64bit)")

set(CPACK_RPM_PYTHON_PACKAGE_NAME python3-ovrmail)
set(CPACK_RPM_PYTHON_PACKAGE_ARCHITECTURE noarch)
set(CPACK_RPM_PYTHON_PACKAGE_SUMMARY "Python module of the mail submission library")
set(CPACK_RPM_PYTHON_PACKAGE_DESCRIPTION "The module ovrmail sends mail through libovrmail.")
set(CPACK_RPM_PYTHON_PACKAGE_REQUIRES "libovrmail1 ${same}, python3 >= 3.9")
include(CPack)
