# The Windows library for x64.
set(ZT_ARCHITECTURE x64)
set(ZT_MACHINE x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/windows.cmake)
