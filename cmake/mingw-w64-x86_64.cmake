# Cross build of the 64-bit Windows DLL with Debian's MinGW-w64 GCC, tests run under Wine.
#
# The POSIX-threads flavour is named explicitly: the plain x86_64-w64-mingw32-g++ may be the
# win32-threads flavour, which has no std::thread, std::mutex or std::condition_variable.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(mingw_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${mingw_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${mingw_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${mingw_triple}-windres)

# Headers and libraries come from the MinGW sysroot only; build tools from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${mingw_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Every program and DLL carries the GCC, C++ and winpthread runtimes inside itself, so that
# nothing but our own DLLs has to be found at run time (under Wine as on a user's machine).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Test programs, test discovery included, run under Wine with a prefix private to this build
# folder; see wine-run.sh.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh")
