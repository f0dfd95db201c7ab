# The 32-bit build on a 64-bit machine (package g++-multilib).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_CXX_FLAGS_INIT -m32)
# Where Debian keeps this word size's libraries. A 64-bit one must not be taken in their place.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/i386-linux-gnu/pkgconfig)

# The libraries that scripts/fetch-m32 has unpacked, as if they were installed.
get_filename_component(cds_m32_libraries ${CMAKE_CURRENT_LIST_DIR}/../build/m32-libraries ABSOLUTE)
if(EXISTS ${cds_m32_libraries}/packages)
    list(APPEND CMAKE_PREFIX_PATH ${cds_m32_libraries}/usr)
    set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${cds_m32_libraries}/usr/include/i386-linux-gnu)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} ${cds_m32_libraries})
    set(ENV{PKG_CONFIG_LIBDIR} ${cds_m32_libraries}/usr/lib/i386-linux-gnu/pkgconfig)
endif()
