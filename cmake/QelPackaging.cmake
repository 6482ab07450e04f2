# ------------------------------------------------------------------------------------------------
# Debian packages, made with CPack from the install components:
#   libqel1     component lib     the shared library (libqel.so.1 and its file), with shlibs
#   libqel-dev  component dev     headers, libqel.so, the CMake package and qel.pc
#   qellog      component qellog  the tool and its manual page, qellog-ship, the rsyslog
#                                 templates, the systemd unit, the lnav formats and the
#                                 operations guide
# Configure with the system prefix, then build the target `package`:
#   cmake -S . -B build-deb -G Ninja -DCMAKE_INSTALL_PREFIX=/usr -DQEL_BUILD_TESTS=OFF
#   cmake --build build-deb -j2 --target package
# packaging/README.md says what lintian reports and why that is left.
# ------------------------------------------------------------------------------------------------
set(QEL_PACKAGE_MAINTAINER "qel developers <qel-dev@example.com>" CACHE STRING
    "Maintainer field of the Debian packages: Name <address>")

set(QEL_DEB_LIB_PACKAGE libqel${PROJECT_VERSION_MAJOR})
set(QEL_DEB_PACKAGES lib ${QEL_DEB_LIB_PACKAGE} dev libqel-dev)

# The tool's companions, under the paths the systemd unit and the operations guide name.
if(TARGET qellog)
    list(APPEND QEL_DEB_PACKAGES qellog qellog)
    install(PROGRAMS packaging/rsyslog/qellog-ship DESTINATION lib/qellog COMPONENT qellog)
    install(FILES packaging/rsyslog/qellog-follow.service DESTINATION lib/systemd/system
            COMPONENT qellog)
    # Templates, not live configuration: a device and a collector need different ones, and the
    # device's names a collector host to be filled in (docs/operations.md says how).
    install(FILES packaging/rsyslog/qellog-device.conf packaging/rsyslog/qellog-collector.conf
            DESTINATION ${CMAKE_INSTALL_DATADIR}/qellog/rsyslog COMPONENT qellog)
    install(FILES docs/operations.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qellog
            COMPONENT qellog)
    # The manual page is written by hand and kept beside the other packaging files; it is
    # installed compressed, as the system's manual pages are. gzip is required, so a build
    # never goes without the page unnoticed.
    find_program(QEL_GZIP gzip REQUIRED)
    set(QEL_MAN_PAGE ${PROJECT_BINARY_DIR}/man/qellog.1)
    add_custom_command(OUTPUT ${QEL_MAN_PAGE}.gz
        COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/packaging/man/qellog.1
                ${QEL_MAN_PAGE}
        COMMAND ${QEL_GZIP} -9nf ${QEL_MAN_PAGE}
        DEPENDS ${PROJECT_SOURCE_DIR}/packaging/man/qellog.1
        COMMENT "Compressing the manual page qellog.1" VERBATIM)
    add_custom_target(qellog-man ALL DEPENDS ${QEL_MAN_PAGE}.gz)
    install(FILES ${QEL_MAN_PAGE}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT qellog)
endif()

# Every package carries its copyright and changelog in /usr/share/doc/<package>/. They are
# installed only into the packages (EXCLUDE_FROM_ALL), not by a plain `cmake --install`.
string(TIMESTAMP QEL_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(packaging/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)
find_program(QEL_GZIP gzip)
if(QEL_GZIP)
    execute_process(COMMAND ${QEL_GZIP} -9nc ${PROJECT_BINARY_DIR}/debian/changelog
                    OUTPUT_FILE ${PROJECT_BINARY_DIR}/debian/changelog.gz)
    set(component_names ${QEL_DEB_PACKAGES})
    while(component_names)
        list(POP_FRONT component_names component package)
        install(FILES packaging/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog.gz
                DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
                COMPONENT ${component} EXCLUDE_FROM_ALL)
    endwhile()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${QEL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Each package has a summary of its own, the first line of its description below; the
# project's one-line description would otherwise be put in front of all three. CPack indents
# the lines after the summary by one space and turns an empty line into " .", so they are
# written here without either.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
# The packages' modes do not depend on the umask of the checkout or of the build: control
# files get the modes Debian asks for (the triggers file 0644 also from a checkout made
# with umask 002), folders 0755, and files the modes install() gives them.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# The packages hold stripped files; the build tree keeps the debug information (the ABI check
# reads it there).
set(CPACK_STRIP_FILES ON)
# dpkg-shlibdeps finds the system libraries each package needs; the shlibs file of libqel1
# gives every package built against it "libqel1 (>= VERSION)" in turn, and its ldconfig
# trigger refreshes the loader's cache.
# That is also how qellog comes to depend on RE2 and zlib (--grep and archives); building it
# needs pkg-config, libre2-dev and zlib1g-dev, which .ci/packages.sh installs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# qellog's libqel1 comes from its component dependency ("libqel1 (= VERSION)"): dpkg-shlibdeps
# only needs to find the built library to look past it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${QEL_DEB_LIB_PACKAGE})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_LIB_DESCRIPTION "camera-device kit base library: logging, error codes, platform services
libqel is the shared library that the camera-device kit's other libraries
and applications link against. It gives them one logging facility (C entry
points, a process-wide log manager, a console writer and a file writer that
starts a new file at a size limit and never loses a record), the kit's table
of error codes with their messages, and thin platform services: threads, a
recursive critical section, an auto-reset event, files with a byte limit and
clocks.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqel-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS lib)
set(CPACK_DEBIAN_DEV_DESCRIPTION "camera-device kit base library - development files
libqel is the camera-device kit's base library: logging, error codes and
platform services.

This package holds what is needed to build against it: the headers for C
(C99 and later) and C++ (C++11 and later), the link libqel.so, the CMake
package qel::qel (find_package(qel)) and the pkg-config module qel.")

set(CPACK_DEBIAN_QELLOG_PACKAGE_NAME qellog)
set(CPACK_DEBIAN_QELLOG_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_QELLOG_DEPENDS lib)
set(CPACK_DEBIAN_QELLOG_PACKAGE_SUGGESTS "rsyslog, rsyslog-gnutls, lnav")
set(CPACK_DEBIAN_QELLOG_DESCRIPTION "write, read, follow and prune the camera-device kit's log files
qellog logs messages or the lines of its input through libqel into
size-limited log files, and reads log folders back: cat prints the records
whole and in order, also as JSON lines, with filters by level, module, time,
thread and text; follow goes on as the writers add records and keeps its
place in a state file; stats summarizes a folder; prune deletes the oldest
files.

It comes with qellog-ship and a systemd unit that feed a folder's records to
rsyslog, rsyslog configuration templates for a device and a collector, and
log formats for lnav.")

set(CPACK_COMPONENTS_ALL lib dev)
if(TARGET qellog)
    list(APPEND CPACK_COMPONENTS_ALL qellog)
endif()
include(CPack)
