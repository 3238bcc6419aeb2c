# Settings for the node's device build with the NDK, without a platform tree:
#
#     cmake -S . -B build/device -G Ninja \
#         -DANDROID_NDK=FOLDER -DPLATFORM_LIBRARIES=FOLDER -C device/ndk.cmake
#     cmake --build build/device --target capturebokeh
#
# PLATFORM_LIBRARIES holds the device's own libraries, which the NDK lacks: the node is linked
# against them, so that nothing stays undefined and the device's loader knows where to look.

if(NOT IS_DIRECTORY "${PLATFORM_LIBRARIES}")
    message(FATAL_ERROR "PLATFORM_LIBRARIES must name the folder of the device's libraries")
endif()

set(CMAKE_TOOLCHAIN_FILE "${ANDROID_NDK}/build/cmake/android.toolchain.cmake" CACHE FILEPATH "")
set(ANDROID_ABI arm64-v8a CACHE STRING "")
set(ANDROID_PLATFORM android-29 CACHE STRING "")
# The NDK's shared C++ library is not on a device's vendor partition.
set(ANDROID_STL c++_static CACHE STRING "")

set(BUILD_HOST OFF CACHE BOOL "")
# A compiler newer than ours may warn of more.
set(WARNINGS_AS_ERRORS OFF CACHE BOOL "")
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
string(JOIN " " link_flags
    -L${PLATFORM_LIBRARIES} -Wl,--no-undefined -Wl,--no-as-needed
    -Wl,-soname,com.qav.node.capturebokeh.so
    -l:camera.qcom.so -lcom.qti.chinodeutils -lcutils -llog -ltessola_dualcam_refocus_image)
set(CMAKE_MODULE_LINKER_FLAGS "${link_flags}" CACHE STRING "")
