# The Windows library for x86.
set(ZT_ARCHITECTURE x86)
set(ZT_MACHINE i686)
include(${CMAKE_CURRENT_LIST_DIR}/windows.cmake)
