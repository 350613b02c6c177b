# What an application finds after installation: the public headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(DIRECTORY vantrel/include/vantrel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vantrelTargets NAMESPACE vantrel::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vantrel FILE vantrelConfig.cmake)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vantrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
file(RELATIVE_PATH PC_INCLUDE_FROM_LIB ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/vantrel.pc.in ${CMAKE_BINARY_DIR}/vantrel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vantrelConfigVersion.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vantrel)
install(FILES ${CMAKE_BINARY_DIR}/vantrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
