# ------------------------------------------------------------------------------------------------
# Debian packages, made with CPack from the install components:
#   libqel1     component lib     the shared library (libqel.so.1 and its file), with shlibs
#   libqel-dev  component dev     headers, libqel.so, the CMake package and qel.pc
#   qellog      component qellog  the tool, qellog-ship, the rsyslog configurations, the
#                                 systemd unit and the operations guide
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
    # The manual page is made from the tool's own --help and --version when it is installed,
    # so it never drifts from them; without help2man there is none.
    find_program(QEL_HELP2MAN help2man)
    find_program(QEL_GZIP gzip)
    if(QEL_HELP2MAN AND QEL_GZIP)
        set(QEL_MAN_PAGE ${PROJECT_BINARY_DIR}/man/qellog.1)
        install(CODE "
            file(MAKE_DIRECTORY \"${PROJECT_BINARY_DIR}/man\")
            execute_process(COMMAND \"${QEL_HELP2MAN}\" --no-info --no-discard-stderr
                                    \"--name=log lines into size-limited files and read log folders back\"
                                    --output \"${QEL_MAN_PAGE}\" \"$<TARGET_FILE:qellog>\"
                            COMMAND_ERROR_IS_FATAL ANY)
            execute_process(COMMAND \"${QEL_GZIP}\" -9nf \"${QEL_MAN_PAGE}\" COMMAND_ERROR_IS_FATAL ANY)"
            COMPONENT qellog)
        install(FILES ${QEL_MAN_PAGE}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT qellog)
    endif()
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
set(CPACK_DEBIAN_LIB_DESCRIPTION "base library of the camera-device kit
 libqel is the shared library that the kit's other libraries and applications
 link against: one logging facility with a console writer and a size-rotating
 file writer, the kit's table of error codes, and thin platform services
 (threads, a recursive critical section, an event, files, clocks).")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqel-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS lib)
set(CPACK_DEBIAN_DEV_DESCRIPTION "base library of the camera-device kit - development files
 The headers of libqel for C (C99 and later) and C++ (C++11 and later), the
 link libqel.so, the CMake package qel::qel and the pkg-config file qel.pc.")

set(CPACK_DEBIAN_QELLOG_PACKAGE_NAME qellog)
set(CPACK_DEBIAN_QELLOG_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_QELLOG_DEPENDS lib)
set(CPACK_DEBIAN_QELLOG_PACKAGE_SUGGESTS "rsyslog")
set(CPACK_DEBIAN_QELLOG_DESCRIPTION "log tool of the camera-device kit
 qellog writes lines or messages into the kit's log files and reads log
 folders back in order (cat, follow with a state file, prune). It comes with
 qellog-ship and a systemd unit that feed a folder's records to rsyslog, and
 rsyslog configuration templates for a device and a collector.")

set(CPACK_COMPONENTS_ALL lib dev)
if(TARGET qellog)
    list(APPEND CPACK_COMPONENTS_ALL qellog)
endif()
include(CPack)
