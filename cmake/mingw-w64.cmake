# Cross-build of zanth.dll and the Windows test programs from Debian with mingw-w64 (the posix
# thread model, which std::thread and std::mutex need). Used by scripts/windows.sh:
#   cmake -S . -B build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(ZANTH_MINGW_TRIPLE x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${ZANTH_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ZANTH_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${ZANTH_MINGW_TRIPLE}-windres)
set(CMAKE_OBJDUMP ${ZANTH_MINGW_TRIPLE}-objdump)

# Only the cross tree is searched for libraries and headers: the host's /usr/include must never
# reach the Windows compiler. Boost (header-only here) is made visible through a directory of
# its own that scripts/windows.sh links to the host's Boost headers.
set(CMAKE_FIND_ROOT_PATH /usr/${ZANTH_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The test programs run under Wine; gtest_discover_tests and add_test use this too.
find_program(ZANTH_WINE64 NAMES wine64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
if(NOT ZANTH_WINE64)
  find_program(ZANTH_WINE64 NAMES wine64 wine)
endif()
if(ZANTH_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZANTH_WINE64})
endif()
