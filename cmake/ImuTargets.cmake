# Helpers shared by every CMakeLists of the project.
#
# The library is assembled from one OBJECT library per subsystem
# (imu_add_part). The same objects make libimu.so and imu_static; tests and
# benchmarks link imu_static, so they reach internal names that the shared
# library hides.

set(IMU_SRC_DIR ${PROJECT_SOURCE_DIR}/src)

function(imu_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wdouble-promotion
        -Wmissing-declarations -Wformat=2 -Wnull-dereference
        -Wimplicit-fallthrough -Wundef
        $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>)
    if(IMU_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

# Results must not depend on whether a compiler fuses a multiply and an add.
add_compile_options(-ffp-contract=off)
# A 32-bit glibc build otherwise fails readdir and stat with EOVERFLOW on
# file systems with 64-bit inode numbers (a phone's C library never does).
add_compile_definitions(_FILE_OFFSET_BITS=64)

# imu_add_part(<name> [SOURCES <files...>] [DEPENDS <parts...>])
# Creates the OBJECT library imu_<name> from the given sources, or from every
# .cpp of the calling folder when none are given, and registers it for
# libimu.so. DEPENDS names the parts this one builds on (the layering).
function(imu_add_part name)
    cmake_parse_arguments(P "" "" "SOURCES;DEPENDS" ${ARGN})
    if(NOT P_SOURCES)
        file(GLOB P_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    if(NOT P_SOURCES)
        return()  # nothing of this part has landed yet
    endif()
    add_library(imu_${name} OBJECT ${P_SOURCES})
    target_include_directories(imu_${name} PUBLIC
        ${PROJECT_SOURCE_DIR}/include ${IMU_SRC_DIR})
    target_compile_definitions(imu_${name} PRIVATE IMU_BUILDING_LIBRARY)
    foreach(dep ${P_DEPENDS})
        target_link_libraries(imu_${name} PUBLIC $<TARGET_NAME_IF_EXISTS:imu_${dep}>)
    endforeach()
    if(NOT name STREQUAL "platform")
        target_link_libraries(imu_${name} PUBLIC imu_platform)
    endif()
    imu_warnings(imu_${name})
    set_property(GLOBAL APPEND PROPERTY IMU_PARTS imu_${name})
endfunction()
