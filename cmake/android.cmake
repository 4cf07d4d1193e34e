# Android's own headers and its log library, as Debian packages them (android-liblog-dev,
# android-libcutils-dev, android-libutils-dev).
find_path(ANDROID_INCLUDE_DIR android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
find_library(ANDROID_LIBLOG log
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_LIBLOG} DIRECTORY)

add_library(android_headers INTERFACE)
target_include_directories(android_headers SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
# <cutils/properties.h> includes a header of Android's C library that Debian leaves out.
target_include_directories(android_headers INTERFACE ${CMAKE_SOURCE_DIR}/platform/linux/include)

add_library(android_log INTERFACE)
target_link_libraries(android_log INTERFACE android_headers ${ANDROID_LIBLOG})
target_link_options(android_log INTERFACE -Wl,-rpath,${ANDROID_LIBRARY_DIR})
