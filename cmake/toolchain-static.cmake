# Toolchain for statically linked programs with musl and libc++, made by clang: position-independent
# ones, except for MIPS.
# CSI_RECEIVER_STATIC_ROOT is the folder with the target's headers and libraries, and
# CSI_RECEIVER_STATIC_ARCH names the target: see scripts/build-static, which fills the folder.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CSI_RECEIVER_STATIC_ARCH CSI_RECEIVER_STATIC_ROOT
    CSI_RECEIVER_STATIC_LTO)
set(CMAKE_SYSROOT ${CSI_RECEIVER_STATIC_ROOT})

set(flags "-Oz -ffunction-sections -fdata-sections -fno-asynchronous-unwind-tables")
string(APPEND flags " -fstack-protector-strong")
if(CSI_RECEIVER_STATIC_LTO)
    string(APPEND flags " -flto")
endif()
set(link_kind -static-pie -Wl,--hash-style=gnu)
if(CSI_RECEIVER_STATIC_ARCH STREQUAL armv7)
    set(CMAKE_SYSTEM_PROCESSOR armv7l)
    set(triple arm-linux-musleabihf)
    set(emulator qemu-arm)
    string(APPEND flags " -march=armv7-a -mfpu=vfpv3-d16 -mthumb")
elseif(CSI_RECEIVER_STATIC_ARCH STREQUAL aarch64)
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(triple aarch64-linux-musl)
    set(emulator qemu-aarch64)
elseif(CSI_RECEIVER_STATIC_ARCH STREQUAL mipsel)
    set(CMAKE_SYSTEM_PROCESSOR mips)
    set(triple mipsel-linux-musl)
    set(emulator qemu-mipsel)
    # LLVM writes absolute addresses into the unwind tables, which only GNU's linker makes relative. Its
    # unwinder gives up at a function that saves a floating point register, unless it knows their size.
    string(APPEND flags " -march=mips32r2 -mfp32 -fno-pic")
    set(link_kind -static)
elseif(CSI_RECEIVER_STATIC_ARCH STREQUAL x86_64)
    set(CMAKE_SYSTEM_PROCESSOR x86_64)
    set(triple x86_64-linux-musl)
    set(emulator "")
else()
    message(FATAL_ERROR "CSI_RECEIVER_STATIC_ARCH: '${CSI_RECEIVER_STATIC_ARCH}' is unknown")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator})

foreach(language C CXX ASM)
    set(CMAKE_${language}_COMPILER_TARGET ${triple})
    set(CMAKE_${language}_FLAGS_INIT "${flags}")
    # No level of optimisation besides the one above.
    set(CMAKE_${language}_FLAGS_MINSIZEREL_INIT "-DNDEBUG")
    set(CMAKE_${language}_FLAGS_MINSIZEREL "-DNDEBUG" CACHE STRING "")
endforeach()
string(APPEND CMAKE_CXX_FLAGS_INIT " -stdlib=libc++")
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_ASM_COMPILER clang)
set(CMAKE_AR llvm-ar CACHE STRING "")
set(CMAKE_RANLIB llvm-ranlib CACHE STRING "")

set(link_flags -fuse-ld=lld ${link_kind} -rtlib=libgcc -unwindlib=none
    -Wl,-z,relro,-z,now -Wl,--gc-sections -Wl,--icf=safe -Wl,--build-id=none)
list(JOIN link_flags " " CMAKE_EXE_LINKER_FLAGS_INIT)
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT "-lc++abi -lunwind")

include(${CMAKE_CURRENT_LIST_DIR}/search-sysroot.cmake)
