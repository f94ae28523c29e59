# The Debian package (scripts/package runs CPack's DEB generator in a build directory):
# /usr/bin/murmela, its resources in /usr/share/murmela, the desktop files, and ONNX Runtime,
# where the release packages none (Debian 12), as a private library in /usr/lib/murmela that
# only the program's RUNPATH finds. Dependencies come from the binaries (dpkg-shlibdeps).
set(MURMELA_PACKAGE_MAINTAINER "Murmela developers <murmela@example.org>" CACHE STRING
    "Maintainer field of the Debian package")
# Packages built on different Debian releases differ in their dependencies; the version says
# which release one is for ("0.1.0~deb12"), so that their files never collide in one archive,
# and a package for a newer release is the newer package.
file(STRINGS /etc/os-release os_version_id REGEX "^VERSION_ID=")
string(REGEX REPLACE "^VERSION_ID=\"?([0-9]+).*" "~deb\\1" murmela_release_suffix "${os_version_id}")
set(MURMELA_PACKAGE_VERSION_SUFFIX "${murmela_release_suffix}" CACHE STRING
    "Appended to the package's version: the Debian release it is built for")
set(MURMELA_PACKAGE_VERSION ${PROJECT_VERSION}${MURMELA_PACKAGE_VERSION_SUFFIX})
set(murmela_doc_dir ${CMAKE_INSTALL_DATADIR}/doc/murmela)
set(murmela_package_files ${CMAKE_BINARY_DIR}/package-files)

# The copyright file Debian wants in the documentation folder: the program's own notice, then
# the notices of what the package ships of others, as the build collected them.
set(copyright_parts
    ${MURMELA_STAGED_RESOURCES}/Licenses/onnxruntime.txt
    ${MURMELA_STAGED_RESOURCES}/Licenses/espeak-ng.txt
    ${MURMELA_STAGED_RESOURCES}/Licenses/espeak-ng-data.txt)
if(MURMELA_BUILD_VOICE)
    list(APPEND copyright_parts ${MURMELA_STAGED_RESOURCES}/Licenses/flite-cmu_us_rms.txt)
endif()
add_custom_command(
    OUTPUT ${murmela_package_files}/copyright
    COMMAND ${CMAKE_COMMAND} -DOUT=${murmela_package_files}/copyright
            -DHEADER=${PROJECT_SOURCE_DIR}/packaging/copyright.in "-DPARTS=${copyright_parts}"
            -P ${PROJECT_SOURCE_DIR}/packaging/write_copyright.cmake
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/copyright.in
            ${PROJECT_SOURCE_DIR}/packaging/write_copyright.cmake murmela_licenses
    VERBATIM)

# A native package's changelog, compressed as Debian policy asks (gzip -9, no name or time).
# Its date is the last commit's, or the one given where the sources are not a checkout.
set(MURMELA_PACKAGE_DATE "" CACHE STRING "Date of the package's changelog entry (RFC 5322)")
if(MURMELA_PACKAGE_DATE STREQUAL "")
    execute_process(
        COMMAND git log -1 --format=%aD
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE MURMELA_PACKAGE_DATE
        OUTPUT_STRIP_TRAILING_WHITESPACE
        ERROR_QUIET)
endif()
if(MURMELA_PACKAGE_DATE STREQUAL "")
    string(TIMESTAMP MURMELA_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${murmela_package_files}/changelog @ONLY)
find_program(MURMELA_GZIP gzip REQUIRED)
add_custom_command(
    OUTPUT ${murmela_package_files}/changelog.gz
    COMMAND ${MURMELA_GZIP} -9nf --keep ${murmela_package_files}/changelog
    DEPENDS ${murmela_package_files}/changelog
    VERBATIM)
add_custom_command(
    OUTPUT ${murmela_package_files}/murmela.1.gz
    COMMAND ${MURMELA_GZIP} -9n --stdout ${PROJECT_SOURCE_DIR}/packaging/murmela.1
            > ${murmela_package_files}/murmela.1.gz
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/murmela.1)
add_custom_target(murmela_package_files ALL
    DEPENDS ${murmela_package_files}/copyright ${murmela_package_files}/changelog.gz
            ${murmela_package_files}/murmela.1.gz)
install(FILES ${murmela_package_files}/copyright ${murmela_package_files}/changelog.gz
    DESTINATION ${murmela_doc_dir})
install(FILES ${murmela_package_files}/murmela.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# What lintian is told to accept, with the reasons, in the file itself: all of it is about
# the private ONNX Runtime, so it goes only with that.
if(MURMELA_ONNXRUNTIME_LIBRARY)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME murmela)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME murmela)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_VERSION ${MURMELA_PACKAGE_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${MURMELA_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# The synopsis is the project's description; CPack indents the rest as Debian wants. The rest
# is read here, not named as CPACK_PACKAGE_DESCRIPTION_FILE: cpack escapes that file's text for
# XML, and the control file would read "synthesiser&apos;s".
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(murmela_description_file ${PROJECT_SOURCE_DIR}/packaging/description.txt)
file(READ ${murmela_description_file} CPACK_DEBIAN_PACKAGE_DESCRIPTION)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${murmela_description_file})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Relative to the package's staging root, where dpkg-shlibdeps runs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS usr/${MURMELA_PRIVATE_LIBDIR})
# Everything installed, and the speech-dispatcher module's configuration in /etc, a conffile.
set(CPACK_COMPONENTS_ALL Unspecified speechd_configuration)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
file(WRITE ${murmela_package_files}/conffiles "/etc/speech-dispatcher/modules/murmela.conf\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${murmela_package_files}/conffiles)
include(CPack)
