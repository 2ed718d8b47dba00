# What the Windows targets share: cross-compiled with MinGW for ZT_MACHINE, its name of the processor. The win32 thread
# model is enough for the product; what is built to run under Wine (tests, host) sets ZT_THREADS to posix, for GoogleTest
# and std::mutex.
#
# clang compiles it, which makes PDBs and is quicker, with MinGW's headers and libraries; ZT_COMPILER=gcc takes g++, for its
# warnings. Tools that take std::mutex have ZT_RUNTIME, where clang finds headers and libraries of the one thread model,
# replaced by ZT_THREADED_RUNTIME, the other's.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${ZT_MACHINE})
if(NOT DEFINED ZT_THREADS)
  set(ZT_THREADS win32)
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZT_THREADS ZT_COMPILER)
set(gxx ${ZT_MACHINE}-w64-mingw32-g++-${ZT_THREADS})
if(ZT_COMPILER STREQUAL gcc)
  set(CMAKE_C_COMPILER ${ZT_MACHINE}-w64-mingw32-gcc-${ZT_THREADS})
  set(CMAKE_CXX_COMPILER ${gxx})
else()
  set(CMAKE_C_COMPILER clang)
  set(CMAKE_CXX_COMPILER clang++)
  set(CMAKE_C_COMPILER_TARGET ${ZT_MACHINE}-w64-mingw32)
  set(CMAKE_CXX_COMPILER_TARGET ${ZT_MACHINE}-w64-mingw32)
  # clang does not find these where Debian has them.
  execute_process(COMMAND ${gxx} -print-libgcc-file-name OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
  get_filename_component(libraries "${libgcc}" DIRECTORY)
  set(threads -pthread)
  if(ZT_THREADS STREQUAL win32)
    set(threads "")
    set(ZT_RUNTIME ${libraries})
    string(REGEX REPLACE "win32$" "posix" ZT_THREADED_RUNTIME ${libraries})
  endif()
  set(headers ${libraries}/include/c++)
  # What g++ was told when it made that library: clang takes it that types are compared inline, and defines it once more.
  set(library -D__GXX_TYPEINFO_EQUALITY_INLINE=0)
  set(CMAKE_CXX_FLAGS_INIT "-stdlib++-isystem${headers} -isystem${headers}/${ZT_MACHINE}-w64-mingw32 ${library}")
  # The same sources in the same place make the same bytes: no time of the build in them.
  # -B: the start that registers the frames of exceptions for 32 bits is gcc's, not the empty one beside the headers.
  set(link "-fuse-ld=lld -Wl,-Xlink=-Brepro -B${libraries} -L${libraries} ${threads}")
  set(CMAKE_EXE_LINKER_FLAGS_INIT ${link})
  set(CMAKE_SHARED_LINKER_FLAGS_INIT ${link})
  set(CMAKE_OBJCOPY llvm-objcopy) # that of binutils writes the time into what it strips
endif()
set(CMAKE_RC_COMPILER ${ZT_MACHINE}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${ZT_MACHINE}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
