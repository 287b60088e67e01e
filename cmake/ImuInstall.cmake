# What `cmake --install` puts into the prefix:
#   <libdir>/libimu.so -> libimu.so.1 -> libimu.so.<version>
#   <includedir>/imu/*.h                    the public headers
#   <libdir>/cmake/imu/                     find_package(imu) -> imu::imu
#   <libdir>/pkgconfig/imu.pc               pkg-config --cflags --libs imu
# Every file is found relative to where it lies, so an installed tree may be
# moved, and a prefix given at install time (cmake --install --prefix) holds.

include(CMakePackageConfigHelpers)

set(IMU_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/imu)

install(TARGETS imu EXPORT imuTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Every header of include/imu declares names the library exports; host.h is
# the host build's control API (file root, log sink, simulated sensors).
install(DIRECTORY include/imu DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")

install(EXPORT imuTargets NAMESPACE imu:: DESTINATION ${IMU_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/imuConfig.cmake.in
    ${PROJECT_BINARY_DIR}/imuConfig.cmake
    INSTALL_DESTINATION ${IMU_INSTALL_CMAKEDIR})
# The soname carries the major version, so only the same major is compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/imuConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/imuConfig.cmake
              ${PROJECT_BINARY_DIR}/imuConfigVersion.cmake
        DESTINATION ${IMU_INSTALL_CMAKEDIR})

# imu.pc names its prefix relative to its own folder (${pcfiledir}).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(IMU_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
    set(IMU_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
    file(RELATIVE_PATH up /x/${CMAKE_INSTALL_LIBDIR}/pkgconfig /x)
    string(REGEX REPLACE "/$" "" up "${up}")
    set(IMU_PC_PREFIX "\${pcfiledir}/${up}")
    set(IMU_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(IMU_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
    set(IMU_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(cmake/imu.pc.in ${PROJECT_BINARY_DIR}/imu.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/imu.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
