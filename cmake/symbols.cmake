# What a shipped library or program gives up to be small, and a debugger finds beside it: a PDB from clang, for WinDbg and
# Visual Studio; from g++, which makes none, a file for gdb.
if(WIN32 AND NOT UNDER_TEST)
  if(NOT ZT_COMPILER STREQUAL gcc AND NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    message(FATAL_ERROR "This build directory was made when g++ compiled the product: cmake --fresh --preset ...")
  endif()
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-g>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # A debugger walks a 32-bit stack by its frame pointers.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-gcodeview> $<$<COMPILE_LANGUAGE:CXX>:-fno-omit-frame-pointer>)
  endif()
endif()

function(keep_symbols_beside target)
  set(file $<TARGET_FILE:${target}>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # Its name stands in the file without the directory of this build.
    set(pdb ${target}.pdb)
    target_link_options(${target} PRIVATE -Wl,--pdb=${CMAKE_BINARY_DIR}/${pdb} -Wl,-Xlink=-pdbaltpath:${pdb})
    add_custom_command(TARGET ${target} POST_BUILD COMMAND ${CMAKE_OBJCOPY} --strip-all ${file}
                       BYPRODUCTS ${CMAKE_BINARY_DIR}/${pdb} VERBATIM)
  else()
    set(debug ${CMAKE_BINARY_DIR}/$<TARGET_FILE_NAME:${target}>.debug)
    add_custom_command(TARGET ${target} POST_BUILD
                       COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${file} ${debug}
                       COMMAND ${CMAKE_OBJCOPY} --strip-all ${file}
                       COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${debug} ${file} VERBATIM)
  endif()
endfunction()
