# The Debian packages that ./dev package makes, one for each component of cmake/Install.cmake. What
# a package needs of other projects' shared libraries is found by dpkg-shlibdeps; what is named here
# is what the headers and static libraries of the -dev packages need.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The Moravel player developers <root@localhost>" CACHE STRING
  "Who maintains the packages, with an address")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/Player ${PROJECT_BINARY_DIR}/platform)
# Programs go on working with later libraries of the same soname.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(packageFiles ${PROJECT_BINARY_DIR}/packages)
set(same "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(so ${PROJECT_VERSION_MAJOR})
file(WRITE ${packageFiles}/triggers "activate-noawait ldconfig\n")
string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)  # or SOURCE_DATE_EPOCH
string(TIMESTAMP year %Y UTC)
file(WRITE ${packageFiles}/changelog.Debian "moravel-player-qel \
(${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Made by ./dev package of the project's own tree; changelog.gz tells what
    changed there.

 -- ${CPACK_PACKAGE_CONTACT}  ${today}
")
execute_process(COMMAND gzip -9nkf changelog.Debian WORKING_DIRECTORY ${packageFiles})
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  OUTPUT_FILE ${packageFiles}/changelog.gz)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)

# moravel_copyright(COMPONENT PACKAGE...): the file of the component's package, with the terms of the
# packages whose headers become part of it.
function(moravel_copyright component)
  set(text "The Moravel player, QEL side.\n
Copyright ${year} the Moravel player developers\n
No licence has been chosen yet: that is for the owner of the project.\n")
  foreach(part ${ARGN})
    set(file /usr/share/doc/${part}/copyright)
    if(EXISTS ${file})
      file(READ ${file} terms)
      string(APPEND text "\nIt contains code of ${part}, which comes with these terms:\n\n${terms}")
    endif()
  endforeach()
  file(WRITE ${packageFiles}/${component}/copyright "${text}")
endfunction()

# moravel_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION DEPENDENCY...)
macro(moravel_package component name section summary description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(dependencies ${ARGN})
  list(JOIN dependencies ", " CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS)
  if("${section}" STREQUAL libs)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${packageFiles}/triggers)
  endif()
  moravel_copyright(${component} ${headersIn_${component}})
  install(FILES ${packageFiles}/${component}/copyright ${packageFiles}/changelog.gz
    ${packageFiles}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(CPACK_COMPONENTS_ALL)
moravel_package(library libmoravelplayerqel${so} libs
  "preloading and decoding of motion-JPEG tracks"
  "For the Moravel host player: fills its cache with compressed samples of tracks
on remote storage servers, and turns cached samples into pictures of several
sizes, through the elements of a media framework."
  "libmoravelplatform${so} ${same}")
moravel_package(library-dev libmoravelplayerqel-dev libdevel
  "preloading and decoding of motion-JPEG tracks, headers"
  "For hosts of the library libmoravelplayerqel${so}: its headers, and what finds it
for CMake and pkg-config."
  "libmoravelplayerqel${so} ${same}" "libmoravelplatform-dev ${same}" libboost-system-dev)
moravel_package(platform libmoravelplatform${so} libs
  "media framework and host services of the Moravel player"
  "A small working stand-in for the platform that the Moravel player's libraries
stand on: the framework's core and the host's time, logging and queues.")
moravel_package(platform-dev libmoravelplatform-dev libdevel
  "interfaces of the Moravel player's framework and host"
  "What the Moravel player's libraries are built against: the interfaces of the
media framework and of the host player, and the headers of their stand-in."
  "libmoravelplatform${so} ${same}" libboost-thread-dev)
moravel_package(elements-dev libmoravelelements-dev libdevel
  "storage source and motion-JPEG decoder for the Moravel player"
  "A static library: a source that reads motion-JPEG tracks from HTTP servers by
byte ranges, and a decoder to twelve pixel formats."
  "libmoravelplatform-dev ${same}" pkg-config libcurl4-openssl-dev libturbojpeg0-dev libyuv-dev)
set(headersIn_tools libcli11-dev nlohmann-json3-dev)
moravel_package(tools moravel-play video
  "player for motion-JPEG tracks of remote storage servers"
  "Plays, probes, views and serves motion-JPEG tracks without a screen of its own:
pictures go to files, to other programs, to a contact sheet or to a page in the
browser, and a report tells what is late, damaged or missing."
  "libmoravelplayerqel${so} ${same}" fonts-dejavu-core)

include(CPack)
