# Cross-build for an ARM panel with Debian's cross compiler, against the root that
# scripts/prepare-arm.sh unpacked into KEL_ARM_DIR; built programs run under its qemu (CTest,
# custom commands).
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux.toolchain.cmake -DKEL_ARM_ARCH=armhf|arm64
#         -DKEL_ARM_DIR=$PWD/build-armhf -DKEL_HOST_KELPACK=$PWD/build/tools/kelpack ...
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEL_ARM_ARCH KEL_ARM_DIR)
if(KEL_ARM_ARCH STREQUAL "armhf")
    set(CMAKE_SYSTEM_PROCESSOR arm)
    set(kel_triplet arm-linux-gnueabihf)
    set(kel_qemu qemu-arm)
elseif(KEL_ARM_ARCH STREQUAL "arm64")
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(kel_triplet aarch64-linux-gnu)
    set(kel_qemu qemu-aarch64)
else()
    message(FATAL_ERROR "KEL_ARM_ARCH is '${KEL_ARM_ARCH}': set it to armhf or arm64")
endif()
set(kel_arm_dir "${KEL_ARM_DIR}")
if(NOT IS_ABSOLUTE "${kel_arm_dir}")
    message(FATAL_ERROR "KEL_ARM_DIR '${KEL_ARM_DIR}' must be an absolute path")
endif()
if(NOT IS_DIRECTORY "${kel_arm_dir}/sysroot/usr/lib/${kel_triplet}" OR NOT EXISTS "${kel_arm_dir}/qemu/${kel_qemu}")
    message(FATAL_ERROR "KEL_ARM_DIR '${KEL_ARM_DIR}' holds no ${KEL_ARM_ARCH} root and emulator: "
                        "run scripts/prepare-arm.sh ${KEL_ARM_ARCH} DIR first")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${kel_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${kel_triplet}-g++)
set(CMAKE_SYSROOT ${kel_arm_dir}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${kel_arm_dir}/qemu/${kel_qemu} -L ${kel_arm_dir}/sysroot)
