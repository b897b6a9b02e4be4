# What consumers of an installed tree find: the CMake package VyrPtp (imported
# targets VyrPtp::VyrPtp, VyrPtp::VyrFramework, VyrPtp::VyrPlatform,
# VyrPtp::VyrSimPlatform), the pkg-config module vyrptp, and the Debian
# packages that CPack makes of them.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VyrPtp)
install(EXPORT VyrPtpTargets NAMESPACE VyrPtp:: DESTINATION ${config_dir} COMPONENT development)
configure_package_config_file(cmake/VyrPtpConfig.cmake.in VyrPtpConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(VyrPtpConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VyrPtpConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/VyrPtpConfigVersion.cmake
        DESTINATION ${config_dir} COMPONENT development)
# Relative to its own place, so that the installed tree can move.
file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" pc_to_prefix ${pc_to_prefix})
configure_file(cmake/vyrptp.pc.in vyrptp.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vyrptp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# Debian packages, one per component: libvyrptp<SOVERSION> (the libraries),
# libvyrptp-dev (headers, CMake package, pkg-config module) and vyrptp-sim.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vyrptp)
set(CPACK_PACKAGE_VENDOR "libVyrPtp developers")
set(CPACK_PACKAGE_CONTACT "libVyrPtp developers <vyrptp@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Hardware-facing half of a PTP agent for modular network switches")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(VYRPTP_BUILD_SIM)
  list(APPEND CPACK_COMPONENTS_ALL simulator)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The simulator's own libraries come from the runtime package (a dependency
# below), not from the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/framework ${PROJECT_BINARY_DIR}/src/VyrPtp)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvyrptp${VYRPTP_SOVERSION})
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "libVyrPtp, its framework, platform interfaces and simulated platform")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvyrptp-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libfmt-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "libVyrPtp development files: headers, CMake package, pkg-config module")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME vyrptp-sim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION net)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION "vyrptp-sim: runs a virtual switch with libVyrPtp from a scenario file")
set(CPACK_COMPONENT_SIMULATOR_DEPENDS runtime)
include(CPack)
