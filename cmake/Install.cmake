# What is installed, as components that become packages of their own (cmake/Package.cmake):
#   library, library-dev     the library, and what a host needs to build against it
#   platform, platform-dev   the platform stand-in's core and host, and all interfaces
#   elements-dev             the stand-in's elements, static: only who links them needs their libraries
#   tools                    moravel-play
# Each -dev component is found by find_package and by pkg-config; all paths in it are relative.
include(CMakePackageConfigHelpers)

set(interfaceFolder ${CMAKE_INSTALL_INCLUDEDIR}/moravel)
set(platformFolder ${CMAKE_INSTALL_INCLUDEDIR}/moravel-platform)
set(cmakeFolder ${CMAKE_INSTALL_LIBDIR}/cmake)
set(pkgconfigFolder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefixFromPkgconfig /prefix/${pkgconfigFolder} /prefix)

# moravel_install(COMPONENT PACKAGE PC TARGET...): the targets, with a CMake package and a pkg-config
# file that finds them.
function(moravel_install component package pc)
  install(TARGETS ${ARGN} EXPORT ${package}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT ${component}-dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component}-dev)
  install(EXPORT ${package}Targets NAMESPACE Moravel::
    DESTINATION ${cmakeFolder}/${package} COMPONENT ${component}-dev)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
    ${PROJECT_BINARY_DIR}/${package}Config.cmake INSTALL_DESTINATION ${cmakeFolder}/${package})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake
    ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${cmakeFolder}/${package} COMPONENT ${component}-dev)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc
    DESTINATION ${pkgconfigFolder} COMPONENT ${component}-dev)
endfunction()

# moravel_install_headers(COMPONENT FOLDER PATH...): headers, under the names that they are included by.
function(moravel_install_headers component folder)
  foreach(path ${ARGN})
    cmake_path(GET path PARENT_PATH parent)
    install(FILES ${path} DESTINATION ${folder}/${parent} COMPONENT ${component})
  endforeach()
endfunction()

if(NOT MORAVEL_SYSTEM_PLATFORM)
  moravel_install(platform MoravelPlatform moravel-platform MoravelInterfaces qelCore MoravelHost)
  foreach(room qel Time logging)
    install(DIRECTORY ${room} DESTINATION ${interfaceFolder} COMPONENT platform-dev
      FILES_MATCHING PATTERN "*.h")
  endforeach()
  moravel_install_headers(platform-dev ${interfaceFolder} ${hostInterfaces})
  foreach(room host qelCore)
    install(DIRECTORY platform/${room} DESTINATION ${platformFolder} COMPONENT platform-dev
      FILES_MATCHING PATTERN "*.h")
  endforeach()

  moravel_install(elements MoravelElements moravel-elements qelElements)
  # CMake strips programs and shared libraries itself, of static ones nothing.
  install(CODE "if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libqelElements.a\" COMMAND_ERROR_IS_FATAL ANY)
  endif()" COMPONENT elements-dev)
  foreach(header ${elementsHeaders})
    cmake_path(GET header PARENT_PATH parent)
    install(FILES platform/${header} DESTINATION ${platformFolder}/${parent} COMPONENT elements-dev)
  endforeach()

  install(TARGETS moravel-play RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(TARGETS moravel-contact-sheet LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/moravel-play
    COMPONENT tools)
endif()

moravel_install(library MoravelPlayerQEL moravel-player-qel MoravelPlayerQEL)
moravel_install_headers(library-dev ${interfaceFolder} ${libraryHeaders})
set(documentsFolder ${CMAKE_INSTALL_DATADIR}/doc/libmoravelplayerqel-dev)
install(FILES docs/embedding.md docs/elements.md docs/platform.md
  DESTINATION ${documentsFolder}/docs COMPONENT library-dev)
install(DIRECTORY examples DESTINATION ${documentsFolder} COMPONENT library-dev)
