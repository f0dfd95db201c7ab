# The 32-bit build on a 64-bit machine (package g++-multilib).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_CXX_FLAGS_INIT -m32)
# Where Debian keeps this word size's libraries. A 64-bit one must not be taken in their place.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu)
