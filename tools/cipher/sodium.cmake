# Finds libsodium once for the whole build and offers it as the target zanth_sodium: through
# pkg-config where there is one, else by a plain search for the header and the library.
include_guard(GLOBAL)

if(NOT TARGET zanth_sodium)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(ZANTH_SODIUM QUIET libsodium)
  endif()
  if(NOT ZANTH_SODIUM_FOUND)
    find_path(ZANTH_SODIUM_INCLUDE_DIRS sodium.h)
    find_library(ZANTH_SODIUM_LINK_LIBRARIES sodium)
    if(NOT ZANTH_SODIUM_INCLUDE_DIRS OR NOT ZANTH_SODIUM_LINK_LIBRARIES)
      message(FATAL_ERROR "libsodium not found: the reference cipher plugin needs it "
                          "(Debian: libsodium-dev), or configure with -DZANTH_BUILD_TOOLS=OFF")
    endif()
  endif()
  add_library(zanth_sodium INTERFACE IMPORTED GLOBAL)
  target_include_directories(zanth_sodium INTERFACE ${ZANTH_SODIUM_INCLUDE_DIRS})
  target_link_libraries(zanth_sodium INTERFACE ${ZANTH_SODIUM_LINK_LIBRARIES})
endif()
