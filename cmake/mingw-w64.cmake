# Cross build of the Windows x64 DLL with MinGW-w64 on Debian:
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# The posix-threads compiler, since the win32-threads one has no std::thread or
# std::mutex. Everything links its runtime statically, so vrn.dll needs only the
# system's DLLs and the host's opends60.dll.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VRN_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VRN_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VRN_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${VRN_MINGW_PREFIX}-windres)
set(CMAKE_DLLTOOL ${VRN_MINGW_PREFIX}-dlltool)

set(CMAKE_FIND_ROOT_PATH /usr/${VRN_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
