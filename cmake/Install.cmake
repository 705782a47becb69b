# Two packages: the platform stand-in (MoravelPlatform) and the library (MoravelPlayerQEL), so that
# the one can be replaced under the other.
include(CMakePackageConfigHelpers)

function(moravel_install_package package)
  install(EXPORT ${package}Targets NAMESPACE Moravel::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
    ${PROJECT_BINARY_DIR}/${package}Config.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake
    ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
endfunction()

if(NOT MORAVEL_SYSTEM_PLATFORM)
  install(TARGETS MoravelInterfaces qelCore MoravelHost qelElements EXPORT MoravelPlatformTargets)
  foreach(room qel Time logging)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${room}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moravel FILES_MATCHING PATTERN "*.h")
  endforeach()
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/host ${PROJECT_SOURCE_DIR}/platform/qelCore
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moravel FILES_MATCHING PATTERN "*.h")
  install(FILES ${PROJECT_SOURCE_DIR}/platform/elements/BuiltinElements.h
    ${PROJECT_SOURCE_DIR}/platform/elements/StopScope.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moravel/elements)
  moravel_install_package(MoravelPlatform)
  install(TARGETS moravel-play)
endif()

install(TARGETS MoravelPlayerQEL EXPORT MoravelPlayerQELTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Player
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moravel FILES_MATCHING PATTERN "*.h"
  PATTERN "HostLog.h" EXCLUDE)
moravel_install_package(MoravelPlayerQEL)
