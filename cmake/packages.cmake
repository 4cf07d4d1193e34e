# Debian packages of what is installed: `cpack` with this build tree's CPackConfig.cmake, or
# `./dev package`.
if(CMAKE_CROSSCOMPILING)
    return()
endif()

set(MARLO_MAINTAINER "The marlo_daemon authors <marlo@localhost.localdomain>"
    CACHE STRING "Name and address of whoever gives these packages to others")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL daemon tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The service file is told the path at which the daemon will be.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package_time.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/package_directories.cmake)

set(CPACK_PACKAGE_NAME marlo)
set(CPACK_PACKAGE_VENDOR "The marlo_daemon authors")
set(CPACK_PACKAGE_CONTACT ${MARLO_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SOURCE marlo)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_MARLO_CHANGELOG ${CMAKE_SOURCE_DIR}/tools/debian/changelog)

set(package_scripts ${CMAKE_SOURCE_DIR}/tools/debian/marlo-daemon)
set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME marlo-daemon)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION admin)
# What makes the service's user and directories.
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS
    "systemd | systemd-standalone-sysusers, systemd | systemd-standalone-tmpfiles")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
    ${package_scripts}/postinst ${package_scripts}/prerm ${package_scripts}/postrm)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION
"boot and update a companion co-processor
Looks after the always-on companion processor of a phone or watch for as long
as the device runs: boots it, decides from versions and boot modes whether
its firmware must change, gives it new firmware over a packet channel, keeps
the memory of the variant without flash in files, and serves it again after
each loss of power.
.
The service runs as a user of its own, and starts when the control device of
the co-processor appears.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME marlo-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
# marlo-sim runs the daemon, and mounts its device files with FUSE.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "fuse3, marlo-daemon (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "bash-completion, wireshark | tshark")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"tools for a companion co-processor's firmware
For those who make, ship or debug the firmware of the always-on companion
processor that marlo-daemon looks after. None of them needs a device:
marlo-sim runs the daemon against a virtual co-processor and judges what it
does; marlo-fw tells what the daemon makes of a directory of firmware images.")
include(CPack)
