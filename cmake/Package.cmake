# The Debian packages that ./dev package makes, one for each component of cmake/Install.cmake. What
# a package needs of other projects' shared libraries is found by dpkg-shlibdeps; what is named here
# is what the headers and static libraries of the -dev packages need.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The Moravel player developers <root@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/Player ${PROJECT_BINARY_DIR}/platform)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

# moravel_package(COMPONENT NAME SECTION DESCRIPTION DEPENDENCY...)
macro(moravel_package component name section description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
  set(dependencies ${ARGN})
  list(JOIN dependencies ", " CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS)
endmacro()

set(CPACK_COMPONENTS_ALL)
set(same "(= ${PROJECT_VERSION})")
set(so ${PROJECT_VERSION_MAJOR})
moravel_package(library libmoravelplayerqel${so} libs
  "Preloading and decoding of motion-JPEG tracks for the Moravel host player"
  "libmoravelplatform${so} ${same}")
moravel_package(library-dev libmoravelplayerqel-dev libdevel
  "Headers of the Moravel player, QEL side"
  "libmoravelplayerqel${so} ${same}" "libmoravelplatform-dev ${same}" libboost-thread-dev
  libboost-system-dev)
moravel_package(platform libmoravelplatform${so} libs
  "Small stand-in for the media framework and the host services of the Moravel player")
moravel_package(platform-dev libmoravelplatform-dev libdevel
  "Interfaces of the media framework and the host player, and headers of their stand-in"
  "libmoravelplatform${so} ${same}")
moravel_package(elements-dev libmoravelelements-dev libdevel
  "Storage source and motion-JPEG decoder of the platform stand-in, static"
  "libmoravelplatform-dev ${same}" pkg-config libcurl4-openssl-dev libturbojpeg0-dev libyuv-dev)
moravel_package(tools moravel-play video "Headless player for motion-JPEG tracks"
  "libmoravelplayerqel${so} ${same}" fonts-dejavu-core)

include(CPack)
