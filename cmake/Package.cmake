# A Debian package of what cmake/Install.cmake installs, under /usr:
#   cmake --build BUILD --target ipmisel_dist && (cd BUILD && cpack -G DEB)
# gives BUILD/ipmisel_<version>_<arch>.deb. Its Depends come from the shared
# libraries the binaries link (dpkg-shlibdeps), so nothing is listed by hand.
set(IPMISEL_PACKAGE_MAINTAINER "ipmisel maintainers <ipmisel@example.org>" CACHE STRING
  "Maintainer field of the Debian package")

set(CPACK_PACKAGE_NAME ipmisel)
set(CPACK_PACKAGE_VENDOR "ipmisel")
set(CPACK_PACKAGE_CONTACT "${IPMISEL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "BMC event log, sensor, FRU and firmware collector over raw IPMI")
set(CPACK_PACKAGE_DESCRIPTION
  "ipmisel-collect reads a server's BMCs over raw IPMI (the local one through
the kernel's IPMI driver or KCS/SSIF, remote ones over IPMI 2.0 LAN) and
writes what they know as typed instances, as JSON lines, CSV or a table:
every System Event Log record decoded into one readable message with sensor
names and threshold readings in engineering units, the auxiliary firmware
debug log, the FRU inventory and the firmware levels.

It can record a BMC's answers and replay them, and ships a simulated BMC
with a demo scenario that it runs when no BMC is at hand.")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# man-db so that `man ipmisel-collect` works on a minimal system; the IPMI
# tools are peers, not needs.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "man-db")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git/" "/build[^/]*/" "/out/")

include(CPack)
