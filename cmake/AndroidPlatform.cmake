# The Android platform libraries the library links on a device, taken from
# Debian's packages on a host: liblog (android-liblog-dev) and libcutils
# (android-libcutils-dev). Debian installs them in the multiarch "android"
# library directory with their headers under /usr/include/android.

find_path(ANDROID_PLATFORM_INCLUDE_DIR log/log.h PATHS /usr/include/android NO_DEFAULT_PATH)
find_library(ANDROID_LIBLOG log PATH_SUFFIXES android NO_CMAKE_SYSTEM_PATH
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
find_library(ANDROID_LIBCUTILS cutils PATH_SUFFIXES android NO_CMAKE_SYSTEM_PATH
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

if(NOT ANDROID_PLATFORM_INCLUDE_DIR OR NOT ANDROID_LIBLOG OR NOT ANDROID_LIBCUTILS)
    message(FATAL_ERROR "liblog/libcutils not found: run scripts/install-deps.sh")
endif()

add_library(android::log SHARED IMPORTED)
set_target_properties(android::log PROPERTIES
    IMPORTED_LOCATION ${ANDROID_LIBLOG}
    INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_PLATFORM_INCLUDE_DIR})

add_library(android::cutils SHARED IMPORTED)
set_target_properties(android::cutils PROPERTIES
    IMPORTED_LOCATION ${ANDROID_LIBCUTILS}
    INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_PLATFORM_INCLUDE_DIR}
    INTERFACE_LINK_LIBRARIES android::log)
