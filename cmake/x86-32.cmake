# Debian's cross compiler for 32-bit x86; programs run through the user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_CXX_FLAGS_INIT "-march=i686 -msse2 -mfpmath=sse -D_FILE_OFFSET_BITS=64")
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(L2RIB_EMULATOR qemu-i386 -L /usr/i686-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR ${L2RIB_EMULATOR})
