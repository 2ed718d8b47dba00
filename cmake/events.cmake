# The events of src/provider/event_log.mc: their names and numbers for every target (event_ids.h), and on Windows the
# sentences, as the resource that the Event Viewer reads (event_log.rc).
set(EVENTS ${CMAKE_SOURCE_DIR}/src/provider/event_log.mc)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${EVENTS})
set(severity_Informational 0x4)
set(severity_Warning 0x8)
set(severity_Error 0xC)
file(STRINGS ${EVENTS} lines REGEX "^(MessageId|Severity|SymbolicName)=")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([A-Za-z]+)=(.*)$" line "${line}")
  set(event_${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
  if(CMAKE_MATCH_1 STREQUAL SymbolicName) # the last line of each
    math(EXPR number "(${severity_${event_Severity}} << 28) | ${event_MessageId}" OUTPUT_FORMAT HEXADECIMAL)
    string(APPEND enumerators "    ${event_SymbolicName} = ${number},\n")
  endif()
endforeach()
file(CONFIGURE OUTPUT ${GENERATED}/event_ids.h CONTENT [[
// Made from src/provider/event_log.mc: the events' numbers, with their severity in the two highest bits.
#pragma once

#include "platform/platform.h"

enum EventId : DWORD {
@enumerators@};
]] @ONLY)

if(WIN32)
  add_custom_command(
    OUTPUT ${GENERATED}/event_log.rc ${GENERATED}/MSG00001.bin
    COMMAND ${ZT_MACHINE}-w64-mingw32-windmc -U -h ${GENERATED} -r ${GENERATED} ${EVENTS}
    DEPENDS ${EVENTS}
    VERBATIM)
  set_source_files_properties(${GENERATED}/event_log.rc PROPERTIES INCLUDE_DIRECTORIES ${GENERATED} OBJECT_DEPENDS
                              ${GENERATED}/MSG00001.bin)
endif()
