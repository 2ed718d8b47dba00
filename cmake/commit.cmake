# Run by every build: writes OUT, a header with the commit that the sources in SOURCE come from, when it has changed.
cmake_minimum_required(VERSION 3.25)
find_program(GIT git)
set(commit "unknown (built without git)")
if(GIT)
  # Of these sources, and not of a repository that they were unpacked in.
  execute_process(COMMAND ${GIT} ls-files --error-unmatch CMakeLists.txt WORKING_DIRECTORY ${SOURCE}
                  RESULT_VARIABLE foreign OUTPUT_QUIET ERROR_QUIET)
  execute_process(COMMAND ${GIT} describe --always --abbrev=12 --dirty=+changes --exclude=* WORKING_DIRECTORY ${SOURCE}
                  RESULT_VARIABLE failed OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(foreign EQUAL 0 AND failed EQUAL 0)
    set(commit ${described})
  endif()
endif()
file(CONFIGURE OUTPUT ${OUT} CONTENT "#define ZT_COMMIT \"@commit@\"\n" @ONLY)
