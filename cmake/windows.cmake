# What the two Windows targets share: cross-compiled with MinGW for ZT_MACHINE, its name of the processor. The win32 thread
# model is enough for the product; what is built to run under Wine (tests, host) sets ZT_THREADS to posix, for GoogleTest
# and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${ZT_MACHINE})
if(NOT DEFINED ZT_THREADS)
  set(ZT_THREADS win32)
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZT_THREADS)
set(CMAKE_C_COMPILER ${ZT_MACHINE}-w64-mingw32-gcc-${ZT_THREADS})
set(CMAKE_CXX_COMPILER ${ZT_MACHINE}-w64-mingw32-g++-${ZT_THREADS})
set(CMAKE_RC_COMPILER ${ZT_MACHINE}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${ZT_MACHINE}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
