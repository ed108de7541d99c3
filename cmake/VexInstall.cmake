# Installs the command and the module; away from Windows, where a host has the SDK, also what a host is built with: the
# headers, a CMake package and a pkg-config file.

get_property(module GLOBAL PROPERTY VEX_MODULE)

if(TARGET vex_cli)
    install(TARGETS vex_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()
if(NOT module)
    return()
endif()
if(WIN32)
    install(TARGETS ${module} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    return()
endif()

# The headers keep their own paths ("platform/pipeline.h") below one folder of ours.
set(VEX_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/vex)
set(VEX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/vex)

# Like the module of a system that has COM itself, ours exports four functions and nothing else; a host takes task memory,
# error information and text conversion from the platform library, of which it links its own copy.
set_target_properties(${module} PROPERTIES EXPORT_NAME vex)
set_target_properties(vex_platform PROPERTIES EXPORT_NAME platform)
target_link_libraries(${module} INTERFACE vex_platform)
target_include_directories(vex_platform PUBLIC $<INSTALL_INTERFACE:${VEX_INSTALL_INCLUDEDIR}>)

install(TARGETS ${module} vex_platform EXPORT vexTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/platform DESTINATION ${VEX_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.h" PATTERN windows EXCLUDE PATTERN http.h EXCLUDE PATTERN curl_library.h EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/formats DESTINATION ${VEX_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*_interface.h")
install(FILES ${PROJECT_SOURCE_DIR}/src/framework/vex_interfaces.h
    DESTINATION ${VEX_INSTALL_INCLUDEDIR}/framework COMPONENT development)

include(CMakePackageConfigHelpers)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/vexConfig.cmake.in ${PROJECT_BINARY_DIR}/vexConfig.cmake
    INSTALL_DESTINATION ${VEX_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vexConfig.cmake ${PROJECT_BINARY_DIR}/vexConfigVersion.cmake
    DESTINATION ${VEX_INSTALL_CMAKEDIR} COMPONENT development)
install(EXPORT vexTargets NAMESPACE vex:: DESTINATION ${VEX_INSTALL_CMAKEDIR} COMPONENT development)

# The pkg-config file finds the prefix from its own place, so that an installed tree may be moved.
file(RELATIVE_PATH VEX_PREFIX_FROM_PKGCONFIG
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/packaging/vex.pc.in ${PROJECT_BINARY_DIR}/vex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
