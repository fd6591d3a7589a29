# cmake -DNM=<nm> -DPLUGIN=<plug-in file> -P CheckExports.cmake
#
# Fails unless CreateHardwareModuleLibrary is the only symbol the plug-in
# exports: every other symbol would be a second way into the library.
execute_process(COMMAND ${NM} -D --defined-only ${PLUGIN}
                OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  if(errors MATCHES "file format not recognized|not recognized as a valid object")
    message("nm cannot read the plug-in (${NM}): ${errors}")
    return()
  endif()
  message(FATAL_ERROR "${NM} -D --defined-only ${PLUGIN} failed (${result}): ${errors}")
endif()

message("${NM} -D --defined-only ${PLUGIN}:\n${listing}")
string(REPLACE "\n" ";" lines "${listing}")
set(functions "")
set(others "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) (.+)$")
    set(type "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    if(type STREQUAL "A")
      # Version nodes of the linker script, not symbols of the code.
      continue()
    elseif(type MATCHES "^[TtWiu]$")
      list(APPEND functions "${name}")
    else()
      list(APPEND others "${type} ${name}")
    endif()
  endif()
endforeach()

if(NOT functions STREQUAL "CreateHardwareModuleLibrary")
  message(FATAL_ERROR "exported functions are '${functions}', expected only CreateHardwareModuleLibrary")
endif()
if(others)
  message(FATAL_ERROR "the plug-in also exports: ${others}")
endif()
message("only CreateHardwareModuleLibrary is exported")
