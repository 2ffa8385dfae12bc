# Toolchain for 32-bit ARM with uClibc-ng: the compiler that scripts/build-uclibc builds, and the folder
# with the target's headers and libraries that it fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
get_filename_component(uclibc ${CMAKE_CURRENT_LIST_DIR}/../build/uclibc ABSOLUTE)
set(CMAKE_SYSROOT ${uclibc}/root)
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-mthumb -fstack-protector-strong")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-z,relro,-z,now")
# libstdc++ names the functions of pthread weakly: in a static program, the calls of those that nothing
# else asks for would do nothing.
foreach(name IN ITEMS create join detach once key_create mutex_lock mutex_trylock mutex_timedlock
        mutex_unlock cond_wait cond_timedwait cond_signal cond_broadcast cond_destroy)
    string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-u,pthread_${name}")
endforeach()
set(CMAKE_C_COMPILER ${uclibc}/compiler/bin/arm-linux-uclibcgnueabihf-gcc)
set(CMAKE_CXX_COMPILER ${uclibc}/compiler/bin/arm-linux-uclibcgnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)

include(${CMAKE_CURRENT_LIST_DIR}/search-sysroot.cmake)
